// What an element is called, after the order of the accessible name computation (W3C accname):
// labels that the author gave, then the element's own text, then hints.

(() => {
  const LONGEST_NAME = 200;

  /** @param {string | null | undefined} text */
  const tidy = (text) => (text ?? "").replace(/\s+/g, " ").trim();

  /** @param {Element} element */
  const labelledBy = (element) =>
    (element.getAttribute("aria-labelledby") ?? "")
      .split(/\s+/)
      .map((id) => id && tidy(document.getElementById(id)?.textContent))
      .join(" ");

  /** @param {Element} element */
  const labels = (element) =>
    [...(/** @type {HTMLInputElement} */ (element).labels ?? [])]
      .map((label) => tidy(label.textContent))
      .join(" ");

  /** @param {Element} element */
  const ownText = (element) => {
    if (element instanceof HTMLInputElement) {
      return ["button", "submit", "reset"].includes(element.type) ? element.value : "";
    }
    // The contents of these are what the user chose or wrote, or a zone's whole text: no name.
    if (element.matches("select, textarea, [contenteditable], nav, main, aside, header, footer, form, section, dialog")) {
      return "";
    }
    const images = [...element.querySelectorAll("img[alt]")].map((image) => image.getAttribute("alt"));
    return tidy(element.textContent) || images.join(" ");
  };

  /** @param {Element} element */
  const heading = (element) =>
    morvaPage.zoneRole?.(element) ? element.querySelector("h1, h2, h3, legend")?.textContent : "";

  const SOURCES = [
    labelledBy,
    (element) => element.getAttribute("aria-label"),
    labels,
    (element) => element.getAttribute("alt"),
    ownText,
    heading,
    (element) => element.getAttribute("title"),
    (element) => element.getAttribute("placeholder"),
    (element) => element.getAttribute("name"),
  ];

  /** @param {Element} element */
  morvaPage.nameOf = (element) => {
    for (const source of SOURCES) {
      const name = tidy(source(element));
      if (name) return name.slice(0, LONGEST_NAME);
    }
    return "";
  };

  morvaPage.tidy = tidy;
})();
