// What is playing: the cover, the position, and the controls.
import {coverUrl} from './api.js';
import {byId, fillThumb, nameOf, timeText} from './dom.js';

const seekStepMs = 10000;

function setFilled(range) {
  const span = range.max - range.min;
  const filled = span > 0 ? (100 * (range.value - range.min)) / span : 0;
  range.style.setProperty('--filled', `${filled}%`);
}

/** Sends the newest value of a slider, one at a time. */
function sender(send) {
  let waiting = null;
  let busy = false;
  return async function push(value) {
    waiting = value;
    while (!busy && waiting !== null) {
      const next = waiting;
      waiting = null;
      busy = true;
      await send(next);
      busy = false;
    }
  };
}

export class Now {
  /** @param command (name, body) sends the player a command. */
  constructor(command) {
    this.command = command;
    this.state = {available: false};
    this.receivedAt = 0;
    this.seeking = false;
    this.bindButtons();
    this.bindSliders();
    document.addEventListener('keydown', event => this.handleKey(event));
  }

  bindButtons() {
    for (const [id, name] of [['toggle', 'toggle'], ['mini-toggle', 'toggle'], ['next', 'next'],
      ['mini-next', 'next'], ['previous', 'previous']]) {
      byId(id).onclick = () => this.command(name);
    }
    byId('shuffle').onclick = () => this.command('modes', {shuffle: !this.state.shuffle});
    byId('repeat').onclick = () => {
      const following = {off: 'all', all: 'one', one: 'off'};
      this.command('modes', {repeat: following[this.state.repeat] ?? 'off'});
    };
    byId('mute').onclick = () => this.command('volume', {muted: !this.state.muted});
  }

  bindSliders() {
    const seek = byId('seek');
    seek.oninput = () => {
      this.seeking = true;
      this.showPosition(Number(seek.value));
    };
    seek.onchange = async () => {
      await this.command('seek', {position_ms: Math.round(Number(seek.value))});
      this.state.position_ms = Number(seek.value);
      this.receivedAt = performance.now();
      this.seeking = false;
    };
    const volume = byId('volume');
    const push = sender(level => this.command('volume', {level}));
    volume.oninput = () => {
      setFilled(volume);
      this.volumeTouched = performance.now();
      push(Number(volume.value));
    };
  }

  handleKey(event) {
    const target = event.target;
    const typing = target.matches('input:not([type="range"]), select') || target.closest('dialog');
    if (typing || event.altKey || event.ctrlKey || event.metaKey) {
      return;
    }
    if (event.key === ' ' && !target.closest('button')) {
      this.command('toggle');
    } else if (event.key === 'n' || event.key === 'p') {
      this.command(event.key === 'n' ? 'next' : 'previous');
    } else if (event.key === 'm') {
      byId('mute').click();
    } else if (event.key === ',' || event.key === '.') {
      const step = event.key === '.' ? seekStepMs : -seekStepMs;
      this.command('seek', {position_ms: Math.max(0, Math.round(this.position() + step))});
    } else {
      return;
    }
    event.preventDefault();
  }

  /** The present position. */
  position() {
    const {state, position_ms: position = 0, rate = 1, track} = this.state;
    const passed = state === 'playing' ? (performance.now() - this.receivedAt) * rate : 0;
    return Math.min(position + passed, track?.duration_ms ?? Infinity);
  }

  update(state) {
    const before = this.state;
    this.state = state;
    this.receivedAt = performance.now();
    this.showTrack(state.track, before.track);
    this.showModes(state);
    const playing = state.state === 'playing';
    for (const id of ['toggle', 'mini-toggle']) {
      byId(id).setAttribute('aria-label', playing ? 'Pause' : 'Play');
      byId(`${id}-icon`).setAttribute('href', playing ? '#i-pause' : '#i-play');
    }
    for (const id of ['toggle', 'next', 'previous', 'shuffle', 'repeat', 'mute', 'volume']) {
      byId(id).disabled = !state.available;
    }
    this.tick();
  }

  showTrack(track, before) {
    const seek = byId('seek');
    seek.disabled = !track?.duration_ms;
    seek.max = track?.duration_ms || 1;
    byId('mini').hidden = !track;
    if (JSON.stringify(track) === JSON.stringify(before)) {
      return;
    }
    const title = track ? nameOf(track) : 'Nothing is playing';
    byId('title').textContent = title;
    byId('artist').textContent = track?.artist ?? '';
    byId('album').textContent = [track?.album, track?.year].filter(Boolean).join(' · ');
    byId('mini-title').textContent = title;
    byId('mini-artist').textContent = track?.artist ?? '';
    document.title = track ? `${title} – ${track.artist ?? 'vantro'}` : 'vantro';
    const image = byId('art-image');
    image.hidden = true;
    if (track?.cover) {
      image.onload = () => { image.hidden = false; };
      image.src = coverUrl(track);
    }
    fillThumb(byId('mini-art'), track ?? {}, coverUrl);
  }

  showModes(state) {
    const shuffle = byId('shuffle');
    shuffle.classList.toggle('on', Boolean(state.shuffle));
    shuffle.setAttribute('aria-pressed', Boolean(state.shuffle));
    const repeat = byId('repeat');
    repeat.classList.toggle('on', state.repeat === 'all' || state.repeat === 'one');
    repeat.classList.toggle('single', state.repeat === 'one');
    repeat.setAttribute('aria-label', `Repeat: ${state.repeat ?? 'off'}`);
    byId('mute').setAttribute('aria-pressed', Boolean(state.muted));
    byId('mute-icon').setAttribute('href', state.muted ? '#i-muted' : '#i-volume');
    const volume = byId('volume');
    const touchedLately = performance.now() - (this.volumeTouched ?? -1e9) < 500;
    if (state.volume !== undefined && !touchedLately) {
      volume.value = state.volume;
      setFilled(volume);
    }
  }

  showPosition(position) {
    const seek = byId('seek');
    const duration = this.state.track?.duration_ms ?? 0;
    seek.value = position;
    setFilled(seek);
    seek.setAttribute('aria-valuetext', `${timeText(position)} of ${timeText(duration)}`);
    byId('elapsed').textContent = timeText(position);
    byId('remaining').textContent = duration ? `-${timeText(duration - position)}` : '';
    byId('mini-progress').style.transform = `scaleX(${duration ? position / duration : 0})`;
  }

  // Runs at each second of the track, but only while the position is visible and moves.
  tick() {
    clearTimeout(this.timer);
    const position = this.position();
    if (!this.seeking) {
      this.showPosition(position);
    }
    if (this.state.state === 'playing' && !document.hidden) {
      const wait = (1000 - (position % 1000)) / (this.state.rate || 1);
      this.timer = setTimeout(() => this.tick(), Math.max(50, wait + 5));
    }
  }
}
