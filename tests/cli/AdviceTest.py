"""Each failure comes with advice that fits it."""
import json
import plistlib
import unittest

from Support import DevstackTest, PNG

ADDRESS = "store's address"
SERVERS = "check that backend and upload server can be reached"


class Advice(DevstackTest):
    def upload(self, *arguments, **environment):
        done = self.run_program("upload", self.file("a.png", PNG), "--scope", self.scope, *arguments,
                                **environment)
        self.assertEqual(done.status, 1, done.out)
        return done.err

    def expectAdvice(self, advice, text):
        self.assertIn("; " + advice, text)
        for other in (ADDRESS, SERVERS):
            self.assertNotIn(other, text)

    def respond(self, target, status, **fault):
        self.fault(name="respond", target=target, match=fault.pop("match", {}),
                   action={"respond": {"status": status, **fault}})

    def testRefusedToken(self):
        self.expectAdvice("the access token is not accepted for this user id; renew it",
                          self.upload(QXUPLOADER_TOKEN="wrong-token-0123456789"))

    def testRefusedTokenWithoutARecord(self):
        self.respond("backend", 401, body="<html>who are you?</html>")
        self.expectAdvice("the access token is not accepted", self.upload())

    def testBusyServers(self):
        for target, status, arguments in (("backend", 503, ()), ("store", 503, ()),
                                          ("uploadServer", 500, ("--server-resize",))):
            self.control("DELETE", "/faults")
            self.respond(target, status, body="busy")
            self.expectAdvice("the server is busy or out of order; try again later", self.upload(*arguments))

    def testFileThatIsTooLarge(self):
        self.respond("uploadServer", 413, body="")
        self.expectAdvice("the file is larger than the server takes", self.upload("--server-resize"))
        self.control("DELETE", "/faults")
        self.respond("store", 400, body="<Error><Code>EntityTooLarge</Code><Message>no</Message></Error>")
        self.expectAdvice("the file is larger than the server takes", self.upload())

    def testFileThatIsNoImage(self):
        done = self.run_program("upload", self.file("a.txt"), "--scope", self.scope, "--server-resize")
        self.assertEqual(done.status, 1)
        self.expectAdvice("the upload server does not take this kind of file", done.err)

    def testServerThatDoesNotAnswer(self):
        self.fault(name="stall", target="store", match={}, action={"stall": "head"})
        self.expectAdvice("the connection is too slow or stands still", self.upload())

    def uploaded(self, content):
        done = self.run_program("upload", self.file("a.bin", content), "--scope", self.scope, "--json")
        return done.named("uploaded")[0]["url"]

    def testMissingObject(self):
        missing = self.uploaded(b"a").rsplit("/", 1)[0] + "/missing.bin"
        done = self.run_program("download", missing, "--scope", self.scope)
        self.assertEqual(done.status, 1)
        # The scope's credentials may not list the bucket, so the store does not tell what is
        # missing.
        self.assertIn("AccessDenied", done.err)
        self.expectAdvice("the scope does not permit this, or there is no such object to download", done.err)
        self.respond("store", 404, body="<Error><Code>NoSuchKey</Code><Message>gone</Message></Error>")
        done = self.run_program("download", missing, "--scope", self.scope)
        self.expectAdvice("the store has no such object; it may have been deleted", done.err)

    def testFullDiskOfADownload(self):
        url = self.uploaded(bytes(1_000_000))
        done = self.run_on_small_disk(self.documents, "200k", "download", url, "--scope", self.scope)
        self.assertEqual(done.status, 1)
        self.assertIn("No space left on device", done.err)
        self.expectAdvice("make room on that disk or name a directory on another one", done.err)
        self.assertEqual([path.name for path in done.left.rglob("*.bin")], [])

    def testFullDiskOfABackgroundUploadIsSaidAndIsAFailure(self):
        path = self.file("a.bin", bytes(1_000_000))
        done = self.run_on_small_disk(self.documents, "200k", "background", path, "--scope", self.scope, "--json")
        self.assertEqual(done.status, 1)
        unstored, = done.named("notStored")
        self.assertEqual(unstored["file"], path)
        self.assertIn("No space left on device", unstored["error"]["description"])
        self.assertEqual(done.named("queued"), [])
        uploaded, = done.named("uploaded")
        self.assertEqual(self.bytes_at(uploaded["url"]), bytes(1_000_000))
        plain = self.run_on_small_disk(self.documents, "200k", "background", path, "--scope", self.scope)
        self.assertEqual(plain.status, 1)
        self.expectAdvice("make room on that disk or name a directory on another one; "
                          "it is uploaded from memory, once", plain.err)

    def testQueuedIsSaidOnceTheTaskIsStored(self):
        self.fault(name="slow", target="store", match={"method": "PUT"}, action={"delayMs": 2000})
        path = self.file("a.jpg")
        process = self.start("background", path, "--scope", self.scope, "--json")
        self.assertIn('"queued"', process.stdout.readline())
        log = plistlib.loads((self.documents / "aws-0011" / self.user / "logs.plist").read_bytes())
        entry, = log.values()
        self.assertEqual(json.loads(entry["extra"]["tag"])["file"], path)
        process.communicate(timeout=60)
        self.assertEqual(process.returncode, 0)


if __name__ == "__main__":
    unittest.main()
