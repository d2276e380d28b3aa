"""Numbers and amounts of any size, dates and months, by a locale's formats."""
import datetime
import decimal
import math
import operator
import re
import typing
import unicodedata

from . import _info, _kova

MOST_DIGITS = 300  # of a number that is written exactly; the library writes powers of ten below 1e308

# A directive, and the text around it.
_AROUND = r"((?:[^%]|%%)*)"
_NUMBER = re.compile(_AROUND + r"(%[ #'+\-0-9.]*l?[a-zA-Z])" + _AROUND, re.DOTALL)
_MONEY = re.compile(_AROUND + r"(%(?:=.|[!(+\-^])*[0-9]*(?:#[0-9]*)?(?:\.([0-9]*))?[ni])" + _AROUND,
                    re.DOTALL)


def error(text, number=None):
    """An error of the package itself, with the library's number where one fits."""
    made = _kova.Error(text)
    made.number = number
    return made


# ---- Numbers ----

def _is_whole(value):
    return hasattr(value, "__index__")


def _exact(write, value, places):
    """Writes a Decimal of so many places: write gives the sign, the groups and the padding of a
    number with as many digits, mostly a power of ten, whose digits are then replaced."""
    sign, digits, _ = value.as_tuple()
    digits = "".join(map(str, digits)).rjust(places + 1, "0")
    if len(digits) > MOST_DIGITS:
        raise OverflowError(f"numbers have at most {MOST_DIGITS} digits")
    # From 1e23 on a power of ten is no double, and its digits are others, maybe fewer.
    exponent = len(digits) - places - 1
    lead, shown_digits = ("1", "01") if exponent < 23 else ("5", "0123456789")
    power = float(f"{lead}e{exponent}")
    shown = list(write(-power if sign else power))
    left = len(digits)
    for at in range(len(shown) - 1, -1, -1):
        if left and shown[at] in shown_digits:
            left -= 1
            shown[at] = digits[left]
    return "".join(shown)


def _rounded(value, places, rounding):
    """A whole number or a Decimal with so many places. One of 0 has no sign."""
    value = decimal.Decimal(operator.index(value) if _is_whole(value) else value)
    if not value.is_finite() or value.adjusted() + places >= MOST_DIGITS or places > MOST_DIGITS:
        raise OverflowError(f"numbers have at most {MOST_DIGITS} digits")
    context = decimal.Context(prec=2 * MOST_DIGITS, rounding=rounding, Emin=-decimal.MAX_EMAX,
                              Emax=decimal.MAX_EMAX)
    made = value.quantize(decimal.Decimal((0, (1,), -places)), context=context)
    return made if value else abs(made)


def _write_plain(loc, value):
    """A number with the digits that str shows."""
    if isinstance(value, float):
        if not math.isfinite(value):
            return loc._format_number("%f", value)
        value = decimal.Decimal(repr(value))
    elif not isinstance(value, decimal.Decimal) and not _is_whole(value):
        if not hasattr(value, "__float__"):
            raise TypeError(f"a number is needed, not {type(value).__name__}")
        return _write_plain(loc, float(value))
    elif isinstance(value, decimal.Decimal) and not value.is_finite():
        return loc._format_number("%f", float(value))
    places = 0
    if isinstance(value, decimal.Decimal):
        places = max(0, -value.as_tuple().exponent)
    value = _rounded(value, places, decimal.ROUND_HALF_EVEN)
    return _exact(lambda x: loc._format_number(f"%'.{places}f", x), value, places)


def _is_exact(value):
    return _is_whole(value) or (isinstance(value, decimal.Decimal) and value.is_finite())


def write_number(loc, value, format):
    if format is None:
        return _write_plain(loc, value)
    parts = _NUMBER.fullmatch(format)
    letter = parts[2][-1] if parts else ""
    if letter in tuple("diuoqbxX") and isinstance(value, decimal.Decimal):
        if value != value.to_integral_value():
            raise ValueError(f"%{letter} writes whole numbers")
        value = int(value)
    whole = letter in ("d", "i") and "." not in parts[2]
    if not _is_exact(value) or not (whole or letter == "f"):
        return loc._format_number(format, value)
    directive, places = parts[2], 0
    if whole:
        directive = directive.replace("#", "").replace("l", "")[:-1] + ".0f"
    else:
        digits = re.search(r"\.([0-9]+)", directive)
        places = int(digits[1]) if digits else 6
    value = _rounded(value, places, decimal.ROUND_HALF_EVEN)
    return (parts[1].replace("%%", "%") +
            _exact(lambda x: loc._format_number(directive, x), value, places) +
            parts[3].replace("%%", "%"))


def write_money(loc, value, format):
    parts = _MONEY.fullmatch(format)
    if not parts or not _is_exact(value):
        return loc._format_money(format, value)
    before, directive, digits, after = parts.groups()
    if digits is None:
        digits = loc.info["frac_digits" if directive[-1] == "n" else "int_frac_digits"]
        places = 2 if digits is None else digits
    else:
        places = int(digits or 0)
    if places > 100:
        raise error(f"{format}: {_kova.error_text(20)}", 20)
    value = _rounded(value, places, decimal.ROUND_HALF_UP)
    return (before.replace("%%", "%") +
            _exact(lambda x: loc._format_money(directive, x), value, places) +
            after.replace("%%", "%"))


# ---- Dates ----

def _tm(when):
    """The fields that the library takes, of a date or a datetime."""
    if not isinstance(when, datetime.date):
        raise TypeError(f"a date or datetime is needed, not {type(when).__name__}")
    clock = (0, 0, 0, 0)
    if isinstance(when, datetime.datetime):
        clock = (when.hour, when.minute, when.second, when.microsecond)
    day = when.toordinal() - datetime.date(when.year, 1, 1).toordinal()
    return (when.year - 1900, when.month - 1, when.day, *clock, when.isoweekday() % 7, day)


def write_date(loc, when, format):
    if when is None:
        when = datetime.datetime.now()
    return loc._format_date(format, _tm(when))


# The bits of what a reading has found, in the order of its fields.
(USEC, SECOND, MINUTE, HOUR12, HALF, HOUR24, DAY, WEEKDAY, YEAR_DAY, MONTH, MONTH_NAME, ERA,
 ERA_YEAR, CENTURY, SHORT_YEAR, YEAR) = (1 << i for i in range(16))
_DATE = DAY | YEAR_DAY | MONTH | MONTH_NAME | ERA | ERA_YEAR | CENTURY | SHORT_YEAR | YEAR
_RULES = {"closest": "C", "future": "F", "past": "P", "current": "R"}


def _check_fields(loc, text, seen, default):
    """Refuses what would leave a part of the date or of the hour open."""
    missing = [] if seen & (ERA | ERA_YEAR | SHORT_YEAR | YEAR) else ["year"]
    if not seen & YEAR_DAY:
        missing += [] if seen & (MONTH | MONTH_NAME) else ["month"]
        missing += [] if seen & DAY else ["day"]
    if missing and default is None:
        raise error(f"{text!r}: the format reads no {' and no '.join(missing)}; default says "
                    "which is meant")
    if seen & HALF and not any(loc.info["am_pm"]):
        raise error(f"{text!r}: the locale has no names for the halves of the day")
    if bool(seen & HOUR12) != bool(seen & HALF) and not seen & HOUR24:
        raise error(f"{text!r}: the hour is undecided without %I and %p")


def _built(loc, text, tm, seen, fields):
    year, month, day, hour, minute, second, usec = tm
    try:
        if seen & YEAR_DAY and not (seen & DAY and seen & (MONTH | MONTH_NAME)):
            if loc.info["calendar"] != "gregorian":
                raise error(f"{text!r}: %j is not read in the calendar of the locale")
            start = datetime.datetime(year + 1900, 1, 1, hour, minute, second, usec)
            return start + datetime.timedelta(days=fields[9])
        return datetime.datetime(year + 1900, month + 1, day, hour, minute, second, usec)
    except (ValueError, OverflowError) as reason:
        if isinstance(reason, _kova.Error):
            raise
        raise error(f"{text!r}: there is no such date: {reason}") from None


def read_date(loc, text, format, century, default):
    """A datetime. What was read is written and read again, and must be the same."""
    if century not in _RULES:
        raise ValueError(f"century is one of {', '.join(_RULES)}, not {century!r}")
    rule = ord(_RULES[century])
    start = _tm(datetime.date(2000, 1, 1) if default is None else default)
    tm, fields, rest = loc._read_date(text, format, rule, start)
    if rest.strip():
        place = len(text) - len(rest) + 1
        raise error(f"{text!r}: the format ends before the text, at character {place}")
    seen = fields[0]
    _check_fields(loc, text, seen, default)
    made = _built(loc, text, tm, seen, fields)
    if not seen & (HOUR24 | HOUR12) and default is None:
        made = made.replace(hour=0)
    _, again, _ = loc._read_date(loc._format_date(format, _tm(made)), format, rule, start)
    if any(seen & 1 << i and fields[i + 1] != again[i + 1] for i in range(16)):
        raise error(f"{text!r} contradicts the date, {made}")
    return made


# ---- Months ----

class Day(typing.NamedTuple):
    """A day of a month: its number, and the date it has in the Gregorian calendar."""
    day: int
    date: datetime.date


class Month(typing.NamedTuple):
    """A month of a locale's calendar. str draws it."""
    title: str          # "November 2026"
    year: int           # of the locale's calendar, as month
    month: int
    calendar: str       # "gregorian", "hebrew", "islamic"
    weekdays: tuple     # short names, from the locale's first day of the week on
    weeks: tuple        # of seven each: a Day, or None outside the month
    umalqura: tuple | None = None  # first and last date in the Umm al-Qura calendar, where known

    def __str__(self):
        plain = self.calendar == "gregorian"
        gap = 1 if plain else 2
        cell = max([2 if plain else 7] + [_columns(name) for name in self.weekdays])
        rows = [self.weekdays] + [[_cell(day, plain) for day in week] for week in self.weeks]
        width = 7 * cell + 6 * gap
        heads = [self.title]
        if not plain:
            days = [day.date for week in self.weeks for day in week if day]
            heads.append(f"{days[0]} - {days[-1]}")
        if self.umalqura:
            heads.append("Umm al-Qura: {} - {}".format(*self.umalqura))
        lines = [" " * ((width - _columns(head)) // 2) + head for head in heads]
        for row in rows:
            cells = [" " * (cell - _columns(text)) + text for text in row]
            lines.append((" " * gap).join(cells).rstrip())
        return "\n".join(lines)


def _columns(text):
    return sum(0 if unicodedata.combining(c) else 2 if unicodedata.east_asian_width(c) in "WF"
               else 1 for c in text)


def _cell(day, plain):
    if day is None:
        return ""
    return str(day.day) if plain else f"{day.day} {f'({day.date.day})':>4}"


def _local(loc, date):
    """(year, place of the month from 0, index of its name, day) of a date."""
    found = loc._to_local(date.year, date.month - 1, -1, date.day)
    if found is None:
        raise error(f"{date} is outside the locale's calendar")
    year, month, name, day, _ = found
    return year, month, month if name < 0 else name, day


def _first_of(loc, month):
    """The first day of the month that an argument of calendar names."""
    if month is None:
        month = datetime.date.today()
    if isinstance(month, datetime.date):
        day = month.date() if isinstance(month, datetime.datetime) else month
        return day - datetime.timedelta(days=_local(loc, day)[3] - 1)
    if isinstance(month, str):
        parts = re.fullmatch(r"([0-9]{1,5})-([0-9]{1,2})", month)
        if not parts:
            raise ValueError(f"a month is a date, 'YEAR-MONTH' or (year, month), not {month!r}")
        month = (int(parts[1]), int(parts[2]))
    year, number = map(operator.index, month)
    found = loc._to_gregorian(year, number - 1, -1, 1) if number > 0 else None
    try:
        day = datetime.date(found[0], found[1] + 1, found[3]) if found else None
    except ValueError:
        day = None
    if day is None or _local(loc, day)[:2] != (year, number - 1):
        raise error(f"the locale's calendar has no month {number} in the year {year}")
    return day


def _title(loc, first, last):
    year, _, name, _ = _local(loc, first)
    names = loc.info["alt_mon"]
    title = f"{names[name].strip()} {year}"
    if not loc.info["era"]:
        return title
    eras = []
    for day in (first, last):
        try:
            eras.append(loc._format_date("%EY", _tm(day)))
        except _kova.Error:
            eras.append("")
    if not any(eras):
        return title
    return f"{title} ({eras[0] if eras[0] == eras[1] else ' - '.join(eras)})"


def _umalqura(loc, first):
    year, _, name, _ = _local(loc, first)
    found = _info.umalqura_month(loc, year, name)
    if not found:
        return None
    begin = datetime.date(1970, 1, 1) + datetime.timedelta(days=found[0])
    return begin, begin + datetime.timedelta(days=found[1] - 1)


def month_of(loc, month):
    first = _first_of(loc, month)
    year, number = _local(loc, first)[:2]
    start = loc.info["first_weekday"] - 1
    days = [None] * ((first.isoweekday() - start) % 7)
    date = first
    while True:
        days.append(Day(len([day for day in days if day]) + 1, date))
        last = date
        if date == datetime.date.max:
            break
        date += datetime.timedelta(days=1)
        if _local(loc, date)[:2] != (year, number):
            break
    days += [None] * (-len(days) % 7)
    weeks = tuple(tuple(days[at:at + 7]) for at in range(0, len(days), 7))
    names = [name.strip() for name in loc.info["abday"]]
    return Month(_title(loc, first, last), year, number + 1, loc.info["calendar"],
                 tuple(names[start:] + names[:start]), weeks,
                 _umalqura(loc, first) if loc.info["calendar"] == "islamic" else None)
