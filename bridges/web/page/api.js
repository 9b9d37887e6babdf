// The service's API, and the events of one player.

const base = 'api/v1/';

export class ApiError extends Error {
  constructor(status, code, message) {
    super(message);
    this.status = status;
    this.code = code;
  }
}

async function answerOf(response) {
  if (response.status === 204) {
    return null;
  }
  const body = await response.json().catch(() => ({}));
  if (!response.ok) {
    const {status} = response;
    const {code = 'failed', message = `The service answered ${status}.`} = body.error ?? {};
    throw new ApiError(status, code, message);
  }
  return body;
}

export async function get(path, parameters = {}, signal = undefined) {
  const query = new URLSearchParams(parameters).toString();
  return answerOf(await fetch(base + path + (query ? `?${query}` : ''), {signal}));
}

export async function post(path, body = {}) {
  return answerOf(await fetch(base + path, {
    method: 'POST',
    headers: {'Content-Type': 'application/json'},
    body: JSON.stringify(body),
  }));
}

export const coverUrl = node =>
  `${base}cover?${new URLSearchParams({source_id: node.source_id, id: node.id})}`;

/** A node as commands take it. */
export const keyOf = node => ({source_id: node.source_id, id: node.id});

export const playerPath = (player, rest = '') =>
  `players/${encodeURIComponent(player)}${rest ? `/${rest}` : ''}`;

/**
 * Follows a player while the page is visible, so that a page in the background costs the service
 * nothing. Calls onState(state), onSources() and onLost(); the browser connects again by itself.
 */
export class Follower {
  constructor(callbacks) {
    this.callbacks = callbacks;
    this.player = '';
    this.source = null;
    document.addEventListener('visibilitychange', () => this.connect());
  }

  follow(player) {
    this.player = player;
    this.connect();
  }

  connect() {
    this.source?.close();
    this.source = null;
    if (!this.player || document.hidden) {
      return;
    }
    const source = new EventSource(base + playerPath(this.player, 'events'));
    this.source = source;
    source.addEventListener('state', event => this.callbacks.onState(JSON.parse(event.data)));
    source.addEventListener('sources', () => this.callbacks.onSources());
    source.onerror = () => {
      this.callbacks.onLost();
      if (source.readyState === EventSource.CLOSED && this.source === source) {
        setTimeout(() => this.source === source && this.connect(), 3000);
      }
    };
  }
}
