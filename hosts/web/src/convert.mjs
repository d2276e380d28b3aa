// Conversions between code sets: whole texts, pieces, and charts of their codes.
import { KovaError, ConversionError, ILLEGAL, NO_MEMORY, CUT_OFF, TOO_LONG } from "./errors.mjs";
import { isWellFormed, whenCollected } from "./module.mjs";
import { plainName } from "./packs.mjs";

const KEEP_MARK = 16, WRITE_MARK = 32; // flags of ko_open_conversion
const FIRST_PIECE = 1 << 12, LONGEST_PIECE = 1 << 20; // bytes
const START = [1, 0, 0, 0]; // the state at the start of a text: first piece, source, target, extra
const KOREAN = 57502, ANNOUNCED = 1 << 17; // ISO-2022-KR says once what it shifts to
const IDLE_MOST = 16; // conversions that stay open
const UTF16 = new Uint8Array(new Uint16Array([1]).buffer)[0] ? "utf16le" : "utf16be";
const UTF16_SETS = ["utf16", "utf16le", "utf16be", "unicode"];
const UTF32_SETS = ["utf32", "utf32le", "utf32be"];
const UNICODE_SETS = ["utf8", "utf7", ...UTF16_SETS, ...UTF32_SETS];

const isUnicode = (name) => UNICODE_SETS.includes(plainName(name));
const utf8 = new TextEncoder();
const fromUnits = new TextDecoder("utf-16le", { ignoreBOM: true });

const textOf = (bytes) => UTF16 === "utf16le" ? fromUnits.decode(bytes)
  : String.fromCharCode(...new Uint16Array(bytes.slice().buffer));

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
      this.wide = { at: 0, state: START }; // how far the source was read for errors
      this.begun = false; // something was written
    }

    close() {
      if (this.held) giveBack(this.held);
      this.held = null;
    }

    /** The bytes of one more piece. */
    write(piece, last) {
      if (!this.held) throw new KovaError("the converter is closed");
      const text = this.kept.length ? joined([this.kept, piece]) : piece;
      const parts = [];
      let at = 0;
      for (;;) {
        const before = this.state;
        let done = run(this.held, text.subarray(at), last, before, this.exact);
        const place = at + done.taken;
        if (!done.lossy && (!done.error || (done.error === CUT_OFF && !last))) {
          if (!last && done.state[2] !== 0 && done.taken) {
            // The way back from a shifted state is written after the last character, which waits.
            done = run(this.held, text.subarray(at, place - 1), false, before, false);
          }
          parts.push(done.made);
          this.state = done.taken ? done.state : before;
          at += done.taken;
          break;
        }
        if (!done.taken) done.state = before;
        const { error, length } = this.#errorAt(text, place, done);
        const answer = this.#answer(error, () => joined([...parts, done.made]));
        const ends = last && place + length >= text.length;
        if (done.state[2] !== 0 && (answer.length || ends)) {
          // Once more, with the way back from the shifted state.
          const again = run(this.held, text.subarray(at, place), true, before, false);
          const target = again.state[2] & this.#lasting();
          done = { ...again, state: [0, done.state[1], target, done.state[3]] };
        }
        parts.push(done.made);
        this.begun ||= done.made.length > 0;
        this.state = [done.taken || this.begun ? 0 : before[0], ...done.state.slice(1)];
        if (answer.length) parts.push(this.#written(answer, error));
        at = place + length;
        if (ends) break;
      }
      this.#advance(text, at);
      return joined(parts);
    }

    #advance(text, at) {
      if (!this.isComplete && this.wide.at < at)
        this.wide = { at, state: this.#sourceState(text, at) };
      this.kept = text.slice(at);
      this.offset += at;
      this.wide.at -= at;
    }

    /** The state in which the source is read by itself at a place that was reached without an
     * error. Only a conversion whose own state is another one than at the start has to be asked. */
    #sourceState(text, at) {
      const [first, source, , extra] = this.state;
      if (!source && !extra) return first ? START : [0, 0, 0, 0];
      const held = lend(this.from, UTF16, KEEP_MARK);
      const { state } = run(held, text.subarray(this.wide.at, at), false, this.wide.state, false);
      giveBack(held);
      return state;
    }

    // ---- Errors ----

    #lasting() {
      this.number ??= module.withNames([this.to], (name) => module.x.web_codeset_number(name));
      return this.number === KOREAN ? ANNOUNCED : 0;
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
      const held = lend("utf8", this.to, this.flags | KEEP_MARK);
      const state = [this.begun ? 0 : 1, 0, this.state[2] & this.#lasting(), 0];
      const done = run(held, utf8.encode(answer), true, state, this.exact);
      giveBack(held);
      if (done.error || done.lossy || !isWellFormed(answer)) {
        error.converted ??= new Uint8Array(0);
        throw error;
      }
      this.begun = true;
      this.state = [0, this.state[1], done.state[2] & this.#lasting(), this.state[3]];
      return done.made;
    }

    #errorAt(text, place, done) {
      const { to, label: from } = this;
      const found = this.isComplete ? this.#bytesAt(text, place, done.state)
        : this.#characterAt(text, place);
      const reason = found.character !== null ? (done.lossy ? "approximate" : "unmappable")
        : found.whole ? "illegal" : "incomplete";
      const bytes = text.slice(place, place + found.length);
      const error = new ConversionError({
        number: done.error || ILLEGAL, from, to, reason, bytes, converted: null,
        offset: (this.offset + place) / this.unit, length: found.length / this.unit,
        character: found.character, characterName: nameOf(found.character, bytes),
      });
      return { error, length: found.length };
    }

    /** What is at a place of a text whose target lacks no character: bytes that are none. */
    #bytesAt(text, place, state) {
      const { length, whole = true } = this.#lookAt(text, place, (start, count) =>
        runPiece(this.held, text.subarray(start, start + count), false, state));
      return { character: null, length, whole };
    }

    /** What is at a place, as the source is read by itself: a character that the target lacks, or
     * bytes that are none. */
    #characterAt(text, place) {
      const held = lend(this.from, UTF16, KEEP_MARK), { at } = this.wide;
      let { state } = this.wide;
      if (place > at) state = run(held, text.subarray(at, place), false, state, false).state;
      const found = this.#lookAt(text, place, (start, count) =>
        runPiece(held, text.subarray(start, start + count), false, state));
      giveBack(held);
      this.wide = { at: place + found.length, state: found.state ?? state };
      return found;
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

    /** Bytes that show that they are no character, without those that are characters themselves. */
    #badLength(trial, place, count) {
      for (let i = 1; i < count; ++i) {
        const got = trial(place + i, 1);
        if (got.error === 0 && got.made.length) return i;
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

  function convert(data, from, to, options) {
    if (data instanceof Uint8Array) return convertAll(data, from, to, options);
    throw new KovaError("a Uint8Array is converted");
  }

  function decode(data, from, options) {
    return textOf(convert(data, from, UTF16, { ...options, writeMark: false }));
  }

  function encode(text, to, options) {
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
    const held = lend(codeset, UTF16, KEEP_MARK);
    try {
      const start = Uint8Array.from(lead);
      if (start.length && runPiece(held, start, false, START).made.length)
        throw new KovaError(`${codeset}: ${nameOf("", start)} is a whole character`);
      const cells = Array.from({ length: 256 }, (_, byte) =>
        cellOf(held, Uint8Array.of(...start, byte)));
      return { codeset, lead: start, cells };
    } finally {
      giveBack(held);
    }
  }

  return { Converter, convert, decode, encode, chart };
}

export { makeConversions };
