"""`cmake --install`, and the removal of what it has installed."""

import errno
import os

from installation import (BUILD, CONFIGURATION, DIRECTORY, LIST, ORDINARY_ID, PREFIX, REPOSITORY, TOOL, InstallationTest, OpenTool,
                          files_below)
from private_root import ORDINARY
from support import sandbox

UNINSTALL = REPOSITORY + "/packaging/uninstall"


class CMakeTest(InstallationTest):
    def install_build(self, *arguments, prefix=PREFIX, **options):
        return self.succeed_inside("cmake", "--install", BUILD, "--prefix", prefix, *arguments, **options)

    def installed(self, *directories):
        return [path.removeprefix(self.root.path) for top in directories for path in files_below(self.at(top))]


class TheInstallation(CMakeTest):
    def test_installed_tool_works_for_an_unprivileged_user(self):
        self.install_build()
        self.assertEqual(self.attributes(TOOL), (0, 0, "0o4755"))
        self.change_setting_as_ordinary_user()

    def test_modes_do_not_depend_on_the_umask(self):
        self.install_build()
        expected = self.everything()
        self.assertGreater(len(expected), 60)
        self.assertEqual({mode for path, (_, _, mode) in expected.items() if os.path.isdir(self.at(path))}, {"0o755"})
        for umask in (0o000, 0o077):
            with self.subTest(umask=oct(umask)):
                self.root.clear()
                self.install_build(umask=umask)
                self.assertEqual(self.everything(), expected)

    def everything(self):
        return {path.removeprefix(self.root.path): self.attributes(path.removeprefix(self.root.path))
                for top in (PREFIX, "/Library", "/var/zekara")
                for where, directories, files in os.walk(self.at(top))
                for path in (where, *(os.path.join(where, name) for name in directories + files))}

    def test_refusal_of_the_tool_is_a_failure_of_the_whole_installation(self):
        self.make_directory("/Library", mode=0o777)
        self.fail_inside("can be written by others than root", "cmake", "--install", BUILD, "--prefix", PREFIX)
        self.assertFalse(self.exists(PREFIX))
        self.assertEqual(os.listdir(self.at("/Library")), [])

    def test_component_of_an_unprivileged_user_needs_no_rights_of_root(self):
        os.chown(self.at(BUILD), ORDINARY_ID, ORDINARY_ID)  # CMake notes there what it has installed
        self.addCleanup(os.chown, self.at(BUILD), 0, 0)
        for component, file in (("Library", "lib/pkgconfig/zekara4mac.pc"), ("FrontEnd", "bin/zkaconfig")):
            self.install_build("--component", component, prefix="/tmp/own", user=ORDINARY)
            self.assertTrue(self.exists("/tmp/own/" + file))
        self.assertFalse(self.exists("/Library"))

    def test_staged_installation_of_root_is_complete_and_touches_nothing_else(self):
        self.install_build(environment={"DESTDIR": "/tmp/stage"})
        self.assertEqual(self.attributes("/tmp/stage" + TOOL), (0, 0, "0o4755"))
        self.assertTrue(self.exists(f"/tmp/stage{PREFIX}/include/Zekara4Mac/Zekara4MacLibrary/ZKAIniData.h"))
        self.assertFalse(self.exists("/tmp/stage" + LIST))
        self.assertFalse(self.exists("/Library"))
        self.assertFalse(self.exists(PREFIX))

    def test_zsh_completion_goes_where_the_zsh_of_the_prefix_looks(self):
        for prefix, directory in ((PREFIX, "site-functions"), ("/usr", "vendor-completions"), ("/usr/local", "site-functions")):
            with self.subTest(prefix=prefix):
                self.install_build("--component", "FrontEnd", prefix=prefix)
                self.assertTrue(self.exists(f"{prefix}/share/zsh/{directory}/_zkaconfig"))
                self.assertEqual(os.listdir(self.at(prefix + "/share/zsh")), [directory])

    def test_manual_pages_and_completions_are_where_their_readers_look(self):
        self.install_build()
        for file in ("man/man8/Zekara4MacTool.8", "man/man1/zkaconfig.1", "man/man5/zekara32.ini.5",
                     "bash-completion/completions/zkaconfig", "fish/vendor_completions.d/zkaconfig.fish"):
            self.assertTrue(self.exists(f"{PREFIX}/share/{file}"), file)


class TheRemoval(CMakeTest):
    def setUp(self):
        super().setUp()
        self.install_build()

    def test_list_names_every_file_and_only_root_could_have_written_it(self):
        self.assertEqual(self.attributes(LIST), (0, 0, "0o644"))
        installed = self.installed(PREFIX, "/Library", "/var/zekara")
        self.assertGreater(len(installed), 40)
        self.assertEqual(self.read(LIST).splitlines(), sorted(set(installed) - {CONFIGURATION, LIST}))

    def test_second_installation_adds_to_the_list(self):
        before = set(self.read(LIST).splitlines())
        self.install_build("--component", "Library", prefix="/opt/second")
        after = set(self.read(LIST).splitlines())
        self.assertLess(before, after)
        self.assertIn("/opt/second/lib/pkgconfig/zekara4mac.pc", after)
        self.assertEqual(self.attributes(LIST), (0, 0, "0o644"))

    def test_removal_takes_every_file_but_the_configuration(self):
        self.change_setting_as_ordinary_user()
        self.assertIn(CONFIGURATION, self.succeed_inside(UNINSTALL))
        self.assertEqual(self.installed(PREFIX, "/Library", "/var/zekara"), [CONFIGURATION])
        for directory in ("/include/Zekara4Mac", "/lib/cmake/Zekara4Mac", "/share/doc/Zekara4Mac"):
            self.assertFalse(self.exists(PREFIX + directory), directory)

    def test_account_that_has_the_tool_open_cannot_start_it_after_the_removal(self):
        held = OpenTool(self.root.path, TOOL)
        self.succeed_inside(UNINSTALL)
        self.assertEqual(held.start(), errno.EACCES)

    def test_installation_in_a_containers_image_can_be_removed_in_the_container(self):
        self.show_processes()
        for directory in (DIRECTORY, PREFIX):
            self.cover_with_a_layer(directory)
        held = OpenTool(self.root.path, TOOL)
        self.succeed_inside(UNINSTALL)
        self.assertEqual(self.installed(PREFIX, "/Library"), [CONFIGURATION])
        self.assertEqual(held.start(), errno.EACCES)

    def cover_with_a_layer(self, directory):
        """Mounts an overlay on a directory, whose files become those of the lower layer, as an image's are in a container."""
        layers = self.at("/tmp/layers" + directory)
        os.makedirs(layers)
        sandbox.mount("tmpfs", layers, "tmpfs")
        for name in ("upper", "work"):
            os.mkdir(f"{layers}/{name}")
        options = f"lowerdir={self.at(directory)},upperdir={layers}/upper,workdir={layers}/work"
        try:
            sandbox.mount("overlay", self.at(directory), "overlay", 0, options)
        except OSError as error:
            self.skipTest(f"no overlay can be mounted here: {error.strerror}")

    def test_purge_takes_the_configuration_too(self):
        self.succeed_inside(UNINSTALL, "--purge")
        self.assertFalse(self.exists(DIRECTORY))
        self.assertFalse(self.exists("/var/zekara"))

    def test_purge_is_possible_after_a_removal(self):
        self.succeed_inside(UNINSTALL)
        self.assertTrue(self.exists(CONFIGURATION))
        self.succeed_inside(UNINSTALL, "--purge")
        self.assertFalse(self.exists(DIRECTORY))

    def test_second_removal_says_that_nothing_is_installed(self):
        self.succeed_inside(UNINSTALL)
        self.fail_inside("nothing has been installed, or it has been removed", UNINSTALL)

    def test_caller_who_is_not_root_cannot_remove(self):
        self.fail_inside("only root", UNINSTALL, user=ORDINARY)
        self.assertTrue(self.exists(TOOL))

    def test_list_that_others_could_have_written_is_not_believed(self):
        self.write("/etc/victim", "precious")
        for spoil in (lambda: os.chown(self.at(LIST), ORDINARY_ID, 0), lambda: os.chmod(self.at(LIST), 0o664),
                      self.put_link_at_list,
                      lambda: self.make_directory(DIRECTORY, mode=0o1777)):
            with self.subTest():
                self.write(LIST, "/etc/victim\n")
                spoil()
                self.fail_inside("not a file of root's|written by others", UNINSTALL)
                self.assertEqual(self.read("/etc/victim"), "precious")
                if os.path.islink(self.at(LIST)):
                    os.unlink(self.at(LIST))

    def put_link_at_list(self):
        self.write("/tmp/list", "/etc/victim\n", owner=ORDINARY_ID)
        os.unlink(self.at(LIST))
        os.symlink("/tmp/list", self.at(LIST))

    def test_nothing_is_removed_through_a_directory_that_others_can_change(self):
        self.write("/etc/victim", "precious")
        self.make_directory(PREFIX + "/bin", ORDINARY_ID)
        os.unlink(self.at(PREFIX + "/bin/zkaconfig"))
        os.rmdir(self.at(PREFIX + "/bin"))
        self.make_directory("/srv/theirs", ORDINARY_ID)
        os.symlink("/srv/theirs", self.at(PREFIX + "/bin"))
        self.write("/srv/theirs/zkaconfig", "theirs")
        self.fail_inside("kept " + PREFIX + "/bin/zkaconfig", UNINSTALL)
        self.assertEqual(self.read("/srv/theirs/zkaconfig"), "theirs")
        self.assertFalse(self.exists(TOOL))
        self.assertTrue(self.exists(LIST))
