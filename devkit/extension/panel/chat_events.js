// What the host reports while turns run, by the name of the event.

import { byId } from "./elements.js";
import { TurnView } from "./turn_view.js";

export class ChatEvents {
  #parts;
  /** @type {Map<string, TurnView>} */
  #turns = new Map();
  /**
   * The turn that came last: some events do not name theirs.
   * @type {TurnView | null}
   */
  #latest = null;

  /** @type {Record<string, (...args: any[]) => void>} */
  #shown = {
    setBusy: (busy) => this.#setBusy(busy),
    agentStarted: ({ id }) => this.#start(id),
    appendAssistantDelta: (piece) => this.#turns.get(piece.runId)?.append(piece),
    appendThinking: ({ runId, text }) => this.#turns.get(runId)?.think(text),
    appendText: (item) => {
      this.#latest?.interrupt();
      this.#parts.cards.text(item);
    },
    startRun: (id, command) => {
      this.#latest?.interrupt();
      this.#parts.cards.startRun(id, command);
    },
    appendRunChunk: (id, chunk, stream) => this.#parts.cards.runOutput(id, chunk, stream),
    finishRun: (id, code, durationMs) => this.#parts.cards.finishRun(id, code, durationMs),
    consentRequest: (question) => {
      this.#latest?.interrupt();
      this.#parts.consent.ask(question);
    },
    dismissConsent: (question) => this.#parts.consent.dismiss(question),
    completeAssistantText: ({ runId, text }) => this.#turns.get(runId)?.complete(text),
    setTurnLlmUsage: (usage) => this.#latest?.usage(usage),
    agentDone: (runId, ok, error) => this.#end(runId, ok, error),
    appendContextPaths: (paths) => this.#parts.attachments.add(paths),
    appendDebugLog: (line) => this.#parts.status.line(line),
  };

  /**
   * @param {{conversation: import("./conversation.js").Conversation,
   *          attachments: import("./attachments.js").Attachments,
   *          cards: import("./cards.js").Cards,
   *          consent: import("./consent_cards.js").ConsentCards,
   *          status: import("./host_status.js").HostStatus}} parts
   */
  constructor(parts) {
    this.#parts = parts;
    document.body.dataset.turnsOver = "0";
  }

  /** @param {{method: string, args: any[]}[]} events */
  take(events) {
    for (const { method, args } of events) {
      // The agent may send events of its own names; those that we do not know are passed over.
      if (Object.hasOwn(this.#shown, method)) this.#shown[method](...args);
    }
  }

  /** The host has gone in the middle of turns: they will not end by themselves. */
  connectionLost() {
    for (const runId of [...this.#turns.keys()]) this.#end(runId, false, "the host has gone");
    this.#setBusy(false);
  }

  /** @param {string} runId */
  #start(runId) {
    this.#parts.cards.forget();
    this.#latest = new TurnView(this.#parts.conversation, runId);
    this.#turns.set(runId, this.#latest);
  }

  /**
   * @param {string} runId
   * @param {boolean} ok
   * @param {string} error
   */
  #end(runId, ok, error) {
    this.#turns.get(runId)?.done(ok, error);
    this.#turns.delete(runId);
    document.body.dataset.turnsOver = String(Number(document.body.dataset.turnsOver) + 1);
    if (this.#turns.size) return;
    this.#parts.consent.dismissAll();
    this.#setBusy(false); // the host says when a turn begins, not when the last one is over
  }

  /** @param {boolean} busy */
  #setBusy(busy) {
    byId("stop").hidden = !busy;
    document.body.dataset.busy = String(busy);
  }
}
