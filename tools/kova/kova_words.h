// The words of a command line before its options are parsed: commands by name, order of words.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace kovacli {

// The words as the option parser takes them: options first, then "--" and the arguments, so that
// options may stand anywhere, and values may begin with a minus. "help COMMAND" is "COMMAND
// --help". Throws failure if a command is missing or unknown, with the nearest name or all names.
std::vector<std::string> arranged_words(const CLI::App &app, std::vector<std::string> words);

} // namespace kovacli
