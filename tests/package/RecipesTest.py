"""Checks of the Conan recipe and the vcpkg port what can be checked without their programs: the recipes
run with stand-ins for the functions of Conan and vcpkg, and what they name must exist.

    RecipesTest.py
"""
import json
import pathlib
import re
import runpy
import shutil
import sys
import tempfile
import types
import unittest

from Support import run

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
PROJECT = (ROOT / "CMakeLists.txt").read_text()
VERSION = re.search(r"project\(QXAwsUploader VERSION (\S+)", PROJECT)[1]
# The pkg-config module of each Conan package and vcpkg port.
CONAN_MODULES = {"libcurl": "libcurl", "libjpeg": "libjpeg", "libpng": "libpng", "libwebp": "libwebp",
                 "libtiff": "libtiff-4"}
VCPKG_MODULES = {"curl": "libcurl", "libplist": "libplist-2.0", "libjpeg-turbo": "libjpeg",
                 "libpng": "libpng", "libwebp": "libwebp", "tiff": "libtiff-4"}
MODULES = {re.sub(">=.*", "", module) for module in
           re.search(r"pkg_check_modules\(QXAWSUPLOADER_LIBRARIES REQUIRED IMPORTED_TARGET([^)]+)\)",
                     (ROOT / "platforms/linux/CMakeLists.txt").read_text())[1].split()}


def configured(source, build, options):
    """The build files that CMake makes of the sources; an option that they do not know is a failure."""
    output = run("cmake", "-S", source, "-B", build, "-G", "Ninja",
                 *(f"-D{name}={value}" for name, value in options.items()))
    if "not used by the project" in output:
        raise AssertionError(output)
    return (build / "build.ninja").read_text()


class Recorder:
    """Stands for any object of Conan: remembers what it is given."""

    def __init__(self, *_):
        self.cache_variables, self.properties, self.components = {}, {}, Components()
        self.libs, self.requires, self.system_libs = [], [], []

    def generate(self):
        Recorder.generated.append(self)

    def set_property(self, name, value):
        self.properties[name] = value

    def install(self, packages):
        Recorder.installed += packages

    generated, installed = [], []


class Components(dict):
    """The parts of a package, each made when it is first named."""

    def __missing__(self, name):
        return self.setdefault(name, Recorder())


def copied(_, pattern, src, dst):
    for path in pathlib.Path(src).glob(pattern):
        to = pathlib.Path(dst) / path.relative_to(src)
        to.parent.mkdir(parents=True, exist_ok=True)
        shutil.copytree(path, to, dirs_exist_ok=True) if path.is_dir() else shutil.copy(path, to)


def module(name, **members):
    made = types.ModuleType(name)
    made.__dict__.update(members)
    sys.modules[name] = made


def conan_recipe(shared):
    """The recipe as Conan makes it, in this checkout."""
    module("conan", ConanFile=object)
    for name in ("conan.tools", "conan.tools.system"):
        module(name)
    module("conan.tools.build", check_min_cppstd=lambda *_: None)
    module("conan.tools.cmake", CMake=Recorder, CMakeDeps=Recorder, CMakeToolchain=Recorder,
           cmake_layout=lambda *_: None)
    module("conan.tools.files", copy=copied, load=lambda _, path: pathlib.Path(path).read_text(),
           rmdir=lambda *_: None)
    module("conan.tools.gnu", PkgConfigDeps=Recorder)
    module("conan.tools.system.package_manager", Apt=Recorder, Dnf=Recorder, PacMan=Recorder)
    file = ROOT / "packaging/conan/conanfile.py"
    recipe = runpy.run_path(str(file))["QXAwsUploader"]()
    recipe.recipe_folder = str(file.parent)
    recipe.options = types.SimpleNamespace(shared=shared)
    recipe.cpp_info = Recorder()
    recipe.required = {}
    recipe.requires = lambda reference: recipe.required.update([reference.split("/")])
    return recipe


class Conan(unittest.TestCase):
    def testVersionIsTheProjects(self):
        recipe = conan_recipe(False)
        recipe.set_version()
        self.assertEqual(recipe.version, VERSION)

    def testExportedSourcesAndOptionsMakeTheLibrariesThatItNames(self):
        for shared in (False, True):
            recipe = conan_recipe(shared)
            Recorder.generated.clear()
            recipe.generate()
            options = {"BUILD_SHARED_LIBS": shared}
            for each in Recorder.generated:
                options.update(each.cache_variables)
            self.assertIn("QXAWSUPLOADER_BUILD_TESTS", options)
            recipe.package_info()
            with tempfile.TemporaryDirectory() as folder:
                recipe.export_sources_folder = f"{folder}/sources"
                recipe.export_sources()
                files = configured(f"{folder}/sources", pathlib.Path(folder) / "build", options)
            libraries = [lib for part in recipe.cpp_info.components.values() for lib in part.libs]
            self.assertEqual(len(libraries), 2 if shared else 3)
            for library in libraries:
                self.assertRegex(files, rf"\blib{library}\.(a|so)\b")
            self.assertNotIn("-Werror", files)
            self.assertNotIn("qxuploader.dir", files)

    def testTargetsHaveTheNamesOfTheInstalledPackage(self):
        for shared in (False, True):
            recipe = conan_recipe(shared)
            recipe.package_info()
            parts = recipe.cpp_info.components.values()
            names = [part.properties["cmake_target_name"] for part in parts]
            names += [alias for part in parts for alias in part.properties.get("cmake_target_aliases", [])]
            self.assertEqual(sorted(names), ["qx::core", "qx::platform_linux", "qx::testing"])

    def testItRequiresWhatTheBuildLooksFor(self):
        recipe = conan_recipe(False)
        recipe.requirements()
        Recorder.installed.clear()
        recipe.system_requirements()
        self.assertEqual(set(recipe.required), {*CONAN_MODULES, "openssl", "nlohmann_json"})
        self.assertIn("libplist-dev", Recorder.installed)
        self.assertEqual({*CONAN_MODULES.values(), "libplist-2.0"}, MODULES)
        recipe.package_info()
        used = {name.split("::")[0] for name in recipe.cpp_info.components["platform_linux"].requires}
        self.assertEqual(used - {"core"}, set(recipe.required))


# The parts of vcpkg that our portfile uses.
VCPKG = """
set(CURRENT_PACKAGES_DIR ${FOLDER}/packages)
function(vcpkg_find_acquire_program name)
  set(${name} /usr/bin/pkg-config PARENT_SCOPE)
endfunction()
function(vcpkg_cmake_configure)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "SOURCE_PATH" "OPTIONS")
  message("source ${arg_SOURCE_PATH}")
  foreach(option IN LISTS arg_OPTIONS)
    message("option ${option}")
  endforeach()
endfunction()
function(vcpkg_cmake_install)
endfunction()
function(vcpkg_cmake_config_fixup)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "CONFIG_PATH" "")
  message("config ${arg_CONFIG_PATH}")
endfunction()
function(vcpkg_fixup_pkgconfig)
endfunction()
function(vcpkg_install_copyright)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "" "FILE_LIST")
  message("copyright ${arg_FILE_LIST}")
endfunction()
include(${CURRENT_PORT_DIR}/portfile.cmake)
"""


class Vcpkg(unittest.TestCase):
    def testPortConfiguresTheSourcesThatItStandsIn(self):
        with tempfile.TemporaryDirectory() as folder:
            script = pathlib.Path(folder) / "vcpkg.cmake"
            script.write_text(VCPKG)
            said = dict.fromkeys(run("cmake", f"-DFOLDER={folder}", f"-DCURRENT_PORT_DIR={ROOT / 'packaging/vcpkg'}",
                                     "-P", script).splitlines())
            self.assertIn(f"source {ROOT}", said)
            self.assertIn(f"copyright {ROOT / 'LICENSE'}", said)
            options = dict(re.match(r"option -D(\w+)=(.*)", line).groups() for line in said
                           if line.startswith("option"))
            self.assertIn("QXAWSUPLOADER_BUILD_TESTS", options)
            # vcpkg moves the folder of this name, and the port has the same name.
            build = pathlib.Path(folder) / "build"
            files = configured(ROOT, build, {**options, "CMAKE_INSTALL_LIBDIR": "lib"})
            config = next(line.split()[1] for line in said if line.startswith("config"))
            self.assertIn(f"/{config}\"", (build / "cmake_install.cmake").read_text())
            self.assertNotIn("-Werror", files)
            self.assertNotIn("qxuploader.dir", files)

    def testManifestAgreesWithTheProject(self):
        manifest = json.loads((ROOT / "packaging/vcpkg/vcpkg.json").read_text())
        self.assertEqual(manifest["version"], VERSION)
        self.assertEqual(manifest["license"], "Apache-2.0")
        self.assertEqual(manifest["name"], "qxawsuploader")
        ports = {each if isinstance(each, str) else each["name"] for each in manifest["dependencies"]}
        self.assertEqual(ports, {*VCPKG_MODULES, "openssl", "nlohmann-json", "vcpkg-cmake", "vcpkg-cmake-config"})
        self.assertEqual(set(VCPKG_MODULES.values()), MODULES)


class Addresses(unittest.TestCase):
    def testRecipesNameNoServer(self):
        for path in (ROOT / "packaging").rglob("*"):
            if path.is_file() and "deb" not in path.parts:
                self.assertNotRegex(path.read_text(), r"https?://", path)


if __name__ == "__main__":
    unittest.main()
