// The picture of the signal flow. Its blocks and routes are found by the names of the parameters
// that were read, so an appliance with more or fewer of them draws itself.

export const root = '/configuration/';

/// One row for each family of blocks: the folder below the root, the column, the block's id, its
/// title and its details. In id and title, $1 and $2 stand for what the folder's pattern holds;
/// a detail is a parameter of the folder.
const families = [
  [/^inputs\/video\/(in\d+)/, 0, '$1', '$1', ['interface', 'format']],
  [/^inputs\/audio\/([a-z]+)_in(\d+)/, 0, '$1_in$2', '$1 $2', ['pair', 'input', 'gain']],
  [/^encoders\/(venc\d+)/, 1, '$1', '$1', ['codec', 'resolution', 'h264/bitrate']],
  [/^encoders\/(aenc\d+)/, 1, '$1', '$1', ['codec', 'bitrate', 'aac/bitrate']],
  [/^outputs\/rtsp\/streams\/stream(\d+)/, 2, 'rtsp$1', 'RTSP $1', ['name']],
  [/^outputs\/rtmp\/streams\/stream(\d+)/, 2, 'rtmp$1', 'RTMP $1', ['url']],
  [/^outputs\/ts\/muxer\/mux(\d+)/, 2, 'mux$1', 'TS mux$1', ['mode', 'bitrate']],
  [/^outputs\/ts\/udp\/dest(\d+)/, 3, 'udp$1', 'UDP $1', ['address', 'port']],
  [/^outputs\/(recorder)/, 3, '$1', 'Recorder', ['format', 'path']],
];

/// One row for each family of parameters that make a route: the parameter, the block that it leads
/// to, and what its value lacks of the id of the block that it comes from.
const routeFamilies = [
  [/^encoders\/([va]enc\d+)\/input$/, '$1', ''],
  [/^outputs\/(rt[sm]p)\/streams\/stream(\d+)\/([va]enc)$/, '$1$2', '$3'],
  [/^outputs\/ts\/muxer\/(mux\d+)\/component\d+\/encoder$/, '$1', ''],
  [/^outputs\/ts\/udp\/dest(\d+)\/mux$/, 'udp$1', 'mux'],
  [/^outputs\/(recorder)\/stream$/, '$1', 'mux'],
];

const fill = (pattern, match) => pattern.replace(/\$(\d)/g, (_, digit) => match[digit]);

const inWords = (parameter, value) => {
  if (!parameter.endsWith('bitrate') || !/^\d+$/.test(value)) return value;
  return value < 1e6 ? `${value / 1e3} kbit/s` : `${Math.round(value / 1e4) / 100} Mbit/s`;
};

function findBlocks(values) {
  const blocks = new Map();
  for (const name of values.keys()) {
    for (const [pattern, column, id, title, details] of families) {
      const match = pattern.exec(name.slice(root.length));
      if (!match || !name.startsWith(root) || blocks.has(fill(id, match))) continue;
      const folder = `${root}${match[0]}/`;
      const get = (parameter) => values.get(folder + parameter);
      const disabled = (path) => values.get(`${path}enable`) === 'no';
      blocks.set(fill(id, match), {
        column,
        folder,
        id: fill(id, match),
        title: get('label') || fill(title, match),
        details: details.filter((parameter) => get(parameter))
          .map((parameter) => inWords(parameter, get(parameter))),
        off: disabled(folder) || disabled(folder.replace(/streams\/.*/, '')),
        kind: column > 1 ? undefined : /^(in|venc)\d/.test(fill(id, match)) ? 'video' : 'audio',
        sources: [],
        used: column > 1,
      });
    }
  }
  return blocks;
}

/// The ids of the blocks that a parameter joins with its value, or nothing.
function ends(name, value) {
  for (const [pattern, to, prefix] of routeFamilies) {
    const match = pattern.exec(name.slice(root.length));
    if (match) return { to: fill(to, match), from: fill(prefix, match) + value };
  }
  return undefined;
}

/// The values that may be chosen for a parameter, or nothing if any text may.
export function choices(name, values) {
  const short = name.slice(root.length);
  const ids = [...findBlocks(values).keys()];
  const numbered = (prefix, cut = 0) => ids.filter((id) => RegExp(`^(${prefix})\\d+$`).test(id))
    .map((id) => id.slice(cut));
  if (short === 'inputs/video/mode') {
    const inputs = numbered('in', 2);
    return [...inputs.map((number) => `single_${number}`), ...inputs.length > 1 ? ['dual'] : []];
  }
  if (/^encoders\/venc\d+\/input$/.test(short)) return numbered('in');
  if (/^encoders\/aenc\d+\/input$/.test(short)) return numbered('[a-z]+_in');
  if (/^encoders\/venc\d+\/codec$/.test(short)) return ['h264', 'mjpeg'];
  if (/^outputs\/ts\/muxer\/mux\d+\/mode$/.test(short)) return ['cbr', 'vbr'];
  if (/\/component\d+\/encoder$/.test(short)) return [...numbered('[va]enc'), 'off'];
  if (/\/stream\d+\/venc$/.test(short)) return numbered('venc', 4);
  if (/\/stream\d+\/aenc$/.test(short)) return [...numbered('aenc', 4), 'off'];
  if (ends(name, '')) return numbered('mux', 3);
  return /^(yes|no)$/.test(values.get(name)) ? ['yes', 'no'] : undefined;
}

/// The blocks, each with what it takes, and the routes. A changed parameter has a second route, the
/// one before, from where it came until then.
function findFlow(values, changed) {
  const blocks = findBlocks(values);
  const routes = [];
  for (const [name, value] of values) {
    const { from, to } = ends(name, value) ?? {};
    if (!blocks.has(to)) continue;
    if (blocks.has(from)) routes.push({ key: name, name, from, to, changed: changed.has(name) });
    const before = changed.has(name) && ends(name, changed.get(name)).from;
    if (blocks.has(before)) routes.push({ key: `before ${name}`, from: before, to, before: true });
  }
  // From right to left, since a block is used if one that is used takes something from it.
  routes.sort((a, b) => blocks.get(b.to).column - blocks.get(a.to).column);
  for (const route of routes) {
    const [from, to] = [blocks.get(route.from), blocks.get(route.to)];
    route.kind = from.column < 2 ? from.kind : 'both';
    if (route.before) continue;
    route.off = from.off || to.off || !to.used;
    if (!route.off) {
      from.used = true;
      from.feeds = true;
    }
    to.sources.push(from);
    to.kind = to.kind && to.kind !== route.kind ? 'both' : route.kind;
  }
  return { blocks, routes };
}

function set(element, name, value) {
  if (value === undefined || value === false) {
    element.removeAttribute(name);
  } else if (element.getAttribute(name) !== String(value)) {
    element.setAttribute(name, value);
  }
}

export function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

/// Keeps the elements of those keys that are still there, and makes and removes the others.
function keep(elements, keys, make) {
  for (const [key, element] of elements) {
    if (keys.has(key)) continue;
    element.remove();
    elements.delete(key);
  }
  for (const key of keys) if (!elements.has(key)) elements.set(key, make(key));
}

export class FlowPicture {
  #columns;
  #svg = document.createElementNS('http://www.w3.org/2000/svg', 'svg');
  #blocks = new Map();
  #paths = new Map();
  #routes = [];

  constructor(element) {
    this.#columns = [0, 1, 2, 3].map(() => document.createElement('ul'));
    this.#svg.setAttribute('aria-hidden', 'true');
    element.append(this.#svg, ...this.#columns);
    new ResizeObserver(() => this.#place()).observe(element);
  }

  /// Draws what the values say and marks what belongs to `changed`, a Map of former values.
  draw(values, changed) {
    const { blocks, routes } = findFlow(values, changed);
    this.#routes = routes;
    keep(this.#blocks, new Set(blocks.keys()), (id) => {
      const element = document.createElement('li');
      element.append(...['b', 'span', 'i'].map((tag) => document.createElement(tag)));
      this.#columns[blocks.get(id).column].append(element);
      return element;
    });
    for (const [id, block] of blocks) {
      const element = this.#blocks.get(id);
      const marked = [...changed.keys()].some((name) => name.startsWith(block.folder));
      const off = block.off || !block.used;
      set(element, 'class', [block.kind, off && 'off', marked && 'changed'].filter(Boolean).join(' '));
      setText(element.children[0], block.title);
      const remark = block.off ? ['off'] : !block.used ? ['not used']
        : block.id.startsWith('mux') && !block.feeds ? ['no output'] : [];
      const named = block.title === id || block.column ? [] : [id];
      setText(element.children[1], [...remark, ...named, ...block.details].join(' '));
      const sources = block.sources.map(({ title }) => title).join(', ');
      setText(element.children[2], sources && ` takes ${sources}`);
    }
    keep(this.#paths, new Set(routes.map(({ key }) => key)), () =>
      this.#svg.appendChild(document.createElementNS(this.#svg.namespaceURI, 'path')));
    for (const route of routes) {
      const path = this.#paths.get(route.key);
      const classes = [route.kind, route.off && 'off', route.before && 'before'];
      set(path, 'class', classes.filter(Boolean).join(' '));
      set(path, 'data-route', route.name);
      set(path, 'data-from', route.name && route.from);
      set(path, 'data-changed', route.changed && '');
    }
    this.#place();
  }

  /// Lays the routes between the blocks as they stand now.
  #place() {
    const top = (id) => this.#blocks.get(id).offsetTop;
    const order = [...this.#routes].sort((a, b) => top(a.from) - top(b.from));
    for (const route of this.#routes) {
      const [from, to] = [this.#blocks.get(route.from), this.#blocks.get(route.to)];
      const ports = order.filter((other) => other.to === route.to);
      const x1 = from.offsetLeft + from.offsetWidth;
      const y1 = from.offsetTop + from.offsetHeight / 2;
      const y2 = to.offsetTop + to.offsetHeight * (ports.indexOf(route) + 1) / (ports.length + 1);
      let x2 = to.offsetLeft;
      let bend = (x1 + x2) / 2;
      let back = bend;
      if (x2 < x1) { // below one another
        x2 += to.offsetWidth;
        bend = x1 + 14;
        back = x2 + 14;
      }
      set(this.#paths.get(route.key), 'd', `M${x1} ${y1}C${bend} ${y1} ${back} ${y2} ${x2} ${y2}`);
    }
  }
}
