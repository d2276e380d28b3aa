// The WebAssembly module: its memory, the files that it reads, and its handles.
import { KovaError, NO_MEMORY, NO_LOCALE, NO_CODE_SET } from "./errors.mjs";

const utf8 = new TextEncoder(), fromUtf8 = new TextDecoder("utf-8", { ignoreBOM: true });
const KEPT = 1 << 20; // bytes of an area that are kept between calls
const MOST = 0x7fff0000; // bytes of one block
const FILES_MOST = 32, FIRST_FILE = 3; // as in kova_web_files.c

/** A block of the module's memory that grows as calls need it. */
class Area {
  constructor(module) {
    this.module = module;
    this.at = this.size = 0;
  }

  need(size) {
    if (size > this.size) {
      this.give();
      const more = size < KEPT ? Math.max(1024, 2 * size) : size;
      this.at = this.module.take(more);
      this.size = more;
    }
    return this.at;
  }

  trim() {
    if (this.size > 2 * KEPT) this.give();
  }

  give() {
    this.module.x.web_free(this.at);
    this.at = this.size = 0;
  }
}

class Module {
  #bytes = new Uint8Array(0);
  #units = new Uint16Array(0);
  #open = []; // files by number
  #records = new Map(); // open locales by their whole name: { handle, users }

  constructor() {
    this.x = null; // what the module exports
    this.files = new Map(); // by names such as "lc11/de_de/e005.lco"
    this.onOpen = null; // is told the name of every file that is found
  }

  async start(source) {
    if (this.x) return;
    const { instance } = await WebAssembly.instantiate(source, this.#imports());
    this.x = instance.exports;
    this.x._initialize?.();
    this.x.web_start();
    this.in = new Area(this);
    this.out = new Area(this);
  }

  // ---- What the module asks of the page ----

  #imports() {
    const refuse = () => 8; // there is no such file
    return {
      page: {
        open: (path) => this.#openFile(this.textAt(path)),
        close: (file) => { this.#open[file] = null; },
        size: (file) => this.#open[file].length,
        read: (file, at, to, room) => {
          const part = this.#open[file].subarray(at, at + room);
          this.bytes.set(part, to);
          return part.length;
        },
        today: () => {
          const now = new Date();
          return now.getFullYear() * 10000 + (now.getMonth() + 1) * 100 + now.getDate();
        },
      },
      env: { emscripten_notify_memory_growth: () => {} },
      wasi_snapshot_preview1: {
        fd_write: refuse,
        clock_time_get: (clock, precision, to) => {
          new DataView(this.x.memory.buffer).setBigUint64(to, BigInt(Date.now()) * 1000000n, true);
          return 0;
        },
        proc_exit: () => { throw new KovaError("the module has ended"); },
      },
    };
  }

  #openFile(path) {
    const name = path.replace(/^.*?kova\//, "");
    const file = this.files.get(name);
    if (!file) return -1;
    let number = FIRST_FILE;
    while (this.#open[number]) ++number;
    if (number >= FILES_MOST) return -1;
    this.#open[number] = file;
    this.onOpen?.(name);
    return number;
  }

  // ---- Memory ----

  // A view of memory is empty once memory has grown.
  get bytes() {
    if (!this.#bytes.length) this.#bytes = new Uint8Array(this.x.memory.buffer);
    return this.#bytes;
  }

  get units() {
    if (!this.#units.length) this.#units = new Uint16Array(this.x.memory.buffer);
    return this.#units;
  }

  take(size) {
    const at = size > MOST ? 0 : this.x.web_take(size);
    if (!at) throw new KovaError(this.errorText(NO_MEMORY), NO_MEMORY);
    return at;
  }

  textAt(at) {
    const bytes = this.bytes;
    return fromUtf8.decode(bytes.subarray(at, bytes.indexOf(0, at)));
  }

  /** The units of a text, to an even address. */
  putUnits(at, text) {
    const units = this.units, length = text.length;
    at >>= 1;
    for (let i = 0; i < length; ++i) units[at + i] = text.charCodeAt(i);
  }

  /** A call with text in UTF-8 whose result has to be measured: call(at, length, out, room). */
  fromText(what, text, call) {
    const { ends, at } = this.putTexts(what, [text]);
    return this.result(what, (out, room) => call(at, ends[0], out, room));
  }

  /** Well-formed texts in UTF-8, one after the other in the area for what goes in. */
  putTexts(what, texts) {
    const all = texts.join("");
    if (!isWellFormed(all)) throw new KovaError(`${what}: ${this.errorText(1)}`, 1);
    const at = this.in.need(3 * all.length), ends = [];
    let used = 0;
    for (const text of texts) {
      used += utf8.encodeInto(text, this.bytes.subarray(at + used, at + this.in.size)).written;
      ends.push(used);
    }
    return { at, ends };
  }

  /** The text that a call writes to (out, room), whose result is the length or an error. */
  result(what, call) {
    let size = 0;
    for (let room = 256; ; room = size) {
      size = call(this.out.need(room), room);
      if (size < 0) throw this.error(what, -size);
      if (size <= room) break;
    }
    const text = fromUtf8.decode(this.bytes.subarray(this.out.at, this.out.at + size));
    this.in.trim();
    this.out.trim();
    return text;
  }

  /** Calls with a name and a terminator after each; names contain none. */
  withNames(names, call) {
    if (names.some((name) => name.includes("\0"))) return -NO_CODE_SET;
    const { at, ends } = this.putTexts(names.join(" "), names.map((name) => `${name}\0`));
    return call(at, at + ends[0]);
  }

  // ---- Errors ----

  errorText(number) {
    return this.x ? this.textAt(this.x.web_error_text(number)) : "the module is not loaded";
  }

  error(what, number) {
    return new KovaError(`${what}: ${this.errorText(number)}`, number);
  }

  // ---- Locales ----

  /** A record for a user, who gives it back by closeLocale. */
  openLocale(spec) {
    let record = this.#records.get(spec);
    if (!record) {
      const handle = this.withNames([spec], (name) => this.x.web_locale(name));
      if (handle < 0) throw this.error(spec, handle === -NO_CODE_SET ? NO_LOCALE : -handle);
      record = { spec, handle, users: 0 };
      const error = -this.x.web_status(handle);
      if (error) {
        this.x.web_close_locale(handle);
        throw this.error(spec, error);
      }
      this.#records.set(spec, record);
    }
    ++record.users;
    return record;
  }

  closeLocale(record) {
    if (--record.users) return;
    this.#records.delete(record.spec);
    this.x.web_close_locale(record.handle);
  }

  /** A call with the record of a locale, which stays open for a while after it. */
  withLocale(spec, call) {
    if (this.lately?.spec !== spec) {
      const record = this.openLocale(spec);
      if (this.lately) this.closeLocale(this.lately);
      this.lately = record;
    }
    return call(this.lately.handle);
  }
}

const isWellFormed = String.prototype.isWellFormed
  ? (text) => text.isWellFormed()
  : (text) => !/\p{Surrogate}/u.test(text);

/** Closes what a collected object still holds. */
const whenCollected = new FinalizationRegistry((close) => close());

export { Module, isWellFormed, whenCollected };
