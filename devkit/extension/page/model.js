// The model of a page: what an agent gets to know of it.

(() => {
  const MOST_ITEMS = 5_000;

  /** @param {Element} element */
  const stateOf = (element) => {
    const control = /** @type {any} */ (element);
    /** @type {Record<string, any>} */
    const state = {
      disabled: control.disabled === true || element.getAttribute("aria-disabled") === "true",
    };
    if (control.matches("input[type=checkbox], input[type=radio]")) state.checked = control.checked;
    else if (element.hasAttribute("aria-checked")) {
      state.checked = element.getAttribute("aria-checked") === "true";
    }
    if (element instanceof HTMLInputElement) state.type = element.type;
    return state;
  };

  /** @param {Element} element */
  const valueOf = (element) => {
    if (element instanceof HTMLSelectElement) {
      return { value: element.value, options: [...element.options].map((option) => option.label) };
    }
    if (element instanceof HTMLTextAreaElement) return { value: element.value };
    // What a password is stays in the page.
    if (!(element instanceof HTMLInputElement) || element.type === "password") return {};
    return ["button", "submit", "reset", "file"].includes(element.type) ? {} : { value: element.value };
  };

  /** @param {Element} element */
  morvaPage.itemOf = (element) => ({
    ref: morvaPage.refOf(element),
    role: morvaPage.roleOf(element),
    name: morvaPage.nameOf(element),
    ...stateOf(element),
    ...valueOf(element),
  });

  /** @param {Element} root */
  const usable = (root) => {
    const found = [];
    for (const element of morvaPage.walk(root)) {
      if (morvaPage.isInteractive(element) && morvaPage.isVisible(element)) found.push(element);
    }
    return found;
  };

  /** @param {{ref?: string}} args */
  morvaPage.zonesOf = ({ ref }) => {
    const root = morvaPage.rootOf(ref);
    return morvaPage.zones(root, usable(root));
  };

  /**
   * @param {Element} root
   * @param {Element[]} elements what can be used there
   * @param {any[]} items what is told of that
   */
  const model = (root, elements, items) => ({
    count: elements.length,
    items: items.slice(0, MOST_ITEMS),
    truncated: items.length > MOST_ITEMS,
    pageText: morvaPage.pageText(root),
    zoneHints: morvaPage.zones(root, elements),
    files: morvaPage.files(root),
  });

  /** @param {{ref?: string}} args */
  morvaPage.read = ({ ref }) => {
    const root = morvaPage.rootOf(ref);
    const elements = usable(root);
    return model(root, elements, elements.map(morvaPage.itemOf));
  };

  /** @param {{ref?: string, query: string}} args */
  morvaPage.find = ({ ref, query }) => {
    const root = morvaPage.rootOf(ref);
    const wanted = morvaPage.tidy(query).toLowerCase();
    const elements = usable(root);
    const matches = elements.map(morvaPage.itemOf).filter((item) =>
      [item.name, item.value, item.role].some((text) => String(text ?? "").toLowerCase().includes(wanted)));
    const known = new Set(matches.map((item) => item.ref));
    const texts = morvaPage.textMatches(root, wanted).filter((item) => !known.has(item.ref));
    return model(root, elements, [...matches, ...texts]);
  };
})();
