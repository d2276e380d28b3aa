// The examples of the pages: what stands after an arrow is the value of the line.
import test from "node:test";
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { inspect } from "node:util";
import { Kova, folder } from "./load.mjs";

const AsyncFunction = (async () => {}).constructor;

for (const page of ["../../../docs/web.md", "../README.md"]) {
  test(`${page} is true`, async () => {
    const text = readFileSync(new URL(page, import.meta.url), "utf8");
    const lines = [...text.matchAll(/^```js\n([^]*?)^```$/gm)].flatMap(([, code]) => code.split("\n"))
      .filter((line) => !line.startsWith("import "));
    const code = lines.map((line) => {
      const [, expression, wanted] = /^(.*);\s+\/\/ → (.*)$/.exec(line) ?? [];
      return wanted ? `same(${expression}, ${JSON.stringify(wanted)});` : line;
    });
    let checked = 0;
    const same = (value, wanted) => {
      assert.equal(inspect(value, { breakLength: Infinity }), wanted);
      ++checked;
    };
    const mine = Kova.create(), load = mine.load;
    mine.load = (options) => load({ base: `${folder}/packs`, ...options });
    await new AsyncFunction("Kova", "same", code.join("\n"))(mine, same);
    assert.equal(checked > 5, true);
  });
}
