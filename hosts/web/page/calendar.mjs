// A month in a locale's own calendar, with the Gregorian days where that is another one.
import { Kova } from "../kova.mjs";
import { $, el, isolated, spoken, fillSelect, langOf, say, queued, needed, localeRows } from "./ui.mjs";

const MONTHS = "Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec".split(" ");
const CALENDARS = { gregorian: "Gregorian", hebrew: "Hebrew", islamic: "Islamic" };

let month = null; // what is shown
let wantedDate = null; // the Gregorian date that a change of the locale keeps in view

function today() {
  const now = new Date();
  return { year: now.getFullYear(), month: now.getMonth() + 1, day: now.getDate() };
}

const isSame = (a, b) => a.year === b.year && a.month === b.month && a.day === b.day;

/** The direction that a locale writes in, seen from the name of the month. */
const directionOf = (text) => /^\P{L}*[\u0590-\u08ff]/u.test(text) ? "rtl" : "ltr";

function dayCell(day, now) {
  if (!day) return el("td", { className: "none" });
  const { date } = day, isToday = isSame(date, now);
  const made = el("td", { className: isToday ? "today" : "" }, el("b", {}, `${day.day}`));
  if (isToday) made.setAttribute("aria-current", "date");
  if (isToday) made.append(spoken(", today"));
  if (month.calendar !== "gregorian")
    made.append(spoken(", Gregorian "), el("small", { dir: "ltr" }, `${date.day} ${MONTHS[date.month - 1]}`));
  return made;
}

function showMonth(locale) {
  const grid = $("calendar-grid"), now = today(), lang = langOf(locale);
  grid.dir = directionOf(month.title);
  $("calendar-title").replaceChildren(isolated(month.title, lang));
  grid.tHead.replaceChildren(el("tr", { lang }, ...month.weekdays.map((name, i) =>
    el("th", { scope: "col", abbr: month.weekdayNames[i], title: month.weekdayNames[i] }, name))));
  grid.tBodies[0].replaceChildren(...month.weeks.map((week) =>
    el("tr", {}, ...week.map((day) => dayCell(day, now)))));
  $("calendar-year").value = month.year;
  $("calendar-month").value = month.month;
  const days = month.weeks.flat().filter(Boolean), [first, last] = [days[0].date, days.at(-1).date];
  const shown = (date) => `${date.year}-${String(date.month).padStart(2, "0")}-${String(date.day).padStart(2, "0")}`;
  const other = month.umalqura;
  $("calendar-note").textContent = `${CALENDARS[month.calendar] ?? month.calendar} calendar, ${days.length} days, ` +
    `from ${shown(first)} to ${shown(last)}${month.calendar === "gregorian" ? "" : " of the Gregorian one"}.` +
    (other ? ` In the Umm al-Qura calendar the month is from ${shown(other.first)} to ${shown(other.last)}.` : "");
}

let find = null; // what the last event asked for

const update = queued("calendar-status", async () => {
  const locale = $("calendar-locale").value;
  await needed(locale);
  month = find(locale);
  const days = month.weeks.flat().filter(Boolean);
  wantedDate = days[Math.floor(days.length / 2)].date;
  showMonth(locale);
  say("calendar-status", $("calendar-title").textContent);
});

/** Shows the month that a function finds in the locale that is chosen. */
function show(finder) {
  find = finder;
  return update();
}

const firstDate = () => month.weeks.flat().find(Boolean).date;
const lastDate = () => month.weeks.flat().findLast(Boolean).date;

/** The Gregorian date so many days later. */
function later({ year, month: number, day }, days) {
  const date = new Date(0);
  date.setUTCFullYear(year, number - 1, day + days);
  return { year: date.getUTCFullYear(), month: date.getUTCMonth() + 1, day: date.getUTCDate() };
}

function startCalendar() {
  fillSelect($("calendar-locale"), localeRows(), "he_IL@hebr");
  const on = (id, event, finder) => $(`calendar-${id}`).addEventListener(event, () => show(finder()));
  const typed = () => {
    const [year, number] = ["year", "month"].map((id) => $(`calendar-${id}`).valueAsNumber);
    return (locale) => Kova.calendar(locale, year, number);
  };
  const now = () => (locale) => Kova.calendarOf(locale, today());
  on("today", "click", now);
  on("before", "click", () => (locale) => Kova.calendarOf(locale, later(firstDate(), -1)));
  on("after", "click", () => (locale) => Kova.calendarOf(locale, later(lastDate(), 1)));
  on("locale", "change", () => (locale) => Kova.calendarOf(locale, wantedDate));
  on("year", "change", typed);
  on("month", "change", typed);
  return show(now());
}

export { startCalendar };
