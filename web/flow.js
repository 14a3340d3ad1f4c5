// The picture of the signal flow: blocks and routes, found by the parameters' names.

import { make, root, setContent, shown } from './dom.js';

export const modeName = `${root}inputs/video/mode`;

/// Families of blocks: the folder, the column, the id, title and details. {name} is a parameter.
const blockFamilies = [
  [/^inputs\/video\/(in\d+)/, 0, '$1', '$1', '$1 {interface} {format}'],
  [/^inputs\/audio\/([a-z]+)_in(\d+)/, 0, '$1_in$2', '$1 $2', 'pair {pair} {input} gain {gain}'],
  [/^encoders\/(venc\d+)/, 1, '$1', '$1', '{codec} {resolution} {h264/bitrate}'],
  [/^encoders\/(aenc\d+)/, 1, '$1', '$1', '{codec} {bitrate} {aac/bitrate}'],
  [/^outputs\/rtsp\/streams\/stream(\d+)/, 2, 'rtsp$1', 'RTSP $1', '{name}'],
  [/^outputs\/rtmp\/streams\/stream(\d+)/, 2, 'rtmp$1', 'RTMP $1', '{url}'],
  [/^outputs\/ts\/muxer\/(mux\d+)/, 2, '$1', 'TS $1', '{mode} {bitrate}'],
  [/^outputs\/ts\/udp\/dest(\d+)/, 3, 'udp$1', 'UDP $1', '{address}:{port}'],
  [/^outputs\/(recorder)/, 3, '$1', 'Recorder', '{format} {path}'],
];

/// Families of routes: the parameter, the id at the end, and the part of the other id that the value lacks.
const routeFamilies = [
  [/^encoders\/([va]enc\d+)\/input$/, '$1', ''],
  [/^outputs\/(rt[sm]p)\/streams\/stream(\d+)\/([va]enc)$/, '$1$2', '$3'],
  [/^outputs\/ts\/muxer\/(mux\d+)\/component\d+\/encoder$/, '$1', ''],
  [/^outputs\/ts\/udp\/dest(\d+)\/mux$/, 'udp$1', 'mux'],
  [/^outputs\/(recorder)\/stream$/, '$1', 'mux'],
];

const fill = (pattern, match) => pattern.replace(/\$(\d)/g, (_, digit) => match[digit]);

function inWords(name, value) {
  if (!name.endsWith('bitrate') || !/^\d{4,}$/.test(value)) return value;
  return value < 1e6 ? `${value / 1e3} kbit/s` : `${Math.round(value / 1e4) / 100} Mbit/s`;
}

function findBlocks(values) {
  const blocks = new Map();
  for (const name of values.keys()) {
    for (const [pattern, column, ...texts] of blockFamilies) {
      const match = pattern.exec(name.slice(root.length));
      if (!match) continue;
      const [id, title, details] = texts.map((text) => fill(text, match));
      if (blocks.has(id)) break;
      const folder = `${root}${match[0]}/`;
      const isOff = (path) => values.get(`${path}enable`) === 'no';
      blocks.set(id, {
        id,
        column,
        folder,
        title: shown(values.get(`${folder}label`) || title),
        details: details.replace(/(\w* ?){([^}]+)}/g, (_, word, parameter) => {
          const value = values.get(folder + parameter);
          return value ? word + shown(inWords(parameter, value)) : '';
        }),
        off: isOff(folder) || isOff(folder.replace(/streams\/.*/, '')),
        used: column > 1, // until a taker is found
        kind: column > 1 ? 'both' : /^(in|venc)\d/.test(id) ? 'video' : 'audio',
      });
    }
  }
  return blocks;
}

/// The modes without known choices.
export function inputModes(values) {
  const inputs = [...findBlocks(values).keys()].filter((id) => /^in\d/.test(id));
  return [...inputs.map((id) => id.replace('in', 'single_')), 'dual'];
}

/// The blocks and the routes between them, also those from before a change.
function findFlow(values, formerValues) {
  const blocks = findBlocks(values);
  const routes = [];
  for (const name of values.keys()) {
    for (const [pattern, ...texts] of routeFamilies) {
      const match = pattern.exec(name.slice(root.length));
      const [id, prefix] = match ? texts.map((text) => fill(text, match)) : [];
      const to = blocks.get(id);
      if (!to) continue;
      const from = blocks.get(prefix + values.get(name));
      const former = blocks.get(prefix + formerValues.get(name));
      if (from) routes.push({ name, from, to, before: false });
      if (former) routes.push({ name, from: former, to, before: true });
    }
  }
  // From right to left: a block is used if a used one takes from it.
  routes.sort((a, b) => b.to.column - a.to.column);
  for (const route of routes.filter(({ before }) => !before)) {
    const { from, to } = route;
    route.off = from.off || to.off || !to.used;
    if (!route.off) from.used = true;
  }
  return { blocks, routes };
}

export class FlowPicture {
  #columns = [0, 1, 2, 3].map(() => make('ul'));
  #svg = make('svg', { 'role': 'group', 'aria-label': 'Routes' });
  #items = new Map(); // of blocks by id
  #routes = [];
  #shown; // the routes' attributes, as JSON
  #observer = new ResizeObserver(() => this.#lay());

  /// `lead` gets the folder of an activated block.
  constructor(element, lead) {
    element.append(...this.#columns, this.#svg);
    element.addEventListener('click', ({ target }) => {
      const block = target.closest('[data-block]');
      if (block) lead(`/${block.dataset.block}/`);
    });
    this.#observer.observe(element);
  }

  /// Draws the values of the state, and marks the changed ones.
  draw(state) {
    const { openValues, former, elsewhere } = state;
    const { blocks, routes } = findFlow(openValues, former);
    for (const block of blocks.values()) {
      const { id, column, folder, title, details, kind, off, used } = block;
      if (!this.#items.has(id)) {
        const item = make('li', {}, make('button', { 'data-block': folder.slice(root.length, -1) },
          make('b'), make('span', {}, make('i'), make('small'))));
        this.#items.set(id, item);
        this.#columns[column].append(item);
        this.#observer.observe(item);
      }
      const item = block.element = this.#items.get(id);
      const marked = [...former.keys()].some((name) => name.startsWith(folder));
      item.className = `${kind}${off || !used ? ' off' : ''}${marked ? ' changed' : ''}`;
      const [button] = item.children;
      button.title = details;
      const texts = { b: title, i: off ? 'off' : used ? '' : 'not used', small: details };
      for (const [tag, text] of Object.entries(texts)) setContent(button.querySelector(tag), text);
    }
    const attributes = routes.map(({ name, from, to, off, before }) => {
      const use = before ? 'before' : off ? 'off' : 'in use';
      const text = `${from.title} to ${to.title}: ${use}`;
      if (before) return { 'class': use, 'role': 'img', 'aria-label': text };
      const isChanged = former.has(name);
      return { 'class': `${from.kind} ${use}`, 'role': 'img', 'aria-label': text + (isChanged ? ', changed' : ''),
        'data-route': name, 'data-from': from.id,
        ...(isChanged && { 'data-changed': elsewhere.has(name) ? 'elsewhere' : '' }) };
    });
    const key = JSON.stringify(attributes);
    if (key !== this.#shown) this.#svg.replaceChildren(...attributes.map((some) => make('path', some)));
    this.#shown = key;
    this.#routes = routes;
    this.#lay();
  }

  /// Lays the routes between the blocks.
  #lay() {
    const paths = this.#svg.children;
    const places = this.#routes.map(({ from, to }, index) =>
      ({ path: paths[index], from: from.element, to: to.element }));
    places.sort((a, b) => a.from.offsetTop - b.from.offsetTop);
    for (const place of places) {
      const { path, from, to } = place;
      const ports = places.filter((other) => other.to === to);
      const x1 = from.offsetLeft + from.offsetWidth;
      const y1 = from.offsetTop + from.offsetHeight / 2;
      const y2 = to.offsetTop + to.offsetHeight * (ports.indexOf(place) + 1) / (ports.length + 1);
      const below = to.offsetLeft < x1; // then around, on the right
      const x2 = to.offsetLeft + (below ? to.offsetWidth : 0);
      const bend = below ? x1 + 14 : (x1 + x2) / 2;
      path.setAttribute('d', `M${x1} ${y1}C${bend} ${y1} ${bend} ${y2} ${x2} ${y2}`);
    }
  }
}
