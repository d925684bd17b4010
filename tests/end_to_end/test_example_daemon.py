"""The example daemon and the example front end in C++, with the real tool between them."""

import fcntl
import os
import select
import signal
import subprocess
import unittest

from support import sandbox, standins, tool
from support.case import ToolTestCase

EXAMPLES = os.environ.get("ZKA_EXAMPLES")
FRONT_END_DIRECTORY = sandbox.RUN_DIRECTORY + "/frontEnd"


@unittest.skipIf(EXAMPLES is None, "the examples in C++ have not been built")
class ExampleDaemon(ToolTestCase):
    def setUp(self):
        super().setUp()
        os.mkdir(FRONT_END_DIRECTORY)

    def start_example(self, name):
        program = sandbox.add_program(os.path.join(EXAMPLES, name), sandbox.TOOL_DIRECTORY + "/" + name)
        process = sandbox.start([program], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.addCleanup(self._end, process)
        return process

    def start_daemon_example(self):
        daemon = self.start_example("daemon")
        return daemon, self.next_line(daemon)

    def next_line(self, process):
        self.assertTrue(select.select([process.stdout], [], [], tool.PATIENCE)[0], "no line came")
        return process.stdout.readline().decode().rstrip("\n")

    def end(self, process):
        _, errors = process.communicate(timeout=tool.PATIENCE)
        return process.returncode, [line.message for line in tool.log_lines(errors)]

    def test_it_starts_with_the_defaults_and_writes_its_pid_file(self):
        daemon, line = self.start_daemon_example()
        self.assertEqual(line, "active=false timeout=30")
        with open(standins.FILED_PID_FILE, encoding="ascii") as file:
            self.assertEqual(file.read(), f"{daemon.pid}\n")
        self.assertEqual(sorted(os.listdir(sandbox.RUN_DIRECTORY)), ["FileD.pid", "frontEnd"])

    def test_it_reads_its_settings_again_when_the_tool_has_changed_them(self):
        tool.write_config(b"[MacOSWardex]\nIsActive = No\n")
        daemon, line = self.start_daemon_example()
        self.assertEqual(line, "active=false timeout=30")
        self.assert_succeeds(tool.change({"MacOSWardex": {"IsActive": "Yes", "FileTimeout": 60}}))
        self.assertEqual(self.next_line(daemon), "active=true timeout=60")

    def test_the_end_of_an_installation_makes_it_read_once_more_and_end(self):
        daemon, _ = self.start_daemon_example()
        self.assertEqual(tool.run().status, 1)
        self.assertEqual(self.next_line(daemon), "active=true timeout=30")
        self.assertEqual(self.end(daemon), (0, []))
        self.assertFalse(os.path.exists(standins.FILED_PID_FILE))

    def test_it_waits_for_a_change_that_is_being_made(self):
        tool.write_config(b"[MacOSWardex]\nIsActive = Yes\n")
        daemon, _ = self.start_daemon_example()
        with open(tool.CONFIG, "rb+") as file:
            fcntl.flock(file, fcntl.LOCK_EX)
            file.truncate(0)
            daemon.send_signal(signal.SIGHUP)
            tool.wait_until(lambda: tool.waits_for_lock(daemon.pid), "the daemon waits for the lock", daemon)
            file.write(b"[MacOSWardex]\nIsActive = Yes\nFileTimeout = 5\n")
        self.assertEqual(self.next_line(daemon), "active=true timeout=5")

    def test_it_keeps_its_settings_when_the_file_cannot_be_understood(self):
        daemon, _ = self.start_daemon_example()
        tool.write_config(b"]\n")
        daemon.send_signal(signal.SIGHUP)
        daemon.send_signal(signal.SIGTERM)
        self.assertEqual(self.end(daemon), (0, ["settings not read: unexpected token"]))

    def test_a_registered_front_end_is_notified_of_a_change(self):
        daemon, _ = self.start_daemon_example()
        front_end = self.start_example("front_end")
        self.assertEqual(self.next_line(front_end), "registered")
        for active in ("Yes", "No"):
            self.assert_succeeds(tool.change({"MacOSWardex": {"IsActive": active}}))
            self.next_line(daemon)
            self.assertEqual(self.next_line(front_end), "settings have changed")

    def test_a_front_end_that_ends_leaves_no_registration(self):
        front_end = self.start_example("front_end")
        self.next_line(front_end)
        self.assertEqual(os.listdir(FRONT_END_DIRECTORY), [f"agent.{front_end.pid}"])
        front_end.send_signal(signal.SIGTERM)
        self.assertEqual(self.end(front_end), (0, []))
        self.assertEqual(os.listdir(FRONT_END_DIRECTORY), [])

    def test_the_registration_of_a_front_end_that_was_killed_is_removed(self):
        daemon, _ = self.start_daemon_example()
        front_end = self.start_example("front_end")
        self.next_line(front_end)
        front_end.kill()
        front_end.wait()
        daemon.send_signal(signal.SIGHUP)
        daemon.send_signal(signal.SIGTERM)
        status, log = self.end(daemon)
        self.assertEqual((status, len(log)), (0, 1))
        self.assertEqual(os.listdir(FRONT_END_DIRECTORY), [])
