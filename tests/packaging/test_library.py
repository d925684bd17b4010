"""The installed library, as other projects find and use it. Needs no rights of root."""

import glob
import os
import re
import shlex

from installation import BUILD, REPOSITORY, TOOL, PackagingTest, run

CONSUMER = REPOSITORY + "/tests/consumer"
PROGRAMS = ("consumer", "foundation_consumer")


class TheInstalledLibrary(PackagingTest):
    def setUp(self):
        super().setUp()
        self.prefix = self.scratch + "/prefix"
        self.succeed("cmake", "--install", BUILD, "--prefix", self.prefix, "--component", "Library")

    def test_consumer_includes_every_public_header(self):
        include = self.prefix + "/include/Zekara4Mac/"
        installed = {path.removeprefix(include) for path in glob.glob(include + "*/*.h")}
        self.assertGreater(len(installed), 15)
        included = set()
        for path in glob.glob(CONSUMER + "/*.cpp"):
            with open(path, encoding="utf-8") as source:
                included.update(re.findall(r'#include "(.*)"', source.read()))
        self.assertEqual(included, installed)

    def test_outside_project_builds_with_cmake(self):
        build = self.scratch + "/consumer"
        self.succeed("cmake", "-S", CONSUMER, "-B", build, "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={self.prefix}")
        self.succeed("cmake", "--build", build, "-j2")
        for program in PROGRAMS:
            self.succeed(f"{build}/{program}")

    def test_outside_project_builds_with_pkg_config_under_either_name(self):
        found = glob.glob(self.prefix + "/lib*/**/zekara4mac.pc", recursive=True)
        self.assertEqual(len(found), 1)
        environment = {**os.environ, "PKG_CONFIG_PATH": os.path.dirname(found[0])}
        flags = {}
        for name in ("Zekara4Mac", "zekara4mac"):
            self.assertEqual(self.succeed("pkg-config", "--modversion", name, env=environment).strip(), "1.0.0")
            self.assertEqual(self.succeed("pkg-config", "--variable=tool", name, env=environment).strip(), TOOL)
            flags[name] = shlex.split(self.succeed("pkg-config", "--cflags", "--libs", name, env=environment))
        self.assertEqual(flags["Zekara4Mac"], flags["zekara4mac"])
        for program in PROGRAMS:
            self.succeed("c++", f"{CONSUMER}/{program}.cpp", *flags["zekara4mac"], "-o", f"{self.scratch}/{program}")
            self.succeed(f"{self.scratch}/{program}")

    def test_project_that_asks_for_the_next_major_version_is_refused(self):
        os.mkdir(self.scratch + "/next")
        with open(self.scratch + "/next/CMakeLists.txt", "w", encoding="utf-8") as file:
            file.write("cmake_minimum_required(VERSION 3.25)\nproject(p LANGUAGES CXX)\nfind_package(Zekara4Mac 2.0 REQUIRED)\n")
        command = ["cmake", "-S", self.scratch + "/next", "-B", self.scratch + "/next/build", f"-DCMAKE_PREFIX_PATH={self.prefix}"]
        result = run(*command)
        self.assertNotEqual(result.returncode, 0)
        self.assertRegex(result.stdout, r"compatible with requested\s+version")
