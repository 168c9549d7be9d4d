"""The cost of starting the program: the libraries that it loads and the time that it takes."""
import os
import statistics
import subprocess
import unittest

from Support import PROGRAM


def loaded(program):
    lines = subprocess.run(["ldd", program], check=True, capture_output=True, text=True).stdout
    return [line.split()[0] for line in lines.splitlines()]


def processor_time(program):
    """Seconds of processor time, in the kernel, too. They do not depend on how busy the machine is."""
    process = subprocess.Popen([program, "--version"], stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    assert process.returncode == 0, program
    return usage.ru_utime + usage.ru_stime


class StartUp(unittest.TestCase):
    def testLoadsAtMostFiftyLibraries(self):
        self.assertLessEqual(len(loaded(PROGRAM)), 50)

    def testTakesAtMostOneAndAHalfTimesWhatCurlTakes(self):
        ours, curls = [], []
        for _ in range(60):
            ours.append(processor_time(PROGRAM))
            curls.append(processor_time("curl"))
        self.assertLessEqual(statistics.median(ours), 1.5 * statistics.median(curls))


if __name__ == "__main__":
    unittest.main()
