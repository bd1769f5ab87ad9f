// read, find and scope: what is on the page, over all of its documents.

import { callPage, documentOf, documentsOf } from "./page_documents.js";
import { PageGone, ToolError } from "./tool_error.js";

const MOST_FILES = 40;
const MOST_TEXT = 200_000;

/** What the agent has pinned, by tab: reads and finds stay inside it. */
/** @type {Map<number, {ref: string, name: string}>} */
const pinned = new Map();

chrome.tabs.onRemoved.addListener((tabId) => pinned.delete(tabId));

/**
 * @param {any[]} parts models of single documents, the page's own first
 */
function joined(parts) {
  const all = (/** @type {string} */ key) => parts.flatMap((part) => part[key]);
  return {
    count: parts.reduce((sum, part) => sum + part.count, 0),
    items: all("items"),
    pageText: parts.map((part) => part.pageText).join("\n").slice(0, MOST_TEXT),
    zoneHints: all("zoneHints"),
    files: all("files").slice(0, MOST_FILES),
    truncated: parts.some((part) => part.truncated),
  };
}

/**
 * The zone that is pinned. It goes with its page.
 * @param {number} tabId
 */
async function pinnedRef(tabId) {
  const ref = pinned.get(tabId)?.ref;
  if (!ref) return undefined;
  try {
    await documentOf(tabId, ref);
    return ref;
  } catch (error) {
    if (!(error instanceof PageGone)) throw error;
    pinned.delete(tabId);
    return undefined;
  }
}

/**
 * @param {number} tabId
 * @param {string} operation
 * @param {{ref?: string}} args
 */
async function overDocuments(tabId, operation, args) {
  const ref = args.ref ?? (await pinnedRef(tabId));
  if (ref) {
    const page = await documentOf(tabId, ref);
    return [await callPage(tabId, page, operation, { ...args, ref })];
  }
  const [page, ...frames] = await documentsOf(tabId);
  const parts = [await callPage(tabId, page, operation, args)];
  for (const frame of frames) {
    // An iframe may go away, or refuse us, without the page's being any less readable.
    const part = await callPage(tabId, frame, operation, args).catch(() => null);
    if (part) parts.push(part);
  }
  return parts;
}

/** @param {number} tabId */
function scopeOf(tabId) {
  const zone = pinned.get(tabId);
  return zone ? { active: true, ...zone, source: "agent" } : { active: false };
}

/**
 * @param {number} tabId
 * @param {any} args
 */
export async function read(tabId, args) {
  const data = joined(await overDocuments(tabId, "read", args));
  return { data: { ...data, scope: scopeOf(tabId) } };
}

/**
 * @param {number} tabId
 * @param {any} args
 */
export async function find(tabId, args) {
  if (typeof args.query !== "string" || !args.query.trim()) throw new ToolError("a query is needed");
  const data = joined(await overDocuments(tabId, "find", args));
  // Those that can be used come before those that are only text, whatever document they are in.
  data.items.sort((one, other) => Number(one.role === "text") - Number(other.role === "text"));
  return { data: { ...data, matchCount: data.items.length, scope: scopeOf(tabId) } };
}

/**
 * Pins the zone with the ref or name that is given, unpins with `clear`, and shows how it stands.
 * @param {number} tabId
 * @param {any} args
 */
export async function scope(tabId, args) {
  if (args.clear === true) pinned.delete(tabId);
  await pinnedRef(tabId);
  const before = pinned.get(tabId);
  pinned.delete(tabId); // the zones of the whole page are listed, whatever was pinned
  try {
    const zones = (await overDocuments(tabId, "zones", {})).flat();
    const zone = await chosenZone(tabId, args, zones);
    if (zone) pinned.set(tabId, zone);
    else if (before) pinned.set(tabId, before);
    return { scope: scopeOf(tabId), data: { zones } };
  } catch (error) {
    if (before) pinned.set(tabId, before);
    throw error;
  }
}

/**
 * @param {number} tabId
 * @param {any} args
 * @param {{ref: string, name: string}[]} zones
 */
async function chosenZone(tabId, args, zones) {
  if (args.ref) {
    const page = await documentOf(tabId, args.ref);
    return { ref: args.ref, name: await callPage(tabId, page, "nameOf", { ref: args.ref }) };
  }
  const wanted = String(args.name ?? args.query ?? "").toLowerCase();
  if (!wanted) return null;
  const zone = zones.find(({ name }) => name.toLowerCase().includes(wanted));
  if (!zone) throw new ToolError(`no zone ${wanted}`);
  return { ref: zone.ref, name: zone.name };
}
