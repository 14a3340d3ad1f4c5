// A row of the table: a parameter's name, its field, and a note. It knows no appliance.

import { make, setContent, short, trim } from './dom.js';
import { listChoices } from './names.js';
import { complaintOf, isUnderWay, isUnread, noteOf } from './outcome.js';

const buttonTexts = { write: 'Write', confirm: 'Write and move', anyway: 'Write nevertheless' };

export class Row {
  #field;
  #note;
  #buttons;
  #value; // the value in the field
  #filled; // the field then: it changes line ends

  /// `name` is shown without `folder`. `act(name, action, text)` hears of `stage`, `cancel`, `write`,
  /// `anyway`, `confirm`.
  constructor(name, folder, about, act) {
    const { unit = '', help = '', label = '' } = about;
    this.#note = make('span', { class: 'note', id: `note:${name}` });
    this.#field = makeField(name, about);
    const isText = this.#field.tagName === 'SPAN';
    this.#buttons = ['write', 'cancel'].map((action) => make('button', { 'data-action': action }, 'Discard'));
    const rest = short(name).slice(folder.length + 1).replaceAll('/', '/\u200b');
    this.element = make('div', { 'class': 'row', 'data-name': name },
      make(isText ? 'span' : 'label', isText ? {} : { for: name },
        label || rest, ' ', make('small', {}, label && rest, ' ', unit)),
      this.#field, ...('secret' in about ? [makeLook(this.#field)] : []),
      make('p', {}, this.#note, ...this.#buttons),
      make('small', { id: `help:${name}` }, help));
    for (const button of this.#buttons) {
      button.addEventListener('click', () => {
        this.focus(); // the button may go
        act(name, button.dataset.action);
      });
    }
    // Some tools cause only one of them.
    this.#field.oninput = this.#field.onchange = () => act(name, 'stage', this.#text);
    this.#field.addEventListener('keydown', (event) => {
      const { key, shiftKey, isComposing } = event;
      if (key === 'Escape') act(name, 'cancel');
      if (key !== 'Enter' || shiftKey || isComposing) return;
      event.preventDefault();
      act(name, 'write');
    });
  }

  focus() { this.#field.focus({ preventScroll: true }); }

  get #text() {
    const { value } = this.#field;
    return value === this.#filled ? this.#value : trim(value);
  }

  #fill(value) {
    const field = this.#field;
    this.#value = value;
    if (field.tagName === 'SPAN') setContent(field, value);
    field.value = value;
    if (field.selectedIndex < 0) field.append(make('option', { value, selected: '' }, value));
    this.#filled = field.value;
    field.rows = value.split(/\n|.{20}/).length; // if it does not size itself
  }

  /// Shows the stored, `staged` and `former` value, if any, and the `outcome` of the last write or
  /// question; `shown` gives a value as text.
  show({ value, staged, former, elsewhere, outcome, shown }) {
    const text = staged ?? value;
    if (text !== this.#text) this.#fill(text);
    const isStaged = staged !== undefined;
    const isChanged = former !== undefined;
    setContent(this.#note, [outcome ? noteOf(outcome) : isStaged && 'not written',
      isStaged && `${outcome && isUnread(outcome) ? 'read before' : 'stored'}: ${shown(value)}`,
      isChanged && `${elsewhere ? 'changed elsewhere, ' : ''}was ${shown(former)}`]
      .filter(Boolean).join(' · '));
    const { dataset } = this.element;
    this.element.toggleAttribute('data-staged', isStaged);
    if (isChanged) dataset.changed = elsewhere ? 'elsewhere' : '';
    else delete dataset.changed;
    const [button] = this.#buttons;
    button.dataset.action = outcome?.action ?? 'write';
    setContent(button, buttonTexts[button.dataset.action]);
    for (const each of this.#buttons) each.hidden = !isStaged || (outcome && isUnderWay(outcome));
    this.#field.ariaInvalid = outcome && complaintOf(outcome, '') ? 'true' : null;
  }
}

function makeField(name, about) {
  const { unit = '', label = '' } = about;
  const choices = listChoices(about);
  const attributes = { 'id': name, 'class': 'value', 'aria-describedby': `note:${name} help:${name}` };
  const isFixed = 'read-only' in about;
  const isSecret = 'secret' in about;
  if (isFixed && !isSecret) return make('span', { ...attributes, tabindex: -1 });
  Object.assign(attributes, { 'aria-label': `${label} ${short(name)} ${unit}`.trim(), 'placeholder': 'empty',
    'spellcheck': 'false' });
  if (isSecret) {
    const fixed = isFixed ? { readonly: '' } : {};
    return make('input', { ...attributes, ...fixed, type: 'password', autocomplete: 'new-password' });
  }
  if (choices) return make('select', attributes, ...choices.map((choice) => make('option', { value: choice }, choice)));
  return make('textarea', attributes);
}

/// The button to show a secret.
function makeLook(field) {
  const button = make('button', { 'data-action': 'look', 'aria-pressed': 'false',
    'aria-label': `Show ${short(field.id)}` }, 'Show');
  button.addEventListener('click', () => {
    const isMasked = field.type === 'password';
    field.type = isMasked ? 'text' : 'password';
    button.ariaPressed = String(isMasked);
  });
  return button;
}
