// The library: lists of lists down to songs, and what a search finds.
import {coverUrl, get, keyOf, post} from './api.js';
import {
  byId, countText, icon, make, nameOf, openMenu, say, thumb, timeText, waitingRow,
} from './dom.js';
import {Pages, VirtualList} from './virtual-list.js';

const typingPauseMs = 120;
const searchResultsMax = 200; // Of each source, if there are several.

const typeNames = {
  artist: 'Artist',
  album: 'Album',
  genre: 'Genre',
  year: 'Year',
  playlist: 'Playlist',
  folder: 'Folder',
};

const menuIcons = {
  artists: 'artists',
  albums: 'now',
  genres: 'genres',
  years: 'years',
  songs: 'note',
  folders: 'folders',
  playlists: 'queue',
};

// Lists of which each entry is a song, so that places in them are places in the queue.
const holdsSongs = place =>
  ['album', 'playlist', 'genre', 'year'].includes(place.type) || place.id === 'songs';

function secondLine(node, place) {
  if (node.type === 'song' && place.type === 'album') {
    return node.artist ?? '';
  }
  if (node.type === 'song') {
    return [node.artist, node.album].filter(Boolean).join(' · ');
  }
  const count = node.count ? countText(node.count, 'entry', 'entries') : '';
  const artist = node.type === 'artist' ? '' : node.artist;
  return [typeNames[node.type], artist, count].filter(Boolean).join(' · ');
}

export class Library {
  constructor(command) {
    this.command = command;
    this.sources = []; // Sources of music.
    this.saved = null; // The source of the saved playlists, if there is one.
    this.path = []; // Places from the top down; each a node with where it was scrolled to.
    this.list = new VirtualList(byId('library-list'), {
      render: (node, index) =>
        (this.list.tiles ? this.renderTile(node, index) : this.renderRow(node, index)),
      label: 'Entries of the library',
      onKey: event => event.key === 'Backspace' && this.back(),
    });
    byId('back').onclick = () => this.back();
    byId('play-all').onclick = () => this.play(this.place());
    byId('list-more').onclick = () => this.openMenu(this.place());
    const search = byId('search');
    search.oninput = () => {
      clearTimeout(this.typing);
      this.typing = setTimeout(() => this.show(), typingPauseMs);
    };
    search.onkeydown = event => {
      if (event.key === 'ArrowDown' || event.key === 'Enter') {
        event.preventDefault();
        this.list.focusEntry(0);
      }
    };
    document.addEventListener('keydown', event => {
      if (event.key === '/' && !event.target.matches('input')) {
        event.preventDefault();
        document.querySelector('.tabs [data-view="library"]').click();
        search.focus();
      }
    });
  }

  place() {
    return this.path.at(-1);
  }

  /** Reads the sources, again after a change of the music. */
  async load() {
    let sources;
    try {
      ({sources} = await get('sources'));
      this.sources = sources.filter(source => source.type !== 'playlists');
      this.saved = sources.find(source => source.type === 'playlists') ?? null;
    } catch (error) {
      say(error.message);
      return;
    }
    const top = this.sources.length === 1
      ? {source_id: this.sources[0].id, id: '', name: 'Library', type: 'menu'}
      : {id: null, name: 'Library', type: 'menu'};
    const [, ...below] = this.path;
    const isThere = sources.some(source => source.id === below[0]?.source_id);
    this.path = [top, ...(isThere ? below : [])];
    this.show(true);
  }

  back() {
    if (byId('search').value) {
      byId('search').value = '';
    } else if (this.path.length > 1) {
      this.path.pop();
    } else {
      return false;
    }
    this.show();
    const {scrolled = 0, entered = 0} = this.place();
    this.list.focused = entered;
    requestAnimationFrame(() => {
      this.list.element.scrollTop = scrolled;
      this.list.focusEntry(entered);
    });
    return true;
  }

  open(node, index) {
    if (!byId('search').value) {
      Object.assign(this.place(), {scrolled: this.list.element.scrollTop, entered: index});
    }
    byId('search').value = '';
    this.path.push({...node});
    this.show();
    requestAnimationFrame(() => this.list.element.focus());
  }

  // @param keep whether the place in the list stays.
  show(keep = false) {
    const term = byId('search').value.trim();
    const place = this.place();
    if (!place) {
      return;
    }
    const browsed = () => (place.id === null ? this.listSources() : this.browse(place));
    const pages = term ? this.search(term) : browsed();
    pages.onError = error => say(error.message);
    byId('back').hidden = this.path.length < 2 && !term;
    byId('library-heading').textContent = term ? 'Results' : nameOf(place);
    const playable = !term && place.id !== null && place.id !== '' && place.type !== 'menu';
    byId('play-all').hidden = !(playable || (!term && place.id === 'songs'));
    byId('list-more').hidden = byId('play-all').hidden;
    const tiles = !term && (place.id === 'albums' || place.type === 'artist');
    this.list.show(pages, {tiles, keep});
    const refresh = pages.onChange;
    pages.onChange = () => {
      refresh();
      this.showCount(pages, place, term);
    };
    this.showCount(pages, place, term);
  }

  showCount(pages, place, term) {
    const loaded = pages.pages.get(0)?.entries;
    const empty = Boolean(loaded) && pages.total === 0;
    byId('library-empty').hidden = !empty;
    byId('library-empty').textContent = term ? 'Nothing was found.' : 'Nothing is here.';
    byId('library-list').hidden = empty;
    const known = !pages.open && (place.count || term) && loaded;
    byId('library-count').textContent = known ? pages.total.toLocaleString() : '';
  }

  // Opens a list whose length may be known only at its end.
  openPages(fetchPage, total = 0) {
    const pages = new Pages(async (offset, count, signal) => {
      const answer = await fetchPage(offset, count, signal);
      const end = offset + answer.nodes.length;
      pages.open = answer.more && end >= pages.total;
      const known = answer.more ? Math.max(pages.total, end + (pages.open ? count : 0)) : end;
      return {entries: answer.nodes, total: known};
    }, total);
    if (!total) {
      pages.get(0);
    }
    return pages;
  }

  browse(place) {
    const isTop = place === this.path[0];
    return this.openPages(async (offset, count, signal) => {
      const {source_id, id} = place;
      const {nodes, more} = await get('browse', {source_id, id, offset, count}, signal);
      return {nodes: isTop && !more ? [...nodes, ...this.savedNodes()] : nodes, more};
    }, isTop ? 0 : place.count ?? 0);
  }

  /** The entry that leads to the saved playlists, if there are any. */
  savedNodes() {
    return this.saved
      ? [{source_id: this.saved.id, id: 'playlists', name: 'Saved playlists', type: 'menu'}] : [];
  }

  search(term) {
    if (this.sources.length === 1) {
      const source = this.sources[0].id;
      return this.openPages((offset, count, signal) =>
        get('search', {source_id: source, q: term, offset, count}, signal));
    }
    return this.openPages(async (offset, count, signal) => {
      const all = await Promise.all(this.sources.map(source =>
        get('search', {source_id: source.id, q: term, count: searchResultsMax}, signal)));
      const nodes = all.flatMap(answer => answer.nodes);
      return {nodes: nodes.slice(offset, offset + count), more: nodes.length > offset + count};
    });
  }

  listSources() {
    return this.openPages(async () => ({
      nodes: [...this.sources.map(({id, name}) =>
        ({source_id: id, id: '', name, type: 'menu', count: 0})), ...this.savedNodes()],
      more: false,
    }));
  }

  activate(node, index) {
    if (node.type !== 'song') {
      this.open(node, index);
    } else if (!byId('search').value && holdsSongs(this.place())) {
      this.play(this.place(), index);
    } else {
      this.play(node);
    }
  }

  async play(node, index = 0) {
    await this.command('queue/load', {nodes: [keyOf(node)], index, play: true});
  }

  openMenu(node) {
    const body = {nodes: [keyOf(node)]};
    const add = async (path, message) => {
      if (await this.command(path, body)) {
        say(message);
      }
    };
    const items = [
      ['Play now', () => this.play(node)],
      ['Play next', () => add('queue/insert', 'It plays next.')],
      ['Add to the queue', () => add('queue/add', 'Added to the queue.')],
    ];
    if (node.type === 'playlist' && node.source_id === this.saved?.id) {
      items.push(['Delete…', () => this.askToDelete(node)]);
    }
    openMenu(nameOf(node), items);
  }

  askToDelete(node) {
    openMenu(`Delete “${nameOf(node)}” for good?`, [
      ['Keep it', () => {}],
      ['Delete it', () => this.delete(node)],
    ]);
  }

  async delete(node) {
    try {
      await post('playlists/delete', {name: node.name});
      say('Deleted.');
      if (this.place().id === node.id) {
        this.back();
      }
    } catch (error) {
      say(error.message);
    }
  }

  more(node) {
    return make('button', {
      className: 'round', ariaLabel: `More for ${nameOf(node)}`, onclick: () => this.openMenu(node),
    }, icon('more'));
  }

  // The songs of an album show their numbers, since they share its cover.
  picture(node, menu) {
    if (menu) {
      const name = menuIcons[node.id] ?? 'library';
      return make('span', {className: 'thumb', ariaHidden: 'true'}, icon(name));
    }
    const ofAlbum = this.place().type === 'album' && !byId('search').value;
    if (ofAlbum && node.type === 'song' && node.number) {
      return make('span', {className: 'thumb place', textContent: node.number});
    }
    return thumb(node, coverUrl);
  }

  renderRow(node, index) {
    if (!node) {
      return waitingRow();
    }
    const menu = node.type === 'menu' || node.id === 'folders';
    const song = node.type === 'song';
    const count = node.count ? node.count.toLocaleString() : '';
    const second = menu ? count : secondLine(node, this.place());
    const end = song ? timeText(node.duration_ms ?? 0) : '';
    const go = make('button', {className: 'go', onclick: () => this.activate(node, index)},
      this.picture(node, menu),
      make('span', {className: 'lines'},
        make('span', {className: 'first', textContent: nameOf(node)}),
        make('span', {className: 'second', textContent: second})),
      make('span', {className: 'time', textContent: end}));
    return make('div', {className: 'row'}, go, ...(menu ? [] : [this.more(node)]));
  }

  renderTile(node, index) {
    if (!node) {
      return make('div', {className: 'tile'},
        make('button', {className: 'go', ariaLabel: 'Loading'},
          make('span', {className: 'thumb'})));
    }
    const about = node.type === 'album' && this.place().type !== 'artist' ? node.artist : node.year;
    const go = make('button', {className: 'go', onclick: () => this.activate(node, index)},
      thumb(node, coverUrl),
      make('span', {className: 'lines'},
        make('span', {className: 'first', textContent: nameOf(node)}),
        make('span', {className: 'second', textContent: about ?? ''})));
    return make('div', {className: 'tile'}, go, this.more(node));
  }
}
