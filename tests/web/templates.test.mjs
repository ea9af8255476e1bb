// The template screens: own templates created, renamed, duplicated and removed and found by
// search; the size editors of a mixed selection, photos first, make a template that a run uses
// (the written size read back with vipsheader), and saving the editor's size makes a template
// of one's own.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import path from 'node:path';
import { existsSync } from 'node:fs';
import { makeHome, makeMedia, unwarp, run, screenshots, phoneScreenshot, openHome } from './support.mjs';

function vipsSize(file) {
  return `${run('vipsheader', ['-f', 'width', file]).trim()}x${run('vipsheader', ['-f', 'height', file]).trim()}`;
}

async function catalogue(page, search) {
  return page.evaluate(async (q) => {
    const response = await fetch(`/api/templates?search=${encodeURIComponent(q)}`, { headers: { 'X-Unwarp-Token': sessionStorage.getItem('unwarp-token') } });
    return (await response.json()).sections;
  }, search);
}

function titlesOf(sections, list) {
  return sections.filter((s) => s.list === list).flatMap((s) => s.items.map((i) => i.title));
}

test('own templates and the size editor', async (t) => {
  const home = makeHome();
  t.after(home.cleanup);
  const media = makeMedia(path.join(home.root, 'media'));
  unwarp(home.root, ['library', 'add', '--album', 'Trip', media.red, media.movie]);
  const { page, problems } = await openHome(t, home);
  await page.getByRole('button', { name: 'Trip (2)' }).click();
  const cells = page.locator('uw-grid .cell img');
  await cells.nth(1).waitFor();
  // The movie first: the walk still sizes the photo before the video.
  await cells.nth(1).click();
  await cells.nth(0).click({ modifiers: ['Control'] });
  await page.getByText('1 photo / 1 video selected').waitFor();
  await page.getByRole('button', { name: 'Next' }).click();

  // Create, rename, duplicate and remove an own template; search finds it by its name.
  const prompt = async (text) => {
    await page.getByRole('textbox', { name: 'Name' }).fill(text);
    await page.getByRole('dialog').getByRole('button', { name: 'Save' }).click();
  };
  const own = page.locator('[data-list=own]');
  await page.getByRole('button', { name: 'New Template' }).click();
  await prompt('Poster');
  await own.getByText('Poster').waitFor();
  assert.deepEqual(titlesOf(await catalogue(page, 'post'), 'own'), ['Poster']);
  await page.getByRole('button', { name: 'Rename Poster' }).click();
  await prompt('Banner');
  await own.getByRole('button', { name: /^Banner/ }).waitFor();
  assert.deepEqual(titlesOf(await catalogue(page, 'poster'), 'own'), []);
  await page.getByRole('button', { name: 'Duplicate Banner' }).click();
  await own.locator('.template').nth(1).waitFor();
  assert.deepEqual(titlesOf(await catalogue(page, ' BANNER '), 'own'), ['Banner', 'Banner']);
  await page.getByRole('searchbox', { name: 'Search templates' }).fill('banner');
  await own.locator('.template').nth(1).waitFor();
  await screenshots(page, 'templates-own');
  await phoneScreenshot(page, 'templates-own');
  await page.getByRole('button', { name: 'Remove Banner' }).first().click();
  await page.getByRole('dialog').getByRole('button', { name: 'Remove' }).click();
  await own.locator('.template').nth(1).waitFor({ state: 'detached' });
  assert.deepEqual(titlesOf(await catalogue(page, 'banner'), 'own'), ['Banner']);
  // The command line sees the same store.
  assert.match(unwarp(home.root, ['templates']), /Banner/);

  // Without a template the server's walk opens the photo size editor first.
  await page.getByRole('searchbox', { name: 'Search templates' }).fill('');
  await page.getByRole('button', { name: 'Custom Size' }).click();
  await page.locator('.size-editor').waitFor();
  assert.match(await page.locator('.size header h1, .screen.size h1').first().textContent(), /Photo/);
  const typeField = async (label, text) => {
    const answer = page.waitForResponse((r) => r.url().endsWith('/api/flow/editor'));
    const field = page.getByRole('textbox', { name: label });
    await field.fill(text);
    await field.press('Tab');
    await answer;
  };
  await typeField('Width', '012');
  await page.getByText(/Refused: width "012"/).waitFor();
  await typeField('Width', '200');
  await typeField('Height', '100');
  for (const name of ['Normal size', 'Stretch']) {
    const answer = page.waitForResponse((r) => r.url().endsWith('/api/flow/editor'));
    await page.getByRole('group', { name: 'Options' }).getByRole('button', { name }).click();
    await answer;
  }
  await page.getByText('200 x 100 PX').first().waitFor();
  const buttons = await page.getByRole('group', { name: 'Options' }).getByRole('button').allTextContents();
  assert.deepEqual(buttons, ['Normal size', 'Smart size', 'Ratio clip', 'Ratio fit', 'Stretch']);
  await screenshots(page, 'size-editor');
  await phoneScreenshot(page, 'size-editor');
  await page.getByRole('button', { name: 'Save', exact: true }).click();
  await prompt('Wide 200');
  await page.getByText('Saved as Wide 200').waitFor();

  await page.locator('#next').click();
  await page.locator('.screen.size h1', { hasText: /Video/ }).waitFor();
  await page.locator('#next').click();
  await page.locator('#start').waitFor();
  await screenshots(page, 'summary-custom');
  await page.locator('#start').click();
  const button = page.locator('#processing');
  await button.filter({ hasText: 'Results' }).waitFor({ timeout: 120000 });

  const store = JSON.parse(await page.evaluate(async () => JSON.stringify(await (await fetch('/api/run', { headers: { 'X-Unwarp-Token': sessionStorage.getItem('unwarp-token') } })).json())));
  const photo = store.items.find((i) => i.media === 'photo');
  assert.ok(photo && existsSync(photo.file), JSON.stringify(store.items));
  assert.equal(vipsSize(photo.file), '200x100');
  // The editor's size was saved as a template of one's own.
  const saved = (await catalogue(page, 'wide 200')).filter((s) => s.list === 'own').flatMap((s) => s.items);
  assert.equal(saved.length, 1);
  assert.equal(saved[0].photo.text, '200 x 100 px');
  // Its picture, drawn from the photo it was shaped on, joins the list once written.
  const pictured = await page.waitForFunction(async () => {
    const response = await fetch('/api/templates?search=wide%20200', { headers: { 'X-Unwarp-Token': sessionStorage.getItem('unwarp-token') } });
    const sections = (await response.json()).sections;
    return sections.find((s) => s.list === 'own')?.items[0]?.picture;
  }, null, { timeout: 30000, polling: 200 });
  const picture = await pictured.jsonValue();
  const bytes = await page.evaluate(async (url) => (await (await fetch(url)).arrayBuffer()).byteLength, picture);
  assert.ok(bytes > 100, `picture of ${bytes} bytes`);
  assert.deepEqual(problems, []);
});
