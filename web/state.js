// The state: values read, their baseline, staged values and jobs.

export class State {
  values = new Map(); // each read makes a new Map
  staged = new Map(); // not written yet
  outcomes = new Map(); // of writes: the `value`, a `note`, maybe a `bad` text
  told = {}; // of the last job: a `text`, the `changes`, `notes`
  jobs = []; // of writes.js: the one under way, then the waiting ones
  unsettled; // a job with something sent and nothing read since
  undoable; // the changes of the last job
  elsewhere = new Set(); // names changed without a write of this page
  #baseline = new Map(); // for the marks

  /// Takes the values read. `own`: this page has changed them.
  take(values, own) {
    for (const [name, value] of values) {
      if (this.staged.get(name) === value && !this.#find(name)) this.staged.delete(name);
      if (!this.#baseline.has(name)) this.#baseline.set(name, value);
      else if (this.values.get(name) === value) continue;
      else if (own) this.elsewhere.delete(name);
      else this.elsewhere.add(name);
      const outcome = this.outcomes.get(name);
      if (outcome && (outcome.value === value) === Boolean(outcome.bad || outcome.action)) { // and true no longer
        this.outcomes.delete(name);
      }
    }
    this.values = values;
  }

  /// Stages a value, or takes it back. What is under way may change the stored one.
  stage(name, value) {
    if (value === undefined || (value === this.values.get(name) && !this.#find(name))) this.staged.delete(name);
    else this.staged.set(name, value);
    this.outcomes.delete(name);
  }

  /// The appliance answers again.
  forgetTrouble() {
    for (const [name, { passing }] of this.outcomes) if (passing) this.outcomes.delete(name);
  }

  /// The former values of changed parameters.
  get changed() {
    return new Map([...this.#baseline].filter(([name, value]) =>
      (this.values.get(name) ?? value) !== value));
  }

  clearMarks() {
    this.#baseline = new Map(this.values);
    this.elsewhere.clear();
    this.outcomes.clear();
  }

  get #items() { return this.jobs.flatMap(({ items }) => items); }

  #find(name) { return this.#items.findLast((item) => item.name === name); }

  /// The items without an answer. Those without `sent` can be taken back.
  get pending() { return this.#items.filter(({ answered }) => !answered); }

  /// The page's work on a parameter, or nothing.
  doing(name) {
    const item = this.#find(name);
    return item && (item.sent ? 'writing …' : 'waits to be written');
  }

  /// Adds a job: it writes pairs, and then the values that differ from `wanted`, a Map, because the
  /// appliance may have corrected them. A waiting value is not sent twice.
  addJob(pairs, wanted) {
    for (const [name] of pairs) this.takeBack(name);
    const items = pairs.filter(([name, value]) => this.#find(name)?.value !== value)
      .map(([name, value]) => ({ name, value }));
    this.jobs.push({ items, wanted, seen: this.values });
  }

  /// Gives the unsent items, maybe of one parameter only.
  takeBack(only) {
    const isTaken = ({ name, sent }) => !sent && (only ?? name) === name;
    const taken = this.#items.filter(isTaken);
    for (const job of this.jobs) {
      job.items = job.items.filter((item) => !isTaken(item));
      if (only) job.wanted?.delete(only);
      else job.wanted = undefined;
    }
    return taken;
  }
}
