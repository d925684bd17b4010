"""A caller without rights chooses argv[0]: no file but the tool itself ever changes its owner or mode for him."""

import ctypes
import os
import shutil
import stat

import hostile
from support import sandbox, tool
from support.case import ToolTestCase

HIS = sandbox.SCRATCH_DIRECTORY + "/his"
COPY = sandbox.SCRATCH_DIRECTORY + "/Zekara4MacTool"
REPAIRED = ["Self-reparing complete", "Running on pipe"]


def start_as_user(name, *arguments, program=tool.TOOL, **options):
    return tool.run(*arguments, name=name, program=program, **hostile.as_user(), **options)


class ForeignPaths(ToolTestCase):
    def setUp(self):
        super().setUp()
        hostile.own_directory(HIS)

    def assert_refused(self, name, **options):
        for arguments in (("pipe",), (), ("x",)):
            result = start_as_user(name, *arguments, **options)
            self.assertEqual((result.status, result.output), (2, b""))
            self.assertEqual(result.log, hostile.refused(name))
        self.assert_config(None)

    def assert_unchanged(self, path, before):
        after = os.lstat(path)
        self.assertEqual(
            (after.st_uid, after.st_gid, after.st_mode, after.st_ctime_ns),
            (before.st_uid, before.st_gid, before.st_mode, before.st_ctime_ns),
        )

    def test_his_own_program_is_not_made_roots(self):
        for mode in (0o755, 0o4755, 0o6755, 0o4777, 0o700, 0o000):
            with self.subTest(mode=oct(mode)):
                path = hostile.own_file(HIS + "/program", mode=mode)
                before = os.lstat(path)
                self.assert_refused(path)
                self.assert_unchanged(path, before)

    def test_his_own_copy_of_the_tool_is_not_made_roots(self):
        path = HIS + "/copy"
        shutil.copyfile(tool.TOOL, path)
        os.chown(path, hostile.USER, hostile.GROUP)
        os.chmod(path, 0o755)
        before = os.lstat(path)
        self.assert_refused(path)
        self.assert_refused(path, program=path)
        self.assert_unchanged(path, before)

    def test_a_symbolic_link_to_his_own_program_changes_neither(self):
        program = hostile.own_file(HIS + "/program")
        link = HIS + "/link"
        os.symlink(str(program), link)
        before, link_before = os.lstat(program), os.lstat(link)
        self.assert_refused(link)
        self.assert_unchanged(program, before)
        self.assert_unchanged(link, link_before)

    def test_a_hard_link_to_a_file_of_roots_is_not_changed(self):
        private = sandbox.SCRATCH_DIRECTORY + "/private"
        with open(private, "wb") as file:
            file.write(b"secret\n")
        os.chmod(private, 0o600)
        os.link(private, HIS + "/link")
        before = os.lstat(private)
        self.assert_refused(HIS + "/link")
        self.assert_unchanged(private, before)

    def test_roots_private_file_is_not_opened_up(self):
        private = sandbox.SCRATCH_DIRECTORY + "/private"
        with open(private, "wb") as file:
            file.write(b"secret\n")
        for mode in (0o600, 0o400, 0o4700, 0o000):
            os.chmod(private, mode)
            before = os.lstat(private)
            self.assert_refused(private)
            self.assert_unchanged(private, before)

    def test_a_fifo_is_neither_opened_nor_changed(self):
        fifo = HIS + "/fifo"
        os.mkfifo(fifo)
        os.chown(fifo, hostile.USER, hostile.GROUP)
        before = os.lstat(fifo)
        self.assert_refused(fifo)
        self.assert_unchanged(fifo, before)

    def test_devices_directories_and_kernel_files_are_not_changed(self):
        # Devices of the test's own: if the tool fails it, the machine's are not to pay for that.
        null, terminal = (sandbox.SCRATCH_DIRECTORY + "/" + name for name in ("null", "terminal"))
        os.mknod(null, 0o020666, os.makedev(1, 3))
        os.mknod(terminal, 0o020666, os.makedev(5, 0))
        for path in (null, terminal, HIS, sandbox.SCRATCH_DIRECTORY, "/proc/self/mem", "/proc/self/fd/0", "/proc"):
            with self.subTest(path=path):
                before = os.lstat(path)
                self.assert_refused(path)
                if not str(path).startswith("/proc"):
                    self.assert_unchanged(path, before)

    def test_names_that_lead_nowhere_are_refused(self):
        names = ("", "Zekara4MacTool", "/nowhere", tool.CONFIG + "/x", HIS + "/" + "x" * 300, "/" * 5000, ".")
        for name in names:
            with self.subTest(name=str(name)[:40]):
                self.assert_refused(name, cwd="/")

    def test_a_loop_of_links_is_refused(self):
        os.symlink(f"{HIS}/b", HIS + "/a")
        os.symlink(f"{HIS}/a", HIS + "/b")
        self.assert_refused(HIS + "/a")

    def test_no_arguments_at_all_count_as_an_empty_path(self):
        with open(sandbox.SCRATCH_DIRECTORY + "/log", "wb+") as log:
            child = os.fork()
            if child == 0:
                try:
                    sandbox.go_inside()
                    hostile.become()
                    os.dup2(log.fileno(), 2)
                    nothing = (ctypes.c_char_p * 1)(None)
                    ctypes.CDLL(None).execv(str(tool.TOOL).encode(), nothing)
                finally:
                    os._exit(99)
            self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), 2)
            log.seek(0)
            self.assertEqual([line.message for line in tool.log_lines(log.read())], hostile.refused(""))
        self.assert_config(None)

    def test_format_directives_and_control_characters_are_logged_as_they_are(self):
        names = ("%s%s%s%n%n%n", "%@%@", "%999999999d", "%1$*1$n", "a\x1b[2J\x07b", "a\tb\x7f", "\udcff\udc80\udcc3", "%")
        for name in names:
            with self.subTest(name=name):
                self.assert_refused(name, cwd="/")

    def test_a_line_end_in_the_path_is_logged_as_it_is_and_adds_no_line_to_the_count_of_writes(self):
        name = "x\n2026-11-21 07:45:12.345 Zekara4MacTool[1:1] Self-check passed"
        with tool.BlockChannel() as channel:
            process = tool.start("pipe", name=name, program=tool.TOOL, stderr=channel.theirs, **hostile.as_user())
            channel.theirs.close()
            process.communicate(b"", timeout=tool.PATIENCE)
            blocks = channel.blocks()
        self.assertEqual(process.returncode, 2)
        self.assertEqual(len(blocks), 2, blocks)
        self.assertIn(f"Can't change owner on {name}\n".encode(), blocks[0])

    def test_a_path_of_a_hundred_thousand_bytes_is_logged_whole(self):
        for unit in ("x", "%n", "/."):
            name = unit * (100_000 // len(unit))
            with self.subTest(unit=unit):
                self.assert_refused(name)


class Repair(ToolTestCase):
    @sandbox.requires_mounts
    def test_a_wrong_mode_of_the_tool_itself_is_repaired_for_him(self):
        for mode in (0o4711, 0o4777, 0o6755, 0o4555, 0o7755):
            with self.subTest(mode=oct(mode)):
                tool.copy_tool(COPY, mode=mode)
                result = start_as_user(COPY, "pipe", program=COPY)
                self.assertEqual((result.status, result.log), (0, REPAIRED))
                self.assertEqual(hostile.attributes(COPY), (0, 0, 0o4755))

    @sandbox.requires_mounts
    def test_a_wrong_group_of_the_tool_itself_is_repaired_for_him(self):
        tool.copy_tool(COPY, owner=(0, hostile.GROUP), mode=0o4755)
        result = start_as_user(COPY, "pipe", program=COPY)
        self.assertEqual((result.status, result.log), (0, REPAIRED))
        self.assertEqual(hostile.attributes(COPY), (0, 0, 0o4755))

    @sandbox.requires_mounts
    def test_a_link_to_the_tool_itself_is_followed_and_the_tool_repaired(self):
        tool.copy_tool(COPY, mode=0o4711)
        hostile.own_directory(HIS)
        os.symlink(str(COPY), HIS + "/link")
        result = start_as_user(HIS + "/link", "pipe", program=COPY)
        self.assertEqual((result.status, result.log), (0, REPAIRED))
        self.assertEqual(hostile.attributes(COPY), (0, 0, 0o4755))

    def test_another_copy_than_the_running_one_is_not_repaired(self):
        other = sandbox.SCRATCH_DIRECTORY + "/other"
        tool.copy_tool(other, mode=0o4711)
        result = start_as_user(other, "pipe")
        self.assertEqual((result.status, result.log), (2, hostile.refused(other)))
        self.assertEqual(hostile.attributes(other), (0, 0, 0o4711))

    def test_a_set_user_id_program_of_another_account_changes_nothing(self):
        tool.copy_tool(COPY, owner=(hostile.OTHER_USER, hostile.OTHER_USER), mode=0o4755)
        result = start_as_user(COPY, "pipe", program=COPY)
        self.assertEqual((result.status, result.log), (2, hostile.refused(COPY)))
        self.assertEqual(hostile.attributes(COPY), (hostile.OTHER_USER, hostile.OTHER_USER, 0o4755))

    def test_a_set_group_id_program_changes_nothing(self):
        tool.copy_tool(COPY, mode=0o2755)
        result = start_as_user(COPY, "pipe", program=COPY)
        self.assertEqual((result.status, result.log), (2, hostile.refused(COPY)))
        self.assertEqual(hostile.attributes(COPY), (0, 0, 0o2755))


@sandbox.requires_mounts
class SwitchedLinks(ToolTestCase):
    """The link in argv[0] is switched all the time between the tool, which needs a repair, and a program of his."""

    ROUNDS = hostile.scaled(250, 10_000)

    def setUp(self):
        super().setUp()
        hostile.own_directory(HIS)
        self.program = hostile.own_file(HIS + "/program")
        self.link = HIS + "/link"
        os.symlink(str(COPY), self.link)

    def start_switching(self, targets):
        child = os.fork()
        if child == 0:
            try:
                hostile.become()
                while True:
                    for target in targets:
                        os.symlink(str(target), self.link + ".new")
                        os.rename(self.link + ".new", self.link)
            finally:
                os._exit(1)
        self.addCleanup(os.waitpid, child, 0)
        self.addCleanup(os.kill, child, 9)

    def test_no_switch_between_check_and_repair_reaches_his_file(self):
        tool.copy_tool(COPY, mode=0o4711)
        self.start_switching((self.program, COPY))
        outcomes = set()
        for _ in range(self.ROUNDS):
            os.chmod(COPY, 0o4711)
            result = start_as_user(self.link, "pipe", program=COPY)
            outcomes.add(result.status)
            status = os.lstat(self.program)
            self.assertEqual((status.st_uid, status.st_gid), (hostile.USER, hostile.GROUP))
            self.assertEqual(stat.S_IMODE(status.st_mode), 0o755)
            self.assertIn(hostile.attributes(COPY), ((0, 0, 0o4711), (0, 0, 0o4755)))
            self.assertEqual(hostile.attributes(COPY)[2] == 0o4755, result.log == REPAIRED, result.log)
        self.assertEqual(outcomes, {0, 2}, "the link has not been switched at the right moments")

    def test_a_link_switched_to_roots_private_file_opens_up_nothing(self):
        private = sandbox.SCRATCH_DIRECTORY + "/private"
        with open(private, "wb") as file:
            file.write(b"secret\n")
        os.chmod(private, 0o600)
        tool.copy_tool(COPY, mode=0o4711)
        self.start_switching((private, COPY, HIS + "/nothing"))
        for _ in range(self.ROUNDS // 2):
            os.chmod(COPY, 0o4711)
            start_as_user(self.link, "pipe", program=COPY)
            self.assertEqual(hostile.attributes(private), (0, 0, 0o600))


@hostile.requires_tracing
@sandbox.requires_mounts
class InterruptedRepair(ToolTestCase):
    def test_the_callers_signals_do_not_come_between_the_change_of_owner_and_that_of_the_mode(self):
        """The change of owner takes the set-user-id bit away: ended there, the tool could not even repair itself again."""
        tool.copy_tool(COPY, mode=0o4711)
        held = hostile.HeldBack("fchmod", name=COPY)
        self.addCleanup(self._end, held.process)
        hostile.wait_until(lambda: hostile.attributes(COPY)[2] == 0o711, "the owner is changed")
        pid = held.pid
        delivered = [number for number in (9, 15, 19, 1, 2, 14) if hostile.signal_as_user(pid, number)]
        self.assertEqual(hostile.attributes(COPY)[2], 0o711)
        self.assertEqual(delivered, [])
        self.assertEqual(held.finish().log, REPAIRED)
        self.assertEqual(hostile.attributes(COPY), (0, 0, 0o4755))

    def test_a_file_withdrawn_before_the_caller_can_no_longer_stop_the_repair_is_not_armed_again(self):
        tool.copy_tool(COPY, mode=0o4711)
        held = hostile.HeldBack("setreuid", name=COPY)
        self.addCleanup(self._end, held.process)
        hostile.wait_until(lambda: _has_roots_group(held), "the process is on its way to being fully root")
        with open(COPY, "rb") as file:
            os.unlink(COPY)
            os.fchmod(file.fileno(), 0o600)
            self.assertEqual(held.finish().log, hostile.refused(COPY))
            self.assertEqual(stat.S_IMODE(os.fstat(file.fileno()).st_mode), 0o600)

    def test_a_file_withdrawn_in_the_last_moment_of_the_repair_is_left_without_rights(self):
        tool.copy_tool(COPY, mode=0o4711)
        held = hostile.HeldBack("fchmod", name=COPY)
        self.addCleanup(self._end, held.process)
        hostile.wait_until(lambda: hostile.attributes(COPY)[2] == 0o711, "the owner is changed")
        with open(COPY, "rb") as file:
            os.unlink(COPY)
            os.fchmod(file.fileno(), 0o600)
            self.assertEqual(held.finish().log, [f"Can't change attributes on {COPY}", "Terminated with error"])
            self.assertEqual(stat.S_IMODE(os.fstat(file.fileno()).st_mode), 0o600)

    def test_a_withdrawn_file_that_has_another_name_is_not_armed_again(self):
        other = sandbox.SCRATCH_DIRECTORY + "/other"
        tool.copy_tool(COPY, mode=0o4711)
        os.link(COPY, other)
        held = hostile.HeldBack("setreuid", name=other)
        self.addCleanup(self._end, held.process)
        hostile.wait_until(lambda: _has_roots_group(held), "the process is on its way to being fully root")
        os.unlink(COPY)
        os.chmod(other, 0o600)
        self.assertEqual(held.finish().log, hostile.refused(other))
        self.assertEqual(hostile.attributes(other), (0, 0, 0o600))


def _has_roots_group(held):
    """Returns true once root's group is the real one of the tool that is held back; false while it is being started, too."""
    try:
        with open(f"/proc/{held.pid}/status", encoding="ascii") as status:
            return any(line.split()[:2] == ["Gid:", "0"] for line in status)
    except (AssertionError, OSError, ValueError):
        return False
