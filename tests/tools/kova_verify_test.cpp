// kova verify: damaged objects, and lines out of order.
#include "tools/command_run.h"

namespace fs = std::filesystem;

struct KovaVerify : data_test {
    void flip(const char *name, size_t before_end) {
        std::string bytes = slurp(dir / "r" / name);
        bytes[bytes.size() - before_end] ^= 1;
        spit(dir / "r" / name, bytes);
    }
};

TEST_F(KovaVerify, NamesDamagedObjects) {
    static const char table[] = "kova/cv9/0333e01c.cvo";
    ASSERT_EQ(shell("kovac locale -i POSIX -f ANSI_X3.4-1968 --default -o r && "
                    "kovac convert -f ISO-8859-1 -t utf8 -o r && rm r/kova/cv9/*_*")
                  .err,
              "");
    spit(dir / "r/kova/lc11/readme", "no object");
    const command_row sound[] = {
        {"r",          "sound objects: 2\n"},
        {"--root r",   "sound objects: 2\n"},
        {"r/kova/cv9", "sound objects: 1\n"},
    };
    check(sound, "kova verify ");
    flip(table, 2);
    spit(dir / "r/kova/lc11/aa_aa.lco", slurp(dir / "r" / table));
    spit(dir / "r/kova/lc11/bb_bb.lco", "FILE_TYPE=locale_object\n");
    spit(dir / "r/kova/lc11/cc_cc.lco",
         "FILE_TYPE=locale_object\nCOMPILER_VERSION=11\nHEADER_LINES=3\n");
    fs::create_directory(dir / "empty");
    const command_row rows[] = {
        {"r",       "damaged objects: 4 of 5",  1, "",
         "r/kova/cv9/0333e01c.cvo has another content than its header says\n"
         "r/kova/lc11/aa_aa.lco is not the kind of object that its name says\n"
         "r/kova/lc11/bb_bb.lco has no complete header\n"
         "r/kova/lc11/cc_cc.lco states no hash of its content\n"},
        {"empty",   "empty holds no objects",   3, "", ""       },
        {"nowhere", "cannot read nowhere: No ", 4, "", ""       },
    };
    check(rows, "kova verify ");
}

TEST_F(KovaVerify, NamesTheFirstLineOutOfOrder) {
    static const command_row rows[] = {
        {"de_DE.8859-1 -",    "",                                         0, "Apfel\nÄpfel\nÄpfel\nOma"},
        {"de_DE.8859-1 -",    "",                                         0, ""                          },
        {"de_DE.unicode -",   "",                                         0, "\n\n漢\n😀\n"           },
        {"de_DE.8859-1 -",    "-:5: comes before the line above it: A",   1, "Äpfel\nÖl\nOma\nZ\nA\n"  },
        {"ja_JP.SHIFT_JIS -", "-:2: comes before the line above it: か", 1, "き\nか"                  },
        {"de_DE.8859-1 -",    ":2: byte offset 2",                        1, "A\n漢\n"                  },
        {"xx_XX.8859-1 -",    "no locale",                                3, "A\n"                       },
        {"de_DE.8859-1 none", "none",                                     4, ""                          },
    };
    check(rows, "kova verify ");
}
