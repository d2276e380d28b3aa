// The ends of lines in converted text: hosts end a line with NEL (15, U+0085), others with LF or
// CR LF.
#pragma once

#include <string>
#include <string_view>

#include "kova/kova_convert.h"
#include "kova/kova_io.h"

namespace kovacli {

// Control characters in a code set; "" for one that it lacks.
struct line_controls {
    std::string lf, cr, nel;
    bool host = false; // of the EBCDIC family
};
line_controls find_controls(const data_place &place, const code_set &set);

struct line_ends {
    line_controls target;
    std::string wanted;      // what ends a line in the output; "" keeps every end as it is
    bool joins_crlf = false; // CR LF is one end
    bool holds_cr = false;   // the text so far ends with a CR, which is not written yet
    bool changes() const { return !wanted.empty(); }
};

// mode: "nel", "lf", "crlf", "keep", or "" for the usual rule: a line that a host ends with NEL
// ends with LF elsewhere, and one that ends with LF ends with NEL on a host. Throws failure if the
// target has no such end.
line_ends plan_line_ends(const std::string &mode, const line_controls &source,
                         const line_controls &target, const std::string &target_name);

// Writes converted text, which consists of whole characters.
void write_lines(line_ends &ends, output &out, std::string_view text);
void finish_lines(line_ends &ends, output &out); // what is held at the end of a text

} // namespace kovacli
