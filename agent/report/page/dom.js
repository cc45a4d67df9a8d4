'use strict';
// Elements, tables and texts. What comes from the recording only ever becomes text.

function append(parent, attributes, children) {
  for (const [name, value] of Object.entries(attributes)) parent.setAttribute(name, value);
  parent.append(...children);
  return parent;
}

const el = (tag, attributes = {}, ...children) =>
  append(document.createElement(tag), attributes, children);

const svg = (tag, attributes = {}, ...children) =>
  append(document.createElementNS('http://www.w3.org/2000/svg', tag), attributes, children);

const byId = (id) => document.getElementById(id);

const count = (number, one, many = one + 's') => `${number} ${number === 1 ? one : many}`;

// A table that scrolls by itself. Columns: {title, isNumber}; cells are texts, numbers or elements.
function table(caption, columns, rows) {
  const cell = (tag, column, content) =>
    el(tag, {...(column.isNumber && {class: 'number'}), ...(tag === 'th' && {scope: 'col'})}, content);
  return el('div', {class: 'scroll', tabindex: 0, role: 'group', 'aria-label': caption},
    el('table', {},
      el('caption', {}, caption),
      el('thead', {}, el('tr', {}, ...columns.map((column) => cell('th', column, column.title)))),
      el('tbody', {}, ...rows.map((row) =>
        el('tr', {}, ...row.map((content, i) => cell('td', columns[i], content ?? '')))))));
}

// A table that is made when it is opened for the first time.
function foldedTable(caption, columns, rowsOf) {
  const details = el('details', {}, el('summary', {}, `Table: ${caption}`));
  details.addEventListener('toggle', () => {
    if (details.open && details.children.length === 1) details.append(table(caption, columns, rowsOf()));
  });
  return details;
}

// How times read: seconds of a recording, or UTC where the time 0 has a date.
function timeText(at) {
  if (data.epoch === null) return `${Number(at.toFixed(6))} s`;
  return new Date((data.epoch + at) * 1000).toISOString().replace('T', ' ').replace(/Z$/, ' UTC');
}

// The same below an axis, where there is less room.
function tickText(at, step) {
  if (data.epoch === null) return `${Number(at.toFixed(6))} s`;
  const time = new Date((data.epoch + at) * 1000).toISOString().slice(11, 23);
  return step >= 60 ? time.slice(0, 5) : step >= 1 ? time.slice(0, 8) : time;
}

function durationText(seconds) {
  return seconds < 1 ? `${Number((seconds * 1000).toFixed(3))} ms` : `${Number(seconds.toFixed(3))} s`;
}
