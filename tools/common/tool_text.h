// Text of others (names, file contents, data) in messages and on terminals.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kovatool {

// True of a character that a terminal would obey instead of showing it: controls of ASCII and
// their second set, marks that turn the direction of text or break lines.
bool obeyed_by_terminals(uint32_t code_point);

// The text with every such character, and every byte that is no UTF-8, spelled \xNN or \uNNNN.
// Characters of keep stay.
std::string printable(std::string_view text, std::string_view keep = {});

// One line on standard error: the program, a colon and the text, made printable.
void tell(const char *program, std::string_view text);

// True when the system has taken all that was written to standard output; else errno tells why.
bool flush_standard_output();

} // namespace kovatool
