// The page: reads all parameters every few seconds, shows them as a picture and as a table, writes
// what somebody changes, and tells what followed.

import { Appliance, ApplianceError } from './appliance.js';
import { FlowPicture, choices, modeName, root, setText } from './flow.js';

const period = 3000; // milliseconds from an answer to the next read
const patience = 2000; // until the page says that it waits

const part = (id) => document.getElementById(id);
const short = (name) => name.replace(root, '');
const shown = (value) => value || '(empty)';
const trim = (value) => value.replace(/^[ \t-\r]+|[ \t-\r]+$/g, ''); // as the program does

function make(tag, attributes, ...content) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
  element.append(...content);
  return element;
}

let appliance, picture, timer, names;
let values = new Map(); // what was read last
let readAt = '';
let changed = new Map(); // the former values of what the last write has changed
let unsettled; // a write of which nothing was read yet
let trouble; // the kind of the last failure to read
const rows = new Map();

/// One parameter. What somebody types stays until it is written or taken back.
class Row {
  #field;
  #isList;
  #note;
  #lastKey = 'Enter';
  #stored; // what the field was filled with
  #settled; // what it then showed: a field changes line ends
  #writing = false;
  #complaint = '';

  constructor(name, label) {
    this.name = name;
    this.#note = make('p', { class: 'note', id: `note:${name}` });
    const list = choices(name, values);
    this.#isList = Boolean(list);
    this.#field = make(list ? 'select' : 'textarea', { 'id': name, 'aria-label': short(name),
      'aria-describedby': this.#note.id, 'placeholder': 'empty', 'spellcheck': 'false' },
    ...(list ?? []).map((choice) => make('option', {}, choice)));
    this.element = make('div', { 'class': 'row', 'data-name': name },
      make('label', { for: name }, label.replaceAll('/', '/\u200b')), this.#field, this.#note);
    this.#fill();
    this.#field.addEventListener('input', () => this.show());
    this.#field.addEventListener('keydown', (event) => this.#press(event));
    // Enter chooses from an open list, as the mouse does. An arrow key changes a closed one.
    this.#field.addEventListener('mousedown', () => { this.#lastKey = 'Enter'; });
    this.#field.addEventListener('change', () => {
      if (list && this.#lastKey === 'Enter') this.#write();
    });
  }

  get typed() { return this.#field.value !== this.#settled; }

  /// No white space around it: a read would not tell of any.
  get #text() { return trim(this.#field.value); }

  #fill() {
    const field = this.#field;
    this.#stored = values.get(this.name);
    field.value = this.#stored;
    if (field.selectedIndex < 0) {
      field.append(make('option', { value: this.#stored, selected: '' }, this.#stored));
    }
    this.#settled = field.value;
    if (!this.#isList) field.rows = this.#settled.split('\n').length;
  }

  #press(event) {
    const { key } = event;
    this.#lastKey = key;
    if (key === 'Escape' && this.typed) {
      this.finish(this.#text, '');
    } else if (key === 'Enter' && !event.shiftKey && !event.isComposing) {
      if (!this.#isList) event.preventDefault();
      // Later, since Enter may choose from an open list.
      setTimeout(() => (!this.#isList || this.typed) && this.#write());
    }
  }

  #write() {
    if (this.#writing) return;
    this.#writing = true;
    write(this.name, this.#text);
  }

  /// Ends the write of `value`; with a complaint, what was typed stays.
  finish(value, complaint) {
    this.#writing = false;
    this.#complaint = complaint;
    if (!complaint && this.#text === value) this.#fill();
    this.show();
  }

  /// Shows what was read, unless somebody types here.
  show() {
    const stored = values.get(this.name);
    if (this.#stored !== stored && (!this.typed || this.#field.value === stored)) this.#fill();
    const isChanged = changed.has(this.name);
    setText(this.#note, [this.#complaint, this.#stored !== stored && `stored: ${shown(stored)}`,
      isChanged && `was ${shown(changed.get(this.name))}`].filter(Boolean).join(' · '));
    this.element.toggleAttribute('data-changed', isChanged);
    this.element.classList.toggle('typed', this.typed);
    this.#field.ariaInvalid = String(this.#complaint !== '');
  }
}

/// Makes the rows of new names, grouped by a numbered folder or else the first one.
function makeTable() {
  const groups = new Map();
  for (const name of values.keys()) {
    const [folder] = /^(.*?\d|[^/]*)(?=\/)/.exec(short(name)) ?? [''];
    if (!groups.has(folder)) groups.set(folder, make('section', {}, make('h3', {}, folder)));
    if (!rows.has(name)) rows.set(name, new Row(name, short(name).slice(folder.length + 1)));
    groups.get(folder).append(rows.get(name).element);
  }
  part('table').replaceChildren(...groups.values());
}

function filter() {
  const wanted = part('filter').value.toLowerCase();
  const only = part('only-changed').checked;
  let count = 0;
  for (const { name, typed, element } of rows.values()) {
    const fits = `${name}\n${values.get(name)}`.toLowerCase().includes(wanted) && (!only || changed.has(name));
    element.hidden = !fits && !typed && !element.contains(document.activeElement);
    count += !element.hidden;
  }
  for (const group of part('table').children) {
    group.hidden = !group.querySelector('.row:not([hidden])');
  }
  setText(part('count'), `${count} of ${rows.size}`);
}

/// Tells how reading goes: `good`, `waiting` or `trouble`.
function tell(state, text = '') {
  document.body.dataset.state = state;
  const old = readAt && ` What you see was read at ${readAt}.`;
  for (const id of ['waiting', 'trouble']) setText(part(id), id === state ? text + old : '');
  part('old').hidden = state !== 'trouble';
}

/// Tells of a write: what went wrong, what is stored, and what has changed.
function report(wrong, text = '', items = []) {
  setText(part('wrong'), wrong);
  part('told').replaceChildren(text);
  if (items.length) {
    part('told').append(make('ul', {}, ...items.map((name) => make('li', {},
      make('a', { href: `#${name}` }, short(name)), ` ${shown(changed.get(name))} → `, make('b', {}, shown(values.get(name)))))));
  }
  part('clear').hidden = !wrong && !text;
}

function showModes() {
  const modes = values.has(modeName) ? choices(modeName, values) : [];
  if (part('modes').children.length !== modes.length) {
    part('modes').replaceChildren(...modes.map((mode) => make('button', { 'data-mode': mode },
      mode === 'dual' ? 'both inputs' : mode.replace('single_', 'input '))));
  }
  for (const button of part('modes').children) {
    button.ariaPressed = String(button.dataset.mode === values.get(modeName));
  }
}

function show() {
  if (rows.size !== values.size) makeTable();
  for (const row of rows.values()) row.show();
  const [title, ...about] = ['name', 'model', 'serial_number', 'firmware_version', 'location']
    .map((name) => values.get(`${root}system/${name}`));
  document.title = title || 'Encoder';
  setText(part('title'), document.title);
  setText(part('about'), about.filter(Boolean).join(' · '));
  picture.draw(values, changed);
  showModes();
  filter();
}

function clear() {
  changed = new Map();
  report('');
  show();
}

/// The names, one a line: the program cannot list them.
async function fetchNames() {
  const url = new URL('names.txt', location.origin + location.pathname);
  const response = await fetch(url, { cache: 'no-cache' }).catch(() => ({}));
  if (!response.ok) throw new ApplianceError('silent', 'The web server does not give names.txt');
  return (await response.text()).split(/\s+/).filter(Boolean);
}

/// Says that the page waits, if it does for long.
function patiently(answer) {
  const late = setTimeout(() => {
    if (trouble !== 'silent') tell('waiting', 'Waiting for the appliance to answer.');
  }, patience);
  return answer.finally(() => clearTimeout(late));
}

/// Reads and shows everything. Gives what went wrong, or nothing.
async function readAll() {
  try {
    names ??= await patiently(fetchNames());
    const { values: found, invalid } = await patiently(appliance.read(names));
    if (!found.size) throw new ApplianceError('broken', 'No parameter could be read');
    const lost = invalid.filter((name) => values.has(name)).length;
    values = new Map(names.map((name) => [name, found.get(name) ?? values.get(name)])
      .filter(([, value]) => value !== undefined));
    if (lost) {
      show();
      throw new ApplianceError('broken', `${lost} of ${values.size} parameters could not be read`);
    }
    readAt = new Date().toLocaleTimeString();
    setText(part('read-at'), `Read at ${readAt}`);
    trouble = undefined;
    tell('good');
    if (unsettled) settle();
    show();
    return '';
  } catch ({ kind, message }) {
    trouble = kind;
    tell('trouble', `${message}.`);
    return message;
  }
}

let last = Promise.resolve();

/// One job after the other, so that what changes between two reads is one write's doing.
function queue(job) {
  last = last.then(job);
  return last;
}

/// Writes, reads everything again, and tells what has changed.
function write(name, value) {
  return queue(async () => {
    const what = `${short(name)} = ${shown(value)}`;
    const fail = (message) => {
      unsettled = undefined;
      report(`Not stored: ${what}. ${message}.`);
      rows.get(name).finish(value, 'not stored');
    };
    const wrong = await readAll();
    clear();
    if (wrong) return fail(wrong);
    unsettled = { name, value, what, before: values, complaint: '', broke: '' };
    try {
      unsettled.complaint = trim((await patiently(appliance.write(name, value))).reply);
    } catch ({ kind, message }) {
      if (['daemon', 'refused'].includes(kind)) return fail(message);
      unsettled.broke = message;
      report(`The write of ${what} broke off. ${message}. Reading what is stored …`);
    }
    return readAll();
  });
}

/// Tells what the last write did, now that everything was read again.
function settle() {
  const { name, value, what, before, complaint, broke } = unsettled;
  unsettled = undefined;
  for (const [other, now] of values) {
    if (before.get(other) !== now) changed.set(other, before.get(other));
  }
  const kept = values.get(name) === value;
  const items = [...changed.keys()].sort((a, b) => (b === name) - (a === name));
  const more = items.length - changed.has(name);
  report(
    complaint ? `The appliance complains about ${what}: ${complaint}`
      : broke ? `The write of ${what} broke off. ${broke}.`
        : kept ? '' : `The appliance has not kept ${what}.`,
    (kept ? `Stored: ${what}.` : `Stored is ${short(name)} = ${shown(values.get(name))}.`)
      + (more ? ` With it changed ${more} more.` : ''), items);
  rows.get(name).finish(value, kept ? '' : complaint || (broke && 'not stored'));
}

function readSoon(delay = 0) {
  clearTimeout(timer);
  timer = setTimeout(() => document.hidden || queue(readAll).then(() => readSoon(period)), delay);
}

if (window.top === window) {
  appliance = new Appliance();
  picture = new FlowPicture(part('flow'));
  part('modes').addEventListener('click', ({ target: { dataset: { mode } } }) =>
    mode && write(modeName, mode));
  part('again').addEventListener('click', () => readSoon());
  part('clear').addEventListener('click', () => {
    clear();
    part('filter').focus({ preventScroll: true });
  });
  part('told').addEventListener('click', () => { // which may lead to a row
    part('filter').value = '';
    filter();
  });
  for (const id of ['filter', 'only-changed']) part(id).addEventListener('input', filter);
  document.addEventListener('visibilitychange', () => readSoon());
  readSoon();
} else {
  document.body.replaceChildren('This page does not run inside another one.');
}
