// The settings screens: every setting with its words, grouped by screen and section as the
// server's settings model lists them. A change goes to the server, which checks it by the
// setting's own rules and stores it; a refused value puts the last stored one back.
import { api, h } from './api.js';
import { showAlert } from './dialogs.js';
import { flowCall, followFlow } from './flow.js';

export class SettingsScreen {
  constructor(app) {
    this.app = app;
    this.title = 'Settings';
    this.tabs = h('nav', { class: 'albums settings-tabs', 'aria-label': 'Settings screens' });
    // At phone width the screens are one choice in a list instead of a row of tabs.
    this.picker = h('select', { class: 'settings-picker', 'aria-label': 'Settings screens',
      onchange: (e) => this.draw(this.settings, e.target.value) });
    this.body = h('div', { class: 'settings-body' });
    this.element = h('section', { class: 'screen settings' },
      h('header', { class: 'nav-bar' }, h('button', { class: 'back', onclick: () => this.close() }, app.state.summarySettings ? '‹ Back' : '‹ Home'), h('h1', {}, 'Settings')),
      this.tabs, h('div', { class: 'settings-picker-row' }, this.picker), this.body);
  }

  async enter() {
    try {
      // The settings screen is on the tab's walk, over the screen it was opened from.
      this.flow = this.app.state.flow = await flowCall('/api/flow/settings');
      this.draw(await api('/api/settings'));
    } catch (error) {
      this.app.fail(error);
    }
  }

  async close() {
    try {
      const shown = this.flow?.presented || this.flow?.screen;
      followFlow(this.app, await flowCall('/api/flow/settings/done', { screen: shown?.id }), 'home');
    } catch (error) {
      this.app.fail(error);
    }
  }

  draw(settings, screenId = this.screenId) {
    this.settings = settings;
    this.screenId = screenId || settings.screens[0].id;
    this.tabs.replaceChildren(...settings.screens.map((screen) => h('button', {
      class: 'chip', 'aria-pressed': String(screen.id === this.screenId),
      onclick: () => this.draw(this.settings, screen.id),
    }, screen.title)));
    this.picker.replaceChildren(...settings.screens.map((screen) => h('option', { value: screen.id, selected: screen.id === this.screenId }, screen.title)));
    const screen = settings.screens.find((s) => s.id === this.screenId);
    this.body.replaceChildren(h('h2', { class: 'settings-screen-title' }, screen.title),
      ...screen.sections.map((section) => h('section', { class: 'settings-section', 'aria-label': section.title },
        h('h3', {}, section.title),
        h('div', { class: 'settings-rows' }, ...section.items.map((item) => this.row(item))),
        section.footer ? h('p', { class: 'settings-footer' }, section.footer) : null)));
  }

  row(item) {
    const id = `setting-${item.key}`;
    const label = h('label', { for: id }, item.label);
    const row = (...control) => h('div', { class: `settings-row ${item.kind}`, dataset: { key: item.key } }, ...control);
    if (item.readOnly) return row(h('span', { class: 'settings-label' }, item.label), h('output', { id }, item.value));
    switch (item.kind) {
      case 'toggle':
        return row(label, h('input', {
          id, type: 'checkbox', role: 'switch', checked: item.value === 'true',
          onchange: (e) => this.change(item, e.target.checked),
        }));
      case 'slider': {
        const shown = h('output', {}, String(Math.round(Number(item.value))));
        return row(label, shown, h('input', {
          id, type: 'range', min: item.minimum, max: item.maximum, step: '1', value: item.value,
          oninput: (e) => { shown.textContent = e.target.value; },
          onchange: (e) => this.change(item, e.target.value),
        }), h('span', { class: 'unit' }, item.unit || ''));
      }
      case 'choice':
        if (item.choices.some((c) => c.detail)) {
          return h('fieldset', { class: 'settings-row choice', dataset: { key: item.key } },
            h('legend', {}, item.label),
            ...item.choices.map((choice) => h('label', { class: 'settings-choice' },
              h('input', { type: 'radio', name: id, value: choice.value, checked: choice.value === item.value,
                onchange: () => this.change(item, choice.value) }),
              h('span', {}, h('strong', {}, choice.title), h('small', {}, choice.detail)))));
        }
        return row(label, h('select', { id, onchange: (e) => this.change(item, e.target.value) },
          ...item.choices.map((choice) => h('option', { value: choice.value, selected: choice.value === item.value }, choice.title))));
      default:
        return row(label, h('input', {
          id, type: 'text', value: item.value, placeholder: item.placeholder || '',
          inputmode: item.kind === 'number' ? 'decimal' : undefined,
          onchange: (e) => this.change(item, e.target.value),
        }), item.unit ? h('span', { class: 'unit' }, item.unit) : null);
    }
  }

  async change(item, value) {
    try {
      this.draw(await api('/api/settings', { name: item.name, value }));
      if (item.key === 'colorThemeType') reloadTheme();
    } catch (error) {
      await showAlert({ title: item.label.trim() || item.name, message: error.message, buttons: ['Ok'] });
      this.draw(await api('/api/settings'));
    }
    this.body.querySelector(`[data-key="${CSS.escape(item.key)}"] input, [data-key="${CSS.escape(item.key)}"] select`)?.focus();
  }
}

// The theme's colours follow the stored choice at once: a fresh copy of /theme.css comes after
// the one app.css imported, so its colours win.
function reloadTheme() {
  document.getElementById('theme-reloaded')?.remove();
  document.head.append(h('link', { id: 'theme-reloaded', rel: 'stylesheet', href: `/theme.css?at=${Date.now()}` }));
}
