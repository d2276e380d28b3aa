// Makes the packs of locales and code sets from a compiled data root.
//   node make_packs.mjs MODULE ROOT OUT [NAME...]
// MODULE is kova.wasm, ROOT the folder that holds "kova", OUT gets the packs and packs.json. Names
// choose locales ("de_DE", "de_DE.ISO-8859-1") and code sets; without one, all that the data can
// serve are made. The module itself opens every locale and conversion, and its pack holds the files
// that it has read.
import { existsSync, mkdirSync, readFileSync, readdirSync, rmSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { gzipSync } from "node:zlib";
import { Module } from "./src/module.mjs";
import { findCodeSet, findLocale } from "./src/packs.mjs";
import { packRows } from "./pack_rows.mjs";

const HEADER = "FILE_TYPE=web_pack\nCOMPILER_VERSION=1\nHEADER_LINES=4\nCONTENT=";
const NO_SUCH = [54, 56, 57]; // errors that say that something is not there

const [wasm, root, out, ...wanted] = process.argv.slice(2);
if (!out) {
  console.error("usage: make_packs.mjs MODULE ROOT OUT [NAME...]");
  process.exit(2);
}
const pathOf = (name) => join(root, "kova", name);
const module = new Module(), read = new Map();
let opened = new Set();
let hidden = false; // the registry, so that the module knows only its own code sets
module.files = {
  get(name) {
    if (hidden) return undefined;
    const path = pathOf(name);
    if (!read.has(name)) read.set(name, existsSync(path) ? readFileSync(path) : undefined);
    return read.get(name);
  },
};
module.onOpen = (name) => opened.add(name);
await module.start(readFileSync(wasm));

// ---- What there is ----

const registry = readFileSync(pathOf("cm3/registry"), "latin1").split("\n")
  .map((line) => /^([^\s#]+)\s+(\d+)/.exec(line)).filter(Boolean)
  .map(([, name, number]) => ({ name, number: Number(number) }));
// The library looks these up by their names.
const always = registry.filter(({ name }) => name === "utf8" || name === "unicode");
const linesOf = (number) => registry.filter((row) => row.number === number);

function* localeObjects() {
  if (existsSync(pathOf("lc11/default.lco"))) yield { spec: "default.lco" };
  for (const language of readdirSync(pathOf("lc11")).sort()) {
    if (!/^[a-z]{2}_[a-z]{2}$/.test(language)) continue;
    for (const file of readdirSync(pathOf(`lc11/${language}`)).sort()) {
      const [, digits, modifier] = /^([0-9a-f]{4})(.*)\.lco$/.exec(file) ?? [];
      if (!digits) continue;
      const head = readFileSync(pathOf(`lc11/${language}/${file}`), "latin1").slice(0, 4096);
      const codeset = /^CHARMAP=(\S+)$/m.exec(head)?.[1] ?? linesOf(parseInt(digits, 16))[0]?.name;
      const name = `${language.slice(0, 3)}${language.slice(3).toUpperCase()}.${codeset}`;
      yield { spec: modifier ? `${name}@${modifier}` : name, number: parseInt(digits, 16) };
    }
  }
}

// ---- Packs ----

const packedFiles = new Map();

function packedOf(file) {
  if (!packedFiles.has(file)) packedFiles.set(file, packRows(read.get(file)));
  return packedFiles.get(file);
}

function write(kind, { name, number }, aliases, lines) {
  const files = [...opened].filter((file) => file !== "cm3/registry").sort();
  const texts = [...lines, ...always].map((row) => `${row.name} ${row.number}`);
  const list = { kind, name, number, aliases, registry: [...new Set(texts)],
    files: files.map((file) => [file, read.get(file).length, packedOf(file).length]) };
  const head = Buffer.from(`${JSON.stringify(list)}\n`);
  const body = Buffer.concat([head, ...files.map(packedOf)]);
  const whole = (content) => Buffer.concat([Buffer.from(`${HEADER}${content}\n`), body]);
  const packed = gzipSync(whole(contentOf(whole("0".repeat(16)))), { level: 9 });
  const file = `${name}.pack`;
  writeFileSync(join(out, file), packed);
  return { name, kind, number, aliases, file, size: packed.length };
}

/** The hash of what follows the header, in hexadecimal. */
function contentOf(bytes) {
  const at = module.take(bytes.length + 16), hash = (at + bytes.length + 7) & ~7;
  module.bytes.set(bytes, at);
  module.x.web_verify(at, bytes.length, hash);
  const content = new DataView(module.x.memory.buffer).getBigUint64(hash, true);
  module.x.web_free(at);
  return content.toString(16).padStart(16, "0");
}

function localePack({ spec, number }) {
  opened = new Set();
  try {
    module.closeLocale(module.openLocale(spec));
  } catch (error) {
    console.error(`make_packs: ${error.message}: left out`);
    return null;
  }
  return write("locale", { name: spec, number: number ?? 0 }, [], linesOf(number));
}

const numberOf = (name) => module.withNames([name], (at) => module.x.web_codeset_number(at));

/** A code set whose conversions from and to UTF-8 are there, or null. */
function codeSetPack({ name, number }) {
  hidden = true;
  const isOwn = numberOf(name) >= 0;
  hidden = false;
  if (isOwn) return null;
  opened = new Set();
  for (const pair of [[name, "utf8"], ["utf8", name]]) {
    const cd = module.withNames(pair, (from, to) => module.x.web_conversion(from, to, 0));
    if (cd > 0) module.x.web_close_conversion(cd);
    else if (NO_SUCH.includes(-cd)) return null;
    else throw module.error(pair.join(" to "), -cd);
  }
  const lines = linesOf(number);
  return write("codeset", { name, number }, lines.slice(1).map((row) => row.name), lines);
}

const locales = [...localeObjects()];
const sets = registry.filter((row) => linesOf(row.number)[0] === row)
  .map((row) => ({ ...row, aliases: linesOf(row.number).map(({ name }) => name) }));
const chosen = { locales, sets };
if (wanted.length) {
  const specs = locales.map(({ spec }) => spec);
  const isWanted = ({ spec }) => wanted.some((name) => findLocale(name, specs) === spec);
  chosen.locales = locales.filter(isWanted);
  chosen.sets = sets.filter((set) => wanted.some((name) => findCodeSet(name, sets) === set));
}
mkdirSync(out, { recursive: true });
for (const file of readdirSync(out)) if (file.endsWith(".pack")) rmSync(join(out, file));
const packs = [...chosen.locales.map(localePack), ...chosen.sets.map(codeSetPack)].filter(Boolean);
for (const name of wanted) {
  if (findLocale(name, packs.map((pack) => pack.name)) || findCodeSet(name, packs)) continue;
  console.error(`make_packs: ${name}: the data in ${root} have no such locale or code set`);
  process.exitCode = 1;
}
writeFileSync(join(out, "packs.json"), `${JSON.stringify({ packs }, null, 1)}\n`);
console.log(`${packs.length} packs, ${packs.reduce((sum, { size }) => sum + size, 0)} bytes`);
