// The page in headless Chromium: what people do in it, by mouse and by keyboard, and how it looks.
// KOVA_PAGE names the page, KOVA_PICTURES a folder for pictures of it.
import test, { after, before } from "node:test";
import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { fileURLToPath, pathToFileURL } from "node:url";
import { noteOrder } from "../../tests/orders.mjs";
import { launch } from "./browser.mjs";

const { KOVA_PAGE, KOVA_PICTURES: pictures, KOVA_HOST_ORDER: hostOrder, KOVA_PAGE_ROOT: root } = process.env;
const page = pathToFileURL(KOVA_PAGE ?? fileURLToPath(new URL("../../../../build/web/kova.html", import.meta.url))).href;
const SECTIONS = ["order", "chart", "convert", "calendar", "formats"];

let browser;
before(async () => { browser = await launch(); });
after(() => browser.close());

const run = (code, ...args) => browser.run(code, ...args);
const textOf = (id) => run((name) => document.getElementById(name).textContent, id);

async function open(section, width = 1080, height = 930, dark = false) {
  await browser.size(width, height, dark);
  await browser.open("about:blank", "true");
  await browser.open(`${page}#${section}`);
}

/** Changes controls as a person would. */
const set = (values) => run((all) => {
  for (const [id, value] of Object.entries(all)) {
    const control = document.getElementById(id);
    if (control.type === "radio") control.checked = value;
    else control.value = value;
    for (const name of ["input", "change"]) control.dispatchEvent(new Event(name, { bubbles: true }));
  }
}, values);

/** The value of a function in the page once it is the wanted one; otherwise the last one is shown. */
async function becomes(wanted, what, code, ...args) {
  let got;
  for (const end = Date.now() + 5000; Date.now() < end; await new Promise((next) => setTimeout(next, 20))) {
    got = await run(code, ...args);
    if (JSON.stringify(got) === JSON.stringify(wanted)) return;
  }
  assert.deepEqual(got, wanted, what);
}

const settled = () => becomes(0, "busy sections", () => document.querySelectorAll('[aria-busy="true"]').length);
const says = (id, wanted) => becomes(wanted, id, (name) => document.getElementById(name).textContent, id);

test("a list is shown in two orders, with what moved", async () => {
  await open("order");
  const rows = [
    ["Zebra Äpfel Apfel Öl Oase", "de_DE", "sv_SE", "Apfel Äpfel Oase Öl Zebra", "Apfel Oase Zebra Äpfel Öl", 2],
    ["chata cena had", "en_US", "cs_CZ", "cena chata had", "cena had chata", 1],
    ["b a a", "de_DE", "sv_SE", "a a b", "a a b", 0],
    ["B a 😀 ｚ", "", "de_DE", "B a ｚ 😀", "a B ｚ 😀", 1],
    ["<b>&amp;</b>", "de_DE", "sv_SE", "<b>&amp;</b>", "<b>&amp;</b>", 0],
  ];
  for (const [words, left, right, one, two, moved] of rows) {
    const texts = words.split(" ");
    await set({ "order-left": left, "order-right": right, "order-text": texts.join("\n") });
    await becomes([one, two, moved, moved], words, () => {
      const list = (side) => Array.from(document.querySelectorAll(`#order-${side}-list bdi`), (e) => e.textContent).join(" ");
      const count = (side) => document.querySelectorAll(`#order-${side}-list .moved`).length;
      return [list("left"), list("right"), count("left"), count("right")];
    });
    await says("order-status", `${texts.length} text${texts.length > 1 ? "s" : ""}` +
      (moved ? `, ${moved} of them moved.` : "; both orders are the same."));
  }
  const many = Array.from({ length: 450 }, (_, i) => `x${i}`).join("\n");
  await set({ "order-left": "de_DE", "order-text": many });
  await says("order-more", "The first 400 of 450 texts are shown; all of them are sorted.");
  await set({ "order-text": "Apfel" });
  await run(() => document.querySelector("#order-keys summary").click());
  const key = await run(() => Array.from(new Kova.Collator("sv_SE").key("Apfel"), (b) => b.toString(16).padStart(2, "0").toUpperCase()).join(" "));
  await becomes(key, "key", () => document.querySelector("#order-key-rows td:last-child")?.textContent);
});

test("a chart finds characters by themselves, numbers and bytes", async () => {
  await open("chart");
  const rows = [
    ["CP1252", "€", "€ U+20AC is 80 in CP1252.", "80", "EURO SIGN"],
    ["CP1252", "euro sign", "€ U+20AC is 80 in CP1252.", "80", "EURO SIGN"],
    ["IBM037", "€", "IBM037 has no € U+20AC.", null],
    ["SHIFT_JIS", "あ", "あ U+3042 is 82 A0 in SHIFT_JIS.", "82 A0", "HIRAGANA LETTER A"],
    ["IBM939", "あ", "あ U+3042 is 0E 44 81 in IBM939.", "0E 44 81", "HIRAGANA LETTER A"],
    ["GBK", "u+6f22", "漢 U+6F22 is 9D 68 in GBK.", "9D 68", "CJK UNIFIED IDEOGRAPH-6F22"],
    ["BIG5", "CJK unified ideograph-6F22", "漢 U+6F22 is BA 7E in BIG5.", "BA 7E", "CJK UNIFIED IDEOGRAPH-6F22"],
    ["BIG5", "cjk compatibility ideograph-fa0c", "\ufa0c U+FA0C is C9 4A in BIG5.", "C9 4A", "CJK COMPATIBILITY IDEOGRAPH-FA0C"],
    ["CP1252", "0x81", "81 is U+0081 in CP1252.", "81"],
    ["ISO-8859-7", "0xFF", "FF is no character of ISO-8859-7.", null],
    ["SHIFT_JIS", "0x82 A0 41", "82 A0 41 is no single character of SHIFT_JIS.", null],
    ["IBM037", "0xC1", "C1 is A U+0041 in IBM037.", "C1"],
    ["CP1252", "", "Type a character, a number such as U+20AC, or bytes such as 0x80.", null],
  ];
  for (const [name, sought, said, bytes, full] of rows) {
    await set({ "chart-search": sought, "chart-set": name });
    await run(() => document.getElementById("chart-form").requestSubmit());
    await says("chart-status", said);
    if (bytes) assert.equal(await run(() => document.querySelector("#chart-card dd").textContent), bytes, said);
    if (!full) continue;
    assert.equal(await run(() => document.querySelector("#chart-card dd:nth-of-type(3)").textContent), full, said);
    assert.match(await run(() => document.querySelector('#chart-grid [aria-selected="true"] .sr').textContent), new RegExp(full));
  }
});

test("the chart is walked through by keys", async () => {
  await open("chart");
  await set({ "chart-set": "SHIFT_JIS" });
  await says("chart-caption", "SHIFT_JIS");
  await run(() => document.querySelector('#chart-grid td[tabindex="0"]').focus());
  const at = () => run(() => document.activeElement.dataset.code);
  for (const [key, wanted] of [["Home", 0x20], ["ArrowUp", 0x10], ["ArrowLeft", 0x0f], ["ArrowRight", 0x10], ["End", 0x1f],
    ["PageDown", 0xff], ["ArrowDown", 0xff], ["PageUp", 0x0f]]) {
    await browser.press(key);
    assert.equal(await at(), `${wanted}`, key);
  }
  for (let i = 0; i < 8; ++i) await browser.press("ArrowDown");
  await browser.press("Enter"); // 8F
  await says("chart-caption", "SHIFT_JIS, after 8F");
  assert.notEqual(await at(), undefined);
  await browser.press("Backspace");
  await says("chart-caption", "SHIFT_JIS");
  assert.equal(await at(), `${0x8f}`);
});

test("a conversion shows bytes and marks exactly what is wrong", async () => {
  await open("convert");
  const rows = [ // bytes or a text, from, to, what to do; offsets, names, reasons; bytes of the result; status
    ["aŁb日", "text", "UTF-8", "CP1252", "strict", ["1 U+0141 the target lacks it", "4 U+65E5 the target lacks it"], "61",
      "Stopped at byte 1: Ł U+0141, the target lacks it."],
    ["aŁb日", "text", "UTF-8", "CP1252", "skip", ["1 U+0141 the target lacks it", "4 U+65E5 the target lacks it"], "61 62",
      "Converted; 2 places could not be."],
    ["aŁ", "text", "UTF-8", "CP1252", "escape", ["1 U+0141 the target lacks it"], "61 26 23 33 32 31 3B",
      "Converted; 1 place could not be."],
    ["41 FF 42 E2 82", "bytes", "UTF-8", "IBM037", "replace", ["1 0xFF no character", "3 0xE2 0x82 cut off by the end"],
      "C1 6F C2 6F", "Converted; 2 places could not be."],
    ["あA", "text", "UTF-8", "IBM939", "strict", [], "0E 44 81 0F C1", "Converted without a loss."],
    ["0e44810fc1", "bytes", "IBM939", "UTF-8", "strict", [], "E3 81 82 41", "Converted without a loss."],
    ["4G", "bytes", "UTF-8", "IBM037", "strict", [], "", "G is no hexadecimal digit."],
    ["€5", "text", "IBM037", "UTF-8", "skip", [], "", "IBM037 has no € U+20AC, which is in the text."],
    ["FF ".repeat(3000), "bytes", "UTF-8", "IBM037", "skip", null, "", "Converted; 3000 places could not be."],
    ["414", "bytes", "UTF-8", "IBM037", "strict", [], "", "The last byte has only one digit."],
  ];
  for (const [text, kind, from, to, errors, problems, result, status] of rows) {
    await set({ [`convert-kind-${kind}`]: true });
    await set({ "convert-from": from, "convert-to": to, "convert-errors": errors, "convert-text": text });
    await becomes([problems, result, status], text.slice(0, 20), (count) => [
      count && Array.from(document.querySelectorAll("#convert-rows tr"), ({ cells }) => [0, 2, 4].map((i) => cells[i].textContent).join(" ")),
      Array.from(document.querySelectorAll("#convert-result td:nth-child(2)"), (e) => e.textContent).join("").trim(),
      document.getElementById("convert-status").textContent,
    ], problems);
    if (problems?.length) assert.equal(await run(() => document.querySelector("mark").textContent.slice(0, 7)), "error: ");
  }
});

test("the bytes of a file are converted until something is typed", async () => {
  await open("convert");
  const folder = mkdtempSync(join(tmpdir(), "kova-file-")), file = join(folder, "a.txt");
  writeFileSync(file, Buffer.from("41ff", "hex"));
  await set({ "convert-errors": "skip", "convert-from": "UTF-8", "convert-to": "IBM037" });
  const { root: { nodeId } } = await browser.send("DOM.getDocument");
  const input = await browser.send("DOM.querySelector", { nodeId, selector: "#convert-file" });
  await browser.send("DOM.setFileInputFiles", { files: [file], nodeId: input.nodeId });
  await says("convert-source-title", "Source in UTF-8: 2 bytes");
  assert.equal(await run(() => document.querySelector("#convert-rows th").textContent), "1");
  await set({ "convert-text": "abc" });
  await says("convert-source-title", "Source in UTF-8: 3 bytes");
  rmSync(folder, { recursive: true });
});

test("months stand in their own calendars", async () => {
  await open("calendar");
  const rows = [ // locale, year, month: direction, title, first weekday's column and the days
    ["he_IL@hebr", 5784, 7, "rtl", /אדר.*5784/, 29],
    ["ar_SA@islm", 1448, 9, "rtl", /رمضان 1448/, 30],
    ["ja_JP", 2019, 5, "ltr", /5月 2019.*令和/, 31],
    ["de_DE", 2024, 2, "ltr", /^Februar 2024$/, 29],
  ];
  for (const [locale, year, month, direction, title, days] of rows) {
    await set({ "calendar-locale": locale });
    await settled();
    await set({ "calendar-year": year });
    await settled();
    await set({ "calendar-month": month });
    await becomes([direction, `${year}`, `${month}`, days], locale, () => [document.getElementById("calendar-grid").dir,
      ...["year", "month"].map((name) => document.getElementById(`calendar-${name}`).value),
      document.querySelectorAll("#calendar-grid td b").length]);
    assert.match(await textOf("calendar-title"), title);
    assert.equal((await textOf("calendar-note")).includes("Umm al-Qura calendar the month is from 2027-02-08 to 2027-03-08"), locale === "ar_SA@islm");
  }
  // 29 February 2024 is a Thursday, in the fourth column of weeks that begin with Monday.
  assert.equal(await run(() => Array.from(document.querySelectorAll("#calendar-grid td")).find((td) => td.textContent === "29").cellIndex), 3);
  await run(() => document.getElementById("calendar-after").click());
  await says("calendar-title", "März 2024");
  await set({ "calendar-locale": "he_IL@hebr" });
  await becomes(true, "the same days in another calendar", () => /5784/.test(document.getElementById("calendar-title").textContent));
  await set({ "calendar-month": 14 });
  await says("calendar-status", "the locale's calendar has no month 14 in the year 5784");
});

test("numbers, money and dates are written and read", async () => {
  await open("formats");
  await set({ "formats-date": "1990-10-03T15:05:07", "formats-number": "-9007199254740993.25" });
  await set({ "formats-locale": "sv_SE" });
  await set({ "formats-locale": "de_DE", "formats-money": "1234.5", "formats-own-date": "%d. %B" });
  const names = ["Number", "Money", "Date", "In words", "Your date format"];
  await becomes(["-9.007.199.254.740.993,25", "1.234,50 €", "03.10.1990", "Mittwoch, 03 Oktober 1990", "03. Oktober"], "German", (all) => {
    const rows = new Map(Array.from(document.querySelectorAll("#formats-rows tr"), ({ cells }) => [cells[0].textContent, cells[2].textContent]));
    return all.map((name) => rows.get(name));
  }, names);
  const read = [["03.10.1990", "%x", "1990-10-03: Mittwoch"], ["31.02.1990", "%x", null], ["3. Oktober 1990", "%d. %B %Y", "1990-10-03: Mittwoch"]];
  for (const [text, format, wanted] of read) {
    await set({ "formats-read": text, "formats-read-format": format });
    if (wanted) await says("formats-read-result", wanted);
    else await becomes(true, text, () => document.getElementById("formats-read-result").classList.contains("error"));
  }
  await set({ "formats-number": "1,5" });
  await becomes(4, "rows with a number", () => Array.from(document.querySelectorAll("#formats-rows .error")).filter((e) =>
    e.textContent === "⚠ type digits with a point, such as -1234.5").length);
});

// ---- How it looks ----

/** Texts of less contrast than 4.5 with what is behind them. */
function faint() {
  const parts = (color) => color.match(/[\d.]+/g).map(Number);
  const light = ([r, g, b]) => [r, g, b].map((c) => (c / 255 <= 0.04045 ? c / 3294.6 : ((c / 255 + 0.055) / 1.055) ** 2.4))
    .reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0);
  const behind = (e) => {
    for (; e; e = e.parentElement) {
      const color = parts(getComputedStyle(e).backgroundColor);
      if (color[3] !== 0) return color;
    }
    return [255, 255, 255];
  };
  const bad = [];
  for (const e of document.querySelectorAll("body *")) {
    const says = e.matches("input, textarea, select") || Array.from(e.childNodes).some((n) => n.nodeType === 3 && n.data.trim());
    if (!says || !e.checkVisibility() || e.closest(".sr, :disabled, svg, script")) continue;
    const [a, b] = [light(parts(getComputedStyle(e).color)), light(behind(e))].sort((x, y) => y - x);
    if ((a + 0.05) / (b + 0.05) < 4.5) bad.push(`${e.tagName} ${e.className} ${e.textContent.slice(0, 20)}`);
  }
  return bad;
}

test("light, dark and on a phone: texts are clear, and nothing is wider than the screen", async () => {
  for (const [name, width, height, dark] of [["light", 1080, 930, false], ["dark", 1080, 930, true], ["phone", 360, 780, false]]) {
    for (const section of SECTIONS) {
      await open(section, width, height, dark);
      assert.deepEqual(await run(faint), [], `${name} ${section}`);
      assert.equal(await run(() => document.documentElement.scrollWidth), width, `${name} ${section}`);
      if (pictures) await browser.picture(join(pictures, `${section}_${name}.png`));
    }
  }
  const paper = () => run(() => getComputedStyle(document.body).backgroundColor);
  const light = await paper();
  await run(() => document.querySelector('[name="theme"][value="dark"]').click());
  assert.notEqual(await paper(), light);
  await open("order");
  assert.notEqual(await paper(), light, "the choice is kept");
  await run(() => document.querySelector('[name="theme"][value="auto"]').click());
  assert.equal(await paper(), light);
});

test("controls have names, headings their order, references their aims", async () => {
  const roles = ["button", "combobox", "textbox", "searchbox", "radio", "spinbutton", "tab", "tabpanel", "grid", "table", "list", "DateTime"];
  for (const section of SECTIONS) {
    await open(section);
    const { nodes } = await browser.send("Accessibility.getFullAXTree");
    const shown = nodes.filter((node) => !node.ignored && roles.includes(node.role?.value));
    const nameless = shown.filter((node) => !node.name?.value && node.role.value !== "table");
    assert.deepEqual(nameless.map((node) => node.role.value), [], section);
    assert(shown.length > 10, section);
    assert.deepEqual(await run(() => {
      const levels = Array.from(document.querySelectorAll("h1, h2, h3")).filter((e) => e.checkVisibility()).map((e) => Number(e.tagName[1]));
      const aims = Array.from(document.querySelectorAll("[aria-controls], [aria-labelledby]"), (e) =>
        e.getAttribute("aria-controls") ?? e.getAttribute("aria-labelledby"));
      return [levels[0], levels.filter((level) => level === 1).length, levels.some((level, i) => level > (levels[i - 1] ?? 1) + 1),
        aims.filter((id) => !document.getElementById(id))];
    }), [1, 1, false, []], section);
  }
});

test("keys alone reach every control, show where they are, and leave again", async () => {
  for (const section of SECTIONS) {
    await open(section);
    const reached = new Set();
    for (let i = 0; i < 60; ++i) {
      await browser.press("Tab");
      const [name, isSeen] = await run(() => {
        const e = document.activeElement, { outlineStyle, outlineWidth } = getComputedStyle(e.name === "theme" ? e.nextElementSibling : e);
        return [e === document.body ? null : e.id || e.className || e.tagName, outlineStyle !== "none" && parseFloat(outlineWidth) >= 2];
      });
      if (name === null) break;
      assert(isSeen || name === "skip", `${section}: ${name} has the focus unseen`);
      reached.add(name);
    }
    const missing = await run((name) => Array.from(document.querySelectorAll(`#panel-${name} :is(input, select, textarea, button)`))
      .filter((e) => e.checkVisibility() && e.type !== "radio" && e.id).map((e) => e.id), section);
    assert.deepEqual(missing.filter((id) => !reached.has(id)), [], section);
    assert(reached.size < 60, `${section}: the focus does not leave`);
  }
  await run(() => document.getElementById("tab-formats").focus());
  for (const [key, wanted] of [["ArrowRight", "order"], ["ArrowLeft", "formats"], ["Home", "order"], ["ArrowRight", "chart"]]) {
    await browser.press(key);
    assert.deepEqual(await run(() => [document.activeElement.id, ...Array.from(document.querySelectorAll("section:not([hidden])"), (e) => e.id)]),
      [`tab-${wanted}`, `panel-${wanted}`]);
  }
});

test("texts that run from the right do so, isolated from what is around them", async () => {
  await open("order", 360, 780);
  const sample = await run(() => Array.from(document.getElementById("order-sample")).find((e) => e.text === "Hebrew with points").value);
  await set({ "order-sample": sample });
  await says("order-status", "11 texts, 4 of them moved.");
  await set({ "order-text": `${await run(() => document.getElementById("order-text").value)}\nabc (1)` });
  await says("order-status", "12 texts, 4 of them moved.");
  assert.deepEqual(await run(() => Array.from(document.querySelectorAll("#order-right-list bdi"), (e) =>
    `${getComputedStyle(e).direction} ${getComputedStyle(e).unicodeBidi}`)), ["ltr isolate", ...Array(11).fill("rtl isolate")]);
  await run(() => document.querySelector(".pair").scrollIntoView({ behavior: "instant" }));
  if (pictures) await browser.picture(join(pictures, "hebrew_phone.png"));
});

test("100,000 strings of twelve scripts: order and keys are those of C",
  { skip: !(hostOrder && root) && "KOVA_HOST_ORDER and KOVA_PAGE_ROOT are not set" }, async () => {
    const script = fileURLToPath(new URL("../../../common/strings.py", import.meta.url));
    const made = spawnSync("python3", [script], { maxBuffer: 1 << 28, encoding: "utf8" });
    assert.equal(made.stdout.split("\n").length, 100001);
    await open("order");
    await run((text) => { globalThis.words = text.split("\n").slice(0, -1); }, made.stdout);
    for (const name of ["de_DE", "sv_SE", "ja_JP", "th_TH", "fr_CA"]) {
      await set({ "order-left": name });
      await becomes(true, name, (spec) => Kova.locales().some((one) => one.startsWith(spec)), name);
      const mine = await run((spec) => {
        const order = new Kova.Collator(spec), digits = Array.from({ length: 256 }, (_, i) => i.toString(16).padStart(2, "0"));
        return order.sorted(words).map((word) => `${Array.from(order.key(word), (b) => digits[b]).join("")}\t${word}\n`).join("");
      }, name);
      const inC = spawnSync(hostOrder, [root, `${name}.unicode`], { input: made.stdout, maxBuffer: 1 << 30, encoding: "utf8" });
      assert.equal(inC.status, 0, inC.stderr);
      noteOrder(name, "Chromium", mine);
      assert(mine === inC.stdout, `${name}: keys or order differ from those of C`);
    }
  });

test("the page has asked for nothing and complained of nothing", () => {
  const asked = browser.requests.filter((url) => !url.startsWith("data:") && url.split("#")[0] !== page);
  assert.deepEqual([asked, browser.complaints], [[], []]);
  assert(browser.requests.length > 0);
});
