// What the browser tests share: a temporary home, a real `quillon station`
// and `quillon serve` on loopback with free ports, headless Chromium logged in
// to the page, and waits on explicit events (lines the programs print, DOM
// mutations). Every process started here is stopped by its pid.
//
// QUILLON_BIN names the binary; screenshots go to $QUILLON_SCREENSHOTS, else
// to docs/screenshots (the README's). Importing this exits 77 (skipped) when
// there is no Chromium to drive.
import assert from 'node:assert/strict';
import { spawn, execFile } from 'node:child_process';
import { existsSync, mkdirSync, mkdtempSync, rmSync } from 'node:fs';
import { createServer as createNetServer } from 'node:net';
import { tmpdir } from 'node:os';
import { dirname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';
import { chromium } from 'playwright-core';

const CHROMIUM = process.env.CHROMIUM ?? '/usr/bin/chromium';
export const QUILLON = resolve(process.env.QUILLON_BIN ?? '../build/quillon');
export const SCREENSHOTS = resolve(
  process.env.QUILLON_SCREENSHOTS ?? join(dirname(fileURLToPath(import.meta.url)), '../../../docs/screenshots'),
);
if (!existsSync(CHROMIUM)) {
  console.log(`skipped: no Chromium at ${CHROMIUM}`);
  process.exit(77);
}
assert.ok(existsSync(QUILLON), `no quillon binary at ${QUILLON} (set QUILLON_BIN)`);

export const run = promisify(execFile);

export async function freePort() {
  const server = createNetServer();
  await new Promise((ok) => server.listen(0, '127.0.0.1', ok));
  const { port } = server.address();
  await new Promise((ok) => server.close(ok));
  return port;
}

// Starts a program and waits for the stdout line that `ready` matches.
export function start(env, args, ready) {
  const child = spawn(QUILLON, args, { env, stdio: ['ignore', 'pipe', 'pipe'] });
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

export async function stop(child) {
  if (!child || child.exitCode !== null || child.signalCode !== null) return;
  const exited = new Promise((ok) => child.once('exit', ok));
  process.kill(child.pid, 'SIGTERM');
  await exited;
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

/**
 * A station (a title every 2 s of audio, so that changes come while a test
 * watches; with `directory` also the daemon's station directory server), a
 * daemon with `prefs` set and `folders` made in its home, and the page open in
 * Chromium at `hash`. close() stops them all and removes the home.
 */
export async function launch({ prefs = {}, hash = '', directory = false, folders = ['Music', 'Documents/QLN Bookmarks'] } = {}) {
  mkdirSync(SCREENSHOTS, { recursive: true });
  const home = mkdtempSync(join(tmpdir(), 'quillon-web-'));
  const env = { ...process.env, QUILLON_HOME: home };
  const t = { home, env, serve: null, station: null, browser: null };
  try {
    for (const folder of folders) mkdirSync(join(home, folder), { recursive: true });
    t.station = start(
      env,
      [
        'station', '--port', '0', '--title-every', '32768', '--titles', 'Alpha - One,Beta - Two,Gamma - Three,Delta - Four',
        ...(directory ? ['--directory'] : []),
      ],
      /Station listening on (\S+)/,
    );
    t.stationUrl = (await t.station.line)[1];
    const webPort = await freePort();
    t.origin = `http://127.0.0.1:${webPort}`;
    const all = {
      webPort: String(webPort),
      relayPort: String(await freePort()),
      ...(directory ? { tunerServer: t.stationUrl } : {}),
      ...prefs,
    };
    for (const [key, value] of Object.entries(all)) await run(QUILLON, ['prefs', 'set', key, value], { env });
    t.startServe = async () => {
      t.serve = start(env, ['serve'], /Quillon is running\./);
      await t.serve.line;
    };
    t.stopServe = () => stop(t.serve?.child);
    await t.startServe();
    const { stdout } = await run(QUILLON, ['ui', '--print-only'], { env });
    const args = process.getuid?.() === 0 ? ['--no-sandbox'] : [];
    t.browser = await chromium.launch({ executablePath: CHROMIUM, headless: true, args });
    t.context = await t.browser.newContext({ viewport: { width: 1000, height: 720 } });
    t.page = await t.context.newPage();
    await t.page.goto(stdout.trim());
    if (hash) await t.page.goto(`${t.origin}/${hash}`);
  } catch (e) {
    await close(t);
    throw e;
  }
  t.close = () => close(t);
  return t;
}

async function close(t) {
  await t.browser?.close();
  await stop(t.serve?.child);
  await stop(t.station?.child);
  rmSync(t.home, { recursive: true, force: true });
}

/** Screenshots of the page as it is, light, dark and at 360 px; nothing may be wider than 360 px. */
export async function screenshots(page, name) {
  await page.evaluate(() => window.scrollTo(0, 0));
  await page.screenshot({ path: join(SCREENSHOTS, `${name}-light.png`) });
  await page.emulateMedia({ colorScheme: 'dark' });
  await page.screenshot({ path: join(SCREENSHOTS, `${name}-dark.png`) });
  await page.emulateMedia({ colorScheme: 'light' });
  const viewport = page.viewportSize();
  await page.setViewportSize({ width: 360, height: 720 });
  await page.screenshot({ path: join(SCREENSHOTS, `${name}-narrow.png`) });
  const [overflow, wide] = await page.evaluate(() => [
    document.documentElement.scrollWidth - window.innerWidth,
    [...document.querySelectorAll('body *')]
      .filter((e) => e.getBoundingClientRect().right > window.innerWidth)
      .map((e) => `${e.tagName.toLowerCase()}.${e.className}`)
      .slice(0, 5),
  ]);
  await page.setViewportSize(viewport);
  assert.equal(overflow, 0, `${name}: nothing wider than 360 px, but ${wide.join(', ')}`);
}
