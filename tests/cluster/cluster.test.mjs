// A devstack with three storage daemons loses one during background uploads of the library, gets it
// back, loses another, and is stopped and started again. Every object is there and whole.
// $QXUPLOADER names the program that uploads.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { createHash, randomBytes } from 'node:crypto';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { after, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';
import { control, sleep, startIn } from '../../devstack/tests/Devstack.mjs';

const run = promisify(execFile);
const home = fs.mkdtempSync(path.join(os.tmpdir(), 'cluster-test-'));
const state = path.join(home, 'devstack');
const objectsTool = fileURLToPath(new URL('../../devstack/objects.mjs', import.meta.url));
let stack;
after(() => {
  stack?.child.kill('SIGKILL');
  fs.rmSync(home, { recursive: true, force: true, maxRetries: 20 });
});

const sha256 = (file) => createHash('sha256').update(fs.readFileSync(file)).digest('hex');

/** As many files of different sizes, up to 300 KB, in a new folder. */
function files(name, count) {
  const folder = path.join(home, name);
  fs.mkdirSync(folder);
  for (let i = 0; i < count; i++) {
    fs.writeFileSync(path.join(folder, `${i}.bin`), randomBytes(1 + Math.floor(300_000 * (i / count) ** 2)));
  }
  return folder;
}

/** Uploads a folder in the background; resolves to [name of the object, SHA-256] of each once all have arrived. */
async function upload(folder) {
  const { backend, uploadServer, store, users: [user] } = stack.info;
  const { stdout } = await run(process.env.QXUPLOADER,
    ['background', folder, '--scope', 'private-file', '--wait', '--json', '--concurrent', '3'],
    { timeout: 300_000, maxBuffer: 16 << 20, env: { PATH: process.env.PATH, HOME: home,
      QXUPLOADER_DOCUMENTS: path.join(home, 'documents'), QXUPLOADER_BACKEND: backend,
      QXUPLOADER_UPLOAD_SERVER: uploadServer, QXUPLOADER_STORE: store, QXUPLOADER_USER_ID: user.userId,
      QXUPLOADER_TOKEN: user.accessToken } });
  const events = stdout.trim().split('\n').map((line) => JSON.parse(line));
  return events.filter((e) => e.event === 'uploaded').map((e) => [path.basename(e.url), sha256(e.file)]);
}

/** What an independent client finds in the store: {name of the object: SHA-256}. */
async function stored() {
  const folder = fs.mkdtempSync(path.join(home, 'stored-'));
  const prefix = `private/${stack.info.users[0].userId}/`;
  await run(process.execPath, [objectsTool, '--state', state, 'get-all', prefix, folder], { timeout: 120_000 });
  return Object.fromEntries(fs.readdirSync(folder).map((name) => [name, sha256(path.join(folder, name))]));
}

async function until(condition, what, limitMs = 120_000) {
  for (const end = Date.now() + limitMs; !await condition(); await sleep(50)) {
    assert.ok(Date.now() < end, `waited in vain until ${what}`);
  }
}

const arrived = async () => (await control(stack.info, 'GET', '/stats')).body.store.statuses[200] ?? 0;
const daemons = async () => (await control(stack.info, 'GET', '/storage-daemons')).body;
const running = async () => Object.fromEntries((await daemons()).daemons.map((d) => [d.name, d.running]));
const pids = () => JSON.parse(fs.readFileSync(path.join(state, 'devstack.json'), 'utf8')).pids;

async function lose(name) {
  process.kill(pids()[name], 'SIGKILL');
  await until(async () => !(await running())[name], `${name} is seen to have ended`);
}

test('three storage daemons outlive the loss of one at a time', async (t) => {
  stack = await startIn(state, '--cluster');
  const objects = [];
  const { info, said } = stack;

  await t.test('all run, and one that runs is not started again', async () => {
    const { needed, running: count, daemons: list } = await daemons();
    assert.deepEqual([needed, count], [2, 3]);
    assert.deepEqual(list.map((d) => [d.name, d.running, d.pid, d.ended]),
      [0, 1, 2].map((i) => [`ceph-osd.${i}`, true, pids()[`ceph-osd.${i}`], null]));
    const again = await control(info, 'POST', '/storage-daemons', { start: 'ceph-osd.0' });
    assert.deepEqual([again.status, again.body.message], [409, 'ceph-osd.0 runs already']);
    for (const start of ['ceph-osd.3', 'radosgw', 'toString', undefined]) {
      assert.equal((await control(info, 'POST', '/storage-daemons', { start })).status, 400, start);
    }
  });

  await t.test('one is killed under 60 background uploads, which all arrive', async () => {
    await control(info, 'POST', '/faults', { name: 'slow', target: 'store', match: { method: 'PUT' },
      action: { delayMs: 150 } });
    const uploads = upload(files('first', 60));
    await Promise.race([uploads, until(async () => await arrived() >= 10, '10 objects have arrived')]);
    await lose('ceph-osd.0');
    const arrivedBefore = await arrived();
    assert.ok(arrivedBefore < 50, `${arrivedBefore} had arrived when the daemon was lost`);
    objects.push(...await uploads);
    assert.equal(objects.length, 60);
    assert.deepEqual(await running(), { 'ceph-osd.0': false, 'ceph-osd.1': true, 'ceph-osd.2': true });
    assert.equal((await daemons()).daemons[0].ended, 'signal SIGKILL');
    assert.match(said(), /ceph-osd\.0 ended \(signal SIGKILL\); the store goes on with 2 of 3 storage daemons/);
    assert.equal(pids()['ceph-osd.0'], undefined);
    await control(info, 'DELETE', '/faults');
  });

  await t.test('it is brought back, another is killed at once, and uploads go on', async () => {
    const { status, body } = await control(info, 'POST', '/storage-daemons', { start: 'ceph-osd.0' });
    assert.deepEqual([status, body.running], [200, 3]);
    assert.match(said(), /ceph-osd\.0 runs again; the store goes on with 3 of 3 storage daemons/);
    assert.equal(pids()['ceph-osd.0'], body.daemons[0].pid);
    await lose('ceph-osd.1');
    objects.push(...await upload(files('second', 12)));
    assert.equal(objects.length, 72);
  });

  await t.test('after a stop and a start every object is there as it was sent, and no other', async () => {
    assert.deepEqual(await stack.stop({ keep: true }), { code: 0, signal: null });
    stack = await startIn(state, '--cluster');
    assert.equal((await daemons()).running, 3);
    assert.deepEqual(await stored(), Object.fromEntries(objects));
  });

  await t.test('every pool keeps three copies and needs two', async () => {
    const { stdout } = await run('ceph', ['-c', path.join(state, 'store/ceph.conf'), 'osd', 'dump', '-f', 'json']);
    const { pools } = JSON.parse(stdout);
    assert.ok(pools.some((p) => p.pool_name.endsWith('buckets.data')));
    for (const { pool_name: name, size, min_size: least } of pools) assert.deepEqual([size, least], [3, 2], name);
  });

  await t.test('two lost daemons make the store wait, and lose nothing either', async () => {
    for (const name of ['ceph-osd.1', 'ceph-osd.2']) await lose(name);
    assert.match(stack.said(), /ceph-osd\.2 ended .*; the store stands still with 1 of 3 storage daemons, it needs 2/);
    const uploads = upload(files('third', 3));
    for (const name of ['ceph-osd.1', 'ceph-osd.2']) {
      assert.equal((await control(stack.info, 'POST', '/storage-daemons', { start: name })).status, 200);
    }
    objects.push(...await uploads);
    assert.deepEqual(await stored(), Object.fromEntries(objects));
    assert.equal(objects.length, 75);
  });
  assert.deepEqual(await stack.stop({ keep: true }), { code: 0, signal: null });
});
