"""packaging/install-tool: where it installs the tool, where it refuses to, and what it leaves."""

import errno
import os
import signal
import stat
import subprocess
import time

from installation import CONFIGURATION, DIRECTORY, ORDINARY_ID, TOOL, InstallationTest, OpenTool
from private_root import ORDINARY
from support import sandbox, tool, tracing

MS_NOSUID = 2


class HeldInstance:
    """The tool, started by an ordinary account under the name of its own open file, which a tracer of root's holds before its
    self-check until finish() is called."""

    def __init__(self, root, program):
        # The first such call follows when the signals are ignored, and nothing has been examined yet.
        command = root.command("bash", "-c", f'exec -a /proc/self/fd/0 "{TOOL}" pipe', user=ORDINARY)
        self._tracer = subprocess.Popen(
            [*tracing.hold("setitimer"), *command],
            stdin=program, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, start_new_session=True)
        deadline = time.monotonic() + tool.PATIENCE
        while not self._is_held():
            if time.monotonic() > deadline:
                self.end()
                raise AssertionError("the tool has not been held before its self-check")
            time.sleep(0.001)

    def finish(self):
        """Lets the tool go on to its end; returns what it has logged."""
        self._tracer.kill()
        return self._tracer.communicate(timeout=tool.PATIENCE)[1]

    def end(self):
        self._tracer.kill()
        self._tracer.communicate()

    def _is_held(self):
        process = tracing.traced_process(self._tracer)
        try:
            if process is None or not os.readlink(f"/proc/{process}/exe").endswith(TOOL):
                return False
            with open(f"/proc/{process}/status", encoding="ascii") as status:
                (ignored,) = (int(line.split()[1], 16) for line in status if line.startswith("SigIgn:"))
        except (FileNotFoundError, ProcessLookupError):  # a passing child of strace's own
            return False
        return all(ignored >> (number - 1) & 1 for number in (signal.SIGXFSZ, signal.SIGTTOU))


class ThePlace(InstallationTest):
    def test_tool_and_directories_are_roots_whatever_the_umask(self):
        for umask in (0o000, 0o022, 0o077):
            with self.subTest(umask=oct(umask)):
                self.root.clear()
                self.succeed_inside(*self.install_tool(), umask=umask)
                self.assertEqual(self.attributes(TOOL), (0, 0, "0o4755"))
                for directory in ("/Library", "/Library/Application Support", DIRECTORY, "/var/zekara", "/var/zekara/run",
                                  "/var/zekara/log"):
                    self.assertEqual(self.attributes(directory), (0, 0, "0o755"), directory)
                self.change_setting_as_ordinary_user()

    def test_configuration_is_made_empty_and_readable_whatever_the_umask(self):
        for umask in (0o000, 0o022, 0o777):
            with self.subTest(umask=oct(umask)):
                self.root.clear()
                self.succeed_inside(*self.install_tool(), umask=umask)
                self.assertEqual(self.attributes(CONFIGURATION), (0, 0, "0o444"))
                self.assertEqual(self.read(CONFIGURATION), "")

    def test_existing_configuration_is_not_touched(self):
        self.make_directory(DIRECTORY)
        self.write(CONFIGURATION, "[UpdateD]\nInterval = 1\n", owner=ORDINARY_ID, mode=0o600)
        self.succeed_inside(*self.install_tool())
        self.assertEqual(self.attributes(CONFIGURATION), (ORDINARY_ID, ORDINARY_ID, "0o600"))
        self.assertEqual(self.read(CONFIGURATION), "[UpdateD]\nInterval = 1\n")

    def test_link_at_the_configurations_name_is_not_followed(self):
        self.make_directory(DIRECTORY)
        os.symlink("/etc/elsewhere", self.at(CONFIGURATION))
        self.succeed_inside(*self.install_tool())
        self.assertFalse(self.exists("/etc/elsewhere"))
        self.assertTrue(os.path.islink(self.at(CONFIGURATION)))

    def test_caller_who_is_not_root_is_refused_and_nothing_is_installed(self):
        self.fail_inside("only root can install it", *self.install_tool(), user=ORDINARY)
        self.assertFalse(self.exists("/Library"))

    def check_refused(self, reason, *kept):
        """The installer refuses, and has made nothing but what was there."""
        before = self.everything()
        self.fail_inside(reason, *self.install_tool())
        self.assertEqual(self.everything(), before)

    def everything(self):
        return sorted(path for top in ("/Library", "/var/zekara", "/srv", "/tmp")
                      for where, directories, files in os.walk(self.at(top))
                      for path in (where, *(os.path.join(where, name) for name in directories + files)))

    def test_unsafe_directory_is_refused(self):
        for owner, mode, reason in ((ORDINARY_ID, 0o755, "not a directory that root owns"), (0, 0o775, "written by others"),
                                    (0, 0o757, "written by others"), (0, 0o1777, "written by others"),
                                    (ORDINARY_ID, 0o1777, "not a directory that root owns")):
            with self.subTest(owner=owner, mode=oct(mode)):
                self.root.clear()
                self.make_directory(DIRECTORY, owner, mode)
                self.check_refused(reason)

    def test_unsafe_directory_of_the_pid_files_is_refused_before_the_tool_is_there(self):
        for directory in ("/var/zekara", "/var/zekara/run", "/var/zekara/log"):
            with self.subTest(directory=directory):
                self.root.clear()
                self.make_directory(directory, mode=0o777)
                self.check_refused("written by others")

    def test_unsafe_ancestor_is_refused(self):
        self.make_directory("/Library", mode=0o777)
        self.check_refused("/Library can be written by others")

    def test_sticky_directory_is_accepted_as_a_parent(self):
        self.make_directory("/Library", mode=0o1777)
        self.succeed_inside(*self.install_tool())
        self.assertEqual(self.attributes(TOOL), (0, 0, "0o4755"))

    def test_link_into_a_directory_of_another_account_is_refused(self):
        self.make_directory("/srv/theirs", ORDINARY_ID)
        self.make_directory("/srv/theirs/Library")
        os.symlink("/srv/theirs/Library", self.at("/Library"))
        self.check_refused("/srv/theirs is not a directory that root owns")

    def test_every_link_of_a_chain_is_followed_through_its_own_directory(self):
        self.make_directory("/srv/roots")
        self.make_directory("/srv/open", mode=0o777)
        os.symlink("../srv/open/hop", self.at("/Library"))
        os.symlink("/srv/roots", self.at("/srv/open/hop"))
        self.check_refused("/srv/open can be written by others")

    def test_link_of_another_account_in_a_sticky_directory_is_refused(self):
        self.make_directory("/srv/roots")
        self.make_directory("/Library", mode=0o1777)
        os.symlink("/srv/roots", self.at("/Library/Application Support"))
        os.lchown(self.at("/Library/Application Support"), ORDINARY_ID, ORDINARY_ID)
        self.check_refused("a link that root does not own")

    def test_links_of_roots_between_safe_directories_are_accepted(self):
        self.make_directory("/srv/real/zekara")
        os.symlink("../srv/./real/../real/zekara", self.at("/var/zekara"))
        self.succeed_inside(*self.install_tool())
        self.assertTrue(self.exists("/srv/real/zekara/run"))

    def test_links_in_a_circle_are_refused(self):
        os.symlink("/srv", self.at("/Library"))
        os.symlink("/Library", self.at("/srv"))
        self.fail_inside("more than 32 symbolic links", *self.install_tool())

    def test_directory_at_the_tools_name_is_refused(self):
        for make in (lambda path: os.mkdir(path), lambda path: os.symlink("/tmp", path)):
            with self.subTest():
                self.root.clear()
                self.make_directory(DIRECTORY)
                make(self.at(TOOL))
                self.check_refused("is a directory")

    def test_file_system_that_ignores_set_user_id_is_refused(self):
        self.show_processes()
        os.mkdir(self.at("/Library"))
        sandbox.mount("tmpfs", self.at("/Library"), "tmpfs", MS_NOSUID, "mode=0755")
        self.check_refused("nosuid")


class TheAccessControlList(InstallationTest):
    """Stand-ins play macOS, whose ls prints the list with -e and whose chmod removes it with -N."""

    LS = """case "$1" in
  -lde)
    real_ls -ld "$2"
    if [ "$2" = "%s" ]; then echo " 0: %s"; fi ;;
  *) exec real_ls "$@" ;;
esac
"""
    CHMOD = """if [ "$1" = -N ]; then
  real_ls -ldn "$2" >>/tmp/cleared
else
  exec real_chmod "$@"
fi
"""

    def play_macos(self, directory, entry):
        self.replace_program("uname", "echo Darwin\n")
        self.replace_program("ls", self.LS % (directory, entry))
        self.replace_program("chmod", self.CHMOD)

    def test_entry_that_lets_others_change_a_directory_is_refused(self):
        self.make_directory(DIRECTORY)
        for directory in ("/", "/Library", DIRECTORY):
            for entry in ("user:bob allow add_file,search", "group:staff inherited allow list,delete_child",
                          "user:bob allow list,writesecurity,file_inherit", "everyone allow write"):
                with self.subTest(directory=directory, entry=entry):
                    self.play_macos(directory, entry)
                    try:
                        self.fail_inside("access control list", *self.install_tool())
                    finally:
                        self.doCleanups()
                        self.setUp()
                        self.make_directory(DIRECTORY)
                    self.assertFalse(self.exists(TOOL))

    def test_entry_that_forbids_or_lets_read_is_accepted_and_new_files_lose_theirs_before_they_become_roots(self):
        self.make_directory(DIRECTORY)
        self.play_macos(DIRECTORY, "group:everyone deny delete")
        self.succeed_inside(*self.install_tool())
        cleared = self.read("/tmp/cleared")
        self.assertRegex(cleared, r"-rw------- .*Zekara4MacTool\.new\n")
        self.assertRegex(cleared, r"-rw------- .*zekara32\.ini\n")
        self.assertRegex(cleared, r"drwxr-xr-x .*/var/zekara/run\n")
        self.doCleanups()
        self.setUp()
        self.make_directory(DIRECTORY)
        self.play_macos(DIRECTORY, "group:staff allow list,search,readattr")
        self.succeed_inside(*self.install_tool())


class TheStage(InstallationTest):
    def test_staged_tool_of_an_unprivileged_user_has_no_set_user_id_bit_and_says_so(self):
        said = self.succeed_inside(*self.install_tool(), user=ORDINARY, environment={"DESTDIR": "/tmp/stage"})
        self.assertIn("must give it owner 0, group 0 and mode 04755", said)
        self.assertEqual(self.attributes("/tmp/stage" + TOOL), (ORDINARY_ID, ORDINARY_ID, "0o755"))
        self.assertFalse(self.exists("/Library"))

    def test_staged_tree_of_root_has_the_tool_but_no_configuration(self):
        self.succeed_inside(*self.install_tool(), environment={"DESTDIR": "/tmp/stage"})
        self.assertEqual(self.attributes("/tmp/stage" + TOOL), (0, 0, "0o4755"))
        self.assertEqual(os.listdir(self.at("/tmp/stage" + DIRECTORY)), ["Zekara4MacTool"])
        self.assertFalse(self.exists("/Library"))

    def test_link_that_others_planted_at_the_temporary_name_is_not_written_through(self):
        self.make_directory("/tmp/stage" + DIRECTORY, mode=0o777)
        self.write("/etc/victim", "precious")
        for name in (".new", ".old"):
            os.symlink("/etc/victim", self.at("/tmp/stage" + TOOL + name))
        self.succeed_inside(*self.install_tool(), environment={"DESTDIR": "/tmp/stage"})
        self.assertEqual((self.read("/etc/victim"), self.attributes("/etc/victim")), ("precious", (0, 0, "0o644")))
        self.assertEqual(os.listdir(self.at("/tmp/stage" + DIRECTORY)), ["Zekara4MacTool"])


class TheUpgrade(InstallationTest):
    def setUp(self):
        super().setUp()
        self.succeed_inside(*self.install_tool())

    def test_installing_again_keeps_the_configuration_and_repairs_the_mode(self):
        self.change_setting_as_ordinary_user()
        os.chmod(self.at(TOOL), 0o755)
        self.succeed_inside(*self.install_tool())
        self.assertEqual(self.attributes(TOOL), (0, 0, "0o4755"))
        self.assertIn("IsActive", self.read(CONFIGURATION))
        self.assertEqual(sorted(os.listdir(self.at(DIRECTORY))), ["Zekara4MacTool", "zekara32.ini"])

    def test_account_that_has_the_tool_open_can_start_it_while_it_is_installed(self):
        self.assertEqual(OpenTool(self.root.path, TOOL).start(), 1)

    def assert_an_upgrade_withdraws_the_old_tool(self):
        """Asserts that an account that has the tool open before the upgrade cannot start it afterwards."""
        held = OpenTool(self.root.path, TOOL)
        self.succeed_inside(*self.install_tool())
        self.assertEqual(held.start(), errno.EACCES)

    def test_account_that_has_the_old_tool_open_cannot_start_it_after_an_upgrade(self):
        self.assert_an_upgrade_withdraws_the_old_tool()
        self.change_setting_as_ordinary_user()

    @tracing.requires_strace
    def test_instance_that_an_upgrade_overtakes_before_its_self_check_does_not_arm_the_old_tool_again(self):
        self.show_processes()
        with open(self.at(TOOL), "rb") as old:
            instance = HeldInstance(self.root, old)
            self.addCleanup(instance.end)
            self.succeed_inside(*self.install_tool())
            log = instance.finish()
            after = os.fstat(old.fileno())
        self.assertIn("Can't change owner on /proc/self/fd/0", log)
        self.assertEqual((after.st_nlink, oct(stat.S_IMODE(after.st_mode))), (0, "0o600"))
        self.change_setting_as_ordinary_user()

    def test_old_tool_that_repairs_itself_before_its_name_goes_cannot_be_started_either(self):
        self.show_processes()
        self.replace_program("rm", 'case "$2" in *.old) chmod 04755 "$2" 2>/dev/null ;; esac; exec real_rm "$@"\n')
        self.assert_an_upgrade_withdraws_the_old_tool()

    def test_file_system_that_cannot_change_a_file_without_a_name_does_not_stop_the_upgrade(self):
        self.show_processes()
        self.replace_program("chmod", 'case "$2" in /dev/fd/*) exit 1 ;; esac; exec real_chmod "$@"\n')
        self.assert_an_upgrade_withdraws_the_old_tool()
        self.assertEqual(sorted(os.listdir(self.at(DIRECTORY))), ["Zekara4MacTool", "zekara32.ini"])

    def test_other_names_of_the_old_tool_are_withdrawn_too(self):
        os.link(self.at(TOOL), self.at("/tmp/kept"))
        self.succeed_inside(*self.install_tool())
        self.assertEqual(self.attributes("/tmp/kept"), (0, 0, "0o600"))

    def test_what_a_link_at_the_tools_name_leads_to_is_left_alone(self):
        os.rename(self.at(TOOL), self.at("/srv-tool"))
        os.symlink("/srv-tool", self.at(TOOL))
        self.succeed_inside(*self.install_tool())
        self.assertFalse(os.path.islink(self.at(TOOL)))
        self.assertEqual(self.attributes("/srv-tool"), (0, 0, "0o4755"))

    def test_failure_before_the_replacement_keeps_the_old_tool_working(self):
        self.replace_program("mv", "exit 1\n")
        self.assertNotEqual(self.root.run(*self.install_tool()).returncode, 0)
        self.assertEqual(self.attributes(TOOL), (0, 0, "0o4755"))
        self.assertEqual(sorted(os.listdir(self.at(DIRECTORY))), ["Zekara4MacTool", "zekara32.ini"])

    def test_installer_killed_before_the_replacement_leaves_what_the_next_one_withdraws(self):
        self.replace_program("mv", "kill -9 $PPID\n")
        self.assertNotEqual(self.root.run(*self.install_tool()).returncode, 0)
        self.doCleanups()
        self.assertEqual(self.attributes(TOOL), (0, 0, "0o4755"))
        held = OpenTool(self.root.path, TOOL + ".new")
        self.succeed_inside(*self.install_tool())
        self.assertEqual(held.start(), errno.EACCES)
        self.assertEqual(sorted(os.listdir(self.at(DIRECTORY))), ["Zekara4MacTool", "zekara32.ini"])

    def test_name_always_has_a_working_tool(self):
        self.replace_program("chmod", f'real_chmod "$@" || exit 1; real_ls -ldn "{TOOL}" >>/tmp/seen\n')
        self.replace_program("rm", f'real_ls -ldn "{TOOL}" >>/tmp/seen; exec real_rm "$@"\n')
        os.link(self.at("/usr/bin/ls"), self.at("/usr/bin/real_ls"))
        self.addCleanup(os.unlink, self.at("/usr/bin/real_ls"))
        self.succeed_inside(*self.install_tool())
        seen = self.read("/tmp/seen").splitlines()
        self.assertGreaterEqual(len(seen), 4)
        self.assertEqual({line.split()[0] for line in seen}, {"-rwsr-xr-x"})
