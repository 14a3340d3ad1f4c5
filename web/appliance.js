// The client of the appliance's configuration program, for any page; with a whole address for Node.

/// A failed call throws it. `kind` tells the outcome of the request:
/// - `daemon`: the configuration daemon cannot be reached; nothing was stored
/// - `refused`: the web server, the program or this module refused it; nothing was stored
/// - `broken`: an answer began and is not whole, or the connection to the daemon broke; a write may
///   be stored, also in part
/// - `silent`: the program gave no answer; a write may be stored
///
/// A transfer that breaks off within an answer is `broken`: busybox httpd closes the connection after
/// every answer, so a broken transfer and a short answer look the same.
///
/// `status` is the HTTP status, if there was one. `cause` is the error of `fetch` or of the JSON
/// parser, or the `Response` with that status.
export class ApplianceError extends Error {
  constructor(kind, message, options = {}) {
    super(message, options);
    this.name = 'ApplianceError';
    this.kind = kind;
    this.status = options.status;
  }
}

const bodyLimit = 16384; // bytes, as `body_limit` in the appliance's script

/// Half a surrogate pair would reach the appliance as another character.
function checkText(text) {
  if (typeof text !== 'string' || /\p{Cs}/u.test(text)) throw new TypeError(`Not a text: ${text}`);
}

function checkSeconds(seconds) { // a timer takes 31 bits of milliseconds
  if (Number.isFinite(seconds) && seconds > 0 && seconds < 2 ** 31 / 1000) return;
  throw new TypeError(`Not a time: ${seconds}`);
}

/// Whether the name comes back in the answer as it went out.
const canBeAsked = (name) => /^[^ ,"\\\p{Cc}]+$/u.test(name);

/// Slashes and commas need no escaping, and names are full of them.
const encode = (text) => encodeURIComponent(text).replaceAll('%2F', '/').replaceAll('%2C', ',');

/// The bodies of the requests for all names, each below the limit.
function readBodies(names) {
  const bodies = [];
  for (const name of names.map(encode)) {
    const longer = `${bodies.at(-1)},${name}`;
    if (bodies.length && longer.length < bodyLimit) bodies[bodies.length - 1] = longer;
    else bodies.push(`read=${name}`);
  }
  return bodies;
}

/// Sends one request at a time, in the order of the calls; a failed one lets the next one go.
export class Appliance {
  #address;
  #seconds;
  #last = Promise.resolve();

  /// `seconds` is how long an answer may take, from the moment the request is sent.
  constructor(url = '/cgi-bin/tzr4417.cgi', seconds = 35) {
    checkSeconds(seconds);
    this.#address = new URL(url, globalThis.location?.href);
    this.#address.username = this.#address.password = ''; // `fetch` refuses a password in it
    this.#seconds = seconds;
  }

  /// Gives `values`, a Map in the order of the names, each once, and `invalid`, the names without a
  /// value: after a broken connection, all the rest. A long list takes several requests; if one of
  /// them fails, the call fails.
  async read(names, options) {
    if (typeof names === 'string') throw new TypeError('The names are a list');
    const wanted = [...new Set([...names])];
    wanted.forEach(checkText);
    const asked = wanted.filter(canBeAsked);
    const answers = await this.#ask(readBodies(asked), options);
    const members = new Map(answers.flatMap((answer) => [...answer]));
    const refused = new Set(answers.flatMap((answer) => answer.get('invalid') ?? []));
    const values = new Map();
    for (const name of asked) {
      const value = members.get(name);
      if (typeof value === 'string') values.set(name, value);
      else if (!refused.has(name)) throw broken(`The answer lacks ${name}`);
    }
    return { values, invalid: wanted.filter((name) => !values.has(name)) };
  }

  /// Gives `value` as it was sent to the daemon, and `reply`, the daemon's complaint without its line
  /// end, or ''. Only a read tells the stored value. A write aborted after it was sent may be stored.
  async write(name, value, options) {
    const text = Number.isFinite(value) ? String(value) : value;
    checkText(name);
    checkText(text);
    if (!canBeAsked(name)) {
      throw new ApplianceError('refused', `No parameter has the name ${JSON.stringify(name)}`);
    }
    if (text.includes('/> ')) { // it would end the daemon's answer
      throw new ApplianceError('refused', 'No value can hold "/> "');
    }
    const [answer] = await this.#ask([`write=${encode(name)}&value=${encode(text)}`], options);
    const sent = answer.get('value');
    const reply = answer.get('reply');
    if (answer.get('write') !== name || typeof sent !== 'string' || typeof reply !== 'string') {
      throw broken('The answer is not that to a write');
    }
    const quoted = text === '' || /[ \t-\r]/.test(text);
    return { value: quoted ? sent.slice(1, -1) : sent, reply: reply.trimEnd() };
  }

  /// Sends the bodies one after the other, when it is their turn, and gives the answers' members.
  async #ask(bodies, { signal, seconds = this.#seconds } = {}) {
    checkSeconds(seconds);
    signal?.throwIfAborted();
    const ending = new AbortController();
    const ended = new Promise((resolve) => { ending.signal.addEventListener('abort', resolve); });
    const end = () => ending.abort(signal.reason);
    signal?.addEventListener('abort', end);
    const before = this.#last;
    const sendAll = async () => {
      await Promise.race([before, ended]);
      const answers = [];
      for (const body of bodies) answers.push(await this.#send(body, seconds, ending));
      return answers;
    };
    const result = sendAll().finally(() => signal?.removeEventListener('abort', end));
    this.#last = Promise.allSettled([before, result]).then(() => {});
    return result;
  }

  /// The members of the answer. When `ending` is aborted, also before the call, it throws the reason
  /// and sends no more.
  async #send(body, seconds, ending) {
    const timer = setTimeout(() => {
      ending.abort(new ApplianceError('silent', `No answer in ${seconds} seconds`));
    }, seconds * 1000);
    let response, text;
    try {
      response = await fetch(this.#address, {
        method: 'POST',
        headers: {
          'Content-Type': 'application/x-www-form-urlencoded',
          'X-Requested-With': 'appliance.js', // another site's page cannot send it
        },
        body,
        signal: ending.signal,
      });
      text = await response.text();
    } catch (cause) {
      ending.signal.throwIfAborted();
      throw response
        ? new ApplianceError('broken', 'The answer is cut off', { status: response.status, cause })
        : new ApplianceError('silent', 'The web server does not answer', { cause });
    } finally {
      clearTimeout(timer);
    }
    if (response.status !== 200) throw failure(response, text);
    return members(text);
  }
}

/// The program's own 500 has no content type, a web server's has one. The program gives the reason of
/// a 403 as plain text.
function failure(cause, text) {
  const { status, headers } = cause;
  const error = (kind, message) => new ApplianceError(kind, message, { status, cause });
  if (status >= 400 && status < 500) {
    const reason = headers.get('Content-Type')?.startsWith('text/plain') ? `: ${text.trim()}` : '';
    return error('refused', `Refused with status ${status}${reason}`);
  }
  if (status !== 500 || headers.has('Content-Type')) {
    return error('silent', `The web server answers with status ${status}`);
  }
  if (text === '') return error('daemon', 'The configuration daemon does not run or does not answer');
  if (!text.startsWith('Exception ')) {
    return error('broken', `The connection to the daemon broke. ${text}`.trim());
  }
  // Memory may run out between two puts. Every other exception comes before the first.
  return error(text.includes('bad_alloc') ? 'broken' : 'refused', text.trim());
}

/// Of an answer with status 200.
const broken = (message, cause) => new ApplianceError('broken', message, { status: 200, cause });

/// The members of an answer. It is one line, so any other control character stands in a string,
/// and goes through the parser escaped.
function members(text) {
  const escape = (byte) => `\\u${byte.charCodeAt().toString(16).padStart(4, '0')}`;
  try {
    return new Map(Object.entries(JSON.parse(text.trimEnd().replace(/[\0-\x1f]/g, escape))));
  } catch (cause) {
    throw broken('The answer is empty or cut off', cause);
  }
}
