// A small HTTP proxy in front of one server. Without faults it is transparent: the request line,
// the headers (including Host, so that signatures verify) and the bodies pass unchanged, bodies as
// a stream, "Expect: 100-continue" end to end. Faults make it misbehave; README.md describes their
// actions.
import fs from 'node:fs';
import http from 'node:http';
import https from 'node:https';
import { PassThrough, Transform } from 'node:stream';

const actionNames = new Set(['delayMs', 'stall', 'reset', 'close', 'resetAfterBytes', 'truncateBodyAfter',
  'stallBodyAfter', 'respond', 'clockSkewSeconds', 'clockToleranceSeconds', 'throttleBytesPerSecond']);
const memberNames = new Set(['name', 'description', 'target', 'match', 'count', 'after', 'action']);
const stalls = new Set(['head', 'continue', 'body']);
export const targets = ['backend', 'uploadServer', 'store'];

/** Checks one fault read from a file or a request; throws an Error that says what is wrong with it. */
export function checkFault(fault) {
  const no = (message) => { throw new Error(`fault: ${message}`); };
  if (fault === null || typeof fault !== 'object') no('not an object');
  for (const name of Object.keys(fault)) if (!memberNames.has(name)) no(`unknown member ${name}`);
  if (typeof fault.name !== 'string' || !fault.name) no('name is missing');
  if (!targets.includes(fault.target)) no(`target is not one of ${targets.join(', ')}`);
  for (const name of Object.keys(fault.match ?? {})) {
    if (name !== 'method' && name !== 'pathPrefix') no(`unknown member match.${name}`);
  }
  for (const name of ['count', 'after']) {
    const value = fault[name] ?? null;
    if (value !== null && !(Number.isInteger(value) && value >= 0)) no(`${name} is not a whole number`);
  }
  const action = fault.action;
  if (action === null || typeof action !== 'object' || !Object.keys(action).length) no('action is missing');
  for (const [name, value] of Object.entries(action)) {
    if (!actionNames.has(name)) no(`unknown action ${name}`);
    if (name === 'stall' && !stalls.has(value)) no(`stall is not one of ${[...stalls].join(', ')}`);
    if (name === 'respond' && !Number.isInteger(value?.status)) no('respond.status is missing');
    const number = /Ms$|After|Seconds|Second$/.test(name);
    if (number && !Number.isFinite(value)) no(`${name} is not a number`);
  }
  return fault;
}

export function readFault(folder, name) {
  if (!/^[\w-]+$/.test(name)) throw new Error('fault: not a plain file name');
  return checkFault(JSON.parse(fs.readFileSync(`${folder}/${name}.json`, 'utf8')));
}

/** Passes `limit` bytes, then calls then() and passes nothing more. */
function passUpTo(limit, then) {
  let left = limit;
  let over = false;
  return new Transform({
    transform(chunk, encoding, done) {
      if (over) return done();
      const part = chunk.subarray(0, left);
      left -= part.length;
      if (left > 0) return done(null, part);
      over = true;
      this.push(part);
      then();
      done();
    },
  });
}

function throttle(bytesPerSecond) {
  return new Transform({
    transform(chunk, encoding, done) {
      setTimeout(() => done(null, chunk), chunk.length / bytesPerSecond * 1000);
    },
  });
}

const fresh = () => ({ requests: 0, inFlight: 0, maxInFlight: 0, connections: 0, aborted: 0, methods: {},
  statuses: {}, requestBytes: 0, responseBytes: 0 });

export class FaultProxy {
  #upstream;         // {protocol, hostname, port}
  #hostNames;
  #agent;
  #doors = [];       // {server, port, sockets, url}: plain, and with TLS where there is a certificate
  #faults = [];      // {fault, hits, left}
  #stats = fresh();
  #down = false;

  /** upstreamUrl: where the real server listens; hostNames: what this proxy answers to. */
  constructor(upstreamUrl, hostNames) {
    this.#hostNames = hostNames;
    this.#upstream = new URL(upstreamUrl);
    const Agent = this.#upstream.protocol === 'https:' ? https.Agent : http.Agent;
    // The proxy closes idle connections before the server behind it does.
    this.#agent = new Agent({ keepAlive: true, timeout: 20_000 });
  }

  /** Opens one more door. tls: {key, cert} or absent. Resolves to its URL. */
  async open(tls) {
    const options = { keepAliveTimeout: 300_000, requestTimeout: 0, headersTimeout: 0, maxHeaderSize: 1 << 16 };
    const server = tls ? https.createServer({ ...options, ...tls }) : http.createServer(options);
    const door = { server, port: 0, sockets: new Set() };
    server.on('request', (request, response) => this.#serve(request, response, false));
    server.on('checkContinue', (request, response) => this.#serve(request, response, true));
    server.on(tls ? 'secureConnection' : 'connection', () => this.#stats.connections++);
    server.on('connection', (socket) => {
      door.sockets.add(socket);
      socket.on('close', () => door.sockets.delete(socket));
    });
    server.on('clientError', (error, socket) => socket.destroy());
    await this.#listen(door);
    this.#hostNames.addPort(door.port);
    door.url = `${tls ? 'https://localhost' : 'http://127.0.0.1'}:${door.port}`;
    this.#doors.push(door);
    return door.url;
  }

  #listen(door) {
    return new Promise((resolve, reject) => {
      door.server.once('error', reject);
      door.server.listen(door.port, '127.0.0.1', () => {
        door.server.off('error', reject);
        door.port = door.server.address().port;
        resolve();
      });
    });
  }

  /** Refuses connections from now on and cuts the open ones. */
  async down() {
    if (this.#down) return;
    this.#down = true;
    await Promise.all(this.#doors.map((door) => new Promise((resolve) => {
      door.server.close(resolve);
      for (const socket of door.sockets) socket.destroy();
    })));
  }

  /** Listens again, at the same ports. */
  async up() {
    if (!this.#down) return;
    await Promise.all(this.#doors.map((door) => this.#listen(door)));
    this.#down = false;
  }

  async close() {
    await this.down();
    this.#agent.destroy();
  }

  addFault(fault) {
    this.#faults.push({ fault, hits: 0, seen: 0, left: fault.count ?? Infinity });
  }

  clearFaults(name) {
    this.#faults = name === undefined ? [] : this.#faults.filter((f) => f.fault.name !== name);
  }

  faults() {
    return this.#faults.map(({ fault, hits, left }) =>
      ({ ...fault, hits, left: left === Infinity ? null : left }));
  }

  stats() {
    return { ...this.#stats, down: this.#down };
  }

  /** Counts from zero again; what is in flight now stays counted as such. */
  resetStats() {
    const { inFlight } = this.#stats;
    Object.assign(this.#stats, fresh(), { inFlight, maxInFlight: inFlight });
  }

  /** The first fault that applies to this request; counts the hit. */
  #pick(request) {
    for (const entry of this.#faults) {
      const { method, pathPrefix } = entry.fault.match ?? {};
      if (method && method !== request.method) continue;
      if (pathPrefix && !request.url.startsWith(pathPrefix)) continue;
      if (++entry.seen <= (entry.fault.after ?? 0) || entry.left === 0) continue;
      const { clockSkewSeconds, clockToleranceSeconds = 300 } = entry.fault.action;
      if (clockSkewSeconds !== undefined && !tooSkewed(request, clockSkewSeconds, clockToleranceSeconds)) continue;
      entry.left--;
      entry.hits++;
      return entry.fault.action;
    }
    return null;
  }

  async #serve(request, response, expectsContinue) {
    const refusal = this.#hostNames.refusal(request);
    if (refusal) {
      response.writeHead(refusal.status, refusal.headers).end(refusal.body);
      return;
    }
    const stats = this.#stats;
    stats.requests++;
    stats.methods[request.method] = (stats.methods[request.method] ?? 0) + 1;
    stats.inFlight++;
    stats.maxInFlight = Math.max(stats.maxInFlight, stats.inFlight);
    response.on('close', () => {
      stats.inFlight--;
      if (response.writableFinished) stats.statuses[response.statusCode] = (stats.statuses[response.statusCode] ?? 0) + 1;
      else stats.aborted++;
    });
    request.on('error', () => {});
    response.on('error', () => {});
    response.sendDate = false;  // The Date of the server behind passes unchanged.

    const action = this.#pick(request) ?? {};
    if (action.delayMs) await new Promise((resolve) => setTimeout(resolve, action.delayMs));
    if (request.socket.destroyed) return;
    if (action.reset) return request.socket.resetAndDestroy?.();
    if (action.close) return request.socket.destroy();
    if (action.stall === 'head') return;  // Neither reads nor answers until the client gives up.
    if (action.stall === 'continue' && expectsContinue) return response.writeContinue();
    if (action.stall) {
      if (expectsContinue) response.writeContinue();
      if (action.stall === 'body') request.resume();
      return;
    }
    if (action.clockSkewSeconds !== undefined) {
      return this.#respond(request, response, expectsContinue, skewedAnswer(action.clockSkewSeconds));
    }
    if (action.respond) return this.#respond(request, response, expectsContinue, action.respond);
    this.#forward(request, response, expectsContinue, action);
  }

  /** Answers by itself. Reads the request's body first, unless respond.early. */
  #respond(request, response, expectsContinue, { status, headers = {}, body = '', bodyBase64, repeat = 1, early }) {
    const fill = (text) => text.replace(/\{(self|path|direct)\}/g, (all, name) => ({
      path: request.url, direct: this.#upstream.origin, self: this.#doors[0].url })[name]);
    let bytes = bodyBase64 !== undefined ? Buffer.from(bodyBase64, 'base64')
      : Buffer.from(typeof body === 'string' ? fill(body) : JSON.stringify(body));
    if (repeat > 1) bytes = Buffer.concat(Array(repeat).fill(bytes));
    const answer = () => {
      if (response.destroyed) return;
      const all = { Date: new Date().toUTCString(), 'Content-Length': bytes.length,
        ...Object.fromEntries(Object.entries(headers).map(([k, v]) => [k, fill(String(v))])) };
      if (early) all.Connection = 'close';
      response.writeHead(status, all);
      this.#stats.responseBytes += bytes.length;
      response.end(request.method === 'HEAD' ? undefined : bytes);
    };
    if (early) return answer();
    if (expectsContinue) response.writeContinue();
    request.on('end', answer);
    request.on('data', (chunk) => { this.#stats.requestBytes += chunk.length; });
  }

  #forward(request, response, expectsContinue, action) {
    const cut = () => request.socket.destroy();
    const rst = () => request.socket.resetAndDestroy();
    const headers = withoutHopByHop(request.rawHeaders);
    const send = this.#upstream.protocol === 'https:' ? https.request : http.request;
    const up = send({ hostname: this.#upstream.hostname, port: this.#upstream.port, method: request.method,
      path: request.url, headers, agent: this.#agent, setHost: false });
    let answered = false;

    const sendBody = () => {
      let body = request;
      body.on('data', (chunk) => { this.#stats.requestBytes += chunk.length; });
      if (action.throttleBytesPerSecond) body = body.pipe(throttle(action.throttleBytesPerSecond));
      if (action.resetAfterBytes !== undefined) {
        body = body.pipe(passUpTo(action.resetAfterBytes, () => { rst(); up.destroy(); }));
      }
      body.pipe(up);
    };
    if (expectsContinue) {
      up.on('continue', () => {
        response.writeContinue();
        sendBody();
      });
      up.flushHeaders();
    } else {
      sendBody();
    }

    up.on('response', (answer) => {
      answered = true;
      answer.on('error', cut);
      answer.on('data', (chunk) => { this.#stats.responseBytes += chunk.length; });
      const back = withoutHopByHop(answer.rawHeaders);
      // Without a 100 the body of the request was never sent, so this connection cannot be used
      // again.
      if (expectsContinue && !request.complete) back.push('Connection', 'close');
      response.writeHead(answer.statusCode, answer.statusMessage, back);
      if (action.truncateBodyAfter !== undefined) {
        response.flushHeaders();
        answer.pipe(passUpTo(action.truncateBodyAfter, () => setTimeout(cut, 20))).pipe(response, { end: false });
        answer.on('end', () => setTimeout(cut, 20));
      } else if (action.stallBodyAfter !== undefined) {
        response.flushHeaders();
        answer.pipe(passUpTo(action.stallBodyAfter, () => {})).pipe(response, { end: false });
      } else {
        answer.pipe(new PassThrough()).pipe(response);
      }
    });
    up.on('error', () => {
      // The server behind has closed the connection, so the client sees its connection end, as it
      // would without the proxy.
      if (!answered || !response.writableFinished) cut();
    });
    response.on('close', () => {
      if (!response.writableFinished) up.destroy();
    });
  }
}

function withoutHopByHop(rawHeaders) {
  const kept = [];
  for (let i = 0; i < rawHeaders.length; i += 2) {
    if (/^(connection|keep-alive|proxy-connection)$/i.test(rawHeaders[i])) continue;
    kept.push(rawHeaders[i], rawHeaders[i + 1]);
  }
  return kept;
}

/** Whether the request was signed at a time that a server whose clock is off would refuse. */
function tooSkewed(request, skewSeconds, toleranceSeconds) {
  const m = /^(\d{4})(\d\d)(\d\d)T(\d\d)(\d\d)(\d\d)Z$/.exec(request.headers['x-amz-date'] ?? '');
  if (!m) return false;
  const signed = Date.UTC(m[1], m[2] - 1, m[3], m[4], m[5], m[6]);
  return Math.abs(signed - (Date.now() + skewSeconds * 1000)) > toleranceSeconds * 1000;
}

function skewedAnswer(skewSeconds) {
  const now = new Date(Date.now() + skewSeconds * 1000);
  return {
    status: 403,
    headers: { Date: now.toUTCString(), 'Content-Type': 'application/xml', 'x-amz-request-id': 'tx-skewed' },
    body: '<?xml version="1.0" encoding="UTF-8"?><Error><Code>RequestTimeTooSkewed</Code>' +
      '<Message>The difference between the request time and the current time is too large.</Message>' +
      `<ServerTime>${now.toISOString()}</ServerTime><RequestId>tx-skewed</RequestId></Error>`,
  };
}
