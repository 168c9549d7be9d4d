// Starts the devstack, watches over it and stops it: one foreground process. See README.md.
import { randomBytes } from 'node:crypto';
import fs from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { parseArgs } from 'node:util';
import { startBackend } from './lib/Backend.mjs';
import { missingPrograms, startCeph } from './lib/Ceph.mjs';
import { makeCertificates } from './lib/Certificates.mjs';
import { Children, startTimeOf, waitForLeftovers } from './lib/Children.mjs';
import { startControl } from './lib/Control.mjs';
import { Events } from './lib/Events.mjs';
import { FaultProxy } from './lib/FaultProxy.mjs';
import { HostNames } from './lib/HostNames.mjs';
import { Items } from './lib/Items.mjs';
import { publicPrefixes, scopes } from './lib/Scopes.mjs';
import { Tokens } from './lib/Tokens.mjs';
import { startUploadServer } from './lib/UploadServer.mjs';

const usage = `usage: node main.mjs --state DIR [--cluster] [--lifetime SECONDS] [--until-stdin-closes]
       node main.mjs --state DIR --store URL --store-access-key-env NAME --store-secret-key-env NAME
                     [--sts URL [--role-arn ARN]] [--bucket NAME] [--region NAME] [...]`;

const say = (text) => process.stderr.write(`devstack: ${text}\n`);
const fail = (text) => {
  say(text);
  process.exit(1);
};

let options;
try {
  options = parseArgs({ options: {
    'state': { type: 'string' },
    'cluster': { type: 'boolean', default: false },
    'store': { type: 'string' },
    'store-access-key-env': { type: 'string' },
    'store-secret-key-env': { type: 'string' },
    'sts': { type: 'string' },
    'role-arn': { type: 'string', default: 'arn:aws:iam:::role/Uploader' },
    'bucket': { type: 'string', default: 'uploads' },
    'region': { type: 'string', default: 'us-east-1' },
    'lifetime': { type: 'string', default: '900' },
    'upload-limit': { type: 'string', default: String(32 << 20) },
    'until-stdin-closes': { type: 'boolean', default: false },
  } }).values;
} catch (error) {
  fail(`${error.message}\n${usage}`);
}
if (!options.state) fail(`--state is missing\n${usage}`);
const lifetime = Number(options.lifetime);
if (!Number.isInteger(lifetime) || lifetime < 5) fail('--lifetime is a whole number of seconds, 5 or more');

process.umask(0o077);
const folder = path.resolve(options.state);
fs.mkdirSync(folder, { recursive: true, mode: 0o700 });
fs.chmodSync(folder, 0o700);  // Keys are kept here.
const inState = (name) => path.join(folder, name);
const infoFile = inState('devstack.json');
const settingsFile = inState('qxuploader.toml');
const ownerFile = inState('owner.json');
claimState();

const children = new Children(inState('children.json'), (name, how) => {
  say(`${name} ended (${how}); see the logs below ${inState('store/log')}`);
  stop(1);
}, writeInfo);
const closers = [];  // The resources to close, the last opened one first.
let stopping = null;
let info = null;  // The content of devstack.json, once everything runs.

process.on('SIGTERM', () => stop(0));
process.on('SIGINT', () => stop(0));
process.on('SIGHUP', () => stop(0));
process.stdout.on('error', () => {});  // A reader that has closed the pipe must not end the devstack.
process.stderr.on('error', () => {});
if (options['until-stdin-closes']) {
  process.stdin.on('end', () => stop(0)).on('error', () => stop(0)).resume();
}

try {
  await waitForLeftovers(inState('children.json'));
  await start();
} catch (error) {
  if (!stopping) {
    say(`cannot start: ${error.message}`);
    await stop(1);
  }
}

/** Refuses when another devstack runs in this folder; a claim whose process is gone does not count. */
function claimState() {
  const mine = JSON.stringify({ pid: process.pid, startTime: startTimeOf(process.pid) });
  for (;;) {
    try {
      fs.writeFileSync(ownerFile, mine, { flag: 'wx', mode: 0o600 });
      return;
    } catch (error) {
      if (error.code !== 'EEXIST') fail(`cannot use ${folder}: ${error.message}`);
    }
    let owner = {};
    try {
      owner = JSON.parse(fs.readFileSync(ownerFile, 'utf8'));
    } catch { /* half-written by one that was killed */ }
    if (owner.startTime && startTimeOf(owner.pid) === owner.startTime) {
      fail(`a devstack already runs in ${folder} (process ${owner.pid})`);
    }
    fs.rmSync(ownerFile, { force: true });
  }
}

async function openStore() {
  if (!options.store) {
    const missing = missingPrograms();
    if (missing.length) {
      fs.rmSync(ownerFile, { force: true });
      fail(`missing ${missing.join(', ')}: install the packages ceph-mon ceph-osd ceph-common radosgw ` +
        '(devstack/setup does), or name another S3 store with --store URL --store-access-key-env NAME ' +
        '--store-secret-key-env NAME [--sts URL]');
    }
    const store = await startCeph({ folder: inState('store'), cluster: options.cluster, bucket: options.bucket,
      publicPrefixes, children, say });
    return { ...store, sts: store.url };
  }
  const key = (name) => {
    const value = process.env[options[name] ?? ''];
    if (!value) throw new Error(`--${name} names no environment variable that is set`);
    return value;
  };
  const owner = { accessKey: key('store-access-key-env'), secretKey: key('store-secret-key-env') };
  const url = originOf('store');
  say(`using the store at ${url}`);
  if (!options.sts) say('no --sts: the backend hands out the store\'s own keys; only for trying things out');
  return { url, region: options.region, bucket: options.bucket,
    roleArn: options['role-arn'], owner, broker: owner, sts: options.sts ?? null, daemons: null };
}

/** The address that an option gives. Its text is not repeated in the error: a password may stand in it. */
function originOf(name) {
  try {
    const url = new URL(options[name]);
    if (/^https?:$/.test(url.protocol) && url.href === `${url.origin}/`) return url.origin;
  } catch { /* no address at all */ }
  throw new Error(`--${name} is not an address of the form http[s]://HOST[:PORT]`);
}

async function start() {
  forgetAddresses();
  const [store, certificates] = await Promise.all([openStore(), makeCertificates(inState('tls'))]);
  if (stopping) return;

  say('starting the backend, the upload server and the proxies');
  if (!options.cluster) fs.rmSync(inState('items.sqlite'), { force: true });
  const events = new Events();
  const items = new Items(inState('items.sqlite'));
  const tokens = new Tokens(store, lifetime);
  closers.push(() => items.close(), () => tokens.close());
  const users = ['100001', '100002'].map((userId) => ({ userId, accessToken: randomBytes(16).toString('hex') }));

  // A server is reached at its own address and, through its proxy, at the proxy's address.
  const hostNames = { backend: new HostNames(), uploadServer: new HostNames(),
    store: new HostNames(`${store.bucket}.localhost`) };
  const proxies = {};
  const front = async (name, url) => {
    proxies[name] = new FaultProxy(url, hostNames[name]);
    closers.push(() => proxies[name].close());
    return proxies[name].open();
  };
  const served = (app) => {
    closers.push(() => app.close());
    return `http://127.0.0.1:${app.server.address().port}`;
  };
  const storeUrl = await front('store', store.url);
  const [storeTls, storeWrongTls] = [
    await proxies.store.open(certificates.good), await proxies.store.open(certificates.wrong)];
  const backend = served(await startBackend({ users, tokens, store, items, events,
    downloadUrlPrefix: () => `${storeUrl}/${store.bucket}`, hostNames: hostNames.backend }));
  const uploadServer = served(await startUploadServer({ storeUrl: store.url, events,
    maxBytes: Number(options['upload-limit']), hostNames: hostNames.uploadServer }));
  const found = {
    backend: await front('backend', backend),
    uploadServer: await front('uploadServer', uploadServer),
    store: storeUrl,
    admin: '',
    direct: { backend, uploadServer, store: store.url },
    storeTls,
    storeWrongTls,
    caFile: certificates.caFile,
    bucket: store.bucket,
    region: store.region,
    users,
    scopes: Object.keys(scopes),
    adminAccessKey: store.owner.accessKey,
    adminSecretKey: store.owner.secretKey,
  };
  found.admin = served(await startControl({ proxies, events, items, tokens, daemons: store.daemons,
    faultsFolder: fileURLToPath(new URL('faults', import.meta.url)) }));
  if (stopping) return;
  info = found;
  fs.writeFileSync(settingsFile, settingsOf(info), { mode: 0o600 });
  writeInfo();
  process.stdout.write(`devstack ready: ${info.backend}\n`);
}

/** Writes devstack.json, also whenever a process has ended or was started again. */
function writeInfo() {
  if (!info || stopping) return;
  const text = JSON.stringify({ ...info, pids: { main: process.pid, ...children.pids() } }, null, 2);
  fs.writeFileSync(`${infoFile}.tmp`, `${text}\n`, { mode: 0o600 });
  fs.renameSync(`${infoFile}.tmp`, infoFile);
}

/** What the command-line host needs to know, as its settings file: the first user, here. */
function settingsOf({ backend, uploadServer, store, users: [user] }) {
  const settings = { backend, upload_server: uploadServer, store, user_id: user.userId, token: user.accessToken };
  // A JSON string is a TOML string, too.
  return Object.entries(settings).map(([name, value]) => `${name} = ${JSON.stringify(value)}\n`).join('');
}

/** The files that only hold while this process runs. */
function forgetAddresses() {
  for (const file of [infoFile, settingsFile]) fs.rmSync(file, { force: true });
}

/** Stops everything in the reverse order of its start, then ends this process. Runs once. */
function stop(status) {
  stopping ??= (async () => {
    say('stopping');
    forgetAddresses();
    for (const close of closers.reverse()) {
      // A server waits for its open connections, but not longer than this.
      await Promise.race([Promise.resolve(close()).catch(() => {}), new Promise((r) => setTimeout(r, 500))]);
    }
    // Data in memory is thrown away anyway, so it need not be put in order first.
    await children.stop(() => (options.cluster ? 10_000 : 250));
    fs.rmSync(ownerFile, { force: true });
    process.exit(status);
  })();
  return stopping;
}
