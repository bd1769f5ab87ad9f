// Drives the official TypeScript SDK's client: sdk_driver.mjs MODULES COMMAND ARGS...
//
// Starts the server by its command, says what it learnt when it was connected, then performs one
// order a line: {"call", "arguments", "cancelAfterMs", "progress"}, {"ping"}, {"list"} or {"level"}. Each is
// answered with one line: {"result"}, or {"error": {"code", "message"}}.

import { createInterface } from "node:readline";
import { join } from "node:path";
import { pathToFileURL } from "node:url";

const [modules, command, ...args] = process.argv.slice(2);
const sdk = (name) =>
  import(pathToFileURL(join(modules, "@modelcontextprotocol/sdk/dist/esm", name)).href);
const { Client } = await sdk("client/index.js");
const { StdioClientTransport } = await sdk("client/stdio.js");

const client = new Client({ name: "sdk-driver", version: "1" });
const logged = [];
const transport = new StdioClientTransport({ command, args, env: { ...process.env } });
client.onerror = (error) => logged.push(String(error));
await client.connect(transport);

const say = (message) => process.stdout.write(`${JSON.stringify(message)}\n`);

async function perform(order) {
  if ("ping" in order) return client.ping();
  if ("list" in order) return client.listTools();
  if ("level" in order) return client.setLoggingLevel(order.level);
  const options = { timeout: 60_000 };
  const reports = [];
  if (order.progress) options.onprogress = (report) => reports.push(report);
  if (order.cancelAfterMs !== undefined) options.signal = AbortSignal.timeout(order.cancelAfterMs);
  const result = await client.callTool(
    { name: order.call, arguments: order.arguments }, undefined, options);
  return order.progress ? { ...result, reports } : result;
}

say({ server: client.getServerVersion(), capabilities: client.getServerCapabilities(),
      instructions: client.getInstructions(), pid: transport.pid });
for await (const line of createInterface({ input: process.stdin })) {
  try {
    say({ result: await perform(JSON.parse(line)), logged: logged.splice(0) });
  } catch (error) {
    say({ error: { code: error.code, message: error.message }, logged: logged.splice(0) });
  }
}
await client.close();
