// Directives that the commands have beyond those of the library: months without a day (%OB %Ob
// %Oh), the ISO year and week (%G %V), the time zone (%Z %z) and the seconds since 1970 (%s).
#pragma once

#include "kova/kova_format.h"
#include "kova/kova_names.h"
#include "kova/kova_when.h"

namespace kovacli {

// Puts the text of the commands' own directives in their places.
wide_text with_own_directives(const codec &code, const time_names &names, const wide_text &format,
                              const moment &when);

} // namespace kovacli
