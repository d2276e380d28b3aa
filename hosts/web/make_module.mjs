// Makes kova.mjs of the modules in src: one file, which a page can also contain.
//   node make_module.mjs > kova.mjs
// A module becomes a function that answers what the module exports in its last statement.
import { readFileSync } from "node:fs";

const parts = ["errors", "module", "packs", "order", "convert", "format"];
const IMPORT = /^import [^"]*"\.\/[^"]*";\n/gm, EXPORT = /\nexport (\{[^}]*\});\n$/;
const source = (name) => readFileSync(new URL(`src/${name}.mjs`, import.meta.url), "utf8");

const made = parts.map((name) => {
  const text = source(name).replace(IMPORT, ""), [statement, names] = EXPORT.exec(text);
  return `const ${names} = (() => {\n${text.replace(statement, "\n")}\nreturn ${names};\n})();\n`;
});
process.stdout.write(`${made.join("\n")}\n${source("kova").replace(IMPORT, "")}`);
