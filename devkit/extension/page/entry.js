// The one way in: morvaPage.call(name, tag, args) runs an operation and gives its outcome as JSON.

(() => {
  const LOOKS = {
    read: morvaPage.read,
    find: morvaPage.find,
    zones: morvaPage.zonesOf,
    nameOf: ({ ref }) => morvaPage.nameOf(morvaPage.elementOf(ref)),
    revision: () => revision,
  };
  const ACTIONS = { click: morvaPage.click, type: morvaPage.type, select: morvaPage.select };

  let revision = 1;
  // What changed since the last look counts once, however much it was.
  let changed = false;
  morvaPage.changed = () => (changed = true);
  new MutationObserver(morvaPage.changed).observe(document, {
    subtree: true, childList: true, characterData: true, attributes: true,
  });

  /** @type {any} what the page did last about going elsewhere */
  let departure = null;
  globalThis.navigation?.addEventListener("navigate", (event) => (departure = event));

  const leaves = () =>
    departure !== null && !departure.defaultPrevented && !departure.destination.sameDocument &&
    departure.downloadRequest === null;

  /**
   * Runs an action, and tells with its outcome whether the page is now being left.
   * @param {string} name
   * @param {any} args
   */
  const act = async (name, args) => {
    departure = null;
    const outcome = ACTIONS[name](args);
    // A form is sent in a task of its own, some others as well.
    for (let turn = 0; turn < 2 && !leaves(); turn += 1) {
      await new Promise((resolve) => setTimeout(resolve, 0));
    }
    return { outcome, leaves: leaves() };
  };

  /**
   * @param {string} name
   * @param {number} tag the document's number, for its refs
   * @param {any} args
   */
  morvaPage.call = async (name, tag, args) => {
    morvaPage.tag = tag;
    if (changed) revision += 1;
    changed = false;
    try {
      const value = name in ACTIONS ? await act(name, args) : LOOKS[name](args);
      return JSON.stringify({ value });
    } catch (error) {
      return JSON.stringify({ error: error instanceof Error ? error.message : String(error) });
    }
  };
})();
