// How many of a model's tokens a result of the second program takes, compared with the first program's summary and
// the app response as JSON. tokens.test.mjs COMPAT SIMULATOR SERVER
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { mkdirSync } from 'node:fs';
import { createServer } from 'node:net';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';
import { countTokens } from 'gpt-tokenizer/encoding/o200k_base';
import { check, makeHome, startSimulator } from './support.mjs';

const [compat, simulator, server] = process.argv.slice(2);
const png = `iVBORw0KGgoAAAAN${'QUJD'.repeat(99)}`;

/** The result of the last of some calls to a program. */
async function resultOf(t, command, home, ...calls) {
  const client = new Client({ name: 'tokens', version: '1' });
  t.after(() => client.close());
  const env = { HOME: home, CFFIXED_USER_HOME: home };
  await client.connect(new StdioClientTransport({ command, env, stderr: 'inherit' }));
  let result;
  for (const [name, args] of calls) result = await client.callTool({ name, arguments: args });
  return result;
}

function tokensOf({ content, structuredContent }) {
  const texts = content.filter(({ type }) => type === 'text').map(({ text }) => text);
  if (structuredContent) texts.push(JSON.stringify(structuredContent));
  return countTokens(texts.join('\n').replaceAll(png, 'picture: item 2 of this content'));
}

/** The same numbers in each run, below `limit`. */
function makeRandom() {
  let state = 1;
  return (limit) => {
    state = (Math.imul(state, 1664525) + 1013904223) >>> 0;
    return Math.floor((state / 2 ** 32) * limit);
  };
}

const many = (count, make) => Array.from({ length: count }, (_, i) => make(i + 1));

function androidScreen(count) {
  const random = makeRandom();
  const pick = (...list) => list[random(list.length)];
  const name = 'com.example.messenger';
  const nodes = many(count, () => ({
    className: `${pick('android.widget', 'android.widget', 'androidx.view')}.${pick('TextView', 'Button', 'ImageView')}`,
    packageName: name,
    resourceId: pick('', ...['title', 'icon', 'row', 'send_button', 'time'].map((id) => `${name}:id/${id}`)),
    text: pick('', '', 'Settings', 'See you at nine', '12:45', '3', 'Your order is on its way'),
    bounds: { x: random(1080), y: random(2400), width: random(1080), height: random(300) },
    clickable: pick(true, false),
    enabled: random(20) > 0,
    focused: random(20) === 0,
    editable: random(9) === 0,
    checked: pick(true, false),
  }));
  return { ok: true, uiState: { packageName: name, elementCount: count, nodes } };
}

// As the benchmarks have it.
const chinese = ['明天下午三点开会', '买牛奶和鸡蛋', '给妈妈打电话', '本周工作总结', '设置'];
const chineseNode = (i) => ({
  nodeId: i, parentId: Math.floor(i / 8), className: 'Text', packageName: 'com.notes',
  resourceId: `r${i}`, text: chinese[i % 5], contentDescription: `备忘${i}`,
  bounds: { x: 24, y: i, width: 1032.5, height: 96 },
  clickable: true, enabled: true, focused: false, editable: false, checked: null,
});
const node = { nodeId: 1, text: 'OK', bounds: { x: 1, y: 2, width: 3, height: 4 } };

const responses = [
  ['80 nodes in Chinese', 0.36, { ok: true, uiState: { packageName: 'com.notes', elementCount: 80, truncated: false, nodes: many(80, chineseNode) } }],
  ['80 nodes of an Android screen', 0.36, androidScreen(80)],
  ['300 nodes of an Android screen', 0.36, androidScreen(300)],
  ['help', 1, { ok: true, topic: 'session', guidance: ['Start a session first.', 'Then look at the screen.'], availableTopics: ['ui', 'key'] }],
  ['an error', 1, { ok: false, error: { code: 'staleStateSignature', message: 'The screen has changed.' } }],
  ['devices', 1, { ok: true, devices: many(2, (i) => ({ serial: `QM7F3A210${i}`, model: 'Larch 7', state: 'online', supportsMirror: i === 1 })) }],
  ['sessions', 1, { ok: true, sessions: many(3, (i) => ({ sessionId: `session-${i}`, sessionKind: 'phoneScreen', displayId: i, device: { serial: 'QM7F3A2101' } })) }],
  ['apps', 1, { ok: true, apps: many(9, (i) => ({ name: `App ${i}`, packageName: `com.example.app${i}` })) }],
  ['a difference', 1, { ok: true, uiDiff: { added: [node], removed: [3, 4], changed: [{ ...node, text: 'No' }] } }],
  ['a picture', 1, { ok: true, width: 270, image: { data: png } }],
  ['pictures in a list', 1, { ok: true, icons: many(4, (i) => ({ name: `App ${i}`, icon: png })) }],
  ['deep nesting', 1, JSON.parse(`${'{"child":[1,'.repeat(9)}{"ok":true}${']}'.repeat(9)}`)],
  ['one node', 1, { ok: true, uiState: { nodes: [node] } }],
  ['two nodes', 1, { ok: true, uiState: { nodes: [node, { ...node, nodeId: 2 }] } }],
  ['texts full of separators', 1, { ok: true, lines: many(6, (i) => ({ id: i, text: `a\t"b"\n|@1: c\\${i}` })) }],
];

check('a result takes no more tokens than its bar', async (t) => {
  const home = makeHome(t);
  const folder = `${home}/Library/Group Containers/group.com.tallowbrook.wickfern.shared`;
  mkdirSync(folder, { recursive: true });
  let body;
  const app = createServer((socket) => {
    const length = Buffer.alloc(4);
    length.writeUInt32BE(body.length);
    socket.once('data', () => socket.end(Buffer.concat([length, body])));
  }).listen(`${folder}/qm-mcp.sock`);
  t.after(() => app.close());
  await once(app, 'listening');
  const { home: simulated } = await startSimulator(t, simulator);
  const phone = { deviceSerial: 'QM7F3A2101' };
  const { structuredContent } = await resultOf(
    t, server, simulated, ['quillmere.session.start', phone], ['quillmere.ui.get_state', phone],
  );
  const missed = [];
  for (const [name, bar, response] of [...responses, ['the home screen', 0.75, structuredContent]]) {
    body = Buffer.from(JSON.stringify(response));
    const call = ['quillmere.ui.get_state', { sessionId: 's' }];
    const before = tokensOf(await resultOf(t, server, home, call));
    const ratio = tokensOf(await resultOf(t, compat, home, call)) / before;
    if (ratio > bar) missed.push(`${name}: ${ratio.toFixed(3)} of ${bar}`);
  }
  assert.deepEqual(missed, []);
});
