// Writing a message and sending it.

import { byId } from "./elements.js";

export class Composer {
  #parts;
  #prompt = byId("prompt");

  /**
   * @param {{link: import("./background_link.js").BackgroundLink,
   *          conversation: import("./conversation.js").Conversation,
   *          attachments: import("./attachments.js").Attachments,
   *          store: import("./chat_store.js").ChatStore}} parts
   */
  constructor(parts) {
    this.#parts = parts;
  }

  listen() {
    byId("composer").addEventListener("submit", (event) => {
      event.preventDefault();
      void this.#send();
    });
    this.#prompt.addEventListener("keydown", (event) => {
      // While characters are composed, Enter belongs to the input method.
      if (event.key !== "Enter" || event.shiftKey || event.isComposing) return;
      event.preventDefault();
      void this.#send();
    });
    document.addEventListener("keydown", (event) => {
      const inDialog = document.querySelector("dialog[open]") !== null;
      if (event.key === "Escape" && !inDialog && !byId("stop").hidden) void this.#stop();
    });
    byId("stop").addEventListener("click", () => this.#stop());
    byId("add-files").addEventListener("click", () => this.#pickFiles());
  }

  /** The presets that the agent offers. */
  async loadPresets() {
    const { presets } = await this.#parts.link.call("getChatPresets");
    const options = presets.map(({ id, name, isDefault }) => new Option(name, id, isDefault, isDefault));
    byId("preset").replaceChildren(new Option("default", ""), ...options);
    byId("preset").dataset.loaded = "true";
  }

  async #send() {
    const prompt = this.#prompt.value;
    if (!prompt.trim()) return;
    const { link, conversation, attachments, store } = this.#parts;
    const paths = attachments.take();
    conversation.user(prompt, paths);
    this.#prompt.value = "";
    const message = { prompt, chat_session_id: store.sessionId, preset: byId("preset").value };
    try {
      const reply = await link.request("send", paths.length ? { ...message, context_paths: paths } : message);
      if (!reply.ok) conversation.error(reply.error);
    } catch (error) {
      conversation.error(`The message was not sent: ${error.message}`);
    }
  }

  /** What is picked comes later, as an event. */
  async #pickFiles() {
    const { link, conversation } = this.#parts;
    try {
      const reply = await link.request("pickContextPaths", { mode: "files" });
      if (!reply.ok) conversation.error(reply.error);
    } catch (error) {
      conversation.error(`No files can be picked: ${error.message}`);
    }
  }

  async #stop() {
    await this.#parts.link.request("stop").catch(() => {}); // without a host nothing runs
  }
}
