// A client that calls a tool, says so, and stays until it is killed: doomed_client.mjs SERVER HOME.
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';

const [command, home] = process.argv.slice(2);
const client = new Client({ name: 'doomed', version: '1' });
await client.connect(new StdioClientTransport({ command, env: { HOME: home, CFFIXED_USER_HOME: home } }));
console.log('connected');
await client.callTool({ name: 'quillmere.devices.list' });
