// The text of a page: all of it for screening and reading, and in pieces for finding.

(() => {
  const MOST_TEXT = 200_000;
  const LONGEST_PIECE = 300;
  const PIECES = "p, li, td, th, h1, h2, h3, h4, h5, h6, dt, dd, figcaption, blockquote, pre, label";

  /** @param {Element} root */
  morvaPage.pageText = (root) => {
    const from = root === document.documentElement ? document.body : root;
    return (/** @type {HTMLElement | null} */ (from)?.innerText ?? "").slice(0, MOST_TEXT);
  };

  /**
   * The pieces of text that hold what is looked for, as items that a zone can be pinned to.
   * @param {Element} root
   * @param {string} wanted in lower case
   */
  morvaPage.textMatches = (root, wanted) => {
    const found = [];
    for (const element of morvaPage.walk(root)) {
      if (!element.matches(PIECES)) continue;
      const text = morvaPage.tidy(element.textContent);
      const at = text.toLowerCase().indexOf(wanted);
      if (at < 0 || !morvaPage.isVisible(element)) continue;
      const from = Math.max(0, at - LONGEST_PIECE / 2);
      const name = text.slice(from, from + LONGEST_PIECE);
      found.push({ ref: morvaPage.refOf(element), role: "text", name });
    }
    return found;
  };
})();
