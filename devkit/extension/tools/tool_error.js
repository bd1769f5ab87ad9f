/** What a tool cannot do, in words for the agent. */
export class ToolError extends Error {}
