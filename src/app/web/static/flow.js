// The page follows the server's walk: after each answer it shows the screen on top of the
// walk's stack (the server decides which screen comes next).
import { api, flowId } from './api.js';

export function flowCall(path, body = {}) {
  return api(path, { flow: flowId(), ...body });
}

// The home screen of the walk is drawn as `home` names: the template list when the walk came
// back from the screens of a selection, the home screen when it came back from the settings.
export function followFlow(app, answer, home = 'templates') {
  app.state.flow = answer;
  switch (answer.screen.kind) {
    case 'sizeEditor': return app.show('sizeEditor');
    case 'summary':
      app.state.template = answer.summary.template;
      return app.show('summary');
    case 'results': return app.show('results');
    case 'settings': return app.show('settings');
    default: return app.show(home);
  }
}

// The template chosen for the selection begins the walk; with a file from outside on show, it
// is that screen's choice, and the walk begins with the file.
export function beginFlow(app, template) {
  const external = app.state.flow?.presented;
  if (external?.kind === 'external') return flowCall('/api/flow/external/finish', { screen: external.id, template });
  return flowCall('/api/flow/begin', { assets: app.state.picked.map((i) => i.id), template });
}
