// Writes a compiled locale as a locale object file, and text files in general, whole or not at all.
#pragma once

#include <string>

#include "kovac_locale.h"

namespace kovac {

enum class write_result { done, no_memory, io };

// Writes the object below path, whose directories are made. The file appears under its name only
// when it is complete. *why gets the system's reason after io.
write_result write_locale(const std::string &path, const locale_object &object, const charmap &map,
                          std::string *why);

// Puts text into a file the same way.
write_result write_text(const std::string &path, const std::string &text, std::string *why);

} // namespace kovac
