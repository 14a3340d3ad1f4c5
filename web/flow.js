// The picture of the signal flow. Its blocks and routes are found by the names of the parameters.

export const root = '/configuration/';
export const modeName = `${root}inputs/video/mode`;

/// Families of blocks: the folder, the column, and the block's id, title and details. $1 and $2 stand
/// for what the folder's pattern holds, {name} for one of its parameters.
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

/// Families of routes: the parameter that makes one, the block at its end, the ids of those where it
/// may begin, and what of such an id the value lacks.
const routeFamilies = [
  [/^encoders\/(venc\d+)\/input$/, '$1', '^in', ''],
  [/^encoders\/(aenc\d+)\/input$/, '$1', '_in', ''],
  [/^outputs\/(rt[sm]p)\/streams\/stream(\d+)\/([va]enc)$/, '$1$2', '^$3', '$3'],
  [/^outputs\/ts\/muxer\/(mux\d+)\/component\d+\/encoder$/, '$1', 'enc', ''],
  [/^outputs\/ts\/udp\/dest(\d+)\/mux$/, 'udp$1', '^mux', 'mux'],
  [/^outputs\/(recorder)\/stream$/, '$1', '^mux', 'mux'],
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
        title: values.get(`${folder}label`) || title,
        details: details.replace(/(\w* ?){([^}]+)}/g, (_, word, parameter) => {
          const value = values.get(folder + parameter);
          return value ? word + inWords(parameter, value) : '';
        }),
        off: isOff(folder) || isOff(folder.replace(/streams\/.*/, '')),
        used: column > 1, // until something is found that takes it
        kind: column > 1 ? 'both' : /^(in|venc)\d/.test(id) ? 'video' : 'audio',
      });
    }
  }
  return blocks;
}

/// What follows in the row of the parameter's family, if it has one.
function findRoute(name) {
  for (const [pattern, ...texts] of routeFamilies) {
    const match = pattern.exec(name.slice(root.length));
    if (match) return texts.map((text) => fill(text, match));
  }
  return [];
}

/// The values to choose from for a parameter, or nothing if it takes any text.
export function choices(name, values) {
  const ids = (pattern, cut) => [...findBlocks(values).keys()]
    .filter((id) => id.match(pattern)).map((id) => id.slice(cut));
  if (name === modeName) return [...ids('^in', 2).map((number) => `single_${number}`), 'dual'];
  const [, from, prefix] = findRoute(name);
  if (from) return [...ids(from, prefix.length), .../(aenc|encoder)$/.test(name) ? ['off'] : []];
  if (/venc\d+\/codec$/.test(name)) return ['h264', 'mjpeg'];
  if (/mux\d+\/mode$/.test(name)) return ['cbr', 'vbr'];
  return /^(yes|no)$/.test(values.get(name)) ? ['yes', 'no'] : undefined;
}

/// The blocks and the routes between them, also those from before a change.
function findFlow(values, changed) {
  const blocks = findBlocks(values);
  const routes = [];
  for (const name of values.keys()) {
    const [id, , prefix] = findRoute(name);
    const to = blocks.get(id);
    if (!to) continue;
    for (const before of [false, true]) {
      const from = blocks.get(prefix + (before ? changed : values).get(name));
      if (from) routes.push({ name, from, to, before });
    }
  }
  // From right to left: a block is used if one that is used takes something from it.
  routes.sort((a, b) => b.to.column - a.to.column);
  for (const route of routes.filter(({ before }) => !before)) {
    const { from, to } = route;
    route.off = from.off || to.off || !to.used;
    if (!route.off) from.used = true;
  }
  return { blocks, routes };
}

function set(element, name, value) {
  if (element.getAttribute(name) !== value) element.setAttribute(name, value);
}

export function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

export class FlowPicture {
  #columns = [0, 1, 2, 3].map(() => document.createElement('ul'));
  #svg = document.createElementNS('http://www.w3.org/2000/svg', 'svg');
  #elements = new Map(); // of blocks by id, of routes by name
  #routes = [];

  constructor(element) {
    this.#svg.setAttribute('aria-hidden', 'true');
    element.append(this.#svg, ...this.#columns);
    new ResizeObserver(() => this.#lay()).observe(element);
  }

  /// Draws what the values say and marks what belongs to `changed`, a Map of former values.
  draw(values, changed) {
    const { blocks, routes } = findFlow(values, changed);
    const old = new Set(this.#elements.keys());
    const element = (key, make) => {
      if (!old.delete(key)) this.#elements.set(key, make());
      return this.#elements.get(key);
    };
    for (const block of blocks.values()) {
      const { id, column, folder, title, details, kind, off, used } = block;
      const item = block.element = element(id, () => {
        const li = document.createElement('li');
        li.append(document.createElement('b'), document.createElement('span'));
        return this.#columns[column].appendChild(li);
      });
      const marked = [...changed.keys()].some((name) => name.startsWith(folder));
      set(item, 'class', `${kind}${off || !used ? ' off' : ''}${marked ? ' changed' : ''}`);
      const state = off ? 'off · ' : used ? '' : 'not used · ';
      setText(item.children[0], title);
      setText(item.children[1], state + details);
    }
    for (const route of routes) {
      const { name, from, off, before } = route;
      const path = route.element = element(`${before} ${name}`, () =>
        this.#svg.appendChild(document.createElementNS(this.#svg.namespaceURI, 'path')));
      set(path, 'class', before ? 'before' : `${from.kind}${off ? ' off' : ''}`);
      if (before) continue;
      set(path, 'data-route', name);
      set(path, 'data-from', from.id);
      path.toggleAttribute('data-changed', changed.has(name));
    }
    for (const key of old) {
      this.#elements.get(key).remove();
      this.#elements.delete(key);
    }
    this.#routes = routes;
    this.#lay();
  }

  /// Lays the routes between the blocks where these stand now.
  #lay() {
    const sorted = [...this.#routes].sort((a, b) =>
      a.from.element.offsetTop - b.from.element.offsetTop);
    for (const route of sorted) {
      const [from, to] = [route.from.element, route.to.element];
      const ports = sorted.filter((other) => other.to === route.to);
      const x1 = from.offsetLeft + from.offsetWidth;
      const y1 = from.offsetTop + from.offsetHeight / 2;
      const y2 = to.offsetTop + to.offsetHeight * (ports.indexOf(route) + 1) / (ports.length + 1);
      const below = to.offsetLeft < x1; // then around, on the right
      const x2 = to.offsetLeft + (below ? to.offsetWidth : 0);
      const bend = below ? x1 + 14 : (x1 + x2) / 2;
      set(route.element, 'd', `M${x1} ${y1}C${bend} ${y1} ${bend} ${y2} ${x2} ${y2}`);
    }
  }
}
