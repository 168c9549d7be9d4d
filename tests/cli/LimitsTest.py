"""Limits of what the program reads: settings, action lines, the output of the token command."""
import json
import os
import subprocess
import threading
import unittest

from Support import PATIENCE, PROGRAM, ProgramTest


class Limits(ProgramTest):
    def config(self, text, mode=0o600):
        path = self.file("config.toml", text.encode())
        os.chmod(path, mode)
        return path

    def expectRefused(self, reason, text, mode=0o600):
        done = self.run_program("config", "--config", self.config(text, mode))
        self.assertEqual((done.status, done.out), (2, ""), text[:40])
        self.assertIn("config.toml", done.err)
        self.assertIn(reason, done.err)

    def testSettingsThatOthersMayWriteAreRefused(self):
        for mode in (0o620, 0o602, 0o666):
            self.expectRefused("may be written by others; chmod go-w it", 'user_id = "7"\n', mode)
        for mode in (0o600, 0o644, 0o400):
            done = self.run_program("config", "--config", self.config('user_id = "7"\n', mode))
            self.assertEqual(done.status, 0, done.err)

    def testSettingsOfAnotherUserAreRefused(self):
        path, before = self.config('user_id = "7"\n'), []
        if os.geteuid() == 0:
            os.chown(path, 65534, 65534)
        else:  # in a user namespace where the superuser's files are nobody's
            path, before = "/etc/hostname", ["unshare", "--user"]
        done = subprocess.run([*before, PROGRAM, "config", "--config", path], env=self.environment,
                              text=True, capture_output=True, timeout=PATIENCE)
        self.assertEqual(done.returncode, 2)
        self.assertIn("belongs to another user", done.stderr)

    def testSettingsNestedTooDeeplyAreRefused(self):
        deep = ".".join("a" * 200_000)
        for text in (f"{deep} = 1\n", f"[{deep}]\n", f"[[{deep}]]\n", f"x = {{{deep} = 1}}\n",
                     f'user_id = """\n"""\n{deep} = 1\n', f"user_id = '\\'\n{deep} = 1\n",
                     f"user_id = 'it'  # \"\n{deep} = 1\n", "x = " + "{a.b=" * 150 + "\n"):
            self.expectRefused("nested too deeply", text)
        self.expectRefused("nested value depth", "a = " + "[" * 100_000)

    def testDotsInTextsAndCommentsNestNothing(self):
        dots = "." * 5000
        text = (f'no_proxy = "a{dots}\\"{dots}"\n# {dots}\nproxy = \'{dots}"\'  # "{dots}\n'
                f'token_command = """\n{dots}"{dots}""\\"{dots}"""\nuser_id = "7"\n')
        done = self.run_program("config", "--json", "--config", self.config(text))
        self.assertEqual(done.status, 0, done.err)
        settings = {event["key"]: event["value"] for event in done.named("setting")}
        self.assertEqual((settings["no_proxy"], settings["user_id"]), (f'a{dots}"{dots}', "7"))

    def testSettingsLargerThanAMebibyteAreRefused(self):
        self.expectRefused("larger than 1 MiB", "# comment\n" * 200_000)

    def testActionLineOver64MebibytesIsAnErrorAndTheNextOneCounts(self):
        most = 64 << 20
        allowed = json.dumps({"action": "A" * 10})
        process = self.start("actions")
        out = []
        reader = threading.Thread(target=lambda: out.extend(process.stdout))
        reader.start()
        process.stdin.write(allowed + " " * (most - len(allowed)) + "\n")
        process.stdin.write(allowed + " " * (most - len(allowed) + 1) + "\n")
        process.stdin.write(json.dumps({"action": "B"}))
        process.stdin.close()
        reader.join()
        self.assertEqual(process.wait(), 1)
        events = [json.loads(line) for line in out]
        self.assertEqual([event.get("action") for event in events if event["event"] == "unknownAction"],
                         ["Action_" + "A" * 10, "Action_B"])
        error, = [event for event in events if event["event"] == "error"]
        self.assertEqual((error["line"], error["message"]), (2, "longer than 64 MiB"))

    def token(self, command):
        return self.run_program("upload", "nothing", "--scope", "s", "--user-id", "7", "--backend",
                                "http://127.0.0.1:9", "--token-command", command)

    def testTokenCommandMayPrint64KibibytesAndNoMore(self):
        done = self.token("head -c 65536 /dev/zero | tr '\\0' x")
        self.assertIn("nothing could not be read", done.err)  # the run went on to its file
        for command in ("head -c 65537 /dev/zero | tr '\\0' x", "yes"):
            done = self.token(command)
            self.assertEqual(done.status, 1)
            self.assertIn("--token-command printed more than 64 KiB", done.err)
            self.assertNotIn("xxxx", done.err)

    def testTokenCommandThatHangsEndsTheRun(self):
        """Two commands run at the same time: one prints nothing more, the other has closed its output."""
        runs = [self.start("upload", "nothing", "--scope", "s", "--user-id", "7", "--token-command", command)
                for command in ("exec sleep 1000", "exec sleep 1000 >&-")]
        for run in runs:
            out, err = run.communicate(timeout=120)
            self.assertEqual((run.returncode, out), (1, ""))
            self.assertIn("--token-command took over 30 s", err)


if __name__ == "__main__":
    unittest.main()
