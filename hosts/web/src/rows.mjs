// Rows of hexadecimal digits, which packs hold as bytes that gzip makes smaller.

// A packed row begins with this byte, in place of a digit. Then come the number of columns, with 8
// added where each byte is the difference from the one before in its column; the number of bytes,
// the least significant byte first; the bytes, column by column; and the end of the line.
const ROW = 1, HEAD = 5, DIFFERENCES = 8;
const DIGITS = Uint8Array.from("0123456789abcdef", (c) => c.charCodeAt(0));

/** Writes the digits of the row at a place of packed bytes to out; how many bytes, or -1. */
function putRow(packed, at, out, to) {
  const columns = packed[at + 1] & ~DIFFERENCES, areDifferences = packed[at + 1] & DIFFERENCES;
  const count = packed[at + 2] | packed[at + 3] << 8 | packed[at + 4] << 16;
  const end = at + HEAD + count;
  if (!columns || packed[end] !== 10 || to + 2 * count >= out.length) return -1;
  for (let column = 0, from = at + HEAD; column < columns; ++column) {
    for (let i = column, before = 0; i < count; i += columns) {
      const value = areDifferences ? packed[from++] + before & 255 : packed[from++];
      before = value;
      out[to + 2 * i] = DIGITS[value >> 4];
      out[to + 2 * i + 1] = DIGITS[value & 15];
    }
  }
  return count;
}

/** The file of so many bytes that was packed, or null. */
function unpackRows(packed, size) {
  const out = new Uint8Array(size);
  let to = 0;
  for (let at = 0; at < packed.length;) {
    if (packed[at] === ROW) {
      const count = putRow(packed, at, out, to);
      if (count < 0) return null;
      at += HEAD + count + 1;
      to += 2 * count;
      out[to++] = 10;
    } else {
      const end = packed.indexOf(10, at), line = packed.subarray(at, end < 0 ? packed.length : end + 1);
      if (line.length > size - to) return null;
      out.set(line, to);
      at += line.length;
      to += line.length;
    }
  }
  return to === size ? out : null;
}

export { unpackRows, ROW, DIFFERENCES };
