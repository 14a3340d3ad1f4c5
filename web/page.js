// The page: reads all parameters every few seconds and shows them as a picture and as a table,
// writes what somebody changes, and tells what the write has changed beside that.

import { Appliance, ApplianceError } from './appliance.js';
import { FlowPicture, choices, root, setText } from './flow.js';

const period = 3000; // milliseconds from an answer to the next read
const patience = 2000; // until the page says that it waits

const modeName = `${root}inputs/video/mode`;
const short = (name) => (name.startsWith(root) ? name.slice(root.length) : name);
const shown = (value) => (value === '' ? '(empty)' : value);
const trim = (value) => value.replace(/^[ \t-\r]+|[ \t-\r]+$/g, ''); // as the program does
const part = (id) => document.getElementById(id);

function make(tag, attributes = {}, ...content) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
  element.append(...content);
  return element;
}

function button(text, act, attributes = {}) {
  const element = make('button', { type: 'button', ...attributes }, text);
  element.addEventListener('click', act);
  return element;
}

let names; // those that the page asks for
let values = new Map(); // what was read last
let readAt = '';
let changed = new Map(); // the former values of what the last write has changed
let unsettled; // a write of which nobody has read yet what it did
let trouble; // its kind
const rows = new Map();

// ---- The table

/// One parameter: its field, and below it what there is to say. What somebody types stays in the
/// field until it is written or taken back.
class Row {
  #field;
  #lastKey; // since the list was last pressed
  #settled; // what the field showed before somebody typed
  #note = make('p', { class: 'note' });
  #buttons = make('p', { class: 'buttons' },
    button('Write', () => this.#write()), button('Take back', () => this.#takeBack()));

  constructor(name, folder) {
    this.name = name;
    this.label = short(name).slice(folder && folder.length + 1);
    this.stored = values.get(name);
    this.complaint = '';
    const id = `field-${name}`;
    this.#note.id = `note-${name}`;
    this.element = make('div', { 'class': 'row', 'data-name': name },
      make('label', { for: id }, this.label), this.#note, this.#buttons);
    this.#makeField();
    this.show();
  }

  get typed() { return this.#field.value !== this.#settled; }

  focus() {
    this.#field.focus();
    this.element.scrollIntoView({ block: 'center' });
  }

  #makeField() {
    const list = choices(this.name, values);
    const lines = /[\r\n]/.test(this.stored) || this.name.endsWith('/text');
    const tag = list ? 'select' : lines ? 'textarea' : 'input';
    const old = this.#field;
    if (old?.localName === tag) return;
    this.#field = make(tag, {
      'id': `field-${this.name}`,
      'aria-label': short(this.name),
      'aria-describedby': this.#note.id,
      'autocomplete': 'off',
      'spellcheck': 'false',
    });
    for (const choice of list ?? []) this.#field.append(make('option', {}, choice));
    if (list) {
      this.#field.addEventListener('mousedown', () => { this.#lastKey = undefined; });
      // With an open list, Enter is a choice. With a closed one each arrow key changes the value.
      this.#field.addEventListener('change', () =>
        [undefined, 'Enter'].includes(this.#lastKey) && this.#write());
    } else {
      this.#field.setAttribute('placeholder', 'empty');
    }
    this.#field.addEventListener('input', () => this.show());
    this.#field.addEventListener('keydown', (event) => this.#pressed(event));
    const focused = old && document.activeElement === old;
    if (old) old.replaceWith(this.#field);
    else this.element.children[0].after(this.#field);
    if (focused) this.#field.focus();
    this.#fill();
  }

  #fill() {
    const field = this.#field;
    if (field.localName === 'select' && ![...field.options].some(({ text, value }) =>
      this.stored === value || this.stored === text)) {
      field.append(make('option', { value: this.stored }, this.stored));
    }
    if (field.localName === 'textarea') field.rows = Math.min(this.stored.split('\n').length, 8);
    field.value = this.stored;
    this.#settled = field.value;
  }

  #pressed(event) {
    this.#lastKey = event.key;
    if (event.isComposing) return;
    if (event.key === 'Escape' && this.typed) {
      event.preventDefault();
      this.#takeBack();
    } else if (event.key === 'Enter' && !event.shiftKey) {
      if (this.#field.localName !== 'select') {
        event.preventDefault();
        this.#write();
      } else if (this.typed) {
        setTimeout(() => this.#write()); // after the choice that Enter may be
      }
    }
  }

  #takeBack() {
    this.complaint = '';
    this.#fill();
    this.#makeField();
    this.#field.focus();
    this.show();
  }

  async #write() {
    if (this.writing) return;
    this.writing = true;
    this.complaint = '';
    this.#field.focus(); // also if a button was pressed, which goes now
    this.show();
    const text = this.#field.value;
    const outcome = await write(this.name, text);
    this.writing = false;
    this.complaint = outcome === 'done' ? '' : outcome;
    if (outcome === 'done' && this.#field.value === text) this.#takeStored();
    this.show();
  }

  #takeStored() {
    this.#fill();
    this.#makeField();
  }

  /// Shows what was read, unless somebody types here.
  show() {
    const stored = values.get(this.name);
    const news = stored !== this.stored;
    this.stored = stored;
    if (news && (!this.typed || this.#field.value === stored)) this.#takeStored();
    const notes = [];
    if (this.writing) notes.push('being written');
    if (this.complaint) notes.push(this.complaint);
    if (this.typed && this.#settled !== stored) notes.push(`stored now: ${shown(stored)}`);
    if (changed.has(this.name)) notes.push(`was ${shown(changed.get(this.name) ?? '')}`);
    setText(this.#note, notes.join(' · '));
    this.element.toggleAttribute('data-changed', changed.has(this.name));
    this.element.classList.toggle('typed', this.typed);
    this.#field.toggleAttribute('aria-invalid', this.complaint !== '');
    this.#buttons.hidden = !this.typed || this.writing;
  }
}

/// The folder under which a parameter stands: that of a numbered thing, such as encoders/venc1,
/// otherwise the first two. One with fewer than three parameters goes into the folder above.
function folderOf(name) {
  const folders = short(name).split('/').slice(0, -1);
  const numbered = folders.findIndex((folder) => /\d$/.test(folder));
  return folders.slice(0, numbered < 0 ? 2 : numbered + 1);
}

function makeTable() {
  const sizes = new Map();
  for (const name of values.keys()) {
    const folder = folderOf(name).join('/');
    sizes.set(folder, (sizes.get(folder) ?? 0) + 1);
  }
  const groups = new Map();
  for (const name of values.keys()) {
    let folder = folderOf(name);
    if (sizes.get(folder.join('/')) < 3 && folder.length > 1) folder = folder.slice(0, -1);
    folder = folder.join('/');
    if (!groups.has(folder)) {
      groups.set(folder, make('section', { 'class': 'group' }, make('h3', {}, folder)));
    }
    rows.set(name, new Row(name, folder));
    groups.get(folder).append(rows.get(name).element);
  }
  part('table').replaceChildren(...groups.values());
}

function filter() {
  const wanted = part('filter').value.toLowerCase();
  const only = part('only-changed').checked;
  let count = 0;
  for (const { name, stored, typed, element } of rows.values()) {
    const fits = (name.toLowerCase().includes(wanted) || stored.toLowerCase().includes(wanted))
      && (!only || changed.has(name));
    element.hidden = !fits && !typed && !element.contains(document.activeElement);
    count += element.hidden ? 0 : 1;
  }
  for (const group of part('table').children) {
    group.hidden = ![...group.children].some((row) => row.dataset.name && !row.hidden);
  }
  setText(part('count'), `${count} of ${rows.size}`);
}

// ---- What there is to say

/// Tells how the last read went; `state` is `good`, `waiting` or `trouble`.
function tell(state, text = '') {
  document.body.dataset.state = state;
  const old = readAt ? ` What you see was read at ${readAt}.` : '';
  setText(part('waiting'), state === 'waiting' ? text + old : '');
  setText(part('trouble'), state === 'trouble' ? text + old : '');
  part('flow').dataset.old = state === 'trouble' ? `out of date${readAt && `: read at ${readAt}`}` : '';
}

/// Shows the outcome of a write; `wrong` is what went wrong, `items` lists changed parameters.
function report(text, wrong = '', items = []) {
  part('complaint').replaceChildren(wrong);
  part('told').replaceChildren(text);
  if (items.length) {
    part('told').append(make('ul', {}, ...items.map((name) => make('li', {},
      link(name), ` ${shown(changed.get(name) ?? '')} → `, make('b', {}, shown(values.get(name)))))));
  }
  part('result').dataset.wrong = wrong && 'yes';
  part('clear').hidden = !text && !wrong;
}

function link(name) {
  const element = make('a', { href: '#table' }, short(name));
  element.addEventListener('click', (event) => {
    event.preventDefault();
    rows.get(name).element.hidden = false;
    rows.get(name).element.parentElement.hidden = false;
    rows.get(name).focus();
  });
  return element;
}

function clearMarks() {
  changed = new Map();
  report('');
}

// ---- Reading

let picture;

function show() {
  if ([...values.keys()].join() !== [...rows.keys()].join()) {
    rows.clear();
    makeTable();
  }
  for (const row of rows.values()) row.show();
  const get = (name) => values.get(`${root}system/${name}`);
  const title = get('name') || 'Encoder';
  const about = ['model', 'serial_number', 'firmware_version', 'location'];
  setText(part('title'), title);
  setText(part('about'), about.map(get).filter(Boolean).join(' · '));
  if (document.title !== title) document.title = title;
  picture ??= new FlowPicture(part('flow'));
  picture.draw(values, changed);
  showModes();
  filter();
}

function showModes() {
  const modes = part('modes');
  const list = values.has(modeName) ? choices(modeName, values) : [];
  if (modes.children.length !== list.length) {
    modes.replaceChildren(...list.map((mode) => button(
      mode === 'dual' ? 'both inputs' : mode.replace('single_', 'input '),
      () => write(modeName, mode), { 'data-mode': mode })));
  }
  for (const element of modes.children) {
    element.setAttribute('aria-pressed', element.dataset.mode === values.get(modeName));
  }
}

/// The names of the parameters, one a line.
async function fetchNames() {
  const response = await fetch(new URL('names.txt', location.origin + location.pathname),
    { cache: 'no-cache' }).catch(() => {});
  const text = response?.ok && await response.text().catch(() => {});
  if (!text) throw new ApplianceError('silent', 'The list of names, names.txt, cannot be had');
  return text.split(/\r?\n/).filter(Boolean);
}

/// Says that the page waits if the answer takes long.
async function patiently(answer) {
  const timer = setTimeout(() => {
    if (trouble !== 'silent') tell('waiting', 'Waiting for an answer of the appliance.');
  }, patience);
  try {
    return await answer;
  } finally {
    clearTimeout(timer);
  }
}

/// Reads and shows everything; an empty text, or what went wrong.
async function readAll() {
  try {
    names ??= await fetchNames();
    const { values: found, invalid } = await patiently(appliance.read(names));
    if (!found.size) throw new ApplianceError('broken', 'None of the parameters could be read');
    const lost = invalid.filter((name) => values.has(name)).length;
    values = new Map(names.filter((name) => found.has(name) || values.has(name))
      .map((name) => [name, found.get(name) ?? values.get(name)]));
    if (lost) {
      show();
      throw new ApplianceError('broken', `${lost} of ${values.size} parameters could not be read`);
    }
  } catch (error) {
    if (!(error instanceof ApplianceError)) throw error;
    trouble = error.kind;
    tell('trouble', `${error.message}.`);
    return error.message;
  }
  trouble = undefined;
  readAt = new Date().toLocaleTimeString();
  setText(part('read-at'), `Read at ${readAt}`);
  tell('good');
  if (unsettled) settle();
  show();
  return '';
}

// ---- Writing

const jobs = { last: Promise.resolve() };

/// One job after the other, so that what changes between two reads is this write's doing.
function queue(job) {
  const result = jobs.last.then(job);
  jobs.last = result.catch(() => {});
  return result;
}

/// Writes, reads everything again, and tells what has changed. Gives `done` if what is stored now is
/// known and was not complained about, otherwise what to say beside the field.
function write(name, value) {
  return queue(async () => {
    const what = `${short(name)} = ${shown(value)}`;
    const wrong = await readAll();
    clearMarks();
    if (wrong) {
      report('', `Not written: ${what}. ${wrong}.`);
      return 'not written';
    }
    show();
    const before = values;
    let complaint = '';
    let broke = '';
    try {
      complaint = trim((await patiently(appliance.write(name, value))).reply);
    } catch (error) {
      if (!(error instanceof ApplianceError)) throw error;
      if (['daemon', 'refused'].includes(error.kind)) {
        report('', `Not stored: ${what}. ${error.message}.`);
        readSoon();
        return `not stored: ${error.message}`;
      }
      broke = error.message;
    }
    return new Promise((resolve) => {
      unsettled = { name, value, what, before, complaint, broke, resolve };
      if (broke) report('', `The write of ${what} broke off. ${broke}. Reading what is stored …`);
      readAll().then((failed) => {
        if (failed && !broke) report(`Written: ${what}. It could not be read again yet.`);
        if (failed) resolve('not known whether it is stored');
      });
    });
  });
}

/// Tells what became of the unsettled write, now that everything was read again.
function settle() {
  const { name, value, what, before, complaint, broke, resolve } = unsettled;
  unsettled = undefined;
  for (const [read, now] of values) if (before.get(read) !== now) changed.set(read, before.get(read));
  const items = [...changed.keys()].sort((a, b) => (b === name) - (a === name));
  const more = items.filter((item) => item !== name).length;
  const stored = values.get(name);
  const kept = stored === trim(value);
  const others = more ? ` With it changed ${more} more.` : kept ? ' Nothing else has changed.' : '';
  const outcome = kept ? `Stored: ${what}.` : `Stored is: ${short(name)} = ${shown(stored)}.`;
  let wrong = '';
  if (complaint) wrong = `The appliance complains about ${what}: ${complaint}`;
  else if (broke) wrong = `The write of ${what} broke off. ${broke}.`;
  else if (!kept) wrong = `The appliance has not kept ${what}.`;
  report(outcome + others, wrong, items);
  resolve(kept || !(complaint || broke) ? 'done' : complaint || 'not stored');
}

// ---- The start

let timer;

function readSoon(delay = 0) {
  clearTimeout(timer);
  timer = setTimeout(async () => {
    if (document.hidden) return;
    await queue(readAll);
    readSoon(period);
  }, delay);
}

let appliance;

if (window.top === window) {
  appliance = new Appliance();
  part('again').addEventListener('click', () => readSoon());
  part('clear').addEventListener('click', () => {
    clearMarks();
    show();
    part('filter').focus({ preventScroll: true });
  });
  part('filter').addEventListener('input', filter);
  part('only-changed').addEventListener('change', filter);
  document.addEventListener('visibilitychange', () => document.hidden || readSoon());
  readSoon();
} else {
  document.body.replaceChildren('This page does not run inside another one.');
}
