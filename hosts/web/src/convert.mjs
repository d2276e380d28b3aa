// Conversions between code sets: whole texts, pieces, and charts of their codes.
import { KovaError, ConversionError, ILLEGAL, NO_MEMORY, CUT_OFF, TOO_LONG } from "./errors.mjs";
import { isWellFormed, whenCollected } from "./module.mjs";
import { plainName } from "./packs.mjs";

const KEEP_MARK = 16, WRITE_MARK = 32; // flags of ko_open_conversion
// Bits of a state's extra: of the source, and of a target in Unicode.
const MARK_SEEN = 1, SOURCE_BITS = 7, MARK_WRITTEN = 36;
const FIRST_PIECE = 1 << 12, LONGEST_PIECE = 1 << 20; // bytes
const START = [1, 0, 0, 0]; // the state at the start of a text: first piece, source, target, extra
const KOREAN = 57502, ANNOUNCED = 0x20010; // ISO-2022-KR says once what it shifts to
const DIGITS = { 57506: /[A-Za-z0-9+/]/, 57507: /[A-Za-z0-9+,]/ }; // of UTF-7, and of its form for mailboxes
const IDLE_MOST = 16; // conversions that stay open
const UTF16 = new Uint8Array(new Uint16Array([1]).buffer)[0] ? "utf16le" : "utf16be";
const UTF16_SETS = ["utf16", "utf16le", "utf16be", "unicode"];
const UTF32_SETS = ["utf32", "utf32le", "utf32be"];
const UNICODE_SETS = ["utf8", "utf7", ...UTF16_SETS, ...UTF32_SETS];

const isUnicode = (name) => UNICODE_SETS.includes(plainName(name));
const utf8 = new TextEncoder();
const fromUnits = new TextDecoder(UTF16 === "utf16le" ? "utf-16le" : "utf-16be", { ignoreBOM: true });
const TEXT_MOST = 1 << 26; // bytes that a TextDecoder is given at once; some refuse 2 ** 29

function textOf(bytes) {
  if (bytes.length <= TEXT_MOST) return fromUnits.decode(bytes);
  const units = new TextDecoder(fromUnits.encoding, { ignoreBOM: true });
  let text = "";
  for (let at = 0; at < bytes.length; at += TEXT_MOST)
    text += units.decode(bytes.subarray(at, at + TEXT_MOST), { stream: true });
  return text + units.decode();
}

function joined(parts) {
  if (parts.length === 1) return parts[0];
  const all = new Uint8Array(parts.reduce((size, part) => size + part.length, 0));
  parts.reduce((at, part) => (all.set(part, at), at + part.length), 0);
  return all;
}

const digitsOf = (code, width) => code.toString(16).toUpperCase().padStart(width, "0");

function nameOf(text, bytes) {
  if (text) return Array.from(text, (c) => `U+${digitsOf(c.codePointAt(0), 4)}`).join(" ");
  return Array.from(bytes, (byte) => `0x${digitsOf(byte, 2)}`).join(" ");
}

/** What error handlers other than functions put in place. */
function standIn(errors, error) {
  if (errors === "skip") return "";
  if (errors === "replace") return isUnicode(error.to) ? "\ufffd" : "?";
  if (error.character !== null)
    return Array.from(error.character, (c) => `&#${c.codePointAt(0)};`).join("");
  return Array.from(error.bytes, (byte) => `\\x${digitsOf(byte, 2)}`).join("");
}

function makeConversions(module, inUse) {
  // ---- Descriptors ----

  const open = new Map(); // by names and flags, the one used last at the end: { handle, users }

  function lend(from, to, flags) {
    const kind = `${from}\0${to}\0${flags}`;
    let held = open.get(kind);
    if (!held) {
      const handle = inUse().withNames([from, to], (a, b) => module.x.web_conversion(a, b, flags));
      if (handle < 0) throw module.error(`${from} to ${to}`, -handle);
      held = { handle, users: 0 };
    }
    open.delete(kind);
    open.set(kind, held);
    ++held.users;
    return held;
  }

  function giveBack(held) {
    --held.users;
    for (const [kind, { handle, users }] of open) {
      if (open.size <= IDLE_MOST) break;
      if (users) continue;
      open.delete(kind);
      module.x.web_close_conversion(handle);
    }
  }

  const numberOf = (name) => module.withNames([name], (at) => module.x.web_codeset_number(at));

  /** A call with a descriptor. */
  function lent(from, to, flags, call) {
    const held = lend(from, to, flags);
    try {
      return call(held);
    } finally {
      giveBack(held);
    }
  }

  /** One piece, with as much room as it needs. The numbers are those of kova_web_convert.c. */
  function runPiece(held, text, last, state) {
    const job = module.in.need(text.length + 64), at = job + 48;
    module.bytes.set(text, at);
    for (let room = module.x.web_room(held.handle, text.length) + 64; ; room *= 2) {
      if (room > LONGEST_PIECE * 64) throw module.error("conversion", NO_MEMORY);
      const out = module.out.need(room);
      const numbers = new Int32Array(module.x.memory.buffer, job, 11);
      numbers.set([at, out, text.length, room, last ? 1 : 0, ...state, 0, 0]);
      module.x.web_convert(held.handle, job);
      const made = new Int32Array(module.x.memory.buffer, job, 11);
      if (made[9] === TOO_LONG) continue;
      return { made: module.bytes.slice(out, out + made[3]), taken: made[2], error: made[9],
        lossy: made[10] !== 0, state: [0, made[6], made[7], made[8]] };
    }
  }

  /** The bytes before the first character that is only approximated. */
  function beforeLossy(held, text, taken, state) {
    let good = 0, bad = taken; // so many bytes are without one, and with one
    while (bad - good > 1) {
      const middle = (good + bad) >> 1;
      if (runPiece(held, text.subarray(0, middle), false, state).lossy) bad = middle;
      else good = middle;
    }
    return runPiece(held, text.subarray(0, good), false, state).taken;
  }

  /** Converts up to the end or to an error. Pieces grow, so that little is done in vain where
   * errors are frequent; a character that the end of a piece cuts is read again with the next. */
  function run(held, text, last, state, exact) {
    const parts = [];
    for (let at = 0, size = FIRST_PIECE; ; size = Math.min(2 * size, LONGEST_PIECE)) {
      const whole = text.length - at <= size;
      const piece = whole ? text.subarray(at) : text.subarray(at, at + size);
      let done = runPiece(held, piece, whole && last, state);
      let lossy = exact && done.lossy;
      if (lossy) {
        const before = beforeLossy(held, piece, done.taken, state);
        done = before ? runPiece(held, piece.subarray(0, before), false, state)
          : { ...done, made: new Uint8Array(0), taken: 0, state };
      }
      if (done.made.length) parts.push(done.made);
      at += done.taken;
      state = done.state;
      const cut = done.error === CUT_OFF && !whole && done.taken > 0;
      if (lossy || whole || (done.error && !cut)) {
        module.in.trim();
        module.out.trim();
        const error = lossy || cut ? 0 : done.error;
        return { made: joined(parts), taken: at, state, lossy, error };
      }
    }
  }

  // ---- One text ----

  /** A text that is converted, whole or in pieces. */
  class Run {
    constructor(from, to, options = {}, unit = 1) {
      const { errors = "strict", approximate = isUnicode(to), keepMark, writeMark } = options;
      if (typeof errors !== "function" && !["strict", "skip", "replace", "escape"].includes(errors))
        throw new KovaError(`errors is no way to handle errors: ${errors}`);
      Object.assign(this, { from, to, errors, unit, exact: !approximate });
      this.isComplete = isUnicode(to) && !this.exact;
      this.label = unit === 1 ? from : "string";
      this.flags = (keepMark ? KEEP_MARK : 0) | (writeMark ? WRITE_MARK : 0);
      this.held = lend(from, to, this.flags);
      this.begin();
    }

    begin() {
      this.state = START;
      this.offset = 0; // bytes before this piece
      this.kept = new Uint8Array(0); // a character that the piece before cut
      this.begun = false; // something was written
    }

    close() {
      this.isClosing = this.isBusy; // by a handler
      if (this.isBusy || !this.held) return;
      giveBack(this.held);
      this.held = null;
    }

    /** The bytes of one more piece. One that throws was not taken: all is as before it. */
    write(piece, last) {
      const { state, begun } = this;
      if (!(piece instanceof Uint8Array)) throw new KovaError("a Uint8Array is converted");
      if (!this.held) throw new KovaError("the converter is closed");
      if (this.isBusy) throw new KovaError("an error handler uses its own converter");
      this.isBusy = true;
      try {
        return this.#writePiece(piece, last);
      } catch (error) {
        Object.assign(this, { state, begun });
        throw error;
      } finally {
        this.isBusy = false;
        if (this.isClosing) this.close();
      }
    }

    #writePiece(piece, last) {
      const text = this.kept.length ? joined([this.kept, piece]) : piece;
      const parts = [];
      let at = 0;
      for (;;) {
        const before = this.state;
        let done = this.#run(text.subarray(at), last, before, this.exact);
        const place = at + done.taken, isCut = done.error === CUT_OFF && !last;
        const found = !done.lossy && (!done.error || isCut) ? null : this.#errorAt(text, place, done);
        // Of a character that the target lacks, a table may know no byte.
        if (!found || (found.error.reason === "incomplete" && !last)) {
          if (!last && done.state[2] !== 0 && done.taken) {
            // The way back from a shifted state is written after the last character, which waits.
            done = this.#run(text.subarray(at, place - 1), false, before, false);
          }
          parts.push(done.made);
          this.state = done.taken ? done.state : before;
          at += done.taken;
          break;
        }
        const { error, length } = found, answer = this.#answer(error, () => joined([...parts, done.made]));
        const ends = last && place + length >= text.length;
        parts.push(done.made);
        this.begun ||= done.made.length > 0;
        at = place + length;
        if (answer.length || ends) {
          parts.push(this.#wayBack(done.state[2]));
          done.state[2] = this.#lasting(done.state[2]);
        }
        this.#passOver(text[at - 1], found, done.state);
        if (answer.length) parts.push(this.#written(answer, error));
        if (ends && !(this.digits && this.state[1])) break; // bits may be left
      }
      this.kept = text.slice(at);
      this.offset += at;
      return joined(parts);
    }

    /** As run; an empty text, too, ends with the way back from a shifted state. */
    #run(text, last, state, exact) {
      const done = run(this.held, text, last, state, exact);
      return text.length || !last || done.made.length ? done : { ...done, made: this.#wayBack(state[2]) };
    }

    /** The way back from a state of the target. Objects write it with a character only. */
    #wayBack(target) {
      if (!target) return new Uint8Array(0);
      return lent("utf8", this.to, KEEP_MARK, (held) => {
        const after = (state, ...bytes) => run(held, Uint8Array.from(bytes), !bytes.length, [0, 0, state, 0], false).made;
        const back = after(target), shifted = after(target, 0);
        return back.length ? back : shifted.subarray(0, Math.max(0, shifted.length - after(0, 0).length));
      });
    }

    // ---- Errors ----

    /** Sets the state after an error, whose last byte is given; no mark comes after it. In UTF-7 a
     * character holds bits of the next one. Those of bytes that are no character go with them, and the
     * digits go on if these were digits. */
    #passOver(byte, { error, after }, [, before, target, extra]) {
      this.digits ??= DIGITS[numberOf(this.from)] ?? null;
      let source = after ? after[1] : before;
      if (this.digits && error.character === null) source &= this.digits.test(String.fromCharCode(byte));
      this.state = [0, source, target, extra | (isUnicode(this.from) ? MARK_SEEN : 0)];
    }

    /** What is left of the target's state after the way back, if something was written. */
    #lasting(isBegun) {
      this.number ??= numberOf(this.to);
      return isBegun && this.number === KOREAN ? ANNOUNCED : 0;
    }

    #answer(error, converted) {
      const { errors } = this, isFunction = typeof errors === "function";
      if (errors === "strict" || isFunction) error.converted = converted();
      if (errors === "strict") throw error;
      const answer = isFunction ? errors(error) : standIn(errors, error);
      if (typeof answer === "string" || answer instanceof Uint8Array) return answer;
      throw new KovaError("an error handler answers a string or a Uint8Array");
    }

    /** A replacement in the target's code set. */
    #written(answer, error) {
      if (typeof answer !== "string") {
        this.begun ||= true;
        return answer;
      }
      const state = [0, 0, this.#lasting(this.state[2]), 0], mark = this.begun ? 0 : this.flags;
      const done = lent("utf8", this.to, mark | KEEP_MARK, (held) =>
        run(held, utf8.encode(answer), true, state, this.exact));
      if (done.error || done.lossy || !isWellFormed(answer)) {
        error.converted ??= new Uint8Array(0);
        throw error;
      }
      this.begun = true;
      const written = this.flags & WRITE_MARK ? MARK_WRITTEN : 0;
      this.state = [0, this.state[1], this.#lasting(done.made.length || state[2]), this.state[3] | written];
      return done.made;
    }

    #errorAt(text, place, done) {
      const { to, label: from } = this;
      const found = this.isComplete ? this.#bytesAt(text, place, done.state)
        : this.#characterAt(text, place, done.state);
      const reason = found.character !== null ? (done.lossy ? "approximate" : "unmappable")
        : found.whole ? "illegal" : "incomplete";
      const bytes = text.slice(place, place + found.length);
      const error = new ConversionError({
        number: done.error || ILLEGAL, from, to, reason, bytes, converted: null,
        offset: (this.offset + place) / this.unit, length: found.length / this.unit,
        character: found.character, characterName: nameOf(found.character, bytes),
      });
      return { error, length: found.length, after: found.state };
    }

    /** What is at a place of a text whose target lacks no character: bytes that are none. */
    #bytesAt(text, place, state) {
      const { length, whole = true } = this.#lookAt(text, place, (start, count) =>
        runPiece(this.held, text.subarray(start, start + count), false, state));
      return { character: null, length, whole };
    }

    /** What is at a place, as the source is read by itself: a character that the target lacks, or
     * bytes that are none. */
    #characterAt(text, place, [first, source, , extra]) {
      const state = [first, source, 0, extra & SOURCE_BITS];
      return lent(this.from, UTF16, KEEP_MARK, (held) => this.#lookAt(text, place, (start, count) =>
        runPiece(held, text.subarray(start, start + count), false, state)));
    }

    /** { character, length, whole, state }: whole is false for what the end cuts. */
    #lookAt(text, place, trial) {
      const most = Math.min(text.length - place, 16);
      let count = 1, got;
      for (; ; ++count) {
        got = trial(place, count);
        if (got.error === 0 && got.made.length)
          return { character: textOf(got.made), length: count, state: got.state };
        if (got.error === ILLEGAL || count >= most) break;
      }
      if (got.error !== ILLEGAL)
        return { character: null, length: most, whole: text.length - place > most };
      const name = plainName(this.from);
      const unit = UTF16_SETS.includes(name) ? 2 : UTF32_SETS.includes(name) ? 4 : 0;
      const length = unit ? Math.min(unit, text.length - place)
        : name === "utf8" ? Math.max(count - 1, 1) : this.#badLength(trial, place, count);
      return { character: null, length, whole: true };
    }

    /** Bytes that show that they are no character, without those that are characters or shifts. */
    #badLength(trial, place, count) {
      for (let i = 1; i < count; ++i) {
        if (trial(place + i, 1).error === 0) return i;
      }
      return count;
    }
  }

  // ---- Functions ----

  function convertAll(data, from, to, options, unit) {
    const text = new Run(from, to, options, unit);
    try {
      return text.write(data, true);
    } finally {
      text.close();
    }
  }

  const convert = (data, from, to, options) => convertAll(data, from, to, options);

  function decode(data, from, options) {
    return textOf(convert(data, from, UTF16, { ...options, writeMark: false }));
  }

  function encode(text, to, options) {
    if (typeof text !== "string") throw new KovaError("a string is encoded");
    const units = new Uint16Array(text.length);
    for (let i = 0; i < text.length; ++i) units[i] = text.charCodeAt(i);
    return convertAll(new Uint8Array(units.buffer), UTF16, to, { ...options, keepMark: true }, 2);
  }

  const closing = (text) => () => text.close();

  class Converter {
    #run;

    constructor(from, to, options) {
      const text = new Run(from, to, options);
      this.#run = text;
      this.from = from;
      this.to = to;
      whenCollected.register(this, closing(text), this);
    }

    get offset() {
      return this.#run.offset + this.#run.kept.length;
    }

    write(piece) {
      return this.#run.write(piece, false);
    }

    end(piece = new Uint8Array(0)) {
      const made = this.#run.write(piece, true);
      this.#run.begin();
      return made;
    }

    close() {
      whenCollected.unregister(this);
      this.#run.close();
    }
  }

  // ---- Charts ----

  function cellOf(held, code) {
    const got = runPiece(held, code, false, START);
    const cell = { code, kind: "none", text: null, name: "", oneWay: false };
    if (got.error === CUT_OFF) cell.kind = "lead";
    else if (!got.error && !got.made.length) cell.kind = "shift";
    else if (!got.error) {
      const text = textOf(got.made);
      Object.assign(cell, { kind: "character", text, name: nameOf(text), oneWay: got.lossy });
    }
    return cell;
  }

  function chart(codeset, lead = []) {
    return lent(codeset, UTF16, KEEP_MARK, (held) => {
      const start = Uint8Array.from(lead);
      if (start.length && runPiece(held, start, false, START).made.length)
        throw new KovaError(`${codeset}: ${nameOf("", start)} is a whole character`);
      const cells = Array.from({ length: 256 }, (_, byte) =>
        cellOf(held, Uint8Array.of(...start, byte)));
      return { codeset, lead: start, cells };
    });
  }

  return { Converter, convert, decode, encode, chart };
}

export { makeConversions };
