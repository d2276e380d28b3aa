// Rows of records as JSON lines and CSV.
#include "kova/kova_records.h"

#include <nlohmann/json.hpp>

namespace kovacli {

namespace {
// Numbers are kept as they are written, because they are decimal and may have 31 digits.
struct row_handler : nlohmann::json_sax<nlohmann::json> {
    record_row &row;
    std::vector<row_value> *values = nullptr;
    int objects = 0;
    bool in_list = false;
    std::string why;
    explicit row_handler(record_row &to) : row(to) {}

    bool refuse(const char *reason) {
        why = reason;
        return false;
    }
    bool add(row_value value) {
        if (!values || objects > 2) return refuse("a row is one object of names and values");
        if (objects == 2) {
            if (!values->empty() && values->back().bytes && values->back().text.empty()) {
                values->back().text = std::move(value.text);
                return true;
            }
            return refuse("an object as a value holds \"hex\" alone");
        }
        values->push_back(std::move(value));
        return true;
    }
    bool null() override { return refuse("null is no value of a field"); }
    bool boolean(bool) override { return refuse("a truth value is no value of a field"); }
    bool number_integer(number_integer_t value) override {
        return add({std::to_string(value), true, false});
    }
    bool number_unsigned(number_unsigned_t value) override {
        return add({std::to_string(value), true, false});
    }
    bool number_float(number_float_t, const string_t &text) override {
        return add({text, true, false});
    }
    bool string(string_t &text) override { return add({text, false, false}); }
    bool binary(binary_t &) override { return refuse("binary data"); }
    bool start_object(std::size_t) override {
        if (++objects == 1) return true;
        if (!values || objects > 2) return refuse("an object is no value of a field");
        values->push_back({"", false, true});
        return true;
    }
    bool key(string_t &name) override {
        if (objects == 2)
            return name == "hex" || refuse("an object as a value holds \"hex\" alone");
        values = &row[name];
        return values->empty() || refuse("a name appears twice");
    }
    bool end_object() override {
        --objects;
        return true;
    }
    bool start_array(std::size_t) override {
        if (!values) return refuse("a row is one object of names and values");
        if (in_list || objects > 1) return refuse("an array inside an array");
        return in_list = true;
    }
    bool end_array() override {
        in_list = false;
        return !values->empty() || refuse("an empty array");
    }
    bool parse_error(std::size_t at, const std::string &,
                     const nlohmann::detail::exception &) override {
        why = "no JSON at byte " + std::to_string(at);
        return false;
    }
};
} // namespace

std::string parse_json_row(std::string_view line, record_row &row) {
    row.clear();
    row_handler handler(row);
    const bool read = nlohmann::json::sax_parse(line.begin(), line.end(), &handler);
    if (read && handler.values == nullptr && line.find('{') == line.npos)
        return "a row is one object of names and values";
    return read ? "" : handler.why.empty() ? "no JSON" : handler.why;
}

std::string json_text(const std::string &text) {
    // Bytes that are no UTF-8 cannot occur; if they did, they would be replaced.
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::optional<std::vector<std::string>> parse_csv_row(std::string_view line) {
    std::vector<std::string> cells(1);
    bool quoted = false;
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quoted && c == '"' && i + 1 < line.size() && line[i + 1] == '"')
            cells.back() += line[++i];
        else if (c == '"' && (quoted || cells.back().empty()))
            quoted = !quoted;
        else if (c == ',' && !quoted)
            cells.emplace_back();
        else
            cells.back() += c;
    }
    if (quoted) return std::nullopt;
    return cells;
}

std::string csv_cell(const std::string &text) {
    if (text.find_first_of(",\"\r\n") == text.npos) return text;
    std::string cell = "\"";
    for (const char c : text)
        cell += c == '"' ? std::string("\"\"") : std::string(1, c);
    return cell + '"';
}

} // namespace kovacli
