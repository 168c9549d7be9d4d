// The devstack in front of a store that runs already, here two gateways at one address: with the
// store's own keys, and with its token service.
import assert from 'node:assert/strict';
import { execFile, spawn, spawnSync } from 'node:child_process';
import { createHash, randomBytes } from 'node:crypto';
import fs from 'node:fs';
import net from 'node:net';
import os from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';
import { GetObjectCommand, PutObjectCommand } from '@aws-sdk/client-s3';
import { adminClient, clientFor, control, credentials, main, sleep, start, uploadForm } from './Devstack.mjs';

const run = promisify(execFile);
const tool = fileURLToPath(new URL('../objects.mjs', import.meta.url));
const objects = async (...args) => JSON.parse((await run(process.execPath, [tool, ...args])).stdout);
const byName = { '--store-access-key-env': 'OWN_KEY', '--store-secret-key-env': 'OWN_SECRET' };
const keys = Object.entries(byName).flat();

let store;     // The devstack whose store is used.
let secondGateway;
let balancer;  // Passes connections to the two gateways in turn.
let address;
const connections = [0, 0];

before(async () => {
  store = await start();
  process.env.OWN_KEY = store.info.adminAccessKey;
  process.env.OWN_SECRET = store.info.adminSecretKey;
  balancer = net.createServer();
  await new Promise((resolve) => balancer.listen(0, '127.0.0.1', resolve));
  address = `http://127.0.0.1:${balancer.address().port}`;
  const ports = [new URL(store.info.direct.store).port, await startSecondGateway()];
  let next = 0;
  balancer.on('connection', (client) => {
    next = 1 - next;
    connections[next]++;
    const gateway = net.connect(ports[next], '127.0.0.1');
    client.pipe(gateway).pipe(client);
    client.on('error', () => gateway.destroy()).on('close', () => gateway.destroy());
    gateway.on('error', () => client.destroy());
  });
});
after(async () => {
  balancer?.close();
  secondGateway?.kill('SIGKILL');
  await store?.stop();
});

const conf = () => path.join(store.state, 'store/ceph.conf');

/** One more gateway of the same store, with the same settings. Resolves to its port. */
async function startSecondGateway() {
  const taken = net.createServer();
  await new Promise((resolve) => taken.listen(0, '127.0.0.1', resolve));
  const { port } = taken.address();
  await new Promise((resolve) => taken.close(resolve));
  secondGateway = spawn('setpriv', ['--pdeathsig', 'KILL', 'radosgw', '-c', conf(), '-n', 'client.rgw.a', '-f',
    '--keyring', path.join(store.state, 'store/rgw/keyring'), '--rgw-frontends', `beast endpoint=127.0.0.1:${port}`],
  { stdio: 'ignore' });
  for (;; await sleep(100)) {
    assert.equal(secondGateway.exitCode, null);
    try {
      await fetch(`http://127.0.0.1:${port}`);
      return port;
    } catch { /* not yet */ }
  }
}

const hash = (bytes) => createHash('sha256').update(bytes).digest('hex');

async function putAndGet(info, record) {
  const Key = `${record.authorized_path}${randomBytes(4).toString('hex')}`;
  const bytes = randomBytes(100_000);
  const s3 = clientFor(info.store, record);
  await s3.send(new PutObjectCommand({ Bucket: info.bucket, Key, Body: bytes }));
  const { Body } = await s3.send(new GetObjectCommand({ Bucket: info.bucket, Key }));
  assert.equal(hash(await Body.transformToByteArray()), hash(bytes));
  s3.destroy();
}

async function uploadPicture(info, record) {
  const { default: sharp } = await import('sharp');
  const image = await sharp({ create: { width: 64, height: 32, channels: 3, background: 'green' } }).png().toBuffer();
  assert.equal((await fetch(info.uploadServer, { method: 'POST', body: uploadForm(record, image) })).status, 200);
}

test('without a token service the keys come with an empty token, and everything works with them', async (t) => {
  const stack = await start('--store', address, ...keys);
  t.after(() => stack.child.kill('SIGKILL'));
  const { info, state } = stack;
  const map = await credentials(info);
  for (const record of Object.values(map)) {
    assert.equal(record.security_token, '');
    assert.equal(record.access_key_id, info.adminAccessKey);
    await putAndGet(info, record);
  }
  await uploadPicture(info, map['item-image']);

  const odd = 'items/100001/a b+%=(ü)//.x';
  await adminClient(info).send(new PutObjectCommand({ Bucket: info.bucket, Key: odd, Body: 'hello',
    ContentType: 'text/plain' }));
  const list = (await objects('--state', state, 'list', 'items/')).map((o) => o.key);
  assert.ok(list.includes(odd) && list.includes('items/100001/picture.webp'), list.join());
  assert.equal(list.length, 3);
  const file = path.join(state, 'got');
  const got = await objects('--state', state, 'get', odd, file);
  assert.deepEqual(got, { key: odd, size: 5, sha256: hash('hello'), contentType: 'text/plain' });
  assert.equal(fs.readFileSync(file, 'utf8'), 'hello');
  await objects('--state', state, 'get', 'items/100001/picture.webp', file);
  assert.deepEqual(await objects('webp-size', file), { width: 64, height: 32, format: 'webp' });
  assert.equal((await objects('--state', state, 'head', odd)).size, 5);
  await objects('--state', state, 'delete', odd);
  await assert.rejects(objects('--state', state, 'head', odd));

  assert.equal((await control(info, 'GET', '/stats')).body.backend.requests, 1);
  assert.equal((await control(info, 'GET', '/storage-daemons')).status, 400);
  assert.deepEqual(await stack.stop(), { code: 0, signal: null });
});

test('with its token service and a role, through any of its gateways', async (t) => {
  const admin = (...args) => run('radosgw-admin', ['-c', conf(), ...args]);
  await admin('role', 'create', '--role-name=Own', '--assume-role-policy-doc=' + JSON.stringify({
    Version: '2012-10-17', Statement: [{ Effect: 'Allow', Principal: { AWS: ['arn:aws:iam:::user/owner'] },
      Action: ['sts:AssumeRole'] }] }));
  await admin('role-policy', 'put', '--role-name=Own', '--policy-name=uploads', '--policy-doc=' + JSON.stringify({
    Version: '2012-10-17', Statement: [{ Effect: 'Allow', Action: ['s3:PutObject', 's3:GetObject'],
      Resource: ['arn:aws:s3:::uploads/*'] }] }));
  const stack = await start('--store', address, '--sts', address, '--role-arn', 'arn:aws:iam:::role/Own', ...keys);
  t.after(() => stack.child.kill('SIGKILL'));
  const { info } = stack;
  connections.fill(0);
  for (let i = 0; i < 6; i++) {
    const map = await credentials(info);
    assert.notEqual(map.avatar.security_token, '');
    assert.notEqual(map.avatar.access_key_id, info.adminAccessKey);
    await Promise.all([putAndGet(info, map.avatar), putAndGet(info, map['item-image'])]);
    await uploadPicture(info, map['item-image']);
    await assert.rejects(putAndGet(info, { ...map.avatar, authorized_path: map['item-image'].authorized_path }),
      (error) => error.$metadata.httpStatusCode === 403);
  }
  assert.ok(Math.min(...connections) >= 3, connections.join());
  assert.deepEqual(await stack.stop(), { code: 0, signal: null });
});

test('an address of a store that cannot be used is refused without being repeated', () => {
  const state = fs.mkdtempSync(path.join(os.tmpdir(), 'devstack-test-'));
  for (const bad of [`${address}/path`, address.replace('//', '//user:pass@'), 'ftp://127.0.0.1', '127.0.0.1:80']) {
    const { status, stderr } = spawnSync(process.execPath, [main, '--state', state, '--store', bad, ...keys],
      { encoding: 'utf8' });
    assert.equal(status, 1, bad);
    assert.match(stderr, /--store is not an address of the form http\[s\]:\/\/HOST\[:PORT\]/, bad);
    assert.ok(!stderr.includes('pass@'));
  }
  fs.rmSync(state, { recursive: true });
});
