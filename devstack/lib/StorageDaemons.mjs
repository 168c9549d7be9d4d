// The storage daemons of the object store: which of them run, what the loss of one means, and how
// one that has ended is started again. Of several daemons on disk one may be lost. When a single
// daemon in memory ends, its objects are lost.

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

/** A control call that cannot be obeyed; status is that of its answer. */
class Refusal extends Error {
  constructor(statusCode, message) {
    super(message);
    this.statusCode = statusCode;
  }
}

export class StorageDaemons {
  #daemons = new Map();  // by name: {name, id, launch, child, ended}
  #needed;
  #ceph;
  #say;

  /** needed: how many must run for the store to work. ceph(args): resolves to the output of that command. */
  constructor({ needed, ceph, say }) {
    this.#needed = needed;
    this.#ceph = ceph;
    this.#say = say;
  }

  /** launch(onDeath): starts the process and returns its entry in Children. */
  add(name, id, launch) {
    const daemon = { name, id, launch, child: null, ended: null };
    this.#daemons.set(name, daemon);
    this.#launch(daemon);
  }

  #launch(daemon) {
    daemon.ended = null;
    daemon.child = daemon.launch((how) => {
      daemon.ended = how;
      this.#say(`${daemon.name} ended (${how}); ${this.#state()}. To bring it back: ` +
        `POST /storage-daemons {"start": "${daemon.name}"} at the control API`);
    });
  }

  #running() {
    return [...this.#daemons.values()].filter((d) => d.ended === null).length;
  }

  #state() {
    const running = this.#running();
    const count = `${running} of ${this.#daemons.size} storage daemons`;
    return running >= this.#needed ? `the store goes on with ${count}`
      : `the store stands still with ${count}, it needs ${this.#needed}`;
  }

  list() {
    const daemons = [...this.#daemons.values()].sort((a, b) => a.id - b.id).map(({ name, child, ended }) =>
      ({ name, running: ended === null, pid: ended === null ? child.pid : null, ended }));
    return { needed: this.#needed, running: this.#running(), daemons };
  }

  /** Starts one that has ended; resolves once the store counts on it again. */
  async start(name) {
    const daemon = this.#daemons.get(name);
    if (!daemon) throw new Refusal(400, `start is not one of ${[...this.#daemons.keys()].join(', ')}`);
    if (daemon.ended === null) throw new Refusal(409, `${name} runs already`);
    this.#launch(daemon);
    for (const end = Date.now() + 60_000; ;) {
      if (daemon.ended !== null) throw new Refusal(503, `${name} ended again (${daemon.ended})`);
      if (await this.#counted(daemon)) break;
      if (Date.now() > end) throw new Refusal(503, `the store does not count on ${name} yet`);
      await sleep(100);
    }
    this.#say(`${name} runs again; ${this.#state()}`);
  }

  /** Whether the monitor has this very process as running: a process that was killed stays listed for a while. */
  async #counted({ id, child }) {
    const map = JSON.parse(await this.#ceph(['osd', 'dump', '-f', 'json']));
    const known = map.osds.find((osd) => osd.osd === id);
    // An address ends in the process id, "127.0.0.1:6800/4711".
    return known?.up === 1 && known.public_addr.endsWith(`/${child.pid}`);
  }
}
