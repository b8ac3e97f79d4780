// Desktop apps for the server to talk to, each in a home of its own that ends with the test.
import { spawn } from 'node:child_process';
import { on, once } from 'node:events';
import { mkdirSync, mkdtempSync, rmSync } from 'node:fs';
import net from 'node:net';
import path from 'node:path';
import { test } from 'node:test';
import { setTimeout as wait } from 'node:timers/promises';

// Less when one wait was in vain: then what is tested is broken, and the rest is to end soon too.
let patience = 30;

/** What `promise` brings, or after 30 seconds a failure that says what was waited for. */
export function soon(what, promise, seconds = patience) {
  const tooLate = wait(seconds * 1000, undefined, { ref: false }).then(() => {
    patience = 2;
    throw new Error(`waited ${seconds} seconds in vain for ${what}`);
  });
  return Promise.race([promise, tooLate]);
}

/** A test that ends, even when what it waits for never comes. Waits inside of it are over before. */
export function check(name, body) {
  test(name, (t) => soon('the end of this test', body(t), patience + 1));
}

/** A folder for the server to take as home. Under /tmp, because a socket's path must be short. */
export function makeHome(t) {
  const home = mkdtempSync('/tmp/qm-js-');
  t.after(() => rmSync(home, { recursive: true, force: true }));
  return home;
}

/** Starts the simulated app and waits until it listens. Returns its home. */
export async function startSimulator(t, program, ...options) {
  const home = makeHome(t);
  const app = spawn(program, ['--quiet', ...options], {
    env: { HOME: home, CFFIXED_USER_HOME: home },
    stdio: ['ignore', 'pipe', 'inherit'],
  });
  const ended = once(app, 'exit');
  t.after(() => app.kill() && ended);
  const { done } = await soon('the simulator', app.stdout[Symbol.asyncIterator]().next());
  if (done) throw new Error('The simulator did not start.');
  return home;
}

/** Starts an app that does nothing by itself: the test takes the calls and answers them. */
export async function startScriptedApp(t) {
  const home = makeHome(t);
  const socket = `${home}/Library/Group Containers/group.com.tallowbrook.wickfern.shared/qm-mcp.sock`;
  mkdirSync(path.dirname(socket), { recursive: true });
  const app = net.createServer();
  const connections = on(app, 'connection');
  app.listen(socket);
  t.after(() => app.close());
  await once(app, 'listening');
  return {
    home,
    /** The next call, whenever it comes. */
    nextCall: async () =>
      receiveCall(...(await soon('a call', connections.next())).value),
  };
}

/** Waits for a connection's request. `broken` waits until the server has let go of it. */
async function receiveCall(connection) {
  const broken = new Promise((resolve) => connection.once('close', resolve));
  connection.on('error', () => {}); // 'close' follows.
  let bytes = Buffer.alloc(0);
  const request = await soon('the rest of a call', new Promise((resolve) =>
    connection.on('data', (chunk) => {
      bytes = Buffer.concat([bytes, chunk]);
      if (bytes.length >= 4 && bytes.length === 4 + bytes.readUInt32BE()) {
        resolve(JSON.parse(bytes.subarray(4)));
      }
    }),
  ));
  const answer = (payload) => {
    const body = Buffer.from(JSON.stringify(payload));
    const length = Buffer.alloc(4);
    length.writeUInt32BE(body.length);
    connection.end(Buffer.concat([length, body]));
  };
  return { request, answer, broken: () => soon('the server to let go of a call', broken) };
}
