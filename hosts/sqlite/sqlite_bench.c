/* A million rows in SQLite: seconds by the collations of the extension, of SQLite and of ICU.
 *   sqlite_bench EXTENSION DATA_ROOT < LINES
 * Seconds are those of the processor, so that what else the machine does matters less; a row has
 * the least of three rounds, in which the collations take turns. */
#include <sqlite3.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unicode/ucol.h>

enum { rounds = 3, scans = 20000 };

static const struct collation {
    const char *name, *spelled;
} collations[] = {
    {"binary",           "BINARY"       },
    {"nocase",           "NOCASE"       },
    {"kova",             "kova_de_DE"   },
    {"ICU",              "icu"          },
    {"ICU, as UTF-16",   "icu_utf16"    },
    {"ICU, total order", "icu_identical"}
};
enum { collation_count = sizeof collations / sizeof *collations };

static sqlite3 *db;

static void die(const char *what) {
    fprintf(stderr, "sqlite_bench: %s: %s\n", what, db ? sqlite3_errmsg(db) : "");
    exit(1);
}

static void run(const char *sql) {
    if (sqlite3_exec(db, sql, NULL, NULL, NULL) != SQLITE_OK) die(sql);
}

static sqlite3_stmt *prepared(const char *format, const char *collation) {
    char *sql = sqlite3_mprintf(format, collation);
    sqlite3_stmt *statement = NULL;
    if (!sql || sqlite3_prepare_v2(db, sql, -1, &statement, NULL) != SQLITE_OK) die(format);
    sqlite3_free(sql);
    return statement;
}

static double now(void) {
    struct timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return (double)t.tv_sec + (double)t.tv_nsec / 1e9;
}

/* ---- ICU ---- */

static int compare_icu(void *order, int an, const void *a, int bn, const void *b) {
    UErrorCode error = U_ZERO_ERROR;
    return ucol_strcollUTF8(order, a, an, b, bn, &error);
}

static int compare_icu_utf16(void *order, int an, const void *a, int bn, const void *b) {
    return ucol_strcoll(order, a, an / 2, b, bn / 2);
}

static void add_icu(const char *name, int encoding, UCollationStrength strength,
                    int (*compare)(void *, int, const void *, int, const void *)) {
    UErrorCode error = U_ZERO_ERROR;
    UCollator *order = ucol_open("de_DE", &error);
    if (U_FAILURE(error)) die(u_errorName(error));
    ucol_setStrength(order, strength);
    if (sqlite3_create_collation(db, name, encoding, order, compare) != SQLITE_OK) die(name);
}

/* ---- Jobs, in seconds ---- */

static double steps(sqlite3_stmt *statement) {
    const double start = now();
    while (sqlite3_step(statement) == SQLITE_ROW) {
    }
    const double seconds = now() - start;
    if (sqlite3_finalize(statement) != SQLITE_OK) die("a statement");
    return seconds;
}

static double build_index(const char *collation) {
    return steps(prepared("CREATE INDEX i ON t(s COLLATE %s)", collation));
}

/* Ranges between a row and what it becomes with another end. */
static double scan_ranges(const char *collation) {
    sqlite3_stmt *ranges = prepared("SELECT count(*) FROM (SELECT 1 FROM t WHERE s COLLATE %s "
                                    "BETWEEN (SELECT s FROM t WHERE rowid = ?1) AND "
                                    "(SELECT s || 'zz' FROM t WHERE rowid = ?1) LIMIT 100)",
                                    collation);
    const double start = now();
    for (int i = 0; i < scans; i++) {
        sqlite3_bind_int(ranges, 1, 1 + i * 37);
        if (sqlite3_step(ranges) != SQLITE_ROW) die("a range");
        sqlite3_reset(ranges);
    }
    const double seconds = now() - start;
    sqlite3_finalize(ranges);
    return seconds;
}

/* The sorter's own order of a table whose rows come in no order. */
static double sort_rows(const char *collation) {
    return steps(prepared("SELECT s FROM t ORDER BY +s COLLATE %s", collation));
}

static double insert_rows(const char *collation) {
    run("DROP TABLE IF EXISTS u");
    sqlite3_stmt *made =
        prepared("CREATE TABLE u(s TEXT COLLATE %s PRIMARY KEY) WITHOUT ROWID", collation);
    steps(made);
    return steps(prepared("INSERT OR IGNORE INTO u SELECT s FROM t", ""));
}

static void load_rows(void) {
    static char line[1 << 16];
    sqlite3_stmt *insert = prepared("INSERT INTO t VALUES(?1)", "");
    run("BEGIN");
    while (fgets(line, sizeof line, stdin)) {
        sqlite3_bind_text(insert, 1, line, (int)strcspn(line, "\n"), SQLITE_STATIC);
        if (sqlite3_step(insert) != SQLITE_DONE) die("a row");
        sqlite3_reset(insert);
    }
    run("COMMIT");
    sqlite3_finalize(insert);
}

int main(int argc, char **argv) {
    double least[4][collation_count];
    static const char *const jobs[] = {"index", "ranges", "sort", "insert"};
    if (argc != 3 || sqlite3_open(":memory:", &db) != SQLITE_OK) die("EXTENSION DATA_ROOT");
    sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 1, NULL);
    if (sqlite3_load_extension(db, argv[1], NULL, NULL) != SQLITE_OK) die(argv[1]);
    steps(prepared("SELECT kova_root(%Q)", argv[2]));
    add_icu("icu", SQLITE_UTF8, UCOL_DEFAULT_STRENGTH, compare_icu);
    add_icu("icu_utf16", SQLITE_UTF16_ALIGNED, UCOL_DEFAULT_STRENGTH, compare_icu_utf16);
    add_icu("icu_identical", SQLITE_UTF8, UCOL_IDENTICAL, compare_icu);
    run("PRAGMA temp_store = MEMORY; CREATE TABLE t(s TEXT)");
    load_rows();
    for (int round = 0; round < rounds; round++)
        for (int c = 0; c < collation_count; c++) {
            const char *spelled = collations[c].spelled;
            double took[4];
            took[0] = build_index(spelled);
            took[1] = scan_ranges(spelled);
            run("DROP INDEX i");
            took[2] = sort_rows(spelled);
            took[3] = insert_rows(spelled);
            for (int j = 0; j < 4; j++)
                if (!round || took[j] < least[j][c]) least[j][c] = took[j];
        }
    printf("%-18s %9s %9s %9s %9s\n", "seconds", jobs[0], jobs[1], jobs[2], jobs[3]);
    for (int c = 0; c < collation_count; c++)
        printf("%-18s %9.2f %9.2f %9.2f %9.2f\n", collations[c].name, least[0][c], least[1][c],
               least[2][c], least[3][c]);
    return 0;
}
