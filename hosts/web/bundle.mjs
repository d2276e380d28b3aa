// Modules in one file: each becomes a function that answers what the module exports in its last
// statement, and the names that it exports stand before the call.
import { readFileSync } from "node:fs";

const IMPORT = /^import [^"]*"\.[^"]*";\n/gm, EXPORT = /\nexport (\{[^}]*\});\n$/;

const textOf = (url) => readFileSync(url, "utf8");

/** A module without its imports, which stand before it in the file. */
const bare = (url) => textOf(url).replace(IMPORT, "");

function block(url) {
  const text = bare(url), [statement, names] = EXPORT.exec(text);
  return `const ${names} = (() => {\n${text.replace(statement, "\n")}\nreturn ${names};\n})();\n`;
}

export { textOf, bare, block };
