// kova compare and kova key: the order of two texts, and the sort key of a text.
#include <algorithm>
#include <climits>
#include <cstdio>

#include "kova/kova_cli.h"
#include "kova/kova_io.h"
#include "kova/kova_locale.h"
#include "kova/kova_table.h"
#include "kova/kova_text.h"

namespace kovacli {

// The bytes of a text in the locale's code set, followed by a terminator for any code set.
static std::string code_set_text(const codec &code, const std::vector<ko_wchar_t> &wide) {
    std::string bytes;
    for (const ko_wchar_t c : wide)
        encode_bytes(code, c, bytes);
    return bytes.append(4, '\0');
}

int run_compare(const common_options &common, const compare_options &options) {
    locale_handle handle;
    codec code;
    open_with_codec(common, options.locale, handle, code);
    const std::string first = code_set_text(code, decode_argument(code, options.first, "A"));
    const std::string second = code_set_text(code, decode_argument(code, options.second, "B"));
    *ko_ext_errno(handle.loc) = 0;
    const int order = static_cast<loc_exports *>(handle.loc)
                          ->mbscoll(handle.loc, reinterpret_cast<const ko_mchar_t *>(first.data()),
                                    reinterpret_cast<const ko_mchar_t *>(second.data()));
    if (const int error = *ko_ext_errno(handle.loc); error == KO_ENOMEM || error == KO_ENULL)
        throw failure(bad_text, "the texts cannot be compared (error " + std::to_string(error) +
                                    "): memory is exhausted");
    output out;
    const std::string sign = order < 0 ? "<" : order > 0 ? ">" : "=";
    if (common.json)
        write_json_rows(
            out, {
                     {{"a"},           {"b"},            {"order"}},
                     {{options.first}, {options.second}, {sign}   }
        });
    else
        write(out, sign + "\n");
    finish(out);
    return done;
}

namespace {
enum class key_form { hexadecimal, raw, json };
}

static void print_key(const codec &code, std::vector<ko_wchar_t> wide, key_form form, output &out) {
    std::string text;
    if (form == key_form::json) encode(code, wide.data(), wide.size(), text);
    wide.push_back(0);
    std::string key(std::min(64 + 8 * wide.size(), size_t{INT_MAX}), '\0');
    for (bool fits = false; !fits;) {
        const int len = ko_wcsxfrm(code.loc, reinterpret_cast<ko_mchar_t *>(key.data()),
                                   wide.data(), int(key.size()));
        if (len < 0)
            throw failure(bad_text,
                          "the key cannot be made: the text is too long, or memory is exhausted");
        fits = size_t(len) < key.size();
        key.resize(size_t(len) + (fits ? 0 : 1));
    }
    if (form == key_form::json)
        write_json_rows(out, {
                                 {{"text"}, {"key"}       },
                                 {{text},   {hex(key, "")}}
        });
    else
        write(out, form == key_form::raw ? key : hex(key, "") + "\n");
}

int run_key(const common_options &common, const key_options &options) {
    locale_handle handle;
    codec code;
    open_with_codec(common, options.locale, handle, code);
    const key_form form = common.json   ? key_form::json
                          : options.raw ? key_form::raw
                                        : key_form::hexadecimal;
    output out;
    for (const std::string &text : options.texts)
        print_key(code, decode_argument(code, text, "TEXT"), form, out);
    if (options.texts.empty()) {
        input in;
        open(in, "-");
        while (more(in)) {
        }
        const unsigned char *bytes = in.block.data();
        std::vector<ko_wchar_t> wide, line;
        bad_character bad;
        if (!decode_text(code, {reinterpret_cast<const char *>(bytes), in.fill}, false, wide, bad,
                         nullptr))
            throw failure(bad_text, in.name + ": byte offset " + std::to_string(bad.offset) + ": " +
                                        describe(code, bad) + hint(code, bad));
        for (const ko_wchar_t c : wide) {
            if (c != code.newline)
                line.push_back(c);
            else
                print_key(code, std::move(line), form, out), line = {};
        }
        if (!line.empty()) print_key(code, std::move(line), form, out);
    }
    finish(out);
    return done;
}

} // namespace kovacli
