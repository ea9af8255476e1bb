// A file opened from outside (`unwarp open FILE`, a file manager's "Open with"): shown as the
// external item, "External Photo" or "External Video", taken on to the templates or let go.
import { api, h, thumbnailURL } from './api.js';

// The number of the arrival on show or last let go: an older answer is no news.
let seen = 0;

export async function showExternal(app, item) {
  if (!item || item.number <= seen) return;
  seen = item.number;
  if (app.current?.title !== 'Home') app.show('home');
  const dialog = h('dialog', { class: 'external' },
    h('h2', {}, item.title),
    h('img', { src: thumbnailURL(item.id), alt: '' }),
    h('p', { class: 'name' }, item.name));
  const finish = async (take) => {
    dialog.close();
    dialog.remove();
    await api('/api/external/done', {});
    if (take) {
      app.state.picked = [{ id: item.id, name: item.name, media: item.media }];
      app.show('templates');
    }
  };
  dialog.append(h('div', { class: 'buttons' },
    h('button', { type: 'button', onclick: () => finish(false) }, 'Cancel'),
    h('button', { type: 'button', class: 'primary', onclick: () => finish(true) }, 'Next')));
  dialog.addEventListener('cancel', (event) => { event.preventDefault(); finish(false); });
  document.body.append(dialog);
  dialog.showModal();
}

// The item that waited while no page was open, or while the launch steps ran.
export async function checkExternal(app) {
  const { item } = await api('/api/external');
  if (item) await showExternal(app, item);
}
