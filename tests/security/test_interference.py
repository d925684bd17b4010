"""Processes are killed, stopped and interrupted while they work: by root at any moment, by their caller as far as he can."""

import contextlib
import os
import pty
import random
import signal
import termios
import time

import hostile
from support import ini_model, tool
from support.case import ToolTestCase

OLD = b"[A]\nk = old\n\n"
# Large enough for a write to take its time, and for a reader to tell an old text from a new one anywhere in it.
SETTINGS = {"A": {"k": "new"}, "Large": {f"key{number}": "v" * 100 for number in range(2000)}}
NEW, _, _ = ini_model.change(OLD, SETTINGS)
OLD_LARGE = NEW.replace(b"vv", b"ww").replace(b"k = new", b"k = old")
REQUEST = tool.encode(tool.request(SETTINGS))


class Killed(ToolTestCase):
    """Killed at a random moment between its request and its reply."""

    ROUNDS = hostile.scaled(25, 1000)

    def setUp(self):
        super().setUp()
        tool.write_config(OLD_LARGE)
        started = time.monotonic()
        self.assert_succeeds(tool.run_pipe(REQUEST))
        self.usual_time = time.monotonic() - started

    def moment(self):
        """A time to wait, mostly short: the usual time is that of a whole start and its bookkeeping, of which the tool's own
        work is the least."""
        return self.usual_time * random.random() ** 4

    def start(self, **options):
        process = self.start_tool("pipe", **options)
        process.stdin.write(REQUEST)
        process.stdin.flush()
        return process

    def test_roots_kill_leaves_the_old_text_the_new_one_or_a_beginning_of_it_and_no_lock(self):
        outcomes = {"old": 0, "new": 0, "cut": 0}
        for _ in range(self.ROUNDS):
            tool.write_config(OLD_LARGE)
            process = self.start()
            time.sleep(self.moment())
            tool.kill(process)
            self._end(process)
            after = tool.read_config()
            self.assertTrue(after == OLD_LARGE or NEW.startswith(after), f"{len(after)} bytes: {after[:80]}")
            outcomes["old" if after == OLD_LARGE else "new" if after == NEW else "cut"] += 1
            self.assertFalse(hostile.is_locked())
        self.assertGreater(outcomes["old"], 0, outcomes)

    @hostile.requires_tracing
    def test_roots_kill_between_the_cut_and_the_write_leaves_an_empty_file_that_the_next_request_fills(self):
        tool.write_config(OLD_LARGE)
        held = hostile.HeldBack("write", tool.CONFIG)
        self.addCleanup(self._end, held.process)
        held.process.stdin.write(REQUEST)
        held.process.stdin.flush()
        hostile.wait_until(lambda: tool.read_config() == b"", "the file is cut")
        self.assertTrue(hostile.is_locked())
        os.kill(held.pid, signal.SIGKILL)
        held.let_go()
        hostile.wait_until(lambda: not hostile.is_locked(), "the lock is given back")
        self.assert_config(b"")
        self.assert_succeeds(tool.change({"A": {"k": "v"}}))
        self.assert_config(b"[A]\nk = v\n\n")

    def test_the_callers_kill_leaves_the_old_text_or_the_new_one_whole_and_no_lock(self):
        outcomes = {"old": 0, "new": 0}
        for _ in range(self.ROUNDS):
            tool.write_config(OLD_LARGE)
            process = self.start_tool("pipe", **hostile.as_user())
            with hostile.Pestering(process.pid, signal.SIGKILL, after=random.uniform(0, 3 * self.usual_time)):
                with contextlib.suppress(BrokenPipeError):
                    process.stdin.write(REQUEST[:-1000])
                    process.stdin.flush()
                    time.sleep(random.uniform(0, 3 * self.usual_time))
                    process.stdin.write(REQUEST[-1000:])
                    process.stdin.flush()
                process.wait(tool.PATIENCE)
            self._end(process)
            after = tool.read_config()
            self.assertIn(after, (OLD_LARGE, NEW))
            outcomes["old" if after == OLD_LARGE else "new"] += 1
            self.assertFalse(hostile.is_locked())
        self.assertGreater(outcomes["old"], 0, outcomes)

    def test_the_callers_stop_never_keeps_the_lock(self):
        stopped = 0
        for _ in range(self.ROUNDS):
            tool.write_config(OLD_LARGE)
            process = self.start(**hostile.as_user())
            time.sleep(self.moment())
            if hostile.signal_as_user(process.pid, signal.SIGSTOP):
                hostile.wait_until(lambda: hostile.process_state(process.pid) in ("T", "Z", None), "the process stops")
                stopped += hostile.process_state(process.pid) == "T"
                self.assertFalse(hostile.is_locked())
                self.assertIn(tool.read_config(), (OLD_LARGE, NEW))
                process.send_signal(signal.SIGCONT)
            tool.finish(process)
            self.assert_config(NEW)
        self.assertGreater(stopped, 0)


@hostile.requires_tracing
class InTheWindow(ToolTestCase):
    """The tool is held back, by a tracer of root's, at the moments at which it holds the lock."""

    SIGNALS = (
        signal.SIGKILL, signal.SIGSTOP, signal.SIGTSTP, signal.SIGINT, signal.SIGHUP, signal.SIGTERM, signal.SIGQUIT,
        signal.SIGALRM, signal.SIGVTALRM, signal.SIGPROF, signal.SIGUSR1, signal.SIGXCPU, signal.SIGXFSZ, signal.SIGSEGV,
        signal.SIGTTIN, signal.SIGTTOU, signal.SIGPIPE, signal.SIGABRT, signal.SIGIO,
    )  # fmt: skip
    MOMENTS = ("read", "ftruncate", "write", "fsync", "close")

    def setUp(self):
        super().setUp()
        tool.write_config(OLD)

    def send(self, call, request=REQUEST, **popen):
        """Starts a tool that is held back before the call, and sends it the request."""
        held = hostile.HeldBack(call, tool.CONFIG, **popen)
        self.addCleanup(self._end, held.process)
        held.process.stdin.write(request)
        held.process.stdin.flush()
        return held

    def send_until_cut(self, **options):
        held = self.send("write", **options)
        hostile.wait_until(lambda: tool.read_config() == b"", "the file is cut")
        return held

    def test_no_signal_of_the_callers_reaches_the_tool_while_it_holds_the_lock(self):
        for call in hostile.scaled(("ftruncate", "write"), self.MOMENTS):
            with self.subTest(call=call):
                tool.write_config(OLD)
                held = self.send(call)
                hostile.wait_until(hostile.is_locked, "the tool holds the lock")
                pid = held.pid
                delivered = [number for number in self.SIGNALS if hostile.signal_as_user(pid, number)]
                self.assertTrue(hostile.is_locked())
                self.assertEqual(delivered, [])
                self.assertIsNone(held.finish().error)
                self.assert_config(NEW)
                self.assertFalse(hostile.is_locked())

    def test_what_root_sends_is_held_until_the_daemons_have_been_told(self):
        fatal = (signal.SIGTERM, signal.SIGALRM, signal.SIGINT, signal.SIGHUP, signal.SIGQUIT, signal.SIGUSR1)
        for number in hostile.scaled(fatal[:2], fatal):
            with self.subTest(signal=number):
                tool.write_config(OLD)
                updated = self.start_updated()
                held = self.send_until_cut(request=tool.encode(tool.request({**SETTINGS, "UpdateD": {"Mode": "x"}})))
                os.kill(held.pid, number)
                held.finish()
                self.assert_config(NEW + b"[UpdateD]\nMode = x\n\n")
                self.assertEqual(updated.signals(), [signal.SIGHUP])
                self.assertFalse(hostile.is_locked())

    def test_the_keys_of_the_callers_terminal_neither_stop_nor_end_it(self):
        for key, number in ((termios.VINTR, signal.SIGINT), (termios.VQUIT, signal.SIGQUIT), (termios.VSUSP, signal.SIGTSTP)):
            with self.subTest(key=key):
                tool.write_config(OLD)
                master, slave = pty.openpty()
                held = self.send_until_cut(stderr=slave, options=("--terminal",))
                characters = termios.tcgetattr(slave)[6]
                os.close(slave)
                os.write(master, characters[key])
                hostile.wait_until(lambda: hostile.is_pending(held.pid, number), "the terminal has sent its signal")
                self.assertTrue(hostile.is_locked())
                held.let_go()
                hostile.wait_until(lambda: not hostile.is_locked(), "the lock is given back")
                self.assert_config(NEW)
                held.process.communicate(timeout=tool.PATIENCE)
                os.close(master)

    def test_a_terminal_that_is_hung_up_does_not_end_it(self):
        master, slave = pty.openpty()
        held = self.send_until_cut(stderr=slave, options=("--terminal",))
        os.close(slave)
        os.close(master)
        hostile.wait_until(lambda: hostile.is_pending(held.pid, signal.SIGHUP), "the terminal has sent its signal")
        held.let_go()
        hostile.wait_until(lambda: not hostile.is_locked(), "the lock is given back")
        self.assert_config(NEW)
        held.process.communicate(timeout=tool.PATIENCE)

    def test_an_alarm_of_the_callers_does_not_ring_in_it(self):
        """On a busy machine the alarm may ring before the tool has switched it off, which proves nothing: then it is set later."""
        for seconds in (0.6, 3.0, 12.0):
            held = hostile.HeldBack("write", tool.CONFIG, options=("--alarm", str(seconds)))
            self.addCleanup(self._end, held.process)
            if not held.process.stderr.readline():
                continue
            held.process.stdin.write(REQUEST)
            held.process.stdin.flush()
            hostile.wait_until(lambda: tool.read_config() == b"", "the file is cut")
            time.sleep(seconds + 0.2)
            self.assertFalse(hostile.is_pending(held.pid, signal.SIGALRM))
            self.assertIsNone(held.finish().error)
            self.assert_config(NEW)
            return
        self.fail("the alarm has always rung before the tool's first line")


class WaitingForTheLock(ToolTestCase):
    def setUp(self):
        super().setUp()
        tool.write_config(OLD)

    def test_a_caller_who_stops_it_all_the_time_while_he_lets_go_of_the_lock_never_makes_it_keep_the_lock(self):
        for _ in range(hostile.scaled(12, 500)):
            tool.write_config(OLD)
            with hostile.locked():
                process = self.start_tool("pipe", **hostile.as_user())
                process.stdin.write(REQUEST)
                process.stdin.flush()
                tool.wait_until_it_waits_for_the_lock(process)
                pestering = hostile.Pestering(process.pid, signal.SIGSTOP)
            with pestering:
                hostile.wait_until(lambda: tool.read_config() == NEW, "the change is made")
                hostile.wait_until(lambda: not hostile.is_locked(), "the lock is given back")
            # Afterwards he may stop it as he likes.
            process.send_signal(signal.SIGCONT)
            self.assert_succeeds(tool.finish(process))

    def test_no_signal_of_the_callers_reaches_it_while_it_waits(self):
        with hostile.locked():
            process = self.start_tool("pipe", **hostile.as_user())
            process.stdin.write(REQUEST)
            process.stdin.flush()
            tool.wait_until_it_waits_for_the_lock(process)
            for number in InTheWindow.SIGNALS:
                self.assertFalse(hostile.signal_as_user(process.pid, number))
        self.assert_succeeds(tool.finish(process))
        self.assert_config(NEW)

    def test_ended_by_root_while_it_waits_it_leaves_the_file_alone(self):
        with hostile.locked():
            process = self.start_tool("pipe", **hostile.as_user())
            process.stdin.write(REQUEST)
            process.stdin.flush()
            tool.wait_until_it_waits_for_the_lock(process)
            process.send_signal(signal.SIGTERM)
            self.assertEqual(process.wait(tool.PATIENCE), -signal.SIGTERM)
        self.assert_config(OLD)
