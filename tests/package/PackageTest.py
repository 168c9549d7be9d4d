"""Installs the build into an empty prefix and uses it as another project would, both ways.

    PackageTest.py BUILD_DIR
"""
import os
import pathlib
import sys
import tempfile
import unittest

from Support import ERROR_WITHOUT_IDENTITY, HOST_SECONDS, hardening, run

BUILD = pathlib.Path(sys.argv.pop(1)).resolve()
SOURCES = pathlib.Path(__file__).resolve().parent


class InstalledPackage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.work = pathlib.Path(cls.folder.name)
        cls.prefix = cls.work / "prefix"
        run("cmake", "--install", BUILD, "--prefix", cls.prefix)

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def testCMakeProjectFindsBuildsAndRuns(self):
        build = self.work / "cmake"
        run("cmake", "-S", SOURCES, "-B", build, "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={self.prefix}")
        run("cmake", "--build", build)
        self.assertEqual(run(build / "host", timeout=HOST_SECONDS), ERROR_WITHOUT_IDENTITY)
        run(build / "faked")
        # The portable core and the fakes need nothing but the compiler's own libraries.
        libraries = {line.split()[0].split(".so")[0] for line in run("ldd", build / "faked").splitlines()}
        self.assertLessEqual({os.path.basename(name) for name in libraries},
                             {"linux-vdso", "libstdc++", "libm", "libgcc_s", "libc",
                              "ld-linux-x86-64"})

    def testPkgConfigGivesAllThatTheCompilerNeeds(self):
        pc = next(self.prefix.rglob("qxawsuploader.pc"))
        environment = {**os.environ, "PKG_CONFIG_PATH": str(pc.parent)}
        flags = run("pkg-config", "--cflags", "--libs",
                    "qxawsuploader", env=environment).split()
        host = self.work / "host"
        run("c++", "-std=c++20", SOURCES / "Host.cpp", "-o", host, *flags)
        self.assertEqual(run(host, timeout=HOST_SECONDS), ERROR_WITHOUT_IDENTITY)

    def testHostOfTheReadmeCompiles(self):
        readme = (SOURCES.parent.parent / "README.md").read_text()
        program = readme.split("```cpp\n")[1].split("```")[0]
        self.assertIn("int main()", program)
        run("c++", "-std=c++20", "-fsyntax-only", f"-I{self.prefix / 'include'}", "-x", "c++", "-", input=program)

    def testEveryInstalledHeaderCompilesAlone(self):
        include = self.prefix / "include"
        headers = sorted(path.relative_to(include) for path in include.rglob("*.h"))
        self.assertIn(pathlib.Path("qxawsuploader/LinuxPlatform.h"), headers)
        self.assertIn(pathlib.Path("qxawsuploader/testing/FakePlatform.h"), headers)
        for header in headers:
            run("c++", "-std=c++20", "-fsyntax-only", "-x", "c++", f"-I{include}", "-",
                input=f"#include <{header}>\n")

    def testPublicHeadersAloneAreInstalledAllBelowOneFolder(self):
        self.assertEqual([path.name for path in (self.prefix / "include").iterdir()],
                         ["qxawsuploader"])
        installed = {path.name for path in (self.prefix / "include/qxawsuploader").glob("*.h")}
        seams = {path.name for path in (SOURCES.parent.parent / "platform").glob("*.h")}
        self.assertLessEqual(seams | {"Target_Uploader.h", "LinuxPlatform.h"}, installed)
        self.assertTrue(installed.isdisjoint({"Library.h", "TaskExecutor.h", "SigV4.h",
                                              "HttpEngine.h", "NlohmannJson.h"}))

    def testProgramIsHardenedAndStripped(self):
        program = self.prefix / "bin/qxuploader"
        # Buffers are checked in optimised builds only. SharedLibraryTest.py makes such a build.
        self.assertLessEqual({"position-independent", "read-only relocations", "stack not executable",
                              "bound at the start", "stack protector"}, hardening(program))
        self.assertNotRegex(run("readelf", "-SW", program), r"\.symtab|\.debug_")

    def testStaticLibrariesHoldTheStackProtector(self):
        for library in self.prefix.rglob("lib*.a"):
            self.assertIn(" U __stack_chk_fail", run("nm", library), library)

    def testDebPackagesDependOnWhatTheyAreLinkedWith(self):
        run("cpack", "--config", BUILD / "CPackConfig.cmake", "-B", self.work / "deb")
        depends = {}
        for package in (self.work / "deb").glob("*.deb"):
            name, depends_on = run("dpkg-deb", "--show", "--showformat=${Package}\n${Depends}",
                                   package).split("\n")
            depends[name] = {each.split()[0] for each in depends_on.split(",")}
        self.assertEqual(set(depends), {"qxuploader", "libqxawsuploader-dev"})
        self.assertLessEqual({"libc6", "libcurl4", "libplist3", "libssl3", "libjpeg62-turbo",
                              "libpng16-16", "libwebp7", "libtiff6"},
                             depends["qxuploader"])
        self.assertEqual({"libcurl4-openssl-dev", "libssl-dev", "libplist-dev", "libjpeg-dev",
                          "libpng-dev", "libwebp-dev", "libtiff-dev"},
                         depends["libqxawsuploader-dev"])

    def testLicenseIsNamedInEveryPlaceThatPackagesLookAt(self):
        for package in ("qxuploader", "libqxawsuploader-dev"):
            text = (self.prefix / "share/doc" / package / "copyright").read_text()
            self.assertIn("License: Apache-2.0\n", text)
            self.assertIn("/usr/share/common-licenses/Apache-2.0", text)
        self.assertIn("License: Apache-2.0\n", next(self.prefix.rglob("qxawsuploader.pc")).read_text())
        root = SOURCES.parent.parent
        self.assertIn("Version 2.0, January 2004", (root / "LICENSE").read_text())
        self.assertIn("[LICENSE](LICENSE)", (root / "README.md").read_text())

    def testProgramManualAndCompletionsAreInTheUsualPlaces(self):
        self.assertRegex(run(self.prefix / "bin/qxuploader", "--version"), r"^qxuploader \d+\.\d+\.\d+\n$")
        for path in ("share/man/man1/qxuploader.1", "share/bash-completion/completions/qxuploader",
                     "share/zsh/site-functions/_qxuploader"):
            self.assertTrue((self.prefix / path).is_file(), path)


if __name__ == "__main__":
    unittest.main()
