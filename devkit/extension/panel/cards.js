// What a turn shows besides its text: tools, files, command runs.

import { make } from "./elements.js";

/** Tool lines and command runs, which later events change. */
export class Cards {
  #conversation;
  /**
   * The address that loads a local file.
   * @type {(path: string) => string}
   */
  #fileUrl;
  /** @type {Map<string, HTMLElement>} */
  #tools = new Map();
  /** @type {Map<string, {box: HTMLElement, output: HTMLElement, end: HTMLElement}>} */
  #runs = new Map();

  /**
   * @param {import("./conversation.js").Conversation} conversation
   * @param {(path: string) => string} fileUrl
   */
  constructor(conversation, fileUrl) {
    this.#conversation = conversation;
    this.#fileUrl = fileUrl;
  }

  /** A new turn numbers its tools and runs anew. */
  forget() {
    this.#tools.clear();
    this.#runs.clear();
  }

  /** @param {any} item the argument of "appendText" */
  text(item) {
    if (item.role === "error") this.#conversation.error(item.text);
    else if (item.role === "tool") this.#tool(item);
    else if (item.role === "image") this.image(item.text);
    else this.#conversation.note(item.text);
  }

  /**
   * A result takes the place of its call.
   * @param {any} item
   */
  #tool({ text, toolCallId, durationMs, toolRunning }) {
    const known = toolCallId && this.#tools.get(toolCallId);
    const line = known || this.#conversation.add(make("p", { className: "tool" }));
    line.textContent = durationMs === undefined ? text : `${text} (${durationMs} ms)`;
    line.dataset.running = String(toolRunning === true);
    if (toolCallId) this.#tools.set(toolCallId, line);
  }

  /** @param {string} path of an image that the host serves */
  image(path) {
    const name = path.split(/[\\/]/).pop() ?? path;
    const figure = make("figure", { className: "image", data: { path } });
    const picture = make("img", { alt: name, src: this.#fileUrl(path) });
    picture.addEventListener("load", () => (figure.dataset.shown = "true"));
    picture.addEventListener("error", () => {
      figure.dataset.shown = "false";
      picture.replaceWith(`${path} (the host does not serve this file)`);
    });
    figure.append(picture, make("figcaption", {}, name));
    return this.#conversation.add(figure);
  }

  /**
   * @param {string} id
   * @param {string} command
   */
  startRun(id, command) {
    const output = make("pre", { tabIndex: 0 });
    output.setAttribute("aria-label", "Output");
    const end = make("p", {}, "running …");
    const box = make("section", { className: "run" }, make("h3", {}, `$ ${command}`), output, end);
    box.setAttribute("aria-label", `Command ${command}`);
    this.#runs.set(id, { box, output, end });
    this.#conversation.add(box);
  }

  /**
   * @param {string} id
   * @param {string} chunk
   * @param {string} stream
   */
  runOutput(id, chunk, stream) {
    if (!this.#runs.has(id)) this.startRun(id, "");
    const output = this.#runs.get(id)?.output;
    this.#conversation.keepingUp(() => output?.append(make("span", { className: stream }, chunk)));
  }

  /**
   * @param {string} id
   * @param {number} code
   * @param {number} durationMs
   */
  finishRun(id, code, durationMs) {
    const run = this.#runs.get(id);
    if (!run) return;
    run.end.textContent = `exit code ${code} (${durationMs} ms)`;
    run.box.dataset.ok = String(code === 0);
  }
}
