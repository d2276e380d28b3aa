// Conversion of a text or of bytes, both ends in hexadecimal, and every place that cannot be converted.
import { Kova } from "../kova.mjs";
import { $, el, isolated, spoken, fillSelect, upperHex, hexOf, counted, say, queued, calmed, needed, whenChanged } from "./ui.mjs";
import { codesets, unicodes } from "./contents.mjs";

const BYTES_MOST = 2048; // of a text that are shown
const ERRORS_MOST = 100; // rows
const WHY = { illegal: "no character", incomplete: "cut off by the end", unmappable: "the target lacks it",
  approximate: "the target has only something like it" };
const START = "Grüße aus Łódź: 5 €, 日本";

let file = null; // bytes of a file, in place of what was typed
let made = new Uint8Array(0);

const isBytes = () => $("convert-kind-bytes").checked;

/** Bytes that were typed in hexadecimal, however they are grouped. */
function typedBytes(text) {
  const digits = text.replace(/0x|\\x|[\s,;:]/gi, "");
  const wrong = /[^0-9a-f]/i.exec(digits);
  if (wrong) throw new Error(`${wrong[0]} is no hexadecimal digit.`);
  if (digits.length % 2) throw new Error("The last byte has only one digit.");
  return Uint8Array.from(digits.match(/../g) ?? [], (byte) => parseInt(byte, 16));
}

function source(from) {
  if (file) return file;
  const text = $("convert-text").value;
  if (isBytes()) return typedBytes(text);
  try {
    return Kova.encode(text, from);
  } catch (error) {
    if (!(error instanceof Kova.ConversionError)) throw error;
    const { character, characterName } = error;
    throw new Error(`${from} has no ${character ? `${character} ` : ""}${characterName}, which is in the text.`);
  }
}

/** How many places cannot be converted, and the first of them. */
function problemsOf(bytes, from, to) {
  const first = [];
  let count = 0;
  const note = (error) => {
    if (++count <= BYTES_MOST) first.push(error);
    return "";
  };
  Kova.convert(bytes, from, to, { errors: note });
  return { first, count };
}

// ---- Views ----

const isWide = matchMedia("(min-width: 75rem)");

function shownByte(byte) {
  return byte > 0x20 && byte < 0x7f ? String.fromCharCode(byte) : byte === 0x20 ? " " : "·";
}

/** A row of the hexadecimal view; marks are pairs of places. */
function hexRow(bytes, start, width, marks) {
  const part = bytes.subarray(start, start + width), cells = el("td");
  part.forEach((byte, i) => {
    const at = start + i, mark = marks.find(([first, end]) => at >= first && at < end), digits = upperHex(byte);
    cells.append(mark ? el("mark", {}, ...(mark[0] === at ? [spoken("error: ")] : []), digits) : digits, " ");
  });
  return el("tr", {}, el("th", { scope: "row" }, upperHex(start, 4)), cells,
    el("td", { "aria-hidden": "true" }, Array.from(part, shownByte).join("")));
}

function showHex(table, bytes, marks = []) {
  const width = isWide.matches ? 16 : 8, rows = [];
  for (let at = 0; at < Math.min(bytes.length, BYTES_MOST); at += width) rows.push(hexRow(bytes, at, width, marks));
  table.replaceChildren(el("tbody", {}, ...rows));
}

const lengthText = (bytes) => counted(bytes.length, "byte") +
  (bytes.length > BYTES_MOST ? `, the first ${BYTES_MOST} are shown` : "");

function showProblems({ first, count }) {
  $("convert-problems").hidden = !count;
  $("convert-rows").replaceChildren(...first.slice(0, ERRORS_MOST).map((error) => el("tr", {},
    el("th", { scope: "row" }, `${error.offset}`), el("td", {}, isolated(error.character ?? "–")), el("td", { className: "mono" }, error.characterName),
    el("td", { className: "mono" }, hexOf(error.bytes)), el("td", {}, WHY[error.reason]))));
  $("convert-more").textContent = count > ERRORS_MOST ? `The first ${ERRORS_MOST} of ${count} are shown.` : "";
}

/** The result as a text; parts that are none stand as U+FFFD. */
function showPlain(bytes, to) {
  const part = bytes.subarray(0, BYTES_MOST);
  $("convert-plain").textContent = Kova.decode(part, to, { errors: "replace" });
}

// ---- Steps ----

function result(bytes, from, to, errors) {
  try {
    return { bytes: Kova.convert(bytes, from, to, { errors }), stop: null };
  } catch (error) {
    if (!(error instanceof Kova.ConversionError)) throw error;
    return { bytes: error.converted, stop: error };
  }
}

function clear() {
  made = new Uint8Array(0);
  showProblems({ first: [], count: 0 });
  for (const id of ["convert-source", "convert-result", "convert-plain"]) $(id).replaceChildren();
  $("convert-source-title").textContent = "Source";
  $("convert-result-title").textContent = "Result";
}

const updateConversion = queued("convert-status", async () => {
  const from = $("convert-from").value, to = $("convert-to").value;
  await needed(from, to);
  clear();
  const bytes = source(from), problems = problemsOf(bytes, from, to);
  const done = result(bytes, from, to, $("convert-errors").value);
  made = done.bytes;
  showProblems(problems);
  showHex($("convert-source"), bytes, problems.first.map(({ offset, length }) => [offset, offset + length]));
  showHex($("convert-result"), made);
  showPlain(made, to);
  $("convert-source-title").textContent = `Source in ${from}: ${lengthText(bytes)}`;
  $("convert-result-title").textContent = `Result in ${to}: ${lengthText(made)}`;
  if (done.stop) {
    const { offset, character, characterName: name, reason } = done.stop;
    return say("convert-status", `Stopped at byte ${offset}: ${character ? `${character} ` : ""}${name}, ${WHY[reason]}.`, true);
  }
  return say("convert-status", problems.count ? `Converted; ${counted(problems.count, "place")} could not be.` : "Converted without a loss.");
});

function changeKind() {
  const text = $("convert-text");
  dropFile();
  try {
    const from = $("convert-from").value;
    text.value = isBytes() ? hexOf(Kova.encode(text.value, from)) : Kova.decode(typedBytes(text.value), from);
  } catch {
    text.value = "";
  }
  labelText();
  return updateConversion();
}

function labelText() {
  $("convert-label").textContent = isBytes() ? "Bytes, such as C3 A9 20" : "Text";
  $("convert-text").classList.toggle("mono", isBytes());
}

/** Takes the bytes of a file until something is typed. */
async function takeFile() {
  const chosen = $("convert-file").files[0], text = $("convert-text");
  file = chosen ? new Uint8Array(await chosen.arrayBuffer()) : null;
  text.value = "";
  text.placeholder = chosen ? `The bytes of ${chosen.name} are converted.` : "";
  return updateConversion();
}

function dropFile() {
  file = null;
  $("convert-file").value = "";
  $("convert-text").placeholder = "";
}

/** Gives the result as a file, by a link that is followed once. */
function save() {
  const url = URL.createObjectURL(new Blob([made]));
  el("a", { href: url, download: `converted.${$("convert-to").value}.txt` }).click();
  setTimeout(() => URL.revokeObjectURL(url), 1000);
}

function startConvert() {
  const rows = [...unicodes.map((name) => [name, name]), ...codesets.map(([name, title]) => [name, `${name}, ${title}`])];
  fillSelect($("convert-from"), rows, "UTF-8");
  fillSelect($("convert-to"), rows, "CP1252");
  $("convert-text").value = START;
  whenChanged(["convert-text"], dropFile);
  whenChanged(["convert-text"], calmed(updateConversion));
  whenChanged(["convert-from", "convert-to", "convert-errors"], updateConversion, "change");
  whenChanged(["convert-kind-text", "convert-kind-bytes"], changeKind, "change");
  whenChanged(["convert-file"], takeFile, "change");
  $("convert-save").addEventListener("click", save);
  isWide.addEventListener("change", updateConversion);
  return updateConversion();
}

export { startConvert };
