// Conversion of the sources' time formats to the library's directives.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kovac {

// Respells the directives of a time format that the library spells differently, and leaves out
// those of time zones, which it lacks. dropped gets the directives that have no spelling and are
// left out.
std::vector<uint32_t> library_format(const std::vector<uint32_t> &format,
                                     std::vector<std::string> &dropped);

// Counts the years in an era's definition with a year 0, which the sources lack: -543 becomes -542.
// An era without end counts in the direction of its missing end. Other strings are not changed.
void library_era(std::vector<uint32_t> &definition);

} // namespace kovac
