// How the page finds and makes elements, and shows names and values.

export const root = '/configuration/';

export const short = (name) => (name.startsWith(root) ? name.slice(root.length) : name);

/// A read gives no white space around a value.
export const trim = (value) => value.replace(/^[ \t-\r]+|[ \t-\r]+$/g, '');

export const part = (id) => document.getElementById(id);

export function make(tag, attributes = {}, ...content) {
  const kind = /svg|path/.test(tag) ? '2000/svg' : '1999/xhtml';
  const element = document.createElementNS(`http://www.w3.org/${kind}`, tag);
  for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
  element.append(...content);
  return element;
}

/// Leaves the same text alone: a live region would say it again. False content is left out.
export function setContent(element, ...content) {
  const fresh = make('p', {}, ...content.filter(Boolean));
  if (element.textContent !== fresh.textContent) element.replaceChildren(...fresh.childNodes);
}

/// A value in other text: one short line, unable to turn the text around it.
export function shown(value) {
  if (!value) return '(empty)';
  const text = value.length > 120 ? `${value.slice(0, 120)}… (${value.length} characters)` : value;
  const line = text.replace(/\s*\n\s*/g, ' ⏎ ');
  if (/^[\0-\u02ff]*$/.test(line)) return line;
  return `\u2068${line.replace(/[\u061c\u200e\u200f\u202a-\u202e\u2066-\u2069]/g, '')}\u2069`;
}
