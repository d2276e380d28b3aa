"""Conversions, and codecs in all of Python's uses of them."""
import array
import codecs
import io
import itertools
import os
import random
import tempfile
import threading
import unittest
import warnings

import kova
from kova import _kova

JAPANESE = "ABC漢字かなカナ、x\n日本"
# Code sets, with Python's own codec of the same characters, and a text of them.
SETS = [("ibm939", None, JAPANESE), ("ibm930", None, "漢字カナ1"), ("ibm933", None, "한국어 KOR"),
        ("ibm037", "cp037", "Grüße {}"), ("latin1", "latin-1", "Grüße ÿ\x85"),
        ("shift_jis", None, "ABC漢字カナ"), ("euc-jp", "euc_jp", JAPANESE),
        ("iso-2022-jp", "iso2022_jp", "ABC漢字\nカナ、x\n日本"), ("iso2022kr", None, "ABC\n한국어"),
        ("utf7", "utf-7", "aä😀-+b"), ("utf8", "utf-8", "aä漢😀\0\U0010ffff"),
        ("utf16le", "utf-16-le", "\ufeffaä漢😀"), ("utf16be", "utf-16-be", "aä漢😀"),
        ("utf16", None, "\ufeffaä漢😀"), ("utf32le", "utf-32-le", "aä漢😀"),
        ("koi8-r", "koi8_r", "Привет"), ("windows-1252", "cp1252", "„€“")]
SETS = [(name, own, text) for name, own, text in SETS if _kova.code_set_number(None, name) >= 0]


def usable(name):
    try:
        codecs.lookup("kova-" + name).encode("1")
        return True
    except kova.Error:
        return False


SETS = [row for row in SETS if usable(row[0])]


class Texts(unittest.TestCase):
    def test_there_are_sets_of_every_kind(self):
        self.assertGreater(len(SETS), 11)

    def test_a_text_comes_back_and_is_as_python_writes_it(self):
        for name, own, text in SETS:
            with self.subTest(name=name):
                data = text.encode("kova-" + name)
                self.assertEqual(data.decode("kova-" + name), text)
                if own:
                    self.assertEqual(data.decode(own), text)
                    self.assertEqual(text.encode(own).decode("kova-" + name), text)

    def test_decoding_in_pieces_of_any_size(self):
        for name, _, text in SETS:
            data = text.encode("kova-" + name) * (1 if name in ("utf16", "iso2022kr") else 3)
            want = data.decode("kova-" + name)
            for cut in range(len(data) + 1):
                decoder = codecs.getincrementaldecoder("kova-" + name)()
                got = decoder.decode(data[:cut])
                other = codecs.getincrementaldecoder("kova-" + name)()
                other.setstate(decoder.getstate())
                self.assertEqual(got + other.decode(data[cut:], True), want, (name, cut))
            decoder = codecs.getincrementaldecoder("kova-" + name)()
            got = "".join(decoder.decode(data[i:i + 1]) for i in range(len(data)))
            self.assertEqual(got + decoder.decode(b"", True), want, name)

    def test_damaged_texts_in_pieces_are_read_as_a_whole(self):
        rows = [("utf7", b"+AGF-b", "a\ufffdb"), ("utf7", b"+2AA-b", "\ufffdb"),
                ("utf7", b"+AGF", "a\ufffd"), ("utf7", b"+AGF b", "a\ufffdb"), ("utf7", b"+", "\ufffd"),
                ("ibm939", b"\x0e\x45\x2d\x66\x0f\x89", "\ufffd\ufffdi"), ("utf8", b"a\xe2\x82", "a\ufffd")]
        for name, data, want in rows:
            for cut in range(len(data) + 1):
                decoder = codecs.getincrementaldecoder("kova-" + name)("replace")
                parts = [decoder.decode(data[:cut]), decoder.decode(data[cut:], True)]
                self.assertEqual("".join(parts), want, (name, data, cut))
            decoder.reset()
            one = [decoder.decode(data[i:i + 1]) for i in range(len(data))]
            self.assertEqual("".join(one) + decoder.decode(b"", True), want, (name, data))

    def test_a_header_is_written_once(self):
        encoder = codecs.getincrementalencoder("kova-iso2022kr")("replace")
        parts = [encoder.encode(text).hex() for text in ("a", "한", "", "\U0010ffff", "b글")]
        self.assertEqual(parts, ["1b24294361", "0e47510f", "", "3f", "620e315b0f"])

    def test_encoding_in_pieces_comes_back(self):
        for name, _, text in SETS:
            for cut in range(len(text) + 1):
                encoder = codecs.getincrementalencoder("kova-" + name)()
                data = encoder.encode(text[:cut])
                state = encoder.getstate()
                encoder = codecs.getincrementalencoder("kova-" + name)()
                encoder.setstate(state)
                data += encoder.encode(text[cut:], True)
                self.assertEqual(data.decode("kova-" + name), text, (name, cut))

    def test_files(self):
        with tempfile.TemporaryDirectory() as folder:
            for name, _, text in SETS:
                path, text = os.path.join(folder, "x"), text.replace("\0", "")
                with open(path, "w", encoding="kova-" + name, newline="") as f:
                    for c in text:
                        f.write(c)
                with open(path, "a", encoding="kova-" + name, newline="") as f:
                    f.write("1")
                with open(path, encoding="kova-" + name, newline="") as f:
                    self.assertEqual(f.read(2), (text + "1")[:2])
                    place = f.tell()
                    rest = f.read()
                    f.seek(place)
                    self.assertEqual(f.read(), rest, name)
                    self.assertEqual(rest, (text + "1")[2:])
                with codecs.open(path, "w", "kova-" + name) as f:
                    f.write(text[:3])
                    f.write(text[3:])
                with codecs.open(path, "r", "kova-" + name) as f:
                    self.assertEqual("".join(iter(lambda: f.read(1), "")), text, name)

    def test_long_texts(self):
        for name, _, text in SETS:
            text = text.replace("\ufeff", "") * 40000
            self.assertEqual(text.encode("kova-" + name).decode("kova-" + name), text, name)


class Errors(unittest.TestCase):
    HANDLERS = ("ignore", "replace", "xmlcharrefreplace", "backslashreplace", "namereplace",
                "surrogateescape")

    def test_bad_bytes_are_found_and_handled_where_python_finds_them(self):
        rnd = random.Random(2)
        for name, own in (("utf8", "utf-8"), ("utf16le", "utf-16-le"), ("utf32le", "utf-32-le"),
                          ("ibm037", "cp037"), ("koi8-r", "koi8_r")):
            if name not in [row[0] for row in SETS]:
                continue
            for _ in range(1500):
                data = bytes(rnd.choice(b"aZ\x80\xbf\xc3\xe2\xed\xa0\xf0\x9f\xf4\xff\xd8\x00\xdc")
                             for _ in range(rnd.randrange(12)))
                self.assertEqual(self.outcome(data.decode, "kova-" + name),
                                 self.outcome(data.decode, own), (name, data))
                for errors in ("ignore", "replace", "backslashreplace", "surrogateescape"):
                    self.assertEqual(self.outcome(data.decode, "kova-" + name, errors),
                                     self.outcome(data.decode, own, errors), (name, data, errors))

    def outcome(self, call, *arguments):
        try:
            return call(*arguments)
        except UnicodeError as error:
            return error.start, error.end

    def test_characters_that_a_set_lacks(self):
        text = "aé漢\ud800字\udc80z😀"
        for name, own in (("latin1", "latin-1"), ("ibm037", "cp037"), ("koi8-r", "koi8_r")):
            if name not in [row[0] for row in SETS]:
                continue
            with self.assertRaises(UnicodeEncodeError) as caught:
                text.encode("kova-" + name)
            self.assertEqual((caught.exception.object, caught.exception.encoding),
                             (text, "kova-" + name.replace("-", "_")))
            for errors in self.HANDLERS[:5]:
                self.assertEqual(text.encode("kova-" + name, errors), text.encode(own, errors))
            for errors in ("strict", "surrogateescape"):
                for some in ("ab漢c", "a\udc80", "😀", "a\ud800", "abc"):
                    got, want = (self.outcome(some.encode, e, errors) for e in
                                 ("kova-" + name, own))
                    self.assertEqual(got, want, (name, errors, some))

    def test_many_errors_take_no_longer_each(self):
        text = "a漢é" * 30000
        self.assertEqual(text.encode("kova-latin1", "replace"), text.encode("latin-1", "replace"))
        data = b"a\xff" * 30000
        self.assertEqual(data.decode("kova-utf8", "replace"), data.decode("utf-8", "replace"))

    def test_replacements_in_stateful_sets(self):
        for errors, want in (("ignore", "漢字x"), ("replace", "漢?字??x?"),
                             ("backslashreplace", "漢\\ud800字\\ud801\\U00010000x\\ud802")):
            data = "漢\ud800字\ud801\U00010000x\ud802".encode("kova-ibm939", errors)
            self.assertEqual(data.decode("kova-ibm939"), want)
        self.assertEqual("漢\ud800".encode("kova-ibm939", "ignore"), "漢".encode("kova-ibm939"))

    def test_places_in_stateful_sets(self):
        rows = [(b"\xc1\x0e\x45\x41\x00\x00\x0f", 4, 6), (b"\xc1\x0e\x45", 2, 3),
                (b"\x0e\x45\x41\x0e\x45\x41\x0f", 3, 5)]
        for data, start, end in rows:
            with self.assertRaises(UnicodeDecodeError) as caught:
                data.decode("kova-ibm939")
            error = caught.exception
            self.assertEqual((error.start, error.object, error.encoding),
                             (start, data, "kova-ibm939"))
            self.assertGreater(error.end, start)
            self.assertLessEqual(error.end, end)

    def test_surrogateescape_brings_bad_bytes_back(self):
        for name in ("shift_jis", "euc-jp", "utf8"):
            data = b"a\xff\xfeb\x80"
            text = data.decode("kova-" + name, "surrogateescape")
            self.assertEqual(text.encode("kova-" + name, "surrogateescape"), data)

    def test_any_bytes_are_safe(self):
        rnd = random.Random(4)
        for name, _, _ in SETS:
            for _ in range(300):
                data = rnd.randbytes(rnd.randrange(40))
                data.decode("kova-" + name, "replace")
                decoder = codecs.getincrementaldecoder("kova-" + name)("replace")
                decoder.decode(data)
                decoder.setstate((data[:3], rnd.getrandbits(rnd.choice((8, 40, 128)))))
                try:
                    decoder.decode(data, True)
                except OverflowError:
                    pass

    def test_handlers_that_misbehave(self):
        for result in (("x", 99), (5, 1), ("x", -99), "x"):
            codecs.register_error("kova-test", lambda error, result=result: result)
            for call in (lambda: b"\xff".decode("kova-utf8", "kova-test"),
                         lambda: "漢".encode("kova-latin1", "kova-test")):
                self.assertRaises((TypeError, IndexError, ValueError), call)
        self.assertRaises(LookupError, "漢".encode, "kova-latin1", "no such handler")

    def test_names(self):
        for name in ("kova-nosuch", "kova-", "kova", "kova-../x", "kovaibm939", "kova-\u00e9"):
            self.assertRaises(LookupError, codecs.lookup, name)
        for name in ("KOVA-IBM939", "kova_ibm_939", "kova-cp939", "Kova IBM939"):
            self.assertEqual("漢".encode(name), "漢".encode("kova-ibm939"))


class Conversion(unittest.TestCase):
    def test_convert(self):
        self.assertEqual(kova.convert("漢".encode("euc_jp"), "euc-jp", "utf16le").hex(), "226f")
        self.assertEqual(kova.convert(bytearray(b"a"), "latin1", "cp037"), b"\x81")
        self.assertEqual(kova.convert(b"", "ibm939", "utf8"), b"")
        self.assertEqual(kova.convert("a漢".encode(), "utf8", "latin1", "replace"), b"a?")
        with self.assertRaises(UnicodeDecodeError) as caught:
            kova.convert(b"ab\xff", "utf8", "latin1")
        self.assertEqual(caught.exception.start, 2)
        self.assertRaises(UnicodeEncodeError, kova.convert, "漢".encode(), "utf8", "latin1")
        self.assertRaises(kova.NotFoundError, kova.convert, b"", "nosuch", "utf8")
        self.assertRaises(kova.NotFoundError, kova.convert, b"", "utf8", "latin1", root="/nowhere")
        for data in ("text", 5, [65], None):
            self.assertRaises(TypeError, kova.convert, data, "utf8", "latin1")
            self.assertRaises(TypeError, codecs.decode, data, "kova-latin1")
        self.assertRaises(TypeError, codecs.encode, b"bytes", "kova-latin1")
        self.assertEqual(kova.convert(array.array("H", [65]), "utf16le", "utf8"), b"A")

    def test_marks_with_and_without_errors(self):
        rows = [(b"\xef\xbb\xbfa\xffb", "utf8", "latin1", b"a?b"),
                (b"\xef\xbb\xbfa\xffb", "utf8", "utf16", b"\0a\xff\xfd\0b"),
                (b"\xff\xfea\0\x22\x6f", "utf16", "latin1", b"a?"),
                (b"\xfe\xff\0a\xdc\0", "utf16", "utf8", "a\ufffd".encode())]
        for data, source, target, want in rows:
            self.assertEqual(kova.convert(data, source, target, "replace"), want)
        with self.assertRaises(UnicodeEncodeError) as caught:
            kova.convert("\ufeffa漢".encode(), "utf8", "latin1")
        self.assertEqual(caught.exception.object[caught.exception.start], "漢")

    def test_converters_of_many_names_are_not_kept(self):
        from kova import _codec
        for some in itertools.product(("", "-", " "), repeat=4):
            self.assertEqual(kova.convert(b"a", "latin1", "ibm{}0{}3{}7{}".format(*some)), b"\x81")
        self.assertLess(len(_codec._idle), 70)

    def test_substitution_is_told(self):
        for data in ("\uff01", "\uff01漢"):
            with self.assertWarns(kova.SubstitutionWarning) as caught:
                self.assertEqual(data.encode("kova-ibm037", "ignore"), b"\x5a")
            self.assertEqual(caught.filename, __file__)
            with self.assertWarns(kova.SubstitutionWarning) as caught:
                self.assertEqual(kova.convert(data.encode(), "utf8", "ibm037", "ignore"), b"\x5a")
            self.assertEqual(caught.filename, __file__)
        with warnings.catch_warnings():
            warnings.simplefilter("error")
            self.assertEqual("!".encode("kova-ibm037"), b"\x5a")

    def test_threads(self):
        texts = {name: (text * 3000, (text * 3000).encode("kova-" + name))
                 for name, _, text in SETS if "16" not in name}
        wrong = []

        def work():
            for name, (text, data) in texts.items():
                bad = False
                try:
                    (data + b"\xff").decode("kova-" + name)
                    bad = name == "utf8"
                except UnicodeDecodeError:
                    pass
                if bad or data.decode("kova-" + name) != text:
                    wrong.append(name)

        threads = [threading.Thread(target=work) for _ in range(6)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(wrong, [])

    def test_stream_wrapper_keeps_the_mark_at_the_start(self):
        raw = io.BytesIO()
        with io.TextIOWrapper(raw, encoding="kova-utf16") as f:
            f.write("a")
            f.write("b")
            f.flush()
            self.assertEqual(raw.getvalue(), b"\xfe\xff\0a\0b")


if __name__ == "__main__":
    unittest.main()
