// Simulated desktop apps, each in its own home, which the end of the test removes.
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { mkdtempSync, rmSync } from 'node:fs';
import { createInterface } from 'node:readline';
import { test } from 'node:test';
import { setTimeout as wait } from 'node:timers/promises';

// Shorter after the first wait that timed out: the program is broken then, and the rest should end
// soon.
let patience = 30;

/** The result of `promise`, or after 30 seconds a failure that names what we waited for. */
export function soon(what, promise, seconds = patience) {
  const tooLate = wait(seconds * 1000, undefined, { ref: false }).then(() => {
    patience = 2;
    throw new Error(`timed out after ${seconds} seconds waiting for ${what}`);
  });
  return Promise.race([promise, tooLate]);
}

/** A test that ends even if what it waits for never comes. Waits inside it end earlier. */
export function check(name, body) {
  test(name, (t) => soon('the end of this test', body(t), patience + 1));
}

/** A folder that the server uses as its home. Under /tmp, because a socket's path must be short. */
export function makeHome(t) {
  const home = mkdtempSync('/tmp/qm-js-');
  t.after(() => rmSync(home, { recursive: true, force: true }));
  return home;
}

/** Starts the simulated app and waits until it is listening. Returns its home and its log, line by line. */
export async function startSimulator(t, program, ...options) {
  const home = makeHome(t);
  const app = spawn(program, options, {
    env: { HOME: home, CFFIXED_USER_HOME: home },
    stdio: ['ignore', 'pipe', 'pipe'],
  });
  const ended = once(app, 'exit');
  t.after(() => app.kill() && ended);
  const log = createInterface(app.stderr)[Symbol.asyncIterator]();
  const { done } = await soon('the simulator', app.stdout[Symbol.asyncIterator]().next());
  if (done) throw new Error(`The simulator did not start: ${(await log.next()).value}`);
  return { home, nextLine: async () => (await soon("the simulator's log", log.next())).value };
}
