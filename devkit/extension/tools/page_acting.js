// click, type and select: what changes the page.

import { callPage, documentOf } from "./page_documents.js";
import { afterAction } from "./tab_loading.js";

/**
 * Acts on the element that the arguments name and waits for the page that may follow.
 * @param {string} operation
 * @returns {(tabId: number, args: any) => Promise<object>}
 */
function action(operation) {
  return async (tabId, args) => {
    const page = await documentOf(tabId, args.ref);
    const act = () => callPage(tabId, page, operation, args);
    const { data, waitedMs } = await afterAction(tabId, act);
    return { action: operation, data, waitedMs };
  };
}

export const click = action("click");
export const type = action("type");
export const select = action("select");
