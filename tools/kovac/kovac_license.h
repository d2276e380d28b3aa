// What sources say of their licenses, for the header lines of objects.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "common/tool_source.h"

namespace kovac {

// Lines "LICENSE=..." for an object made of these sources: one for each thing that sources say.
std::vector<std::string> license_lines(const source_set &set);

// The line for a code set of this origin, such as "charmap ISO-8859-1" or "ICU ibm-37_P100-1995".
std::string codeset_license(std::string_view origin);

} // namespace kovac
