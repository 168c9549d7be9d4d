// The upload server: the images that it makes, and the forms that it refuses.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { DeleteObjectCommand, GetObjectCommand, ListObjectsV2Command } from '@aws-sdk/client-s3';
import sharp from 'sharp';
import { adminClient, control, credentials, formFields, start, uploadForm } from './Devstack.mjs';

let stack;
let info;
let record;
before(async () => {
  stack = await start('--upload-limit', '200000');
  info = stack.info;
  record = (await credentials(info))['item-image'];
});
after(() => stack.stop());

const send = async (form) => (await fetch(info.uploadServer, { method: 'POST', body: form })).status;
const stored = async (Key) => {
  const answer = await adminClient(info).send(new GetObjectCommand({ Bucket: info.bucket, Key }));
  return { contentType: answer.ContentType, bytes: await answer.Body.transformToByteArray() };
};
const key = 'items/100001/picture.webp';
/** Left half red, right half blue. */
const picture = (width, height) => sharp({ create: { width, height, channels: 3, background: 'blue' } })
  .composite([{ input: { create: { width: width / 2, height, channels: 3, background: 'red' } }, left: 0, top: 0 }]);

test('a large image becomes a WebP whose longest side is 1024', async () => {
  assert.equal(await send(uploadForm(record, await picture(2000, 1000).jpeg().toBuffer())), 200);
  const { contentType, bytes } = await stored(key);
  assert.equal(contentType, 'image/webp');
  const { width, height, format } = await sharp(bytes).metadata();
  assert.deepEqual({ width, height, format }, { width: 1024, height: 512, format: 'webp' });
});

test('a small image is not enlarged', async () => {
  assert.equal(await send(uploadForm(record, await picture(300, 200).png().toBuffer())), 200);
  const { width, height } = await sharp((await stored(key)).bytes).metadata();
  assert.deepEqual({ width, height }, { width: 300, height: 200 });
});

test('an image part without a Content-Type is taken', async () => {
  const image = await picture(60, 30).png().toBuffer();
  const body = Buffer.concat([...formFields(record, image).flatMap(([name, value]) => [
    Buffer.from(`--X\r\nContent-Disposition: form-data; name="${name}"${name === 'img' ? '; filename="img"' : ''}\r\n\r\n`),
    Buffer.from(value), Buffer.from('\r\n')]), Buffer.from('--X--\r\n')]);
  const answer = await fetch(info.uploadServer, { method: 'POST', body,
    headers: { 'Content-Type': 'multipart/form-data; boundary=X' } });
  assert.equal(answer.status, 200);
  const { width, height } = await sharp((await stored(key)).bytes).metadata();
  assert.deepEqual({ width, height }, { width: 60, height: 30 });
});

test('orientation 6 is applied: a quarter turn to the right', async () => {
  const image = await picture(400, 200).withMetadata({ orientation: 6 }).jpeg().toBuffer();
  assert.equal(await send(uploadForm(record, image)), 200);
  const { bytes } = await stored(key);
  const { width, height, orientation } = await sharp(bytes).metadata();
  assert.deepEqual({ width, height, orientation }, { width: 200, height: 400, orientation: undefined });
  const { data, info: raw } = await sharp(bytes).removeAlpha().raw().toBuffer({ resolveWithObject: true });
  const at = (x, y) => [...data.subarray((y * raw.width + x) * 3, (y * raw.width + x) * 3 + 3)];
  const [top, bottom] = [at(100, 50), at(100, 350)];  // The left side is now on top.
  assert.ok(top[0] > 200 && top[2] < 60, `top ${top}`);
  assert.ok(bottom[2] > 200 && bottom[0] < 60, `bottom ${bottom}`);
});

test('bad forms, no image, too large and foreign paths are refused, and nothing is stored', async () => {
  await adminClient(info).send(new DeleteObjectCommand({ Bucket: info.bucket, Key: key }));
  const image = await picture(20, 20).png().toBuffer();
  for (const name of ['image_size', 'format', 'quality', 'path', 'bucket', 's3_key', 's3_secret',
    's3_session_token', 's3_region', 'img']) {
    assert.equal(await send(uploadForm(record, image, { [name]: null })), 400, name);
  }
  assert.equal(await send(uploadForm(record, image, { image_size: '0' })), 400);
  assert.equal(await send(uploadForm(record, image, { quality: '101' })), 400);
  assert.equal(await send(uploadForm(record, image, { format: 'jpg' })), 400);
  assert.equal(await send('no form'), 400);
  assert.equal(await send(Buffer.from('no form and no type')), 400);
  assert.equal(await send(uploadForm(record, 'these bytes are no image')), 415);
  assert.equal(await send(uploadForm(record, Buffer.alloc(200_001))), 413);
  assert.equal(await send(uploadForm(record, Buffer.alloc(2_000_000))), 413);
  assert.equal(await send(uploadForm(record, image, { path: 'avatars/100001/a.webp' })), 403);
  assert.equal(await send(uploadForm(record, image, { s3_secret: 'wrong' })), 403);
  const list = await adminClient(info).send(new ListObjectsV2Command({ Bucket: info.bucket }));
  assert.equal(list.KeyCount, 0);
});

test('the event shows the parts in order and no credential', async () => {
  await control(info, 'DELETE', '/events');
  const image = await picture(20, 20).png().toBuffer();
  assert.equal(await send(uploadForm(record, image)), 200);
  const { body } = await control(info, 'GET', '/events');
  assert.deepEqual(body[0].parts.map((p) => p.name), ['image_size', 'format', 'quality', 'path', 'bucket', 'img',
    's3_key', 's3_secret', 's3_session_token', 's3_region']);
  assert.deepEqual(body[0].fields, { image_size: '1024', format: 'webp', quality: '90', path: key,
    bucket: info.bucket, s3_region: 'us-east-1' });
  assert.deepEqual(body[0].parts[5], { name: 'img', filename: 'img', size: image.length });
  assert.equal(body[0].status, 200);
  for (const secret of [record.access_key_id, record.access_key_secret, record.security_token]) {
    assert.ok(!JSON.stringify(body).includes(secret));
  }
});
