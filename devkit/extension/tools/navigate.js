// browser_navigate: what happens to tabs and windows.

import { currentTab, describeTab, isForeign } from "../background/tab_context.js";
import { untilComplete, untilLoaded, untilMoved } from "./tab_loading.js";
import { ToolError } from "./tool_error.js";

/**
 * The address to open. Only the web: an agent has no business in files, scripts and settings.
 * @param {any} args
 */
function webAddress(args) {
  let url;
  try {
    url = new URL(String(args.url ?? ""));
  } catch {
    throw new ToolError(`${JSON.stringify(args.url ?? "")} is no address`);
  }
  if (!/^https?:$/.test(url.protocol)) throw new ToolError("only http and https addresses can be opened");
  return url.href;
}

/**
 * The tab that the arguments name, else the current one.
 * @param {any} args
 * @returns {Promise<number>}
 */
export async function wantedTab(args) {
  if (args.tabId === undefined) {
    const tab = await currentTab();
    if (tab?.id === undefined) throw new ToolError("no tab is open");
    return tab.id;
  }
  const tab = await chrome.tabs.get(Number(args.tabId)).catch(() => undefined);
  if (tab?.id === undefined || !isForeign(tab)) throw new ToolError(`no tab ${args.tabId}`);
  return tab.id;
}

/** @param {number} tabId */
async function show(tabId) {
  const { windowId } = await chrome.tabs.update(tabId, { active: true }) ?? {};
  if (windowId !== undefined) await chrome.windows.update(windowId, { focused: true });
}

/** @type {Record<string, (args: any) => Promise<{tabId?: number, [key: string]: any}>>} */
const actions = {
  async tabs() {
    return {};
  },

  async goto(args) {
    const url = webAddress(args);
    const tabId = await wantedTab(args);
    const before = await chrome.tabs.get(tabId);
    const sameDocument = url.includes("#") && before.url?.split("#")[0] === url.split("#")[0];
    const update = () => chrome.tabs.update(tabId, { url });
    if (!sameDocument) await untilLoaded(tabId, update);
    else if (before.url !== url) await untilMoved(tabId, update); // nothing is loaded
    return { tabId };
  },

  async new(args) {
    const url = args.url ? webAddress(args) : "about:blank";
    const open = (await chrome.tabs.query({})).find((tab) => args.url && tab.url === url);
    if (open?.id !== undefined) {
      await show(open.id);
      return { tabId: open.id, reused: true };
    }
    const { id } = await chrome.tabs.create({ url });
    if (id === undefined) throw new ToolError("the tab did not open");
    await untilComplete(id);
    return { tabId: id };
  },

  async switch(args) {
    if (args.tabId === undefined) throw new ToolError("a tabId is needed");
    const tabId = await wantedTab(args);
    await show(tabId);
    return { tabId };
  },

  async close(args) {
    const tabId = await wantedTab(args);
    await chrome.tabs.remove(tabId);
    return { closed: tabId };
  },

  async reload(args) {
    const tabId = await wantedTab(args);
    await untilLoaded(tabId, () => chrome.tabs.reload(tabId));
    return { tabId };
  },

  async back(args) {
    const tabId = await wantedTab(args);
    // By the page itself: the browser's own "back" passes over pages that no user has touched,
    // and those that an agent opened are such pages.
    const func = () => {
      if (history.length > 1) history.back();
      return history.length > 1;
    };
    const goBack = async () => {
      const [{ result }] = await chrome.scripting.executeScript({ target: { tabId }, func });
      return result;
    };
    if (!(await untilMoved(tabId, goBack))) throw new ToolError("there is no page to go back to");
    return { tabId };
  },
};

/** @param {any} args */
export async function navigate(args) {
  const action = args.action || (args.url ? "goto" : "tabs");
  if (!Object.hasOwn(actions, action)) throw new ToolError(`no action ${action}`);
  const outcome = await actions[action](args);
  const current = await currentTab();
  const all = (await chrome.tabs.query({})).filter(isForeign);
  const tabs = all.map((tab) => ({ ...describeTab(tab), active: tab.id === current?.id }));
  return { action, tabs, ...outcome };
}
