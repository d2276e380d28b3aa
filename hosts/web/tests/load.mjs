// What the tests share: the package that KOVA_WEB_PACKAGE names, or that hosts/web/build has made.
import { fileURLToPath, pathToFileURL } from "node:url";
import { readFileSync } from "node:fs";
import { join } from "node:path";

export const folder = process.env.KOVA_WEB_PACKAGE ??
  fileURLToPath(new URL("../../../build/web/package", import.meta.url));
export const { default: Kova, KovaError, ConversionError } =
  await import(pathToFileURL(join(folder, "kova.mjs")));
export const read = (...names) => new Uint8Array(readFileSync(join(folder, ...names)));
export const hex = (bytes) => Buffer.from(bytes).toString("hex");
export const bytes = (digits) => new Uint8Array(Buffer.from(digits.replaceAll(" ", ""), "hex"));
