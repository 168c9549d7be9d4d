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

    def background(self, **environment):
        return self.run_program("background", self.file("a.jpg"), "--scope", "s", "--user-id", "7", "--token", "t",
                                "--backend", "http://127.0.0.1:9", **environment)

    def testUserDirectoryOfABackgroundUpload(self):
        (self.documents / "aws-0011").mkdir()
        user = self.documents / "aws-0011/7"
        os.symlink(self.elsewhere, user)
        done = self.background()
        self.assertEqual(done.status, 1)
        self.assertIn(f"{user} is a symbolic link", done.err)
        self.assertEqual(list(self.elsewhere.iterdir()), [])

    def testDocumentsMayBeALink(self):
        os.symlink(self.documents, self.home / "alias")
        self.background(QXUPLOADER_DOCUMENTS=str(self.home / "alias"))
        self.assertTrue((self.documents / "aws-0011/7/logs.plist").is_file())

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
