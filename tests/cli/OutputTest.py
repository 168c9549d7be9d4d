"""What the program writes to standard output, and what it does when it cannot write there."""
import json
import os
import subprocess
import unittest

from Support import PATIENCE, PROGRAM, ProgramTest

IDENTITY = ("--user-id", "7", "--token", "t", "--backend", "http://127.0.0.1:9")
UPLOAD = json.dumps({"action": "Fly:"}) + "\n"


class Output(ProgramTest):
    def run_with(self, *arguments, input="", **options):
        return subprocess.run([PROGRAM, *map(str, arguments)], env=self.environment, cwd=self.home, text=True,
                              input=input, timeout=PATIENCE, stderr=subprocess.PIPE, **options)

    def testOutputThatCannotBeWrittenIsAFailureWithAMessage(self):
        for arguments in (("config",), ("config", "--json"), ("status", *IDENTITY), ("--help",),
                          ("--version",), ("tasks", "--help"), ("tasks", "list", "--help"), ("actions",)):
            with open("/dev/full", "w") as full:
                done = self.run_with(*arguments, input=UPLOAD, stdout=full)
            self.assertEqual(done.returncode, 1, arguments)
            self.assertEqual(done.stderr, "qxuploader: standard output could not be written: "
                                          "No space left on device\n", arguments)

    def testFailureKeepsItsStatusAndItsReason(self):
        with open("/dev/full", "w") as full:
            done = self.run_with("upload", "missing", "--scope", "s", "--json", *IDENTITY, stdout=full)
        self.assertEqual(done.returncode, 1)
        self.assertIn("standard output could not be written", done.stderr)
        with open("/dev/full", "w") as full:
            done = self.run_with("upload", "--nonsense", stdout=full)
        self.assertEqual(done.returncode, 2)

    def testClosedDescriptorsAreNotTakenByFiles(self):
        """With all three streams closed, the first files that the program opens would become its output."""
        secret = self.file("config.toml", b'user_id = "7"\n')
        script = 'exec "$0" "$@" 0<&- 1>&- 2>&-'
        for arguments in (("config", "--config", secret), ("upload", secret, "--scope", "s", *IDENTITY)):
            subprocess.run(["sh", "-c", script, PROGRAM, *arguments], env=self.environment, cwd=self.home,
                           timeout=PATIENCE)
            with open(secret, "rb") as file:
                self.assertEqual(file.read(), b'user_id = "7"\n')
        process = subprocess.Popen(
            ["sh", "-c", script, PROGRAM, "upload", self.fifo(), "--scope", "s", "--token-command",
             f"ls -l /proc/$PPID/fd > {self.home}/descriptors; echo t", "--user-id", "7", "--backend",
             "http://127.0.0.1:9"], env=self.environment, cwd=self.home)
        process.wait(PATIENCE)
        listed = (self.home / "descriptors").read_text()
        for number in (0, 1, 2):
            self.assertRegex(listed, rf" {number} -> /dev/null\n")

    def fifo(self):
        path = self.home / "fifo"
        os.mkfifo(path)
        return path

    def testPrintedTextsDoNotMixWithTheEvents(self):
        """The library prints why a directory cannot be made; scripts read JSON lines."""
        (self.documents / "aws-0011").mkdir(parents=True)
        (self.documents / "aws-0011/7").write_bytes(b"no directory")
        done = self.run_program("background", self.file("a.jpg"), "--scope", "s", "--json", *IDENTITY)
        self.assertEqual(done.status, 1)
        self.assertGreater(len(done.events), 0)  # each line is JSON
        self.assertRegex(done.err, "qxuploader: .*aws-0011/7: File exists\n")

    def testPrintedTextsDoNotMixWithTheAnswersOfActions(self):
        lines = [{"host": {"userId": "../\x1b[2J", "token": "t", "serverAddress": "http://127.0.0.1:9"}},
                 {"action": "SetUp:", "params": {"needServerResize": False}}]
        done = self.run_program("actions", input="".join(json.dumps(line) + "\n" for line in lines))
        self.assertEqual(done.status, 0)
        for line in done.out.splitlines():
            json.loads(line)
        self.assertIn("qxuploader: the user id cannot name a directory\n", done.err)

    def testPrintedTextsAreEscaped(self):
        documents = self.home / "evil\x1b[2J\u202e"
        (documents / "aws-0011").mkdir(parents=True)
        (documents / "aws-0011/7").write_bytes(b"no directory")
        done = self.run_program("background", self.file("a.jpg"), "--scope", "s", *IDENTITY,
                                "--documents", documents)
        self.assertIn("evil\\x1b[2J\\u202e/aws-0011/7: File exists", done.err)
        self.assertNotIn("\x1b", done.err + done.out)

    DIRECTIONS = "\u061c\u200e\u200f\u202a\u202b\u202c\u202d\u202e\u2066\u2067\u2068\u2069"

    def testCharactersThatChangeTheDirectionOfWritingAreEscaped(self):
        name = f"photo{self.DIRECTIONS}gpj.exe \u2065\u206a\u2028ü€"
        shown = "".join(f"\\u{ord(c):04x}" for c in self.DIRECTIONS)
        done = self.run_program("upload", name, "--scope", "s", *IDENTITY)
        self.assertIn(f"photo{shown}gpj.exe \u2065\u206a\u2028ü€ could not be read", done.err)

    def testJsonEscapesWhatSteersATerminal(self):
        name = f"a{self.DIRECTIONS}\u0080\u009b2J\u009f\x7fü.jpg"
        done = self.run_program("upload", name, "--scope", "s", "--json", *IDENTITY)
        failed, = done.named("failed")
        self.assertEqual(failed["file"], name)
        for character in f"{self.DIRECTIONS}\u0080\u009b\u009f\x7f":
            self.assertNotIn(character, done.out)
        action = json.dumps({"action": "Fly" + name}) + "\n"
        done = self.run_program("actions", input=action)
        self.assertEqual(done.named("unknownAction")[0]["action"], "Action_Fly" + name)
        self.assertNotIn("\u202e", done.out)


if __name__ == "__main__":
    unittest.main()
