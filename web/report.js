// The report: staged values, writes under way, failures and changes.

import { assign, make, part, setContent, short, shown } from './dom.js';

/// Shows the report, and the appliance's possible new address, `moved`.
export function report(state, moved) {
  const { told: { text, changes = [], notes = [] }, pending, values, changed } = state;
  const staged = state.staged.size;
  const isBusy = state.jobs.length > 0;
  const wrong = [...state.outcomes.values()].map(({ bad }) => bad).filter(Boolean);
  const elsewhere = [...changed].filter(([name]) => state.elsewhere.has(name))
    .map(([name, from]) => ({ name, from, to: values.get(name) }));
  const asking = [...state.outcomes].filter(([, { action }]) => action === 'confirm')
    .map(([name, { value }]) => ({ name, from: values.get(name), to: value }));
  const [now, ...waiting] = pending.map(({ name, value }) => assign(name, value));
  setContent(part('staged'), staged && `${staged} not written`);
  setContent(part('wrong'), ...wrong.map(paragraph));
  setContent(part('progress'), isBusy && (now ? `Writing ${now} …` : 'Reading what is stored …'),
    waiting.length && ` Then ${waiting.join(', ')}.`);
  setContent(part('outcome'), text, ...notes.map(paragraph), listChanges(changes));
  setContent(part('elsewhere'), elsewhere.length && 'Changed elsewhere:', listChanges(elsewhere));
  setContent(part('asking'), asking.length && 'To be confirmed:', listChanges(asking));
  setContent(part('moved'), moved && 'If this page does not answer any more, the appliance may be at ',
    moved && make('a', { href: moved }, moved));
  const isShown = {
    'write-all': staged,
    'discard': staged,
    'take-back': pending.some(({ sent }) => !sent),
    'undo': state.undoable && !isBusy,
    'clear': changed.size || wrong.length || text || moved,
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
