// Starting and stopping: nothing stays behind, however it ends.
import assert from 'node:assert/strict';
import { execFile, spawn, spawnSync } from 'node:child_process';
import { createHash } from 'node:crypto';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';
import { PutObjectCommand } from '@aws-sdk/client-s3';
import { adminClient, control, credentials, main, sleep, start, uploadForm } from './Devstack.mjs';

const run = promisify(execFile);
const alive = (pid) => {
  try {
    return !/^State:\s+[ZX]/m.test(fs.readFileSync(`/proc/${pid}/status`, 'utf8'));
  } catch {
    return false;
  }
};
const allGone = async (pids, limitMs) => {
  for (const end = Date.now() + limitMs; Date.now() < end; await sleep(50)) if (!pids.some(alive)) return true;
  return false;
};
/** The processes with this text in their command line. */
const processesNaming = (text) => fs.readdirSync('/proc').filter((pid) => {
  try {
    return /^\d+$/.test(pid) && fs.readFileSync(`/proc/${pid}/cmdline`, 'utf8').includes(text);
  } catch {
    return false;  // it has just ended
  }
});

test('SIGTERM, SIGINT and a closed standard input stop everything within two seconds', async () => {
  for (const how of ['SIGTERM', 'SIGINT', 'stdin']) {
    const stack = await start();
    const pids = Object.values(stack.info.pids);
    assert.equal(pids.length, 4);
    assert.ok(pids.every(alive));
    const begin = Date.now();
    if (how === 'stdin') stack.child.stdin.end();
    else stack.child.kill(how);
    assert.deepEqual(await stack.ended, { code: 0, signal: null }, how);
    assert.ok(Date.now() - begin < 2000, `${how}: ${Date.now() - begin} ms`);
    assert.ok(!pids.some(alive), how);
    for (const file of ['devstack.json', 'qxuploader.toml']) assert.ok(!fs.existsSync(path.join(stack.state, file)), file);
    fs.rmSync(stack.state, { recursive: true });
  }
});

test('after SIGKILL nothing stays, and the same folder can be used again', async (t) => {
  const stack = await start();
  const pids = Object.values(stack.info.pids);
  stack.child.kill('SIGKILL');
  await stack.ended;
  assert.ok(await allGone(pids, 10_000));
  const again = spawn(process.execPath, [main, '--state', stack.state], { stdio: ['ignore', 'pipe', 'ignore'] });
  t.after(() => again.kill('SIGKILL'));
  await new Promise((resolve) => again.stdout.once('data', resolve));
  again.kill('SIGTERM');
  await new Promise((resolve) => again.on('exit', resolve));
  fs.rmSync(stack.state, { recursive: true });
});

test('a stop while it starts ends well and leaves nothing', async (t) => {
  const state = fs.mkdtempSync(path.join(os.tmpdir(), 'devstack-test-'));
  for (const ms of [100, 400, 700, 1000, 1300, 1600]) {
    const child = spawn(process.execPath, [main, '--state', state], { stdio: 'ignore' });
    t.after(() => child.kill('SIGKILL'));
    const ended = new Promise((resolve) => child.on('exit', resolve));
    await sleep(ms);
    child.kill('SIGTERM');
    await ended;
    assert.ok(await allGone(processesNaming(state), 2000), `${ms} ms`);
  }
  fs.rmSync(state, { recursive: true });
});

test('a running devstack refuses a second one, and keeps its folder and its words private', async (t) => {
  const stack = await start();
  t.after(() => stack.child.kill('SIGKILL'));
  await t.test('a second start in the same folder is refused and harms nothing', async () => {
    const second = spawnSync(process.execPath, [main, '--state', stack.state], { encoding: 'utf8' });
    assert.equal(second.status, 1);
    assert.match(second.stderr, /already runs in .* \(process \d+\)/);
    await credentials(stack.info);
  });
  await t.test('the settings of the command-line host say where it is and who its first user is', () => {
    const read = 'import json, sys, tomllib; print(json.dumps(tomllib.load(open(sys.argv[1], "rb"))))';
    const { stdout } = spawnSync('python3', ['-c', read, path.join(stack.state, 'qxuploader.toml')], { encoding: 'utf8' });
    const { backend, uploadServer, store, users: [user] } = stack.info;
    assert.deepEqual(JSON.parse(stdout),
      { backend, upload_server: uploadServer, store, user_id: user.userId, token: user.accessToken });
  });
  await t.test('the folder and what holds keys are private, and no secret is said', () => {
    const mode = (name) => (fs.statSync(path.join(stack.state, name)).mode & 0o777).toString(8);
    assert.deepEqual(
      ['.', 'devstack.json', 'qxuploader.toml', 'store/keyring', 'tls/ca.key'].map(mode),
      ['700', '600', '600', '600', '600']);
    for (const secret of [stack.info.adminSecretKey, ...stack.info.users.map((u) => u.accessToken)]) {
      assert.ok(!stack.said().includes(secret));
    }
  });
  await stack.stop();
});

test('without --cluster the loss of the storage daemon stops the devstack, which says so', async (t) => {
  const stack = await start();
  t.after(() => stack.child.kill('SIGKILL'));
  for (const [method, body] of [['GET'], ['POST', { start: 'ceph-osd.0' }]]) {
    assert.deepEqual((await control(stack.info, method, '/storage-daemons', body)).status, 400);
  }
  process.kill(stack.info.pids['ceph-osd.0'], 'SIGKILL');
  assert.deepEqual(await stack.ended, { code: 1, signal: null });
  assert.match(stack.said(), /ceph-osd\.0 ended \(signal SIGKILL\); see the logs/);
  assert.ok(!Object.values(stack.info.pids).some(alive));
  fs.rmSync(stack.state, { recursive: true });
});

test('missing store programs are named, with the way to another store', () => {
  const bin = fs.mkdtempSync(path.join(os.tmpdir(), 'devstack-bin-'));
  const state = path.join(bin, 'state');
  const { status, stderr } = spawnSync(process.execPath, [main, '--state', state], { encoding: 'utf8', env: { PATH: bin } });
  assert.equal(status, 1);
  assert.match(stderr, /missing ceph-mon, .*radosgw.*--store URL/);
  assert.equal(stderr.trim().split('\n').length, 1);
  fs.rmSync(bin, { recursive: true });
});

test('another store can stand behind the devstack, and objects.mjs reads it', async (t) => {
  const first = await start();
  t.after(() => first.child.kill('SIGKILL'));
  const env = { ...process.env, OTHER_KEY: first.info.adminAccessKey, OTHER_SECRET: first.info.adminSecretKey };
  const state = fs.mkdtempSync(path.join(os.tmpdir(), 'devstack-test-'));
  const child = spawn(process.execPath, [main, '--state', state, '--store', first.info.direct.store,
    '--store-access-key-env', 'OTHER_KEY', '--store-secret-key-env', 'OTHER_SECRET'],
  { env, stdio: ['ignore', 'pipe', 'ignore'] });
  t.after(() => child.kill('SIGKILL'));
  await new Promise((resolve) => child.stdout.once('data', resolve));
  const info = JSON.parse(fs.readFileSync(path.join(state, 'devstack.json'), 'utf8'));
  const { 'item-image': record } = await credentials(info);
  const { default: sharp } = await import('sharp');
  const image = await sharp({ create: { width: 64, height: 32, channels: 3, background: 'green' } }).png().toBuffer();
  assert.equal((await fetch(info.uploadServer, { method: 'POST', body: uploadForm(record, image) })).status, 200);
  const odd = 'items/100001/a b+%=(ü)//.x';
  await adminClient(info).send(new PutObjectCommand({ Bucket: info.bucket, Key: odd, Body: 'hello',
    ContentType: 'text/plain' }));

  const tool = fileURLToPath(new URL('../objects.mjs', import.meta.url));
  const objects = async (...args) => JSON.parse((await run(process.execPath, [tool, ...args])).stdout);
  const list = await objects('--state', state, 'list', 'items/');
  assert.deepEqual(list.map((o) => o.key).sort(), [odd, 'items/100001/picture.webp'].sort());
  const file = path.join(state, 'got');
  const got = await objects('--state', state, 'get', odd, file);
  assert.deepEqual(got, { key: odd, size: 5, sha256: createHash('sha256').update('hello').digest('hex'),
    contentType: 'text/plain' });
  assert.equal(fs.readFileSync(file, 'utf8'), 'hello');
  await objects('--state', state, 'get', 'items/100001/picture.webp', file);
  assert.deepEqual(await objects('webp-size', file), { width: 64, height: 32, format: 'webp' });
  assert.equal((await objects('--state', state, 'head', odd)).size, 5);
  await objects('--state', state, 'delete', odd);
  await assert.rejects(objects('--state', state, 'head', odd));

  assert.equal((await control(info, 'GET', '/stats')).body.backend.requests, 1);
  child.kill('SIGTERM');
  await new Promise((resolve) => child.on('exit', resolve));
  fs.rmSync(state, { recursive: true });
  await first.stop();
});
