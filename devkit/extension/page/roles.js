// What an element is to somebody who cannot see it: the role of WAI-ARIA, by name.

globalThis.morvaPage ??= {};

(() => {
  const INPUT_ROLES = {
    button: "button", submit: "button", reset: "button", image: "button",
    checkbox: "checkbox", radio: "radio", range: "slider", number: "spinbutton",
    search: "searchbox", file: "button", color: "button",
  };

  const TAG_ROLES = {
    A: "link", AREA: "link", BUTTON: "button", TEXTAREA: "textbox", SUMMARY: "button",
    OPTION: "option", NAV: "navigation", MAIN: "main", ASIDE: "complementary", HEADER: "banner",
    FOOTER: "contentinfo", FORM: "form", SECTION: "region", DIALOG: "dialog", TABLE: "table",
    IMG: "img", UL: "list", OL: "list",
  };

  // What can be clicked, typed into or chosen from.
  const INTERACTIVE = [
    "a[href]", "area[href]", "button", "input:not([type=hidden])", "select", "textarea", "summary",
    "[contenteditable]:not([contenteditable=false])", "[tabindex]:not([tabindex='-1'])",
    ...["button", "link", "checkbox", "radio", "switch", "tab", "menuitem", "option", "combobox",
      "textbox", "searchbox", "slider", "spinbutton", "treeitem"].map((role) => `[role=${role}]`),
  ].join(",");

  /** @param {Element} element */
  morvaPage.roleOf = (element) => {
    const [given] = (element.getAttribute("role") ?? "").trim().split(/\s+/);
    if (given) return given;
    if (element instanceof HTMLInputElement) return INPUT_ROLES[element.type] ?? "textbox";
    if (element instanceof HTMLSelectElement) return element.multiple ? "listbox" : "combobox";
    if (element instanceof HTMLElement && element.isContentEditable) return "textbox";
    return TAG_ROLES[element.tagName] ?? "generic";
  };

  /** @param {Element} element */
  morvaPage.isInteractive = (element) => element.matches(INTERACTIVE);
})();
