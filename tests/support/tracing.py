"""Runs the tool under strace: to see its system calls in order, or to make one of them fail."""

import os
import shutil
import subprocess
import unittest

from support import sandbox, tool


def requires_strace(test):
    """Skips a test, or a class of tests, where strace is missing or may not trace."""
    return unittest.skipUnless(not sandbox.is_in_place() and _works(), "strace is missing or may not trace here")(test)


def run(*arguments, calls, data=b"", options=(), name=tool.TOOL):
    """Runs the tool under strace; returns its Result and the traced lines, in order."""
    result = tool.finish(start(*arguments, calls=calls, options=options, name=name), data)
    with open(_trace_file(), encoding="utf-8", errors="surrogateescape") as file:
        return result, _of_the_tool(line for line in file.read().splitlines() if "(" in line)


def start(*arguments, calls, options=(), name=tool.TOOL):
    """Starts the tool under strace; the process is strace, which ends as the tool does."""
    command = ["strace", "-y", "-s", "65536", "-e", "signal=none", "-o", _trace_file(), "-e", f"trace=chroot,{calls}"]
    return subprocess.Popen(
        [*command, *options, *sandbox.inside_command(name, *arguments)],
        stdin=subprocess.PIPE,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
    )


def hold(call, path=None):
    """The beginning of a command line: a tracer that holds the program which follows at its first such call that concerns the path,
    for far longer than any test waits. The system lets the program go when the tracer is killed."""
    watched = [] if path is None else ["-P", path]
    delay = int(10 * tool.PATIENCE * 1_000_000)
    return ["strace", "-o", "/dev/null", *watched, "-e", f"trace={call}", "-e", "signal=none",
            "-e", f"inject={call}:delay_enter={delay}:when=1"]  # fmt: skip


def traced_process(tracer):
    """The id of the tool that the tracer has started, None while there is none."""
    with open(f"/proc/{tracer.pid}/task/{tracer.pid}/children", encoding="ascii") as file:
        children = file.read().split()
    return int(children[0]) if children else None


def watch(path):
    """The options of strace that leave only calls that concern the path, under the name of either side of the private root."""
    return ["-P", os.fspath(path), "-P", str(path)]


def _of_the_tool(lines):
    """The calls after the last change of the root directory, which the tool never makes itself."""
    lines = list(lines)
    changes = [number for number, line in enumerate(lines) if line.startswith("chroot(")]
    return lines[changes[-1] + 1 :] if changes else lines


def _trace_file():
    return os.path.join(sandbox.SCRATCH_DIRECTORY, "trace")


_answer = None


def _works():
    global _answer
    if _answer is None:
        _answer = (
            shutil.which("strace") is not None
            and subprocess.run(["strace", "-o", "/dev/null", "true"], capture_output=True, check=False).returncode == 0
        )
    return _answer
