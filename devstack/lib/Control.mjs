// The control API: it switches faults, takes servers down and up, and shows what the servers have
// seen, in JSON.
import Fastify from 'fastify';
import { checkFault, readFault } from './FaultProxy.mjs';
import { HostNames } from './HostNames.mjs';

/** proxies: {backend, uploadServer, store}. daemons: a StorageDaemons or null. Resolves to the listening server. */
export async function startControl({ proxies, events, items, tokens, daemons, faultsFolder }) {
  const app = Fastify({ keepAliveTimeout: 120_000, exposeHeadRoutes: false });
  const hostNames = new HostNames();
  hostNames.guard(app);
  // A DELETE may have "Content-Type: application/json" and no body.
  app.addContentTypeParser('application/json', { parseAs: 'string' }, (request, body, done) => {
    try {
      done(null, body === '' ? undefined : JSON.parse(body));
    } catch {
      done(Object.assign(new Error('the body is not JSON'), { statusCode: 400 }));
    }
  });
  const bad = (message) => Object.assign(new Error(message), { statusCode: 400 });
  const target = (request) => {
    const name = request.body?.target;
    if (!Object.hasOwn(proxies, name)) throw bad(`target is not one of ${Object.keys(proxies).join(', ')}`);
    return proxies[name];
  };
  const all = (pick) => Object.fromEntries(Object.entries(proxies).map(([name, p]) => [name, pick(p)]));

  app.get('/faults', async () => Object.values(proxies).flatMap((p) => p.faults()));
  app.post('/faults', async (request) => {
    let fault;
    try {
      const { file, ...changed } = request.body ?? {};
      // {"file": "name", "count": 2} means the file with its members replaced by the given ones.
      fault = file === undefined ? checkFault(request.body)
        : checkFault({ ...readFault(faultsFolder, String(file)), ...changed });
    } catch (error) {
      throw bad(error.code === 'ENOENT' ? 'no such fault file' : error.message);
    }
    proxies[fault.target].addFault(fault);
    return fault;
  });
  app.delete('/faults', async (request) => {
    for (const p of Object.values(proxies)) p.clearFaults(request.query.name);
    return {};
  });

  app.post('/down', async (request) => {
    await target(request).down();
    return {};
  });
  app.post('/up', async (request) => {
    await target(request).up();
    return {};
  });

  const cluster = () => {
    if (!daemons) throw bad('this devstack was not started with --cluster');
    return daemons;
  };
  app.get('/storage-daemons', async () => cluster().list());
  app.post('/storage-daemons', async (request) => {
    await cluster().start(request.body?.start);
    return cluster().list();
  });

  app.get('/stats', async () => all((p) => p.stats()));
  app.delete('/stats', async () => {
    all((p) => p.resetStats());
    return {};
  });

  app.get('/events', async () => events.list());
  app.delete('/events', async () => {
    events.clear();
    return {};
  });

  app.get('/items', async () => items.list());

  app.get('/lifetime', async () => ({ seconds: tokens.lifetimeSeconds }));
  app.post('/lifetime', async (request) => {
    const seconds = request.body?.seconds;
    if (!Number.isInteger(seconds) || seconds < 5 || seconds > 3600) {
      throw bad('seconds is not a whole number from 5 to 3600');
    }
    tokens.lifetimeSeconds = seconds;
    return { seconds };
  });

  await hostNames.listen(app);
  return app;
}
