// The activity module in Chromium against a real `quillon serve` and a real
// `quillon station`, both started here on loopback with free ports and a
// temporary home, and stopped by their pids. Waits are on explicit events:
// lines the programs print, DOM mutations, media events.
//
// Run (in web/): QUILLON_BIN=../build/quillon npm run e2e
// Screenshots go to $QUILLON_SCREENSHOTS, else to docs/screenshots (the README's).
// Exits 77 (skipped) only when there is no Chromium to drive.
import { after, before, describe, test } from 'node:test';
import assert from 'node:assert/strict';
import { spawn, execFile } from 'node:child_process';
import { existsSync, mkdirSync, mkdtempSync, rmSync } from 'node:fs';
import { createServer } from 'node:http';
import { createServer as createNetServer } from 'node:net';
import { tmpdir } from 'node:os';
import { dirname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';
import { gzipSync } from 'node:zlib';
import { chromium } from 'playwright-core';

const CHROMIUM = process.env.CHROMIUM ?? '/usr/bin/chromium';
const QUILLON = resolve(process.env.QUILLON_BIN ?? '../build/quillon');
const SCREENSHOTS = resolve(
  process.env.QUILLON_SCREENSHOTS ?? join(dirname(fileURLToPath(import.meta.url)), '../../../docs/screenshots'),
);
if (!existsSync(CHROMIUM)) {
  console.log(`skipped: no Chromium at ${CHROMIUM}`);
  process.exit(77);
}
assert.ok(existsSync(QUILLON), `no quillon binary at ${QUILLON} (set QUILLON_BIN)`);

const home = mkdtempSync(join(tmpdir(), 'quillon-web-'));
const env = { ...process.env, QUILLON_HOME: home };
const run = promisify(execFile);

async function freePort() {
  const server = createNetServer();
  await new Promise((ok) => server.listen(0, '127.0.0.1', ok));
  const { port } = server.address();
  await new Promise((ok) => server.close(ok));
  return port;
}

// Starts a program and waits for the stdout line that `ready` matches.
function start(args, ready) {
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

async function stop(child) {
  if (!child || child.exitCode !== null || child.signalCode !== null) return;
  const exited = new Promise((ok) => child.once('exit', ok));
  process.kill(child.pid, 'SIGTERM');
  await exited;
}

// Resolves with `predicate(arg)` once it holds in the page, checked again on
// every change of the DOM (a MutationObserver: no polling).
function until(page, predicate, arg) {
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

describe('activity module', () => {
  let station, serve, browser, context, page, webPort, stationUrl, origin;

  const startServe = async () => {
    serve = start(['serve'], /Quillon is running\./);
    await serve.line;
  };

  before(async () => {
    mkdirSync(SCREENSHOTS, { recursive: true });
    mkdirSync(join(home, 'Music'), { recursive: true });
    mkdirSync(join(home, 'Documents', 'QLN Bookmarks'), { recursive: true });
    webPort = await freePort();
    origin = `http://127.0.0.1:${webPort}`;
    await run(QUILLON, ['prefs', 'set', 'webPort', String(webPort)], { env });
    await run(QUILLON, ['prefs', 'set', 'relayPort', String(await freePort())], { env });
    // A title every 2 s of audio, so that changes come while the test watches.
    station = start(
      ['station', '--port', '0', '--title-every', '32768', '--titles', 'Alpha - One,Beta - Two,Gamma - Three,Delta - Four'],
      /Station listening on (\S+)/,
    );
    stationUrl = (await station.line)[1];
    await startServe();
    const { stdout } = await run(QUILLON, ['ui', '--print-only'], { env });
    const args = process.getuid?.() === 0 ? ['--no-sandbox'] : [];
    browser = await chromium.launch({ executablePath: CHROMIUM, headless: true, args });
    context = await browser.newContext({ viewport: { width: 1000, height: 720 } });
    page = await context.newPage();
    await page.goto(stdout.trim());
    await page.getByText('No connections yet: add a station.').waitFor();
  });

  after(async () => {
    await browser?.close();
    await stop(serve?.child);
    await stop(station?.child);
    rmSync(home, { recursive: true, force: true });
  });

  test('the whole page stays under 150 KB gzipped', async () => {
    const html = await (await fetch(`${origin}/`)).text();
    const assets = [...html.matchAll(/\/assets\/[\w.-]+/g)].map((m) => m[0]);
    assert.ok(assets.some((a) => a.endsWith('.js')), html);
    let total = gzipSync(html).length;
    for (const a of assets) total += gzipSync(Buffer.from(await (await fetch(origin + a)).arrayBuffer())).length;
    assert.ok(total < 150 * 1024, `${total} bytes gzipped`);
  });

  test('a station added by its address shows its title changing live', async () => {
    // From the keyboard alone: "/" to the field, Enter to add.
    await page.keyboard.press('/');
    assert.equal(await page.evaluate(() => document.activeElement?.id), 'station');
    await page.keyboard.type(stationUrl);
    await page.keyboard.press('Enter');
    const title = page.locator('.connection [data-testid="title"]');
    const first = await until(page, () => {
      const t = document.querySelector('.connection [data-testid="title"]')?.textContent ?? '';
      return t.startsWith('Now: ') && t;
    });
    const firstText = first;
    await until(
      page,
      (before) => {
        const t = document.querySelector('.connection [data-testid="title"]')?.textContent ?? '';
        return t.startsWith('Now: ') && t !== before;
      },
      firstText,
    );
    assert.match(await title.textContent(), /^Now: (Alpha - One|Beta - Two|Gamma - Three|Delta - Four)$/);
    assert.match(await page.locator('.connection [data-testid="status"]').textContent(), /^Recording : /);
  });

  test('the audio element plays the relay and the title shows beside it', async () => {
    await page.getByRole('button', { name: /^Listen to / }).click();
    const played = await page.evaluate(
      () =>
        new Promise((ok, fail) => {
          const audio = document.querySelector('audio');
          const check = () => audio.currentTime > 0.5 && ok(audio.currentTime);
          audio.addEventListener('timeupdate', check);
          audio.addEventListener('error', () => fail(new Error(`audio error ${audio.error?.code}`)));
          check();
        }),
    );
    assert.ok(played > 0.5);
    assert.match(await page.locator('[data-testid="player-title"]').textContent(), / — \w+ - \w+/);
    await page.screenshot({ path: join(SCREENSHOTS, 'activity-light.png') });
    await page.emulateMedia({ colorScheme: 'dark' });
    await page.screenshot({ path: join(SCREENSHOTS, 'activity-dark.png') });
    await page.emulateMedia({ colorScheme: 'light' });
    await page.setViewportSize({ width: 360, height: 720 });
    await page.screenshot({ path: join(SCREENSHOTS, 'activity-narrow.png') });
    const overflow = await page.evaluate(() => document.documentElement.scrollWidth - window.innerWidth);
    assert.equal(overflow, 0, 'nothing wider than 360 px');
    await page.setViewportSize({ width: 1000, height: 720 });
    await page.getByRole('button', { name: 'Close player' }).click();
  });

  test('a request from another site is refused, and changes nothing', async () => {
    // A page on another port of this machine: the same site for the cookie,
    // another origin for the daemon.
    const foreign = createServer((_, res) => {
      res.setHeader('Content-Type', 'text/html');
      res.end(`<script>fetch('${origin}/api/activity/stop-all', {method: 'POST', mode: 'no-cors', credentials: 'include',
        headers: {'Content-Type': 'text/plain'}, body: '{}'}).catch(() => {});</script>`);
    });
    await new Promise((ok) => foreign.listen(0, '127.0.0.1', ok));
    try {
      const other = await context.newPage();
      const answer = other.waitForResponse((r) => r.url().endsWith('/api/activity/stop-all'));
      await other.goto(`http://127.0.0.1:${foreign.address().port}/`);
      assert.equal((await answer).status(), 403);
      await other.close();
    } finally {
      foreign.close();
    }
    const rows = (await (await page.request.get(`${origin}/api/activity`)).json()).rows;
    assert.equal(rows.length, 1);
    assert.ok(rows[0].streaming, 'the connection still streams');
  });

  test('stop after this track: the check mark holds until the next title stops it', async () => {
    const box = page.getByLabel('Stop after this track');
    await box.check();
    await until(page, () => document.querySelector('.connection.stopped') !== null);
    await page.getByRole('button', { name: /^Start .* again$/ }).waitFor();
    const saved = (await (await page.request.get(`${origin}/api/activity`)).json()).rows[0];
    assert.equal(saved.state, 1);
  });

  test('after the daemon restarts, the page reconnects and reads the list again', async () => {
    await stop(serve.child);
    await until(page, () => /not answering/.test(document.querySelector('.feed')?.textContent ?? ''));
    await startServe();
    await until(page, () => document.querySelector('.feed')?.textContent === 'Connected to the recorder');
    // The new daemon has no connections: the page shows its list, not the old one.
    await page.getByText('No connections yet: add a station.').waitFor();
    // And it works again: a refusal comes back in words.
    await page.getByLabel('Station address or bookmark').fill('No Such Station');
    await page.getByRole('button', { name: 'Add station' }).click();
    const notice = await until(page, () =>
      [...document.querySelectorAll('.notice span')].map((n) => n.textContent).find((t) => t.includes('No Such Station')),
    );
    assert.match(notice, /\w+ .*No Such Station/);
  });
});
