// What the package throws.

/** An error of the library by its number; 0 is one of the package itself. */
class KovaError extends Error {
  constructor(text, number = 0) {
    super(text);
    this.name = "KovaError";
    this.number = number;
  }
}

const REASONS = {
  illegal: "is no character",
  incomplete: "is cut off by the end",
  unmappable: "is lacking",
  approximate: "has only an approximation",
};

/** A place in a text that cannot be converted; fields as kova.d.ts says. */
class ConversionError extends KovaError {
  constructor(fields) {
    const { from, to, offset, characterName: name, reason } = fields;
    const where = reason === "illegal" || reason === "incomplete" ? from : to;
    super(`${from} to ${to}: at ${offset}: ${name} ${REASONS[reason]} in ${where}`, fields.number);
    this.name = "ConversionError";
    Object.assign(this, fields);
  }
}

// Numbers of the library that the package tells apart.
const ILLEGAL = 1, NO_MEMORY = 3, CUT_OFF = 7, DAMAGED = 11, TOO_LONG = 14, NOTHING = 18;
const BAD_MONEY = 20, NO_LOCALE = 54, NO_CHARACTER = 55, NO_CODE_SET = 56;

export { KovaError, ConversionError, ILLEGAL, NO_MEMORY, CUT_OFF, DAMAGED, TOO_LONG, NOTHING,
  BAD_MONEY, NO_LOCALE, NO_CHARACTER, NO_CODE_SET };
