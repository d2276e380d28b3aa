"""Order, keys and case of locales."""
import datetime
import doctest
import gc
import importlib.util
import os
import pathlib
import resource
import subprocess
import sys
import tempfile
import threading
import unittest

import kova
from kova import _codec, _kova, _locale

ROOT = os.environ["VANTORDIR"]
COMMON = pathlib.Path(__file__).parents[2] / "common"
sys.path.insert(0, str(COMMON))
from strings import strings  # noqa: E402

# Every width that Python keeps texts in, surrogates, null characters and all planes.
TEXTS = ["", "a", "Äpfel", "äPFEL", "漢字", "😀", "\U0010ffff", "a\0b", "a\0", "\0", "\ud800",
         "\udfff", "a\ud800b", "\ud800\udc00", "\udc80", "é", "e\u0301", "ﬁ", "x" * 9000,
         "ü" * 5000, "漢" * 4000, "😀" * 3000, "a" * 8191, "a" * 8192]


def in_folder(test):
    test.folder, test.before = tempfile.TemporaryDirectory(), os.getcwd()
    os.chdir(test.folder.name)


def out_of_folder(test):
    os.chdir(test.before)
    test.folder.cleanup()


def load_tests(loader, tests, pattern):
    for module in (kova, _codec, _locale):
        tests.addTests(doctest.DocTestSuite(module))
    home = COMMON.parents[1]
    for page in (home / "docs" / "python.md", home / "hosts" / "python" / "README.md"):
        if page.exists():
            tests.addTests(doctest.DocFileSuite(str(page), module_relative=False, setUp=in_folder,
                                                tearDown=out_of_folder))
    globs = {"Locale": kova.Locale}
    finder = doctest.DocTestFinder()
    for name in ("key", "compare", "upper", "lower"):
        for case in finder.find(getattr(_kova.Locale, name), name, globs=globs):
            assert case.examples, name
            tests.addTest(doctest.DocTestCase(case))
    return tests


class Order(unittest.TestCase):
    def test_keys_order_as_comparison_does(self):
        for name in ("de_DE", "ja_JP", "th_TH", "de_DE.ISO-8859-1", "ja_JP.EUC-JP", "POSIX"):
            loc = kova.Locale(name, root=ROOT)
            for a in TEXTS:
                for b in TEXTS:
                    ka, kb = loc.key(a), loc.key(b)
                    with self.subTest(locale=name, a=a[:9], b=b[:9]):
                        self.assertEqual(loc.compare(a, b), (ka > kb) - (ka < kb))

    def test_other_types_are_refused(self):
        loc = kova.Locale("de_DE")
        for call in (lambda: loc.key(b"a"), lambda: loc.compare("a", 1), lambda: loc.compare("a"),
                     lambda: loc.upper(None), lambda: loc.lower(3.0), lambda: loc.key()):
            self.assertRaises(TypeError, call)

    def test_class_derived_from_locale(self):
        class Named(kova.Locale):
            pass
        self.assertEqual(Named("de_DE").key("a"), kova.Locale("de_DE").key("a"))

    def test_sorting_gives_what_the_command_gives(self):
        command = os.path.join(os.environ.get("KOVA_BIN_DIR", ""), "kova")
        if not os.path.exists(command):
            self.skipTest("the command is not built")
        words = list(strings(3000, 7))
        for name in ("de_DE", "sv_SE", "ja_JP"):
            done = subprocess.run([command, "sort", "--root", ROOT, "-l", name],
                                  input="".join(w + "\n" for w in words).encode(),
                                  stdout=subprocess.PIPE, check=True)
            self.assertEqual(sorted(words, key=kova.Locale(name).key),
                             done.stdout.decode().split("\n")[:-1])


class Case(unittest.TestCase):
    def test_texts_of_all_widths(self):
        rows = [("de_DE", "Straße ÄÖ", "STRAßE ÄÖ", "straße äö"),
                ("tr_TR", "iI", "İI", "iı"), ("de_DE", "a\0Z", "A\0Z", "a\0z"),
                ("de_DE", "𐐨漢", "𐐀漢", "𐐨漢"), ("de_DE", "", "", ""),
                ("de_DE", "ä" * 9000, "Ä" * 9000, "ä" * 9000)]
        for name, text, upper, lower in rows:
            loc = kova.Locale(name)
            self.assertEqual(loc.upper(text), upper)
            self.assertEqual(loc.lower(text), lower)

    def test_a_surrogate_is_refused_with_its_place(self):
        with self.assertRaises(UnicodeEncodeError) as caught:
            kova.Locale("de_DE").upper("ab\ud800")
        self.assertEqual(caught.exception.start, 2)

    def test_a_character_that_the_code_set_lacks(self):
        with self.assertRaises(kova.Error) as caught:
            kova.Locale("de_DE.ISO-8859-1").upper("漢")
        self.assertEqual(caught.exception.number, 55)


class Opening(unittest.TestCase):
    def test_what_cannot_be_opened(self):
        rows = [("xx_XX", {}), ("../de_DE", {}), ("de_DE\0", {}), ("de_DE.nosuch", {}),
                ("de_DE", {"root": "/nowhere"}), ("de_DE", {"root": ROOT, "release": "1999.1"}),
                ("de_DE", {"root": ROOT, "release": "../" + os.path.basename(ROOT)}),
                ("de_DE", {"root": "/nowhere", "release": ROOT}),
                ("é" * 9, {}), ("de_DE/x", {"root": ROOT})]
        for name, options in rows:
            with self.subTest(name=name, options=options):
                with self.assertRaises(kova.Error) as caught:
                    kova.Locale(name, **options)
                self.assertIsInstance(caught.exception, LookupError)
                self.assertEqual(caught.exception.number, 54)
        self.assertRaises(kova.Error, kova.Locale, "x" * 400)
        self.assertRaises(TypeError, kova.Locale, 5)
        self.assertRaises(TypeError, kova.Locale)

    def test_names(self):
        for name in ("de_DE", "de_DE.UTF-8", "de_DE.utf8", "de_DE.unicode"):
            self.assertEqual(kova.Locale(name, root=ROOT).spec, "de_DE.unicode")
        self.assertEqual(kova.Locale("tr_TR").spec, "tr_TR.ISO-8859-9")

    def test_every_listed_locale_opens(self):
        names = kova.locales(ROOT)
        self.assertIn("de_DE.ISO-8859-1", names)
        opened = [kova.Locale(name, root=ROOT).version for name in names if ".unicode" in name]
        self.assertTrue(all(opened))

    def test_a_damaged_file_is_told(self):
        with tempfile.TemporaryDirectory() as root:
            os.makedirs(f"{root}/kova/lc11/de_de")
            for part in ("kova/cm3", "kova/cv9"):
                os.symlink(f"{ROOT}/{part}", f"{root}/{part}")
            whole = pathlib.Path(f"{ROOT}/kova/lc11/de_de/e005.lco").read_bytes()
            place = pathlib.Path(f"{root}/kova/lc11/de_de/e005.lco")
            place.write_bytes(whole[: len(whole) // 2])
            self.assertRaises(kova.Error, kova.Locale, "de_DE", root=root)
            place.write_bytes(whole.replace(b"\n### LC_TIME", b"\n### LC_TIMF"))
            self.assertRaises(kova.Error, kova.Locale, "de_DE", root=root, verify=True)
            place.write_bytes(whole)
            self.assertEqual(kova.Locale("de_DE", root=root, verify=True).key("a"),
                             kova.Locale("de_DE", root=ROOT).key("a"))
            self.assertRaises(kova.NotFoundError, kova.Locale, "de_DE", root=root, release="9")
            os.makedirs(f"{root}/9")
            os.symlink(f"{ROOT}/kova", f"{root}/9/kova")
            self.assertEqual(kova.Locale("de_DE", root=root, release="9").root, f"{root}/9")


class Threads(unittest.TestCase):
    def test_opening_using_and_closing_at_once(self):
        words = list(strings(200, 3)) + ["ä" * 9000]
        want = sorted(words, key=kova.Locale("de_DE", root=ROOT).key)
        wrong = []

        def work():
            for i in range(12):
                loc = kova.Locale(("de_DE", "sv_SE", "de_DE.ISO-8859-1")[i % 3], root=ROOT)
                if i % 3 == 0 and sorted(words, key=loc.key) != want:
                    wrong.append(i)
                loc.upper("a" * 20000)

        threads = [threading.Thread(target=work) for _ in range(6)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(wrong, [])

    @unittest.skipIf(os.environ.get("KOVA_PYTHON_CALLS") == "0",
                     "the sanitizer's allocator keeps the locks of threads that the child lacks")
    def test_a_child_process_can_load(self):
        stop = threading.Event()

        def load():
            while not stop.is_set():
                kova.Locale("de_DE", root=ROOT)

        thread = threading.Thread(target=load)
        thread.start()
        try:
            for _ in range(20):
                child = os.fork()
                if child == 0:
                    kova.Locale("sv_SE", root=ROOT)
                    os._exit(0)
                self.assertEqual(os.waitpid(child, 0)[1], 0)
        finally:
            stop.set()
            thread.join()


DAY = datetime.date(2026, 11, 22)


class Memory(unittest.TestCase):
    CALLS = int(os.environ.get("KOVA_PYTHON_CALLS", "20000"))

    @unittest.skipIf(not CALLS, "memory that is freed stays with the sanitizer")
    def test_nothing_is_kept(self):
        loc = kova.Locale("de_DE", root=ROOT)
        long = "ä" * 5000

        def refused():
            try:
                loc.upper("\ud800")
            except UnicodeEncodeError:
                pass
            try:
                kova.Locale("xx_XX", root=ROOT)
            except kova.Error:
                pass

        calls = [(1, lambda: loc.key("Äpfel")), (1, lambda: loc.compare("漢", "a")),
                 (1, lambda: loc.upper("straße")), (1, lambda: loc.key("\ud800")),
                 (50, lambda: loc.key(long)), (50, refused),
                 (1, lambda: "漢ü".encode("kova-utf16le").decode("kova-utf16le")),
                 (1, lambda: kova.convert(b"abc", "latin1", "ibm037")),
                 (10, lambda: b"a\xff".decode("kova-utf8", "replace")),
                 (10, lambda: loc.number(10 ** 20)), (10, lambda: loc.money(1.5)),
                 (10, lambda: loc.parse_date(loc.date(DAY))), (500, lambda: loc.calendar(DAY)),
                 (200, lambda: kova.Locale("de_DE", root=ROOT))]
        for share, call in calls:
            self.assertLess(self.growth(call, max(self.CALLS // share, 50)), 600)

    @unittest.skipUnless(importlib.util.find_spec("_testcapi"), "there is no _testcapi")
    def test_memory_that_runs_short(self):
        import _testcapi
        loc = kova.Locale("de_DE", root=ROOT)
        loc.info
        calls = [
            lambda: loc.key("Äpfel"), lambda: loc.key("\ud800"), lambda: loc.key("ä" * 5000),
            lambda: loc.compare("a\ud800", "b"), lambda: loc.upper("straße" * 900),
            lambda: loc.number(1.5, "%f"), lambda: loc.number(10 ** 20), lambda: loc.money(1.5),
            lambda: loc.date(DAY), lambda: loc.parse_date("22.11.2026"), lambda: loc._conventions(),
            lambda: kova.Locale("sv_SE", root=ROOT).spec, lambda: kova.Locale("xx_XX", root=ROOT),
            lambda: kova.locales(ROOT), lambda: kova.convert(b"abc", "latin1", "ibm037"),
            lambda: kova.convert(b"abc", "nosuch", "utf8"), lambda: _codec.decode(b"a\xff", "utf8"),
            lambda: _codec.decode(b"a\xff", "utf8", "replace"),
            lambda: "漢x".encode("kova-utf16le"),
        ]
        for call in calls:
            want = self.outcome(call)
            for n in range(120):
                _testcapi.set_nomemory(n, n + 1)
                try:
                    got = self.outcome(call)
                finally:
                    _testcapi.remove_mem_hooks()
                # SystemError is the interpreter's own, where a frame cannot be made.
                self.assertIn(got, (want, MemoryError, SystemError))

    def outcome(self, call):
        try:
            return call()
        except Exception as error:
            return type(error)

    def growth(self, call, count):
        """Kilobytes by which count calls enlarge the process, after as many to warm up."""
        def size():
            gc.collect()
            return int(pathlib.Path("/proc/self/statm").read_text().split()[1]) * \
                resource.getpagesize() // 1024
        for _ in range(count // 2):
            call()
        before = size()
        for _ in range(count):
            call()
        return size() - before


if __name__ == "__main__":
    unittest.main()
