// kovac image: the file of a data root with tables of conversions that programs map.
#pragma once

#include <string>
#include <vector>

namespace kovac {

struct image_options {
    std::string root;
    std::vector<std::string> names; // of objects; empty: all that gain
};

enum class image_result { done, left_out, failed };

// Writes the image and prints what it holds. left_out: an object that was named cannot be in it,
// and nothing was written, or one of the others is damaged. *why says what failed.
image_result write_image(const image_options &opt, std::string *why);

} // namespace kovac
