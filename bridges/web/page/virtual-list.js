// A list of any length, of which only what can be seen is in the document.

const spare = 6;        // Rows kept beyond each edge.
const pageLength = 100; // Entries fetched at a time.
const pagesKept = 60;

/**
 * Entries that come in pages. `fetchPage(offset, count, signal)` gives {entries, total}; a total of
 * undefined is not known yet.
 */
export class Pages {
  constructor(fetchPage, total = 0) {
    this.fetchPage = fetchPage;
    this.total = total;
    this.pages = new Map();
    this.abort = new AbortController();
    this.onChange = () => {};
    this.onError = () => {};
  }

  /** The entry, or undefined while it is fetched. */
  get(index) {
    const number = Math.floor(index / pageLength);
    const page = this.pages.get(number);
    if (!page) {
      this.load(number);
      return undefined;
    }
    return page.entries?.[index % pageLength];
  }

  async load(number) {
    const page = {entries: null};
    this.pages.set(number, page);
    try {
      const offset = number * pageLength;
      const answer = await this.fetchPage(offset, pageLength, this.abort.signal);
      page.entries = answer.entries;
      if (answer.total !== undefined) {
        this.total = answer.total;
      }
      for (const old of this.pages.keys()) {
        if (this.pages.size <= pagesKept) {
          break;
        }
        if (Math.abs(old - number) > 3) {
          this.pages.delete(old);
        }
      }
      this.onChange();
    } catch (error) {
      if (error.name !== 'AbortError') {
        setTimeout(() => this.pages.get(number) === page && this.pages.delete(number), 1000);
        this.onError(error);
      }
    }
  }

  close() {
    this.abort.abort();
    this.onChange = () => {};
    this.onError = () => {};
  }
}

/**
 * Shows Pages in a scrolling element. `render(entry, index)` makes the element of an entry, with a
 * button of the class "go"; entry is undefined while it is fetched. Arrow keys, Home, End and the
 * page keys move between entries, left and right between the buttons of one; onKey(event, index)
 * may take a key first.
 */
export class VirtualList {
  constructor(element, {render, label, onKey = () => false}) {
    this.element = element;
    this.render = render;
    this.onKey = onKey;
    this.tiles = false;
    this.focused = 0;
    this.shown = new Map();
    this.space = document.createElement('div');
    this.space.className = 'space';
    this.space.setAttribute('role', 'list');
    this.space.setAttribute('aria-label', label);
    element.replaceChildren(this.space);
    element.tabIndex = -1;
    element.addEventListener('scroll', () => this.schedule(), {passive: true});
    element.addEventListener('keydown', event => this.handleKey(event));
    element.addEventListener('focusin', event => this.noteFocus(event));
    new ResizeObserver(() => this.measure()).observe(element);
  }

  /** @param keep whether the place in the list stays. */
  show(pages, {tiles = false, keep = false} = {}) {
    this.pages?.close();
    this.pages = pages;
    this.tiles = tiles;
    pages.onChange = () => this.refresh();
    if (!keep) {
      this.focused = 0;
      this.element.scrollTop = 0;
    }
    this.refresh();
  }

  measure() {
    const width = this.element.clientWidth;
    if (!width) {
      return; // not shown; the observer calls when it is
    }
    const margin = this.tiles ? 12 : 0;
    this.columns = this.tiles ? Math.max(2, Math.floor((width - 2 * margin) / 150)) : 1;
    this.cellWidth = (width - 2 * margin) / this.columns;
    this.measuredTiles = this.tiles;
    this.cellHeight = this.tiles ? Math.round(this.cellWidth) + 56 : 60;
    this.margin = margin;
    this.refresh();
  }

  /** Renders all visible entries again. */
  refresh() {
    if (!this.cellHeight || this.measuredTiles !== this.tiles) {
      this.measure();
      return;
    }
    this.stale = true;
    this.schedule();
  }

  schedule() {
    this.frame ||= requestAnimationFrame(() => {
      this.frame = 0;
      this.update();
    });
  }

  update() {
    if (!this.pages || !this.cellHeight) {
      return;
    }
    const {total} = this.pages;
    const height = Math.ceil(total / this.columns) * this.cellHeight;
    this.space.style.height = `${height}px`;
    const top = this.element.scrollTop;
    const first = Math.max(0, Math.floor(top / this.cellHeight) - spare) * this.columns;
    const rows = Math.ceil(this.element.clientHeight / this.cellHeight) + 2 * spare;
    const last = Math.min(total, first + rows * this.columns);
    const hadFocus = this.element.contains(document.activeElement);
    const position = hadFocus ? this.buttonPlace() : 0;
    for (const [index, old] of this.shown) {
      if (this.stale || index < first || index >= last) {
        old.element.remove();
        this.shown.delete(index);
      }
    }
    this.stale = false;
    this.focused = Math.max(0, Math.min(this.focused, total - 1));
    for (let index = first; index < last; ++index) {
      if (!this.shown.has(index)) {
        this.place(index);
      }
    }
    if (hadFocus && !this.element.contains(document.activeElement)) {
      this.focusButton(position);
    }
    this.markTabStop(first, last);
  }

  place(index) {
    const entry = this.pages.get(index);
    const element = this.render(entry, index);
    element.setAttribute('role', 'listitem');
    element.setAttribute('aria-posinset', index + 1);
    element.setAttribute('aria-setsize', this.pages.total);
    const column = index % this.columns;
    const row = Math.floor(index / this.columns);
    element.style.transform =
      `translate(${this.margin + column * this.cellWidth}px, ${row * this.cellHeight}px)`;
    if (this.tiles) {
      element.style.width = `${this.cellWidth}px`;
      element.style.height = `${this.cellHeight}px`;
    }
    element.dataset.index = index;
    for (const button of element.querySelectorAll('button')) {
      button.tabIndex = -1;
    }
    const next = [...this.shown.keys()].filter(other => other > index).sort((a, b) => a - b)[0];
    this.space.insertBefore(element, next === undefined ? null : this.shown.get(next).element);
    this.shown.set(index, {element});
  }

  // The tab key reaches one entry; if that is out of sight, the first visible one.
  markTabStop(first, last) {
    for (const {element} of this.shown.values()) {
      element.querySelector('.go').tabIndex = -1;
    }
    const index = this.shown.has(this.focused) ? this.focused : first;
    if (index < last) {
      this.shown.get(index).element.querySelector('.go').tabIndex = 0;
    }
  }

  noteFocus(event) {
    const item = event.target.closest('[data-index]');
    if (item) {
      this.focused = Number(item.dataset.index);
    }
  }

  buttons() {
    return [...this.shown.get(this.focused)?.element.querySelectorAll('button') ?? []];
  }

  buttonPlace() {
    return Math.max(0, this.buttons().indexOf(document.activeElement));
  }

  focusButton(place) {
    const buttons = this.buttons();
    (buttons[place] ?? buttons[0] ?? this.element).focus({preventScroll: true});
  }

  /** Focuses an entry and scrolls to it. */
  focusEntry(index) {
    this.focused = Math.max(0, Math.min(index, this.pages.total - 1));
    this.reveal(this.focused);
    this.update();
    this.focusButton(0);
  }

  reveal(index, centre = false) {
    if (!this.cellHeight) {
      return;
    }
    const top = Math.floor(index / this.columns) * this.cellHeight;
    const {scrollTop, clientHeight} = this.element;
    if (centre) {
      this.element.scrollTop = top - (clientHeight - this.cellHeight) / 2;
    } else if (top < scrollTop) {
      this.element.scrollTop = top;
    } else if (top + this.cellHeight > scrollTop + clientHeight) {
      this.element.scrollTop = top + this.cellHeight - clientHeight;
    }
  }

  handleKey(event) {
    if (this.onKey(event, this.focused)) {
      event.preventDefault();
      return;
    }
    const page = Math.max(1, Math.floor(this.element.clientHeight / this.cellHeight) - 1);
    const steps = {
      ArrowDown: this.columns, ArrowUp: -this.columns, Home: -Infinity, End: Infinity,
      PageDown: page * this.columns, PageUp: -page * this.columns,
    };
    if (event.altKey || event.ctrlKey || event.metaKey) {
      return;
    }
    if (event.key in steps) {
      event.preventDefault();
      this.focusEntry(this.focused + steps[event.key]);
    } else if (event.key === 'ArrowRight' || event.key === 'ArrowLeft') {
      event.preventDefault();
      const step = event.key === 'ArrowRight' ? 1 : -1;
      if (this.tiles) {
        this.focusEntry(this.focused + step);
      } else {
        const last = this.buttons().length - 1;
        this.focusButton(Math.min(Math.max(0, this.buttonPlace() + step), last));
      }
    }
  }
}
