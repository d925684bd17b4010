"""How the tool finds a process through its pid file, and what it says when it cannot signal it."""

import os

from support import sandbox, standins, tool
from support.case import ToolTestCase

FAILED = f"Can't signal 1 to {standins.FILED_PID_FILE}"
SETTINGS = {"MacOSWardex": {"IsActive": "Yes"}}


class PidFiles(ToolTestCase):
    def signals_through(self, text):
        """The signals that a daemon gets whose pid file holds the text, its pid in place of PID, and the log."""
        daemon = self.start_daemon(None)
        with open(standins.FILED_PID_FILE, "wb") as file:
            file.write(text.replace(b"PID", str(daemon.pid).encode()))
        result = tool.change(SETTINGS)
        self.assert_succeeds(result)
        return daemon.signals(), result.log[2:]

    def test_a_pid_is_read_as_far_as_its_digits_go(self):
        for text in (
            b"PID",
            b"PID\n",
            b"  PID\n",
            b"\t\r\n PID \n",
            b"+PID",
            b"0000PID",
            b"PIDabc",
            b"PID 1",
            b"PID.9",
            b"PID\nsecond line\n" * 2,
            b"PID\n" + b"x" * 100000,
            b" " * 100000 + b"PID",
            b"0" * 100000 + b"PID",
        ):
            with self.subTest(text=text[:40]):
                self.assertEqual(self.signals_through(text), ([1], []))

    def test_a_text_that_gives_no_process_above_0_is_logged_and_signals_nobody(self):
        for text in (
            b"",
            b"\n",
            b"0",
            b"-1",
            b"-PID",
            b"--PID",
            b"+-PID",
            b"abc",
            b"xPID",
            b"0xPID",
            b".PID",
            b"00",
            b"-0",
            b"-99999999999999999999",
        ):
            with self.subTest(text=text):
                self.assertEqual(self.signals_through(text), ([], [FAILED]))

    def test_a_text_that_is_not_ascii_counts_as_no_process(self):
        for text in (b"PID\n\xff", "PID é".encode(), b"\xef\xbb\xbfPID", b"\x80", b"PID\n" + b"x" * 100000 + b"\xe9"):
            with self.subTest(text=text[:20]):
                self.assertEqual(self.signals_through(text), ([], [FAILED]))

    def test_a_number_beyond_32_bits_is_clamped_and_never_wraps_round_to_a_process(self):
        daemon = self.start_daemon(None)
        for number in (daemon.pid + 2**32, daemon.pid + 2**64, daemon.pid - 2**32, 2**31, 2**63, 10**1000):
            with self.subTest(number=number):
                with open(standins.FILED_PID_FILE, "w", encoding="ascii") as file:
                    file.write(f"{number}\n" if number < 10**100 else "1" + "0" * 1000)
                result = tool.change(SETTINGS)
                self.assert_succeeds(result)
                self.assertEqual(result.log[2:], [FAILED])
        self.assertEqual(daemon.signals(), [])

    def test_a_process_that_has_ended_is_logged_and_its_pid_file_stays(self):
        text = f"{standins.exited_process()}\n"
        with open(standins.FILED_PID_FILE, "w", encoding="ascii") as file:
            file.write(text)
        result = tool.change(SETTINGS)
        self.assert_succeeds(result)
        self.assertEqual(result.log[2:], [FAILED])
        with open(standins.FILED_PID_FILE, encoding="ascii") as file:
            self.assertEqual(file.read(), text)

    def test_a_missing_pid_file_is_logged_and_costs_nothing_else(self):
        result = tool.change({**SETTINGS, "UpdateD": {"Mode": "x"}})
        self.assert_succeeds(result)
        self.assertEqual(result.log[2:], [FAILED, f"Can't signal 1 to {standins.UPDATED_PID_FILE}"])
        self.assert_config(b"[MacOSWardex]\nIsActive = Yes\n\n[UpdateD]\nMode = x\n\n")

    def test_a_missing_directory_of_pid_files_is_logged_and_costs_nothing_else(self):
        os.rmdir(sandbox.RUN_DIRECTORY)
        result = tool.change(SETTINGS)
        self.assert_succeeds(result)
        self.assertEqual(result.log[2:], [FAILED])

    def test_the_updater_is_told_even_when_the_file_monitor_is_gone(self):
        updated = self.start_updated()
        result = tool.change({**SETTINGS, "UpdateD": {"Mode": "x"}})
        self.assertEqual(result.log[2:], [FAILED])
        self.assertEqual(updated.signals(), [1])

    def test_a_pid_file_that_is_no_regular_file_counts_as_unreadable_and_nothing_hangs(self):
        for name, obstruct in (
            ("directory", os.mkdir),
            ("fifo", os.mkfifo),
            ("endless device", lambda path: os.symlink("/dev/zero", path)),
            ("empty device", lambda path: os.symlink("/dev/null", path)),
            ("terminal", lambda path: os.symlink("/dev/tty", path)),
            ("link to nothing", lambda path: os.symlink("gone", path)),
            ("link to itself", lambda path: os.symlink(str(path), path)),
        ):
            with self.subTest(name):
                sandbox.clear()
                obstruct(standins.FILED_PID_FILE)
                result = tool.change(SETTINGS)
                self.assert_succeeds(result)
                self.assertEqual(result.log[2:], [FAILED])
                self.assertTrue(os.path.lexists(standins.FILED_PID_FILE))

    def test_a_link_to_a_pid_file_is_followed(self):
        daemon = self.start_daemon(sandbox.SCRATCH_DIRECTORY + "/pid")
        os.symlink(f"{sandbox.SCRATCH_DIRECTORY}/pid", standins.FILED_PID_FILE)
        self.assert_succeeds(tool.change(SETTINGS))
        self.assertEqual(daemon.signals(), [1])

    def test_a_pid_file_of_many_megabytes_is_read_all_the_same(self):
        self.assertEqual(self.signals_through(b"PID\n" + b"x" * (32 << 20)), ([1], []))

    def test_registrations_of_front_ends_are_left_alone(self):
        directory = sandbox.RUN_DIRECTORY + "/frontEnd"
        os.mkdir(directory)
        front_end = self.start_daemon(directory + "/agent.pid")
        with open(directory + "/cc.stale", "w", encoding="ascii") as file:
            file.write("0\n")
        self.assert_succeeds(tool.change({**SETTINGS, "UpdateD": {"Mode": "x"}}))
        tool.run()
        self.assertEqual(front_end.signals(), [])
        self.assertEqual(sorted(os.listdir(directory)), ["agent.pid", "cc.stale"])
