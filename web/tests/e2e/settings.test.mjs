// The schedules, preferences, directory and alerts modules in Chromium
// against a real `quillon serve` and a `quillon station --directory` that
// serves both a stream and a station directory, on loopback. The recordings
// folder is left missing, so the daemon starts by asking for one.
//
// Run (in web/): QUILLON_BIN=../build/quillon node tests/e2e/settings.test.mjs
import { after, before, describe, test } from 'node:test';
import assert from 'node:assert/strict';
import { mkdirSync } from 'node:fs';
import { join } from 'node:path';
import { freePort, Home, launchBrowser, requireTools, SCREENSHOTS, until } from './harness.mjs';

requireTools();
const home = new Home();

describe('schedules, preferences, directory and alerts', () => {
  let browser, page, origin;
  const api = async (path) => (await page.request.get(origin + path)).json();
  const goTo = async (label) => {
    await page.getByRole('navigation', { name: 'Modules' }).getByRole('link', { name: label }).click();
  };
  // Each module fits 360 px: nothing wider than the window.
  const shoot = async (name) => {
    await page.screenshot({ path: join(SCREENSHOTS, `${name}.png`) });
    await page.setViewportSize({ width: 360, height: 720 });
    const overflow = await page.evaluate(() => document.documentElement.scrollWidth - window.innerWidth);
    await page.setViewportSize({ width: 1000, height: 760 });
    assert.equal(overflow, 0, `${name}: nothing wider than 360 px`);
  };

  before(async () => {
    mkdirSync(join(home.path, 'Documents', 'QLN Bookmarks'), { recursive: true });
    mkdirSync(join(home.path, 'Recordings'), { recursive: true });
    const webPort = await freePort();
    origin = `http://127.0.0.1:${webPort}`;
    await home.run('prefs', 'set', 'webPort', String(webPort));
    await home.run('prefs', 'set', 'relayPort', String(await freePort()));
    const station = home.start(['station', '--port', '0', '--directory'], /Directory server (\S+)/);
    await home.run('prefs', 'set', 'tunerServer', (await station.line)[1]);
    await home.start(['serve'], /Quillon is running\./).line;
    browser = await launchBrowser();
    page = await (await browser.newContext({ viewport: { width: 1000, height: 760 } })).newPage();
    await page.goto((await home.run('ui', '--print-only')).trim());
  });

  after(async () => {
    await browser?.close();
    await home.remove();
  });

  test('the missing recordings folder is asked for in a dialog that keeps the focus', async () => {
    const dialog = page.getByRole('alertdialog', { name: 'Choose a folder' });
    await dialog.waitFor();
    const field = dialog.getByLabel('Folder (its full path)');
    assert.ok(await field.evaluate((el) => el === document.activeElement), 'the folder field has the focus');
    for (let i = 0; i < 4; i++) await page.keyboard.press('Tab');
    assert.ok(await dialog.evaluate((d) => d.contains(document.activeElement)), 'Tab stays in the dialog');
    // A folder has to be chosen: Escape does not cancel it.
    await page.keyboard.press('Escape');
    assert.ok(await dialog.isVisible());
    await field.fill(join(home.path, 'No Such Folder'));
    await field.press('Enter');
    await dialog.getByRole('alert').getByText(/not an existing folder/i).waitFor();
    await page.screenshot({ path: join(SCREENSHOTS, 'question.png') });
    await field.fill(join(home.path, 'Recordings'));
    await field.press('Enter');
    await dialog.waitFor({ state: 'detached' });
    const folders = (await api('/api/storage-folders')).folders;
    assert.equal(folders.find((f) => f.module === 'activity').path, join(home.path, 'Recordings'));
  });

  test('the directory updates with a progress bar, filters as you type, and records an entry', async () => {
    await goTo('Directory');
    await page.getByText(/The directory is empty/).waitFor();
    // Watched from before the click: the whole update may take less than a frame.
    const progressed = until(page, () => {
      const label = document.querySelector('label[for="directory-progress"]')?.textContent ?? '';
      return document.querySelector('progress#directory-progress') && label && !label.startsWith('Asking') && label;
    });
    await page.getByRole('button', { name: 'Update' }).click();
    assert.match(await progressed, /\w/);
    await page.getByText(/^The directory was updated/).waitFor();
    for (const genre of ['Jazz', 'Rock', 'Talk Radio']) await page.locator('summary', { hasText: genre }).waitFor();
    assert.match(await page.getByText(/^6 stations/).textContent(), /6 stations/);

    // Results come as the words are typed: every entry shown mentions jazz.
    await page.getByLabel('Words').pressSequentially('jazz');
    const shown = await until(page, () => {
      const names = [...document.querySelectorAll('.entry')].map((e) => e.textContent.toLowerCase());
      return /match(es)? the filter/.test(document.body.textContent) && names.length > 0 && names;
    });
    assert.ok(shown.every((t) => t.includes('jazz')), shown.join(' | '));
    assert.ok(!shown.some((t) => t.includes('classic rock hits')));
    await page.getByLabel('From kbit/s').fill('100');
    await until(page, () => document.querySelectorAll('.entry').length === 1);
    assert.match(await page.locator('.entry').textContent(), /Blue Note Radio · 128 kbit\/s/);
    await page.getByLabel('From kbit/s').fill('x');
    await page.getByRole('alert').getByText('The minimum must be a whole number of kbit/s up to 65535').waitFor();
    await page.getByLabel('From kbit/s').fill('100');
    await shoot('directory');

    await page.getByRole('button', { name: 'Record Blue Note Radio' }).click();
    await page.getByText('Recording "Blue Note Radio": see Activity.').waitFor();
    const rows = (await api('/api/activity')).rows;
    assert.equal(rows.length, 1);
    assert.match(rows[0].title + rows[0].connName, /Blue Note Radio/);
  });

  test('a weekly rule shows in the upcoming list, sorts, and is refused in words when wrong', async () => {
    await goTo('Schedules');
    await page.getByText(/No schedules yet/).waitFor();
    await page.getByRole('button', { name: 'New schedule' }).click();
    const editor = page.locator('form.editor');
    await editor.getByLabel('Bookmark', { exact: true }).fill('Blue Note Radio');
    await editor.getByLabel(/^Name/).fill('Evening jazz');
    await editor.getByText('Mon', { exact: true }).click();
    await editor.getByText('Thu', { exact: true }).click();
    await editor.getByLabel('Starts at').fill('21:30');
    await editor.getByLabel(/^Runs for/).fill('0:00');
    await editor.getByRole('button', { name: 'Add schedule' }).click();
    // The daemon's refusal, next to the field it is about.
    await editor.locator('#rule-runFor-error').getByText(/run time must be more than 0:00/).waitFor();
    assert.equal(await editor.getByLabel(/^Runs for/).getAttribute('aria-invalid'), 'true');
    await editor.getByLabel(/^Runs for/).fill('1:30');
    await editor.getByRole('button', { name: 'Add schedule' }).click();
    await editor.waitFor({ state: 'detached' });

    const rule = (await api('/api/schedules')).rules[0];
    assert.deepEqual(
      { days: rule.days, at: rule.at, runFor: rule.runFor, name: rule.name, active: rule.active },
      { days: ['mon', 'thu'], at: '21:30', runFor: '1:30', name: 'Evening jazz', active: true },
    );
    // Two days a week for four weeks: seven or eight starts, by whether today's has passed.
    const planned = (await api('/api/schedules/upcoming')).actions;
    assert.ok(planned.length >= 7 && planned.length <= 8, JSON.stringify(planned));
    assert.ok(planned.every((a) => a.name === 'Evening jazz'));
    const cells = page.locator('table.upcoming tbody tr td:nth-child(2)');
    await until(page, (n) => document.querySelectorAll('table.upcoming tbody tr').length === n, planned.length);
    assert.deepEqual(await cells.allTextContents(), planned.map((a) => a.startText));
    await page.getByRole('button', { name: /^Starts/ }).click();
    assert.deepEqual(await cells.allTextContents(), planned.map((a) => a.startText).reverse());
    assert.equal(await page.locator('th[aria-sort="descending"]').textContent(), 'Starts ▼');

    // A rule added elsewhere shows at once.
    await home.run('schedule', 'add', 'Blue Note Radio', '--from', '2099-12-24 21:00', '--to', '2099-12-24 23:00');
    await page.getByText('Once, from 2099-12-24 21:00:00 to 2099-12-24 23:00:00', { exact: false }).waitFor();

    await page.locator('li.rule', { hasText: 'Evening jazz' }).getByLabel('Enabled').uncheck();
    await page.locator('li.rule', { hasText: 'Evening jazz' }).getByText('Disabled').waitFor();
    await shoot('schedules');

    // Delete asks first; Escape keeps the rule, Delete removes it.
    const remove = page.getByRole('button', { name: 'Delete Blue Note Radio' });
    await remove.click();
    const confirm = page.getByRole('alertdialog', { name: 'Delete this schedule?' });
    assert.ok(await confirm.getByRole('button', { name: 'Cancel' }).evaluate((b) => b === document.activeElement));
    await page.keyboard.press('Escape');
    await confirm.waitFor({ state: 'detached' });
    assert.equal((await api('/api/schedules')).rules.length, 2);
    await remove.click();
    await confirm.getByRole('button', { name: 'Delete' }).click();
    await page.locator('li.rule').filter({ hasText: '2099' }).waitFor({ state: 'detached' });
    assert.equal((await api('/api/schedules')).rules.length, 1);
  });

  test('preferences: switches grey out what they govern, a refusal shows at its field, a save lasts', async () => {
    await goTo('Preferences');
    const proxy = page.getByLabel('Connect through an HTTP proxy');
    await proxy.waitFor();
    assert.ok(await page.getByLabel('Proxy host').isDisabled());
    await proxy.check();
    await page.getByLabel('Proxy host').fill('proxy.example');
    await page.getByLabel('Proxy port').fill('3128');
    await page.getByLabel('Keep a history of recorded tracks').check();
    await page.getByLabel('Skip tracks already in the history').check();
    await page.getByLabel('Keep a history of recorded tracks').uncheck();
    assert.ok(await page.getByLabel('Skip tracks already in the history').isDisabled());
    assert.ok(!(await page.getByLabel('Skip tracks already in the history').isChecked()));
    assert.ok(await page.getByLabel('Playlist name').isDisabled());

    await page.getByLabel('First relay port').fill('99999');
    await page.getByRole('button', { name: 'Save' }).first().click();
    await page.locator('#pref-relayPort-note').getByText(/port number from 1 to 65535/).waitFor();
    // Nothing of the refused set was saved.
    assert.notEqual((await api('/api/prefs')).proxyOn, 'YES');
    await page.getByLabel('First relay port').fill(String(await freePort()));
    await page.getByLabel('Mail server (host[:port])').fill('127.0.0.1:2525');
    await page.getByRole('button', { name: 'Save' }).first().click();
    await page.getByText('Saved.').waitFor();
    await shoot('preferences');

    await page.reload();
    await goTo('Preferences');
    await page.getByLabel('Proxy host').waitFor();
    assert.ok(await page.getByLabel('Connect through an HTTP proxy').isChecked());
    assert.equal(await page.getByLabel('Proxy host').inputValue(), 'proxy.example');
    assert.equal(await page.getByLabel('Mail server (host[:port])').inputValue(), '127.0.0.1:2525');
    assert.equal((await api('/api/mail')).server, '127.0.0.1:2525');
  });
});
