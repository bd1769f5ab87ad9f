// Questions that wait for the user. They can be answered from anywhere with Alt+Y and Alt+N.

import { make } from "./elements.js";

export class ConsentCards {
  #conversation;
  #link;
  /** @type {Map<string, {card: HTMLElement, buttons: HTMLElement}>} */
  #open = new Map();

  /**
   * @param {import("./conversation.js").Conversation} conversation
   * @param {import("./background_link.js").BackgroundLink} link
   */
  constructor(conversation, link) {
    this.#conversation = conversation;
    this.#link = link;
    document.addEventListener("keydown", (event) => {
      const [newest] = [...this.#open.keys()].slice(-1);
      const answer = { KeyY: true, KeyN: false }[event.code];
      if (!event.altKey || newest === undefined || answer === undefined) return;
      event.preventDefault();
      void this.#answer(newest, answer);
    });
  }

  /** @param {any} question the argument of "consentRequest" */
  ask({ id, title, detail }) {
    const yes = make("button", { type: "button", className: "primary" }, "Allow (Alt+Y)");
    const no = make("button", { type: "button" }, "Don't allow (Alt+N)");
    yes.addEventListener("click", () => this.#answer(id, true));
    no.addEventListener("click", () => this.#answer(id, false));
    const buttons = make("div", { className: "row" }, yes, no);
    const card = make("section", { className: "consent", data: { consent: id } },
      make("h3", {}, title ?? "The agent asks for consent"), make("pre", {}, detail ?? ""), buttons);
    card.setAttribute("role", "alertdialog");
    card.setAttribute("aria-label", title ?? "Consent");
    this.#open.set(id, { card, buttons });
    this.#conversation.add(card);
  }

  /** @param {any} question the argument of "dismissConsent" */
  dismiss({ id }) {
    this.#close(id, "No longer asked.");
  }

  /** The turn is over: nobody waits for an answer any more. */
  dismissAll() {
    for (const id of [...this.#open.keys()]) this.dismiss({ id });
  }

  /**
   * @param {string} id
   * @param {boolean} allow
   */
  async #answer(id, allow) {
    this.#close(id, allow ? "Allowed." : "Not allowed.");
    try {
      const reply = await this.#link.request("consentReply", { id, allow });
      if (!reply.ok) this.#conversation.error(`The answer was not passed on: ${reply.error}`);
    } catch (error) {
      this.#conversation.error(`The answer was not passed on: ${error.message}`);
    }
  }

  /**
   * @param {string} id
   * @param {string} outcome
   */
  #close(id, outcome) {
    const question = this.#open.get(id);
    if (!question) return;
    this.#open.delete(id);
    question.card.setAttribute("role", "group");
    question.buttons.replaceWith(make("p", {}, outcome));
  }
}
