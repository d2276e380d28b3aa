// The code-set registry: parses the text file of names and numbers, caches it, and falls back on
// the built-in table when the file cannot be cached. The file is read with the standard library and
// cached on the standard heap, because the cache outlives hosts' hooks.
#include "record/kovaspec.h"

#include "locale/kovablocks.h"
#include "locale/kovaextsa.h"
#include "locale/kovautils.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <utility>

namespace {
struct registry_elem {
    const char *cs_name; // NULL ends the table
    int cs_num;
};
} // namespace

// Searched with lower-cased names; rows with capitals deliberately never match.
static constexpr registry_elem kova_canned_registry[] = {
#include "record/kovaspec_tab.inc"
    {nullptr, 0}
};

namespace {
// Entries of a registry in memory, in file order: the number in two bytes, the length of the name
// in one, then the name with its terminator. They take hardly more than the file.
struct registry_block {
    registry_block *next;
    size_t used;
    char entries[8192 - sizeof(registry_block *) - sizeof(size_t)];
};
} // namespace

constexpr size_t entry_head = 3;
static_assert(cs_name_max <= 0x7F);
static const char *next_entry(const char *at) { return at + entry_head + size_t(at[2]) + 1; }
static uint16_t number_of(const char *at) {
    uint16_t number;
    memcpy(&number, at, sizeof number);
    return number;
}

// What ko_cache_registry has put into effect: at most one of the two, and nothing else changes
// them. They are read and changed under the state lock.
static constinit registry_block *kova_registry_list_cache = nullptr;
static constinit const registry_elem *kova_registry_array_cache = nullptr;
static constinit uint64_t changes = 0;

uint64_t registry_in_memory(const state_lock &) {
    return kova_registry_list_cache || kova_registry_array_cache ? changes : 0;
}

bool stamp_registry(registry_stamp *stamp) {
    stamp->in_memory = registry_in_memory(state_lock());
    if (stamp->in_memory) return true; // no file is looked at
    return path_search_mark("registry", "cm", "3", &stamp->file);
}

namespace {
// An open registry, read in blocks.
struct registry_text {
    data_file file;
    const unsigned char *pos, *end;
    unsigned char block[8192];

    registry_text() : file(no_data_file), pos(block), end(block) {}
    registry_text(const registry_text &) = delete;
    registry_text &operator=(const registry_text &) = delete;
    ~registry_text() { close_data_file(&file); }
};
} // namespace

static bool refill(registry_text *text) { // false at the end of the file, or after an error
    const ptrdiff_t read = std_read(text->file.number, text->block, sizeof text->block);
    if (read < 0) text->file.failed = true;
    text->pos = text->block;
    text->end = text->block + (read > 0 ? read : 0);
    return read > 0;
}

static int get(registry_text *text) {
    return text->pos < text->end || refill(text) ? *text->pos++ : EOF;
}

static void unget(registry_text *text, int c) { // the character just read
    if (c != EOF) --text->pos;
}

static bool skip_line(registry_text *text) { // false at the end of the file
    do {
        const auto left = size_t(text->end - text->pos);
        if (const void *const newline = left ? memchr(text->pos, '\n', left) : nullptr) {
            text->pos = static_cast<const unsigned char *>(newline) + 1;
            return true;
        }
    } while (refill(text));
    return false;
}

// Skips white space and the comments before a name; returns the first character of the name.
static int first_of_name(registry_text *text) {
    for (;;) {
        int c = get(text);
        while (is_white(c))
            c = get(text);
        if (c != '#') return c;
        if (!skip_line(text)) return EOF;
    }
}

// Reads a name and lower-cases it. False when reading must end: there is no name, it is too long,
// or it runs to the end of the file. The name is empty before a character that cannot be part of a
// name.
static bool read_name(registry_text *text, char *name) {
    int c = first_of_name(text), len = 0;
    for (; is_spec_char(c); c = get(text)) {
        if (len == cs_name_max) return false;
        name[len++] = spec_lower(char(c));
    }
    name[len] = 0;
    unget(text, c);
    return c != EOF;
}

// Reads the number after a name, modulo 2^16; white space must follow it.
static bool read_number(registry_text *text, int *number) {
    unsigned value = 0;
    int c = get(text);
    while (is_white(c))
        c = get(text);
    if (!is_spec_digit(c)) return false;
    for (; is_spec_digit(c); c = get(text))
        value = (value * 10 + unsigned(c - '0')) & 0xFFFF;
    unget(text, c);
    *number = int(value);
    return is_white(c);
}

static bool open_registry(registry_text *text, const char *registry, int *error) {
    int why = KO_EFILE;
    errno = 0;
    const bool open = registry ? open_plain_file(&text->file, registry)
                               : find_plain_file(&text->file, "registry", "cm", "3", &why);
    if (!open && registry) why = open_fault();
    if (!open) *error = why == KO_EFILE ? KO_EFORMAT : why;
    return open;
}

// Passes over lines whose names certainly differ from those with these first letters, as far as
// that can be told by how they begin. A name too long for the registry, which ends the reading, is
// none of them: it has no blank where shorter ones have one.
static void skip_others(registry_text *text, char first, char other) {
#ifdef KOVA_BYTE_BLOCKS
    const unsigned char *line = text->pos;
    for (uint32_t newlines; text->end - line >= 32; line += __builtin_ctz(newlines) + 1) {
        newlines = bytes_equal_to(line, '\n') | bytes_equal_to(line + 16, '\n') << 16;
        const int letter = *line | 0x20;
        if (*line <= ' ' || *line > '~' || !newlines) break;
        if (letter == (first | 0x20) || letter == (other | 0x20)) break;
        const bool ends_early = newlines & ((1u << (cs_name_max + 1)) - 1);
        if (!ends_early && line[cs_name_max] != ' ') break;
    }
    text->pos = line;
#else
    static_cast<void>(text);
    static_cast<void>(first);
    static_cast<void>(other);
#endif
}

// The number of a lower-cased name; -1 if the file lacks it, -2 with *error set.
static int search_file(registry_text *text, const char *name, int *error) {
    char entry[cs_name_max + 1];
    while (skip_others(text, *name, *name), read_name(text, entry)) {
        int number;
        if (*entry && !strcmp(entry, name)) {
            if (read_number(text, &number)) return number;
        } else if (skip_line(text))
            continue;
        *error = KO_EOBJECT;
        return -2;
    }
    return -1;
}

static int search_blocks(const registry_block *block, const char *name) {
    const size_t len = strlen(name);
    for (; block; block = block->next) {
        const char *const end = block->entries + block->used;
        for (const char *at = block->entries; at < end; at = next_entry(at)) {
            if (size_t(at[2]) == len && !memcmp(at + entry_head, name, len)) return number_of(at);
        }
    }
    return -1;
}

// The number in the registry in memory, -1 if that lacks the name; false if there is no registry
// in memory.
static bool search_memory(const char *name, int *number) {
    const state_lock lock;
    *number = -1;
    if (kova_registry_list_cache) {
        *number = search_blocks(kova_registry_list_cache, name);
        return true;
    }
    if (!kova_registry_array_cache) return false;
    for (const registry_elem *row = kova_registry_array_cache; row->cs_name; ++row) {
        if (strcmp(row->cs_name, name)) continue;
        *number = row->cs_num;
        break;
    }
    return true;
}

static int search_source(const char *name, const registry_choice &registry, int *error) {
    int number;
    if (!registry.uncached && search_memory(name, &number)) return number;
    registry_text text;
    if (!open_registry(&text, registry.file, error)) return -2;
    number = search_file(&text, name, error);
    if (text.file.failed) { // a number that it cuts looks like another
        *error = KO_EIO;
        number = -2;
    }
    return number;
}

static int lower_name(const char *name, char (&lowered)[cs_name_max + 1]) { // its length
    int len = 0;
    for (; len < cs_name_max && name[len]; ++len)
        lowered[len] = spec_lower(name[len]);
    lowered[len] = 0;
    return len;
}

// The number that a name of digits stands for, modulo 2^16; -1 for other names.
static int own_number(const char *name) {
    unsigned value = 0;
    for (const char *digit = name; *digit; ++digit) {
        if (!is_spec_digit(*digit)) return -1;
        value = (value * 10 + unsigned(*digit - '0')) & 0xFFFF;
    }
    return *name ? int(value) : -1;
}

uint16_t find_cs_num(const char *name, const registry_choice &registry, int *error) {
    char lowered[cs_name_max + 1];
    lower_name(name, lowered);
    const int number = search_source(lowered, registry, error);
    if (number >= 0) return uint16_t(number);
    if (number == -2) {
        if (registry.fault && (*error == KO_EIO || *error == KO_ENOMEM)) *registry.fault = *error;
        return KO_NO_CODESET;
    }
    const int value = own_number(lowered);
    if (value >= 0) return uint16_t(value);
    *error = KO_EINVAL;
    return KO_NO_CODESET;
}

// The number of an entry, which has to stand in the line of its name; -1 otherwise.
static int number_in_line(registry_text *text) {
    int number, c = get(text);
    while (c == ' ' || c == '\t')
        c = get(text);
    unget(text, c);
    return is_spec_digit(c) && read_number(text, &number) ? number : -1;
}

// Looks for two lower-cased names at once; -1 for one that the file lacks. False where lines of
// another form leave open what two searches would find.
static bool search_pair(registry_text *text, const char (&names)[2][cs_name_max + 1],
                        int (&numbers)[2]) {
    char entry[cs_name_max + 1];
    numbers[0] = numbers[1] = -1;
    char first = *names[0], other = *names[1]; // of the names that are not found yet
    while (skip_others(text, first, other), read_name(text, entry)) {
        const bool is_name[2] = {!strcmp(entry, names[0]), !strcmp(entry, names[1])};
        const int number = is_name[0] || is_name[1] ? number_in_line(text) : -1;
        for (int i = 0; i < 2; ++i) {
            if (!is_name[i] || numbers[i] >= 0) continue;
            if (number < 0) return false;
            numbers[i] = number;
            (i ? other : first) = *names[!i];
        }
        if (numbers[0] >= 0 && numbers[1] >= 0) return true;
        if (!skip_line(text)) return false;
    }
    return !text->file.failed;
}

bool find_by_one_reading(const char *const (&names)[2], const char *registry,
                         uint16_t (&numbers)[2], file_mark *mark) {
    if (is_logged() || registry_in_memory(state_lock())) return false;
    char lowered[2][cs_name_max + 1];
    if (!lower_name(names[0], lowered[0]) || !lower_name(names[1], lowered[1])) return false;
    registry_text text;
    int error, found[2];
    if (!open_registry(&text, registry, &error) || !search_pair(&text, lowered, found) ||
        text.file.failed)
        return false;
    for (int i = 0; i < 2; ++i) {
        if (found[i] < 0) found[i] = own_number(lowered[i]);
        if (found[i] < 0) return false;
        numbers[i] = uint16_t(found[i]);
    }
    *mark = text.file.mark;
    return true;
}

static void free_blocks(registry_block *list) {
    while (list) {
        registry_block *const next = list->next;
        free(list);
        list = next;
    }
}

// Appends an entry to the block at *last, or to a new one after it. False without memory.
static bool add_entry(registry_block ***last, const char *name, int number) {
    const auto stored = uint16_t(number);
    const size_t len = strlen(name), size = entry_head + len + 1;
    registry_block *block = **last;
    if (!block || size > sizeof block->entries - block->used) {
        if (block) *last = &block->next;
        block = static_cast<registry_block *>(malloc(sizeof(registry_block)));
        if (!block) return false;
        block->next = nullptr;
        block->used = 0;
        **last = block;
    }
    char *const at = block->entries + block->used;
    memcpy(at, &stored, sizeof stored);
    at[2] = char(len);
    memcpy(at + entry_head, name, len + 1);
    block->used += size;
    return true;
}

// Reads every entry into blocks; 0 or the error.
static int read_entries(registry_text *text, registry_block **list) {
    char name[cs_name_max + 1];
    int number;
    while (read_name(text, name)) {
        if (!read_number(text, &number)) return KO_EOBJECT;
        if (!add_entry(&list, name, number)) return KO_ENOMEM;
        if (!skip_line(text)) break;
    }
    return KO_OK;
}

// ---- Names however they are written ----

static uint16_t fail_search(int *error, int why) {
    *error = why;
    return KO_NO_CODESET;
}

void fold_cs_name(const char *name, char *out) {
    int len = 0;
    for (; *name && len < cs_name_max; ++name) {
        const char c = spec_lower(*name);
        if (is_spec_digit(c) || (c >= 'a' && c <= 'z')) out[len++] = c;
    }
    out[len] = 0;
}

int number_in_cs_name(const char *folded) {
    static constexpr const char *words[] = {"ibm", "cp",  "ccsid", "windows",  "win",
                                            "ms",  "dos", "csibm", "cswindows"};
    for (const char *word : words) {
        const size_t len = strlen(word);
        if (strncmp(folded, word, len) != 0 || !is_spec_digit(folded[len])) continue;
        folded += len;
        break;
    }
    unsigned value = 0;
    for (const char *digit = folded; *digit; ++digit) {
        if (!is_spec_digit(*digit) || digit - folded > 5) return -1;
        value = value * 10 + unsigned(*digit - '0');
    }
    return *folded && value < KO_NO_CODESET ? int(value) : -1;
}

namespace {
struct loose_search {
    char name[cs_name_max + 1]; // folded
    int number;                 // in it, or -1
    int by_name, by_number;     // what was found, or -1
};
} // namespace

static void compare_entry(loose_search *search, const char *entry, int number) {
    char folded[cs_name_max + 1];
    fold_cs_name(entry, folded);
    if (search->by_name < 0 && !strcmp(folded, search->name)) search->by_name = number;
    if (number == search->number) search->by_number = number;
}

static void compare_blocks(loose_search *search, const registry_block *block) {
    for (; block; block = block->next) {
        const char *const end = block->entries + block->used;
        for (const char *at = block->entries; at < end; at = next_entry(at)) {
            compare_entry(search, at + entry_head, number_of(at));
        }
    }
}

static bool compare_memory(loose_search *search) { // false if there is no registry in memory
    const state_lock lock;
    if (kova_registry_list_cache) {
        compare_blocks(search, kova_registry_list_cache);
        return true;
    }
    const registry_elem *row = kova_registry_array_cache;
    for (; row && row->cs_name; ++row)
        compare_entry(search, row->cs_name, row->cs_num);
    return row != nullptr;
}

static int compare_source(loose_search *search, const registry_choice &registry) {
    if (!registry.uncached && compare_memory(search)) return KO_OK;
    int error = KO_OK;
    registry_text text;
    if (!open_registry(&text, registry.file, &error)) return error;
    registry_block *list = nullptr;
    error = read_entries(&text, &list);
    if (text.file.failed) error = KO_EIO;
    compare_blocks(search, list);
    free_blocks(list);
    return error;
}

// Is a name a number that has no place in 16 bits, in which the strict look-up counts?
static bool is_beyond(const char *name) {
    unsigned value = 0;
    for (; is_spec_digit(*name); ++name)
        if (value <= 0xFFFF) value = value * 10 + unsigned(*name - '0');
    return !*name && value > 0xFFFF;
}

// Does a name, written in any way, have these letters and digits?
static bool has_letters(const char *name, const char *folded) {
    for (; *name; ++name) {
        const char c = spec_lower(*name);
        if (!is_spec_digit(c) && (c < 'a' || c > 'z')) continue;
        if (c != *folded++) return false;
    }
    return !*folded;
}

// The name in a registry that stands for one too long for it; NULL if none does.
static const char *short_name(const char *name) {
    static constexpr const char *rows[][2] = {
        {"extendedunixcodepackedformatforjapanese", "euc-jp" },
        {"ebcdicinternational500euro",              "ibm1148"},
        {"pcmultilingual850euro",                   "ibm858" },
        {"ibm970p110p1102006u2",                    "euc-kr" },
    };
    for (const auto &row : rows)
        if (has_letters(name, row[0])) return row[1];
    return nullptr;
}

uint16_t find_cs_loosely(const char *name, const registry_choice &registry, int *error) {
    int exact = KO_OK;
    if (is_beyond(name)) return fail_search(error, KO_EINVAL);
    if (strlen(name) > cs_name_max) name = short_name(name);
    if (!name) return fail_search(error, KO_EINVAL);
    const uint16_t number = find_cs_num(name, registry, &exact);
    if (!exact) return number;
    if (exact == KO_EIO || exact == KO_ENOMEM) return fail_search(error, exact);
    loose_search search = {{}, -1, -1, -1};
    fold_cs_name(name, search.name);
    search.number = number_in_cs_name(search.name);
    if (const int why = compare_source(&search, registry)) return fail_search(error, why);
    if (search.by_name >= 0 && *search.name) return uint16_t(search.by_name);
    if (search.by_number >= 0) return uint16_t(search.by_number);
    return fail_search(error, KO_EINVAL);
}

uint16_t ko_cs_name2cs_num(void *handle, const char *name, const char *registry) {
    if (!name) return fail(handle, KO_EINVAL, uint16_t{KO_NO_CODESET});
    int error = KO_OK;
    const uint16_t number = find_cs_num(name, {registry, false}, &error);
    if (error) set_error(handle, error);
    return number;
}

static void put_into_effect(registry_block *list, const registry_elem *array) {
    {
        const state_lock lock;
        ++changes;
        list = std::exchange(kova_registry_list_cache, list);
        kova_registry_array_cache = array;
    }
    free_blocks(list);
}

void ko_cache_registry(void *handle, const char *registry) {
    int error = KO_OK;
    put_into_effect(nullptr, nullptr);
    registry_block *list = nullptr;
    registry_text text;
    if (open_registry(&text, registry, &error)) {
        error = read_entries(&text, &list);
        if (text.file.failed) error = KO_EIO; // the entries are incomplete
    }
    if (!error) return put_into_effect(list, nullptr);
    free_blocks(list);
    put_into_effect(nullptr, kova_canned_registry);
    set_error(handle, error);
}
