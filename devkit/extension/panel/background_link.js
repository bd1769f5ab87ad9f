// The panel's end of the line to the service worker, which speaks with the host.

const AGAIN_AFTER_MS = 500; // the browser may end the worker; the next message starts it anew

export class BackgroundLink {
  #lastId = 0;
  /** @type {Map<number, {resolve: (reply: any) => void, reject: (error: Error) => void}>} */
  #waiting = new Map();
  /** @type {chrome.runtime.Port | null} */
  #port = null;

  /** @type {(message: any) => void} */
  onMessage = () => {};

  open() {
    const port = chrome.runtime.connect({ name: "panel" });
    this.#port = port;
    port.onMessage.addListener((message) => this.#take(message));
    port.onDisconnect.addListener(() => {
      this.#port = null;
      for (const { reject } of this.#waiting.values()) reject(new Error("the extension was restarted"));
      this.#waiting.clear();
      this.onMessage({ type: "link", link: { state: "closed", error: "", retryInMs: AGAIN_AFTER_MS } });
      setTimeout(() => this.open(), AGAIN_AFTER_MS);
    });
  }

  /**
   * Sends a panel message to the host; the promise is of its reply, and fails without one.
   * @param {string} kind
   * @param {object} members
   * @returns {Promise<any>}
   */
  request(kind, members = {}) {
    return new Promise((resolve, reject) => {
      const id = ++this.#lastId;
      if (!this.#port) {
        reject(new Error("not connected"));
        return;
      }
      this.#waiting.set(id, { resolve, reject });
      this.#port.postMessage({ id, request: { kind, ...members } });
    });
  }

  /**
   * A "providerRpc" method; the promise is of its data and fails with the host's error text.
   * @param {string} method
   * @param {object} members
   */
  async call(method, members = {}) {
    const reply = await this.request("providerRpc", { method, ...members });
    if (!reply.ok) throw new Error(reply.error);
    return reply.data;
  }

  /** @param {any} message */
  #take(message) {
    const waiting = this.#waiting.get(message.id);
    if (!waiting) {
      this.onMessage(message);
      return;
    }
    this.#waiting.delete(message.id);
    if (message.type === "reply") waiting.resolve(message.reply);
    else waiting.reject(new Error(message.error));
  }
}
