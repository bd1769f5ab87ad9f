// Waiting for pages: for one that was asked for, and for one that an action may have caused.

import { PageGone } from "./tool_error.js";

const LONGEST_LOAD_MS = 15_000; // the host waits 25 seconds for the answer to a command
const MAY_BEGIN_WITHIN_MS = 50; // what a page does some time after a click
const MUST_BEGIN_WITHIN_MS = 8_000; // what has begun already, on a busy machine too

/**
 * Calls `seen` at every change of a tab's loading or address; gives the function that ends that.
 * @param {number} tabId
 * @param {(status: string) => void} seen gets an empty text when only the address has changed
 */
function watchStatus(tabId, seen) {
  /** @type {(id: number, change: {status?: string, url?: string}) => void} */
  const listener = (id, change) => {
    if (id === tabId && (change.status || change.url)) seen(change.status ?? "");
  };
  chrome.tabs.onUpdated.addListener(listener);
  return () => chrome.tabs.onUpdated.removeListener(listener);
}

/**
 * Resolves when the tab is complete, at the latest after LONGEST_LOAD_MS: a page that never ends
 * loading can be used all the same.
 * @param {number} tabId
 * @param {boolean} mustBegin a load that was just asked for may not have begun yet
 * @returns {Promise<void>}
 */
function loaded(tabId, mustBegin) {
  return new Promise((resolve) => {
    let begun = !mustBegin;
    const done = () => {
      clearTimeout(timer);
      unwatch();
      resolve();
    };
    const timer = setTimeout(done, LONGEST_LOAD_MS);
    const unwatch = watchStatus(tabId, (status) => {
      if (status === "loading") begun = true;
      else if (status === "complete" && begun) done();
    });
    if (mustBegin) return;
    chrome.tabs.get(tabId).then((tab) => tab.status === "complete" && done(), done);
  });
}

/** @param {number} tabId */
export function untilComplete(tabId) {
  return loaded(tabId, false);
}

/**
 * Runs what makes the tab load a page and waits for that page.
 * @param {number} tabId
 * @param {() => Promise<unknown>} cause
 */
export async function untilLoaded(tabId, cause) {
  const waiting = loaded(tabId, true);
  await cause();
  await waiting;
}

/** @param {number} ms */
function pause(ms) {
  return new Promise((resolve) => setTimeout(resolve, ms));
}

/**
 * Runs what should make the tab show another page, of which it may be known or not that there is
 * one. Whether it did; the page is then complete.
 * @param {number} tabId
 * @param {() => Promise<unknown>} cause gives false when it knows that there is none
 */
export async function untilMoved(tabId, cause) {
  let moved = false;
  /** @type {() => void} */
  let unwatch = () => {};
  const moving = new Promise((resolve) => {
    unwatch = watchStatus(tabId, () => resolve((moved = true)));
  });
  try {
    if ((await cause()) === false) return false;
    await Promise.race([moving, pause(MUST_BEGIN_WITHIN_MS)]);
    if (moved) await untilComplete(tabId);
    return moved;
  } finally {
    unwatch();
  }
}

/**
 * Runs an action on the page. When the page is left because of it, as the page itself says or as can
 * be seen soon after, waits until the one that follows is there.
 * @param {number} tabId
 * @param {() => Promise<{outcome: object, leaves: boolean}>} act
 */
export async function afterAction(tabId, act) {
  const startedAt = Date.now();
  let loading = false;
  /** @type {() => void} */
  let unwatch = () => {};
  const begun = new Promise((resolve) => {
    unwatch = watchStatus(tabId, (status) => {
      loading ||= status === "loading";
      if (loading) resolve(undefined);
    });
  });
  try {
    // A page that left so quickly that it could not answer did what it was told.
    const { outcome, leaves } = await act().catch((error) => {
      if (error instanceof PageGone && loading) return { outcome: {}, leaves: true };
      throw error;
    });
    await Promise.race([begun, pause(leaves ? MUST_BEGIN_WITHIN_MS : MAY_BEGIN_WITHIN_MS)]);
    if (loading) await untilComplete(tabId);
    return { data: outcome, waitedMs: loading ? Date.now() - startedAt : 0 };
  } finally {
    unwatch();
  }
}
