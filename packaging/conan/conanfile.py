"""Makes a Conan 2 package of the sources that this recipe stands in.

    conan create packaging/conan --build=missing [-o "&:shared=True"]
"""
import os
import re

from conan import ConanFile
from conan.tools.build import check_min_cppstd
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load, rmdir
from conan.tools.gnu import PkgConfigDeps
from conan.tools.system.package_manager import Apt, Dnf, PacMan

# The files that a build of the libraries reads.
SOURCES = ("CMakeLists.txt", "LICENSE", "cmake/*", "Classes/*", "platform/*", "http/*", "s3/*",
           "platforms/*", "tests/fakes/*", "packaging/deb/copyright")


class QXAwsUploader(ConanFile):
    name = "qxawsuploader"
    description = "Moves files to and from an object store with an application's short-lived credentials"
    license = "Apache-2.0"
    topics = ("s3", "upload", "object-store")
    package_type = "library"
    settings = "os", "arch", "compiler", "build_type"
    options = {"shared": [True, False], "fPIC": [True, False]}
    default_options = {"shared": False, "fPIC": True}
    implements = ["auto_shared_fpic"]

    def _root(self):
        return os.path.join(self.recipe_folder, "..", "..")

    def set_version(self):
        project = load(self, os.path.join(self._root(), "CMakeLists.txt"))
        self.version = re.search(r"project\(QXAwsUploader VERSION (\S+)", project)[1]

    def export_sources(self):
        for pattern in SOURCES:
            copy(self, pattern, src=self._root(), dst=self.export_sources_folder)

    def validate(self):
        check_min_cppstd(self, 20)

    def requirements(self):
        self.requires("libcurl/[>=7.88 <9]")
        self.requires("openssl/[>=3 <4]")
        self.requires("libjpeg/[>=9e]")
        self.requires("libpng/[>=1.6 <2]")
        self.requires("libwebp/[>=1.2 <2]")
        self.requires("libtiff/[>=4.5 <5]")
        self.requires("nlohmann_json/[>=3.11 <4]")

    def system_requirements(self):
        # The libplist of Conan, where there is one, is older than libplist-2.0.
        Apt(self).install(["libplist-dev"])
        Dnf(self).install(["libplist-devel"])
        PacMan(self).install(["libplist"])

    def layout(self):
        cmake_layout(self)

    def generate(self):
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables["QXAWSUPLOADER_BUILD_APPS"] = False
        toolchain.cache_variables["QXAWSUPLOADER_BUILD_TESTS"] = False
        toolchain.cache_variables["QXAWSUPLOADER_WARNINGS"] = False
        toolchain.generate()
        CMakeDeps(self).generate()
        PkgConfigDeps(self).generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        copy(self, "LICENSE", src=self.source_folder, dst=os.path.join(self.package_folder, "licenses"))
        CMake(self).install()
        # Conan writes its own CMake package for users of this package.
        for folder in ("cmake", "pkgconfig"):
            rmdir(self, os.path.join(self.package_folder, "lib", folder))

    def package_info(self):
        self.cpp_info.set_property("cmake_file_name", "QXAwsUploader")
        self.cpp_info.set_property("pkg_config_name", "qxawsuploader")
        platform = self.cpp_info.components["platform_linux"]
        platform.set_property("cmake_target_name", "qx::platform_linux")
        platform.requires = ["libcurl::libcurl", "openssl::crypto", "libjpeg::libjpeg", "libpng::libpng",
                             "libwebp::libwebp", "libtiff::libtiff", "nlohmann_json::nlohmann_json"]
        testing = self.cpp_info.components["testing"]
        testing.set_property("cmake_target_name", "qx::testing")
        testing.libs = ["qx_testing"]
        if self.options.shared:
            platform.set_property("cmake_target_aliases", ["qx::core"])
            platform.libs = ["qxawsuploader"]
            testing.requires = ["platform_linux"]
            return
        platform.libs = ["qx_platform_linux"]
        platform.system_libs = ["plist-2.0"]
        platform.requires.append("core")
        testing.requires = ["core"]
        core = self.cpp_info.components["core"]
        core.set_property("cmake_target_name", "qx::core")
        core.libs = ["qx_core"]
        core.system_libs = ["pthread"]
