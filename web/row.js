// A row of the table: a parameter's name, its field, and a note. It knows no appliance.

import { make, setContent, short, shown, trim } from './dom.js';
import { listChoices } from './names.js';

export class Row {
  #field;
  #note;
  #buttons;
  #value; // the value in the field
  #filled; // the field then: it changes line ends

  /// `act(name, action, text)` hears of `stage`, `cancel`, `write`, `anyway`, `confirm`.
  constructor(name, label, about, act) {
    const { unit = '', help = '' } = about;
    const choices = listChoices(about);
    const isText = 'read-only' in about;
    this.#note = make('p', { class: 'note', id: `note:${name}` });
    this.#field = make(isText ? 'span' : choices ? 'select' : 'textarea', {
      'id': name, 'class': 'value', 'aria-describedby': `note:${name} help:${name}`, 'spellcheck': 'false',
      ...(isText ? { tabindex: 0 } : { 'placeholder': 'empty', 'aria-label': `${short(name)} ${unit}` }),
    }, ...(choices ?? []).map((choice) => make('option', { value: choice }, choice)));
    this.#buttons = ['write', 'cancel'].map((action) => make('button', { 'data-action': action }, 'Cancel'));
    this.element = make('div', { 'class': 'row', 'data-name': name },
      make(isText ? 'span' : 'label', isText ? {} : { for: name }, label.replaceAll('/', '/\u200b'),
        ' ', make('small', {}, unit)),
      this.#field, this.#note, make('p', { class: 'buttons' }, ...this.#buttons),
      make('p', { class: 'help', id: `help:${name}` }, help));
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

  /// Shows the stored, `staged` and `former` value, if any; the `outcome` of the last write, or what it
  /// is `doing`.
  show({ value, staged, former, elsewhere, outcome = {}, doing }) {
    const text = staged ?? value;
    if (text !== this.#text) this.#fill(text);
    const isStaged = staged !== undefined;
    const isChanged = former !== undefined;
    setContent(this.#note, [doing || outcome.note, isStaged && `${doing ? '' : 'not written; '}stored: ${shown(value)}`,
      isChanged && `${elsewhere ? 'changed elsewhere, ' : ''}was ${shown(former)}`]
      .filter(Boolean).join(' · '));
    const { dataset } = this.element;
    this.element.toggleAttribute('data-staged', isStaged);
    if (isChanged) dataset.changed = elsewhere ? 'elsewhere' : '';
    else delete dataset.changed;
    const [button] = this.#buttons;
    button.dataset.action = outcome.action ?? 'write';
    setContent(button, { confirm: 'Write and move', anyway: 'Write nevertheless' }[outcome.action] ?? 'Write');
    button.parentElement.hidden = doing || !(isStaged || outcome.action);
    this.#field.ariaInvalid = outcome.bad ? 'true' : null;
  }
}
