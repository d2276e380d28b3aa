// The table of compatibility ideographs.

#include "kovac/kovac_equivalents.h"

#include <algorithm>
#include <iterator>

namespace kovac {

static constexpr struct pair {
    uint32_t code, ideograph;
} compatibility_ideographs[] = {
#include "../../data/compat_ideographs.inc"
};

uint32_t ideograph_of(uint32_t code) {
    const auto at =
        std::lower_bound(std::begin(compatibility_ideographs), std::end(compatibility_ideographs),
                         code, [](const pair &p, uint32_t c) { return p.code < c; });
    return at != std::end(compatibility_ideographs) && at->code == code ? at->ideograph : 0;
}

} // namespace kovac
