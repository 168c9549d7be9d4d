"""Background uploads to the devstack: they are stored, interrupted, continued and watched."""
import hashlib
import os
import plistlib
import re
import signal
import unittest

from Support import DevstackTest, PNG, wait_until


class Background(DevstackTest):
    def stored(self):
        """The log on disk, read by Python's plistlib."""
        path = self.documents / "aws-0011" / self.user / "logs.plist"
        return plistlib.loads(path.read_bytes()) if path.exists() else {}

    def folder(self, count):
        for n in range(count):
            self.file(f"photos/{n:04}.jpg", f"photo {n}".encode())
        return self.home / "photos"

    def store_down(self):
        self.control("POST", "/down", {"target": "store"})
        self.addCleanup(self.store_up)

    def store_up(self):
        self.control("POST", "/up", {"target": "store"})

    def testDirectoryOfManyFilesArrivesWhole(self):
        folder = self.folder(1000)
        done = self.run_program("background", folder, "--scope", self.scope, "--wait", "--json",
                                "--concurrent", "8")
        self.assertEqual(done.status, 0, done.err)
        uploaded = {event["file"]: event["url"] for event in done.named("uploaded")}
        self.assertEqual(set(uploaded), {str(path) for path in folder.iterdir()})
        for n in (0, 499, 999):
            self.assertEqual(self.bytes_at(uploaded[str(folder / f"{n:04}.jpg")]), f"photo {n}".encode())
        summary, = done.named("summary")
        self.assertEqual((summary["done"], summary["failed"], summary["stored"]), (1000, 0, 0))
        self.assertEqual(self.stored(), {})

    def testLiveCountOnATerminal(self):
        done = self.run_on_terminal("background", self.folder(20), "--scope", self.scope, "--wait")
        self.assertEqual(done.status, 0, done.out)
        self.assertRegex(done.out, r"\r\x1b\[K\d+ done, \d+ running, \d+ waiting, 0 failed")
        self.assertIn("20 files uploaded, 0 failed, 0 stored", done.out)

    def testCtrlCSaysHowManyStayStoredAndTheNextRunGoesOn(self):
        self.fault(name="slow", target="store", match={"method": "PUT"}, action={"delayMs": 300})
        folder = self.folder(40)
        done = self.run_on_terminal("background", folder, "--scope", self.scope, "--wait",
                                    "--concurrent", "2", interrupt_at="3 done")
        self.assertEqual(done.status, 130)
        left = self.stored()
        self.assertGreater(len(left), 0)
        # An upload that was on its way may still arrive between the count and the end.
        told = int(re.search(r"interrupted; (\d+) tasks stay stored", done.out)[1])
        self.assertIn(told - len(left), (0, 1, 2))
        status = self.run_program("status", "--json").named("status")[0]
        self.assertEqual(status["count"], len(left))
        self.control("DELETE", "/faults")
        again = self.run_program("background", "--wait", "--json")
        self.assertEqual(again.status, 0, again.err)
        self.assertEqual(len(again.named("uploaded")), len(left))
        self.assertEqual(self.stored(), {})
        for event in again.named("uploaded"):
            with open(event["file"], "rb") as file:
                self.assertEqual(self.bytes_at(event["url"]), file.read())

    def testCtrlCSaysHowManyWereNotHandedOver(self):
        folder = self.folder(3000)
        done = self.run_on_terminal("background", folder, "--scope", self.scope,
                                    interrupt_at=" running")
        self.assertEqual(done.status, 130)
        left = re.search(r"interrupted; (\d+) tasks? stays? stored .* goes on with them; (\d+) named "
                         "files are neither stored nor uploaded, hand them over again", done.out)
        uploaded = done.out.count(" -> ")
        self.assertIn(3000 - uploaded - int(left[1]) - int(left[2]), range(0, 50))

    def testFileStoredAlreadyIsNotStoredTwice(self):
        self.store_down()
        path = self.file("a.jpg")
        self.assertEqual(self.run_program("background", path, "--scope", self.scope).status, 1)
        self.assertEqual(len(self.stored()), 1)
        self.store_up()
        done = self.run_program("background", path, "--scope", self.scope, "--wait", "--json")
        self.assertEqual(done.status, 0, done.err)
        self.assertEqual(len(done.named("alreadyStored")), 1)
        self.assertEqual(len(done.named("uploaded")), 1)

    def testFileStoredAlreadyIsTriedOnceWithoutWait(self):
        self.store_down()
        path = self.file("a.jpg", b"content")
        self.assertEqual(self.run_program("background", path, "--scope", self.scope).status, 1)
        self.store_up()
        self.fault(name="slow", target="store", match={"method": "PUT"}, action={"delayMs": 1000})
        done = self.run_program("background", "a.jpg", "--scope", self.scope, "--json")
        self.assertEqual(done.status, 0, done.err)
        self.assertEqual(len(done.named("alreadyStored")), 1)
        self.assertEqual(len(done.named("uploaded")), 1)
        self.assertEqual(self.stored(), {})

    def testChangedFileIsStoredBesideItsEarlierContent(self):
        self.store_down()
        for content in (b"earlier", b"later"):
            self.run_program("background", self.file("a.jpg", content), "--scope", self.scope)
        self.assertEqual(len(self.stored()), 2)
        self.store_up()
        done = self.run_program("background", "--wait", "--json")
        self.assertEqual({self.bytes_at(event["url"]) for event in done.named("uploaded")},
                         {b"earlier", b"later"})

    def testImageStoredAlreadyIsNotStoredTwice(self):
        self.store_down()
        path = self.file("front.png", PNG)
        count = 0
        for scope, item, *others in (("item-image", 17, "--tag", "blue"), ("item-image", 17),
                                     ("avatar", 17), ("item-image", 17, "--det")):
            image = ("background-image", path, "--scope", scope, "--item-id", item, *others)
            count += 1
            for _ in range(2):
                done = self.run_program(*image, "--json")
                self.assertEqual((done.status, len(self.stored())), (1, count), image)
            self.assertEqual(len(done.named("alreadyStored")), 1)

    def testWithoutWaitEachFileIsTriedOnceAndStaysStored(self):
        self.store_down()
        path = self.file("a.jpg")
        done = self.run_program("background", path, "--scope", self.scope)
        self.assertEqual(done.status, 1)
        self.assertIn("attempt 1 of 10", done.err)
        entry, = self.stored().values()
        self.assertEqual(entry["base"]["upload_count"], 1)

    def testFileDeletedAfterItWasStoredArrivesAllTheSame(self):
        self.fault(name="slow", target="store", match={"method": "PUT"}, action={"delayMs": 500})
        path = self.file("a.jpg", b"soon gone")
        process = self.start("background", path, "--scope", self.scope, "--wait")
        wait_until(self.stored, "the stored task")
        os.unlink(path)
        out, err = process.communicate(timeout=60)
        self.assertEqual(process.returncode, 0, err)
        self.assertEqual(self.bytes_at(out.split(" -> ")[1].split()[0]), b"soon gone")

    def testFileDeletedBeforeItsTurnIsNamedAndTheOthersArrive(self):
        kept, gone = self.file("kept.jpg"), self.file("gone.jpg")
        os.unlink(gone)
        done = self.run_program("background", kept, gone, "--scope", self.scope, "--wait", "--json")
        self.assertEqual(done.status, 1)
        self.assertEqual([event["file"] for event in done.named("failed")], [gone])
        self.assertEqual([event["file"] for event in done.named("uploaded")], [kept])

    def updates(self, kind):
        return [event for event in self.control("GET", "/events") if event["kind"] == kind]

    def testImageIsReportedToTheBackendBeforeTheProgramEnds(self):
        self.control("DELETE", "/events")
        self.fault(name="slow", target="backend", match={"pathPrefix": "/v3/item/"},
                   action={"delayMs": 1000})
        path = self.file("front.png", PNG)
        for arguments, kind, url in (((), "updateImage", "original_image_url"),
                                     (("--det", "--wait"), "updateDetImage", "original_det_image_url")):
            done = self.run_program("background-image", path, "--scope", "item-image", "--item-id", "17",
                                    "--json", *arguments)
            self.assertEqual(done.status, 0, done.err + done.out)
            uploaded, = done.named("uploaded")
            self.assertEqual(uploaded["file"], path)
            update, = self.updates(kind)
            self.assertEqual(update["body"], {
                "item_id": 17, url: uploaded["url"], "original_image_width": 1,
                "original_image_height": 1, "original_image_file_size": len(PNG),
                "original_image_file_format": "png",
                "original_image_sha1": hashlib.sha1(PNG).hexdigest()})

    def testFailedReportIsAFailure(self):
        self.fault(name="refuse", target="backend", match={"pathPrefix": "/v3/item/"},
                   action={"respond": {"status": 500, "body": {"code": 1000, "message": "not today"}}})
        done = self.run_program("background-image", self.file("front.png", PNG), "--scope", "item-image",
                                "--item-id", "17", "--wait")
        self.assertEqual(done.status, 1)
        self.assertRegex(done.err, "the backend was not told of .*/front.png, .*not today")
        self.assertIn("hand it over again", done.err)

    def testTaskThatCannotBeStoredIsNotSaidToBeTriedAgain(self):
        self.store_down()
        path = self.file("a.jpg")
        (self.documents / "aws-0011").mkdir(parents=True)
        (self.documents / "aws-0011" / self.user).write_bytes(b"no directory")
        done = self.run_program("background", path, "--scope", self.scope, "--wait")
        self.assertEqual(done.status, 1)
        self.assertRegex(done.err, "a.jpg failed: .*; it could not be stored and is not tried again")
        self.assertNotIn("stays stored", done.err)
        self.assertIn("1 failed, 0 stored", done.out)

    def testWhatIsNoImageIsRefused(self):
        done = self.run_program("background-image", self.file("a.jpg", b"text"), "--scope",
                                "item-image", "--item-id", "17", "--wait")
        self.assertEqual(done.status, 1)
        self.assertIn("a.jpg is not an image", done.err)

    def testWatchUploadsNewImagesUntilStopped(self):
        folder = self.home / "camera"
        folder.mkdir()
        (folder / "old.png").write_bytes(PNG)
        process = self.start("watch", folder, "--scope", self.scope)
        self.assertIn("watching", process.stdout.readline())
        (folder / "notes.txt").write_bytes(b"no image")
        (folder / ".hidden.png").write_bytes(PNG)
        (folder / "written.png").write_bytes(PNG)
        first = process.stdout.readline()
        self.assertIn("written.png -> ", first)
        (self.home / "aside.png").write_bytes(PNG)
        os.rename(self.home / "aside.png", folder / "moved.png")
        second = process.stdout.readline()
        self.assertIn("moved.png -> ", second)
        self.assertEqual(self.bytes_at(second.split()[2]), PNG)
        process.send_signal(signal.SIGTERM)
        out, err = process.communicate(timeout=60)
        self.assertEqual((process.returncode, out), (130, ""))
        self.assertIn("0 tasks stay stored", err)

    def testStoredTasksOfAUserAreForOneProcessAtATime(self):
        folder = self.home / "camera"
        folder.mkdir()
        process = self.start("watch", folder, "--scope", self.scope)
        self.assertIn("watching", process.stdout.readline())
        path = self.file("a.png", PNG)
        for arguments in (("background", path, "--scope", self.scope),
                          ("background-image", path, "--scope", self.scope, "--item-id", "17"),
                          ("background", path, "--scope", self.scope, "--forget"),
                          ("tasks", "retry", "a.jpg"), ("watch", folder, "--scope", self.scope)):
            done = self.run_program(*arguments)
            self.assertEqual((done.status, done.out), (1, ""), arguments)
            self.assertEqual(done.err, f"qxuploader: {self.documents} is in use by another qxuploader; "
                                       "wait for its end or name another directory with --documents\n")
        for arguments in (("status",), ("config",), ("actions",), ("upload", path, "--scope", self.scope)):
            self.assertEqual(self.run_program(*arguments).status, 0, arguments)
        elsewhere = self.run_program("background", path, "--scope", self.scope, "--documents",
                                     self.home / "elsewhere")
        self.assertEqual(elsewhere.status, 0, elsewhere.err)
        process.kill()
        process.wait()
        self.assertEqual(self.run_program("background", path, "--scope", self.scope).status, 0)

    def store_task(self, name, path, data):
        """Stores a task as an earlier run has left it."""
        folder = self.documents / "aws-0011" / self.user
        folder.mkdir(parents=True, exist_ok=True)
        log = self.stored()
        log[name] = {"base": {"file_path": path, "module_key": self.scope, "upload_count": 0},
                     "extra": {"qxuploaderFile": "/photos/" + name}}
        (folder / "logs.plist").write_bytes(plistlib.dumps(log))
        if data is not None:
            (folder / name).write_bytes(data)

    def testEntryWithoutItsDataDoesNotKeepTheRunWaiting(self):
        self.store_task("gone.jpg", f"aws-0011/{self.user}/gone.jpg", None)
        self.store_task("kept.jpg", f"aws-0011/{self.user}/kept.jpg", b"kept")
        done = self.run_program("background", "--wait", "--json")
        self.assertEqual(done.status, 0, done.err)
        self.assertEqual([event["file"] for event in done.named("uploaded")], ["/photos/kept.jpg"])
        self.assertEqual(self.stored(), {})

    def testEntryThatIsNotTakenUpIsLetGo(self):
        (self.documents / "aws-0011").mkdir(parents=True)
        (self.documents / "aws-0011/stray.jpg").write_bytes(b"stray")
        self.store_task("stray.jpg", "aws-0011/stray.jpg", b"stray")
        done = self.run_program("background", "--wait", "--json")
        self.assertEqual(done.status, 1, done.err)
        self.assertEqual([event["file"] for event in done.named("failed")], ["/photos/stray.jpg"])

    def testWatchEndsWhenItsDirectoryGoes(self):
        folder = self.home / "camera"
        folder.mkdir()
        process = self.start("watch", folder, "--scope", self.scope)
        self.assertIn("watching", process.stdout.readline())
        folder.rmdir()
        self.assertEqual(process.wait(60), 1)


if __name__ == "__main__":
    unittest.main()
