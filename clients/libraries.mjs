// Client libraries: how each lets a model at an address use the tools of a program. `start` connects and
// returns two functions: one lets the model work until it is done or the signal aborts, one ends the client.

const prompt = 'Buy milk.';
const model = 'stand-in';
const apiKey = 'none';

/** The AI SDK, which has a package of its own for each maker's interface. */
const aiSdk = (provider, makeModel) => ({
  packages: ['ai', '@ai-sdk/mcp', provider],
  async start({ program, env, address }) {
    const { experimental_createMCPClient: createClient } = await import('@ai-sdk/mcp');
    const { Experimental_StdioMCPTransport: Transport } = await import('@ai-sdk/mcp/mcp-stdio');
    const { generateText, stepCountIs } = await import('ai');
    globalThis.AI_SDK_LOG_WARNINGS = false;
    const chat = makeModel(await import(provider), { baseURL: address, apiKey })(model);
    const mcp = await createClient({ transport: new Transport({ command: program, env }) });
    const tools = await mcp.tools();
    const options = { model: chat, tools, prompt, stopWhen: stepCountIs(9), maxRetries: 0 };
    return {
      work: (abortSignal) => generateText({ ...options, abortSignal }),
      close: () => mcp.close(),
    };
  },
});

export const libraries = {
  'mcp-sdk': {
    packages: ['@modelcontextprotocol/sdk'],
    hasNoModel: true,
    async start({ program, env, calls, seen }) {
      const { Client } = await import('@modelcontextprotocol/sdk/client/index.js');
      const { StdioClientTransport } = await import('@modelcontextprotocol/sdk/client/stdio.js');
      const client = new Client({ name: 'quillmere-clients', version: '1' });
      await client.connect(new StdioClientTransport({ command: program, env }));
      const { tools } = await client.listTools();
      return {
        async work(signal) {
          for (const { tool, args } of calls) {
            const { name } = tools.find((each) => each.name.replaceAll('.', '_').endsWith(tool));
            const call = client.callTool({ name, arguments: args }, undefined, { signal });
            // An error of the protocol is no content.
            const { content } = await call.catch(() => ({ content: [] }));
            for (const { text, data } of content) {
              if (data) seen.pictures.push(data);
              else seen.text += text;
            }
            ++seen.responses;
          }
        },
        close: () => client.close(),
      };
    },
  },
  'ai-anthropic': aiSdk('@ai-sdk/anthropic', ({ createAnthropic }, where) => createAnthropic(where)),
  'ai-openai': aiSdk('@ai-sdk/openai', ({ createOpenAI }, where) => createOpenAI(where)),
  'ai-openai-chat': aiSdk('@ai-sdk/openai', ({ createOpenAI }, where) => createOpenAI(where).chat),
  'ai-gemini': aiSdk('@ai-sdk/google', ({ createGoogleGenerativeAI }, where) =>
    createGoogleGenerativeAI(where),
  ),
  'openai-agents': {
    packages: ['@openai/agents'],
    async start({ program, env, address }) {
      const { Agent, MCPServerStdio, OpenAIProvider, Runner } = await import('@openai/agents');
      const mcp = new MCPServerStdio({ command: program, env, name: 'quillmere' });
      await mcp.connect();
      const agent = new Agent({ name: model, model, mcpServers: [mcp] });
      const modelProvider = new OpenAIProvider({ apiKey, baseURL: address });
      const runner = new Runner({ modelProvider, tracingDisabled: true });
      return { work: (signal) => runner.run(agent, prompt, { signal }), close: () => mcp.close() };
    },
  },
  langchain: {
    packages: ['@langchain/mcp-adapters', '@langchain/langgraph', '@langchain/openai'],
    async start({ program, env, address }) {
      const { MultiServerMCPClient } = await import('@langchain/mcp-adapters');
      const { ChatOpenAI } = await import('@langchain/openai');
      const { createReactAgent } = await import('@langchain/langgraph/prebuilt');
      const mcp = new MultiServerMCPClient({
        mcpServers: { quillmere: { transport: 'stdio', command: program, args: [], env } },
      });
      const tools = await mcp.getTools();
      const configuration = { baseURL: address };
      const llm = new ChatOpenAI({ model, apiKey, useResponsesApi: true, configuration, maxRetries: 0 });
      const messages = [{ role: 'user', content: prompt }];
      return {
        work: (signal) => createReactAgent({ llm, tools }).invoke({ messages }, { signal }),
        close: () => mcp.close(),
      };
    },
  },
  mastra: {
    // With version 4 of the maker's package, the model gets no picture.
    packages: ['@mastra/mcp', '@mastra/core', '@ai-sdk/anthropic-3'],
    node: 22,
    async start({ program, env, address }) {
      process.env.MASTRA_TELEMETRY_DISABLED = '1';
      const { MCPClient } = await import('@mastra/mcp');
      const { Agent } = await import('@mastra/core/agent');
      const { createAnthropic } = await import('@ai-sdk/anthropic-3');
      const mcp = new MCPClient({ servers: { quillmere: { command: program, args: [], env } } });
      const tools = await mcp.listTools();
      const agent = new Agent({
        id: model,
        name: model,
        instructions: prompt,
        model: createAnthropic({ baseURL: address, apiKey })(model),
        tools,
      });
      return {
        work: (abortSignal) => agent.generate(prompt, { maxSteps: 9, abortSignal }),
        close: () => mcp.disconnect(),
      };
    },
  },
  strands: {
    packages: ['@strands-agents/sdk'],
    node: 22,
    async start({ program, env, address }) {
      const { Agent, McpClient } = await import('@strands-agents/sdk');
      const { AnthropicModel } = await import('@strands-agents/sdk/models/anthropic');
      const { StdioClientTransport } = await import('@modelcontextprotocol/sdk/client/stdio.js');
      const mcp = new McpClient({ transport: new StdioClientTransport({ command: program, env }) });
      const chat = new AnthropicModel({ apiKey, modelId: model, clientConfig: { baseURL: address } });
      const agent = new Agent({ model: chat, tools: [mcp], printer: false });
      await agent.initialize();
      return {
        work: (cancelSignal) => agent.invoke(prompt, { cancelSignal }),
        close: () => mcp.disconnect(),
      };
    },
  },
};
