// The documents of a tab: the page and its iframes. Our page scripts are put into each when first
// needed, and called by the id that the browser gives a document, so a call never reaches a page
// that has replaced the one that was meant.

import { PageGone, ToolError } from "./tool_error.js";

const PAGE_SCRIPTS = [
  "page/roles.js",
  "page/names.js",
  "page/refs.js",
  "page/walk.js",
  "page/zones.js",
  "page/files.js",
  "page/text.js",
  "page/model.js",
  "page/actions.js",
  "page/entry.js",
];

/** @typedef {{documentId: string, tag: number}} PageDocument */

/** Numbers documents, for refs: "d2e7" is element 7 of document 2, and no later one's. */
class DocumentTags {
  #last = 0;
  /** @type {Map<string, number>} */
  #tags = new Map();

  /** @param {string} documentId */
  of(documentId) {
    const known = this.#tags.get(documentId);
    if (known !== undefined) return known;
    this.#tags.set(documentId, ++this.#last);
    return this.#last;
  }

  /** @param {number} tag */
  idOf(tag) {
    for (const [documentId, each] of this.#tags) if (each === tag) return documentId;
    return "";
  }
}

const tags = new DocumentTags();

/**
 * Runs a function in every document of a tab that can be reached; the page itself comes first.
 * @param {number} tabId
 * @param {() => boolean} func
 */
async function inEveryDocument(tabId, func) {
  try {
    return await chrome.scripting.executeScript({ target: { tabId, allFrames: true }, func });
  } catch (error) {
    const reason = error instanceof Error ? error.message : String(error);
    throw new ToolError(`this page cannot be reached: ${reason}`);
  }
}

/**
 * The documents of a tab, with our scripts in them.
 * @param {number} tabId
 * @returns {Promise<PageDocument[]>}
 */
export async function documentsOf(tabId) {
  const found = await inEveryDocument(tabId, () => "morvaPage" in globalThis);
  for (const { documentId, result } of found) {
    if (result) continue;
    const target = { tabId, documentIds: [documentId] };
    await chrome.scripting.executeScript({ target, files: PAGE_SCRIPTS }).catch(() => {});
  }
  return found.map(({ documentId }) => ({ documentId, tag: tags.of(documentId) }));
}

/**
 * Calls an operation of page/entry.js. Answers travel as JSON text: the browser's own conversion
 * would put U+FFFD in the place of half characters, and a page is to be told of as it is.
 * @param {number} tabId
 * @param {PageDocument} page
 * @param {string} operation
 * @param {object} args
 */
export async function callPage(tabId, { documentId, tag }, operation, args) {
  const target = { tabId, documentIds: [documentId] };
  /** @type {any} */
  let answer;
  try {
    const [{ result }] = await chrome.scripting.executeScript({
      target,
      args: [operation, tag, args],
      func: async (name, number, given) => globalThis.morvaPage.call(name, number, given),
    });
    answer = JSON.parse(result);
  } catch {
    throw new PageGone("the page has gone while it was used");
  }
  if (answer.error) throw new ToolError(answer.error);
  return answer.value;
}

/**
 * The document that a ref belongs to.
 * @param {number} tabId
 * @param {unknown} ref
 * @returns {Promise<PageDocument>}
 */
export async function documentOf(tabId, ref) {
  if (typeof ref !== "string" || ref === "") throw new ToolError("a ref is needed");
  const [, tag] = /^d(\d+)[ez]\d+$/.exec(ref) ?? [];
  if (!tag) throw new ToolError(`no element ${ref}`);
  const wanted = tags.idOf(Number(tag));
  const page = (await documentsOf(tabId)).find(({ documentId }) => documentId === wanted);
  if (!page) throw new PageGone(`${ref} is of a page that has gone; read the page again`);
  return page;
}
