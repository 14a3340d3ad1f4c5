// Reads all parameters into the state, again and again, and tells of trouble.

import { ApplianceError } from './appliance.js';
import { part, setContent } from './dom.js';
import { parseNames } from './names.js';

const interruption = 'A write goes first';
const idleAfter = 60000;

export class Reader {
  #appliance;
  #state;
  #queue;
  #polling = new AbortController();
  #timer;
  #touched = Date.now();
  #readAt = '';
  #trouble; // the kind of the last failure, or 401
  #durations = [0]; // milliseconds of the last answers

  /// `queue` calls a function after everything queued before.
  constructor(appliance, state, queue) {
    this.#appliance = appliance;
    this.#state = state;
    this.#queue = queue;
  }

  /// Reads everything into the state. Gives the trouble as a text, or ''.
  async read(options) {
    try {
      await this.#readAll(options);
    } catch (error) {
      if (error === interruption) return error;
      if (!(error instanceof ApplianceError)) throw error;
      this.#trouble = error.status === 401 ? 401 : error.kind;
      this.#tell('trouble', this.#trouble !== 401 ? `${error.message}.` : 'The appliance wants the password again: '
        + 'press “Read again”, and the browser asks for it. Staged values stay.');
      return error.message;
    }
    this.#trouble = undefined;
    this.#state.settle();
    this.#readAt = new Date().toLocaleTimeString();
    setContent(part('read-at'), `Read at ${this.#readAt}`);
    this.#tell('good');
    return '';
  }

  async #readAll(options) {
    const state = this.#state;
    state.descriptions ??= await this.watch(fetchNames());
    const names = [...state.descriptions.keys()];
    const { values, invalid } = await this.watch(this.#appliance.read(names, options));
    if (!values.size) throw new ApplianceError('broken', 'No parameter could be read');
    const old = state.values;
    const lost = invalid.filter((name) => old.has(name)).length;
    state.take(new Map(names.map((name) => [name, values.get(name) ?? old.get(name)])
      .filter(([, value]) => value !== undefined)));
    if (lost) throw new ApplianceError('broken', `${lost} of ${state.values.size} parameters could not be read`);
  }

  /// Waits for an answer, and tells of the wait if it is longer than usual.
  async watch(answer) {
    const begin = Date.now();
    const late = setTimeout(() => {
      if (this.#trouble !== 'silent') this.#tell('waiting', 'Waiting for the appliance to answer.');
    }, Math.max(2000, 2 * Math.max(...this.#durations)));
    try {
      const result = await answer;
      this.#durations = [Date.now() - begin, ...this.#durations.slice(0, 4)];
      return result;
    } finally {
      clearTimeout(late);
    }
  }

  /// `good`, `waiting` or `trouble`.
  #tell(mood, text = '') {
    document.body.dataset.state = mood;
    const old = this.#readAt && ` What you see was read at ${this.#readAt}.`;
    for (const id of ['waiting', 'trouble']) setContent(part(id), id === mood && text + old);
  }

  /// Reads after a delay, and then again and again, seldom while nobody is there.
  poll(delay = 0) {
    clearTimeout(this.#timer);
    this.#timer = setTimeout(async () => {
      if (document.hidden) return;
      await this.#queue(() => {
        this.#polling = new AbortController();
        return this.read({ signal: this.#polling.signal });
      });
      if (this.#trouble !== 401) this.poll(this.#isIdle ? 30000 : 3000);
    }, delay);
  }

  /// Ends a read of the poll, to let a write go first.
  interrupt() { this.#polling.abort(interruption); }

  get #isIdle() { return Date.now() - this.#touched > idleAfter; }

  /// The operator is there.
  touch() {
    const wasIdle = this.#isIdle;
    this.#touched = Date.now();
    if (wasIdle && this.#trouble !== 401) this.poll();
  }
}

async function fetchNames() {
  const url = new URL('names.txt', location.origin + location.pathname);
  const { status, text, cause } = await fetch(url)
    .then(async (response) => ({ status: response.status, text: await response.text() }))
    .catch((error) => ({ cause: error }));
  if (status === 200) return parseNames(text);
  throw new ApplianceError('silent', 'The web server does not give names.txt', { status, cause });
}
