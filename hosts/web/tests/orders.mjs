// What hosts/common/orders.py compares among all hosts.
import { createHash } from "node:crypto";
import { appendFileSync } from "node:fs";
import { join } from "node:path";

const hashOf = (lines) => createHash("sha256").update(lines.map((line) => `${line}\n`).join("")).digest("hex");

/** Adds a row of a host's order to the file in KOVA_HOST_DIR; lines are keys in hexadecimal, a tab and a text. */
export function noteOrder(locale, name, lines) {
  const rows = lines.split("\n").slice(0, -1), ends = rows.map((row) => row.indexOf("\t"));
  const hashes = [rows.map((row, i) => row.slice(ends[i] + 1)), rows.map((row, i) => row.slice(0, ends[i]))].map(hashOf);
  const { KOVA_HOST_DIR: folder } = process.env;
  if (folder) appendFileSync(join(folder, "orders"), `${[locale, name, ...hashes].join("\t")}\n`);
}
