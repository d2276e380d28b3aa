"""Locales: their names, order, keys and case."""
import os
import re
import warnings

from . import _info, _kova, _values

# Flags and an error number of the library.
VERIFY = 1
SECURE_NAMES = 2
NO_LOCALE = 54


def _missing(text):
    error = _kova.NotFoundError(text)
    error.number = NO_LOCALE
    return error


def _specification(name):
    """The name of a locale as the library takes it, and whether the code set was not said."""
    if "\0" in name:
        raise _missing(f"{name!r}: {_kova.error_text(NO_LOCALE)}")
    if name in ("POSIX", "C"):
        return "default.lco", False
    found = re.fullmatch(r"([^.@/\\]+)(?:\.([^@/\\]*))?(@[^/\\]*)?", name)
    if not found:
        return name, False
    language, codeset, modifier = found.groups()
    if codeset is None or re.fullmatch(r"utf-?8", codeset, re.IGNORECASE):
        return f"{language}.unicode{modifier or ''}", codeset is None
    return name, False


def _only_one(spec, root):
    """The locale that differs from "ll_TT.unicode" in its code set alone, if there is one."""
    def parts(name):
        language, _, rest = name.partition(".")
        return language.lower(), rest.partition("@")[2]
    found = [name for name in _listed(root)[0] if parts(name) == parts(spec)]
    return found[0] if len(found) == 1 else None


def _release_root(root, release):
    """The root of a release: a folder of this name in the root, or else the root itself."""
    if root is None:
        root = os.environ.get("VANTORDIR")
    if not root:
        raise ValueError("release needs root: the folder that holds the release")
    if os.path.basename(release) != release or release in ("", ".", ".."):
        raise _missing(f"release {release!r}: a release is no path")
    below = os.path.join(root, release)
    return below if os.path.isdir(os.path.join(below, "kova")) else root


class Locale(_kova.Locale):
    """A locale of the data, such as Locale("de_DE"), "de_DE@ci" or "ja_JP.EUC-JP". Without a code
    set, its form for all of Unicode is taken, or else the only one that there is.

    root      the folder that holds "kova" with the data; the library's default without it
    release   the release of the data: a folder of this name in root, or what root must hold
    verify    compares every file with the hash that it states

    >>> Locale("de_DE").spec
    'de_DE.unicode'
    """

    __slots__ = ("root", "_info")
    root: str | None

    def __new__(cls, name, *, root=None, release=None, verify=False):
        if root is not None:
            root = os.fspath(root)
        base = root
        if release is not None:
            root = _release_root(root, release)
        spec, bare = _specification(name)
        flags = SECURE_NAMES | (VERIFY if verify else 0)
        try:
            self = super().__new__(cls, spec, root, flags)
        except _kova.NotFoundError:
            other = _only_one(spec, root) if bare else None
            if other is None:
                raise
            self = super().__new__(cls, other, root, flags)
        self.root = root
        self._info = None
        stated = self.version.partition(" ")[2]
        if release is not None and stated != release and (stated or root == base):
            raise _missing(f"{self.spec}: the data in {root} are of "
                           f"{'release ' + stated if stated else 'no release'}, not {release}")
        return self

    def __repr__(self):
        return f"<kova.Locale {self.spec} {self.version}>"

    @property
    def info(self):
        """What the locale says, by the names of POSIX; None where it says nothing.

        >>> german = Locale("de_DE")
        >>> german.info["decimal_point"], german.info["grouping"], german.info["day"][0]
        (',', (3, 3), 'Sonntag')
        """
        if self._info is None:
            self._info = _info.info_of(self)
        return self._info

    def number(self, value, format=None):
        """A number as the locale writes it: with all its digits, or by a format with one
        directive. Whole numbers and decimals are written exactly, floats in 15 digits at most.

        >>> german = Locale("de_DE")
        >>> german.number(12345678901234567890), german.number(1234.5)
        ('12.345.678.901.234.567.890', '1.234,5')
        >>> german.number(0.125, "%'.2f"), german.number(255, "%x")
        ('0,12', 'ff')
        """
        return _values.write_number(self, value, format)

    def money(self, value, format="%n"):
        """An amount with the locale's currency, or its international name (%i).

        >>> german = Locale("de_DE")
        >>> german.money(-1234.5), german.money(3, "%i"), german.money(12, "%!#4n")
        ('-1.234,50 €', '3,00 EUR ', '    12,00 ')
        """
        return _values.write_money(self, value, format)

    def date(self, when=None, format="%x"):
        """A date or datetime, by default now, by a format of the library.

        >>> from datetime import date
        >>> Locale("de_DE").date(date(2026, 11, 22), "%A, %.1d. %B %Y")
        'Sonntag, 22. November 2026'
        >>> Locale("ja_JP").date(date(1989, 1, 8), "%EY%m月%d日")
        '平成元年01月08日'
        """
        return _values.write_date(self, when, format)

    def parse_date(self, text, format="%x", *, century="closest", default=None):
        """The datetime that a text says. The whole text must be read; a part of the date that it
        does not say is taken from default, or else an error, and so is a contradiction. century
        says what a year of two digits means: the closest to today, a future or past one, or one
        of the current century.

        >>> Locale("de_DE").parse_date("Sonntag, 22. November 2026", "%A, %d. %B %Y")
        datetime.datetime(2026, 11, 22, 0, 0)
        >>> Locale("de_DE").parse_date("Montag, 22. November 2026", "%A, %d. %B %Y")
        Traceback (most recent call last):
        kova.Error: 'Montag, 22. November 2026' contradicts the date, 2026-11-22 00:00:00
        """
        return _values.read_date(self, text, format, century, default)

    def calendar(self, month=None):
        """A month of the locale's calendar: the one that a date is in, by default today, or one
        named "YEAR-MONTH" or (year, month) in that calendar.

        >>> print(Locale("de_DE").calendar("2026-11"))
           November 2026
        Mo Di Mi Do Fr Sa So
                           1
         2  3  4  5  6  7  8
         9 10 11 12 13 14 15
        16 17 18 19 20 21 22
        23 24 25 26 27 28 29
        30
        """
        return _values.month_of(self, month)

    def __reduce_ex__(self, protocol):
        raise TypeError("a locale is opened by its name, not pickled: pass its spec and root")


def _listed(root):
    """The names of a root's locales, and those that cannot be read, with the reason."""
    good, bad = [], []
    for row in _kova.list_locales(None if root is None else os.fspath(root)).splitlines():
        spec, error = row.split("\t")
        if error == "0":
            good.append(spec)
        else:
            bad.append(f"{spec} is left out: {_kova.error_text(int(error))}")
    return good, bad


def locales(root=None):
    """The names of all locales of a data root, as Locale takes them. One whose file cannot be
    read is left out with a RuntimeWarning.

    >>> "de_DE.unicode" in locales()
    True
    """
    good, bad = _listed(root)
    for text in bad:
        warnings.warn(text, RuntimeWarning, stacklevel=2)
    return good
