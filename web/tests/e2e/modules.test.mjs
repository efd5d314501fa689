// The navigation, the bookmarks module and the history module in Chromium
// against a real daemon and station (see harness.mjs), with the history on
// (preference "log"): a bookmark made, checked, changed and recorded, and the
// tracks it recorded searched, played and deleted in the history.
//
// Run (in web/): QUILLON_BIN=../build/quillon node tests/e2e/modules.test.mjs
import { after, before, describe, test } from 'node:test';
import assert from 'node:assert/strict';
import { join } from 'node:path';
import { launch, screenshots, until } from './harness.mjs';

const shown = (id) => until(globalThis.page, (id) => location.hash === `#/${id}` && !document.getElementById(`module-${id}`).hidden, id);

describe('bookmarks and history modules', () => {
  let t, page;

  before(async () => {
    t = await launch({ prefs: { log: 'YES' }, hash: '#/bookmarks' });
    page = globalThis.page = t.page;
    await page.getByText('No bookmarks yet: add one from a stream or playlist address.').waitFor();
    await page.getByText('Nothing recorded yet: the stations you record show here.').waitFor();
  });

  after(() => t?.close());

  test('the address keeps the module across a reload; the keyboard reaches each module', async () => {
    await page.reload();
    await shown('bookmarks');
    assert.equal(await page.getByRole('link', { name: 'Bookmarks' }).getAttribute('aria-current'), 'page');
    for (const [name, id] of [['History', 'history'], ['Activity', 'activity'], ['Bookmarks', 'bookmarks']]) {
      await page.getByRole('link', { name }).focus();
      await page.keyboard.press('Enter');
      await shown(id);
    }
  });

  test('a bookmark is made from an address, checked, changed and recorded', async () => {
    await page.getByLabel('Stream or playlist address').fill(t.stationUrl);
    await page.getByLabel('Name (optional)').fill('Test Station');
    await page.getByRole('button', { name: 'Add bookmark' }).click();
    await page.getByText(/^Added "Test Station"/).waitFor();

    const editor = page.getByRole('form', { name: 'Edit Test Station' });
    const offset = editor.getByLabel('Record offset (seconds)');
    for (const [value, error] of [['31', 'from −30 to 30'], ['1.5', 'whole number']]) {
      await offset.fill(value);
      await editor.getByText(new RegExp(error)).waitFor();
      assert.ok(await editor.getByRole('button', { name: 'Save' }).isDisabled());
    }
    await offset.fill('-5');
    await editor.getByLabel('Genre').fill('Jazz');
    await editor.getByLabel('Title encoding').selectOption('CP1252');
    await editor.getByLabel('Clean titles').check();
    await editor.getByRole('button', { name: 'Save' }).click();
    await editor.getByText('Saved.').waitFor();
    const saved = await (await page.request.get(`${t.origin}/api/bookmarks/Test%20Station`)).json();
    assert.deepEqual(
      [saved.genre, saved.recOffset, saved.titleEncoding, saved.clean],
      ['Jazz', -5, 'CP1252', true],
    );
    await screenshots(page, 'bookmarks');
    // Tracks two seconds long would hold no audio when split five seconds early.
    await offset.fill('0');
    await editor.getByRole('button', { name: 'Save' }).click();
    await editor.getByText('Saved.').waitFor();

    // A playlist file chosen: a second bookmark. Renaming it to the first's
    // name is the daemon's refusal, shown in words beside the form.
    await page.locator('.new-bookmark input[type=file]').setInputFiles({
      name: 'other.pls',
      mimeType: 'audio/x-scpls',
      buffer: Buffer.from(`[playlist]\nNumberOfEntries=1\nFile1=${t.stationUrl}\nTitle1=Other Station\n`),
    });
    await page.getByText(/^Added "Other Station"/).waitFor();
    const other = page.getByRole('form', { name: 'Edit Other Station' });
    await other.getByLabel('Name').fill('Test Station');
    await other.getByRole('button', { name: 'Save' }).click();
    await other.getByRole('button', { name: 'Replace the other bookmark' }).waitFor();
    assert.match(await other.locator('.form-error[role=status]').textContent(), /\w+.*Test Station/);
    await other.getByRole('button', { name: 'Delete…' }).click();
    await page.getByRole('button', { name: 'Delete Other Station' }).click();
    await until(page, () => !document.querySelector('[data-entry="Other Station"]'));

    await page.getByRole('button', { name: 'Record Test Station' }).click();
    await page.getByText('Recording Test Station: see Activity.').waitFor();
    await page.getByRole('link', { name: 'Activity' }).click();
    await page.getByRole('heading', { name: 'Test Station' }).waitFor();
    // Three titles: the second track was recorded whole.
    const titles = new Set();
    while (titles.size < 3) {
      titles.add(
        await until(
          page,
          (seen) => {
            const t = document.querySelector('.connection [data-testid="title"]')?.textContent ?? '';
            return t.startsWith('Now: ') && !seen.includes(t) && t;
          },
          [...titles],
        ),
      );
    }
    await page.getByRole('button', { name: 'Stop Test Station' }).click();
    await page.getByRole('button', { name: 'Start Test Station again' }).waitFor();

    // The station recorded is the newest of the recent list, and starts from there again.
    await page.getByRole('link', { name: 'Bookmarks' }).click();
    const recent = page.getByRole('list', { name: 'Recent stations' }).locator('li');
    await until(page, () => document.querySelector('[data-recent="Test Station"]'));
    assert.equal(await recent.count(), 1);
    assert.match(await recent.textContent(), /Test Station.*127\.0\.0\.1/);
    await recent.getByRole('button', { name: 'Record again: Test Station' }).click();
    await page.getByText('Recording Test Station: see Activity.').waitFor();
    await page.getByRole('link', { name: 'Activity' }).click();
    await page.getByRole('button', { name: 'Stop Test Station' }).click();
    await page.getByRole('button', { name: 'Start Test Station again' }).waitFor();
  });

  test('the recorded tracks are found, played and deleted in the history', async () => {
    await page.getByRole('link', { name: 'History' }).click();
    const day = page.locator('#module-history .days .pick').first();
    await day.click();
    // The first title's track began mid-song; the second was recorded whole.
    await until(page, () => document.querySelectorAll('#module-history .track').length >= 2);

    // A recorded track plays in the page, from the daemon.
    const second = page.locator('#module-history .track').nth(1);
    const name = await second.locator('strong').textContent();
    await second.getByRole('button', { name: `Play ${name}` }).click();
    const played = await page.evaluate(
      () =>
        new Promise((ok, fail) => {
          const audio = document.querySelector('#module-history audio');
          const check = () => audio.currentTime > 0.2 && ok(audio.currentTime);
          audio.addEventListener('timeupdate', check);
          audio.addEventListener('error', () => fail(new Error(`audio error ${audio.error?.code}`)));
          check();
        }),
    );
    assert.ok(played > 0.2);
    await screenshots(page, 'history');
    await page.getByRole('button', { name: 'Close player' }).click();

    // Search as one types, any case; then delete the track found.
    const word = name.split(' - ')[1].toUpperCase();
    await page.getByLabel('Search the tracks').pressSequentially(word);
    await page.getByText(/^\d+ tracks? found\.$/).waitFor();
    const found = page.locator('#module-history .track', { hasText: name });
    await found.getByRole('checkbox').check();
    await page.getByRole('button', { name: /^Delete the chosen tracks/ }).click();
    await page.getByText(/^Delete 1 track from the history\?/).waitFor();
    await page.getByRole('alertdialog').getByRole('button', { name: 'Delete' }).click();
    await page.getByText('Deleted 1 track.').waitFor();
    await page.getByText(`No track matches "${word}".`).waitFor();

    // A whole day, after the question; then the recordings are added again by their folder.
    await page.getByLabel('Search the tracks').fill('');
    await page.getByRole('button', { name: /^Delete the day / }).first().click();
    await page.getByRole('alertdialog').getByRole('button', { name: 'Delete' }).click();
    await page.getByText(/^No recorded tracks yet/).waitFor();
    await page.getByLabel(/^Paths on this computer/).fill('Music');
    await page.getByRole('button', { name: 'Add to the history' }).click();
    await page.getByText(/^Not a full path/).waitFor();
    await page.getByLabel(/^Paths on this computer/).fill(join(t.home, 'Music'));
    await page.getByRole('button', { name: 'Add to the history' }).click();
    await page.getByText(/^Added \d+ tracks?\.$/).waitFor();
    await page.locator('#module-history .days .pick').first().waitFor();
  });
});
