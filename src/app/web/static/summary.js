// The summary: the picked items under the chosen template, and the adjust panel of one item.
// Every adjustment is a step sent to the server's adjust session (drags in view points with
// the view's size and the screen's scale); the server answers what the run will do.
import { api, h, thumbnailURL, fileURL } from './api.js';

export class SummaryScreen {
  constructor(app) {
    this.app = app;
    this.title = 'Summary';
    this.items = app.state.picked.map((item) => ({ ...item, steps: [], applyToAll: false }));
    this.list = h('ul', { class: 'summary-list' });
    this.panel = h('div', { class: 'adjust', hidden: true });
    this.note = h('p', { class: 'note', 'aria-live': 'polite' });
    const tpl = app.state.template;
    this.element = h('section', { class: 'screen summary' },
      h('header', {}, h('button', { class: 'back', onclick: () => app.show('templates') }, '‹ Templates'),
        h('h1', {}, tpl.title || tpl.identifier)),
      h('p', { class: 'description' }, tpl.descriptionLine || ''),
      this.list, this.panel, this.note,
      h('footer', {}, h('button', { class: 'primary', id: 'start', onclick: () => this.start() }, 'Start')));
  }

  enter() { this.drawList(); }

  picture(item) {
    return item.id.startsWith('file:') ? fileURL(item.id.slice(5)) : thumbnailURL(item.id, 512);
  }

  drawList() {
    this.list.replaceChildren(...this.items.map((item, index) => h('li', {},
      h('button', { class: 'item', 'aria-label': `Adjust ${item.name || item.id}`, onclick: () => this.openAdjust(index) },
        h('img', { src: this.picture(item), alt: '' }),
        h('span', {}, item.name || item.id),
        item.steps.length ? h('span', { class: 'badge' }, 'adjusted') : null))));
  }

  adjustDocument() {
    const items = this.items.map((item, index) => ({ index: index + 1, steps: item.steps, applyToAll: item.applyToAll || undefined }))
      .filter((item) => item.steps.length);
    return items.length ? { items } : null;
  }

  body() {
    return { assets: this.items.map((i) => i.id), template: this.app.state.template.identifier, adjust: this.adjustDocument() };
  }

  openAdjust(index) {
    const item = this.items[index];
    this.editing = index;
    const frame = h('div', { class: 'frame', tabindex: '0', 'aria-label': 'Drag to shift the picture' });
    const img = h('img', { src: this.picture(item), alt: '', draggable: 'false' });
    frame.append(img);
    if (item.width && item.height) frame.style.aspectRatio = `${item.width} / ${item.height}`;
    let origin = null;
    frame.addEventListener('pointerdown', (e) => {
      origin = { x: e.clientX, y: e.clientY };
      frame.setPointerCapture(e.pointerId);
    });
    frame.addEventListener('pointermove', (e) => {
      if (!origin) return;
      img.style.transform = `translate(${e.clientX - origin.x}px, ${e.clientY - origin.y}px)`;
    });
    frame.addEventListener('pointerup', (e) => {
      if (!origin) return;
      const drag = [e.clientX - origin.x, e.clientY - origin.y];
      origin = null;
      img.style.transform = '';
      if (Math.abs(drag[0]) + Math.abs(drag[1]) < 1) return;
      const box = frame.getBoundingClientRect();
      this.addStep({ drag, view: { width: box.width, height: box.height, scale: devicePixelRatio } });
    });
    frame.addEventListener('keydown', (e) => {
      const moves = { ArrowLeft: [-10, 0], ArrowRight: [10, 0], ArrowUp: [0, -10], ArrowDown: [0, 10] };
      if (!(e.key in moves)) return;
      e.preventDefault();
      const box = frame.getBoundingClientRect();
      this.addStep({ drag: moves[e.key], view: { width: box.width, height: box.height, scale: devicePixelRatio } });
    });
    const button = (label, action) => h('button', { type: 'button', onclick: action }, label);
    this.panel.replaceChildren(
      h('h2', {}, item.name || item.id), frame,
      h('div', { class: 'tools' },
        button('Rotate', () => this.addStep('rotateRight')),
        button('Flip Horizontally', () => this.addStep('flipHorizontally')),
        button('Flip Vertically', () => this.addStep('flipVertically')),
        button('Center', () => this.addStep('center')),
        h('label', {}, h('input', { type: 'checkbox', checked: item.applyToAll, onchange: (e) => { item.applyToAll = e.target.checked; this.check(); } }), 'Apply to All'),
        button('Undo', () => { item.steps.pop(); this.check(); }),
        button('Reset', () => { item.steps = []; this.check(); }),
        button('Done', () => { this.panel.hidden = true; this.drawList(); })));
    this.panel.hidden = false;
    frame.focus();
  }

  addStep(step) {
    this.items[this.editing].steps.push(step);
    this.check();
  }

  // The server runs the steps through the adjust session and tells the resulting shift.
  async check() {
    try {
      const { items } = await api('/api/adjust', this.body());
      const state = items[this.editing] || {};
      const shift = state.shift || { x: 0, y: 0 };
      const turns = state.orientation ? state.orientation.rotation : 0;
      this.note.textContent = `Shift ${Math.round(shift.x)}, ${Math.round(shift.y)} · turns ${turns}`;
    } catch (error) {
      this.note.textContent = error.message;
    }
    this.drawList();
  }

  async start() {
    try {
      this.app.state.run = await api('/api/run', this.body());
      this.app.show('results');
    } catch (error) {
      this.app.fail(error);
    }
  }
}
