// Acting on elements as a user would: with the events that the page expects.

(() => {
  /** @param {any} args */
  const target = ({ ref }) => {
    const element = /** @type {any} */ (morvaPage.elementOf(ref));
    if (element.disabled) throw new Error(`${ref} is disabled`);
    element.scrollIntoView({ block: "center", inline: "nearest", behavior: "instant" });
    return element;
  };

  /**
   * @param {Element} element
   * @param {string} name
   */
  const tell = (element, name) =>
    element.dispatchEvent(new Event(name, { bubbles: true, composed: true }));

  /** @param {Element} element */
  const press = (element) => {
    const { left, top, width, height } = element.getBoundingClientRect();
    const at = { clientX: left + width / 2, clientY: top + height / 2 };
    const common = { bubbles: true, cancelable: true, composed: true, view: window, ...at };
    const pointer = { ...common, pointerId: 1, isPrimary: true, pointerType: "mouse" };
    element.dispatchEvent(new PointerEvent("pointerdown", pointer));
    element.dispatchEvent(new MouseEvent("mousedown", common));
    element.dispatchEvent(new PointerEvent("pointerup", pointer));
    element.dispatchEvent(new MouseEvent("mouseup", common));
  };

  /** @param {any} args */
  morvaPage.click = (args) => {
    const element = target(args);
    const outcome = { clicked: args.ref, name: morvaPage.nameOf(element) };
    element.focus?.({ preventScroll: true });
    press(element);
    element.click();
    morvaPage.changed();
    const { checked } = morvaPage.itemOf(element);
    return checked === undefined ? outcome : { ...outcome, checked };
  };

  /**
   * Sets the value past a framework's own property, which would otherwise take the new value for
   * one that it knows already and ignore the event.
   * @param {any} element
   * @param {string} value
   */
  const setValue = (element, value) => {
    const property = Object.getOwnPropertyDescriptor(Object.getPrototypeOf(element), "value");
    property?.set?.call(element, value);
  };

  const NO_TEXT = ["button", "submit", "reset", "checkbox", "radio", "file", "image", "range", "color"];

  /** @param {any} element */
  const takesText = (element) => {
    if (element instanceof HTMLTextAreaElement) return !element.readOnly;
    if (element instanceof HTMLInputElement) return !element.readOnly && !NO_TEXT.includes(element.type);
    return element.isContentEditable === true;
  };

  /** @param {any} element */
  const submit = (element) => {
    const enter = { key: "Enter", code: "Enter", bubbles: true, cancelable: true, composed: true };
    const goesOn = element.dispatchEvent(new KeyboardEvent("keydown", enter));
    element.dispatchEvent(new KeyboardEvent("keyup", enter));
    if (goesOn && element instanceof HTMLInputElement) element.form?.requestSubmit();
  };

  /** @param {any} args */
  morvaPage.type = (args) => {
    const element = target(args);
    if (!takesText(element)) throw new Error(`${args.ref} takes no text`);
    const text = String(args.text ?? "");
    element.focus({ preventScroll: true });
    const before = element.isContentEditable ? element.textContent : element.value;
    const value = args.append === true ? before + text : text;
    if (element.isContentEditable) element.textContent = value;
    else setValue(element, value);
    element.dispatchEvent(new InputEvent("input", { bubbles: true, composed: true, data: text }));
    tell(element, "change");
    if (args.submit === true) submit(element);
    morvaPage.changed();
    const kept = element.isContentEditable ? element.textContent : element.value;
    return { ref: args.ref, ...(element.type === "password" ? {} : { value: kept }) };
  };

  /**
   * @param {HTMLSelectElement} element
   * @param {string} wanted
   */
  const optionOf = (element, wanted) => {
    const options = [...element.options];
    return options.find((option) => option.value === wanted)
      ?? options.find((option) => morvaPage.tidy(option.label) === wanted)
      ?? options.find((option) => morvaPage.tidy(option.label).toLowerCase() === wanted.toLowerCase());
  };

  /** @param {any} args */
  morvaPage.select = (args) => {
    const element = target(args);
    if (!(element instanceof HTMLSelectElement)) throw new Error(`${args.ref} has no options`);
    const wanted = String(args.value ?? args.option ?? "");
    const option = optionOf(element, wanted);
    if (!option || option.disabled) throw new Error(`${args.ref} has no option ${JSON.stringify(wanted)}`);
    element.focus({ preventScroll: true });
    option.selected = true;
    tell(element, "input");
    tell(element, "change");
    morvaPage.changed();
    return { ref: args.ref, value: element.value, name: option.label };
  };
})();
