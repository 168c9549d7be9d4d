"""The working folders of `upload` and `download`: those of killed runs are removed, and no others."""
import os
import signal
import socket
import unittest

from Support import ProgramTest, wait_until

UPLOAD = ("upload", "missing", "--scope", "s", "--user-id", "7", "--token", "t", "--backend",
          "http://127.0.0.1:9")


class Scratch(ProgramTest):
    def folders(self):
        return sorted(path.name for path in self.documents.iterdir())

    def make(self, name):
        folder = self.documents / name
        (folder / "aws-0011/7").mkdir(parents=True)
        (folder / "aws-0011/7/half").write_bytes(b"half")
        return folder

    def started(self):
        """A run that works in a scratch folder until it is told to stop."""
        before = set(self.folders()) if self.documents.exists() else set()
        process = self.start("upload", self.file("a.jpg"), "--scope", "s", "--user-id", "7", "--token", "t",
                             "--backend", self.silent_backend())
        wait_until(lambda: self.documents.exists() and set(self.folders()) - before, "the scratch folder")
        name, = set(self.folders()) - before
        return process, name

    def silent_backend(self):
        server = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(server.close)
        return f"http://127.0.0.1:{server.getsockname()[1]}"

    def testFolderOfAKilledRunIsRemovedByTheNext(self):
        process, name = self.started()
        process.send_signal(signal.SIGKILL)
        process.wait()
        self.assertEqual(self.folders(), [name])
        self.assertEqual(self.run_program(*UPLOAD).status, 1)
        self.assertEqual(self.folders(), [])

    def testFolderOfALivingRunStays(self):
        process, name = self.started()
        self.make(".qxuploader-aB3dE6")
        self.run_program(*UPLOAD)
        self.assertEqual(self.folders(), [name])
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(60), 130)
        self.assertEqual(self.folders(), [])

    def testOnlyOwnFoldersAreRemoved(self):
        elsewhere = self.home / "elsewhere"
        (elsewhere / "photos").mkdir(parents=True)
        (elsewhere / "photos/a.jpg").write_bytes(b"a photo")
        self.make(".qxuploader-aB3dE6")
        kept = [".qxuploader-aB3dE", ".qxuploader-aB3dE67", ".qxuploader-aB3d.6", "qxuploader-aB3dE6"]
        for name in kept:
            self.make(name)
        (self.documents / ".qxuploader-linked").symlink_to(elsewhere)
        (self.documents / ".qxuploader-filely").write_bytes(b"a file")
        (self.documents / ".qxuploader.lock").write_bytes(b"")
        inside = self.make(".qxuploader-xxYY11")
        (inside / "link").symlink_to(elsewhere)
        if os.geteuid() == 0:
            os.chown(self.make(".qxuploader-others"), 65534, 65534)
            kept.append(".qxuploader-others")
        self.run_program(*UPLOAD)
        self.assertEqual(self.folders(), sorted([*kept, ".qxuploader-linked", ".qxuploader-filely",
                                                 ".qxuploader.lock"]))
        self.assertEqual((elsewhere / "photos/a.jpg").read_bytes(), b"a photo")


if __name__ == "__main__":
    unittest.main()
