// The outcomes of writes, and the words for them.

/// `is` of a write:
/// - `asks`: not sent before an operator confirms it with its `action`; `why` tells the reason
/// - `waiting`: not sent yet
/// - `writing`: sent
/// - `answered`: the appliance has answered, maybe with a complaint, `reply`
/// - `unknown`: sent, without an answer; the next read settles it
/// - `stored`, `not kept`: by a read after the write
/// - `refused`: nothing is stored; `failure` tells the reason
/// - `not sent`: given up before it could reach the appliance; `failure` tells the reason
const notes = {
  'waiting': 'waits to be written',
  'writing': 'writing …',
  'answered': 'reading what is stored …',
  'unknown': 'maybe stored',
  'stored': 'stored',
  'not kept': 'not kept',
  'refused': 'refused',
  'not sent': 'not sent',
};

const underWay = ['waiting', 'writing', 'answered'];
export const isUnderWay = ({ is }) => underWay.includes(is);

/// Whether a read must show what is stored.
export const isUnread = ({ is }) => is === 'answered' || is === 'unknown';

/// The outcome of a write after an ApplianceError.
export function outcomeOfFailure({ kind, status }) {
  if (kind === 'silent' || kind === 'broken') return 'unknown';
  return kind === 'refused' && status !== 401 ? 'refused' : 'not sent'; // 401: it wants the password
}

/// Whether the outcome is still true of the `stored` value.
export function isStillTrue({ is, value, isConflict, over }, stored) {
  if (isConflict) return value !== stored && over !== stored;
  if (is === 'stored') return value === stored;
  return isUnderWay({ is }) || is === 'unknown' || value !== stored;
}

/// For the parameter's row.
export const noteOf = ({ is, why }) => (is === 'asks' ? `not sent: ${why}` : notes[is]);

/// The complaint about a write, or nothing; `what` is the name with the value.
export function complaintOf({ is, action, why, reply, failure }, what) {
  if (is === 'asks') return action === 'anyway' && `Not sent: ${what} ${why}.`;
  if (reply) return `The appliance complains about ${what}: ${reply}`;
  if (is === 'unknown') return `Maybe stored: ${what}. ${failure}.`;
  if (is === 'not kept' && !failure) return `The appliance has not kept ${what}.`;
  return is !== 'stored' && failure && `Not stored: ${what}. ${failure}.`;
}

/// A summary of the writes of several parameters; `assign` gives a write's name with its value.
export function summaryOf(writes, assign) {
  const parts = Object.entries(notes).map(([is, note]) => {
    const those = writes.filter((write) => write.is === is);
    const what = writes.length === 1 ? those.map(assign).join('')
      : those.length && `${those.length} of ${writes.length} values`;
    return what && `${note[0].toUpperCase()}${note.slice(1)}: ${what}.`;
  });
  return parts.filter(Boolean).join(' ');
}
