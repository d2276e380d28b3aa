// What the sections of the page share: elements, packs on demand, and steps that follow each other.
import { Kova } from "../kova.mjs";
import { locales } from "./contents.mjs";

const $ = (id) => document.getElementById(id);

/** An element with properties or attributes, and children; strings among these stay texts. */
function el(name, fields = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(fields)) {
    if (value === undefined) continue;
    if (key in made) made[key] = value;
    else made.setAttribute(key, value);
  }
  made.append(...children);
  return made;
}

/** A text of the user or of a locale, whose direction does not touch what stands around it. */
const isolated = (text, lang) => el("bdi", { dir: "auto", lang }, text);

const spoken = (text) => el("span", { className: "sr" }, text);

function fillSelect(select, rows, chosen) {
  select.replaceChildren(...rows.map(([value, text]) =>
    el("option", { value, selected: value === chosen }, text)));
}

/** "de-DE" of "de_DE@x". */
const langOf = (locale) => locale.replace(/[.@].*/, "").replace("_", "-");
const titleOf = (locale) => locales.find(([name]) => name === locale)?.[1] ?? locale;

const upperHex = (number, width = 2) => number.toString(16).toUpperCase().padStart(width, "0");
const hexOf = (bytes) => Array.from(bytes, (byte) => upperHex(byte)).join(" ");

/** "1 text", "2 texts". */
const counted = (count, word) => `${count} ${word}${count === 1 ? "" : "s"}`;

/** Shows a sentence in a live region; one that is the same is not said again. */
function say(id, text, isError = false) {
  const region = $(id);
  region.classList.toggle("error", isError);
  if (region.textContent !== text) region.textContent = text;
}

/** A step that runs after the one before has ended, so that the last one shows the newest state; its
 * section is busy meanwhile. What it throws is said in a live region. */
function queued(region, step) {
  const section = $(region).closest("section");
  let last = Promise.resolve(), waiting = 0;
  return () => {
    if (waiting > 1) return last; // one that runs, one that will see the newest state
    ++waiting;
    section.ariaBusy = "true";
    last = last.then(step).catch((error) => say(region, error.message, true)).then(() => {
      --waiting;
      if (!waiting) section.ariaBusy = "false";
    });
    return last;
  };
}

/** Calls a step when nothing has asked for it for a moment. */
function calmed(step, pause = 120) {
  let timer = 0;
  return () => {
    clearTimeout(timer);
    timer = setTimeout(step, pause);
  };
}

// ---- Packs ----

let embedded = null; // { wasm, names, packs: [{ kind, name, title, file, data }] }

function content() {
  embedded ??= JSON.parse($("data").textContent);
  return embedded;
}

/** The bytes that are packed and in base64. */
async function unpacked(base64) {
  const bytes = Uint8Array.from(atob(base64), (c) => c.charCodeAt(0));
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream("gzip"));
  return new Response(stream).arrayBuffer();
}

/** Loads a locale or a code set, unless the module has it or needs no pack for it. */
async function needed(...names) {
  for (const name of names) {
    const pack = content().packs.find((row) => row.name === name);
    if (pack?.data) {
      await Kova.load({ data: { [pack.file]: pack.data } });
      pack.data = null;
    }
  }
}

/** Rows of a select: languages, with or without what their dates have of their own. */
const languageRows = () => locales.map(([name, title]) => [name, title]);
const localeRows = () => locales.map(([name, ...titles]) => [name, titles.join(", ")]);

function whenChanged(ids, step, event = "input") {
  for (const id of ids) $(id).addEventListener(event, step);
}

export { $, el, isolated, spoken, fillSelect, langOf, titleOf, upperHex, hexOf, counted, say, queued, calmed,
  content, unpacked, needed, languageRows, localeRows, whenChanged };
