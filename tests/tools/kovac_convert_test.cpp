// The conversion compiler: its sources, the objects it writes, and what the library makes of them.
#include "kovac/kovac_convert.h"

#include "support/conversion_builder.h"
#include "support/rows.h"
#include "tools/command_run.h"

#include <set>

using namespace kovac;
using namespace std::string_literals;

// A pair of mapping files, compiled both ways into a root of its own.
struct pair_job {
    temp_dir dir;
    std::string log;
    diagnostics diag{.sink = &log};
    convert_options opt;
    pair_job(const std::string &from, const std::string &to) {
        opt.from = from.find('\n') == from.npos ? from : dir.write("a.map", from);
        opt.to = to.find('\n') == to.npos ? to : dir.write("b.map", to);
        opt.root = dir.path + "/root";
        opt.both = true;
    }
    convert_status run() { return run_convert(opt, {"/usr/share/i18n/charmaps"}, diag); }
    std::string object(const std::string &name) const {
        return dir.read("root/kova/cv9/" + name + ".cvo");
    }
    std::string there() const { return object(name(opt.from) + "_" + name(opt.to)); }
    std::string home() const { return object(name(opt.to) + "_" + name(opt.from)); }
    std::string files() const {
        std::set<std::string> names;
        for (const auto &file : std::filesystem::directory_iterator(opt.root + "/kova/cv9"))
            names.insert(file.path().filename());
        std::string text;
        for (const std::string &name : names)
            text += (text.empty() ? "" : " ") + name;
        return text;
    }
    static std::string name(const std::string &option) {
        const std::string base = option.substr(option.rfind('/') + 1);
        return base.substr(0, base.rfind('.'));
    }
};

// Which sides are stateful; the lengths of targets, shifted and plain sources; checks and ratio.
static std::string loaded_fields(const std::string &object) {
    const cv_record cv(object);
    if (cv.result != 0) return "does not load";
    const iconv_rec *r = cv.rec();
    return format("%d%d %d-%d %d-%d %d-%d %d %g", r->source_is_stateful, r->target_is_stateful,
                  r->target_min_len, r->target_max_len, r->source_shift_min_len,
                  r->source_shift_max_len, r->source_noshift_min_len, r->source_noshift_max_len,
                  r->needs_error_checking, double(r->exp_ratio));
}

static std::string byte_set(uint32_t first_high) {
    std::string text;
    for (uint32_t b = 0; b < 256; ++b)
        text += format("%02x\tU+%04X\n", b, b < 0x80 ? b : first_high + b - 0x80);
    return text;
}

static const std::string utf8 = "utf8";
static const std::string host = "shift 0e 0f\n00\tU+0000\nc1\tU+0041\n6f\tU+003F\n"
                                "4141\tU+3042\t0\n4142\tU+3044\n";

// ---- figures -----------------------------------------------------------------------------------

TEST(KovacConvert, ComputesTheFiguresOfTheRecordFromTheEntries) {
    const auto check = [](const std::string &from, const std::string &to, const char *there,
                          const char *home) {
        pair_job job(from, to);
        ASSERT_EQ(job.run(), convert_status::done) << job.log;
        EXPECT_EQ(loaded_fields(job.there()), there) << from << to;
        EXPECT_EQ(loaded_fields(job.home()), home) << from << to;
    };
    const std::string bytes = byte_set(0xA0), two = "41\tU+0041\n81\tU+3042\n";
    check(bytes, bytes, "00 1-1 0-0 1-1 0 1", "00 1-1 0-0 1-1 0 1"); // every byte comes back
    check("41\tU+0041\n", bytes, "00 1-1 0-0 1-1 1 1", "00 1-1 0-0 1-1 1 1"); // a null is added
    check(two, "41\tU+0041\n8fa1a1\tU+3042\n", "00 1-3 0-0 1-1 1 3", "00 1-1 0-0 1-3 1 1");
    check(two, host, "01 1-2 0-0 1-1 1 4", "10 1-1 2-2 1-1 1 1"); // in, pair, out
    check("8141\tU+0041\n8142\tU+3042\n", "utf8", "00 1-3 0-0 2-2 1 1.5", "00 2-2 0-0 1-3 1 2");
    check("00\tU+0000\n81\tU+20000\n", "unicode", "00 2-4 0-0 1-1 1 4", // a pair of units
          "00 1-1 0-0 2-4 1 0.5");
}

// ---- conversions -------------------------------------------------------------------------------

static std::string ucm(const std::string &states, const std::string &lines) {
    return "<code_set_name> \"x\"\n<mb_cur_max> 2\n<uconv_class> \"MBCS\"\n<subchar> \\x3F\n" +
           states + "CHARMAP\n" + lines + "END CHARMAP\n";
}

TEST(KovacConvert, ConvertsAsTheSourcesSay) {
    // 80 and 41 are both A; 81 is a fallback's target; 82 comes from its bytes only.
    const std::string marks = "41\tU+0041\n80\tU+0041\t3\n81\tU+0042\n82\tU+0043\t3\n90\tU+00E9\n";
    const std::string marked = "61\tU+0041\n62\tU+0042\n62\tU+0043\t1\n7a\tU+005A\n";
    const std::string a = "41\tU+0041\n", small = "61\tU+0041\n", u = "unicode";
    const std::string pairs = "41\tU+0041\n8141\tU+3046\n8142\tU+3042\n";
    const std::string kana = "41\tU+0041\n81\tU+3042\n82\tU+3044\n3f\tU+003F\n";
    const std::string shifts = "shift 0e 0f\n00\tU+0000\n41\tU+0041\n3f\tU+003F\n5151\tU+3042\n"
                               "52\tU+3044\n";
    const std::string table =
        ucm("<icu:state> 0-7f, 81:1\n<icu:state> 40-7e, 80-fc\n",
            "<U0000> \\x00 |0\n<U0041> \\x41 |0\n<U3042> \\x81\\x40 |0 # kana\n<UFF21> \\x41 |1\n"
            "<U00E9> \\x3F |2\n<U3044> \\x81\\x41 |3\n<U304B><U309A> \\x81\\x42 |0\n");
    const std::string states =
        ucm("<icu:state> 0-ff, e:1.s, f:0.s\n"
            "<icu:state> initial, 0-3f:3, e:1.s, f:0.s, 40:2, 41-fe:2, ff:3\n"
            "<icu:state> 0-3f:1.i, 40-fe:1., ff:1.i\n<icu:state> 0-ff:1.i\n",
            "<U0041> \\xC1 |0\n<U3042> \\x41\\x42 |0\n");
    std::map<std::string, std::string> objects;
    const auto check = [&](const std::string &from, const std::string &to, const std::string &in,
                           const std::string &out, int sub = 0, int error = 0,
                           const char *substitute = "") {
        SCOPED_TRACE(testing::PrintToString(in) + " of " + from);
        std::string &object = objects[from + to + substitute];
        if (object.empty()) {
            pair_job job(from, to);
            job.opt.substitute = substitute;
            ASSERT_EQ(job.run(), convert_status::done) << job.log;
            object = job.there();
        }
        const cv_record cv(object);
        const bool stateful = cv.rec()->source_is_stateful || cv.rec()->target_is_stateful;
        conv_state st = {1, 1, 0, 0, nullptr};
        const cv_outcome got = convert(cv, in, 20, stateful ? &st : nullptr);
        EXPECT_EQ(got, (cv_outcome{error ? -1 : 0, out, got.taken, sub, error}));
    };
    check(marks, marked, "A\x81", "ab");
    check(marks, marked, "A\x80", "aa", 1);
    check(marks, marked, "\x82", "b", 1);
    check(marks, marked, "A\x90", "a", 0, KO_EILSEQ);
    check(pairs, host, "\x81\x41", "\x6f", 1, 0, "6f");
    check(pairs, host, "\x81\x41\x41", "\x0e\x41\x41\x0f\xc1", 1, 0, "4141"); // in shift codes
    check(a, small, "\xff", "a", 1, 0, "61");
    check(host, kana, "\x0f\xc1\x0e\x41\x41\x41\x42\x0f\x6f", "A\x81\x82?"); // lone shift-in
    check(host, shifts, "\xc1\x0e\x41\x41\x41\x42\x0f\xc1", "A\x0e\x51\x51\x0f\x52\101");
    check(utf8, u, "A\u00e9\u20ac\ufffd", "\0A\0\xe9\x20\xac\xff\xfd"s);
    check(u, utf8, "\0A\0\xe9\x20\xac\xff\xfd"s, "A\u00e9\u20ac\ufffd");
    check(utf8, u, "\U0001F600", "\xd8\x3d\xde\0"s);
    check(u, utf8, "\xd8\x40\xdc\x01", "", 0, KO_EILSEQ); // beyond the second plane
    check(utf8, u, "\xed\xa0\x80", "", 0, KO_EILSEQ);     // a surrogate
    check(utf8, u, "\xe2\x82", "", 0, KO_EINVAL);
    check(table, u, "A\x81\x40", "\0A\x30\x42"s);
    check(table, u, "\x81\x41", "\x30\x44", 1);
    check(table, u, "\x81\x42", "", 0, KO_EILSEQ);
    check(u, table, "\xff\x21", "A", 1);
    check(u, table, "\0\xe9"s, "?", 1);
    check(u, table, "\x30\x44", "", 0, KO_EILSEQ);
    check(states, u, "\xc1\x0e\x41\x42\x0f", "\0A\x30\x42"s);
    const cv_record terminated(objects[marks + marked]);
    EXPECT_EQ(convert(terminated, "A\0A"s, 9, nullptr, -1), (cv_outcome{0, "a\0"s, 2, 0, 0}));
}

// ---- sources -----------------------------------------------------------------------------------

TEST(KovacConvert, KeepsLongCharactersOfCharmaps) {
    const temp_dir dir;
    const std::string path = dir.write(
        "cs", "<code_set_name> \"LONG\"\n<escape_char> /\nCHARMAP\n<U0000>..<U007F> /x00\n"
              "<U3042> /x8f/xa1/xa1\n%IRREVERSIBLE%<U3042> /x8e/xa1/xa1/xa1\n<U3044> /xa1/xa1\n"
              "END CHARMAP\n");
    std::string log;
    diagnostics diag{.sink = &log};
    conv_set set;
    ASSERT_EQ(load_set({}, path, nullptr, diag, set), convert_status::done) << log;
    EXPECT_EQ(set.names, std::vector<std::string>{"LONG"});
    EXPECT_EQ(set.codes.size(), 131u);
    EXPECT_EQ(set.bytes.at(0x3042), (char_bytes{false, 3, 0x8FA1A1}));
    EXPECT_EQ(set.codes.at({false, 4, 0x8EA1A1A1}), 0x3042u);
}

TEST(KovacConvert, SaysWhatIsWrongAndWritesNothing) {
    const auto check = [](const std::string &from, const std::string &to, const char *message,
                          convert_status status = convert_status::source,
                          const char *substitute = "") {
        pair_job job(from, to);
        job.opt.substitute = substitute;
        EXPECT_EQ(job.run(), status) << from;
        EXPECT_NE(job.log.find(message), std::string::npos) << job.log;
        EXPECT_FALSE(std::filesystem::exists(job.opt.root)) << from;
    };
    const std::string a = "41\tU+0041\n", set = "unicode";
    std::string states;
    for (int i = 0; i < 129; ++i)
        states += "<icu:state> 0-7f\n";
    check("4\tU+0041\n", set, "a.map:1:1: error: the bytes of a character");
    check("41 U+0041\n41\tU+D800\n", set, ":2:4: error: a code point is expected");
    check("41\tU+0041\t7\n", set, ":1:11: error: the flag");
    check("shift 0e 0f\n818283\tU+3042\n", set, "one or two bytes");
    check("shift 0e\n", set, "two bytes");
    check("# nothing\n", set, "no characters");
    check("81\tU+0041\n8140\tU+3042\n", set, "8140 begins with the character 81");
    check(ucm("<icu:state> 0-7f, 81:1\n<icu:state> 40-7e\n", "<U3042> \\x81\\x80 |0\n"), set,
          "does not accept these");
    check(ucm("<icu:state> 0-1ff\n", "<U0041> \\x41 |0\n"), set, "no step of a state");
    check(ucm("<icu:state> 0-ff:80\n", "<U0041> \\x41 |0\n"), set, "no step of a state");
    check(ucm(states, "<U0041> \\x41 |0\n"), set, "more than 128 states");
    check("shift 0e 0e\n", set, "must differ");
    check(ucm("", "<U0041> \\x41 |9\n"), set, "the flag");
    check(a, set, "two hexadecimal digits", convert_status::usage, "0");
    check(a, set, "two hexadecimal digits", convert_status::usage, " 4");
    check(a, a, "not a character of", convert_status::source, "42");
    check("utf8", "UTF-8", "one code set", convert_status::usage);
    check("no-such-set", "utf8", "no code set \"no-such-set\"", convert_status::file);
}

TEST(KovacConvert, AsksTheConverterOfTheCLibrary) {
    conv_set whole;
    std::string why;
    if (!read_libc_set("IBM933", whole, &why)) GTEST_SKIP() << "no converter of IBM933";
    conv_set pairs = whole, single = whole, none;
    take_part(pairs, set_part::pairs);
    take_part(single, set_part::single);
    EXPECT_TRUE(whole.stateful);
    EXPECT_FALSE(pairs.stateful || single.stateful);
    EXPECT_EQ(whole.codes.size(), pairs.codes.size() + single.codes.size());
    EXPECT_EQ(whole.codes.at({false, 1, 0xC1}), uint32_t('A'));
    EXPECT_EQ(whole.bytes.at(0xAC00).len, 2);
    EXPECT_TRUE(whole.bytes.at(0xAC00).shifted);
    EXPECT_EQ(pairs.codes.at(pairs.bytes.at(0xAC00)), 0xAC00u);
    EXPECT_FALSE(whole.codes.count({false, 1, 0x0E}));
    EXPECT_FALSE(read_libc_set("no-such-set", none, &why));
    EXPECT_EQ(why, "");
}

// What published tables have at places where sources differ.
TEST(KovacConvert, TakesHostCodeSetsFromTheSourceThatHolds) {
    if (!has_icu()) GTEST_SKIP() << "built without ICU";
    // Names, bytes, the code point, and which ways they convert: both, or only back to the bytes.
    for (const auto &w :
         table("IBM930 B2 5C; IBM930 A0 7E; IBM930 426A FFE4 back; IBM930 426A A6; IBM939 E0 5C; "
               "IBM939 A1 7E; 1027 E0 5C; 1371 E0 5C; 5026 B2 5C; IBM278 71 5C; IBM278 E0 C9; "
               "IBM871 4A DE; IBM871 C0 FE; IBM285 A1 AF; IBM870 B0 2D9; IBM290 62 61; "
               "IBM290 41 FF61; IBM1026 BC AF; IBM875 74 A0; IBM424 78 2017; IBM037 15 85; "
               "IBM037 25 A; IBM1047 15 85; IBM1140 25 A; IBM1140 9F 20AC; IBM037 5A FF01 back; "
               "windows-950 A1C3 FFE3; cp1252 81 81; 949 1A 1A; 808 FD 20AC; 833 C1 41; "
               "16684 4040 3000")) {
        const auto number = [&w](size_t i) { return uint32_t(std::stoul(w[i], nullptr, 16)); };
        SCOPED_TRACE(w[0] + " " + w[1] + " " + w[2]);
        std::string log;
        diagnostics diag{.sink = &log};
        conv_set set;
        ASSERT_EQ(load_set({"/usr/share/i18n/charmaps"}, w[0], nullptr, diag, set),
                  convert_status::done)
            << log;
        const uint8_t len = number(1) > 0xFF ? 2 : 1;
        const char_bytes bytes{set.stateful && len == 2, len, number(1)};
        EXPECT_EQ(set.codes.count(bytes) && set.codes.at(bytes) == number(2), w.size() == 3);
        EXPECT_TRUE(set.bytes.count(number(2)) && set.bytes.at(number(2)) == bytes);
    }
}

TEST(KovacConvert, CorrectsTheCharmapsOfLocales) {
    if (!has_icu()) GTEST_SKIP() << "built without ICU";
    const std::string folder = "/usr/share/i18n/charmaps";
    const auto check = [&folder](const std::string &name, uint32_t code, uint16_t byte,
                                 const char *said) {
        SCOPED_TRACE(name);
        std::string log;
        diagnostics diag{.sink = &log};
        charmap map;
        ASSERT_TRUE(load_charmap({folder}, name, diag, map)) << log;
        const uint64_t hash = map.hash;
        correct_charmap(name, map, diag);
        const charmap_char *found = find_code(map, code);
        ASSERT_TRUE(found);
        EXPECT_EQ(found->wide, byte);
        EXPECT_EQ(found->width, 1);
        EXPECT_EQ(find_wide(map, byte)->code, code);
        EXPECT_NE(log.find(said), std::string::npos) << log;
        EXPECT_EQ(map.hash == hash, log.empty());
    };
    check("IBM278", 0x5C, 0x71, "charmap IBM278: 2 characters are corrected");
    check("IBM278", 0xC9, 0xE0, "corrected");
    check("IBM290", 'a', 0x62, "98 characters");
    check("IBM273", 'a', 0x81, "");
    check("CP1252", 0x20AC, 0x80, "");            // what Windows has more, locales leave out
    check(folder + "/IBM278.gz", 0x5C, 0xE0, ""); // as it was told
}

TEST(KovacConvert, SaysInWhatSourcesDiffer) {
    if (!has_icu()) GTEST_SKIP() << "built without ICU";
    pair_job job("IBM278", "unicode");
    ASSERT_EQ(job.run(), convert_status::done);
    EXPECT_EQ(job.log, "");
    job.opt.verbose = job.diag.verbose = true;
    ASSERT_EQ(job.run(), convert_status::done);
    for (const char *line :
         {"ibm278: ICU ibm-278_P100-1995 and charmap IBM278 differ in 4 characters",
          "71: U+005C, charmap IBM278 U+00C9", "U+005C: 71, charmap IBM278 e0"})
        EXPECT_NE(job.log.find(line), std::string::npos) << job.log;
}

TEST(KovacConvert, RefusesAtOnceWhatAnObjectCannotHold) {
    for (const std::string name :
         {"ISO-2022-JP", "ISO-2022-KR", "ISO-2022-CN", "UTF-7", "UTF-16", "UTF-16LE", "UTF-32",
          "UTF-32BE", "UCS-2LE", "UCS-4", "UTF-7-IMAP"}) {
        pair_job job(name, "utf8");
        EXPECT_EQ(job.run(), convert_status::source) << name;
        EXPECT_NE(job.log.find(name + " cannot be compiled: "), std::string::npos) << job.log;
        EXPECT_EQ(job.log.find("convert needs no object") != std::string::npos,
                  name.starts_with("ISO") || name.starts_with("UTF-7"));
        EXPECT_FALSE(std::filesystem::exists(job.opt.root)) << name;
    }
    pair_job lost("EUC-JISX0213", "utf8"), planes("utf8", "unicode");
    EXPECT_EQ(lost.run(), convert_status::done);
    EXPECT_NE(lost.log.find("25 characters that stand for several code points are left out"),
              std::string::npos)
        << lost.log;
    EXPECT_EQ(planes.run(), convert_status::done);
    EXPECT_NE(planes.log.find("983040 code points; --supplementary"), std::string::npos);
}

// ---- files -------------------------------------------------------------------------------------

TEST(KovacConvert, WritesTheSameBytesUnderNumbersAndNames) {
    pair_job first("ISO-8859-1", "utf8"), second("latin1", "UTF-8"), third("utf8", "unicode");
    first.opt.from_names = {"8859-1"};
    ASSERT_EQ(first.run(), convert_status::done) << first.log;
    ASSERT_EQ(second.run(), convert_status::done) << second.log;
    const std::string object = first.object("0333e01c");
    EXPECT_TRUE(object.starts_with("FILE_TYPE=codeset_conversion_object\nCOMPILER_VERSION=9\n"
                                   "HEADER_LENGTH=8\nFROM=charmap ISO-8859-1\nTO=utf8\n"));
    EXPECT_EQ(first.object("iso-8859-1_utf8"), object);
    EXPECT_EQ(first.object("8859-1_utf8"), object); // as it was told
    EXPECT_EQ(second.object("0333e01c"), object);
    EXPECT_EQ(second.files(), "0333e01c.cvo e01c0333.cvo iso-8859-1_utf8.cvo utf8_iso-8859-1.cvo");
    EXPECT_NE(first.object("e01c0333"), object);
    EXPECT_FALSE(first.object("utf8_iso-8859-1").empty());
    for (const auto &file : std::filesystem::recursive_directory_iterator(first.opt.root))
        EXPECT_NE(file.path().extension(), ".new");
    // A name that cannot stand in a file name.
    third.opt.from = third.dir.write("a b:c.map", "41\tU+0041\n");
    ASSERT_EQ(third.run(), convert_status::done) << third.log;
    EXPECT_FALSE(third.object("a_b_c_unicode").empty());
}

using KovacConvertCommand = command_test;
TEST_F(KovacConvertCommand, ReportsAndExitsWithTheStatusItDocuments) {
    spit(dir / "a.map", "41\tU+0041\n80\tU+0041\t3\n81\tU+3042\n");
    spit(dir / "b.map", "61\tU+0041\n");
    command = "kovac convert ";
    writes("-f a.map -o . -t b.map --report",
           "a to b: 3 characters convert, 1 of them by substitution, 1 have no "
           "mapping\nirreversible\t80\tU+0041\t61\t41\nunmapped\t81\tU+3042\n");
    fails(2, "-f a.map -o .", "--to is required");
    fails(2, "-f utf8 -t utf8 -o .", "one code set");
    fails(2, "-f utf8 -t latin1 --to-name ../x -o .", "cannot name a file");
    fails(3, "-f utf8 -t /usr -o .", "cannot read");
    fails(3, "-f a.map -t /no/such.map -o .", "no code set");
    fails(3, "-f a.map -t utf8 -o /dev/null", "cannot write");
}
