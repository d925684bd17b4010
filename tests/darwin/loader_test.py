#!/usr/bin/python3
"""Tests the loader on a macOS program made for that: loader_test.py DIRECTORY PROCESSOR [unittest's arguments]

DIRECTORY/PROCESSOR/LoaderProbe is LoaderProbe.cpp, built for macOS and made a program of this machine.
"""

import os
import resource
import signal
import subprocess
import sys
import unittest

PROBE = ""


def run(*arguments, **options):
    return subprocess.run([PROBE, *arguments], capture_output=True, text=True, check=False, timeout=300, **options)


class Loader(unittest.TestCase):
    def assert_prints(self, expected, result, status=0):
        self.assertEqual((result.stdout.splitlines(), result.stderr, result.returncode), (expected, "", status))

    def assert_dies(self, message, result):
        self.assertEqual((result.stdout, result.stderr, result.returncode), ("", f"macho-loader: {message}\n", 125))

    def test_exceptions_cross_frames_and_restore_registers(self):
        self.assert_prints(
            ["registers 543213", "destroyed 21", "doubles 321.0", "large frame 7", "again xxxx"], run("exceptions")
        )

    def test_an_exception_that_nothing_catches_aborts(self):
        result = run("uncaught")
        self.assertEqual(result.returncode, -signal.SIGABRT)
        self.assertIn("xxxxx", result.stderr)

    def test_thread_locals_have_their_values_and_are_destroyed_before_exit_handlers_run(self):
        self.assert_prints(
            ["7 0 0", "8 9 a thread-local object", "destroyed a thread-local object", "atexit"], run("thread-locals"), status=3
        )

    def test_static_objects_are_initialised_before_main_and_destroyed_after_it(self):
        self.assert_prints(["initialised 42 43", "destroyed a static object"], run("initialisers"))

    def test_arguments_name_and_environment_arrive(self):
        result = run("arguments", "a b", "", "c", env={"LOADER_PROBE": "here"})
        self.assert_prints(["<a b><><c> LoaderProbe here"], result)

    def test_variable_arguments_are_read_as_they_were_passed(self):
        self.assert_prints(["36 1 two 3.25 4 5497558138880 6 7 8 9.5"], run("variadic"))

    def test_imports_and_code_are_read_only_once_they_are_fixed_up(self):
        for case in ("write-import", "write-code"):
            with self.subTest(case):
                self.assertEqual(run(case).returncode, -signal.SIGSEGV)

    def test_the_stack_has_the_size_that_the_program_demands_whatever_the_limit_is(self):
        def limit():
            resource.setrlimit(resource.RLIMIT_STACK, (1 << 20, 1 << 20))

        self.assert_prints(["0"], run("stack", preexec_fn=limit))

    def test_threads_exclude_each_other_and_have_thread_locals_of_their_own(self):
        lines = ["counted 20000", "woken", "7 a thread-local object", "destroyed a thread-local object", "caught xxxxxx beside 1"]
        self.assert_prints(lines, run("threads"))

    def test_a_value_without_counterpart_ends_the_program(self):
        for case, message in [
            ("unknown-open-flag", "open flags 0x8000 have no counterpart"),
            ("unknown-at-flag", "at flags 0x800 have no counterpart"),
            ("unknown-command", "fcntl command 50 has no counterpart"),
            ("unknown-signal", "signal 29 has no counterpart"),
            ("unknown-resource", "resource 77 has no counterpart"),
        ]:
            with self.subTest(case):
                self.assert_dies(message, run(case))

    def test_a_call_without_stand_in_ends_the_program(self):
        self.assert_dies("nothing stands in for _arc4random", run("missing-function"))


if __name__ == "__main__":
    PROBE = os.path.join(sys.argv[1], sys.argv[2], "LoaderProbe")
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
