// The template choice: recents, the collection, the user's own templates and the catalogue's
// sections, with search as the server does it. Own templates are created, renamed, duplicated
// and removed here; choosing a template, or a size of one's own, begins the server's walk.
import { api, h, styledText } from './api.js';
import { showAlert, showPrompt } from './dialogs.js';
import { beginFlow, followFlow } from './flow.js';

// The subtitles carry tokens of the list's styling: "0x2193" and "0x2191" are the arrows of a
// ratio's direction, "[S]" marks a Smart size.
const ARROWS = { '0x2193': '↓', '0x2191': '↑' };

function detailLine(subtitles) {
  const text = subtitles.filter((s) => s.trim()).join(' · ').replace(/0x219[13]/g, (token) => ARROWS[token]);
  return text.split('[S]').flatMap((part, index) => (index ? [h('abbr', { title: 'Smart size' }, '[S]'), part] : [part]));
}

export class TemplateScreen {
  constructor(app) {
    this.app = app;
    this.title = 'Templates';
    this.query = '';
    this.sections = h('div', { class: 'sections' });
    this.search = h('input', { type: 'search', placeholder: 'Search', 'aria-label': 'Search templates',
      oninput: (e) => { this.query = e.target.value; this.load(); } });
    this.element = h('section', { class: 'screen templates' },
      h('header', { class: 'nav-bar search-bar' }, h('button', { class: 'back', onclick: () => app.show('home') }, '‹ Back'), h('h1', {}, 'Templates'), this.search,
        h('div', { class: 'tools' },
          h('button', { class: 'new', title: 'New Template', 'aria-label': 'New Template', dataset: { icon: 'new' }, onclick: () => this.create() }, 'New Template'),
          app.state.picked?.length ? h('button', { class: 'primary custom', onclick: () => this.begin(null) }, 'Custom Size') : null)),
      this.sections);
  }

  enter() { return this.load(); }

  async load() {
    const ticket = (this.ticket = (this.ticket || 0) + 1);
    const { sections } = await api(`/api/templates?search=${encodeURIComponent(this.query)}`);
    if (ticket !== this.ticket) return;
    this.sections.replaceChildren(...sections.map((section) => h('section', { class: 'group', dataset: { list: section.list } },
      h('h2', {}, section.title), section.subtitle ? h('p', { class: 'subtitle' }, section.subtitle) : null,
      section.note ? h('p', { class: 'smart-note' }, styledText(section.note)) : null,
      h('ul', { class: 'template-list' }, section.items.map((item) => this.row(section, item))))));
  }

  row(section, item) {
    const name = item.title || item.identifier;
    const tools = [];
    const act = (label, action) => h('button', { type: 'button', class: 'small', 'aria-label': `${label} ${name}`, title: label, dataset: { icon: label.toLowerCase() }, onclick: action }, label);
    if (section.list === 'own') {
      tools.push(act('Rename', () => this.rename(item)), act('Duplicate', () => this.change('duplicate', { key: item.identifier })),
        act('Remove', () => this.remove(item)));
    } else if (section.list === 'catalogue' || section.list === 'collection') {
      tools.push(h('button', { type: 'button', class: 'small star', 'aria-pressed': String(!!item.inCollection),
        'aria-label': `${item.inCollection ? 'Remove from' : 'Add to'} My Collection: ${name}`,
        onclick: () => this.change('collection', { key: item.identifier, included: !item.inCollection }) }, item.inCollection ? '★' : '☆'));
    }
    return h('li', { class: 'template-row' },
      item.picture ? h('img', { class: 'picture', src: item.picture, alt: '' }) : h('span', { class: 'picture empty', 'aria-hidden': 'true' }),
      h('button', { class: 'template', onclick: () => this.begin(item) },
        h('strong', {}, name),
        h('span', { class: 'detail' }, detailLine(item.subtitles || []))),
      tools.length ? h('span', { class: 'row-tools' }, tools) : null);
  }

  // With items picked, the walk begins: with a template straight to the summary, without one
  // through the size editors.
  async begin(item) {
    if (!this.app.state.picked?.length) return;
    try {
      const answer = await beginFlow(this.app, item ? item.identifier : undefined);
      followFlow(this.app, answer);
    } catch (error) {
      this.app.fail(error);
    }
  }

  async change(what, body) {
    try {
      await api(`/api/templates/${what}`, body);
    } catch (error) {
      this.app.fail(error);
    }
    await this.load();
  }

  async create() {
    const name = await showPrompt({ title: 'Name', okLabel: 'Save' });
    if (name !== null) await this.change('create', { name });
  }

  async rename(item) {
    const name = await showPrompt({ title: 'Name', value: item.title || '', okLabel: 'Save' });
    if (name !== null) await this.change('rename', { key: item.identifier, name });
  }

  async remove(item) {
    const answer = await showAlert({ title: item.title || item.identifier, message: 'Remove', buttons: ['Cancel', 'Remove'] });
    if (answer === 1) await this.change('remove', { key: item.identifier });
  }
}
