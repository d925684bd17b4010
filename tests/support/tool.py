"""Starts the tool, talks to it and reads what it said, with nothing of the tool's own code."""

import fcntl
import os
import plistlib
import re
import select
import shutil
import signal
import socket
import subprocess
import termios
import time

from support import sandbox

CONFIG = sandbox.CONFIG_DIRECTORY + "/zekara32.ini"
# The copy of the tool under test that every test starts unless it makes one of its own.
TOOL = sandbox.TOOL_DIRECTORY + "/Zekara4MacTool"
MARKER = b"</plist>"
# The file that it was copied from, once install_tool() has been called.
original = None
# Far beyond what a loaded machine needs; only a tool that hangs gets here.
PATIENCE = 240.0
# Written by the tool after every reply: the serialiser ends its text with a line feed.
_MESSAGE_END = MARKER + b"\n"
_LOG_LINE = re.compile(r"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}) (\S+)\[(\d+):(\d+)\] (.*)", re.DOTALL)

ABSENT = object()


def install_tool(source):
    """Puts a copy of the tool where the tests start it, so that the build's own file keeps its owner and mode."""
    global original
    original = source
    copy_tool(TOOL, source)


def copy_tool(target, source=TOOL, owner=(0, 0), mode=0o4755):
    """Makes a copy of the tool with the given owner, group and mode."""
    shutil.copyfile(source, target)
    os.chown(target, *owner)
    os.chmod(target, mode)
    return target


class LogLine:
    """One line of the log, taken apart."""

    def __init__(self, text):
        match = _LOG_LINE.fullmatch(text)
        if match is None:
            raise AssertionError(f"not a log line: {text!r}")
        self.time, self.program, self.pid, self.thread, self.message = match.groups()


def log_lines(text):
    """Splits standard error into log lines; a line that does not begin like one belongs to the message before it."""
    lines = []
    for line in text.decode("utf-8", "surrogateescape").splitlines():
        if lines and not _LOG_LINE.fullmatch(line):
            lines[-1] += "\n" + line
        else:
            lines.append(line)
    return [LogLine(line) for line in lines]


def split_replies(output):
    """Splits standard output into the bytes of its replies; anything else is an error."""
    replies = []
    while output:
        end = output.find(_MESSAGE_END)
        if end < 0:
            raise AssertionError(f"standard output holds something that is no reply: {output!r}")
        end += len(_MESSAGE_END)
        replies.append(output[:end])
        output = output[end:]
    return replies


class Result:
    """How a run of the tool ended and what it wrote."""

    def __init__(self, status, output, errors):
        self.status = status
        self.output = output
        self.errors = errors

    @property
    def log(self):
        """The messages of the log, without their time stamps."""
        return [line.message for line in log_lines(self.errors)]

    @property
    def replies(self):
        return [plistlib.loads(reply) for reply in split_replies(self.output)]

    @property
    def reply(self):
        """The one reply; anything but exactly one is an error."""
        replies = self.replies
        if len(replies) != 1:
            raise AssertionError(f"{len(replies)} replies instead of one; log: {self.log}")
        return replies[0]

    @property
    def error(self):
        """The error text of the one reply, None where the request succeeded."""
        return self.reply.get("err")


def start(*arguments, name=TOOL, program=None, **options):
    """Starts the tool with `name` as the path by which it is started (argv[0])."""
    for stream in ("stdin", "stdout", "stderr"):
        options.setdefault(stream, subprocess.PIPE)
    return sandbox.start([name, *arguments], executable=program or name, **options)


def finish(process, data=None):
    """Feeds the rest of the input and returns the Result; a tool that hangs is killed, and an error."""
    try:
        output, errors = process.communicate(data, timeout=PATIENCE)
    except subprocess.TimeoutExpired:
        process.kill()
        output, errors = process.communicate()
        raise AssertionError(f"the tool hangs; so far it wrote {output!r} and logged {errors!r}") from None
    return Result(process.returncode, output, errors)


def run(*arguments, data=b"", **options):
    """Runs the tool to its end, with `data` as its whole standard input."""
    options.setdefault("stdin", subprocess.PIPE)
    process = start(*arguments, **options)
    return finish(process, data if options["stdin"] == subprocess.PIPE else None)


def run_pipe(data, **options):
    """Runs the tool in pipe mode on the given bytes."""
    return run("pipe", data=data, **options)


def request(settings=ABSENT, **more):
    """A "ChangeConfig" request with the given settings and further keys of the client's own."""
    message = {"tag": "cmd", "cmd": "ChangeConfig", **more}
    if settings is not ABSENT:
        message["arg"] = settings
    return message


def encode(message):
    """The bytes of a message, dictionaries in the order in which they were filled."""
    return plistlib.dumps(message, sort_keys=False)


def change(settings=ABSENT, **more):
    """Sends one "ChangeConfig" request and runs the tool to its end."""
    return run_pipe(encode(request(settings, **more)))


def raw_message(body):
    """A message around hand-written property-list elements."""
    return b'<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0">' + body + b"</plist>"


def write_config(content):
    with open(CONFIG, "wb") as file:
        file.write(content)


def read_config():
    """The bytes of the configuration file, None where there is none."""
    try:
        with open(CONFIG, "rb") as file:
            return file.read()
    except FileNotFoundError:
        return None


def wait_until(condition, what, process):
    """Waits for a condition; an error when the tool ends before it comes true, or when it never does."""
    deadline = time.monotonic() + PATIENCE
    while not condition():
        if process.poll() is not None:
            raise AssertionError(f"the tool ended with status {process.returncode}; waited in vain until {what}")
        if time.monotonic() > deadline:
            raise AssertionError(f"waited in vain until {what}")
        time.sleep(0.002)


def waits_for_lock(pid):
    """Returns true if the process waits for a file lock."""
    sandbox.require_linux("/proc/locks")
    with open("/proc/locks", encoding="ascii") as locks:
        return any("->" in line and f" {pid} " in line for line in locks)


def state(pid):
    """The letter that the system gives the process's state; None when it has gone."""
    sandbox.require_linux("/proc")
    try:
        with open(f"/proc/{pid}/stat", encoding="ascii", errors="replace") as file:
            return file.read().rpartition(")")[2].split()[0]
    except (FileNotFoundError, ProcessLookupError):
        return None


def waits_with_all_read(process):
    """Returns true if the tool has read all of its input, which is a pipe, and sleeps."""
    unread = fcntl.ioctl(process.stdin, termios.FIONREAD, b"\0" * 4)
    return not any(unread) and state(process.pid) == "S"


def wait_until_it_waits_for_the_lock(process):
    """Waits until the tool waits for a lock, which another process must hold."""
    wait_until(lambda: waits_for_lock(process.pid), "the tool waits for the lock", process)


def read_message(stream):
    """Reads one reply from a pipe's file object; the process may go on."""
    received = b""
    while not received.endswith(_MESSAGE_END):
        if not select.select([stream], [], [], PATIENCE)[0]:
            raise AssertionError(f"no reply came; so far: {received!r}")
        block = os.read(stream.fileno(), 65536)
        if not block:
            raise AssertionError(f"the reply ends early: {received!r}")
        received += block
    return plistlib.loads(received)


class BlockChannel:
    """A stream on which every write is read as a block of its own: nothing is joined on the way.

    It is a pair of sequenced-packet sockets: `theirs` is given to the tool as one of its standard streams.
    """

    def __init__(self):
        sandbox.require_linux("a stream that keeps blocks apart")
        self.ours, self.theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.ours.settimeout(PATIENCE)

    def send(self, block):
        """Sends a block; does nothing when the tool has gone."""
        try:
            self.ours.send(block, socket.MSG_NOSIGNAL)
        except (BrokenPipeError, ConnectionResetError):
            pass

    def blocks(self):
        """The blocks that the tool wrote, up to the end of its output."""
        received = []
        while True:
            try:
                block = self.ours.recv(1 << 20)
            except ConnectionResetError:
                return received
            if not block:
                return received
            received.append(block)

    def close(self):
        self.ours.close()
        self.theirs.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()


def run_blocks(blocks):
    """Runs the tool in pipe mode on exactly these blocks of input, then closes its input."""
    with BlockChannel() as channel:
        process = start("pipe", stdin=channel.theirs)
        channel.theirs.close()
        for block in blocks:
            channel.send(block)
        channel.ours.shutdown(socket.SHUT_WR)
        return finish(process)


def drop_privileges_arguments():
    """Options of Popen that start the tool as an account without rights."""
    return {"user": 65534, "group": 65534, "extra_groups": []}


def kill(process):
    """Kills a process of ours that may have ended already."""
    try:
        process.send_signal(signal.SIGKILL)
    except ProcessLookupError:
        pass
    process.wait()
