// Tries one client with one program and a stand-in model, and prints a row of the table: try.mjs CLIENT
// PROGRAM SIMULATOR, or the names of the clients: try.mjs --list.
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import {
  existsSync,
  mkdtempSync,
  readFileSync,
  readdirSync,
  readlinkSync,
  rmSync,
  writeFileSync,
} from 'node:fs';
import path from 'node:path';
import { createInterface } from 'node:readline';
import { setTimeout as wait } from 'node:timers/promises';
import { agents } from './agents.mjs';
import { libraries } from './libraries.mjs';
import { startModel } from './model.mjs';

const clients = { ...libraries, ...agents };
const [name, program, simulator] = process.argv.slice(2);
if (name === '--list') {
  console.log(Object.keys(clients).join('\n'));
  process.exit();
}
const client = clients[name];
const phone = { deviceSerial: 'QM7F3A2101' };
/** The model's calls, and what it then sees if all is well, for a cell of the row. */
const task = [
  { tool: 'help', args: { topic: 'workflow' } },
  { tool: 'session_start', args: phone },
  { tool: 'ui_get_state', args: phone, cell: 'nodes', sees: /resourceId/ },
  {
    tool: 'input_tap',
    args: { x: 1, y: 1 }, // No session or device. Clients don't notice, so the program refuses the call.
    cell: 'refusal',
    sees: /requires argument: deviceSerial or sessionId/,
  },
  {
    tool: 'input_tap',
    args: { ...phone, x: '300', y: '640' },
    cell: 'texts',
    sees: /visiblePackage: com\.example\.shopping/,
  },
  {
    tool: 'screen_observe',
    args: { ...phone, includeImage: true },
    cell: 'picture',
    sees: /iVBORw0KGgo/,
  },
];
const oneCall = [{ tool: 'devices_list', args: {} }];
/** The cells of the row that are known so far. */
const row = { connects: 'no' };
for (const cell of ['tools', ...task.flatMap(({ cell }) => cell ?? []), 'cancel', 'ends']) row[cell] = '–';

/** The processes of one trial, which have this home. `file` limits them to one program. */
function running(home, file) {
  return readdirSync('/proc').filter((entry) => {
    try {
      if (!/^\d+$/.test(entry) || (file && readlinkSync(`/proc/${entry}/exe`) !== file)) return false;
      return readFileSync(`/proc/${entry}/environ`, 'utf8').split('\0').includes(`HOME=${home}`);
    } catch {
      return false; // It has ended or belongs to another user.
    }
  });
}

/** Waits up to five seconds until no process of the program runs. Returns whether that happened. */
async function isGone(home) {
  for (let i = 0; i < 50 && running(home, program).length; ++i) await wait(100);
  return !running(home, program).length;
}

/** Starts client, simulator and model, hands them to `body`, and ends them. `wrap` may wrap the program. */
async function withClient(calls, options, body, wrap = () => program) {
  const after = [];
  const home = mkdtempSync('/tmp/qm-clients-');
  const env = { HOME: home, PATH: process.env.PATH };
  const app = spawn(simulator, ['--screen', '1080x2400', ...options], { env });
  const ended = once(app, 'exit');
  try {
    await once(app.stdout, 'data');
    const { address, seen } = await startModel({ after: (act) => after.push(act) }, 'quillmere', calls);
    const started = await client.start({ program: wrap(home), env, address, calls, seen });
    try {
      return await body({ ...started, home, seen, log: createInterface({ input: app.stderr }) });
    } finally {
      await started.close();
      row.ends = (await isGone(home)) && row.ends !== 'no' ? 'yes' : 'no';
    }
  } finally {
    for (const act of after) act();
    // The simulator, and processes that agents leave in the background.
    for (const pid of running(home)) process.kill(pid, 'SIGKILL');
    await ended;
    rmSync(home, { recursive: true, force: true, maxRetries: 5 });
  }
}

/** Lets the model do the task, and reports what it received. */
async function tryTask() {
  await withClient(task, ['--quiet'], async ({ work, seen }) => {
    await work(new AbortController().signal).catch((error) => console.error(error));
    // For an agent we know this only from the tools that it offers.
    row.connects = name in libraries || seen.names.length ? 'yes' : 'not seen';
    if (client.hasNoModel) row.tools = '–';
    else if (!seen.names.length) row.tools = 'none reach the model';
    else if (!seen.refusals.length) row.tools = 'accepted';
    else row.tools = `${seen.responses ? 'accepted, later ' : ''}refused: ${seen.refusals[0]}`;
    // A cell stays open if the conversation ended before its call had a response.
    task.slice(0, seen.responses).forEach(({ cell, sees }) => {
      if (cell) row[cell] = sees.test(seen.text) ? 'yes' : 'no';
    });
    if (seen.pictures.length) row.picture = 'yes';
    else if (row.picture === 'yes') row.picture = 'as text';
    console.error(`${name}: ${seen.names.join(' ')}`);
  });
}

/**
 * A script that runs the program and records the client's messages in the home's file `said`. `tee` writes to
 * its standard output first, so that is the file: what the program has acted upon is always there. Ctrl-C does
 * not end it, because a client may pass that on right after its last message.
 */
function makeTap(home) {
  const file = `${home}/tap`;
  const script = `#!/bin/sh
trap '' INT
pipe=${home}/pipe.$$
mkfifo "$pipe"
'${program}' <"$pipe" &
exec tee "$pipe" >>'${home}/said'
`;
  writeFileSync(file, script, { mode: 0o755 });
  return file;
}

/**
 * Cancels a call that the app does not answer. Records whether the program closes its connection to the app
 * because the client tells it to cancel, or only because the client ends it.
 */
async function tryCancel() {
  const body = async ({ work, home, log }) => {
    const giveUp = new AbortController();
    // Closing the log ends the loop if the client never gives up the call, or never makes it.
    const stopSoon = () => wait(5000).then(() => log.close());
    work(giveUp.signal).catch(() => {}).then(stopSoon);
    for await (const line of log) {
      if (line.endsWith('on purpose')) {
        giveUp.abort();
        row.cancel = 'no';
        stopSoon();
      }
      if (line.endsWith('hung up')) {
        const said = readFileSync(`${home}/said`, 'utf8').split('\n');
        const { id } = JSON.parse(said.find((message) => message.includes('"tools/call"')));
        const isCancel = (message) =>
          message.includes('"notifications/cancelled"') && message.includes(`"requestId":${id}`);
        row.cancel = said.some(isCancel) ? 'yes' : 'by ending';
        return;
      }
    }
  };
  await withClient(oneCall, ['--silence'], body, makeTap);
}

/** Packages with their versions; no version if npm left the package out. */
const label = client.packages.map((each) => {
  const file = new URL(`node_modules/${each}/package.json`, import.meta.url);
  return existsSync(file) ? `\`${each}\` ${JSON.parse(readFileSync(file)).version}` : `\`${each}\``;
});
const node = Number.parseInt(process.versions.node);
if (label.some((each) => each.endsWith('`'))) {
  row.connects = 'skipped: no package for this machine';
} else if (node < client.node) {
  row.connects = `skipped: Node.js ${client.node} is needed`;
} else {
  try {
    await tryTask();
    if (/^(–|accepted)/.test(row.tools)) await tryCancel();
  } catch (error) {
    console.error(error);
    if (row.connects === 'no') row.connects = `no: ${error.message.split('\n')[0]}`;
  }
}
const cells = [`${name}: ${label.join(', ')}`, `\`${path.basename(program)}\``, ...Object.values(row)];
console.log(`| ${cells.join(' | ')} |`);
process.exit();
