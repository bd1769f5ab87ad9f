// The panel: a side panel, or a page in a tab. Makes the parts and connects them.

import { Attachments } from "./attachments.js";
import { BackgroundLink } from "./background_link.js";
import { Cards } from "./cards.js";
import { ChatEvents } from "./chat_events.js";
import { ChatStore } from "./chat_store.js";
import { Composer } from "./composer.js";
import { ConsentCards } from "./consent_cards.js";
import { Conversation } from "./conversation.js";
import { byId } from "./elements.js";
import { HostStatus } from "./host_status.js";

/** Both file routes are on the same server; images are loaded from the one, uploads go to the other. */
const fileUrl = (path) => {
  const { origin } = new URL(attachments.uploadUrl || "http://127.0.0.1");
  return `${origin}/api/local-file?path=${encodeURIComponent(path)}`;
};

const link = new BackgroundLink();
const conversation = new Conversation();
const cards = new Cards(conversation, fileUrl);
const attachments = new Attachments(conversation, cards);
const consent = new ConsentCards(conversation, link);
const status = new HostStatus(link);
const store = new ChatStore(link, conversation);
const composer = new Composer({ link, conversation, attachments, store });
const events = new ChatEvents({ conversation, attachments, cards, consent, status });

/** @type {Record<string, (message: any) => void>} */
const taken = {
  link({ link: report }) {
    status.link(report);
    if (report.state === "waiting" || report.state === "closed") events.connectionLost();
    if (report.state !== "connected") return;
    composer.loadPresets().catch((error) => status.line({ level: "warn", text: error.message }));
  },
  status: (message) => status.status(message.status),
  toolServer(message) {
    status.toolServer(message);
    attachments.uploadUrl = message.url;
  },
  events: (message) => events.take(message.events),
  tool({ name, running, ok }) {
    const notice = byId("tool-notice");
    notice.hidden = !running;
    notice.textContent = running ? `The agent acts in this browser: ${name}` : "";
    document.body.dataset.lastTool = running ? "" : `${name} ${ok ? "ok" : "failed"}`;
  },
};

link.onMessage = (message) => taken[message.type]?.(message);
for (const part of [attachments, status, store, composer]) part.listen();
link.open();
byId("prompt").focus();
