"""Attacks on the running tool that once worked, or that an attacker would try first.

Every test runs wherever a private root directory can be had: as root, in a user namespace and in a container's directory. Those
that need a second account skip where there is none.
"""

import contextlib
import ctypes
import errno
import fcntl
import os
import plistlib
import random
import re
import resource
import select
import signal
import socket
import struct
import subprocess

import hostile
from support import sandbox, standins, tool, tracing
from support.case import ToolTestCase, requires_set_user_id

OLD = b"[A]\nk = old\n\n[MacOSWardex]\nIsActive = No\n\n"
NEW = b"[A]\nk = new\n\n[MacOSWardex]\nIsActive = No\n\n"
INSTALLED = b"[A]\nk = old\n\n[MacOSWardex]\nIsActive = Yes\n\n"
REQUEST = tool.encode(tool.request({"A": {"k": "new"}}))
SWITCH_ON = tool.encode(tool.request({"MacOSWardex": {"IsActive": "Yes"}}))
_libc = ctypes.CDLL(None, use_errno=True)


class RedTeam(ToolTestCase):
    def setUp(self):
        super().setUp()
        tool.write_config(OLD)

    def start_waiting_for_the_lock(self, **options):
        """A tool that has read its whole request and waits for the lock, which the caller holds."""
        process = self.start_tool("pipe", **options)
        process.stdin.write(REQUEST)
        process.stdin.flush()
        tool.wait_until_it_waits_for_the_lock(process)
        return process


@tracing.requires_strace
class SignalsDuringTheFlush(RedTeam):
    """strace sends a signal at the fsync(), so that the moment needs no luck."""

    def run_signalled(self, number, *arguments, data=b""):
        options = tracing.watch(tool.CONFIG) + ["-e", f"inject=fsync:signal={number}:when=1"]
        result, _ = tracing.run(*arguments, calls="fsync", options=options, data=data)
        return result

    def test_the_daemon_gets_both_signals_of_the_installation(self):
        for number in ("SIGINT", "SIGTERM", "SIGHUP"):
            with self.subTest(signal=number):
                tool.write_config(OLD)
                filed = self.start_filed()
                self.run_signalled(number)
                self.assertEqual(filed.signals(), [signal.SIGHUP, signal.SIGTERM])
                self.assert_config(INSTALLED)

    def test_lines_logged_in_the_transaction_are_written_before_it_ends_the_tool(self):
        result = self.run_signalled("SIGTERM", "pipe", data=SWITCH_ON)
        self.assertIn(f"Can't signal 1 to {standins.FILED_PID_FILE}", result.log)
        self.assert_config(INSTALLED)


@tracing.requires_strace
class Flushing(RedTeam):
    def run_refused(self, error):
        options = tracing.watch(tool.CONFIG) + ["-e", f"inject=fsync:error={error}"]
        result, lines = tracing.run("pipe", calls="fsync", options=options, data=REQUEST)
        self.assertTrue(any("INJECTED" in line for line in lines), lines)
        return result

    def test_a_file_system_that_cannot_flush_is_no_failure(self):
        for error in ("EINVAL", "ENOSYS", "EOPNOTSUPP", "EROFS"):
            with self.subTest(error=error):
                tool.write_config(OLD)
                self.assert_succeeds(self.run_refused(error))
                self.assert_config(NEW)

    def test_a_flush_that_failed_is_told(self):
        for error in ("EIO", "ENOSPC", "EDQUOT"):
            with self.subTest(error=error):
                tool.write_config(OLD)
                self.assertRegex(self.run_refused(error).error, "^cannot flush: ")


class Output(RedTeam):
    def test_a_reply_that_a_closed_standard_output_cannot_take_is_logged(self):
        process = self.start_tool("pipe", stdout=None, preexec_fn=lambda: os.close(1))
        result = tool.finish(process, REQUEST)
        self.assertEqual(result.status, 0)
        self.assert_config(NEW)
        self.assertIn(f"ZKAXMLConnection:sendMessage: cannot write: {os.strerror(errno.EBADF)}", result.log)


class AfterTheTransaction(RedTeam):
    """The tool has made the change and waits for the reader of its reply."""

    def start_stalled(self, **options):
        reader, writer = os.pipe()
        self.addCleanup(os.close, reader)
        os.set_blocking(writer, False)
        with contextlib.suppress(BlockingIOError):
            while True:
                os.write(writer, b"x" * 4096)
        os.set_blocking(writer, True)
        process = self.start_tool("pipe", stdout=writer, **options)
        os.close(writer)
        process.stdin.write(REQUEST)
        process.stdin.flush()
        hostile.wait_until(lambda: tool.read_config() == NEW, "the change is made")
        hostile.wait_until(lambda: not hostile.is_locked(), "the lock is released")
        hostile.wait_until(lambda: tool.state(process.pid) == "S", "the tool waits for the reader of its reply")
        return process

    def test_the_memory_limits_are_the_callers_again(self):
        limits = {resource.RLIMIT_AS: (1 << 40, "Max address space"), resource.RLIMIT_DATA: (1 << 39, "Max data size")}

        def limit_memory():
            for number, (size, _) in limits.items():
                resource.setrlimit(number, (size, resource.getrlimit(number)[1]))

        process = self.start_stalled(preexec_fn=limit_memory)
        with open(f"/proc/{process.pid}/limits", encoding="ascii") as file:
            found = file.read()
        for size, name in limits.values():
            self.assertRegex(found, rf"{name} +{size} ")

    @requires_set_user_id
    def test_its_memory_is_closed_to_its_caller(self):
        process = self.start_stalled(**hostile.as_user())
        for name in ("mem", "maps", "environ"):
            self.assertEqual(_as_user_open(f"/proc/{process.pid}/{name}"), errno.EACCES, name)


@requires_set_user_id
class Withdrawal(RedTeam):
    def test_a_running_file_without_a_name_is_not_armed_again(self):
        withdrawn = tool.copy_tool(sandbox.SCRATCH_DIRECTORY + "/withdrawn", mode=0o6755)
        with open(withdrawn, "rb") as file:
            os.unlink(withdrawn)
            path = "/proc/self/fd/0"
            result = self.run_nameless(file, path)
            self.assertEqual(os.fstat(file.fileno()).st_mode & 0o7777, 0o6755)
        self.assertEqual((result.status, result.log), (2, hostile.refused(path)))

    @sandbox.requires_machine  # which has a /proc
    def run_nameless(self, file, path):
        return tool.run("x", name=path, stdin=file, **hostile.as_user())


class Registrations(RedTeam):
    def test_a_fifo_behind_a_pid_file_loses_nothing(self):
        fifo = sandbox.SCRATCH_DIRECTORY + "/fifo"
        os.mkfifo(fifo)
        os.symlink(str(fifo), standins.FILED_PID_FILE)
        writer = os.fork()
        if writer == 0:
            with contextlib.suppress(BrokenPipeError), open(fifo, "wb", buffering=0) as stream:
                stream.write(b"for root's eyes")
            os._exit(0)
        self.addCleanup(os.waitpid, writer, 0)
        hostile.wait_until(lambda: tool.state(writer) == "S", "the writer waits for a reader")
        self.assert_succeeds(tool.run_pipe(SWITCH_ON))
        with open(os.open(fifo, os.O_RDONLY | os.O_NONBLOCK), "rb", buffering=0) as stream:
            self.assertTrue(select.select([stream], [], [], tool.PATIENCE)[0])
            self.assertEqual(stream.read(), b"for root's eyes")

    def test_directories_that_are_moved_while_they_are_emptied_cost_nothing_outside(self):
        front_end = sandbox.RUN_DIRECTORY + "/frontEnd"
        outside = sandbox.RUN_DIRECTORY + "/outside"
        os.makedirs(outside + "/a/b/c")
        with open(outside + "/canary", "wb") as file:
            file.write(b"alive")
        daemon = self.start_daemon_example()
        mover = os.fork()
        if mover == 0:
            _move_around(front_end, outside)
        try:
            for _ in range(hostile.scaled(40, 1000)):
                with contextlib.suppress(OSError):  # what it makes is moved away meanwhile
                    os.makedirs(front_end + "/ag/a/b/c")
                daemon.send_signal(signal.SIGHUP)
                self.assertTrue(daemon.stdout.readline())
                with open(outside + "/canary", "rb") as file:
                    self.assertEqual(file.read(), b"alive")
        finally:
            os.kill(mover, signal.SIGKILL)
            os.waitpid(mover, 0)
        daemon.send_signal(signal.SIGTERM)
        self.assertEqual(daemon.wait(tool.PATIENCE), 0)

    def start_daemon_example(self):
        """The example daemon, which signals the front ends, and removes what it cannot signal, at each SIGHUP."""
        source = hostile.example("daemon")
        if source is None:
            self.skipTest("the example daemon has not been built")
        program = sandbox.add_program(source, tool.TOOL + "-daemon")
        daemon = sandbox.start([program], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.addCleanup(daemon.stdout.close)
        self.addCleanup(daemon.wait)
        self.addCleanup(daemon.kill)
        self.assertTrue(daemon.stdout.readline())
        return daemon


class Memory(RedTeam):
    def start_reading(self):
        process = self.start_tool("pipe")
        hostile.wait_until(lambda: tool.state(process.pid) == "S", "the tool waits for input")
        with open(f"/proc/{process.pid}/maps", encoding="ascii", errors="surrogateescape") as maps:
            return [_Mapping(line) for line in maps]

    def test_no_page_can_be_written_and_executed(self):
        mappings = self.start_reading()
        self.assertTrue(any("x" in one.rights for one in mappings))
        self.assertEqual([str(one) for one in mappings if "w" in one.rights and "x" in one.rights], [])

    def test_its_relocations_are_read_only_once_it_runs(self):
        mappings = self.start_reading()
        base = min(one.start for one in mappings if one.name.endswith("/Zekara4MacTool"))
        start, end = _relocations(tool.TOOL)
        covered = [one for one in mappings if one.start < base + end and one.end > base + start]
        self.assertTrue(covered)
        page = resource.getpagesize()
        # The system protects whole pages: the last one that is only partly relocations may stay writable.
        inside = [one for one in covered if one.start < base + end // page * page]
        self.assertEqual([one.rights for one in inside], ["r--p"] * len(inside))

    def test_it_does_not_lie_where_it_lay_before(self):
        starts = {min(one.start for one in self.start_reading()) for _ in range(4)}
        self.assertGreater(len(starts), 1)


class StandardDescriptors(RedTeam):
    """Every kind of descriptor that a caller can have, in the place of each of the three."""

    # As standard input these never end, and the tool reads on.
    ENDLESS = ("full",)

    def test_no_kind_of_descriptor_makes_it_crash_or_keep_the_lock(self):
        kinds = _descriptor_kinds()
        self.assertGreaterEqual(len(kinds), 22)
        for kind, make in kinds.items():
            for number in range(1 if kind in self.ENDLESS else 0, 3):
                with self.subTest(kind=kind, number=number):
                    self.run_with(make, number)

    def run_with(self, make, number):
        tool.write_config(OLD)
        with contextlib.ExitStack() as stack:
            try:
                descriptor, *kept = make()
            except OSError as error:
                self.skipTest(f"cannot be had here: {error}")
            for one in (descriptor, *kept):
                stack.callback(os.close, one)
            process = self.start_tool("pipe", **{("stdin", "stdout", "stderr")[number]: descriptor})
            with contextlib.suppress(BrokenPipeError):
                if process.stdin:
                    process.stdin.write(REQUEST)
                    process.stdin.close()
                    process.stdin = None
            hostile.wait_until(lambda: tool.state(process.pid) in ("S", "Z", None), "it ends or waits")
            if number == 0:
                process.kill()  # it may wait for its input for ever
            self.assertIn(process.wait(tool.PATIENCE), (0, -signal.SIGKILL) if number == 0 else (0,))
        self.assertIn(tool.read_config(), (OLD, NEW) if number == 0 else (NEW,))
        self.assertFalse(hostile.is_locked())


class SignalsByOtherWays(RedTeam):
    @requires_set_user_id
    def test_a_signal_that_input_brings_does_not_reach_it_while_it_waits_for_the_lock(self):
        ours, theirs = socket.socketpair()

        def arm():
            fcntl.fcntl(0, fcntl.F_SETOWN, os.getpid())
            fcntl.fcntl(0, 10, signal.SIGUSR1)  # F_SETSIG
            fcntl.fcntl(0, fcntl.F_SETFL, os.O_ASYNC)
            signal.signal(signal.SIGUSR1, signal.SIG_IGN if arm.is_ignored else signal.SIG_DFL)

        # The request itself is already there when the descriptor is armed, so that it brings no signal.
        arm.is_ignored = False
        with ours, theirs, hostile.locked():
            ours.sendall(REQUEST)
            process = self.start_tool("pipe", stdin=theirs, preexec_fn=arm, **hostile.as_user())
            tool.wait_until_it_waits_for_the_lock(process)
            ours.sendall(b"more")
        self.assertEqual(process.wait(tool.PATIENCE), 0)
        self.assert_config(NEW)

    def test_a_message_queue_that_it_inherits_brings_no_signal(self):
        queue = self.make_queue()
        with hostile.locked():
            process = self.start_waiting_for_the_lock(stderr=queue, preexec_fn=lambda: _notify_by_signal(2))
            self.assertEqual(_libc.mq_send(queue, b"x", 1, 0), 0)
        self.assertNotIn("err", plistlib.loads(process.stdout.read()))
        self.assertEqual(process.wait(tool.PATIENCE), 0)
        self.assert_config(NEW)

    def make_queue(self):
        if not hasattr(_libc, "mq_open"):
            self.skipTest("this C library has no message queues")
        name = b"/zekara-red-team-%d" % os.getpid()
        queue = _libc.mq_open(name, os.O_CREAT | os.O_RDWR, 0o600, None)
        if queue < 0:
            self.skipTest(f"no message queue can be had here: {os.strerror(ctypes.get_errno())}")
        _libc.mq_unlink(name)
        self.addCleanup(os.close, queue)
        return queue


@requires_set_user_id
class KillStorm(RedTeam):
    INSTANCES = 300
    AT_ONCE = 30

    def test_every_acknowledged_change_of_three_hundred_instances_is_kept(self):
        acknowledged = {}
        for first in range(0, self.INSTANCES, self.AT_ONCE):
            keys = [f"key{number}" for number in range(first, first + self.AT_ONCE)]
            running = [(key, self.start_change(key)) for key in keys]
            self.storm([process for _, process in running])
            for key, process in running:
                output, _ = process.communicate(timeout=tool.PATIENCE)
                if output.endswith(tool.MARKER + b"\n") and "err" not in plistlib.loads(output):
                    acknowledged[key] = key
        self.assertFalse(hostile.is_locked())
        content = tool.read_config().decode()
        found = dict(re.findall(r"^(key\d+) = (.*)$", content, re.MULTILINE))
        self.assertEqual({key: found.get(key) for key in acknowledged}, acknowledged)
        self.assertTrue(set(found) <= {f"key{number}" for number in range(self.INSTANCES)})
        self.assertTrue(content.startswith("[A]\nk = old\n"))
        self.assert_succeeds(tool.change({"A": {"k": "new"}}))

    def start_change(self, key):
        process = self.start_tool("pipe", **hostile.as_user())
        process.stdin.write(tool.encode(tool.request({"Storm": {key: key}})))
        process.stdin.flush()
        return process

    @staticmethod
    def storm(processes):
        """The caller kills a third of them, and stops and continues all, as far as the system lets him."""
        child = os.fork()
        if child == 0:
            try:
                hostile.become()
                for _ in range(20):
                    for number, process in enumerate(processes):
                        kill = signal.SIGKILL if number % 3 == 0 and random.random() < 0.2 else signal.SIGSTOP
                        for one in (kill, signal.SIGINT, signal.SIGCONT):
                            with contextlib.suppress(PermissionError, ProcessLookupError):
                                if one != signal.SIGINT or number % 3 == 0:
                                    os.kill(process.pid, one)
            finally:
                os._exit(0)
        os.waitpid(child, 0)


class _Mapping:
    def __init__(self, line):
        fields = line.rstrip("\n").split(None, 5)
        self.start, self.end = (int(number, 16) for number in fields[0].split("-"))
        self.rights = fields[1]
        self.name = fields[5] if len(fields) > 5 else ""

    def __str__(self):
        return f"{self.start:x}-{self.end:x} {self.rights} {self.name}"


def _relocations(path):
    """The addresses, from the program's base, of what it has read-only once it is relocated."""
    with open(path, "rb") as file:
        header = file.read(64)
        offset, size, count = struct.unpack_from("<Q", header, 32)[0], *struct.unpack_from("<HH", header, 54)
        for index in range(count):
            file.seek(offset + index * size)
            kind, _, _, address, _, _, length, _ = struct.unpack("<IIQQQQQQ", file.read(56))
            if kind == 0x6474E552:  # PT_GNU_RELRO
                return address, address + length
    raise AssertionError("the program has no such part")


def _as_user_open(path):
    """The error that opening and reading the path gives the caller, 0 for none."""
    child = os.fork()
    if child == 0:
        status = 0
        try:
            hostile.become()
            os.read(os.open(path, os.O_RDONLY), 1)
        except OSError as error:
            status = error.errno
        finally:
            os._exit(status)
    return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])


def _move_around(front_end, outside):
    """Moves directories in and out, for ever."""
    moves = (("ag/a", "taken"), ("ag/a/b", "taken"), ("ag/a/b/c", "taken"), ("ag", "taken"))
    while True:
        for inside, away in moves:
            with contextlib.suppress(OSError):
                os.rename(front_end + "/" + inside, outside + "/" + away)
            with contextlib.suppress(OSError):
                os.rename(outside + "/" + away, front_end + "/" + inside)


def _notify_by_signal(descriptor):
    class Event(ctypes.Structure):
        _fields_ = (("value", ctypes.c_void_p), ("signal", ctypes.c_int), ("notify", ctypes.c_int), ("rest", ctypes.c_char * 64))

    event = Event(None, signal.SIGUSR1, 0)  # SIGEV_SIGNAL
    if _libc.mq_notify(descriptor, ctypes.byref(event)) != 0:
        raise OSError(ctypes.get_errno(), "mq_notify")


def _descriptor_kinds():
    """Each makes a descriptor of its kind, and others that must stay open beside it."""

    def path(name, flags):
        return lambda: (os.open(name, flags),)

    def pipe(end):
        def make():
            ends = os.pipe()
            return ends[end], ends[1 - end]

        return make

    def sockets(family, kind):
        def make():
            pair = socket.socketpair(family, kind)
            return tuple(one.detach() for one in pair)

        return make

    def unconnected(family, kind, listens=False):
        def make():
            one = socket.socket(family, kind)
            if listens:
                one.listen()
            return (one.detach(),)

        return make

    def call(name, *arguments):
        def make():
            descriptor = getattr(_libc, name)(*arguments)
            if descriptor < 0:
                raise OSError(ctypes.get_errno(), name)
            return (descriptor,)

        return make

    def fifo():
        name = sandbox.SCRATCH_DIRECTORY + "/a-fifo"
        with contextlib.suppress(FileExistsError):
            os.mkfifo(name)
        return (os.open(name, os.O_RDWR),)

    mask = (ctypes.c_ulong * 16)()
    return {
        "the configuration file": path(tool.CONFIG, os.O_RDONLY),
        "a file of the caller's": path(sandbox.SCRATCH_DIRECTORY + "/own", os.O_RDWR | os.O_CREAT),
        "a file of the caller's, appending": path(sandbox.SCRATCH_DIRECTORY + "/own", os.O_RDWR | os.O_APPEND | os.O_CREAT),
        "the tool": path(tool.TOOL, os.O_RDONLY),
        "a directory": path(sandbox.SCRATCH_DIRECTORY, os.O_RDONLY),
        "a path only": path(tool.CONFIG, os.O_PATH),
        "null": path("/dev/null", os.O_RDWR),
        "full": path("/dev/full", os.O_RDWR),
        "a FIFO": fifo,
        "a pipe to read": pipe(0),
        "a pipe to write": pipe(1),
        "a pair of stream sockets": sockets(socket.AF_UNIX, socket.SOCK_STREAM),
        "a pair of datagram sockets": sockets(socket.AF_UNIX, socket.SOCK_DGRAM),
        "a pair of packet sockets": sockets(socket.AF_UNIX, socket.SOCK_SEQPACKET),
        "an unconnected socket": unconnected(socket.AF_UNIX, socket.SOCK_STREAM),
        "an internet socket": unconnected(socket.AF_INET, socket.SOCK_STREAM),
        "a listening socket": unconnected(socket.AF_INET, socket.SOCK_STREAM, listens=True),
        "a terminal": os.openpty,
        "the other end of a terminal": lambda: os.openpty()[::-1],
        "an event counter": call("eventfd", 0, 0),
        "a timer": call("timerfd_create", 1, 0),
        "signals": call("signalfd", -1, ctypes.byref(mask), 0),
        "a watch on files": call("inotify_init1", 0),
        "a set of descriptors": call("epoll_create1", 0),
        "memory": lambda: (os.memfd_create("memory"),),
        "a process": lambda: (os.pidfd_open(os.getpid()),),
    }
