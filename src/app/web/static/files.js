// The file browser and the export folder chooser: dialogs over the folders the server may show
// (the library, the results, the uploads and the folders given to `unwarp serve --folder`),
// opened one level at a time.
import { api, h } from './api.js';

// A dialog over the server's folders; "Cancel" answers null. A kind of dialog gives its title,
// its other buttons, what it keeps of an opened folder and the rows of the folder's files.
class FolderDialog {
  run({ title, className, list, buttons }) {
    return new Promise((resolve) => {
      this.resolve = resolve;
      this.list = h('ul', { class: 'files', ...list });
      this.where = h('p', { class: 'where' });
      this.dialog = h('dialog', { class: className },
        h('h2', {}, title), this.where, this.list,
        h('div', { class: 'buttons' },
          h('button', { type: 'button', onclick: () => this.finish(null) }, 'Cancel'), ...buttons));
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
    this.opened(answer);
    this.where.textContent = answer.path || 'Folders';
    const rows = [];
    if (answer.path) rows.push(h('li', {}, h('button', { type: 'button', onclick: () => this.open(null) }, '‹ Folders')));
    for (const entry of answer.entries) {
      const row = entry.folder
        ? h('li', {}, h('button', { type: 'button', class: 'folder', onclick: () => this.open(entry.path) }, `${entry.name}/`))
        : this.fileRow(entry, rows.length);
      if (row) rows.push(row);
    }
    this.list.replaceChildren(...rows);
  }

  opened() {}

  fileRow() { return null; }
}

// Picks files to open: each file has a check box; "Open" answers the ones checked.
export class FileBrowser extends FolderDialog {
  choose() {
    this.chosen = new Map();
    return this.run({
      title: 'Files', className: 'browser', list: { role: 'listbox', 'aria-multiselectable': 'true' },
      buttons: [h('button', { type: 'button', class: 'primary', onclick: () => this.finish([...this.chosen.values()]) }, 'Open')],
    });
  }

  fileRow(entry, index) {
    const box = h('input', { type: 'checkbox', id: `f-${index}`, onchange: (e) => {
      if (e.target.checked) this.chosen.set(entry.id, { id: entry.id, name: entry.name, media: entry.media });
      else this.chosen.delete(entry.id);
    } });
    return h('li', {}, box, h('label', { for: box.id }, entry.name));
  }
}

// Picks a folder to export into: folders only; "Export Here" takes the folder on show.
export class FolderChooser extends FolderDialog {
  choose() {
    this.path = null;
    this.here = h('button', { type: 'button', class: 'primary', disabled: true, onclick: () => this.finish(this.path) }, 'Export Here');
    return this.run({ title: 'Export to Folder', className: 'browser folders', list: { 'aria-label': 'Folders' }, buttons: [this.here] });
  }

  opened(answer) {
    this.path = answer.path;
    this.here.disabled = !answer.path;
  }
}
