// The client of the appliance's configuration program, for any page.

/// What a failed call throws. Its `kind` tells what became of the request:
/// - `daemon`: the configuration daemon does not run, nothing was stored
/// - `refused`: it was not carried out
/// - `broken`: the answer is cut off or missing, or the connection broke while values were put: of a
///   write, some of the values may be stored
/// - `silent`: no answer, or one of the web server's own: unknown what became of a write
export class ApplianceError extends Error {
  constructor(kind, message) {
    super(message);
    this.name = 'ApplianceError';
    this.kind = kind;
  }
}

/// Whether the name comes back as it went out. Half a surrogate pair would not.
const canBeAsked = (name) => /^[^ ,"\\\p{Cc}\p{Cs}]+$/u.test(name);

export class Appliance {
  #address;
  #seconds;
  #last = Promise.resolve();

  /// `seconds` is how long an answer may take. The page's origin holds no password, which `fetch`
  /// would refuse in an address.
  constructor(url = '/cgi-bin/tzr4417.cgi', seconds = 35) {
    this.#address = new URL(url, location.origin);
    this.#seconds = seconds;
  }

  /// Gives `values`, a Map in the order of the names, each once, and `invalid`, the names that
  /// could not be read: after a connection that broke midway, all that were left.
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
        throw new ApplianceError('broken', `The answer lacks ${name}`);
      }
    }
    return { values, invalid: wanted.filter((name) => !values.has(name)) };
  }

  /// Gives `value` as it was sent to the daemon, and `reply`, the daemon's complaint, if any. What
  /// is stored then, only a read tells.
  async write(name, value) {
    const text = String(value);
    if (!canBeAsked(name)) {
      throw new ApplianceError('refused', `No parameter has the name ${JSON.stringify(name)}`);
    }
    if (text.includes('/> ')) { // it would end the daemon's answer
      throw new ApplianceError('refused', 'No value can hold "/> "');
    }
    const answer = await this.#ask({ write: name, value: text });
    const sent = answer.get('value');
    const reply = answer.get('reply');
    if (answer.get('write') !== name || typeof sent !== 'string' || typeof reply !== 'string') {
      throw new ApplianceError('broken', 'The answer is not that to a write');
    }
    const quoted = text === '' || /[ \t-\r]/.test(text);
    return { value: quoted ? sent.slice(1, -1) : sent, reply };
  }

  /// One request at a time, in the order of the calls; a failed one lets the next one go.
  #ask(fields) {
    const answer = this.#last.then(() => this.#send(fields));
    this.#last = answer.catch(() => {});
    return answer;
  }

  /// The members of the answer. A POST has no limit of length, and the header is one that another
  /// site's page cannot send.
  async #send(fields) {
    const signal = AbortSignal.timeout(this.#seconds * 1000);
    let response, text;
    try {
      response = await fetch(this.#address, {
        method: 'POST',
        headers: { 'X-Requested-With': 'appliance.js' },
        body: new URLSearchParams(fields),
        signal,
      });
      text = await response.text();
    } catch {
      if (signal.aborted) throw new ApplianceError('silent', `No answer in ${this.#seconds} seconds`);
      throw response ? new ApplianceError('broken', 'The answer is cut off')
        : new ApplianceError('silent', 'The web server does not answer');
    }
    if (response.status !== 200) throw failure(response, text);
    return members(text);
  }
}

/// The program's own 500 has no content type, a web server's has one.
function failure({ status, headers }, text) {
  if ([400, 401, 403].includes(status)) {
    return new ApplianceError('refused', `Refused with status ${status}`);
  }
  if (status !== 500 || headers.has('Content-Type')) {
    return new ApplianceError('silent', `The web server answers with status ${status}`);
  }
  if (text === '') return new ApplianceError('daemon', 'The configuration daemon does not run');
  return text.startsWith('Exception ') ? new ApplianceError('refused', text.trim())
    : new ApplianceError('broken', `The connection to the daemon broke. ${text}`.trim());
}

/// The members of an answer. It is one line, so any other control character stands in a string,
/// and goes through the parser escaped.
function members(text) {
  const escape = (byte) => `\\u${byte.charCodeAt().toString(16).padStart(4, '0')}`;
  try {
    return new Map(Object.entries(JSON.parse(text.trimEnd().replace(/[\0-\x1f]/g, escape))));
  } catch {
    throw new ApplianceError('broken', 'The answer is cut off or none');
  }
}
