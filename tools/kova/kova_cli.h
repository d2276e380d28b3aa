// What every part of the command shares: the exit statuses, the exception for failures and the
// options of all commands.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace kovacli {

// Exit statuses. They are part of the interface, see docs/kova.md.
enum exit_status {
    done = 0,
    bad_text = 1,      // text that is not valid in the code set
    order_changed = 1, // what kova diff finds
    bad_usage = 2,     // an unknown option, a missing argument
    bad_locale = 3,    // no data root, no such locale, a damaged object, no memory
    bad_file = 4       // a file cannot be read or written
};

// Ends the command with one line on standard error, "kova: " and the text, and the lines of an
// excerpt below it. With an empty text, ends it silently.
struct failure : std::runtime_error {
    int status;
    std::string excerpt;
    failure(int exit_status, const std::string &text, const std::string &lines = {})
        : std::runtime_error(text), status(exit_status), excerpt(lines) {}
};

// The choice between --utf8 and --bytes.
enum class text_form { by_environment, utf8, bytes };

struct common_options {
    std::string root; // --root; empty: search
    text_form form = text_form::by_environment;
    bool json = false; // one JSON object for each row, in UTF-8, where a command has no other form
};

// True if text arguments, input and output are UTF-8: because of --utf8, or because LC_ALL,
// LC_CTYPE or LANG (the first that is set) names it. On Windows UTF-8 is also the default.
bool text_is_utf8(const common_options &common);

// The value of --check without a text.
inline constexpr char default_check[] = "diagnose-first";

struct sort_options {
    std::string locale; // empty: the environment decides
    std::vector<std::string> files;
    std::vector<std::string> keys; // "FIELD[.CHARACTER][LETTERS][,...]"
    std::string separator;         // one character; empty: fields are runs of non-blanks
    std::string out;
    std::string buffer_size = "32M";
    std::string temporary_directory;
    std::string check; // empty: sort
    int threads = 2;
    bool reverse = false, unique = false, stable = false, replace = false, progress = true;
    bool plain_check = false, quiet_check = false, merge = false, nulls = false;
    // What parts without letters of their own are compared by.
    bool skip_blanks = false, dictionary = false, fold = false, numeric = false, version = false;
};
int run_sort(const common_options &common, const sort_options &options);

struct compare_options {
    std::string locale, first, second;
};
int run_compare(const common_options &common, const compare_options &options);

struct key_options {
    std::string locale;
    std::vector<std::string> texts; // none: the lines of standard input
    bool raw = false;
};
int run_key(const common_options &common, const key_options &options);

struct verify_options {
    std::string place; // a data root, or with a file a locale; "" for the root that is found
    std::string file;  // "-" is standard input
};
int run_verify(const common_options &common, const verify_options &options);

struct diff_options {
    std::string first, second, locale; // two data roots
    uint32_t most = 20;                // rows of each table
};
int run_diff(const diff_options &options);

struct case_options {
    std::string locale;
    std::vector<std::string> texts, files; // neither: standard input
    bool upper = true, replace = false;
};
int run_case(const common_options &common, const case_options &options);

struct classify_options {
    std::string locale;
    std::vector<std::string> texts, files;
    bool count = false, replace = false;
};
int run_classify(const common_options &common, const classify_options &options);

// What width, trim and count take.
struct measure_options {
    std::string locale;
    std::vector<std::string> files; // none: standard input
    std::string out;                // of trim
    bool widest = false;            // of width: one number for all lines
    bool replace = false;
};
int run_width(const common_options &common, const measure_options &options);
int run_trim(const common_options &common, const measure_options &options);
int run_count(const common_options &common, const measure_options &options);

struct info_options {
    std::string locale;
    std::vector<std::string> items; // names or numbers; none: all, with the code set's figures
    bool all = false, json = false; // a page for people; one JSON object
    bool html = false;              // that page in HTML
    std::string out;
};
int run_info(const common_options &common, const info_options &options);

// What number, money, date and parse-date take for many values.
struct batch_options {
    std::vector<std::string> files; // of lines; "-" is standard input
    std::string fields;             // "2", "1,3-4"; empty: the whole line
    std::string separator;          // empty: runs of blanks
    uint64_t header = 0;            // lines to pass on
    bool nulls = false, json = false, stop = false;
};

// What number and money take.
struct format_options {
    std::string locale, format;
    std::vector<std::string> values;
    std::string text; // of --parse
    bool parse = false;
    std::string digits;                        // a name of CLDR, or "native"
    std::string from, to, round = "from-zero"; // units: "si", "iec", "iec-i", "auto"
    batch_options batch;
};

// The value of --parse without a text.
inline constexpr char default_parse[] = "each VALUE";

int run_number(const common_options &common, const format_options &options);
int run_money(const common_options &common, const format_options &options);

struct date_options {
    std::string locale;
    std::string format = "%c";
    std::string at = "now"; // or a date
    std::string zone;       // empty: the system's
    std::string iso, rfc;   // "date", "hours", ...: plain forms in place of the format
    std::string from, to, step = "1day";
    std::vector<std::string> times; // none: at, or lines if there are files
    batch_options batch;
};

// The value of --iso-8601 without a text.
inline constexpr char default_iso[] = "date";

int run_date(const common_options &common, const date_options &options);

struct parse_date_options {
    std::string locale, format;
    std::vector<std::string> texts; // none: lines
    batch_options batch;
    std::string century = "C";
    std::string today; // empty: the system's date
    bool short_years = false;
};
int run_parse_date(const common_options &common, const parse_date_options &options);

struct locale_options {
    std::string locale;
    std::vector<std::string> names; // categories and names of values; none: everything
    std::string answer;             // of --yes
    bool keywords = false, categories = false, json = false, asks = false;
};
int run_locale(const common_options &common, const locale_options &options);

struct locales_options {
    std::vector<std::string> patterns; // with * and ?; none: all locales
    std::string language, code_set;
    bool json = false;
};
int run_locales(const common_options &common, const locales_options &options);

// The value of --replace without a text: U+FFFD where the target has it, else "?".
inline constexpr char default_replacement[] = "default character";

struct convert_options {
    std::string from, to;
    std::vector<std::string> files;
    std::string out;
    std::string replacement; // what --replace gives
    std::string newline;     // "nel", "lf", "crlf", "keep"; "": by the code sets
    bool skip = false, replace = false, accept = false, report = false, list = false;
    bool keeps_mark = false, writes_mark = false;
    bool verbose = false, progress = true;
    std::string escape, unescape; // "xml", "uni", "hex"; "": none
    bool translit = false, keep_escapes = false;
    bool json = false, detect = false;
    std::string out_dir;             // of results with the names of the inputs
    bool keeps_part = false;         // of a result that an error ends
    std::string records, to_records; // forms of files whose records are lines of the text
    uint64_t from_offset = 0;
    std::string state; // at from_offset: of the letters "str"
};
int run_convert(const common_options &common, const convert_options &options);
int run_detect(const common_options &common, const convert_options &options);

struct records_options {
    std::string layout, records; // the layout's file; the form of the file, such as "fb:80"
    std::string code_set;        // of text whose field names none
    std::vector<std::string> files;
    std::string out;
    bool encode = false, csv = false, keep_bad = false;
    unsigned part = 1, parts = 1;
};
int run_records(const common_options &common, const records_options &options);

struct chart_options {
    std::string code_set;
    std::string lead; // hexadecimal digits of the bytes before those drawn
    bool html = false;
    std::string out;
};
int run_chart(const common_options &common, const chart_options &options);

struct order_options {
    std::string locale;
    std::vector<std::string> scripts; // of letters; none: the locale's own
    std::string from, to;             // texts; empty: no bound
    std::string of;                   // the text whose weights are shown
    uint32_t most = 500;              // lines; 0: all
    bool shows_text = false, json = false, html = false;
    std::string out;
};
int run_order(const common_options &common, const order_options &options);

struct symbols_options {
    std::string code_set, out;
    std::vector<std::string> files; // none: standard input
    bool decode = false;
};
int run_symbols(const common_options &common, const symbols_options &options);

// What the commands of kova text take.
struct text_options {
    std::string locale, out;
    bool replace = false;
    std::vector<std::string> files;                             // none: standard input
    uint32_t width = 80;                                        // of fold and wrap
    bool spaces = false;                                        // fold: cut lines after blanks
    bool split_only = false, uniform = false, indented = false; // wrap
    std::string tabs;                  // expand, unexpand; empty: every 8 columns
    bool initial = false, all = false; // expand, unexpand: at the start of lines; unexpand
    std::string separators, between = "  ", right; // table
};
int run_fold(const common_options &common, const text_options &options);
int run_wrap(const common_options &common, const text_options &options);
int run_expand(const common_options &common, const text_options &options);
int run_unexpand(const common_options &common, const text_options &options);
int run_table(const common_options &common, const text_options &options);

struct cal_options {
    std::string locale, month, year; // month and year empty: today's
    bool whole_year = false, three = false, weeks = false, year_days = false;
    bool monday = false, sunday = false; // the first day of the week; else the locale's
    int months = 1;
    bool html = false;
    std::string out;
};
int run_cal(const common_options &common, const cal_options &options);

} // namespace kovacli
