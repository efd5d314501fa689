// What the browser tests share: the `quillon` binary run with a home of its
// own, programs started and stopped by their pids, free loopback ports,
// headless Chromium, and waits on DOM changes (never on polled states).
import assert from 'node:assert/strict';
import { spawn, execFile } from 'node:child_process';
import { existsSync, mkdirSync, mkdtempSync, rmSync } from 'node:fs';
import { createServer as createNetServer } from 'node:net';
import { tmpdir } from 'node:os';
import { dirname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';
import { chromium } from 'playwright-core';

export const CHROMIUM = process.env.CHROMIUM ?? '/usr/bin/chromium';
export const QUILLON = resolve(process.env.QUILLON_BIN ?? '../build/quillon');
export const SCREENSHOTS = resolve(
  process.env.QUILLON_SCREENSHOTS ?? join(dirname(fileURLToPath(import.meta.url)), '../../../docs/screenshots'),
);

/** Exits 77 (skipped) when there is no Chromium to drive; fails without a quillon binary. */
export function requireTools() {
  if (!existsSync(CHROMIUM)) {
    console.log(`skipped: no Chromium at ${CHROMIUM}`);
    process.exit(77);
  }
  assert.ok(existsSync(QUILLON), `no quillon binary at ${QUILLON} (set QUILLON_BIN)`);
  mkdirSync(SCREENSHOTS, { recursive: true });
}

export async function freePort() {
  const server = createNetServer();
  await new Promise((ok) => server.listen(0, '127.0.0.1', ok));
  const { port } = server.address();
  await new Promise((ok) => server.close(ok));
  return port;
}

/** A temporary home for the programs one test file starts. */
export class Home {
  constructor() {
    this.path = mkdtempSync(join(tmpdir(), 'quillon-web-'));
    this.env = { ...process.env, QUILLON_HOME: this.path };
    this.children = [];
  }

  /** Runs `quillon ARGS` to its end; its stdout. */
  async run(...args) {
    return (await promisify(execFile)(QUILLON, args, { env: this.env })).stdout;
  }

  /** Starts `quillon ARGS` and waits for the stdout line that `ready` matches: {child, line}. */
  start(args, ready) {
    const child = spawn(QUILLON, args, { env: this.env, stdio: ['ignore', 'pipe', 'pipe'] });
    this.children.push(child);
    let out = '';
    let err = '';
    child.stderr.on('data', (d) => (err += d));
    const line = new Promise((ok, fail) => {
      child.stdout.on('data', (d) => {
        out += d;
        const m = out.match(ready);
        if (m) ok(m);
      });
      child.on('exit', (code) => fail(new Error(`quillon ${args[0]} exited (${code}): ${out}${err}`)));
    });
    return { child, line };
  }

  /** Stops every program this home started, then removes it. */
  async remove() {
    for (const child of this.children.reverse()) await stop(child);
    rmSync(this.path, { recursive: true, force: true });
  }
}

/** SIGTERM to one child by its pid, then its exit. */
export async function stop(child) {
  if (!child || child.exitCode !== null || child.signalCode !== null) return;
  const exited = new Promise((ok) => child.once('exit', ok));
  process.kill(child.pid, 'SIGTERM');
  await exited;
}

export async function launchBrowser() {
  const args = process.getuid?.() === 0 ? ['--no-sandbox'] : [];
  return chromium.launch({ executablePath: CHROMIUM, headless: true, args });
}

// Resolves with `predicate(arg)` once it holds in the page, checked again on
// every change of the DOM (a MutationObserver: no polling).
export function until(page, predicate, arg) {
  return page.evaluate(`new Promise((ok) => {
    const predicate = ${predicate.toString()};
    const arg = ${JSON.stringify(arg ?? null)};
    const check = () => {
      const value = predicate(arg);
      if (value) { observer.disconnect(); ok(value); }
    };
    const observer = new MutationObserver(check);
    observer.observe(document, { subtree: true, childList: true, characterData: true, attributes: true });
    check();
  })`);
}
