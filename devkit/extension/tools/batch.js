// browser_batch: steps in one round trip, up to the first that fails.

import { ToolError } from "./tool_error.js";

const LONGEST_WAIT_MS = 5_000;
const USUAL_WAIT_MS = 300;
const LONGEST_BATCH_MS = 20_000; // the host waits 25 seconds

/** @typedef {(tabId: number, args: any) => Promise<any>} PageTool */

/**
 * What a step asks for: "read" and "browser_read" are the same, under any of three keys.
 * @param {any} step
 */
function wordOf(step) {
  return String(step.action || step.tool || step.name || "").replace(/^browser_/, "");
}

/** @param {any} step */
async function wait(step) {
  const asked = Number(step.ms ?? step.timeout_ms ?? USUAL_WAIT_MS);
  const ms = Math.min(LONGEST_WAIT_MS, Math.max(0, asked || 0));
  await new Promise((resolve) => setTimeout(resolve, ms));
  return { waitedMs: ms };
}

class Batch {
  /** @type {Record<string, PageTool>} */
  #tools;
  #tabId;
  #deadline = Date.now() + LONGEST_BATCH_MS;

  /**
   * @param {number} tabId
   * @param {Record<string, PageTool>} tools
   */
  constructor(tabId, tools) {
    this.#tabId = tabId;
    this.#tools = tools;
  }

  /** @param {any} args */
  async run(args) {
    if (!Array.isArray(args.steps) || !args.steps.length) throw new ToolError("steps are needed");
    const steps = [];
    for (const [index, step] of args.steps.entries()) {
      steps.push(await this.#report(index, step));
      if (!steps[index].ok) break;
    }
    const failed = steps.find((step) => !step.ok);
    return {
      steps,
      all_ok: !failed,
      first_failure: failed ? failed.index : null,
      ...(failed && { batch_error: `step ${failed.index} (${failed.action}): ${failed.error}` }),
    };
  }

  /**
   * @param {number} index
   * @param {any} step
   * @returns {Promise<any>}
   */
  async #report(index, step) {
    const action = wordOf(step);
    const report = { index, action, ...(step.ref && { ref: step.ref }) };
    try {
      const { waitedMs = 0, data } = await this.#do(action, step);
      // "auto": the agent did not ask for this wait, the page that followed did.
      const waiting = { waited_ms: waitedMs, auto: waitedMs > 0 && action !== "wait" };
      return { ...report, ok: data?.all_ok ?? true, ...waiting, data, ...nestedFailure(data) };
    } catch (error) {
      const text = error instanceof Error ? error.message : String(error);
      return { ...report, ok: false, waited_ms: 0, error: text };
    }
  }

  /**
   * @param {string} action
   * @param {any} step
   */
  async #do(action, step) {
    if (Date.now() > this.#deadline) throw new ToolError("the batch takes too long");
    if (action === "wait") return wait(step);
    if (action === "batch") return { data: await this.run(step.arguments ?? step) };
    if (!Object.hasOwn(this.#tools, action)) throw new ToolError(`no step ${action}`);
    return this.#tools[action](this.#tabId, step);
  }
}

/** @param {any} data */
function nestedFailure(data) {
  return data?.batch_error ? { error: data.batch_error } : {};
}

/**
 * @param {number} tabId
 * @param {any} args
 * @param {Record<string, PageTool>} tools
 */
export async function batch(tabId, args, tools) {
  return { data: await new Batch(tabId, tools).run(args) };
}
