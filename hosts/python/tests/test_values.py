"""Numbers, amounts, dates and months, beside the command and Python's own."""
import datetime
import decimal
import os
import random
import subprocess
import unittest

import kova

D = decimal.Decimal
ROOT = os.environ["VANTORDIR"]
COMMAND = os.path.join(os.environ.get("KOVA_BIN_DIR", ""), "kova")


def command(*arguments):
    if not os.path.exists(COMMAND):
        raise unittest.SkipTest("the command is not built")
    return subprocess.run([COMMAND, arguments[0], "--root", ROOT, *arguments[1:]], check=True,
                          stdout=subprocess.PIPE).stdout.decode()


class Numbers(unittest.TestCase):
    def test_rows(self):
        rows = [
            ("de_DE", 1234567, None, "1.234.567"), ("de_DE", -7, None, "-7"),
            ("de_DE", D("1234.50"), None, "1.234,50"), ("de_DE", 0.1, None, "0,1"),
            ("de_DE", 1e22, None, "10.000.000.000.000.000.000.000"), ("de_DE", -0.0, None, "0,0"),
            ("de_DE", float("inf"), None, "inf"), ("de_DE", True, None, "1"),
            ("de_DE", 10 ** 40 + 7, "%'d", "10." + "000." * 12 + "007"),
            ("de_DE", 2 ** 64, "<%+'d%%>", "<+18.446.744.073.709.551.616%>"),
            ("de_DE", D("2.675"), "%.2f", "2,68"), ("de_DE", D("-0.001"), "%.2f", "-0,00"),
            ("de_DE", 5, "%05d", "00005"), ("de_DE", 5, "%-5d|", "5    |"),
            ("de_DE", 10 ** 10, "%015d", "000010000000000"), ("de_DE", D("7.0"), "%d", "7"),
            ("de_DE", 255, "%#x", "0xff"), ("de_DE", 4294967295, "%u", "4294967295"),
            ("de_DE", 12345678901234567, "%'.2f", "12.345.678.901.234.567,00"),
            ("de_DE", 1.5, "%e", "1,500000e+00"), ("fr_CA", 1234567, None, "1\u202f234\u202f567"),
            ("en_US.IBM037", 1234567, "%'d items", "1,234,567 items"),
        ]
        for name, value, format, want in rows:
            with self.subTest(value=value, format=format):
                self.assertEqual(kova.Locale(name).number(value, format), want)

    def test_decimals_are_exact(self):
        loc, rnd = kova.Locale("en_US"), random.Random(5)
        for _ in range(2000):
            places = rnd.randrange(0, 12)
            value = D(rnd.randrange(-10 ** rnd.randrange(1, 40), 10 ** 30)).scaleb(-places)
            self.assertEqual(loc.number(value), f"{value:,f}")
            self.assertEqual(loc.number(value, "%'.3f"), f"{value:,.3f}")

    def test_what_is_refused(self):
        loc = kova.Locale("de_DE")
        rows = [(ValueError, 1, "%d %d"), (ValueError, 1, "%s"), (ValueError, 1, "%*d"),
                (ValueError, 1, "%"), (ValueError, 1, "x"), (ValueError, 1, "%hd"),
                (ValueError, 1.5, "%f\0"), (OverflowError, 2 ** 32, "%u"), (OverflowError, -1, "%u"),
                (OverflowError, 10 ** 400, None), (OverflowError, D("1e-5000"), None),
                (OverflowError, 2 ** 31, "%x"), (ValueError, D("1.5"), "%d"), (TypeError, 1.5, "%d"),
                (TypeError, "5", None), (TypeError, None, "%f"), (TypeError, 1, 5),
                (kova.Error, 1, "%9999999d"), (UnicodeEncodeError, 1.5, "\ud800%f")]
        for error, value, format in rows:
            with self.subTest(value=str(value)[:20], format=format):
                self.assertRaises(error, loc.number, value, format)

    def test_formats_as_the_command(self):
        rnd = random.Random(3)
        for format in ("%'d", "%+'12d|", "%'.2f", "%-15.4f|", "%015.1f", "%+f", "%#.0f"):
            for name in ("de_DE", "fr_CA", "or_IN"):
                values = [rnd.randrange(-10 ** 9, 10 ** 9) for _ in range(4)]
                want = [command("number", name, format, "--", str(v)).rstrip("\n") for v in values]
                self.assertEqual([kova.Locale(name).number(v, format) for v in values], want)


class Money(unittest.TestCase):
    def test_rows(self):
        rows = [
            ("de_DE", 1234.5, "%n", "1.234,50 €"), ("de_DE", D("-0.005"), "%n", "-0,01 €"),
            ("de_DE", D("99999999999999999999.995"), "%n", "100.000.000.000.000.000.000,00 €"),
            ("ja_JP", D("2.5"), "%n", "￥3"), ("en_US", -5, "%(n", "($5.00)"),
            ("en_US", 12, "%=*#9n%%", " $*********12.00%"), ("en_US", 7, "%i", "USD 7.00"),
            ("de_DE", 3, "%.0n", "3 €"), ("de_DE", 0, "%n", "0,00 €"),
        ]
        for name, value, format, want in rows:
            with self.subTest(value=value, format=format):
                self.assertEqual(kova.Locale(name).money(value, format), want)

    def test_exact_and_real_amounts_are_written_alike(self):
        rnd = random.Random(9)
        for name in ("de_DE", "en_US", "ja_JP", "fr_CA", "fa_IR", "he_IL@hebr"):
            loc = kova.Locale(name)
            for format in ("%n", "%i", "%(#8n", "%+n", "%=0#9.1n", "%!n", "%^#5n|", "%-20n|"):
                value = D(rnd.randrange(-10 ** 8, 10 ** 8)).scaleb(-2)
                self.assertEqual(loc.money(value, format), loc.money(float(value), format))

    def test_amounts_of_any_size_are_exact(self):
        loc = kova.Locale("de_DE")
        for size in range(1, 299):
            for digits in ("9" * size, ("1234567890" * 30)[:size]):
                grouped = f"{int(digits):,}".replace(",", ".")
                self.assertEqual(loc.money(int(digits)), grouped + ",00 €")
                self.assertEqual(loc.number(int(digits)), grouped)

    def test_what_is_refused(self):
        loc = kova.Locale("de_DE")
        for error, value, format in [(ValueError, 1, "%n%n"), (ValueError, 1, "%d"),
                                     (kova.Error, 1, "%.101n"), (TypeError, "1", "%n")]:
            self.assertRaises(error, loc.money, value, format)


class Dates(unittest.TestCase):
    def test_every_date_is_read_as_it_is_written(self):
        rnd = random.Random(1)
        formats = ("%x", "%c", "%d.%m.%Y %H:%M:%S", "%A %d %B %Y", "%4Y%2m%2d", "%Y %j", "%d %b %y")
        for name in ("de_DE", "ja_JP", "fr_CA", "he_IL@hebr", "en_US.IBM037"):
            loc = kova.Locale(name)
            for format in formats:
                if "%j" in format and "hebr" in name:
                    continue
                for _ in range(20):
                    when = datetime.datetime(rnd.randrange(1980, 2020), rnd.randrange(1, 13),
                                             rnd.randrange(1, 29), rnd.randrange(24), 5, 6)
                    text = loc.date(when, format)
                    read = loc.parse_date(text, format)
                    with self.subTest(locale=name, format=format, text=text):
                        self.assertEqual(read.date(), when.date())
                        self.assertEqual(loc.date(read, format), text)

    def test_what_is_refused_in_reading(self):
        loc = kova.Locale("en_US")
        rows = [("31.02.2026", "%d.%m.%Y", "no such date"), ("1 2026", "%d %Y", "no month"),
                ("22.11.2026x", "%d.%m.%Y", "at character 11"), ("x", "%d", "day"),
                ("Monday 22.11.2026", "%A %d.%m.%Y", "contradicts"), ("5 pm", "%I %p", "no year"),
                ("1.2.2026 5", "%d.%m.%Y %I", "undecided"), ("", "%q", "unknown directive"),
                ("1.2.2026 365", "%d.%m.%Y %j", "contradicts"), ("10:61", "%H:%M", "minute")]
        for text, format, why in rows:
            with self.subTest(text=text):
                with self.assertRaises(kova.Error) as caught:
                    loc.parse_date(text, format)
                self.assertIn(why, str(caught.exception))
        self.assertRaises(ValueError, loc.parse_date, "1\0", "%d")
        self.assertRaises(ValueError, loc.parse_date, "1", "%d", century="x")
        self.assertRaises(TypeError, loc.date, "2026-11-22")

    def test_what_default_and_century_add(self):
        loc = kova.Locale("en_US")
        base = datetime.datetime(2024, 2, 29, 8, 30)
        rows = [("17:05", "%H:%M", {"default": base}, (2024, 2, 29, 17, 5)),
                ("3/9", "%m/%d", {"default": base}, (2024, 3, 9, 8, 30)),
                ("1/2/99", "%m/%d/%y", {"century": "past"}, (1999, 1, 2, 0, 0)),
                ("1/2/99", "%m/%d/%y", {"century": "future"}, (2099, 1, 2, 0, 0)),
                ("12:05 AM 1/2/2000", "%I:%M %p %m/%d/%Y", {}, (2000, 1, 2, 0, 5))]
        for text, format, options, want in rows:
            with self.subTest(text=text, options=options):
                self.assertEqual(loc.parse_date(text, format, **options), datetime.datetime(*want))

    def test_long_results(self):
        loc, when = kova.Locale("de_DE"), datetime.date(2026, 11, 22)
        self.assertEqual(loc.date(when, "%Y" * 20000), "2026" * 20000)
        self.assertEqual(loc.date(when, ""), "")


class Months(unittest.TestCase):
    def test_months_as_the_command_draws_them(self):
        months = {"he_IL@hebr": ((5784, 6), (5784, 13)),
                  "ar_SA@islm": ((1299, 12), (1300, 1), (1420, 9), (1599, 12), (1600, 1))}
        for name in ("de_DE", "ja_JP", "he_IL@hebr", "th_TH", "en_US.IBM037", "cs_CZ", "ar_SA@islm"):
            loc = kova.Locale(name)
            for year, number in months.get(name, ((2026, 11), (2019, 5), (1999, 2))):
                want = command("cal", "--utf8", name, str(number), str(year))
                got = str(loc.calendar((year, number)))
                self.assertEqual([x.split() for x in got.split("\n")],
                                 [x.split() for x in want.split("\n")][:-1])

    def test_the_month_of_a_date(self):
        month = kova.Locale("he_IL@hebr").calendar(datetime.date(2024, 3, 1))
        self.assertEqual((month.year, month.month, month.calendar), (5784, 6, "hebrew"))
        self.assertEqual(kova.Locale("de_DE").calendar(datetime.date.max).month, 12)

    def test_what_is_refused(self):
        loc = kova.Locale("de_DE")
        for month in ((2026, 13), (2026, 0), "2026-13", (10 ** 9, 1), (0, 1)):
            self.assertRaises(ValueError, loc.calendar, month)
        self.assertRaises(ValueError, loc.calendar, "November")
        self.assertRaises(TypeError, loc.calendar, 11)


class Info(unittest.TestCase):
    def test_values_are_those_of_the_command(self):
        import json
        for name in ("de_DE", "ja_JP", "he_IL@hebr", "fr_CA", "cs_CZ", "en_US.IBM037"):
            info = kova.Locale(name).info
            for group in json.loads(command("locale", "--json", "--utf8", name)).values():
                for key, value in group.items() if isinstance(group, dict) else ():
                    if key not in ("collation", "mb_cur_max"):
                        with self.subTest(locale=name, key=key):
                            got = info[key]
                            if "grouping" in key:
                                got = ";".join(map(str, got))
                            got = list(got) if isinstance(got, tuple) else got
                            self.assertEqual(got or None, value or None)

    def test_it_cannot_be_changed(self):
        with self.assertRaises(TypeError):
            kova.Locale("de_DE").info["day"] = ()


if __name__ == "__main__":
    unittest.main()
