// Brings the parts together: the player that is driven, its events, and the views.
import {ApiError, Follower, get, playerPath, post} from './api.js';
import {byId, make, say} from './dom.js';
import {Library} from './library.js';
import {Now} from './now.js';
import {Queue} from './queue.js';

let player = '';

/** Sends the player a command. @return whether it was carried out. */
async function command(name, body = {}) {
  try {
    await post(playerPath(player, name), body);
    return true;
  } catch (error) {
    say(error instanceof ApiError ? error.message : 'The service cannot be reached.');
    return false;
  }
}

const now = new Now(command);
const queue = new Queue(command);
const library = new Library(command);
let libraryWanted = true;
let sourcesTimer = 0;

function showBanner(text) {
  const banner = byId('banner');
  banner.textContent = text;
  banner.hidden = !text;
}

const follower = new Follower({
  onState(state) {
    now.update(state);
    const {message} = state.error ?? {};
    showBanner(state.available ? message : `The player is away: ${message}.`);
    if (!state.available) {
      libraryWanted = true;
      return;
    }
    queue.update(state);
    if (libraryWanted) {
      libraryWanted = false;
      library.load();
    }
  },
  // While the music is scanned these events come again and again.
  onSources() {
    clearTimeout(sourcesTimer);
    sourcesTimer = setTimeout(() => library.load(), 500);
  },
  onLost() {
    showBanner('The connection is lost. Trying again…');
    libraryWanted = true;
    checkPairing();
  },
});

function choose(name) {
  player = name;
  localStorage.setItem('player', name);
  byId('player').value = name;
  follower.follow(name);
}

function showView(view) {
  document.body.dataset.view = view;
  for (const tab of document.querySelectorAll('.tabs button')) {
    tab.toggleAttribute('aria-current', false);
    if (tab.dataset.view === view) {
      tab.setAttribute('aria-current', 'page');
    }
  }
}

function bindViews() {
  for (const tab of document.querySelectorAll('.tabs button')) {
    tab.onclick = () => {
      showView(tab.dataset.view);
      requestAnimationFrame(() => queue.showCurrent());
    };
  }
  byId('mini-open').onclick = () => {
    showView('now');
    byId('toggle').focus();
  };
  byId('player').onchange = event => choose(event.target.value);
  document.addEventListener('visibilitychange', () => now.tick());
}

/** Asks for the code if this machine is not paired. @return whether it is paired afterwards. */
async function checkPairing() {
  try {
    if ((await get('pair')).paired) {
      return true;
    }
  } catch {
    return false;
  }
  const dialog = byId('pairing');
  if (!dialog.open) {
    dialog.showModal();
  }
  return false;
}

function bindPairing() {
  byId('pairing').oncancel = event => event.preventDefault();
  byId('pairing-form').onsubmit = async event => {
    event.preventDefault();
    try {
      await post('pair', {code: byId('pairing-code').value});
      byId('pairing').close();
      start();
    } catch (error) {
      byId('pairing-problem').textContent = error.message;
      byId('pairing-code').select();
    }
  };
}

async function start() {
  if (!await checkPairing()) {
    if (!byId('pairing').open) {
      setTimeout(start, 2000);
    }
    return;
  }
  try {
    const {players} = await get('players');
    byId('player').replaceChildren(...players.map(name =>
      make('option', {value: name, textContent: name})));
    byId('player-choice').hidden = players.length < 2;
    const last = localStorage.getItem('player');
    showBanner('');
    choose(players.includes(last) ? last : players[0]);
  } catch (error) {
    showBanner(error instanceof ApiError ? error.message : 'The service cannot be reached.');
    setTimeout(start, 2000);
  }
}

bindViews();
bindPairing();
start();
