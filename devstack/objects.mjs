// An independent S3 client for looking at the objects in the devstack's store. It prints JSON on
// standard output.
import { createHash } from 'node:crypto';
import fs from 'node:fs';
import path from 'node:path';
import { Transform } from 'node:stream';
import { pipeline } from 'node:stream/promises';
import { parseArgs } from 'node:util';
import { DeleteObjectCommand, GetObjectCommand, HeadObjectCommand, ListObjectsV2Command } from '@aws-sdk/client-s3';
import { storeClient } from './lib/StoreClient.mjs';

const usage = `usage: node objects.mjs --state DIR list [PREFIX] | get KEY FILE | get-all PREFIX FOLDER |
                                              head KEY | delete KEY
       node objects.mjs webp-size FILE`;

function open(state) {
  if (!state) throw new Error('--state is missing');
  const info = JSON.parse(fs.readFileSync(path.join(state, 'devstack.json'), 'utf8'));
  const s3 = storeClient({ url: info.direct.store, region: info.region,
    credentials: { accessKey: info.adminAccessKey, secretKey: info.adminSecretKey } });
  return { s3, Bucket: info.bucket };
}

const commands = {
  async list(state, prefix = '') {
    const { s3, Bucket } = open(state);
    const objects = [];
    let ContinuationToken;
    do {
      const page = await s3.send(new ListObjectsV2Command({ Bucket, Prefix: prefix, ContinuationToken }));
      for (const o of page.Contents ?? []) objects.push({ key: o.Key, size: o.Size, lastModified: o.LastModified });
      ContinuationToken = page.NextContinuationToken;
    } while (ContinuationToken);
    return objects;
  },

  async get(state, key, file) {
    const { s3, Bucket } = open(state);
    const answer = await s3.send(new GetObjectCommand({ Bucket, Key: key }));
    const hash = createHash('sha256');
    let size = 0;
    await pipeline(answer.Body, new Transform({ transform(chunk, encoding, done) {
      hash.update(chunk);
      size += chunk.length;
      done(null, chunk);
    } }), fs.createWriteStream(file));
    return { key, size, sha256: hash.digest('hex'), contentType: answer.ContentType ?? null };
  },

  // Writes every object below a prefix to a file in the folder, named by the last part of its key.
  async 'get-all'(state, prefix, folder) {
    const { s3, Bucket } = open(state);
    const waiting = await commands.list(state, prefix);
    const count = waiting.length;
    const fetch = async () => {
      for (let object = waiting.pop(); object; object = waiting.pop()) {
        const answer = await s3.send(new GetObjectCommand({ Bucket, Key: object.key }));
        await pipeline(answer.Body, fs.createWriteStream(path.join(folder, path.basename(object.key))));
      }
    };
    await Promise.all(Array.from({ length: 16 }, fetch));
    return { count };
  },

  async head(state, key) {
    const { s3, Bucket } = open(state);
    const answer = await s3.send(new HeadObjectCommand({ Bucket, Key: key }));
    return { key, size: answer.ContentLength, contentType: answer.ContentType ?? null, etag: answer.ETag,
      metadata: answer.Metadata ?? {} };
  },

  async delete(state, key) {
    const { s3, Bucket } = open(state);
    await s3.send(new DeleteObjectCommand({ Bucket, Key: key }));
    return { key, deleted: true };
  },

  async 'webp-size'(state, file) {
    const { default: sharp } = await import('sharp');
    const { width, height, format } = await sharp(file).metadata();
    return { width, height, format };
  },
};

const needs = { list: [0, 1], get: [2, 2], 'get-all': [2, 2], head: [1, 1], delete: [1, 1], 'webp-size': [1, 1] };

try {
  const { values, positionals: [command, ...rest] } = parseArgs({ allowPositionals: true,
    options: { state: { type: 'string' } } });
  const [least, most] = needs[command] ?? [1, 0];
  if (rest.length < least || rest.length > most) throw new Error(usage);
  process.stdout.write(`${JSON.stringify(await commands[command](values.state, ...rest))}\n`);
} catch (error) {
  process.stderr.write(`objects: ${error.name === 'Error' ? '' : `${error.name}: `}${error.message}\n`);
  process.exitCode = 1;
}
