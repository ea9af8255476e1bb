// The application shell: one screen at a time (home, templates, summary, results), the
// event stream of the run, and the alerts it brings.
import { api, h } from './api.js';
import { showAlert } from './dialogs.js';
import './grid.js';
import { HomeScreen } from './home.js';
import { TemplateScreen } from './templates.js';
import { SummaryScreen } from './summary.js';
import { ResultsScreen } from './results.js';
import { LaunchScreen } from './launch.js';
import { SettingsScreen } from './settings.js';
import { TutorialGuide } from './tutorial.js';
import { SizeEditorScreen } from './sizeeditor.js';
import { showExternal } from './external.js';

class UwApp extends HTMLElement {
  connectedCallback() {
    this.state = { picked: [], template: null };
    this.main = h('main', { id: 'screen', tabindex: '-1' });
    this.append(this.main);
    this.events = new EventSource('/api/events');
    this.events.addEventListener('alert', (e) => this.answerAlert(JSON.parse(e.data)));
    this.tutorial = new TutorialGuide(this);
    this.events.addEventListener('reported', (e) => this.reported(JSON.parse(e.data)));
    this.events.addEventListener('external', (e) => { if (!(this.current instanceof LaunchScreen)) showExternal(this, JSON.parse(e.data)); });
    this.show('launch');
  }

  show(name) {
    const screens = { launch: LaunchScreen, home: HomeScreen, templates: TemplateScreen, summary: SummaryScreen, results: ResultsScreen, settings: SettingsScreen, sizeEditor: SizeEditorScreen };
    this.current?.leave?.();
    this.current = new screens[name](this);
    this.main.replaceChildren(this.current.element);
    this.current.enter?.();
    document.title = `Unwarp – ${this.current.title}`;
    this.main.focus();
    this.tutorial.screenShown(name);
  }

  // Every alert of the run is asked here once, and the answer goes back by its number.
  async answerAlert(alert) {
    if (this.asking === alert.number) return;
    this.asking = alert.number;
    const button = await showAlert(alert);
    try {
      await api('/api/run/alert', { number: alert.number, button });
    } catch (error) {
      if (error.status !== 409) this.fail(error);
    }
    this.current?.refresh?.();
  }

  // "Contact us" made the report; without a mail program the "Warning" alert tells its folder.
  reported({ sent }) {
    if (sent) showAlert({ title: 'Contact us', message: 'The report went to the mail program.', buttons: ['Ok'] });
  }

  fail(error) {
    showAlert({ title: 'Error', message: error.message, buttons: ['Ok'] });
  }
}

customElements.define('uw-app', UwApp);
