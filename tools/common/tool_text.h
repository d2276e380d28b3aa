// Text from outside (names, file contents, data) in messages and on terminals.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kovatool {

// Would a terminal obey a character instead of showing it? These are the ASCII controls and the
// second set of controls, and marks that change the direction of text or break lines.
bool obeyed_by_terminals(uint32_t code_point);

// The text with every such character, and every byte that is not UTF-8, spelled \xNN or \uNNNN.
// Characters in keep stay.
std::string printable(std::string_view text, std::string_view keep = {});

// One line on standard error: the program, a colon and the text, made printable.
void tell(const char *program, std::string_view text);

// From now on, a process that ends for want of memory, where no exception can say so, ends with
// this line on standard error and status 3 instead of a signal, and leaves no unfinished file.
void end_without_memory(const char *line);

// True if the system has taken everything that was written to standard output; else errno tells
// why.
bool flush_standard_output();

} // namespace kovatool
