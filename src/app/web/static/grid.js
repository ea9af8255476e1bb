// <uw-grid>: a thumbnail grid that draws only the rows in view, so an album of ten thousand
// items scrolls as one of ten. Items come in pages from `source(offset, limit)`. Selection by
// click, shift-click (a range) and dragging across cells; arrows, space and enter from the
// keyboard.
import { h, thumbnailURL } from './api.js';

const PAGE = 200;
const OVERSCAN = 2;

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
    // A fixed pool of rows, made when the size changes: scrolling moves a row that left the
    // view to the other end and gives its cells other items, and never adds or removes an
    // element. Row `r` lives in slot `r % pool.length`.
    this.pool = [];
    this.geometry = { columns: 0, side: this.cell, height: 0, rows: 0, picture: 0 };
    this.frameAsked = false;
    this.lastTop = 0;
    // Pictures decoded and waiting for the next frame, where they go in together.
    this.decoded = [];
  }

  connectedCallback() {
    if (this.layer) return;
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
    // The cells of the album left go at once: their items are dropped, so until the first page
    // comes they would show pictures that a click or a key no longer reaches.
    this.total = 0;
    this.measure(true);
    this.changed();
    const first = await source(0, PAGE);
    if (generation !== this.generation) return;
    this.total = first.total;
    this.pages.set(0, first.items);
    this.scrollTop = this.lastTop = 0;
    this.measure(true);
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
        this.eachCell((cell, index) => {
          if (cell.dataset.empty && this.itemAt(index)) this.fill(cell, index, true);
        });
      }, () => { this.pending.delete(number); }));
    }
    return this.pending.get(number);
  }

  columns() {
    return this.geometry.columns;
  }

  eachCell(visit) {
    for (const slot of this.pool) {
      if (slot.row < 0) continue;
      slot.cells.forEach((cell, column) => visit(cell, slot.row * this.geometry.columns + column));
    }
  }

  // Sizes change with the window and the item count only, not with scrolling.
  measure(refill = false) {
    if (!this.layer) return;
    const width = this.clientWidth;
    const height = this.clientHeight;
    const columns = Math.max(1, Math.floor(width / this.cell));
    const side = width / columns;
    const rows = Math.ceil(this.total / columns);
    // Two rows beyond each edge, so that a row is in place before it shows.
    const poolRows = Math.min(rows, Math.ceil(height / side) + 1 + 2 * OVERSCAN);
    // A picture is asked for at the device pixels it covers (the cell less its padding), so
    // it is drawn without scaling.
    const picture = Math.max(16, Math.round((side - 4) * window.devicePixelRatio));
    const old = this.geometry;
    this.geometry = { columns, side, height, rows, picture };
    this.spacer.style.height = `${rows * side}px`;
    if (columns !== old.columns || side !== old.side || poolRows !== this.pool.length || picture !== old.picture) {
      this.style.setProperty('--grid-side', `${side}px`);
      this.makePool(poolRows, columns);
      refill = true;
    }
    this.draw(refill);
  }

  makePool(rows, columns) {
    this.pool = Array.from({ length: rows }, () => {
      const cells = Array.from({ length: columns }, () => {
        const img = h('img', { alt: '', draggable: 'false', decoding: 'async' });
        const badge = h('span', { class: 'badge', hidden: true });
        const cell = h('div', { class: 'cell', role: 'gridcell' }, img, badge, h('span', { class: 'mark', 'aria-hidden': 'true' }, '✓'));
        cell.img = img;
        cell.badge = badge;
        return cell;
      });
      return { row: -1, element: h('div', { class: 'grid-row', role: 'row' }, ...cells), cells };
    });
    this.layer.replaceChildren(...this.pool.map((slot) => slot.element));
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

  // Moves the rows that left the view to the rows coming into it; `refill` gives every row
  // its items anew (another album, another size).
  draw(refill = false) {
    if (!this.layer || !this.pool.length) return;
    const { columns, side, height, rows } = this.geometry;
    const top = this.scrollTop;
    // A fling passes cells too fast to see: their pictures wait until the grid slows down.
    const fast = Math.abs(top - this.lastTop) > height / 4;
    const down = top >= this.lastTop;
    this.lastTop = top;
    const count = this.pool.length;
    const firstRow = Math.max(0, Math.min(Math.floor(top / side) - OVERSCAN, rows - count));
    for (let row = firstRow; row < firstRow + count; ++row) {
      const slot = this.pool[row % count];
      if (slot.row === row && !refill) continue;
      slot.row = row;
      slot.element.style.transform = `translateY(${row * side}px)`;
      for (let column = 0; column < columns; ++column) this.fill(slot.cells[column], row * columns + column, !fast);
    }
    // The items of the rows in the pool, and of the page the scroll heads into.
    const first = firstRow * columns;
    const last = Math.min(this.total, (firstRow + count) * columns) - 1;
    this.fetchPage(Math.floor(first / PAGE));
    this.fetchPage(Math.floor(last / PAGE));
    const ahead = Math.floor((down ? last + PAGE / 2 : first - PAGE / 2) / PAGE);
    if (ahead >= 0 && ahead * PAGE < this.total) this.fetchPage(ahead);
  }

  // Gives `cell` the item at `index`; its picture only when `picture` (else on rest).
  fill(cell, index, picture) {
    if (index >= this.total) {
      cell.hidden = true;
      delete cell.dataset.index;
      cell.setAttribute('aria-selected', 'false');
      this.setPicture(cell, null);
      return;
    }
    cell.hidden = false;
    cell.dataset.index = String(index);
    this.mark(cell, index);
    const item = this.itemAt(index);
    if (!item) {
      cell.dataset.empty = '1';
      cell.removeAttribute('title');
      cell.badge.hidden = true;
      this.setPicture(cell, null);
      return;
    }
    delete cell.dataset.empty;
    cell.title = item.name || item.id;
    const video = item.media === 'video';
    cell.badge.hidden = !video;
    if (video) cell.badge.textContent = formatDuration(item.duration);
    this.setPicture(cell, `${thumbnailURL(item.id, this.geometry.picture)}&square=1`, picture);
  }

  // The cell shows `url` once it is decoded; until then, and while it waits for the grid to
  // rest, it shows its empty colour rather than the picture of the item it had before.
  setPicture(cell, url, now = true) {
    if (cell.wanted !== url) {
      cell.wanted = url;
      cell.asked = false;
      if (cell.img.getAttribute('src') !== url) {
        cell.img.removeAttribute('src');
        cell.img.alt = '';
      }
    }
    if (url && now && !cell.asked) this.askPicture(cell);
  }

  askPicture(cell) {
    const url = cell.wanted;
    cell.asked = true;
    if (cell.img.getAttribute('src') === url) return;
    const probe = new Image();
    probe.decoding = 'async';
    probe.src = url;
    probe.decode().then(() => {
      if (cell.wanted !== url) return;
      this.decoded.push([cell, url]);
      if (this.decoded.length === 1) requestAnimationFrame(() => this.showDecoded());
    }, () => {
      // A picture the server could not give stays asked for: the cell keeps its colour.
    });
  }

  showDecoded() {
    for (const [cell, url] of this.decoded) {
      if (cell.wanted !== url) continue;
      cell.img.src = url;
      cell.img.alt = cell.title || '';
    }
    this.decoded = [];
  }

  showPictures() {
    this.eachCell((cell) => {
      if (cell.wanted && !cell.asked) this.askPicture(cell);
    });
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
    this.eachCell((cell, index) => {
      if (index < this.total) this.mark(cell, index);
    });
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
