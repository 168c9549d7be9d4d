"""Uploads and downloads against the devstack, read back by an HTTP client that is not ours."""
import json
import os
import pathlib
import random
import unittest

from Support import DevstackTest, PNG


class Transfer(DevstackTest):
    def upload(self, path, *arguments, **environment):
        done = self.run_program("upload", path, "--scope", self.scope, "--json", *arguments,
                                **environment)
        self.assertEqual(done.status, 0, done.err + done.out)
        uploaded, = done.named("uploaded")
        return uploaded

    def testUploadedBytesAreAtThePrintedAddress(self):
        content = random.Random(1).randbytes(100_000)
        uploaded = self.upload(self.file("a photo.jpg", content), "--item-id", "17")
        self.assertEqual(self.bytes_at(uploaded["url"]), content)
        self.assertTrue(uploaded["url"].endswith(".jpg"))
        self.assertEqual(uploaded["itemId"], 17)

    def testPlainLinesHaveNoControlCharacters(self):
        path = self.file("a.txt")
        done = self.run_program("upload", path, "--scope", self.scope, TERM="xterm-256color")
        self.assertEqual(done.status, 0, done.err)
        self.assertRegex(done.out, rf"^{path} -> http://\S+\.txt \(item \d+\)\n$")
        self.assertEqual(done.err, "")

    def testTokenFromCommandAndFile(self):
        token = self.environment.pop("QXUPLOADER_TOKEN")
        self.upload(self.file("a.txt"), "--token-command", f"echo {token}")
        config = self.file("config.toml", f'token = "{token}"\n'.encode())
        os.chmod(config, 0o600)
        self.upload(self.file("a.txt"), "--config", config)

    def testWrongTokenFailsWithoutShowingIt(self):
        done = self.run_program("upload", self.file("a.txt"), "--scope", self.scope, "--verbose",
                                QXUPLOADER_TOKEN="wrong-token-0123456789")
        self.assertEqual(done.status, 1)
        self.assertIn("a.txt failed", done.err)
        self.assertNotIn("wrong-token", done.out + done.err)

    def testUnknownScopeFailsWithAdvice(self):
        done = self.run_program("upload", self.file("a.txt"), "--scope", "nowhere")
        self.assertEqual(done.status, 1)
        self.assertIn("[Error] not found config with key:nowhere; check --scope", done.err)

    def testManyFilesEachArrive(self):
        files = [self.file(f"{n}.txt", f"content {n}".encode()) for n in range(30)]
        done = self.run_program("upload", *files, "--scope", self.scope, "--json")
        self.assertEqual(done.status, 0, done.err)
        self.assertEqual({event["file"]: self.bytes_at(event["url"]) for event in done.named("uploaded")},
                         {path: f"content {n}".encode() for n, path in enumerate(files)})

    def testDownloadGivesTheSameBytes(self):
        content = random.Random(2).randbytes(3_000_000)
        url = self.upload(self.file("a.bin", content))["url"]
        output = self.home / "output"
        output.mkdir()
        done = self.run_program("download", url, "--scope", self.scope, "--output", output, "--json")
        self.assertEqual(done.status, 0, done.err + done.out)
        downloaded, = done.named("downloaded")
        self.assertEqual(pathlib.Path(downloaded["file"]).read_bytes(), content)
        self.assertEqual([path.name for path in output.iterdir()], [url.rsplit("/", 1)[1]])
        self.assertEqual(downloaded["bytes"], len(content))
        progress = done.named("progress")
        self.assertEqual((progress[-1]["fraction"], progress[-1]["bytes"], progress[-1]["total"]),
                         (1.0, len(content), len(content)))

    def testDownloadWithoutOutputStaysInTheCache(self):
        url = self.upload(self.file("a.bin"))["url"]
        done = self.run_program("download", url, "--scope", self.scope, "--json")
        cached = self.documents / "com.qxuploader.download.cache" / url.rsplit("/", 1)[1]
        self.assertEqual(done.named("downloaded")[0]["file"], str(cached))
        self.assertEqual(cached.read_bytes(), b"content")

    def testProgressBarOnATerminal(self):
        url = self.upload(self.file("a.bin", os.urandom(40_000_000)))["url"]
        name = url.rsplit("/", 1)[1]
        done = self.run_on_terminal("download", url, "--scope", self.scope, columns=120)
        self.assertEqual(done.status, 0, done.out)
        self.assertRegex(done.out, rf"\r\x1b\[K{name} +\d+% \[#*-*\]  \S+ [KMG]iB/38\.1 MiB  "
                                   r"\S+ [KMG]?i?B/s  \S+( s)? left")
        self.assertIn("100% [####################]", done.out)
        self.assertIn("\x1b[32m", done.out)
        colourless = self.run_on_terminal("download", url, "--scope", self.scope, NO_COLOR="1")
        self.assertNotIn("\x1b[32m", colourless.out)
        dumb = self.run_on_terminal("download", url, "--scope", self.scope, TERM="dumb")
        self.assertNotIn("\x1b", dumb.out)

    def testNarrowTerminalIsNotOverrun(self):
        url = self.upload(self.file("a.bin", os.urandom(2_000_000)))["url"]
        done = self.run_on_terminal("download", url, "--scope", self.scope, columns=40)
        for line in done.out.split("\r\x1b[K")[1:-1]:
            self.assertLessEqual(len(line), 40, line)

    def testMissingObjectFailsAndTheOthersGoOn(self):
        url = self.upload(self.file("a.bin"))["url"]
        missing = url.rsplit("/", 1)[0] + "/missing.bin"
        done = self.run_program("download", missing, "no url at all", url, "--scope", self.scope, "--json")
        self.assertEqual(done.status, 1)
        self.assertEqual([event["url"] for event in done.named("failed")], [missing, "no url at all"])
        self.assertEqual([event["url"] for event in done.named("downloaded")], [url])

    def testInterruptedDownloadEndsWith130(self):
        url = self.upload(self.file("a.bin", os.urandom(1_000_000)))["url"]
        self.fault(name="hold", target="store", match={"method": "GET"},
                   action={"stallBodyAfter": 500_000})
        done = self.run_on_terminal("download", url, "--scope", self.scope, interrupt_at="[")
        self.assertEqual(done.status, 130)
        self.assertIn("interrupted", done.out)
        self.assertEqual(self.files_in(self.documents), [])

    def testRelativeDocumentsDirectory(self):
        url = self.upload(self.file("a.bin"))["url"]
        done = self.run_program("download", url, "--scope", self.scope, "--documents", "relative/to/it")
        self.assertEqual(done.status, 0, done.err)
        name = url.rsplit("/", 1)[1]
        cached = self.home / "relative/to/it/com.qxuploader.download.cache" / name
        self.assertEqual(cached.read_bytes(), b"content")

    def testFailedMoveLeavesNothingBehind(self):
        url = self.upload(self.file("a.bin"))["url"]
        output = self.home / "output"
        (output / url.rsplit("/", 1)[1]).mkdir(parents=True)
        done = self.run_program("download", url, "--scope", self.scope, "--output", output)
        self.assertEqual(done.status, 1)
        self.assertEqual((self.files_in(self.documents), self.files_in(output)), ([], []))

    def testStoredTasksAreLeftAlone(self):
        self.control("POST", "/down", {"target": "store"})
        try:
            path = self.file("stored.jpg")
            self.assertEqual(self.run_program("background", path, "--scope", self.scope).status, 1)
        finally:
            self.control("POST", "/up", {"target": "store"})
        folder = self.documents / "aws-0011" / self.user
        before = {entry.name: entry.read_bytes() for entry in folder.iterdir()}
        self.assertEqual(len(before), 2)
        url = self.upload(self.file("a.txt"))["url"]
        self.upload(self.file("b.png", PNG), "--server-resize")
        self.assertEqual(self.run_program("download", url, "--scope", self.scope).status, 0)
        self.assertEqual({entry.name: entry.read_bytes() for entry in folder.iterdir()}, before)
        self.assertEqual(sorted(entry.name for entry in self.documents.iterdir()),
                         ["aws-0011", "com.qxuploader.download.cache"])

    def testDocumentsDirectoryThatCannotBeMadeIsNamed(self):
        done = self.run_program("upload", self.file("a.txt"), "--scope", self.scope, "--documents",
                                self.file("file"))
        self.assertEqual(done.status, 1)
        self.assertRegex(done.err, r"/file.*; name a directory that can be written with --documents")

    def testActionsUploadThroughTheMediator(self):
        lines = [{"action": "SetUp:", "params": {"needServerResize": False}},
                 {"action": "Upload:", "params": {"scope": self.scope, "data": {"base64": "aGVsbG8="},
                                                  "suffix": "txt", "itemId": "5",
                                                  "complete": {"callback": "up"}}}]
        done = self.run_program("actions", input="".join(json.dumps(line) + "\n" for line in lines))
        self.assertEqual(done.status, 0, done.err)
        callback, = done.named("callback")
        self.assertEqual((callback["queue"], callback["arguments"]["itemId"],
                          callback["arguments"]["error"]), ("main", 5, None))
        self.assertEqual(self.bytes_at(callback["arguments"]["url"]), b"hello")
        self.assertIn("upload", [event["parameters"]["type"] for event in done.named("tracking")])


if __name__ == "__main__":
    unittest.main()
