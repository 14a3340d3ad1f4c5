// Sends values: asks first where an operator must look, writes one after the other, and undoes.

import { ApplianceError } from './appliance.js';
import { findAddress, findFault, moving } from './names.js';
import { outcomeOfFailure } from './outcome.js';
import { Job } from './state.js';

export class Writer {
  #appliance;
  #state;
  #reader;
  #queue;
  #show;

  constructor(appliance, state, reader, queue, show) {
    this.#appliance = appliance;
    this.#state = state;
    this.#reader = reader;
    this.#queue = queue;
    this.#show = show;
  }

  /// Sends values, each as in `staged`, or asks an operator first. `isKnown`: the operator has seen
  /// their faults.
  write(drafts, job = new Job(), isKnown = false) {
    if (!this.#state.mayWrite) return;
    const ready = drafts.filter((draft) => {
      const question = this.#questionOf(draft, isKnown);
      if (question) this.#state.ask({ ...draft, ...question, job });
      return !question;
    });
    this.#send(ready, job);
  }

  #questionOf({ name, value }, isKnown) {
    const { values, descriptions } = this.#state;
    const fault = !isKnown && findFault(descriptions.get(name), value);
    if (fault) return { action: 'anyway', why: `is ${fault}` };
    if (!moving.includes(name)) return undefined;
    const address = findAddress(values, new Map([[name, value]]));
    return { action: 'confirm', why: address ? `may move the appliance to ${address}` : 'may cut off the appliance' };
  }

  /// Writes all staged values, except those in question. Other values of an imported file may change
  /// with them.
  writeAll() {
    const { ready, staged, imported } = this.#state;
    const all = imported.size ? [...imported, ...[...staged].map(([name, { value }]) => [name, value])] : [];
    this.#state.imported = new Map();
    this.write(ready, new Job(imported.size ? 'Import' : '', new Map(all)));
  }

  /// Writes the value in question.
  confirm(name) {
    const question = this.#state.outcomes.get(name);
    if (question.action === 'confirm') this.#send([question], question.job);
    else this.write([this.#renew(question)], question.job, true);
  }

  /// Writes all values in question; its address goes last, after its mask.
  confirmAll() {
    const asking = this.#state.asking.sort((a, b) => moving.indexOf(a.name) - moving.indexOf(b.name));
    this.#send(asking.map((question) => this.#renew(question)), asking[0].job);
  }

  /// The operator has seen the stored value.
  #renew({ name, value }) { return { name, value, over: this.#state.values.get(name) }; }

  /// Writes the former values of a job's own writes, the last one first, unless they have changed since.
  /// Other changes are staged: they may be another client's.
  undo(job) {
    const { values } = this.#state;
    const wanted = new Map([...job.lasting(values)].map(([name, { from }]) => [name, from]));
    const undoing = new Job(`Undo of ${job.time}`, wanted);
    const own = job.last.map(({ name }) => name).filter((name) => wanted.has(name)).reverse();
    this.write(own.map((name) => ({ name, value: wanted.get(name), over: values.get(name) })), undoing, true);
    if (own.length) return;
    this.#state.stageRest(undoing);
    this.#state.notice = { text: `${undoing.title}: nothing is written. What differs is staged.` };
  }

  #send(drafts, job) {
    if (!drafts.length || !this.#state.mayWrite) return;
    this.#reader.interrupt();
    this.#state.add(job, drafts);
    this.#queue(() => this.#carryOut(job));
  }

  /// Writes the waiting values of a job, each after the answer to the one before, and reads everything.
  async #carryOut(job) {
    const state = this.#state;
    const next = () => job.writes.find(({ is }) => is === 'waiting');
    try {
      const trouble = next() && await this.#reader.read();
      if (trouble) state.giveUp(trouble);
      if (!next()) return;
      job.before = state.values;
      for (let write = next(); write; write = next()) await this.#put(write, job);
      this.#show();
      await this.#reader.read(); // or the next good read settles it
    } catch (error) {
      state.giveUp('This page has a fault');
      throw error;
    } finally {
      state.end(job);
    }
  }

  async #put(write, job) {
    const state = this.#state;
    const stored = state.values.get(write.name);
    if (stored !== write.over && stored !== write.value) { // stored since the operator looked
      job.writes = job.writes.filter((other) => other !== write);
      state.askToReplace({ ...write, job }, stored);
      return;
    }
    write.is = 'writing';
    if (moving.includes(write.name)) {
      const moves = job.writes.filter(({ name }) => moving.includes(name)).map(({ name, value }) => [name, value]);
      state.moved = findAddress(state.values, new Map(moves));
    }
    this.#show();
    try {
      const answer = await this.#reader.watch(this.#appliance.write(write.name, write.value));
      Object.assign(write, { is: 'answered', reply: answer.reply });
    } catch (error) {
      Object.assign(write, { is: 'unknown', failure: error.message });
      if (!(error instanceof ApplianceError)) throw error;
      write.is = outcomeOfFailure(error);
      state.mayWrite &&= !(error.status === 403 && error.message.includes('This user may not write'));
      if (write.is !== 'refused' || !state.mayWrite) state.giveUp(error.message);
    }
    state.setOutcome(write);
  }
}
