// HTML pages for people: each complete in one file, without scripts or anything from elsewhere.
#include "kova/kova_page.h"

#include <algorithm>
#include <cstring>

#include "common/tool_text.h"
#include "kova/kova_names.h"

namespace kovacli {

// ---- Languages ----

static bool is_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

// Languages whose writing is not the one that a reader would expect of them.
static std::string script_of(const std::string &modifier) {
    static constexpr std::pair<const char *, const char *> scripts[] = {
        {"latin",      "-Latn"},
        {"cyrillic",   "-Cyrl"},
        {"devanagari", "-Deva"},
        {"iqtelif",    "-Latn"},
    };
    for (const auto &[name, script] : scripts)
        if (modifier == name) return script;
    return "";
}

// "sr_RS@latin" is "sr-Latn-RS". The name may be anybody's.
static std::string tag_of(const std::string &name) {
    const size_t at = std::min(name.find('@'), name.size()), bar = name.find('_');
    const std::string modifier = name.substr(std::min(at + 1, name.size()));
    const std::string language = name.substr(0, std::min(bar, at));
    const std::string territory = bar < at ? name.substr(bar + 1, at - bar - 1) : "";
    const auto letters = [](const std::string &s) {
        return std::all_of(s.begin(), s.end(), is_letter);
    };
    if (name.empty() || language == "POSIX" || language == "C") return "en";
    if (language.size() < 2 || language.size() > 3 || !letters(language)) return "und";
    const bool known = territory.size() == 2 && letters(territory);
    return language + script_of(modifier) + (known ? "-" + territory : "");
}

// Letters of writing that runs from right to left: Hebrew, Arabic and those around them.
static bool runs_left(uint32_t point) {
    return (point >= 0x590 && point < 0x900) || (point >= 0xFB1D && point < 0xFE00) ||
           (point >= 0xFE70 && point < 0xFEFF) || (point >= 0x10800 && point < 0x11000) ||
           (point >= 0x1E800 && point < 0x1F000);
}

html_language language_of(const codec &code, const object_file &object) {
    html_language language{tag_of(source_name(object)), false};
    size_t left = 0, all = 0;
    for (unsigned i = 0; i < 7; ++i) {
        for (const ko_wchar_t c : item_text(code, KO_DAY_1 + i)) {
            left += code.mapped && runs_left(code_point(code, c));
            ++all;
        }
    }
    language.rtl = 2 * left > all;
    return language;
}

// ---- Markup ----

std::string html_text(std::string_view utf8) {
    std::string markup;
    for (const char c : kovatool::printable(utf8)) {
        switch (c) {
        case '&':
            markup += "&amp;";
            break;
        case '<':
            markup += "&lt;";
            break;
        case '>':
            markup += "&gt;";
            break;
        case '"':
            markup += "&quot;";
            break;
        case '\'':
            markup += "&#39;";
            break;
        default:
            markup += c;
        }
    }
    // Two characters that UTF-8 can hold and a page cannot.
    for (const auto &[bytes, name] : {
             std::pair{"\xEF\xBF\xBE", "U+FFFE"},
             {"\xEF\xBF\xBF", "U+FFFF"}
    })
        for (size_t at = 0; (at = markup.find(bytes, at)) != markup.npos;)
            markup.replace(at, 3, name);
    return markup;
}

std::string html_attributes(const html_language &language) {
    return " lang=\"" + html_text(language.tag) + "\" dir=\"" + (language.rtl ? "rtl" : "ltr") +
           "\"";
}

std::string html_element(const char *name, std::string_view text, const std::string &attributes) {
    return std::string("<") + name + attributes + ">" + html_text(text) + "</" + name + ">";
}

std::string html_box(const std::string &caption, const char *kind, const std::string &rows,
                     bool rtl) {
    return std::string("<div class=\"box\"") + (rtl ? " dir=\"rtl\"" : "") +
           " role=\"region\" tabindex=\"0\" aria-label=\"" + html_text(caption) +
           "\">\n<table class=\"" + kind + "\">\n" + "<caption>" + html_element("span", caption) +
           "</caption>\n" + rows + "</table>\n</div>\n";
}

static std::string td_of(const cell &c, const html_language &local) {
    const std::string kind = c.kind ? c.kind : c.right ? "number" : "";
    std::string attributes;
    if (kind == "local")
        attributes = html_attributes(local);
    else if (!kind.empty())
        attributes = " class=\"" + kind + "\"";
    return html_element("td", c.text, attributes);
}

std::string html_of(const html_table &table) {
    std::string rows;
    for (size_t i = 0; i < table.rows.size(); ++i) {
        const bool heads = table.head_row && i == 0;
        rows += heads ? "<thead>\n<tr>" : i == size_t(table.head_row) ? "<tbody>\n<tr>" : "<tr>";
        for (size_t j = 0; j < table.rows[i].size(); ++j) {
            const cell &c = table.rows[i][j];
            if (heads && c.text == " ") // the corner of a grid
                rows += "<td></td>";
            else if (heads)
                rows += html_element("th", c.text,
                                     std::string(" scope=\"col\"") +
                                         (c.right ? " class=\"number\"" : ""));
            else
                rows += j ? td_of(c, table.local) : html_element("th", c.text, " scope=\"row\"");
        }
        rows += heads ? "</tr>\n</thead>\n" : "</tr>\n";
    }
    if (table.rows.size() > size_t(table.head_row)) rows += "</tbody>\n";
    return html_box(table.caption, table.kind, rows);
}

// ---- The page ----

// Colours are named once for each scheme; a printed page is black on white. Wide tables scroll in
// their boxes, and their row heads stay in sight.
static constexpr char style[] = R"(
:root{color-scheme:light dark;--ink:#1c2127;--paper:#fff;--line:#d3d9e0;--head:#f1f4f7;
 --dim:#5d6875;--mark:#ffe58a;--sign:#0b5cad}
@media (prefers-color-scheme:dark){:root{--ink:#e4e8ec;--paper:#15191e;--line:#39424c;
 --head:#20262d;--dim:#9aa6b2;--mark:#6b5600;--sign:#7db8f5}}
*{box-sizing:border-box}
body{margin:0 auto;padding:1rem;max-width:80rem;background:var(--paper);color:var(--ink);
 font:1rem/1.45 system-ui,"Noto Sans",sans-serif}
h1{font-size:1.4rem;margin:0 0 .75rem;overflow-wrap:anywhere}
p{margin:.5rem 0;overflow-wrap:anywhere}
.dim,small{color:var(--dim)}
.box{overflow-x:auto;margin:0 0 1.25rem;max-width:100%}
.box:focus-visible{outline:2px solid var(--sign)}
table{border-collapse:collapse}
caption{text-align:start;font-weight:600;padding:.25rem 0}
caption span{position:sticky;inset-inline-start:0;display:inline-block;max-width:calc(100vw - 2rem)}
th,td{border:1px solid var(--line);padding:.3rem .55rem;text-align:start;vertical-align:top}
th{background:var(--head);font-weight:600}
tbody th{position:sticky;inset-inline-start:0;white-space:nowrap}
.number{text-align:end;font-variant-numeric:tabular-nums}
.plain td{overflow-wrap:anywhere;min-width:8rem}
.grid th,.grid td{vertical-align:middle;padding:.2rem .3rem;text-align:center;min-width:2.3rem}
.grid td{font-size:1.15rem;line-height:1.5}
.grid td.name,.grid td.lead{font-size:.68rem;line-height:2.4;color:var(--dim)}
.grid td.lead{color:var(--sign)}
.grid td.none{background:var(--head);color:transparent}
.months{display:grid;gap:0 1.5rem;grid-template-columns:repeat(auto-fill,minmax(min(17rem,100%),1fr))}
.months section{max-width:24rem}
.month caption{text-align:center}
.month th,.month td{border:0;padding:.3rem .4rem;text-align:center;min-width:2.1rem}
.month{width:100%}
.month small{display:block;line-height:1.1}
.month td.today{background:var(--mark);font-weight:700;border-radius:.4rem}
.month tbody th{background:none;color:var(--dim);font-weight:400}
.letters td:last-child{min-width:16rem;line-height:1.7}
.letters i,.levels i{font-style:normal;color:var(--sign);font-family:ui-monospace,monospace;font-size:.75em;
 margin:0 .35em;white-space:nowrap}
.letters tbody th{font-size:1.15rem}
.letters b{font-weight:400;font-size:1.1rem}
code{font-family:ui-monospace,monospace;font-size:.9em;overflow-wrap:anywhere}
@media print{:root{color-scheme:light;--ink:#000;--paper:#fff;--line:#999;--head:#eee;--dim:#444;
 --sign:#000;--mark:#ddd}
 body{max-width:none;padding:0;font-size:10pt}.box{overflow:visible}
 tr,.month{break-inside:avoid}tbody th{position:static}}
)";

void write_html(output &out, std::string_view title, const std::string &body,
                const html_language &language) {
    write(out, "<!DOCTYPE html>\n<html" + html_attributes(language) +
                   ">\n<head>\n<meta charset=\"utf-8\"/>\n<meta name=\"viewport\" "
                   "content=\"width=device-width, initial-scale=1\"/>\n" +
                   html_element("title", title) + "\n<style>" + style +
                   "</style>\n</head>\n<body>\n<main>\n" + html_element("h1", title) + "\n" + body +
                   "</main>\n</body>\n</html>\n");
}

} // namespace kovacli
