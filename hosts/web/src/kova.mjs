// Kova in Node and in browsers; kova.d.ts says what everything does.
import { KovaError, ConversionError } from "./errors.mjs";
import { Module } from "./module.mjs";
import { bytesOf, fetched, folderOf, readPack, isEntry, findLocale, findCodeSet } from "./packs.mjs";
import { makeCollator } from "./order.mjs";
import { makeConversions } from "./convert.mjs";
import { makeFormats } from "./format.mjs";

// ---- Packs ----

/** The packs of a library: what is loaded, and where more can be found. */
class Packs {
  constructor(module) {
    this.module = module;
    this.locales = []; // whole names
    this.codesets = []; // { name, number, aliases }
    this.registry = new Set(); // lines
    this.indexes = new Map(); // by the URL of a folder
    this.last = Promise.resolve(); // loads follow each other
  }

  async index(folder) {
    let rows = this.indexes.get(folder.href);
    if (!rows) {
      const text = new TextDecoder().decode(await fetched(new URL("packs.json", folder)));
      try {
        rows = JSON.parse(text).packs;
      } catch {
        rows = null;
      }
      if (!Array.isArray(rows) || !rows.every((row) => isEntry(row) && typeof row.file === "string"))
        throw new KovaError(`${folder}packs.json is no index of packs`);
      this.indexes.set(folder.href, rows);
    }
    return rows;
  }

  add(pack) {
    for (const [name, bytes] of pack.files) {
      const held = this.module.files.get(name);
      if (held && !isEqual(held, bytes))
        throw new KovaError(`${pack.name}: ${name} is another one than in loaded packs`);
    }
    for (const [name, bytes] of pack.files) this.module.files.set(name, bytes);
    for (const line of pack.registry) this.registry.add(line);
    const lines = new TextEncoder().encode([...this.registry, ""].join("\n"));
    this.module.files.set("cm3/registry", lines);
    if (pack.kind === "locale" && !this.locales.includes(pack.name)) this.locales.push(pack.name);
    if (pack.kind === "codeset" && !this.codesets.some(({ name }) => name === pack.name))
      this.codesets.push({ name: pack.name, number: pack.number, aliases: pack.aliases });
  }

  async fetch(names, kind, has, find, base) {
    const missing = names.filter((name) => !has(name));
    if (!missing.length) return;
    const folder = await folderOf(base);
    const rows = (await this.index(folder)).filter((row) => row.kind === kind);
    const entries = missing.map((name) => {
      const entry = find(name, rows);
      if (!entry) throw new KovaError(`${name}: there is no pack of it in ${folder}`);
      return entry;
    });
    const files = await Promise.all(entries.map(({ file }) =>
      fetched(new URL(encodeURIComponent(file), folder))));
    for (const [i, bytes] of files.entries())
      this.add(await readPack(this.module, entries[i].file, bytes));
  }

  async load({ locales = [], codesets = [], base, data = {}, wasm }) {
    if (!this.module.x) {
      const from = wasm ?? new URL("kova.wasm", import.meta.url);
      await this.module.start(from instanceof URL ? await fetched(from) : bytesOf(from));
    }
    for (const [file, bytes] of Object.entries(data))
      this.add(await readPack(this.module, file, bytes));
    const hasLocale = (name) => findLocale(name, this.locales);
    const findRow = (name, rows) => {
      const spec = findLocale(name, rows.map((row) => row.name));
      return rows.find((row) => row.name === spec);
    };
    await this.fetch(locales, "locale", hasLocale, findRow, base);
    const hasSet = (name) => findCodeSet(name, this.codesets);
    await this.fetch(codesets, "codeset", hasSet, findCodeSet, base);
    // What cannot be opened is told now.
    for (const name of locales.map(hasLocale)) this.module.withLocale(name, () => {});
  }
}

const isEqual = (a, b) => a.length === b.length && a.every((byte, i) => byte === b[i]);

// ---- The library ----

function create() {
  const module = new Module(), packs = new Packs(module);

  function specOf(name) {
    const spec = findLocale(`${name}`, packs.locales);
    if (!spec) throw new KovaError(`${name}: the locale is not loaded`);
    return spec;
  }

  function inUse() {
    if (!module.x) throw new KovaError("Kova.load comes first");
    return module;
  }

  const kova = {
    KovaError,
    ConversionError,
    create,
    load(options = {}) {
      const loaded = packs.last.then(() => packs.load(options));
      packs.last = loaded.catch(() => {});
      return loaded.then(() => kova);
    },
    index: async (base) => packs.index(await folderOf(base)),
    locales: () => [...packs.locales],
    codesets: () => packs.codesets.map(({ name }) => name),
    get version() {
      return inUse().textAt(module.x.web_library_version());
    },
    get memoryUsed() {
      return inUse().x.web_used();
    },
    Collator: makeCollator(module, specOf),
    ...makeConversions(module, inUse),
    ...makeFormats(module, specOf, () => kova),
  };
  for (const [name, call] of [["upper", "web_upper"], ["lower", "web_lower"]]) {
    kova[name] = (locale, text) => {
      const spec = specOf(locale);
      return module.withLocale(spec, (loc) =>
        module.fromText(spec, `${text}`, (at, size, out, room) =>
          module.x[call](loc, out, room, at, size)));
    };
  }
  return kova;
}

const Kova = create();
export { Kova, Kova as default, KovaError, ConversionError };
