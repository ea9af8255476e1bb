// The results: the run live (the item in work with its progress, results taking the place of
// pending items), the main button ("Processing", "Resume", "Results"), selection, clear,
// share under a name with its preview, and downloads of one file or a zip of several.
import { api, h, fileURL, zipURL, thumbnailURL } from './api.js';
import { showPrompt, showAlert } from './dialogs.js';

export class ResultsScreen {
  constructor(app) {
    this.app = app;
    this.title = 'Results';
    this.run = app.state.run || { items: [] };
    this.selection = new Set();
    this.list = h('ul', { class: 'results-list', 'aria-live': 'polite' });
    this.button = h('button', { class: 'primary', id: 'processing', onclick: () => this.touch() });
    this.selectionTitle = h('span', { class: 'selection-title' });
    this.share = h('button', { id: 'share', onclick: () => this.shareSelected() }, 'Share');
    this.download = h('button', { id: 'download', onclick: () => this.downloadSelected() }, 'Download');
    this.clear = h('button', { id: 'clear', onclick: () => this.clearSelected() }, 'Clear');
    this.element = h('section', { class: 'screen results' },
      h('header', {}, h('button', { class: 'back', onclick: () => this.close() }, '‹ Home'), h('h1', {}, 'Results'), this.button),
      this.list,
      h('footer', {}, this.selectionTitle, this.clear, this.download, this.share));
    this.listeners = {
      progress: (e) => this.progress(JSON.parse(e.data)),
      committed: () => this.refresh(),
      button: (e) => this.setButton(JSON.parse(e.data)),
      list: () => this.refresh(),
    };
  }

  enter() {
    for (const [name, listener] of Object.entries(this.listeners)) this.app.events.addEventListener(name, listener);
    this.draw();
    this.refresh();
  }

  leave() {
    for (const [name, listener] of Object.entries(this.listeners)) this.app.events.removeEventListener(name, listener);
  }

  async refresh() {
    try {
      this.run = await api('/api/run');
      this.draw();
    } catch (error) {
      this.app.fail(error);
    }
  }

  setButton({ state, title }) {
    this.button.textContent = title;
    this.button.disabled = state !== 1 && state !== 2;
    this.button.dataset.state = String(state);
  }

  progress({ index, progress }) {
    const bar = this.list.querySelector(`[data-index="${index}"] progress`);
    if (bar) bar.value = progress;
  }

  draw() {
    this.setButton({ state: this.run.state, title: this.run.title || '' });
    this.selectionTitle.textContent = this.run.selectionTitle || '';
    this.share.hidden = this.download.hidden = this.clear.hidden = !this.run.items?.some((i) => !i.pending);
    this.list.replaceChildren(...(this.run.items || []).map((item) => {
      const picture = item.thumbnail ? fileURL(item.thumbnail) : item.id.startsWith('library:') ? thumbnailURL(item.id) : null;
      return h('li', { class: `result ${item.pending ? 'pending' : 'done'} ${item.selected ? 'selected' : ''}`, dataset: { index: String(item.index) } },
        h('label', {},
          h('input', { type: 'checkbox', checked: item.selected, disabled: item.pending, onchange: () => this.toggle(item.index) }),
          picture ? h('img', { src: picture, alt: '' }) : null,
          h('span', { class: 'name' }, item.name)),
        item.processing ? h('progress', { max: '1', value: String(this.run.progress || 0) }) : null,
        item.pending && !item.processing ? h('span', { class: 'waiting' }, 'Waiting') : null,
        item.file ? h('a', { href: fileURL(item.file, true), download: '' }, 'Download') : null);
    }));
  }

  async touch() {
    this.run = await api('/api/run/button', {});
    this.draw();
  }

  async toggle(index) {
    const selected = new Set(this.run.items.filter((i) => i.selected).map((i) => i.index));
    if (selected.has(index)) selected.delete(index); else selected.add(index);
    this.run = await api('/api/run/select', { indexes: [...selected] });
    this.draw();
  }

  selectedDone() {
    const done = this.run.items.filter((i) => !i.pending);
    const chosen = done.filter((i) => i.selected);
    return chosen.length ? chosen : done;
  }

  async shareSelected() {
    const items = this.selectedDone();
    const indexes = items.map((i) => i.index);
    try {
      const prompt = await api('/api/share/prompt', { from: 'run', indexes });
      let name;
      if (prompt.ask) {
        name = await showPrompt({
          title: 'Name', value: prompt.name,
          preview: async (text) => (await api('/api/share/prompt', { from: 'run', indexes, name: text })).preview,
        });
        if (name === null) return;
      }
      const shared = await api('/api/share', { from: 'run', indexes, name });
      this.lastShared = shared.files;
      await showAlert({ title: 'Shared', message: shared.files.map((f) => f.split('/').pop()).join('\n'), buttons: ['Download', 'Ok'] })
        .then((button) => { if (button === 0) this.fetchFiles(shared.files); });
    } catch (error) {
      this.app.fail(error);
    }
  }

  downloadSelected() {
    this.fetchFiles(this.selectedDone().map((i) => i.file).filter(Boolean));
  }

  fetchFiles(paths) {
    if (!paths.length) return;
    const link = h('a', { href: paths.length === 1 ? fileURL(paths[0], true) : zipURL(paths), download: '' });
    document.body.append(link);
    link.click();
    link.remove();
  }

  async clearSelected() {
    this.run = await api('/api/run/clear', {});
    this.draw();
  }

  async close() {
    await api('/api/run/close', {}).catch(() => {});
    this.app.show('home');
  }
}
