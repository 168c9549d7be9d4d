// The events that the backend and the upload server have received, in order and without secrets.

const secretHeaders = new Set(['access-token', 'qx-signature', 'authorization', 'x-amz-security-token', 'cookie']);
const limit = 100_000;  // Older events are dropped, so that memory stays bounded.

export class Events {
  #list = [];
  #next = 1;

  /** Adds one event; returns its record, which the caller may still complete (status, fields). */
  add({ server, kind, method, path, headers, ...rest }) {
    const shown = Object.fromEntries(Object.entries(headers).map(
      ([name, value]) => [name, secretHeaders.has(name) ? '(hidden)' : value]));
    const event = { n: this.#next++, time: new Date().toISOString(), server, kind, method, path,
      headers: shown, ...rest };
    this.#list.push(event);
    if (this.#list.length > limit) this.#list.shift();
    return event;
  }

  list() {
    return this.#list;
  }

  /** The running number goes on, so that a test can tell old from new. */
  clear() {
    this.#list = [];
  }
}
