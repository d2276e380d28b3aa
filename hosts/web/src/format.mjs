// Numbers, money, dates and months by a locale's formats, and what a locale says.
import { KovaError, BAD_MONEY, NOTHING } from "./errors.mjs";
import { isWellFormed } from "./module.mjs";
import { bytesOf } from "./packs.mjs";

const MOST_DIGITS = 300; // of a number that is written exactly; the library takes less than 1e308
const NUMBER = /^((?:[^%]|%%)*)(%[ #'+\-0-9.]*[diuoqbxXeEfgG])((?:[^%]|%%)*)$/s;
const MONEY =
  /^((?:[^%]|%%)*)(%(?:=[^]|[!(+\-^])*[0-9]*(?:#[0-9]*)?(?:\.([0-9]*))?[ni])((?:[^%]|%%)*)$/su;
const DECIMAL = /^([+-]?)(\d*)(?:\.(\d*))?(?:[eE]([+-]?\d{1,4}))?$/;
const NUMBER_DIRECTIVE = "% with flags and digits, then one of diuoqbxXeEfgG";
const MONEY_DIRECTIVE = "%n or %i, with flags and digits after the %";

// ---- Exact decimals ----

/** A number as { negative, digits, places }: digits is a bigint. */
function decimalOf(value) {
  const found = DECIMAL.exec(String(value));
  if (!found || !(found[2] || found[3])) throw new KovaError(`${value} is no decimal number`);
  const [, sign, whole, part = "", power = "0"] = found;
  let digits = BigInt(whole + part || "0"), places = part.length - Number(power);
  if (Math.abs(places) > 2 * MOST_DIGITS) throw tooLong();
  if (places < 0) [digits, places] = [digits * 10n ** BigInt(-places), 0];
  return { negative: sign === "-" && digits !== 0n, digits, places };
}

const tooLong = () => new KovaError(`numbers have at most ${MOST_DIGITS} digits`);

/** With so many places; a half goes to the even digit, or up. */
function rounded(value, places, halfUp) {
  let { digits } = value;
  if (places >= value.places) {
    digits *= 10n ** BigInt(places - value.places);
  } else {
    const unit = 10n ** BigInt(value.places - places), rest = digits % unit;
    digits /= unit;
    const half = 2n * rest - unit;
    if (half > 0n || (half === 0n && (halfUp || digits % 2n === 1n))) ++digits;
  }
  return { ...value, digits, places };
}

/** Writes an exact number: write gives sign, groups and padding of a number with as many digits,
 * mostly a power of ten, whose digits are then replaced. */
function writeExact(value, write) {
  const digits = value.digits.toString().padStart(value.places + 1, "0");
  if (digits.length > MOST_DIGITS) throw tooLong();
  // From 1e23 on a power of ten is no double, and its digits are others, maybe fewer.
  const exponent = digits.length - value.places - 1;
  const [lead, shownDigits] = exponent < 23 ? ["1", "01"] : ["5", "0123456789"];
  const power = Number(`${lead}e${exponent}`);
  const shown = Array.from(write(value.negative ? -power : power));
  let left = digits.length;
  for (let at = shown.length - 1; at >= 0 && left; --at)
    if (shownDigits.includes(shown[at])) shown[at] = digits[--left];
  return shown.join("");
}

/** A format, which the library reads up to a U+0000. */
function checked(format) {
  if (typeof format === "string" && isWellFormed(format) && !format.includes("\0")) return format;
  throw new KovaError("a format is a well-formed string without U+0000");
}

const plain = (text) => text.replaceAll("%%", "%");

// ---- Dates ----

const DAY = 86400000;

/** Days since 1970 of a Gregorian date, or NaN. */
function dayNumber({ year, month, day }) {
  const date = new Date(0);
  date.setUTCFullYear(year, month - 1, day);
  const number = date.getTime() / DAY, made = dateOfDay(number);
  const same = made.year === year && made.month === month && made.day === day;
  return same && year >= 1 && year <= 9999 ? number : NaN;
}

function dateOfDay(number) {
  const date = new Date(number * DAY);
  return { year: date.getUTCFullYear(), month: date.getUTCMonth() + 1, day: date.getUTCDate() };
}

function fieldsOf(when) {
  if (!(when instanceof Date)) return { hour: 0, minute: 0, second: 0, microsecond: 0, ...when };
  return {
    year: when.getFullYear(), month: when.getMonth() + 1, day: when.getDate(),
    hour: when.getHours(), minute: when.getMinutes(), second: when.getSeconds(),
    microsecond: 1000 * when.getMilliseconds(),
  };
}

const isIn = (value, least, most) => Number.isInteger(value) && value >= least && value <= most;

const shownDate = ({ year, month, day, hour, minute, second }) => {
  const two = (...values) => values.map((value) => String(value).padStart(2, "0"));
  return `${String(year).padStart(4, "0")}-${two(month, day).join("-")} ` +
    two(hour, minute, second).join(":");
};

/** The numbers of web_time in kova_web_format.c. */
function timeOf(when) {
  const t = fieldsOf(when), number = dayNumber(t);
  if (Number.isNaN(number) || !isIn(t.hour, 0, 23) || !isIn(t.minute, 0, 59) ||
      !isIn(t.second, 0, 61) || !isIn(t.microsecond, 0, 999999))
    throw new KovaError("there is no such date");
  const first = dayNumber({ year: t.year, month: 1, day: 1 });
  return [t.year - 1900, t.month - 1, t.day, t.hour, t.minute, t.second, t.microsecond,
    ((number + 4) % 7 + 7) % 7, number - first];
}

// The bits of what a reading has found, in the order of its fields.
const [, , , HOUR12, HALF, HOUR24, DAY_OF_MONTH, , YEAR_DAY, MONTH, MONTH_NAME, ERA, ERA_YEAR, ,
  SHORT_YEAR, YEAR] = Array.from({ length: 16 }, (_, i) => 1 << i);
const RULES = { closest: "C", future: "F", past: "P", current: "R" };

// Items of ko_nl_langinfo: the first one's number and how many there are, 0 for a single text.
const ITEMS = {
  charmap: [60, 0], crncystr: [59, 0], abday: [8, 7], day: [1, 7], abmon: [35, 20], mon: [15, 20],
  am_pm: [64, 2], d_t_fmt: [0, 0], d_fmt: [61, 0], t_fmt: [62, 0], t_fmt_ampm: [63, 0],
  era: [66, 0], era_d_fmt: [67, 0], era_d_t_fmt: [68, 0], era_t_fmt: [69, 0], alt_digits: [70, 0],
  calendar: [73, 0], yesexpr: [71, 0], noexpr: [72, 0], yesstr: [57, 0], nostr: [58, 0],
};
const TEXTS = ["decimal_point", "thousands_sep", "int_curr_symbol", "currency_symbol",
  "mon_decimal_point", "mon_thousands_sep", "positive_sign", "negative_sign"];
const VALUES = ["int_frac_digits", "frac_digits", "p_cs_precedes", "p_sep_by_space",
  "n_cs_precedes", "n_sep_by_space", "p_sign_posn", "n_sign_posn"];

function makeFormats(module, specOf, kova) {
  const known = new Map(); // what locales say, by their whole names

  // ---- Calls of the library ----

  const withText = (spec, text, call) => module.withLocale(spec, (loc) =>
    module.fromText(spec, text, (at, size, out, room) => call(loc, at, size, out, room)));

  const write = (spec, format, isReal, value) =>
    withText(spec, format, (loc, at, size, out, room) =>
      module.x.web_number(loc, at, size, isReal ? 1 : 0, value, out, room));

  const writeMoney = (spec, format, value) =>
    withText(spec, format, (loc, at, size, out, room) =>
      module.x.web_money(loc, at, size, value, out, room));

  /** A call with an array of whole numbers, which it may change. */
  function withNumbers(list, call) {
    const at = module.take(4 * list.length);
    try {
      new Int32Array(module.x.memory.buffer, at, list.length).set(list);
      const result = call(at);
      return { result, list: Array.from(new Int32Array(module.x.memory.buffer, at, list.length)) };
    } finally {
      module.x.web_free(at);
    }
  }

  const writeTime = (spec, format, time) => withNumbers(time, (when) =>
    withText(spec, format, (loc, at, size, out, room) =>
      module.x.web_date(loc, at, size, when, out, room))).result;

  function readTime(spec, text, format, rule, start) {
    const { result, list } = withNumbers([...start, ...Array(17).fill(0)], (when) =>
      module.withLocale(spec, (loc) => {
        const { at, ends } = module.putTexts(spec, [text, format]);
        return module.x.web_read_date(loc, at, ends[0], at + ends[0], ends[1] - ends[0],
          rule.charCodeAt(0), when, when + 4 * start.length);
      }));
    if (result < 0) throw module.error(text, -result);
    return { time: list.slice(0, 9), seen: list[9], fields: list.slice(10), rest: result };
  }

  /** [year, month, name, day, yearday] in the locale's calendar or the Gregorian one, or null. */
  function other(spec, toLocal, date) {
    const { result, list } = withNumbers([...date, 0], (at) => module.withLocale(spec, (loc) =>
      module.x.web_other_calendar(loc, toLocal ? 1 : 0, at)));
    return result ? null : list;
  }

  function text(spec, call) {
    return module.withLocale(spec, (loc) => {
      const size = call(loc, module.out.need(4), 0);
      if (size === -NOTHING) return null;
      return module.result(spec, (out, room) => call(loc, out, room));
    });
  }

  // ---- Numbers ----

  function plainNumber(spec, value) {
    if (typeof value === "number" && !Number.isFinite(value)) return write(spec, "%f", true, value);
    const exact = decimalOf(Object.is(value, -0) ? 0 : value);
    return writeExact(exact, (power) => write(spec, `%'.${exact.places}f`, true, power));
  }

  /** A number by a directive that writes all its digits: %d and %i without a point, and %f. */
  function numberByDigits(spec, value, [, before, directive, after]) {
    const isWhole = !directive.endsWith("f"), point = /\.(\d+)/.exec(directive);
    const places = isWhole ? 0 : point ? Number(point[1]) : 6;
    if (places > MOST_DIGITS) throw tooLong();
    const exact = decimalOf(Object.is(value, -0) ? 0 : value), made = rounded(exact, places, false);
    if (isWhole && exact.digits !== made.digits * 10n ** BigInt(exact.places))
      throw new KovaError(`${directive} writes whole numbers`);
    const by = isWhole ? `${directive.replace("#", "").slice(0, -1)}.0f` : directive;
    return plain(before) + writeExact(made, (power) => write(spec, by, true, power)) + plain(after);
  }

  function formatNumber(locale, value, format) {
    const spec = specOf(locale);
    if (!["number", "bigint", "string"].includes(typeof value))
      throw new KovaError("a number, bigint or string is needed");
    if (format === undefined) return plainNumber(spec, value);
    const found = NUMBER.exec(checked(format));
    if (!found) throw new KovaError(`${format}: one directive is needed, ${NUMBER_DIRECTIVE}`);
    const directive = found[2], letter = directive.at(-1);
    const isExact = typeof value !== "number" || Number.isInteger(value);
    if (isExact && (letter === "f" || /^[^.]*[di]$/.test(directive)))
      return numberByDigits(spec, value, found);
    const isReal = "eEfgG".includes(letter), isUnsigned = letter === "u", number = Number(value);
    if (!isReal && !isIn(number, isUnsigned ? 0 : -(2 ** 31), 2 ** (isUnsigned ? 32 : 31) - 1))
      throw new KovaError(`%${letter} writes whole numbers of 32 bits`);
    return write(spec, format, isReal, number);
  }

  function formatMoney(locale, value, format = "%n") {
    const spec = specOf(locale), found = MONEY.exec(checked(format));
    if (!found) throw new KovaError(`${format}: one directive is needed, ${MONEY_DIRECTIVE}`);
    if (typeof value === "number") return writeMoney(spec, format, value);
    const [, before, directive, digits, after] = found;
    const stated = infoOf(spec)[directive.endsWith("n") ? "frac_digits" : "int_frac_digits"];
    const places = digits === undefined ? stated ?? 2 : Number(digits);
    if (places > 100) throw module.error(format, BAD_MONEY);
    const exact = rounded(decimalOf(value), places, true);
    const made = writeExact(exact, (power) => writeMoney(spec, directive, power));
    return plain(before) + made + plain(after);
  }

  // ---- Dates ----

  const formatDate = (locale, when = new Date(), format = "%x") =>
    writeTime(specOf(locale), checked(format), timeOf(when));

  /** Refuses what would leave a part of the date or of the hour open. */
  function checkFields(spec, text, seen, given) {
    const missing = [];
    if (!(seen & (ERA | ERA_YEAR | SHORT_YEAR | YEAR))) missing.push("year");
    if (!(seen & (YEAR_DAY | MONTH | MONTH_NAME))) missing.push("month");
    if (!(seen & (YEAR_DAY | DAY_OF_MONTH))) missing.push("day");
    const list = missing.join(" and no ");
    if (list && !given)
      throw new KovaError(`${text}: the format reads no ${list}; default says which is meant`);
    if (seen & HALF && !infoOf(spec).am_pm.some(Boolean))
      throw new KovaError(`${text}: the locale has no names for the halves of the day`);
    if (!(seen & HOUR12) !== !(seen & HALF) && !(seen & HOUR24))
      throw new KovaError(`${text}: the hour is undecided without %I and %p`);
  }

  function dateRead(spec, text, { time, seen, fields }, given) {
    const [year, month, day, hour, minute, second, microsecond] = time;
    const isHourMeant = seen & (HOUR24 | HOUR12) || given;
    const clock = { hour: isHourMeant ? hour : 0, minute, second, microsecond };
    let date = { year: year + 1900, month: month + 1, day };
    if (seen & YEAR_DAY && !(seen & DAY_OF_MONTH && seen & (MONTH | MONTH_NAME))) {
      if (infoOf(spec).calendar !== "gregorian")
        throw new KovaError(`${text}: %j is not read in the calendar of the locale`);
      date = dateOfDay(dayNumber({ year: date.year, month: 1, day: 1 }) + fields[8]);
    }
    if (Number.isNaN(dayNumber(date)) || !isIn(second, 0, 59))
      throw new KovaError(`${text}: there is no such date`);
    return { ...date, ...clock };
  }

  /** What was read is written and read again, and must be the same. */
  function parseDate(locale, text, format = "%x", options = {}) {
    const spec = specOf(locale), { century = "closest", default: given } = options;
    const rule = RULES[century];
    if (!rule) throw new KovaError(`century is ${Object.keys(RULES).join(" or ")}, not ${century}`);
    text = `${text}`;
    if (text.includes("\0")) throw new KovaError(`${text}: a date contains no U+0000`);
    checked(format);
    const start = timeOf(given ?? { year: 2000, month: 1, day: 1 });
    const found = readTime(spec, text, format, rule, start);
    const rest = text.slice(text.length - found.rest);
    if (specIsWide(spec) ? rest.trim() : found.rest)
      throw new KovaError(
        `${text}: the format ends before the text, at character ${text.length - found.rest + 1}`);
    checkFields(spec, text, found.seen, given);
    const made = dateRead(spec, text, found, given);
    const again = readTime(spec, writeTime(spec, format, timeOf(made)), format, rule, start);
    if (found.fields.some((value, i) => found.seen & (1 << i) && value !== again.fields[i]))
      throw new KovaError(`${text} contradicts the date, ${shownDate(made)}`);
    return made;
  }

  const specIsWide = (spec) => infoOf(spec).charmap === "unicode";

  // ---- Months ----

  /** { year, month, name, day } of a day in the locale's calendar; month counts from 0. */
  function localDay(spec, number) {
    const { year, month, day } = dateOfDay(number);
    const found = other(spec, true, [year, month - 1, -1, day]);
    if (!found) throw new KovaError(`${year}-${month}-${day} is outside the locale's calendar`);
    const [inYear, inMonth, name, inDay] = found;
    return { year: inYear, month: inMonth, name: name < 0 ? inMonth : name, day: inDay };
  }

  function firstOf(spec, year, month) {
    if (isIn(year, 1, 99999) && isIn(month, 1, 20)) {
      const found = other(spec, false, [year, month - 1, -1, 1]);
      const [inYear, inMonth, , inDay] = found ?? [];
      const number = dayNumber({ year: inYear, month: inMonth + 1, day: inDay });
      const local = Number.isNaN(number) ? null : localDay(spec, number);
      if (local?.year === year && local.month === month - 1) return number;
    }
    throw new KovaError(`the locale's calendar has no month ${month} in the year ${year}`);
  }

  function titleOf(spec, first, last) {
    const { alt_mon: names, era } = infoOf(spec), { year, name } = localDay(spec, first);
    const title = `${names[name].trim()} ${year}`;
    if (!era) return title;
    const eras = [first, last].map((number) => {
      try {
        return writeTime(spec, "%EY", timeOf(dateOfDay(number)));
      } catch {
        return "";
      }
    });
    if (!eras.some(Boolean)) return title;
    return `${title} (${eras[0] === eras[1] ? eras[0] : eras.join(" - ")})`;
  }

  /** { first, last } of a month in the Umm al-Qura calendar, or null. The header states the first
   * year with the day on which it begins; then, in lines, three hexadecimal digits for each year,
   * whose highest bit is set if the first month has 30 days. */
  function umalquraOf(spec, { year, name }) {
    const header = headerOf(spec), begin = /^(\d{1,4}) (-?\d{1,5})$/.exec(header.UMALQURA ?? "");
    let digits = "";
    for (let line = 1; header[`UMALQURA_${line}`]; ++line) digits += header[`UMALQURA_${line}`];
    const lengths = (digits.match(/[0-9a-f]{3}/g) ?? []).flatMap((bits) =>
      Array.from({ length: 12 }, (_, i) => 29 + (parseInt(bits, 16) >> (11 - i) & 1)));
    const at = begin ? 12 * (year - Number(begin[1])) + name : -1;
    if (!lengths[at]) return null;
    const day = lengths.slice(0, at).reduce((sum, length) => sum + length, Number(begin[2]));
    return { first: dateOfDay(day), last: dateOfDay(day + lengths[at] - 1) };
  }

  function monthFrom(spec, first) {
    const info = infoOf(spec), { year, month } = localDay(spec, first);
    const start = info.first_weekday - 1;
    const days = Array(((first + 4 - start) % 7 + 7) % 7).fill(null);
    let count = 0, number = first;
    for (; count < 40; ++number) {
      days.push({ day: ++count, date: dateOfDay(number) });
      if (dateOfDay(number + 1).year > 9999) break;
      const next = localDay(spec, number + 1);
      if (next.year !== year || next.month !== month) break;
    }
    while (days.length % 7) days.push(null);
    const turned = (names) => names.map((_, i) => names[(i + start) % 7].trim());
    return {
      title: titleOf(spec, first, number), year, month: month + 1, calendar: info.calendar,
      umalqura: info.calendar === "islamic" ? umalquraOf(spec, localDay(spec, first)) : null,
      firstWeekday: info.first_weekday, weekdays: turned(info.abday),
      weekdayNames: turned(info.day),
      weeks: Array.from({ length: days.length / 7 }, (_, i) => days.slice(7 * i, 7 * i + 7)),
    };
  }

  function calendarOf(locale, when = new Date()) {
    const spec = specOf(locale), number = dayNumber(fieldsOf(when));
    if (Number.isNaN(number)) throw new KovaError("there is no such date");
    return monthFrom(spec, number - localDay(spec, number).day + 1);
  }

  function calendar(locale, year, month) {
    if (year === undefined) return calendarOf(locale);
    const spec = specOf(locale);
    return monthFrom(spec, firstOf(spec, year, month));
  }

  // ---- What a locale says ----

  function item(spec, [first, count]) {
    const one = (number) =>
      text(spec, (loc, out, room) => module.x.web_item(loc, number, out, room));
    if (!count) return one(first);
    const texts = Array.from({ length: count }, (_, i) => one(first + i));
    while (count > 2 && texts.length && !texts.at(-1)) texts.pop(); // the calendar has fewer months
    return texts.map((name) => name ?? "");
  }

  function groups(spec, ofMoney) {
    const sizes = [];
    for (let size; (size = module.withLocale(spec, (loc) =>
      module.x.web_grouping(loc, ofMoney, sizes.length))) > 0;) sizes.push(size);
    return sizes;
  }

  /** The lines NAME=VALUE at the start of the locale's file. */
  function headerOf(spec) {
    const [, language, rest] = /^([^.]*)\.?(.*)$/.exec(spec);
    const [codeset, modifier = ""] = rest.split("@");
    const number = module.withNames([codeset], (name) => module.x.web_codeset_number(name));
    const name = spec === "default.lco" ? spec
      : `${language.toLowerCase()}/${number.toString(16).padStart(4, "0")}${modifier}.lco`;
    const bytes = module.files.get(`lc11/${name}`) ?? bytesOf("");
    const lines = new TextDecoder("latin1").decode(bytes.subarray(0, 8192)).split("\n");
    const count = Number(/^HEADER_LINES=(\d+)$/.exec(lines[2])?.[1] ?? 0);
    return Object.fromEntries(lines.slice(0, count).map((line) => {
      const at = line.indexOf("=");
      return [line.slice(0, at), line.slice(at + 1)];
    }));
  }

  /** The names of months without a day, which the header has as bytes in hexadecimal. */
  function alternative(header, key, codeset) {
    const names = Array.from({ length: 12 }, (_, i) => header[`${key}${i + 1}`]);
    if (names.some((name) => name === undefined)) return null;
    return names.map((hex) => {
      const bytes = Uint8Array.from(hex.match(/../g) ?? [], (byte) => parseInt(byte, 16));
      return kova().decode(bytes, codeset, { keepMark: true });
    });
  }

  function infoOf(spec) {
    const held = known.get(spec);
    if (held) return held;
    const info = {};
    for (const [name, row] of Object.entries(ITEMS)) info[name] = item(spec, row);
    TEXTS.forEach((name, i) => {
      info[name] = text(spec, (loc, out, room) => module.x.web_convention(loc, i, out, room));
    });
    VALUES.forEach((name, i) => {
      const value = module.withLocale(spec, (loc) => module.x.web_value(loc, i));
      info[name] = value === 127 ? null : value;
    });
    Object.assign(info, { grouping: groups(spec, 0), mon_grouping: groups(spec, 1) });
    const header = headerOf(spec), weekday = Number(header.FIRST_WEEKDAY ?? 0);
    info.first_weekday = weekday % 7 + 1; // 1 is Sunday
    info.alt_mon = alternative(header, "ALT_MON_", info.charmap) ?? info.mon;
    info.ab_alt_mon = alternative(header, "AB_ALT_MON_", info.charmap) ?? info.abmon;
    for (const key of ["source", "compiler", "release"])
      info[key] = header[key.toUpperCase()] ?? null;
    known.set(spec, Object.freeze(info));
    return info;
  }

  return { formatNumber, formatMoney, formatDate, parseDate, calendar, calendarOf,
    info: (locale) => infoOf(specOf(locale)) };
}

export { makeFormats };
