// Zones: the parts of a page, as its author named them. They let an agent read a long page piece by
// piece.

(() => {
  const ROLES = new Set([
    "banner", "navigation", "main", "complementary", "contentinfo", "form", "region", "dialog",
    "search", "alertdialog",
  ]);
  const MOST_ROLES = 5;
  const MOST_ZONES = 60;

  /**
   * The role of a zone, or empty.
   * @param {Element} element
   */
  morvaPage.zoneRole = (element) => {
    const role = morvaPage.roleOf(element);
    return ROLES.has(role) ? role : "";
  };

  /**
   * How sure it is that this is a part of its own.
   * @param {Element} element
   */
  const confidence = (element) => {
    const named = element.hasAttribute("aria-label") || element.hasAttribute("aria-labelledby");
    if (named || element.hasAttribute("role")) return 1;
    return ["SECTION", "FORM"].includes(element.tagName) ? 0.6 : 0.8;
  };

  /**
   * The element that another one is in, out of shadow trees too.
   * @param {Element} element
   */
  const outer = (element) =>
    element.parentElement ?? /** @type {any} */ (element.getRootNode()).host ?? null;

  /**
   * Adds an element that can be used to every zone that it is in.
   * @param {Map<Element, {count: number, roles: Set<string>}>} zones
   * @param {Element} element
   */
  const countIn = (zones, element) => {
    for (let each = outer(element); each; each = outer(each)) {
      const zone = zones.get(each);
      if (!zone) continue;
      zone.count += 1;
      if (zone.roles.size < MOST_ROLES) zone.roles.add(morvaPage.roleOf(element));
    }
  };

  /**
   * The zones below `root`, the surest first.
   * @param {Element} root
   * @param {Element[]} usable what can be clicked, typed into or chosen from
   */
  morvaPage.zones = (root, usable) => {
    /** @type {Map<Element, {count: number, roles: Set<string>}>} */
    const zones = new Map();
    for (const element of morvaPage.walk(root)) {
      if (!morvaPage.zoneRole(element) || !morvaPage.isVisible(element)) continue;
      zones.set(element, { count: 0, roles: new Set() });
      if (zones.size === MOST_ZONES) break;
    }
    for (const element of usable) countIn(zones, element);
    return [...zones]
      .map(([element, { count, roles }]) => ({
        ref: morvaPage.refOf(element, "z"),
        role: morvaPage.zoneRole(element),
        name: morvaPage.nameOf(element) || morvaPage.zoneRole(element),
        interactiveCount: count,
        confidence: confidence(element),
        roles: [...roles],
      }))
      .sort((one, other) =>
        other.confidence - one.confidence || other.interactiveCount - one.interactiveCount);
  };
})();
