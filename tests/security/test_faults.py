"""Every system call fails once, in every way it can: the file is the old one, the new one or a beginning of the new one.

For each kind of call the n-th one fails, n = 1, 2, ... until a run has none left to fail. The trace of each run tells
whether the file had been cut by then, and with it what the file may hold.
"""

import itertools
import os
import re

import hostile
from support import ini_model, sandbox, standins, tool, tracing
from support.case import ToolTestCase

TRACE = sandbox.SCRATCH_DIRECTORY + "/trace"
OLD = b"; written by hand\n[MacOSWardex]\nIsActive=No\n\n[UpdateD]\nMode=Auto\nInterval=43200\n\n"
SETTINGS = {"MacOSWardex": {"IsActive": "Yes"}, "UpdateD": {"Mode": "Manual"}, "New": {"k": ["a", "b c", 3]}}
NEW, _, _ = ini_model.change(OLD, SETTINGS)
REQUEST = tool.encode(tool.request(SETTINGS))

# Calls that a signal may interrupt, and that have to be made again then.
INTERRUPTIBLE = ("openat", "read", "write", "flock", "fstat", "newfstatat", "ftruncate", "fsync", "fchown", "fchmod")
OTHERS = (
    "lseek", "close", "kill", "rt_sigprocmask", "rt_sigaction", "setreuid", "setregid", "prlimit64", "setitimer",
    "fcntl", "prctl", "setpriority", "sched_setscheduler", "ioprio_set",
)  # fmt: skip
# With a wrong answer to these, root's own tool hides its descriptors from a tracer that has no special right to see them.
if hostile.may_trace_set_user_id():
    OTHERS += ("getuid", "geteuid")
STORAGE_ERRORS = ("ENOSPC", "EIO", "EDQUOT")
ERRORS = {"read": ("EIO",), "write": STORAGE_ERRORS, "ftruncate": STORAGE_ERRORS, "fsync": STORAGE_ERRORS}
ERRORS |= {"openat": ("EIO", "ENOSPC", "EMFILE", "EACCES"), "flock": ("EIO", "ENOLCK"), "close": ("EIO", "ENOSPC")}
ALSO_WITHOUT_EFFECT = ("write",)  # a count of 0

# Never more than this of one kind in one run: this limit reports a loop without an end.
LIMIT = 200


class Run:
    """One run of the tool with a fault in it, and what came of it."""

    def __init__(self, case, call, fault, number, user):
        self._case = case
        filed, updated = case.start_filed(), case.start_updated()
        command = hostile.caller_command(tool.TOOL, "pipe", user=user)
        self.result, self.lines = hostile.traced(
            command, TRACE, ["trace=all", f"inject={call}:{fault}:when={number}"], REQUEST
        )
        self.signals = filed.signals(), updated.signals()
        self.file = tool.read_config()
        self.fault_line = self._first(lambda line: "(INJECTED)" in line)
        self.cut_line = self._first(lambda line: re.match(r"ftruncate\(\d+<.*zekara32\.ini>", line) and line.endswith("= 0"))
        self.written_line = self._first(lambda line: re.match(r"write\(\d+<.*zekara32\.ini>", line) and " = -1" not in line)

    @property
    def has_fault(self):
        return self.fault_line is not None

    @property
    def was_cut(self):
        return self.cut_line is not None

    @property
    def replies(self):
        try:
            return self.result.replies
        except (AssertionError, ValueError):
            return []  # a reply that could not be written whole

    @property
    def succeeded(self):
        return len(self.replies) == 1 and "err" not in self.replies[0]

    @property
    def failed(self):
        return len(self.replies) == 1 and "err" in self.replies[0]

    def _first(self, matches):
        return next((number for number, line in enumerate(self.lines) if matches(line)), None)


@tracing.requires_strace
class Faults(ToolTestCase):
    USERS = hostile.scaled(hostile.TRACED_USERS[:1], hostile.TRACED_USERS)

    def setUp(self):
        super().setUp()
        self.runs = 0

    def campaign(self, call, fault, check):
        """Makes the n-th call fail, n = 1, 2, ..., and looks at each outcome; there must be at least one."""
        for user in self.USERS:
            for number in itertools.count(1):
                self.assertLess(number, LIMIT, f"{call} does not come to an end")
                tool.write_config(OLD)
                os.chmod(tool.CONFIG, 0o444)
                run = Run(self, call, fault, number, user)
                if not run.has_fault:
                    break
                self.runs += 1
                with self.subTest(call=call, fault=fault, number=number, user=user, line=run.lines[run.fault_line]):
                    self.check_state(run)
                    check(run)

    def check_state(self, run):
        """What holds whatever the fault was."""
        if run.was_cut:
            self.assertTrue(NEW.startswith(run.file), run.file)
        else:
            self.assertEqual(run.file, OLD)
        if run.succeeded:
            self.assertEqual(run.file, NEW)
            # The tool logs a daemon that it cannot signal, and signals the other one all the same.
            untold = [signals for signals in run.signals if signals != [1]]
            self.assertIn(untold, ([], [[]]), run.signals)
            self.assertEqual(run.result.errors.count(b"Can't signal 1 to "), len(untold))
        if run.failed:
            self.assertEqual(run.signals, ([], []))
        if run.failed and run.fault_line < (run.cut_line if run.was_cut else len(run.lines)):
            self.assertFalse(run.was_cut, "a failure from before the cut is told, and the file was cut all the same")
            self.assertEqual(run.file, OLD)
        if run.written_line is not None and run.fault_line > run.written_line:
            self.assertEqual(run.file, NEW)
        self.assertFalse(hostile.is_locked())
        self.assertIn(run.result.status, (0, 2), run.result.errors)
        self.assertEqual(hostile.attributes(tool.CONFIG), (0, 0, 0o444))

    def test_without_a_fault_nothing_stands_between_the_cut_and_the_write_and_between_that_and_the_flush(self):
        large = OLD + b"[Large]\n" + b"".join(b"key%d = %d\n" % (n, n) for n in range(20_000)) + b"\n"
        for content in (OLD, large):
            for request in (REQUEST, tool.encode(tool.request({"A": {"k": "x" * 200_000}}))):
                tool.write_config(content)
                command = hostile.caller_command(tool.TOOL, "pipe", user=self.USERS[0])
                result, lines = hostile.traced(command, TRACE, ["trace=all"], request)
                self.assert_succeeds(result)
                calls = [line.partition("(")[0] for line in lines]
                cut = calls.index("ftruncate")
                self.assertEqual(calls[cut : cut + 4], ["ftruncate", "write", "fsync", "close"], lines[cut : cut + 4])
                self.assertTrue(all("zekara32.ini" in line for line in lines[cut : cut + 4]))

    def test_an_interrupted_call_changes_no_outcome(self):
        def check(run):
            self.assertTrue(run.succeeded, run.result.errors)
            self.assertEqual(run.result.status, 0)
            self.assertEqual(run.signals, ([1], [1]))

        for call in INTERRUPTIBLE:
            self.campaign(call, "error=EINTR", check)
        self.assertGreater(self.runs, 20)

    def test_a_call_that_is_not_ready_is_waited_for_on_the_standard_streams(self):
        def check(run):
            if not re.match(r"(read|write)\([012]<", run.lines[run.fault_line]):
                return
            self.assertTrue(run.succeeded, run.result.errors)

        for call in ("read", "write"):
            self.campaign(call, "error=EAGAIN", check)
        self.assertGreater(self.runs, 5)

    def test_storage_errors_leave_what_the_state_of_the_file_allows(self):
        for call, errors in ERRORS.items():
            for error in hostile.scaled(errors[:2], errors):
                self.campaign(call, f"error={error}", lambda run: None)
        for call in ALSO_WITHOUT_EFFECT:
            self.campaign(call, "retval=0", lambda run: None)
        self.assertGreater(self.runs, 40 if self.USERS[0] else 35)

    def test_a_failure_to_write_the_file_is_told_in_the_reply(self):
        def check(run):
            line = run.lines[run.fault_line]
            if "zekara32.ini" in line and not line.startswith(("close", "fstat", "newfstatat", "lseek")):
                self.assertTrue(run.failed, line)

        for call in ("read", "flock", "ftruncate", "write", "fsync"):
            self.campaign(call, "error=EIO", check)

    def test_any_other_refusal_of_the_system_leaves_what_the_state_of_the_file_allows(self):
        for call in OTHERS:
            for error in hostile.scaled(("EPERM",), ("EPERM", "EINTR", "EAGAIN", "ENOSYS")):
                self.campaign(call, f"error={error}", lambda run: None)
        for call in ("fstat", "newfstatat"):
            self.campaign(call, "error=EIO", lambda run: None)
        self.assertGreater(self.runs, 20)

    def test_memory_that_the_system_refuses_leaves_what_the_state_of_the_file_allows(self):
        self.campaign("mmap", "error=ENOMEM", lambda run: None)

    @hostile.requires_tracing
    @sandbox.requires_mounts
    def test_a_fault_in_the_repair_of_the_tool_leaves_nothing_of_the_callers_changed(self):
        copy = sandbox.SCRATCH_DIRECTORY + "/Zekara4MacTool"
        his = hostile.own_file(sandbox.SCRATCH_DIRECTORY + "/his")
        for call in ("openat", "fstat", "newfstatat", "fchown", "fchmod", "setreuid", "setregid", "rt_sigprocmask"):
            for error in ("EINTR", "EPERM", "EIO"):
                for number in itertools.count(1):
                    self.assertLess(number, LIMIT)
                    tool.copy_tool(copy, mode=0o4711)
                    expressions = ["trace=all", f"inject={call}:error={error}:when={number}"]
                    result, lines = hostile.traced(hostile.caller_command(copy, "pipe"), TRACE, expressions, b"")
                    if not any("(INJECTED)" in line for line in lines):
                        break
                    with self.subTest(call=call, error=error, number=number):
                        # If the change of mode is refused after that of the owner, the bit is gone, and the tool reports the failure.
                        allowed = [(0, 0, 0o4711), (0, 0, 0o4755)]
                        if call == "fchmod":
                            allowed.append((0, 0, 0o711))
                        self.assertIn(hostile.attributes(copy), allowed)
                        if error == "EINTR" and call in INTERRUPTIBLE:
                            self.assertEqual(hostile.attributes(copy), (0, 0, 0o4755))
                            self.assertEqual(result.status, 0)
        self.assertEqual(hostile.attributes(his), (hostile.USER, hostile.GROUP, 0o755))


@tracing.requires_strace
class FaultsWithAnotherFile(ToolTestCase):
    """The same for a file that is not there, and for one that cannot be read."""

    def campaign(self, content, calls, allowed):
        for call in calls:
            for number in itertools.count(1):
                self.assertLess(number, LIMIT)
                sandbox.clear()
                if content is not None:
                    tool.write_config(content)
                expressions = ["trace=all", f"inject={call}:error=EIO:when={number}"]
                command = hostile.caller_command(tool.TOOL, "pipe", user=hostile.TRACED_USERS[0])
                _, lines = hostile.traced(command, TRACE, expressions, REQUEST)
                if not any("(INJECTED)" in line for line in lines):
                    break
                with self.subTest(call=call, number=number):
                    self.assertTrue(allowed(tool.read_config()), tool.read_config())

    CALLS = ("openat", "flock", "fstat", "newfstatat", "read", "lseek", "ftruncate", "write", "fsync", "close")

    def test_a_missing_file_is_missing_or_holds_a_beginning_of_the_new_text(self):
        new, _, _ = ini_model.change(b"", SETTINGS)
        self.campaign(None, self.CALLS, lambda file: file is None or new.startswith(file))

    def test_a_file_with_a_syntax_error_is_never_changed(self):
        broken = b"[A]\nk\n\n"
        self.campaign(broken, hostile.scaled(self.CALLS[::3], self.CALLS), lambda file: file == broken)


@hostile.requires_short_counts
class ShortCounts(ToolTestCase):
    """Every read or write moves a few bytes only: the outcome is the same."""

    COUNTS = hostile.scaled((1, 7, 64), (1, 2, 3, 5, 7, 13, 64, 100, 1000))

    def test_short_reads_and_writes_change_no_outcome(self):
        large = OLD + b"[Large]\n" + b"".join(b"key%d = value%d\n" % (n, n) for n in range(300)) + b"\n"
        for content in (OLD, large):
            new, _, _ = ini_model.change(content, SETTINGS)
            for call in ("read", "write"):
                for count in self.COUNTS:
                    with self.subTest(call=call, count=count, size=len(content)):
                        sandbox.clear()
                        tool.write_config(content)
                        filed, updated = self.start_filed(), self.start_updated()
                        result = self._run(call, count)
                        self.assert_succeeds(result)
                        self.assert_config(new)
                        self.assertEqual((filed.signals(), updated.signals()), ([1], [1]))

    def _run(self, call, count):
        user = str(hostile.TRACED_USERS[0])
        arguments = (call, str(count), user, user, tool.TOOL, tool.TOOL, "pipe")
        return tool.run(*arguments, name=hostile.SHORT_COUNTS, data=REQUEST)
