// Makes the page, one file with the module, the packs and all that it shows:
//   node make_page.mjs PACKAGE PACKS OUT
// PACKAGE is a built package, PACKS a folder with packs of what contents.mjs names. The names of
// characters are those of the C library's charmap of UTF-8; KOVA_I18N names another folder of it.
import { createHash } from "node:crypto";
import { existsSync, readFileSync, writeFileSync } from "node:fs";
import { join, resolve } from "node:path";
import { pathToFileURL } from "node:url";
import { gunzipSync, gzipSync } from "node:zlib";
import { bare, block, textOf } from "../bundle.mjs";
import { findCodeSet, findLocale } from "../src/packs.mjs";
import { codesets, locales } from "./contents.mjs";

const [folder, packs, out] = process.argv.slice(2);
if (!out) {
  console.error("usage: make_page.mjs PACKAGE PACKS OUT");
  process.exit(2);
}
const source = (name) => new URL(name, import.meta.url);
const hashOf = (text) => `'sha256-${createHash("sha256").update(text).digest("base64")}'`;

// ---- Script ----

const LAST = /\nexport \{[^}]*\};\n$/;
const library = textOf(join(folder, "kova.mjs"));
if (!LAST.test(library)) throw new Error("kova.mjs does not end with its exports");
const script = [`\nconst { Kova } = (() => {\n${library.replace(LAST, "\n")}\nreturn { Kova };\n})();\n`,
  ...["contents", "ui", "order", "chart", "convert", "calendar", "formats"].map((name) => block(source(`${name}.mjs`))),
  bare(source("main.mjs"))].join("\n");

// ---- Data ----

const { packs: index } = JSON.parse(readFileSync(join(packs, "packs.json"), "utf8"));

function packOf(kind, name) {
  const rows = index.filter((row) => row.kind === kind);
  const spec = kind === "locale" ? findLocale(name, rows.map((row) => row.name)) : findCodeSet(name, rows)?.name;
  const row = rows.find((one) => one.name === spec);
  if (!row) throw new Error(`there is no pack of ${name}`);
  return { kind, name, file: row.file, data: readFileSync(join(packs, row.file)).toString("base64") };
}

/** The characters of a code set: those of single codes, and after lead bytes and one shift. */
function* charactersOf(kova, set, lead = []) {
  for (const { kind, text, code } of kova.chart(set, lead).cells) {
    if (kind === "character") yield* text;
    else if (kind === "lead" || (kind === "shift" && !lead.length)) yield* charactersOf(kova, set, [...code]);
  }
}

/** Lines of the number and the name of each character that the code sets have, but for ideographs. */
async function namesOf() {
  const { Kova } = await import(pathToFileURL(resolve(folder, "kova.mjs")));
  await Kova.load({ base: pathToFileURL(resolve(packs)), codesets: codesets.map(([name]) => name) });
  const used = new Set(codesets.flatMap(([name]) => [...charactersOf(Kova, name)]));
  const file = join(process.env.KOVA_I18N ?? "/usr/share/i18n", "charmaps/UTF-8.gz");
  if (!existsSync(file)) throw new Error(`the names of characters are missing: ${file}, of the package locales`);
  const charmap = gunzipSync(readFileSync(file)).toString();
  const rows = Array.from(charmap.slice(0, charmap.indexOf("END CHARMAP")).matchAll(/^<U([0-9A-F]+)>\s+\S+\s+([^<\n].*)$/gm));
  return rows.filter(([, number, name]) => used.has(String.fromCodePoint(parseInt(number, 16))) && !/IDEOGRAPH-/.test(name))
    .map(([, number, name]) => `${number} ${name}`);
}

const packed = (bytes) => gzipSync(bytes, { level: 9 }).toString("base64");
const data = JSON.stringify({
  wasm: packed(readFileSync(join(folder, "kova.wasm"))),
  names: packed((await namesOf()).join("\n")),
  packs: [...locales.map(([name]) => packOf("locale", name)), ...codesets.map(([name]) => packOf("codeset", name))],
});

// ---- Page ----

const style = textOf(source("page.css"));
const icon = "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 16 16'><path stroke='#0b8578' stroke-width='3' " +
  "stroke-linecap='round' d='M2 3h4M2 8h8M2 13h12'/></svg>";
const pieces = {
  "@POLICY@": "default-src 'none'; " +
    `script-src ${hashOf(script)} 'wasm-unsafe-eval'; style-src ${hashOf(style)}; img-src data:; base-uri 'none'; form-action 'none'`,
  "@ICON@": `data:image/svg+xml,${encodeURIComponent(icon)}`,
  "@STYLE@": style,
  "@DATA@": data,
  "@SCRIPT@": script,
};
const end = /<\/(script|style)/i;
for (const [name, text] of Object.entries(pieces)) if (end.test(text)) throw new Error(`${name} would end early`);
const page = textOf(source("index.html")).replace(/@[A-Z]+@/g, (name) => pieces[name] ?? name);
writeFileSync(out, page);
console.log(`${out}: ${Buffer.byteLength(page)} bytes`);
