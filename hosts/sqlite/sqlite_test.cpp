// The SQLite extension in the engine: what its functions and collations answer, without memory, in
// several threads, for texts of all kinds of bytes.
//   KOVA_SQLITE_EXTENSION  the extension
//   KOVA_TEST_ROOT         a data root, compiled from data/locales.list
#include "kova_host.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <random>
#include <string>
#include <thread>
#include <vector>

// ---- Memory of SQLite and of the library, which fails at a stated call ----

static thread_local long calls_left = -1; // allocations before the one that fails; -1: none fails
static sqlite3_mem_methods system_memory;

static bool fails_now() { return calls_left >= 0 && calls_left-- == 0; }
static void *sqlite_malloc(int size) { return fails_now() ? nullptr : system_memory.xMalloc(size); }
static void *sqlite_realloc(void *block, int size) {
    return fails_now() ? nullptr : system_memory.xRealloc(block, size);
}
static long library_blocks = 0; // held by the library
static void *library_malloc(size_t size) {
    void *const block = fails_now() ? nullptr : malloc(size);
    library_blocks += block != nullptr;
    return block;
}
static void library_free(void *block) {
    library_blocks -= block != nullptr;
    free(block);
}

// ---- A connection with the extension ----

namespace {
struct answer {
    int code;
    std::string text; // rows and columns joined by "|", or the message
};

struct database {
    sqlite3 *db = nullptr;
    database(const database &) = delete;
    explicit database(const char *file = ":memory:") {
        sqlite3_open(file, &db);
        sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 1, nullptr);
    }
    ~database() { EXPECT_EQ(sqlite3_close(db), SQLITE_OK); }

    int load() {
        char *message = nullptr;
        const int rc =
            sqlite3_load_extension(db, getenv("KOVA_SQLITE_EXTENSION"), nullptr, &message);
        sqlite3_free(message);
        if (rc != SQLITE_OK) return rc;
        return run("SELECT kova_root('" + std::string(getenv("KOVA_TEST_ROOT")) + "')").code;
    }

    answer run(const std::string &sql, const std::string *bound = nullptr) {
        std::string text;
        int rc = SQLITE_OK;
        for (const char *rest = sql.c_str(); *rest && (rc == SQLITE_OK || rc == SQLITE_DONE);) {
            sqlite3_stmt *statement = nullptr;
            rc = sqlite3_prepare_v2(db, rest, -1, &statement, &rest);
            if (rc == SQLITE_OK && bound)
                sqlite3_bind_blob(statement, 1, bound->data(), int(bound->size()), SQLITE_STATIC);
            while (rc == SQLITE_OK && (rc = sqlite3_step(statement)) == SQLITE_ROW) {
                for (int i = 0; i < sqlite3_column_count(statement); ++i) {
                    const void *got = sqlite3_column_text(statement, i);
                    text += text.empty() ? "" : "|";
                    text += got ? static_cast<const char *>(got) : "NULL";
                }
                rc = SQLITE_OK;
            }
            sqlite3_finalize(statement);
        }
        if (rc == SQLITE_OK || rc == SQLITE_DONE) return {SQLITE_OK, text};
        return {rc, sqlite3_errmsg(db)};
    }
};
} // namespace

// ---- Answers ----

static void expect_answer(const std::string &sql, const std::string &want, int code) {
    SCOPED_TRACE(sql);
    database d;
    ASSERT_EQ(d.load(), SQLITE_OK);
    const answer got = d.run(sql);
    EXPECT_EQ(got.text, want);
    EXPECT_EQ(got.code, code);
}

static void gives(const std::string &sql, const std::string &want) {
    expect_answer(sql, want, SQLITE_OK);
}
static void refuses(const std::string &sql, const std::string &want, int code = SQLITE_ERROR) {
    expect_answer(sql, want, code);
}

static std::string sorted(const std::string &collation) {
    return "CREATE TABLE w(s); INSERT INTO w VALUES('Zebra'),('Äpfel'),('apfel'),('Apfel'),('öl');"
           "SELECT s FROM w ORDER BY s COLLATE " +
           collation;
}

TEST(Sqlite, CollationsAreThoseOfTheirNames) {
    gives(sorted("kova_de_DE"), "apfel|Apfel|Äpfel|öl|Zebra");
    gives(sorted("KOVA_sv_se"), "apfel|Apfel|Zebra|Äpfel|öl");
    gives("PRAGMA encoding = 'UTF-16le';" + sorted("kova_sv_SE"), "apfel|Apfel|Zebra|Äpfel|öl");
    gives(sorted("kova_sv_SE$ISO_8859_1"), "apfel|Apfel|Zebra|Äpfel|öl");
    gives(sorted("\"kova_sv_SE.ISO-8859-1\""), "apfel|Apfel|Zebra|Äpfel|öl");
    gives(sorted("kova_he_IL_hebr"), "apfel|Apfel|Äpfel|öl|Zebra");
    gives(sorted("kova_he_IL_hebr$ISO_8859_8"), "apfel|Apfel|Zebra|Äpfel|öl"); // it lacks ä and ö
    refuses(sorted("kova_xx_XX"), "no such collation sequence: kova_xx_XX");
    refuses(sorted("de_DE"), "no such collation sequence: de_DE");
    gives("SELECT kova_collation('kova_fr_CA')", "kova_fr_CA");
    const std::string none = ": there is no such locale or data root";
    refuses("SELECT kova_collation('kova_xx__yy')", "kova: xx.unicode@yy" + none);
    refuses("SELECT kova_collation('../x')",
            "kova: ../x is not the name of a collation, such as kova_de_DE");
    refuses("SELECT kova_key('a', '/etc/x')", "kova: /etc/x" + none);
    refuses("SELECT kova_key('a', '')", "kova: the name of the locale is empty");
    gives("SELECT length(kova_version('de_DE')) > 17", "1");
    refuses("SELECT kova_version('de_DE'), kova_root('/elsewhere')",
            "kova: this connection already uses locales of another data root");
}

TEST(Sqlite, TextsAreKeyedComparedMappedAndConverted) {
    gives("SELECT kova_key('z', 'sv_SE') < kova_key('ä', 'sv_SE'), typeof(kova_key('', 'sv_SE'))",
          "1|blob");
    gives("SELECT kova_compare('ä', 'z', 'de_DE'), kova_compare('ä', 'z', 'sv_SE'),"
          " kova_compare('z', 'z', 'sv_SE'), kova_compare(NULL, 'z', 'sv_SE'),"
          " kova_compare(CAST(x'6100' AS TEXT), 'a', 'de_DE'), kova_compare(x'ff', 'z', 'de_DE')",
          "-1|1|0|NULL|1|1");
    gives("SELECT kova_upper('größe', 'de_DE'), kova_lower('IŞIK', 'tr_TR.ISO-8859-9'),"
          " hex(kova_upper(CAST(x'610062' AS TEXT), 'de_DE')), kova_upper('', 'de_DE')",
          "GRÖßE|ışık|410042|");
    refuses("SELECT kova_upper(x'61c320', 'de_DE')",
            "kova: a text: bytes that are not a character of the code set");
    gives("SELECT hex(kova_convert('schön', 'utf8', 'ibm037')),"
          " CAST(kova_convert(x'a28388', 'cp037', 'UTF-8') AS TEXT),"
          " hex(kova_convert('あ', 'utf8', 'iso-2022-jp')), hex(kova_convert('', 'utf8', 'cp037')),"
          " hex(kova_convert(zeroblob(5000), 'latin1', 'utf16le')) = hex(zeroblob(10000))",
          "A28388CC95|sch|1B244224221B2842||1");
    refuses("SELECT kova_convert('a€', 'utf8', 'latin1')",
            "kova: utf8 to latin1: byte 2 of the text begins no character, or one that is not in "
            "both code sets");
    refuses("SELECT kova_convert(x'61c3', 'utf8', 'latin1')",
            "kova: utf8 to latin1: byte 2 of the text begins a character that is cut off");
    refuses("SELECT kova_convert('a', 'latin1', 'utf8')",
            "kova: a text is converted from utf8; bytes in latin1 are a BLOB");
    refuses("SELECT kova_convert('a', 'utf8', 'nonsense')",
            "kova: utf8 to nonsense: there is no code set of this name");
}

TEST(Sqlite, NumbersAreWrittenAsTheyAreOrRefused) {
    gives("SELECT kova_number(1234567.891, '%''.2f', 'de_DE'), kova_number(-5, '%hd%%', 'de_DE'),"
          " kova_number('1e3', '%d', 'de_DE'), kova_number(255, '<%x>', 'de_DE'),"
          " kova_number(4294967295, '%u', 'de_DE'), kova_number(3.0, '%05ld', 'de_DE')",
          "1.234.567,89|-5%|1000|<ff>|4294967295|00003");
    // Beyond 32 bits the directive of reals writes what that of integers would.
    gives("SELECT kova_number(2147483648, '%''d', 'de_DE'), kova_number(-12345678901, '%+015i|',"
          " 'de_DE'), kova_number(999999999999999, '%-17u|', 'de_DE')",
          "2.147.483.648|-00012345678901||999999999999999  |");
    const std::string one = "' does not have exactly one directive: % with flags, width, ";
    refuses("SELECT kova_number(1, '%s', 'de_DE')",
            "kova: the format '%s" + one + ".digits and one of d i u o q b x X e E f g G");
    refuses("SELECT kova_money(1, '%n %n', 'de_DE')",
            "kova: the format '%n %n" + one + "#digits, .digits and n or i");
    refuses("SELECT kova_number(1.5, '%d', 'de_DE')",
            "kova: 1.5 is not a whole number of at most 15 digits, as '%d' writes them; %f and %g "
            "write others");
    refuses("SELECT kova_number(-1, '%u', 'de_DE')", "kova: -1 is out of the range of '%u'");
    refuses("SELECT kova_number(70000, '%hd', 'de_DE')",
            "kova: 70000 is out of the range of '%hd'");
    refuses("SELECT kova_number(1234567890123456, '%f', 'de_DE')",
            "kova: the value has more than 15 digits");
    refuses("SELECT kova_money('0.1234567890123456', '%n', 'de_DE')",
            "kova: the value has more than 15 digits");
    refuses("SELECT kova_number('abc', '%f', 'de_DE')", "kova: 'abc' is not a number");
    gives("SELECT length(kova_number(5, '%9000d', 'de_DE'))", "9000");
    refuses("SELECT kova_number(5, '%999999999d', 'de_DE')", "string or blob too big",
            SQLITE_TOOBIG);
    gives("SELECT kova_money(1234.5, '%n', 'de_DE'), kova_money('-1234.5', '%(#6i', 'en_US'),"
          " kova_money(NULL, '%n', 'de_DE')",
          "1.234,50 €|(USD   1,234.50)|NULL");
}

TEST(Sqlite, DatesAreWrittenAndWhatIsNoneIsRefused) {
    gives(
        "SELECT kova_date('2026-11-21 15:05:07', '%A, %x %X', 'de_DE'),"
        " kova_date('1989-01-08', '%EY', 'ja_JP'), kova_date(-1, '%Y-%m-%d %T', 'de_DE'),"
        " kova_date('2024-02-29T23:59:59.1234567Z', '%a %j %F', 'de_DE'),"
        " kova_date(253402300799, '%Y-%m-%d %T', 'de_DE'), kova_date('0000-02-29', '%j', 'de_DE')",
        "Samstag, 21.11.2026 15:05:07|平成元年|1969-12-31 23:59:59|Do 060 123456|"
        "9999-12-31 23:59:59|060");
    gives("SELECT kova_date('2026-11-21', '%d %B %Y', 'he_IL@hebr')", "11 כסלו 5787");
    for (const char *value : {"'2026-02-29'", "2460000.5", "'now'", "'2026-11-21 24:00'",
                              "253402300800", "'2026-11-21 15:05+01:00'", "x'32303236'"}) {
        SCOPED_TRACE(value);
        database d;
        ASSERT_EQ(d.load(), SQLITE_OK);
        const answer got = d.run(std::string("SELECT kova_date(") + value + ", '%x', 'de_DE')");
        EXPECT_EQ(got.code, SQLITE_ERROR);
        EXPECT_NE(got.text.find("' is not a time: a text such as "), got.text.npos) << got.text;
    }
    refuses("SELECT kova_date(0, '%J', 'de_DE')",
            "kova: %J: an unknown directive, or text that does not match one");
}

TEST(Sqlite, SchemasMayUseWhatIsPure) {
    gives("PRAGMA trusted_schema = OFF; CREATE TABLE t(a, b AS (kova_key(a, 'de_DE')));"
          "CREATE INDEX i ON t(kova_upper(a, 'de_DE')); CREATE VIEW v AS SELECT"
          " kova_lower(b, 'de_DE') FROM t; SELECT * FROM v; SELECT 1",
          "1");
    refuses("CREATE TABLE t(a); CREATE INDEX i ON t(kova_version(a))",
            "non-deterministic functions prohibited in index expressions");
    refuses("CREATE VIEW v AS SELECT kova_root('/x'); SELECT * FROM v",
            "unsafe use of kova_root()");
}

// ---- Texts of all kinds ----

static std::string any_bytes(std::mt19937 &random) {
    static const char *const pieces[] = {
        "a",          "A",        "ä", "\xc3",    "\xff", "\xed\xa0\x80", "-",        "東",
        "\U00010400", "\xf0\x9f", " ", "e\u0301", "b",    "\x80",         "\xe2\x82", "ß"};
    std::string text;
    for (size_t n = random() % 6; n; --n) {
        if (random() % 8 == 0)
            text += '\0';
        else
            text += pieces[random() % std::size(pieces)];
    }
    return text;
}

TEST(Sqlite, IndexesOfAnyBytesStayInOrder) {
    database d;
    ASSERT_EQ(d.load(), SQLITE_OK);
    ASSERT_EQ(d.run("CREATE TABLE t(s TEXT COLLATE kova_de_DE UNIQUE)").code, SQLITE_OK);
    std::mt19937 random(1);
    for (int i = 0; i < 5000; ++i) {
        const std::string text = any_bytes(random);
        ASSERT_EQ(d.run("INSERT OR IGNORE INTO t VALUES(CAST(?1 AS TEXT))", &text).code, SQLITE_OK);
    }
    const std::string large(3000000, 'z'), larger = large + "\xc3\xa4";
    ASSERT_EQ(d.run("INSERT INTO t VALUES(CAST(?1 AS TEXT))", &larger).code, SQLITE_OK);
    ASSERT_EQ(d.run("INSERT INTO t VALUES(CAST(?1 AS TEXT))", &large).code, SQLITE_OK);
    EXPECT_EQ(d.run("INSERT INTO t VALUES(CAST(?1 AS TEXT))", &large).code, SQLITE_CONSTRAINT);
    EXPECT_EQ(d.run("PRAGMA integrity_check").text, "ok");
    EXPECT_EQ(d.run("WITH o AS (SELECT s, lag(s) OVER (ORDER BY s) AS p FROM t) SELECT count(*), "
                    "sum(kova_key(p, 'de_DE') >= kova_key(s, 'de_DE')), "
                    "sum(kova_compare(p, s, 'de_DE') <> -1) FROM o WHERE p IS NOT NULL")
                  .text.substr(4),
              "|0|0");
    EXPECT_EQ(
        d.run("SELECT length(kova_upper(s, 'de_DE')) FROM t WHERE s = CAST(?1 AS TEXT)", &large)
            .text,
        "3000000");
}

// ---- Without memory ----

// Runs with the n-th allocation failing, for n = 0, 1, ... until it succeeds. What does not answer
// as it should says that memory is short; where SQLite asked for a collation, that there is none.
static void expect_out_of_memory(const char *sql, const char *want, const char *no_memory) {
    SCOPED_TRACE(sql);
    long n = 0;
    bool whole = false;
    for (; !whole && n < 100000; n += n < 400 ? 1 : 37) {
        const sqlite3_int64 before = sqlite3_memory_used();
        {
            database d;
            calls_left = n;
            const bool loaded = d.load() == SQLITE_OK;
            const answer got = loaded ? d.run(sql) : answer{};
            whole = calls_left >= 0;
            calls_left = -1;
            const bool told = got.text == "out of memory" || got.text == no_memory;
            ASSERT_TRUE(loaded ? got.text == want || (told && !whole) : !whole) << got.text;
        }
        ASSERT_EQ(sqlite3_memory_used(), before) << n;
        ASSERT_EQ(library_blocks, 0) << n;
    }
    EXPECT_GT(n, 2000); // the locale was loaded in every round, as no connection holds it
    EXPECT_TRUE(whole);
}

TEST(Sqlite, MemoryThatRunsShortIsAnErrorAndNothingIsLost) {
    ko_setextfunc(nullptr, KO_EXT_MALLOC, reinterpret_cast<ko_extfn_t>(library_malloc));
    ko_setextfunc(nullptr, KO_EXT_FREE, reinterpret_cast<ko_extfn_t>(library_free));
    expect_out_of_memory("CREATE TABLE t(s COLLATE kova_de_DE UNIQUE); INSERT INTO t VALUES('b'),"
                         "('ä'); SELECT s FROM t ORDER BY s",
                         "ä|b", "no such collation sequence: kova_de_DE");
    expect_out_of_memory(
        "SELECT kova_number(1234567890, '%''d', 'de_DE') || kova_money(5, '%n', 'de_DE') ||"
        " kova_date(0, '%x', 'de_DE') || kova_upper(kova_convert('ä', 'utf8', 'utf8'), 'de_DE') ||"
        " (length(kova_key(kova_lower(hex(zeroblob(1000)), 'de_DE'), 'de_DE')) > 2000)",
        "1.234.567.8905,00 €01.01.1970Ä1", "");
    ko_setextfunc(nullptr, KO_EXT_MALLOC, nullptr);
    ko_setextfunc(nullptr, KO_EXT_FREE, nullptr);
}

// ---- Threads ----

// Lets other threads load in the middle of a load.
static void *yielding_malloc(size_t size) {
    std::this_thread::yield();
    return malloc(size);
}

TEST(Sqlite, ConnectionsOfSeveralThreadsDoNotDisturbEachOther) {
    ko_setextfunc(nullptr, KO_EXT_MALLOC, reinterpret_cast<ko_extfn_t>(yielding_malloc));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 10; ++i) {
                database d;
                ASSERT_EQ(d.load(), SQLITE_OK);
                EXPECT_EQ(d.run(sorted(t % 2 ? "kova_de_DE" : "kova_sv_SE")).text,
                          t % 2 ? "apfel|Apfel|Äpfel|öl|Zebra" : "apfel|Apfel|Zebra|Äpfel|öl");
                for (int k = 0; k < 50; ++k) {
                    EXPECT_EQ(d.run("SELECT kova_date(0, '%J', 'de_DE')").text,
                              "kova: %J: an unknown directive, or text that does not match one");
                    EXPECT_EQ(d.run("SELECT kova_number(1000, '%''d', 'de_DE')").text, "1.000");
                }
            }
        });
    for (std::thread &t : threads)
        t.join();
    ko_setextfunc(nullptr, KO_EXT_MALLOC, nullptr);
}

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    sqlite3_config(SQLITE_CONFIG_GETMALLOC, &system_memory);
    sqlite3_mem_methods failing = system_memory;
    failing.xMalloc = sqlite_malloc;
    failing.xRealloc = sqlite_realloc;
    sqlite3_config(SQLITE_CONFIG_MALLOC, &failing);
    return RUN_ALL_TESTS();
}
