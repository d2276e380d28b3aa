// Reading the LC_COLLATE section of a locale's object. The library has accepted the object, but it
// may have been replaced since, so counts are checked here, too.
#include "kova/kova_weights.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "kova/kova_cli.h"
#include "kova/kova_platform.h"

namespace kovacli {

using stream_guard = std::unique_ptr<std::FILE, int (*)(std::FILE *)>;

weight_table::~weight_table() {
    if (rows) free_multi(rows);
}

static void require(bool sound, const object_file &object) {
    if (!sound) throw failure(bad_locale, object.path + " has no readable order");
}

static bool skip_to_line(std::FILE *in, const char *wanted) {
    std::string line;
    for (int c; (c = std::getc(in)) != EOF;) {
        if (c == '\r') continue;
        if (c != '\n') {
            line += char(c);
            continue;
        }
        if (line == wanted) return true;
        line.clear();
    }
    return false;
}

static int read_row_number(void *stream, void *dest, int) {
    unsigned row = 0;
    if (std::fscanf(static_cast<std::FILE *>(stream), "%4x", &row) != 1) return -1;
    const auto narrow = uint16_t(row);
    std::memcpy(dest, &narrow, sizeof narrow);
    return 0;
}

static unsigned read_hex(std::FILE *in, const char *format, const object_file &object) {
    unsigned value = 0;
    require(std::fscanf(in, format, &value) == 1, object);
    return value;
}

static wide_text read_chars(std::FILE *in, size_t count, const object_file &object) {
    wide_text text(count);
    for (ko_wchar_t &c : text)
        c = ko_wchar_t(read_hex(in, "%8x", object));
    return text;
}

static void read_tables(std::FILE *in, const object_file &object, weight_table &table) {
    constexpr int most_passes = 8, most = 0xFFFF;
    int by_code, rows, passes, elements, expansions, weights;
    require(std::fscanf(in, "%d%d%d%d%d%d", &by_code, &rows, &passes, &elements, &expansions,
                        &weights) == 6,
            object);
    require(passes >= 0 && passes <= most_passes && rows >= 0 && rows <= most && elements >= 0 &&
                elements <= most && expansions >= 0 && expansions <= most,
            object);
    if (by_code || !passes) table.by = weight_table::method::code;
    for (int p = 0; p < passes; ++p)
        table.forward.push_back(read_hex(in, "%4x", object) & 1);
    for (int i = 0; i < elements; ++i) {
        const unsigned size = read_hex(in, "%1x", object), row = read_hex(in, "%4x", object);
        require(row <= unsigned(rows), object);
        table.elements.push_back({read_chars(in, size, object), row});
    }
    for (int i = 0; i < expansions; ++i)
        table.expansions.push_back(read_chars(in, read_hex(in, "%1x", object), object));
    for (int i = 0; i < (rows + 1) * passes; ++i) {
        const unsigned weight = read_hex(in, "%4x", object);
        require(!(weight & weight_table::expands) ||
                    (weight & weight_table::low_bits) < unsigned(expansions),
                object);
        table.weights.push_back(uint16_t(weight));
    }
}

void read_weights(const object_file &object, weight_table &table) {
    const stream_guard in(open_input(object.path), std::fclose);
    require(in != nullptr, object);
    // A header line may look like a marker, but only real ones come in this order.
    require(skip_to_line(in.get(), "### LC_CTYPE") && skip_to_line(in.get(), "### LC_COLLATE"),
            object);
    char method[32] = {};
    require(std::fgets(method, sizeof method, in.get()), object);
    if (std::strncmp(method, "thai_smo", 8) == 0) {
        table.by = weight_table::method::thai;
        return;
    }
    const uint16_t none = 0;
    table.rows = create_multi(sizeof none, 0, &none);
    require(table.rows && fscanf_multi(in.get(), table.rows, 2, read_row_number) == 0, object);
    read_tables(in.get(), object, table);
    require(!std::ferror(in.get()), object); // its end may look like a shorter number
}

size_t row_of(const weight_table &table, ko_lc_t loc, ko_wchar_t wide) {
    const void *item = retrieve_wchar_multi_nl(static_cast<gen_exports *>(loc), wide, table.rows);
    uint16_t row = 0;
    if (item) std::memcpy(&row, item, sizeof row);
    *ko_ext_errno(loc) = 0;
    return (row + size_t{1}) * table.forward.size() <= table.weights.size() ? row : 0;
}

const weight_table::element *element_at(const weight_table &table, const ko_wchar_t *text,
                                        size_t len) {
    for (const weight_table::element &e : table.elements)
        if (!e.text.empty() && e.text.size() <= len &&
            std::equal(e.text.begin(), e.text.end(), text))
            return &e;
    return nullptr;
}

} // namespace kovacli
