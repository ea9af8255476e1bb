// The page keeps the server's walk in step: the summary's back button is a step of the walk
// (home to the template list with the picks kept, or to the size editor under it), the settings
// are pushed over home and popped by "‹ Home", and a file opened from outside is presented on
// the walk until the page lets it go or begins with it. After each step the stack the server
// reports is the one the page shows.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import path from 'node:path';
import { makeHome, makeMedia, unwarp, screenshotsWithPhone, openHome, chooseTemplate, walkToTemplate } from './support.mjs';

// The tab's walk as the server reports it: the kinds on the stack, root first, and the modal
// screen's kind after a "+".
function walkKinds(page) {
  return page.evaluate(async () => {
    const headers = { 'X-Unwarp-Token': sessionStorage.getItem('unwarp-token') };
    const flow = sessionStorage.getItem('unwarp-flow');
    const answer = await (await fetch(`/api/flow?flow=${flow}`, { headers })).json();
    return [...answer.stack.map((s) => s.kind), ...(answer.presented ? [`+${answer.presented.kind}`] : [])].join(' ');
  });
}

test('walk: the summary steps back on the server, and the next choice walks on from there', async (t) => {
  const home = makeHome();
  t.after(home.cleanup);
  const media = makeMedia(path.join(home.root, 'media'));
  unwarp(home.root, ['library', 'add', '--album', 'Trip', media.red, media.blue, media.movie]);
  const { page, problems } = await openHome(t, home);

  await walkToTemplate(page, { album: 'Trip (3)', last: 2 });
  const title = page.locator('.summary h1');
  await title.waitFor();
  const first = await title.textContent();
  assert.equal(await walkKinds(page), 'home summary');
  await page.getByRole('button', { name: '‹ Templates' }).click();
  // Home on the server, the template list in the page, the three picks kept.
  await page.locator('.templates').waitFor();
  assert.equal(await walkKinds(page), 'home');
  await page.locator('.template-row').first().waitFor();
  await screenshotsWithPhone(page, 'walk-templates-again');
  await chooseTemplate(page, 'Instagram Square Fit', /Instagram Square Fit/);
  await page.locator('.summary').waitFor();
  assert.notEqual(await title.textContent(), first, 'the summary of the second choice');
  assert.equal(await walkKinds(page), 'home summary');
  assert.equal(await page.locator('.summary-list li').count(), 3);

  // A size of one's own: the photo editor, the video editor, the summary; back from the
  // summary is the video editor under it.
  await page.getByRole('button', { name: '‹ Templates' }).click();
  await page.getByRole('button', { name: 'Custom Size' }).click();
  await page.locator('.size h1').filter({ hasText: '(2)' }).waitFor();
  await page.locator('#next').click();
  await page.locator('.size h1').filter({ hasText: '(1)' }).waitFor();
  await page.locator('#next').click();
  await page.locator('.summary').waitFor();
  assert.equal(await walkKinds(page), 'home sizeEditor sizeEditor summary');
  await screenshotsWithPhone(page, 'walk-summary-over-editors');
  await page.locator('.summary').getByRole('button', { name: '‹ Back' }).click();
  await page.locator('.size h1').filter({ hasText: '(1)' }).waitFor();
  assert.equal(await walkKinds(page), 'home sizeEditor sizeEditor');
  assert.deepEqual(problems, []);
});

test('walk: the settings over home, and a file from outside presented until let go or taken', async (t) => {
  const home = makeHome();
  t.after(home.cleanup);
  const media = makeMedia(path.join(home.root, 'media'));
  unwarp(home.root, ['library', 'add', '--album', 'Trip', media.red, media.blue]);
  const { page, problems } = await openHome(t, home);

  await page.getByRole('button', { name: 'Settings' }).click();
  await page.getByRole('heading', { name: 'Photo DPI' }).waitFor();
  assert.equal(await walkKinds(page), 'home settings');
  await page.getByRole('button', { name: '‹ Home' }).click();
  await page.locator('.home').waitFor();
  assert.equal(await walkKinds(page), 'home');

  // The file arrives while a summary is open: the page goes home and shows it over home.
  await walkToTemplate(page, { album: 'Trip (2)', last: 1 });
  await page.locator('.summary').waitFor();
  unwarp(home.root, ['open', media.red]);
  const external = page.getByRole('dialog').filter({ has: page.getByRole('heading', { name: 'External Photo' }) });
  await external.waitFor();
  await page.waitForFunction(() => document.querySelector('dialog.external img')?.complete);
  assert.equal(await walkKinds(page), 'home +external');
  await screenshotsWithPhone(page, 'walk-external');
  // "Next" offers the templates as the screen's choice; back home it is still shown.
  await external.getByRole('button', { name: 'Next' }).click();
  await page.locator('.templates').waitFor();
  await page.getByRole('button', { name: '‹ Back' }).click();
  await external.waitFor();
  await external.getByRole('button', { name: 'Cancel' }).click();
  await external.waitFor({ state: 'detached' });
  assert.equal(await walkKinds(page), 'home');

  // Taken on: the choice begins the walk with the file alone.
  unwarp(home.root, ['open', media.blue]);
  await external.waitFor();
  await external.getByRole('button', { name: 'Next' }).click();
  await chooseTemplate(page);
  await page.locator('.summary').waitFor();
  assert.equal(await walkKinds(page), 'home summary');
  assert.deepEqual(await page.locator('.summary-list .name').allTextContents(), ['b-blue.jpg']);
  assert.deepEqual(problems, []);
});

// The settings open over the summary and close back to it: the adjust session left under them
// is the one shown again (its adjusted item still marked, the panel on the same item), not a
// fresh one, and its preview is drawn again.
test('walk: the settings over the summary keep its adjust session', async (t) => {
  const home = makeHome();
  t.after(home.cleanup);
  const media = makeMedia(path.join(home.root, 'media'));
  unwarp(home.root, ['library', 'add', '--album', 'Trip', media.red, media.blue]);
  const { page, problems } = await openHome(t, home);

  await walkToTemplate(page, { album: 'Trip (2)', last: 1 });
  await page.locator('.summary').waitFor();
  await page.locator('.summary-list .item').nth(1).click();
  await page.locator('.adjust').getByRole('button', { name: 'Rotate', exact: true }).click();
  const badge = page.locator('.summary-list li').nth(1).getByText('adjusted');
  await badge.waitFor();
  const loaded = () => page.waitForFunction(() => {
    const img = document.querySelector('.frame img');
    return img?.complete && img.naturalWidth > 0 && [...document.querySelectorAll('.summary-list img')].every((i) => i.complete && i.naturalWidth > 0);
  });
  await loaded();
  await screenshotsWithPhone(page, 'walk-summary-settings-button');

  await page.locator('.summary header').getByRole('button', { name: 'Settings', exact: true }).click();
  await page.getByRole('heading', { name: 'Photo DPI' }).waitFor();
  assert.equal(await walkKinds(page), 'home summary +settings');
  const before = await page.locator('.frame img').count();
  assert.equal(before, 0, 'the settings screen replaces the summary in the page');
  await page.getByRole('button', { name: '‹ Back' }).click();
  await page.locator('.summary .frame img').waitFor();
  assert.equal(await walkKinds(page), 'home summary');
  await badge.waitFor();
  assert.equal(await page.locator('.summary-list li').nth(0).getByText('adjusted').count(), 0);
  assert.equal(await page.locator('.summary-list .item[aria-current=true] .name').textContent(), 'b-blue.jpg');
  await loaded();
  assert.match(await page.locator('.frame img').getAttribute('src'), /[?&]at=\d+/, 'the preview is asked for again');
  // Undo still has the rotation to take back: the session is the one the settings were opened over.
  await page.locator('.adjust').getByRole('button', { name: 'Undo', exact: true }).click();
  await badge.waitFor({ state: 'detached' });
  assert.deepEqual(problems, []);
});
