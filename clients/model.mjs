// A stand-in for AI models on the loopback address. It takes chat requests in four forms, refuses what the
// interfaces of model makers refuse, calls the tools that it is told to call, and records what it receives.
import { once } from 'node:events';
import { createServer } from 'node:http';
import { json } from 'node:stream/consumers';

const plainName = /^[a-zA-Z0-9_-]{1,64}$/;
const longBase64 = /[A-Za-z0-9+/]{10240}/;
const base64Of = (url) => /^data:image\/[a-z]+;base64,(.+)$/.exec(url?.url ?? url)?.[1];
/** What a schema in the last form's `parameters` may consist of; `parametersJsonSchema` takes any keyword. */
const schemaSubset = new Set(
  (
    'type format title description nullable enum maxItems minItems properties required minProperties ' +
    'maxProperties minLength maxLength pattern example anyOf propertyOrdering default items minimum maximum'
  ).split(' '),
);

/**
 * Each form: the path of its requests, the tools that a request lists, whether an object in it is a call that
 * the model has made or a client's response to one, the picture in an object, and a response that calls a tool
 * or, without a call, holds a text; whole and as events. `refuses` is what only this form refuses of a request.
 */
const forms = [
  {
    path: /\/messages$/,
    tools: ({ tools }) => tools.map(({ name, input_schema }) => ({ name, schema: input_schema })),
    isCall: ({ type }) => type === 'tool_use',
    isResponse: ({ type }) => type === 'tool_result',
    picture: ({ type, source }) => type === 'image' && source?.type === 'base64' && source.data,
    answer(call, id) {
      const block = call
        ? { type: 'tool_use', id, name: call.name, input: call.args }
        : { type: 'text', text: 'Done.' };
      return {
        id: `message-${id}`,
        type: 'message',
        role: 'assistant',
        model: 'stand-in',
        content: [block],
        stop_reason: call ? 'tool_use' : 'end_turn',
        usage: { input_tokens: 1, output_tokens: 1 },
      };
    },
    events({ content: [block], stop_reason, usage, ...message }) {
      const [empty, delta] =
        block.type === 'text'
          ? [{ text: '' }, { type: 'text_delta', text: block.text }]
          : [{ input: {} }, { type: 'input_json_delta', partial_json: JSON.stringify(block.input) }];
      return [
        { type: 'message_start', message: { ...message, content: [], stop_reason: null, usage } },
        { type: 'content_block_start', index: 0, content_block: { ...block, ...empty } },
        { type: 'content_block_delta', index: 0, delta },
        { type: 'content_block_stop', index: 0 },
        { type: 'message_delta', delta: { stop_reason }, usage },
        { type: 'message_stop' },
      ];
    },
  },
  {
    path: /\/responses$/,
    // A namespace holds the tools of one server; a call gives both names.
    tools: ({ tools }) =>
      tools.flatMap(({ type, name, parameters, tools: members }) =>
        type === 'namespace'
          ? members.map((tool) => ({ name: tool.name, namespace: name, schema: tool.parameters }))
          : { name, schema: parameters },
      ),
    isCall: ({ type }) => type === 'function_call',
    isResponse: ({ type }) => type === 'function_call_output',
    picture: ({ type, image_url }) => type === 'input_image' && base64Of(image_url),
    answer(call, id) {
      const item = call
        ? {
            type: 'function_call',
            call_id: id,
            name: call.name,
            namespace: call.namespace,
            arguments: JSON.stringify(call.args),
          }
        : {
            type: 'message',
            role: 'assistant',
            content: [{ type: 'output_text', text: 'Done.', annotations: [] }],
          };
      return {
        id: `response-${id}`,
        object: 'response',
        created_at: 0,
        model: 'stand-in',
        status: 'completed',
        output: [{ id: `item-${id}`, status: 'completed', ...item }],
        usage: {
          input_tokens: 1,
          input_tokens_details: { cached_tokens: 0 },
          output_tokens: 1,
          output_tokens_details: { reasoning_tokens: 0 },
          total_tokens: 2,
        },
      };
    },
    events(response) {
      const [item] = response.output;
      return [
        { type: 'response.created', response: { ...response, status: 'in_progress', output: [] } },
        { type: 'response.output_item.added', output_index: 0, item },
        { type: 'response.output_item.done', output_index: 0, item },
        { type: 'response.completed', response },
      ];
    },
  },
  {
    path: /\/chat\/completions$/,
    tools: ({ tools }) =>
      tools.map((tool) => ({ name: tool.function.name, schema: tool.function.parameters })),
    isCall: (each) => each.function?.arguments !== undefined,
    isResponse: ({ role }) => role === 'tool',
    picture: ({ type, image_url }) => type === 'image_url' && base64Of(image_url),
    refuses({ messages }) {
      const inTools = [...objectsIn(messages.filter(this.isResponse))].filter(this.picture);
      return inTools.map(() => 'a picture in a tool message');
    },
    answer(call, id) {
      const name = call?.name;
      const message = call
        ? {
            content: null,
            tool_calls: [
              { id, type: 'function', function: { name, arguments: JSON.stringify(call.args) } },
            ],
          }
        : { content: 'Done.' };
      return {
        id: `completion-${id}`,
        object: 'chat.completion',
        created: 0,
        model: 'stand-in',
        choices: [
          {
            index: 0,
            message: { role: 'assistant', ...message },
            finish_reason: call ? 'tool_calls' : 'stop',
          },
        ],
        usage: { prompt_tokens: 1, completion_tokens: 1, total_tokens: 2 },
      };
    },
    events({ choices: [{ message, finish_reason }], ...completion }) {
      const tool_calls = message.tool_calls?.map((call, index) => ({ index, ...call }));
      const chunk = (delta, reason) => ({
        ...completion,
        object: 'chat.completion.chunk',
        choices: [{ index: 0, delta, finish_reason: reason }],
      });
      return [chunk({ ...message, tool_calls }, null), chunk({}, finish_reason), '[DONE]'];
    },
  },
  {
    path: /:(stream)?[gG]enerateContent$/,
    tools: ({ tools }) =>
      [tools].flat().flatMap(({ functionDeclarations = [] }) =>
        functionDeclarations.map(({ name, parameters, parametersJsonSchema }) => ({
          name,
          schema: parameters ?? parametersJsonSchema,
        })),
      ),
    isCall: ({ functionCall }) => functionCall,
    isResponse: ({ functionResponse }) => functionResponse,
    picture: ({ inlineData }) => inlineData?.mimeType?.startsWith('image/') && inlineData.data,
    refuses: ({ tools }) =>
      [tools].flat().flatMap(({ functionDeclarations = [] }) =>
        functionDeclarations.flatMap(({ name, parameters }) =>
          keywordsIn(parameters)
            .filter((keyword) => !schemaSubset.has(keyword))
            .map((keyword) => `${keyword} in the schema of ${name}`),
        ),
      ),
    answer: (call, id) => ({
      candidates: [
        {
          content: {
            role: 'model',
            parts: [call ? { functionCall: { id, name: call.name, args: call.args } } : { text: 'Done.' }],
          },
          finishReason: 'STOP',
        },
      ],
      usageMetadata: { promptTokenCount: 1, candidatesTokenCount: 1, totalTokenCount: 2 },
    }),
    events: (answer) => [answer],
  },
];

/** Every object in a request, at any depth. */
function* objectsIn(value) {
  if (value === null || typeof value !== 'object') return;
  yield value;
  for (const each of Object.values(value)) yield* objectsIn(each);
}

/** The keywords of a schema, at any depth, without the names of properties. */
function keywordsIn(schema) {
  if (schema === null || typeof schema !== 'object') return [];
  const { properties = {}, items, anyOf = [] } = schema;
  const inner = [...Object.values(properties), items, ...anyOf];
  return [...Object.keys(schema), ...inner.flatMap(keywordsIn)];
}

/** The parts of a request that the interfaces of model makers would refuse. */
function refusalsOf(form, body, { tools, objects, text }) {
  const refusals = longBase64.test(text) ? ['a picture as text'] : [];
  // Every request is checked, so equal sums mean that each turn had as many responses as calls.
  const [calls, responses] = [form.isCall, form.isResponse].map((is) => objects.filter(is).length);
  if (calls !== responses) refusals.push(`${responses} responses to ${calls} calls`);
  for (const { name, schema } of tools) {
    if (!plainName.test(name)) refusals.push(`the name ${name}`);
    for (const key of ['anyOf', 'oneOf', 'allOf']) {
      if (schema?.[key]) refusals.push(`${key} at the top of ${name}`);
    }
  }
  return [...refusals, ...(form.refuses?.(body) ?? [])];
}

/** The name of a tool with underscores, however the client spells it. */
const plain = (name) => name.replace(/[^A-Za-z0-9]/g, '_');

function send(response, status, body, events) {
  const type = events ? 'text/event-stream' : 'application/json';
  response.writeHead(status, { 'content-type': type });
  for (const event of events ?? []) {
    if (event.type) response.write(`event: ${event.type}\n`);
    response.write(`data: ${typeof event === 'string' ? event : JSON.stringify(event)}\n\n`);
  }
  response.end(events ? undefined : JSON.stringify(body));
}

/**
 * Starts a model that makes `calls`, each `{ tool, args }`, one per turn, where `tool` is part of the name of
 * a tool that the request lists. Returns its address and what it has seen: the tools' names, how many calls
 * had a response, the last request as text without its pictures, those pictures, and what it refused. A
 * client makes a request without any tool of `server` for itself, such as for a title; it gets a plain
 * response and does not count.
 */
export async function startModel(t, server, calls) {
  const seen = { names: [], responses: 0, text: '', pictures: [], refusals: [] };
  const take = async (request, response) => {
    const { pathname } = new URL(request.url, 'http://model');
    const form = forms.find(({ path }) => path.test(pathname));
    if (request.method !== 'POST' || !form) {
      // Lists of models, token counts, and anything else that a client asks for.
      const models = [{ id: 'stand-in', object: 'model' }];
      send(response, 200, { object: 'list', data: models, input_tokens: 1, totalTokens: 1 });
      return;
    }
    const body = await json(request);
    const isStreamed = body.stream || pathname.includes(':stream');
    const answer = (call, id) => {
      const whole = form.answer(call, id);
      send(response, 200, whole, isStreamed ? form.events(whole) : undefined);
    };
    const tools = body.tools ? form.tools(body).filter(({ name }) => name) : [];
    const isOurs = ({ name, namespace = '' }) => `${namespace}${name}`.includes(server);
    if (!tools.some(isOurs)) return answer(undefined, 'aside');

    const objects = [...objectsIn(body)];
    seen.names = tools.filter(isOurs).map(({ name }) => name);
    seen.responses = objects.filter(form.isResponse).length;
    seen.pictures = objects.map(form.picture).filter(Boolean);
    seen.text = seen.pictures.reduce((text, data) => text.replaceAll(data, ''), JSON.stringify(body));
    const refusals = refusalsOf(form, body, { tools, objects, text: seen.text });
    if (refusals.length) {
      seen.refusals.push(...refusals);
      const error = { type: 'invalid_request_error', message: refusals[0] };
      return send(response, 400, { type: 'error', error });
    }
    const turn = objects.filter(form.isCall).length;
    const call = calls[turn];
    const tool = call && tools.find(({ name }) => plain(name).includes(call.tool));
    answer(tool && { ...tool, args: call.args }, `call-${turn}`);
  };
  const listener = createServer((request, response) =>
    take(request, response).catch(({ message }) => send(response, 500, { error: { message } })),
  );
  listener.listen(0, '127.0.0.1');
  t.after(() => listener.close());
  await once(listener, 'listening');
  return { address: `http://127.0.0.1:${listener.address().port}`, seen };
}
