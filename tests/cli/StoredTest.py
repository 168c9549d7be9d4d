"""Tasks that earlier runs have stored: they are dropped, counted and retried, and do not make later runs fail."""
import plistlib
import signal
import unittest

from Support import DevstackTest


class Stored(DevstackTest):
    def setUp(self):
        super().setUp()
        self.folder = self.documents / "aws-0011" / self.user

    def log(self):
        path = self.folder / "logs.plist"
        return plistlib.loads(path.read_bytes()) if path.exists() else {}

    def store(self, **counts):
        """Tasks as an earlier run left them, each with its number of failed attempts."""
        self.folder.mkdir(parents=True, exist_ok=True)
        log = self.log()
        for name, count in counts.items():
            log[name + ".jpg"] = {
                "base": {"file_path": f"aws-0011/{self.user}/{name}.jpg", "module_key": self.scope,
                         "upload_count": count}, "extra": {"qxuploaderFile": f"/photos/{name}.jpg"}}
            (self.folder / f"{name}.jpg").write_bytes(name.encode())
        (self.folder / "logs.plist").write_bytes(plistlib.dumps(log))

    def store_down(self):
        self.control("POST", "/down", {"target": "store"})
        self.addCleanup(self.store_up)

    def store_up(self):
        self.control("POST", "/up", {"target": "store"})

    def testForgottenTasksAreGoneBeforeAnythingIsUploaded(self):
        self.store(old=0, older=3)
        path = self.file("new.jpg")
        done = self.run_program("background", path, "--scope", self.scope, "--wait", "--forget", "--json")
        self.assertEqual(done.status, 0, done.err)
        self.assertEqual([event["file"] for event in done.named("uploaded")], [path])
        self.assertEqual(self.log(), {})
        self.assertEqual([entry.name for entry in self.folder.iterdir()], ["logs.plist"])
        self.assertIn("dropped 2 stored tasks of earlier runs", done.err)

    def testWhatCannotBeForgottenIsNotUploaded(self):
        self.folder.mkdir(parents=True)
        (self.folder / "logs.plist").write_bytes(b"<plist><array/></plist>")
        (self.folder / "a.jpg").write_bytes(b"a")
        done = self.run_program("background", self.file("new.jpg"), "--scope", self.scope, "--forget", "--json")
        self.assertEqual(done.status, 1)
        self.assertEqual([event["event"] for event in done.events], ["failed"])
        self.assertEqual((self.folder / "logs.plist").read_bytes(), b"<plist><array/></plist>")
        self.assertEqual((self.folder / "a.jpg").read_bytes(), b"a")

    def testMessagesCountAttemptsAsTheLogDoes(self):
        self.store_down()
        self.store(real=3.0, text="5", whole=7, none=0)
        process = self.start("background", "--wait")
        told = {}
        while len(told) < 4:
            line = process.stderr.readline()
            self.assertNotEqual(line, "", told)
            if "(attempt " in line:
                told[line.split("/photos/")[1].split(".jpg")[0]] = int(line.split("(attempt ")[1].split()[0])
        process.send_signal(signal.SIGINT)
        process.communicate(timeout=60)
        self.assertEqual(process.returncode, 130)
        self.assertEqual(told, {"real": 4, "text": 6, "whole": 8, "none": 1})
        self.assertEqual({name[:-4]: entry["base"]["upload_count"] for name, entry in self.log().items()}, told)

    def testTaskThatCannotSucceedDoesNotFailLaterRuns(self):
        bad = self.file("bad.jpg")
        done = self.run_program("background", bad, "--scope", "nowhere", "--json")
        self.assertEqual(done.status, 1)
        self.assertEqual(done.named("queued")[0]["file"], bad)
        name, = self.log()
        later = self.run_program("background", self.file("good.jpg", b"good"), "--scope", self.scope)
        self.assertEqual(later.status, 0, later.err)
        self.assertIn("1 stored", later.out)
        status = self.run_program("status")
        self.assertEqual(status.status, 0)
        self.assertIn(f'{bad} cannot succeed: the backend knows no scope "nowhere"; '
                      f'"qxuploader tasks drop {name}" removes it', status.out)
        self.assertIn("cannot succeed: the backend knows no scope", self.run_program("tasks", "list").out)
        self.assertEqual(self.run_program("tasks", "drop", name).status, 0)
        self.assertEqual(self.run_program("status").out, f"user {self.user}: 0 stored tasks\n")

    def testScopeThatTheBackendKnowsAgainIsNoReasonAnyMore(self):
        self.run_program("background", self.file("bad.jpg"), "--scope", "nowhere")
        name, = self.log()
        log = self.log()
        note = self.documents / ".qxuploader-unknown-scopes.json"
        note.write_text(note.read_text().replace("nowhere", self.scope))
        log[name]["base"]["module_key"] = self.scope
        (self.folder / "logs.plist").write_bytes(plistlib.dumps(log))
        self.assertIn("cannot succeed", self.run_program("status").out)
        self.assertEqual(self.run_program("background", "--wait").status, 0)
        self.store(again=0)
        self.assertNotIn("cannot succeed", self.run_program("status").out)

    def testRunWithoutFilesIsAboutWhatIsStored(self):
        self.store(a=9)
        log = self.log()
        log["a.jpg"]["base"]["module_key"] = "nowhere"
        (self.folder / "logs.plist").write_bytes(plistlib.dumps(log))
        done = self.run_program("background", "--wait", "--json")
        self.assertEqual(done.status, 1)
        self.assertEqual([event["attempts"] for event in done.named("failed")], [10])

    def testRetriedTaskHasAllItsAttemptsAgain(self):
        self.store_down()
        self.store(a=9, b=9)
        done = self.run_program("tasks", "retry", "a.jpg", "--json")
        self.assertEqual(done.status, 1)
        self.assertEqual([(event["file"], event["attempts"]) for event in done.named("attemptFailed")
                          if event["file"] == "/photos/a.jpg"], [("/photos/a.jpg", 1)])
        self.assertEqual(self.log()["a.jpg"]["base"]["upload_count"], 1)

    def testRetriedTaskIsUploadedAndTheRunIsAboutIt(self):
        self.store(a=4, b=0)
        log = self.log()
        log["b.jpg"]["base"]["module_key"] = "nowhere"
        (self.folder / "logs.plist").write_bytes(plistlib.dumps(log))
        done = self.run_program("tasks", "retry", "a.jpg", "--json")
        self.assertEqual(done.status, 0, done.err)
        uploaded, = done.named("uploaded")
        self.assertEqual(self.bytes_at(uploaded["url"]), b"a")

    def testRetryOfWhatIsNotStoredSaysSo(self):
        done = self.run_program("tasks", "retry", "nothing.jpg")
        self.assertEqual(done.status, 1)
        self.assertIn('nothing.jpg is not stored; "qxuploader tasks list" tells the names', done.err)


if __name__ == "__main__":
    unittest.main()
