/** What a tool cannot do, in words for the agent. */
export class ToolError extends Error {}

/** The document went away while it was asked. */
export class PageGone extends ToolError {}
