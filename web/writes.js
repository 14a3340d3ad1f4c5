// The writes: one after the other, each after the answer to the one before.

import { ApplianceError } from './appliance.js';
import { assign, trim } from './dom.js';

/// A job writes its `items`, and then what differs from a Map of values, `wanted`: the appliance may
/// have corrected it with others.
export class Writes {
  told = {}; // of the last job: a `text`, the `changes`, `notes`
  #state;
  #read;
  #put;
  #show;
  #jobs = []; // from the one under way to the last that waits
  #unsettled; // a job with something sent and nothing read since
  #last; // what the last job has changed

  /// `read` reads everything into the state and gives what went wrong; `put` writes a value.
  constructor(state, read, put, show) {
    [this.#state, this.#read, this.#put, this.#show] = [state, read, put, show];
  }

  /// Whether the next read finds what this page has sent.
  get isUnsettled() { return Boolean(this.#unsettled); }

  get isBusy() { return this.#jobs.length > 0; }

  get canUndo() { return Boolean(this.#last) && !this.isBusy; }

  get #items() { return this.#jobs.flatMap(({ items }) => items); }

  /// What has no answer yet; `sent` tells what cannot be taken back.
  get pending() { return this.#items.filter(({ answered }) => !answered); }

  #find(name) { return this.#items.findLast((item) => item.name === name); }

  /// What the page does with a parameter, or nothing.
  doing(name) {
    const item = this.#find(name);
    return item && (item.sent ? 'writing …' : 'waits to be written');
  }

  /// Adds a job. What waits already is not sent twice.
  add(pairs, wanted) {
    for (const [name] of pairs) this.takeBack(name);
    const items = pairs.filter(([name, value]) => this.#find(name)?.value !== value)
      .map(([name, value]) => ({ name, value }));
    this.#jobs.push({ items, wanted, seen: this.#state.values });
  }

  async carryOut() {
    const [job] = this.#jobs;
    try {
      if (!job.items.length && !job.wanted) return;
      const trouble = await this.#read();
      if (trouble) return this.#giveUp(trouble);
      this.settle();
      job.before = this.#state.values;
      for (const name of job.wanted?.keys() ?? []) { // no overwriting what somebody else wrote since
        if (job.seen.get(name) !== job.before.get(name)) this.takeBack(name);
      }
      while (await this.#send(job)) {
        if (await this.#read()) return; // the next good read settles it
        for (const [name, value] of job.wanted ?? []) {
          if (this.#state.values.get(name) !== value) job.items.push({ name, value });
        }
        job.wanted = undefined;
      }
      this.settle();
    } finally {
      this.#jobs.shift();
      this.#show();
    }
  }

  /// Gives whether there was anything to send.
  async #send(job) {
    let item, hasSent = false;
    while ((item = job.items.find(({ sent }) => !sent))) {
      item.sent = true;
      this.#show();
      try {
        item.reply = trim((await this.#put(item.name, item.value)).reply);
      } catch (error) {
        if (!(error instanceof ApplianceError)) throw error;
        const { kind, message, status } = error;
        item.sent = kind === 'broken' || kind === 'silent'; // and maybe stored
        item.broke = message;
        this.#giveUp(message, kind === 'refused' && status !== 401 ? item.name : undefined);
        if (!item.sent) continue;
        this.#judge(item);
      }
      item.answered = true;
      hasSent = true;
      this.#unsettled = job;
    }
    return hasSent;
  }

  #tell({ name, value }, note, bad, passing) {
    this.#state.outcomes.delete(name); // so that it comes last
    this.#state.outcomes.set(name, { value, note, bad, passing });
  }

  /// What waits stays staged, and is not sent later; `only` one parameter, if given.
  #giveUp(message, only) {
    for (const item of this.takeBack(only)) {
      this.#tell(item, 'not stored', `Not stored: ${assign(item.name, item.value)}. ${message}.`, !only);
    }
  }

  /// Gives what was not sent, maybe of one parameter only, and will not be.
  takeBack(only) {
    const isTaken = ({ name, sent }) => !sent && (only ?? name) === name;
    const taken = this.#items.filter(isTaken);
    for (const job of this.#jobs) {
      job.items = job.items.filter((item) => !isTaken(item));
      if (only) job.wanted?.delete(only);
      else job.wanted = undefined;
    }
    return taken;
  }

  /// Tells what the last job did, now that everything was read again.
  settle() {
    const job = this.#unsettled;
    if (!job) return;
    this.#unsettled = undefined;
    const { values } = this.#state;
    const written = new Map(job.items
      .map((item) => [item.name, item]));
    for (const item of written.values()) this.#judge(item);
    const changes = [...values].map(([name, to]) => ({ name, from: job.before.get(name) ?? to, to }))
      .filter(({ from, to }) => from !== to)
      .sort((a, b) => written.has(b.name) - written.has(a.name));
    if (changes.length) this.#last = { names: [...written.keys()], changes };
    const [{ name, value }] = written.values();
    const kept = [...written.values()].filter((item) => values.get(item.name) === item.value).length;
    const more = changes.filter((change) => !written.has(change.name)).length;
    const text = written.size > 1 ? `Stored: ${kept} of ${written.size} values.`
      : `Stored${kept ? ':' : ' is'} ${assign(name, values.get(name))}.`;
    this.told = { text: text + (more ? ` ${more} more changed with it.` : ''), changes };
  }

  #judge(item) {
    const { name, value, reply, broke } = item;
    const { values, staged } = this.#state;
    const what = assign(name, value);
    const kept = values.get(name) === value;
    const complaint = reply ? `The appliance complains about ${what}: ${reply}`
      : broke && `The write of ${what} broke off. ${broke}.`;
    if (staged.get(name) === value && (kept || !complaint)) staged.delete(name);
    this.#tell(item, kept ? 'stored' : 'not stored',
      complaint || (kept ? '' : `The appliance has not kept ${what}.`));
  }

  /// A job that undoes the last one, first what that wrote. What has changed since stays.
  planUndo() {
    const { names, changes } = this.#last;
    const wanted = new Map(changes.filter(({ name, to }) => this.#state.values.get(name) === to)
      .map(({ name, from }) => [name, from]));
    const first = names.filter((name) => wanted.has(name)).reverse();
    return [first.length ? first.map((name) => [name, wanted.get(name)]) : [...wanted], wanted];
  }
}
