// Export and import of all values.

import { make, root, short, shown, trim } from './dom.js';

const heads = { name: 'name', serial_number: 'serial_number', version: 'firmware_version' };

/// Gives the browser a file to save. A viewer's file has the staged values in it.
export function exportValues(state) {
  const { values, staged, mayWrite } = state;
  const extra = mayWrite ? [] : [...staged].map(([name, { value }]) => [name, value]);
  const head = Object.entries(heads).map(([key, name]) => [key, values.get(`${root}system/${name}`)]);
  const time = new Date().toISOString();
  const content = { ...Object.fromEntries(head), time, values: Object.fromEntries([...values, ...extra]) };
  const href = URL.createObjectURL(new Blob([`${JSON.stringify(content, null, 1)}\n`]));
  const host = values.get(`${root}network/hostname`)?.replace(/[^\w-]/g, '') || 'appliance';
  make('a', { href, download: `${host}-${time.slice(0, 10)}.json` }).click();
  setTimeout(() => URL.revokeObjectURL(href), 60000);
  state.notice = { text: `Exported${extra.length ? `, with ${extra.length} staged` : ''}. `
    + 'The file holds passwords and keys as plain text.' };
}

/// Stages the differing values of a field's file, and tells.
export async function importValues(field, state) {
  const [file] = field.files;
  field.value = ''; // the same file can be chosen again
  const content = file.size < 1e7 ? parse(await file.text()) : undefined;
  const found = Object.entries(content?.values ?? {});
  // No appliance can send half a character.
  if (!found.length || found.some(([, value]) => typeof value !== 'string' || /\p{Cs}/u.test(value))) {
    state.notice = { text: `${shown(file.name)} is no file of an export.` };
    return;
  }
  const { values, descriptions } = state;
  const imported = new Map(found.map(([name, value]) => [name, trim(value)]));
  const isFixed = (name) => 'read-only' in descriptions.get(name);
  const changes = [...imported].map(([name, to]) => ({ name, from: values.get(name), to }))
    .filter(({ from, to }) => from !== undefined && from !== to);
  const unknown = [...imported.keys()].filter((name) => !values.has(name));
  const fixed = changes.map(({ name }) => name).filter(isFixed);
  const missing = [...values.keys()].filter((name) => !imported.has(name));
  const known = [...imported].filter(([name]) => values.has(name) && !isFixed(name));
  for (const [name, value] of known) state.stage(name, value);
  state.imported = new Map(known);
  const origin = ['name', 'serial_number', 'version', 'time'].map((key) => content[key])
    .filter((text) => typeof text === 'string').map(shown).join(' · ');
  const staged = changes.filter(({ name }) => !isFixed(name));
  const differ = staged.length === 1 ? '1 value differs' : `${staged.length} values differ`;
  state.notice = {
    text: `${differ} in ${shown(file.name)}${origin && ` (${origin})`}. Nothing is written yet.`,
    changes: staged,
    notes: [
      noteOn('This appliance does not have', unknown),
      noteOn('Read-only, and left as it is', fixed),
      noteOn('Not in the file', missing),
    ].filter(Boolean),
  };
}

const noteOn = (what, names) => names.length && `${what}: ${names.map(short).join(', ')}.`;

function parse(text) {
  try {
    return JSON.parse(text);
  } catch (error) {
    if (error instanceof SyntaxError) return undefined;
    throw error;
  }
}
