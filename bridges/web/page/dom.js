// Small helpers for elements, times and short messages.

export const byId = id => document.getElementById(id);

/** Makes an element with properties and children. */
export function make(tag, properties = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    if (name in element) {
      element[name] = value;
    } else {
      element.setAttribute(name, value);
    }
  }
  element.append(...children);
  return element;
}

const svg = 'http://www.w3.org/2000/svg';

export function icon(name) {
  const image = document.createElementNS(svg, 'svg');
  image.setAttribute('class', 'icon');
  image.setAttribute('aria-hidden', 'true');
  const use = document.createElementNS(svg, 'use');
  use.setAttribute('href', `#i-${name}`);
  image.append(use);
  return image;
}

/** "3:07", "1:02:09". */
export function timeText(ms) {
  const all = Math.max(0, Math.floor(ms / 1000));
  const seconds = String(all % 60).padStart(2, '0');
  const minutes = Math.floor(all / 60) % 60;
  const hours = Math.floor(all / 3600);
  const rest = `${minutes}:${seconds}`;
  return hours ? `${hours}:${rest.padStart(5, '0')}` : rest;
}

export const countText = (count, one, many) =>
  `${count.toLocaleString()} ${count === 1 ? one : many}`;

export const nameOf = node => node.title || node.name || 'Unknown';

let toastTimer = 0;

/** Shows a message for a while; screen readers say it. */
export function say(message) {
  const toast = byId('toast');
  toast.textContent = message;
  toast.classList.add('shown');
  clearTimeout(toastTimer);
  toastTimer = setTimeout(() => toast.classList.remove('shown'), 3500);
}

/** A menu of [label, action] pairs. */
export function openMenu(title, items) {
  const menu = byId('menu');
  byId('menu-title').textContent = title;
  byId('menu-items').replaceChildren(...items.map(([label, action]) => make('button', {
    textContent: label,
    onclick() {
      menu.close();
      action();
    },
  })));
  menu.showModal();
}

/** The row of an entry that is still fetched. */
export const waitingRow = () => make('div', {className: 'row waiting'},
  make('button', {className: 'go', ariaLabel: 'Loading'},
    make('span', {className: 'thumb'}), make('span', {className: 'lines'})));

/** The picture of a node, or its first letter if it has none. */
export function thumb(node, coverUrl) {
  const box = make('span', {className: 'thumb', ariaHidden: 'true'});
  fillThumb(box, node, coverUrl);
  return box;
}

export function fillThumb(box, node, coverUrl) {
  const letter = [...nameOf(node)].find(c => /[\p{L}\p{N}]/u.test(c));
  box.replaceChildren(letter ? make('span', {textContent: letter.toUpperCase()}) : icon('note'));
  if (node.cover) {
    const image = make('img', {alt: '', decoding: 'async', draggable: false, hidden: true});
    image.onload = () => { image.hidden = false; };
    image.onerror = () => image.remove();
    image.src = coverUrl(node);
    box.append(image);
  }
}
