// The home screen: the library's albums and recents in a grid, a media filter, the file
// browser over the server's allowed folders, uploads and the camera.
import { api, h, upload } from './api.js';
import { showAlert } from './dialogs.js';
import { FileBrowser } from './files.js';
import { openCamera } from './camera.js';
import { checkExternal } from './external.js';

export class HomeScreen {
  constructor(app) {
    this.app = app;
    this.title = 'Home';
    this.album = null;
    this.media = '';
    this.grid = document.createElement('uw-grid');
    this.grid.onselectionchange = (items) => this.selectionChanged(items);
    this.albums = h('nav', { class: 'albums', 'aria-label': 'Albums' });
    this.count = h('span', { class: 'count' }, 'Select photos and videos');
    this.next = h('button', { class: 'primary', disabled: true, onclick: () => this.proceed() }, 'Next');
    const filter = h('select', { 'aria-label': 'Media type', onchange: (e) => { this.media = e.target.value; this.reload(); } },
      h('option', { value: '' }, 'All'), h('option', { value: 'photo' }, 'Photos'), h('option', { value: 'video' }, 'Videos'));
    const uploader = h('input', { type: 'file', multiple: true, accept: 'image/*,video/*', class: 'hidden',
      onchange: (e) => this.upload([...e.target.files]) });
    this.element = h('section', { class: 'screen home' },
      h('header', {}, h('h1', {}, 'Unwarp'),
        h('div', { class: 'tools icon-bar' }, filter,
          h('button', { dataset: { icon: 'files' }, onclick: () => this.openFiles() }, 'Files'),
          h('button', { dataset: { icon: 'upload' }, onclick: () => uploader.click() }, 'Upload'), uploader,
          h('button', { dataset: { icon: 'camera' }, onclick: () => this.camera() }, 'Camera'),
          h('button', { dataset: { icon: 'settings' }, onclick: () => this.app.show('settings') }, 'Settings'))),
      this.albums, this.grid,
      h('footer', {}, this.count, this.next));
  }

  async enter() {
    try {
      const { albums } = await api('/api/library/albums');
      const chip = (label, album, recents = false) => h('button', {
        class: 'chip', 'aria-pressed': 'false',
        onclick: (e) => {
          this.albums.querySelectorAll('.chip').forEach((c) => c.setAttribute('aria-pressed', 'false'));
          e.currentTarget.setAttribute('aria-pressed', 'true');
          this.album = album; this.recents = recents; this.reload();
        },
      }, label);
      this.albums.replaceChildren(chip('Recents', null, true), ...albums.map((a) => chip(`${a.title} (${a.count})`, a.id)));
      this.albums.firstChild.setAttribute('aria-pressed', 'true');
      this.recents = true;
      await this.reload();
      await checkExternal(this.app);
    } catch (error) {
      this.app.fail(error);
    }
  }

  reload() {
    const query = new URLSearchParams();
    if (this.album) query.set('album', this.album);
    if (this.recents) query.set('recents', '1');
    if (this.media) query.set('media', this.media);
    return this.grid.load((offset, limit) => {
      query.set('offset', offset); query.set('limit', limit);
      return api(`/api/library/assets?${query}`);
    });
  }

  selectionChanged(items) {
    this.picked = items;
    const photos = items.filter((i) => i.media === 'photo').length;
    const videos = items.length - photos;
    this.count.textContent = items.length ? `${photos} photo${photos === 1 ? '' : 's'} / ${videos} video${videos === 1 ? '' : 's'} selected` : 'Select photos and videos';
    this.next.disabled = items.length === 0;
    if (items.length) this.app.tutorial.tell('selected').catch((error) => this.app.fail(error));
  }

  proceed(items = this.picked) {
    this.app.state.picked = items;
    this.app.show('templates');
  }

  async openFiles() {
    const files = await new FileBrowser().choose();
    if (files?.length) this.proceed(files);
  }

  async upload(files) {
    try {
      const answer = await upload(files);
      this.proceed(answer.files.map((f) => ({ ...f, media: /\.(mov|mp4|m4v|3gp)$/i.test(f.name) ? 'video' : 'photo' })));
    } catch (error) {
      showAlert({ title: 'Upload', message: error.message, buttons: ['Ok'] });
    }
  }

  async camera() {
    const file = await openCamera();
    if (file) await this.upload([file]);
  }
}
