"""Builds the library as a shared one inside another project, installs it, and uses it both ways.

    SharedLibraryTest.py
"""
import os
import pathlib
import re
import shutil
import tempfile
import unittest

from Support import ERROR_WITHOUT_IDENTITY, HOST_SECONDS, hardening, run

HERE = pathlib.Path(__file__).resolve().parent


def demangled(*files, options):
    """(type, name) of each symbol that `nm` lists."""
    listed = run("nm", "--demangle", *options, *files)
    return set(re.findall(r"^[0-9a-f]+ (\w) (.+)$", listed, re.MULTILINE))


def code_of(header):
    return re.sub(r"//.*", "", header.read_text())


class SharedLibrary(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.work = pathlib.Path(cls.folder.name)
        cls.build = cls.work / "build"
        cls.prefix = cls.work / "prefix"
        launcher = ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] if shutil.which("ccache") else []
        run("cmake", "-S", HERE / "subdirectory", "-B", cls.build, "-G", "Ninja",
            f"-DUPLOADER={HERE.parent.parent}", "-DBUILD_SHARED_LIBS=ON", "-DQXAWSUPLOADER_INSTALL=ON",
            "-DQXAWSUPLOADER_HARDENING=ON", "-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_FLAGS_RELEASE=-O1",
            *launcher)
        run("cmake", "--build", cls.build, "--target", "all", "bare_host")
        run("cmake", "--install", cls.build, "--prefix", cls.prefix)
        cls.library = next(cls.prefix.rglob("libqxawsuploader.so"))
        cls.exported = {name for _, name in demangled(cls.library, options=["-D", "--defined-only"])}
        cls.headers = [code_of(path) for path in (cls.prefix / "include/qxawsuploader").glob("*.h")]

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def testNameHoldsTheInterfacesVersion(self):
        version = re.search(r"VERSION (\d+)\.(\d+)\.(\d+) LANGUAGES",
                            (HERE.parent.parent / "CMakeLists.txt").read_text()).groups()
        self.assertEqual(self.library.resolve().name, "libqxawsuploader.so." + ".".join(version))
        self.assertRegex(run("readelf", "-dW", self.library),
                         rf"\(SONAME\) .*\[libqxawsuploader\.so\.{version[0]}\.{version[1]}\]")

    def testItExportsNothingButThePublicInterface(self):
        self.assertGreater(len(self.exported), 50)
        text = "\n".join(self.headers)
        for symbol in sorted(self.exported):
            name = re.sub(r"^(vtable|typeinfo|typeinfo name) for ", "", symbol)
            self.assertRegex(name, r"^qx::\w+", symbol)
            outermost = re.match(r"qx::(\w+)", name)[1]
            self.assertRegex(text, rf"QX_EXPORT\b[^;{{]*\b{outermost}\b", symbol)

    def testItExportsEveryFunctionThatAPublicHeaderDeclares(self):
        defined = demangled(*self.build.rglob("libqx_core.a"), *self.build.rglob("libqx_platform_linux.a"),
                            options=["--defined-only"])
        missing, found = [], 0
        for kind, symbol in sorted(defined):
            match = re.match(r"qx::(?:(\w+)::)?(~?\w+)(?:\[abi:\w+\])?\(", symbol)
            if kind != "T" or not match:
                continue
            owner, function = match.groups()
            # The line of a function outside classes begins with its name.
            declared = rf"\b{function}\(" if owner else rf"(?m)^\S.*\b{function}\("
            if any(re.search(declared, header) and
                   (not owner or re.search(rf"\b(?:class|struct)\b[^;{{]*\b{owner}\b[^;{{]*{{", header))
                   for header in self.headers):
                found += 1
                if symbol not in self.exported:
                    missing.append(symbol)
        self.assertGreater(found, 40)
        self.assertEqual(missing, [])

    def testTypesOfCallbacksAreTheSameForHostAndLibrary(self):
        # A callback type that contains a type that is not exported would have one tag in the host
        # and another in the library.
        tags = {symbol for _, symbol in demangled(*self.build.rglob("libqx_core.a"), options=["--defined-only"])
                if symbol.startswith("qx::TypeTag<")}
        self.assertGreater(len(tags), 4)
        self.assertEqual(tags - self.exported, set())

    def testItIsHardened(self):
        self.assertEqual(hardening(self.library),
                         {"position-independent", "read-only relocations", "stack not executable",
                          "bound at the start", "stack protector", "checked buffers"})

    def testHostInTheSameBuildRuns(self):
        self.assertIn("libqxawsuploader.so", run("ldd", self.build / "host"))
        self.assertEqual(run(self.build / "host", timeout=HOST_SECONDS), ERROR_WITHOUT_IDENTITY)

    def testHostWithoutExceptionsAndTypeInformationRuns(self):
        self.assertEqual(run(self.build / "bare_host", timeout=HOST_SECONDS), "miss scope\n" + ERROR_WITHOUT_IDENTITY)

    def testCMakeProjectFindsTheInstalledOne(self):
        build = self.work / "cmake"
        run("cmake", "-S", HERE, "-B", build, "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={self.prefix}")
        run("cmake", "--build", build)
        self.assertIn(str(self.library.parent), run("ldd", build / "host"))
        self.assertEqual(run(build / "host", timeout=HOST_SECONDS), ERROR_WITHOUT_IDENTITY)
        run(build / "faked")

    def testPkgConfigNamesTheOneLibrary(self):
        pc = next(self.prefix.rglob("qxawsuploader.pc"))
        flags = run("pkg-config", "--cflags", "--libs", "qxawsuploader",
                    env={**os.environ, "PKG_CONFIG_PATH": str(pc.parent)}).split()
        self.assertEqual([flag for flag in flags if flag.startswith("-l")], ["-lqxawsuploader"])
        host = self.work / "host"
        run("c++", "-std=c++20", HERE / "Host.cpp", "-o", host, *flags, f"-Wl,-rpath,{self.library.parent}")
        self.assertEqual(run(host, timeout=HOST_SECONDS), ERROR_WITHOUT_IDENTITY)


if __name__ == "__main__":
    unittest.main()
