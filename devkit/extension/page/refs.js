// Refs: short names for elements that stay the same for as long as the element is there.

(() => {
  /** @type {WeakMap<Element, number>} */
  const numbers = new WeakMap();
  /** @type {Map<number, WeakRef<Element>>} */
  const elements = new Map();

  /**
   * @param {Element} element
   * @param {"e" | "z"} kind element or zone
   */
  morvaPage.refOf = (element, kind = "e") => {
    let number = numbers.get(element);
    if (number === undefined) {
      number = elements.size + 1;
      numbers.set(element, number);
      elements.set(number, new WeakRef(element));
    }
    return `d${morvaPage.tag}${kind}${number}`;
  };

  /** @param {string} ref */
  morvaPage.elementOf = (ref) => {
    const element = elements.get(Number(/\d+$/.exec(ref)?.[0]))?.deref();
    if (!element?.isConnected) throw new Error(`no element ${ref}`);
    return element;
  };
})();
