// The queue: what comes next, in an order that users can change.
import {coverUrl, get, playerPath, post} from './api.js';
import {
  byId, countText, icon, make, nameOf, openMenu, say, thumb, timeText, waitingRow,
} from './dom.js';
import {Pages, VirtualList} from './virtual-list.js';

export class Queue {
  constructor(command) {
    this.command = command;
    this.player = '';
    this.session = '';
    this.current = -1;
    this.list = new VirtualList(byId('queue-list'), {
      render: (track, index) => this.render(track, index),
      label: 'Tracks of the queue',
      onKey: (event, index) => this.handleKey(event, index),
    });
    byId('queue-clear').onclick = () => this.command('queue/clear');
    this.bindSaving();
  }

  bindSaving() {
    const dialog = byId('saving');
    const name = byId('saving-name');
    const show = (problem = '', button = 'Save') => {
      byId('saving-problem').textContent = problem;
      byId('saving-done').textContent = button;
    };
    byId('queue-save').onclick = () => {
      this.replace = false;
      show();
      dialog.showModal();
      name.select();
    };
    byId('saving-cancel').onclick = () => dialog.close();
    name.oninput = () => {
      this.replace = false;
      show();
    };
    byId('saving-form').onsubmit = async event => {
      event.preventDefault();
      try {
        const body = {name: name.value, replace: this.replace};
        const {saved} = await post(playerPath(this.player, 'queue/save'), body);
        dialog.close();
        say(`Saved ${countText(saved, 'track', 'tracks')} as “${body.name}”.`);
      } catch (error) {
        this.replace = error.code === 'playlist_exists';
        const problem = this.replace ? 'There is a playlist of that name.' : error.message;
        show(problem, this.replace ? 'Replace it' : 'Save');
      }
    };
  }

  /** Takes a new state of the player. */
  update(state) {
    const moved = this.current !== (state.track?.index ?? -1);
    const other = this.player !== state.player || this.session !== state.session;
    const keep = this.player === state.player;
    this.player = state.player;
    this.session = state.session ?? '';
    this.current = state.track?.index ?? -1;
    if (other) {
      this.fetch(state.length ?? 0, keep);
    } else if (moved) {
      this.list.refresh();
    }
    if (moved) {
      this.showCurrent();
    }
  }

  /** Scrolls to the current track, unless the list is in use. */
  showCurrent() {
    if (this.current >= 0 && !byId('queue-list').contains(document.activeElement)) {
      this.list.reveal(this.current, true);
    }
  }

  fetch(length, keep) {
    const session = this.session;
    const pages = new Pages(async (offset, count, signal) => {
      const answer = await get(playerPath(this.player, 'queue'), {offset, count}, signal);
      // If the session is newer, its event is on its way.
      return {entries: answer.session === session ? answer.tracks : [], total: undefined};
    }, length);
    pages.onError = error => say(error.message);
    byId('queue-length').textContent = length ? countText(length, 'track', 'tracks') : '';
    byId('queue-clear').hidden = !length;
    byId('queue-save').hidden = !length;
    byId('queue-empty').hidden = Boolean(length);
    byId('queue-list').hidden = !length;
    this.list.show(pages, {keep});
    if (!keep) {
      requestAnimationFrame(() => this.showCurrent());
    }
  }

  render(track, index) {
    if (!track) {
      return waitingRow();
    }
    const current = index === this.current;
    const go = make('button', {className: 'go', onclick: () => this.command('jump', {index})},
      thumb(track, coverUrl),
      make('span', {className: 'lines'},
        make('span', {className: 'first', textContent: nameOf(track)}),
        make('span', {className: 'second', textContent: track.artist ?? ''})),
      make('span', {
        className: 'time', textContent: track.duration_ms ? timeText(track.duration_ms) : '',
      }));
    if (current) {
      go.setAttribute('aria-current', 'true');
    }
    const more = make('button', {
      className: 'round',
      ariaLabel: `More for ${nameOf(track)}`,
      onclick: () => this.openMenu(track, index),
    }, icon('more'));
    const grip = make('span', {
      className: 'round grip',
      ariaHidden: 'true',
      onpointerdown: event => this.drag(event, index),
    }, icon('grip'));
    return make('div', {className: current ? 'row current' : 'row'}, go, more, grip);
  }

  openMenu(track, index) {
    const items = [['Play', () => this.command('jump', {index})]];
    if (this.current >= 0 && index !== this.current) {
      const to = index < this.current ? this.current : this.current + 1;
      items.push(['Play next', () => this.move(index, to)]);
    }
    if (index > 0) {
      items.push(
        ['Move up', () => this.move(index, index - 1)],
        ['Move to the top', () => this.move(index, 0)]);
    }
    const last = this.list.pages.total - 1;
    if (index < last) {
      items.push(
        ['Move down', () => this.move(index, index + 1)],
        ['Move to the end', () => this.move(index, last)]);
    }
    items.push(['Remove', () => this.remove(index)]);
    openMenu(nameOf(track), items);
  }

  handleKey(event, index) {
    if (event.altKey && (event.key === 'ArrowUp' || event.key === 'ArrowDown')) {
      const to = event.key === 'ArrowUp' ? index - 1 : index + 1;
      if (to >= 0 && to < this.list.pages.total) {
        this.list.focused = to;
        this.move(index, to);
      }
      return true;
    }
    if (event.key === 'Delete') {
      this.remove(index);
      return true;
    }
    return false;
  }

  async move(from, to) {
    const done = await this.change('queue/move', {from, to});
    if (done) {
      say(`Moved to place ${to + 1}.`);
    }
  }

  async remove(index) {
    const done = await this.change('queue/remove', {index});
    if (done) {
      say('Removed.');
    }
  }

  async change(path, body) {
    try {
      await post(playerPath(this.player, path), {...body, session: this.session});
      return true;
    } catch (error) {
      say(error.code === 'queue_changed' ? 'The queue has changed meanwhile.' : error.message);
      return false;
    }
  }

  // Draws a line where the track would go, and moves it with the pointer.
  drag(event, from) {
    event.preventDefault();
    const box = this.list.element;
    const row = event.target.closest('.row');
    const line = make('div', {className: 'drop'});
    let gap = from;
    let y = event.clientY;
    row.classList.add('dragged');
    this.list.space.append(line);
    const follow = () => {
      const {top, height} = box.getBoundingClientRect();
      const edge = 48;
      box.scrollTop += y < top + edge ? -8 : y > top + height - edge ? 8 : 0;
      const place = Math.round((y - top + box.scrollTop) / this.list.cellHeight);
      gap = Math.max(0, Math.min(place, this.list.pages.total));
      line.style.transform = `translateY(${gap * this.list.cellHeight}px)`;
      frame = requestAnimationFrame(follow);
    };
    let frame = requestAnimationFrame(follow);
    const moved = next => { y = next.clientY; };
    const end = done => {
      cancelAnimationFrame(frame);
      line.remove();
      row.classList.remove('dragged');
      removeEventListener('pointermove', moved);
      removeEventListener('pointerup', drop);
      removeEventListener('pointercancel', cancel);
      const to = gap > from ? gap - 1 : gap;
      if (done && to !== from) {
        this.move(from, to);
      }
    };
    const drop = () => end(true);
    const cancel = () => end(false);
    addEventListener('pointermove', moved);
    addEventListener('pointerup', drop);
    addEventListener('pointercancel', cancel);
  }
}
