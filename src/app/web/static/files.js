// The file browser: the folders the server may show (the library, the results, the uploads
// and the folders given to `unwarp serve --folder`), opened one level at a time.
import { api, h } from './api.js';

export class FileBrowser {
  choose() {
    return new Promise((resolve) => {
      this.resolve = resolve;
      this.chosen = new Map();
      this.list = h('ul', { class: 'files', role: 'listbox', 'aria-multiselectable': 'true' });
      this.where = h('p', { class: 'where' });
      this.dialog = h('dialog', { class: 'browser' },
        h('h2', {}, 'Files'), this.where, this.list,
        h('div', { class: 'buttons' },
          h('button', { type: 'button', onclick: () => this.finish(null) }, 'Cancel'),
          h('button', { type: 'button', class: 'primary', onclick: () => this.finish([...this.chosen.values()]) }, 'Open')));
      this.dialog.addEventListener('cancel', () => this.finish(null));
      document.body.append(this.dialog);
      this.dialog.showModal();
      this.open(null);
    });
  }

  finish(result) {
    this.dialog.close();
    this.dialog.remove();
    this.resolve(result);
  }

  async open(path) {
    const answer = await api(path ? `/api/files?path=${encodeURIComponent(path)}` : '/api/files');
    this.where.textContent = answer.path || 'Folders';
    const rows = [];
    if (answer.path) rows.push(h('li', {}, h('button', { type: 'button', onclick: () => this.open(null) }, '‹ Folders')));
    for (const entry of answer.entries) {
      if (entry.folder) {
        rows.push(h('li', {}, h('button', { type: 'button', class: 'folder', onclick: () => this.open(entry.path) }, `${entry.name}/`)));
      } else {
        const box = h('input', { type: 'checkbox', id: `f-${rows.length}`, onchange: (e) => {
          if (e.target.checked) this.chosen.set(entry.id, { id: entry.id, name: entry.name, media: entry.media });
          else this.chosen.delete(entry.id);
        } });
        rows.push(h('li', {}, box, h('label', { for: box.id }, entry.name)));
      }
    }
    this.list.replaceChildren(...rows);
  }
}

// Picks a folder to export into: the same folders, folders only, opened one level at a time;
// "Export Here" takes the folder on show.
export class FolderChooser {
  choose() {
    return new Promise((resolve) => {
      this.resolve = resolve;
      this.path = null;
      this.list = h('ul', { class: 'files', 'aria-label': 'Folders' });
      this.where = h('p', { class: 'where' });
      this.here = h('button', { type: 'button', class: 'primary', disabled: true, onclick: () => this.finish(this.path) }, 'Export Here');
      this.dialog = h('dialog', { class: 'browser folders' },
        h('h2', {}, 'Export to Folder'), this.where, this.list,
        h('div', { class: 'buttons' },
          h('button', { type: 'button', onclick: () => this.finish(null) }, 'Cancel'), this.here));
      this.dialog.addEventListener('cancel', () => this.finish(null));
      document.body.append(this.dialog);
      this.dialog.showModal();
      this.open(null);
    });
  }

  finish(result) {
    this.dialog.close();
    this.dialog.remove();
    this.resolve(result);
  }

  async open(path) {
    const answer = await api(path ? `/api/files?path=${encodeURIComponent(path)}` : '/api/files');
    this.path = answer.path;
    this.here.disabled = !answer.path;
    this.where.textContent = answer.path || 'Folders';
    const rows = [];
    if (answer.path) rows.push(h('li', {}, h('button', { type: 'button', onclick: () => this.open(null) }, '‹ Folders')));
    for (const entry of answer.entries.filter((e) => e.folder)) {
      rows.push(h('li', {}, h('button', { type: 'button', class: 'folder', onclick: () => this.open(entry.path) }, `${entry.name}/`)));
    }
    this.list.replaceChildren(...rows);
  }
}
