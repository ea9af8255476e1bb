// The template choice: the catalogue's sections, recents and the user's own templates, with
// search as the server does it.
import { api, h } from './api.js';

export class TemplateScreen {
  constructor(app) {
    this.app = app;
    this.title = 'Templates';
    this.sections = h('div', { class: 'sections' });
    const search = h('input', { type: 'search', placeholder: 'Search', 'aria-label': 'Search templates',
      oninput: (e) => this.load(e.target.value) });
    this.element = h('section', { class: 'screen templates' },
      h('header', {}, h('button', { class: 'back', onclick: () => app.show('home') }, '‹ Back'), h('h1', {}, 'Templates'), search),
      this.sections);
  }

  enter() { return this.load(''); }

  async load(text) {
    const ticket = (this.ticket = (this.ticket || 0) + 1);
    const { sections } = await api(`/api/templates?search=${encodeURIComponent(text)}`);
    if (ticket !== this.ticket) return;
    this.sections.replaceChildren(...sections.map((section) => h('section', { class: 'group' },
      h('h2', {}, section.title), section.subtitle ? h('p', { class: 'subtitle' }, section.subtitle) : null,
      h('ul', { class: 'template-list' }, section.items.map((item) => h('li', {},
        h('button', { class: 'template', onclick: () => this.choose(item) },
          h('strong', {}, item.title || item.identifier),
          h('span', { class: 'detail' }, (item.subtitles || []).filter((s) => s.trim()).join(' · ')))))))));
  }

  choose(item) {
    this.app.state.template = item;
    this.app.show('summary');
  }
}
