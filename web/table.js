// The table of the parameters: its groups, the filter, and the way to a row or group.

import { make, part, root, setContent, short } from './dom.js';
import { Row } from './row.js';

export class Table {
  #state;
  #act;
  #rows = new Map();
  #groups = new Map(); // by folder
  #columns = []; // the groups of each

  /// `act` is for the rows.
  constructor(state, act) {
    this.#state = state;
    this.#act = act;
    window.addEventListener('resize', () => this.#spread());
  }

  /// Makes a row for each name, grouped by a numbered folder or else the first one.
  #fill(names) {
    this.#groups.clear();
    for (const name of names) {
      const [folder] = /^(.*?\d|[^/]*)(?=\/)/.exec(short(name)) ?? [''];
      if (!this.#groups.has(folder)) {
        this.#groups.set(folder, make('details', { open: '' }, make('summary', {}, make('h3', {}, folder))));
      }
      if (!this.#rows.has(name)) {
        const about = this.#state.descriptions.get(name);
        this.#rows.set(name, new Row(name, folder, about, this.#act));
      }
      this.#groups.get(folder).append(this.#rows.get(name).element);
    }
    part('groups').replaceChildren(...[...this.#groups.keys()].map((folder) =>
      make('a', { href: `#${root}${folder}/` }, folder)));
    part('table').replaceChildren(...this.#groups.values());
    this.#columns = [];
    this.#spread();
  }

  /// Spreads the groups over as many columns as fit. What is typed then moves only rows below it.
  #spread() {
    const element = part('table');
    const count = Math.max(1, Math.min(3, Math.floor(element.clientWidth / 330)));
    const groups = [...this.#groups.values()];
    const heights = groups.map(({ offsetHeight }) => offsetHeight);
    const whole = heights.reduce((sum, height) => sum + height, 1);
    const columns = Array.from({ length: count }, () => []);
    let above = 0;
    groups.forEach((group, index) => {
      columns[Math.floor((above + heights[index] / 3) * count / whole)].push(group);
      above += heights[index];
    });
    if (JSON.stringify(columns.map((some) => some.length)) === JSON.stringify(this.#columns)) return;
    this.#columns = columns.map((some) => some.length);
    const focused = document.activeElement;
    element.replaceChildren(...columns.map((some) => make('div', {}, ...some)));
    focused.focus({ preventScroll: true });
  }

  show() {
    const { values, staged, former, elsewhere } = this.#state;
    const isFirst = !this.#rows.size;
    if (this.#rows.size !== values.size) this.#fill(values.keys());
    for (const [name, value] of values) {
      this.#rows.get(name).show({ value, staged: staged.get(name)?.value, former: former.get(name),
        elsewhere: elsewhere.has(name), outcome: this.#state.outcomeOf(name),
        shown: (some) => this.#state.shown(name, some) });
    }
    this.#hideRows();
    if (isFirst) this.lead(location.hash);
  }

  /// After a change of the filter.
  filter() {
    this.#hideRows();
    if (part('filter').value) this.fold(false);
    this.#spread();
  }

  /// Hides rows outside the filter, but none with a staged value or the focus.
  #hideRows() {
    const { openValues, former, staged, descriptions } = this.#state;
    const words = part('filter').value.toLowerCase().split(/\s+/);
    const only = part('only-changed').checked;
    let count = 0;
    for (const [name, { element }] of this.#rows) {
      const text = `${name}\n${descriptions.get(name).label ?? ''}\n${openValues.get(name)}`.toLowerCase();
      element.hidden = !(words.every((word) => text.includes(word)) && (!only || former.has(name)))
        && !staged.has(name) && !element.contains(document.activeElement);
      count += !element.hidden;
    }
    for (const group of this.#groups.values()) group.hidden = !group.querySelector('.row:not([hidden])');
    setContent(part('count'), count ? `${count} of ${this.#rows.size}` : 'No parameter fits');
  }

  fold(isFolded) {
    for (const group of this.#groups.values()) group.open = !isFolded;
    this.#spread();
  }

  /// Leads to the row or group of a link.
  lead(hash) {
    const isMeant = (name) => new URL(`#${name}`, location).hash === hash;
    const [, row] = [...this.#rows].find(([name]) => isMeant(name)) ?? [];
    const [, group = row?.element.parentElement] =
      [...this.#groups].find(([folder]) => isMeant(`${root}${folder}/`)) ?? [];
    if (!group) return;
    part('filter').value = '';
    part('only-changed').checked = false;
    group.open = true;
    this.filter();
    if (row) row.focus();
    else group.firstChild.focus({ preventScroll: true });
    (row?.element ?? group).scrollIntoView({ block: row ? 'center' : 'start' });
  }
}
