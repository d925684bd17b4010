"""The Debian packages: what they hold, and how dpkg installs, upgrades and removes them."""

import errno
import functools
import os
import re
import shutil
import subprocess
import tempfile
import unittest

import installation
from installation import CONFIGURATION, DIRECTORY, ORDINARY_ID, REPOSITORY, TOOL, InstallationTest, OpenTool, PackagingTest
from private_root import ORDINARY

STATUS = """Package: {}
Status: install ok installed
Maintainer: a test
Architecture: {}
Multi-Arch: same
Version: 99
Description: stands for the package of that name

"""


@functools.cache
def packages():
    """The packages of this build, by name."""
    directory = tempfile.mkdtemp(prefix="packaging-scratch-", dir=installation.BUILD)
    unittest.addModuleCleanup(shutil.rmtree, directory)
    return installation.pack(directory)


class TheContents(PackagingTest):
    def setUp(self):
        super().setUp()
        if shutil.which("dpkg-deb") is None:
            self.skipTest("there is no dpkg-deb here")
        self.packages = packages()

    def contents(self, package):
        """The mode and owner of each file of a package, by path."""
        lines = self.succeed("dpkg-deb", "--contents", self.packages[package]).splitlines()
        fields = [line.split(maxsplit=5) for line in lines]
        return {field[5].removeprefix("."): (field[0], field[1]) for field in fields}

    def test_there_is_a_package_of_the_suite_and_one_for_development(self):
        self.assertEqual(set(self.packages), {"zekara4mac", "zekara4mac-dev"})
        suite, development = self.contents("zekara4mac"), self.contents("zekara4mac-dev")
        self.assertEqual(suite[TOOL], ("-rwsr-xr-x", "root/root"))
        self.assertFalse([path for path in suite if "/include/" in path or path.endswith((".a", ".pc", ".cmake"))])
        for name in ("libZekara4MacLibrary.a", "Zekara4Mac.pc", "zekara4mac.pc", "Zekara4MacConfig.cmake", "ZKAIniData.h"):
            self.assertTrue([path for path in development if path.endswith("/" + name)], name)
        self.assertFalse([path for path in development if path.startswith(("/Library", "/var", "/usr/bin"))])

    def test_each_has_its_documentation_changelog_and_copyright(self):
        for package in self.packages:
            contents = self.contents(package)
            for name in ("copyright", "changelog.gz"):
                self.assertIn(f"/usr/share/doc/{package}/{name}", contents)
        self.assertIn("/usr/share/doc/zekara4mac/README.md", self.contents("zekara4mac"))
        self.assertIn("/usr/share/doc/zekara4mac/docs/installation.md", self.contents("zekara4mac"))
        self.assertIn("/usr/share/doc/zekara4mac-dev/library.md", self.contents("zekara4mac-dev"))

    def test_copyright_says_that_no_licence_has_been_granted(self):
        with open(REPOSITORY + "/packaging/debian/copyright", encoding="utf-8") as file:
            self.assertIn("No licence has been granted yet", file.read())

    def test_newest_entry_of_the_changelog_is_the_version_of_the_package(self):
        with open(REPOSITORY + "/packaging/debian/changelog", encoding="utf-8") as file:
            version = re.match(r"zekara4mac \((.*)\)", file.readline())[1]
        self.assertEqual(self.succeed("dpkg-deb", "--field", self.packages["zekara4mac"], "Version").strip(), version)

    def test_modes_do_not_depend_on_the_umask(self):
        expected = {package: self.contents(package) for package in self.packages}
        self.assertFalse([path for package in expected.values() for path, (mode, _) in package.items()
                          if not re.fullmatch("d?-?rw[xs-]r-[x-]r-[x-]", mode)])
        for umask in (0o000, 0o077):
            with self.subTest(umask=oct(umask)):
                self.packages = self.pack(f"umask-{umask:o}", umask=umask)
                self.assertEqual({package: self.contents(package) for package in self.packages}, expected)

    def test_zsh_completion_is_where_the_zsh_of_debian_looks(self):
        self.assertIn("/usr/share/zsh/vendor-completions/_zkaconfig", self.contents("zekara4mac"))

    def test_programs_are_stripped_and_the_tool_needs_no_library(self):
        self.succeed("dpkg-deb", "--extract", self.packages["zekara4mac"], self.scratch + "/extracted")
        for path in (TOOL, "/usr/bin/zkaconfig"):
            self.assertNotIn(".symtab", self.succeed("readelf", "--section-headers", self.scratch + "/extracted" + path), path)
        headers = self.succeed("readelf", "--program-headers", "--dynamic", self.scratch + "/extracted" + TOOL)
        self.assertNotIn("INTERP", headers)
        self.assertNotIn("NEEDED", headers)


class TheInstalledPackage(InstallationTest):
    def setUp(self):
        super().setUp()
        if shutil.which("dpkg") is None:
            self.skipTest("there is no dpkg here")
        self.make_database()

    def make_database(self):
        """An empty package database, in which the libraries that zkaconfig needs count as installed."""
        for name in ("/var/lib/dpkg/info", "/var/lib/dpkg/updates", "/var/log"):
            os.makedirs(self.at(name))
        architecture = self.succeed("dpkg", "--print-architecture").strip()
        libraries = ("libc6", "libstdc++6", "libgcc-s1")
        self.write("/var/lib/dpkg/status", "".join(STATUS.format(name, architecture) for name in libraries))

    def dpkg(self, *arguments):
        return subprocess.run(["dpkg", f"--root={self.root.path}", "--force-unsafe-io", *arguments], stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, check=False, env={**os.environ, "DPKG_COLORS": "never"})

    def install(self):
        return self.check_success(["dpkg"], self.dpkg("--install", *packages().values()))

    def test_installed_tool_is_roots_with_mode_04755_in_directories_that_only_root_changes(self):
        self.install()
        self.assertEqual(self.attributes(TOOL), (0, 0, "0o4755"))
        for directory in ("/Library", "/Library/Application Support", DIRECTORY, "/var/zekara", "/var/zekara/run",
                          "/var/zekara/log"):
            self.assertEqual(self.attributes(directory), (0, 0, "0o755"), directory)

    def test_unprivileged_user_changes_a_setting_with_the_tool_and_with_zkaconfig(self):
        self.install()
        self.change_setting_as_ordinary_user()
        self.succeed_inside("/usr/bin/zkaconfig", "set", "UpdateD", "Interval=4711", user=ORDINARY)
        self.assertIn("4711", self.succeed_inside("/usr/bin/zkaconfig", "get", "UpdateD", "Interval", user=ORDINARY))

    def test_configuration_is_made_empty_but_an_existing_one_is_not_touched(self):
        self.install()
        self.assertEqual((self.attributes(CONFIGURATION), self.read(CONFIGURATION)), ((0, 0, "0o444"), ""))
        self.write(CONFIGURATION, "[UpdateD]\n", owner=ORDINARY_ID, mode=0o640)
        self.install()
        self.assertEqual(self.attributes(CONFIGURATION), (ORDINARY_ID, ORDINARY_ID, "0o640"))
        self.assertEqual(self.read(CONFIGURATION), "[UpdateD]\n")

    def test_removal_keeps_the_configuration_and_purge_takes_it(self):
        self.install()
        self.change_setting_as_ordinary_user()
        files = self.read("/var/lib/dpkg/info/zekara4mac.list").splitlines()
        files = [path for path in files if os.path.isfile(self.at(path))]
        self.assertIn(TOOL, files)
        self.check_success(["remove"], self.dpkg("--remove", "zekara4mac"))
        self.assertEqual([path for path in files if self.exists(path)], [])
        self.assertTrue(self.exists(CONFIGURATION))
        self.check_success(["purge"], self.dpkg("--purge", "zekara4mac"))
        self.assertFalse(self.exists("/Library"))
        self.assertFalse(self.exists("/var/zekara"))

    def test_account_that_has_the_tool_open_cannot_start_it_after_an_upgrade_or_a_removal(self):
        self.install()
        held = OpenTool(self.root.path, TOOL)
        self.install()
        self.assertEqual(held.start(), errno.EACCES)
        held = OpenTool(self.root.path, TOOL)
        self.check_success(["remove"], self.dpkg("--remove", "zekara4mac"))
        self.assertEqual(held.start(), errno.EACCES)

    def check_refused_before_unpacking(self, pattern):
        result = self.dpkg("--install", *packages().values())
        self.assertNotEqual(result.returncode, 0, result.stdout)
        self.assertRegex(result.stdout, pattern)
        self.assertFalse(os.path.isfile(self.at(TOOL)))

    def test_unsafe_place_is_refused_before_the_tool_is_unpacked(self):
        self.make_directory("/Library", mode=0o777)
        self.check_refused_before_unpacking("/Library can be written by others")

    def test_link_into_a_directory_of_another_account_is_refused(self):
        self.make_directory("/srv/theirs", ORDINARY_ID)
        os.symlink("/srv/theirs", self.at("/Library"))
        self.check_refused_before_unpacking("/srv/theirs is not a directory that root owns")

    def test_directory_at_the_tools_name_is_refused(self):
        self.make_directory(TOOL)
        self.check_refused_before_unpacking("is a directory")

    def test_place_that_has_become_unsafe_leaves_the_package_half_configured(self):
        self.check_success(["unpack"], self.dpkg("--unpack", *packages().values()))
        self.make_directory("/var/zekara", mode=0o777)
        result = self.dpkg("--configure", "zekara4mac")
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("/var/zekara can be written by others", result.stdout)
        self.assertIn("Status: install ok half-configured", self.read("/var/lib/dpkg/status"))
