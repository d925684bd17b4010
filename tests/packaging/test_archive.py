"""The archive for macOS: its scripts are POSIX shell and do the same here; what they install is this machine's build."""

import errno
import os
import shutil

from installation import (BUILD, CONFIGURATION, DIRECTORY, LIST, ORDINARY_ID, REPOSITORY, TOOL, InstallationTest, OpenTool,
                          files_below)
from private_root import ORDINARY

PACKAGE = "/tmp/package"


class TheArchive(InstallationTest):
    def setUp(self):
        super().setUp()
        stage = self.scratch + "/stage"
        self.succeed("cmake", "--install", BUILD, "--prefix", "/usr/local", env={**os.environ, "DESTDIR": stage})
        self.succeed(REPOSITORY + "/packaging/macos/pack", stage, self.scratch + "/package.tar.gz")
        shutil.copy(self.scratch + "/package.tar.gz", self.at("/tmp"))
        self.unpack()

    def unpack(self, umask=0o022):
        shutil.rmtree(self.at(PACKAGE), ignore_errors=True)
        self.succeed_inside("tar", "-C", "/tmp", "-xzf", "/tmp/package.tar.gz", user=ORDINARY, umask=umask)

    def install(self, *arguments, **options):
        return self.succeed_inside(PACKAGE + "/install", *arguments, **options)

    def files(self):
        return self.read(PACKAGE + "/files").splitlines()

    def test_nothing_unpacked_is_set_user_id(self):
        found = files_below(self.at(PACKAGE))
        self.assertGreater(len(found), 20)
        self.assertEqual([path for path in found if os.stat(path).st_mode & 0o6000], [])

    def test_installed_tool_works_for_an_unprivileged_user(self):
        self.install()
        self.assertEqual(self.attributes(TOOL), (0, 0, "0o4755"))
        self.change_setting_as_ordinary_user()
        said = self.succeed_inside("/usr/local/bin/zkaconfig", "get", "MacOSWardex", "IsActive", user=ORDINARY)
        self.assertEqual(said.strip(), "No")

    def test_modes_depend_neither_on_the_umask_of_the_unpacking_nor_of_the_installation(self):
        for umask in (0o000, 0o022, 0o077):
            with self.subTest(umask=oct(umask)):
                shutil.rmtree(self.at("/usr/local"))
                os.mkdir(self.at("/usr/local"))
                self.unpack(umask)
                self.install(umask=umask)
                for path in self.files():
                    mode = "0o4755" if path == TOOL else "0o755" if "/bin/" in path else "0o644"
                    self.assertEqual(self.attributes(path), (0, 0, mode), path)
                for where, _, _ in os.walk(self.at("/usr/local")):
                    if where != self.at("/usr/local"):
                        self.assertEqual(self.attributes(where.removeprefix(self.root.path)), (0, 0, "0o755"), where)

    def test_caller_who_is_not_root_is_refused(self):
        self.fail_inside("only root", PACKAGE + "/install", user=ORDINARY)
        self.assertFalse(self.exists("/Library"))

    def test_link_planted_at_a_temporary_name_is_not_written_through(self):
        self.write("/etc/victim", "precious")
        self.make_directory("/usr/local/bin")
        os.symlink("/etc/victim", self.at("/usr/local/bin/zkaconfig.new"))
        self.install()
        self.assertEqual((self.read("/etc/victim"), self.attributes("/etc/victim")), ("precious", (0, 0, "0o644")))
        self.assertEqual(os.listdir(self.at("/usr/local/bin")), ["zkaconfig"])

    def test_directory_of_another_account_is_refused_before_anything_is_installed(self):
        self.make_directory("/usr/local/bin", ORDINARY_ID)
        self.fail_inside("/usr/local/bin is not a directory that root owns(.|\n)*--tool-only", PACKAGE + "/install")
        self.assertFalse(self.exists("/Library"))
        self.install("--tool-only")
        self.change_setting_as_ordinary_user()
        self.assertEqual(os.listdir(self.at("/usr/local")), ["bin"])
        self.assertEqual(self.read(LIST), TOOL + "\n")

    def test_removal_takes_every_file_but_the_configuration_and_a_later_purge_takes_that(self):
        self.install()
        self.change_setting_as_ordinary_user()
        files = self.files()
        self.assertIn(TOOL, files)
        self.assertEqual(self.read(LIST).splitlines(), files)
        held = OpenTool(self.root.path, TOOL)
        self.succeed_inside(PACKAGE + "/uninstall")
        self.assertEqual(held.start(), errno.EACCES)
        self.assertEqual([path for path in files if self.exists(path)], [])
        self.assertEqual(os.listdir(self.at(DIRECTORY)), [os.path.basename(CONFIGURATION)])
        self.assertFalse(self.exists("/usr/local/include/Zekara4Mac"))
        self.succeed_inside(PACKAGE + "/uninstall", "--purge")
        self.assertFalse(self.exists(DIRECTORY))
