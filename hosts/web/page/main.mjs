// The page: its tabs, its colours, and the start of the library.
import { Kova } from "../kova.mjs";
import { $, content, say, unpacked } from "./ui.mjs";
import { startOrder } from "./order.mjs";
import { startChart } from "./chart.mjs";
import { startConvert } from "./convert.mjs";
import { startCalendar } from "./calendar.mjs";
import { startFormats } from "./formats.mjs";

const starts = { order: startOrder, chart: startChart, convert: startConvert, calendar: startCalendar, formats: startFormats };
const names = Object.keys(starts), begun = new Map();

// ---- Colours ----

// A page from a file may have no storage.
const stored = {
  get() {
    try {
      return localStorage.getItem("kova-theme");
    } catch {
      return null;
    }
  },
  set(theme) {
    try {
      localStorage.setItem("kova-theme", theme);
    } catch {
      // The choice then holds until the page is closed.
    }
  },
};

function setTheme(theme) {
  if (theme === "auto") delete document.documentElement.dataset.theme;
  else document.documentElement.dataset.theme = theme;
}

function startTheme() {
  const radios = Array.from(document.getElementsByName("theme"));
  const chosen = radios.find(({ value }) => value === stored.get()) ?? radios[0];
  chosen.checked = true;
  setTheme(chosen.value);
  for (const radio of radios) {
    radio.addEventListener("change", () => {
      setTheme(radio.value);
      stored.set(radio.value);
    });
  }
}

// ---- Tabs ----

/** Shows a section; it starts when it is first seen. */
function show(name) {
  for (const other of names) {
    const tab = $(`tab-${other}`), isShown = other === name;
    tab.setAttribute("aria-selected", `${isShown}`);
    tab.tabIndex = isShown ? 0 : -1;
    $(`panel-${other}`).hidden = !isShown;
  }
  if (!begun.has(name)) begun.set(name, starts[name]());
  return begun.get(name);
}

function go(name) {
  history.replaceState(null, "", `#${name}`);
  return show(name);
}

function onTabKey(event) {
  const at = names.indexOf(event.target.id.slice(4)), last = names.length - 1;
  const to = { ArrowRight: at === last ? 0 : at + 1, ArrowLeft: at ? at - 1 : last, Home: 0, End: last }[event.key];
  if (to === undefined) return;
  event.preventDefault();
  $(`tab-${names[to]}`).focus();
  go(names[to]);
}

const named = () => names.find((name) => `#${name}` === location.hash) ?? names[0];

function startTabs() {
  for (const name of names) $(`tab-${name}`).addEventListener("click", () => go(name));
  document.querySelector(".tabs").addEventListener("keydown", onTabKey);
  window.addEventListener("hashchange", () => {
    if (names.includes(location.hash.slice(1))) show(named());
  });
  return show(named());
}

// ---- Start ----

async function start() {
  startTheme();
  await Kova.load({ wasm: await unpacked(content().wasm) });
  globalThis.Kova = Kova; // for the console
  const count = (kind) => content().packs.filter((pack) => pack.kind === kind).length;
  say("about", `${Kova.version}, ${count("locale")} locales and ${count("codeset")} code sets in one file, ` +
    "which asks for nothing else. In the browser's console, Kova is the library.");
  await startTabs();
  document.documentElement.dataset.ready = "yes";
}

start().catch((error) => say("about", `The library could not be started: ${error.message}`, true));
