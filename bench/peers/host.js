// The measured part of the host as one would write it for Node in an afternoon: acknowledges,
// streams a turn's answer, relays tool calls with the page cut down, and serves the catalogue, which
// it reads from the file that BENCH_CATALOGUE names. What is not needed at the start is loaded when
// it is.
"use strict";

const token = "0".repeat(64);
const pieceChars = 200_000; // the browser takes no frame past 1 MiB
const mostItems = 12;
const itemKeys = ["checked", "disabled", "name", "ref", "role", "type", "value"];
const keyRoles = new Set(
  ["textbox", "combobox", "checkbox", "radio", "searchbox", "spinbutton", "switch"]);
const overrides = new RegExp(
  "ignore prior instructions|ignore previous instructions|system override|ignore safety|" +
  "disable sandbox|skip consent|do not tell the user", "i");
const demands = /~\/\.ssh|id_rsa|upload|exfil|\| bash|\| sh|powershell/i;

const waiting = new Map();
let lastId = Date.now();

function frame(message) {
  const text = JSON.stringify(message);
  const size = Buffer.byteLength(text);
  const bytes = Buffer.allocUnsafe(4 + size);
  bytes.writeUInt32LE(size);
  bytes.write(text, 4);
  return bytes;
}

const write = (...frames) => process.stdout.write(
  frames.length === 1 ? frames[0] : Buffer.concat(frames));

const event = (method, ...args) => frame(
  {source: "morva-chat", kind: "hostChatEvents", events: [{method, args}]});

function runTurn({preset, prompt, chat_session_id: chatSessionId = "chrome"}) {
  const runId = `chrome-${++lastId}`;
  let text = "";
  let seq = 0;
  let pending = [];
  let last = "";

  function eventsOf(block) {
    if (block === "data: [DONE]") return [];
    const delta = JSON.parse(block.slice(6)).choices[0]?.delta.content ?? "";
    const events = [];
    text += delta;
    for (let at = 0; at < delta.length; at += pieceChars) {
      events.push(event("appendAssistantDelta", {
        chatSessionId, delta: delta.slice(at, at + pieceChars), runId, seq: ++seq}));
    }
    return events;
  }

  function take(piece) {
    pending.push(piece);
    const completes = (last + piece).includes("\n\n");
    last = piece.slice(-1);
    if (!completes) return;
    const blocks = pending.join("").split("\n\n");
    pending = [blocks.pop()];
    write(...blocks.flatMap(eventsOf));
  }

  function finish() {
    const whole = event("completeAssistantText", {chatSessionId, runId, text});
    if (whole.length < 1 << 20) write(whole);
    write(event("agentDone", runId, true, ""));
  }

  write(event("setBusy", true),
        event("agentStarted", {chat_session_id: chatSessionId, id: runId, name: preset}));
  const request = require("node:http").request({
    host: "127.0.0.1", port: 8090, path: "/v1/chat/completions", method: "POST",
    headers: {"Content-Type": "application/json"}});
  request.on("response", (response) => {
    response.setEncoding("utf8").on("data", take).on("end", finish);
  });
  request.end(JSON.stringify({model: preset, stream: true, session_id: chatSessionId,
                              messages: [{role: "user", content: prompt}]}));
}

function ordersAbout({title, data: {pageText, items}}) {
  const text = [title, pageText, ...items.map((item) => item.name)].join("\n");
  return overrides.test(text) && demands.test(text);
}

function compacted({title, ...page}) {
  const {count, items, pageText} = page.data;
  const verdict = ordersAbout({title, ...page})
    ? {prompt_injection_detected: true, error: "Prompt injection detected."} : {};
  const isKeyItem = (item) => keyRoles.has(item.role);
  const others = items.slice(0, 2 * mostItems).filter((item) => !isKeyItem(item));
  const chosen = items.filter(isKeyItem).concat(others).slice(0, mostItems);
  const data = {count, items: chosen.map((item) => Object.fromEntries(
    itemKeys.filter((key) => key in item).map((key) => [key, item[key]])))};
  const itemsOmitted = items.length - mostItems;
  if (itemsOmitted > 0) Object.assign(data, {itemsOmitted, truncated: true});
  if (pageText) data.pageTextOmitted = true;
  return {...page, ...verdict, data};
}

function call(request, answer) {
  const requestId = String(++lastId);
  waiting.set(requestId, ({ok, data, error}) => answer(ok ? compacted(data) : {ok, error}));
  write(frame({command: "browserUse", requestId, protocolVersion: 1,
               payload: {name: request.name, arguments: request.arguments ?? {}}}));
}

function startServer(listening) {
  const catalogue = JSON.parse(require("node:fs").readFileSync(process.env.BENCH_CATALOGUE));
  const server = require("node:http").createServer((request, response) => {
    const answer = (value, status = 200) => {
      const body = JSON.stringify(value);
      response.writeHead(status, {
        "Content-Type": "application/json", "Content-Length": Buffer.byteLength(body),
        "Connection": "close"});
      response.end(body);
    };
    if (request.headers["x-morva-session"] !== token) return answer({ok: false}, 401);
    if (request.method === "GET") return answer(catalogue);
    const pieces = [];
    request.on("data", (piece) => pieces.push(piece));
    request.on("end", () => call(JSON.parse(Buffer.concat(pieces)), answer));
  });
  server.listen(0, "127.0.0.1", () => listening(server.address().port));
}

function handle(message) {
  if (message.source !== "morva-chat") {
    waiting.get(message.requestId)?.(message);
    return waiting.delete(message.requestId);
  }
  const ack = {
    source: "morva-chat", kind: "ack", ok: true, chromeRequestId: message.chromeRequestId};
  if (message.kind === "contextImportUrl") {
    return startServer((port) => write(frame(
      {...ack, url: `http://127.0.0.1:${port}/api/context-file`, token})));
  }
  write(frame(ack));
  if (message.kind === "send") runTurn(message);
}

let pieces = [];
let size = 0;
let wanted = 4;
process.stdin.on("data", (piece) => {
  pieces.push(piece);
  size += piece.length;
  while (size >= wanted) {
    const bytes = pieces.length === 1 ? pieces[0] : Buffer.concat(pieces);
    const end = 4 + bytes.readUInt32LE();
    const isWhole = size >= end;
    if (isWhole) handle(JSON.parse(bytes.toString("utf8", 4, end)));
    if (isWhole) size -= end;
    pieces = [isWhole ? bytes.subarray(end) : bytes];
    wanted = isWhole ? 4 : end;
  }
});
process.stdin.on("end", () => process.exit(0));
