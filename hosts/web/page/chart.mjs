// Charts of code sets: 256 codes in a grid, lead bytes that open more, and the search for a character.
import { Kova } from "../kova.mjs";
import { $, el, isolated, spoken, fillSelect, upperHex, hexOf, say, queued, content, unpacked, needed, whenChanged } from "./ui.mjs";
import { codesets } from "./contents.mjs";

const CONTROLS = ("NUL SOH STX ETX EOT ENQ ACK BEL BS HT LF VT FF CR SO SI DLE DC1 DC2 DC3 DC4 NAK SYN ETB CAN " +
  "EM SUB ESC FS GS RS US").split(" ");
const OTHERS = new Map([[0x20, "SP"], [0x7f, "DEL"], [0x85, "NEL"], [0xa0, "NBSP"], [0xad, "SHY"], [0x200b, "ZWSP"],
  [0x200e, "LRM"], [0x200f, "RLM"], [0x3000, "IDSP"], [0xfeff, "BOM"]]);
const KINDS = { character: "", lead: "lead", shift: "shift", none: "none" };

/** Letters that stand for a character without a shape of its own, or null. */
function abbreviation(text) {
  const code = text.codePointAt(0);
  if (text.length > 2) return null;
  return CONTROLS[code] ?? OTHERS.get(code) ?? (code < 0xa0 && code > 0x7f ? upperHex(code) :
    /^[\p{C}\p{Z}]$/u.test(text) ? upperHex(code, 4) : null);
}

/** The text with a circle below marks that need a letter. */
const drawn = (text) => /^\p{M}/u.test(text) ? `\u25cc${text}` : text;

const isNarrow = matchMedia("(max-width: 34rem)");
const columns = () => isNarrow.matches ? 8 : 16;

const view = { lead: [], cells: [], at: 0 }; // what is shown, and the cell with the focus

// ---- Names ----

let names = null; // of characters, and characters by their names

async function needNames() {
  if (names) return;
  const lines = new TextDecoder().decode(await unpacked(content().names)).split("\n");
  names = new Map(lines.flatMap((line) => {
    const at = line.indexOf(" "), text = String.fromCodePoint(parseInt(line.slice(0, at), 16)), name = line.slice(at + 1);
    return [[text, name], [name, text]];
  }));
}

/** The name of a character, or "". Those of ideographs are made of their numbers. */
function nameOf(character) {
  const digits = upperHex(character.codePointAt(0), 4);
  if (/^(F[9A]..|2F[89A]..)$/.test(digits)) return `CJK COMPATIBILITY IDEOGRAPH-${digits}`;
  return /\p{Unified_Ideograph}/u.test(character) ? `CJK UNIFIED IDEOGRAPH-${digits}` : names.get(character) ?? "";
}

const namesOf = (text) => Array.from(text, nameOf).filter(Boolean).join(" + ");

/** The character that has a name, or undefined. */
function characterOf(name) {
  const number = /^CJK (?:UNIFIED|COMPATIBILITY) IDEOGRAPH-([0-9A-F]{4,5})$/.exec(name);
  return name.length < 2 ? undefined : number ? String.fromCodePoint(parseInt(number[1], 16)) : names.get(name);
}

// ---- One cell ----

function labelOf(cell) {
  if (cell.kind === "lead") return "lead byte, opens more characters";
  if (cell.kind === "shift") return "shift, opens more characters";
  return cell.kind === "none" ? "none" : `${cell.name} ${namesOf(cell.text)}`.trim();
}

function cellElement(cell, i) {
  const made = el("td", { role: "gridcell", tabIndex: -1, className: KINDS[cell.kind], title: `${hexOf(cell.code)} ${labelOf(cell)}`,
    "aria-selected": "false", "data-code": `${i}` });
  if (cell.kind === "lead") made.append(el("span", { "aria-hidden": "true" }, "→"));
  if (cell.kind === "shift") made.append(el("span", { "aria-hidden": "true" }, "⇧"));
  if (cell.kind === "none") made.append(el("span", { "aria-hidden": "true" }, "·"));
  if (cell.kind === "character") {
    const short = abbreviation(cell.text);
    if (short) made.classList.add("control");
    if (cell.oneWay) made.classList.add("oneway");
    made.append(short ?? isolated(drawn(cell.text)));
  }
  made.append(spoken(` ${hexOf(cell.code)}, ${labelOf(cell)}`));
  return made;
}

function showCard(cell) {
  const card = $("chart-card");
  if (cell.kind !== "character") return card.replaceChildren();
  const short = abbreviation(cell.text), rows = [["Bytes", hexOf(cell.code)], ["Character", cell.name]];
  if (namesOf(cell.text)) rows.push(["Name", namesOf(cell.text)]);
  for (const other of ["UTF-8", "UTF-16BE"]) rows.push([other, hexOf(Kova.encode(cell.text, other))]);
  if (cell.oneWay) rows.push(["One way", "the set writes this character in another way"]);
  card.replaceChildren(el("p", { className: `glyph${short ? " control" : ""}` }, short ?? isolated(drawn(cell.text))),
    el("dl", {}, ...rows.flatMap(([name, value]) => [el("dt", {}, name), el("dd", { className: "mono" }, value)])));
}

// ---- The grid ----

function showCrumbs() {
  const steps = view.lead.length ? [[], ...view.lead.map((_, i) => view.lead.slice(0, i + 1))] : [];
  $("chart-crumbs").replaceChildren(...steps.map((lead) => el("button", {
    type: "button", disabled: lead.length === view.lead.length, onclick: () => openLead(lead),
  }, lead.length ? hexOf(lead) : "First bytes")));
}

function showGrid() {
  const set = $("chart-set"), after = view.lead.length ? `, after ${hexOf(view.lead)}` : "";
  $("chart-caption").textContent = `${set.value}${after}`;
  const grid = $("chart-grid"), width = columns(), isWhole = width === 16;
  const cells = view.cells.map(cellElement), starts = Array.from({ length: 256 / width }, (_, i) => i * width);
  grid.tHead.replaceChildren(el("tr", {}, el("td", { className: "none" }), ...Array.from({ length: width }, (_, i) =>
    el("th", { scope: "col" }, `${isWhole ? "_" : "+"}${upperHex(i, 1)}`))));
  const isEmpty = (start) => view.cells.slice(start, start + width).every(({ kind }) => kind === "none");
  grid.tBodies[0].replaceChildren(...starts.map((start) => el("tr", { className: isEmpty(start) ? "empty" : "" },
    el("th", { scope: "row" }, isWhole ? `${upperHex(start >> 4, 1)}_` : upperHex(start)), ...cells.slice(start, start + width))));
  showCrumbs();
}

const cellAt = (place) => $("chart-grid").querySelector(`td[data-code="${place}"]`);

/** Makes a cell the one that Tab reaches and the card describes. */
function choose(place, focus) {
  const before = cellAt(view.at), now = cellAt(place);
  before.tabIndex = -1;
  before.setAttribute("aria-selected", "false");
  now.tabIndex = 0;
  now.setAttribute("aria-selected", "true");
  view.at = place;
  showCard(view.cells[place]);
  if (focus) now.focus();
}

function open(lead, place) {
  view.cells = Kova.chart($("chart-set").value, lead).cells;
  view.lead = lead;
  view.at = place ?? view.cells.findIndex(({ kind, text }) => kind === "character" && !abbreviation(text));
  if (view.at < 0) view.at = Math.max(view.cells.findIndex(({ kind }) => kind !== "none"), 0);
  showGrid();
  choose(view.at, false);
}

function openLead(lead) {
  const from = view.lead[lead.length];
  open(lead, from);
  if (from !== undefined) cellAt(view.at).focus();
}

function enter(place) {
  const { kind } = view.cells[place];
  if (kind !== "lead" && kind !== "shift") return;
  open([...view.lead, place]);
  cellAt(view.at).focus();
}

const MOVES = { ArrowLeft: (at) => at - 1, ArrowRight: (at) => at + 1, ArrowUp: (at, width) => at - width,
  ArrowDown: (at, width) => at + width, Home: (at, width) => at - at % width, End: (at, width) => at - at % width + width - 1,
  PageUp: (at, width) => at % width, PageDown: (at, width) => 256 - width + at % width };

function onKey(event) {
  if (event.altKey || event.ctrlKey || event.metaKey || !event.target.dataset.code) return;
  const to = MOVES[event.key]?.(view.at, columns());
  if (to !== undefined && to >= 0 && to < 256) choose(to, true);
  else if (event.key === "Enter" || event.key === " ") enter(view.at);
  else if (event.key === "Backspace" && view.lead.length) openLead(view.lead.slice(0, -1));
  else if (to === undefined) return;
  event.preventDefault();
}

function onClick(event) {
  const cell = event.target.closest("td[data-code]");
  if (!cell) return;
  choose(Number(cell.dataset.code), true);
  enter(view.at);
}

// ---- Search ----

/** What was typed: { text } or { bytes }, or null. */
function wanted(typed) {
  const byName = characterOf(typed.toUpperCase());
  if (byName) return { text: byName };
  const number = /^U\+([0-9a-f]{1,6})$/i.exec(typed), hex = /^0x((?:[0-9a-f]{2}\s*)+)$/i.exec(typed);
  if (number && parseInt(number[1], 16) < 0x110000) return { text: String.fromCodePoint(parseInt(number[1], 16)) };
  if (hex) return { bytes: hex[1].match(/[0-9a-f]{2}/gi).map((byte) => parseInt(byte, 16)) };
  return typed ? { text: typed } : null;
}

/** Opens the chart that bytes lead to and returns the cell, or null where they are no single code. */
function follow(set, bytes) {
  for (let lead = 0; lead < bytes.length; ++lead) {
    const start = bytes.slice(0, lead), cell = Kova.chart(set, start).cells[bytes[lead]], isLast = lead === bytes.length - 1;
    if (cell.kind === "none" || (cell.kind === "character" && !isLast && !isReset(set, bytes.slice(lead + 1)))) return null;
    if (cell.kind === "character" || isLast) {
      open(start, bytes[lead]);
      cellAt(view.at).scrollIntoView({ block: "nearest" });
      return cell;
    }
  }
  return null;
}

/** Whether bytes only lead back from a shifted state. */
const isReset = (set, bytes) => bytes.length === 1 && Kova.chart(set).cells[bytes[0]].kind === "shift";

/** The beginning of a text that is searched as one character. */
function firstOf(text) {
  const parts = globalThis.Intl?.Segmenter ? Array.from(new Intl.Segmenter().segment(text), ({ segment }) => segment) : [...text];
  return parts[0];
}

const named = (text, name) => /^\p{C}/u.test(text) ? name : `${text} ${name}`;

function findBytes(set, bytes) {
  const cell = follow(set, bytes), many = bytes.length > 1 ? "single " : "";
  if (!cell) return say("chart-status", `${hexOf(bytes)} is no ${many}character of ${set}.`, true);
  return say("chart-status", `${hexOf(bytes)} is ${cell.text ? named(cell.text, cell.name) : labelOf(cell)} in ${set}.`);
}

function findText(set, text) {
  let bytes = null;
  try {
    bytes = Array.from(Kova.encode(text, set));
  } catch (error) {
    if (!(error instanceof Kova.ConversionError)) throw error;
    return say("chart-status", `${set} has no ${named(text, error.characterName)}.`, true);
  }
  const cell = follow(set, bytes);
  if (!cell) return say("chart-status", `${set} writes ${text} as ${hexOf(bytes)}, which is no single code.`, true);
  return say("chart-status", `${named(cell.text, cell.name)} is ${hexOf(cell.code)} in ${set}.`);
}

function find() {
  const set = $("chart-set").value, typed = $("chart-search").value, sought = wanted(typed.trim() || typed);
  if (!sought) return say("chart-status", "Type a character, a number such as U+20AC, or bytes such as 0x80.");
  return sought.bytes ? findBytes(set, sought.bytes) : findText(set, firstOf(sought.text));
}

const showChart = queued("chart-status", async () => {
  await needed($("chart-set").value);
  await needNames();
  open([]);
  say("chart-status", "");
});

const findChart = queued("chart-status", async () => {
  await needed($("chart-set").value);
  find();
});

function startChart() {
  fillSelect($("chart-set"), codesets.map(([name, title]) => [name, `${name}, ${title}`]), "IBM037");
  whenChanged(["chart-set"], () => ($("chart-search").value ? showChart().then(findChart) : showChart()), "change");
  $("chart-form").addEventListener("submit", (event) => {
    event.preventDefault();
    findChart();
  });
  $("chart-grid").addEventListener("keydown", onKey);
  $("chart-grid").addEventListener("click", onClick);
  isNarrow.addEventListener("change", () => {
    showGrid();
    choose(view.at, false);
  });
  return showChart();
}

export { startChart };
