// Charmap objects: every name of every character of a code set.
#pragma once

#include <string>
#include <vector>

#include "kovac/kovac_convert.h"

namespace kovac {

struct symbols_options {
    std::string charmap, root, registry_file, names, list;
    bool verbose = false;
};

// Compiles the charmap object of one code set below the root.
convert_status compile_symbols(const symbols_options &opt,
                               const std::vector<std::string> &charmap_dirs, diagnostics &diag);

} // namespace kovac
