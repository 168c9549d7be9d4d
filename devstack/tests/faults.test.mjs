// The fault proxies: they are transparent without faults, and each kind of fault does what its
// description says.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { createHash, randomBytes } from 'node:crypto';
import fs from 'node:fs';
import http from 'node:http';
import net from 'node:net';
import path from 'node:path';
import { after, before, beforeEach, test } from 'node:test';
import tls from 'node:tls';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';
import { GetObjectCommand, PutObjectCommand } from '@aws-sdk/client-s3';
import { checkFault } from '../lib/FaultProxy.mjs';
import { clientFor, configPath, control, credentials, message, start } from './Devstack.mjs';

const run = promisify(execFile);
const folder = fileURLToPath(new URL('../faults', import.meta.url));
let stack;
let info;
let record;
let client;
const Key = 'items/100001/f.bin';
before(async () => {
  stack = await start();
  info = stack.info;
  record = (await credentials(info))['item-image'];
  client = clientFor(info.store, record);
});
after(() => stack.stop());
beforeEach(async () => {
  await control(info, 'DELETE', '/faults');
  await control(info, 'DELETE', '/stats');
});

const fault = (file, changed) => control(info, 'POST', '/faults', { file, ...changed });
const put = async (Body = 'x') => {
  try {
    return (await client.send(new PutObjectCommand({ Bucket: info.bucket, Key, Body }))).$metadata.httpStatusCode;
  } catch (error) {
    return `${error.$metadata?.httpStatusCode ?? ''}${error.code ?? error.name}`;
  }
};
const config = () => message(info.backend, info.users[0], 'GET', configPath);
/** A bare exchange over a socket: what came back until it ended, or how it failed, or after waitMs. */
const exchange = (url, text, waitMs = 3000) => new Promise((resolve) => {
  const { host, port } = new URL(url);
  const socket = net.connect(port, '127.0.0.1', () => socket.write(text.replace('Host: x', `Host: ${host}`)));
  let got = '';
  const done = (how) => {
    clearTimeout(timer);
    socket.destroy();
    resolve({ got, how });
  };
  const timer = setTimeout(() => done('waiting'), waitMs);
  socket.on('data', (chunk) => { got += chunk.toString('latin1'); });
  socket.on('end', () => done('end'));
  socket.on('error', (error) => done(error.code));
});
const request = (method, target, headers = '', body = '') =>
  `${method} ${target} HTTP/1.1\r\nHost: x\r\n${headers}\r\n${body}`;

test('every fault file is well-formed and named as its file', () => {
  const files = fs.readdirSync(folder);
  assert.ok(files.length > 30);
  for (const file of files) {
    const read = checkFault(JSON.parse(fs.readFileSync(path.join(folder, file), 'utf8')));
    assert.equal(`${read.name}.json`, file);
    assert.ok(read.description, file);
  }
});

test('without faults large bodies pass unchanged both ways, and signatures verify', async () => {
  const bytes = randomBytes(20_000_000);
  assert.equal(await put(bytes), 200);
  const answer = await client.send(new GetObjectCommand({ Bucket: info.bucket, Key }));
  const back = await answer.Body.transformToByteArray();
  const hash = (b) => createHash('sha256').update(b).digest('hex');
  assert.equal(hash(back), hash(bytes));
});

test('Expect: 100-continue passes end to end, and a refusal comes before the body', async () => {
  const head = request('PUT', `/${info.bucket}/items/100001/x`, 'Expect: 100-continue\r\nContent-Length: 5\r\n');
  const { got } = await exchange(info.store, head, 1000);
  assert.match(got, /^HTTP\/1\.1 403 /);  // The store refuses the unsigned request without its body.
  const form = await exchange(info.uploadServer, request('POST', '/',
    'Expect: 100-continue\r\nContent-Type: text/plain\r\nContent-Length: 5\r\n'), 500);
  assert.match(form.got, /^HTTP\/1\.1 100 Continue\r\n\r\n/);
});

test('curl uploads a large body through the proxy with Expect: 100-continue', async () => {
  const file = path.join(stack.state, 'big');
  fs.writeFileSync(file, randomBytes(3_000_000));
  const { stdout } = await run('curl', ['-s', '--noproxy', '*', '-T', file, '-H', 'Expect: 100-continue',
    '-H', 'x-amz-content-sha256: UNSIGNED-PAYLOAD', '-H', `x-amz-security-token: ${record.security_token}`,
    '--aws-sigv4', 'aws:amz:us-east-1:s3', '-u', `${record.access_key_id}:${record.access_key_secret}`,
    '-w', '%{http_code}', `${info.store}/${info.bucket}/${Key}`]);
  assert.equal(stdout, '200');
});

test('a fault with a count ends after it, and its hits are listed', async () => {
  await fault('store-503-once');
  assert.equal(await put(), '503ServiceUnavailable');
  assert.equal(await put(), 200);
  const { body } = await control(info, 'GET', '/faults');
  assert.deepEqual(body.map((f) => [f.name, f.hits, f.left]), [['store-503-once', 1, 0]]);
  await control(info, 'DELETE', '/faults');
  assert.deepEqual((await control(info, 'GET', '/faults')).body, []);
});

test('members given with a file replace those of the file; after lets the first ones pass', async () => {
  await fault('store-403', { count: 1, after: 2 });
  assert.deepEqual([await put(), await put(), await put(), await put()], [200, 200, '403AccessDenied', 200]);
});

test('a fault applies to its method and path only', async () => {
  await fault('store-500', { match: { method: 'PUT', pathPrefix: `/${info.bucket}/items/` } });
  assert.equal(await put(), '500InternalError');
  assert.equal((await fetch(`${info.store}/${info.bucket}/avatars/none`, { method: 'PUT' })).status, 403);
  assert.notEqual((await fetch(`${info.store}/${info.bucket}/items/none`)).status, 500);
});

test('wrong faults are refused with 400', async () => {
  for (const body of [{ file: 'none' }, { file: '../package' }, { name: 'x', target: 'nobody', action: { reset: true } },
    { name: 'x', target: 'store', action: { explode: true } }, { name: 'x', target: 'store', action: {} },
    { name: 'x', target: 'store', action: { stall: 'sometimes' } }]) {
    assert.equal((await control(info, 'POST', '/faults', body)).status, 400, JSON.stringify(body));
  }
});

test('reset and close end the connection in their own way', async () => {
  await fault('backend-reset');
  assert.deepEqual(await exchange(info.backend, request('GET', '/')), { got: '', how: 'ECONNRESET' });
  await control(info, 'DELETE', '/faults');
  await fault('backend-close');
  assert.deepEqual(await exchange(info.backend, request('GET', '/')), { got: '', how: 'end' });
});

test('a reset midway comes after the first bytes of the body', async () => {
  await fault('store-reset-midway');
  assert.equal(await put('small'), 200);
  assert.match(await put(Buffer.alloc(8_000_000)), /ECONNRESET|EPIPE/);
});

test('stalls: after the head, after 100 Continue, after the body', async () => {
  const head = request('PUT', '/x', 'Expect: 100-continue\r\nContent-Length: 5\r\n');
  await fault('store-stall');
  assert.deepEqual(await exchange(info.store, head, 400), { got: '', how: 'waiting' });
  await control(info, 'DELETE', '/faults');
  await fault('store-stall-after-continue');
  assert.deepEqual(await exchange(info.store, head, 400), { got: 'HTTP/1.1 100 Continue\r\n\r\n', how: 'waiting' });
  await control(info, 'DELETE', '/faults');
  await fault('store-stall-after-body');
  assert.deepEqual(await exchange(info.store, request('PUT', '/x', 'Content-Length: 5\r\n', 'hello'), 400),
    { got: '', how: 'waiting' });
});

test('downloads are cut or stand still after 1000 bytes', async () => {
  await put(Buffer.alloc(5000, 'a'));
  await fault('store-truncated-download');
  const target = `/${info.bucket}/${Key}`;
  const cut = await exchange(info.store, request('GET', target), 2000);
  assert.match(cut.got, /content-length: 5000/i);
  assert.equal(cut.got.split('\r\n\r\n')[1].length, 1000);
  assert.equal(cut.how, 'end');
  await control(info, 'DELETE', '/faults');
  await fault('store-stalled-download');
  const still = await exchange(info.store, request('GET', target), 500);
  assert.equal(still.got.split('\r\n\r\n')[1].length, 1000);
  assert.equal(still.how, 'waiting');
});

test('delays wait, throttles slow down', async () => {
  await fault('store-delay');
  let begin = Date.now();
  await put();
  assert.ok(Date.now() - begin >= 495);
  await control(info, 'DELETE', '/faults');
  await fault('store-slow-upload');
  begin = Date.now();
  assert.equal(await put(Buffer.alloc(262_144)), 200);
  assert.ok(Date.now() - begin >= 900);
});

test('redirects name this store or another one', async () => {
  const location = async () => (await fetch(`${info.store}/a?b`, { redirect: 'manual' })).headers.get('location');
  await fault('store-307-once');
  assert.equal(await location(), `${info.store}/a?b`);
  assert.equal(await location(), null);
  await fault('store-301-elsewhere');
  assert.equal(await location(), 'http://127.0.0.2:9/a?b');
});

test('a skewed clock refuses until the client signs with the time of the answer', async () => {
  await fault('store-skewed-clock');
  const error = await client.send(new PutObjectCommand({ Bucket: info.bucket, Key, Body: 'x' })).catch((e) => e);
  assert.equal(error.name, 'RequestTimeTooSkewed');
  const ahead = (Date.parse(error.$response?.headers.date) - Date.now()) / 1000;
  assert.ok(ahead > 590 && ahead < 610, `${ahead}`);
  client.config.systemClockOffset = 600_000;
  assert.equal(await put(), 200);
  client.config.systemClockOffset = 0;
});

test('the backend answers garbage, errors and too much', async () => {
  const raw = async () => {
    const answer = await fetch(info.backend + configPath);
    return { status: answer.status, text: await answer.text() };
  };
  await fault('backend-garbage', { count: 1 });
  const { status, text } = await raw();
  assert.equal(status, 200);
  assert.throws(() => JSON.parse(text));
  await fault('backend-500-record', { count: 1 });
  assert.deepEqual(await config(), { status: 500, body: { code: 1000, message: 'the database is away' } });
  await fault('backend-too-large', { count: 1 });
  assert.equal((await raw()).text.length, 17 * 1024 * 1024);
  assert.equal((await config()).status, 200);
});

test('the upload server answers 201, 413 and 500, 413 also before the body', async () => {
  for (const status of [201, 413, 500]) {
    await fault(`upload-${status}`, { count: 1 });
    assert.equal((await fetch(info.uploadServer, { method: 'POST', body: 'x' })).status, status);
  }
  await fault('upload-413-early');
  const { got, how } = await exchange(info.uploadServer, request('POST', '/', 'Content-Length: 1000000\r\n', 'x'));
  assert.match(got, /^HTTP\/1\.1 413 /);
  assert.equal(how, 'end');
});

test('a target that is down refuses connections and comes back at the same address', async () => {
  for (const target of ['backend', 'uploadServer', 'store']) {
    const url = info[target];
    const keep = new http.Agent({ keepAlive: true });
    await new Promise((resolve) => http.get(url, { agent: keep }, (r) => r.resume().on('end', resolve)));
    await control(info, 'POST', '/down', { target });
    assert.equal((await exchange(url, '')).how, 'ECONNREFUSED');
    assert.equal((await control(info, 'GET', '/stats')).body[target].down, true);
    await control(info, 'POST', '/down', { target });  // A second call does no harm.
    await control(info, 'POST', '/up', { target });
    await control(info, 'POST', '/up', { target });
    assert.ok((await fetch(url)).status);
    keep.destroy();
  }
  assert.equal((await control(info, 'POST', '/down', { target: 'all' })).status, 400);
  assert.equal((await config()).status, 200);
});

test('stats count requests and how many were at work at once', async () => {
  await fault('store-delay');
  await Promise.all([put(), put(), put()]);
  await put();
  const { store, backend } = (await control(info, 'GET', '/stats')).body;
  assert.deepEqual([store.requests, store.maxInFlight, store.inFlight], [4, 3, 0]);
  assert.deepEqual([store.methods, store.statuses], [{ PUT: 4 }, { 200: 4 }]);
  assert.equal(backend.requests, 0);
});

test('the TLS door is trusted by the CA file, the wrong one is not', async () => {
  const ca = fs.readFileSync(info.caFile);
  const connect = (url, servername) => new Promise((resolve) => {
    const socket = tls.connect({ host: '127.0.0.1', port: new URL(url).port, servername, ca }, () => {
      socket.destroy();
      resolve('trusted');
    });
    socket.on('error', (error) => resolve(error.code));
  });
  assert.equal(await connect(info.storeTls, 'localhost'), 'trusted');
  assert.equal(await connect(info.storeWrongTls, 'localhost'), 'DEPTH_ZERO_SELF_SIGNED_CERT');
  assert.equal(await connect(info.storeTls, 'example.org'), 'ERR_TLS_CERT_ALTNAME_INVALID');
  const { stdout } = await run('curl', ['-s', '--noproxy', '*', '--cacert', info.caFile, '-o', '/dev/null',
    '-w', '%{http_code}', '-T', fileURLToPath(import.meta.url), '-H', 'x-amz-content-sha256: UNSIGNED-PAYLOAD',
    '-H', `x-amz-security-token: ${record.security_token}`, '--aws-sigv4', 'aws:amz:us-east-1:s3',
    '-u', `${record.access_key_id}:${record.access_key_secret}`, `${info.storeTls}/${info.bucket}/${Key}`]);
  assert.equal(stdout, '200');
});
