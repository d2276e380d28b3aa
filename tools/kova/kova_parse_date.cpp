// kova parse-date: a date and time read by a format, as a Gregorian date.
#include "kova/kova_batch.h"
#include "kova/kova_cli.h"
#include "kova/kova_day_words.h"
#include "kova/kova_reading.h"
#include "kova/kova_when.h"

namespace kovacli {

// The day that counts as today, which --today gives as --at gives a time.
static std::chrono::sys_days today_of(const std::string &text) {
    choose_zone("");
    if (text.empty()) return system_day();
    const std::chrono::sys_days day = day_of(moment_of(text, "--today").tm);
    const std::chrono::year_month_day date = day;
    if (int(date.year()) < 1)
        throw failure(bad_usage, "--today, " + text + ", is before the year 1");
    ko_set_current_time(__LINE__, __FILE__, int(unsigned(date.day())), int(unsigned(date.month())),
                        int(date.year()));
    return day;
}

static answer read_text_date(const date_setting &setting, const format_text &format,
                             const std::string &argument) {
    wide_text text = decode_argument(setting.code, argument, "TEXT");
    text.push_back(0);
    read_date date = read_whole_date(setting, format, text);
    return {{{day_text(day_of(date.tm)) + " " + clock_text(date.tm)}}, std::move(date.told)};
}

int run_parse_date(const common_options &common, const parse_date_options &options) {
    locale_handle handle;
    codec code;
    common_options asked = common;
    if (options.batch.json) asked.form = text_form::utf8;
    const data_place data = open_with_codec(asked, options.locale, handle, code);
    if (!code.mapped) add_mapping(handle, data, code);
    const format_text format = decode_format(code, options.format, time_grammar());
    const time_names names = names_of(code, handle.object);
    choose_words(code, names);
    const date_setting setting{code, names, today_of(options.today), options.century[0],
                               options.short_years};
    return run_batch(
        code, options.batch, {options.texts, 1, options.texts.empty()},
        [&](const auto &some, size_t) { return read_text_date(setting, format, some[0]); });
}

} // namespace kovacli
