// Makes the page, one file with the module, the packs and all that it shows:
//   node make_page.mjs PACKAGE PACKS OUT
// PACKAGE is a built package, PACKS a folder with packs of what contents.mjs names.
import { createHash } from "node:crypto";
import { readFileSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { gzipSync } from "node:zlib";
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

const data = JSON.stringify({
  wasm: gzipSync(readFileSync(join(folder, "kova.wasm")), { level: 9 }).toString("base64"),
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
