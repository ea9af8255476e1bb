// A user's main road through the screens: pick three photos and a movie from an album, choose
// "Unwarp 1.33x", shift one item by dragging, run, pause and resume, answer the size limit,
// share two results under a name of their own, and find the files on disk at their sizes.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import path from 'node:path';
import { existsSync } from 'node:fs';
import { makeHome, makeMedia, unwarp, run, startServer, launchBrowser, watchedPage, screenshots, passLaunchSteps, picturesShown } from './support.mjs';

function vipsSize(file) {
  return `${run('vipsheader', ['-f', 'width', file]).trim()}x${run('vipsheader', ['-f', 'height', file]).trim()}`;
}

function movieSize(file) {
  return run('ffprobe', ['-v', 'error', '-select_streams', 'v:0', '-show_entries', 'stream=width,height',
    '-of', 'csv=p=0:s=x', file]).trim();
}

test('main flow: album, template, adjust, run, limit, share', async (t) => {
  const home = makeHome();
  t.after(home.cleanup);
  const media = makeMedia(path.join(home.root, 'media'));
  unwarp(home.root, ['library', 'add', '--album', 'Trip', media.red, media.blue, media.wide, media.movie]);
  // "Ask for a filename when sharing".
  unwarp(home.root, ['settings', 'set', 'exportFilenameType', '1']);
  const server = await startServer(home.root);
  t.after(server.stop);
  const browser = await launchBrowser();
  t.after(browser.close);
  const { page, problems } = await watchedPage(browser.context);

  const opened = Date.now();
  await page.goto(server.url);
  // A new user's first start: the launch steps, each taken by its button, end at home.
  await page.getByRole('heading', { name: 'Welcome' }).waitFor();
  await screenshots(page, 'launch-welcome');
  const seen = await passLaunchSteps(page);
  assert.equal(seen[0], 'Welcome');
  assert.ok(await page.locator('.home').count(), `launch steps ${seen.join(', ')} did not end at home`);
  await page.getByRole('button', { name: 'Trip (4)' }).click();
  const cells = page.locator('uw-grid .cell img');
  await cells.nth(3).waitFor();
  const firstScreenMs = Date.now() - opened;
  console.log(`first screen with thumbnails ${firstScreenMs} ms after the page was asked; server listening ${server.startMs} ms after start`);
  await picturesShown(page, '.home uw-grid .cell img');
  await screenshots(page, 'home');

  await cells.nth(0).click();
  // Shift-click takes the range up to the movie.
  await cells.nth(3).click({ modifiers: ['Shift'] });
  await page.getByText('3 photos / 1 video selected').waitFor();
  await page.getByRole('button', { name: 'Next' }).click();

  await page.getByRole('searchbox', { name: 'Search templates' }).fill('1.33');
  await picturesShown(page, '.templates .template-row img.picture');
  await screenshots(page, 'templates');
  await page.getByRole('button', { name: /Unwarp 1\.33x/ }).first().click();

  await page.getByRole('button', { name: 'Adjust a-red.jpg' }).click();
  const frame = page.getByLabel('Drag to shift the picture');
  const box = await frame.boundingBox();
  await page.mouse.move(box.x + box.width / 2, box.y + box.height / 2);
  await page.mouse.down();
  await page.mouse.move(box.x + box.width / 2 + 40, box.y + box.height / 2, { steps: 5 });
  await page.mouse.up();
  await page.waitForFunction(() => document.querySelector('.frame img')?.complete);
  await screenshots(page, 'adjust');
  await page.getByRole('button', { name: 'Done' }).click();
  await page.locator('#start').click();

  // The run: pause it, resume it, and answer the limit with "Proceed".
  const button = page.locator('#processing');
  await page.locator('.result').first().waitFor();
  await screenshots(page, 'results-running');
  await page.getByRole('dialog').filter({ hasText: 'exceeds maximum supported size' }).waitFor({ timeout: 60000 });
  // The item stopped by the limit shows no bar of its own or of the item before it.
  await page.locator('.result progress').waitFor({ state: 'detached' });
  await screenshots(page, 'limit-dialog');
  await page.getByRole('button', { name: 'Proceed' }).click();
  await assert.doesNotReject(button.filter({ hasText: /Processing|Results/ }).waitFor());
  // Pause and resume while items are left (the run may end first on a fast machine).
  let paused = false;
  if ((await button.textContent()) === 'Processing') {
    await button.click({ timeout: 5000 }).catch(() => {});
    await button.filter({ hasText: /Resume|Results/ }).waitFor();
    if ((await button.textContent()) === 'Resume') {
      paused = true;
      await screenshots(page, 'results-paused');
      // A photo that finished just as the pause came is kept; if it was the last item the run
      // is over, and "Resume" has given way to "Results".
      await button.filter({ hasText: 'Resume' }).click({ timeout: 5000 }).catch(() => {});
    }
  }
  console.log(`paused and resumed: ${paused}`);
  // An item paused while in work starts again, and the limit is asked again for it.
  const limit = page.getByRole('dialog').filter({ hasText: 'exceeds maximum supported size' });
  await Promise.race([button.filter({ hasText: 'Results' }).waitFor({ timeout: 120000 }), limit.waitFor({ timeout: 120000 })]);
  if (await limit.isVisible()) await limit.getByRole('button', { name: 'Proceed' }).click();
  await button.filter({ hasText: 'Results' }).waitFor({ timeout: 120000 });
  await screenshots(page, 'results-done');

  // With nothing selected the bar offers to select everything, and the buttons wait for a
  // selection; the reset button takes it back.
  const bar = page.locator('.results footer');
  const selectAll = bar.getByRole('button', { name: 'Select all items' });
  await selectAll.waitFor();
  await bar.getByText('No items selected').waitFor();
  assert.ok(await bar.locator('.actions').isHidden());
  assert.ok(await page.locator('#reset-selection').isHidden());
  await selectAll.click();
  await bar.getByRole('button', { name: '3 photos / 1 video selected' }).waitFor();
  assert.ok(await page.locator('#share').isVisible());
  assert.ok(await bar.getByText('No items selected').isHidden());
  await page.locator('#reset-selection').click();
  await selectAll.waitFor();

  // Share the first two results under a name of their own.
  await page.locator('.result', { hasText: 'a-red' }).locator('input').check();
  await page.locator('.result', { hasText: 'b-blue' }).locator('input').check();
  await page.getByText(/2 photos selected/).waitFor();
  await page.locator('#share').click();
  const prompt = page.getByRole('dialog').filter({ hasText: 'Sharing filename' });
  await prompt.getByText('Enter base name for files to share').waitFor();
  const name = prompt.getByRole('textbox', { name: 'Sharing filename' });
  assert.equal(await name.getAttribute('placeholder'), 'Enter base name');
  // A second "%" makes no name: the error shows in place of the preview, and Share is off.
  await name.fill('a%b%');
  await prompt.locator('.preview', { hasText: 'at most one %' }).waitFor();
  assert.ok(await prompt.getByRole('button', { name: 'Share' }).isDisabled());
  await name.fill('trip');
  await prompt.locator('.preview', { hasText: 'trip1.jpg, trip2.jpg, etc' }).waitFor();
  const preview = await page.locator('.preview').textContent();
  console.log(`name preview: ${JSON.stringify(preview)}`);
  await screenshots(page, 'share-name');
  const shareAnswer = page.waitForResponse((r) => r.url().endsWith('/api/share'));
  await page.getByRole('dialog').getByRole('button', { name: 'Share' }).click();
  const sharedFiles = (await (await shareAnswer).json()).files;
  const shared = page.getByRole('dialog').filter({ hasText: 'Success' });
  await shared.waitFor();
  const names = (await shared.locator('p').textContent()).split('\n');
  assert.equal(names.length, 2);
  for (const n of names) assert.match(n, /^trip/);
  await shared.getByRole('button', { name: 'Ok' }).click();

  const store = JSON.parse(await page.evaluate(async () => JSON.stringify(await (await fetch('/api/run', { headers: { 'X-Unwarp-Token': sessionStorage.getItem('unwarp-token') } })).json())));
  assert.equal(store.items.length, 4);
  const file = (stem) => store.items.find((i) => path.basename(i.file).startsWith(stem)).file;
  for (const item of store.items) assert.ok(existsSync(item.file), item.file);
  assert.equal(vipsSize(file('a-red')), '426x240');
  assert.equal(vipsSize(file('b-blue')), '426x240');
  assert.equal(vipsSize(file('c-wide')), '8192x9');
  assert.equal(movieSize(file('d-movie')), '426x240');
  // The shared copies are on disk under the name given, at the results' size.
  assert.equal(sharedFiles.length, 2);
  for (const f of sharedFiles) {
    assert.match(path.basename(f), /^trip/);
    assert.equal(vipsSize(f), '426x240');
  }
  assert.deepEqual(problems, []);
});
