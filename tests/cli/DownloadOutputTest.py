"""`download --output` into another file system, where the file is written aside and renamed."""
import os
import pathlib
import unittest

from Support import DevstackTest, PROGRAM


class DownloadOutput(DevstackTest):
    def setUp(self):
        super().setUp()
        self.content = os.urandom(300_000)
        done = self.run_program("upload", self.file("a.bin", self.content), "--scope", self.scope, "--json")
        self.url = done.named("uploaded")[0]["url"]
        self.name = self.url.rsplit("/", 1)[1]
        self.output = self.home / "output"

    def download(self, size, before=":"):
        """Runs the program after a shell command, in the process of that command."""
        return self.run_on_small_disk(self.output, size, "download", self.url, "--scope", self.scope,
                                      "--output", self.output,
                                      program=("sh", "-c", before + '; exec "$0" "$@"', PROGRAM))

    def testPlantedLinkIsNotWrittenThrough(self):
        victim = pathlib.Path(self.file("victim", b"precious"))
        done = self.download("1m", f"ln -s {victim} {self.output}/.qxuploader-$$.part")
        self.assertEqual(done.status, 0, done.err)
        self.assertEqual(victim.read_bytes(), b"precious")
        arrived = done.left / self.name
        self.assertFalse(arrived.is_symlink())
        self.assertEqual(arrived.read_bytes(), self.content)
        self.assertEqual(arrived.stat().st_mode & 0o777, 0o600)

    def testEarlierFileIsReplacedAndNothingStaysAside(self):
        done = self.download("1m", f"echo earlier > {self.output}/{self.name}")
        self.assertEqual(done.status, 0, done.err)
        self.assertEqual((done.left / self.name).read_bytes(), self.content)
        self.assertEqual([path.name for path in done.left.iterdir()], [self.name])
        self.assertEqual(self.files_in(self.documents), [])

    def testFullDiskIsNamedAndTheEarlierFileStays(self):
        done = self.download("100k", f"echo earlier > {self.output}/{self.name}")
        self.assertEqual(done.status, 1)
        self.assertIn(f"{self.output}/{self.name}: No space left on device; make room on that disk", done.err)
        self.assertEqual([path.name for path in done.left.iterdir()], [self.name])
        self.assertEqual((done.left / self.name).read_text(), "earlier\n")


if __name__ == "__main__":
    unittest.main()
