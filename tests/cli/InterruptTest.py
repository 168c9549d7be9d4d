"""Ctrl-C while a server does not answer: the program ends at once, and whole."""
import json
import signal
import socket
import time
import unittest

from Support import ProgramTest

SECONDS = 15  # A server that does not answer is given up after 30.


class Interrupt(ProgramTest):
    def setUp(self):
        super().setUp()
        self.backend = socket.create_server(("127.0.0.1", 0))
        self.backend.settimeout(SECONDS)
        self.addCleanup(self.backend.close)
        self.address = f"http://127.0.0.1:{self.backend.getsockname()[1]}"

    def interrupted(self, *arguments):
        """Runs the program until it has sent its first request, then interrupts it."""
        process = self.start(*arguments, "--scope", "s", "--user-id", "7", "--token", "t", "--backend", self.address)
        err = self.interrupt(process)
        self.assertIn("interrupted; ", err)
        return err

    def interrupt(self, process):
        request, _ = self.backend.accept()
        self.addCleanup(request.close)
        self.assertTrue(request.recv(1))
        process.send_signal(signal.SIGINT)
        start = time.monotonic()
        out, err = process.communicate(timeout=60)
        self.assertLess(time.monotonic() - start, SECONDS)
        self.assertEqual(process.returncode, 130, err)
        return err

    def testUpload(self):
        self.assertIn("0 of 2 files uploaded", self.interrupted("upload", self.file("a"), self.file("b")))

    def testDownload(self):
        self.interrupted("download", "http://127.0.0.1:9/bucket/a.jpg")
        self.assertEqual(self.files_in(self.documents), [])

    def testBackgroundUploadsStayStoredAndHaveNotFailed(self):
        err = self.interrupted("background", self.file("a"), self.file("b", b"other"), "--wait")
        self.assertIn("2 tasks stay stored", err)
        self.assertNotIn("failed", err)
        status, = self.run_program("status", "--json", "--user-id", "7").named("status")
        self.assertEqual((status["count"], status["attempts"]), (2, 0))

    def testActions(self):
        """The callbacks that are still to come are let go of, those of a line that waits among them."""
        lines = [{"host": {"userId": "7", "token": "t", "serverAddress": self.address}},
                 {"action": "Upload:", "params": {"scope": "s", "data": {"base64": "aGVsbG8="}, "suffix": "txt",
                                                  "complete": {"callback": "up"}}},
                 {"target": "UploadQueue", "action": "WhenIdle:", "params": {"complete": {"callback": "idle"}}}]
        process = self.start("actions")
        process.stdin.write("".join(json.dumps(line) + "\n" for line in lines))
        process.stdin.flush()
        self.interrupt(process)

    def testWatch(self):
        folder = self.home / "camera"
        folder.mkdir()
        process = self.start("watch", folder, "--scope", "s", "--user-id", "7", "--token", "t", "--backend",
                             self.address)
        self.assertIn("watching", process.stdout.readline())
        process.send_signal(signal.SIGTERM)
        process.communicate(timeout=60)
        self.assertEqual(process.returncode, 130)


if __name__ == "__main__":
    unittest.main()
