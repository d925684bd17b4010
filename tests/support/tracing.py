"""Runs the tool under strace: to see its system calls in order, or to make one of them fail."""

import os
import shutil
import subprocess
import unittest

from support import sandbox, tool


def requires_strace(test):
    """Skips a test, or a class of tests, where strace is missing or may not trace."""
    return unittest.skipUnless(_works(), "strace is missing or may not trace here")(test)


def run(*arguments, calls, data=b"", options=(), name=tool.TOOL):
    """Runs the tool under strace; returns its Result and the traced lines, in order."""
    trace_file = os.path.join(sandbox.SCRATCH_DIRECTORY, "trace")
    command = ["strace", "-y", "-s", "65536", "-e", "signal=none", "-o", trace_file, "-e", f"trace={calls}", *options]
    process = subprocess.Popen(
        [*command, name, *arguments], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE
    )
    result = tool.finish(process, data)
    with open(trace_file, encoding="utf-8", errors="surrogateescape") as file:
        return result, [line for line in file.read().splitlines() if "(" in line]


_answer = None


def _works():
    global _answer
    if _answer is None:
        _answer = (
            shutil.which("strace") is not None
            and subprocess.run(["strace", "-o", "/dev/null", "true"], capture_output=True, check=False).returncode == 0
        )
    return _answer
