// The file that holds all names and values. The page loads this when somebody asks for it.

import { make, root, short, shown, trim } from './dom.js';

const heads = ['name', 'serial_number', 'firmware_version'];

/// Gives the browser a file to save. It holds passwords and keys, too.
export function exportValues(values) {
  const head = heads.map((name) => [name.replace('firmware_', ''), values.get(`${root}system/${name}`)]);
  const time = new Date().toISOString();
  const content = { ...Object.fromEntries(head), time, values: Object.fromEntries(values) };
  const href = URL.createObjectURL(new Blob([`${JSON.stringify(content, null, 1)}\n`]));
  const host = values.get(`${root}network/hostname`)?.replace(/[^\w-]/g, '') || 'appliance';
  make('a', { href, download: `${host}-${time.slice(0, 10)}.json` }).click();
  setTimeout(() => URL.revokeObjectURL(href), 60000);
}

/// Stages what differs in such a file. Gives its values that somebody may write here, and what to
/// tell.
export async function importValues(file, state, descriptions) {
  const content = file.size < 1e7 ? parse(await file.text()) : undefined;
  const found = Object.entries(content?.values ?? {});
  // No appliance can send half a character.
  if (!found.length || found.some(([, value]) => typeof value !== 'string' || /\p{Cs}/u.test(value))) {
    return [new Map(), { text: `${shown(file.name)} is no file of an export.` }];
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
  return [imported, { text, changes, notes }];
}

function parse(text) {
  try {
    return JSON.parse(text);
  } catch (error) {
    if (error instanceof SyntaxError) return undefined;
    throw error;
  }
}
