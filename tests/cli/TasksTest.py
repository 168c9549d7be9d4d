"""`tasks list` and `tasks drop` on logs that Python's plistlib wrote."""
import fcntl
import os
import plistlib
import unittest

from Support import ProgramTest


class Tasks(ProgramTest):
    def setUp(self):
        super().setUp()
        self.environment["QXUPLOADER_USER_ID"] = "7"
        self.folder = self.documents / "aws-0011/7"

    def entry(self, name, attempts=0, path=None, **extra):
        return {"base": {"file_path": path or f"aws-0011/7/{name}", "module_key": "avatar",
                         "upload_count": attempts}, "extra": extra}

    def store(self, log, data):
        self.folder.mkdir(parents=True, exist_ok=True)
        (self.folder / "logs.plist").write_bytes(plistlib.dumps(log))
        for name, content in data.items():
            (self.folder / name).write_bytes(content)
            os.utime(self.folder / name, (1600000000, 1600000000))

    def log(self):
        return plistlib.loads((self.folder / "logs.plist").read_bytes())

    def three(self):
        log = {"a.jpg": self.entry("a.jpg", 2, qxuploaderFile="/p/a.jpg"),
               "b.jpg": self.entry("b.jpg", 3.0, number=5, text="ü & <>", big=2**63),
               "gone.jpg": self.entry("gone.jpg")}
        self.store(log, {"a.jpg": b"aa", "b.jpg": b"bbb"})
        return log

    def testListTellsNameFirstAndWhatCannotSucceed(self):
        self.three()
        lines = self.run_program("tasks", "list").out.splitlines()
        self.assertEqual(sorted(lines), [
            "a.jpg  /p/a.jpg  avatar  2 B  2020-09-13T12:26:40Z  2 failed attempts",
            "b.jpg  avatar  3 B  2020-09-13T12:26:40Z  3 failed attempts",
            "gone.jpg  avatar  data missing  -  0 failed attempts  cannot succeed: its data file is missing"])
        events = {event["name"]: event for event in self.run_program("tasks", "list", "--json").named("task")}
        self.assertEqual((events["a.jpg"]["file"], events["a.jpg"]["attempts"], events["a.jpg"]["cannotSucceed"]),
                         ("/p/a.jpg", 2, None))
        self.assertEqual(events["gone.jpg"]["cannotSucceed"], "its data file is missing")

    def testStatusNamesWhatCannotSucceed(self):
        self.three()
        done = self.run_program("status")
        self.assertEqual(done.status, 0)
        self.assertIn('  gone.jpg cannot succeed: its data file is missing; '
                      '"qxuploader tasks drop gone.jpg" removes it\n', done.out)
        self.assertRegex(done.out, "3 stored tasks, .*; 1 cannot succeed\n")
        self.assertEqual(self.run_program("status", "--json").named("status")[0]["cannotSucceed"], 1)

    def testDropRemovesTheNamedTasksAndLeavesTheOthersAsTheyAre(self):
        log = self.three()
        done = self.run_program("tasks", "drop", "a.jpg", "gone.jpg")
        self.assertEqual((done.status, done.out, done.err), (0, "/p/a.jpg is dropped\ngone.jpg is dropped\n", ""))
        self.assertEqual(self.log(), {"b.jpg": log["b.jpg"]})
        self.assertEqual(sorted(path.name for path in self.folder.iterdir()), ["b.jpg", "logs.plist"])
        dropped, = self.run_program("tasks", "drop", "b.jpg", "--json").named("dropped")
        self.assertEqual((dropped["name"], dropped["file"]), ("b.jpg", "b.jpg"))
        self.assertEqual(self.log(), {})

    def testDropOfWhatIsNotStoredSaysSoAndDropsTheOthers(self):
        self.three()
        done = self.run_program("tasks", "drop", "nothing.jpg", "a.jpg")
        self.assertEqual(done.status, 1)
        self.assertIn('nothing.jpg is not stored; "qxuploader tasks list" tells the names', done.err)
        self.assertIn("b.jpg", self.log())
        self.assertNotIn("a.jpg", self.log())

    def testDropRemovesNoFileOutsideTheUsersDirectory(self):
        kept = self.documents / "kept.jpg"
        self.store({"a.jpg": self.entry("a.jpg", path="kept.jpg"),
                    "b.jpg": self.entry("b.jpg", path="aws-0011/7/../../kept.jpg")}, {})
        kept.write_bytes(b"kept")
        self.assertEqual(self.run_program("tasks", "drop", "a.jpg", "b.jpg").status, 0)
        self.assertEqual(self.log(), {})
        self.assertEqual(kept.read_bytes(), b"kept")

    def testLinkedDirectoryIsNotFollowed(self):
        self.three()
        elsewhere = self.home / "elsewhere"
        self.folder.rename(elsewhere)
        self.folder.symlink_to(elsewhere)
        for arguments in (("status",), ("tasks", "list"), ("tasks", "drop", "a.jpg")):
            done = self.run_program(*arguments)
            self.assertEqual((done.status, done.out), (1, ""), arguments)
            self.assertIn("aws-0011/7 is a symbolic link, which is not followed", done.err)
        self.assertTrue((elsewhere / "a.jpg").exists())

    def testDropWaitsForNobody(self):
        self.three()
        folder = os.open(self.folder, os.O_RDONLY)
        self.addCleanup(os.close, folder)
        fcntl.flock(folder, fcntl.LOCK_EX)
        done = self.run_program("tasks", "drop", "a.jpg")
        self.assertEqual((done.status, done.out), (1, ""))
        self.assertIn("is in use by another qxuploader", done.err)
        self.assertEqual(self.run_program("tasks", "list").status, 0)
        self.assertIn("a.jpg", self.log())

    def testWrongUsage(self):
        for arguments in (("tasks",), ("tasks", "fly"), ("tasks", "drop"), ("tasks", "retry"),
                          ("tasks", "list", "--user-id", ""), ("tasks", "drop", "a", "--user-id", "../7")):
            self.assertEqual(self.run_program(*arguments).status, 2, arguments)


if __name__ == "__main__":
    unittest.main()
