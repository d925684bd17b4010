"""Starts zkaconfig as its users do and reads what it says."""

import json
import os
import plistlib
import subprocess

from support import sandbox, tool
from support.case import ToolTestCase

# The copy that the tests start.
PROGRAM = sandbox.TOOL_DIRECTORY + "/zkaconfig"
DONE, DIFFERS, USAGE, UNREADABLE, REFUSED, NO_ANSWER = range(6)
REPOSITORY = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))

CONTENT = b"""[MacOSWardex]
IsActive = No
ExcludedPaths = "/dev", "/Network"

[Other]
name = "a b"

[UpdateD]
Interval = 3600

"""


class Result:
    """How a run of zkaconfig ended and what it wrote."""

    def __init__(self, status, output, errors):
        self.status = status
        self.output = output.decode("utf-8")
        self.errors = errors.decode("utf-8", "surrogateescape")

    @property
    def json(self):
        return json.loads(self.output)

    @property
    def plist(self):
        return plistlib.loads(self.output.encode("utf-8"))


def run_in_terminal(*arguments, variables=None, **options):
    """Runs zkaconfig in a terminal that has colours, with these environment variables besides; returns what the terminal got."""
    master, slave = os.openpty()
    environment = {**os.environ, "NO_COLOR": "", "TERM": "xterm", **(variables or {})}
    command = [PROGRAM, f"--tool={tool.TOOL}", *arguments]
    with sandbox.start(command, stdin=slave, stdout=slave, stderr=slave, env=environment, **options) as process:
        os.close(slave)
        output = b""
        while True:
            try:
                block = os.read(master, 65536)
            except OSError:  # the program has ended
                break
            if not block:
                break
            output += block
        os.close(master)
        process.wait(timeout=tool.PATIENCE)
    return output.decode("utf-8").replace("\r\n", "\n")


def run(*arguments, data=b"", tool_path=tool.TOOL, **options):
    """Runs zkaconfig to its end with the tool under test."""
    command = [PROGRAM, *arguments]
    if tool_path is not None:
        command.insert(1, f"--tool={tool_path}")
    streams = dict.fromkeys(("stdin", "stdout", "stderr"), subprocess.PIPE)
    with sandbox.start(command, **streams, **options) as process:
        try:
            output, errors = process.communicate(data, timeout=4 * tool.PATIENCE)
        except subprocess.TimeoutExpired:
            process.kill()
            raise
    return Result(process.returncode, output, errors)


class FrontEndTestCase(ToolTestCase):
    def setUp(self):
        super().setUp()
        tool.write_config(CONTENT)

    def assert_status(self, result, status):
        self.assertEqual(result.status, status, (result.output, result.errors))

    def assert_done(self, *arguments, **options):
        """Runs zkaconfig, which must succeed without a remark; returns the Result."""
        result = run(*arguments, **options)
        self.assert_status(result, DONE)
        self.assertEqual(result.errors, "")
        return result

    def assert_fails(self, status, message, *arguments, **options):
        """Runs zkaconfig, which must fail with this status and message and leave the file as it is."""
        before = tool.read_config()
        result = run(*arguments, **options)
        self.assert_status(result, status)
        self.assertIn(message, result.errors)
        self.assertRegex(result.errors, "(?m)^zkaconfig: ")
        self.assert_config(before)
        return result
