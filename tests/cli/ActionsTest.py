"""The line protocol of `actions` without a network: the actions that are refused, and the messages."""
import base64
import contextlib
import json
import os
import signal
import threading
import unittest

from Support import ProgramTest

UPLOAD = {"scope": "s", "data": {"base64": base64.b64encode(b"bytes").decode()}, "suffix": "jpg",
          "complete": {"callback": "done"}}


def action(name, **params):
    return {"action": name, "params": params}


class Actions(ProgramTest):
    def actions(self, *lines, status=0, **options):
        text = "".join((line if isinstance(line, str) else json.dumps(line)) + "\n" for line in lines)
        done = self.run_program("actions", input=text, QXUPLOADER_ENVIRONMENT="test", **options)
        self.assertEqual(done.status, status, done.err)
        self.assertEqual([event["n"] for event in done.events],
                         list(range(1, len(done.events) + 1)))
        return done

    def logged(self, *lines):
        return [(event["level"], event["message"], event["function"])
                for event in self.actions(*lines).named("log")]

    def testUploadWithoutIdentityFailsOnTheConfigurationQueue(self):
        callback, = self.actions(action("Upload:", **UPLOAD)).named("callback")
        self.assertEqual(callback["callback"], "done")
        self.assertEqual(callback["queue"], "com.aws.get.config")
        self.assertEqual(callback["arguments"],
                         {"url": None, "itemId": 0,
                          "error": {"domain": "AWSUploaderError", "code": 102,
                                    "description": "[Error] miss userId or accessToken"}})

    def testPrefixIsAddedOnlyWhenMissing(self):
        for name in ("Upload:", "Action_Upload:"):
            self.assertEqual(len(self.actions(action(name, **UPLOAD)).named("callback")), 1)

    def testWrongTypesReachTheLibraryAsThey(self):
        for changes, message in (({"scope": 5}, "miss scope"), ({"scope": None}, "miss scope"),
                                 ({"complete": "text"}, "miss complete"),
                                 ({"data": "text"}, "miss data"), ({"data": {"file": 5}}, "miss data"),
                                 ({"suffix": 1.5}, "miss suffix"), ({"suffix": ["jpg"]}, "miss suffix"),
                                 ({"data": {"file": "a", "base64": ""}}, "miss data")):
            self.assertEqual(self.logged(action("Upload:", **{**UPLOAD, **changes})),
                             [(5, message, "Action_Upload(_:)")], changes)

    def testBooleanIsNoIntegerAndIntegerNoBoolean(self):
        miss = [(5, "miss needServerResize", "Action_SetUp(_:)")]
        for value in (1, 0, "true", 1.0, None):
            self.assertEqual(self.logged(action("SetUp:", needServerResize=value)), miss)
        self.assertNotIn(miss[0], self.logged(action("SetUp:", needServerResize=False)))

    def testLogRecordsHaveAllTheirFields(self):
        record, = self.actions(action("Download:", url=5)).named("log")
        self.assertEqual((record["level"], record["message"], record["module"], record["source"],
                          record["function"], record["queue"]),
                         (5, "missing url", "QXAwsUploader", "QXAwsUploader/Target_Uploader",
                          "Action_Download(_:)", "main"))
        self.assertGreater(record["line"], 0)
        self.assertGreater(record["time"], 1.6e9)

    def testNoLogInProduction(self):
        done = self.actions({"host": {"production": True}}, action("Upload:"),
                            {"host": {"production": False}}, action("Upload:"))
        self.assertEqual(len(done.named("log")), 1)

    def testRefusedUploadIsReportedAsDropped(self):
        done = self.actions(action("Upload:", **{**UPLOAD, "suffix": 5}))
        self.assertEqual([event["callback"] for event in done.named("dropped")], ["done"])
        self.assertEqual(done.named("callback"), [])

    def testUnknownAction(self):
        done = self.actions(action("Fly:"))
        self.assertEqual([event["action"] for event in done.named("unknownAction")], ["Action_Fly:"])

    def testSetUpWithoutIdentityIsTracked(self):
        tracking, = self.actions(action("SetUp:", needServerResize=False)).named("tracking")
        self.assertEqual(tracking["name"], "qx_aws")
        self.assertEqual(tracking["parameters"],
                         {"message": "[Error] retry fire miss userId or accessToken",
                          "status": "error", "type": "config"})

    def testUserChangedIsAnnouncedAfterTheOtherChangesOfItsLine(self):
        done = self.actions(action("SetUp:", needServerResize=False),
                            {"host": {"userChanged": True, "userId": "7", "token": "t",
                                      "serverAddress": "http://127.0.0.1:9"}},
                            {"host": {"userId": None, "userChanged": True}})
        # at set-up and at the last line; the second change found a whole identity
        self.assertEqual(len(done.named("tracking")), 2)

    def testMalformedLinesAreReportedAndTheWorkGoesOn(self):
        lines = ["{", "[]", "5", '"text"', "{}", '{"action": 5}', '{"action": "Upload:", "params": 5}',
                 '{"host": 5}', '{"host": {"colour": 1}}', '{"host": {"reachable": 1}}',
                 "[" * 100000, '{"action": "\xff"', "\x00", '{"action": "\\ud800"}',
                 json.dumps(action("Upload:", data={"base64": "=?="})),
                 json.dumps(action("Upload:", data={"base64": "AA=A"})),
                 json.dumps(action("Upload:", data={"file": "missing"})),
                 json.dumps(action("Upload:", extra={"within": {"base64": "=?="}})),
                 json.dumps(action("Upload:", extra=[{"within": [{"file": "missing"}]}]))]
        done = self.actions(*lines, "", action("Upload:", **UPLOAD), status=1)
        self.assertEqual([event["line"] for event in done.named("error")],
                         list(range(1, len(lines) + 1)))
        self.assertEqual(len(done.named("callback")), 1)

    def testFileStandsForItsBytes(self):
        path = self.file("a.jpg")
        done = self.actions(action("Upload:", **{**UPLOAD, "data": {"file": path}}))
        self.assertEqual(len(done.named("callback")), 1)

    def steer(self, name, target="UploadQueue", **params):
        return {"target": target, **action(name, **params)}

    def testLinesMaySteerTheUploadQueue(self):
        done = self.actions(self.steer("Observe:", events={"callback": "happened"}),
                            action("Upload:", **{**UPLOAD, "tag": "mine"}),
                            self.steer("WhenIdle:", target="Target_UploadQueue", complete={"callback": "idle"}),
                            self.steer("List:", complete={"callback": "listed"}))
        called = {}
        for event in done.named("callback"):
            called.setdefault(event["callback"], []).append(event)
        told = [event["arguments"]["event"] for event in called["happened"]]
        self.assertEqual([(event["event"], event["tag"]) for event in told],
                         [("accepted", "mine"), ("started", "mine"), ("attemptFailed", "mine")])
        self.assertEqual((told[2]["domain"], told[2]["code"], told[2]["counted"]), ("AWSUploaderError", 102, False))
        self.assertEqual([event["arguments"] for event in called["idle"]], [{}])
        self.assertIsInstance(called["listed"][0]["arguments"]["tasks"], list)
        self.assertEqual({event["queue"] for event in called["happened"]}, {"com.aws.events"})

    def testLineOfAnotherTargetIsAnError(self):
        for target in ("Downloader", 5, None):
            error, = self.actions(self.steer("List:", target=target), status=1).named("error")
            self.assertEqual(error["message"], '"target" is neither "Uploader" nor "UploadQueue"')

    def testUnknownActionOfTheUploadQueue(self):
        done = self.actions(self.steer("Fly:"))
        self.assertEqual([event["action"] for event in done.named("unknownAction")], ["Action_Fly:"])

    def testEndOfInputEndsTheProgram(self):
        self.assertEqual(self.actions().out, "")

    def testEndOfTheReaderEndsTheProgram(self):
        process = self.start("actions")
        lines = threading.Thread(target=self.writeUntilClosed, args=(process.stdin,))
        lines.start()
        self.assertIn("unknownAction", process.stdout.readline())
        process.stdout.close()
        self.assertEqual(process.wait(60), 1)
        lines.join()

    def writeUntilClosed(self, stream):
        with contextlib.suppress(OSError):
            while True:
                os.write(stream.fileno(), b'{"action":"X"}\n' * 100)

    def testInterruptionEndsWith130(self):
        process = self.start("actions", QXUPLOADER_ENVIRONMENT="test")
        process.stdin.write(json.dumps(action("Upload:")) + "\n")
        process.stdin.flush()
        self.assertIn("miss scope", process.stdout.readline())
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(60), 130)


if __name__ == "__main__":
    unittest.main()
