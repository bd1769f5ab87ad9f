// Files that were pasted or dropped: sent to the host, kept for the next message, shown when they
// are images.

import { byId, make } from "./elements.js";

const IMAGE = /\.(png|jpe?g|webp|gif|bmp)$/i;

/** @typedef {{path: string, name: string}} Attachment */

export class Attachments {
  #list = byId("attachments");
  /** @type {Attachment[]} */
  #files = [];
  #conversation;
  #cards;
  /** The upload route of the host; empty while there is none. */
  uploadUrl = "";

  /**
   * @param {import("./conversation.js").Conversation} conversation
   * @param {import("./cards.js").Cards} cards
   */
  constructor(conversation, cards) {
    this.#conversation = conversation;
    this.#cards = cards;
  }

  listen() {
    const composer = byId("composer");
    document.addEventListener("paste", (event) => {
      const files = [...(event.clipboardData?.files ?? [])];
      if (!files.length) return;
      event.preventDefault();
      void this.upload(files);
    });
    document.addEventListener("dragover", (event) => {
      event.preventDefault(); // else the browser would open the file in place of the panel
      composer.classList.add("over");
    });
    document.addEventListener("dragleave", () => composer.classList.remove("over"));
    document.addEventListener("drop", (event) => {
      event.preventDefault();
      composer.classList.remove("over");
      void this.upload([...(event.dataTransfer?.files ?? [])]);
    });
  }

  /**
   * Files that are on this computer already: the host's file dialog gives their paths.
   * @param {string[]} paths
   */
  add(paths) {
    this.#files.push(...paths.map((path) => ({ path, name: path.split(/[\\/]/).pop() || path })));
    this.#draw();
  }

  /** The paths for the next message, which are then forgotten. */
  take() {
    const paths = this.#files.map(({ path }) => path);
    this.#files = [];
    this.#draw();
    return paths;
  }

  /** @param {File[]} files */
  async upload(files) {
    for (const file of files) {
      try {
        const path = await this.#send(file);
        this.#files.push({ path, name: file.name });
        if (IMAGE.test(path)) this.#cards.image(path);
      } catch (error) {
        this.#conversation.error(`${file.name} was not taken: ${error.message}`);
      }
    }
    this.#draw();
  }

  /** @param {File} file */
  async #send(file) {
    if (!this.uploadUrl) throw new Error("file import is not ready");
    const url = `${this.uploadUrl}?name=${encodeURIComponent(file.name)}`;
    const response = await fetch(url, { method: "POST", body: file });
    const answer = await response.json();
    if (!answer.ok) throw new Error(answer.error ?? `the tool server answered ${response.status}`);
    return answer.path;
  }

  #draw() {
    this.#list.hidden = this.#files.length === 0;
    this.#list.replaceChildren(...this.#files.map((file) => {
      const remove = make("button", { type: "button", title: `Remove ${file.name}` }, "×");
      remove.setAttribute("aria-label", `Remove ${file.name}`);
      remove.addEventListener("click", () => {
        this.#files = this.#files.filter((each) => each !== file);
        this.#draw();
      });
      return make("li", { data: { path: file.path } }, file.name, remove);
    }));
  }
}
