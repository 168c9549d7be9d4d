// The backend's records of the original images of items, in SQLite.
import sqlite from 'node-sqlite3-wasm';

const optional = {
  original_image_sha1: 'string',
  original_image_height: 'integer',
  original_image_width: 'integer',
  original_image_file_size: 'integer',
  original_image_file_format: 'string',
};

/** Why an update's body is not acceptable, or null. urlName: the member that carries the URL. */
export function updateFault(body, urlName) {
  const is = (value, type) => type === 'integer' ? Number.isInteger(value) : typeof value === type;
  if (body === null || typeof body !== 'object' || Array.isArray(body)) return 'the body is not a JSON object';
  if (!is(body.item_id, 'integer')) return 'item_id is missing or not an integer';
  if (!is(body[urlName], 'string') || body[urlName] === '') return `${urlName} is missing or not a text`;
  for (const [name, value] of Object.entries(body)) {
    if (name === 'item_id' || name === urlName) continue;
    if (!Object.hasOwn(optional, name)) return `unknown member ${name}`;
    if (!is(value, optional[name])) return `${name} is not of type ${optional[name]}`;
  }
  return null;
}

export class Items {
  #database;

  constructor(file) {
    this.#database = new sqlite.Database(file);
    this.#database.exec(`CREATE TABLE IF NOT EXISTS item_images (
      user_id TEXT NOT NULL, item_id INTEGER NOT NULL, kind TEXT NOT NULL, url TEXT NOT NULL,
      sha1 TEXT, height INTEGER, width INTEGER, file_size INTEGER, file_format TEXT,
      updated_at TEXT NOT NULL, PRIMARY KEY (user_id, item_id, kind))`);
  }

  /** kind: "plain" or "det". A later update replaces an earlier one whole. */
  update(userId, kind, url, body) {
    this.#database.run('INSERT OR REPLACE INTO item_images VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)', [
      userId, body.item_id, kind, url, body.original_image_sha1 ?? null, body.original_image_height ?? null,
      body.original_image_width ?? null, body.original_image_file_size ?? null,
      body.original_image_file_format ?? null, new Date().toISOString()]);
  }

  list() {
    return this.#database.all('SELECT * FROM item_images ORDER BY updated_at, item_id');
  }

  close() {
    this.#database.close();
  }
}
