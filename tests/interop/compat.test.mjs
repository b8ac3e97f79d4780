// A client library between the second program and a stand-in model, with the request forms of three
// model makers: which parts of a result reach the model. compat.test.mjs COMPAT SIMULATOR SERVER
import assert from 'node:assert/strict';
import { createAnthropic } from '@ai-sdk/anthropic';
import { createGoogleGenerativeAI } from '@ai-sdk/google';
import { experimental_createMCPClient as createMCPClient } from '@ai-sdk/mcp';
import { Experimental_StdioMCPTransport as StdioTransport } from '@ai-sdk/mcp/mcp-stdio';
import { createOpenAI } from '@ai-sdk/openai';
import { generateText, stepCountIs } from 'ai';
import { startModel } from '../../clients/model.mjs';
import { check, startSimulator } from './support.mjs';

const [compat, simulator, server] = process.argv.slice(2);
globalThis.AI_SDK_LOG_WARNINGS = false;
const phone = { deviceSerial: 'QM7F3A2101' };
const models = {
  anthropic: (baseURL) => createAnthropic({ baseURL, apiKey: 'none' })('stand-in'),
  openai: (baseURL) => createOpenAI({ baseURL, apiKey: 'none' })('stand-in'),
  chat: (baseURL) => createOpenAI({ baseURL, apiKey: 'none' }).chat('stand-in'),
  gemini: (baseURL) => createGoogleGenerativeAI({ baseURL, apiKey: 'none' })('stand-in'),
};

/** Lets a model of this form make its calls through a program, and returns what it saw. */
async function letCall(t, form, program, calls) {
  const { home } = await startSimulator(t, simulator, '--screen', '1080x2400');
  const { address, seen } = await startModel(t, 'quillmere', calls);
  const env = { HOME: home, CFFIXED_USER_HOME: home };
  const client = await createMCPClient({
    transport: new StdioTransport({ command: program, env, stderr: 'inherit' }),
  });
  t.after(() => client.close());
  await generateText({
    model: models[form](address),
    tools: await client.tools(),
    prompt: 'Buy milk.',
    stopWhen: stepCountIs(calls.length + 1),
    maxRetries: 0,
  });
  return seen;
}

for (const form of Object.keys(models)) {
  check(`a model of the form ${form} sees nodes, picture, refusals and help, and taps`, async (t) => {
    // This library makes text of pictures for this form, which refuses it.
    const withPicture = { tool: 'screen_observe', args: { ...phone, includeImage: true } };
    const pictures = form === 'chat' ? [] : [withPicture];
    const stale = { ...phone, nodeId: 1, stateSignature: 'long gone' };
    const seen = await letCall(t, form, compat, [
      { tool: 'help', args: { topic: 'workflow' } },
      { tool: 'session_start', args: phone },
      { tool: 'ui_get_state', args: phone },
      { tool: 'ui_click_element', args: stale },
      { tool: 'input_tap', args: { x: 1, y: 1 } },
      { tool: 'input_tap', args: { ...phone, x: '300', y: '6.4e2' } },
      ...pictures,
    ]);
    assert.deepEqual(seen.refusals, []);
    assert.match(seen.text, /Call quillmere_devices_list to choose a deviceSerial\./);
    assert.match(seen.text, /resourceId/);
    assert.match(seen.text, /staleStateSignature/);
    assert.match(seen.text, /quillmere_input_tap requires argument: deviceSerial or sessionId/);
    assert.match(seen.text, /visiblePackage: com\.example\.shopping/);
    const note = /picture: item 2 of this content, 540 x 1200 pixels, .* from 1080 x 2400: multiply .* by 2 /;
    assert.equal(note.test(seen.text), pictures.length > 0);
    assert.equal(seen.pictures.length, pictures.length);
    for (const data of seen.pictures) {
      const png = Buffer.from(data, 'base64');
      assert.deepEqual([png.readUInt32BE(16), png.readUInt32BE(20)], [540, 1200]);
    }
  });
}

check('a model refuses the first program for its names and its schemas', async (t) => {
  await assert.rejects(letCall(t, 'anthropic', server, []), /the name quillmere\.help/);
});
