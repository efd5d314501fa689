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
import { mkdirSync } from 'node:fs';
import { createServer } from 'node:http';
import { join } from 'node:path';
import { gzipSync } from 'node:zlib';
import { freePort, Home, launchBrowser, requireTools, SCREENSHOTS, stop, until } from './harness.mjs';

requireTools();
const home = new Home();

describe('activity module', () => {
  let station, serve, browser, context, page, webPort, stationUrl, origin;

  const startServe = async () => {
    serve = home.start(['serve'], /Quillon is running\./);
    await serve.line;
  };

  before(async () => {
    mkdirSync(join(home.path, 'Music'), { recursive: true });
    mkdirSync(join(home.path, 'Documents', 'QLN Bookmarks'), { recursive: true });
    webPort = await freePort();
    origin = `http://127.0.0.1:${webPort}`;
    await home.run('prefs', 'set', 'webPort', String(webPort));
    await home.run('prefs', 'set', 'relayPort', String(await freePort()));
    // A title every 2 s of audio, so that changes come while the test watches.
    station = home.start(
      ['station', '--port', '0', '--title-every', '32768', '--titles', 'Alpha - One,Beta - Two,Gamma - Three,Delta - Four'],
      /Station listening on (\S+)/,
    );
    stationUrl = (await station.line)[1];
    await startServe();
    const stdout = await home.run('ui', '--print-only');
    browser = await launchBrowser();
    context = await browser.newContext({ viewport: { width: 1000, height: 720 } });
    page = await context.newPage();
    await page.goto(stdout.trim());
    await page.getByText('No connections yet: add a station.').waitFor();
  });

  after(async () => {
    await browser?.close();
    await home.remove();
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
