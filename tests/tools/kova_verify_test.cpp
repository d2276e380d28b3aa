// kova verify: damaged objects, and lines out of order.
#include "tools/command_run.h"

namespace fs = std::filesystem;
using namespace std::string_literals;

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
    command = "kova verify ";
    writes("r", "sound objects: 2\n");
    writes("--root r", "sound objects: 2\n");
    writes("r/kova/cv9", "sound objects: 1\n");
    flip(table, 2);
    spit(dir / "r/kova/lc11/aa_aa.lco", slurp(dir / "r" / table));
    spit(dir / "r/kova/lc11/bb_bb.lco", "FILE_TYPE=locale_object\n");
    spit(dir / "r/kova/lc11/cc_cc.lco",
         "FILE_TYPE=locale_object\nCOMPILER_VERSION=11\nHEADER_LINES=3\n");
    fs::create_directory(dir / "empty");
    fails(1, "r", "damaged objects: 4 of 5", "",
          "r/kova/cv9/0333e01c.cvo has another content than its header says\n"
          "r/kova/lc11/aa_aa.lco is not the kind of object that its name says\n"
          "r/kova/lc11/bb_bb.lco has no complete header\n"
          "r/kova/lc11/cc_cc.lco states no hash of its content\n");
    fails(3, "empty", "empty holds no objects");
    fails(4, "nowhere", "cannot read nowhere: No ");
}

TEST_F(KovaVerify, NamesTheFirstLineOutOfOrder) {
    command = "kova verify ";
    writes("de_DE.8859-1 -", "", "Apfel\nÄpfel\nÄpfel\nOma");
    writes("de_DE.8859-1 -", "");
    writes("de_DE.unicode -", "", "\n\n漢\n😀\n");
    fails(1, "de_DE.8859-1 -", "standard input:5: comes before the line above it: A",
          "Äpfel\nÖl\nOma\nZ\nA\n");
    fails(1, "ja_JP.SHIFT_JIS -", "standard input:2: comes before the line above it: か", "き\nか");
    fails(1, "de_DE -", ":4: comes before", "a\na\0b\na\0c\na\n"s);
    fails(1, "de_DE.8859-1 -", ":2: byte offset 2", "A\n漢\n");
    fails(3, "xx_XX.8859-1 -", "no locale", "A\n");
    fails(4, "de_DE.8859-1 none", "none");
}
