// The client of the appliance's configuration program. It knows requests and answers, and nothing
// of any single parameter. A page needs no other file for it:
//
//   import { Appliance } from './appliance.js';
//   const appliance = new Appliance();
//   const { values } = await appliance.read(['/configuration/network/ip_addr']);
//   const { reply } = await appliance.write('/configuration/network/mtu', '1400');

/// What every failed call throws. Its `kind` tells what became of the request:
/// - `daemon`: the configuration daemon does not run; nothing was stored
/// - `refused`: it was not carried out
/// - `broken`: an answer that is cut off or none, or the connection broke while values were put:
///   of a write, some values may be stored
/// - `silent`: no answer, or one of the web server's own: unknown what became of a write
export class ApplianceError extends Error {
  constructor(kind, message, options) {
    super(message, options);
    this.name = 'ApplianceError';
    this.kind = kind;
  }
}

const prompt = '/> '; // ends each answer of the daemon, so no value can hold it

/// Whether a name comes back from the program as it went out. Half a surrogate pair would not.
const canBeAsked = (name) => /^[^ ,"\\\p{Cc}\p{Cs}]+$/u.test(name);

/// Whether the program puts the value between quotation marks, to make it one word.
const isQuoted = (value) => value === '' || /[ \t-\r]/.test(value);

export class Appliance {
  #address;
  #seconds;
  #last = Promise.resolve();

  /// `seconds` is how long an answer may take. The address holds no password: where the page's has
  /// one, the browser sends it, and refuses an address that repeats it.
  constructor(url = '/cgi-bin/tzr4417.cgi', seconds = 35) {
    this.#address = new URL(url, location.origin);
    this.#seconds = seconds;
  }

  /// Gives `values`, a Map in the order of the names, each once, and `invalid`, the names without
  /// a value. An answer that breaks off between two names is no failure: the rest is invalid.
  async read(names) {
    const wanted = [...new Set(names)];
    const asked = wanted.filter(canBeAsked);
    const answer = asked.length ? await this.#ask({ read: asked.join() }) : new Map();
    const refused = answer.get('invalid');
    const values = new Map();
    for (const name of asked) {
      const value = answer.get(name);
      if (typeof value === 'string') {
        values.set(name, value);
      } else if (!Array.isArray(refused) || !refused.includes(name)) {
        throw new ApplianceError('broken', `The answer does not tell of ${name}`);
      }
    }
    return { values, invalid: wanted.filter((name) => !values.has(name)) };
  }

  /// Gives `value` as it was sent to the daemon, and `reply`, the daemon's complaint or nothing.
  /// What is stored then, only a read tells.
  async write(name, value) {
    const text = String(value);
    if (!canBeAsked(name)) {
      throw new ApplianceError('refused', `No parameter can have the name ${JSON.stringify(name)}`);
    }
    if (text.includes(prompt)) {
      throw new ApplianceError('refused', `No value can hold ${JSON.stringify(prompt)}`);
    }
    const answer = await this.#ask({ write: name, value: text });
    const [sent, reply] = [answer.get('value'), answer.get('reply')];
    if (answer.get('write') !== name || typeof sent !== 'string' || typeof reply !== 'string') {
      throw new ApplianceError('broken', 'The answer is not the one to a write');
    }
    return { value: isQuoted(text) ? sent.slice(1, -1) : sent, reply };
  }

  /// One request at a time, in the order of the calls; a failed one lets the next one go.
  #ask(fields) {
    const answer = this.#last.then(() => this.#send(fields));
    this.#last = answer.catch(() => {});
    return answer;
  }

  /// The members of the answer to one request. It is a POST for any length, and has the header
  /// that a forged request cannot have.
  async #send(fields) {
    const signal = AbortSignal.timeout(this.#seconds * 1000);
    let response;
    let text;
    try {
      response = await fetch(this.#address, {
        method: 'POST',
        headers: { 'X-Requested-With': 'appliance.js' },
        body: new URLSearchParams(fields),
        signal,
      });
      text = await response.text();
    } catch (cause) {
      if (signal.aborted) {
        throw new ApplianceError('silent', `No answer in ${this.#seconds} seconds`, { cause });
      }
      throw response
        ? new ApplianceError('broken', 'The answer is cut off', { cause })
        : new ApplianceError('silent', 'The web server does not answer', { cause });
    }
    if (response.status !== 200) throw failure(response, text);
    return members(text);
  }
}

/// Only the program answers 500 without a content type; the web server's own errors have one.
function failure({ status, headers }, text) {
  if ([400, 401, 403].includes(status)) {
    return new ApplianceError('refused', `Refused with status ${status}`);
  }
  if (status !== 500 || headers.get('Content-Type')) {
    return new ApplianceError('silent', `The web server answers with its own status ${status}`);
  }
  if (text === '') return new ApplianceError('daemon', 'The configuration daemon does not run');
  if (text.startsWith('Exception ')) return new ApplianceError('refused', text.trim());
  const said = text.trim();
  return new ApplianceError(
    'broken', `The connection broke while values were stored${said && `: ${said}`}`);
}

/// The members of an answer, which is one line: any control character stands in a string, and goes
/// through the parser escaped.
function members(text) {
  const escape = (byte) => `\\u${byte.charCodeAt(0).toString(16).padStart(4, '0')}`;
  try {
    const answer = JSON.parse(text.replace(/\n$/, '').replace(/[\0-\x1f]/g, escape));
    return new Map(Object.entries(answer));
  } catch (cause) {
    throw new ApplianceError('broken', 'The answer is cut off or none', { cause });
  }
}
