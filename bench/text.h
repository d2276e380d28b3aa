// Texts for the benchmarks: the same on every run and machine.
#ifndef BENCH_TEXT_H
#define BENCH_TEXT_H

#include <stdint.h>
#include <string>

enum class script { latin1, euc_jp, shift_jis };

// A code set under the names of our locale, the C library's and ICU's converter.
struct code_set {
    script text;
    const char *spec, *libc, *icu;
};
inline constexpr code_set latin1 = {script::latin1, "de_DE.8859-1", "de_DE.ISO-8859-1",
                                    "ISO-8859-1"};
inline constexpr code_set euc_jp = {script::euc_jp, "ja_JP.EUC-JP", "ja_JP.EUC-JP", "EUC-JP"};
inline constexpr code_set shift_jis = {script::shift_jis, "ja_JP.SHIFT_JIS", "ja_JP.SHIFT_JIS",
                                       "Shift_JIS"};

// Our own small generator, so that the texts do not depend on the C++ library.
struct text_random {
    uint32_t state;
    unsigned below(unsigned n) {
        state = state * 1664525u + 1013904223u;
        return (state >> 8) % n;
    }
};

// A Japanese character by its row and cell (1..94) in the encoding.
inline void put_jis(std::string &text, script s, unsigned row, unsigned cell) {
    unsigned hi = row + 0xA0, lo = cell + 0xA0;
    if (s == script::shift_jis) {
        hi = (row + 1) / 2 + (row < 63 ? 0x80 : 0xC0);
        lo = row % 2 ? cell + (cell < 64 ? 0x3F : 0x40) : cell + 0x9E;
    }
    text += static_cast<char>(hi);
    text += static_cast<char>(lo);
}

inline void put_latin_word(std::string &text, script s, text_random &random) {
    static constexpr char letters[] = "eeeeennnniiissrrattdhulcgmobwfkzpvyjxqENSAT0123";
    static constexpr char accented[] = "\xE4\xF6\xFC\xDF\xE9\xC4\xD6\xDC";
    for (unsigned n = 1 + random.below(9); n; --n) {
        const bool accent = s == script::latin1 && random.below(16) == 0;
        text += accent ? accented[random.below(8)] : letters[random.below(sizeof letters - 1)];
    }
    text += random.below(12) ? ' ' : '\n';
}

// A run of kana and kanji as in running text, sometimes ended by a mark.
inline void put_japanese(std::string &text, script s, text_random &random) {
    for (unsigned n = 4 + random.below(30); n; --n) {
        const unsigned kind = random.below(10);
        if (kind < 5) {
            put_jis(text, s, 4, 1 + random.below(83)); // hiragana
        } else if (kind < 6) {
            put_jis(text, s, 5, 1 + random.below(86)); // katakana
        } else {
            put_jis(text, s, 16 + random.below(31), 1 + random.below(94)); // kanji
        }
    }
    put_jis(text, s, 1, 2 + random.below(2));
}

// At most size bytes of text, in whole characters; one word in eight of Japanese text is Latin.
inline std::string bench_text(script s, size_t size, uint32_t seed = 1) {
    std::string text;
    for (text_random random{seed * 977 + 1};;) {
        std::string piece;
        if (s == script::latin1 || random.below(8) == 0) {
            put_latin_word(piece, s, random);
        } else {
            put_japanese(piece, s, random);
        }
        while (text.size() + piece.size() > size) { // cut to whole characters
            if (piece.empty()) return text;
            const bool two = s != script::latin1 && piece.size() > 1 && (piece[0] & 0x80);
            const size_t n = two ? 2 : 1;
            if (text.size() + n > size) return text;
            text.append(piece, 0, n);
            piece.erase(0, n);
        }
        text += piece;
    }
}

#endif
