// Which tabs there are and which one the user looks at: what the host calls the browser context.

/** Our own pages are never what the user asks about: not the panel in a tab either. */
const OWN = chrome.runtime.getURL("");

/** @param {chrome.tabs.Tab} tab */
export function isForeign(tab) {
  return tab.id !== undefined && !(tab.url ?? tab.pendingUrl ?? "").startsWith(OWN);
}

/** @param {chrome.tabs.Tab} tab */
function lastUse(tab) {
  return tab.lastAccessed ?? 0;
}

/**
 * The tab that the user looks at, or looked at last when the panel itself fills the window.
 * @returns {Promise<chrome.tabs.Tab | undefined>}
 */
export async function currentTab() {
  const [shown] = await chrome.tabs.query({ active: true, lastFocusedWindow: true });
  if (shown && isForeign(shown)) return shown;
  const tabs = (await chrome.tabs.query({})).filter(isForeign);
  return tabs.sort((one, other) => lastUse(other) - lastUse(one))[0];
}

/** @param {chrome.tabs.Tab | undefined} tab */
export function describeTab(tab) {
  return { id: tab?.id ?? 0, title: tab?.title ?? "", url: tab?.url || tab?.pendingUrl || "" };
}

/** The "browser" object of "send" and "browserSnapshot". */
export async function browserContext() {
  const current = describeTab(await currentTab());
  const tabs = (await chrome.tabs.query({})).filter(isForeign).map(describeTab);
  const onTheWeb = /^https?:/.test(current.url);
  return {
    currentUrl: onTheWeb ? current.url : "",
    currentTitle: onTheWeb ? current.title : "",
    tabs,
  };
}

const QUIET_MS = 300; // a page that loads changes its tab many times

/**
 * Calls `changed` some time after tabs came, went or changed.
 * @param {() => void} changed
 */
export function watchTabs(changed) {
  /** @type {ReturnType<typeof setTimeout> | undefined} */
  let timer;
  const later = () => {
    clearTimeout(timer);
    timer = setTimeout(changed, QUIET_MS);
  };
  chrome.tabs.onActivated.addListener(later);
  chrome.tabs.onRemoved.addListener(later);
  chrome.tabs.onUpdated.addListener((_id, change) => {
    if (change.url || change.title || change.status === "complete") later();
  });
}
