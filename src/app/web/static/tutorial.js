// The tutorial's walk in the page: the focus view over the control of each step with its text,
// the user's doings told to the server, which moves the walk on, and the touch on the results
// screen's focus. Which step shows what, and when it moves on, is the server's to say.
import { api, h, styledText } from './api.js';

// Where each named control of the walk is on its screen.
const targets = {
  grid: '.home uw-grid',
  nextButton: '.home footer button.primary',
  templateList: '.templates .sections',
  startButton: '#start',
  closeButton: '.results header .back',
};

export class TutorialGuide {
  constructor(app) {
    this.app = app;
    this.state = {};
    this.text = h('p', {});
    this.bubble = h('div', { class: 'tutorial-focus', role: 'status', 'aria-live': 'polite', hidden: true }, this.text);
    this.startButton = h('button', { class: 'tutorial-start', onclick: () => this.start() }, 'Tutorial');
    document.body.append(this.bubble);
    app.events.addEventListener('focus', () => this.refresh());
    document.addEventListener('click', (event) => this.touch(event), true);
    window.addEventListener('resize', () => this.place());
  }

  async refresh() { this.draw(await api('/api/tutorial')); }

  async start() { this.draw(await api('/api/tutorial/start', {})); }

  // The page tells what the user did ("selected", or a screen shown); the server moves the walk.
  async tell(event) {
    if (this.state.state !== 1) return this.refresh();
    this.draw(await api('/api/tutorial/event', { event }));
  }

  screenShown(name) {
    this.screen = name;
    this.tell(`screen:${name}`).catch((error) => this.app.fail(error));
  }

  draw(state) {
    this.state = state;
    const offer = state.required && state.state !== 1 && this.screen === 'home';
    const tools = document.querySelector('.home header .tools');
    if (offer && tools && !tools.contains(this.startButton)) tools.append(this.startButton);
    if (!offer) this.startButton.remove();
    this.focus = state.focus && state.focus.screen === this.screen ? state.focus : null;
    this.bubble.hidden = !this.focus;
    this.bubble.dataset.target = this.focus?.target || '';
    if (this.focus) this.text.replaceChildren(...styledText(this.focus.runs));
    this.place();
    clearInterval(this.follow);
    // The control may come later (a list still loading) or move; the focus follows it.
    if (this.focus) this.follow = setInterval(() => this.place(), 300);
  }

  target() { return this.focus && document.querySelector(targets[this.focus.target]); }

  place() {
    document.querySelectorAll('.tutorial-target').forEach((e) => e.classList.remove('tutorial-target'));
    const element = this.target();
    if (!element) return;
    element.classList.add('tutorial-target');
    const box = element.getBoundingClientRect();
    const height = this.bubble.offsetHeight;
    // Below the control, else above it, else (a control as tall as the window) inside its foot.
    let top = box.bottom + 12;
    if (top + height > window.innerHeight) top = box.top - height - 12;
    if (top < 8) top = Math.min(box.bottom, window.innerHeight) - height - 24;
    const left = Math.min(Math.max(box.left, 8), window.innerWidth - this.bubble.offsetWidth - 8);
    Object.assign(this.bubble.style, { top: `${Math.max(top, 8)}px`, left: `${Math.max(left, 8)}px` });
  }

  // A touch on the results screen's focus goes to the run first, then on to the control.
  async touch(event) {
    const element = this.target();
    if (this.passing || this.focus?.screen !== 'results' || !element?.contains(event.target)) return;
    event.preventDefault();
    event.stopPropagation();
    try {
      this.draw(await api('/api/tutorial/touch', {}));
    } catch (error) {
      this.app.fail(error);
    }
    this.passing = true;
    element.click();
    this.passing = false;
  }
}
