// The operating system as the command line needs it. Every system call and every #ifdef of the
// command line is in kova_platform.cpp, but those of writing files (tool_file.h). Paths and
// arguments are UTF-8 on Windows, bytes elsewhere.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace kovacli {

// The arguments behind the program's name.
std::vector<std::string> program_arguments(int argc, char **argv);

// Standard streams become binary, and writing into a closed pipe an ordinary write error.
void prepare_process();

// True when the write error that errno tells of is a reader that went away.
bool reader_is_gone(int error);

std::string env_text(const char *name); // "" when unset

// Directory of the running program, without a separator at its end; "" when unknown.
std::string program_directory();

// The data root fixed at build time, without a separator at its end.
std::string built_in_root();

// True where text without any word on its form is UTF-8: the arguments of Windows are.
bool unicode_system();

bool is_terminal(std::FILE *stream);
bool is_directory(const std::string &path);
bool is_regular_file(const std::string &path);

// Names of the entries of a directory, sorted; empty when it cannot be read.
std::vector<std::string> directory_entries(const std::string &path);

// Opens a file for reading bytes. Null with errno set; a directory counts as unreadable.
std::FILE *open_input(const std::string &path);

// Size of an open regular file, 0 for anything else.
uint64_t regular_size(std::FILE *stream);

// A nameless file for reading and writing, gone with its last use. directory: "" for the system's
// place. Null with errno set.
std::FILE *open_scratch(const std::string &directory);

double seconds_now(); // of a clock that never goes back

} // namespace kovacli
