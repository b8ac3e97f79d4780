// The same tools over the same control socket, from the official TypeScript SDK: what the benchmark
// compares the server with. It checks no arguments beyond what the SDK checks itself.
//
//   node server.mjs SOCKET LIST    the control socket, and a file with the result of tools/list
import { randomUUID } from "node:crypto";
import { readFileSync } from "node:fs";
import { connect } from "node:net";

import { Server } from "@modelcontextprotocol/sdk/server/index.js";
import { StdioServerTransport } from "@modelcontextprotocol/sdk/server/stdio.js";
import { CallToolRequestSchema, ListToolsRequestSchema } from "@modelcontextprotocol/sdk/types.js";

const [socketPath, listPath] = process.argv.slice(2);
const list = JSON.parse(readFileSync(listPath, "utf8"));

const prefixBytes = 4;

/** The desktop app's response to one request, over a separate connection that `signal` breaks. */
function callApp(request, signal) {
  return new Promise((resolve, reject) => {
    const body = Buffer.from(JSON.stringify(request));
    const prefix = Buffer.alloc(prefixBytes);
    prefix.writeUInt32BE(body.length);
    const socket = connect(socketPath, () => socket.write(Buffer.concat([prefix, body])));
    signal.addEventListener("abort", () => socket.destroy(new Error("Cancelled.")), { once: true });

    const chunks = [];
    let received = 0;
    let expected = Infinity;
    socket.on("data", (chunk) => {
      chunks.push(chunk);
      received += chunk.length;
      if (expected === Infinity && received >= prefixBytes) {
        expected = prefixBytes + Buffer.concat(chunks).readUInt32BE();
      }
      if (received < expected) return;
      resolve(JSON.parse(Buffer.concat(chunks).toString("utf8", prefixBytes)));
      socket.destroy();
    });
    socket.on("error", reject);
    socket.on("close", () => reject(new Error("The connection was closed.")));
  });
}

const server = new Server({ name: "sdk", version: "1" }, { capabilities: { tools: {} } });

server.setRequestHandler(ListToolsRequestSchema, () => list);

server.setRequestHandler(CallToolRequestSchema, async ({ params }, { signal }) => {
  const command = params.name.split(".").at(-1);
  const payload = await callApp({ id: randomUUID(), command, ...params.arguments }, signal);
  return {
    content: [{ type: "text", text: "Done." }],
    structuredContent: payload,
    isError: payload.ok === false,
  };
});

await server.connect(new StdioServerTransport());
