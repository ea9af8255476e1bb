// <uw-grid>: a thumbnail grid that draws only the rows in view, so an album of ten thousand
// items scrolls as one of ten. Items come in pages from `source(offset, limit)`. Selection by
// click, shift-click (a range) and dragging across cells; arrows, space and enter from the
// keyboard.
import { h, thumbnailURL } from './api.js';

const PAGE = 200;

export class UwGrid extends HTMLElement {
  constructor() {
    super();
    this.total = 0;
    this.pages = new Map();
    this.selected = new Set();
    this.order = [];
    this.anchor = null;
    this.focusIndex = 0;
    this.cell = 120;
    this.onselectionchange = null;
  }

  connectedCallback() {
    this.setAttribute('role', 'grid');
    this.tabIndex = 0;
    this.spacer = h('div', { class: 'grid-spacer' });
    this.layer = h('div', { class: 'grid-layer' });
    this.spacer.append(this.layer);
    this.append(this.spacer);
    this.addEventListener('scroll', () => this.draw(), { passive: true });
    this.addEventListener('keydown', (e) => this.key(e));
    this.addEventListener('pointerdown', (e) => this.pointerDown(e));
    new ResizeObserver(() => this.draw()).observe(this);
  }

  // `source(offset, limit)` answers {total, items}.
  async load(source) {
    this.source = source;
    this.pages.clear();
    this.selected.clear();
    this.order = [];
    const first = await source(0, PAGE);
    this.total = first.total;
    this.pages.set(0, first.items);
    this.scrollTop = 0;
    this.draw();
    this.changed();
  }

  itemAt(index) {
    const page = this.pages.get(Math.floor(index / PAGE));
    return page ? page[index % PAGE] : null;
  }

  async fetchPage(number) {
    if (this.pages.has(number)) return;
    this.pages.set(number, null);
    const answer = await this.source(number * PAGE, PAGE);
    this.pages.set(number, answer.items);
    this.draw();
  }

  columns() {
    return Math.max(1, Math.floor(this.clientWidth / this.cell));
  }

  draw() {
    if (!this.layer) return;
    const columns = this.columns();
    const side = this.clientWidth / columns;
    const rows = Math.ceil(this.total / columns);
    this.spacer.style.height = `${rows * side}px`;
    const firstRow = Math.max(0, Math.floor(this.scrollTop / side) - 2);
    const lastRow = Math.min(rows, Math.ceil((this.scrollTop + this.clientHeight) / side) + 2);
    const wanted = new Map();
    for (let i = firstRow * columns; i < Math.min(this.total, lastRow * columns); ++i) {
      wanted.set(i, true);
      const item = this.itemAt(i);
      if (!item && !this.pages.has(Math.floor(i / PAGE))) this.fetchPage(Math.floor(i / PAGE));
    }
    for (const cell of [...this.layer.children]) {
      const index = Number(cell.dataset.index);
      if (!wanted.has(index) || (cell.dataset.empty && this.itemAt(index))) cell.remove();
      else wanted.delete(index);
    }
    for (const index of wanted.keys()) this.layer.append(this.makeCell(index));
    for (const cell of this.layer.children) {
      const index = Number(cell.dataset.index);
      cell.style.transform = `translate(${(index % columns) * side}px, ${Math.floor(index / columns) * side}px)`;
      cell.style.width = cell.style.height = `${side}px`;
      const item = this.itemAt(index);
      cell.classList.toggle('selected', !!item && this.selected.has(item.id));
      cell.classList.toggle('focused', index === this.focusIndex);
      cell.setAttribute('aria-selected', String(!!item && this.selected.has(item.id)));
    }
  }

  makeCell(index) {
    const item = this.itemAt(index);
    const cell = h('div', { class: 'cell', role: 'gridcell', dataset: { index: String(index) } });
    if (!item) {
      cell.dataset.empty = '1';
      return cell;
    }
    cell.title = item.name || item.id;
    cell.append(h('img', { src: thumbnailURL(item.id), alt: item.name || '', loading: 'lazy', draggable: 'false' }));
    if (item.media === 'video') cell.append(h('span', { class: 'badge' }, formatDuration(item.duration)));
    cell.append(h('span', { class: 'mark', 'aria-hidden': 'true' }, '✓'));
    return cell;
  }

  toggle(index, { range = false, value } = {}) {
    const apply = (i) => {
      const item = this.itemAt(i);
      if (!item) return;
      const on = value ?? !this.selected.has(item.id);
      if (on && !this.selected.has(item.id)) { this.selected.add(item.id); this.order.push(item); }
      if (!on && this.selected.has(item.id)) {
        this.selected.delete(item.id);
        this.order = this.order.filter((o) => o.id !== item.id);
      }
    };
    if (range && this.anchor !== null) {
      const [a, b] = [Math.min(this.anchor, index), Math.max(this.anchor, index)];
      for (let i = a; i <= b; ++i) apply(i);
    } else {
      apply(index);
      this.anchor = index;
    }
    this.focusIndex = index;
    this.draw();
    this.changed();
  }

  changed() {
    this.onselectionchange?.(this.order.slice());
  }

  indexFromEvent(event) {
    const cell = event.target.closest('.cell');
    return cell ? Number(cell.dataset.index) : null;
  }

  pointerDown(event) {
    const index = this.indexFromEvent(event);
    if (index === null || event.button !== 0) return;
    const item = this.itemAt(index);
    if (!item) return;
    if (event.shiftKey) return this.toggle(index, { range: true, value: true });
    const value = !this.selected.has(item.id);
    this.toggle(index, { value });
    // Dragging across cells gives them the first cell's new state.
    const move = (e) => {
      const under = document.elementFromPoint(e.clientX, e.clientY)?.closest?.('.cell');
      if (!under || !this.contains(under)) return;
      const i = Number(under.dataset.index);
      const it = this.itemAt(i);
      if (it && this.selected.has(it.id) !== value) this.toggle(i, { value });
    };
    const up = () => {
      window.removeEventListener('pointermove', move);
      window.removeEventListener('pointerup', up);
    };
    window.addEventListener('pointermove', move);
    window.addEventListener('pointerup', up);
  }

  key(event) {
    const columns = this.columns();
    const moves = { ArrowRight: 1, ArrowLeft: -1, ArrowDown: columns, ArrowUp: -columns };
    if (event.key in moves) {
      event.preventDefault();
      this.focusIndex = Math.min(this.total - 1, Math.max(0, this.focusIndex + moves[event.key]));
      if (event.shiftKey) this.toggle(this.focusIndex, { range: true, value: true });
      const side = this.clientWidth / columns;
      const top = Math.floor(this.focusIndex / columns) * side;
      if (top < this.scrollTop) this.scrollTop = top;
      if (top + side > this.scrollTop + this.clientHeight) this.scrollTop = top + side - this.clientHeight;
      this.draw();
    } else if (event.key === ' ' || event.key === 'Enter') {
      event.preventDefault();
      this.toggle(this.focusIndex);
    }
  }
}

function formatDuration(seconds = 0) {
  const s = Math.round(seconds);
  return `${Math.floor(s / 60)}:${String(s % 60).padStart(2, '0')}`;
}

customElements.define('uw-grid', UwGrid);
