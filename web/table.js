// The table of the parameters: its groups, the filter, and the way to a row.

import { make, part, setContent, short } from './dom.js';
import { Row } from './row.js';

export class Table {
  #state;
  #rows = new Map();

  constructor(state) {
    this.#state = state;
  }

  /// Makes a row for each name, grouped by a numbered folder or else the first one.
  #fill(names, descriptions, act) {
    const groups = new Map();
    for (const name of names) {
      const [folder] = /^(.*?\d|[^/]*)(?=\/)/.exec(short(name)) ?? [''];
      if (!groups.has(folder)) {
        groups.set(folder, make('details', { open: '' }, make('summary', {}, make('h3', {}, folder))));
      }
      if (!this.#rows.has(name)) {
        this.#rows.set(name, new Row(name, short(name).slice(folder.length + 1), descriptions.get(name), act));
      }
      groups.get(folder).append(this.#rows.get(name).element);
    }
    part('table').replaceChildren(...groups.values());
  }

  /// `act` is for the rows.
  show(descriptions, act) {
    const { values, staged, outcomes, changed, elsewhere } = this.#state;
    if (this.#rows.size !== values.size) this.#fill(values.keys(), descriptions, act);
    for (const [name, value] of values) {
      this.#rows.get(name).show({ value, staged: staged.get(name), former: changed.get(name),
        elsewhere: elsewhere.has(name), outcome: outcomes.get(name), doing: this.#state.doing(name) });
    }
    this.filter();
  }

  /// Hides rows that do not fit, but none with a staged value or the focus.
  filter() {
    const { values, changed, staged } = this.#state;
    const words = part('filter').value.toLowerCase().split(/\s+/);
    const only = part('only-changed').checked;
    let count = 0;
    for (const [name, { element }] of this.#rows) {
      const text = `${name}\n${values.get(name)}`.toLowerCase();
      element.hidden = !(words.every((word) => text.includes(word)) && (!only || changed.has(name)))
        && !staged.has(name) && !element.contains(document.activeElement);
      count += !element.hidden;
    }
    for (const group of part('table').children) {
      group.hidden = !group.querySelector('.row:not([hidden])');
    }
    setContent(part('count'), count ? `${count} of ${this.#rows.size}` : 'No parameter fits');
  }

  /// Leads to the row of a link.
  lead(hash) {
    const [, row] = [...this.#rows].find(([name]) => new URL(`#${name}`, location).hash === hash) ?? [];
    if (!row) return;
    part('filter').value = '';
    part('only-changed').checked = false;
    this.filter();
    row.element.parentElement.open = true;
    row.focus();
    row.element.scrollIntoView({ block: 'center' });
  }
}
