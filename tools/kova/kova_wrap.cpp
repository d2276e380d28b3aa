// kova text wrap: paragraphs filled to a width, word by word, in memory that does not grow with
// the text.
#include "kova/kova_clusters.h"

#include <iterator>

namespace kovacli {

namespace {
enum class gap_kind : uint8_t { none, blank, line };

struct wrapper {
    layout_job &job;
    const text_options &options;
    int64_t width;
    // The line that is read.
    bool at_start = true;
    std::vector<ko_wchar_t> lead = {};
    int64_t lead_columns = 0;
    // The paragraph.
    bool in_paragraph = false;
    std::vector<ko_wchar_t> indent = {};
    int64_t indent_columns = 0, indent_read = 0;
    // The word that is read, and what stands before it.
    gap_kind gap = gap_kind::none;
    std::vector<ko_wchar_t> gap_blanks = {}, glue = {}, word = {};
    int64_t word_columns = 0;
    bool word_continues = false, has_text = false;
    uint32_t base = no_code_point, last = no_code_point; // of the cluster before
    // The line that is written.
    int64_t column = 0;
    bool written = false;
};

struct point_range {
    uint32_t first, last;
};
} // namespace

// ---- where lines can be cut without a blank ----

// What is written without blanks between words: ideographs, kana, and the marks that go with them.
static bool is_ideographic(uint32_t point) {
    static constexpr point_range ranges[] = {
        {0x2E80,  0x312F },
        {0x3190,  0x9FFF },
        {0xA000,  0xA4CF },
        {0xF900,  0xFAFF },
        {0xFE30,  0xFE4F },
        {0xFF00,  0xFF9F },
        {0xFFE0,  0xFFE6 },
        {0x20000, 0x3FFFF}
    };
    return std::any_of(std::begin(ranges), std::end(ranges), [point](const point_range &range) {
        return point >= range.first && point <= range.last;
    });
}

static bool is_one_of(std::u32string_view points, uint32_t point) {
    return points.find(char32_t(point)) != points.npos;
}

// Closing marks, small kana and marks that lengthen or repeat.
static bool cannot_begin_line(uint32_t point) {
    return is_one_of(
        U"!),.:;?]}%°’”‥…、。々〉》」』】〕〗〙〛〜〞〟ぁぃぅぇぉっゃゅょゎゕゖ゛゜ゝゞ"
        U"ァィゥェォッャュョヮヵヶ・ーヽヾ！％），．：；？］｝｡｣､･ｧｨｩｪｫｬｭｮｯｰﾞﾟ",
        point);
}

static bool cannot_end_line(uint32_t point) {
    return is_one_of(U"([{‘“〈《「『【〔〖〘〚〝＄（［｛｢￡￥", point);
}

static constexpr uint32_t zero_width_space = 0x200B;

static bool can_cut(const wrapper &wrap, const cluster &next) {
    if (wrap.last == zero_width_space) return true;
    return (is_ideographic(wrap.base) || is_ideographic(next.first)) &&
           !cannot_end_line(wrap.base) && !cannot_begin_line(next.first);
}

// ---- writing ----

static void begin_output_line(wrapper &wrap, bool first) {
    wrap.column = 0;
    wrap.written = true;
    if (!first && wrap.options.indented) return;
    keep(wrap.job.to, wrap.indent);
    wrap.column = wrap.indent_columns;
}

static void finish_word(wrapper &wrap) {
    if (wrap.word.empty()) return;
    const auto glue_columns = int64_t(wrap.glue.size());
    if (!wrap.written) {
        begin_output_line(wrap, true);
    } else if (wrap.word_continues ||
               wrap.column + glue_columns + wrap.word_columns <= wrap.width) {
        keep(wrap.job.to, wrap.glue);
        wrap.column += glue_columns;
    } else {
        keep(wrap.job.to, wrap.job.end.wide);
        begin_output_line(wrap, false);
    }
    keep(wrap.job.to, wrap.word);
    wrap.column += wrap.word_columns;
    wrap.word.clear();
    wrap.word_columns = 0;
}

static void end_paragraph(wrapper &wrap) {
    finish_word(wrap);
    if (wrap.written) keep(wrap.job.to, wrap.job.end.wide);
    wrap.written = wrap.in_paragraph = wrap.has_text = false;
    wrap.gap = gap_kind::none;
    wrap.glue.clear();
}

// ---- reading ----

static bool continues_paragraph(const wrapper &wrap) {
    return wrap.in_paragraph && wrap.lead_columns == (wrap.options.indented ? 0 : wrap.indent_read);
}

static void begin_text(wrapper &wrap) {
    wrap.at_start = false;
    if (continues_paragraph(wrap)) return;
    end_paragraph(wrap);
    wrap.in_paragraph = true;
    wrap.indent_read = wrap.indent_columns = wrap.lead_columns;
    wrap.indent.swap(wrap.lead);
    // Text needs room, so that deep indentation is cut.
    if (wrap.indent_columns <= wrap.width / 2) return;
    wrap.indent_columns = wrap.width / 2;
    wrap.indent.assign(size_t(wrap.indent_columns), wrap.job.signs.blank);
}

// Ends the word where a line can be cut before the next cluster.
static void decide_gap(wrapper &wrap, const cluster &c) {
    const gap_kind gap = wrap.gap;
    wrap.gap = gap_kind::none;
    if (!wrap.has_text || c.continues) return;
    const bool joined =
        gap == gap_kind::line && is_ideographic(wrap.base) && is_ideographic(c.first);
    if (gap == gap_kind::none || joined) {
        if (!can_cut(wrap, c)) return;
        finish_word(wrap);
        wrap.glue.clear();
        return;
    }
    finish_word(wrap);
    if (gap == gap_kind::line || wrap.options.uniform || wrap.gap_blanks.empty())
        wrap.gap_blanks = {wrap.job.signs.blank};
    wrap.glue.swap(wrap.gap_blanks);
}

static void add_text(wrapper &wrap, const cluster &c) {
    if (wrap.at_start) begin_text(wrap);
    decide_gap(wrap, c);
    wrap.gap_blanks.clear();
    const bool on_first = !wrap.written;
    const int64_t room =
        wrap.width - (wrap.options.indented && !on_first ? 0 : wrap.indent_columns);
    constexpr size_t longest = 65536; // of characters without columns
    const bool too_wide = wrap.word_columns + c.columns > room && !c.continues;
    if (!wrap.word.empty() && (too_wide || wrap.word.size() > longest)) {
        finish_word(wrap);
        wrap.glue.clear();
    }
    if (wrap.word.empty()) wrap.word_continues = c.continues;
    wrap.word.insert(wrap.word.end(), c.wide.begin(), c.wide.end());
    wrap.word_columns += c.columns;
    wrap.base = c.first;
    wrap.last = c.last;
    wrap.has_text = true;
}

static void add_blank(wrapper &wrap, const cluster &c) {
    const layout_signs &signs = wrap.job.signs;
    const bool tab = is(c, signs.tab);
    if (!wrap.at_start) {
        wrap.gap = gap_kind::blank;
        if (wrap.gap_blanks.size() <= size_t(wrap.width))
            wrap.gap_blanks.push_back(tab ? signs.blank : c.wide[0]);
        return;
    }
    const int64_t stop = usual_tab_stop - wrap.lead_columns % usual_tab_stop;
    wrap.lead_columns += tab ? stop : c.columns;
    if (wrap.lead_columns <= wrap.width) wrap.lead.push_back(c.wide[0]);
}

static void end_read_line(wrapper &wrap) {
    if (wrap.at_start || wrap.options.split_only) end_paragraph(wrap);
    if (wrap.at_start) keep(wrap.job.to, wrap.job.end.wide);
    wrap.at_start = true;
    wrap.lead.clear();
    wrap.lead_columns = 0;
    wrap.gap = gap_kind::line;
    wrap.gap_blanks.clear();
}

int run_wrap(const common_options &common, const text_options &options) {
    layout_job job;
    open_layout(job, common, options);
    for (const std::string &path : inputs_of(options.files)) {
        wrapper wrap{.job = job, .options = options, .width = options.width};
        read_clusters(job, path, [&](const cluster &c) {
            if (is(c, job.signs.newline))
                end_read_line(wrap);
            else if (is_blank(job, c) && c.last != zero_width_space)
                add_blank(wrap, c);
            else if (!is(c, job.signs.carriage_return))
                add_text(wrap, c);
        });
        end_paragraph(wrap);
    }
    finish_layout(job);
    return done;
}

} // namespace kovacli
