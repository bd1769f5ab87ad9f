// "browserUse": the agent acts in this browser. Every command gets one answer.

import { runTool } from "../tools/tool_table.js";

const PROTOCOL_VERSION = 1;

/**
 * The frame that answers a command, whatever comes of it.
 * @param {{requestId: string, payload: {name: string, arguments: object}}} command
 */
export async function carryOut(command) {
  const answer = { protocolVersion: PROTOCOL_VERSION, requestId: command.requestId };
  try {
    const { name, arguments: args } = command.payload;
    return { ...answer, ok: true, data: await runTool(name, args) };
  } catch (error) {
    const message = error instanceof Error ? error.message : String(error);
    return { ...answer, ok: false, error: { code: "TOOL", message } };
  }
}
