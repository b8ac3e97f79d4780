// Command-line agents: how to start each one, so that it uses a program and the model at an address and
// nothing else on the network. `files` go into its home; `before` is a command to run first.
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { mkdirSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const prompt = 'Buy milk.';
const installed = (file) => fileURLToPath(new URL(`node_modules/${file}`, import.meta.url));
const json = (value) => JSON.stringify(value, undefined, 2);

const table = {
  'claude-code': {
    packages: ['@anthropic-ai/claude-code-linux-x64'],
    setUp: ({ server, address }) => ({
      files: { 'mcp.json': json({ mcpServers: { quillmere: server } }) },
      env: {
        ANTHROPIC_BASE_URL: address,
        ANTHROPIC_API_KEY: 'none',
        CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC: '1',
        DISABLE_AUTOUPDATER: '1',
        ENABLE_TOOL_SEARCH: 'false',
      },
      command: [
        installed('@anthropic-ai/claude-code-linux-x64/claude'),
        ...['-p', prompt, '--mcp-config', 'mcp.json', '--strict-mcp-config'],
        ...['--allowedTools', 'mcp__quillmere'],
      ],
    }),
  },
  codex: {
    packages: ['@openai/codex-linux-x64'],
    setUp: ({ server, address }) => ({
      files: {
        '.codex/config.toml': `
model = "gpt-5.1"
model_provider = "stand-in"
check_for_update_on_startup = false
[analytics]
enabled = false
[model_providers.stand-in]
name = "stand-in"
base_url = "${address}"
wire_api = "responses"
[mcp_servers.quillmere]
command = "${server.command}"
default_tools_approval_mode = "approve"
`,
      },
      command: [
        installed('@openai/codex-linux-x64/vendor/x86_64-unknown-linux-musl/bin/codex'),
        ...['exec', '--skip-git-repo-check', prompt],
      ],
    }),
  },
  'gemini-cli': {
    packages: ['@google/gemini-cli'],
    setUp: ({ server, address }) => ({
      files: {
        '.gemini/settings.json': json({
          mcpServers: { quillmere: server },
          security: { auth: { selectedType: 'gemini-api-key' } },
          privacy: { usageStatisticsEnabled: false },
          general: { enableAutoUpdate: false },
        }),
      },
      env: {
        GEMINI_API_KEY: 'none',
        GEMINI_CLI_NO_RELAUNCH: 'true', // One process, which gets the signals.
        GEMINI_CLI_TRUST_WORKSPACE: 'true',
        GOOGLE_GEMINI_BASE_URL: address,
      },
      command: [
        process.execPath,
        installed('@google/gemini-cli/bundle/gemini.js'),
        ...['--yolo', '-m', 'gemini-2.5-pro', '-p', prompt],
      ],
    }),
  },
  opencode: {
    packages: ['opencode-linux-x64'],
    setUp: ({ server, address }) => ({
      files: {
        '.config/opencode/opencode.json': json({
          provider: {
            local: {
              npm: '@ai-sdk/openai-compatible',
              options: { baseURL: address, apiKey: 'none' },
              models: {
                'stand-in': {
                  attachment: true,
                  tool_call: true,
                  modalities: { input: ['text', 'image'], output: ['text'] },
                },
              },
            },
          },
          model: 'local/stand-in',
          mcp: { quillmere: { type: 'local', command: [server.command] } },
          autoupdate: false,
          share: 'disabled',
        }),
      },
      env: { OPENCODE_DISABLE_MODELS_FETCH: '1', OPENCODE_DISABLE_AUTOUPDATE: '1' },
      command: [installed('opencode-linux-x64/bin/opencode'), 'run', prompt],
    }),
  },
  'qwen-code': {
    packages: ['@qwen-code/qwen-code'],
    node: 22,
    setUp: ({ server, address }) => ({
      files: {
        '.qwen/settings.json': json({
          mcpServers: { quillmere: server },
          tools: { toolSearch: { enabled: false } },
          security: { auth: { selectedType: 'openai' } },
          privacy: { usageStatisticsEnabled: false },
          general: { enableAutoUpdate: false },
        }),
      },
      env: {
        OPENAI_API_KEY: 'none',
        OPENAI_BASE_URL: address,
        OPENAI_MODEL: 'qwen3-vl-plus',
        QWEN_CODE_NO_RELAUNCH: 'true',
      },
      command: [process.execPath, installed('@qwen-code/qwen-code/cli.js'), '--yolo', '-p', prompt],
    }),
  },
  cline: {
    packages: ['@cline/cli-linux-x64'],
    setUp: ({ server, address }) => ({
      files: {
        '.cline/data/settings/cline_mcp_settings.json': json({
          mcpServers: { quillmere: { transport: { type: 'stdio', ...server } } },
        }),
      },
      env: { CLINE_TELEMETRY_DISABLED: '1' },
      before: [
        installed('@cline/cli-linux-x64/bin/cline'),
        ...['auth', '-p', 'openai', '-k', 'none', '-m', 'stand-in', '-b', address],
      ],
      command: [installed('@cline/cli-linux-x64/bin/cline'), prompt],
    }),
  },
  copilot: {
    packages: ['@github/copilot-linux-x64'],
    setUp: ({ server, address }) => ({
      files: {
        '.copilot/mcp-config.json': json({
          mcpServers: { quillmere: { type: 'local', ...server, args: [], tools: ['*'] } },
        }),
        'providers.json': json({
          providers: [{ name: 'local', wireApi: 'responses', baseUrl: address, apiKey: 'none' }],
          models: [{ id: 'stand-in', provider: 'local', capabilities: { supports: { vision: true } } }],
        }),
      },
      env: {
        COPILOT_MODEL: 'local/stand-in',
        COPILOT_OFFLINE: 'true',
        COPILOT_PROVIDERS_CONFIG: 'providers.json',
      },
      command: [
        installed('@github/copilot-linux-x64/copilot'),
        ...['-p', prompt, '--allow-tool', 'quillmere', '--no-auto-update'],
      ],
    }),
  },
};

/** Runs the agent until its work is done; an abort acts like Ctrl-C. */
async function start(setUp, { program, env, address }) {
  const { files, env: more, before, command } = setUp({ server: { command: program }, address });
  for (const [name, text] of Object.entries(files)) {
    const file = path.join(env.HOME, name);
    mkdirSync(path.dirname(file), { recursive: true });
    writeFileSync(file, text);
  }
  // All other network traffic of the agent ends here.
  const nowhere = 'http://127.0.0.1:9';
  const proxies = { HTTP_PROXY: nowhere, HTTPS_PROXY: nowhere, NO_PROXY: '127.0.0.1' };
  const run = ([file, ...args]) =>
    spawn(file, args, {
      cwd: env.HOME,
      env: { ...env, ...proxies, ...more, TERM: 'dumb', TMPDIR: env.HOME },
      stdio: ['ignore', process.stderr, process.stderr],
    });
  if (before) await once(run(before), 'exit');
  let agent;
  let ended;
  return {
    async work(signal) {
      agent = run(command);
      ended = once(agent, 'exit');
      signal.addEventListener('abort', () => agent.kill('SIGINT'));
      const limit = setTimeout(() => agent.kill('SIGKILL'), 60_000);
      await ended;
      clearTimeout(limit);
    },
    async close() {
      agent.kill();
      await ended;
    },
  };
}

export const agents = Object.fromEntries(
  Object.entries(table).map(([name, { packages, node, setUp }]) => [
    name,
    { packages, node, start: (context) => start(setUp, context) },
  ]),
);
