"""What the caller hands down to the tool besides its arguments: descriptors, signals, timers, environment, limits, priority."""

import contextlib
import ctypes
import fcntl
import os
import resource
import signal
import socket
import subprocess
import time

import hostile
from support import sandbox, standins, tool, tracing
from support.case import ToolTestCase

OLD = b"[A]\nk = old\n\n[MacOSWardex]\nIsActive = No\n\n"
NEW = b"[A]\nk = new\n\n[MacOSWardex]\nIsActive = No\n\n"
REQUEST = tool.encode(tool.request({"A": {"k": "new"}}))
PIPE_LOG = ["Self-check passed", "Running on pipe"]

CALLERS = (("root", {}), ("a user", hostile.as_user()))


class StartUpCase(ToolTestCase):
    def setUp(self):
        super().setUp()
        tool.write_config(OLD)

    def assert_done(self, result):
        self.assert_succeeds(result)
        self.assertEqual(result.log, PIPE_LOG)
        self.assert_config(NEW)


class Descriptors(StartUpCase):
    def test_every_combination_of_closed_standard_descriptors_does_no_harm(self):
        for who, options in CALLERS:
            for combination in range(1, 8):
                closed = [descriptor for descriptor in range(3) if combination >> descriptor & 1]
                with self.subTest(caller=who, closed=closed):
                    tool.write_config(OLD)
                    result = self._run_with_closed(closed, **options)
                    self.assertEqual(result.status, 0, result.errors)
                    self.assert_config(OLD if 0 in closed else NEW)

    def test_a_task_that_reads_nothing_works_without_any_descriptor(self):
        for who, options in CALLERS:
            with self.subTest(caller=who):
                tool.write_config(OLD)
                process = sandbox.start([tool.TOOL], preexec_fn=lambda: os.closerange(0, 3), **options)
                self.assertEqual(process.wait(tool.PATIENCE), 1)
                self.assert_config(OLD.replace(b"IsActive = No", b"IsActive = Yes"))

    @tracing.requires_strace
    def test_the_file_is_never_opened_as_one_of_the_standard_descriptors(self):
        command = ["sh", "-c", 'exec "$@" <&- >&- 2>&-', "sh", *sandbox.inside_command(tool.TOOL)]
        _, lines = hostile.traced(command, sandbox.SCRATCH_DIRECTORY + "/trace", ["trace=openat"], b"")
        opened = [int(line.rpartition("= ")[2].partition("<")[0]) for line in lines if "zekara32.ini" in line]
        self.assertEqual(opened, [3])
        self.assert_config(OLD.replace(b"IsActive = No", b"IsActive = Yes"))

    def test_closed_descriptors_and_no_room_for_new_ones_never_make_the_file_a_log(self):
        def hamper():
            resource.setrlimit(resource.RLIMIT_NOFILE, (0, 4096))
            os.closerange(0, 3)

        process = sandbox.start([tool.TOOL], preexec_fn=hamper)
        self.assertEqual(process.wait(tool.PATIENCE), 1)
        self.assert_config(OLD.replace(b"IsActive = No", b"IsActive = Yes"))

    @sandbox.requires_mounts
    def test_without_dev_null_the_file_is_never_taken_for_a_standard_descriptor(self):
        empty = sandbox.SCRATCH_DIRECTORY + "/dev"
        os.mkdir(empty)
        child = os.fork()
        if child == 0:
            try:
                _unshare_mounts()
                sandbox.mount(empty, "/dev", None, 4096)
                os.closerange(0, 3)
                os.execv(tool.TOOL, [tool.TOOL])
            finally:
                os._exit(99)
        self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), 1)
        self.assert_config(OLD.replace(b"IsActive = No", b"IsActive = Yes"))

    def test_an_inherited_descriptor_that_holds_the_lock_is_let_go(self):
        def inherit(number):
            with open(tool.CONFIG, "rb") as file:
                fcntl.flock(file, fcntl.LOCK_EX)
                os.dup2(file.fileno(), number)

        for who, options in CALLERS:
            for number in (20, 63, 255, 1000):
                with self.subTest(caller=who, number=number):
                    tool.write_config(OLD)
                    process = tool.start("pipe", preexec_fn=lambda: inherit(number), close_fds=False, **options)
                    self.assert_done(tool.finish(process, REQUEST))

    def test_an_inherited_descriptor_beyond_a_limit_that_was_lowered_afterwards_is_let_go_too(self):
        def hamper():
            resource.setrlimit(resource.RLIMIT_NOFILE, (4096, 4096))
            with open(tool.CONFIG, "rb") as file:
                fcntl.flock(file, fcntl.LOCK_EX)
                os.dup2(file.fileno(), 4000)
            resource.setrlimit(resource.RLIMIT_NOFILE, (16, 16))

        for who, options in CALLERS:
            with self.subTest(caller=who):
                tool.write_config(OLD)
                process = tool.start("pipe", preexec_fn=hamper, close_fds=False, **options)
                self.assert_done(tool.finish(process, REQUEST))

    @hostile.requires_tracing
    def test_where_the_system_cannot_close_them_all_at_once_each_is_closed(self):
        trace = ["-f", "--seccomp-bpf", "-e", "trace=close_range", "-e", "inject=close_range:error=ENOSYS"]

        def inherit():
            with open(tool.CONFIG, "rb") as file:
                fcntl.flock(file, fcntl.LOCK_EX)
                os.dup2(file.fileno(), 1000)

        command = ["strace", "-o", "/dev/null", *trace, *hostile.caller_command(tool.TOOL, "pipe")]
        streams = dict.fromkeys(("stdin", "stdout", "stderr"), subprocess.PIPE)
        process = subprocess.Popen(command, preexec_fn=inherit, close_fds=False, **streams)
        # strace keeps the descriptor too, and with it the lock: what counts is whether the tool has it.
        tool_pid = _wait_for_child(process.pid)
        hostile.wait_until(lambda: set(os.listdir(f"/proc/{tool_pid}/fd")) == {"0", "1", "2"}, "all others are closed")
        process.kill()
        self._end(process)

    def test_descriptors_that_cannot_be_read_or_written_cost_input_and_output_only(self):
        for who, options in CALLERS:
            with self.subTest(caller=who):
                tool.write_config(OLD)
                with open("/dev/null", "wb") as unreadable, open("/dev/null", "rb") as unwritable:
                    ended = tool.run("pipe", stdin=unreadable, stdout=unwritable, stderr=unwritable, **options)
                    self.assertEqual(ended.status, 0)
                    self.assert_config(OLD)
                    ended = tool.run("pipe", data=REQUEST, stdout=unwritable, stderr=unwritable, **options)
                self.assertEqual(ended.status, 0)
                self.assert_config(NEW)

    def test_directories_and_the_file_itself_as_standard_descriptors_do_no_harm(self):
        for path in ("/", tool.CONFIG, tool.TOOL, "/dev/full", "/dev/zero"):
            with self.subTest(path=path):
                tool.write_config(OLD)
                with _opened(path) as file:
                    result = tool.run("pipe", data=REQUEST, stdout=file, stderr=file, **hostile.as_user())
                self.assertEqual(result.status, 0)
                self.assert_config(NEW)

    def test_non_blocking_standard_descriptors_are_waited_for(self):
        ours, theirs = socket.socketpair()
        reader, writer = os.pipe()
        fcntl.fcntl(writer, 1031, 4096)  # F_SETPIPE_SZ
        for descriptor in (theirs.fileno(), writer):
            os.set_blocking(descriptor, False)
        settings = {"A": {"k": "x" * 50_000}}
        with ours, theirs:
            process = tool.start("pipe", stdin=theirs, stdout=writer, **hostile.as_user())
            self.addCleanup(self._end, process)
            theirs.close()
            os.close(writer)
            for piece in _pieces(tool.encode(tool.request(settings)), 1000):
                ours.sendall(piece)
                time.sleep(0.0002)
            with open(reader, "rb") as stream:
                self.assertNotIn("err", tool.read_message(stream))
        self.assertEqual(process.wait(tool.PATIENCE), 0)

    def _run_with_closed(self, closed, **options):
        def close():
            for descriptor in closed:
                os.close(descriptor)

        process = tool.start("pipe", preexec_fn=close, **options)
        with contextlib.suppress(BrokenPipeError):
            return tool.finish(process, REQUEST)
        raise AssertionError("the tool did not read its input")


class Signals(StartUpCase):
    ALL = sorted(signal.valid_signals() - {signal.SIGKILL, signal.SIGSTOP})

    def test_ignored_and_blocked_signals_change_nothing(self):
        def ignore():
            for number in self.ALL:
                with contextlib.suppress(OSError):
                    signal.signal(number, signal.SIG_IGN)

        def block():
            signal.pthread_sigmask(signal.SIG_BLOCK, self.ALL)

        for who, options in CALLERS:
            for hamper in (ignore, block):
                with self.subTest(caller=who, hamper=hamper.__name__):
                    tool.write_config(OLD)
                    process = tool.start("pipe", preexec_fn=hamper, restore_signals=False, **options)
                    self.assert_done(tool.finish(process, REQUEST))

    def test_pending_blocked_signals_do_not_strike_later(self):
        def leave_pending():
            signal.pthread_sigmask(signal.SIG_BLOCK, self.ALL)
            for number in (signal.SIGTERM, signal.SIGALRM, signal.SIGHUP, signal.SIGINT):
                os.kill(os.getpid(), number)

        process = tool.start("pipe", preexec_fn=leave_pending, **hostile.as_user())
        self.assert_done(tool.finish(process, REQUEST))

    def test_a_reader_that_has_gone_costs_the_reply_and_the_log_only(self):
        for stream in ("stdout", "stderr"):
            with self.subTest(stream=stream):
                tool.write_config(OLD)
                reader, writer = os.pipe()
                os.close(reader)
                result = tool.run("pipe", data=REQUEST, **{stream: writer}, **hostile.as_user())
                os.close(writer)
                self.assertEqual(result.status, 0)
                self.assert_config(NEW)


class Timers(StartUpCase):
    def test_interval_timers_of_the_caller_do_not_go_on(self):
        for which in (signal.ITIMER_REAL, signal.ITIMER_VIRTUAL, signal.ITIMER_PROF):
            for who, options in CALLERS:
                with self.subTest(timer=which, caller=who):
                    tool.write_config(OLD)
                    self.assert_succeeds(self._run_with_timer(which, options))
                    self.assert_config(NEW)

    def _run_with_timer(self, which, options):
        """Runs the tool until after the timer's time. On a busy machine the timer may ring before the tool has come to its
        first line of log, which proves nothing: then it is given a later time."""
        for seconds in (1.0, 4.0, 12.0):
            process = tool.start("pipe", preexec_fn=lambda: signal.setitimer(which, seconds, 0.01), **options)
            self.addCleanup(self._end, process)
            if not process.stderr.readline():
                continue
            if which == signal.ITIMER_REAL:
                time.sleep(seconds + 0.2)
            with contextlib.suppress(BrokenPipeError):
                return tool.finish(process, REQUEST)
        raise AssertionError("the timer has always rung before the tool's first line")

    @tracing.requires_strace
    def test_all_three_timers_are_switched_off_before_the_first_log_line(self):
        _, lines = tracing.run("pipe", calls="setitimer,write,writev")
        first_write = next(number for number, line in enumerate(lines) if line.startswith("write"))
        stopped = [line.split("(")[1].split(",")[0] for line in lines[:first_write] if line.startswith("setitimer")]
        self.assertEqual(sorted(stopped), ["ITIMER_PROF", "ITIMER_REAL", "ITIMER_VIRTUAL"])


class Environment(StartUpCase):
    def test_no_variable_reaches_a_start_with_roots_rights(self):
        planted = str(hostile.own_file(sandbox.SCRATCH_DIRECTORY + "/planted", b"planted"))
        environment = {name: planted for name in ("LD_PRELOAD", "LD_AUDIT", "LD_LIBRARY_PATH", "GCONV_PATH", "NLSPATH")}
        environment |= {name: planted for name in ("LOCPATH", "TZDIR", "TMPDIR", "HOSTALIASES", "RES_OPTIONS")}
        environment |= {"TZ": ":" + planted, "LC_ALL": "zz_ZZ", "LANGUAGE": "../../..", "MALLOC_PERTURB_": "1"}
        environment |= {"GLIBC_TUNABLES": "glibc.malloc.check=3:" * 1000, "X" * 5000: "=" * 50000}
        process = tool.start("pipe", env=environment, **hostile.as_user())
        self.assert_done(tool.finish(process, REQUEST))

    @hostile.requires_tracing
    def test_no_file_that_a_variable_names_is_opened(self):
        planted = str(hostile.own_file(sandbox.SCRATCH_DIRECTORY + "/planted", b"planted"))
        environment = {"TZ": ":" + planted, "TZDIR": planted, "LOCPATH": planted, "LD_PRELOAD": planted}
        result, lines = hostile.traced(
            hostile.caller_command(tool.TOOL, "pipe"),
            sandbox.SCRATCH_DIRECTORY + "/trace",
            ["trace=openat,open,stat,newfstatat,access,readlink,execve"],
            REQUEST,
            options=[f"-E{name}={value}" for name, value in environment.items()],
        )
        self.assert_done(result)
        self.assertTrue(any("zekara32.ini" in line for line in lines))
        self.assertFalse([line for line in lines if "planted" in line and not line.startswith("execve")], lines)

    def test_the_time_zone_of_the_caller_does_not_move_the_log(self):
        def hour(zone):
            return [line.time[:13] for line in tool.log_lines(tool.run("x", env=zone, **hostile.as_user()).errors)]

        for _ in range(3):  # an hour may end in between
            if hour({"TZ": "XXX-11:37"}) == hour({}) == hour({"TZ": "YYY+9"}):
                return
        self.fail("TZ moves the log's time")


class Rights(StartUpCase):
    """Seen from outside, while the tool waits: for input, for the lock, for a reader of its log."""

    def start(self, **options):
        process = self.start_tool("pipe", **hostile.as_user(), **options)
        process.stdin.write(REQUEST[:-20])
        process.stdin.flush()
        return process

    def status(self, process, field):
        with open(f"/proc/{process.pid}/status", encoding="ascii") as status:
            for line in status:
                if line.startswith(field + ":"):
                    return line.split()[1:]
        raise AssertionError(field)

    def test_real_ids_are_the_callers_while_he_is_waited_for_and_roots_while_the_lock_is(self):
        process = self.start()
        hostile.wait_until(lambda: hostile.process_state(process.pid) == "S", "the tool waits for input")
        self.assertEqual(self.status(process, "Uid"), [str(hostile.USER), "0", "0", "0"])
        with hostile.locked():
            process.stdin.write(REQUEST[-20:])
            process.stdin.flush()
            tool.wait_until_it_waits_for_the_lock(process)
            self.assertEqual(self.status(process, "Uid"), ["0"] * 4)
            self.assertEqual(self.status(process, "Gid"), ["0"] * 4)
            for number in (signal.SIGKILL, signal.SIGSTOP, signal.SIGTERM, signal.SIGINT):
                self.assertFalse(hostile.signal_as_user(process.pid, number))
        self.assert_done(tool.finish(process))

    def test_while_a_log_line_or_the_reply_waits_for_its_reader_the_real_id_is_the_callers(self):
        for stream in ("stderr", "stdout"):
            with self.subTest(stream=stream):
                tool.write_config(OLD)
                reader, writer = _full_pipe(leave=250 if stream == "stderr" else 10)
                self.addCleanup(os.close, reader)
                self.addCleanup(os.close, writer)
                process = self.start_tool("pipe", **{stream: writer}, **hostile.as_user())
                # No daemon is running, so the tool logs two lines about that.
                settings = {"A": {"k": "x" * 200}, "MacOSWardex": {"IsActive": "x"}, "UpdateD": {"Mode": "x"}}
                process.stdin.write(tool.encode(tool.request(settings)))
                process.stdin.flush()
                hostile.wait_until(lambda: b"k = x" in tool.read_config(), "the change is made")
                hostile.wait_until(lambda: hostile.process_state(process.pid) == "S", "the tool waits for the reader")
                hostile.wait_until(lambda: self.status(process, "Uid")[0] == str(hostile.USER), "the rights are given back")
                self.assertFalse(hostile.is_locked())
                self.assertTrue(hostile.signal_as_user(process.pid, signal.SIGKILL))
                self.assertEqual(process.wait(tool.PATIENCE), -signal.SIGKILL)

    def test_the_process_cannot_be_read_or_traced_by_its_caller(self):
        process = self.start()
        hostile.wait_until(lambda: hostile.process_state(process.pid) == "S", "the tool waits for input")
        for name in ("mem", "environ", "maps", "fd"):
            child = os.fork()
            if child == 0:
                status = 1
                try:
                    hostile.become()
                    path = f"/proc/{process.pid}/{name}"
                    os.listdir(path) if name == "fd" else os.read(os.open(path, os.O_RDONLY), 1)
                except PermissionError:
                    status = 0
                finally:
                    os._exit(status)
            self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), 0, name)

    @hostile.requires_priority_rights
    def test_a_caller_of_low_priority_does_not_slow_down_what_others_wait_for(self):
        def be_idle():
            os.nice(19)
            os.sched_setscheduler(0, os.SCHED_IDLE, os.sched_param(0))
            hostile.become_idle_for_files()

        process = self.start(preexec_fn=be_idle)
        hostile.wait_until(lambda: hostile.process_state(process.pid) == "S", "the tool waits for input")
        self.assertEqual(os.sched_getscheduler(process.pid), os.SCHED_OTHER)
        self.assertEqual(os.getpriority(os.PRIO_PROCESS, process.pid), 0)
        self.assertFalse(hostile.is_idle_for_files(process.pid))

    def test_no_core_is_ever_left(self):
        process = self.start()
        hostile.wait_until(lambda: hostile.process_state(process.pid) == "S", "the tool waits for input")
        with open(f"/proc/{process.pid}/limits", encoding="ascii") as limits:
            core = [line.split() for line in limits if line.startswith("Max core file size")]
        self.assertEqual(core[0][4:6], ["0", "0"])


class WhereTheFileShouldBe(StartUpCase):
    """The path of the configuration file, or of a pid file, names something else than a regular file."""

    def assert_cannot_open(self, result):
        self.assertEqual((result.status, result.error), (0, "can't open ini file"))

    def test_a_fifo_a_device_a_directory_and_a_socket_are_refused_at_once(self):
        def make_fifo():
            os.mkfifo(tool.CONFIG)

        def make_device():
            os.mknod(tool.CONFIG, 0o020666, os.makedev(1, 5))

        def make_directory():
            os.mkdir(tool.CONFIG)

        def make_socket():
            with socket.socket(socket.AF_UNIX) as listener:
                listener.bind(os.fspath(tool.CONFIG))

        def make_loop():
            os.symlink(str(tool.CONFIG), tool.CONFIG)

        for make in (make_fifo, make_device, make_directory, make_socket, make_loop):
            with self.subTest(make=make.__name__):
                sandbox.clear()
                make()
                before = os.lstat(tool.CONFIG)
                self.assert_cannot_open(tool.run_pipe(REQUEST, **hostile.as_user()))
                self.assertEqual(os.lstat(tool.CONFIG).st_mode, before.st_mode)

    def test_pid_files_of_every_kind_are_read_without_waiting_and_in_little_memory(self):
        def make_sparse(path):
            with open(path, "wb") as file:
                file.truncate(256 << 20)

        makers = {
            "fifo": os.mkfifo,
            "directory": os.mkdir,
            "zeros": lambda path: os.mknod(path, 0o020666, os.makedev(1, 5)),
            "terminal": lambda path: os.mknod(path, 0o020666, os.makedev(5, 0)),
            "loop": lambda path: os.symlink(str(path), path),
            "sparse": make_sparse,
        }
        request = tool.encode(tool.request({"MacOSWardex": {"IsActive": "Yes"}}))
        for kind, make in makers.items():
            with self.subTest(kind=kind):
                sandbox.clear()
                make(standins.FILED_PID_FILE)
                process, memory = hostile.start_measured()
                self.addCleanup(self._end, process)
                result = tool.finish(process, request)
                self.assert_succeeds(result)
                self.assertIn(f"Can't signal 1 to {standins.FILED_PID_FILE}", result.log)
                self.assertLess(memory(), 32 << 20)


def _wait_for_child(pid):
    """The process id of the tool, once a child of that process has become it."""

    def find():
        with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as children:
            found = children.read().split()
        with contextlib.suppress(FileNotFoundError):  # a passing child of strace's own
            return next((int(child) for child in found if os.readlink(f"/proc/{child}/exe") == os.fspath(tool.TOOL)), None)
        return None

    hostile.wait_until(find, "strace has started the tool")
    return find()


def _unshare_mounts():
    if ctypes.CDLL(None).unshare(0x00020000) != 0:  # CLONE_NEWNS
        raise OSError("unshare")


@contextlib.contextmanager
def _opened(path):
    descriptor = os.open(path, os.O_RDONLY)
    try:
        yield descriptor
    finally:
        os.close(descriptor)


def _pieces(data, size):
    return (data[start : start + size] for start in range(0, len(data), size))


def _full_pipe(leave):
    """A pipe that takes only so many bytes more."""
    reader, writer = os.pipe()
    os.set_blocking(writer, False)
    page = os.sysconf("SC_PAGE_SIZE")
    with contextlib.suppress(BlockingIOError):
        while True:
            os.write(writer, b"x" * page)
    # Room is made and filled page by page.
    os.read(reader, page)
    os.write(writer, b"x" * (page - leave))
    os.set_blocking(writer, True)
    return reader, writer
