// The state of the page: values read, changes since, staged values, and the page's own writes.

import { short, shown } from './dom.js';
import { isStillTrue, isUnderWay, isUnread } from './outcome.js';

const jobLimit = 20;

/// Writes that go one after the other, listed and undone together.
export class Job {
  static #last = 0;
  id = ++Job.#last;
  time; // of its last start
  writes = []; // `name`, `value`, `over` as in `staged`; `is`, `reply`, `failure` as in outcome.js
  changes = new Map(); // read after it: `from` and `to` by name
  isOver = true;
  before; // the values read before its writes
  rest = []; // the staged part of `wanted`

  /// After its writes it stages the rest of `wanted`, a Map.
  constructor(title = '', wanted = new Map()) {
    this.title = title;
    this.wanted = wanted;
  }

  /// The last write of each parameter.
  get last() { return [...new Map(this.writes.map((write) => [write.name, write])).values()]; }

  get isSettled() { return this.isOver && !this.writes.some(isUnread); }

  /// The changes still in force.
  lasting(values) {
    return new Map([...this.changes].filter(([name, { from, to }]) => from !== to && values.get(name) === to));
  }
}

export class State {
  descriptions; // by name, from names.txt
  values = new Map(); // each read makes a new Map
  staged = new Map(); // by name: `name`, `value`, and `over`, the value stored when the operator looked
  outcomes = new Map(); // the last question or write of a parameter, see outcome.js
  imported = new Map(); // the values of a file, until the next "Write all"
  jobs = []; // the newest first
  elsewhere = new Map(); // changed without a write of this page: the values before
  notice = {}; // of an export, import or undo: a `text`, the `changes`, `notes`
  moved = ''; // the possible new address of the appliance
  mayWrite = true;
  #baseline = new Map(); // for the marks

  /// Takes the values read. A change after a write of this page counts as its own, any other one as
  /// another client's.
  take(values) {
    const isOwn = this.#writes.some(isUnread);
    for (const [name, value] of values) {
      const seen = this.values.get(name);
      const outcome = this.outcomes.get(name);
      if (!this.#baseline.has(name)) this.#baseline.set(name, value);
      else if (isOwn && value !== seen) this.elsewhere.delete(name);
      else if (outcome?.failure && outcome.is === 'not kept' && outcome.value === value) {
        this.#settleLate(outcome, seen);
      } else if (value !== seen) this.#noteElsewhere(name, seen, value);
      if (this.staged.get(name)?.value === value && !this.underWay(name)) this.staged.delete(name);
      if (outcome && !isStillTrue(outcome, value)) this.outcomes.delete(name);
      else if (outcome?.isConflict) this.askToReplace(outcome, value);
    }
    this.values = values;
  }

  /// A write without an answer may be stored after the next read.
  #settleLate(write, from) {
    const { name, value } = write;
    write.is = 'stored';
    this.#renewLater(write);
    this.jobs.find(({ writes }) => writes.includes(write))?.changes.set(name, { from, to: value });
  }

  #noteElsewhere(name, seen, value) {
    const before = this.elsewhere.get(name) ?? seen;
    if (before === value) this.elsewhere.delete(name);
    else this.elsewhere.set(name, before);
  }

  /// Tells the outcomes, after a whole read.
  settle() {
    for (const [name, { is }] of this.outcomes) if (is === 'not sent') this.outcomes.delete(name);
    for (const job of this.jobs.filter(({ writes }) => writes.some(isUnread))) {
      job.writes.filter(isUnread).forEach((write) => this.#settleWrite(write));
      for (const [name, to] of this.values) {
        const from = job.before.get(name) ?? to;
        if (from !== to) job.changes.set(name, { from: job.changes.get(name)?.from ?? from, to });
      }
      this.stageRest(job);
    }
  }

  /// A value stays staged if the appliance complains, or if another one was typed meanwhile.
  #settleWrite(write) {
    const { name, value, reply, failure } = write;
    write.is = this.values.get(name) === value ? 'stored' : 'not kept';
    if (this.staged.get(name)?.value === value && (write.is === 'stored' || !(reply || failure))) {
      this.staged.delete(name);
    }
    if (write.is === 'stored') this.#renewLater(write);
    this.setOutcome(write);
  }

  /// Values typed or waiting since before this page stored another one replace its own value, not a
  /// colleague's.
  #renewLater({ name, value, over }) {
    const later = [this.staged.get(name), ...this.#writes.filter(({ is }) => is === 'waiting')];
    for (const draft of later) if (draft?.name === name && draft.over === over) draft.over = value;
  }

  /// Shows a write in its row, but keeps a newer question there.
  setOutcome(write) {
    if (this.outcomes.get(write.name)?.is !== 'asks') this.outcomes.set(write.name, write);
  }

  /// Stages the rest of a job: it may be another client's, so an operator decides.
  stageRest(job) {
    job.rest = [...job.wanted].filter(([name, value]) => this.values.get(name) !== value && !this.staged.has(name));
    for (const [name, value] of job.rest) this.stage(name, value);
  }

  /// Stages a value, or drops it; from then on no job wants another one. What is under way may change
  /// the stored one.
  stage(name, value) {
    const stored = this.values.get(name);
    for (const { wanted } of [...this.jobs, ...this.asking.map(({ job }) => job)]) wanted.delete(name);
    if (!this.staged.size) this.imported.clear();
    if (value === undefined || (value === stored && !this.underWay(name))) this.staged.delete(name);
    else this.staged.set(name, { name, value, over: this.staged.get(name)?.over ?? stored });
    this.outcomes.delete(name);
    this.imported.delete(name);
  }

  /// Stages a value until an operator confirms it.
  ask(question) {
    const { name, value, over } = question;
    this.staged.set(name, { name, value, over });
    this.outcomes.set(name, { ...question, is: 'asks' });
  }

  /// Asks before a value is written over one stored since the operator looked.
  askToReplace(question, stored) {
    const why = `would replace ${this.shown(question.name, stored)}, stored meanwhile`;
    this.ask({ ...question, action: 'anyway', isConflict: true, why });
  }

  /// The former values of changed parameters.
  get former() {
    const changed = [...this.#baseline].filter(([name, value]) => (this.values.get(name) ?? value) !== value);
    return new Map([...changed, ...this.elsewhere]);
  }

  /// A write whose outcome is unknown stays.
  clearMarks() {
    this.#baseline = new Map(this.values);
    this.elsewhere.clear();
    this.outcomes = new Map([...this.outcomes].filter(([, outcome]) => isUnread(outcome)));
    this.jobs = this.jobs.filter(({ isSettled }) => !isSettled);
    this.notice = {};
    this.moved = '';
  }

  get #writes() { return this.jobs.flatMap(({ writes }) => writes); }

  get isBusy() { return this.jobs.some(({ isOver }) => !isOver); }

  /// The writes under way, in their order.
  get pending() { return this.jobs.toReversed().flatMap(({ writes }) => writes).filter(isUnderWay); }

  underWay(name) { return this.pending.findLast((write) => write.name === name); }

  get asking() { return [...this.outcomes.values()].filter(({ is }) => is === 'asks'); }

  /// The staged values that are not being written.
  get unwritten() {
    return [...this.staged.values()].filter(({ name, value }) => this.underWay(name)?.value !== value);
  }

  /// The last write or question of a parameter, unless another value was typed since.
  outcomeOf(name) {
    const outcome = this.underWay(name) ?? this.outcomes.get(name);
    return (this.staged.get(name) ?? outcome)?.value === outcome?.value ? outcome : undefined;
  }

  /// What "Write all" would write.
  get ready() { return this.unwritten.filter(({ name }) => this.outcomes.get(name)?.is !== 'asks'); }

  /// Adds values to a job. A value under way is not sent twice.
  add(job, drafts) {
    for (const { name, value, over } of drafts) {
      this.takeBack(name);
      this.outcomes.delete(name);
      if (this.underWay(name)?.value !== value) job.writes.push({ name, value, over, is: 'waiting' });
    }
    job.isOver = false;
    job.time = new Date().toLocaleTimeString();
    this.notice = {}; // "Nothing is written yet"
    this.jobs = [job, ...this.jobs.filter((other) => other !== job)]
      .filter(({ isOver }, index) => index < jobLimit || !isOver);
  }

  /// Drops the waiting writes, maybe of one parameter only. Their values stay staged.
  takeBack(only) {
    const isTaken = ({ name, is }) => is === 'waiting' && (only ?? name) === name;
    for (const job of this.jobs) job.writes = job.writes.filter((write) => !isTaken(write));
  }

  /// Gives up the waiting writes.
  giveUp(failure) {
    for (const write of this.#writes.filter(({ is }) => is === 'waiting')) {
      Object.assign(write, { is: 'not sent', failure });
      this.setOutcome(write);
    }
  }

  /// Drops a job without writes.
  end(job) {
    job.isOver = true;
    this.jobs = this.jobs.filter(({ isOver, writes }) => !isOver || writes.length);
  }

  isSecret(name) { return 'secret' in (this.descriptions?.get(name) ?? {}); }

  /// A value in other text. That of a secret is hidden.
  shown(name, value) { return value && this.isSecret(name) ? '•••' : shown(value); }

  /// The values without the secret ones.
  get openValues() {
    return new Map([...this.values].map(([name, value]) => [name, this.isSecret(name) ? '' : value]));
  }

  assign = ({ name, value }) => `${short(name)} = ${this.shown(name, value)}`;
}
