// A file opened from outside (`unwarp open FILE`, a file manager's "Open with"): the tab's walk
// presents it as the external screen, "External Photo" or "External Video"; "Next" goes on to
// the templates, whose choice is the screen's, and "Cancel" lets it go.
import { api, h, thumbnailURL, flowId } from './api.js';
import { flowCall } from './flow.js';

// The number of the arrival last taken: an older answer is no news.
let seen = 0;

export async function showExternal(app, item) {
  if (!item || item.number <= seen) return;
  seen = item.number;
  if (app.current?.title !== 'Home') app.show('home');
  try {
    app.state.flow = await flowCall('/api/flow/external');
    drawExternal(app, app.state.flow.presented);
  } catch (error) {
    app.fail(error);
  }
}

// The external screen the walk presents, drawn once.
function drawExternal(app, screen) {
  if (screen?.kind !== 'external' || document.querySelector('dialog.external')) return;
  const { item } = screen;
  const dialog = h('dialog', { class: 'external' },
    h('h2', {}, screen.title),
    h('img', { src: thumbnailURL(item.id), alt: '' }),
    h('p', { class: 'name' }, item.name));
  const close = () => {
    dialog.close();
    dialog.remove();
  };
  const cancel = async () => {
    close();
    try {
      app.state.flow = await flowCall('/api/flow/external/cancel', { screen: screen.id });
    } catch (error) {
      app.fail(error);
    }
  };
  const next = () => {
    close();
    app.state.picked = [item];
    app.show('templates');
  };
  dialog.append(h('div', { class: 'buttons' },
    h('button', { type: 'button', onclick: cancel }, screen.cancel),
    h('button', { type: 'button', class: 'primary', onclick: next }, 'Next')));
  dialog.addEventListener('cancel', (event) => { event.preventDefault(); cancel(); });
  document.body.append(dialog);
  dialog.showModal();
}

// On the home screen: the external screen the walk still presents, else the file that waited
// while no page was open, or while the launch steps ran.
export async function checkExternal(app) {
  app.state.flow = await api(`/api/flow?flow=${encodeURIComponent(flowId())}`);
  if (app.state.flow.presented?.kind === 'external') return drawExternal(app, app.state.flow.presented);
  const { item } = await api('/api/external');
  if (item) await showExternal(app, item);
}
