// What writing and reading of kova number share.
#pragma once

#include "kova/kova_format.h"

namespace kovacli {

enum class number_kind { integer, real, character, text, none };
number_kind kind_of(const format_directive &d);
bool is_number(const format_directive &d); // an integer or a real

// 'l', 'h', or 0.
char size_of(const format_directive &d);

// The base of an integer directive.
unsigned base_of(const format_directive &d);

// What the library's error numbers say of a format.
std::string number_fault(int error);

answer parse_numbers(const format_job &job, const std::string &argument);

} // namespace kovacli
