"""Stand-ins for the suite's daemons: processes that note every signal they are sent."""

import ctypes
import json
import os
import signal

from support import sandbox

FILED_PID_FILE = sandbox.RUN_DIRECTORY + "/FileD.pid"
UPDATED_PID_FILE = sandbox.RUN_DIRECTORY + "/UpdateD.pid"

_PR_SET_PDEATHSIG = 1
# Pending signals are taken lowest number first, so the last one is seen after all that were sent before it.
_REPORT = max(signal.valid_signals())
_UNBLOCKABLE = {signal.SIGKILL, signal.SIGSTOP}


class StandInDaemon:
    """A process that registers itself in a pid file and records its signals.

    All signals are blocked before the process exists and taken one at a time, so none is ever missed. When
    `observe` is given, it is called in the daemon at each signal and its result is recorded as well.
    """

    def __init__(self, pid_file, observe=None):
        self._reader, writer = os.pipe()
        old_mask = signal.pthread_sigmask(signal.SIG_BLOCK, signal.valid_signals() - _UNBLOCKABLE)
        self.pid = os.fork()
        if self.pid == 0:
            _record_signals(writer, observe)
        os.close(writer)
        signal.pthread_sigmask(signal.SIG_SETMASK, old_mask)
        self._alive = True
        if pid_file is not None:
            with open(pid_file, "w", encoding="ascii") as file:
                file.write(f"{self.pid}\n")

    def stop(self):
        """Ends the process; returns what it recorded: (signal number, observation) tuples."""
        if not self._alive:
            return []
        self._alive = False
        os.kill(self.pid, _REPORT)
        with os.fdopen(self._reader, "rb") as reader:
            records = [tuple(json.loads(line)) for line in reader]
        os.waitpid(self.pid, 0)
        return records

    def signals(self):
        """Ends the process; returns the signals that it was sent, lowest number first where two were pending."""
        return [record[0] for record in self.stop()]


def exited_process():
    """The id of a process that has just ended."""
    pid = os.fork()
    if pid == 0:
        os._exit(0)
    os.waitpid(pid, 0)
    return pid


def _observation(observe):
    try:
        return observe() if observe else None
    except OSError as error:
        return f"failed: {error}"


def _record_signals(writer, observe):
    try:
        if not sandbox.is_in_place():  # macOS does not have this
            ctypes.CDLL(None).prctl(_PR_SET_PDEATHSIG, signal.SIGKILL)
        sandbox.go_inside()
        while True:
            number = signal.sigwait(signal.valid_signals() - _UNBLOCKABLE)
            if number == _REPORT:
                break
            if number == signal.SIGCHLD:
                continue
            record = [number, _observation(observe)]
            os.write(writer, json.dumps(record).encode() + b"\n")
    finally:
        os._exit(0)
