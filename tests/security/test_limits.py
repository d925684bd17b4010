"""Resource limits of the caller, one by one: the change is made, or refused with the file untouched."""

import contextlib
import os
import resource
import signal
import subprocess

import hostile
from support import ini_model, sandbox, tool, tracing
from support.case import ToolTestCase

OLD = b"[A]\nk = old\n\n" + b"[B]\n" + b"".join(b"key%d = value\n" % number for number in range(200)) + b"\n"
SETTINGS = {"A": {"k": "new"}, "C": {f"key{number}": "x" * 50 for number in range(100)}}
NEW, _, _ = ini_model.change(OLD, SETTINGS)
REQUEST = tool.encode(tool.request(SETTINGS))
KILO, MEGA = 1 << 10, 1 << 20
UNLIMITED = resource.RLIM_INFINITY

LIMITS = {
    "FSIZE": (0, 1, 100, len(OLD), len(NEW) - 1, len(NEW)),
    "CPU": (0, 1),
    "AS": (0, 64 * KILO, MEGA, 2 * MEGA, 3 * MEGA, 4 * MEGA, 8 * MEGA, 64 * MEGA),
    "DATA": (0, 4 * KILO, 64 * KILO, 256 * KILO, MEGA, 4 * MEGA),
    "STACK": (0, *range(4 * KILO, 64 * KILO, hostile.scaled(4 * KILO, 512)), 64 * KILO, 128 * KILO, MEGA),
    "NOFILE": (0, 1, 2, 3, 4, 5, 6, 64),
    "NPROC": (0, 1, 2),
    "MEMLOCK": (0,),
    "SIGPENDING": (0,),
    "LOCKS": (0,),
    "RTTIME": (0, 1),
}
NUMBERS = {name: getattr(resource, f"RLIMIT_{name}", None) for name in LIMITS} | {"LOCKS": 10, "SIGPENDING": 11, "RTTIME": 15}
# Those that do not keep the system from starting a program, so that there is an outcome to expect.
NEVER_IN_THE_WAY = {"MEMLOCK", "SIGPENDING", "LOCKS", "RTTIME"}


class Limits(ToolTestCase):
    TOO_SMALL_STACK = 128 * KILO  # suffices for REQUEST, but not for every request

    def setUp(self):
        super().setUp()
        tool.write_config(OLD)

    def run_limited(self, limit, soft, hard, become, data=REQUEST):
        """Runs the tool under a limit; returns its Result, None where the system does not start it."""

        def hamper():
            become()
            resource.setrlimit(limit, (soft, hard))

        try:
            process = tool.start("pipe", preexec_fn=hamper)
        except (OSError, subprocess.SubprocessError):
            return None
        with contextlib.suppress(BrokenPipeError):
            return tool.finish(process, data)
        return None

    def assert_done_or_refused(self, result):
        """The change is made and the reply says so, or it is not made; and no lock is left."""
        after = tool.read_config()
        self.assertFalse(hostile.is_locked())
        if result is not None and result.output and result.error is None:
            self.assertEqual(after, NEW)
            return True
        if after == NEW:
            # The reply may be what the limit did not allow.
            self.assertIn(result.status, (0, 2), result.errors)
            return True
        self.assertEqual(after, OLD)
        return False

    def test_every_limit_ends_in_a_change_or_in_an_untouched_file(self):
        callers = {"a user": hostile.become, "a user, on a system that raises no limits": hostile.become_without_resource_rights}
        callers["root"] = lambda: None
        for who, become in callers.items():
            for name, values in LIMITS.items():
                for value in values:
                    for hard in (UNLIMITED, value):
                        with self.subTest(caller=who, limit=name, value=value, hard=hard):
                            tool.write_config(OLD)
                            allowed = resource.getrlimit(NUMBERS[name])[1]
                            if hard == UNLIMITED:
                                hard = allowed
                            if allowed != UNLIMITED and value > allowed:
                                continue
                            result = self.run_limited(NUMBERS[name], value, hard, become)
                            is_done = self.assert_done_or_refused(result)
                            if name in NEVER_IN_THE_WAY:
                                self.assertTrue(is_done, result and result.errors)

    def assert_raised(self, name, value):
        tool.write_config(OLD)
        hard = resource.getrlimit(NUMBERS[name])[1]
        result = self.run_limited(NUMBERS[name], value, hard, hostile.become_without_resource_rights)
        self.assert_succeeds(result)
        self.assert_config(NEW)

    def test_a_soft_limit_that_can_be_raised_never_keeps_a_change_from_being_made(self):
        for name, value in (("FSIZE", 0), ("NOFILE", 0), ("CPU", 1), ("STACK", 512 * KILO)):
            with self.subTest(limit=name):
                self.assert_raised(name, value)

    @tracing.requires_strace
    def test_a_stack_that_may_be_too_small_is_tried_before_the_file_is_opened(self):
        limited = ["sh", "-c", f'ulimit -s {self.TOO_SMALL_STACK // KILO} && exec "$@"', "sh"]
        refused = ["strace", "-o", "/dev/null", "-e", "trace=prlimit64", "-e", "inject=prlimit64:error=EPERM"]
        process = subprocess.Popen(
            [*limited, *refused, *sandbox.inside_command(tool.TOOL, "pipe")], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE
        )
        result = tool.finish(process, REQUEST)
        self.assertEqual((result.status, result.output), (-signal.SIGSEGV, b""))
        self.assert_config(OLD)

    def test_a_soft_limit_on_memory_that_can_be_raised_never_keeps_a_change_from_being_made(self):
        self.assert_raised("AS", 16 * MEGA)

    def test_a_file_size_limit_that_cannot_be_raised_is_told_before_the_file_is_cut(self):
        for value in (0, 1, len(OLD), len(NEW) - 1):
            with self.subTest(value=value):
                tool.write_config(OLD)
                result = self.run_limited(resource.RLIMIT_FSIZE, value, value, hostile.become_without_resource_rights)
                self.assertIsNotNone(result.error)
                self.assert_config(OLD)
        result = self.run_limited(resource.RLIMIT_FSIZE, len(NEW), len(NEW), hostile.become_without_resource_rights)
        self.assert_succeeds(result)
        self.assert_config(NEW)

    def test_a_cpu_limit_that_cannot_be_raised_and_could_end_the_writing_is_told_before_the_file_is_cut(self):
        for value, error in ((3, "too little CPU time is left to write the new text"), (1000, None)):
            with self.subTest(value=value):
                tool.write_config(OLD)
                result = self.run_limited(resource.RLIMIT_CPU, value, value, hostile.become_without_resource_rights)
                self.assertEqual((result.status, result.error), (0, error))
                self.assert_config(NEW if error is None else OLD)

    def test_a_log_beyond_the_file_size_limit_costs_the_log_only(self):
        log = sandbox.SCRATCH_DIRECTORY + "/log"
        with open(log, "wb") as file:
            file.write(b"x" * 5000)

        def hamper():
            hostile.become()
            signal.signal(signal.SIGXFSZ, signal.SIG_DFL)
            resource.setrlimit(resource.RLIMIT_FSIZE, (5000, resource.getrlimit(resource.RLIMIT_FSIZE)[1]))

        with open(log, "ab") as file:
            process = tool.start("pipe", stderr=file, preexec_fn=hamper)
            result = tool.finish(process, REQUEST)
        self.assertEqual(result.status, 0)
        self.assert_config(NEW)

    def test_memory_that_does_not_suffice_for_the_request_ends_the_tool_and_leaves_the_file(self):
        large = tool.encode(tool.request({"A": {"k": "x" * (24 * MEGA)}}))
        for limit in (resource.RLIMIT_AS, resource.RLIMIT_DATA):
            with self.subTest(limit=limit):
                tool.write_config(OLD)
                result = self.run_limited(limit, 20 * MEGA, 20 * MEGA, hostile.become, data=large)
                if result is not None:  # it may end before it has read everything
                    self.assertEqual((result.status, result.output), (2, b""))
                    self.assertEqual(result.log[-1], "Terminated with error")
                self.assert_config(OLD)

    def test_every_amount_of_memory_ends_in_a_change_or_in_an_untouched_file(self):
        done = 0
        for kilobytes in range(1600, 3600, hostile.scaled(100, 8)):
            with self.subTest(kilobytes=kilobytes):
                tool.write_config(OLD)
                bound = kilobytes * KILO
                result = self.run_limited(resource.RLIMIT_AS, bound, bound, hostile.become_without_resource_rights)
                done += self.assert_done_or_refused(result)
        self.assertGreater(done, 0)

    def test_a_limit_on_processes_is_not_in_the_way_of_one_that_is_started(self):
        def hamper():
            hostile.become()
            resource.setrlimit(resource.RLIMIT_NPROC, (1, 1))
            os.closerange(3, 100)

        process = tool.start("pipe", preexec_fn=hamper, close_fds=False)
        self.assert_succeeds(tool.finish(process, REQUEST))
        self.assert_config(NEW)
