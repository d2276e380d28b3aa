// The order of locales: comparison, keys and sorting.
import test from "node:test";
import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { join } from "node:path";
import { Kova, KovaError, hex } from "./load.mjs";
import { noteOrder } from "./orders.mjs";

await Kova.load({ locales: ["de_DE", "sv_SE", "ja_JP", "th_TH", "fr_CA", "de_DE.ISO-8859-1"] });
const collator = (name) => new Kova.Collator(name);
const compareKeys = (a, b) => Math.sign(Buffer.compare(a, b));

test("each locale has its own order", () => {
  const rows = [
    ["de_DE", ["", "Apfel", "äpfel", "Äpfel", "Zebra"]],
    ["sv-SE", ["", "Apfel", "Zebra", "äpfel", "Äpfel"]],
    ["sv_SE.UTF-8", ["a", "z", "å", "ä", "ö"]],
    ["fr_CA", ["cote", "côte", "coté", "côté"]],
  ];
  for (const [name, wanted] of rows) {
    const { compare, sorted } = collator(name);
    const mixed = [...wanted].reverse();
    assert.deepEqual([...mixed].sort(compare), wanted, name);
    assert.deepEqual(collator(name).sorted(mixed), wanted, name);
  }
});

test("comparison, keys and sorting agree on texts of any kind", () => {
  const texts = ["", "\0", "a", "a\0", "a\0b", "\ud800", "a\udc00", "\ud83d\ude00", "\ufffe", "Ä", "A\u0308",
    "ß", "ss", "日本", "ก็", "x".repeat(100000), `${"x".repeat(100000)}y`, "\u{20bb7}", "-", "a-b"];
  for (const name of ["de_DE", "ja_JP", "th_TH", "de_DE.ISO-8859-1"]) {
    const { compare, key } = collator(name);
    for (const a of texts) {
      for (const b of texts) {
        const order = compare(a, b);
        assert.equal(order, -compare(b, a) + 0, `${name} ${a} ${b}`);
        assert.equal(order, compareKeys(key(a), key(b)) + 0, `${name} ${a} ${b}`);
      }
    }
    const sorted = collator(name).sorted(texts);
    for (let i = 1; i < sorted.length; ++i) assert(compare(sorted[i - 1], sorted[i]) <= 0);
  }
});

test("what is held equal stays in sequence, and items are sorted by their texts", () => {
  const items = ["b", "a", "b", "a"].map((text, id) => ({ text, id }));
  assert.deepEqual(collator("de_DE").sorted(items, ({ text }) => text).map(({ id }) => id), [1, 3, 0, 2]);
});

test("a closed collator and unknown locales are refused", () => {
  const closed = collator("de_DE");
  closed.close();
  closed.close();
  assert.throws(() => closed.compare("a", "b"), /closed/);
  for (const name of ["xx_XX", "de_DE\0", "", "../de_DE", "de_DE@none"])
    assert.throws(() => collator(name), KovaError, name);
  assert.equal(collator("de_DE").compare("a", "b"), -1);
});

const { KOVA_HOST_ORDER: hostOrder, KOVA_TEST_ROOT: root, KOVA_STRINGS: strings } = process.env;

test("order and keys are those of C", { skip: !hostOrder && "KOVA_HOST_ORDER is not set" }, () => {
  const made = spawnSync("python3", [strings], { maxBuffer: 1 << 28, encoding: "utf8" });
  const words = made.stdout.split("\n").slice(0, -1);
  assert.equal(words.length, 100000);
  for (const name of ["de_DE", "sv_SE", "ja_JP", "th_TH", "fr_CA"]) {
    const here = collator(name);
    const mine = here.sorted(words).map((word) => `${hex(here.key(word))}\t${word}\n`).join("");
    const inC = spawnSync(hostOrder, [root, here.locale],
      { input: made.stdout, maxBuffer: 1 << 30, encoding: "utf8" });
    assert.equal(inC.status, 0, inC.stderr);
    noteOrder(name, "Node", mine);
    assert(mine === inC.stdout, `${name}: keys or order differ from those of C`);
    if (name === "de_DE") assert.deepEqual([...words].sort(here.compare), here.sorted(words));
  }
});
