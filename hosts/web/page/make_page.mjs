// Makes the page, one file with the module, the packs and all that it shows:
//   node make_page.mjs PACKAGE PACKS OUT
// PACKAGE is a built package, PACKS a folder with packs of what contents.mjs names.
import { createHash } from "node:crypto";
import { readFileSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { gzipSync } from "node:zlib";
import { findCodeSet, findLocale } from "../src/packs.mjs";
import { codesets, locales } from "./contents.mjs";

const [folder, packs, out] = process.argv.slice(2);
if (!out) {
  console.error("usage: make_page.mjs PACKAGE PACKS OUT");
  process.exit(2);
}
const part = (name) => readFileSync(new URL(name, import.meta.url), "utf8");
const hashOf = (text) => `'sha256-${createHash("sha256").update(text).digest("base64")}'`;

// ---- Script ----

// Each module becomes a block whose names are its own; in its place stand those that it exports.
const IMPORT = /^import [^"]*"\.[^"]*";\n/gm, EXPORT = /\nexport (\{[^}]*\});\n$/;

function block(name) {
  const text = part(`${name}.mjs`).replace(IMPORT, ""), [statement, names] = EXPORT.exec(text);
  return `const ${names} = (() => {\n${text.replace(statement, "\n")}return ${names};\n})();\n`;
}

const LIBRARY = /\nexport \{ Kova, Kova as default, KovaError, ConversionError \};\n$/;
const library = readFileSync(join(folder, "kova.mjs"), "utf8");
if (!LIBRARY.test(library)) throw new Error("kova.mjs ends in another way than is known here");
const script = ["\n", library.replace(LIBRARY, "\n"),
  ...["contents", "ui", "order", "chart", "convert", "calendar", "formats"].map(block),
  part("main.mjs").replace(IMPORT, "")].join("");

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

const style = part("page.css");
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
const page = part("index.html").replace(/@[A-Z]+@/g, (name) => pieces[name] ?? name);
writeFileSync(out, page);
console.log(`${out}: ${Buffer.byteLength(page)} bytes`);
