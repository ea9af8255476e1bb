// The launch steps of a first start (welcome, photo library, tutorial, home-screen mode, what's
// new): the server's launch controller decides each step and its words; the page shows them.
import { api, h } from './api.js';

export class LaunchScreen {
  constructor(app) {
    this.app = app;
    this.title = 'Welcome';
    this.heading = h('h1', {});
    this.text = h('p', { class: 'launch-text' });
    this.button = h('button', { class: 'primary', onclick: () => this.touch() });
    this.modes = h('div', { class: 'modes', hidden: true },
      h('button', { onclick: () => this.mode(0) }, 'Mode 1'),
      h('button', { onclick: () => this.mode(1) }, 'Mode 2'));
    this.element = h('section', { class: 'screen launch' },
      h('div', { class: 'launch-card' }, this.heading, this.text, this.button, this.modes));
  }

  async enter() { this.draw(await api('/api/launch')); }

  draw(step) {
    if (step.done) return this.app.show('home');
    this.heading.textContent = step.title;
    this.text.textContent = step.text;
    this.button.textContent = step.button;
    this.button.hidden = step.chooseMode;
    this.modes.hidden = !step.chooseMode;
    (step.chooseMode ? this.modes.firstChild : this.button).focus();
  }

  async touch() {
    try { this.draw(await api('/api/launch/button', {})); } catch (error) { this.app.fail(error); }
  }

  async mode(mode) {
    try { this.draw(await api('/api/launch/mode', { mode })); } catch (error) { this.app.fail(error); }
  }
}
