// The official clients against the real server: interop.test.mjs SERVER SIMULATOR. Every wait is
// for something that the other end does.
import assert from 'node:assert/strict';
import { text } from 'node:stream/consumers';
import { Client as NewerClient } from '@modelcontextprotocol/client';
import { StdioClientTransport as NewerTransport } from '@modelcontextprotocol/client/stdio';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';
import { AjvJsonSchemaValidator } from '@modelcontextprotocol/sdk/validation/ajv';
import { check, makeHome, soon, startSimulator } from './support.mjs';

const [server, simulator] = process.argv.slice(2);
const who = { name: 'interop', version: '1' };
const phone = 'QM7F3A2101';
const pick = (list, key) => list.map((each) => each[key]);

/** A transport that starts the server and records the methods that the client sends. */
function makeTransport(Transport, home) {
  return new (class extends Transport {
    methods = [];
    send(message) {
      this.methods.push(message.method);
      return super.send(message);
    }
  })({ command: server, env: { HOME: home, CFFIXED_USER_HOME: home }, stderr: 'pipe' });
}

/**
 * Connects, runs the body, disconnects. Fails if the client found anything wrong, such as a line that is not
 * a message or a response that it does not wait for, or if the server wrote to standard error.
 */
async function withClient(t, { home, transport, client }, body) {
  transport ??= makeTransport(StdioClientTransport, home);
  client ??= new Client(who);
  const amiss = [];
  client.onerror = (error) => amiss.push(error.message);
  const complaints = text(transport.stderr);
  t.after(() => client.close());
  await client.connect(transport);
  await body(client);
  await client.close();
  assert.equal(await soon('the end of the server', complaints), '');
  assert.deepEqual(amiss, []);
}

for (const version of ['2024-11-05', '2025-03-26', '2025-06-18', '2025-11-25']) {
  check(`a client of ${version} gets its version and lists that pass its schemas`, async (t) => {
    const transport = makeTransport(StdioClientTransport, makeHome(t));
    const { send } = transport;
    // This client asks only for the newest version, but accepts any that it knows.
    transport.send = (message) => {
      if (message.method === 'initialize') message.params.protocolVersion = version;
      return send.call(transport, message);
    };
    let negotiated;
    transport.setProtocolVersion = (chosen) => (negotiated = chosen);
    await withClient(t, { transport }, async (client) => {
      assert.equal(negotiated, version);
      assert.equal(client.getServerVersion().name, 'quillmere');
      assert.match(client.getInstructions(), /quillmere\.devices\.list/);
      await client.ping();
      assert.equal((await client.listTools()).tools.length, 19);
      const { resources } = await client.listResources();
      assert.deepEqual(pick(resources, 'uri'), ['quillmere://devices', 'quillmere://sessions']);
      const { prompts } = await client.listPrompts();
      assert.deepEqual(pick(prompts, 'name'), ['phone_task_assistant', 'android_smoke_test']);
      const asked = { name: 'phone_task_assistant', arguments: { task: 'Buy 牛奶 🥛' } };
      const { messages } = await client.getPrompt(asked);
      assert.match(messages[0].content.text, /^Task: Buy 牛奶 🥛\n/);
      const noApp = { message: /-32000: .* Start Quillmere first\.$/ };
      await assert.rejects(client.callTool({ name: 'quillmere.wait' }), noApp);
      const refused = { name: 'quillmere.wait', arguments: { durationMs: '1' } };
      await assert.rejects(client.callTool(refused), { message: /-32602: durationMs must be an/ });
      assert.equal((await client.callTool({ name: 'quillmere.help' })).isError, false);
    });
  });
}

check('a newer client asks for a newer handshake and falls back', async (t) => {
  const transport = makeTransport(NewerTransport, (await startSimulator(t, simulator)).home);
  const client = new NewerClient(who, { versionNegotiation: { mode: 'auto' } });
  await withClient(t, { transport, client }, async () => {
    assert.deepEqual(transport.methods.slice(0, 2), ['server/discover', 'initialize']);
    assert.equal(client.getNegotiatedProtocolVersion(), '2025-11-25');
    assert.equal((await client.listTools()).tools.length, 19);
    const { structuredContent } = await client.callTool({ name: 'quillmere.devices.list' });
    assert.equal(structuredContent.devices[0].serial, phone);
  });
});

check('every tool does its part in a phone task', async (t) => {
  const { home } = await startSimulator(t, simulator);
  await withClient(t, { home }, async (client) => {
    const { tools } = await client.listTools();
    const schemas = new Map(tools.map((tool) => [tool.name, tool.inputSchema]));
    const validator = new AjvJsonSchemaValidator();
    const called = new Set();
    const raw = (name, args) => {
      called.add(name);
      if (schemas.has(name)) {
        assert.equal(validator.getValidator(schemas.get(name))(args).errorMessage, undefined, name);
      }
      return client.callTool({ name, arguments: args });
    };
    const call = async (tool, args) => {
      const { content, structuredContent, isError } = await raw(`quillmere.${tool}`, args);
      assert.equal(isError, false, content[0].text);
      assert.equal(content.length, 1);
      assert.match(
        content[0].text,
        /^Quillmere tool call succeeded\.\n.*Full result is available in structuredContent\.$/s,
      );
      return structuredContent;
    };

    assert.equal((await call('help', { topic: 'session' })).ok, true);
    const { devices } = await call('devices.list', { includeOffline: true });
    assert.deepEqual(pick(devices, 'state'), ['online', 'offline']);
    const { nextRecommendedTool } = await call('sessions.list', { deviceSerial: phone });
    const started = await raw(nextRecommendedTool.name, nextRecommendedTool.arguments);
    const { sessionId } = started.structuredContent.action.session;
    const { apps } = await call('apps.list', { deviceSerial: phone });
    const { packageName } = apps.find((app) => app.title === 'Shopping');
    await call('app.launch', { deviceSerial: phone, packageName });
    const wanted = { sessionId, expectedPackageName: packageName, timeoutMs: 30_000 };
    assert.equal((await call('ui.wait_for_stable', wanted)).stable, true);

    const look = async () => (await call('ui.get_state', { sessionId })).uiState;
    const on = (screen, property, value = true) => ({
      sessionId,
      nodeId: screen.nodes.find((node) => node[property] === value).nodeId,
      stateSignature: screen.stateSignature,
    });
    const fieldText = (screen) => screen.nodes.find((node) => node.editable).text;
    await call('ui.scroll_element', { ...on(await look(), 'scrollable'), direction: 'down' });
    const top = await look();
    await call('ui.focus_element', on(top, 'editable'));
    await call('input.text', { sessionId, text: 'Milk' });
    const typed = await look();
    assert.equal(fieldText(typed), 'Milk');
    await call('ui.set_text', { ...on(typed, 'editable'), text: 'Oat milk – 燕麦奶 "1/2"' });
    const replaced = await look();
    assert.equal(fieldText(replaced), 'Oat milk – 燕麦奶 "1/2"');
    await call('ui.click_element', on(replaced, 'text', 'Add'));
    await call('input.swipe', { sessionId, startX: 270, startY: 800, endX: 270, endY: 400 });
    await call('input.tap', { sessionId, x: 5, y: 5.5 });
    await call('input.key', { sessionId, key: 'home' });
    assert.equal((await call('wait', { durationMs: 1 })).sessions.length, 1);

    const { image } = await call('screen.observe', { sessionId, includeImage: true });
    const png = Buffer.from(image.base64, 'base64');
    assert.equal(png.subarray(0, 8).toString('latin1'), '\x89PNG\r\n\x1a\n');
    assert.deepEqual([png.readUInt32BE(16), png.readUInt32BE(20)], [image.width, image.height]);

    const { contents } = await client.readResource({ uri: 'quillmere://sessions' });
    assert.equal(JSON.parse(contents[0].text).sessions[0].sessionId, sessionId);

    // A refusal by the app is a result, which the AI reads.
    const refused = async (name, args, reason) => {
      const { isError, content, structuredContent } = await raw(name, args);
      assert.deepEqual([isError, structuredContent.error.code], [true, reason]);
      assert.match(content[0].text, /^Quillmere tool call failed: ./);
    };
    await refused('quillmere.ui.click_element', on(top, 'editable'), 'staleStateSignature');
    const adb = { deviceSerial: phone, command: 'id', reason: 'curiosity' };
    await refused('quillmere.adb.command', adb, 'adbCommandDenied');
    await call('control.stop', {});
    await refused('quillmere.input.key', { sessionId, key: 'back' }, 'controlStopped');
    assert.deepEqual([...called].sort(), [...schemas.keys(), 'quillmere.adb.command'].sort());
  });
});

const givingUp = {
  'an aborted call': (controller) => controller.abort('no longer wanted'),
  'a call beyond the 60 seconds of the client': (_, timers) =>
    timers.mock.calls.find((each) => each.arguments[1] === 60_000).arguments[0](),
};
for (const [name, giveUp] of Object.entries(givingUp)) {
  check(`${name} closes the connection to the app, and the client goes on`, async (t) => {
    const { home, nextLine } = await startSimulator(t, simulator, '--silence');
    await withClient(t, { home }, async (client) => {
      const timers = t.mock.method(globalThis, 'setTimeout');
      const controller = new AbortController();
      const { signal } = controller;
      const message = /no longer wanted|Request timed out/;
      const call = client.callTool({ name: 'quillmere.devices.list' }, undefined, { signal });
      const rejected = assert.rejects(call, { message });
      assert.match(await nextLine(), /listDevices .* unanswered on purpose/);
      giveUp(controller, timers);
      await rejected;
      assert.match(await nextLine(), /listDevices .* the client hung up/);
      await client.ping();
    });
  });
}
