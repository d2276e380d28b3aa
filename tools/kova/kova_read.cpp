// Bad characters in files: their places, and their number.
#include "kova/kova_read.h"
#include "common/tool_text.h"

#include <cstdio>

namespace kovacli {

void note_bad(bad_count &counted, const codec &code, const input &in, uint64_t line,
              const bad_character &bad) {
    const std::string place =
        in.name + ":" + std::to_string(line) + ": byte offset " + std::to_string(in.offset);
    if (!counted.replace)
        throw failure(bad_text, place + ": " + describe(code, bad) + hint(code, bad) +
                                    (*counted.with_replace ? ", --replace " : "") +
                                    counted.with_replace);
    if (counted.count++ == 0) counted.first = place;
}

void tell_bad(const bad_count &counted, const char *what) {
    if (counted.count)
        std::fprintf(stderr, "kova: %llu bad character%s %s, the first at %s\n",
                     static_cast<unsigned long long>(counted.count), counted.count == 1 ? "" : "s",
                     what, kovatool::printable(counted.first).c_str());
}

} // namespace kovacli
