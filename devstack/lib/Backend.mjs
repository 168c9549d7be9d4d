// The application's backend: hands out per-scope, expiring credentials and takes item updates.
// docs/backend-contract.md describes every exchange.
import Fastify from 'fastify';
import { updateFault } from './Items.mjs';
import { authorizedPath, scopes } from './Scopes.mjs';
import { signatureFault } from './Signature.mjs';

const internalError = 1000;

/** users: [{userId, accessToken}]. downloadUrlPrefix: () => text. hostNames: its own. Resolves to the listening server. */
export async function startBackend({ users, tokens, store, items, events, downloadUrlPrefix, hostNames }) {
  const app = Fastify({ keepAliveTimeout: 120_000, bodyLimit: 1 << 20, exposeHeadRoutes: false });
  hostNames.guard(app);
  app.removeAllContentTypeParsers();
  app.addContentTypeParser('*', { parseAs: 'buffer' }, (request, body, done) => done(null, body));

  const refuse = (reply, status, message) => reply.code(status).send({ code: internalError, message });
  const note = (request, kind) => {
    request.event = events.add({ server: 'backend', kind, method: request.method, path: request.raw.url,
      headers: request.headers });
  };
  app.addHook('onResponse', async (request, reply) => {
    if (request.event) request.event.status = reply.statusCode;
  });
  app.setErrorHandler((error, request, reply) =>
    refuse(reply, error.statusCode ?? 500, error.statusCode ? error.message : 'internal error'));
  app.setNotFoundHandler((request, reply) => {
    note(request, 'unknown');
    return refuse(reply, 404, 'no such message');
  });

  /** The user of a message, or null after it was refused. */
  const userOf = (request, reply) => {
    const user = users.find((u) => u.userId === request.headers['user-id']);
    let fault = null;
    if (!user) fault = 'unknown user';
    else if (user.accessToken !== request.headers['access-token']) fault = 'wrong access token';
    else {
      fault = signatureFault({ header: request.headers['qx-signature'], accessToken: user.accessToken,
        method: request.method, path: request.raw.url, body: request.body ?? Buffer.alloc(0),
        now: Math.floor(Date.now() / 1000) });
    }
    if (fault === null) return user;
    request.event.refused = fault;
    refuse(reply, 401, fault);
    return null;
  };

  app.get('/v3/storage/get_upload_config', async (request, reply) => {
    note(request, 'getUploadConfig');
    const user = userOf(request, reply);
    if (!user) return reply;
    let records;
    try {
      records = await Promise.all(Object.keys(scopes).map(async (scope) => {
        const c = await tokens.forScope(scope, user.userId);
        return [scope, {
          access_key_id: c.accessKey,
          access_key_secret: c.secretKey,
          security_token: c.sessionToken,
          expiration: c.expiration.toISOString(),
          bucket: store.bucket,
          region: store.region,
          authorized_path: authorizedPath(scope, user.userId),
          download_url_prefix: downloadUrlPrefix(),
        }];
      }));
    } catch (error) {
      request.event.fault = error.name;
      return refuse(reply, 503, 'the token service does not answer');
    }
    return { upload_token_map: Object.fromEntries(records) };
  });

  const itemUpdate = (path, kind, urlName) => app.post(path, async (request, reply) => {
    note(request, kind === 'det' ? 'updateDetImage' : 'updateImage');
    const user = userOf(request, reply);
    if (!user) return reply;
    let body;
    try {
      body = JSON.parse(request.body?.toString('utf8') ?? '');
    } catch {
      return refuse(reply, 400, 'the body is not JSON');
    }
    request.event.body = body;
    request.event.bodyText = request.body.toString('utf8');  // shows the order of the members
    const fault = updateFault(body, urlName);
    if (fault !== null) return refuse(reply, 400, fault);
    items.update(user.userId, kind, body[urlName], body);
    return {};
  });
  itemUpdate('/v3/item/update_item_original_image_url', 'plain', 'original_image_url');
  itemUpdate('/v3/item/update_item_original_det_image_url', 'det', 'original_det_image_url');

  app.get('/events', async () => events.list());

  await hostNames.listen(app);
  return app;
}
