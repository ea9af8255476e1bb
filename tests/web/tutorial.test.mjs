// The tutorial's walk in the page: started from the home screen while it is due, a focus with
// its text at each step that moves on as the user does the step, the note when the run ends,
// the focus on the way back, and the tutorial complete once home is reached again.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import path from 'node:path';
import { makeHome, makeMedia, unwarp, screenshots, openHome, chooseTemplate, picturesShown } from './support.mjs';

test('tutorial: focus texts step by step, the note, and the way back', async (t) => {
  const home = makeHome();
  t.after(home.cleanup);
  const media = makeMedia(path.join(home.root, 'media'));
  unwarp(home.root, ['library', 'add', '--album', 'Trip', media.red, media.blue]);
  const { page, problems } = await openHome(t, home);

  const focus = page.locator('.tutorial-focus');
  const focusSays = async (text, target) => {
    await focus.filter({ hasText: text }).waitFor();
    assert.equal(await focus.getAttribute('data-target'), target);
    assert.equal(await page.locator('.tutorial-target').count(), 1, `the ${target} is in focus`);
  };
  await page.getByRole('button', { name: 'Tutorial' }).click();
  await focusSays('Select the first photo', 'grid');
  // The marked word is set apart.
  assert.equal(await focus.locator('.styled-red').textContent(), 'photo');
  await screenshots(page, 'tutorial-home');
  await page.setViewportSize({ width: 390, height: 844 });
  await screenshots(page, 'tutorial-home-phone');
  await page.setViewportSize({ width: 1000, height: 720 });

  await page.getByRole('button', { name: 'Trip (2)' }).click();
  const cells = page.locator('uw-grid .cell img');
  await cells.nth(1).waitFor();
  // Still the same step until a photo is selected.
  await focusSays('Select the first photo', 'grid');
  await cells.nth(0).click();
  await cells.nth(1).click({ modifiers: ['Shift'] });
  await focusSays('Tap Next to choose a template', 'nextButton');
  await page.getByRole('button', { name: 'Next' }).click();
  await focusSays('Choose a template for the selection', 'templateList');
  await picturesShown(page, '.templates .template-row img.picture');
  await screenshots(page, 'tutorial-templates');
  await chooseTemplate(page);
  await focusSays('Tap Start to resize the selection', 'startButton');
  await page.locator('#start').click();

  // The run ends at the results step: the note first, then the focus on the way back.
  const note = page.getByRole('dialog').filter({ hasText: 'When Auto-Save is enabled' });
  await note.waitFor({ timeout: 60000 });
  assert.equal(await note.locator('p').textContent(),
    'When Auto-Save is enabled, results are automatically saved to Photo Library in albums Uwrp photos and Uwrp videos, originals - to Uwrp originals');
  assert.deepEqual(await note.locator('.styled-red').allTextContents(), ['Uwrp photos', 'Uwrp videos', 'Uwrp originals']);
  await screenshots(page, 'tutorial-note');
  await note.getByRole('button', { name: 'Next' }).click();
  await focusSays('Tap Back button to return to the Main screen', 'closeButton');
  await screenshots(page, 'tutorial-back');
  await page.locator('.results header .back').click();
  await page.locator('.home').waitFor();
  await focus.waitFor({ state: 'hidden' });

  // Complete: stored as such, so it is not offered again.
  const state = await page.evaluate(async () => (await fetch('/api/tutorial', { headers: { 'X-Unwarp-Token': sessionStorage.getItem('unwarp-token') } })).json());
  assert.equal(state.required, false);
  assert.equal(state.state, 2);
  assert.equal(await page.getByRole('button', { name: 'Tutorial' }).count(), 0);
  assert.deepEqual(problems, []);
});
