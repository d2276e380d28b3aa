// kova diff: what moved between two data roots.
#include "tools/command_run.h"

// Two roots with one locale each, of small sources. The code set "unicode" is built in.
struct KovaDiff : command_test {
    static std::string source(const std::string &elements, const std::string &order,
                              const std::string &point = ".") {
        std::string text = "comment_char %\nescape_char /\nLC_NUMERIC\ndecimal_point \"" + point +
                           "\"\nthousands_sep \"\"\ngrouping -1\nEND LC_NUMERIC\nLC_COLLATE\n" +
                           elements + "order_start forward\n" + order +
                           "order_end\nEND LC_COLLATE\n";
        for (const std::string name : {"LC_CTYPE", "LC_MONETARY", "LC_TIME", "LC_MESSAGES"})
            text += name + "\ncopy \"POSIX\"\nEND " + name + "\n";
        return text;
    }
    void compile(const std::string &to, const std::string &text, const std::string &options) {
        spit(dir / "xx_YY", text);
        const outcome got = shell("kovac registry -o " + to + " && kovac locale -i xx_YY -f " +
                                  "unicode -o " + to + " " + options);
        ASSERT_EQ(got.status, 0) << got.err;
    }
    KovaDiff() { environment.erase("VANTORDIR"); }
    static constexpr char letters[] = "<U0061>\n<U0062>\n<U0063>\n<U0064>\n<U0068>\n";
};

TEST_F(KovaDiff, ShowsCharactersAndPairsThatMoved) {
    compile("one", source("", letters), "--release 1");
    compile("two", source("", "<U0061>\n<U0063>\n<U0064>\n<U0062>\n<U0068>\n"), "--release 2");
    compile("ch", source("collating-element <c-h> from \"ch\"\n", std::string(letters) + "<c-h>\n"),
            "");
    command = "kova compare --root ";
    const outcome moved = kova("diff one two xx_YY.UTF-8 -n 3");
    EXPECT_EQ(moved.status, 1) << moved.err;
    EXPECT_NE(moved.out.find("\ncharacters that moved: 1 of 63487 of the basic plane\n"
                             "character  between in 1   between in 2   1; 2\n"
                             "U+0062     U+0061 U+0063  U+0064 U+0068  a < b < c; d < b < h\n"),
              moved.out.npos)
        << moved.out;
    EXPECT_NE(moved.out.find(": the first 3\n1  2  texts\n"), moved.out.npos) << moved.out;
    // Every pair that it shows is one.
    const outcome pairs = kova("diff one ch xx_YY");
    EXPECT_EQ(pairs.status, 1) << pairs.err;
    EXPECT_NE(pairs.out.find("\ncharacters that moved: 0 of "), pairs.out.npos) << pairs.out;
    std::istringstream lines(pairs.out.substr(pairs.out.find("1  2  texts\n") + 12));
    std::string one, two, a, b;
    size_t count = 0;
    for (; lines >> one >> two >> a >> b; ++count) {
        EXPECT_NE((a + " " + b).find("ch"), a.npos) << a << " " << b;
        EXPECT_NE(one, two);
        writes("one xx_YY '" + a + "' '" + b + "'", one + "\n");
        writes("ch xx_YY '" + a + "' '" + b + "'", two + "\n");
    }
    EXPECT_EQ(count, 20u) << pairs.out;
}

TEST_F(KovaDiff, TellsEqualOrdersAndBadRoots) {
    compile("one", source("", letters), "--release 1");
    compile("two", source("", letters, ","), "");
    const outcome same = kova("diff one one xx_YY"), other = kova("diff one two xx_YY");
    EXPECT_EQ(same.status, 0) << same.err;
    EXPECT_EQ(other.status, 0) << other.err;
    EXPECT_NE(same.out.find(" 1\nthe same order\n"), same.out.npos) << same.out;
    EXPECT_NE(other.out.find("\nthe same order, as far as was compared: characters of the basic "
                             "plane: 63487, pairs of texts: 200000\n"),
              other.out.npos)
        << other.out;
    command = "kova diff ";
    fails(3, "one one zz_ZZ", "zz_ZZ.unicode in one: there is no such locale");
    fails(3, "one none xx_YY", "xx_YY.unicode in none: there is no such locale or data root");
    fails(3, "one two ../xx_YY", "\"../xx_YY\"");
    spit(dir / "two/kova/lc11/xx_yy/e005.lco", "");
    fails(3, "one two xx_YY", "xx_YY.unicode in two: a data file is damaged");
}
