#!/usr/bin/env python3
"""Prints distinct strings of twelve scripts, one a line in UTF-8, the same on every machine:
    strings.py [COUNT [SEED]]        100,000 strings and seed 1 unless stated
The tests of all hosts sort these strings. Many have a beginning in common, differ only in case, an
accent or punctuation, or mix scripts, so that every level of an order has something to decide."""
import random
import sys

# Letters of the script, marks that may follow one of them, and how many of a hundred words get one.
SCRIPTS = [
    ("abcdefghijklmnopqrstuvwxyzäöüßéèêñçåøłšž", "\u0301\u0308\u030c", 3),  # Latin
    ("αβγδεζηθικλμνξοπρστυφχψωάέήίόύώς", "\u0301", 2),  # Greek
    ("абвгдежзийклмнопрстуфхцчшщъыьэюяёіїґ", "\u0301", 3),  # Cyrillic
    ("աբգդեզէըթժիլխծկհձղճմյնշոչպջռսվտրցւփքօֆ", "", 0),  # Armenian
    ("აბგდევზთიკლმნოპჟრსტუფქღყშჩცძწჭხჯჰ", "", 0),  # Georgian
    ("אבגדהוזחטיכלמנסעפצקרשתםןףץ", "\u05b0\u05b7\u05b8\u05bc", 10),  # Hebrew
    ("ابتثجحخدذرزسشصضطظعغفقكلمنهويءآأؤإئة", "\u064e\u064f\u0650\u0651", 10),  # Arabic
    ("कखगघचछजझटठडढणतथदधनपफबभमयरलवशषसह", "\u093e\u093f\u0940\u0941\u0947\u094b\u094d\u0902", 60),
    ("กขคงจฉชซญดตถทธนบปผฝพฟมยรลวสหอฮ", "\u0e31\u0e34\u0e35\u0e38\u0e48\u0e49", 50),  # Thai
    ("가각간갈감강개거건걸고관구국기나남내너노다대도동라로리마만말명무문미바방보부비사산상서성소수시신아안어언여영오원유은의이인일임자장전정제조주중지차천추카타태파하한해호화",
     "", 0),  # Hangul
    ("あいうえおかきくけこさしすせそたちつてとなにぬねのはひふへほまみむめもやゆよらりるれろわをん"
     "アイウエオカキクケコサシスセソタチツテトナニヌネノハヒフヘホマミムメモヤユヨラリルレロワヲン"
     "ー", "\u3099", 1),  # kana
    ("一丁七万三上下不世中主乗九事二五交京人今介代以会作使来例信元先光入全八公六共内円写冬出分切前力加動北十千午半南原口古台右号合同名向君味命和品員商問四回国園土地場声夏夕外多夜大天"
     "𠀋𠮟𡈽", "", 0),  # Han, some of it beyond the basic plane
]
# Characters of no script, and of scripts beyond the basic plane.
OTHERS = ["😀", "𐐀", "𐐨", "∞", "²", "½", "ﬁ", "Ａ", "ꙮ", "☃", "\u200d", "\u00ad", "\ue000"]
BETWEEN = [" ", " ", " ", "-", "'", ".", ", ", "_", "  ", "\u00a0", "\u3000"]


class Generator:
    def __init__(self, seed):
        # Of Python's generators, random() alone promises the same numbers in all versions.
        self.random = random.Random(seed).random
        self.words = []

    def below(self, n):
        return int(self.random() * n)

    def one_of(self, some):
        return some[self.below(len(some))]

    def fresh_word(self):
        letters, marks, share = self.one_of(SCRIPTS)
        word = ""
        for _ in range(1 + self.below(5) + self.below(5)):
            word += self.one_of(letters)
            if marks and self.below(100) < share:
                word += self.one_of(marks)
        return word

    def word(self):
        """A fresh word or an earlier one, sometimes with another case, end or letter."""
        chance = self.below(100)
        if chance < 40 or not self.words:
            word = self.fresh_word()
            if len(self.words) < 5000:
                self.words.append(word)
            else:
                self.words[self.below(5000)] = word
            return word
        word = self.one_of(self.words)
        if chance < 55:
            return word
        if chance < 70:
            return word[0].upper() + word[1:]
        if chance < 75:
            return word.upper()
        if chance < 80:
            return word + str(self.below(1000))
        if chance < 85:
            return word + self.one_of(OTHERS)
        return word[: 1 + self.below(len(word))] + self.fresh_word()

    def string(self):
        text = self.word()
        for _ in range(self.below(4)):
            text += self.one_of(BETWEEN) + self.word()
        return text


def strings(count, seed=1):
    """Yields count distinct strings."""
    generator, seen = Generator(seed), set()
    while len(seen) < count:
        text = generator.string()
        if text not in seen:
            seen.add(text)
            yield text


if __name__ == "__main__":
    out = sys.stdout.buffer
    for text in strings(*(int(a) for a in sys.argv[1:] or ["100000"])):
        out.write(text.encode() + b"\n")
