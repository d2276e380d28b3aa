// The JSON objects and HTML pages of "kova order".
#include <nlohmann/json.hpp>

#include "kova/kova_order.h"
#include "kova/kova_page.h"

namespace kovacli {

using nlohmann::ordered_json;

// ---- JSON ----

static void write_object(const ordered_json &object, output &out) {
    write(out, object.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n");
}

static std::string direction(const level_facts &level) {
    return level.forward ? "forward" : "backward";
}

void write_json(const order_view &view, output &out) {
    ordered_json object = {
        {"locale", view.locale },
        {"order",  view.by     },
        {"shown",  view.letters}
    };
    for (const level_facts &level : view.levels) {
        object["levels"].push_back({
            {"direction", direction(level)}
        });
        if (!level.first.empty()) object["levels"].back()["example"] = {level.first, level.second};
    }
    object["ignored_at_level_1"] = view.ignored;
    object["ignored"] = view.weightless;
    object["groups"] = ordered_json::array();
    for (const order_group &group : view.groups) {
        ordered_json letters;
        for (const order_letter &letter : group.letters) {
            letters.push_back({
                {"text", letter.shown}
            });
            if (letter.text.size() > 1) letters.back()["element"] = true;
            if (&letter != group.letters.data()) letters.back()["level"] = letter.level;
        }
        object["groups"].push_back({
            {"letters", letters}
        });
        if (!group.spelled.empty()) object["groups"].back()["as"] = group.spelled;
        if (group.ignored) object["groups"].back()["ignored_at_level_1"] = true;
    }
    object["more"] = view.more;
    write_object(object, out);
}

void write_json(const order_of_text &view, output &out) {
    ordered_json object = {
        {"locale", view.locale          },
        {"text",   view.text            },
        {"levels", ordered_json::array()},
        {"parts",  ordered_json::array()},
        {"key",    view.key             }
    };
    for (const level_facts &level : view.levels)
        object["levels"].push_back({
            {"direction", direction(level)}
        });
    for (const order_part &part : view.parts)
        object["parts"].push_back({
            {"text",    part.shown                                                        },
            {"as",      part.spelled.empty() ? ordered_json() : ordered_json(part.spelled)},
            {"weights", part.weights                                                      }
        });
    write_object(object, out);
}

// ---- HTML ----

static std::string sign_of(int level) {
    const std::string what =
        level ? "differs at level " + std::to_string(level) : "differs at no level";
    return html_element("i", level_sign(level), " title=\"" + what + "\"");
}

static std::string levels_table(const order_view &view, const std::string &own, bool rtl) {
    std::string rows = "<thead><tr><th scope=\"col\">Level</th><th scope=\"col\">Direction</th>"
                       "<th scope=\"col\">First letters that differ</th></tr></thead>\n<tbody>\n";
    for (size_t i = 0; i < view.levels.size(); ++i) {
        const level_facts &level = view.levels[i];
        rows += "<tr>" + html_element("th", std::to_string(i + 1), " scope=\"row\"") +
                html_element("td", direction(level)) + "<td>";
        if (!level.first.empty())
            rows += html_element("b", level.first, own) + sign_of(int(i) + 1) +
                    html_element("b", level.second, own);
        rows += "</td></tr>\n";
    }
    return html_box("Levels: the first that tells two texts apart decides", "levels",
                    rows + "</tbody>\n", rtl);
}

static std::string group_row(const order_group &group, const std::string &own) {
    std::string rest;
    for (size_t i = 1; i < group.letters.size(); ++i)
        rest +=
            " " + sign_of(group.letters[i].level) + html_element("b", group.letters[i].shown, own);
    if (group.ignored) rest += html_element("small", " ignored at level 1");
    if (!group.spelled.empty())
        rest += "<small> ordered as " + html_element("b", group.spelled, own) + "</small>";
    const std::string title = group.letters[0].text.size() > 1 ? " title=\"one element\"" : "";
    return "<tr>" + html_element("th", group.letters[0].shown, " scope=\"row\"" + own + title) +
           "<td" + own + ">" + rest + "</td></tr>\n";
}

static std::string ignored_text(const order_view &view) {
    std::string markup;
    if (view.ignored) {
        markup +=
            "<p>The first level ignores " + std::to_string(view.ignored) + " characters, such as ";
        for (const std::string &shown : view.sample)
            markup += html_element("b", shown) + " ";
        markup += "</p>\n";
    }
    if (view.weightless)
        markup += html_element("p", "Every level ignores " + std::to_string(view.weightless) + ".");
    return markup;
}

void write_html(const order_view &view, const html_language &language, output &out) {
    const std::string own = html_attributes(language);
    std::string rows = "<thead><tr><th scope=\"col\">Letter</th><th scope=\"col\">What only later "
                       "levels tell from it</th></tr></thead>\n<tbody>\n";
    for (const order_group &group : view.groups)
        rows += group_row(group, own);
    std::string body = html_element("p", "Ordered " + view.by + "; " + view.letters +
                                             (view.usual ? ", the usual ones." : "."));
    if (view.levels.size() > 1) body += levels_table(view, own, language.rtl);
    body += ignored_text(view);
    body += html_box("The letters in their order", "letters", rows + "</tbody>\n", language.rtl);
    if (view.more) body += html_element("p", std::to_string(view.more) + " more are not shown.");
    write_html(out, "Order of " + view.locale, body);
}

void write_html(const order_of_text &view, const html_language &language, output &out) {
    html_table table{.caption = "The bytes of each part in the key, level by level; - is ignored",
                     .local = language};
    table.rows.push_back({{"Text"}});
    for (size_t i = 0; i < view.levels.size(); ++i)
        table.rows[0].push_back(
            {"Level " + std::to_string(i + 1) + (view.levels[i].forward ? "" : ", backward")});
    for (const order_part &part : view.parts) {
        table.rows.push_back(
            {{part.shown + (part.spelled.empty() ? "" : " (as " + part.spelled + ")")}});
        for (const std::string &weight : part.weights)
            table.rows.back().push_back({weight});
    }
    std::string key;
    for (const std::string &part : view.key)
        key += (&part == view.key.data() ? "" : " 01 ") + part;
    write_html(out, "Weights of \u201C" + view.text + "\u201D in " + view.locale,
               html_of(table) + "<p>Key: " + html_element("code", key) + "</p>\n");
}

} // namespace kovacli
