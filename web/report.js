// The report: staged values, questions, failures, the page's writes, and changes by others.

import { make, part, setContent, short } from './dom.js';
import { complaintOf, isUnderWay, isUnread, summaryOf } from './outcome.js';

const button = (action) => part('result').querySelector(`.bar [data-action="${action}"]`);

const paragraph = (text) => make('p', {}, text);

export class Report {
  #state;
  #undo;
  #entries = new Map(); // by job

  /// `undo` gets a job.
  constructor(state, undo) {
    this.#state = state;
    this.#undo = undo;
  }

  show() {
    const state = this.#state;
    const complaints = this.#complaints;
    const { unwritten, asking, pending, ready, jobs, notice, moved, former, outcomes } = state;
    const count = unwritten.filter(({ name }) => state.outcomeOf(name)?.is !== 'unknown').length;
    setContent(part('staged'), count && `${count} not written`);
    setContent(part('wrong'), ...complaints.map(paragraph));
    setContent(part('progress'), this.#progress);
    setContent(part('asking'), asking.length && 'To be confirmed:', this.#list(asking.map(({ name, value, why }) =>
      ({ name, from: state.values.get(name), to: value, note: `, ${why}` }))));
    setContent(part('moved'), moved && 'If this page does not answer any more, the appliance may be at ',
      moved && make('a', { href: moved }, moved));
    const { text, changes = [], notes = [] } = notice;
    setContent(part('notice'), text, ...notes.map(paragraph), this.#list(changes));
    this.#showJobs();
    const elsewhere = [...state.elsewhere].map(([name, from]) => ({ name, from, to: state.values.get(name) }));
    setContent(part('elsewhere'), elsewhere.length && 'Changed elsewhere:', this.#list(elsewhere));
    const isShown = {
      'write-all': ready.length,
      'confirm-all': asking.length > 1,
      'discard': unwritten.length,
      'take-back': pending.some(({ is }) => is === 'waiting'),
      'clear': former.size || text || moved || jobs.some(({ isSettled }) => isSettled)
        || [...outcomes.values()].some((outcome) => complaintOf(outcome, '') && !isUnread(outcome)),
    };
    for (const [action, is] of Object.entries(isShown)) button(action).hidden = !is;
    setContent(button('confirm-all'), `Write all ${asking.length} to be confirmed`);
    part('result').hidden = !jobs.length && !Object.values(isShown).some(Boolean);
  }

  get #complaints() {
    const { outcomes, assign } = this.#state;
    return [...outcomes.values()].map((outcome) => complaintOf(outcome, assign(outcome))).filter(Boolean);
  }

  get #progress() {
    const { pending, isBusy, assign } = this.#state;
    if (!isBusy) return '';
    const [now] = pending.filter(({ is }) => is === 'writing').map(assign);
    const waiting = pending.filter(({ is }) => is === 'waiting').map(assign);
    if (!now && !waiting.length) return 'Reading what is stored …';
    const first = now ? `Writing ${now} …` : `Reading before writing ${waiting.shift()} …`;
    return waiting.length ? `${first} Then ${waiting.join(', ')}.` : first;
  }

  /// The list of the page's writes: the newest is open.
  #showJobs() {
    const jobs = this.#state.jobs.filter(({ isOver }) => isOver);
    for (const [job, { element }] of this.#entries) {
      if (jobs.includes(job)) continue;
      element.remove();
      this.#entries.delete(job);
    }
    for (const job of jobs.toReversed()) {
      if (!this.#entries.has(job)) this.#addEntry(job);
      this.#showEntry(job, this.#entries.get(job));
    }
  }

  #addEntry(job) {
    const [headline, undo, content] = [make('summary'), make('button', { 'data-action': 'undo' }, 'Undo'), make('div')];
    const element = make('details', { 'data-job': job.id, 'open': '' }, headline, undo, content);
    undo.addEventListener('click', () => this.#undo(job));
    for (const { element: older } of this.#entries.values()) older.open = false;
    this.#entries.set(job, { element, headline, undo, content });
    part('jobs').prepend(element);
  }

  #showEntry(job, { headline, undo, content }) {
    const { assign, values, staged, mayWrite } = this.#state;
    const { title, time, last, changes } = job;
    const rest = job.rest.filter(([name, value]) => staged.get(name)?.value === value).map(([name]) => short(name));
    const written = new Set(last.map(({ name }) => name));
    const lines = [...changes].map(([name, change]) => ({ name, ...change }))
      .filter(({ from, to }) => from !== to)
      .sort((a, b) => written.has(b.name) - written.has(a.name));
    const more = lines.filter(({ name }) => !written.has(name)).length;
    setContent(headline, `${time} `, make('b', {}, `${title && `${title}. `}${summaryOf(last, assign)}`),
      more && ` ${more} more changed meanwhile.`);
    const failed = last.length > 1 ? last.filter(({ is }) => is !== 'stored') : [];
    setContent(content, ...failed.map((write) => paragraph(summaryOf([write], assign))),
      rest.length && paragraph(`Staged, because they still differ: ${rest.join(', ')}.`),
      this.#list(lines, values));
    undo.disabled = !mayWrite || last.some(isUnderWay) || !job.lasting(values).size;
  }

  /// A list of changes; with `values`, it tells the later ones, too.
  #list(changes, values) {
    return changes.length && make('ul', {}, ...changes.map(({ name, from, to, note = '' }) => {
      const show = (value) => this.#state.shown(name, value);
      const isOver = values && values.get(name) !== to;
      return make('li', {}, make('a', { href: `#${name}` }, short(name)),
        make(isOver ? 's' : 'span', {}, ` ${show(from)} → `, make('b', {}, show(to))),
        isOver ? `, now ${show(values.get(name))}` : note);
    }));
  }
}
