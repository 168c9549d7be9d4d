// What ./demo shows, once all is built and a devstack runs: it drives the host program qx_demo and
// the command line's qxuploader, and checks everything they report by other means than the library's
// own.
//
//     node tour.mjs check FILE...                      are these images that can be shown?
//     node tour.mjs run QX_DEMO QXUPLOADER FOLDER FILE...
//                                                      the tour; QX_DEVSTACK names devstack.json
import { spawn, spawnSync } from 'node:child_process';
import { createHash, randomBytes } from 'node:crypto';
import fs from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const here = path.dirname(fileURLToPath(import.meta.url));
const devstackFolder = path.join(here, '../../devstack');
const sharp = createRequire(path.join(devstackFolder, 'package.json'))('sharp');

const notes = 40;       // background uploads of the second chapter
const images = 4;       // background image uploads
const atOnce = 3;       // the limit of the second chapter
const largeBytes = 96 << 20;  // the file of the third chapter: long enough under way to be watched
const widest = 1024;    // what the upload server makes of an image

const say = (text = '') => process.stdout.write(`${text}\n`);
const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
const sha = (algorithm, bytes) => createHash(algorithm).update(bytes).digest('hex');

let running = null;  // the host process, ended with this one
for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP']) {
  process.on(signal, () => {
    running?.kill();
    process.exit(1);
  });
}

let faults = 0;
/** One checked statement; a false one fails the demo. */
function check(holds, text) {
  if (!holds) faults++;
  say(`  ${holds ? 'ok  ' : 'FAIL'}  ${text}`);
}

/** What is wrong with a file, or null. */
async function faultOf(file) {
  let stat;
  try {
    stat = fs.statSync(file);
    fs.accessSync(file, fs.constants.R_OK);
  } catch (error) {
    return error.code === 'ENOENT' ? 'no such file' : error.code === 'EACCES' ? 'not readable for you' : error.message;
  }
  if (!stat.isFile()) return 'not a regular file';
  try {
    await sharp(file).resize(8).raw().toBuffer();  // as the upload server will: to the last pixel
    return null;
  } catch (error) {
    return `not an image that the upload server can read (${error.message.split('\n')[0]})`;
  }
}

/** Runs objects.mjs, the independent S3 client, and yields its answer. */
function objects(info, ...args) {
  const run = spawnSync('node', [path.join(devstackFolder, 'objects.mjs'), '--state', path.dirname(info.file), ...args],
    { encoding: 'utf8' });
  if (run.status !== 0) throw new Error(run.stderr.trim());
  return JSON.parse(run.stdout);
}

const keyOf = (info, url) => {
  const prefix = `${info.store}/${info.bucket}/`;
  if (!url?.startsWith(prefix)) throw new Error(`the URL ${url} is not one of the store's`);
  return url.slice(prefix.length);
};

async function control(info, method, route, body) {
  const answer = await fetch(`${info.admin}/${route}`, { method,
    ...(body ? { body: JSON.stringify(body), headers: { 'content-type': 'application/json' } } : {}) });
  if (!answer.ok) throw new Error(`${method} ${route}: ${await answer.text()}`);
  return answer.json();
}

/** Starts qx_demo; `lines()` are the results it has written so far. */
function startHost(info, program, folder, name, args) {
  const results = path.join(folder, `${name}.results`);
  fs.writeFileSync(results, '');
  const documents = path.join(folder, `${name}.documents`);
  const user = info.users[0];
  const child = spawn(program, ['--backend', info.backend, '--upload-server', info.uploadServer,
    '--store', info.store, '--user', user.userId, '--documents', documents, '--results', results, ...args],
    { stdio: ['pipe', 'inherit', 'inherit'], env: { ...process.env, QX_ACCESS_TOKEN: user.accessToken } });
  running = child;
  const host = { documents, child, ended: null };
  host.lines = () => fs.readFileSync(results, 'utf8').split('\n').slice(0, -1).map((line) => JSON.parse(line));
  host.end = new Promise((resolve, reject) => {
    child.on('error', reject);
    child.on('exit', (code, signal) => {
      host.ended = signal ?? code;
      resolve(host.ended);
    });
  });
  return host;
}

/** Waits until `done(lines)` holds; false when the host has ended or the time is up. */
async function until(host, seconds, done, meanwhile = () => {}) {
  const end = Date.now() + seconds * 1000;
  while (!done(host.lines())) {
    if (host.ended !== null || Date.now() > end) return false;
    meanwhile();
    await pause(100);
  }
  return true;
}

/** Width and height as a viewer shows an image. */
async function shownSize(file) {
  const { width, height, orientation } = await sharp(file).metadata();
  return orientation >= 5 ? { width: height, height: width } : { width, height };
}

async function directChapter(info, program, folder, files) {
  say('\n== Uploads that the host waits for ==\n');
  const host = startHost(info, program, folder, 'direct', ['direct', '--', ...files]);
  const status = await host.end;
  say('\nRead back with an independent S3 client:');
  check(status === 0, `the host ended well${status === 0 ? '' : ` (status ${status})`}`);
  const lines = host.lines();
  for (const route of ['store', 'server']) {
    for (const file of files) {
      const name = path.basename(file);
      const line = lines.find((l) => l.kind === 'uploaded' && l.route === route && l.file === file);
      if (!line?.url) {
        check(false, `${name}: not uploaded by the ${route} route`);
        continue;
      }
      const copy = path.join(folder, 'read-back');
      const { size } = objects(info, 'get', keyOf(info, line.url), copy);
      if (route === 'store') {
        check(fs.readFileSync(file).equals(fs.readFileSync(copy)), `${name}: all ${size} bytes are the same`);
        continue;
      }
      const made = objects(info, 'webp-size', copy);
      const shown = await shownSize(file);
      const scale = Math.min(1, widest / Math.max(shown.width, shown.height));
      const near = (a, b) => Math.abs(a - b * scale) <= 1;
      check(made.format === 'webp' && near(made.width, shown.width) && near(made.height, shown.height),
        `${name}: a WebP of ${made.width} x ${made.height} pixels, ${size} bytes (shown as ${shown.width} x ${shown.height})`);
    }
  }
  const events = lines.filter((l) => l.kind === 'event' && l.parameters.type === 'upload');
  check(events.length === 2 * files.length && events.every((e) => e.name === 'qx_aws' && e.parameters.status === 'success'),
    `the host received one tracking event of success for each of ${2 * files.length} uploads`);
}

/** The log of stored tasks as Python's own property-list reader sees it: [[file name, failures]]. */
function readLog(file) {
  const script = 'import json,plistlib,sys\n' +
    'log=plistlib.load(open(sys.argv[1],"rb"))\n' +
    'count=lambda v:[x for k,x in v.items() if k=="upload_count"]+[c for x in v.values() if isinstance(x,dict) for c in count(x)]\n' +
    'print(json.dumps([[n,(count(e) or [None])[0]] for n,e in sorted(log.items())]))';
  const run = spawnSync('python3', ['-c', script, file], { encoding: 'utf8' });
  if (run.status !== 0) throw new Error(`the log does not open: ${run.stderr.trim().split('\n').pop()}`);
  return JSON.parse(run.stdout);
}

/** Every file below a folder. */
const filesBelow = (folder) => fs.existsSync(folder)
  ? fs.readdirSync(folder, { recursive: true, withFileTypes: true }).filter((e) => e.isFile())
    .map((e) => path.join(e.path ?? e.parentPath, e.name)) : [];

const isLog = (file) => fs.readFileSync(file).subarray(0, 200).includes('<plist');

async function backgroundChapter(info, program, folder, files) {
  say('\n== Uploads in the background, while the store is down ==\n');
  const noteFolder = path.join(folder, 'notes');
  fs.mkdirSync(noteFolder);
  const noteFiles = Array.from({ length: notes }, (_, i) => {
    const file = path.join(noteFolder, `note-${String(i + 1).padStart(2, '0')}.txt`);
    fs.writeFileSync(file, `Note ${i + 1}\n${randomBytes(500 + 100 * i).toString('hex')}\n`);
    return file;
  });
  const imageFiles = Array.from({ length: images }, (_, i) => files[i % files.length]);
  const all = notes + images;

  await control(info, 'POST', 'down', { target: 'store' });
  await control(info, 'DELETE', 'events');
  say(`The store is down. The host hands over ${notes} files and ${images} images, ${atOnce} at once.`);
  const started = Date.now();
  // The store being down is a reason for log records of the host: only what is worse is shown.
  const host = startHost(info, program, folder, 'background', ['--log-threshold', '6', 'background',
    ...noteFiles.flatMap((f) => ['--file', f]), ...imageFiles.flatMap((f) => ['--image', f])]);
  try {
    const ofKind = (lines, kind) => lines.filter((l) => l.kind === kind);
    const failed = (lines) => new Set(ofKind(lines, 'background').filter((l) => l.error !== undefined).map((l) => l.task));
    const arrived = (lines) => new Set(ofKind(lines, 'background').filter((l) => l.url !== undefined && l.error === undefined).map((l) => l.task));
    const allFailed = await until(host, 120, (lines) => failed(lines).size === all);
    check(allFailed, `the host's callback heard of ${failed(host.lines()).size} attempts that failed: ` +
      `${ofKind(host.lines(), 'background').find((l) => l.error)?.error ?? 'nothing'}`);
    await pause(300);  // the last count is written before its report, the queue goes idle just after

    const stored = filesBelow(host.documents);
    const logs = stored.filter(isLog);
    say(`On disk below ${host.documents}:`);
    const shown = logs.length ? readLog(logs[0]) : [];
    for (const [name, count] of shown.slice(0, 3)) say(`        ${name}  (failed ${count} times)`);
    if (shown.length > 3) say(`        ... and ${shown.length - 3} more`);
    check(stored.length - logs.length === all, `${stored.length - logs.length} stored files`);
    check(logs.length === 1 && shown.length === all, `${shown.length} entries in ${path.basename(logs[0] ?? 'no log')}, ` +
      'read with Python\'s plistlib');
    check(shown.every(([, count]) => count === 1), 'each counts its one failure');

    await control(info, 'DELETE', 'stats');
    await control(info, 'POST', 'up', { target: 'store' });
    say('The store is back. Stored tasks are retried every 60 seconds.');
    const tty = process.stdout.isTTY;
    const due = started + Math.ceil((Date.now() - started) / 60_000) * 60_000;
    if (!tty) say(`  the next retry comes in ${Math.max(0, Math.round((due - Date.now()) / 1000))} s`);
    const progress = () => {
      if (!tty) return;
      const left = Math.max(0, Math.ceil((due - Date.now()) / 1000));
      const n = arrived(host.lines()).size;
      process.stdout.write(`\r  ${n} of ${all} arrived${n === 0 ? `; the next retry comes in ${left} s` : ''}   `);
    };
    const allArrived = await until(host, 130, (lines) => arrived(lines).size === all, progress);
    if (tty) process.stdout.write('\r\x1b[K');
    const lines = host.lines();
    check(allArrived, `the host's callback heard of ${arrived(lines).size} uploads that arrived`);
    const stats = await control(info, 'GET', 'stats');
    check(stats.store.maxInFlight >= 1 && stats.store.maxInFlight <= atOnce,
      `the store never saw more than ${stats.store.maxInFlight} uploads at once`);

    const fileOf = Object.fromEntries([...noteFiles.map((f) => [f, f]), ...ofKind(lines, 'image').map((l) => [l.task, l.file])]);
    const urlOf = Object.fromEntries(ofKind(lines, 'background').filter((l) => l.url && !l.error).map((l) => [l.task, l.url]));
    let same = 0;
    for (const [task, url] of Object.entries(urlOf)) {
      const answer = await fetch(url);
      const body = Buffer.from(await answer.arrayBuffer());
      if (answer.ok && body.equals(fs.readFileSync(fileOf[task]))) same++;
    }
    const listed = new Set(objects(info, 'list').map((o) => o.key));
    const known = Object.values(urlOf).filter((url) => listed.has(keyOf(info, url))).length;
    check(same === all && known === all, `the store lists ${known} of them, and ${same} hold the same bytes as the file they came from`);

    let left = [];
    let entries = [];
    for (let i = 0; i < 50; i++) {  // the last deletion follows the last report closely
      left = filesBelow(host.documents).filter((f) => !isLog(f));
      entries = logs.length && fs.existsSync(logs[0]) ? readLog(logs[0]) : [];
      if (left.length === 0 && entries.length === 0) break;
      await pause(100);
    }
    check(left.length === 0 && entries.length === 0, `${left.length} stored files and ${entries.length} log entries are left`);

    let reports = [];
    for (let i = 0; i < 100 && reports.length < images; i++) {
      reports = (await control(info, 'GET', 'events')).filter((e) => e.kind === 'updateImage' || e.kind === 'updateDetImage');
      if (reports.length < images) await pause(100);
    }
    check(reports.length === images, `${reports.length} image reports reached the backend`);
    for (const line of ofKind(lines, 'image')) {
      const report = reports.find((e) => String(e.body?.item_id) === line.task);
      const det = Number(line.task) % 2 === 0;
      const { width, height } = await shownSize(line.file);
      const bytes = fs.readFileSync(line.file);
      const body = report?.body ?? {};
      const url = body[det ? 'original_det_image_url' : 'original_image_url'];
      check(report?.status === 200 && (report.kind === 'updateDetImage') === det && url === urlOf[line.task] &&
        body.original_image_width === width && body.original_image_height === height &&
        body.original_image_file_size === bytes.length && body.original_image_sha1 === sha('sha1', bytes),
        `item ${line.task}${det ? ' (det)' : ''}: ${body.original_image_width} x ${body.original_image_height} pixels, ` +
        `${body.original_image_file_size} bytes, ${body.original_image_file_format}, SHA-1 ${body.original_image_sha1}`);
    }
    host.child.stdin.end();
    const status = await host.end;
    check(status === 0, `the host ended well${status === 0 ? '' : ` (status ${status})`}`);
  } finally {
    host.child.kill();
  }
}

/** Runs qxuploader to its end; `onEvent` gets its JSON events, else it writes to our own output. */
async function qxuploader(info, program, folder, args, onEvent) {
  const user = info.users[0];
  const child = spawn(program, [...(onEvent ? ['--json'] : []), '--backend', info.backend, '--store', info.store,
    '--user-id', user.userId, '--documents', path.join(folder, 'command-line.documents'), ...args],
    { stdio: ['ignore', onEvent ? 'pipe' : 'inherit', 'inherit'],
      env: { ...process.env, QXUPLOADER_TOKEN: user.accessToken } });
  running = child;
  let rest = '';
  child.stdout?.on('data', (text) => {
    const lines = (rest + text).split('\n');
    rest = lines.pop();
    for (const line of lines) onEvent(JSON.parse(line));
  });
  return new Promise((resolve, reject) => {
    child.on('error', reject);
    child.on('close', (code, signal) => resolve(signal ?? code));
  });
}

async function downloadChapter(info, program, folder) {
  say('\n== A download, from the command line ==\n');
  const file = path.join(folder, 'large.bin');
  fs.writeFileSync(file, randomBytes(largeBytes));
  let url;
  const sent = await qxuploader(info, program, folder, ['upload', file, '--scope', 'avatar'], (event) => {
    url ??= event.url;
  });
  check(sent === 0 && url, `qxuploader upload: ${largeBytes >> 20} MiB are at ${url}`);
  if (!url) return;
  const output = path.join(folder, 'downloads');
  fs.mkdirSync(output);
  say(`qxuploader download ${url} --scope avatar --output ${output}`);
  const args = ['download', url, '--scope', 'avatar', '--output', output];
  let shown = -1;
  // On a terminal the program draws its own bar.
  const got = await qxuploader(info, program, folder, args, process.stdout.isTTY ? undefined : (event) => {
    const quarter = Math.floor((event.fraction ?? -1) * 4);
    if (event.event !== 'progress' || quarter <= shown) return;
    shown = quarter;
    say(`        ${Math.floor(event.fraction * 100)} %, ${(event.bytes / 1048576).toFixed(1)} of ` +
      `${(event.total / 1048576).toFixed(1)} MiB`);
  });
  check(got === 0 && (process.stdout.isTTY || shown === 4), 'the download ended well, at 100 %');
  const copy = path.join(output, path.basename(new URL(url).pathname));
  check(fs.existsSync(copy) && fs.readFileSync(copy).equals(fs.readFileSync(file)), 'all its bytes are the same');
  check(fs.readdirSync(output).length === 1, 'nothing else lies beside it');
}

const [command, ...rest] = process.argv.slice(2);
if (command === 'check') {
  let bad = 0;
  for (const file of rest) {
    const fault = await faultOf(file);
    if (fault === null) continue;
    bad++;
    process.stderr.write(`demo: ${file}: ${fault}\n`);
  }
  process.exitCode = bad ? 1 : 0;
} else {
  const [program, commandLine, folder, ...files] = rest;
  const file = process.env.QX_DEVSTACK;
  const info = { ...JSON.parse(fs.readFileSync(file, 'utf8')), file };
  try {
    await directChapter(info, program, folder, files);
    await backgroundChapter(info, program, folder, files);
    await downloadChapter(info, commandLine, folder);
  } catch (error) {
    faults++;
    say(`  FAIL  ${error.message}`);
  }
  say();
  say(faults === 0 ? 'demo: everything above held' : `demo: ${faults} of the statements above did NOT hold`);
  process.exitCode = faults === 0 ? 0 : 1;
}
