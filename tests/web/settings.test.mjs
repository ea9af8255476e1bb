// The settings screens: settings changed in the page are what `unwarp settings` reads back from
// the same home, a value the setting refuses is told and changes nothing, and a change made by
// another process shows when the screen is opened again.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import path from 'node:path';
import { makeHome, screenshotDir, unwarp, screenshots, openHome } from './support.mjs';

const stored = (home, key) => unwarp(home, ['settings', 'get', key]).trim();

test('settings: change in the page, read back on the command line', async (t) => {
  const home = makeHome();
  t.after(home.cleanup);
  const { page, problems } = await openHome(t, home);
  await page.getByRole('button', { name: 'Settings' }).click();

  // Processing: the encoding choices with their words.
  await page.getByRole('heading', { name: 'Photo DPI' }).waitFor();
  for (const words of ['Use original photo DPI', 'Detect source codecs from video tracks',
    'Use original video bitrate, recalculated for a new size', 'JPEG / HEIC Quality',
    'Show alert when exceeding maximum permitted size. Turn off to automatically apply smaller sizes.']) {
    assert.ok(await page.getByText(words, { exact: true }).count(), words);
  }
  await screenshots(page, 'settings-processing');
  await page.getByRole('switch', { name: 'Notify when exceeding max size' }).uncheck();
  await page.getByRole('combobox', { name: 'Standard' }).selectOption({ label: 'HEVC' });
  await page.getByRole('slider', { name: 'Quality' }).fill('70');
  const bitrate = page.locator('[data-key="videoBitrate"] input');
  await bitrate.fill('11,5');
  await bitrate.press('Tab');
  await page.locator('[data-key="videoBitrate"] input[value="11.5"]').waitFor();

  // A bit rate with three decimals is refused with its reason, and the field shows the stored one.
  await bitrate.fill('11.555');
  await bitrate.press('Tab');
  const refusal = page.getByRole('dialog').filter({ hasText: 'at most two decimals' });
  await refusal.waitFor();
  await refusal.getByRole('button', { name: 'Ok' }).click();
  await page.waitForFunction(() => document.querySelector('[data-key="videoBitrate"] input').value === '11.5');

  await page.getByRole('button', { name: 'Saving' }).click();
  await page.getByRole('switch', { name: 'Auto-Save', exact: true }).check();
  await screenshots(page, 'settings-saving');
  await page.getByRole('button', { name: 'Filenames' }).click();
  await page.getByText('Ask for a filename when sharing').click();
  await page.getByRole('switch', { name: 'Add \'-uwrp\' suffix' }).check();
  const base = page.getByRole('textbox', { name: 'Base name' });
  await base.fill('trip');
  await base.press('Tab');
  await page.locator('[data-key="exportFilenameBasename"] input[value="trip"]').waitFor();
  await screenshots(page, 'settings-filenames');
  await page.setViewportSize({ width: 390, height: 844 });
  await screenshots(page, 'settings-filenames-phone');
  await page.setViewportSize({ width: 1000, height: 720 });
  await page.getByRole('button', { name: 'Appearance' }).click();
  await page.getByRole('combobox', { name: 'Theme' }).selectOption({ label: 'Dark' });
  // The page takes the stored theme at once, whatever the browser prefers.
  await page.waitForFunction(() => getComputedStyle(document.body).backgroundColor === 'rgb(24, 25, 24)');
  await page.screenshot({ path: path.join(screenshotDir, 'settings-appearance-stored-dark.png') });

  const expected = {
    notifyExceedingMaxSizeDisabled: 'notifyExceedingMaxSizeDisabled = true (sizes over the limit are made smaller)',
    videoCodecType: 'videoCodecType = 2',
    photoJPEGCompression: 'photoJPEGCompression = 70',
    videoBitrate: 'videoBitrate = 11.5 (not used while videoBitrateAuto is true)',
    autoSaveDisabled: 'autoSaveDisabled = false (results are saved to the library)',
    exportFilenameType: 'exportFilenameType = 1',
    originalFilenameSuffixActive: 'originalFilenameSuffixActive = true (original names get a suffix)',
    exportFilenameBasename: 'exportFilenameBasename = trip',
    colorThemeType: 'colorThemeType = 2',
  };
  for (const [key, line] of Object.entries(expected)) assert.equal(stored(home.root, key), line);

  // Another process changes a setting; the screen opened again shows it.
  unwarp(home.root, ['settings', 'set', 'isLivePhotoEnabled', 'true']);
  await page.getByRole('button', { name: '‹ Home' }).click();
  await page.getByRole('button', { name: 'Settings' }).click();
  await page.getByRole('button', { name: 'Saving' }).click();
  assert.equal(await page.getByRole('switch', { name: 'Make Live Photos' }).isChecked(), true);
  // ... and the page's own changes are still there beside it.
  assert.equal(stored(home.root, 'autoSaveDisabled'), expected.autoSaveDisabled);

  // The refused bit rate is the one refused request (the browser logs its status too).
  const refused = (p) => (p.startsWith('HTTP 400') && p.endsWith('/api/settings')) || p.includes('status of 400');
  assert.equal(problems.filter((p) => p.startsWith('HTTP 400')).length, 1);
  assert.deepEqual(problems.filter((p) => !refused(p)), []);
});
