// The home grid over a large album: it scrolls to its end with pictures there and only the
// cells in view in the page, and picks items by click, shift-click (over pages never
// scrolled through) and dragging across cells. Another album empties the grid until its first
// items come, so no click lands on a cell of the album left.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { linkSync, mkdirSync } from 'node:fs';
import path from 'node:path';
import { makeHome, unwarp, run, screenshots, openHome } from './support.mjs';

const COUNT = 2000;

// `count` photos as hard links of four small JPEGs, added to the album `album` by one call.
function makeAlbum(home, count = COUNT, album = 'Big') {
  const folder = path.join(home, 'media');
  mkdirSync(folder, { recursive: true });
  const colours = ['red', 'green', 'blue', 'orange'];
  for (const colour of colours) run('convert', ['-size', '96x72', `gradient:${colour}-white`, path.join(folder, `${colour}.jpg`)]);
  const files = [];
  for (let i = 0; i < count; ++i) {
    files.push(path.join(folder, `p${String(i).padStart(4, '0')}.jpg`));
    linkSync(path.join(folder, `${colours[i % 4]}.jpg`), files[i]);
  }
  unwarp(home, ['library', 'add', '--album', album, ...files]);
}

// What a user sees of the grid: the indexes of the cells shown selected, the footer's words.
async function shownSelection(page) {
  const indexes = await page.locator('uw-grid .cell[aria-selected="true"]').evaluateAll(
    (cells) => cells.map((c) => Number(c.dataset.index)).sort((a, b) => a - b));
  return { indexes, footer: await page.locator('.home footer .count').textContent() };
}

const range = (a, b) => Array.from({ length: b - a + 1 }, (_, i) => a + i);

test('grid: a large album scrolls to its end and picks by click, shift-click and drag', async (t) => {
  const home = makeHome();
  t.after(home.cleanup);
  makeAlbum(home.root);
  const { page, problems } = await openHome(t, home);
  await page.getByRole('button', { name: `Big (${COUNT})` }).click();
  const grid = page.locator('uw-grid');
  await page.locator('uw-grid .cell[data-index="0"] img').waitFor();

  // A first pick at the top, then a jump to the end past pages never shown.
  await page.locator('uw-grid .cell[data-index="2"]').click();
  await page.getByText('1 photo / 0 videos selected').waitFor();
  await grid.evaluate((g) => { g.scrollTop = g.scrollHeight; });
  const last = page.locator(`uw-grid .cell[data-index="${COUNT - 1}"] img`);
  await last.waitFor();
  await page.waitForFunction((n) => {
    const img = document.querySelector(`uw-grid .cell[data-index="${n}"] img`);
    return img && img.complete && img.naturalWidth > 0;
  }, COUNT - 1);
  const cellsInPage = await page.locator('uw-grid .cell').count();
  assert.ok(cellsInPage < 200, `${cellsInPage} cells in the page for ${COUNT} items`);
  assert.match(await page.locator(`uw-grid .cell[data-index="${COUNT - 1}"]`).getAttribute('title'), /^p\d{4}\.jpg$/);

  // Shift-click takes the range from the first pick to here, the pages between included.
  const columns = await grid.evaluate((g) => g.columns());
  await page.locator(`uw-grid .cell[data-index="${COUNT - 3}"]`).click({ modifiers: ['Shift'] });
  await page.getByText(`${COUNT - 4} photos / 0 videos selected`).waitFor();
  let shown = await shownSelection(page);
  const inView = shown.indexes.length ? range(shown.indexes[0], COUNT - 3) : [];
  assert.deepEqual(shown.indexes, inView);
  assert.ok(!shown.indexes.includes(COUNT - 2) && !shown.indexes.includes(COUNT - 1));

  // A click on a picked cell lets it go; dragging from an unpicked cell across its row picks
  // the cells passed, and from a picked one lets them go.
  await page.locator(`uw-grid .cell[data-index="${COUNT - 3}"]`).click();
  await page.getByText(`${COUNT - 5} photos / 0 videos selected`).waitFor();
  const rowStart = (Math.ceil(COUNT / columns) - 1) * columns - columns;
  const drag = async (from, to) => {
    const a = await page.locator(`uw-grid .cell[data-index="${from}"]`).boundingBox();
    const b = await page.locator(`uw-grid .cell[data-index="${to}"]`).boundingBox();
    await page.mouse.move(a.x + a.width / 2, a.y + a.height / 2);
    await page.mouse.down();
    await page.mouse.move(b.x + b.width / 2, b.y + b.height / 2, { steps: 12 });
    await page.mouse.up();
  };
  // That row is picked by the range already: dragging lets its first three go.
  await drag(rowStart, rowStart + 2);
  await page.getByText(`${COUNT - 8} photos / 0 videos selected`).waitFor();
  shown = await shownSelection(page);
  for (const i of range(rowStart, rowStart + 2)) assert.ok(!shown.indexes.includes(i), `${i} still picked`);
  assert.ok(shown.indexes.includes(rowStart + 3));
  // The last two were never picked: dragging across them picks them.
  await drag(COUNT - 2, COUNT - 1);
  await page.getByText(`${COUNT - 6} photos / 0 videos selected`).waitFor();
  shown = await shownSelection(page);
  assert.ok(shown.indexes.includes(COUNT - 2) && shown.indexes.includes(COUNT - 1));
  assert.ok(!shown.indexes.includes(COUNT - 3));
  await screenshots(page, 'grid-end');

  // Back at the top the first pick is still shown, and the one before it is not.
  await grid.evaluate((g) => { g.scrollTop = 0; });
  await page.locator('uw-grid .cell[data-index="0"]').waitFor();
  shown = await shownSelection(page);
  assert.deepEqual(shown.indexes.filter((i) => i < 10), range(2, 9));
  await screenshots(page, 'grid-top');
  await page.setViewportSize({ width: 390, height: 844 });
  await page.locator('uw-grid .cell[data-index="0"] img').waitFor();
  await screenshots(page, 'grid-phone');
  assert.deepEqual(problems, []);
});

test('grid: another album shows no cells of the album left until its first items come', async (t) => {
  const home = makeHome();
  t.after(home.cleanup);
  makeAlbum(home.root, 6, 'Few');
  const { page, problems } = await openHome(t, home);
  const cells = page.locator('uw-grid .cell:not([hidden])');
  await page.locator('uw-grid .cell[data-index="5"] img').waitFor();
  await page.locator('uw-grid .cell[data-index="1"]').click();
  await page.getByText('1 photo / 0 videos selected').waitFor();

  // The album's first page is held back while the page is looked at.
  let release;
  const held = new Promise((resolve) => { release = resolve; });
  const albumPage = (url) => url.pathname === '/api/library/assets' && url.searchParams.has('album');
  await page.route(albumPage, async (route) => { await held; await route.continue(); });
  await page.getByRole('button', { name: 'Few (6)' }).click();
  assert.equal(await cells.count(), 0, 'cells of the album left still show');
  assert.equal(await page.locator('.home footer .count').textContent(), 'Select photos and videos');
  assert.ok(await page.getByRole('button', { name: 'Next' }).isDisabled());

  release();
  await page.locator('uw-grid .cell[data-index="0"] img').waitFor();
  assert.equal(await cells.count(), 6);
  await page.locator('uw-grid .cell[data-index="3"]').click();
  await page.getByText('1 photo / 0 videos selected').waitFor();
  const picked = await page.locator('uw-grid .cell[aria-selected="true"]').evaluateAll(
    (shown) => shown.map((c) => Number(c.dataset.index)));
  assert.deepEqual(picked, [3]);
  await page.unroute(albumPage);
  assert.deepEqual(problems, []);
});
