// The processes of this devstack: they are started in the foreground, watched, and stopped in
// order. No process outlives the supervisor: every child is started under `setpriv --pdeathsig
// TERM`, so that the kernel ends it even when the supervisor is killed with SIGKILL. Each child has
// a session of its own, so that Ctrl-C in a terminal reaches only the supervisor, which then stops
// the children in order.
import { execFile, spawn } from 'node:child_process';
import fs from 'node:fs';

/** Start time of a process in clock ticks since boot, or null. With the pid it names one process. */
export function startTimeOf(pid) {
  try {
    const stat = fs.readFileSync(`/proc/${pid}/stat`, 'latin1');
    // The command name may contain blanks and brackets, so the fields are counted after its closing
    // bracket.
    const fields = stat.slice(stat.lastIndexOf(')') + 2).split(' ');
    if (fields[0] === 'Z' || fields[0] === 'X') return null;
    return fields[19];
  } catch {
    return null;
  }
}

/**
 * Runs a short command to its end. Resolves to its standard output; rejects with what it said.
 * It too ends with the supervisor: a command whose server was just stopped waits for minutes.
 */
export function run(command, args, options = {}) {
  return new Promise((resolve, reject) => {
    const child = execFile(
      'setpriv', ['--pdeathsig', 'KILL', command, ...args],
      { maxBuffer: 16 << 20, timeout: 60_000, ...options, input: undefined },
      (error, stdout, stderr) => {
        if (!error) return resolve(stdout);
        // error.message is not shown, because it repeats the command line, which may contain keys.
        const said = (stderr || stdout).trim().split('\n').slice(-3).join(' | ') ||
          (error.killed ? 'it took too long' : error.code ?? error.signal);
        reject(new Error(`${command} ${args[0] ?? ''} failed: ${said}`));
      });
    child.stdin.on('error', () => {});  // The child may end without reading its input.
    child.stdin.end(options.input ?? '');
  });
}

export class Children {
  #children = [];   // in the order of their start
  #stopping = false;
  #onDeath;
  #onChange;
  #registerFile;    // lists pid and start time of each child, for the next start to check

  /**
   * onDeath(name, howItEnded) is called when a child ends that nobody asked to end. onChange() is called
   * after each start and each such end: pids() has changed.
   */
  constructor(registerFile, onDeath, onChange) {
    this.#registerFile = registerFile;
    this.#onDeath = onDeath;
    this.#onChange = onChange;
  }

  /**
   * Starts one long-running child; its output goes to logFile. One of the same name that has ended is
   * replaced, at its place in the order. onDeath(howItEnded): in the place of the constructor's.
   */
  start(name, command, args, logFile, onDeath = (how) => this.#onDeath(name, how)) {
    if (this.#stopping) throw new Error('the devstack is stopping');
    const log = fs.openSync(logFile, 'a', 0o600);
    const child = spawn('setpriv', ['--pdeathsig', 'TERM', command, ...args],
      { detached: true, stdio: ['ignore', log, log] });
    fs.closeSync(log);
    const entry = { name, child, pid: child.pid, ended: false };
    entry.end = new Promise((resolve) => {
      const over = (how) => {
        if (entry.ended) return;
        entry.ended = true;
        resolve();
        if (this.#stopping) return;
        onDeath(how);
        this.#onChange();
      };
      child.on('exit', (code, signal) => over(signal ? `signal ${signal}` : `exit status ${code}`));
      child.on('error', (error) => over(error.message));
    });
    const place = this.#children.findIndex((c) => c.name === name);
    if (place < 0) this.#children.push(entry);
    else this.#children[place] = entry;
    this.#writeRegister();
    this.#onChange();
    return entry;
  }

  pids() {
    return Object.fromEntries(
      this.#children.filter((c) => !c.ended && c.pid).map((c) => [c.name, c.pid]));
  }

  /** Stops all, the last started first. graceMs: how long each may take before it is killed. */
  async stop(graceMs) {
    this.#stopping = true;
    for (const entry of [...this.#children].reverse()) {
      if (entry.ended || !entry.pid) continue;
      entry.child.kill('SIGTERM');
      const timer = setTimeout(() => entry.child.kill('SIGKILL'), graceMs(entry.name));
      await entry.end;
      clearTimeout(timer);
    }
    fs.rmSync(this.#registerFile, { force: true });
  }

  #writeRegister() {
    const list = this.#children.filter((c) => c.pid).map(
      ({ name, pid }) => ({ name, pid, startTime: startTimeOf(pid) }));
    fs.writeFileSync(`${this.#registerFile}.tmp`, JSON.stringify(list), { mode: 0o600 });
    fs.renameSync(`${this.#registerFile}.tmp`, this.#registerFile);
  }
}

/**
 * Waits until the children of an earlier supervisor, which was killed, have gone; kills what stays.
 * A pid counts only together with its start time: it may name somebody else's process by now.
 */
export async function waitForLeftovers(registerFile) {
  let list;
  try {
    list = JSON.parse(fs.readFileSync(registerFile, 'utf8'));
  } catch {
    return;
  }
  const alive = () => list.filter((c) => c.startTime && startTimeOf(c.pid) === c.startTime);
  for (let i = 0; i < 50 && alive().length; i++) await new Promise((r) => setTimeout(r, 100));
  for (const { pid } of alive()) process.kill(pid, 'SIGKILL');
  fs.rmSync(registerFile, { force: true });
}
