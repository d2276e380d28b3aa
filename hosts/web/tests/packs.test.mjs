// Packs: embedded, damaged and unfit ones; and memory over many calls.
import test from "node:test";
import assert from "node:assert/strict";
import { gunzipSync, gzipSync } from "node:zlib";
import { pathToFileURL } from "node:url";
import { setFlagsFromString } from "node:v8";
import { runInNewContext } from "node:vm";
import { Kova, KovaError, folder, read } from "./load.mjs";

const packed = read("packs", "ibm037.pack"), plain = new Uint8Array(gunzipSync(packed));
const wasm = read("kova.wasm");

/** A library that was given this as a pack. */
const loaded = async (bytes) => Kova.create().load({ wasm, data: { "x.pack": bytes } });

async function isRefused(bytes, what) {
  const kova = Kova.create();
  await assert.rejects(kova.load({ wasm, data: { "x.pack": bytes } }), KovaError, what);
  assert.deepEqual(kova.codesets(), [], what);
}

test("packs are taken as bytes, packed or not, and as base64", async () => {
  const base64 = Buffer.from(packed).toString("base64");
  for (const data of [packed, plain, plain.slice().buffer, base64]) {
    const kova = await loaded(data);
    assert.equal(kova.decode(Uint8Array.of(0xc1), "cp037"), "A");
  }
  const embedded = await Kova.create().load({ wasm: Buffer.from(wasm).toString("base64"), data: { x: base64 } });
  assert.deepEqual(embedded.codesets(), ["ibm037"]);
});

test("a damaged pack is refused, wherever the damage is", async () => {
  const listEnd = plain.indexOf(10, 80), places = new Set([listEnd, listEnd + 1, plain.length - 1]);
  for (let at = 0; at < listEnd; at += 7) places.add(at);
  for (let at = listEnd; at < plain.length; at += 401) places.add(at);
  for (const at of places) {
    const flipped = plain.slice();
    flipped[at] ^= 1 << at % 8;
    await isRefused(flipped, `flipped at ${at}`);
    await isRefused(plain.subarray(0, at), `cut at ${at}`);
  }
  for (let at = 0; at < packed.length; at += 97) {
    await isRefused(packed.subarray(0, at), `packed, cut at ${at}`);
    const flipped = packed.slice();
    flipped[at] ^= 0x10;
    await loaded(flipped).then((kova) => assert.deepEqual(kova.codesets(), ["ibm037"]),
      (error) => assert(error instanceof KovaError, `packed, flipped at ${at}: ${error}`));
  }
  await isRefused("no base64!", "no base64");
});

/** The pack with another list, or files, and the hash that fits it. */
async function remade(change, changeFiles = () => {}) {
  const text = Buffer.from(plain), start = text.indexOf("{"), end = text.indexOf(10, start);
  const list = change(JSON.parse(text.subarray(start, end)));
  const files = text.subarray(end + 1);
  changeFiles(files);
  const body = Buffer.concat([Buffer.from(`${JSON.stringify(list)}\n`), files]);
  return new Uint8Array(Buffer.concat([text.subarray(0, start - 17), Buffer.from(`${hashOf(body)}\n`), body]));
}

/** The hash of data files: each word is mixed in, first the length and last the bytes left over. */
function hashOf(body) {
  const mask = (1n << 64n) - 1n;
  const mix = (hash, word) => {
    const made = ((hash ^ word) * 0x9e3779b97f4a7c15n) & mask;
    return made ^ (made >> 32n);
  };
  let hash = mix(0x6b6f7661n, BigInt(body.length)), at = 0;
  for (; at + 8 <= body.length; at += 8) hash = mix(hash, body.readBigUInt64LE(at));
  const rest = Buffer.alloc(8);
  body.copy(rest, 0, at);
  return mix(hash, rest.readBigUInt64LE()).toString(16).padStart(16, "0");
}

test("a pack with a fitting hash but an unfit list is refused", async () => {
  const kova = await loaded(await remade((list) => list));
  assert.deepEqual(kova.codesets(), ["ibm037"]);
  const file = (change) => (list) => ({ ...list, files: change(list.files) });
  const rows = [
    file(([[name, size, packed], second]) => [[name, size, packed + 1], second]),
    file(([[a, aSize, aPacked], [b, bSize, bPacked]]) => [[a, aSize, aPacked + bPacked + 1], [b, bSize, -1]]),
    file(([[name, size, packed], second]) => [[name, size + 1, packed], second]),
    file(([[name, size, packed], second]) => [[name, size - 1, packed], second]),
    file(([[name, , packed], second]) => [[name, 2 ** 28, packed], second]),
    file(([[name, , packed], second]) => [[name, -1, packed], second]),
    file(([[name, size], second]) => [[name, size], second]),
    file(([[name, size], second]) => [[name, size, 2 ** 53], second]),
    file(([[, ...sizes], second]) => [["cv9/../cm3/registry.cvo", ...sizes], second]),
    file(([[, ...sizes], second]) => [["cm3/registry", ...sizes], second]),
    file(() => "no list"),
    (list) => ({ ...list, registry: ["two words 5"] }),
    (list) => ({ ...list, registry: ["a 5\nb 6"] }),
    (list) => ({ ...list, kind: "other" }),
    () => null,
    () => [],
  ];
  for (const [i, change] of rows.entries()) await isRefused(await remade(change), `row ${i}`);
});

test("a pack with a fitting hash but rows that are none is refused", async () => {
  const rows = [[1, 0], [1, 8], [2, 255], [3, 255], [4, 255], [2, 0]]; // place after the row's first byte, and its value
  for (const [place, value] of rows) {
    await isRefused(await remade((list) => list, (files) => {
      files[files.indexOf("\n\x01", 0, "latin1") + 1 + place] = value;
    }), `${value} at ${place}`);
  }
});

test("an object that is damaged within a fitting pack is refused", async () => {
  const damaged = await remade((list) => list), at = damaged.length - 10;
  damaged[at] = 0x7a;
  const text = Buffer.from(damaged), start = text.indexOf("{");
  text.write(hashOf(text.subarray(start)), start - 17, "latin1");
  const kova = await loaded(new Uint8Array(text));
  assert.throws(() => kova.convert(Uint8Array.of(65), "utf8", "ibm037"), KovaError);
});

test("packs that differ in a file are not mixed", async () => {
  const other = Buffer.from(await remade((list) => ({ ...list, name: "other" })));
  other[other.length - 10] = 0x7a;
  const start = other.indexOf("{");
  other.write(hashOf(other.subarray(start)), start - 17, "latin1");
  const kova = await loaded(plain);
  await assert.rejects(kova.load({ data: { other: new Uint8Array(other) } }), /another/);
});

test("too much packed content is refused", async () => {
  await isRefused(new Uint8Array(gzipSync(Buffer.alloc((1 << 28) + 1), { level: 1 })), "too large");
});

test("loads follow each other, and one that failed is no obstacle", async () => {
  const kova = Kova.create(), base = pathToFileURL(`${folder}/packs/`);
  assert.throws(() => kova.convert(new Uint8Array(0), "utf8", "utf16"), /load comes first/);
  const all = await Promise.allSettled([
    kova.load({ locales: ["de_DE"], base }), kova.load({ locales: ["xx_XX"], base }),
    kova.load({ codesets: ["cp037"], locales: ["de-DE"], base: `${folder}/packs` }), kova.load({ base: "/none" }),
    kova.load({ codesets: ["ibm939"], base: "/none" })]);
  assert.deepEqual(all.map(({ status }) => status[0]), ["f", "r", "f", "f", "r"]);
  assert.deepEqual([kova.locales(), kova.codesets()], [["de_DE.unicode"], ["ibm037"]]);
  assert.equal((await kova.index(base)).some(({ name, size }) => name === "ibm037" && size === packed.length), true);
});

test("no call keeps memory", async () => {
  await Kova.load({ locales: ["de_DE"], codesets: ["ibm037", "iso-2022-jp"] });
  const collator = new Kova.Collator("de_DE"), text = "Grüße an Zoë ".repeat(8);
  const refused = (call) => {
    try {
      call();
    } catch {
      return;
    }
    assert.fail("nothing was refused");
  };
  const calls = {
    compare: () => collator.compare(text, `${text}x`),
    key: () => collator.key(text),
    sorted: () => collator.sorted(["b", text, "a"]),
    collators: () => new Kova.Collator("de_DE").close(),
    convert: () => Kova.encode(text, "ibm037"),
    refuse: () => refused(() => Kova.encode("a漢", "ibm037")),
    replace: () => Kova.encode("aあ😀", "iso-2022-jp", { errors: "replace" }),
    unknown: () => refused(() => Kova.encode("a", "nonsense")),
    pieces: () => {
      const converter = new Kova.Converter("utf8", "iso-2022-jp");
      converter.end();
      converter.close();
    },
    number: () => Kova.formatNumber("de_DE", 1234.5),
    money: () => Kova.formatMoney("de_DE", "1234.5"),
    date: () => Kova.formatDate("de_DE", { year: 2026, month: 11, day: 22 }),
    parse: () => Kova.parseDate("de_DE", "22.11.2026"),
    unread: () => refused(() => Kova.parseDate("de_DE", "nonsense")),
    upper: () => Kova.upper("de_DE", text),
  };
  const count = Number(process.env.KOVA_WEB_CALLS ?? 2000);
  for (const [name, call] of Object.entries(calls)) {
    for (let i = 0; i < 20; ++i) call();
    const before = Kova.memoryUsed;
    for (let i = 0; i < count; ++i) call();
    assert.equal(Kova.memoryUsed, before, `${name} keeps memory`);
  }
});

test("a collator that nobody holds is closed, and one of which only compare is held is not", async () => {
  setFlagsFromString("--expose-gc");
  const collect = async () => {
    runInNewContext("gc")();
    await new Promise((done) => setTimeout(done, 50));
  };
  const kova = await Kova.create().load({ locales: ["de_DE", "sv_SE"] }), before = kova.memoryUsed;
  let compare = (() => new kova.Collator("de_DE").compare)();
  for (let i = 0; i < 3; ++i) await collect();
  assert.equal(compare("a", "b"), -1);
  const open = kova.memoryUsed;
  assert.equal(open > before + 100000, true);
  compare = null;
  for (let i = 0; i < 20 && kova.memoryUsed === open; ++i) await collect();
  assert.equal(kova.memoryUsed < open - 100000, true);
});

test("a huge text leaves no huge block behind", async () => {
  await Kova.load({ locales: ["de_DE"] });
  const before = Kova.memoryUsed, huge = "äz".repeat(4 << 20), collator = new Kova.Collator("de_DE");
  assert.equal(collator.compare(huge, `${huge}a`), -1);
  assert.equal(collator.key(huge).length > huge.length, true);
  const pairs = `a${"😀".repeat(1 << 24)}`; // a decoder of the platform gets it in parts
  for (const text of [huge, pairs]) assert(Kova.decode(Kova.encode(text, "utf8"), "utf8") === text);
  assert.equal(Kova.memoryUsed < before + (8 << 20), true);
});
