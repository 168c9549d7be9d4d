// A real object store on loopback: one Ceph monitor, one or three storage daemons and the S3 gateway
// with its token service, as foreground children of this process. Needs neither root nor systemd,
// containers or block devices.
//
// There are two forms. In the first, one storage daemon keeps everything in memory; it starts in
// seconds and is empty at every start. In the second, three storage daemons on disk keep three
// replicas in the state folder, from run to run; two of the three are enough to read and write.
import { randomBytes, randomUUID } from 'node:crypto';
import fs from 'node:fs';
import net from 'node:net';
import path from 'node:path';
import { CreateBucketCommand, PutBucketPolicyCommand } from '@aws-sdk/client-s3';
import { run } from './Children.mjs';
import { StorageDaemons } from './StorageDaemons.mjs';
import { storeClient } from './StoreClient.mjs';

const programs = ['ceph-mon', 'ceph-osd', 'radosgw', 'radosgw-admin', 'ceph', 'monmaptool', 'setpriv'];
const readyName = 'ready.json';

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

/** The programs that are missing here, by name. */
export function missingPrograms() {
  const folders = (process.env.PATH ?? '').split(':');
  return programs.filter((p) => !folders.some((f) => {
    try {
      fs.accessSync(path.join(f, p), fs.constants.X_OK);
      return true;
    } catch {
      return false;
    }
  }));
}

/** n different free ports on loopback, found by binding them all at once. */
async function freePorts(n) {
  const servers = await Promise.all(Array.from({ length: n }, () => new Promise((resolve, reject) => {
    const server = net.createServer();
    server.on('error', reject);
    server.listen(0, '127.0.0.1', () => resolve(server));
  })));
  const ports = servers.map((s) => s.address().port);
  await Promise.all(servers.map((s) => new Promise((resolve) => s.close(resolve))));
  return ports;
}

/** A secret in the form the monitor reads: type 1 (AES), creation time, length 16, 16 bytes. */
function cephKey() {
  const key = Buffer.alloc(28);
  key.writeUInt16LE(1, 0);
  key.writeUInt32LE(Math.floor(Date.now() / 1000), 2);
  key.writeUInt16LE(16, 10);
  randomBytes(16).copy(key, 12);
  return key.toString('base64');
}

function keyring(entries) {
  return entries.map(([name, key, caps]) => `[${name}]\n\tkey = ${key}\n` +
    Object.entries(caps ?? {}).map(([k, v]) => `\tcaps ${k} = "${v}"\n`).join('')).join('');
}

/** How many of so many storage daemons must run for the store to read and write. */
const neededOf = (osds) => (osds >= 3 ? 2 : 1);

function configuration({ folder, fsid, osds, memory, monPort, gatewayPort, stsKey }) {
  return `[global]
fsid = ${fsid}
mon initial members = a
mon host = [v2:127.0.0.1:${monPort}]
public addr = 127.0.0.1
cluster addr = 127.0.0.1
ms bind ipv6 = false
ms bind msgr1 = false
auth cluster required = cephx
auth service required = cephx
auth client required = cephx
auth allow insecure global id reclaim = false
keyring = ${folder}/keyring
run dir = ${folder}/run
pid file =
admin socket =
log file = ${folder}/log/$name.log
log to stderr = false
err to stderr = true
mon cluster log file = ${folder}/log/cluster.log
crash dir = ${folder}/log/crash
osd pool default size = ${osds}
osd pool default min size = ${neededOf(osds)}
osd pool default pg num = 8
osd pool default pgp num = 8
osd pool default pg autoscale mode = off
osd crush chooseleaf type = 0
mon allow pool size one = true
mon max pg per osd = 1000
mon warn on pool no redundancy = false
[mon]
# one monitor has nobody to wait for
paxos propose interval = 0.05
paxos min wait = 0.02
mon data = ${folder}/mon
mon data avail warn = 2
mon data avail crit = 1
mon osd min down reporters = 1
[osd]
osd data = ${folder}/osd.$id
osd objectstore = ${memory ? 'memstore' : 'bluestore'}
osd class update on start = false
bluestore block create = true
bluestore block size = ${8 * 2 ** 30}
bluestore cache size = ${64 * 2 ** 20}
osd memory target = ${2 ** 30}
memstore device bytes = ${8 * 2 ** 30}
bluestore fsck on mount = false
osd op num shards = 2
osd fast shutdown = true
[client.rgw.a]
rgw data = ${folder}/rgw
rgw frontends = beast endpoint=127.0.0.1:${gatewayPort} tcp_nodelay=1
rgw s3 auth order = sts, external, local
rgw dns name = localhost
rgw s3 auth use sts = true
rgw sts key = ${stsKey}
# 900 in production; small, so that expiry can be tested
rgw sts min session duration = 5
rgw enable usage log = false
rgw thread pool size = 64
`;
}

function rolePolicies(bucket) {
  return {
    assume: { Version: '2012-10-17', Statement: [{ Effect: 'Allow',
      Principal: { AWS: ['arn:aws:iam:::user/broker'] }, Action: ['sts:AssumeRole'] }] },
    allow: { Version: '2012-10-17', Statement: [{ Effect: 'Allow',
      Action: ['s3:PutObject', 's3:GetObject', 's3:DeleteObject', 's3:AbortMultipartUpload',
        's3:ListMultipartUploadParts'],
      Resource: [`arn:aws:s3:::${bucket}/*`] }] },
  };
}

/**
 * Starts the store below `folder` and waits until it takes objects.
 * Resolves to {url, region, bucket, roleArn, owner: {accessKey, secretKey}, broker: {...}, daemons}; daemons is
 * a StorageDaemons, or null where the loss of the only one ends the devstack.
 * publicPrefixes: what anybody may read without credentials.
 */
export async function startCeph({ folder, cluster, bucket, publicPrefixes, children, say }) {
  const readyFile = path.join(folder, readyName);
  let known = null;
  if (cluster && fs.existsSync(readyFile)) known = JSON.parse(fs.readFileSync(readyFile, 'utf8'));
  if (!known) fs.rmSync(folder, { recursive: true, force: true });
  const osds = cluster ? 3 : 1;
  const conf = path.join(folder, 'ceph.conf');
  const ids = Array.from({ length: osds }, (_, i) => i);
  const ceph = (args, options) => run('ceph', ['-c', conf, '--connect-timeout', '30', ...args], options);
  const admin = (args) => run('radosgw-admin', ['-c', conf, ...args]);
  const log = (name) => path.join(folder, 'log', `${name}.out`);

  let fresh = null;
  if (!known) {
    const [monPort, gatewayPort] = await freePorts(2);
    for (const f of ['run', 'log', 'mon', 'rgw', ...ids.map((i) => `osd.${i}`)]) {
      fs.mkdirSync(path.join(folder, f), { recursive: true, mode: 0o700 });
    }
    const fsid = randomUUID();
    const put = (name, text) => fs.writeFileSync(path.join(folder, name), text, { mode: 0o600 });
    put('ceph.conf', configuration({ folder, fsid, osds, memory: !cluster, monPort, gatewayPort,
      stsKey: randomBytes(8).toString('hex') }));
    // All keys are made here and given to the monitor at its start, which saves a round trip for
    // each key later.
    const osdKeys = ids.map(() => cephKey());
    const adminKey = cephKey();
    const gatewayKey = cephKey();
    const adminCaps = { mon: 'allow *', osd: 'allow *', mgr: 'allow *', mds: 'allow *' };
    const osdCaps = { mon: 'allow profile osd', mgr: 'allow profile osd', osd: 'allow *' };
    const gatewayCaps = { mon: 'allow rw', osd: 'allow rwx', mgr: 'allow rw' };
    put('keyring', keyring([['mon.', cephKey(), { mon: 'allow *' }], ['client.admin', adminKey, adminCaps]]));
    put('mon.keyring', fs.readFileSync(path.join(folder, 'keyring'), 'utf8') + keyring([
      ['client.rgw.a', gatewayKey, gatewayCaps], ...osdKeys.map((k, i) => [`osd.${i}`, k, osdCaps])]));
    put('rgw/keyring', keyring([['client.rgw.a', gatewayKey]]));
    osdKeys.forEach((k, i) => put(`osd.${i}/keyring`, keyring([[`osd.${i}`, k]])));
    const random = (n) => randomBytes(n).toString('hex');
    fresh = { fsid, osdIds: ids.map(() => randomUUID()), gatewayPort,
      owner: { accessKey: `OWNER${random(8).toUpperCase()}`, secretKey: random(20) },
      broker: { accessKey: `BROKER${random(7).toUpperCase()}`, secretKey: random(20) } };
    say('making the monitor');
    const monmap = path.join(folder, 'monmap');
    await run('monmaptool', ['--create', '--clobber', '--fsid', fsid, '--addv', 'a',
      `[v2:127.0.0.1:${monPort}]`, monmap]);
    await run('ceph-mon', ['-i', 'a', '-c', conf, '--mkfs', '--monmap', monmap,
      '--keyring', path.join(folder, 'mon.keyring')]);
    fs.rmSync(path.join(folder, 'mon.keyring'));
  }
  children.start('ceph-mon', 'ceph-mon', ['-i', 'a', '-c', conf, '-f'], log('mon'));

  say(`starting ${osds === 1 ? 'one storage daemon in memory' : `${osds} storage daemons on disk`}`);
  const daemons = cluster ? new StorageDaemons({ needed: neededOf(osds), ceph, say }) : null;
  await Promise.all(ids.map(async (i) => {
    const args = ['-i', String(i), '-c', conf, '--keyring', path.join(folder, `osd.${i}`, 'keyring')];
    if (fresh) {
      await Promise.all([
        ceph(['osd', 'new', fresh.osdIds[i], String(i)]),
        run('ceph-osd', [...args, '--mkfs', '--osd-uuid', fresh.osdIds[i]]),
      ]);
    }
    const name = `ceph-osd.${i}`;
    const launch = (onDeath) => children.start(name, 'ceph-osd', [...args, '-f'], log(`osd.${i}`), onDeath);
    if (daemons) daemons.add(name, i, launch);
    else launch();
  }));

  const gatewayPort = (fresh ?? known).gatewayPort;
  say('starting the S3 gateway');
  children.start('radosgw', 'radosgw', ['-c', conf, '-n', 'client.rgw.a', '-f',
    '--keyring', path.join(folder, 'rgw', 'keyring')], log('rgw'));
  const url = `http://127.0.0.1:${gatewayPort}`;
  const accounts = fresh ? makeAccounts(fresh, bucket, admin) : null;
  accounts?.catch(() => {});  // Awaited below, after the gateway.
  await answers(url, 60_000);
  await accounts;

  const store = { url, region: 'us-east-1', bucket, roleArn: 'arn:aws:iam:::role/Uploader',
    owner: (fresh ?? known).owner, broker: (fresh ?? known).broker, daemons };
  if (fresh) await makeBucket(store, publicPrefixes);
  if (fresh && cluster) {  // Data in memory does not outlive a start, so it is not kept.
    const kept = { gatewayPort, owner: store.owner, broker: store.broker };
    fs.writeFileSync(`${readyFile}.tmp`, JSON.stringify(kept), { mode: 0o600 });
    fs.renameSync(`${readyFile}.tmp`, readyFile);
  }
  return store;
}

/** The bucket's owner, a broker that may only ask for tokens, and the role that it asks for. */
async function makeAccounts({ owner, broker }, bucket, admin) {
  const user = (uid, name, keys) => admin(['user', 'create', `--uid=${uid}`, `--display-name=${name}`,
    `--access-key=${keys.accessKey}`, `--secret-key=${keys.secretKey}`]);
  const { assume, allow } = rolePolicies(bucket);
  const role = async () => {
    await admin(['role', 'create', '--role-name=Uploader', '--path=/',
      `--assume-role-policy-doc=${JSON.stringify(assume)}`]);
    await admin(['role-policy', 'put', '--role-name=Uploader', '--policy-name=uploads',
      `--policy-doc=${JSON.stringify(allow)}`]);
  };
  await user('owner', 'Bucket owner', owner);
  await Promise.all([user('broker', 'Credential broker', broker), role()]);
}

async function makeBucket({ url, region, bucket, owner }, publicPrefixes) {
  const s3 = storeClient({ url, region, credentials: owner });
  await s3.send(new CreateBucketCommand({ Bucket: bucket }));
  // An object belongs to the role that has put it. Without the second statement the owner of the
  // bucket could not read objects outside the public prefixes.
  const get = (Principal, prefixes) => ({ Effect: 'Allow', Principal, Action: ['s3:GetObject'],
    Resource: prefixes.map((p) => `arn:aws:s3:::${bucket}/${p}*`) });
  await s3.send(new PutBucketPolicyCommand({ Bucket: bucket, Policy: JSON.stringify({
    Version: '2012-10-17',
    Statement: [get('*', publicPrefixes), get({ AWS: ['arn:aws:iam:::user/owner'] }, [''])] }) }));
  s3.destroy();
}

async function answers(url, limitMs) {
  const end = Date.now() + limitMs;
  for (;;) {
    try {
      await fetch(url, { signal: AbortSignal.timeout(5000) });
      return;
    } catch {
      if (Date.now() > end) throw new Error(`the S3 gateway does not answer at ${url}`);
      await sleep(50);
    }
  }
}
