// Packs the rows of hexadecimal digits of a data file, as src/rows.mjs says.
import { deflateRawSync } from "node:zlib";
import { DIFFERENCES, ROW } from "./src/rows.mjs";

const LEAST = 32; // digits of a row that is packed
const COLUMNS_MOST = 6;

function inColumns(bytes, columns, areDifferences) {
  const made = Buffer.alloc(bytes.length);
  let to = 0;
  for (let column = 0; column < columns; ++column) {
    for (let i = column, before = 0; i < bytes.length; i += columns) {
      made[to++] = areDifferences ? bytes[i] - before & 255 : bytes[i];
      before = bytes[i];
    }
  }
  return made;
}

const known = new Map(); // packed rows by their digits; locales have many in common

/** The form of a row that is the smallest by itself. */
function packedRow(digits) {
  if (known.has(digits)) return known.get(digits);
  const bytes = Buffer.from(digits, "hex"), size = bytes.length;
  let best = null, least = Infinity;
  for (let columns = 1; columns <= COLUMNS_MOST; ++columns) {
    for (const areDifferences of [0, DIFFERENCES]) {
      const made = inColumns(bytes, columns, areDifferences), packed = deflateRawSync(made).length;
      if (packed >= least) continue;
      least = packed;
      best = Buffer.concat([Buffer.of(ROW, columns | areDifferences, size & 255, size >> 8 & 255, size >> 16), made]);
    }
  }
  known.set(digits, best);
  return best;
}

function packRows(file) {
  const parts = [];
  for (let at = 0; at < file.length;) {
    const found = file.indexOf(10, at), end = found < 0 ? file.length : found, length = end - at;
    if (file[at] === ROW) throw new Error("a data file has a line that begins with the byte 1");
    const line = file.subarray(at, end);
    const isRow = found >= 0 && length >= LEAST && length % 2 === 0 && length < 1 << 24 &&
      line.every((byte) => (byte >= 0x30 && byte <= 0x39) || (byte >= 0x61 && byte <= 0x66));
    parts.push(isRow ? packedRow(line.toString("latin1")) : line, file.subarray(end, end + 1));
    at = end + 1;
  }
  return Buffer.concat(parts);
}

export { packRows };
