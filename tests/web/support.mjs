// What every browser test needs: a scratch home, `unwarp serve` started in it (ready when it
// prints its address), Debian's chromium with a fresh profile, a page that fails the test on
// any console error or failed request, and screenshots in light and dark.
import { spawn, execFileSync } from 'node:child_process';
import { mkdtempSync, mkdirSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { createInterface } from 'node:readline';
import { chromium } from 'playwright-core';

const here = path.dirname(new URL(import.meta.url).pathname);
export const buildDir = process.env.UNWARP_BUILD_DIR || path.resolve(here, '../../build/release');
export const unwarpBinary = path.join(buildDir, 'unwarp');
export const screenshotDir = path.join(buildDir, 'web-screenshots');

export function makeHome() {
  const home = mkdtempSync(path.join(tmpdir(), 'unwarp-web-'));
  return { root: home, cleanup: () => rmSync(home, { recursive: true, force: true }) };
}

export function unwarp(home, args) {
  return execFileSync(unwarpBinary, ['--home', home, ...args], { encoding: 'utf8' });
}

export function run(program, args) {
  return execFileSync(program, args, { encoding: 'utf8', stdio: ['ignore', 'pipe', 'pipe'] });
}

// Starts the server; resolves with its address once it printed it (it listens by then).
export function startServer(home, extra = []) {
  const child = spawn(unwarpBinary, ['--home', home, 'serve', '--port', '0', ...extra], {
    stdio: ['ignore', 'pipe', 'inherit'],
  });
  const started = Date.now();
  return new Promise((resolve, reject) => {
    const lines = createInterface({ input: child.stdout });
    lines.on('line', (line) => {
      const match = line.match(/(http:\/\/\S+)/);
      if (match) resolve({ url: match[1], child, startMs: Date.now() - started, stop: () => stopServer(child) });
    });
    child.on('exit', (code) => reject(new Error(`unwarp serve ended with ${code} before listening`)));
  });
}

function stopServer(child) {
  return new Promise((resolve) => {
    if (child.exitCode !== null) return resolve(child.exitCode);
    child.on('exit', (code) => resolve(code));
    child.kill('SIGTERM');
  });
}

export async function launchBrowser(extraArgs = []) {
  const profile = mkdtempSync(path.join(tmpdir(), 'unwarp-chromium-'));
  const context = await chromium.launchPersistentContext(profile, {
    executablePath: '/usr/bin/chromium',
    headless: true,
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync', ...extraArgs],
    viewport: { width: 1000, height: 720 },
    acceptDownloads: true,
  });
  return { context, close: async () => { await context.close(); rmSync(profile, { recursive: true, force: true }); } };
}

// A page whose console errors and failed requests are collected for the test to check.
export async function watchedPage(context) {
  const page = context.pages()[0] || await context.newPage();
  const problems = [];
  // The event stream is cut when the server ends and the page reconnects on its own.
  const streamCut = (text) => text.includes('ERR_INCOMPLETE_CHUNKED_ENCODING');
  page.on('console', (message) => {
    if (message.type() === 'error' && !streamCut(message.text())) problems.push(`console: ${message.text()}`);
  });
  page.on('pageerror', (error) => problems.push(`page error: ${error.message}`));
  page.on('requestfailed', (request) => {
    const failure = request.failure()?.errorText || '';
    // A download handed to the browser, and the event stream closed by leaving, are no faults.
    if (request.url().includes('/api/events') && streamCut(failure)) return;
    if (failure.includes('ERR_ABORTED') && (request.url().includes('/api/events') || request.url().includes('download') || request.url().includes('/api/zip'))) return;
    problems.push(`request failed: ${request.url()} ${failure}`);
  });
  page.on('response', (response) => {
    if (response.status() >= 400) problems.push(`HTTP ${response.status()}: ${response.url()}`);
  });
  return { page, problems };
}

export async function screenshots(page, name) {
  mkdirSync(screenshotDir, { recursive: true });
  for (const scheme of ['light', 'dark']) {
    await page.emulateMedia({ colorScheme: scheme });
    await page.screenshot({ path: path.join(screenshotDir, `${name}-${scheme}.png`) });
  }
  await page.emulateMedia({ colorScheme: 'light' });
}

// Small test media: photos by ImageMagick, a one-second movie by ffmpeg.
export function makeMedia(folder) {
  mkdirSync(folder, { recursive: true });
  const files = {
    red: path.join(folder, 'a-red.jpg'),
    blue: path.join(folder, 'b-blue.jpg'),
    wide: path.join(folder, 'c-wide.png'),
    movie: path.join(folder, 'd-movie.mp4'),
  };
  run('convert', ['-size', '320x240', 'gradient:red-yellow', files.red]);
  run('convert', ['-size', '320x240', 'gradient:blue-white', files.blue]);
  // 7000 wide grows past the largest side a result may have: the limit dialog.
  run('convert', ['-size', '7000x10', 'xc:gray', files.wide]);
  run('ffmpeg', ['-v', 'error', '-f', 'lavfi', '-i', 'testsrc=size=320x240:rate=10:duration=1',
    '-pix_fmt', 'yuv420p', '-c:v', 'libx264', files.movie]);
  return files;
}

// Takes each launch step's button (the first mode at the home-screen choice) until the home
// screen shows; answers the steps' titles in order.
export async function passLaunchSteps(page) {
  const seen = [];
  const launchState = () => page.evaluate(() => (document.querySelector('.home') ? 'home'
    : `${document.querySelector('.launch h1')?.textContent}|${document.querySelector('.modes')?.hidden}`));
  for (let guard = 0; guard < 10 && !(await page.locator('.home').count()); ++guard) {
    const before = await launchState();
    seen.push(await page.locator('.launch h1').textContent());
    const mode = page.getByRole('button', { name: 'Mode 1' });
    if (await mode.isVisible()) await mode.click();
    else await page.locator('.launch button.primary').click();
    await page.waitForFunction((b) => (document.querySelector('.home') ? 'home'
      : `${document.querySelector('.launch h1')?.textContent}|${document.querySelector('.modes')?.hidden}`) !== b, before);
  }
  return seen;
}

// Waits until the pictures `selector` names that lie in the window are there and drawn (at
// least one of them), so that a screenshot shows them rather than empty frames.
export async function picturesShown(page, selector) {
  await page.waitForFunction((s) => {
    const shown = [...document.querySelectorAll(s)].filter((img) => {
      const box = img.getBoundingClientRect();
      return box.width > 0 && box.bottom > 0 && box.top < window.innerHeight;
    });
    return shown.length > 0 && shown.every((img) => img.complete && img.naturalWidth > 0);
  }, selector);
}

// The page at phone width (390 x 844), light, then back at the desktop size.
export async function phoneScreenshot(page, name) {
  mkdirSync(screenshotDir, { recursive: true });
  const size = page.viewportSize();
  await page.setViewportSize({ width: 390, height: 844 });
  await page.screenshot({ path: path.join(screenshotDir, `${name}-phone.png`) });
  await page.setViewportSize(size);
}

// Light, dark and phone width (390x844) of what shows now; the viewport comes back after.
export async function screenshotsWithPhone(page, name) {
  await screenshots(page, name);
  await phoneScreenshot(page, name);
}

// Resolves once the process `pid` is stopped (state T in /proc), as after SIGTSTP.
export async function waitUntilStopped(pid) {
  const { readFileSync } = await import('node:fs');
  const { setTimeout: pause } = await import('node:timers/promises');
  const state = () => readFileSync(`/proc/${pid}/stat`, 'utf8').replace(/^.*\) /s, '')[0];
  // The state is looked at, not guessed: a short wait between looks spares the processor.
  while (state() !== 'T') await pause(5);
}

// Server and page at the home screen, the launch steps passed; both end with the test.
export async function openHome(t, home, { serveArgs = [], browserArgs = [] } = {}) {
  const server = await startServer(home.root, serveArgs);
  t.after(server.stop);
  const browser = await launchBrowser(browserArgs);
  t.after(browser.close);
  const { page, problems } = await watchedPage(browser.context);
  await page.goto(server.url);
  await passLaunchSteps(page);
  await page.locator('.home').waitFor();
  return { server, page, problems };
}

// On the template list: the template found by `search`, chosen by its name.
export async function chooseTemplate(page, search = '1.33', name = /Unwarp 1\.33x/) {
  await page.getByRole('searchbox', { name: 'Search templates' }).fill(search);
  await page.getByRole('button', { name }).first().click();
}

// The walk from the home screen to a chosen template: the album button `album` (its title and
// count), the items `first` to `last` picked by a click and a shift-click, "Next", and the
// template as chooseTemplate finds it.
export async function walkToTemplate(page, { album, first = 0, last, search, name }) {
  await page.getByRole('button', { name: album }).click();
  const cells = page.locator('uw-grid .cell img');
  await cells.nth(last).waitFor();
  await cells.nth(first).click();
  await cells.nth(last).click({ modifiers: ['Shift'] });
  await page.getByRole('button', { name: 'Next' }).click();
  await chooseTemplate(page, search, name);
}
