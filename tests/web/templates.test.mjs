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

  // A ratio's direction shows as its arrow, not as the token the list item carries.
  await page.getByRole('searchbox', { name: 'Search templates' }).fill('Aspect Ratio 1:1');
  const ratioRow = page.locator('.template', { hasText: 'Aspect Ratio 1:1' }).first();
  await ratioRow.waitFor();
  assert.match(await ratioRow.locator('.detail').textContent(), /^1 : 1 ↓ \[S\]/);

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

// Every template of the catalogue shows a picture of its own, which the browser keeps; the
// summary is headed by the chosen template's name; and a size typed field by field becomes a
// recent size only once the fields are done, so no half-typed size joins the list.
test('template pictures, the summary heading and the recent sizes', async (t) => {
  const home = makeHome();
  t.after(home.cleanup);
  const media = makeMedia(path.join(home.root, 'media'));
  unwarp(home.root, ['library', 'add', '--album', 'Trip', media.red]);
  const { page, problems } = await openHome(t, home);
  const kept = new Map();
  page.on('response', (response) => {
    const url = new URL(response.url());
    if (url.pathname === '/api/templates/picture') kept.set(url.pathname + url.search, response.headers()['cache-control'] || '');
  });

  await page.getByRole('button', { name: 'Trip (1)' }).click();
  await page.locator('uw-grid .cell img').first().click();
  await page.getByRole('button', { name: 'Next' }).click();
  const rows = page.locator('[data-list=catalogue] .template-row');
  await rows.first().waitFor();
  assert.equal(await page.locator('.template-row .picture.empty').count(), 0);
  // The rows in view have their pictures drawn, each of the shape of its own template.
  const unwarpSection = page.locator('[data-list=catalogue]').first();
  await page.waitForFunction(() => [...document.querySelectorAll('[data-list=catalogue] img.picture')].slice(0, 8)
    .every((img) => img.complete && img.naturalWidth > 0));
  const pictures = await unwarpSection.locator('img.picture').evaluateAll((imgs) => imgs.map((img) => img.getAttribute('src')));
  assert.equal(new Set(pictures).size, pictures.length);
  // Pictures drawn from a template are kept by the browser; a stand-in for a picture not yet
  // written is asked for again.
  const listed = (await catalogue(page, '')).flatMap((section) => section.items);
  const loaded = listed.filter((item) => kept.has(item.picture));
  assert.ok(loaded.some((item) => item.pictureSource === 'drawn'), JSON.stringify([...kept]));
  for (const item of loaded)
    assert.equal(/max-age=\d+/.test(kept.get(item.picture)), item.pictureSource === 'drawn', `${item.picture}: ${kept.get(item.picture)}`);
  await screenshots(page, 'templates-pictures');
  await phoneScreenshot(page, 'templates-pictures');
  // The catalogue's sections show no second line; Smart Optimization carries the Smart size
  // note instead, its option's name in red.
  const smart = page.locator('[data-list=catalogue]', { has: page.getByRole('heading', { name: 'Smart Optimization' }) });
  assert.equal(await smart.locator('.smart-note').textContent(),
    'Select Smart size to use 1200 x 600 for landscape / square and 600 x 1200 for portait photos');
  assert.equal(await smart.locator('.smart-note .styled-red').textContent(), 'Smart size');
  assert.equal(await page.locator('.smart-note').count(), 1);
  assert.equal(await page.locator('[data-list=catalogue] .subtitle').count(), 0);

  // The summary of a catalogue template carries its name.
  await page.getByRole('searchbox', { name: 'Search templates' }).fill('instagram square');
  await page.getByRole('button', { name: /^Instagram Square\b/ }).first().click();
  await page.locator('#start').waitFor();
  assert.equal(await page.locator('.summary h1').textContent(), 'Instagram Square');
  await page.locator('.summary img').first().evaluate((img) => img.decode());
  await screenshots(page, 'summary-title');
  await phoneScreenshot(page, 'summary-title');
  await page.getByRole('button', { name: '‹ Templates' }).click();

  // The size editor: 200 x 100 done with Enter, then 300 x 150 typed field by field.
  await page.getByRole('searchbox', { name: 'Search templates' }).fill('');
  await page.getByRole('button', { name: 'Custom Size' }).click();
  await page.locator('.size-editor').waitFor();
  const answered = () => page.waitForResponse((r) => r.url().endsWith('/api/flow/editor'));
  const width = page.getByRole('textbox', { name: 'Width' });
  const height = page.getByRole('textbox', { name: 'Height' });
  let answer = answered();
  await width.fill('200');
  await width.press('Tab');
  await answer;
  answer = answered();
  await height.fill('100');
  await height.press('Enter');
  await answer;
  const recentSizes = () => page.getByRole('list', { name: 'Recent sizes' }).getByRole('button').allTextContents();
  await page.waitForFunction(() => document.querySelector('.recent-sizes button')?.textContent === '200 x 100 px');
  for (const [field, text] of [[width, '300'], [height, '150']]) {
    answer = answered();
    await field.fill(text);
    await field.press('Tab');
    await answer;
  }
  // Still typing: the fields show what was typed, the list is as it was.
  assert.equal(await width.inputValue(), '300');
  assert.equal(await height.inputValue(), '150');
  assert.equal((await recentSizes())[0], '200 x 100 px');
  answer = answered();
  await page.getByRole('button', { name: 'Done' }).click();
  await answer;
  await page.waitForFunction(() => document.querySelector('.recent-sizes button')?.textContent === '300 x 150 px');
  const sizes = await recentSizes();
  assert.deepEqual(sizes.slice(0, 2), ['300 x 150 px', '200 x 100 px']);
  assert.ok(!sizes.includes('300 x 100 px') && !sizes.includes('200 x 150 px'), JSON.stringify(sizes));
  await screenshots(page, 'size-editor-recents');
  await phoneScreenshot(page, 'size-editor-recents');
  assert.deepEqual(problems, []);
});
