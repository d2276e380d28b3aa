// What the page contains: locales in the form for all of Unicode, with a language and what their dates
// have of their own, and code sets.
const locales = [
  ["en_US", "English"],
  ["cs_CZ", "Czech"],
  ["da_DK", "Danish"],
  ["de_DE", "German"],
  ["es_ES", "Spanish"],
  ["fr_CA", "French, Canada"],
  ["hu_HU", "Hungarian"],
  ["pl_PL", "Polish"],
  ["sv_SE", "Swedish"],
  ["tr_TR", "Turkish"],
  ["ru_RU", "Russian"],
  ["ar_SA@islm", "Arabic", "Islamic calendar"],
  ["he_IL@hebr", "Hebrew", "Hebrew calendar"],
  ["fa_IR", "Persian"],
  ["ja_JP", "Japanese", "with eras"],
  ["th_TH", "Thai", "Buddhist era"],
];

const codesets = [
  ["ISO-8859-1", "Western Europe"],
  ["CP1252", "Windows, Western Europe"],
  ["ISO-8859-7", "Greek"],
  ["KOI8-R", "Russian"],
  ["TIS-620", "Thai"],
  ["IBM437", "DOS, United States"],
  ["IBM850", "DOS, Western Europe"],
  ["IBM037", "hosts, United States"],
  ["IBM939", "hosts, Japanese, with shifts"],
  ["SHIFT_JIS", "Japanese"],
  ["EUC-JP", "Japanese"],
  ["GBK", "Chinese, simplified"],
  ["BIG5", "Chinese, traditional"],
];

/** Encodings that the module converts by itself. */
const unicodes = ["UTF-8", "UTF-16LE", "UTF-16BE", "UTF-32LE", "UTF-32BE", "UTF-7"];

export { locales, codesets, unicodes };
