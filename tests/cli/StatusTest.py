"""`status` reads the log as it lies on disk. The logs here are written by Python's plistlib."""
import json
import os
import plistlib
import subprocess
import unittest

from Support import PATIENCE, PROGRAM, ProgramTest


class Status(ProgramTest):
    def setUp(self):
        super().setUp()
        self.environment["QXUPLOADER_USER_ID"] = "7"

    def store(self, entries, format=plistlib.FMT_XML):
        folder = self.documents / "aws-0011/7"
        folder.mkdir(parents=True)
        log = {}
        for name, (data, attempts, extra, time) in entries.items():
            log[name] = {"base": {"file_path": f"aws-0011/7/{name}", "module_key": "avatar",
                                  "upload_count": attempts}, "extra": extra}
            if data is not None:
                (folder / name).write_bytes(data)
                os.utime(folder / name, (time, time))
        (folder / "logs.plist").write_bytes(plistlib.dumps(log, fmt=format))

    def testNothingStored(self):
        done = self.run_program("status")
        self.assertEqual((done.status, done.out, done.err), (0, "user 7: 0 stored tasks\n", ""))
        self.assertFalse(self.documents.exists())

    def testCountBytesOldestAndAttempts(self):
        self.store({"b.jpg": (b"x" * 1536, 4, {"qxuploaderFile": "/photos/b.jpg"}, 1700000000),
                    "a.jpg": (b"y" * 512, 0, {}, 1600000000)})
        done = self.run_program("status")
        self.assertEqual(done.out, "user 7: 2 stored tasks, 2.0 KiB, oldest 2020-09-13T12:26:40Z, "
                                   "at most 4 failed attempts each\n")
        verbose = self.run_program("status", "--verbose").out.splitlines()
        self.assertEqual(verbose[:2], [
            "  a.jpg  avatar  512 B  2020-09-13T12:26:40Z  0 failed attempts",
            "  /photos/b.jpg  avatar  1.5 KiB  2023-11-14T22:13:20Z  4 failed attempts"])

    def testFileIsTheOneOfTheTag(self):
        tag = json.dumps({"file": "/photos/\u00fc.jpg", "sha256": "0" * 64})
        self.store({"a.jpg": (b"y", 0, {"tag": tag}, 1600000000),
                    "b.jpg": (b"y", 0, {"tag": "another host's"}, 1600000001)})
        done = self.run_program("status", "--json")
        self.assertEqual([event["file"] for event in done.named("task")], ["/photos/\u00fc.jpg", "b.jpg"])

    def testJson(self):
        self.store({"a.jpg": (b"y" * 512, 3, {"qxuploaderFile": "/p/a.jpg"}, 1600000000),
                    "gone.jpg": (None, 1, {}, 0)}, plistlib.FMT_BINARY)
        done = self.run_program("status", "--json")
        tasks = {event["name"]: event for event in done.named("task")}
        self.assertEqual((tasks["a.jpg"]["file"], tasks["a.jpg"]["bytes"], tasks["a.jpg"]["scope"],
                          tasks["a.jpg"]["attempts"], tasks["a.jpg"]["stored"]),
                         ("/p/a.jpg", 512, "avatar", 3, "2020-09-13T12:26:40Z"))
        self.assertIsNone(tasks["gone.jpg"]["bytes"])
        summary, = done.named("status")
        self.assertEqual((summary["count"], summary["bytes"], summary["attempts"], summary["user"]),
                         (2, 512, 3, "7"))

    def testDamagedLogIsAFailure(self):
        folder = self.documents / "aws-0011/7"
        folder.mkdir(parents=True)
        (folder / "logs.plist").write_bytes(b"<plist><array/></plist>")
        done = self.run_program("status")
        self.assertEqual(done.status, 1)
        self.assertIn("logs.plist is damaged", done.err)

    def testControlCharactersOfNamesDoNotReachTheTerminal(self):
        self.store({"a.jpg": (b"", 0, {"qxuploaderFile": "evil\tname\x7f"}, 1600000000)})
        done = self.run_on_terminal("status", "--verbose")
        self.assertIn("evil\\x09name\\x7f", done.out)

    def testSecondHalfOfTheControlCharactersDoesNotReachTheTerminal(self):
        name = "\u0080\u009b2J\u009fü€😀\u00a0\udc9b\udce4.\udc85"
        safe = "\\u0080\\u009b2J\\u009fü€😀\u00a0\\x9b\udce4.\\x85"
        shown = self.run_bytes("upload", name, "--scope", "s", "--user-id", "7", "--token", "t",
                               "--backend", "http://127.0.0.1:9")
        self.assertIn(os.fsencode(safe + " could not be read"), shown)
        for arguments in ((name,), ("status", "--" + name), ("status", "--config", name),
                          ("upload", "a", "--scope", "s", "--user-id", "../" + name)):
            shown = self.run_bytes(*arguments)
            self.assertIn(os.fsencode("\\u009b2J"), shown, arguments)
            self.assertNotIn("\u009b".encode(), shown, arguments)

    def run_bytes(self, *arguments):
        return subprocess.run([PROGRAM, *arguments], env=self.environment, capture_output=True,
                              timeout=PATIENCE, cwd=self.home).stderr


if __name__ == "__main__":
    unittest.main()
