// The names that a server answers to. A web page can make a name of its own point at 127.0.0.1, and
// so reach the servers here from the browser of anybody who looks at the page. Such a request still
// has the page's name in its Host header and is refused with 421.

export class HostNames {
  #hosts = ['127.0.0.1', 'localhost'];
  #names = new Set();  // in lower case, each with its port

  /** further: hosts beside 127.0.0.1 and localhost. */
  constructor(...further) {
    this.#hosts.push(...further);
  }

  addPort(port) {
    for (const host of this.#hosts) this.#names.add(`${host}:${port}`.toLowerCase());
  }

  /** null for a request that names this server, else the refusal: {status, headers, body}. */
  refusal(request) {
    if (this.#names.has(request.headers.host?.toLowerCase())) return null;
    const message = `the Host header names another server; this one answers to ${[...this.#names].join(', ')}`;
    // The body of the request is not read, so its connection cannot be used again.
    return { status: 421, headers: { 'Content-Type': 'application/json', 'Connection': 'close' },
      body: JSON.stringify({ code: 1000, message }) };
  }

  /** Makes a Fastify server refuse such requests before it looks at anything else. */
  guard(app) {
    app.addHook('onRequest', async (request, reply) => {
      const refusal = this.refusal(request.raw);
      if (refusal) return reply.code(refusal.status).headers(refusal.headers).send(refusal.body);
    });
  }

  /** Listens on a free port of 127.0.0.1 and adds the port. */
  async listen(app) {
    await app.listen({ host: '127.0.0.1', port: 0 });
    this.addPort(app.server.address().port);
  }
}
