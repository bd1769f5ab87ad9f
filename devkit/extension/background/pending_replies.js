// Every panel message gets exactly one reply, which carries the message's chromeRequestId.

/** Longer than the host takes to start an agent on each of its five ports. */
const LONGEST_WAIT_MS = 120_000;

export class PendingReplies {
  #lastId = 0;
  /** @type {Map<number, {resolve: (frame: any) => void, reject: (error: Error) => void,
   *                      timer: ReturnType<typeof setTimeout>}>} */
  #waiting = new Map();

  /** A new id, and the promise of the reply that will carry it. */
  add() {
    const id = ++this.#lastId;
    const reply = new Promise((resolve, reject) => {
      const timer = setTimeout(() => this.#fail(id, "the host did not answer"), LONGEST_WAIT_MS);
      this.#waiting.set(id, { resolve, reject, timer });
    });
    return { id, reply };
  }

  /**
   * Whether the frame was a reply that somebody waits for.
   * @param {any} frame
   */
  settle(frame) {
    const waiting = this.#waiting.get(frame?.chromeRequestId);
    if (!waiting) return false;
    this.#forget(frame.chromeRequestId);
    waiting.resolve(frame);
    return true;
  }

  /**
   * For when the connection is gone: no reply will come any more.
   * @param {string} text
   */
  failAll(text) {
    for (const id of [...this.#waiting.keys()]) this.#fail(id, text);
  }

  /**
   * @param {number} id
   * @param {string} text
   */
  #fail(id, text) {
    const waiting = this.#waiting.get(id);
    this.#forget(id);
    waiting?.reject(new Error(text));
  }

  /** @param {number} id */
  #forget(id) {
    clearTimeout(this.#waiting.get(id)?.timer);
    this.#waiting.delete(id);
  }
}
