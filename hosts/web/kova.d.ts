/** Kova in Node and in browsers: one order, one set of formats and conversions everywhere.
 *
 * ```js
 * import Kova from "kova";
 * await Kova.load({ locales: ["de_DE"], codesets: ["IBM037"] });
 * ["Zebra", "Äpfel", "Apfel"].sort(new Kova.Collator("de_DE").compare);
 * ```
 *
 * Only `load` waits; everything else answers at once. Texts are strings of JavaScript; U+0000, the
 * empty string and surrogates without a partner are allowed where nothing else is said. */

/** The content of a file: bytes, or a string of base64. */
export type FileData = Uint8Array | ArrayBuffer | string;

export interface LoadOptions {
  /** Locales to load: "de_DE" (the form for all of Unicode), "de_DE.ISO-8859-1", "de_DE@ci". */
  locales?: string[];
  /** Code sets to load, by any name that `codesets` of the index lists: "IBM037", "Shift_JIS". */
  codesets?: string[];
  /** The folder with the packs: a URL or, in Node, also a path. `packs/` beside the module without
   * it. Packs that `data` contains are not looked for. */
  base?: string | URL;
  /** Packs by the names of their files, for pages without a server. All of them are loaded. */
  data?: Record<string, FileData>;
  /** The module itself, in place of `kova.wasm` beside `kova.mjs`. Looked at by the first load. */
  wasm?: FileData | URL;
}

/** A row of the index of a folder of packs. */
export interface PackEntry {
  /** The name to load it by. */
  name: string;
  kind: "locale" | "codeset";
  /** The number of the code set, also a locale's. */
  number: number;
  /** Other names of a code set. */
  aliases: string[];
  /** The file, in the folder of the index. */
  file: string;
  /** Its size in bytes, as it is transferred. */
  size: number;
}

/** What the library or the package refuses. */
export class KovaError extends Error {
  /** The library's number of the error; 0 for an error of the package itself. */
  readonly number: number;
}

/** A place in a text that cannot be converted. */
export class ConversionError extends KovaError {
  /** The code sets; `encode` converts from "string". */
  readonly from: string;
  readonly to: string;
  /** Bytes before the place, from the start of the text, in all pieces of a stream. For `encode`
   * this and `length` count units of the string. */
  readonly offset: number;
  /** Bytes that are not a character, or those of the character that the target lacks. */
  readonly length: number;
  readonly bytes: Uint8Array;
  /** `illegal`: not a character; `incomplete`: the end cuts a character; `unmappable`: the target
   * lacks the character; `approximate`: the target has only something like it. */
  readonly reason: "illegal" | "incomplete" | "unmappable" | "approximate";
  /** The character, where there is one. */
  readonly character: string | null;
  /** Its code as "U+20AC", or the bytes as "0xFF 0xFE". */
  readonly characterName: string;
  /** What was converted before the place. */
  readonly converted: Uint8Array;
}

/** What stands in place of what cannot be converted: nothing, a question mark or U+FFFD, a
 * reference such as "&#8364;" (bytes that are no character: "\xFF"), or what a function answers. A
 * string is converted to the target; bytes are written as they are. A string that the target lacks,
 * too, throws the error, and so does "escape" where the target lacks a character of the reference,
 * such as the backslash. A function must not use the converter that calls it, but may close it. */
export type ErrorHandling =
  | "strict" | "skip" | "replace" | "escape"
  | ((error: ConversionError) => string | Uint8Array);

export interface ConvertOptions {
  /** "strict" without it: throws a ConversionError. */
  errors?: ErrorHandling;
  /** Lets the tables write something similar for a character that the target lacks. True without
   * it where the target is an encoding of Unicode: there, it only says that a character has a
   * second code in the source. */
  approximate?: boolean;
  /** A byte-order mark at the start is a character like others. */
  keepMark?: boolean;
  /** A text in an encoding of Unicode gets a byte-order mark. */
  writeMark?: boolean;
}

/** A date in the Gregorian calendar; the month counts from 1. */
export interface DateFields {
  year: number;
  month: number;
  day: number;
  hour?: number;
  minute?: number;
  second?: number;
  microsecond?: number;
}

export interface ParseOptions {
  /** What a year of two digits means: the closest to today without it. */
  century?: "closest" | "future" | "past" | "current";
  /** Fields that the text does not say; without it, they are an error. */
  default?: DateFields | Date;
}

export interface MonthDay {
  /** Its number in the locale's calendar. */
  day: number;
  /** The same day in the Gregorian calendar. */
  date: DateFields;
}

/** A month of a locale's calendar. */
export interface Month {
  /** Its name and year: "November 2026". */
  title: string;
  /** Year and month of the locale's calendar; the month counts from 1. */
  year: number;
  month: number;
  /** "gregorian", "hebrew", "islamic" ... */
  calendar: string;
  /** The first day of the week: 1 is Sunday, 2 Monday. */
  firstWeekday: number;
  /** Short and long names of the days, from the first day of the week on. */
  weekdays: string[];
  weekdayNames: string[];
  /** Rows of seven days; null outside the month. */
  weeks: (MonthDay | null)[][];
  /** The first and the last day of the month in the Umm al-Qura calendar; null where the locale's
   * object does not know them. */
  umalqura: { first: DateFields; last: DateFields } | null;
}

export interface ChartCell {
  /** The bytes, from the first one of the lead on. */
  code: Uint8Array;
  /** `character`; `lead`: more bytes follow (open the chart with this lead); `shift`: changes the
   * state, and characters follow; `none`. */
  kind: "character" | "lead" | "shift" | "none";
  /** The character; null for the other kinds. */
  text: string | null;
  /** "U+20AC", several joined by blanks; "" for the other kinds. */
  name: string;
  /** The table takes the code for this character, but writes the character in another way. */
  oneWay: boolean;
}

/** The 256 codes that begin with the same bytes. */
export interface Chart {
  codeset: string;
  lead: Uint8Array;
  cells: ChartCell[];
}

/** What a locale says, by the names of POSIX; null where it says nothing. */
export interface LocaleInfo {
  readonly [name: string]: string | number | null | readonly string[] | readonly number[];
}

/** A locale's order, used as Intl.Collator is. */
export interface Collator {
  /** The locale's whole name: "de_DE.unicode". */
  readonly locale: string;
  /** The version of the order, to keep beside stored keys: keys of two collators can be compared
   * if their versions are equal, also those of the library's other hosts. */
  readonly version: string;
  /** Below 0, 0 or above 0, as `sort` wants it; bound to the collator. */
  readonly compare: (a: string, b: string) => number;
  /** The sort key: bytes whose order is that of the texts. Bound to the collator. */
  readonly key: (text: string) => Uint8Array;
  /** A sorted copy, faster than `sort` with `compare`: one key is made of every text. Texts that
   * the order holds equal stay in sequence. */
  sorted(texts: Iterable<string>): string[];
  sorted<T>(items: Iterable<T>, textOf: (item: T) => string): T[];
  /** Gives the memory back; otherwise this happens when nothing refers to the collator. */
  close(): void;
}

/** Converts a text in pieces, which may end within a character or a shifted part. */
export interface Converter {
  readonly from: string;
  readonly to: string;
  /** Bytes taken so far. */
  readonly offset: number;
  /** A piece that throws was not taken: offset and state are as before it. */
  write(piece: Uint8Array): Uint8Array;
  /** The rest, with the way back from a shifted state; the converter then starts anew. */
  end(piece?: Uint8Array): Uint8Array;
  close(): void;
}

/** The library with the packs that were loaded into it. */
export interface Library {
  /** Loads what is missing of the module and the packs. Packs are checked before they are used. */
  load(options?: LoadOptions): Promise<Library>;
  /** The packs of a folder, by its index. */
  index(base?: string | URL): Promise<PackEntry[]>;
  /** A library of its own, beside this one: another release of the data can be loaded into it. */
  create(): Library;
  /** Whole names of the locales that are loaded, and names of code sets. */
  locales(): string[];
  codesets(): string[];
  /** The library's version. */
  readonly version: string;
  /** Bytes of the module's memory that are in use; the packs themselves are outside it. */
  readonly memoryUsed: number;

  readonly KovaError: typeof KovaError;
  readonly ConversionError: typeof ConversionError;
  readonly Collator: new (locale: string) => Collator;
  readonly Converter: new (from: string, to: string, options?: ConvertOptions) => Converter;

  /** Bytes of one code set as those of another. The encodings of Unicode (utf8, utf16le, utf16be,
   * utf32...) need no pack. */
  convert(data: Uint8Array, from: string, to: string, options?: ConvertOptions): Uint8Array;
  decode(data: Uint8Array, from: string, options?: ConvertOptions): string;
  encode(text: string, to: string, options?: ConvertOptions): Uint8Array;
  /** The codes after a lead, by default the first bytes of a code set. */
  chart(codeset: string, lead?: Uint8Array | number[]): Chart;

  upper(locale: string, text: string): string;
  lower(locale: string, text: string): string;
  /** A number with all its digits, or by a format with one directive: "%'.2f". A bigint or a string
   * such as "12345678901234567890.25" is written exactly. */
  formatNumber(locale: string, value: number | bigint | string, format?: string): string;
  /** An amount by "%n", or by another format with one directive: "%i" has the currency's code. */
  formatMoney(locale: string, value: number | bigint | string, format?: string): string;
  /** A date by "%x", or by another format of the library. A Date counts in local time. */
  formatDate(locale: string, date?: Date | DateFields, format?: string): string;
  /** The date that a text says. The whole text must be read, and agree with the date. */
  parseDate(locale: string, text: string, format?: string,
    options?: ParseOptions): Required<DateFields>;
  /** A month of the locale's calendar, by its own year and month; today's without them. */
  calendar(locale: string, year?: number, month?: number): Month;
  /** The month that a Gregorian date is in. */
  calendarOf(locale: string, date: Date | DateFields): Month;
  info(locale: string): LocaleInfo;
}

export const Kova: Library;
export default Kova;
