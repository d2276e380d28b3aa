// One list in two orders, side by side, and what moved between them.
import { Kova } from "../kova.mjs";
import { $, el, isolated, spoken, fillSelect, langOf, titleOf, hexOf, counted, say, queued, calmed, needed,
  languageRows, whenChanged } from "./ui.mjs";

const BY_CODE = ""; // in place of a locale
const ROWS_MOST = 400; // that are shown
const KEYS_MOST = 40;

const samples = [
  ["Surnames of the north", "de_DE", "sv_SE",
    "Zetterberg Ödmark Oster Åkesson Ärlig Arnold Müller Muller Øster Zorn Vogel Ähnlich"],
  ["Czech words with ch", "en_US", "cs_CZ",
    "chata cena čaj duha hora ibis hrad chléb citron cvrček had Řím rak robot řeka šála sova"],
  ["Danish towns", "en_US", "da_DK", "Aarhus Aalborg Ærø Odense Ørsted Viborg Ålbæk Esbjerg Aabenraa Zealand Abild"],
  ["Turkish words", "en_US", "tr_TR", "ılık iyi ırmak ince ıslak İzmir Isparta için gül göl gol çay cam şeker su"],
  ["French accents", "en_US", "fr_CA", "cote coté côte côté péché pêche pèche pécher élevé élève"],
  ["Letters alone, and by locale", BY_CODE, "de_DE", "Zebra apfel Äpfel Apfel zebra straße Strasse Straße 10 9 übel Ubel"],
  ["Japanese names", BY_CODE, "ja_JP", "さとう サトウ すずき スズキ がっこう かっこう カッコウ はは ぱぱ ばば ハハ ー あ ア"],
  ["Hebrew with points", BY_CODE, "he_IL@hebr", "שלום שָׁלוֹם אב אָב אבא בית בַּיִת דבר דָּבָר דִּבֵּר ירושלים"],
  ["Thai words", BY_CODE, "th_TH", "เกม กา แก ไก่ ขา เขา แขก กลอง เก่า เกา ใจ จาน"],
];

const nameOfOrder = (locale) => locale === BY_CODE ? "By code" : titleOf(locale);

/** The places of the most items that keep their sequence: a longest rising part of the numbers. */
function keptPlaces(numbers) {
  const ends = [], before = numbers.map(() => -1);
  numbers.forEach((number, at) => {
    let low = 0, high = ends.length;
    while (low < high) {
      const middle = (low + high) >> 1;
      if (numbers[ends[middle]] < number) low = middle + 1;
      else high = middle;
    }
    if (low) before[at] = ends[low - 1];
    ends[low] = at;
  });
  const kept = new Set();
  for (let at = ends.at(-1) ?? -1; at >= 0; at = before[at]) kept.add(at);
  return kept;
}

const collators = new Map();

function collatorOf(locale) {
  if (!collators.has(locale)) collators.set(locale, new Kova.Collator(locale));
  return collators.get(locale);
}

/** A unit of UTF-16 as it counts in the order of code points: surrogates come last. */
const rankOf = (unit) => unit >= 0xe000 ? unit - 0x800 : unit >= 0xd800 ? unit + 0x2000 : unit;

function byCode(a, b) {
  const both = Math.min(a.length, b.length);
  let at = 0;
  while (at < both && a[at] === b[at]) ++at;
  return at === both ? a.length - b.length : rankOf(a.charCodeAt(at)) - rankOf(b.charCodeAt(at));
}

/** Numbers of the texts in a locale's order. */
function orderOf(locale, texts) {
  const numbers = texts.map((_, i) => i);
  if (locale === BY_CODE) return numbers.sort((a, b) => byCode(texts[a], texts[b]) || a - b);
  return collatorOf(locale).sorted(numbers, (i) => texts[i]);
}

/** Both orders, and the places on the right whose texts moved. */
function compared(texts, left, right) {
  const one = orderOf(left, texts), two = orderOf(right, texts);
  const placeOf = new Map(one.map((number, place) => [number, place]));
  const from = two.map((number) => placeOf.get(number));
  const kept = keptPlaces(from);
  return { one, two, from, isMoved: (place) => !kept.has(place), count: two.length - kept.size };
}

function item(text, place, lang, from) {
  const made = el("li", {}, el("span", { className: "place", "aria-hidden": "true" }, `${place + 1}`), isolated(text, lang));
  if (from === null) return made;
  made.className = "moved";
  const up = from > place;
  if (from !== place)
    made.append(el("span", { className: "chip", "aria-hidden": "true" }, `${up ? "▲" : "▼"} ${Math.abs(from - place)}`));
  made.append(spoken(from === place ? ", moved against its neighbours" : `, moved ${up ? "up" : "down"} by ${Math.abs(from - place)}`));
  return made;
}

function showLists(texts, found, locales) {
  const { one, two, from, isMoved } = found;
  const movedNumbers = new Set(two.filter((_, place) => isMoved(place)));
  const [leftLang, rightLang] = locales.map((locale) => locale === BY_CODE ? undefined : langOf(locale));
  $("order-left-list").replaceChildren(...one.slice(0, ROWS_MOST).map((number, place) => {
    const made = item(texts[number], place, leftLang, null);
    made.classList.toggle("moved", movedNumbers.has(number));
    return made;
  }));
  $("order-right-list").replaceChildren(...two.slice(0, ROWS_MOST).map((number, place) =>
    item(texts[number], place, rightLang, isMoved(place) ? from[place] : null)));
  $("order-more").textContent = texts.length > ROWS_MOST
    ? `The first ${ROWS_MOST} of ${texts.length} texts are shown; all of them are sorted.` : "";
}

let shown = null; // what the lines are drawn from

/** Lines from each text on the left to the same text on the right. */
function drawLines() {
  const svg = $("order-lines"), box = svg.getBoundingClientRect();
  svg.replaceChildren();
  if (!shown || !box.width) return;
  const middles = (list) => Array.from($(list).children, (row) => {
    const { top, height } = row.getBoundingClientRect();
    return top + height / 2 - box.top;
  });
  const left = middles("order-left-list"), right = middles("order-right-list");
  const lines = shown.from.slice(0, ROWS_MOST).map((from, place) => {
    if (left[from] === undefined) return null;
    const path = document.createElementNS("http://www.w3.org/2000/svg", "path"), w = box.width;
    path.setAttribute("d", `M2 ${left[from]} C${w / 2} ${left[from]} ${w / 2} ${right[place]} ${w - 2} ${right[place]}`);
    if (shown.isMoved(place)) path.setAttribute("class", "moved");
    return path;
  }).filter(Boolean);
  svg.append(...lines.sort((a, b) => a.classList.length - b.classList.length));
}

function keyCell(locale, text) {
  if (locale === BY_CODE) return el("td", {}, el("code", {}, hexOf(new TextEncoder().encode(text))));
  return el("td", {}, el("code", {}, hexOf(collatorOf(locale).key(text))));
}

function showKeys(texts, { two }, locales) {
  if (!$("order-keys").open) return;
  $("keys-left").textContent = nameOfOrder(locales[0]);
  $("keys-right").textContent = nameOfOrder(locales[1]);
  $("order-key-rows").replaceChildren(...two.slice(0, KEYS_MOST).map((number) =>
    el("tr", {}, el("th", { scope: "row" }, isolated(texts[number])),
      ...locales.map((locale) => keyCell(locale, texts[number])))));
  const versions = locales.filter(Boolean).map((locale) => `${titleOf(locale)}: order ${collatorOf(locale).version}`);
  if (two.length > KEYS_MOST) versions.unshift(`The first ${KEYS_MOST} of ${two.length} texts`);
  $("order-versions").textContent = `${versions.join(". ")}.`;
}

const updateOrder = queued("order-status", async () => {
  const locales = [$("order-left").value, $("order-right").value];
  await needed(...locales);
  const texts = $("order-text").value.split("\n").filter((text) => text.trim());
  const found = compared(texts, ...locales);
  shown = found;
  ["left", "right"].forEach((side, i) =>
    $(`order-${side}-list`).setAttribute("aria-label", `${nameOfOrder(locales[i])}, ${counted(texts.length, "text")}`));
  showLists(texts, found, locales);
  drawLines();
  showKeys(texts, found, locales);
  const what = !texts.length ? "There is nothing to sort." : !found.count
    ? `${counted(texts.length, "text")}; both orders are the same.`
    : `${counted(texts.length, "text")}, ${found.count} of them moved.`;
  say("order-status", what);
});

function takeSample() {
  const [, left, right, words] = samples[Number($("order-sample").value)];
  $("order-text").value = words.replaceAll(" ", "\n");
  $("order-left").value = left;
  $("order-right").value = right;
  return updateOrder();
}

function swapOrders() {
  const left = $("order-left"), right = $("order-right");
  [left.value, right.value] = [right.value, left.value];
  updateOrder();
}

function startOrder() {
  const rows = [...languageRows(), [BY_CODE, nameOfOrder(BY_CODE)]];
  fillSelect($("order-left"), rows);
  fillSelect($("order-right"), rows);
  fillSelect($("order-sample"), samples.map(([title], i) => [`${i}`, title]));
  whenChanged(["order-text"], calmed(updateOrder));
  whenChanged(["order-left", "order-right"], updateOrder, "change");
  whenChanged(["order-sample"], takeSample, "change");
  $("order-swap").addEventListener("click", swapOrders);
  $("order-keys").addEventListener("toggle", updateOrder);
  new ResizeObserver(drawLines).observe($("order-slopes"));
  return takeSample();
}

export { startOrder };
