// Speed beside Intl.Collator: node speed.mjs FILE, in milliseconds of processor time, medians of five.
import { readFileSync } from "node:fs";
import { Kova } from "./load.mjs";

const words = readFileSync(process.argv[2], "utf8").split("\n").slice(0, -1);
const latin = words.filter((word) => /^[\0-\u024f]*$/.test(word));

function median(call) {
  const times = Array.from({ length: 5 }, () => {
    const start = process.cpuUsage();
    call();
    const { user, system } = process.cpuUsage(start);
    return (user + system) / 1000;
  });
  return times.sort((a, b) => a - b)[2].toFixed(1);
}

const start = performance.now();
await Kova.load({ locales: ["de_DE", "ja_JP"], codesets: ["Shift_JIS"] });
console.log(`loading the module and three packs: ${(performance.now() - start).toFixed(0)} ms`);
for (const locale of ["de_DE", "ja_JP"]) {
  const ours = new Kova.Collator(locale), theirs = new Intl.Collator(locale.replace("_", "-"));
  for (const [what, list] of [["strings of all scripts", words], ["of them Latin", latin]]) {
    console.log(`${locale}, ${list.length} ${what}: sorted ${median(() => ours.sorted(list))}, sort(compare) ` +
      `${median(() => [...list].sort(ours.compare))}, Intl ${median(() => [...list].sort(theirs.compare))}, ` +
      `keys ${median(() => list.forEach((word) => ours.key(word)))}`);
  }
}
const text = "日本語のテキスト、かな漢字 and ASCII. ".repeat(40000), data = Kova.encode(text, "Shift_JIS");
const native = new TextDecoder("shift_jis");
console.log(`${data.length} bytes of Shift_JIS: decode ${median(() => Kova.decode(data, "Shift_JIS"))}, ` +
  `TextDecoder ${median(() => native.decode(data))}, encode ${median(() => Kova.encode(text, "Shift_JIS"))}`);
