// Where everything meets. The host runs while a panel page is open; its port keeps this worker
// awake for as long.

import { carryOut } from "./browser_commands.js";
import { HostClient } from "./host_client.js";
import { PanelPages } from "./panel_pages.js";
import { browserContext, watchTabs } from "./tab_context.js";
import { closeToolServer, openToolServer } from "./tool_server_access.js";

// Long enough to reload the panel without ending the host and the agent that it may have started.
const CLOSE_AFTER_MS = 10_000;

const host = new HostClient();
const pages = new PanelPages();
let toolServer = { url: "", error: "" };
let status = { nativeHost: "", agent: "" };
/** @type {ReturnType<typeof setTimeout> | undefined} */
let closing;

const reports = {
  link: () => ({ type: "link", link: host.link }),
  status: () => ({ type: "status", status }),
  toolServer: () => ({ type: "toolServer", ...toolServer }),
};

async function meetHost() {
  try {
    await host.request({ kind: "browserSnapshot", browser: await browserContext() });
    toolServer = await openToolServer(host);
    pages.tell(reports.toolServer());
  } catch (error) {
    // The connection broke meanwhile; the next one comes here again.
    console.warn("the host was not met:", error);
  }
}

host.onLink = (link) => {
  pages.tell(reports.link());
  if (link.state === "connected") void meetHost();
  if (link.state === "connected" || link.state === "connecting") return;
  status = { nativeHost: "", agent: "" };
  toolServer = { url: "", error: "" };
  void closeToolServer();
  pages.tell(reports.status());
  pages.tell(reports.toolServer());
};
host.onStatus = ({ nativeHost, agent }) => {
  status = { nativeHost, agent };
  pages.tell(reports.status());
};
host.onEvents = (events) => pages.tell({ type: "events", events });
host.onCommand = async (command) => {
  pages.tell({ type: "tool", name: command.payload?.name ?? "", running: true });
  const answer = await carryOut(command);
  host.answer(answer);
  pages.tell({ type: "tool", name: command.payload?.name ?? "", running: false, ok: answer.ok });
};

pages.greeting = () => [reports.link(), reports.status(), reports.toolServer()];
pages.onRequest = async (request) => {
  if (request.kind !== "send") return host.request(request);
  return host.request({ ...request, browser: await browserContext() });
};
pages.onOpen = (open) => {
  clearTimeout(closing);
  if (open) {
    host.open();
    return;
  }
  void host.request({ kind: "panelClosed" }).catch(() => {});
  closing = setTimeout(() => host.close(), CLOSE_AFTER_MS);
};
pages.listen();

watchTabs(async () => {
  if (host.link.state !== "connected") return;
  const browser = await browserContext();
  await host.request({ kind: "browserSnapshot", browser }).catch(() => {});
});

void chrome.sidePanel.setPanelBehavior({ openPanelOnActionClick: true });
