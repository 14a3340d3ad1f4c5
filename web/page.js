// The page: its parts, and the operator's actions.

import { Appliance } from './appliance.js';
import { exportValues, importValues } from './backup.js';
import { make, part, root, setContent, shown } from './dom.js';
import { FlowPicture, inputModes, modeName } from './flow.js';
import { listChoices } from './names.js';
import { Reader } from './reader.js';
import { Report } from './report.js';
import { State } from './state.js';
import { Table } from './table.js';
import { Writer } from './writes.js';

class Page {
  #state = new State();
  #last = Promise.resolve(); // of the queue
  #reader;
  #writer;
  #table = new Table(this.#state, (...action) => this.#act(...action));
  #report = new Report(this.#state, (job) => this.#do(() => this.#writer.undo(job)));
  #picture = new FlowPicture(part('flow'), (folder) => {
    part('filter').value = folder;
    this.#table.filter();
    part('filter').focus();
  });

  constructor() {
    const appliance = new Appliance();
    const queue = (task) => this.#queue(task);
    this.#reader = new Reader(appliance, this.#state, queue);
    this.#writer = new Writer(appliance, this.#state, this.#reader, queue, () => this.#show());
    this.#listen();
    this.#reader.poll();
  }

  /// Calls one function after the other: a change between two reads is then one job's.
  #queue(task) {
    this.#last = this.#last.then(task).catch(tellFault).finally(() => this.#show());
    return this.#last;
  }

  #do(action) {
    action();
    this.#show();
  }

  #show() {
    const { values, mayWrite } = this.#state;
    if (!values.size) return;
    const focused = document.activeElement;
    this.#table.show();
    const [title, ...about] = ['name', 'model', 'serial_number', 'firmware_version', 'location']
      .map((name) => values.get(`${root}system/${name}`));
    document.title = shown(title || 'Encoder');
    setContent(part('title'), document.title);
    setContent(part('about'), about.filter(Boolean).map(shown).join(' · '));
    part('viewer').hidden = mayWrite;
    document.body.classList.toggle('viewer', !mayWrite);
    part('backup').disabled = false;
    this.#picture.draw(this.#state);
    this.#showModes();
    this.#report.show();
    // The focus stays where the work is.
    if (focused && focused !== document.body && !focused.checkVisibility()) {
      part(part('result').hidden ? 'filter' : 'result').focus({ preventScroll: true });
    }
  }

  #showModes() {
    const { values, descriptions, mayWrite } = this.#state;
    const modes = values.has(modeName) ? listChoices(descriptions.get(modeName)) ?? inputModes(values) : [];
    if (part('modes').children.length !== modes.length) {
      part('modes').replaceChildren(...modes.map((mode) => make('button', { 'data-mode': mode },
        mode === 'dual' ? 'both inputs' : mode.replace('single_', 'input '))));
    }
    for (const button of part('modes').children) {
      button.ariaPressed = String(button.dataset.mode === values.get(modeName));
      button.disabled = !mayWrite;
    }
  }

  /// The actions of a row's field and buttons.
  #act(name, action, text) {
    const { staged, values } = this.#state;
    const draft = staged.get(name);
    if (action === 'stage' && text === (draft?.value ?? values.get(name))) return;
    this.#do(() => {
      if (action === 'cancel') this.#cancel(name);
      else if (action === 'stage') this.#state.stage(name, text);
      else if (action !== 'write') this.#writer.confirm(name);
      else if (draft) this.#writer.write([draft]);
    });
  }

  #cancel(name) {
    this.#state.takeBack(name);
    this.#state.stage(name, undefined);
  }

  #writeMode(mode) {
    const { staged, values } = this.#state;
    this.#state.stage(modeName, mode);
    if (!staged.has(modeName)) return;
    this.#writer.write([{ name: modeName, value: mode, over: values.get(modeName) }], undefined, true);
  }

  #actions = {
    'write-all': () => this.#writer.writeAll(),
    'confirm-all': () => this.#writer.confirmAll(),
    'discard': () => {
      for (const { name } of this.#state.unwritten) this.#cancel(name);
    },
    'take-back': () => this.#state.takeBack(),
    'clear': () => this.#state.clearMarks(),
    'fold': () => this.#table.fold(true),
    'unfold': () => this.#table.fold(false),
    'again': () => this.#reader.poll(),
    'export': () => this.#queue(async () => {
      const trouble = await this.#reader.read();
      if (trouble) this.#state.notice = { text: `Not exported. ${trouble}.` };
      else exportValues(this.#state);
    }),
  };

  /// The report covers neither the focused field nor the end of the page.
  #makeRoom() {
    const dock = part('dock');
    const height = getComputedStyle(dock).position === 'fixed' ? dock.offsetHeight : 0;
    document.documentElement.style.scrollPaddingBottom = `${height + 16}px`;
    document.body.style.paddingBottom = `${height}px`;
    const { top, bottom } = document.activeElement.getBoundingClientRect();
    if (top >= 0 && top < innerHeight && bottom > innerHeight - height) {
      document.activeElement.scrollIntoView({ block: 'nearest' });
    }
  }

  #listen() {
    document.addEventListener('click', ({ target }) => {
      const { action } = target.closest('[data-action]')?.dataset ?? {};
      if (Object.hasOwn(this.#actions, action)) this.#do(this.#actions[action]);
      if (target.closest('a')?.hash === location.hash) this.#table.lead(location.hash); // no hashchange comes
    });
    part('modes').addEventListener('click', ({ target: { dataset: { mode } } }) => {
      if (mode) this.#do(() => this.#writeMode(mode));
    });
    part('file').addEventListener('change', ({ target }) => {
      this.#queue(() => importValues(target, this.#state));
    });
    for (const id of ['filter', 'only-changed']) part(id).addEventListener('input', () => this.#table.filter());
    document.addEventListener('keydown', (event) => {
      if (event.key !== '/' || event.target.closest('input, select, textarea')) return;
      event.preventDefault();
      part('filter').focus();
    });
    for (const type of ['pointermove', 'pointerdown', 'keydown', 'wheel']) {
      document.addEventListener(type, () => this.#reader.touch(), { passive: true });
    }
    new ResizeObserver(() => this.#makeRoom()).observe(part('dock'));
    document.addEventListener('visibilitychange', () => this.#reader.poll());
    window.addEventListener('hashchange', () => this.#table.lead(location.hash));
    window.addEventListener('beforeunload', (event) => {
      if (this.#state.staged.size || this.#state.isBusy) event.preventDefault();
    });
  }
}

/// A fault of the page, not of the appliance.
function tellFault(error) {
  setContent(part('fault'), `This page has a fault: ${error?.message ?? error}. Reload it.`);
  console.error(error);
}

window.addEventListener('error', ({ error }) => tellFault(error));
window.addEventListener('unhandledrejection', ({ reason }) => tellFault(reason));
if (window.top === window) new Page();
else document.body.replaceChildren('This page does not run inside another one.');
