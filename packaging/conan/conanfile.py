"""The library as a package of Conan 2: conan create packaging/conan"""

import os

from conan import ConanFile
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load


class Netro(ConanFile):
    name = "netro"
    license = "MIT"
    description = "Internet protocols as event-driven C++ classes"
    settings = "os", "compiler", "build_type", "arch"
    options = {"shared": [True, False], "tls": [True, False], "codings": [True, False],
               "testkit": [True, False]}
    default_options = {"shared": False, "tls": True, "codings": True, "testkit": False}
    package_type = "library"

    @property
    def root(self):
        return os.path.join(self.recipe_folder, "..", "..")

    def set_version(self):
        listed = load(self, os.path.join(self.root, "CMakeLists.txt"))
        self.version = listed.split("project(netro VERSION ")[1].split()[0]

    def export_sources(self):
        for pattern in ("CMakeLists.txt", "LICENSE", "*.md", "cmake/*", "packaging/*", "include/*",
                        "support/*", "platform/*", "socket/*", "dns/*", "mail/*", "web/*", "diag/*",
                        "tls/*", "codings/*", "testkit/*", "docs/*", "bench/README.md"):
            copy(self, pattern, self.root, self.export_sources_folder)

    def requirements(self):
        if self.options.tls:
            self.requires("openssl/[>=3 <4]")
        if self.options.codings:
            self.requires("zlib/[>=1.2.11 <2]")
            self.requires("brotli/[>=1.0.9 <2]")
            self.requires("zstd/[>=1.5 <2]")

    def layout(self):
        cmake_layout(self)

    def generate(self):
        CMakeDeps(self).generate()
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables.update({
            "BUILD_SHARED_LIBS": bool(self.options.shared),
            "NETRO_BUILD_TLS": bool(self.options.tls),
            "NETRO_BUILD_CODINGS": bool(self.options.codings),
            "NETRO_BUILD_TESTKIT": bool(self.options.testkit),
            "NETRO_BUILD_TESTS": False, "NETRO_BUILD_TOOLS": False, "NETRO_BUILD_EXAMPLES": False})
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()

    def package_info(self):
        # The package's own CMake files know the targets.
        self.cpp_info.set_property("cmake_find_mode", "none")
        self.cpp_info.builddirs = [os.path.join("lib", "cmake", "netro")]
