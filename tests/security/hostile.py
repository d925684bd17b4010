"""What the security tests share: a caller without rights, the lock, and the size of a campaign."""

import contextlib
import ctypes
import fcntl
import os
import signal
import stat
import subprocess
import time
import unittest

from support import sandbox, tool, tracing

USER = 1042
GROUP = 1042
OTHER_USER = 1043
# The full campaign, or as much of it as a build can wait for.
IS_CAMPAIGN = os.environ.get("ZKA_CAMPAIGN", "") not in ("", "0")

CALLER = None
SHORT_COUNTS = None
_helpers = ""

_PR_CAPBSET_DROP = 24
_CAP_SYS_PTRACE = 19
_CAP_SYS_NICE = 23
_CAP_SYS_RESOURCE = 24
_SYS_IOPRIO_SET, _SYS_IOPRIO_GET = (251, 252) if os.uname().machine == "x86_64" else (30, 31)
_IOPRIO_WHO_PROCESS = 1
_IOPRIO_CLASS_IDLE = 3
_libc = ctypes.CDLL(None, use_errno=True)


def use_helpers(directory):
    """Takes the helper programs from this directory; those that are not there stay None."""
    global CALLER, SHORT_COUNTS, _helpers
    _helpers = directory
    CALLER, SHORT_COUNTS = (
        os.path.realpath(path) if os.access(path, os.X_OK) else None
        for path in (os.path.join(directory, name) for name in ("SecurityCaller", "SecurityShortCounts"))
    )


def install_helpers():
    """Puts the helper that starts programs itself into the private root."""
    global SHORT_COUNTS
    if SHORT_COUNTS is not None:
        SHORT_COUNTS = sandbox.add_program(SHORT_COUNTS, sandbox.TOOL_DIRECTORY + "/SecurityShortCounts")


def example(name):
    """The path of an example program in C++; None where it has not been built."""
    path = os.path.join(_helpers, "..", "..", "examples", name)
    return os.path.realpath(path) if os.access(path, os.X_OK) else None


def why_not_here():
    """Why a set-user-id program cannot be tested here; None where it can."""
    with open("/proc/self/status", encoding="ascii") as status:
        if any(line.split() == ["NoNewPrivs:", "1"] for line in status):
            return "set-user-id programs have no effect here: the no-new-privileges flag is set"
    if sandbox.in_user_namespace():
        return "this needs root: a user namespace has one account only"
    if os.readlink("/proc/self") != str(os.getpid()):
        # The tests send signals to what they find there.
        raise RuntimeError("/proc shows the processes of another namespace")
    if CALLER is None:
        return "the helper program SecurityCaller has not been built"
    return None


def has_capability(number):
    """Returns true if the tests, and so root on this system, have the capability."""
    with open("/proc/self/status", encoding="ascii") as status:
        (effective,) = (line.split()[1] for line in status if line.startswith("CapEff:"))
    return bool(int(effective, 16) >> number & 1)


def requires_priority_rights(test):
    """Skips a test in which root raises a priority where root may not."""
    return unittest.skipUnless(has_capability(_CAP_SYS_NICE), "root lacks CAP_SYS_NICE here")(test)


def requires_tracing(test):
    """Skips a test, or a class of tests, that traces a set-user-ID program where that would cost the program its rights."""
    reason = "root lacks CAP_SYS_PTRACE here, without which a traced program gains no rights"
    return tracing.requires_strace(unittest.skipUnless(may_trace_set_user_id(), reason)(test))


def may_trace_set_user_id():
    """Returns true if a program that the tests trace can gain rights by its set-user-ID bit."""
    return has_capability(_CAP_SYS_PTRACE)


# The callers whose tool can be traced and keeps its rights, the usual one first.
TRACED_USERS = (USER, 0) if may_trace_set_user_id() else (0,)


def scaled(reduced, full):
    """The first in a build, the second in the campaign."""
    return full if IS_CAMPAIGN else reduced


def as_user(user=USER):
    """Popen's options that start a program as an account without rights."""
    return {"user": user, "group": user, "extra_groups": []}


def become(user=USER):
    """Turns this process, a child, into one of that account."""
    os.setgroups([])
    os.setresgid(user, user, user)
    os.setresuid(user, user, user)


def become_without_resource_rights(user=USER):
    """The same; not even a set-user-id program will be able to raise a hard limit."""
    if _libc.prctl(_PR_CAPBSET_DROP, _CAP_SYS_RESOURCE, 0, 0, 0) != 0:
        raise OSError(ctypes.get_errno(), "PR_CAPBSET_DROP")
    become(user)


def become_idle_for_files():
    """Lets this process, a child, wait for every other process that uses a disk."""
    if _libc.syscall(_SYS_IOPRIO_SET, _IOPRIO_WHO_PROCESS, 0, _IOPRIO_CLASS_IDLE << 13) != 0:
        raise OSError(ctypes.get_errno(), "ioprio_set")


def is_idle_for_files(process):
    return _libc.syscall(_SYS_IOPRIO_GET, _IOPRIO_WHO_PROCESS, process) >> 13 == _IOPRIO_CLASS_IDLE


def caller_command(name=tool.TOOL, *arguments, user=USER, program=None, options=()):
    """The command line that starts the tool through the helper, as an account without rights."""
    place = sandbox.caller_options()
    return [CALLER, str(user), str(user), *place, *options, str(program or name), str(name), *arguments]


def start_measured():
    """Starts the tool as a user; returns the process and a function that gives its peak memory in bytes once it has ended.

    Goes through the helper: if it were started from here, the memory that this process holds would count.
    """
    reader, writer = os.pipe()
    process = subprocess.Popen(
        caller_command(tool.TOOL, "pipe", options=["--measure"]),
        stdin=subprocess.PIPE,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        preexec_fn=lambda: os.dup2(writer, 9),
        close_fds=False,
    )
    os.close(writer)

    def memory():
        with os.fdopen(reader, "rb") as report:
            return int(report.read()) * 1024

    return process, memory


def attributes(path):
    status = os.stat(path)
    return status.st_uid, status.st_gid, stat.S_IMODE(status.st_mode)


def wait_until(condition, what):
    """Waits for a condition; gives up, with an error, long after it should have come true."""
    deadline = time.monotonic() + tool.PATIENCE
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError(f"waited in vain until {what}")
        time.sleep(0.001)


def own_file(path, content=b"#!/bin/sh\n", user=USER, mode=0o755):
    """Makes a file that belongs to the caller."""
    with open(path, "wb") as file:
        file.write(content)
    os.chown(path, user, user)
    os.chmod(path, mode)
    return path


def own_directory(path, user=USER):
    os.mkdir(path)
    os.chown(path, user, user)
    return path


def refused(path):
    """What is logged where the path does not name the tool."""
    return [f"Can't change owner on {path}", "Terminated with error"]


@contextlib.contextmanager
def locked(kind=fcntl.LOCK_EX):
    with open(tool.CONFIG, "rb+") as file:
        fcntl.flock(file, kind)
        yield file


def is_locked():
    """Returns true if any process holds a lock on the configuration file."""
    with open(tool.CONFIG, "rb") as file:
        try:
            fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            return True
        return False


def signal_as_user(pid, number, user=USER):
    """Sends a signal as that account would; returns whether it was allowed."""
    child = os.fork()
    if child == 0:
        status = 2
        try:
            become(user)
            os.kill(pid, number)
            status = 0
        except PermissionError:
            status = 1
        except ProcessLookupError:
            status = 3
        finally:
            os._exit(status)
    status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
    if status not in (0, 1, 3):
        raise AssertionError(f"the signal could not be sent: {status}")
    return status == 0


class HeldBack:
    """The tool, held back by a tracer of root's at its first such call that concerns the path, until let_go() is called.

    The caller is an account without rights. `process` is the tracer, with the tool's standard streams.
    """

    def __init__(self, call, path=None, name=tool.TOOL, options=(), **popen):
        command = [*tracing.hold(call, path), *caller_command(name, "pipe", options=options)]
        for stream in ("stdin", "stdout", "stderr"):
            popen.setdefault(stream, subprocess.PIPE)
        self._name = name
        # In a session of its own: what a terminal sends its foreground processes is not for the tracer.
        self.process = subprocess.Popen(command, start_new_session=True, **popen)

    @property
    def pid(self):
        return child_of(self.process.pid, self._name)

    def let_go(self):
        """Kills the tracer: the system lets the tool go, which makes the call and goes on untraced."""
        self.process.kill()

    def finish(self):
        """Lets the tool go and returns its Result; the status in it is the tracer's."""
        self.let_go()
        return tool.finish(self.process)


class Pestering:
    """Sends a process the same signal over and over, as that account; begins at once, or `after` so many seconds."""

    def __init__(self, pid, number, after=0.0, user=USER):
        self._child = os.fork()
        if self._child == 0:
            try:
                os.closerange(3, 1024)  # the lock may be among them
                become(user)
                time.sleep(after)
                while True:
                    with contextlib.suppress(PermissionError, ProcessLookupError):
                        os.kill(pid, number)
            finally:
                os._exit(1)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        os.kill(self._child, signal.SIGKILL)
        os.waitpid(self._child, 0)


def child_of(pid, program=tool.TOOL):
    """The process id of the only child of that process, which must be running the program."""
    with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as children:
        (child,) = children.read().split()
    if os.readlink(f"/proc/{child}/exe") != os.fspath(program):
        raise AssertionError(f"the child of {pid} is not {program}")
    return int(child)


process_state = tool.state


def is_pending(pid, number):
    """Returns true if the signal has been sent to the process and is blocked there."""
    with open(f"/proc/{pid}/status", encoding="ascii") as status:
        masks = [int(line.split()[1], 16) for line in status if line.startswith(("SigPnd:", "ShdPnd:"))]
    return any(mask >> (number - 1) & 1 for mask in masks)


def requires_short_counts(test):
    """Skips a test where the helper program for short counts cannot be built."""
    return unittest.skipIf(SHORT_COUNTS is None, "the helper program SecurityShortCounts has not been built")(test)


def traced(command, trace_file, expressions, data, options=(), **popen):
    """Runs a command under strace; returns the Result and the lines of the trace."""
    arguments = ["strace", "-y", "-s", "64", "-e", "signal=none", "-o", trace_file, *options]
    for expression in expressions:
        arguments += ["-e", expression]
    process = subprocess.Popen(
        [*arguments, *command], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **popen
    )
    result = tool.finish(process, data)
    with open(trace_file, encoding="utf-8", errors="surrogateescape") as file:
        return result, file.read().splitlines()
