// One turn as it comes: thinking, the answer piece by piece, its usage and its end.

import { make } from "./elements.js";

export class TurnView {
  #conversation;
  #runId;
  #text = "";
  #seq = 0;
  #counted = false;
  /** @type {HTMLElement | null} */
  #answer = null;
  /** @type {HTMLElement | null} */
  #thinking = null;

  /**
   * @param {import("./conversation.js").Conversation} conversation
   * @param {string} runId
   */
  constructor(conversation, runId) {
    this.#conversation = conversation;
    this.#runId = runId;
  }

  /** @param {string} text */
  think(text) {
    if (!this.#thinking) {
      this.#thinking = make("span", { className: "thought" });
      const summary = make("summary", {}, "Thinking");
      this.#conversation.add(
        make("details", { className: "thinking", open: true }, summary, this.#thinking));
    }
    const thought = this.#thinking;
    this.#conversation.keepingUp(() => thought.append(text));
  }

  /** A tool or a command came between: what is said and thought next stands below it. */
  interrupt() {
    this.#thinking = null;
    this.#answer?.setAttribute("aria-busy", "false"); // now it is read out, as a whole
    this.#answer = null;
  }

  /** @param {{seq: number, delta: string}} piece */
  append({ seq, delta }) {
    if (seq !== this.#seq + 1) {
      this.#conversation.error(`pieces ${this.#seq + 1} to ${seq - 1} of the answer are missing`);
    }
    this.#seq = seq;
    this.#text += delta;
    const answer = this.#box();
    this.#conversation.keepingUp(() => answer.append(delta));
    answer.dataset.seq = String(seq);
  }

  /** @param {string} text the whole answer */
  complete(text) {
    if (this.#text === text) return;
    this.#conversation.error("the pieces of the answer are not the answer, which is:");
    this.interrupt();
    this.#box().append((this.#text = text));
  }

  /** @param {Record<string, number>} usage */
  usage(usage) {
    this.#counted = true;
    const parts = Object.entries(usage)
      .filter(([, count]) => typeof count === "number")
      .map(([name, count]) => `${count.toLocaleString("en")} ${name.replace("_tokens", "")}`);
    const element = make("span", { className: "usage", data: {} }, `tokens: ${parts.join(", ")}`);
    element.dataset.usage = JSON.stringify(usage);
    const answer = this.#box();
    this.#conversation.keepingUp(() => answer.append(element));
  }

  /**
   * @param {boolean} ok
   * @param {string} error
   */
  done(ok, error) {
    this.interrupt();
    if (this.#text) this.#conversation.messages.push({ role: "assistant", content: this.#text });
    // An agent that dies before its first word is no error to the host: its answer had begun.
    if (ok && !this.#text && !this.#counted) this.#conversation.error("The agent gave no answer.");
    if (error === "cancelled") this.#conversation.note("Stopped.");
    else if (!ok) this.#conversation.error(`The turn failed: ${error}`);
  }

  #box() {
    if (!this.#answer) {
      this.#answer = make("div", { className: "message assistant", data: { run: this.#runId } });
      this.#answer.setAttribute("aria-busy", "true");
      this.#conversation.add(this.#answer);
    }
    return this.#answer;
  }
}
