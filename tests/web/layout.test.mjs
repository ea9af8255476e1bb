// The screens at phone width: no screen scrolls sideways, and every row of actions (the home
// tools, the template rows' tools, the results footer) keeps its buttons on one line with
// their labels unclipped, at 390 and at 320 pixels. The tutorial's text never covers the
// control of its step nor what the user works with at that step.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import path from 'node:path';
import { makeHome, unwarp, run, startServer, launchBrowser, watchedPage, screenshots, screenshotDir, passLaunchSteps } from './support.mjs';

const widths = [390, 320];

// Two small photos in an album "Trip".
function makeLibrary(home) {
  const red = path.join(home.root, 'a-red.jpg');
  const blue = path.join(home.root, 'b-blue.jpg');
  run('convert', ['-size', '320x240', 'gradient:red-yellow', red]);
  run('convert', ['-size', '320x240', 'gradient:blue-white', blue]);
  unwarp(home.root, ['library', 'add', '--album', 'Trip', red, blue]);
}

async function start(t) {
  const home = makeHome();
  t.after(home.cleanup);
  makeLibrary(home);
  const server = await startServer(home.root);
  t.after(server.stop);
  const browser = await launchBrowser();
  t.after(browser.close);
  const { page, problems } = await watchedPage(browser.context);
  await page.goto(server.url);
  await passLaunchSteps(page);
  return { page, problems, home };
}

// What the page shows of its width and of each group of buttons: the tops of the group's
// visible buttons, and the buttons whose label is cut or runs onto a second line; of the
// navigation bar, its rows (controls that share no height with the row above start a new one)
// and its title's text and tooltip.
function measure({ groups, bar }) {
  const lines = (element) => {
    const range = document.createRange();
    range.selectNodeContents(element);
    return new Set([...range.getClientRects()].filter((r) => r.width > 0).map((r) => Math.round(r.top))).size;
  };
  return {
    overflow: document.scrollingElement.scrollWidth - window.innerWidth,
    groups: groups.map((selector) => {
      const buttons = [...document.querySelectorAll(selector)].filter((b) => b.getClientRects().length);
      return {
        selector,
        count: buttons.length,
        tops: [...new Set(buttons.map((b) => Math.round(b.getBoundingClientRect().top)))],
        broken: buttons.filter((b) => b.scrollWidth > b.clientWidth + 1 || lines(b) > 1
          || b.getBoundingClientRect().right > window.innerWidth).map((b) => b.textContent || b.getAttribute('aria-label')),
      };
    }),
    bar: bar && (() => {
      const header = document.querySelector(bar);
      const boxes = [...header.querySelectorAll('button, h1, input, select')].filter((c) => c.getClientRects().length).map((c) => c.getBoundingClientRect())
        .sort((a, b) => a.top - b.top);
      let rows = 0;
      let bottom = -Infinity;
      for (const box of boxes) {
        if (box.top >= bottom - 1) [rows, bottom] = [rows + 1, box.bottom];
        else bottom = Math.max(bottom, box.bottom);
      }
      const title = header.querySelector('h1');
      return {
        rows, title: title.textContent, tooltip: title.title, titleLines: lines(title),
        cut: title.scrollWidth > title.clientWidth, ending: getComputedStyle(title).textOverflow,
      };
    })(),
  };
}

// Text whose contrast with what lies under it is below 4.5:1 (WCAG AA for body text), or below
// 3:1 for a disabled control, among the elements the selectors name; a colour is read from its
// computed rgb() or color(srgb). An element faded by opacity (its own or an ancestor's) shows
// its text and face mixed with what lies under the faded box.
function lowContrast(selectors) {
  const channels = (text) => {
    const srgb = text.match(/color\(srgb ([\d.]+) ([\d.]+) ([\d.]+)(?: \/ ([\d.]+))?\)/);
    if (srgb) return [...srgb.slice(1, 4).map((v) => Number(v) * 255), srgb[4] === undefined ? 1 : Number(srgb[4])];
    const [r, g, b, a = 1] = text.match(/[\d.]+/g).map(Number);
    return [r, g, b, a];
  };
  const luminance = ([r, g, b]) => [r, g, b].map((v) => { const c = v / 255; return c <= 0.04045 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4; })
    .reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0);
  const backdrop = (element) => {
    for (let e = element; e; e = e.parentElement) {
      const colour = channels(getComputedStyle(e).backgroundColor);
      if (colour[3] > 0.5) return colour;
    }
    return channels(getComputedStyle(document.body).backgroundColor);
  };
  const faded = (element) => {
    let fade = 1;
    let outer = null;
    for (let e = element; e; e = e.parentElement) {
      const opacity = Number(getComputedStyle(e).opacity);
      if (opacity < 1) [fade, outer] = [fade * opacity, e];
    }
    return { fade, under: outer && backdrop(outer.parentElement) };
  };
  const mix = (colour, under, fade) => colour.map((v, i) => (i < 3 ? v * fade + under[i] * (1 - fade) : 1));
  const found = [];
  for (const selector of selectors) {
    for (const element of document.querySelectorAll(selector)) {
      if (!element.getClientRects().length || !element.textContent.trim()) continue;
      let text = channels(getComputedStyle(element).color);
      let face = backdrop(element);
      const { fade, under } = faded(element);
      if (under) [text, face] = [mix(text, under, fade), mix(face, under, fade)];
      const [l1, l2] = [luminance(text), luminance(face)].sort((a, b) => b - a);
      const ratio = (l1 + 0.05) / (l2 + 0.05);
      if (ratio < (element.disabled ? 3 : 4.5)) found.push(`${selector} "${element.textContent.trim().slice(0, 30)}" ${ratio.toFixed(2)}`);
    }
  }
  return found;
}

// The page takes the stored theme (colorThemeType) as the settings screen makes it do: a fresh
// /theme.css after the one app.css imported.
async function storeTheme(page, home, type) {
  unwarp(home.root, ['settings', 'set', 'colorThemeType', type]);
  await page.evaluate(() => new Promise((resolve, reject) => {
    document.getElementById('theme-reloaded')?.remove();
    const link = Object.assign(document.createElement('link'), { id: 'theme-reloaded', rel: 'stylesheet', href: `/theme.css?at=${Date.now()}` });
    link.onload = resolve;
    link.onerror = reject;
    document.head.append(link);
  }));
}

// In the browser's light and dark, and in the theme stored against the browser's preference
// (dark chosen while the browser prefers light, and light while it prefers dark).
async function checkContrast(page, selectors, home) {
  for (const colorScheme of ['light', 'dark']) {
    await page.emulateMedia({ colorScheme });
    assert.deepEqual(await page.evaluate(lowContrast, selectors), [], `text readable in ${colorScheme}`);
  }
  for (const [type, colorScheme, name] of [['2', 'light', 'stored dark'], ['1', 'dark', 'stored light']]) {
    await page.emulateMedia({ colorScheme });
    await storeTheme(page, home, type);
    assert.deepEqual(await page.evaluate(lowContrast, selectors), [], `text readable in ${name}`);
  }
  await storeTheme(page, home, '0');
  await page.emulateMedia({ colorScheme: 'light' });
}

// Each control the Tab key reaches shows a focus ring of at least 2 px.
async function checkFocusRings(page, stops) {
  const unmarked = [];
  for (let i = 0; i < stops; ++i) {
    await page.keyboard.press('Tab');
    const ring = await page.evaluate(() => {
      const style = getComputedStyle(document.activeElement);
      const shown = style.outlineStyle !== 'none' && parseFloat(style.outlineWidth) >= 2;
      return shown ? null : document.activeElement.outerHTML.slice(0, 60);
    });
    if (ring) unmarked.push(ring);
  }
  assert.deepEqual(unmarked, [], 'the keyboard focus shows');
}

// Checks the screen at each phone width (screenshots at 390 light and dark, 320 light); with
// `bar`, that its navigation bar keeps `rows` rows with a title on one line, whole in its tooltip.
async function checkScreen(page, name, groups, bar, rows = 1) {
  const size = page.viewportSize();
  const bars = [];
  for (const width of widths) {
    await page.setViewportSize({ width, height: 844 });
    const shown = await page.evaluate(measure, { groups, bar });
    assert.ok(shown.overflow <= 0, `${name} at ${width} px scrolls sideways by ${shown.overflow} px`);
    if (bar) {
      assert.equal(shown.bar.rows, rows, `${name} at ${width} px: the navigation bar's rows`);
      assert.equal(shown.bar.titleLines, 1, `${name} at ${width} px: the title on one line`);
      if (shown.bar.cut) {
        assert.deepEqual([shown.bar.tooltip, shown.bar.ending], [shown.bar.title, 'ellipsis'], `${name} at ${width} px: a cut title`);
      }
      bars.push({ width, ...shown.bar });
    }
    for (const group of shown.groups) {
      assert.ok(group.count > 0, `${name} at ${width} px shows ${group.selector}`);
      assert.equal(group.tops.length, 1, `${name} at ${width} px: ${group.selector} on one row (tops ${group.tops})`);
      assert.deepEqual(group.broken, [], `${name} at ${width} px: labels of ${group.selector} whole and on one line`);
    }
    if (width === 390) await screenshots(page, `layout-${name}-390`);
    else await page.screenshot({ path: path.join(screenshotDir, `layout-${name}-${width}.png`) });
  }
  await page.setViewportSize(size);
  return bars;
}

test('layout: every screen fits a phone and keeps its rows of actions on one line', async (t) => {
  const { page, problems, home } = await start(t);

  // The home tools with the tutorial's offer, the longest row the home screen has.
  await page.getByRole('button', { name: 'Tutorial' }).waitFor();
  await page.getByRole('button', { name: 'Trip (2)' }).click();
  const cells = page.locator('uw-grid .cell img');
  await cells.nth(1).waitFor();
  await checkScreen(page, 'home', ['.home header .tools > *:not(.hidden)']);
  // Next stays disabled until something is selected: a disabled primary button still reads.
  assert.ok(await page.locator('.home footer button.primary').isDisabled());
  await checkContrast(page, ['.home .count', '.home .chip', '.home header button', '.home footer button.primary'], home);
  await page.locator('.home h1').click();
  await checkFocusRings(page, 8);

  await cells.nth(0).click();
  await cells.nth(1).click({ modifiers: ['Shift'] });
  await page.getByText('2 photos / 0 videos selected').waitFor();
  await page.getByRole('button', { name: 'Next' }).click();
  await page.getByRole('button', { name: 'New Template' }).click();
  await page.getByRole('textbox', { name: 'Name' }).fill('A poster for the hall');
  await page.getByRole('dialog').getByRole('button', { name: 'Save' }).click();
  const own = page.locator('[data-list=own] .template-row');
  await own.first().waitFor();
  await checkContrast(page, ['.templates .subtitle', '.templates .smart-note', '.templates .template .detail', '.templates header button'], home);
  // The bar: back, title and New Template on top, the search beside Custom Size under them.
  await checkScreen(page, 'templates', ['.templates header :is(.back, .new)', '.templates header :is(input, .custom)',
    '[data-list=own] .template-row:first-child .row-tools > *'], '.templates > header', 2);
  // The tools keep their names for the keyboard and screen readers when they show icons.
  await page.setViewportSize({ width: 390, height: 844 });
  await page.getByRole('button', { name: 'Duplicate A poster for the hall' }).click();
  await own.nth(1).waitFor();
  await page.setViewportSize({ width: 1000, height: 720 });

  // The catalogue's longest title, which a phone's navigation bar cannot show whole.
  await page.getByRole('searchbox', { name: 'Search templates' }).fill('15-16 Plus');
  await page.getByRole('button', { name: /14-15 Pro Max, 15-16 Plus/ }).first().click();
  await page.locator('#start').waitFor();
  const bars = await checkScreen(page, 'summary', ['.summary footer button'], '.summary > header');
  assert.ok(bars.find((b) => b.width === 320).cut, 'the long title is cut at 320 px');
  await page.setViewportSize({ width: 320, height: 844 });
  await page.locator('.summary header').getByRole('button', { name: 'Settings', exact: true }).waitFor();
  await page.setViewportSize({ width: 1000, height: 720 });
  // An adjusted item wears its green mark.
  await page.locator('.summary-list .item').first().click();
  await page.locator('.adjust').getByRole('button', { name: 'Rotate', exact: true }).click();
  await page.locator('.summary-list .badge').first().waitFor();
  await checkContrast(page, ['.summary-list .badge', '.summary-list .name', '.summary header button', '.adjust .tools button'], home);
  await page.locator('.adjust').getByRole('button', { name: 'Done', exact: true }).click();

  await page.locator('#start').click();
  await page.locator('#processing').filter({ hasText: 'Results' }).waitFor({ timeout: 60000 });
  await page.locator('.result input[type=checkbox]').first().check();
  await page.locator('#clear').waitFor();
  await checkContrast(page, ['.results .selection-title', '.result a', '.results footer button'], home);
  await checkScreen(page, 'results', ['.results footer .actions > button'], '.results > header');
  const footer = await page.locator('.results footer .actions > button:not([hidden])').allTextContents();
  assert.ok(footer.length >= 4, `the footer offers clear, download, export and share: ${footer}`);

  await page.locator('.results header .back').click();
  await page.getByRole('button', { name: 'Settings', exact: true }).click();
  await page.locator('.settings-row').first().waitFor();
  await checkContrast(page, ['.settings-footer', '.settings-section h3', '.settings-row .unit', '.settings-tabs .chip'], home);
  await checkScreen(page, 'settings', [], '.settings > header');
  // At phone width the screens are chosen in a list, which shows the chosen one.
  await page.setViewportSize({ width: 390, height: 844 });
  assert.equal(await page.locator('.settings-tabs').isVisible(), false);
  const picker = page.getByRole('combobox', { name: 'Settings screens' });
  const titles = await picker.locator('option').allTextContents();
  assert.ok(titles.length > 1);
  await picker.selectOption({ label: titles[1] });
  await page.locator('.settings-screen-title').filter({ hasText: titles[1] }).waitFor();
  await page.setViewportSize({ width: 1000, height: 720 });
  assert.equal(await picker.isVisible(), false);
  assert.equal(await page.locator('.settings-tabs [aria-pressed=true]').textContent(), titles[1]);
  assert.deepEqual(problems, []);
});

// Whether the bubble is inside the window, and which of the named elements it overlaps; with
// `wait`, null until it is inside and clear of them all (for waitForFunction to poll).
function covered({ selectors, wait }) {
  const bubble = document.querySelector('.tutorial-focus').getBoundingClientRect();
  const inside = bubble.top >= 0 && bubble.left >= 0 && bubble.bottom <= window.innerHeight && bubble.right <= window.innerWidth;
  const hit = selectors.filter((selector) => {
    const box = document.querySelector(selector).getBoundingClientRect();
    return box.left < bubble.right && bubble.left < box.right && box.top < bubble.bottom && bubble.top < box.bottom;
  });
  if (wait && !(inside && hit.length === 0)) return null;
  return { inside, hit, overflow: document.scrollingElement.scrollWidth - window.innerWidth };
}

test('layout: the tutorial text covers neither the step\'s control nor the controls used with it', async (t) => {
  const { page, problems, home } = await start(t);
  const focus = page.locator('.tutorial-focus');
  const sizes = [{ width: 1000, height: 720 }, { width: 390, height: 844 }, { width: 320, height: 640 }];
  const checkStep = async (text, selectors) => {
    await focus.filter({ hasText: text }).waitFor();
    for (const size of sizes) {
      await page.setViewportSize(size);
      // The bubble follows the layout on resize; wait until it stands clear, then check.
      await page.waitForFunction(covered, { selectors, wait: true }, { timeout: 3000 }).catch(() => {});
      const shown = await page.evaluate(covered, { selectors });
      assert.ok(shown.inside, `"${text}" inside the window at ${size.width} px`);
      assert.deepEqual(shown.hit, [], `"${text}" at ${size.width} px covers nothing of its step`);
      assert.ok(shown.overflow <= 0, `no sideways scroll at ${size.width} px`);
    }
    await page.setViewportSize(sizes[0]);
  };

  await page.getByRole('button', { name: 'Tutorial' }).click();
  await checkStep('Select the first photo', ['.home uw-grid', '.home .albums', '.home header select']);
  await checkContrast(page, ['.tutorial-focus p', '.tutorial-focus .styled-red'], home);
  await page.setViewportSize({ width: 390, height: 844 });
  await screenshots(page, 'layout-tutorial-home-390');
  await page.setViewportSize(sizes[0]);
  // The albums stay usable under the focus.
  await page.getByRole('button', { name: 'Trip (2)' }).click();
  const cells = page.locator('uw-grid .cell img');
  await cells.nth(0).click();
  await checkStep('Tap Next to choose a template', ['.home footer button.primary']);
  await page.getByRole('button', { name: 'Next' }).click();
  await page.locator('.template-row').first().waitFor();
  await checkStep('Choose a template for the selection', ['.templates .sections', '.templates header input[type=search]']);
  await page.setViewportSize({ width: 390, height: 844 });
  await screenshots(page, 'layout-tutorial-templates-390');
  assert.deepEqual(problems, []);
});
