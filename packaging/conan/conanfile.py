"""A recipe for the tree that it is part of: conan create packaging/conan"""

import os
import re

from conan import ConanFile
from conan.tools.cmake import CMake, cmake_layout
from conan.tools.files import copy, load


class KvSelectContext(ConanFile):
    name = "kvselectcontext"
    description = "Selection sets for a CAD application"
    settings = "os", "compiler", "build_type", "arch"
    options = {"shared": [True, False], "shortcuts": [True, False]}
    default_options = {"shared": True, "shortcuts": True}
    generators = "CMakeToolchain"
    package_type = "library"

    @property
    def tree(self):
        return os.path.join(self.recipe_folder, "..", "..")

    def set_version(self):
        self.version = re.search(r"VERSION (\d+\.\d+\.\d+)", load(self, os.path.join(self.tree, "CMakeLists.txt"))).group(1)

    def export_sources(self):
        for folder in ("base", "cmake", "packaging/debian", "platform", "selectcontext"):
            copy(self, "*", os.path.join(self.tree, folder), os.path.join(self.export_sources_folder, folder))
        copy(self, "CMakeLists.txt", self.tree, self.export_sources_folder)

    def layout(self):
        cmake_layout(self)

    def build(self):
        cmake = CMake(self)
        cmake.configure(
            variables={
                "BUILD_SHARED_LIBS": bool(self.options.shared),
                "KV_SHORTCUTS": bool(self.options.shortcuts),
                "KV_BUILD_TESTS": False,
                "KV_BUILD_EXAMPLES": False,
                "KV_BUILD_BENCH": False,
                "KV_WERROR": False,
                "CMAKE_INSTALL_LIBDIR": "lib",
            }
        )
        cmake.build()

    def package(self):
        CMake(self).install()
        copy(
            self,
            "copyright",
            os.path.join(self.source_folder, "packaging", "debian"),
            os.path.join(self.package_folder, "licenses"),
        )

    def package_info(self):
        # The library's own CMake packages are the ones to use.
        self.cpp_info.set_property("cmake_find_mode", "none")
        self.cpp_info.builddirs = [os.path.join("lib", "cmake")]
        self.cpp_info.includedirs = [os.path.join("include", "KvSelectContext")]
        self.cpp_info.libs = ["KvSelectContext", "KvDatabase", "KvGeometry", "KvRx", "KvOsBase"]
        if not self.options.shortcuts:
            self.cpp_info.defines = ["KV_SHORTCUTS=0"]
