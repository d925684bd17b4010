"""Installing in every way there is, using what was installed, and removing it. Started by tests/packaging/run."""

import glob
import os
import plistlib
import re
import shutil
import subprocess
import unittest

from support import sandbox

BUILD = PACKAGE = REPOSITORY = None  # set by the program that starts the tests
NOBODY = {"user": 65534, "group": 65534, "extra_groups": []}
DIRECTORY = "/Library/Application Support/Zekara"
TOOL = DIRECTORY + "/Zekara4MacTool"
CONFIGURATION = DIRECTORY + "/zekara32.ini"
PREFIX = "/opt/zekara-test"
MS_NOSUID = 2


def run(*command, **options):
    """Runs a program to its end; its output is text, with its errors."""
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False, **options)


def attributes(path):
    found = os.stat(path)
    return found.st_uid, found.st_gid, oct(found.st_mode & 0o7777)


class InstallationTest(unittest.TestCase):
    def setUp(self):
        self.clear()

    def tearDown(self):
        self.clear()

    @staticmethod
    def clear():
        if os.path.exists("/var/lib/dpkg/info/zekara4mac.list"):
            run("dpkg", "--purge", "zekara4mac")
        for path in ("/Library", "/var/zekara", PREFIX, "/tmp/stage", "/tmp/consumer"):
            while os.path.ismount(path):
                sandbox.unmount(path)
            shutil.rmtree(path, ignore_errors=True)

    def succeed(self, *command, **options):
        result = run(*command, **options)
        self.assertEqual(result.returncode, 0, f"{command}:\n{result.stdout}")
        return result.stdout

    def fail_with(self, pattern, *command, **options):
        result = run(*command, **options)
        self.assertNotEqual(result.returncode, 0, result.stdout)
        self.assertRegex(result.stdout, pattern)

    def install_build(self, **options):
        return self.succeed("cmake", "--install", BUILD, "--prefix", PREFIX, **options)

    def install_tool(self, **options):
        script = REPOSITORY + "/packaging/install-tool"
        return [script, self.built_tool(), DIRECTORY], options

    @staticmethod
    def built_tool():
        return BUILD + "/Zekara4MacTool/Zekara4MacTool"

    def change_setting_as_nobody(self):
        """Has the installed tool change a setting for an account without rights."""
        request = {"tag": "cmd", "cmd": "ChangeConfig", "arg": {"MacOSWardex": {"IsActive": "No"}}}
        started = subprocess.run([TOOL, "pipe"], input=plistlib.dumps(request), capture_output=True, check=False, **NOBODY)
        self.assertEqual(started.returncode, 0, started.stderr)
        reply = plistlib.loads(started.stdout)
        self.assertEqual((reply["tag"], reply["res"], reply.get("err")), ("ack", "OK", None))
        self.assertIn(b"Self-check passed", started.stderr)
        with open(CONFIGURATION, encoding="utf-8") as file:
            self.assertRegex(file.read(), r"IsActive\s*=\s*No")
        self.assertEqual(attributes(CONFIGURATION), (0, 0, "0o444"))


class ThePackage(InstallationTest):
    def install(self):
        return self.succeed("dpkg", "--install", PACKAGE)

    def test_installed_tool_is_roots_with_mode_04755_in_directories_that_only_root_changes(self):
        self.install()
        self.assertEqual(attributes(TOOL), (0, 0, "0o4755"))
        for directory in ("/Library", "/Library/Application Support", DIRECTORY, "/var/zekara", "/var/zekara/run", "/var/zekara/log"):
            self.assertEqual(attributes(directory), (0, 0, "0o755"), directory)

    def test_unprivileged_user_changes_a_setting_through_the_set_user_id_bit(self):
        self.install()
        self.change_setting_as_nobody()

    def test_unprivileged_user_changes_a_setting_with_zkaconfig(self):
        self.install()
        if not os.path.exists("/usr/bin/zkaconfig"):
            self.skipTest("this build has no zkaconfig")
        self.succeed("/usr/bin/zkaconfig", "set", "UpdateD", "Interval=4711", **NOBODY)
        self.assertIn("4711", self.succeed("/usr/bin/zkaconfig", "get", "UpdateD", "Interval", **NOBODY))

    def test_tool_needs_no_library_of_the_machine(self):
        self.install()
        self.assertIn("statically linked", run("ldd", TOOL).stdout)

    def test_manual_pages_and_completions_are_where_their_readers_look(self):
        self.install()
        pages = glob.glob(REPOSITORY + "/man/*.[1-8]")
        self.assertGreaterEqual(len(pages), 3)
        for page in pages:
            self.assertTrue(os.path.isfile(f"/usr/share/man/man{page[-1]}/{os.path.basename(page)}"), page)
        self.assertTrue(os.path.isfile("/usr/share/bash-completion/completions/zkaconfig"))
        self.assertTrue(glob.glob("/usr/share/zsh/*/_zkaconfig"))

    def test_removal_keeps_the_configuration_and_purge_takes_it(self):
        self.install()
        self.change_setting_as_nobody()
        files = [path for path in self.succeed("dpkg", "--listfiles", "zekara4mac").splitlines() if os.path.isfile(path)]
        self.assertIn(TOOL, files)
        self.succeed("dpkg", "--remove", "zekara4mac")
        self.assertEqual([path for path in files if os.path.exists(path)], [])
        self.assertTrue(os.path.exists(CONFIGURATION))
        self.succeed("dpkg", "--purge", "zekara4mac")
        self.assertFalse(os.path.exists("/Library"))
        self.assertFalse(os.path.exists("/var/zekara"))

    def test_upgrade_keeps_the_configuration(self):
        self.install()
        self.change_setting_as_nobody()
        with open(CONFIGURATION, "rb") as file:
            before = file.read()
        self.install()
        with open(CONFIGURATION, "rb") as file:
            self.assertEqual(file.read(), before)
        self.assertEqual(attributes(TOOL), (0, 0, "0o4755"))

    def test_package_made_by_an_unprivileged_user_carries_owner_and_mode_all_the_same(self):
        os.mkdir("/tmp/stage")
        manifest = BUILD + "/install_manifest.txt"  # cpack writes it beside the build, which its owner can
        with open(manifest, "a", encoding="utf-8"):
            pass
        for path in ("/tmp/stage", manifest):
            os.chown(path, 65534, 65534)
        try:
            self.succeed("cpack", "-G", "DEB", "-B", "/tmp/stage", cwd=BUILD, env={**os.environ, "HOME": "/tmp/stage"}, **NOBODY)
        finally:
            os.chown(manifest, os.getuid(), os.getgid())
        self.succeed("dpkg", "--install", *glob.glob("/tmp/stage/*.deb"))
        self.assertEqual(attributes(TOOL), (0, 0, "0o4755"))
        self.change_setting_as_nobody()

    def test_installing_where_set_user_id_is_ignored_fails_and_says_so(self):
        os.mkdir("/Library")
        sandbox.mount("tmpfs", "/Library", "tmpfs", MS_NOSUID, "mode=0755")
        self.fail_with("nosuid", "dpkg", "--install", PACKAGE)
        self.assertIn("install ok half-configured", self.succeed("dpkg-query", "-W", "-f", "${Status}", "zekara4mac"))


class CMakesInstallation(InstallationTest):
    def test_installed_tool_works_for_an_unprivileged_user(self):
        self.install_build()
        self.assertEqual(attributes(TOOL), (0, 0, "0o4755"))
        self.change_setting_as_nobody()

    def test_installing_again_keeps_the_configuration_and_mends_the_mode(self):
        self.install_build()
        self.change_setting_as_nobody()
        os.chmod(TOOL, 0o755)
        self.install_build()
        self.assertEqual(attributes(TOOL), (0, 0, "0o4755"))
        self.assertTrue(os.path.exists(CONFIGURATION))
        self.assertEqual(sorted(os.listdir(DIRECTORY)), ["Zekara4MacTool", "zekara32.ini"])

    def test_caller_who_is_not_root_is_refused_and_nothing_is_installed(self):
        command, options = self.install_tool()
        self.fail_with("only root can install it", *command, **options, **NOBODY)
        self.assertFalse(os.path.exists("/Library"))

    def test_refusal_of_the_tool_is_a_failure_of_the_whole_installation(self):
        os.mkdir("/Library", 0o755)
        os.chmod("/Library", 0o777)
        self.fail_with("can be written by others than root", "cmake", "--install", BUILD, "--prefix", PREFIX)
        self.assertFalse(os.path.exists(PREFIX))

    def test_unsafe_directory_is_refused(self):
        for owner, mode, reason in ((65534, 0o755, "no directory of root's"), (0, 0o775, "written by others"),
                                    (0, 0o757, "written by others"), (65534, 0o1777, "written by others")):
            with self.subTest(owner=owner, mode=oct(mode)):
                self.clear()
                os.makedirs(DIRECTORY)
                os.chown(DIRECTORY, owner, 0)
                os.chmod(DIRECTORY, mode)
                command, options = self.install_tool()
                self.fail_with(reason, *command, **options)
                self.assertEqual(os.listdir(DIRECTORY), [])

    def test_file_system_that_ignores_set_user_id_is_refused_and_keeps_no_tool(self):
        os.mkdir("/Library")
        sandbox.mount("tmpfs", "/Library", "tmpfs", MS_NOSUID, "mode=0755")
        command, options = self.install_tool()
        self.fail_with("nosuid", *command, **options)
        self.assertEqual(os.listdir(DIRECTORY), [])

    def test_staged_installation_of_an_unprivileged_user_has_no_set_user_id_bit_and_says_so(self):
        os.mkdir("/tmp/stage")
        os.chown("/tmp/stage", 65534, 65534)
        command, _ = self.install_tool()
        said = self.succeed(*command, env={**os.environ, "DESTDIR": "/tmp/stage"}, **NOBODY)
        self.assertIn("must give it owner 0, group 0 and mode 04755", said)
        self.assertEqual(attributes("/tmp/stage" + TOOL), (65534, 65534, "0o755"))
        self.assertFalse(os.path.exists("/Library"))

    def test_staged_installation_of_root_is_complete_and_touches_nothing_else(self):
        self.install_build(env={**os.environ, "DESTDIR": "/tmp/stage"})
        self.assertEqual(attributes("/tmp/stage" + TOOL), (0, 0, "0o4755"))
        self.assertTrue(os.path.isfile(f"/tmp/stage{PREFIX}/include/Zekara4Mac/Zekara4MacLibrary/ZKAIniData.h"))
        self.assertFalse(os.path.exists("/Library"))
        self.assertFalse(os.path.exists(PREFIX))

    def uninstall(self, *arguments):
        return self.succeed(REPOSITORY + "/packaging/uninstall", *arguments, BUILD + "/install_manifest.txt")

    def test_uninstalling_removes_every_file_but_the_configuration(self):
        self.install_build()
        self.change_setting_as_nobody()
        self.assertIn(CONFIGURATION, self.uninstall())
        left = [os.path.join(where, name) for top in (PREFIX, "/Library", "/var/zekara")
                for where, _, names in os.walk(top) for name in names]
        self.assertEqual(left, [CONFIGURATION])
        self.assertFalse(os.path.exists(PREFIX + "/include/Zekara4Mac"))

    def test_purging_removes_the_configuration_too(self):
        self.install_build()
        self.change_setting_as_nobody()
        self.uninstall("--purge")
        self.assertFalse(os.path.exists(DIRECTORY))
        self.assertFalse(os.path.exists("/var/zekara"))

    def test_caller_who_is_not_root_cannot_uninstall(self):
        self.install_build()
        self.fail_with("only root", REPOSITORY + "/packaging/uninstall", BUILD + "/install_manifest.txt", **NOBODY)
        self.assertTrue(os.path.exists(TOOL))


class TheArchiveForMacOS(InstallationTest):
    """Its scripts are of POSIX shell and do the same here; what they put in place is this machine's build."""

    def setUp(self):
        super().setUp()
        stage = "/tmp/stage/root"
        self.succeed("cmake", "--install", BUILD, "--prefix", "/usr/local", env={**os.environ, "DESTDIR": stage})
        self.succeed(REPOSITORY + "/packaging/macos/pack", stage, "/tmp/stage/package.tar.gz")
        shutil.rmtree(stage)
        os.chown("/tmp/stage", 65534, 65534)
        self.succeed("tar", "-C", "/tmp/stage", "-xzf", "/tmp/stage/package.tar.gz", **NOBODY)

    def files(self):
        with open("/tmp/stage/package/files", encoding="utf-8") as file:
            return file.read().splitlines()

    def test_nothing_unpacked_is_set_user_id(self):
        found = [os.path.join(where, name) for where, _, names in os.walk("/tmp/stage/package") for name in names]
        self.assertGreater(len(found), 20)
        self.assertEqual([path for path in found if os.stat(path).st_mode & 0o6000], [])

    def test_installed_tool_works_for_an_unprivileged_user(self):
        self.succeed("/tmp/stage/package/install")
        self.assertEqual(attributes(TOOL), (0, 0, "0o4755"))
        self.change_setting_as_nobody()
        for path in self.files():
            self.assertEqual(attributes(path)[:2], (0, 0), path)
        self.assertEqual(self.succeed("/usr/local/bin/zkaconfig", "get", "MacOSWardex", "IsActive", **NOBODY).strip(), "No")

    def test_caller_who_is_not_root_is_refused(self):
        self.fail_with("only root", "/tmp/stage/package/install", **NOBODY)
        self.assertFalse(os.path.exists("/Library"))

    def test_uninstalling_removes_every_file_but_the_configuration(self):
        self.succeed("/tmp/stage/package/install")
        self.change_setting_as_nobody()
        files = self.files()
        self.assertIn(TOOL, files)
        self.succeed("/tmp/stage/package/uninstall", "/usr/local/share/Zekara4Mac/files")
        self.assertEqual([path for path in files if os.path.exists(path)], [])
        self.assertEqual(os.listdir(DIRECTORY), ["zekara32.ini"])
        self.assertFalse(os.path.exists("/usr/local/include/Zekara4Mac"))


class TheInstalledLibrary(InstallationTest):
    CONSUMER = "/tests/consumer"

    def setUp(self):
        super().setUp()
        self.install_build()

    def test_consumer_includes_every_public_header(self):
        include = PREFIX + "/include/Zekara4Mac/"
        installed = {path.removeprefix(include) for path in glob.glob(include + "*/*.h")}
        self.assertGreater(len(installed), 15)
        included = set()
        for path in glob.glob(REPOSITORY + self.CONSUMER + "/*.cpp"):
            with open(path, encoding="utf-8") as source:
                included.update(re.findall(r'#include "(.*)"', source.read()))
        self.assertEqual(included, installed)

    def test_outside_project_builds_with_cmake(self):
        self.succeed("cmake", "-S", REPOSITORY + self.CONSUMER, "-B", "/tmp/consumer", "-G", "Ninja",
                     f"-DCMAKE_PREFIX_PATH={PREFIX}")
        self.succeed("cmake", "--build", "/tmp/consumer", "-j2")
        for program in ("consumer", "foundation_consumer"):
            self.succeed("/tmp/consumer/" + program, **NOBODY)

    def test_outside_project_builds_with_pkg_config(self):
        found = glob.glob(PREFIX + "/lib*/**/Zekara4Mac.pc", recursive=True)
        self.assertEqual(len(found), 1)
        environment = {**os.environ, "PKG_CONFIG_PATH": os.path.dirname(found[0])}
        self.assertEqual(self.succeed("pkg-config", "--modversion", "Zekara4Mac", env=environment).strip(), "1.0.0")
        self.assertEqual(self.succeed("pkg-config", "--variable=tool", "Zekara4Mac", env=environment).strip(), TOOL)
        flags = self.succeed("pkg-config", "--cflags", "--libs", "Zekara4Mac", env=environment).split()
        os.mkdir("/tmp/consumer")
        for program in ("consumer", "foundation_consumer"):
            self.succeed("c++", f"{REPOSITORY}{self.CONSUMER}/{program}.cpp", *flags, "-o", f"/tmp/consumer/{program}")
            self.succeed("/tmp/consumer/" + program, **NOBODY)

    def test_project_that_asks_for_the_next_major_version_is_refused(self):
        os.mkdir("/tmp/consumer")
        with open("/tmp/consumer/CMakeLists.txt", "w", encoding="utf-8") as file:
            file.write("cmake_minimum_required(VERSION 3.25)\nproject(p LANGUAGES CXX)\nfind_package(Zekara4Mac 2.0 REQUIRED)\n")
        self.fail_with("compatible with requested\\s+version", "cmake", "-S", "/tmp/consumer", "-B", "/tmp/consumer/build",
                       f"-DCMAKE_PREFIX_PATH={PREFIX}")
