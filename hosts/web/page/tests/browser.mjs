// A small driver of headless Chromium: the DevTools protocol over a pipe, one page.
import { spawn } from "node:child_process";
import { mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";

const FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
  "--disable-background-networking", "--disable-component-update", "--disable-sync", "--hide-scrollbars",
  "--remote-debugging-pipe"];
const PATIENCE = 60000; // milliseconds
const CODES = { Tab: 9, Enter: 13, Backspace: 8, Home: 36, End: 35, ArrowLeft: 37, ArrowUp: 38, ArrowRight: 39, ArrowDown: 40, " ": 32 };

class Browser {
  #answers = new Map();
  #last = 0;
  #session;
  #rest = "";
  complaints = []; // errors of the console, and exceptions
  requests = []; // URLs

  async start(command) {
    this.profile = mkdtempSync(join(tmpdir(), "kova-page-"));
    this.process = spawn(command, [...FLAGS, `--user-data-dir=${this.profile}`, "about:blank"],
      { stdio: ["ignore", "ignore", "ignore", "pipe", "pipe"] });
    const [, , , to, from] = this.process.stdio;
    this.write = (message) => to.write(`${JSON.stringify(message)}\0`);
    from.setEncoding("utf8").on("data", (text) => this.#take(text));
    const { targetId } = await this.send("Target.createTarget", { url: "about:blank" });
    this.#session = (await this.send("Target.attachToTarget", { targetId, flatten: true })).sessionId;
    for (const domain of ["Page", "Runtime", "Network", "Log"]) await this.send(`${domain}.enable`);
    return this;
  }

  #take(text) {
    const messages = (this.#rest + text).split("\0");
    this.#rest = messages.pop();
    for (const message of messages.map((one) => JSON.parse(one))) {
      if (message.id) this.#answers.get(message.id)?.(message);
      else this.#note(message);
    }
  }

  #note({ method, params }) {
    if (method === "Runtime.exceptionThrown") this.complaints.push(params.exceptionDetails.exception?.description);
    if (method === "Log.entryAdded" && params.entry.level === "error") this.complaints.push(params.entry.text);
    if (method === "Runtime.consoleAPICalled" && params.type === "error") this.complaints.push(params.args[0]?.value);
    if (method === "Network.requestWillBeSent") this.requests.push(params.request.url);
  }

  send(method, params = {}) {
    const id = ++this.#last;
    return new Promise((resolve, reject) => {
      const timer = setTimeout(() => reject(new Error(`${method}: no answer`)), PATIENCE);
      this.#answers.set(id, ({ result, error }) => {
        clearTimeout(timer);
        this.#answers.delete(id);
        if (error) reject(new Error(`${method}: ${error.message}`));
        else resolve(result);
      });
      this.write({ id, method, params, sessionId: this.#session });
    });
  }

  /** The value of an expression, or of what it promises. A function is called with the arguments. */
  async run(code, ...args) {
    const expression = typeof code === "function" ? `(${code})(${args.map((a) => JSON.stringify(a)).join(",")})` : code;
    const { result, exceptionDetails } = await this.send("Runtime.evaluate",
      { expression, awaitPromise: true, returnByValue: true, userGesture: true });
    if (exceptionDetails) throw new Error(exceptionDetails.exception?.description ?? exceptionDetails.text);
    return result.value;
  }

  /** Waits until an expression is true. */
  async until(code, ...args) {
    for (const end = Date.now() + PATIENCE; Date.now() < end; await new Promise((next) => setTimeout(next, 30)))
      if (await this.run(code, ...args)) return;
    throw new Error(`not true in time: ${code}`);
  }

  /** Opens a page and waits until it is ready. */
  async open(url, isReady = "document.documentElement?.dataset.ready === 'yes'") {
    await this.send("Page.navigate", { url });
    await this.until(isReady);
  }

  async size(width, height, dark = false) {
    await this.send("Emulation.setDeviceMetricsOverride", { width, height, deviceScaleFactor: 1, mobile: width < 500 });
    await this.send("Emulation.setEmulatedMedia", { features: [{ name: "prefers-color-scheme", value: dark ? "dark" : "light" }] });
  }

  async press(key, modifiers = 0) {
    const event = { key, code: key, windowsVirtualKeyCode: CODES[key] ?? 0, modifiers };
    if (key === "Enter") event.text = "\r";
    await this.send("Input.dispatchKeyEvent", { type: event.text ? "keyDown" : "rawKeyDown", ...event });
    await this.send("Input.dispatchKeyEvent", { type: "keyUp", ...event });
  }

  type(text) {
    return this.send("Input.insertText", { text });
  }

  async picture(file) {
    const { data } = await this.send("Page.captureScreenshot", { format: "png" });
    writeFileSync(file, Buffer.from(data, "base64"));
  }

  async close() {
    const ended = new Promise((resolve) => this.process.once("exit", resolve));
    this.process.stdio[3].write(`${JSON.stringify({ id: 0, method: "Browser.close" })}\0`);
    await ended;
    rmSync(this.profile, { recursive: true, force: true, maxRetries: 5 });
  }
}

const launch = (command = process.env.CHROMIUM ?? "chromium") => new Browser().start(command);

export { launch };
