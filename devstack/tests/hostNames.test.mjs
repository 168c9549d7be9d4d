// A web page can make a name of its own point at 127.0.0.1. The servers answer to their own names
// only.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import http from 'node:http';
import https from 'node:https';
import { after, before, test } from 'node:test';
import { configPath, control, start } from './Devstack.mjs';

let stack;
let info;
let addresses;
before(async () => {
  stack = await start();
  info = stack.info;
  addresses = { backend: info.backend, uploadServer: info.uploadServer, store: info.store, storeTls: info.storeTls,
    admin: info.admin, directBackend: info.direct.backend, directUploadServer: info.direct.uploadServer };
});
after(() => stack.stop());

/** One request with a Host header of the caller's choice. */
const request = (url, host, { method = 'GET', path = '/', body = '', headers = {} } = {}) =>
  new Promise((resolve, reject) => {
    const { protocol, port } = new URL(url);
    const { request: send } = protocol === 'https:' ? https : http;
    const sent = send({ hostname: '127.0.0.1', port, method, path, headers: { ...headers, Host: host },
      setHost: false, servername: 'localhost', ca: fs.readFileSync(info.caFile), agent: false }, (answer) => {
      let text = '';
      answer.setEncoding('utf8').on('data', (part) => { text += part; })
        .on('end', () => resolve({ status: answer.statusCode, text }));
    });
    sent.on('error', reject).end(body);
  });

const misdirected = 421;

test('every server answers to 127.0.0.1 and localhost with its port', async () => {
  for (const [server, url] of Object.entries(addresses)) {
    const { port } = new URL(url);
    for (const name of ['127.0.0.1', 'localhost', 'LocalHost']) {
      assert.notEqual((await request(url, `${name}:${port}`)).status, misdirected, `${server}: ${name}`);
    }
  }
});

test('every server refuses other names, ports and missing ports, and says which names are right', async () => {
  for (const [server, url] of Object.entries(addresses)) {
    const { port } = new URL(url);
    for (const host of ['rebound.example', `rebound.example:${port}`, `localhost.rebound.example:${port}`,
      `127.0.0.1.rebound.example:${port}`, `rebound.localhost:${port}`, `127.0.0.2:${port}`, `[::1]:${port}`,
      `localhost.:${port}`, `user@localhost:${port}`, '127.0.0.1', 'localhost', 'localhost:1', '']) {
      const { status, text } = await request(url, host);
      assert.equal(status, misdirected, `${server}: ${host}`);
      const { code, message } = JSON.parse(text);
      assert.equal(code, 1000);
      assert.match(message, new RegExp(`127\\.0\\.0\\.1:${port}.*localhost:${port}`), server);
    }
  }
});

test('a bucket may stand in the host name of the store, and of no other server', async () => {
  for (const [server, url] of Object.entries(addresses)) {
    const { status } = await request(url, `${info.bucket}.localhost:${new URL(url).port}`);
    assert.equal(status === misdirected, !server.startsWith('store'), server);
  }
});

test('a refused request changes nothing and is not listed', async () => {
  const body = JSON.stringify({ file: 'store-503' });
  const headers = { 'Content-Type': 'application/json', 'Content-Length': body.length };
  const refused = await request(info.admin, 'rebound.example', { method: 'POST', path: '/faults', body, headers });
  assert.equal(refused.status, misdirected);
  assert.deepEqual((await control(info, 'GET', '/faults')).body, []);
  await control(info, 'DELETE', '/events');
  await control(info, 'DELETE', '/stats');
  for (const url of [info.backend, info.direct.backend]) {
    assert.equal((await request(url, 'rebound.example', { path: configPath })).status, misdirected);
  }
  assert.equal((await request(info.direct.uploadServer, 'rebound.example', { method: 'POST' })).status, misdirected);
  assert.deepEqual((await control(info, 'GET', '/events')).body, []);
  assert.equal((await control(info, 'GET', '/stats')).body.backend.requests, 0);
});
