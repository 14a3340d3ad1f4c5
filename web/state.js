// The state of the page: what was read, what it is compared with, and what is staged to be written.

export class State {
  values = new Map(); // each read makes a new Map
  staged = new Map(); // what is not written yet
  outcomes = new Map(); // of writes by name: the `value`, a `note`, and what is `bad`, if anything
  #baseline = new Map(); // what the marks compare with
  #elsewhere = new Set(); // what has changed without a write of this page

  /// Takes what was read; what has changed is this page's `own` doing or not.
  take(values, own) {
    for (const [name, value] of values) {
      if (!this.#baseline.has(name)) this.#baseline.set(name, value);
      else if (this.values.get(name) === value) continue;
      else if (own) this.#elsewhere.delete(name);
      else this.#elsewhere.add(name);
      if (this.staged.get(name) === value) this.staged.delete(name);
      const outcome = this.outcomes.get(name);
      // It is true no longer.
      if (outcome && (outcome.value === value) === Boolean(outcome.bad)) this.outcomes.delete(name);
    }
    this.values = values;
  }

  /// Stages a value, or takes back what was staged.
  stage(name, value = this.values.get(name)) {
    if (value === this.values.get(name)) this.staged.delete(name);
    else this.staged.set(name, value);
    this.outcomes.delete(name);
  }

  /// The appliance answers again.
  forgetTrouble() {
    for (const [name, { passing }] of this.outcomes) if (passing) this.outcomes.delete(name);
  }

  /// The former values of what differs from the baseline.
  get changed() {
    return new Map([...this.#baseline].filter(([name, value]) =>
      (this.values.get(name) ?? value) !== value));
  }

  isElsewhere(name) { return this.#elsewhere.has(name); }

  clearMarks() {
    this.#baseline = new Map(this.values);
    this.#elsewhere.clear();
    this.outcomes.clear();
  }
}
