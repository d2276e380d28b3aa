"""What a locale says, by the names of POSIX."""
import os
import re
import types

from . import _kova

# Items of the library: the first one's number and how many there are, 0 for a single text.
_ITEMS = {
    "charmap": (60, 0), "crncystr": (59, 0), "abday": (8, 7), "day": (1, 7), "abmon": (35, 20),
    "mon": (15, 20), "am_pm": (64, 2), "d_t_fmt": (0, 0), "d_fmt": (61, 0), "t_fmt": (62, 0),
    "t_fmt_ampm": (63, 0), "era": (66, 0), "era_d_fmt": (67, 0), "era_d_t_fmt": (68, 0),
    "era_t_fmt": (69, 0), "alt_digits": (70, 0), "calendar": (73, 0), "yesexpr": (71, 0),
    "noexpr": (72, 0), "yesstr": (57, 0), "nostr": (58, 0),
}


def _item(loc, first, count):
    if not count:
        return loc._langinfo(first)
    texts = [loc._langinfo(first + i) for i in range(count)]
    while texts and not texts[-1] and count > 2:
        texts.pop()  # months that the calendar does not have
    return tuple(text or "" for text in texts)


def _header(loc):
    """The header of the object that a simple name stands for."""
    language, _, rest = loc.spec.partition(".")
    codeset, _, modifier = rest.partition("@")
    number = _kova.code_set_number(loc.root, codeset)
    if loc.spec == "default.lco":
        parts = ["default.lco"]
    elif number < 0 or "/" in loc.spec:
        return {}
    else:
        parts = [language.lower(), f"{number:04x}{modifier}.lco"]
    if loc.root is None:
        text = _kova.object_header(None, "\\".join(parts))
    else:
        text = _kova.object_header(loc.root, os.path.join(loc.root, "kova", "lc11", *parts))
    return dict(line.split("=", 1) for line in text.splitlines() if "=" in line)


def _alternative(header, key, codeset):
    """The names of months without a day, which the header has as bytes in hexadecimal."""
    names = [header.get(f"{key}{i + 1}") for i in range(12)]
    if None in names:
        return ()
    return tuple(_decoded(bytes.fromhex(name), codeset) for name in names)


def _decoded(data, codeset):
    if codeset == "unicode":
        return data.decode("utf-16-be")
    from ._codec import decode
    return decode(data, codeset)


def umalqura_month(loc, year, index):
    """The first day of a month of the Umm al-Qura calendar, in days since 1970, and its length, or
    None. The header states the first year with the day on which it begins; then, in lines, three
    hexadecimal digits for each year, whose highest bit is set if the first month has 30 days."""
    header = _header(loc)
    begin = re.fullmatch(r"([0-9]{1,4}) (-?[0-9]{1,5})", header.get("UMALQURA", ""))
    digits, line = "", 1
    while f"UMALQURA_{line}" in header:
        digits += header[f"UMALQURA_{line}"]
        line += 1
    years = re.findall("[0-9a-f]{3}", digits)
    lengths = [29 + (int(bits, 16) >> bit & 1) for bits in years for bit in range(11, -1, -1)]
    month = 12 * (year - int(begin[1])) + index if begin else -1
    if not 0 <= month < len(lengths):
        return None
    return int(begin[2]) + sum(lengths[:month]), lengths[month]


def info_of(loc):
    values = {name: _item(loc, *row) for name, row in _ITEMS.items()}
    values.update(loc._conventions())
    header = _header(loc)
    weekday = header.get("FIRST_WEEKDAY", "0")
    values["first_weekday"] = int(weekday) % 7 + 1 if weekday.isdecimal() else 1  # 1 is Sunday
    for name, own in (("mon", "alt_mon"), ("abmon", "ab_alt_mon")):
        values[own] = _alternative(header, own.upper() + "_", values["charmap"]) or values[name]
    for key in ("source", "compiler", "release"):
        values[key] = header.get(key.upper())
    return types.MappingProxyType(values)
