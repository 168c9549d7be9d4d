"""Symbolic links in the documents directory are refused by name, and nothing behind them changes."""
import os
import unittest

from Support import ProgramTest


class Links(ProgramTest):
    def setUp(self):
        super().setUp()
        self.documents.mkdir()
        self.elsewhere = self.home / "elsewhere"
        self.elsewhere.mkdir()

    def testLockFile(self):
        lock = self.documents / ".qxuploader.lock"
        os.symlink(self.elsewhere / "lock", lock)
        done = self.run_program("actions")
        self.assertEqual(done.status, 1)
        self.assertIn(f"{lock} is a symbolic link", done.err)
        self.assertEqual(list(self.elsewhere.iterdir()), [])

    def testLockedDocumentsMayBeALink(self):
        os.symlink(self.documents, self.home / "alias")
        done = self.run_program("actions", QXUPLOADER_DOCUMENTS=str(self.home / "alias"))
        self.assertEqual(done.status, 0, done.err)
        self.assertTrue((self.documents / ".qxuploader.lock").is_file())

    def testStatusOfALinkedUserDirectory(self):
        (self.elsewhere / "logs.plist").write_text("<plist version=\"1.0\"><dict/></plist>")
        (self.documents / "aws-0011").mkdir()
        user = self.documents / "aws-0011/7"
        os.symlink(self.elsewhere, user)
        done = self.run_program("status", QXUPLOADER_USER_ID="7")
        self.assertEqual(done.status, 1)
        self.assertIn(f"{user} is a symbolic link", done.err)


if __name__ == "__main__":
    unittest.main()
