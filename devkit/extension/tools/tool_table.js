// The eight tools by name. Each result says which page it is about and how often that changed.

import { batch } from "./batch.js";
import { navigate, wantedTab } from "./navigate.js";
import { click, select, type } from "./page_acting.js";
import { callPage, documentsOf } from "./page_documents.js";
import { find, read, scope } from "./page_reading.js";
import { untilComplete } from "./tab_loading.js";
import { ToolError } from "./tool_error.js";

const steps = { read, find, click, type, select };

/** @type {Record<string, (tabId: number, args: any) => Promise<any>>} */
const pageTools = {
  browser_read: read,
  browser_find: find,
  browser_scope: scope,
  browser_click: click,
  browser_type: type,
  browser_select: select,
  browser_batch: (tabId, args) => batch(tabId, args, steps),
};

/**
 * "epoch" tells one document from the next, "revision" counts what changed in it. A page that
 * cannot be reached has neither.
 * @param {number} tabId
 */
async function stamp(tabId) {
  const tab = await chrome.tabs.get(tabId);
  const about = { url: tab.url ?? "", title: tab.title ?? "", tabId };
  try {
    const [page] = await documentsOf(tabId);
    const revision = await callPage(tabId, page, "revision", {});
    return { ...about, epoch: page.tag, revision };
  } catch {
    return about;
  }
}

/**
 * The result of a tool. Throws ToolError with words for the agent.
 * @param {string} name
 * @param {any} args
 */
export async function runTool(name, args) {
  if (name === "browser_navigate") {
    const outcome = await navigate(args);
    const about = outcome.tabId === undefined ? {} : await stamp(outcome.tabId);
    return { tool: name, ok: true, ...about, ...outcome };
  }
  if (!Object.hasOwn(pageTools, name)) throw new ToolError(`no tool ${name}`);
  const tabId = await wantedTab(args);
  await untilComplete(tabId);
  const { waitedMs: _, ...outcome } = await pageTools[name](tabId, args);
  return { tool: name, ok: true, ...(await stamp(tabId)), ...outcome };
}
