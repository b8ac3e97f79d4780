// A stand-in for AI models on the loopback address. It takes chat requests in the forms of three model
// makers, refuses what their interfaces refuse, calls the tools that it is told to, and keeps each request.
import { once } from 'node:events';
import { createServer } from 'node:http';
import { json } from 'node:stream/consumers';

const plainName = /^[a-zA-Z0-9_-]{1,64}$/;
const longBase64 = /[A-Za-z0-9+/]{100000}/;

/**
 * How each form lists tools, tells one turn from the next, shows a picture, and answers with a call of a
 * tool or, without one, with a text.
 */
const forms = {
  anthropic: {
    tools: ({ tools }) => tools.map(({ name, input_schema }) => [name, input_schema]),
    turn: ({ messages }) => messages.filter(({ role }) => role === 'assistant').length,
    isPicture: ({ type, source }) => type === 'image' && source?.type === 'base64' && source.data,
    answer: (call, id) => ({
      id: `message-${id}`,
      type: 'message',
      role: 'assistant',
      model: 'stand-in',
      content: [
        call
          ? { type: 'tool_use', id: `call-${id}`, name: call.name, input: call.args }
          : { type: 'text', text: 'Done.' },
      ],
      stop_reason: call ? 'tool_use' : 'end_turn',
      usage: { input_tokens: 1, output_tokens: 1 },
    }),
  },
  openai: {
    tools: ({ tools }) => tools.map(({ name, parameters }) => [name, parameters]),
    turn: ({ input }) => input.filter(({ type }) => type === 'function_call_output').length,
    isPicture: ({ type, image_url }) => type === 'input_image' && image_url?.split('base64,')[1],
    answer: (call, id) => ({
      id: `response-${id}`,
      object: 'response',
      created_at: 0,
      model: 'stand-in',
      status: 'completed',
      output: [
        call
          ? {
              type: 'function_call',
              id: `item-${id}`,
              call_id: `call-${id}`,
              name: call.name,
              arguments: JSON.stringify(call.args),
              status: 'completed',
            }
          : {
              type: 'message',
              id: `item-${id}`,
              role: 'assistant',
              status: 'completed',
              content: [{ type: 'output_text', text: 'Done.', annotations: [] }],
            },
      ],
      usage: { input_tokens: 1, output_tokens: 1 },
    }),
  },
  gemini: {
    tools: ({ tools }) =>
      [tools].flat().flatMap(({ functionDeclarations }) =>
        functionDeclarations.map(({ name, parameters }) => [name, parameters]),
      ),
    turn: ({ contents }) => contents.filter(({ role }) => role === 'model').length,
    isPicture: ({ inlineData }) => inlineData?.mimeType?.startsWith('image/') && inlineData.data,
    answer: (call) => ({
      candidates: [
        {
          content: {
            role: 'model',
            parts: [call ? { functionCall: call } : { text: 'Done.' }],
          },
          finishReason: 'STOP',
        },
      ],
    }),
  },
};

/** Every object in a request, at any depth. */
function* objectsIn(value) {
  if (value === null || typeof value !== 'object') return;
  yield value;
  for (const each of Object.values(value)) yield* objectsIn(each);
}

/**
 * Starts a model of one form that makes `calls`, each `{ name, args }`, one a turn. Returns its address, the
 * last request that it took as text without pictures, the pictures, and what it refused.
 */
export async function startModel(t, formName, calls) {
  const form = forms[formName];
  const seen = { text: '', pictures: [], refusals: [] };
  const server = createServer(async (request, response) => {
    const body = await json(request);
    const pictures = [];
    for (const each of objectsIn(body)) {
      const picture = form.isPicture(each);
      if (!picture) continue;
      pictures.push(picture);
      for (const key of ['source', 'image_url', 'inlineData']) delete each[key];
    }
    const text = JSON.stringify(body);
    const refusals = [];
    for (const [name, schema] of form.tools(body)) {
      if (!plainName.test(name)) refusals.push(`the name ${name}`);
      for (const key of ['anyOf', 'oneOf', 'allOf']) {
        if (schema?.[key]) refusals.push(`${key} at the top of ${name}`);
      }
    }
    if (longBase64.test(text)) refusals.push('a picture as text');
    seen.text = text;
    seen.pictures = pictures;
    seen.refusals.push(...refusals);
    const turn = form.turn(body);
    const answer = refusals.length
      ? { type: 'error', error: { type: 'invalid_request_error', message: refusals[0] } }
      : form.answer(calls[turn], turn);
    response.writeHead(refusals.length ? 400 : 200, { 'content-type': 'application/json' });
    response.end(JSON.stringify(answer));
  });
  server.listen(0, '127.0.0.1');
  t.after(() => server.close());
  await once(server, 'listening');
  return { address: `http://127.0.0.1:${server.address().port}`, seen };
}
