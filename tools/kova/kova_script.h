// Scripts by their ISO 15924 codes, and the blocks of Unicode's basic plane with their letters.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kovacli {

struct script;

// NULL where there is none of this code, in any case.
const script *find_script(std::string_view code);
// The script in whose blocks a character is; NULL for none.
const script *script_at(uint32_t point);

const char *code_of(const script &s);
bool has_character(const script &s, uint32_t point);
// Is it one of those that most languages of the script use?
bool has_usual_character(const script &s, uint32_t point);

std::string script_codes(); // "latn, grek, ..."

} // namespace kovacli
