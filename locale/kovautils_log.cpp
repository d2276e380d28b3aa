// The diagnostic log and pop-ups, and the switches that turn them on.
#include "kovautils.h"

#include "kovaextsa.h"

#include <string.h>
#include <time.h>
#ifdef _WIN32
#include <windows.h>
#endif

static constexpr char log_name[] = "c:\\kova.log";

// The switches. They are set by ko_init_debug, which the first message calls if nobody has, and
// cleared by exit_utilities. While one thread reads them, they are off for the others, and for the
// hooks that it calls.
enum : unsigned { being_read = 1, logging = 2, popups = 4 };
static constinit std::atomic<unsigned> switches = 0; // 0: not read yet

static bool is_on(unsigned which) { return switches.load(std::memory_order_acquire) & which; }

namespace {
// A key of the profile file, and the variable that counts where the file has no value for it.
struct setting {
    const char *key, *variable;
    char value[10] = {}; // cut to nine characters
    bool found = false;  // by the first line with this key
};
} // namespace
using settings = setting[2];

// Bytes of the well-formed UTF-8 character at s, 0 for none.
static int utf8_len(const unsigned char *s) {
    const int len = *s < 0x80   ? 1
                    : *s < 0xC2 ? 0
                    : *s < 0xE0 ? 2
                    : *s < 0xF0 ? 3
                    : *s < 0xF5 ? 4
                                : 0;
    for (int i = 1; i < len; ++i)
        if ((s[i] & 0xC0) != 0x80) return 0;
    return len;
}

// Writes whatever a terminal could take for a command as "\x" and two digits: control characters,
// including those from U+0080 on and their single bytes 0x80 to 0x9F, and therefore also line ends,
// which would let a name pass for a line of its own. A byte from 0xA0 on that is not UTF-8 is kept:
// it is part of a character in some code set.
static void write_shown(FILE *out, const char *text, bool lines) {
    auto *s = reinterpret_cast<const unsigned char *>(text);
    while (*s) {
        int len = utf8_len(s);
        const bool control = len == 1   ? *s < ' ' || *s == 0x7F
                             : len == 2 ? *s == 0xC2 && s[1] < 0xA0
                                        : !len && *s < 0xA0;
        if (!len) len = 1;
        const bool kept = !control || (lines && (*s == '\n' || *s == '\t'));
        for (; len; --len, ++s)
            kept ? static_cast<void>(fputc(*s, out))
                 : static_cast<void>(fprintf(out, "\\x%02x", *s));
    }
}

// Writes a message in three parts. A name in the middle may not contain line ends.
static void write_line(FILE *out, const char *before, const char *text, const char *after) {
    const bool whole = !*before && !*after;
    fputs(before, out);
    write_shown(out, text, whole);
    fputs(after, out);
    fputc('\n', out);
}

#ifdef _WIN32

static void read_profile(settings &all) {
    for (setting &s : all)
        GetPrivateProfileStringA("KOVA", s.key, nullptr, s.value, sizeof s.value, "KOVA.INI");
}

static void show_popup(const char *before, const char *text, const char *after) {
    const size_t before_len = strlen(before), len = strlen(text);
    ext_block<char> joined(before_len + len + strlen(after) + 1);
    if (joined.p) {
        memcpy(joined.p, before, before_len);
        memcpy(joined.p + before_len, text, len);
        strcpy(joined.p + before_len + len, after);
    }
    MessageBoxA(nullptr, joined.p ? joined.p : text, "KOVA", MB_OK);
}

static void start_line(char *out) {
    const time_t now = time(nullptr);
    const char *const stamp = ctime(&now);
    wsprintfA(out, "KOVA log started %s", stamp ? stamp : "\n");
}

#else

static char lower(char c) { return c >= 'A' && c <= 'Z' ? char(c | 0x20) : c; }

static bool same_name(const char *name, const char *begin, const char *end) {
    for (; *name && begin < end; ++name, ++begin)
        if (lower(*name) != lower(*begin)) return false;
    return !*name && begin == end;
}

static void trim(const char **begin, const char **end) {
    while (*begin < *end && is_white(uint8_t(**begin)))
        ++*begin;
    while (*begin < *end && is_white(uint8_t((*end)[-1])))
        --*end;
}

static void unquote(const char **begin, const char **end) {
    if (*end - *begin < 2 || (**begin != '"' && **begin != '\'') || **begin != (*end)[-1]) return;
    ++*begin;
    --*end;
}

// Handles one line of the profile file.
static void profile_line(const char *line, settings &all, bool *in_section) {
    const char *begin = line, *end = line + strlen(line);
    trim(&begin, &end);
    if (begin < end && *begin == '[') {
        const char *name = begin + 1, *close = name;
        while (close < end && *close != ']')
            ++close;
        trim(&name, &close);
        *in_section = same_name("KOVA", name, close);
        return;
    }
    const char *const equals = static_cast<const char *>(memchr(begin, '=', size_t(end - begin)));
    if (!*in_section || !equals) return;
    const char *key_end = equals, *from = equals + 1;
    trim(&begin, &key_end);
    trim(&from, &end);
    unquote(&from, &end);
    for (setting &s : all) {
        if (s.found || !same_name(s.key, begin, key_end)) continue;
        s.found = true;
        for (size_t i = 0; i < sizeof s.value - 1 && from + i < end; ++i)
            s.value[i] = from[i];
    }
}

static void drop_line_rest(FILE *file) {
    for (int c; (c = getc(file)) != EOF && c != '\n';) {
    }
}

static void read_profile(settings &all) {
    char line[512]; // longer lines are not ours; the rest is dropped
    bool in_section = false;
    FILE *const file = static_cast<FILE *>(open_profile());
    if (!file) return;
    while (fgets(line, sizeof line, file)) {
        if (!strchr(line, '\n') && strlen(line) == sizeof line - 1) drop_line_rest(file);
        profile_line(line, all, &in_section);
    }
    fclose(file);
}

static void show_popup(const char *before, const char *text, const char *after) {
    fputs("KOVA: ", stderr);
    write_line(stderr, before, text, after);
}

static void start_line(char *out) {
    char stamp[64];
    const time_t now = time(nullptr);
    strcpy(out, "KOVA log started ");
    strcat(out, ctime_r(&now, stamp) ? stamp : "\n");
}

#endif

// "on" and "On" count; deliberately, the second letter must be lower-case.
static bool switched_on(const setting &s) {
    const char *const text = *s.value ? s.value : ko_ext_getenv(s.variable);
    return text && (text[0] == 'o' || text[0] == 'O') && text[1] == 'n';
}

static void start_log(void) {
    char started[128]; // ends in a newline already
    start_line(started);
    FILE *const log = std_open(log_name, "a");
    if (!log) return;
    fputs("----\n", log);
    fputs(started, log);
    fputs("----\n", log);
    fclose(log);
}

void ko_init_debug(void) {
    unsigned on = 0;
    if (switches.load(std::memory_order_relaxed)) return;
    if (!switches.compare_exchange_strong(on, being_read, std::memory_order_relaxed)) return;
    on = being_read;
    settings all = {
        {"Logging", "KOVALOG"  },
        {"Popups",  "KOVADEBUG"}
    };
    read_profile(all);
    if (!has_raised_rights() && switched_on(all[0])) {
        on |= logging;
        start_log();
    }
    if (switched_on(all[1])) on |= popups;
    switches.store(on, std::memory_order_release);
}

// Opens the log for every line, so that a crash loses none.
static void log_line(const char *before, const char *text, const char *after) {
    ko_init_debug();
    if (is_on(logging)) {
        if (FILE *const log = std_open(log_name, "a")) {
            write_line(log, before, text, after);
            fclose(log);
        }
    }
    if (is_on(popups)) show_popup(before, text, after);
}

bool is_logged(void) {
    ko_init_debug();
    return is_on(logging | popups);
}

void ko_message(const char *text) {
    if (text) log_line("", text, "");
}

void message_1(const char *format_with_one_s, const char *text) {
    if (!is_logged()) return; // as mostly, in calls that are timed
    const char *const mark = strstr(format_with_one_s, "%s");
    char before[64];
    if (!mark || size_t(mark - format_with_one_s) >= sizeof before) return ko_message(text);
    memcpy(before, format_with_one_s, size_t(mark - format_with_one_s));
    before[mark - format_with_one_s] = 0;
    log_line(before, text, mark + 2);
}

void exit_utilities(void) { switches.store(0, std::memory_order_relaxed); }
