// The backend: which requests it accepts, what its credentials allow, and which item updates it
// keeps.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { DeleteObjectCommand, GetObjectCommand, PutObjectCommand } from '@aws-sdk/client-s3';
import { clientFor, configPath, control, credentials, message, sign, sleep, start } from './Devstack.mjs';

let stack;
let info;
before(async () => {
  stack = await start();
  info = stack.info;
});
after(() => stack.stop());

const statusOf = async (promise) => {
  try {
    return (await promise).$metadata.httpStatusCode;
  } catch (error) {
    return error.$metadata?.httpStatusCode ?? error.name;
  }
};
const put = (client, Key, Body = 'x') => statusOf(client.send(new PutObjectCommand({ Bucket: info.bucket, Key, Body })));
const get = (client, Key) => statusOf(client.send(new GetObjectCommand({ Bucket: info.bucket, Key })));

test('a config answer has three scopes with eight texts each', async () => {
  const map = await credentials(info);
  assert.deepEqual(Object.keys(map), ['avatar', 'item-image', 'private-file']);
  for (const record of Object.values(map)) {
    assert.deepEqual(Object.keys(record), ['access_key_id', 'access_key_secret', 'security_token', 'expiration',
      'bucket', 'region', 'authorized_path', 'download_url_prefix']);
    for (const value of Object.values(record)) assert.equal(typeof value, 'string');
    const left = (Date.parse(record.expiration) - Date.now()) / 1000;
    assert.ok(left > 880 && left < 905, `${left} s left`);
  }
  assert.equal(map.avatar.authorized_path, 'avatars/100001/');
  assert.equal(map['item-image'].authorized_path, 'items/100001/');
  assert.equal(map['private-file'].authorized_path, 'private/100001/');
  assert.equal(map.avatar.download_url_prefix, `${info.store}/${info.bucket}`);
});

test('every wrong identity or signature is refused with the error record', async () => {
  const [user, other] = info.users;
  const now = Math.floor(Date.now() / 1000);
  const wrong = {
    'unknown user': { 'USER-ID': '7' },
    'no user': { 'USER-ID': null },
    'wrong token': { 'ACCESS-TOKEN': other.accessToken },
    'no token': { 'ACCESS-TOKEN': null },
    'no signature': { 'QX-SIGNATURE': null },
    'malformed signature': { 'QX-SIGNATURE': 'v1=00' },
    'key of another user': { 'QX-SIGNATURE': sign(other, 'GET', configPath, '') },
    'other path': { 'QX-SIGNATURE': sign(user, 'GET', `${configPath}?a=1`, '') },
    'other method': { 'QX-SIGNATURE': sign(user, 'POST', configPath, '') },
    'other body': { 'QX-SIGNATURE': sign(user, 'GET', configPath, '{}') },
    '301 s old': { 'QX-SIGNATURE': sign(user, 'GET', configPath, '', now - 302) },
    '301 s ahead': { 'QX-SIGNATURE': sign(user, 'GET', configPath, '', now + 310) },
  };
  for (const [what, headers] of Object.entries(wrong)) {
    const answer = await message(info.backend, user, 'GET', configPath, '', headers);
    assert.equal(answer.status, 401, what);
    assert.equal(answer.body.code, 1000, what);
    assert.equal(typeof answer.body.message, 'string', what);
  }
  const old = await message(info.backend, user, 'GET', configPath, '',
    { 'QX-SIGNATURE': sign(user, 'GET', configPath, '', now - 290) });
  assert.equal(old.status, 200);
});

test('a signature covers the query', async () => {
  const answer = await message(info.backend, info.users[0], 'GET', `${configPath}?a=1&b=%20`);
  assert.equal(answer.status, 200);
});

test('credentials write below their own path and nowhere else', async () => {
  const map = await credentials(info);
  const client = clientFor(info.store, map.avatar);
  assert.equal(await put(client, 'avatars/100001/a.jpg'), 200);
  assert.equal(await put(client, 'avatars/100001/odd name+%=(ü).jpg'), 200);
  assert.equal(await put(client, 'avatars/100002/a.jpg'), 403);
  assert.equal(await put(client, 'items/100001/a.jpg'), 403);
  assert.equal(await put(client, 'a.jpg'), 403);
  assert.equal(await get(client, 'avatars/100001/a.jpg'), 200);
  assert.equal(await statusOf(client.send(new DeleteObjectCommand(
    { Bucket: info.bucket, Key: 'avatars/100001/a.jpg' }))), 403);
});

test('a private file can be written but not read, nor by the public', async () => {
  const map = await credentials(info);
  const client = clientFor(info.store, map['private-file']);
  assert.equal(await put(client, 'private/100001/p.bin'), 200);
  assert.equal(await get(client, 'private/100001/p.bin'), 403);
  assert.equal((await fetch(`${info.store}/${info.bucket}/private/100001/p.bin`)).status, 403);
});

test('the public URL of an object can be fetched', async () => {
  const { 'item-image': record } = await credentials(info);
  assert.equal(await put(clientFor(info.store, record), 'items/100001/i.jpg', 'bytes'), 200);
  const answer = await fetch(`${record.download_url_prefix}/items/100001/i.jpg`);
  assert.equal(await answer.text(), 'bytes');
});

test('a token of five seconds is refused after six', async () => {
  assert.equal((await control(info, 'POST', '/lifetime', { seconds: 4 })).status, 400);
  await control(info, 'POST', '/lifetime', { seconds: 5 });
  const { avatar } = await credentials(info);
  await control(info, 'POST', '/lifetime', { seconds: 900 });
  const client = clientFor(info.store, avatar);
  assert.ok(Date.parse(avatar.expiration) - Date.now() <= 5000);
  assert.equal(await put(client, 'avatars/100001/e.jpg'), 200);
  await sleep(6100);
  assert.equal(await put(client, 'avatars/100001/e.jpg'), 403);
});

test('a wrong secret and a missing token are refused by the store', async () => {
  const { avatar } = await credentials(info);
  assert.equal(await put(clientFor(info.store, { ...avatar, access_key_secret: 'x' }), 'avatars/100001/w'), 403);
  assert.equal(await put(clientFor(info.store, { ...avatar, security_token: '' }), 'avatars/100001/w'), 403);
});

test('item updates are kept and listed, and a later one replaces an earlier one', async () => {
  const [user] = info.users;
  const update = (kind, body) => message(info.backend, user, 'POST',
    `/v3/item/update_item_original_${kind}image_url`, JSON.stringify(body));
  const full = { item_id: 42, original_image_url: 'http://x/1.jpg', original_image_sha1: 'ab',
    original_image_height: 3, original_image_width: 4, original_image_file_size: 5_000_000_000,
    original_image_file_format: 'jpg' };
  assert.deepEqual(await update('', full), { status: 200, body: {} });
  assert.deepEqual(await update('', { ...full, original_image_width: 9 }), { status: 200, body: {} });
  assert.deepEqual(await update('det_', { item_id: 42, original_det_image_url: 'http://x/d.jpg' }),
    { status: 200, body: {} });
  for (const body of [{ ...full, item_id: '42' }, { item_id: 42 }, { ...full, original_image_width: null },
    { ...full, surprise: 1 }]) {
    assert.equal((await update('', body)).status, 400);
  }
  assert.equal((await update('det_', full)).status, 400);
  const rows = (await control(info, 'GET', '/items')).body.map(({ updated_at: _, ...row }) => row);
  assert.deepEqual(rows.sort((a, b) => a.kind.localeCompare(b.kind)), [
    { user_id: '100001', item_id: 42, kind: 'det', url: 'http://x/d.jpg', sha1: null, height: null, width: null,
      file_size: null, file_format: null },
    { user_id: '100001', item_id: 42, kind: 'plain', url: 'http://x/1.jpg', sha1: 'ab', height: 3, width: 9,
      file_size: 5_000_000_000, file_format: 'jpg' }]);
});

test('events list what was received, without secrets', async () => {
  await control(info, 'DELETE', '/events');
  const [user] = info.users;
  await credentials(info);
  await message(info.backend, user, 'POST', '/v3/item/update_item_original_image_url',
    '{"item_id":1,"original_image_url":"u"}');
  await message(info.backend, user, 'GET', '/nothing');
  const text = await (await fetch(`${info.backend}/events`)).text();
  assert.ok(!text.includes(user.accessToken));
  assert.ok(!/v1=[0-9a-f]{64}/.test(text));
  const events = JSON.parse(text);
  assert.deepEqual(events.map((e) => [e.server, e.kind, e.method, e.path, e.status]), [
    ['backend', 'getUploadConfig', 'GET', configPath, 200],
    ['backend', 'updateImage', 'POST', '/v3/item/update_item_original_image_url', 200],
    ['backend', 'unknown', 'GET', '/nothing', 404]]);
  assert.deepEqual(events[1].body, { item_id: 1, original_image_url: 'u' });
  assert.equal(events[0].headers['user-id'], user.userId);
  assert.ok(events[0].n < events[1].n && events[1].n < events[2].n);
});
