// Zones: the parts of a page, as its author named them. They let an agent read a long page piece by
// piece.

(() => {
  const ROLES = new Set([
    "banner", "navigation", "main", "complementary", "contentinfo", "form", "region", "dialog",
    "search", "alertdialog",
  ]);
  const MOST_ROLES = 5;

  /** The role of a zone, or empty. @param {Element} element */
  morvaPage.zoneRole = (element) => {
    const role = morvaPage.roleOf(element);
    return ROLES.has(role) ? role : "";
  };

  /** How sure it is that this is a part of its own. @param {Element} element */
  const confidence = (element) => {
    const named = element.hasAttribute("aria-label") || element.hasAttribute("aria-labelledby");
    if (named || element.hasAttribute("role")) return 1;
    return ["SECTION", "FORM"].includes(element.tagName) ? 0.6 : 0.8;
  };

  /** @param {Element} element */
  const describe = (element) => {
    const inside = [...morvaPage.walk(element)].filter(
      (each) => morvaPage.isInteractive(each) && morvaPage.isVisible(each),
    );
    const roles = [...new Set(inside.map(morvaPage.roleOf))].slice(0, MOST_ROLES);
    return {
      ref: morvaPage.refOf(element, "z"),
      role: morvaPage.zoneRole(element),
      name: morvaPage.nameOf(element) || morvaPage.zoneRole(element),
      interactiveCount: inside.length,
      confidence: confidence(element),
      roles,
    };
  };

  /** The surest first. @param {Element} root */
  morvaPage.zones = (root) =>
    [...morvaPage.walk(root)]
      .filter((element) => morvaPage.zoneRole(element) && morvaPage.isVisible(element))
      .map(describe)
      .sort((one, other) =>
        other.confidence - one.confidence || other.interactiveCount - one.interactiveCount);
})();
