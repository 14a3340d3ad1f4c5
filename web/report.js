// The report: what waits to be written, what is under way, what went wrong, and what has changed.

import { assign, make, part, setContent, short, shown } from './dom.js';

/// Shows how many values are `staged`; the `writes`; the texts of what went `wrong`; what has changed
/// `elsewhere`; an address that the appliance has `moved` to, maybe; whether there are `marks`.
export function report({ staged, writes, wrong, elsewhere, moved, marks }) {
  const { told: { text, changes = [], notes = [] }, pending, isBusy, canUndo } = writes;
  const [now, ...waiting] = pending.map(({ name, value }) => assign(name, value));
  setContent(part('staged'), staged && `${staged} not written`);
  setContent(part('wrong'), ...wrong.map(paragraph));
  setContent(part('progress'), isBusy && (now ? `Writing ${now} …` : 'Reading what is stored …'),
    waiting.length && ` Then ${waiting.join(', ')}.`);
  setContent(part('outcome'), text, ...notes.map(paragraph), listChanges(changes));
  setContent(part('elsewhere'), elsewhere.length && 'Changed elsewhere:', listChanges(elsewhere));
  setContent(part('moved'), moved && 'If this page does not answer any more, the appliance may be at ',
    moved && make('a', { href: moved }, moved));
  const isShown = {
    'write-all': staged,
    'discard': staged,
    'take-back': pending.some(({ sent }) => !sent),
    'undo': canUndo,
    'clear': marks || wrong.length || text || moved,
  };
  for (const [action, is] of Object.entries(isShown)) {
    part('result').querySelector(`[data-action="${action}"]`).hidden = !is;
  }
  part('result').hidden = !isBusy && !Object.values(isShown).some(Boolean);
}

const paragraph = (text) => make('p', {}, text);

function listChanges(changes) {
  return changes.length && make('ul', {}, ...changes.map(({ name, from, to }) => make('li', {},
    make('a', { href: `#${name}` }, short(name)),
    ` ${shown(from)} → `, make('b', {}, shown(to)))));
}
