// The page: reads all parameters again and again, shows them, and has changes written.

import { Appliance, ApplianceError } from './appliance.js';
import { assign, make, part, root, setContent, shown } from './dom.js';
import { FlowPicture, inputModes, modeName } from './flow.js';
import { findAddress, findFault, listChoices, moving, parseNames } from './names.js';
import { report } from './report.js';
import { State } from './state.js';
import { Table } from './table.js';

const interrupted = 'A write goes first';

function start() {
  const appliance = new Appliance();
  const state = new State();
  const table = new Table(state);
  const picture = new FlowPicture(part('flow'), (folder) => {
    part('filter').value = folder;
    table.filter();
    part('filter').focus();
  });
  let writes; // the module that writes, from the first write on
  let descriptions; // by name
  let imported = new Map(); // from a file
  let moved = ''; // the possible new address of the appliance
  let readAt = '';
  let trouble; // the kind of the last failure to read, or 401
  let times = [0]; // milliseconds of the last answers

  function show() {
    const { values, staged, outcomes } = state;
    if (!values.size) return;
    if (!staged.size) imported.clear();
    const address = findAddress(values, new Map(listAsking()));
    for (const outcome of outcomes.values()) {
      if (outcome.action === 'confirm') outcome.note = `The appliance may then be at ${address}`;
    }
    table.show(descriptions, act);
    const [title, ...about] = ['name', 'model', 'serial_number', 'firmware_version', 'location']
      .map((name) => values.get(`${root}system/${name}`));
    document.title = shown(title || 'Encoder');
    setContent(part('title'), document.title);
    setContent(part('about'), about.filter(Boolean).map(shown).join(' · '));
    picture.draw(state);
    showModes(values);
    report(state, moved);
  }

  function showModes(values) {
    const modes = values.has(modeName) ? listChoices(descriptions.get(modeName)) ?? inputModes(values) : [];
    if (part('modes').children.length !== modes.length) {
      part('modes').replaceChildren(...modes.map((mode) => make('button', { 'data-mode': mode },
        mode === 'dual' ? 'both inputs' : mode.replace('single_', 'input '))));
    }
    for (const button of part('modes').children) {
      button.ariaPressed = String(button.dataset.mode === values.get(modeName));
    }
  }

  /// `good`, `waiting` or `trouble`.
  function tell(mood, text = '') {
    document.body.dataset.state = mood;
    const old = readAt && ` What you see was read at ${readAt}.`;
    for (const id of ['waiting', 'trouble']) setContent(part(id), id === mood ? text + old : '');
  }

  function leadToHash() { table.lead(location.hash); }

  async function fetchNames() {
    const url = new URL('names.txt', location.origin + location.pathname);
    const { status, text, cause } = await fetch(url)
      .then(async (response) => ({ status: response.status, text: await response.text() }))
      .catch((error) => ({ cause: error }));
    if (status === 200) return parseNames(text);
    throw new ApplianceError('silent', 'The web server does not give names.txt', { status, cause });
  }

  /// Tells of the wait if it is longer than usual.
  async function patiently(answer) {
    const begin = Date.now();
    const late = setTimeout(() => {
      if (trouble !== 'silent') tell('waiting', 'Waiting for the appliance to answer.');
    }, Math.max(2000, 2 * Math.max(...times)));
    try {
      const result = await answer;
      times = [Date.now() - begin, ...times.slice(0, 4)];
      return result;
    } finally {
      clearTimeout(late);
    }
  }

  /// Reads everything into the state. Gives the trouble, or nothing.
  async function readAll(options) {
    try {
      descriptions ??= await patiently(fetchNames());
      const names = [...descriptions.keys()];
      const { values, invalid } = await patiently(appliance.read(names, options));
      if (!values.size) throw new ApplianceError('broken', 'No parameter could be read');
      const old = state.values;
      const lost = invalid.filter((name) => old.has(name)).length;
      state.take(new Map(names.map((name) => [name, values.get(name) ?? old.get(name)])
        .filter(([, value]) => value !== undefined)), state.unsettled);
      if (lost) throw new ApplianceError('broken', `${lost} of ${state.values.size} parameters could not be read`);
      readAt = new Date().toLocaleTimeString();
      setContent(part('read-at'), `Read at ${readAt}`);
      trouble = undefined;
      state.forgetTrouble();
      tell('good');
      return '';
    } catch (error) {
      if (error === interrupted) return error;
      if (!(error instanceof ApplianceError)) throw error;
      trouble = error.status === 401 ? 401 : error.kind;
      tell('trouble', trouble === 401 ? 'The appliance wants the password again: reload this page.'
        : `${error.message}.`);
      return error.message;
    } finally {
      show();
    }
  }

  const load = (file) => patiently(import(file)).catch(() => {
    throw new ApplianceError('silent', `The web server does not give ${file}`);
  });

  let last = Promise.resolve();

  /// One after the other: a change between two reads is then one job's doing.
  function queue(job) {
    last = last.then(job).catch((error) => {
      if (error instanceof ApplianceError) state.told = { text: `Not done: ${error.message}.` };
      else tellFault(error);
    }).finally(show);
    return last;
  }

  let timer, polling;
  let touched = Date.now();
  const isIdle = () => Date.now() - touched > 60000;

  /// Reads after a delay, and then again and again.
  function readSoon(delay = 0) {
    clearTimeout(timer);
    timer = setTimeout(() => document.hidden || queue(async () => {
      const isFirst = !readAt;
      polling = new AbortController();
      if (await readAll(polling)) return;
      writes?.settle(state);
      if (isFirst) leadToHash();
    }).then(() => trouble === 401 || readSoon(isIdle() ? 30000 : 3000)), delay);
  }

  function send(pairs, wanted) {
    polling.abort(interrupted); // not to wait for it
    state.addJob(pairs, wanted);
    queue(async () => {
      try {
        writes ??= await load('./writes.js');
        await writes.carryOut(state, readAll, (...pair) => patiently(appliance.write(...pair)), show);
      } catch (error) {
        state.takeBack();
        throw error;
      } finally {
        state.jobs.shift();
      }
    });
  }

  /// Sends pairs, except those that an operator must look at first: their rows tell.
  function write(pairs, wanted, anyway) {
    const rest = pairs.filter(([name, value]) => {
      const fault = !anyway && findFault(descriptions.get(name), value);
      const isAsked = fault || moving.includes(name);
      if (isAsked) {
        wanted?.delete(name);
        state.stage(name, value);
        state.outcomes.set(name, fault ? { action: 'anyway', value, note: `not sent: ${fault}`,
          bad: `Not sent: ${assign(name, value)} is ${fault}.` } : { action: 'confirm', value });
      }
      return !isAsked;
    });
    if (rest.length) send(rest, wanted);
  }

  const listAsking = () => moving.filter((name) => state.outcomes.get(name)?.action === 'confirm')
    .map((name) => [name, state.staged.get(name)]);

  /// The actions of a row's field and buttons.
  function act(name, action, text) {
    if (action === 'stage' && text === (state.staged.get(name) ?? state.values.get(name))) return;
    const pairs = [...state.staged].filter(([other]) => other === name);
    if (action !== 'stage') imported.delete(name);
    if (action === 'cancel') state.takeBack(name);
    if (action === 'cancel' || action === 'stage') {
      state.stage(name, text);
    } else if (action === 'confirm') {
      const asking = listAsking();
      moved = findAddress(state.values, new Map(asking));
      asking.forEach(([other]) => state.outcomes.delete(other));
      send(asking);
    } else {
      write(pairs, undefined, action === 'anyway');
    }
    show();
  }

  const actions = {
    'write-all': () => {
      // Equal values of the file may change with the rest.
      const same = [...imported].filter(([name, value]) => state.values.get(name) === value);
      write([...state.staged], imported.size ? new Map([...same, ...state.staged]) : undefined);
      imported = new Map();
    },
    'discard': () => state.staged.forEach((_, name) => act(name, 'cancel')),
    'take-back': () => state.takeBack(),
    'undo': () => write(...writes.planUndo(state), true),
    'clear': () => {
      state.clearMarks();
      state.told = {};
      moved = '';
      part('filter').focus({ preventScroll: true });
    },
    'export': () => queue(async () => (await load('./backup.js')).exportValues(state, await readAll())),
    'again': () => readSoon(),
  };

  document.addEventListener('click', ({ target }) => {
    const { action } = target.closest('[data-action]')?.dataset ?? {};
    if (Object.hasOwn(actions, action)) {
      actions[action]();
      show();
    }
    if (target.closest('a')?.hash === location.hash) leadToHash(); // no hashchange comes
  });
  part('modes').addEventListener('click', ({ target: { dataset: { mode } } }) => {
    if (!mode) return;
    state.stage(modeName, mode);
    act(modeName, 'anyway');
  });
  part('file').addEventListener('change', ({ target }) => {
    queue(async () => {
      imported = await (await load('./backup.js')).importValues(target, state, descriptions);
    });
  });
  for (const id of ['filter', 'only-changed']) part(id).addEventListener('input', () => table.filter());
  document.addEventListener('keydown', (event) => {
    if (event.key !== '/' || event.target.closest('input, select, textarea')) return;
    event.preventDefault();
    part('filter').focus();
  });
  for (const type of ['pointermove', 'pointerdown', 'keydown', 'wheel']) {
    document.addEventListener(type, () => import('./writes.js').catch(() => {}), { once: true });
    document.addEventListener(type, () => {
      const wasIdle = isIdle();
      touched = Date.now();
      if (wasIdle && trouble !== 401) readSoon();
    }, { passive: true });
  }
  // The focus stays clear of the report above the table.
  new ResizeObserver(([{ target }]) => {
    document.documentElement.style.scrollPaddingTop = `${target.offsetHeight + 16}px`;
  }).observe(part('result'));
  document.addEventListener('visibilitychange', () => readSoon());
  window.addEventListener('hashchange', leadToHash);
  window.addEventListener('beforeunload', (event) => {
    if (state.staged.size || state.jobs.length) event.preventDefault();
  });
  readSoon();
}

/// A fault of the page, not of the appliance.
function tellFault(error) {
  setContent(part('fault'), `This page has a fault: ${error?.message ?? error}. Reload it.`);
  console.error(error);
}

window.addEventListener('error', ({ error }) => tellFault(error));
window.addEventListener('unhandledrejection', ({ reason }) => tellFault(reason));
if (window.top === window) start();
else document.body.replaceChildren('This page does not run inside another one.');
