// The upload server: it takes an image in a form, makes a WebP of it and stores the WebP with the
// credentials in the form. It has no credentials of its own.
import multipart from '@fastify/multipart';
import { PutObjectCommand } from '@aws-sdk/client-s3';
import Fastify from 'fastify';
import sharp from 'sharp';
import { storeClient } from './StoreClient.mjs';

const needed = ['image_size', 'format', 'quality', 'path', 'bucket', 's3_key', 's3_secret',
  's3_session_token', 's3_region'];
const secret = new Set(['s3_key', 's3_secret', 's3_session_token']);

class Refusal extends Error {
  constructor(status, message) {
    super(message);
    this.status = status;
  }
}

const integer = (text, name, max) => {
  if (!/^\d{1,6}$/.test(text) || Number(text) < 1 || Number(text) > max) {
    throw new Refusal(400, `${name} is not a number from 1 to ${max}`);
  }
  return Number(text);
};

async function readForm(request, event) {
  const fields = {};
  let image = null;
  event.parts = [];
  if (!request.isMultipart()) throw new Refusal(400, 'not a multipart form');
  try {
    for await (const part of request.parts()) {
      if (part.type === 'file') {
        const bytes = await part.toBuffer();
        event.parts.push({ name: part.fieldname, filename: part.filename, size: bytes.length });
        if (part.fieldname === 'img') image = bytes;
      } else {
        event.parts.push({ name: part.fieldname });
        fields[part.fieldname] = part.value;
      }
    }
  } catch (error) {
    if (error.statusCode === 413) throw new Refusal(413, 'the image is too large');
    throw new Refusal(400, 'the form cannot be read');
  }
  event.fields = Object.fromEntries(Object.entries(fields).filter(([name]) => !secret.has(name)));
  for (const name of needed) {
    if (typeof fields[name] !== 'string') throw new Refusal(400, `${name} is missing`);
  }
  if (!image) throw new Refusal(400, 'img is missing');
  if (fields.format !== 'webp') throw new Refusal(400, 'format is not webp');
  if (fields.path === '' || fields.bucket === '') throw new Refusal(400, 'path or bucket is empty');
  return { fields, image };
}

/** storeUrl: where it stores. maxBytes: the largest image it takes. hostNames: its own. Resolves to the listening server. */
export async function startUploadServer({ storeUrl, events, maxBytes, hostNames }) {
  const app = Fastify({ keepAliveTimeout: 120_000, bodyLimit: maxBytes + (1 << 16), exposeHeadRoutes: false });
  hostNames.guard(app);
  app.addHook('onRequest', async (request) => {
    request.event = events.add({ server: 'uploadServer', kind: 'upload', method: request.method,
      path: request.raw.url, headers: request.headers });
  });
  app.addHook('onResponse', async (request, reply) => {
    request.event.status = reply.statusCode;
  });
  // A body that is no form at all counts as a bad form.
  app.removeAllContentTypeParsers();
  await app.register(multipart, { limits: { fileSize: maxBytes, files: 1, fieldSize: 1 << 16 } });
  app.addContentTypeParser('*', (request, body, done) => done(null));
  app.setErrorHandler((error, request, reply) =>
    reply.code(error.status ?? error.statusCode ?? 500).send({ message: error.message }));

  app.post('/*', async (request) => {
    const { fields, image } = await readForm(request, request.event);
    const size = integer(fields.image_size, 'image_size', 16383);
    const quality = integer(fields.quality, 'quality', 100);
    let webp;
    try {
      webp = await sharp(image, { autoOrient: true })
        .resize({ width: size, height: size, fit: 'inside', withoutEnlargement: true })
        .webp({ quality }).toBuffer({ resolveWithObject: true });
    } catch {
      throw new Refusal(415, 'img is not an image');
    }
    const s3 = storeClient({ url: storeUrl, region: fields.s3_region, credentials: {
      accessKey: fields.s3_key, secretKey: fields.s3_secret, sessionToken: fields.s3_session_token } });
    try {
      await s3.send(new PutObjectCommand({ Bucket: fields.bucket, Key: fields.path, Body: webp.data,
        ContentType: 'image/webp' }));
    } catch (error) {
      // Refused credentials are the client's fault; any other failure is the server's.
      const status = error.$metadata?.httpStatusCode;
      if (status === 403) throw new Refusal(403, 'the store refuses the credentials');
      throw new Refusal(502, 'the store does not take the image');
    } finally {
      s3.destroy();
    }
    request.event.stored = { key: fields.path, width: webp.info.width, height: webp.info.height, size: webp.info.size };
    return {};
  });

  await hostNames.listen(app);
  return app;
}
