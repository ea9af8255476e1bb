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

// What the user works with at each step besides the focused control, which the text must not
// cover either: the albums and the media filter to find the photo, the search for a template.
const companions = {
  grid: ['.home .albums', '.home header select'],
  templateList: ['.templates header input[type=search]'],
};

function keepClear(target) {
  return (companions[target] || []).map((selector) => document.querySelector(selector)).filter(Boolean);
}

const overlaps = (a, b) => a.left < b.right && b.left < a.right && a.top < b.bottom && b.top < a.bottom;

// The first place for a box of the bubble's size, 12 px from the control, inside the window
// and clear of every element given; null when there is none.
function freeSpot(bubble, elements) {
  const boxes = elements.map((e) => e.getBoundingClientRect());
  const [box] = boxes;
  const width = bubble.offsetWidth;
  const height = bubble.offsetHeight;
  const margin = 8;
  const gap = 12;
  const across = (left) => Math.min(Math.max(left, margin), window.innerWidth - width - margin);
  const down = (top) => Math.min(Math.max(top, margin), window.innerHeight - height - margin);
  const candidates = [
    { top: box.bottom + gap, left: across(box.left) },
    { top: box.top - gap - height, left: across(box.left) },
    { top: down(box.top), left: box.right + gap },
    { top: down(box.top), left: box.left - gap - width },
  ];
  return candidates.find(({ top, left }) => {
    const spot = { top, left, bottom: top + height, right: left + width };
    const inside = top >= margin && left >= margin && spot.bottom <= window.innerHeight - margin && spot.right <= window.innerWidth - margin;
    return inside && !boxes.some((b) => overlaps(spot, b));
  }) || null;
}

export class TutorialGuide {
  constructor(app) {
    this.app = app;
    this.state = {};
    this.text = h('p', {});
    this.bubble = h('div', { class: 'tutorial-focus', role: 'status', 'aria-live': 'polite', hidden: true }, this.text);
    this.startButton = h('button', { class: 'tutorial-start', dataset: { icon: 'tutorial' }, onclick: () => this.start() }, 'Tutorial');
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

  // The text goes where it covers neither the control nor what the step has the user use with
  // it: below, above, then beside the control. When none of those has room (a grid as tall as
  // the window) it docks at the window's foot, and the screen gives up that much height for it.
  place() {
    document.querySelectorAll('.tutorial-target, .tutorial-companion').forEach((e) => e.classList.remove('tutorial-target', 'tutorial-companion'));
    const element = this.target();
    if (!element) return this.dock(false);
    element.classList.add('tutorial-target');
    const others = keepClear(this.focus.target);
    others.forEach((e) => e.classList.add('tutorial-companion'));
    const key = `${this.focus.target} ${window.innerWidth}x${window.innerHeight}`;
    // Docking changes the layout it was chosen by; it holds while the step and the window do.
    if (this.docked && this.dockedFor === key) return this.dock(true);
    this.dock(false);
    const spot = freeSpot(this.bubble, [element, ...others]);
    if (spot) {
      Object.assign(this.bubble.style, { top: `${spot.top}px`, left: `${spot.left}px` });
    } else {
      this.dockedFor = key;
      this.dock(true);
    }
  }

  dock(docked) {
    this.docked = docked;
    this.bubble.classList.toggle('docked', docked);
    if (docked) {
      Object.assign(this.bubble.style, { top: '', left: '' });
      document.documentElement.style.setProperty('--tutorial-room', `${this.bubble.offsetHeight + 16}px`);
    } else {
      document.documentElement.style.removeProperty('--tutorial-room');
    }
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
