// Makes kova.mjs of the modules in src: one file, which a page can also contain.
//   node make_module.mjs > kova.mjs
import { bare, block } from "./bundle.mjs";

const parts = ["errors", "module", "rows", "packs", "order", "convert", "format"];
const source = (name) => new URL(`src/${name}.mjs`, import.meta.url);

process.stdout.write(`${parts.map((name) => block(source(name))).join("\n")}\n${bare(source("kova"))}`);
