// Images that can be seen, and links that look like files.

(() => {
  const MOST_FILES = 40;
  const SMALLEST_IMAGE_PX = 16; // below that it is decoration
  const FILE_NAME = /\.(pdf|docx?|xlsx?|pptx?|csv|txt|zip|7z|png|jpe?g|gif|webp|svg|mp[34]|json|xml)$/i;

  /** @param {string} url */
  const lastPart = (url) => {
    try {
      return decodeURIComponent(new URL(url).pathname.split("/").pop() ?? "");
    } catch {
      return "";
    }
  };

  /** @param {Element} element */
  const imageOf = (element) => {
    if (!(element instanceof HTMLImageElement) || !element.currentSrc) return null;
    if (element.currentSrc.startsWith("data:")) return null; // its bytes, not its address
    if (element.width < SMALLEST_IMAGE_PX || element.height < SMALLEST_IMAGE_PX) return null;
    const name = element.alt || lastPart(element.currentSrc);
    return { kind: "image", url: element.currentSrc, name };
  };

  /** @param {Element} element */
  const linkOf = (element) => {
    if (!(element instanceof HTMLAnchorElement) || !/^https?:$/.test(element.protocol)) return null;
    const name = lastPart(element.href);
    return FILE_NAME.test(name) ? { kind: "link", url: element.href, name } : null;
  };

  /** @param {Element} root */
  morvaPage.files = (root) => {
    const found = [];
    for (const element of morvaPage.walk(root)) {
      const file = imageOf(element) ?? linkOf(element);
      if (file && morvaPage.isVisible(element)) found.push(file);
      if (found.length === MOST_FILES) break;
    }
    return found;
  };
})();
