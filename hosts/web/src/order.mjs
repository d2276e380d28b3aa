// Collators: the order of a locale, its keys, and sorting.
import { KovaError, ILLEGAL, NO_CHARACTER } from "./errors.mjs";
import { whenCollected } from "./module.mjs";

/** What collators share: the module and the names of its locales. */
function makeCollator(module, specOf) {
  // Texts that the order takes as they are, though they are ill-formed or lack in the code set.
  const isOrdered = (error) => error === ILLEGAL || error === NO_CHARACTER;

  function compare(record, a, b) {
    if (typeof a !== "string" || typeof b !== "string") [a, b] = [`${a}`, `${b}`];
    if (a === b) return 0;
    const at = module.in.need(2 * (a.length + b.length)), second = at + 2 * a.length;
    module.putUnits(at, a);
    module.putUnits(second, b);
    const result = module.x.web_compare(handleOf(record), at, a.length, second, b.length);
    module.in.trim();
    if (result >= -1 && result <= 1) return result;
    const error = Math.abs(result) - 1;
    if (!isOrdered(error)) throw module.error(record.spec, error);
    return Math.sign(result);
  }

  function key(record, text) {
    if (typeof text !== "string") text = `${text}`;
    const at = module.in.need(2 * text.length);
    module.putUnits(at, text);
    let size = 2 * text.length + 64, room;
    do {
      room = size;
      size = module.x.web_key(handleOf(record), module.out.need(room), room, at, text.length);
      if (size < 0) throw module.error(record.spec, -size);
    } while (size > room);
    const made = module.bytes.slice(module.out.at, module.out.at + size);
    module.in.trim();
    module.out.trim();
    return made;
  }

  /** The places of texts in order. */
  function places(record, texts) {
    const handle = handleOf(record), units = texts.reduce((sum, text) => sum + text.length, 0);
    const ends = module.take(4 * texts.length + 2 * units), at = ends + 4 * texts.length;
    let end = 0;
    const list = new Uint32Array(module.x.memory.buffer, ends, texts.length);
    texts.forEach((text, i) => {
      module.putUnits(at + 2 * end, text);
      list[i] = end += text.length;
    });
    const error = -module.x.web_sort(handle, at, ends, texts.length);
    const made = new Uint32Array(module.x.memory.buffer, ends, texts.length).slice();
    module.x.web_free(ends);
    if (error) throw module.error(record.spec, error);
    return made;
  }

  function handleOf(record) {
    if (!record.open) throw new KovaError("the collator is closed");
    return record.shared.handle;
  }

  /** Made here, where no variable refers to the collator. */
  const closing = (record) => () => {
    if (record.open) module.closeLocale(record.shared);
    record.open = false;
  };

  return class Collator {
    #record;

    constructor(locale) {
      const spec = specOf(locale);
      const record = { spec, shared: module.openLocale(spec), open: true };
      this.#record = record;
      this.locale = spec;
      this.version = module.result(spec, (out, room) =>
        module.x.web_version(record.shared.handle, out, room));
      // Whoever holds one of these alone holds the collator, which stays open.
      this.compare = (a, b) => compare(this.#record, a, b);
      this.key = (text) => key(this.#record, text);
      whenCollected.register(this, closing(record), this);
    }

    sorted(items, textOf) {
      const all = Array.from(items);
      const texts = all.map(textOf ? (item) => `${textOf(item)}` : String);
      return Array.from(places(this.#record, texts), (at) => all[at]);
    }

    close() {
      whenCollected.unregister(this);
      closing(this.#record)();
    }
  };
}

export { makeCollator };
