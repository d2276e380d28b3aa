// Packs: the files of a locale or a code set in one, and the folders that they come from.
import { KovaError, DAMAGED } from "./errors.mjs";
import { unpackRows } from "./rows.mjs";

const UNPACKED_MOST = 1 << 28; // bytes
const HEADER = /^FILE_TYPE=web_pack\nCOMPILER_VERSION=1\nHEADER_LINES=4\nCONTENT=[0-9a-f]{16}\n/;
const HEADER_ROOM = 128;
const FILE_NAME = /^(lc11|cv9)(\/[a-z0-9_]+)+\.(lco|cvo)$/;
const latin = new TextDecoder("latin1"), strict = new TextDecoder("utf-8", { fatal: true });

const isNode = typeof process === "object" && !!process.versions?.node;

// ---- Bytes from anywhere ----

/** The bytes of FileData. */
function bytesOf(data) {
  if (data instanceof Uint8Array) return data;
  if (data instanceof ArrayBuffer) return new Uint8Array(data);
  if (typeof data !== "string") throw new KovaError("a file is bytes or a string of base64");
  let binary;
  try {
    binary = atob(data);
  } catch {
    throw new KovaError("a file is no base64");
  }
  return Uint8Array.from(binary, (c) => c.charCodeAt(0));
}

/** The bytes of a file that a URL names; in Node also one of the system. */
async function fetched(url) {
  try {
    if (isNode && url.protocol === "file:") {
      const { readFile } = await import("node:fs/promises");
      return new Uint8Array(await readFile(url));
    }
    const answer = await fetch(url);
    if (!answer.ok) throw new Error(`${answer.status} ${answer.statusText}`);
    return new Uint8Array(await answer.arrayBuffer());
  } catch (reason) {
    throw new KovaError(`${url}: ${reason.message}`);
  }
}

/** The URL of a folder. */
async function folderOf(base) {
  if (base === undefined) return new URL("./packs/", import.meta.url);
  let url;
  if (base instanceof URL || /^[a-z][a-z0-9+.-]+:/i.test(base)) {
    url = new URL(base);
  } else if (isNode) {
    const { pathToFileURL } = await import("node:url");
    url = pathToFileURL(`${base}/`);
  } else {
    url = new URL(base, document.baseURI);
  }
  if (!url.pathname.endsWith("/")) url.pathname += "/";
  return url;
}

/** What gzip has packed, or the bytes themselves. */
async function unpacked(file, bytes) {
  if (bytes[0] !== 0x1f || bytes[1] !== 0x8b) return bytes;
  const parts = [];
  let size = 0;
  try {
    const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream("gzip"));
    for (const reader = stream.getReader(); ;) {
      const { done, value } = await reader.read();
      if (done) break;
      size += value.length;
      if (size > UNPACKED_MOST) {
        reader.cancel().catch(() => {});
        throw new Error("it is too large");
      }
      parts.push(value);
    }
  } catch (reason) {
    throw new KovaError(`${file}: the pack is damaged: ${reason.message}`);
  }
  const all = new Uint8Array(size);
  parts.reduce((at, part) => (all.set(part, at), at + part.length), 0);
  return all;
}

// ---- One pack ----

const isText = (value) => typeof value === "string";

/** Whether this says what a pack is, as its own list and the index do. */
const isEntry = (row) => !!row && (row.kind === "locale" || row.kind === "codeset") && isText(row.name) &&
  Number.isInteger(row.number) && Array.isArray(row.aliases) && row.aliases.every(isText);

const isSize = (size) => Number.isInteger(size) && size >= 0 && size <= UNPACKED_MOST;

/** The list at the start of a pack, checked: { kind, name, number, aliases, registry, files }. */
function checkedList(list) {
  const { registry, files } = list;
  return isEntry(list) &&
    Array.isArray(registry) && registry.every((line) => /^[^\s#]+ [0-9]+$/.test(line)) &&
    Array.isArray(files) && files.every((row) => Array.isArray(row) && FILE_NAME.test(row[0]) &&
      isSize(row[1]) && isSize(row[2]));
}

function listOf(bytes) {
  const header = HEADER.exec(latin.decode(bytes.subarray(0, HEADER_ROOM)));
  if (!header) return null;
  const start = header[0].length, end = bytes.indexOf(10, start);
  if (end < 0) return null;
  let list;
  try {
    list = JSON.parse(strict.decode(bytes.subarray(start, end)));
  } catch {
    return null;
  }
  if (!list || !checkedList(list)) return null;
  const sum = (place) => list.files.reduce((all, row) => all + row[place], 0);
  const isWhole = sum(2) === bytes.length - end - 1 && sum(1) <= UNPACKED_MOST;
  return isWhole ? { list, start: end + 1 } : null;
}

function isIntact(module, bytes) {
  const at = module.take(bytes.length + 16), hash = (at + bytes.length + 7) & ~7;
  module.bytes.set(bytes, at);
  const result = module.x.web_verify(at, bytes.length, hash);
  module.x.web_free(at);
  return result === 0;
}

/** What a pack holds: its list, and its files by name. */
async function readPack(module, file, data) {
  const bytes = await unpacked(file, bytesOf(data));
  const found = listOf(bytes);
  const damaged = () => new KovaError(`${file}: the pack is damaged`, DAMAGED);
  if (!found || !isIntact(module, bytes)) throw damaged();
  const files = new Map();
  let at = found.start;
  for (const [name, size, packed] of found.list.files) {
    const content = unpackRows(bytes.subarray(at, at += packed), size);
    if (!content) throw damaged();
    files.set(name, content);
  }
  return { ...found.list, files };
}

// ---- Names ----

/** The name of a code set without what people write in different ways. */
const plainName = (name) => name.toLowerCase().replace(/[^a-z0-9]/g, "");

function localeParts(name) {
  if (/^(C|POSIX|default\.lco)$/.test(name)) return { language: "default.lco" };
  const found = /^([a-z]{2,3}[_-][a-z]{2})(?:\.([^@]*))?(?:@(.*))?$/i.exec(name);
  if (!found) return null;
  const codeset = plainName(found[2] ?? "");
  return {
    language: found[1].toLowerCase().replace("-", "_"),
    codeset: codeset === "utf8" ? "unicode" : codeset,
    modifier: (found[3] ?? "").toLowerCase(),
  };
}

/** The locale of a list that a name means: one without a code set means the form for all of
 * Unicode, or else the only one. */
function findLocale(name, specs) {
  const wanted = localeParts(name);
  if (!wanted) return undefined;
  const rows = specs.map((spec) => ({ spec, ...localeParts(spec) })).filter((row) =>
    row.language === wanted.language && row.modifier === wanted.modifier);
  if (wanted.codeset) return rows.find((row) => row.codeset === wanted.codeset)?.spec;
  const only = rows.length === 1 ? rows[0] : null;
  return (rows.find((row) => row.codeset === "unicode") ?? only)?.spec;
}

/** The entry of a list whose name, alias or number is meant: "cp1252", "windows-1252". */
function findCodeSet(name, entries) {
  const plain = plainName(name), number = /^(?:ibm|cp|windows|ccsid)?0*([1-9][0-9]*)$/.exec(plain);
  return entries.find((entry) => plainName(entry.name) === plain) ??
    entries.find((entry) => entry.aliases.some((alias) => plainName(alias) === plain)) ??
    entries.find((entry) => number && entry.number === Number(number[1]));
}

export { bytesOf, fetched, folderOf, readPack, isEntry, plainName, findLocale, findCodeSet };
