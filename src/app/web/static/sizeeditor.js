// The size editor of one media type: the width and height fields, the unit, the size-mode and
// method buttons, swap and ratio direction, the recent sizes and the output format. Every
// change goes to the server's editor, which answers what the screen shows; "Next" hands the
// size on and the server's walk tells which screen follows. The width and height stay typed
// until the fields are done (the "Done" button, Enter, or any other control), so that a size
// half typed never becomes the current or a recent size.
import { h } from './api.js';
import { showPrompt } from './dialogs.js';
import { flowCall, followFlow } from './flow.js';

const units = [['px', 'PX'], ['%', '%'], ['down', 'Ratio ↓'], ['up', 'Ratio ↑']];

export class SizeEditorScreen {
  constructor(app) {
    this.app = app;
    this.flow = app.state.flow;
    const editor = this.flow.editor;
    this.title = `Size ${editor.title}`;
    this.body = h('div', { class: 'size-editor' });
    this.element = h('section', { class: 'screen size' },
      h('header', { class: 'nav-bar' }, h('button', { class: 'back', onclick: () => this.call('/api/flow/back', {}, true) }, '‹ Back'),
        h('h1', { title: `${editor.title} (${editor.count})` }, `${editor.title} (${editor.count})`)),
      this.body,
      h('footer', {},
        h('button', { onclick: () => this.save() }, 'Save'),
        h('button', { class: 'primary', id: 'next', onclick: () => this.call('/api/flow/next', {}, true) }, 'Next')));
  }

  enter() { this.draw(); }

  // One call at a time, in the order of the user's actions: a field's change sent as it loses
  // focus reaches the server before the button that took the focus.
  call(path, body, follow = false) {
    this.queue = (this.queue || Promise.resolve()).then(() => this.send(path, body, follow));
    return this.queue;
  }

  async send(path, body, follow) {
    try {
      const answer = await flowCall(path, { screen: this.flow.screen.id, ...body });
      if (follow || answer.screen.id !== this.flow.screen.id) return followFlow(this.app, answer);
      this.flow = this.app.state.flow = answer;
      this.draw();
      return answer;
    } catch (error) {
      this.app.fail(error);
    }
  }

  edit(edits, extra = {}) {
    this.sent = Object.fromEntries(edits);
    return this.call('/api/flow/editor', { edits, ...extra });
  }

  async save() {
    const name = await showPrompt({ title: 'Name', okLabel: 'Save' });
    if (name === null) return;
    const answer = await this.call('/api/flow/save', { name });
    if (answer?.saved) this.note.textContent = `Saved as ${name || answer.saved}`;
  }

  draw() {
    const editor = this.flow.editor;
    const kept = this.focused();
    const side = (v) => (v === 'auto' || v === 0 ? '' : String(v));
    const field = (name, label) => h('label', { class: 'field' }, label,
      h('input', { type: 'text', inputmode: 'numeric', name, 'aria-label': label, value: side(editor.typing[name]), placeholder: 'Auto',
        onchange: (e) => this.edit([[name, e.target.value]]),
        onkeydown: (e) => {
          if (e.key !== 'Enter') return;
          e.preventDefault();
          this.edit([[name, e.target.value]], { done: true });
        } }));
    const unit = h('select', { 'aria-label': 'Unit', onchange: (e) => this.edit([['type', e.target.value]]) },
      units.map(([value, label]) => h('option', { value, selected: editor.typing.unit === value }, label)));
    const done = h('button', { type: 'button', onclick: () => this.edit([], { done: true }) }, 'Done');
    const buttons = h('div', { class: 'tools options', role: 'group', 'aria-label': 'Options' },
      editor.buttons.map((b) => h('button', { type: 'button', 'aria-pressed': String(b.selected),
        onclick: () => this.edit([[b.option <= 1 ? 'mode' : 'method', ['normal', 'smart', '', 'clip', 'fit', 'stretch'][b.option]]]) }, b.title)));
    const swap = h('button', { type: 'button', disabled: !editor.swapControl.enabled,
      'aria-label': 'Swap width and height', onclick: () => this.edit([], { swap: true }) }, '⇄');
    const ratio = editor.ratioToggle.enabled
      ? h('button', { type: 'button', onclick: () => this.edit([], { toggleRatio: true }) }, 'Ratio ↑↓') : null;
    const formats = h('select', { 'aria-label': 'Format', onchange: (e) => this.edit([['format', e.target.value]]) },
      editor.formats.map((f) => h('option', { value: f.name, selected: f.selected }, f.name)));
    const recents = h('ul', { class: 'recent-sizes', 'aria-label': 'Recent sizes' },
      editor.recentSizes.map((text, index) => h('li', {},
        h('button', { type: 'button', class: index === 0 ? 'current' : '', onclick: () => this.edit([], { recent: index }) }, text))));
    this.note = h('p', { class: 'note', 'aria-live': 'polite' },
      editor.refused.length ? `Refused: ${editor.refused.join(', ')}` : `${editor.result.size} · ${editor.result.method} · ${editor.result.format}`);
    this.body.replaceChildren(
      h('div', { class: 'size-main' },
        h('div', { class: 'tools fields' }, field('width', 'Width'), swap, field('height', 'Height'), unit, ratio, done),
        buttons,
        h('label', { class: 'field' }, 'Format', formats),
        this.note),
      recents);
    this.refocus(kept);
  }

  // The control that has the focus, and a field's text typed since it was last sent.
  focused() {
    const active = document.activeElement;
    if (!active || !this.body.contains(active)) return null;
    const key = active.name || active.getAttribute('aria-label') || active.textContent;
    const typed = active.name && active.value !== this.sent?.[active.name] && active.value !== active.defaultValue;
    return { key, value: typed ? active.value : null };
  }

  // A redraw keeps the user where they were, with what they are typing.
  refocus(kept) {
    if (!kept) return;
    const control = [...this.body.querySelectorAll('input, select, button')]
      .find((c) => (c.name || c.getAttribute('aria-label') || c.textContent) === kept.key);
    if (!control) return;
    if (kept.value !== null) control.value = kept.value;
    control.focus();
  }
}
