"""What the tests of the program share: a private home, the program run as a person runs it, and the
devstack that $QX_DEVSTACK names. $QXUPLOADER is the program under test."""
import base64
import fcntl
import json
import os
import pathlib
import pty
import select
import signal
import struct
import subprocess
import tempfile
import termios
import time
import unittest
import urllib.request

PROGRAM = os.environ["QXUPLOADER"]
PATIENCE = 120  # seconds after which a run counts as hung; a loaded machine is slow

# The smallest PNG: one pixel.
PNG = base64.b64decode("iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR4nGNgYGBgAAAABQABh6FO1AAAAABJ"
                       "RU5ErkJggg==")


class Finished:
    def __init__(self, status, out, err):
        self.status, self.out, self.err = status, out, err

    @property
    def events(self):
        return [json.loads(line) for line in self.out.splitlines()]

    def named(self, name):
        return [event for event in self.events if event["event"] == name]


class ProgramTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.home = pathlib.Path(folder.name)
        self.documents = self.home / "documents"
        self.environment = {"HOME": str(self.home), "PATH": os.environ["PATH"], "TERM": "xterm",
                            "QXUPLOADER_DOCUMENTS": str(self.documents), "LC_ALL": "C.UTF-8"}
        for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"):
            if name in os.environ:
                self.environment[name] = os.environ[name]

    def file(self, name, content=b"content"):
        path = self.home / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
        return str(path)

    def files_in(self, folder):
        """The files below a folder, however deep."""
        return sorted(str(path.relative_to(folder)) for path in folder.rglob("*") if not path.is_dir())

    def start(self, *arguments, **environment):
        process = subprocess.Popen([PROGRAM, *map(str, arguments)], stdin=subprocess.PIPE,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                   env={**self.environment, **environment}, cwd=self.home)
        self.addCleanup(lambda: (process.poll() is None and process.kill(), process.wait(),
                                 process.stdin.close(), process.stdout.close(),
                                 process.stderr.close()))
        return process

    def run_program(self, *arguments, input="", **environment):
        process = self.start(*arguments, **environment)
        out, err = process.communicate(input, timeout=PATIENCE)
        self.assertGreaterEqual(process.returncode, 0, f"ended by a signal: {err}")
        return Finished(process.returncode, out, err)

    def run_on_small_disk(self, folder, size, *arguments, program=(PROGRAM,), **environment):
        """The program with `folder` on a disk of its own that holds `size` bytes. What the run leaves
        there is copied to the folder `left` of the outcome."""
        folder.mkdir(parents=True, exist_ok=True)
        left = pathlib.Path(tempfile.mkdtemp(dir=self.home))
        script = ('mount -t tmpfs -o "size=$1" none "$2" || exit 99; disk=$2; left=$3; shift 3; "$@"; '
                  'status=$?; cp -a "$disk/." "$left"; exit $status')
        done = subprocess.run(
            ["unshare", "--mount", *([] if os.geteuid() == 0 else ["--map-root-user"]), "sh", "-c", script,
             "sh", str(size), folder, left, *program, *map(str, arguments)],
            env={**self.environment, **environment}, cwd=self.home, text=True, capture_output=True,
            stdin=subprocess.DEVNULL, timeout=PATIENCE)
        self.assertNotEqual(done.returncode, 99, done.stderr)
        finished = Finished(done.returncode, done.stdout, done.stderr)
        finished.left = left
        return finished

    def run_on_terminal(self, *arguments, columns=100, interrupt_at=None, **environment):
        """The program on a pseudo-terminal; Ctrl-C is typed when `interrupt_at` shows up."""
        pid, terminal = pty.fork()
        if pid == 0:
            os.chdir(self.home)
            os.execve(PROGRAM, [PROGRAM, *map(str, arguments)], {**self.environment, **environment})
        fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        shown, deadline = b"", time.monotonic() + PATIENCE
        try:
            while True:
                if not select.select([terminal], [], [], max(0, deadline - time.monotonic()))[0]:
                    os.kill(pid, signal.SIGKILL)
                    self.fail(f"hung; showed {shown!r}")
                try:
                    part = os.read(terminal, 65536)
                except OSError:  # the other end is closed
                    break
                if not part:
                    break
                shown += part
                if interrupt_at and interrupt_at.encode() in shown:
                    os.write(terminal, b"\x03")
                    interrupt_at = None
        finally:
            os.close(terminal)
            status = os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1])
        return Finished(status, shown.decode(errors="replace"), "")


class DevstackTest(ProgramTest):
    """Tests that use a devstack. The identity and the addresses come from the environment."""
    scope = "avatar"

    def setUp(self):
        super().setUp()
        self.state = pathlib.Path(os.environ["QX_DEVSTACK"])
        self.devstack = json.loads(self.state.read_text())
        user = self.devstack["users"][0]
        self.user = user["userId"]
        self.environment |= {
            "QXUPLOADER_BACKEND": self.devstack["backend"],
            "QXUPLOADER_UPLOAD_SERVER": self.devstack["uploadServer"],
            "QXUPLOADER_STORE": self.devstack["store"],
            "QXUPLOADER_USER_ID": user["userId"],
            "QXUPLOADER_TOKEN": user["accessToken"],
            "QXUPLOADER_ENVIRONMENT": "test"}
        self.control("DELETE", "/faults")
        self.addCleanup(self.control, "DELETE", "/faults")

    def control(self, method, path, body=None):
        request = urllib.request.Request(
            self.devstack["admin"] + path, method=method,
            data=None if body is None else json.dumps(body).encode(),
            headers={} if body is None else {"Content-Type": "application/json"})
        with urllib.request.urlopen(request, timeout=PATIENCE) as answer:
            return json.load(answer)

    def fault(self, **fault):
        self.control("POST", "/faults", fault)

    def bytes_at(self, url):
        """The object as anybody may read it, through an HTTP client that is not the program's."""
        with urllib.request.urlopen(url, timeout=PATIENCE) as answer:
            return answer.read()


def wait_until(condition, what):
    deadline = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError(f"waited in vain for {what}")
        time.sleep(0.02)
