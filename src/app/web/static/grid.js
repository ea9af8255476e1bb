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
    // The picked items by id, in the order they were picked.
    this.order = new Map();
    this.pending = new Map();
    this.generation = 0;
    this.anchor = null;
    this.focusIndex = 0;
    this.cell = 120;
    this.onselectionchange = null;
    // The cells in the page by index; a scroll frame only adds and removes cells at the
    // edges, and the sizes measured once per resize are all it reads.
    this.cells = new Map();
    this.spare = [];
    this.geometry = { columns: 1, side: this.cell, height: 0, rows: 0 };
    this.frameAsked = false;
    this.lastTop = 0;
  }

  connectedCallback() {
    this.setAttribute('role', 'grid');
    this.tabIndex = 0;
    this.spacer = h('div', { class: 'grid-spacer' });
    this.layer = h('div', { class: 'grid-layer' });
    this.spacer.append(this.layer);
    this.append(this.spacer);
    this.addEventListener('scroll', () => this.scrolled(), { passive: true });
    this.addEventListener('keydown', (e) => this.key(e));
    this.addEventListener('pointerdown', (e) => this.pointerDown(e));
    new ResizeObserver(() => this.measure()).observe(this);
  }

  // `source(offset, limit)` answers {total, items}.
  async load(source) {
    this.source = source;
    this.pages.clear();
    this.pending.clear();
    this.selected.clear();
    this.order.clear();
    this.anchor = null;
    const generation = ++this.generation;
    const first = await source(0, PAGE);
    if (generation !== this.generation) return;
    this.total = first.total;
    this.pages.set(0, first.items);
    this.clearCells();
    this.scrollTop = this.lastTop = 0;
    this.measure();
    this.changed();
  }

  itemAt(index) {
    const page = this.pages.get(Math.floor(index / PAGE));
    return page ? page[index % PAGE] : null;
  }

  // The page's items, asked for once; a page of an album left meanwhile is dropped.
  fetchPage(number) {
    if (this.pages.has(number)) return Promise.resolve();
    if (!this.pending.has(number)) {
      const generation = this.generation;
      this.pending.set(number, this.source(number * PAGE, PAGE).then((answer) => {
        if (generation !== this.generation) return;
        this.pages.set(number, answer.items);
        for (const [index, cell] of this.cells) if (cell.dataset.empty && this.itemAt(index)) this.fill(cell, index, true);
      }, () => { this.pending.delete(number); }));
    }
    return this.pending.get(number);
  }

  columns() {
    return this.geometry.columns;
  }

  // Sizes change with the window and the item count only, not with scrolling.
  measure() {
    if (!this.layer) return;
    const width = this.clientWidth;
    const columns = Math.max(1, Math.floor(width / this.cell));
    const side = width / columns;
    const rows = Math.ceil(this.total / columns);
    const changed = columns !== this.geometry.columns || side !== this.geometry.side;
    this.geometry = { columns, side, height: this.clientHeight, rows };
    this.spacer.style.height = `${rows * side}px`;
    if (changed) this.clearCells();
    this.draw();
  }

  scrolled() {
    if (this.frameAsked) return;
    this.frameAsked = true;
    requestAnimationFrame(() => {
      this.frameAsked = false;
      this.draw();
    });
    // Pictures skipped while flinging are asked for once the grid rests.
    clearTimeout(this.restTimer);
    this.restTimer = setTimeout(() => this.showPictures(), 150);
  }

  draw() {
    if (!this.layer) return;
    const { columns, side, height, rows } = this.geometry;
    const top = this.scrollTop;
    // A fling passes cells too fast to see: their pictures wait until the grid slows down.
    const fast = Math.abs(top - this.lastTop) > height / 4;
    this.lastTop = top;
    const firstRow = Math.max(0, Math.floor(top / side) - 2);
    const lastRow = Math.min(rows, Math.ceil((top + height) / side) + 2);
    const first = firstRow * columns;
    const end = Math.min(this.total, lastRow * columns);
    for (const [index, cell] of this.cells) {
      if (index >= first && index < end) continue;
      this.cells.delete(index);
      cell.remove();
      if (this.spare.length < 100) this.spare.push(cell);
    }
    for (let i = first; i < end; ++i) {
      if (i % PAGE === 0 || i === first) this.fetchPage(Math.floor(i / PAGE));
      if (this.cells.has(i)) continue;
      const cell = this.spare.pop() || h('div', { class: 'cell', role: 'gridcell' });
      cell.style.transform = `translate(${(i % columns) * side}px, ${Math.floor(i / columns) * side}px)`;
      cell.style.width = cell.style.height = `${side}px`;
      this.fill(cell, i, !fast);
      this.cells.set(i, cell);
      this.layer.append(cell);
    }
  }

  clearCells() {
    for (const cell of this.cells.values()) cell.remove();
    this.cells.clear();
  }

  // Gives `cell` the item at `index`; its picture only when `picture` (else on rest).
  fill(cell, index, picture) {
    const item = this.itemAt(index);
    cell.dataset.index = String(index);
    cell.replaceChildren();
    this.mark(cell, index);
    if (!item) {
      cell.dataset.empty = '1';
      cell.removeAttribute('title');
      return;
    }
    delete cell.dataset.empty;
    cell.title = item.name || item.id;
    const img = h('img', { alt: item.name || '', draggable: 'false' });
    if (picture) img.src = thumbnailURL(item.id);
    else img.dataset.src = thumbnailURL(item.id);
    cell.append(img);
    if (item.media === 'video') cell.append(h('span', { class: 'badge' }, formatDuration(item.duration)));
    cell.append(h('span', { class: 'mark', 'aria-hidden': 'true' }, '✓'));
  }

  showPictures() {
    for (const img of this.layer.querySelectorAll('img[data-src]')) {
      img.src = img.dataset.src;
      delete img.dataset.src;
    }
  }

  // Selection and focus of one cell.
  mark(cell, index) {
    const item = this.itemAt(index);
    const selected = !!item && this.selected.has(item.id);
    cell.classList.toggle('selected', selected);
    cell.classList.toggle('focused', index === this.focusIndex);
    cell.setAttribute('aria-selected', String(selected));
  }

  // Selection or focus changed: the cells in the page take it, none is made anew.
  remark() {
    for (const [index, cell] of this.cells) this.mark(cell, index);
  }

  // A range may reach over pages never scrolled through: they are asked for first.
  async toggle(index, { range = false, value } = {}) {
    const apply = (i) => {
      const item = this.itemAt(i);
      if (!item) return;
      const on = value ?? !this.selected.has(item.id);
      if (on && !this.selected.has(item.id)) { this.selected.add(item.id); this.order.set(item.id, item); }
      if (!on && this.selected.has(item.id)) {
        this.selected.delete(item.id);
        this.order.delete(item.id);
      }
    };
    if (range && this.anchor !== null) {
      const [a, b] = [Math.min(this.anchor, index), Math.max(this.anchor, index)];
      const generation = this.generation;
      const pages = [];
      for (let page = Math.floor(a / PAGE); page <= Math.floor(b / PAGE); ++page) pages.push(this.fetchPage(page));
      await Promise.all(pages);
      if (generation !== this.generation) return;
      for (let i = a; i <= b; ++i) apply(i);
    } else {
      apply(index);
      this.anchor = index;
    }
    this.focusIndex = index;
    this.remark();
    this.changed();
  }

  changed() {
    this.onselectionchange?.([...this.order.values()]);
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
      const { side, height } = this.geometry;
      const top = Math.floor(this.focusIndex / columns) * side;
      if (top < this.scrollTop) this.scrollTop = top;
      if (top + side > this.scrollTop + height) this.scrollTop = top + side - height;
      this.remark();
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
