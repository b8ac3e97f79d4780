// Tries one client library with one program and a stand-in model, and prints a row of the table:
// try.mjs CLIENT PROGRAM SIMULATOR, where the modules of tests/interop are beside it.
import { readdirSync, readlinkSync } from 'node:fs';
import path from 'node:path';
import { startSimulator } from './desktop_app.mjs';
import { startModel } from './model.mjs';

globalThis.AI_SDK_LOG_WARNINGS = false;
const [client, program, simulator] = process.argv.slice(2);
const separator = program?.endsWith('compat') ? '_' : '.';
const phone = { deviceSerial: 'QM7F3A2101' };

/** The name by which the model must call a tool: clients that rename say how. */
const calls = (name) =>
  [
    ['help', { topic: 'workflow' }],
    ['session.start', phone],
    ['ui.get_state', phone],
    ['screen.observe', { ...phone, includeImage: true }],
  ].map(([tool, args]) => ({ name: name(`quillmere.${tool}`.replaceAll('.', separator)), args }));
const asListed = (name) => name;
const withoutDots = (name) => name.replaceAll('.', '_');

async function tryAiSdk(formName, makeModel, { env, start }) {
  const { experimental_createMCPClient: createClient } = await import('@ai-sdk/mcp');
  const { Experimental_StdioMCPTransport: Transport } = await import('@ai-sdk/mcp/mcp-stdio');
  const { generateText, stepCountIs } = await import('ai');
  const address = await start(formName, asListed);
  const mcp = await createClient({ transport: new Transport({ command: program, env }) });
  return [
    async () =>
      generateText({
        model: (await makeModel(address))('stand-in'),
        tools: await mcp.tools(),
        prompt: 'Buy milk.',
        stopWhen: stepCountIs(6),
        maxRetries: 0,
      }),
    () => mcp.close(),
  ];
}

const drivers = {
  'ai-anthropic': (context) =>
    tryAiSdk('anthropic', async (baseURL) => {
      const { createAnthropic } = await import('@ai-sdk/anthropic');
      return createAnthropic({ baseURL, apiKey: 'none' });
    }, context),
  'ai-openai': (context) =>
    tryAiSdk('openai', async (baseURL) => {
      const { createOpenAI } = await import('@ai-sdk/openai');
      return createOpenAI({ baseURL, apiKey: 'none' });
    }, context),
  'ai-gemini': (context) =>
    tryAiSdk('gemini', async (baseURL) => {
      const { createGoogleGenerativeAI } = await import('@ai-sdk/google');
      return createGoogleGenerativeAI({ baseURL, apiKey: 'none' });
    }, context),
  'openai-agents': async ({ env, start }) => {
    process.env.OPENAI_BASE_URL = await start('openai', withoutDots);
    Object.assign(process.env, { OPENAI_API_KEY: 'none', OPENAI_AGENTS_DISABLE_TRACING: '1' });
    const { Agent, MCPServerStdio, run } = await import('@openai/agents');
    const mcp = new MCPServerStdio({ command: program, env, name: 'quillmere' });
    await mcp.connect();
    const agent = new Agent({ name: 'stand-in', model: 'stand-in', mcpServers: [mcp] });
    return [() => run(agent, 'Buy milk.'), () => mcp.close()];
  },
  langchain: async ({ env, start }) => {
    const baseURL = await start('openai', asListed);
    const { MultiServerMCPClient } = await import('@langchain/mcp-adapters');
    const { ChatOpenAI } = await import('@langchain/openai');
    const { createReactAgent } = await import('@langchain/langgraph/prebuilt');
    const mcp = new MultiServerMCPClient({
      mcpServers: { quillmere: { transport: 'stdio', command: program, args: [], env } },
    });
    const tools = await mcp.getTools();
    const llm = new ChatOpenAI({
      model: 'stand-in',
      apiKey: 'none',
      useResponsesApi: true,
      configuration: { baseURL },
      maxRetries: 0,
    });
    const messages = [{ role: 'user', content: 'Buy milk.' }];
    return [() => createReactAgent({ llm, tools }).invoke({ messages }), () => mcp.close()];
  },
};
if (client === '--list') {
  console.log(Object.keys(drivers).join('\n'));
  process.exit();
}

/** Whether a process of the program runs. */
function isRunning() {
  return readdirSync('/proc').some((entry) => {
    try {
      return /^\d+$/.test(entry) && readlinkSync(`/proc/${entry}/exe`) === program;
    } catch {
      return false;
    }
  });
}

const after = [];
const t = { after: (act) => after.push(act) };
const home = await startSimulator(t, simulator);
let seen;
const start = async (formName, name) => {
  const model = await startModel(t, formName, calls(name));
  seen = model.seen;
  return model.address;
};
const row = { connects: 'no', tools: '–', nodes: '–', picture: '–', ends: '–' };
try {
  const [work, close] = await drivers[client]({ env: { HOME: home, PATH: process.env.PATH }, start });
  row.connects = 'yes';
  await work().catch(() => {});
  row.tools = seen.refusals.length ? `refused: ${seen.refusals[0]}` : 'accepted';
  if (!seen.refusals.length) {
    row.nodes = /resourceId/.test(seen.text) ? 'yes' : 'no';
    row.picture = seen.pictures.length ? 'yes' : 'no';
  }
  await close();
  for (let i = 0; i < 50 && isRunning(); ++i) await new Promise((wait) => setTimeout(wait, 100));
  row.ends = isRunning() ? 'no' : 'yes';
} catch (error) {
  row.connects = `no: ${error.message}`;
}
console.log(`| ${client} | \`${path.basename(program)}\` | ${Object.values(row).join(' | ')} |`);
for (const act of after) await act();
process.exit();
