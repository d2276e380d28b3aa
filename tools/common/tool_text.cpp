// Makes text from outside safe to print.
#include "common/tool_text.h"

#include "common/tool_file.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>

namespace kovatool {

bool obeyed_by_terminals(uint32_t code_point) {
    return code_point < 0x20 || (code_point >= 0x7F && code_point < 0xA0) || code_point == 0x61C ||
           (code_point >= 0x200E && code_point <= 0x200F) ||
           (code_point >= 0x2028 && code_point <= 0x202E) ||
           (code_point >= 0x2066 && code_point <= 0x2069);
}

// The first character of a text, and its length in bytes; 0 if it is not UTF-8.
static size_t front_character(std::string_view text, uint32_t &code_point) {
    const auto byte = [&text](size_t i) { return uint32_t(uint8_t(text[i])); };
    static constexpr uint32_t lowest[] = {0, 0, 0x80, 0x800, 0x10000};
    code_point = byte(0);
    if (code_point < 0x80) return 1;
    const size_t size = code_point >= 0xF0 ? 4 : code_point >= 0xE0 ? 3 : 2;
    if (code_point < 0xC2 || code_point > 0xF4 || text.size() < size) return 0;
    code_point &= 0x7Fu >> size;
    for (size_t i = 1; i < size; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
        code_point = code_point << 6 | (byte(i) & 0x3F);
    }
    const bool surrogate = code_point >= 0xD800 && code_point <= 0xDFFF;
    return code_point < lowest[size] || code_point > 0x10FFFF || surrogate ? 0 : size;
}

std::string printable(std::string_view text, std::string_view keep) {
    std::string shown;
    for (size_t size; !text.empty(); text.remove_prefix(size)) {
        uint32_t code_point = 0;
        size = front_character(text, code_point);
        if (size > 0 &&
            (!obeyed_by_terminals(code_point) || (size == 1 && keep.find(text[0]) != keep.npos))) {
            shown += text.substr(0, size);
            continue;
        }
        char spelled[16];
        const unsigned value = size > 0 ? code_point : uint8_t(text[0]);
        std::snprintf(spelled, sizeof spelled, size > 1 ? "\\u%04x" : "\\x%02x", value);
        shown += spelled;
        if (size == 0) size = 1;
    }
    return shown;
}

void tell(const char *program, std::string_view text) {
    std::fprintf(stderr, "%s: %s\n", program, printable(text).c_str());
}

static const char *last_line = "";

void end_without_memory(const char *line) {
    last_line = line;
    std::set_terminate([] {
        try {
            if (const std::exception_ptr thrown = std::current_exception())
                std::rethrow_exception(thrown);
        } catch (const std::bad_alloc &) { // before main, or where nothing may be thrown
        } catch (...) {
            std::abort();
        }
        remove_unfinished();
        std::fputs(last_line, stderr);
        std::_Exit(3);
    });
}

bool flush_standard_output() {
    errno = 0;
    if (std::fflush(stdout) == 0 && !std::ferror(stdout)) return true;
    if (errno == 0) errno = EIO;
    return false;
}

} // namespace kovatool
