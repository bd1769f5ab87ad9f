// Going through a document, open shadow trees included, past what nobody can see.

(() => {
  /** @param {Element} element */
  const isHidden = (element) =>
    element.getAttribute("aria-hidden") === "true" ||
    element.matches("script, style, template, noscript, head") ||
    !element.checkVisibility({ checkVisibilityCSS: true });

  /** @param {Element} element */
  morvaPage.isVisible = (element) => {
    const { width, height } = element.getBoundingClientRect();
    return width > 0 && height > 0 && !isHidden(element);
  };

  /**
   * Every element below `root` in document order. What is below a hidden element is left out.
   * @param {Element | ShadowRoot} root
   * @returns {Generator<Element>}
   */
  morvaPage.walk = function* walk(root) {
    for (const element of root.children) {
      // "visibility: hidden" can be undone further down; the others cannot.
      if (element.matches("script, style, template, noscript, [aria-hidden=true]")) continue;
      yield element;
      if (element.shadowRoot) yield* walk(element.shadowRoot);
      yield* walk(element);
    }
  };

  /** @param {string | undefined} ref of what to stay inside */
  morvaPage.rootOf = (ref) => (ref ? morvaPage.elementOf(ref) : document.documentElement);
})();
