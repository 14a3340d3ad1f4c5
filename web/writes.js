// Carries out the jobs of the state: one after the other, each value after the answer to the one
// before. The page loads this at the first sign of an operator.

import { ApplianceError } from './appliance.js';
import { assign, trim } from './dom.js';

/// Carries out the first job. `read` reads everything into the state and gives the trouble; `put`
/// writes a value; `show` shows the state.
export async function carryOut(state, read, put, show) {
  const [job] = state.jobs;
  if (!job.items.length) return;
  const trouble = await read();
  if (trouble) return giveUp(state, trouble);
  settle(state);
  job.before = state.values;
  for (const name of job.wanted?.keys() ?? []) { // do not overwrite somebody else's write
    if (job.seen.get(name) !== job.before.get(name)) state.takeBack(name);
  }
  while (await send(job, state, put, show)) {
    if (await read()) return; // the next good read settles it
    for (const [name, value] of job.wanted ?? []) {
      if (state.values.get(name) !== value) job.items.push({ name, value });
    }
    job.wanted = undefined;
  }
  settle(state);
}

/// Gives whether there was anything to send.
async function send(job, state, put, show) {
  let item, hasSent = false;
  while ((item = job.items.find(({ sent }) => !sent))) {
    item.sent = true;
    show();
    try {
      item.reply = trim((await put(item.name, item.value)).reply);
    } catch (error) {
      if (!(error instanceof ApplianceError)) throw error;
      const { kind, message, status } = error;
      item.sent = kind === 'broken' || kind === 'silent'; // and maybe stored
      item.broke = message;
      giveUp(state, message, kind === 'refused' && status !== 401 ? item.name : undefined);
      if (!item.sent) continue;
      judge(item, state);
    }
    item.answered = true;
    hasSent = true;
    state.unsettled = job;
  }
  return hasSent;
}

/// Tells the outcome of the last job, after a new read.
export function settle(state) {
  const { unsettled: job, values } = state;
  if (!job) return;
  state.unsettled = undefined;
  const written = new Map(job.items.map((item) => [item.name, item]));
  for (const item of written.values()) judge(item, state);
  const changes = [...values].map(([name, to]) => ({ name, from: job.before.get(name) ?? to, to }))
    .filter(({ from, to }) => from !== to)
    .sort((a, b) => written.has(b.name) - written.has(a.name));
  if (changes.length) state.undoable = { names: [...written.keys()], changes };
  const [{ name, value }] = written.values();
  const kept = [...written.values()].filter((item) => values.get(item.name) === item.value).length;
  const more = changes.filter((change) => !written.has(change.name)).length;
  const text = written.size > 1 ? `Stored: ${kept} of ${written.size} values.`
    : `Stored${kept ? ':' : ' is'} ${assign(name, values.get(name))}.`;
  state.told = { text: text + (more ? ` ${more} more changed with it.` : ''), changes };
}

/// Takes back what is not sent, maybe of one parameter only, and tells why. It stays staged.
function giveUp(state, message, only) {
  for (const { name, value } of state.takeBack(only)) {
    state.outcomes.set(name, { value, note: 'not stored', passing: !only,
      bad: `Not stored: ${assign(name, value)}. ${message}.` });
  }
}

/// Tells the outcome of one value. It stays staged if the appliance complains.
function judge({ name, value, reply, broke }, { values, staged, outcomes }) {
  const what = assign(name, value);
  const kept = values.get(name) === value;
  const complaint = reply ? `The appliance complains about ${what}: ${reply}`
    : broke && `The write of ${what} broke off. ${broke}.`;
  if (staged.get(name) === value && (kept || !complaint)) staged.delete(name);
  outcomes.set(name, { value, note: kept ? 'stored' : 'not stored',
    bad: complaint || (kept ? '' : `The appliance has not kept ${what}.`) });
}

/// A job to undo the last one, its written values first. Later changes stay.
export function planUndo({ values, undoable: { names, changes } }) {
  const wanted = new Map(changes.filter(({ name, to }) => values.get(name) === to)
    .map(({ name, from }) => [name, from]));
  const first = names.filter((name) => wanted.has(name)).reverse();
  return [first.length ? first.map((name) => [name, wanted.get(name)]) : [...wanted], wanted];
}
