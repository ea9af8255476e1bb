// The summary: the picked items under the chosen template, and the adjust panel of one item.
// The adjust session lives on the server: the page shows its current item as the server draws
// it, reports taps, drags (in view points, with the view's size and the screen's scale) and
// colours, and enables the buttons the session allows.
import { api, h, thumbnailURL } from './api.js';
import { showAlert } from './dialogs.js';
import { flowCall, followFlow } from './flow.js';

// The page's policy refuses style attributes; colours go in through the style object.
function swatch(element, color) {
  element.style.background = color;
  return element;
}

// One tab stop for a grid of controls; the arrow keys move between them.
function rovingFocus(group, controls, current) {
  controls.forEach((control, index) => { control.tabIndex = index === current ? 0 : -1; });
  group.addEventListener('keydown', (e) => {
    const columns = Math.max(1, controls.filter((c) => c.getBoundingClientRect().top === controls[0].getBoundingClientRect().top).length);
    const step = { ArrowRight: 1, ArrowLeft: -1, ArrowDown: columns, ArrowUp: -columns }[e.key];
    const at = controls.indexOf(document.activeElement);
    if (!step || at < 0) return;
    e.preventDefault();
    controls[Math.min(controls.length - 1, Math.max(0, at + step))].focus();
  });
}

const MOVES = { ArrowLeft: [-10, 0], ArrowRight: [10, 0], ArrowUp: [0, -10], ArrowDown: [0, 10] };

export class SummaryScreen {
  constructor(app) {
    this.app = app;
    this.title = 'Summary';
    this.items = app.state.picked;
    this.state = null;
    this.list = h('ul', { class: 'summary-list', 'aria-label': 'Items' });
    this.panel = h('div', { class: 'adjust', hidden: true });
    const tpl = app.state.template;
    this.element = h('section', { class: 'screen summary' },
      h('header', { class: 'nav-bar' }, this.backButton(),
        h('h1', { title: tpl.title || tpl.identifier }, tpl.title || tpl.identifier),
        h('button', {
          class: 'settings-button', title: 'Settings', 'aria-label': 'Settings', dataset: { icon: 'settings' }, onclick: () => this.openSettings(),
        }, 'Settings')),
      h('div', { class: 'summary-body' },
        h('p', { class: 'description' }, tpl.descriptionLine || ''),
        this.list, this.panel),
      h('footer', {}, h('button', { class: 'primary', id: 'start', onclick: () => this.start() }, 'Start')));
  }

  // Back is a step of the server's walk: to the size editor under the summary, or home to the
  // template list with the picked items kept.
  backButton() {
    const flow = this.app.state.flow;
    const under = flow?.stack?.[flow.stack.length - 2];
    const back = async () => {
      try {
        followFlow(this.app, await flowCall('/api/flow/back', { screen: flow.screen.id }));
      } catch (error) {
        this.app.fail(error);
      }
    };
    return h('button', { class: 'back', onclick: back }, under?.kind === 'sizeEditor' ? '‹ Back' : '‹ Templates');
  }

  enter() {
    this.drawList();
    const back = this.app.state.summarySettings;
    delete this.app.state.summarySettings;
    this.opening = back ? this.resume(back) : this.call('/api/adjust/open', { assets: this.items.map((i) => i.id), template: this.app.state.template.identifier });
  }

  // The settings open over the summary; its adjust session stays open under them, and whether
  // the panel was open is remembered.
  openSettings() {
    this.app.state.summarySettings = { panelOpen: !this.panel.hidden };
    this.app.show('settings');
  }

  // Back from the settings the session is the one left, and its items are drawn again, since
  // the settings may have changed the defaults they are drawn with (a new token in the
  // preview's address makes the browser ask the server again).
  async resume(back) {
    this.redrawn = Date.now();
    this.panel.hidden = !back.panelOpen;
    await this.call('/api/adjust');
    this.panel.querySelector('.frame')?.focus();
  }

  picture(item) {
    return thumbnailURL(item.id, 256);
  }

  drawList() {
    const open = !this.panel.hidden;
    this.list.replaceChildren(...this.items.map((item, index) => {
      const adjusted = this.state?.items[index]?.adjusted;
      return h('li', {},
        h('button', {
          class: 'item', 'aria-label': `Adjust ${item.name || item.id}`,
          'aria-current': open && this.state?.current === index ? 'true' : undefined,
          onclick: () => this.openAdjust(index),
        },
        h('img', { src: this.picture(item), alt: '' }),
        h('span', { class: 'name' }, item.name || item.id),
        adjusted ? h('span', { class: 'badge' }, 'adjusted') : null));
    }));
  }

  // Every answer of the session is its whole state; the page draws it as it is.
  async call(path, body) {
    try {
      this.state = await api(path, body);
      if (!this.panel.hidden) this.drawPanel();
      this.drawList();
    } catch (error) {
      this.app.fail(error);
    }
  }

  async openAdjust(index) {
    await this.opening;
    this.panel.hidden = false;
    await this.call('/api/adjust/item', { index });
    this.panel.querySelector('.frame')?.focus();
  }

  act(action) { return this.call('/api/adjust/action', { action }); }

  drag(drag, frame) {
    const box = frame.getBoundingClientRect();
    return this.call('/api/adjust/drag', { drag, view: { width: box.width, height: box.height, scale: devicePixelRatio } });
  }

  drawPanel() {
    const state = this.state;
    if (!state?.menu) return;
    const focused = document.activeElement?.dataset?.control;
    const frame = this.frame(state);
    const menu = state.menu;
    const button = (label, enabled, action, extra = {}) => h('button', {
      type: 'button', disabled: !enabled, 'data-control': label, onclick: action, ...extra,
    }, label);
    this.panel.replaceChildren(
      h('h2', {}, state.title), frame,
      h('div', { class: 'tools', role: 'toolbar', 'aria-label': 'Item' },
        button('Rotate', menu.rotate, () => this.act('rotateRight')),
        button('Flip Horizontally', menu.flip, () => this.act('flipHorizontally')),
        button('Flip Vertically', menu.flip, () => this.act('flipVertically')),
        button('Center', menu.center, () => this.act('center')),
        button('Undo', menu.resetCurrent, () => this.act('undo')),
        button('Reset Current', menu.resetCurrent, () => this.act('resetCurrent'))),
      h('div', { class: 'tools', role: 'toolbar', 'aria-label': 'All items' },
        button('Apply to All', menu.applyToAll, () => this.act('applyToAll')),
        button('Undo All', menu.undoAll, () => this.act('undoAll')),
        button('Reset All', menu.resetAll, () => this.act('resetAll')),
        button('Done', true, () => { this.panel.hidden = true; this.drawList(); })),
      this.colors(state, button));
    if (focused) this.panel.querySelector(`[data-control="${CSS.escape(focused)}"]:not(:disabled)`)?.focus();
  }

  // The output frame with the item drawn by the server; a drag moves the picture along the
  // axis the session permits, and the session decides where it stops.
  frame(state) {
    const ratio = state.frame.width / Math.max(1, state.frame.height);
    const side = Math.min(2048, Math.round(480 * Math.max(1, devicePixelRatio)));
    const img = h('img', {
      src: `/api/adjust/preview?index=${state.current}&size=${side}&v=${state.revision}${this.redrawn ? `&at=${this.redrawn}` : ''}`,
      alt: `Preview of ${this.items[state.current]?.name || ''}`, draggable: 'false',
      'data-revision': state.revision,
    });
    const frame = h('div', {
      class: 'frame', tabindex: '0', 'data-control': 'frame', 'data-direction': state.direction,
      'aria-label': 'Drag to shift the picture',
    }, img);
    frame.style.setProperty('--ratio', ratio);
    let origin = null;
    const along = (dx, dy) => ({
      horizontal: [dx, 0], vertical: [0, dy], both: [dx, dy],
    }[state.direction] || [0, 0]);
    frame.addEventListener('pointerdown', (e) => {
      e.preventDefault();
      frame.focus();
      origin = { x: e.clientX, y: e.clientY };
      frame.setPointerCapture(e.pointerId);
    });
    frame.addEventListener('pointermove', (e) => {
      if (!origin) return;
      const [x, y] = along(e.clientX - origin.x, e.clientY - origin.y);
      img.style.transform = `translate(${x}px, ${y}px)`;
    });
    const end = (e) => {
      if (!origin) return;
      const moved = [e.clientX - origin.x, e.clientY - origin.y];
      origin = null;
      if (Math.abs(moved[0]) + Math.abs(moved[1]) < 1) return;
      this.drag(moved, frame);
    };
    frame.addEventListener('pointerup', end);
    frame.addEventListener('pointercancel', () => { origin = null; img.style.transform = ''; });
    frame.addEventListener('keydown', (e) => {
      if (!(e.key in MOVES)) return;
      e.preventDefault();
      this.drag(MOVES[e.key], frame);
    });
    return frame;
  }

  // The palette: entry 0 opens the colour picker, the others are colours of their own.
  colors(state, button) {
    const swatches = state.palette.map((hex, index) => {
      if (index === 0) {
        const picker = h('input', {
          type: 'color', value: state.fill.selected === 0 ? state.fill.color.toLowerCase() : `#${hex.toLowerCase()}`,
          'aria-label': 'Fill Color', 'data-control': 'picker',
        });
        picker.addEventListener('change', () => this.call('/api/adjust/fill', { color: picker.value }));
        return h('label', { class: 'swatch picker', 'aria-pressed': String(state.fill.selected === 0) }, picker);
      }
      return swatch(h('button', {
        type: 'button', class: 'swatch', 'aria-label': `#${hex}`,
        'aria-pressed': String(state.fill.selected === index), 'data-control': `#${hex}`,
        onclick: () => this.call('/api/adjust/fill', { palette: index }),
      }), `#${hex}`);
    });
    const palette = h('div', { class: 'palette', role: 'group', 'aria-label': 'Fill Color' }, swatches);
    rovingFocus(palette, swatches.map((s) => s.querySelector('input') || s), state.fill.selected ?? 1);
    return h('div', { class: 'fill' },
      palette,
      h('div', { class: 'tools' },
        h('span', { class: 'current-fill' }, swatch(h('span', { class: 'swatch' }), state.fill.color), state.fill.color),
        button('Default', true, () => this.call('/api/adjust/fill', { color: null }), { 'aria-label': 'Default fill color' }),
        button('Set Fill Color as Default', state.menu.setFillColorAsDefault, () => this.confirmDefault()),
        button('Reset Default Fill Color', state.menu.resetDefaultFillColor, () => this.act('resetDefaultFillColor'))));
  }

  async confirmDefault() {
    const { button, message } = this.state.defaultFill;
    const answer = await showAlert({ title: 'Set Fill Color as Default', message, buttons: ['Cancel', button] });
    if (answer === 1) await this.act('setFillColorAsDefault');
  }

  async start() {
    await this.opening;
    try {
      this.app.state.run = await api('/api/run', {
        assets: this.items.map((i) => i.id), template: this.app.state.template.identifier, adjust: 'session',
      });
      this.app.show('results');
    } catch (error) {
      this.app.fail(error);
    }
  }
}
