// What is known of the host: the connection, the agent, the tool server, its debug log.

import { byId, make } from "./elements.js";

const MOST_LINES = 500;
const POLL_EVERY_MS = 2_000;

const LINK_TEXTS = {
  closed: () => "Not connected",
  connecting: () => "Connecting …",
  connected: () => "Connected",
  waiting: ({ error, retryInMs }) => `${error} Trying again in ${Math.ceil(retryInMs / 1000)} s.`,
};

export class HostStatus {
  #link;
  #log = byId("debug-log");

  /** @param {import("./background_link.js").BackgroundLink} link */
  constructor(link) {
    this.#link = link;
  }

  listen() {
    const details = byId("host-details");
    // Lines that no event takes along wait in the host until somebody asks.
    setInterval(() => details.open && this.#poll(), POLL_EVERY_MS);
    details.addEventListener("toggle", () => details.open && this.#poll());
    byId("reload-agent").addEventListener("click", async () => {
      const reply = await this.#link.request("agentReload").catch((error) => ({ error: error.message }));
      this.line({ level: reply.ok ? "trace" : "error", text: reply.ok ? "the agent answers" : reply.error });
    });
  }

  /** @param {any} link */
  link(link) {
    const text = LINK_TEXTS[link.state](link);
    byId("link-state").dataset.state = link.state;
    byId("link-text").textContent = text;
    byId("host-link").textContent = text;
  }

  /** @param {{agent: string}} status */
  status({ agent }) {
    byId("agent-state").textContent = agent ? `Agent ${agent}` : "";
    byId("host-agent").textContent = agent || "not asked yet";
  }

  /** @param {{url: string, error: string}} toolServer */
  toolServer({ url, error }) {
    byId("host-tools").textContent = url ? new URL(url).origin : error || "unknown";
  }

  /** @param {{level: string, text: string}} line the argument of "appendDebugLog" */
  line({ level, text }) {
    this.#log.append(make("li", { className: level }, `${level}: ${text}`));
    while (this.#log.childElementCount > MOST_LINES) this.#log.firstElementChild.remove();
    this.#log.scrollTop = this.#log.scrollHeight;
  }

  async #poll() {
    const reply = await this.#link.request("poll").catch(() => ({ events: [] }));
    for (const { method, args } of reply.events ?? []) {
      if (method === "appendDebugLog") this.line(args[0]);
    }
  }
}
