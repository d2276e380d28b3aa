// Numbers, money, dates, months and what a locale says.
import test from "node:test";
import assert from "node:assert/strict";
import { Kova, KovaError } from "./load.mjs";

await Kova.load({ locales: ["de_DE", "ja_JP", "fa_IR", "he_IL@hebr", "ar_SA@islm", "en_US", "th_TH",
  "de_DE.ISO-8859-1"] });

/** Rows of arguments, the last of which is the result, or an expression for the error's text. */
function checkRows(call, rows) {
  for (const row of rows) {
    const args = row.slice(0, -1), wanted = row.at(-1);
    if (wanted instanceof RegExp) {
      assert.throws(() => call(...args), (error) => error instanceof KovaError && wanted.test(error.message),
        args.join(" "));
    } else {
      assert.deepEqual(call(...args), wanted, args.join(" "));
    }
  }
}

test("numbers", () => checkRows(Kova.formatNumber, [
  ["de_DE", 1234567.891, "1.234.567,891"],
  ["de_DE", 0.1, "0,1"],
  ["de_DE", -0, "0"],
  ["de_DE", 1e21, "1.000.000.000.000.000.000.000"],
  ["de_DE", 5e-7, "0,0000005"],
  ["de_DE", -12345678901234567890n, "-12.345.678.901.234.567.890"],
  ["de_DE", "-12345678901234567890.250", "-12.345.678.901.234.567.890,250"],
  ["de_DE.ISO-8859-1", "1234.5", "1.234,5"],
  ["de_DE", "0.125", "%'.2f", "0,12"],
  ["de_DE", "0.375", "x %.2f%% y", "x 0,38% y"],
  ["de_DE", "1234.5", "%.f", "1234,500000"],
  ["de_DE", 255, "%x", "ff"],
  ["de_DE", 12345678901, "%'d", "12.345.678.901"],
  ["de_DE", 4294967296, "%u", /32 bits/],
  ["de_DE", 1.5, "%d", /whole/],
  ["de_DE", "1.5", "%d", /whole/],
  ["de_DE", "abc", /decimal/],
  ["de_DE", "1e999", /digits/],
  ["de_DE", 1, "%s", /directive/],
  ["de_DE", 1, "%d %d", /directive/],
  ["de_DE", 1, "", /directive/],
  ["de_DE", 1, "%d\ud800", /well-formed/],
  ["de_DE", 1.5, "%f\0", /U\+0000/],
]));

test("money", () => checkRows(Kova.formatMoney, [
  ["de_DE", -1234.5, "-1.234,50 €"],
  ["de_DE", "1234.505", "1.234,51 €"],
  ["de_DE", 12345678901234567890n, "12.345.678.901.234.567.890,00 €"],
  ["de_DE", "223449172332826417620886", "223.449.172.332.826.417.620.886,00 €"],
  ["de_DE", 10n ** 40n - 1n, `${"9."}${"999.".repeat(12)}999,00 €`],
  ["de_DE", 3, "%i", "3,00 EUR "],
  ["de_DE", "0.004", "%n", "0,00 €"],
  ["de_DE", 1, "%d", /directive/],
]));

const day = (year, month, day, rest = {}) =>
  ({ year, month, day, hour: 0, minute: 0, second: 0, microsecond: 0, ...rest });

test("dates are written", () => {
  checkRows(Kova.formatDate, [
    ["de_DE", { year: 2026, month: 11, day: 22 }, "22.11.2026"],
    ["de_DE", { year: 2026, month: 11, day: 22 }, "%A, %.1d. %B %Y", "Sonntag, 22. November 2026"],
    ["ja_JP", { year: 1989, month: 1, day: 8 }, "%EY%m月%d日", "平成元年01月08日"],
    ["de_DE", new Date(2024, 1, 29, 13, 5, 9, 250), "%Y-%m-%d %H:%M:%S %j", "2024-02-29 13:05:09 060"],
    ["de_DE", { year: 2026, month: 2, day: 29 }, /no such date/],
    ["de_DE", { year: 2026, month: 2, day: 1, hour: 24 }, /no such date/],
    ["de_DE", { year: 2026, month: 2 }, /no such date/],
    ["de_DE", new Date(NaN), /no such date/],
    ["de_DE", { year: 2026, month: 2, day: 1 }, "%Q", /directive|:/],
  ]);
});

test("dates are read, and refused where they say too little or contradict", () => checkRows(Kova.parseDate, [
  ["de_DE", "22.11.2026", day(2026, 11, 22)],
  ["de_DE", "Sonntag, 22. November 2026", "%A, %d. %B %Y", day(2026, 11, 22)],
  ["de_DE", "2024-060", "%Y-%j", day(2024, 2, 29)],
  ["en_US", "11/22/2026 03:04:05 PM", "%m/%d/%Y %I:%M:%S %p", day(2026, 11, 22, { hour: 15, minute: 4, second: 5 })],
  ["ja_JP", "平成元年01月08日", "%EY%m月%d日", day(1989, 1, 8)],
  ["de_DE", "Montag, 22. November 2026", "%A, %d. %B %Y", /contradicts/],
  ["de_DE", "29.02.2026", "%d.%m.%Y", /./],
  ["de_DE", "22.11.2026 abends", "%d.%m.%Y", /ends before the text, at character 11/],
  ["de_DE", "22.11.", "%d.%m.", /no year/],
  ["de_DE", "22.11.", "%d.%m.", { default: { year: 2026, month: 1, day: 1 } }, day(2026, 11, 22)],
  ["de_DE", "22.11.30", "%d.%m.%y", { century: "past" }, day(1930, 11, 22)],
  ["de_DE", "22.11.30", "%d.%m.%y", { century: "never" }, /century/],
  ["de_DE", "", "%d.%m.%Y", /./],
  ["de_DE", "22.11.2026\0", "%d.%m.%Y", /U\+0000/],
]));

test("months of calendars", () => {
  const rows = [ // locale, year, month: title, calendar, first day of the week, its name, days, first date
    ["de_DE", 2026, 11, "November 2026", "gregorian", 2, "Mo", 30, "2026-11-1", 6],
    ["en_US", 2024, 2, "February 2024", "gregorian", 1, "Sun", 29, "2024-2-1", 4],
  ];
  for (const [locale, year, month, title, calendar, first, name, days, date, empty] of rows) {
    const made = Kova.calendar(locale, year, month), flat = made.weeks.flat();
    assert.deepEqual([made.title, made.calendar, made.firstWeekday, made.weekdays[0]], [title, calendar, first, name]);
    assert.equal(made.weeks.every((week) => week.length === 7), true);
    assert.equal(flat.filter(Boolean).length, days);
    assert.equal(flat.findIndex(Boolean), empty);
    assert.equal(Object.values(flat.find(Boolean).date).join("-"), date);
  }
  for (const locale of ["he_IL@hebr", "ar_SA@islm"]) {
    const made = Kova.calendarOf(locale, { year: 2026, month: 11, day: 22 });
    const same = Kova.calendar(locale, made.year, made.month);
    assert.deepEqual(same, made);
    assert.equal(made.weeks.flat().some((d) => d?.date.month === 11 && d.date.day === 22), true);
    assert.match(made.calendar, /hebrew|islamic/);
  }
  const date = (d) => d && [d.year, d.month, d.day].join("-");
  for (const [year, month, first, last] of [[1299, 12, undefined, undefined], [1300, 1, "1882-11-12", "1882-12-11"],
    [1420, 9, "1999-12-09", "2000-01-07"], [1600, 1, undefined, undefined]]) {
    const { umalqura } = Kova.calendar("ar_SA@islm", year, month), plain = (text) => text?.replaceAll("-0", "-");
    assert.deepEqual([date(umalqura?.first), date(umalqura?.last)], [plain(first), plain(last)], `${year}`);
  }
  checkRows(Kova.calendar, [["de_DE", 2026, 13, /no month/], ["de_DE", 0, 1, /no month/], ["de_DE", 2.5, 1, /no month/]]);
});

test("what a locale says", () => {
  const info = Kova.info("de_DE");
  assert.deepEqual([info.decimal_point, info.grouping, info.day[0], info.first_weekday, info.charmap],
    [",", [3, 3], "Sonntag", 2, "unicode"]);
  assert.equal(Kova.upper("de_DE", "äß\0x"), "Äß\0X");
  assert.equal(Kova.lower("de_DE.ISO-8859-1", "ÄB"), "äb");
  checkRows(Kova.upper, [["de_DE", "\ud800", /./], ["de_DE.ISO-8859-1", "漢", /./]]);
});
