// The road to the host: one native-messaging port. It is opened again with growing pauses for as
// long as it is wanted, because a host that cannot start must not be started in a tight loop.

const HOST_NAME = "com.quenlark.morva.chrome";
const FIRST_PAUSE_MS = 300;
const LONGEST_PAUSE_MS = 30_000;
// A connection that lived this long was a good one: the next failure begins with a short pause.
const GOOD_AFTER_MS = 5_000;

/**
 * @typedef {"closed" | "connecting" | "connected" | "waiting"} LinkState
 * @typedef {{state: LinkState, error: string, retryInMs: number}} LinkReport
 */

export class HostPort {
  /** @type {chrome.runtime.Port | null} */
  #port = null;
  #wanted = false;
  #failures = 0;
  #openedAt = 0;
  /** @type {ReturnType<typeof setTimeout> | undefined} */
  #retry;
  /** @type {LinkReport} */
  #report = { state: "closed", error: "", retryInMs: 0 };

  /** @type {(frame: any) => void} */
  onFrame = () => {};
  /** @type {(report: LinkReport) => void} */
  onChange = () => {};

  get report() {
    return this.#report;
  }

  open() {
    this.#wanted = true;
    if (!this.#port && this.#retry === undefined) this.#connect();
  }

  /** Ends the host, which lives for as long as its standard input is open. */
  close() {
    this.#wanted = false;
    clearTimeout(this.#retry);
    this.#retry = undefined;
    this.#port?.disconnect(); // tells the other side only: our own onDisconnect stays silent
    this.#port = null;
    this.#tell("closed");
  }

  /**
   * False when there is no host to send to.
   * @param {object} frame
   */
  send(frame) {
    if (!this.#port) return false;
    this.#port.postMessage(frame);
    return true;
  }

  #connect() {
    this.#retry = undefined;
    this.#openedAt = Date.now();
    this.#tell("connecting");
    const port = chrome.runtime.connectNative(HOST_NAME);
    this.#port = port;
    port.onMessage.addListener((frame) => {
      if (port === this.#port) this.#take(frame);
    });
    port.onDisconnect.addListener(() => {
      const error = chrome.runtime.lastError?.message ?? "the host has gone";
      if (port === this.#port) this.#lost(error);
    });
    // Any kind is answered; only an answer shows that a host is really there.
    port.postMessage({ source: "morva-chat", kind: "ready" });
  }

  /** @param {any} frame */
  #take(frame) {
    if (this.#report.state !== "connected") this.#tell("connected");
    this.onFrame(frame);
  }

  /** @param {string} error */
  #lost(error) {
    this.#port = null;
    if (Date.now() - this.#openedAt >= GOOD_AFTER_MS) this.#failures = 0;
    const pause = Math.min(LONGEST_PAUSE_MS, FIRST_PAUSE_MS * 2 ** this.#failures);
    this.#failures += 1;
    if (this.#wanted) this.#retry = setTimeout(() => this.#connect(), pause);
    this.#tell(this.#wanted ? "waiting" : "closed", error, pause);
  }

  /**
   * @param {LinkState} state
   * @param {string} error
   * @param {number} retryInMs
   */
  #tell(state, error = "", retryInMs = 0) {
    this.#report = { state, error, retryInMs };
    this.onChange(this.#report);
  }
}
