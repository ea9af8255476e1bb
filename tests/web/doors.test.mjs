// The ways in and the run's stops: an upload and the camera each run to a result, a broken
// file stops the run with the error dialog until it is cleared, `unwarp open` reaches the page
// as the external item, and a run paused by the process being stopped and by the user resumes
// to "Results"; the results screen exports into a folder the user picks.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import path from 'node:path';
import { existsSync, readdirSync, readFileSync, writeFileSync, mkdirSync } from 'node:fs';
import { makeHome, makeMedia, unwarp, run, screenshots, screenshotsWithPhone, waitUntilStopped, openHome,
  chooseTemplate } from './support.mjs';

function vipsSize(file) {
  return [run('vipsheader', ['-f', 'width', file]), run('vipsheader', ['-f', 'height', file])].map(Number);
}

// The run's state as the server has it.
function runState(page) {
  return page.evaluate(async () => (await fetch('/api/run', { headers: { 'X-Unwarp-Token': sessionStorage.getItem('unwarp-token') } })).json());
}

// The picture's size once the browser has it; a picture that never loads fails the wait.
async function loadedSize(img) {
  await img.waitFor();
  await img.evaluate((element) => element.decode());
  return img.evaluate((element) => [element.naturalWidth, element.naturalHeight]);
}

// A bound on a wait for the page, so a run that never says so fails instead of hanging.
function within(promise, ms, what) {
  let timer;
  const limit = new Promise((_, reject) => { timer = setTimeout(() => reject(new Error(what)), ms); });
  return Promise.race([promise, limit]).finally(() => clearTimeout(timer));
}

test('an upload and a camera photo each become a result', async (t) => {
  const home = makeHome();
  t.after(home.cleanup);
  const media = makeMedia(path.join(home.root, 'media'));
  const { page, problems } = await openHome(t, home, {
    browserArgs: ['--use-fake-device-for-media-stream', '--use-fake-ui-for-media-stream'],
  });

  // The upload: the page's file input, as the browser's picker fills it.
  await page.locator('input[type=file]').setInputFiles([media.red]);
  await chooseTemplate(page);
  // The uploaded photo shows by a thumbnail the server drew from it, as library items do.
  assert.deepEqual(await loadedSize(page.locator('.summary-list img').first()), [256, 192]);
  await page.locator('#start').click();
  await page.locator('#processing').filter({ hasText: 'Results' }).waitFor({ timeout: 60000 });
  let state = await runState(page);
  assert.equal(state.items.length, 1);
  assert.deepEqual(vipsSize(state.items[0].file), [426, 240]);
  await page.getByRole('button', { name: '‹ Home' }).click();

  // The camera: Chromium's fake device, one still taken from the live view.
  await page.getByRole('button', { name: 'Camera' }).click();
  const camera = page.getByRole('dialog').filter({ hasText: 'Camera' });
  await camera.waitFor();
  await page.waitForFunction(() => document.querySelector('dialog.camera video')?.videoWidth > 0);
  const shot = await page.evaluate(() => {
    const video = document.querySelector('dialog.camera video');
    return [video.videoWidth, video.videoHeight];
  });
  await screenshots(page, 'camera');
  await camera.getByRole('button', { name: 'Take Photo' }).click();
  await chooseTemplate(page);
  await page.locator('#start').click();
  await page.locator('#processing').filter({ hasText: 'Results' }).waitFor({ timeout: 60000 });
  state = await runState(page);
  const photo = state.items.find((i) => i.name.startsWith('camera'));
  assert.ok(photo, JSON.stringify(state.items.map((i) => i.name)));
  // Widened by 1.33 at the captured height.
  assert.deepEqual(vipsSize(photo.file), [Math.round(shot[0] * 1.33), shot[1]]);
  assert.deepEqual(problems, []);
});

test('a broken file shows the error dialog and the run goes on once it is cleared', async (t) => {
  const home = makeHome();
  t.after(home.cleanup);
  const media = makeMedia(path.join(home.root, 'media'));
  // The picture's first bytes only: a JPEG header with no picture data after it.
  const broken = path.join(home.root, 'media', 'broken.jpg');
  writeFileSync(broken, readFileSync(media.red).subarray(0, 300));
  const { page, problems } = await openHome(t, home);

  await page.locator('input[type=file]').setInputFiles([media.red, broken, media.blue]);
  await chooseTemplate(page);
  await page.locator('#start').click();
  const error = page.getByRole('dialog').filter({ hasText: 'If problem persists' });
  await error.waitFor({ timeout: 60000 });
  // A picture that can't be decoded leaves nothing to write: the saving words.
  assert.equal(await error.locator('h2').textContent(), 'Saving problem');
  assert.equal(await error.locator('p').textContent(),
    'Unable to save media to photo library. A problem may occur when not enough free space or format is not supported. If problem persists, please, contact us.');
  assert.deepEqual(await error.getByRole('button').allTextContents(), ['Contact us', 'Ok']);
  await screenshots(page, 'error-dialog');
  await error.getByRole('button', { name: 'Ok' }).click();
  // The run stops at the broken file, which waits to be tried again.
  await page.locator('#processing').filter({ hasText: 'Resume' }).waitFor();
  let state = await runState(page);
  assert.deepEqual(state.items.map((i) => i.pending), [false, true, true]);
  // The uploads waiting in the list show their thumbnails, the broken one too (what its
  // decoder makes of it, or a stand-in).
  assert.deepEqual(await loadedSize(page.locator('.result.pending', { hasText: 'b-blue.jpg' }).locator('img')), [256, 192]);
  assert.ok((await loadedSize(page.locator('.result.pending', { hasText: 'broken.jpg' }).locator('img')))[0] > 0);
  await screenshotsWithPhone(page, 'results-pending-uploads');

  // Cleared, the broken file leaves the list and the run goes on with the next.
  await page.locator('.result', { hasText: 'broken.jpg' }).locator('input').check();
  await page.locator('#clear').click();
  await page.getByRole('dialog').getByRole('button', { name: 'Clear selected results' }).click();
  await page.locator('#processing').filter({ hasText: 'Results' }).waitFor({ timeout: 60000 });
  state = await runState(page);
  assert.deepEqual(state.items.map((i) => i.name), ['a-red.jpg', 'b-blue.jpg']);
  for (const item of state.items) assert.deepEqual(vipsSize(item.file), [426, 240]);

  // Cleared of every result, the list says it is empty and offers no actions on a selection.
  for (const stem of ['a-red', 'b-blue']) await page.locator('.result', { hasText: stem }).locator('input').check();
  await page.getByText('2 photos selected').waitFor();
  await page.locator('#clear').click();
  await page.getByRole('dialog').getByRole('button', { name: 'Clear selected results' }).click();
  await page.locator('.results-list').getByText('No results').waitFor();
  assert.equal(await page.locator('.results footer').isVisible(), false);
  assert.deepEqual((await runState(page)).items, []);
  await screenshotsWithPhone(page, 'results-empty');
  assert.deepEqual(problems, []);
});

test('a file opened with `unwarp open` shows in the page as the external item', async (t) => {
  const home = makeHome();
  t.after(home.cleanup);
  const media = makeMedia(path.join(home.root, 'media'));
  const { page, problems } = await openHome(t, home);

  const said = unwarp(home.root, ['open', media.movie]);
  assert.match(said, /Opened in the running front end/);
  const movie = page.getByRole('dialog').filter({ has: page.getByRole('heading', { name: 'External Video' }) });
  await movie.waitFor();
  assert.match(await movie.textContent(), /d-movie\.mp4/);
  await movie.getByRole('button', { name: 'Cancel' }).click();
  await movie.waitFor({ state: 'detached' });
  // Let go, it is not offered again to a page that opens later.
  const waiting = await page.evaluate(async () => (await fetch('/api/external', { headers: { 'X-Unwarp-Token': sessionStorage.getItem('unwarp-token') } })).json());
  assert.equal(waiting.item, null);

  unwarp(home.root, ['open', media.red]);
  const photo = page.getByRole('dialog').filter({ has: page.getByRole('heading', { name: 'External Photo' }) });
  await photo.waitFor();
  await page.waitForFunction(() => document.querySelector('dialog.external img')?.complete);
  await screenshotsWithPhone(page, 'external-item');
  await photo.getByRole('button', { name: 'Next' }).click();
  await chooseTemplate(page);
  await page.locator('#start').click();
  await page.locator('#processing').filter({ hasText: 'Results' }).waitFor({ timeout: 60000 });
  const state = await runState(page);
  assert.equal(state.items.length, 1);
  assert.deepEqual(vipsSize(state.items[0].file), [426, 240]);
  assert.deepEqual(problems, []);
});

test('a run paused by a stopped process and by the user resumes to the end, and exports', async (t) => {
  const home = makeHome();
  t.after(home.cleanup);
  // Photos: a paused item starts again on the same serial queue, so a quick resume is safe.
  // Twenty of them, and the process is stopped as soon as the first is stored, so that the run
  // is still in work then however fast the machine is.
  const photos = Array.from({ length: 20 }, (_, i) => path.join(home.root, 'media', `p${i}.jpg`));
  mkdirSync(path.join(home.root, 'media'), { recursive: true });
  for (const photo of photos) run('convert', ['-size', '3000x2250', 'gradient:green-white', photo]);
  const exportFolder = path.join(home.root, 'exports');
  mkdirSync(path.join(exportFolder, 'trip'), { recursive: true });
  unwarp(home.root, ['settings', 'set', 'exportFilenameType', '1']);
  const { server, page, problems } = await openHome(t, home, { serveArgs: ['--folder', exportFolder] });

  await page.locator('input[type=file]').setInputFiles(photos);
  await chooseTemplate(page);
  const firstResult = page.evaluate(() => new Promise((resolve) => {
    document.querySelector('uw-app').events.addEventListener('committed', resolve, { once: true });
  }));
  await page.locator('#start').click();
  await within(firstResult, 60000, 'no result came');

  // The process stopped (Ctrl-Z, the machine's sleep) pauses the run; on its return the
  // restriction words show and the run goes on by itself, where the user pauses it.
  server.child.kill('SIGTSTP');
  await waitUntilStopped(server.child.pid);
  server.child.kill('SIGCONT');
  const restrictions = page.getByRole('dialog').filter({ hasText: 'Processing Restrictions' });
  await restrictions.waitFor();
  assert.equal(await restrictions.locator('p').textContent(),
    'Unwarp could not process media while inactive due to system restrictions. All tasks were temporarily paused and have now resumed automatically.');
  await screenshots(page, 'processing-restrictions');
  await restrictions.getByRole('button', { name: 'Ok' }).click();
  const button = page.locator('#processing');
  await button.filter({ hasText: 'Processing' }).waitFor();
  await button.click();

  // The user's pause: "Resume", no item in work and no bar left behind.
  await button.filter({ hasText: 'Resume' }).waitFor();
  await page.locator('.result progress').waitFor({ state: 'detached' });
  const paused = await runState(page);
  assert.equal(paused.title, 'Resume');
  assert.ok(paused.items.some((i) => i.pending), 'the pause came after the end');
  assert.ok(!paused.items.some((i) => i.processing));
  await screenshotsWithPhone(page, 'results-paused');
  await button.click();
  await button.filter({ hasText: 'Processing' }).waitFor();
  await screenshotsWithPhone(page, 'results-running');
  await button.filter({ hasText: 'Results' }).waitFor({ timeout: 120000 });
  await screenshotsWithPhone(page, 'results-done');
  const done = await runState(page);
  // Every photo has its result, once: one finished just as a pause came is not made again.
  assert.deepEqual(done.items.map((i) => i.name).sort(), photos.map((p) => path.basename(p)).sort());
  for (const item of done.items) assert.deepEqual(vipsSize(item.file), [3990, 2250]);

  // Export two results into a folder chosen in the server's folders, under a name.
  for (const stem of ['p1.jpg', 'p2.jpg']) await page.locator('.result', { hasText: stem }).locator('input').check();
  await page.getByText(/2 photos selected/).waitFor();
  await page.locator('#export').click();
  const chooser = page.getByRole('dialog').filter({ hasText: 'Export to Folder' });
  await chooser.getByRole('button', { name: `${exportFolder}/` }).click();
  await chooser.getByRole('button', { name: 'trip/' }).click();
  await chooser.locator('.where').filter({ hasText: path.join(exportFolder, 'trip') }).waitFor();
  await screenshotsWithPhone(page, 'export-folder');
  await chooser.getByRole('button', { name: 'Export Here' }).click();
  await page.getByRole('textbox', { name: 'Sharing filename' }).fill('clip');
  await page.getByRole('dialog').getByRole('button', { name: 'Export' }).click();
  await page.getByRole('dialog').filter({ hasText: 'Success' }).waitFor();
  assert.deepEqual(readdirSync(path.join(exportFolder, 'trip')).sort(), ['clip1.jpg', 'clip2.jpg']);
  assert.deepEqual(problems, []);
});
