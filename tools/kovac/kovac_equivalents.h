// Characters that are canonically equivalent to another one, where the sources do not order them
// so.
#pragma once

#include <cstdint>

namespace kovac {

// The ideograph that a compatibility ideograph stands for; 0 for all other characters.
uint32_t ideograph_of(uint32_t code);

} // namespace kovac
