// Alerts with buttons, as the run and the sharing ask them; keyboard first: the first button
// takes the focus and Escape answers with the cancel-like button when there is one.
import { h, styledText } from './api.js';

export function showAlert({ title, message, buttons, kind, runs, reportFolder }) {
  return new Promise((resolve) => {
    const dialog = h('dialog', { class: 'alert', 'data-kind': kind || '' },
      title ? h('h2', {}, title) : null,
      h('p', {}, runs ? styledText(runs) : message || ''),
      // Where an error report went when no mail program took it.
      reportFolder ? h('p', { class: 'report-folder' }, 'The report: ', h('code', {}, reportFolder)) : null);
    const row = h('div', { class: 'buttons' });
    buttons.forEach((label, index) => {
      row.append(h('button', {
        type: 'button',
        onclick: () => { dialog.close(); dialog.remove(); resolve(index); },
      }, label));
    });
    dialog.append(row);
    dialog.addEventListener('cancel', (event) => {
      event.preventDefault();
      const cancel = buttons.findIndex((b) => b === 'Cancel' || b === 'Ok');
      if (cancel >= 0) { dialog.close(); dialog.remove(); resolve(cancel); }
    });
    document.body.append(dialog);
    dialog.showModal();
    row.querySelector('button')?.focus();
  });
}

// A text prompt with a live line under the field: `check(text)` (a promise) answers the line
// and whether the text may be taken; while it may not, the line is the error and the
// accepting button is off.
export function showPrompt({ title, message, value, placeholder, check, okLabel = 'Share' }) {
  return new Promise((resolve) => {
    const input = h('input', { type: 'text', value: value || '', placeholder, 'aria-label': title });
    const line = h('p', { class: 'preview', 'aria-live': 'polite' });
    const ok = h('button', { type: 'button', class: 'primary', onclick: () => finish(input.value) }, okLabel);
    let asked = 0;
    const refresh = async () => {
      if (!check) return;
      const ticket = ++asked;
      const { line: text, valid } = await check(input.value);
      if (ticket !== asked) return;
      line.textContent = text;
      line.classList.toggle('invalid', !valid);
      ok.disabled = !valid;
    };
    input.addEventListener('input', refresh);
    const finish = (result) => {
      if (result !== null && ok.disabled) return;
      dialog.close(); dialog.remove(); resolve(result);
    };
    const dialog = h('dialog', { class: 'alert prompt' },
      h('h2', {}, title), message ? h('p', {}, message) : null, input, line,
      h('div', { class: 'buttons' },
        h('button', { type: 'button', onclick: () => finish(null) }, 'Cancel'), ok));
    input.addEventListener('keydown', (e) => { if (e.key === 'Enter') finish(input.value); });
    document.body.append(dialog);
    dialog.showModal();
    input.focus();
    refresh();
  });
}
