// The results: the run live (the item in work with its progress, results taking the place of
// pending items), the main button ("Processing", "Resume", "Results"), selection, clear,
// share under a name with its preview, export into a folder, saving to the albums, and
// downloads of one file or a zip of several.
import { api, h, fileURL, zipURL, thumbnailURL } from './api.js';
import { showPrompt, showAlert } from './dialogs.js';
import { FolderChooser } from './files.js';

export class ResultsScreen {
  constructor(app) {
    this.app = app;
    this.title = 'Results';
    this.run = app.state.run || { items: [] };
    this.list = h('ul', { class: 'results-list', 'aria-live': 'polite' });
    this.button = h('button', { class: 'primary', id: 'processing', onclick: () => this.touch() });
    // With nothing selected the title selects everything; with a selection it goes back
    // through the selected items.
    this.selectionButton = h('button', { type: 'button', onclick: () => this.selectionAction() });
    this.selectionTitle = h('span', { class: 'selection-title' }, this.selectionButton);
    this.selectionNote = h('span', { class: 'selection-note' });
    this.reset = h('button', { type: 'button', id: 'reset-selection', onclick: () => this.select([]) }, 'Reset');
    this.actions = h('div', { class: 'actions icon-bar' });
    this.share = h('button', { id: 'share', dataset: { icon: 'share' }, onclick: () => this.shareSelected() }, 'Share');
    this.exporter = h('button', { id: 'export', dataset: { icon: 'export' }, onclick: () => this.exportSelected() }, 'Export');
    this.albums = h('button', { id: 'albums', dataset: { icon: 'albums' }, hidden: true, onclick: () => this.saveSelected() }, 'Save');
    this.download = h('button', { id: 'download', dataset: { icon: 'download' }, onclick: () => this.downloadSelected() }, 'Download');
    this.clear = h('button', { id: 'clear', dataset: { icon: 'clear' }, onclick: () => this.clearSelected() }, 'Clear');
    this.element = h('section', { class: 'screen results' },
      h('header', { class: 'nav-bar' }, h('button', { class: 'back', onclick: () => this.close() }, '‹ Home'), h('h1', {}, 'Results'), this.button),
      this.list,
      this.footer = h('footer', {}, this.selectionTitle, this.selectionNote, this.reset, this.actions));
    this.actions.append(this.clear, this.download, this.albums, this.exporter, this.share);
    this.listeners = {
      progress: (e) => this.progress(JSON.parse(e.data)),
      committed: () => this.refresh(),
      // A pause, an error or the limit takes the item out of work: its bar goes with it.
      button: (e) => { this.setButton(JSON.parse(e.data)); this.refresh(); },
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

  // Progress counts only for the item in work; a late event of the item before it is dropped.
  progress({ index, progress }) {
    const item = this.run.items?.[index];
    if (!item?.processing) return;
    this.run.progress = progress;
    const bar = this.list.querySelector(`[data-index="${index}"] progress`);
    if (bar) bar.value = progress;
  }

  draw() {
    this.setButton({ state: this.run.state, title: this.run.title || '' });
    const items = this.run.items || [];
    const bar = this.run.selection || { resetHidden: true, buttonsHidden: true };
    // A list left empty has no selection bar and no buttons.
    this.footer.hidden = items.length === 0;
    this.selectionButton.textContent = this.run.selectionTitle || '';
    this.selectionNote.textContent = bar.note || '';
    this.selectionNote.hidden = !bar.note;
    this.reset.hidden = bar.resetHidden;
    this.actions.hidden = bar.buttonsHidden;
    const anyDone = this.selectedDone().length > 0;
    this.download.hidden = this.exporter.hidden = !anyDone;
    this.share.hidden = this.run.shareHidden !== false;
    this.clear.hidden = !items.some((i) => i.selected);
    // An empty list says so.
    if (!items.length) this.list.replaceChildren(h('li', { class: 'empty' }, 'No results'));
    else this.list.replaceChildren(...items.map((item) => {
      const picture = item.thumbnail ? fileURL(item.thumbnail) : thumbnailURL(item.id);
      return h('li', { class: `result ${item.pending ? 'pending' : 'done'} ${item.selected ? 'selected' : ''}`, dataset: { index: String(item.index) } },
        h('label', {},
          h('input', { type: 'checkbox', checked: item.selected, onchange: () => this.toggle(item.index) }),
          picture ? h('img', { src: picture, alt: '' }) : null,
          h('span', { class: 'name' }, item.name)),
        item.storedLocally ? h('button', { class: 'warning', 'aria-label': 'Stored locally', onclick: () => this.warning(item.index) }, '!') : null,
        item.processing ? h('progress', { max: '1', value: String(this.run.progress || 0) }) : null,
        item.pending && !item.processing ? h('span', { class: 'waiting' }, 'Waiting') : null,
        item.file ? h('a', { href: fileURL(item.file, true), download: '' }, 'Download') : null);
    }));
    this.updateAlbums();
  }

  // The albums' button carries the save action's own title, asked of the server.
  async updateAlbums() {
    const indexes = this.selectedDone().map((i) => i.index);
    if (!indexes.length) { this.albums.hidden = true; return; }
    const key = indexes.join(',');
    if (this.albumsKey === key) return;
    this.albumsKey = key;
    const prompt = await api('/api/albums/prompt', { from: 'run', indexes }).catch(() => ({ enabled: false }));
    if (this.albumsKey !== key) return;
    this.albums.hidden = !prompt.enabled;
    if (prompt.enabled) this.albums.textContent = prompt.title;
  }

  // The run answers the warning mark with its alert, which comes as the run's alerts do.
  async warning(index) {
    try {
      this.run = await api('/api/run/warning', { index });
      this.draw();
    } catch (error) {
      this.app.fail(error);
    }
  }

  async selectionAction() {
    const selected = (this.run.items || []).filter((i) => i.selected).map((i) => i.index);
    if (!selected.length) {
      this.run = await api('/api/run/selectAll', {});
      this.draw();
      return;
    }
    // Each touch shows the selected item before the one shown last, from the end again.
    const before = selected.filter((i) => i < (this.shownSelected ?? Infinity));
    this.shownSelected = before.length ? before[before.length - 1] : selected[selected.length - 1];
    this.list.querySelector(`[data-index="${this.shownSelected}"]`)?.scrollIntoView({ block: 'nearest' });
  }

  async select(indexes) {
    this.run = await api('/api/run/select', { indexes });
    this.draw();
  }

  async touch() {
    this.run = await api('/api/run/button', {});
    this.draw();
  }

  // Touches in quick succession each build on the answer to the one before.
  toggle(index) {
    this.toggling = (this.toggling || Promise.resolve()).then(() => {
      const selected = new Set(this.run.items.filter((i) => i.selected).map((i) => i.index));
      if (selected.has(index)) selected.delete(index); else selected.add(index);
      return this.select([...selected]);
    }).catch((error) => this.app.fail(error));
    return this.toggling;
  }

  // The results the buttons act on: the selected ones that are done.
  selectedDone() {
    return (this.run.items || []).filter((i) => i.selected && !i.pending);
  }

  // The name prompt when the settings ask for a name: the name, undefined without a prompt,
  // null when the user cancelled.
  async askName(indexes, okLabel) {
    const prompt = await api('/api/share/prompt', { from: 'run', indexes });
    if (!prompt.ask) return undefined;
    return showPrompt({
      title: prompt.title, message: prompt.message, placeholder: prompt.placeholder, value: prompt.name, okLabel,
      check: async (text) => {
        const answer = await api('/api/share/prompt', { from: 'run', indexes, name: text });
        return { line: answer.preview, valid: answer.valid };
      },
    });
  }

  async shareSelected() {
    const indexes = this.selectedDone().map((i) => i.index);
    try {
      const name = await this.askName(indexes, 'Share');
      if (name === null) return;
      const shared = await api('/api/share', { from: 'run', indexes, name });
      this.lastShared = shared.files;
      await showAlert({ title: shared.message, message: shared.files.map((f) => f.split('/').pop()).join('\n'), buttons: ['Download', 'Ok'] })
        .then((button) => { if (button === 0) this.fetchFiles(shared.files); });
    } catch (error) {
      this.app.fail(error);
    }
  }

  // Into a folder the user picks among the server's folders, under the sharing names.
  async exportSelected() {
    const indexes = this.selectedDone().map((i) => i.index);
    try {
      const folder = await new FolderChooser().choose();
      if (!folder) return;
      const name = await this.askName(indexes, 'Export');
      if (name === null) return;
      const exported = await api('/api/share', { from: 'run', indexes, name, folder });
      await showAlert({ title: exported.message, message: exported.files.join('\n'), buttons: ['Ok'] });
    } catch (error) {
      this.app.fail(error);
    }
  }

  async saveSelected() {
    const indexes = this.selectedDone().map((i) => i.index);
    try {
      const saved = await api('/api/albums', { from: 'run', indexes });
      // Outcomes other than done and cancelled are errors, answered with "Cancel".
      await showAlert({ title: saved.title, message: saved.message, buttons: [saved.status === 1 || saved.status === 0 ? 'Ok' : 'Cancel'], kind: saved.status > 1 ? 'error' : '' });
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
    const answer = await showAlert({
      message: 'This action only removes results from the app and does not affect photos and videos stored outside, in Files or the Photo Library.',
      buttons: ['Clear selected results', 'Cancel'],
    });
    if (answer !== 0) return;
    this.run = await api('/api/run/clear', {});
    this.draw();
  }

  async close() {
    await api('/api/run/close', {}).catch(() => {});
    this.app.show('home');
  }
}
