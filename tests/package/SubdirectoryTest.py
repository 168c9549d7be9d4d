"""Uses the sources as a subdirectory of another project.

    SubdirectoryTest.py
"""
import pathlib
import re
import tempfile
import unittest

from Support import run

HERE = pathlib.Path(__file__).resolve().parent


class Subdirectory(unittest.TestCase):
    """Configured with no settings but those that CMake makes by itself, and not built."""

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.build = pathlib.Path(cls.folder.name) / "build"
        run("cmake", "-S", HERE / "subdirectory", "-B", cls.build, "-G", "Ninja",
            f"-DUPLOADER={HERE.parent.parent}")
        cls.commands = run("ninja", "-C", cls.build, "-t", "commands", "all")

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def testLibrariesAloneAreBuilt(self):
        outputs = set(re.findall(r" -o (\S+)", self.commands)) | set(re.findall(r"\blib\w+\.a\b", self.commands))
        self.assertEqual({name for name in outputs if not name.endswith(".o")},
                         {"host", "libqx_core.a", "libqx_platform_linux.a"})
        for foreign in ("/tests/", "/apps/", "/bench/", "gtest", "gmock", "CLI11", "benchmark"):
            self.assertNotIn(foreign, self.commands.replace(str(HERE), ""))

    def testTheirCompilerFlagsAreTheOtherProjects(self):
        for foreign in ("-Werror", "-Wall", "-fsanitize", "ccache", "-D_FORTIFY_SOURCE", "-O2", " -g"):
            self.assertNotIn(foreign, self.commands)
        self.assertFalse((self.build / "compile_commands.json").exists())

    def testHostSeesThePublicHeadersAndNotTheTree(self):
        compiled = next(line for line in self.commands.splitlines() if line.endswith("Host.cpp"))
        self.assertRegex(compiled, rf"-I{self.build}/uploader/include\b")
        self.assertNotRegex(compiled, rf"-I{HERE.parent.parent}(/tests)?\s")

    def testNothingIsInstalledOrTested(self):
        prefix = self.build / "prefix"
        run("cmake", "--install", self.build, "--prefix", prefix)
        self.assertFalse(prefix.exists())
        self.assertIn("Total Tests: 0", run("ctest", "--test-dir", self.build, "-N"))
        self.assertFalse((self.build / "CPackConfig.cmake").exists())

    def testOptionsHaveThePrefixOfTheProject(self):
        cache = (self.build / "CMakeCache.txt").read_text()
        options = re.findall(r"^(\w+):(?:BOOL|STRING)=", cache, re.MULTILINE)
        self.assertEqual([name for name in options if name.startswith(("QX_", "BUILD_", "CPACK"))], [])
        self.assertIn("QXAWSUPLOADER_BUILD_LINUX", options)


if __name__ == "__main__":
    unittest.main()
