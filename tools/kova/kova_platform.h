// The operating system as the command needs it. Every system call and every #ifdef of the command
// is in kova_platform.cpp, except those for writing files (tool_file.h). Paths and arguments are
// UTF-8 on Windows, bytes elsewhere.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace kovacli {

// The arguments after the program's name.
std::vector<std::string> program_arguments(int argc, char **argv);

// Makes standard streams binary, and writing into a closed pipe an ordinary write error.
void prepare_process();

// Does the error number of a failed write mean that the reader went away?
bool reader_is_gone(int error);

std::string env_text(const char *name); // "" when unset

// The directory of the running program, without a separator at its end; "" if unknown.
std::string program_directory();

// The data root fixed at build time, without a separator at its end.
std::string built_in_root();

// A directory that the library is told, as a path of the system: on POSIX systems the library takes
// backslashes for slashes and c:\vantor\ for the root built in.
std::string data_path(std::string path);

// Is text UTF-8 by default? The arguments of Windows are.
bool unicode_system();

bool is_terminal(std::FILE *stream);
// Throw if the system cannot tell.
bool is_directory(const std::string &path);
bool is_regular_file(const std::string &path);

// The names in a directory, sorted; empty if there is none. Throws if it cannot be read.
std::vector<std::string> directory_entries(const std::string &path);

// The same; false with errno set if it cannot be read.
bool read_directory(const std::string &path, std::vector<std::string> &names);

// Opens a file for reading bytes. Null with errno set; a directory counts as unreadable.
std::FILE *open_input(const std::string &path);

// The size of an open regular file, 0 for anything else.
uint64_t regular_size(std::FILE *stream);

// A nameless file for reading and writing, which disappears when it is closed. directory: "" for
// the system's place. Null with errno set.
std::FILE *open_scratch(const std::string &directory);

// Is the zone that TZ names one of the data that the C library reads, or the path of such a file?
// On Windows never. Throws if its file cannot be read.
bool has_system_zone(const std::string &name);

// Where no variable names a zone: throws if the machine's own cannot be read.
void check_own_zone();

// The time zone of system_offset: a name of the zone data. False if there is none of that name.
// Throws if its file cannot be read.
bool choose_system_zone(const std::string &name);

// Seconds that the clocks of the zone are ahead of UTC at a moment, counted since 1970, and its
// abbreviation, or where the system has none the offset as text.
int system_offset(int64_t seconds, std::string *abbreviation);

double seconds_now(); // by a clock that never goes back

} // namespace kovacli
