"""The base of every end-to-end test: empty fixed paths before it, nothing left running after it."""

import unittest

from support import sandbox, standins, tool


class ToolTestCase(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        sandbox.clear()

    def start_daemon(self, pid_file, observe=None):
        """A stand-in daemon that ends with the test at the latest."""
        daemon = standins.StandInDaemon(pid_file, observe)
        self.addCleanup(daemon.stop)
        return daemon

    def start_filed(self, observe=None):
        return self.start_daemon(standins.FILED_PID_FILE, observe)

    def start_updated(self, observe=None):
        return self.start_daemon(standins.UPDATED_PID_FILE, observe)

    def start_tool(self, *arguments, **options):
        """A running tool that ends with the test at the latest."""
        process = tool.start(*arguments, **options)
        self.addCleanup(self._end, process)
        return process

    def assert_succeeds(self, result):
        """The run ended as a successful request does; a failure shows the error text and the log."""
        self.assertIsNone(result.error, result.log)
        self.assertEqual(result.status, 0)

    def assert_config(self, expected):
        self.assertEqual(tool.read_config(), expected)

    @staticmethod
    def _end(process):
        tool.kill(process)
        for stream in (process.stdin, process.stdout, process.stderr):
            if stream is not None:
                try:
                    stream.close()
                except BrokenPipeError:
                    pass


def requires_real_root(test):
    """Skips a test that needs other accounts than root where a user namespace has none."""
    return unittest.skipIf(sandbox.in_user_namespace(), "needs root: a user namespace has one account only")(test)


def requires_set_user_id(test):
    """Skips a test that starts a set-user-id program where those have no effect."""
    if sandbox.is_in_place():
        return test
    with open("/proc/self/status", encoding="ascii") as status:
        no_new_privileges = any(line.split() == ["NoNewPrivs:", "1"] for line in status)
    reason = "set-user-id programs have no effect here: the no-new-privileges flag is set"
    return unittest.skipIf(no_new_privileges, reason)(requires_real_root(test))


