// Export and import of all values. The page loads this on demand.

import { make, root, short, shown, trim } from './dom.js';

const heads = ['name', 'serial_number', 'firmware_version'];

/// Gives the browser a file to save, which holds passwords and keys, too, or tells what is `wrong`.
export function exportValues(state, wrong) {
  state.told = { text: wrong ? `Not exported. ${wrong}.` : 'Exported.' };
  if (wrong) return;
  const { values } = state;
  const head = heads.map((name) => [name.replace('firmware_', ''), values.get(`${root}system/${name}`)]);
  const time = new Date().toISOString();
  const content = { ...Object.fromEntries(head), time, values: Object.fromEntries(values) };
  const href = URL.createObjectURL(new Blob([`${JSON.stringify(content, null, 1)}\n`]));
  const host = values.get(`${root}network/hostname`)?.replace(/[^\w-]/g, '') || 'appliance';
  make('a', { href, download: `${host}-${time.slice(0, 10)}.json` }).click();
  setTimeout(() => URL.revokeObjectURL(href), 60000);
}

/// Stages what differs in the file of a field, and tells. Gives its values that somebody may write here.
export async function importValues(field, state, descriptions) {
  const [file] = field.files;
  field.value = ''; // so that it can be chosen again
  const content = file.size < 1e7 ? parse(await file.text()) : undefined;
  const found = Object.entries(content?.values ?? {});
  // No appliance can send half a character.
  if (!found.length || found.some(([, value]) => typeof value !== 'string' || /\p{Cs}/u.test(value))) {
    state.told = { text: `${shown(file.name)} is no file of an export.` };
    return new Map();
  }
  const { values } = state;
  const imported = new Map(found.map(([name, value]) => [name, trim(value)]));
  const lists = { 'This appliance does not have': [], 'Read-only, and left as it is': [],
    'Not in the file': [...values.keys()].filter((name) => !imported.has(name)) };
  const [unknown, readOnly] = Object.values(lists);
  const changes = [];
  for (const [name, to] of imported) {
    const from = values.get(name);
    const isFixed = 'read-only' in (descriptions.get(name) ?? {});
    if (from === undefined) unknown.push(name);
    else if (from !== to) (isFixed ? readOnly : changes).push(isFixed ? name : { name, from, to });
    if (from === undefined || isFixed) imported.delete(name);
    else state.stage(name, to);
  }
  const origin = ['name', 'serial_number', 'version', 'time'].map((key) => content[key])
    .filter((text) => typeof text === 'string').map(shown).join(' · ');
  const text = `${changes.length} values differ in ${shown(file.name)} (${origin}). Nothing is written yet.`;
  const notes = Object.entries(lists).filter(([, names]) => names.length)
    .map(([what, names]) => `${what}: ${names.map(short).join(', ')}.`);
  state.told = { text, changes, notes };
  return imported;
}

function parse(text) {
  try {
    return JSON.parse(text);
  } catch (error) {
    if (error instanceof SyntaxError) return undefined;
    throw error;
  }
}
