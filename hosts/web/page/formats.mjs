// Numbers, money and dates as a locale writes them, and dates read back.
import { Kova } from "../kova.mjs";
import { $, el, isolated, fillSelect, langOf, say, queued, calmed, needed, localeRows, whenChanged } from "./ui.mjs";

const FIXED = [
  ["number", "Number", undefined], ["number", "Two places", "%'.2f"], ["number", "With an exponent", "%.3e"],
  ["money", "Money", "%n"], ["money", "Money with its code", "%i"], ["money", "Accounting", "%(n"],
  ["date", "Date", "%x"], ["date", "Time", "%X"], ["date", "Date and time", "%c"], ["date", "In words", "%A, %d %B %Y"],
];
const OF_ERA = ["date", "By its era", "%Ex"];

const writers = {
  number: (locale, format) => Kova.formatNumber(locale, numberText("formats-number"), format),
  money: (locale, format) => Kova.formatMoney(locale, numberText("formats-money"), format),
  date: (locale, format) => Kova.formatDate(locale, dateTyped(), format),
};

/** A decimal number as it was typed, so that no digit is lost. */
function numberText(id) {
  const text = $(id).value.trim();
  if (!/^[+-]?(\d+\.?\d*|\.\d+)$/.test(text)) throw new Error("type digits with a point, such as -1234.5");
  return text;
}

function dateTyped() {
  const found = /^(\d+)-(\d+)-(\d+)T(\d+):(\d+)(?::(\d+))?/.exec($("formats-date").value);
  if (!found) throw new Error("choose a date and a time");
  const [year, month, day, hour, minute, second = 0] = found.slice(1).map((part) => Number(part ?? 0));
  return { year, month, day, hour, minute, second };
}

function written(locale, [kind, , format]) {
  try {
    return { text: writers[kind](locale, format) };
  } catch (error) {
    return { error: error.message };
  }
}

function formatRow(locale, row) {
  const { text, error } = written(locale, row);
  return el("tr", {}, el("th", { scope: "row" }, row[1]), el("td", {}, row[2] === undefined ? "–" : el("code", {}, row[2])),
    error === undefined ? el("td", {}, isolated(text, langOf(locale))) : el("td", { className: "error" }, `⚠ ${error}`));
}

const own = () => ["number", "money", "date"].map((kind) => [kind, `Your ${kind} format`, $(`formats-own-${kind}`).value])
  .filter(([, , format]) => format);

function showRead(locale) {
  const text = $("formats-read").value, format = $("formats-read-format").value;
  const region = $("formats-read-result");
  region.classList.remove("error");
  if (!text) return region.replaceChildren();
  try {
    const read = Kova.parseDate(locale, text, format), two = (number) => String(number).padStart(2, "0");
    const iso = `${String(read.year).padStart(4, "0")}-${two(read.month)}-${two(read.day)}`;
    const clock = read.hour || read.minute || read.second ? ` ${two(read.hour)}:${two(read.minute)}:${two(read.second)}` : "";
    region.replaceChildren(`${iso}${clock}: `, isolated(Kova.formatDate(locale, read, "%A"), langOf(locale)));
  } catch (error) {
    say("formats-read-result", error.message, true);
  }
}

const updateFormats = queued("formats-status", async () => {
  const locale = $("formats-locale").value;
  await needed(locale);
  const rows = [...FIXED, ...(Kova.info(locale).era ? [OF_ERA] : []), ...own()];
  $("formats-rows").replaceChildren(...rows.map((row) => formatRow(locale, row)));
  showRead(locale);
  say("formats-status", "");
});

/** With another locale the text to read is today's date in it. */
const changeLocale = queued("formats-status", async () => {
  const locale = $("formats-locale").value;
  await needed(locale);
  $("formats-read").value = Kova.formatDate(locale, dateTyped(), "%x");
  $("formats-read-format").value = "%x";
  return updateFormats();
});

function startFormats() {
  const now = new Date();
  fillSelect($("formats-locale"), localeRows(), "de_DE");
  $("formats-date").value = new Date(now.getTime() - 60000 * now.getTimezoneOffset()).toISOString().slice(0, 19);
  whenChanged(["formats-locale"], changeLocale, "change");
  whenChanged(["formats-number", "formats-money", "formats-date", "formats-own-number", "formats-own-money",
    "formats-own-date", "formats-read", "formats-read-format"], calmed(updateFormats));
  return changeLocale();
}

export { startFormats };
