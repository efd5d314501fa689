// The schedules, preferences, directory modules and the alerts dialogs in
// Chromium against a real `quillon serve` and a `quillon station --directory`
// that serves both a stream and a station directory (see harness.mjs). The
// recordings folder is left missing, so the daemon starts by asking for one.
//
// Run (in web/): QUILLON_BIN=../build/quillon node tests/e2e/settings.test.mjs
import { after, before, describe, test } from 'node:test';
import assert from 'node:assert/strict';
import { join } from 'node:path';
import { freePort, launch, run, QUILLON, screenshots, until } from './harness.mjs';

describe('schedules, preferences, directory and alerts', () => {
  let t, page, home;
  const api = async (path) => (await page.request.get(t.origin + path)).json();
  // Every module stays mounted: a module's controls are looked up in its own part of the page.
  const goTo = async (label, id) => {
    await page.getByRole('navigation', { name: 'Modules' }).getByRole('link', { name: label }).click();
    const module = page.locator(`#module-${id}`);
    await module.waitFor();
    return module;
  };

  before(async () => {
    t = await launch({ directory: true, folders: ['Documents/QLN Bookmarks', 'Recordings'] });
    ({ page, home } = t);
  });

  after(() => t?.close());

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
    await field.fill(join(home, 'No Such Folder'));
    await field.press('Enter');
    await dialog.getByRole('alert').getByText(/not an existing folder/i).waitFor();
    await screenshots(page, 'question');
    await field.fill(join(home, 'Recordings'));
    await field.press('Enter');
    await dialog.waitFor({ state: 'detached' });
    const folders = (await api('/api/storage-folders')).folders;
    assert.equal(folders.find((f) => f.module === 'activity').path, join(home, 'Recordings'));
  });

  test('the directory updates with a progress bar, filters as you type, and records an entry', async () => {
    const m = await goTo('Directory', 'directory');
    await m.getByText(/The directory is empty/).waitFor();
    // The source the daemon last updated from; the codec switch only for Radio Browser,
    // which is chosen here but never asked: the test stays on loopback.
    const source = m.getByLabel('Source');
    assert.equal(await source.inputValue(), 'server');
    assert.equal(await m.getByLabel(/^All codecs/).count(), 0);
    await source.selectOption('radio-browser');
    await m.getByLabel(/^All codecs/).check();
    await m.getByText(/fetches it from Radio Browser/).waitFor();
    await source.selectOption('server');
    assert.equal(await m.getByLabel(/^All codecs/).count(), 0);
    // Watched from before the click: the whole update may take less than a frame.
    const progressed = until(page, () => {
      const label = document.querySelector('label[for="directory-progress"]')?.textContent ?? '';
      return document.querySelector('progress#directory-progress') && label && !label.startsWith('Asking') && label;
    });
    await m.getByRole('button', { name: 'Update' }).click();
    assert.match(await progressed, /\w/);
    await m.getByText(/^The directory was updated/).waitFor();
    for (const genre of ['Jazz', 'Rock', 'Talk Radio']) await m.locator('summary', { hasText: genre }).waitFor();
    assert.match(await m.getByText(/^6 stations/).textContent(), /6 stations/);
    assert.equal((await api('/api/directory')).source, 'server');

    // Results come as the words are typed: every entry shown mentions jazz.
    await m.getByLabel('Words').pressSequentially('jazz');
    const shown = await until(page, () => {
      const names = [...document.querySelectorAll('.entry')].map((e) => e.textContent.toLowerCase());
      return /match(es)? the filter/.test(document.body.textContent) && names.length > 0 && names;
    });
    assert.ok(shown.every((t) => t.includes('jazz')), shown.join(' | '));
    assert.ok(!shown.some((t) => t.includes('classic rock hits')));
    await m.getByLabel('From kbit/s').fill('100');
    await until(page, () => document.querySelectorAll('.entry').length === 1);
    assert.match(await m.locator('.entry').textContent(), /Blue Note Radio · 128 kbit\/s/);
    await m.getByLabel('From kbit/s').fill('x');
    await m.getByRole('alert').getByText('The minimum must be a whole number of kbit/s up to 65535').waitFor();
    await m.getByLabel('From kbit/s').fill('100');
    await screenshots(page, 'directory');

    await m.getByRole('button', { name: 'Record Blue Note Radio' }).click();
    await m.getByText('Recording "Blue Note Radio": see Activity.').waitFor();
    const rows = (await api('/api/activity')).rows;
    assert.equal(rows.length, 1);
    assert.match(rows[0].title + rows[0].connName, /Blue Note Radio/);
  });

  test('a weekly rule shows in the upcoming list, sorts, and is refused in words when wrong', async () => {
    const m = await goTo('Schedules', 'schedules');
    await m.getByText(/No schedules yet/).waitFor();
    await m.getByRole('button', { name: 'New schedule' }).click();
    const editor = m.locator('form.editor');
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
    const cells = m.locator('table.upcoming tbody tr td:nth-child(2)');
    await until(page, (n) => document.querySelectorAll('table.upcoming tbody tr').length === n, planned.length);
    assert.deepEqual(await cells.allTextContents(), planned.map((a) => a.startText));
    await m.getByRole('button', { name: /^Starts/ }).click();
    assert.deepEqual(await cells.allTextContents(), planned.map((a) => a.startText).reverse());
    assert.equal(await m.locator('th[aria-sort="descending"]').textContent(), 'Starts ▼');

    // A rule added elsewhere shows at once.
    await run(QUILLON, ['schedule', 'add', 'Blue Note Radio', '--from', '2099-12-24 21:00', '--to', '2099-12-24 23:00'], { env: t.env });
    await m.getByText('Once, from 2099-12-24 21:00:00 to 2099-12-24 23:00:00', { exact: false }).waitFor();

    await m.locator('li.rule', { hasText: 'Evening jazz' }).getByLabel('Enabled').uncheck();
    await m.locator('li.rule', { hasText: 'Evening jazz' }).getByText('Disabled').waitFor();
    await screenshots(page, 'schedules');

    // Delete asks first; Escape keeps the rule, Delete removes it.
    const remove = m.getByRole('button', { name: 'Delete Blue Note Radio' });
    await remove.click();
    const confirm = m.getByRole('alertdialog', { name: 'Delete this schedule?' });
    assert.ok(await confirm.getByRole('button', { name: 'Cancel' }).evaluate((b) => b === document.activeElement));
    await page.keyboard.press('Escape');
    await confirm.waitFor({ state: 'detached' });
    assert.equal((await api('/api/schedules')).rules.length, 2);
    await remove.click();
    await confirm.getByRole('button', { name: 'Delete' }).click();
    await m.locator('li.rule').filter({ hasText: '2099' }).waitFor({ state: 'detached' });
    assert.equal((await api('/api/schedules')).rules.length, 1);
  });

  test('preferences: switches grey out what they govern, a refusal shows at its field, a save lasts', async () => {
    let m = await goTo('Preferences', 'prefs');
    const proxy = m.getByLabel('Connect through an HTTP proxy');
    await proxy.waitFor();
    assert.ok(await m.getByLabel('Proxy host').isDisabled());
    await proxy.check();
    await m.getByLabel('Proxy host').fill('proxy.example');
    await m.getByLabel('Proxy port').fill('3128');
    await m.getByLabel('Keep a history of recorded tracks').check();
    await m.getByLabel('Skip tracks already in the history').check();
    await m.getByLabel('Keep a history of recorded tracks').uncheck();
    assert.ok(await m.getByLabel('Skip tracks already in the history').isDisabled());
    assert.ok(!(await m.getByLabel('Skip tracks already in the history').isChecked()));
    assert.ok(await m.getByLabel('Playlist name').isDisabled());

    await m.getByLabel('First relay port').fill('99999');
    await m.getByRole('button', { name: 'Save' }).first().click();
    await m.locator('#pref-relayPort-note').getByText(/port number from 1 to 65535/).waitFor();
    // Nothing of the refused set was saved.
    assert.notEqual((await api('/api/prefs')).proxyOn, 'YES');
    await m.getByLabel('First relay port').fill(String(await freePort()));
    await m.getByLabel('Mail server (host[:port])').fill('127.0.0.1:2525');
    await m.getByRole('button', { name: 'Save' }).first().click();
    await m.getByText('Saved.').waitFor();
    await screenshots(page, 'preferences');

    await page.reload();
    m = await goTo('Preferences', 'prefs');
    await m.getByLabel('Proxy host').waitFor();
    assert.ok(await m.getByLabel('Connect through an HTTP proxy').isChecked());
    assert.equal(await m.getByLabel('Proxy host').inputValue(), 'proxy.example');
    assert.equal(await m.getByLabel('Mail server (host[:port])').inputValue(), '127.0.0.1:2525');
    assert.equal((await api('/api/mail')).server, '127.0.0.1:2525');
  });
});
