// The descriptions of the parameters: names.txt, and the ones that move the appliance away.

import { root } from './dom.js';

/// Gives a Map from each name to its description: the texts of its lines by their first words.
export function parseNames(text) {
  const names = new Map();
  let about = {};
  for (const line of text.split('\n')) {
    const [, word, rest] = /^\s*(\S*)\s*(.*?)\s*$/.exec(line);
    if (line.startsWith('/')) names.set(word, about = {});
    else about[word] = rest;
  }
  return names;
}

export const listChoices = ({ choices }) => choices?.match(/\S+/g);

/// The fault of the value by its description, or nothing.
export function findFault(about, value) {
  const { range, pattern, unit = '' } = about;
  const choices = listChoices(about);
  if (choices && !choices.includes(value)) return `not one of ${choices.join(', ')}`;
  const [low, high] = range?.split(/\s+/).map(Number) ?? [];
  if (low <= high && !(/^-?\d+(\.\d+)?$/.test(value) && value >= low && value <= high)) {
    return `not a number from ${low} to ${high} ${unit}`.trim();
  }
  try {
    return !pattern || RegExp(`^(?:${pattern})$`, 'u').test(value) ? '' : 'not of the right form';
  } catch {
    return ''; // a malformed pattern
  }
}

const [gateway, mask, address, dhcp, port] = ['network/gateway', 'network/subnet_mask',
  'network/ip_addr', 'network/dhcp', 'services/http/port'].map((name) => root + name);

/// After each of these the appliance may be gone, so the address comes after its mask.
export const moving = [gateway, mask, address, dhcp, port];

/// The new address of the page once `wanted`, a Map of values, is stored; '' if it is the old one.
export function findAddress(values, wanted) {
  const url = new URL('/', location.origin);
  if (wanted.get(dhcp) === 'yes') url.hostname = values.get(`${root}network/hostname`) ?? url.hostname;
  else if (wanted.has(dhcp) || wanted.has(address)) url.hostname = wanted.get(address) ?? values.get(address);
  if (wanted.has(port) && url.protocol === 'http:') url.port = wanted.get(port);
  return url.origin === location.origin ? '' : url.href;
}
