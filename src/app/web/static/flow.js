// The page follows the server's walk: after each answer it shows the screen on top of the
// walk's stack (the server decides which screen comes next).
import { api, flowId } from './api.js';

export function flowCall(path, body = {}) {
  return api(path, { flow: flowId(), ...body });
}

export function followFlow(app, answer) {
  app.state.flow = answer;
  switch (answer.screen.kind) {
    case 'sizeEditor': return app.show('sizeEditor');
    case 'summary':
      app.state.template = answer.summary.template;
      return app.show('summary');
    case 'results': return app.show('results');
    default: return app.show('templates');
  }
}
