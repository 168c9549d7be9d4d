// Starting and stopping: no process or folder stays behind, however the devstack ends.
import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { test } from 'node:test';
import { control, credentials, main, sleep, start } from './Devstack.mjs';

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
    return false;  // The process has just ended.
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
