// Chats that the agent keeps: listed, opened, kept, deleted.

import { byId, make } from "./elements.js";

const LONGEST_TITLE = 60;

export class ChatStore {
  #link;
  #conversation;
  #dialog = byId("chats");
  #sessionId = "";

  /**
   * @param {import("./background_link.js").BackgroundLink} link
   * @param {import("./conversation.js").Conversation} conversation
   */
  constructor(link, conversation) {
    this.#link = link;
    this.#conversation = conversation;
    this.begin();
  }

  /** What the host calls "chat_session_id". */
  get sessionId() {
    return this.#sessionId;
  }

  begin() {
    this.#sessionId = `dev-${crypto.randomUUID()}`;
    this.#conversation.clear();
  }

  listen() {
    byId("new-chat").addEventListener("click", () => {
      this.begin();
      byId("prompt").focus();
    });
    byId("open-chats").addEventListener("click", () => {
      this.#dialog.showModal();
      void this.#list();
    });
    byId("save-chat").addEventListener("click", () => this.#save());
  }

  /** @param {string} text */
  #note(text) {
    byId("chats-note").textContent = text;
  }

  async #list() {
    this.#note("Loading …");
    try {
      const { sessions } = await this.#link.call("listChatSessions");
      byId("chat-list").replaceChildren(...sessions.map((session) => this.#row(session)));
      this.#note(sessions.length ? "" : "None yet.");
    } catch (error) {
      this.#note(error.message);
    }
  }

  /** @param {{id: string, title: string}} session */
  #row({ id, title }) {
    const load = make("button", { type: "button", className: "load", data: { load: id } }, title || id);
    load.addEventListener("click", () => this.#load(id));
    const remove = make("button", { type: "button" }, "Delete");
    remove.setAttribute("aria-label", `Delete ${title || id}`);
    remove.addEventListener("click", async () => {
      await this.#link.call("deleteChatSession", { id }).catch((error) => this.#note(error.message));
      await this.#list();
    });
    return make("li", {}, load, remove);
  }

  /** @param {string} id */
  async #load(id) {
    try {
      const session = await this.#link.call("loadChatSession", { id });
      this.#conversation.show(session.messages ?? []);
      this.#sessionId = id;
    } catch (error) {
      this.#conversation.error(`The chat was not opened: ${error.message}`);
    }
    this.#dialog.close();
  }

  async #save() {
    const { messages } = this.#conversation;
    const title = (messages[0]?.content ?? "Empty chat").slice(0, LONGEST_TITLE);
    const session = { id: this.#sessionId, title, updatedUnixMs: Date.now(), messages };
    try {
      await this.#link.call("saveChatSession", { session });
      await this.#list();
    } catch (error) {
      this.#note(error.message);
    }
  }
}
