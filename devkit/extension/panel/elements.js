// Small helpers for the document.

/**
 * The element with an id, which the page has.
 * @param {string} id
 * @returns {any}
 */
export function byId(id) {
  return document.getElementById(id);
}

/**
 * A new element. Text is set as text, never as markup: much of it comes from web pages.
 * @param {string} tag
 * @param {Record<string, any>} properties
 * @param {(Node | string)[]} children
 */
export function make(tag, properties = {}, ...children) {
  const element = document.createElement(tag);
  const { data = {}, ...own } = properties;
  Object.assign(element, own);
  Object.assign(element.dataset, data);
  element.append(...children);
  return element;
}
