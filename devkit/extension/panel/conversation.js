// The conversation as it is shown: one child of #chat per thing that happened.

import { byId, make } from "./elements.js";

const NEAR_THE_END_PX = 60;

export class Conversation {
  #log = byId("chat");
  /**
   * What "Keep this chat" saves.
   * @type {{role: string, content: string}[]}
   */
  messages = [];

  clear() {
    this.#log.replaceChildren();
    this.messages = [];
  }

  /**
   * Adds at the end, and keeps the end in view unless the user has scrolled away from it.
   * @param {HTMLElement} element
   */
  add(element) {
    this.keepingUp(() => this.#log.append(element));
    return element;
  }

  /** @param {() => void} change */
  keepingUp(change) {
    const log = this.#log;
    const following = log.scrollHeight - log.scrollTop - log.clientHeight < NEAR_THE_END_PX;
    change();
    if (following) log.scrollTop = log.scrollHeight;
  }

  /**
   * @param {string} text
   * @param {string[]} paths
   */
  user(text, paths = []) {
    this.messages.push({ role: "user", content: text });
    this.add(make("p", { className: "message user" }, text));
    for (const path of paths) this.add(make("p", { className: "file" }, `attached: ${path}`));
  }

  /** @param {string} text */
  error(text) {
    return this.add(make("p", { className: "error", role: "alert" }, text));
  }

  /** @param {string} text */
  note(text) {
    return this.add(make("p", { className: "file" }, text));
  }

  /**
   * What was kept earlier.
   * @param {{role: string, content: string}[]} messages
   */
  show(messages) {
    this.clear();
    for (const { role, content } of messages) {
      const mine = role === "user";
      this.add(make("p", { className: `message ${mine ? "user" : "assistant"}` }, String(content)));
    }
    this.messages = messages;
  }
}
