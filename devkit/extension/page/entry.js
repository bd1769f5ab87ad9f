// The one way in: morvaPage.call(name, tag, args) runs an operation and gives its outcome as JSON.

(() => {
  const OPERATIONS = {
    read: morvaPage.read,
    find: morvaPage.find,
    zones: () => morvaPage.zones(document.documentElement),
    nameOf: ({ ref }) => morvaPage.nameOf(morvaPage.elementOf(ref)),
    click: morvaPage.click,
    type: morvaPage.type,
    select: morvaPage.select,
    revision: () => revision,
  };

  let revision = 1;
  // What changed since the last look counts once, however much it was.
  let changed = false;
  morvaPage.changed = () => (changed = true);
  new MutationObserver(morvaPage.changed).observe(document, {
    subtree: true, childList: true, characterData: true, attributes: true,
  });

  /**
   * @param {string} name
   * @param {number} tag the document's number, for its refs
   * @param {any} args
   */
  morvaPage.call = (name, tag, args) => {
    morvaPage.tag = tag;
    if (changed) revision += 1;
    changed = false;
    try {
      return JSON.stringify({ value: OPERATIONS[name](args) });
    } catch (error) {
      return JSON.stringify({ error: error instanceof Error ? error.message : String(error) });
    }
  };
})();
