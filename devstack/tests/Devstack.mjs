// Starts one devstack for a test file and sends requests to it as a client does. The openssl
// program makes the signature, so that the backend and its tests do not share one mistake.
import { execFileSync, spawn } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { storeClient } from '../lib/StoreClient.mjs';

export const main = fileURLToPath(new URL('../main.mjs', import.meta.url));

/** Starts a devstack in a new folder. */
export const start = (...options) =>
  startIn(fs.mkdtempSync(path.join(os.tmpdir(), 'devstack-test-')), ...options);

/** Resolves when the devstack is ready; rejects with its last words when it ends before. */
export function startIn(state, ...options) {
  const child = spawn(process.execPath, [main, '--state', state, '--until-stdin-closes', ...options],
    { stdio: ['pipe', 'pipe', 'pipe'] });
  let said = '';
  child.stderr.on('data', (text) => { said += text; });
  const ended = new Promise((resolve) => child.on('exit', (code, signal) => resolve({ code, signal })));
  return new Promise((resolve, reject) => {
    ended.then(() => reject(new Error(said)));
    child.stdout.on('data', () => {
      const info = JSON.parse(fs.readFileSync(path.join(state, 'devstack.json'), 'utf8'));
      resolve({ state, child, info, ended, said: () => said, async stop({ keep = false } = {}) {
        child.stdin.end();
        const how = await ended;
        if (keep) return how;
        fs.rmSync(state, { recursive: true, force: true });
        return how;
      } });
    });
  });
}

const openssl = (args, input) => execFileSync('openssl', args, { input }).toString().trim().split(/\s+/).pop();

export function sign(user, method, pathAndQuery, body, time = Math.floor(Date.now() / 1000)) {
  const hash = openssl(['dgst', '-sha256', '-hex'], body);
  return `t=${time},v1=${openssl(['dgst', '-sha256', '-hmac', user.accessToken, '-hex'],
    `${method}\n${pathAndQuery}\n${time}\n${hash}`)}`;
}

/** Sends one message to the backend. changed: headers that replace the right ones (null: left out). */
export async function message(base, user, method, pathAndQuery, body = '', changed = {}) {
  const headers = { 'USER-ID': user.userId, 'ACCESS-TOKEN': user.accessToken,
    'QX-SIGNATURE': sign(user, method, pathAndQuery, body), ...changed };
  for (const name of Object.keys(headers)) if (headers[name] === null) delete headers[name];
  if (body) headers['Content-Type'] = 'application/json';
  const answer = await fetch(base + pathAndQuery, { method, headers, body: body || undefined });
  return { status: answer.status, body: await answer.json() };
}

export const configPath = '/v3/storage/get_upload_config';

export async function credentials(info, user = info.users[0]) {
  const { status, body } = await message(info.backend, user, 'GET', configPath);
  if (status !== 200) throw new Error(`${status} ${JSON.stringify(body)}`);
  return body.upload_token_map;
}

export const clientFor = (url, record) => storeClient({ url, region: record.region, credentials: {
  accessKey: record.access_key_id, secretKey: record.access_key_secret, sessionToken: record.security_token } });

export const adminClient = (info) => storeClient({ url: info.direct.store, region: info.region,
  credentials: { accessKey: info.adminAccessKey, secretKey: info.adminSecretKey } });

/** A request to the control API. */
export async function control(info, method, what, body) {
  const answer = await fetch(info.admin + what, { method,
    ...(body ? { headers: { 'Content-Type': 'application/json' }, body: JSON.stringify(body) } : {}) });
  return { status: answer.status, body: await answer.json() };
}

/** The fields of the upload server's form, in order. changed: those that replace the right ones (null: left out). */
export function formFields(record, image, changed = {}) {
  const fields = { image_size: '1024', format: 'webp', quality: '90',
    path: `${record.authorized_path}picture.webp`, bucket: record.bucket, img: image,
    s3_key: record.access_key_id, s3_secret: record.access_key_secret,
    s3_session_token: record.security_token, s3_region: record.region, ...changed };
  return Object.entries(fields).filter(([, value]) => value !== null);
}

export function uploadForm(record, image, changed) {
  const form = new FormData();
  for (const [name, value] of formFields(record, image, changed)) {
    if (name === 'img') form.append(name, new Blob([value]), 'img');
    else form.append(name, value);
  }
  return form;
}

export const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
