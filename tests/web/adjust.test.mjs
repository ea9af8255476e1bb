// The summary's adjust panel against the server's adjust session: the preview the server
// draws, drags along the permitted axis, turns, mirrors and fill colours that reach the written
// files, "Apply to All" and "Undo All", and the buttons the session enables.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import path from 'node:path';
import { makeHome, makeMedia, unwarp, run, screenshots, screenshotDir, openHome, walkToTemplate } from './support.mjs';

// One pixel of a picture file, read by libvips: [r, g, b].
function pixel(file, x, y) {
  return run('vips', ['getpoint', file, String(x), String(y)]).trim().split(/\s+/).slice(0, 3).map(Number);
}

function size(file) {
  return `${run('vipsheader', ['-f', 'width', file]).trim()}x${run('vipsheader', ['-f', 'height', file]).trim()}`;
}

const isRed = ([r, g, b]) => r > 180 && g < 90 && b < 90;
const isYellow = ([r, g, b]) => r > 180 && g > 170 && b < 90;
const isBlue = ([r, g, b]) => b > 180 && r < 90 && g < 90;
const isGreen = ([r, g, b]) => g > 180 && r < 90 && b < 90;
const isWhite = ([r, g, b]) => r > 230 && g > 230 && b > 230;

// Which of the panel's buttons are enabled, as one string per state.
async function enabled(page) {
  const names = ['Rotate', 'Flip Horizontally', 'Flip Vertically', 'Center', 'Undo', 'Reset Current',
    'Apply to All', 'Undo All', 'Reset All', 'Set Fill Color as Default', 'Reset Default Fill Color'];
  const on = [];
  for (const name of names) {
    if (await page.locator('.adjust').getByRole('button', { name, exact: true }).isEnabled()) on.push(name);
  }
  return on.join(', ');
}

// Waits for the panel to show the session's next state, with its preview loaded.
async function settled(page, before) {
  await page.waitForFunction((b) => {
    const img = document.querySelector('.frame img');
    return img && Number(img.dataset.revision) > b && img.complete && img.naturalWidth > 0;
  }, before);
}

async function revision(page) {
  return Number(await page.locator('.frame img').getAttribute('data-revision'));
}

// A change through the panel's control, waited for until the new preview is drawn.
async function change(page, control) {
  const before = await revision(page);
  await control();
  await settled(page, before);
}

async function framePixel(page, fx, fy, name) {
  const file = path.join(screenshotDir, `${name}.png`);
  await page.locator('.frame').screenshot({ path: file });
  const width = Number(run('vipsheader', ['-f', 'width', file]).trim());
  const height = Number(run('vipsheader', ['-f', 'height', file]).trim());
  return pixel(file, Math.round(fx * (width - 1)), Math.round(fy * (height - 1)));
}

test('adjust panel: preview, drag, turns, fill, apply to all, menu states, written files', async (t) => {
  const home = makeHome();
  t.after(home.cleanup);
  const media = makeMedia(path.join(home.root, 'media'));
  unwarp(home.root, ['library', 'add', '--album', 'Trip', media.red, media.blue, media.movie]);
  const { page, problems } = await openHome(t, home);
  await walkToTemplate(page, { album: 'Trip (3)', last: 2, search: 'Instagram Square Fit', name: /Instagram Square Fit/ });

  await page.getByRole('button', { name: 'Adjust a-red.jpg' }).click();
  await page.locator('.frame img').waitFor();
  await page.waitForFunction(() => document.querySelector('.frame img')?.complete);
  // The strip of items keeps its pictures' height above the panel.
  const strip = await page.getByRole('button', { name: 'Adjust b-blue.jpg' }).boundingBox();
  assert.ok(strip.height > 80, `the strip is squeezed to ${strip.height} px`);

  // An untouched photo: only turning and mirroring are offered, and white fills its margins.
  assert.equal(await enabled(page), 'Rotate, Flip Horizontally, Flip Vertically');
  assert.equal(await page.locator('.current-fill').textContent(), '#FFFFFF');
  assert.equal(await page.locator('.frame').getAttribute('data-direction'), 'vertical');

  // A drag over the frame shifts the red picture up and down only, and the frame shows it red
  // all along: the drag selects nothing that would tint it.
  const box = await page.locator('.frame').boundingBox();
  const before = await revision(page);
  await page.mouse.move(box.x + box.width / 2, box.y + box.height / 2);
  await page.mouse.down();
  await page.mouse.move(box.x + box.width / 2 + 30, box.y + box.height / 2 + 60, { steps: 5 });
  const shown = [await framePixel(page, 0.5, 0.3, 'adjust-frame-dragging'), await framePixel(page, 0.02, 0.3, 'adjust-frame-dragging')];
  assert.equal(await page.evaluate(() => String(document.getSelection())), '');
  assert.ok(shown.every(isRed), `the red item shows ${shown.join(' and ')} while dragged`);
  await page.mouse.up();
  await settled(page, before);
  // The server's preview: the top of the picture (red) moved down by the margin, and not
  // sideways; the top margin is the photos' default white.
  const drawn = [await framePixel(page, 0.5, 0.3, 'adjust-frame-dragged'), await framePixel(page, 0.02, 0.3, 'adjust-frame-dragged')];
  assert.ok(drawn.every(isRed), `the red item's preview shows ${drawn.join(' and ')}`);
  assert.ok(isWhite(await framePixel(page, 0.5, 0.05, 'adjust-frame-dragged')), 'the top margin is not the photo default white');
  assert.equal(await enabled(page), 'Rotate, Flip Horizontally, Flip Vertically, Center, Undo, Reset Current, Apply to All, Undo All, Reset All');
  // The keyboard moves it too, and centring puts it back.
  await page.locator('.frame').focus();
  await change(page, () => page.keyboard.press('ArrowUp'));
  await change(page, () => page.getByRole('button', { name: 'Center' }).click());
  assert.ok(isWhite(await framePixel(page, 0.5, 0.1, 'adjust-frame-centred')), 'centring left the picture shifted');
  assert.equal(await page.getByRole('button', { name: 'Center' }).isEnabled(), false);

  // Turn right, mirror left to right, fill with a palette colour: red on the left, yellow on
  // the right, green margins at the sides.
  await change(page, () => page.getByRole('button', { name: 'Rotate' }).click());
  await change(page, () => page.getByRole('button', { name: 'Flip Horizontally' }).click());
  await change(page, () => page.getByRole('button', { name: '#22E043' }).click());
  assert.equal(await page.getByRole('button', { name: '#22E043' }).getAttribute('aria-pressed'), 'true');
  assert.ok(isGreen(await framePixel(page, 0.03, 0.5, 'adjust-frame-turned')), 'the margin is not the chosen green');
  assert.ok(isRed(await framePixel(page, 0.2, 0.5, 'adjust-frame-turned')), 'the mirrored left side is not red');
  assert.ok(isYellow(await framePixel(page, 0.8, 0.5, 'adjust-frame-turned')), 'the mirrored right side is not yellow');
  assert.equal(await page.getByRole('button', { name: 'Set Fill Color as Default' }).isEnabled(), true);
  await page.locator('.summary-body').evaluate((body) => body.scrollTo(0, 0));
  await screenshots(page, 'adjust-panel');

  // "Apply to All" gives the blue photo the same state, and "Undo All" takes it back again
  // while the red one only loses its last step (the green).
  await change(page, () => page.getByRole('button', { name: 'Apply to All' }).click());
  await page.locator('.summary-list li', { hasText: 'b-blue.jpg' }).getByText('adjusted').waitFor();
  await change(page, () => page.getByRole('button', { name: 'Undo All' }).click());
  assert.equal(await page.locator('.summary-list li', { hasText: 'b-blue.jpg' }).getByText('adjusted').count(), 0);
  assert.equal(await page.locator('.current-fill').textContent(), '#FFFFFF');
  assert.equal(await enabled(page), 'Rotate, Flip Horizontally, Flip Vertically, Undo, Reset Current, Apply to All, Undo All, Reset All');
  // A colour of the picker instead.
  await change(page, () => page.getByLabel('Fill Color', { exact: true }).and(page.locator('input')).fill('#00ff00'));
  assert.equal(await page.locator('.current-fill').textContent(), '#00FF00');

  // The movie's margins default to black, and the videos' own session has nothing to undo.
  await page.getByRole('button', { name: 'Adjust d-movie.mp4' }).click();
  await page.locator('.adjust h2', { hasText: 'Edit Video 1/1' }).waitFor();
  assert.equal(await page.locator('.current-fill').textContent(), '#000000');
  assert.equal(await enabled(page), 'Rotate, Flip Horizontally, Flip Vertically');
  // The palette is one tab stop: the arrow keys walk it, Enter takes a colour.
  await page.getByRole('button', { name: '#FFFFFF' }).focus();
  await page.keyboard.press('ArrowRight');
  await change(page, () => page.keyboard.press('Enter'));
  assert.equal(await page.locator('.current-fill').textContent(), '#E8EBE4');
  assert.equal(await page.evaluate(() => document.activeElement.getAttribute('aria-label')), '#E8EBE4');
  // The palette is one tab stop: the arrow keys walk it, Enter takes a colour.
  await page.getByRole('button', { name: '#FFFFFF' }).focus();
  await page.keyboard.press('ArrowRight');
  await change(page, () => page.keyboard.press('Enter'));
  assert.equal(await page.locator('.current-fill').textContent(), '#E8EBE4');
  assert.equal(await page.evaluate(() => document.activeElement.getAttribute('aria-label')), '#E8EBE4');

  // Phone width: the strip, the frame and the controls fit the screen.
  await page.getByRole('button', { name: 'Adjust a-red.jpg' }).click();
  await page.locator('.adjust h2', { hasText: 'Edit Photo 1/2' }).waitFor();
  await page.setViewportSize({ width: 390, height: 844 });
  const frame = await page.locator('.frame').boundingBox();
  assert.ok(frame.x >= 0 && frame.x + frame.width <= 390, `the frame spans ${frame.x}..${frame.x + frame.width}`);
  assert.equal(await page.evaluate(() => document.documentElement.scrollWidth <= 390), true);
  await screenshots(page, 'adjust-phone');
  await page.setViewportSize({ width: 1000, height: 720 });

  await page.getByRole('button', { name: 'Done' }).click();
  await page.locator('#start').click();
  const button = page.locator('#processing');
  await button.filter({ hasText: 'Results' }).waitFor({ timeout: 120000 });
  const store = await page.evaluate(async () => (await fetch('/api/run', { headers: { 'X-Unwarp-Token': sessionStorage.getItem('unwarp-token') } })).json());
  const file = (stem) => store.items.find((i) => path.basename(i.file).startsWith(stem)).file;

  // The red photo as turned, mirrored and filled; the blue one untouched after the undo.
  const red = file('a-red');
  assert.equal(size(red), '1080x1080');
  assert.ok(isGreen(pixel(red, 60, 540)), `red result margin ${pixel(red, 60, 540)}`);
  assert.ok(isRed(pixel(red, 200, 540)), `red result left ${pixel(red, 200, 540)}`);
  assert.ok(isYellow(pixel(red, 880, 540)), `red result right ${pixel(red, 880, 540)}`);
  const blue = file('b-blue');
  assert.equal(size(blue), '1080x1080');
  assert.ok(isWhite(pixel(blue, 540, 60)), `blue result margin ${pixel(blue, 540, 60)}`);
  assert.ok(isBlue(pixel(blue, 540, 200)), `blue result top ${pixel(blue, 540, 200)}`);
  assert.deepEqual(problems, []);
});
