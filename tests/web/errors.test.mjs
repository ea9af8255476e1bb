// The error dialog in the page: a broken file in a run shows the error's words with "Contact us"
// and "Ok"; "Contact us" makes the report on the server, and without a mail program the
// "Warning" alert tells the folder the report was written to.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import path from 'node:path';
import { existsSync, mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { makeHome, makeMedia, unwarp, startServer, launchBrowser, watchedPage, screenshots, passLaunchSteps, walkToTemplate } from './support.mjs';

test('error dialog: a broken file, "Contact us", and the report left behind', async (t) => {
  const home = makeHome();
  t.after(home.cleanup);
  const media = makeMedia(path.join(home.root, 'media'));
  // The first bytes of a good photo: its header reads, its pixels do not.
  const broken = path.join(home.root, 'media', 'broken.jpg');
  writeFileSync(broken, readFileSync(media.red).subarray(0, 600));
  unwarp(home.root, ['library', 'add', '--album', 'Bad', broken, media.blue]);
  // The server finds no mail program, so the report goes into a folder.
  const noPrograms = path.join(home.root, 'no-programs');
  mkdirSync(noPrograms);
  const oldPath = process.env.PATH;
  process.env.PATH = noPrograms;
  const starting = startServer(home.root);
  process.env.PATH = oldPath;
  const server = await starting;
  t.after(server.stop);
  const browser = await launchBrowser();
  t.after(browser.close);
  const { page, problems } = await watchedPage(browser.context);
  await page.goto(server.url);
  await passLaunchSteps(page);

  await walkToTemplate(page, { album: 'Bad (2)', last: 1 });
  await page.locator('#start').click();

  const dialog = page.getByRole('dialog').filter({ hasText: 'If problem persists, please, contact us.' });
  await dialog.waitFor({ timeout: 60000 });
  const message = await dialog.locator('p').first().textContent();
  assert.match(message, /\S If problem persists, please, contact us\.$/);
  assert.deepEqual(await dialog.getByRole('button').allTextContents(), ['Contact us', 'Ok']);
  await screenshots(page, 'error-dialog');
  await page.setViewportSize({ width: 390, height: 844 });
  await screenshots(page, 'error-dialog-phone');
  await page.setViewportSize({ width: 1000, height: 720 });
  await dialog.getByRole('button', { name: 'Contact us' }).click();

  const warning = page.getByRole('dialog').filter({ hasText: 'Warning' });
  await warning.waitFor({ timeout: 30000 });
  assert.equal(await warning.locator('p').first().textContent(),
    'You must configure your email client before using this action. To do this just open "Mail" app and create at least one account.');
  const folder = await warning.locator('.report-folder code').textContent();
  await screenshots(page, 'error-report-warning');
  assert.ok(folder.startsWith(home.root), folder);
  assert.ok(existsSync(path.join(folder, 'mail.txt')), folder);
  const mail = readFileSync(path.join(folder, 'mail.txt'), 'utf8');
  // The text is the error's words without the suffix, then the machine's facts.
  assert.ok(mail.includes(`Error message: "${message.replace(' If problem persists, please, contact us.', '')}"`), mail);
  assert.ok(mail.includes('App error'), mail);
  await warning.getByRole('button', { name: 'Ok' }).click();
  await warning.waitFor({ state: 'detached' });
  assert.deepEqual(problems, []);
});
