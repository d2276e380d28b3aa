// Tables of text for people: columns padded by what a terminal shows.
#include "kova/kova_table.h"

#include <algorithm>

namespace kovacli {

static size_t width_of(const cell &c) { return c.width < 0 ? c.text.size() : size_t(c.width); }

void write_table(output &out, const std::vector<std::vector<cell>> &rows) {
    std::vector<size_t> widths;
    for (const auto &row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], width_of(row[i]));
    }
    for (const auto &row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            const std::string pad(widths[i] - width_of(row[i]), ' ');
            line += row[i].right ? pad + row[i].text : row[i].text + pad;
            line += "  ";
        }
        line.erase(line.find_last_not_of(' ') + 1);
        write(out, line + "\n");
    }
}

void write_json_rows(output &out, const std::vector<std::vector<cell>> &rows) {
    for (size_t r = 1; r < rows.size(); ++r) {
        std::string line;
        for (size_t i = 0; i < rows[r].size(); ++i) {
            const std::string &text = rows[r][i].text;
            line += (i ? "," : "{") + json_quoted(rows[0][i].text) + ":" +
                    (rows[0][i].right   ? text
                     : i && text == "-" ? "null"
                                        : json_quoted(text));
        }
        write(out, line + "}\n");
    }
}

} // namespace kovacli
