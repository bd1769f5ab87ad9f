// What the rest of the extension knows of the host: requests with replies, events, commands.

import { HostPort } from "./host_port.js";
import { PendingReplies } from "./pending_replies.js";

export class HostClient {
  #port = new HostPort();
  #replies = new PendingReplies();

  /** @type {(report: import("./host_port.js").LinkReport) => void} */
  onLink = () => {};
  /** @type {(events: {method: string, args: any[]}[]) => void} */
  onEvents = () => {};
  /** @type {(status: {nativeHost: string, agent: string}) => void} */
  onStatus = () => {};
  /** @type {(command: any) => void} */
  onCommand = () => {};

  constructor() {
    this.#port.onFrame = (frame) => this.#take(frame);
    this.#port.onChange = (report) => {
      if (report.state === "waiting" || report.state === "closed") {
        this.#replies.failAll(report.error || "not connected to the host");
      }
      this.onLink(report);
    };
  }

  get link() {
    return this.#port.report;
  }

  open() {
    this.#port.open();
  }

  close() {
    this.#port.close();
  }

  /**
   * Sends a panel message; the promise is of its one reply, and fails when none can come.
   * @param {{kind: string, [key: string]: any}} message
   * @returns {Promise<any>}
   */
  async request(message) {
    const { id, reply } = this.#replies.add();
    const frame = { ...message, source: "morva-chat", chromeRequestId: id };
    if (!this.#port.send(frame)) this.#replies.failAll("not connected to the host");
    return reply;
  }

  /**
   * Sends the answer to a command.
   * @param {object} answer
   */
  answer(answer) {
    this.#port.send(answer);
  }

  /** @param {any} frame */
  #take(frame) {
    if (frame.command === "browserUse") this.onCommand(frame);
    else if (this.#replies.settle(frame)) return;
    else if (frame.kind === "hostChatEvents") this.onEvents(frame.events);
    else if (frame.kind === "hostStatus") this.onStatus(frame);
  }
}
