// The panel pages that are open: side panels and tabs. All show the same conversation.

export class PanelPages {
  /** @type {Set<chrome.runtime.Port>} */
  #ports = new Set();

  /** @type {(request: any) => Promise<any>} */
  onRequest = async () => ({});
  /** Called when the first page came (true) and when the last one went (false). */
  /** @type {(open: boolean) => void} */
  onOpen = () => {};
  /** What a page that has just come must know. */
  /** @type {() => object[]} */
  greeting = () => [];

  get open() {
    return this.#ports.size > 0;
  }

  listen() {
    chrome.runtime.onConnect.addListener((port) => {
      if (port.name === "panel") this.#add(port);
    });
  }

  /** @param {object} message */
  tell(message) {
    for (const port of this.#ports) port.postMessage(message);
  }

  /** @param {chrome.runtime.Port} port */
  #add(port) {
    this.#ports.add(port);
    port.onDisconnect.addListener(() => {
      this.#ports.delete(port);
      if (!this.open) this.onOpen(false);
    });
    port.onMessage.addListener((message) => this.#answer(port, message));
    for (const message of this.greeting()) port.postMessage(message);
    if (this.#ports.size === 1) this.onOpen(true);
  }

  /**
   * @param {chrome.runtime.Port} port
   * @param {{id: number, request: any}} message
   */
  async #answer(port, { id, request }) {
    /** @type {object} */
    let answer;
    try {
      answer = { type: "reply", id, reply: await this.onRequest(request) };
    } catch (error) {
      answer = { type: "failure", id, error: String(error instanceof Error ? error.message : error) };
    }
    if (this.#ports.has(port)) port.postMessage(answer);
  }
}
