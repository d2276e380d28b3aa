// Time formats of the sources in the directives of the library.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kovac {

// Respells the directives of a time format that the library spells otherwise, and leaves out those
// of the time zone, which it lacks. dropped gets the directives left out for want of any spelling.
std::vector<uint32_t> library_format(const std::vector<uint32_t> &format,
                                     std::vector<std::string> &dropped);

// Counts the years of an era's definition through a year 0, which the sources lack: -543 becomes
// -542. An era without end counts in the direction of that end. Other strings stay as they are.
void library_era(std::vector<uint32_t> &definition);

} // namespace kovac
