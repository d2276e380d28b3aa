// Conversions: whole texts, pieces, errors and charts.
import test from "node:test";
import assert from "node:assert/strict";
import { Kova, KovaError, ConversionError, bytes, hex } from "./load.mjs";

await Kova.load({
  codesets: ["IBM037", "IBM939", "iso-2022-jp", "windows-1252", "gbk", "Shift_JIS", "ISO-8859-1", "iso-2022-kr",
    "utf7"],
});

const JAPANESE = "日本語 abc カナ", SHIFTED = "aあbい";

test("texts are written and read back", () => {
  const rows = [
    ["IBM037", "Grüße", "c7 99 dc 59 85"],
    ["windows-1252", "€ Ä", "80 20 c4"],
    ["IBM939", "A本B", null],
    ["iso-2022-jp", JAPANESE, null],
    ["iso-2022-kr", "한글 abc", null],
    ["gbk", "汉字", "ba ba d7 d6"],
    ["utf-16le", "a\0€😀", "61 00 00 00 ac 20 3d d8 00 de"],
    ["utf8", "\ufeffa", "ef bb bf 61"],
    ["utf7", "a€b", "61 2b 49 4b 77 2d 62"],
    ["ISO-8859-1", "", ""],
  ];
  for (const [name, text, wanted] of rows) {
    const made = Kova.encode(text, name);
    if (wanted !== null) assert.equal(hex(made), wanted.replaceAll(" ", ""), name);
    assert.equal(Kova.decode(made, name, { keepMark: true }), text, name);
  }
  assert.equal(Kova.decode(bytes("fffe6100"), "utf16"), "a");
  assert.equal(hex(Kova.encode("a", "utf16be", { writeMark: true })), "feff0061");
});

test("errors say what is wrong and where", () => {
  const long = "x".repeat(5000);
  const rows = [ // data, from, to: offset, length, reason, character, name
    [bytes("41 e4 42"), "utf8", "IBM037", [1, 1, "illegal", null, "0xE4"]],
    [bytes("41 e2 82"), "utf8", "IBM037", [1, 2, "incomplete", null, "0xE2 0x82"]],
    [bytes("41 e2 82 41"), "utf8", "utf16", [1, 2, "illegal", null, "0xE2 0x82"]],
    ["a漢b", "string", "IBM037", [1, 1, "unmappable", "漢", "U+6F22"]],
    ["a😀", "string", "ISO-8859-1", [1, 2, "unmappable", "😀", "U+1F600"]],
    ["a\ud800b", "string", "utf8", [1, 1, "illegal", null, null]],
    [`${long}漢`, "string", "IBM037", [5000, 1, "unmappable", "漢", "U+6F22"]],
    [bytes("0e 45 66 45"), "IBM939", "utf8", [3, 1, "incomplete", null, "0x45"]],
    [bytes("0e 45 66 00 00 0f"), "IBM939", "utf8", [3, null, "illegal", null, null]],
    [bytes("82 a0 ff 41"), "Shift_JIS", "utf8", [2, 1, "illegal", null, "0xFF"]],
    [bytes("82 a0 82"), "Shift_JIS", "utf8", [2, 1, "incomplete", null, "0x82"]],
    [bytes("82 a0 41"), "Shift_JIS", "IBM037", [0, 2, "unmappable", "あ", "U+3042"]],
    [bytes("1b 24 42 24 22 1b 28 42 e9"), "iso-2022-jp", "utf8", [8, 1, "illegal", null, "0xE9"]],
  ];
  for (const [data, from, to, [offset, length, reason, character, name]] of rows) {
    const call = () => from === "string" ? Kova.encode(data, to) : Kova.convert(data, from, to);
    assert.throws(call, (error) => {
      assert(error instanceof ConversionError, String(error));
      const said = `${String(error)} ${error.length} ${error.reason}`;
      assert.deepEqual([error.offset, error.reason, error.character], [offset, reason, character], said);
      if (length !== null) assert.equal(error.length, length, said);
      if (name !== null) assert.equal(error.characterName, name, said);
      const before = from === "string" ? Kova.encode(data.slice(0, offset), to)
        : Kova.convert(data.slice(0, offset), from, to);
      assert.equal(hex(before).startsWith(hex(error.converted)), true, said);
      return true;
    });
  }
});

test("handlers put something in place", () => {
  const rows = [
    ["skip", "a漢b", "IBM037", "ab"],
    ["replace", "a漢b", "IBM037", "a?b"],
    ["escape", "a漢😀b", "ISO-8859-1", "a&#28450;&#128512;b"],
    ["escape", "漢", "ISO-8859-1", "&#28450;"],
    [({ character, offset }) => `<${character}${offset}>`, "😀a漢", "iso-2022-jp", "<?0>a漢"],
    [({ offset }) => `[${offset}]`, "あ😀い😀", "iso-2022-jp", "あ[1]い[4]"],
    ["replace", "한😀글", "iso-2022-kr", "한?글"],
    ["replace", "あ😀", "IBM939", "あ?"],
    ["skip", `${"漢".repeat(20000)}b`, "IBM037", "b"],
  ];
  for (const [errors, text, to, wanted] of rows) {
    const by = typeof errors === "function" ? (error) => errors(error).replace("😀", "?") : errors;
    assert.equal(Kova.decode(Kova.encode(text, to, { errors: by }), to), wanted, `${text} ${to}`);
  }
  assert.equal(Kova.decode(bytes("41 e4 42"), "utf8", { errors: "replace" }), "A\ufffdB");
  assert.equal(Kova.decode(bytes("41 e4 42"), "utf8", { errors: "escape" }), "A\\xE4B");
  assert.equal(hex(Kova.encode("a漢", "IBM037", { errors: () => bytes("6f6f") })), "816f6f");
  const header = "1b242943";
  for (const [from, to, options, data, wanted] of [ // bytes that no decoder tells apart, or states that errors change
    ["utf8", "iso-2022-kr", { errors: "replace" }, "a漢\u{10ffff}한\u{10ffff}", `${header}610e79530f3f0e47510f3f`],
    ["utf8", "utf16be", { errors: "replace", writeMark: true }, bytes("ff41ff42"), "feff" + "fffd" + "0041" + "fffd" + "0042"],
    ["utf8", "utf16be", { errors: "skip", writeMark: true }, bytes("ff41"), "feff0041"],
    ["utf32le", "IBM037", { errors: "replace" }, bytes("a9030000 fffe0000 5c000000"), "6f6fe0"],
  ]) {
    const source = typeof data === "string" ? Kova.encode(data, from) : data;
    assert.equal(hex(Kova.convert(source, from, to, options)), wanted, `${from} ${to} ${hex(source)}`);
  }
  assert.throws(() => Kova.encode("漢", "IBM037", { errors: () => "漢" }), ConversionError);
  assert.throws(() => Kova.encode("漢", "IBM037", { errors: "nonsense" }), KovaError);
  assert.throws(() => Kova.encode("a\ud800", "utf16le", { errors: () => "\udfff" }), ConversionError);
});

test("an approximation is an error unless it is wanted", () => {
  const text = `${"a".repeat(5000)}\uff01b`;
  assert.equal(Kova.encode(text, "cp1252", { approximate: true }).at(-2), 0x21);
  assert.throws(() => Kova.encode(text, "cp1252"), (error) =>
    error.offset === 5000 && error.reason === "approximate" && error.converted.length === 5000);
  assert.equal(Kova.decode(Kova.encode(text, "cp1252", { errors: "escape" }), "cp1252").slice(5000), "&#65281;b");
});

/** The text converted as a whole, in hexadecimal, which all its pieces have to give, too. */
function checkPieces(source, from, to, options) {
  const wanted = hex(Kova.convert(source, from, to, options)), converter = new Kova.Converter(from, to, options);
  for (let cut = 0; cut <= source.length; ++cut) {
    const parts = [source.subarray(0, cut), source.subarray(cut)].map((part) => converter.write(part));
    parts.push(converter.end());
    assert.equal(parts.map(hex).join(""), wanted, `${from} to ${to} ${hex(source)} cut at ${cut}`);
  }
  const one = [...source].map((byte) => hex(converter.write(Uint8Array.of(byte))));
  assert.equal(one.join("") + hex(converter.end()), wanted, `${from} to ${to} ${hex(source)} by bytes`);
  converter.close();
  assert.throws(() => converter.write(source), /closed/);
  return wanted;
}

test("a text in pieces is converted as in one, wherever it is cut", () => {
  const rows = [
    ["iso-2022-jp", JAPANESE], ["IBM939", "A本B語"], ["iso-2022-kr", "한글 abc"], ["utf8", "aä€😀"],
    ["utf7", "a€b漢"], ["gbk", "汉a字"], ["utf16", "\ufeffa€"], ["Shift_JIS", SHIFTED],
  ];
  for (const [name, text] of rows) {
    const data = Kova.encode(text, name), whole = Kova.convert(data, name, "utf8");
    checkPieces(data, name, "utf8");
    checkPieces(whole, "utf8", name);
  }
  const damaged = [ // what the target lacks, and bytes that are no character
    ["utf8", "ISO-8859-1", "61 e3 83 8a c3 a9 e4 ba ba", "replace", "613fe93f"],
    ["utf8", "IBM939", "e6 bc a2 f0 9f 98 80 62", "skip", "0e4f580f82"],
    ["utf8", "IBM939", "e6 bc a2 f0 9f 98 80 f0 9f 98 80", "skip", "0e4f580f"],
    ["utf8", "iso-2022-kr", "61 f4 8f bf bf f4 8f bf bf", "replace", "1b242943613f3f"],
    ["utf7", "utf8", "2b 41 47 46 2d 62", "replace", "61efbfbd62"],
    ["utf7", "utf8", "2b 32 41 41 2d 62", "replace", "efbfbd62"],
    ["utf7", "utf8", "2b 41 47 46", "replace", "61efbfbd"],
    ["utf7", "IBM037", "2b 4d 4b 73 41 4c 67 2d 61", "skip", "4b81"],
    ["utf7", "IBM939", "2b 62 79 4a 57 2f 64 56 63 2d", "replace", null],
    ["utf7", "utf7", "2b 57 63 36 62 79 4a 2d", "skip", null],
    ["IBM939", "utf8", "0e 45 2d 66 0f 89", "replace", "efbfbdefbfbd69"],
    ["IBM939", "IBM037", "0e 45 66 0f c1", "replace", "6fc1"],
  ];
  for (const [from, to, digits, errors, wanted] of damaged) {
    const made = checkPieces(bytes(digits), from, to, { errors });
    if (wanted) assert.equal(made, wanted, `${from} to ${to} ${digits}`);
  }
});

test("errors in pieces count from the start of the text", () => {
  const converter = new Kova.Converter("IBM939", "utf8");
  converter.write(bytes("c1 0e 45 66 45"));
  assert.equal(converter.offset, 5);
  assert.throws(() => converter.write(bytes("00 45 66")), (error) => error.offset === 4);
  const lasting = new Kova.Converter("IBM939", "utf8", { errors: "replace" });
  const parts = ["c1 0e 45", "66 00", "00 45 66 0f c1"].map((part) => lasting.write(bytes(part)));
  parts.push(lasting.end());
  const read = new TextDecoder().decode(Buffer.concat(parts));
  assert.match(read, /^A本\ufffd+本A$/);
});

test("a piece that throws was not taken, and handlers do not disturb their converter", () => {
  for (const [name, good, bad, rest, wanted] of [
    ["IBM939", "c1 0e 45", "66 45 66 00 00", "66 0f c1", "A本A"],
    ["utf16", "fffe", "2c 67 00 dc", "2c 67", "本"]]) {
    const converter = new Kova.Converter(name, "utf8"), parts = [converter.write(bytes(good))];
    assert.throws(() => converter.write(bytes(bad)), ConversionError, name);
    parts.push(converter.write(bytes(rest)), converter.end());
    assert.equal(Buffer.concat(parts).toString(), wanted, name);
  }
  let converter;
  const uses = [() => converter.write(bytes("41")), () => converter.end(), () => { throw new Error("a handler's own"); }];
  for (const use of uses) {
    converter = new Kova.Converter("utf8", "IBM037", { errors: use });
    assert.throws(() => converter.write(bytes("41 ff 42")), /its own converter|a handler's own/);
    assert.equal(hex(converter.write(bytes("41"))), "c1");
  }
  converter = new Kova.Converter("utf8", "IBM037", { errors: () => { converter.close(); return "?"; } });
  assert.equal(hex(converter.write(bytes("41 ff ff 42"))), "c16f6fc2");
  assert.throws(() => converter.write(bytes("41")), /closed/);
});

test("charts show what codes mean", () => {
  const rows = [ // code set, lead, byte: kind, text
    ["IBM037", [], 0xc1, "character", "A"],
    ["Shift_JIS", [], 0x82, "lead", null],
    ["Shift_JIS", [0x82], 0xa0, "character", "あ"],
    ["Shift_JIS", [0x82], 0x20, "none", null],
    ["IBM939", [], 0x0e, "shift", null],
    ["IBM939", [0x0e], 0x45, "lead", null],
    ["IBM939", [0x0e, 0x45], 0x66, "character", "本"],
    ["iso-2022-jp", [0x1b, 0x24], 0x42, "shift", null],
    ["iso-2022-jp", [0x1b, 0x24, 0x42, 0x24], 0x22, "character", "あ"],
    ["utf8", [], 0xff, "none", null],
  ];
  for (const [codeset, lead, byte, kind, text] of rows) {
    const { cells } = Kova.chart(codeset, lead), said = `${codeset} ${lead} ${byte}`;
    assert.equal(cells.length, 256);
    assert.deepEqual([cells[byte].kind, cells[byte].text], [kind, text], said);
    assert.deepEqual([...cells[byte].code], [...lead, byte], said);
  }
  assert.throws(() => Kova.chart("IBM037", [0xc1]), KovaError);
});

test("what cannot be opened is refused", () => {
  for (const name of ["", "nonsense", "ibm037\0", "IBM500"])
    assert.throws(() => Kova.convert(new Uint8Array(1), "utf8", name), KovaError, name);
  for (const data of ["text", 5, null, [65], new Uint16Array(1)]) {
    assert.throws(() => Kova.convert(data, "utf8", "IBM037"), KovaError, `${data}`);
    assert.throws(() => new Kova.Converter("utf8", "IBM037").write(data), KovaError, `${data}`);
  }
  for (const text of [5, undefined, bytes("41")]) assert.throws(() => Kova.encode(text, "IBM037"), KovaError, `${text}`);
});
