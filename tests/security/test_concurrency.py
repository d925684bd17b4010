"""Sixty-four instances of several accounts at once: every change is there in the end, and no reader who locks sees half a file."""

import fcntl
import os
import random

import hostile
from support import ini_model, tool
from support.case import ToolTestCase

INSTANCES = 64
USERS = (0, 1042, 1043, 1044, 1045, 1046)


class ManyInstances(ToolTestCase):
    ROUNDS = hostile.scaled(3, 60)

    def setUp(self):
        super().setUp()
        # The reader knows a whole file by its last section.
        self.content = b"[First]\nround = 0\n\n" + b"[Last]\nlast = last\n\n"
        tool.write_config(self.content)

    def test_no_change_is_lost_and_no_reader_who_locks_sees_half_a_file(self):
        reader = _Reader()
        try:
            for number in range(self.ROUNDS):
                self._round(number)
        finally:
            problem, seen = reader.stop()
        self.assertIsNone(problem)
        self.assertGreater(seen, 0, "the reader has never seen the file")
        sections = ini_model.parse(tool.read_config())
        for instance in range(INSTANCES):
            self.assertEqual(sections["First"][f"key{instance}"], f"round{self.ROUNDS - 1} value{instance}")
        self.assertEqual(len(sections["First"]), INSTANCES + 1)
        self.assertEqual(len(sections["UpdateD"]), INSTANCES // 8 * self.ROUNDS)

    def _round(self, number):
        processes = []
        order = list(range(INSTANCES))
        random.shuffle(order)
        for instance in order:
            user = USERS[instance % len(USERS)]
            processes.append((instance, self.start_tool("pipe", **(hostile.as_user(user) if user else {}))))
        for instance, process in processes:
            settings = {"First": {f"key{instance}": f"round{number} value{instance}"}}
            if instance % 8 == 0:
                settings["UpdateD"] = {f"r{number}i{instance}": 1}
            process.stdin.write(tool.encode(tool.request(settings)))
            process.stdin.flush()
        for _, process in processes:
            self.assert_succeeds(tool.finish(process))


class _Reader:
    """A process that reads the file under a shared lock all the time, and reports anything that is not a whole file."""

    def __init__(self):
        self._report, report = os.pipe()
        self._stop, stop = os.pipe()
        self._pid = os.fork()
        if self._pid == 0:
            os.close(stop)
            try:
                hostile.become()
                os.write(report, self._read_until_told().encode())
            finally:
                os._exit(0)
        os.close(report)
        self._stop_writer = stop

    def stop(self):
        """Ends the reader; returns what it complains of, or None, and how many different texts it has seen."""
        os.close(self._stop_writer)
        with os.fdopen(self._report, "rb") as report:
            problem, _, seen = report.read().decode().rpartition("\n")
        os.close(self._stop)
        os.waitpid(self._pid, 0)
        return problem or None, int(seen or 0)

    def _read_until_told(self):
        os.set_blocking(self._stop, False)
        seen = set()
        while True:
            try:
                if os.read(self._stop, 1) == b"":
                    return f"\n{len(seen)}"
            except BlockingIOError:
                pass
            with open(tool.CONFIG, "rb") as file:
                fcntl.flock(file, fcntl.LOCK_SH)
                content = file.read()
            try:
                sections = ini_model.parse(content)
            except (ini_model.SyntaxFailure, ini_model.MergeFailure):
                sections = {}
            if sections.get("Last") != {"last": "last"} or not content.endswith(b"\n\n"):
                return f"half a file of {len(content)} bytes\n{len(seen)}"
            seen.add(content)
