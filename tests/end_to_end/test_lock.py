"""The lock on the configuration file: waiting for it, giving it back, and many instances at once."""

import contextlib
import fcntl
import os
import signal
import subprocess

from support import ini_model, sandbox, tool, tracing
from support.case import ToolTestCase

CONTENT = b"[A]\nk = old\n\n"


@contextlib.contextmanager
def locked(path=tool.CONFIG, kind=fcntl.LOCK_EX):
    """Holds a lock on the file."""
    with open(path, "rb+") as file:
        fcntl.flock(file, kind)
        yield file


class Lock(ToolTestCase):
    def setUp(self):
        super().setUp()
        tool.write_config(CONTENT)

    def start_request(self, settings):
        process = self.start_tool("pipe")
        process.stdin.write(tool.encode(tool.request(settings)))
        process.stdin.flush()
        return process

    def start_waiting_request(self, settings):
        """A tool that waits for the lock, which another process must hold."""
        process = self.start_request(settings)
        tool.wait_until_it_waits_for_the_lock(process)
        return process

    def test_the_tool_waits_for_another_holder_and_completes_after_him(self):
        for kind in (fcntl.LOCK_EX, fcntl.LOCK_SH):
            with self.subTest(kind=kind):
                tool.write_config(CONTENT)
                with locked(kind=kind):
                    process = self.start_waiting_request({"A": {"k": "new"}})
                    self.assertIsNone(process.poll())
                    self.assert_config(CONTENT)
                result = tool.finish(process)
                self.assert_succeeds(result)
                self.assertEqual(result.log, ["Self-check passed", "Running on pipe"])
                self.assert_config(b"[A]\nk = new\n\n")

    def test_a_reader_that_takes_no_lock_is_not_kept_waiting(self):
        with locked():
            process = self.start_waiting_request({"A": {"k": "new"}})
            self.assert_config(CONTENT)
        self.assert_succeeds(tool.finish(process))

    def test_what_the_holder_writes_is_what_the_tool_changes(self):
        with locked() as file:
            process = self.start_waiting_request({"A": {"k": "new"}})
            file.truncate(0)
            file.write(b"[A]\nk = his\nother = his\n\n")
            file.flush()
        self.assert_succeeds(tool.finish(process))
        self.assert_config(b"[A]\nk = new\nother = his\n\n")

    def test_the_tool_completes_after_the_holder_was_killed(self):
        holder = subprocess.Popen(
            ["flock", tool.CONFIG, "sh", "-c", "echo held; exec cat"],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            start_new_session=True,
        )
        self.addCleanup(self._end, holder)
        self.assertEqual(holder.stdout.readline(), b"held\n")
        process = self.start_waiting_request({"A": {"k": "new"}})
        os.killpg(holder.pid, signal.SIGKILL)
        self.assert_succeeds(tool.finish(process))
        self.assert_config(b"[A]\nk = new\n\n")

    def test_the_tool_waits_without_a_time_limit_of_its_own_input(self):
        with locked():
            process = self.start_waiting_request({"A": {"k": "new"}})
            process.stdin.close()
            process.stdin = None
            self.assertTrue(tool.waits_for_lock(process.pid))
        self.assert_succeeds(tool.finish(process))

    def test_a_tool_that_is_killed_while_it_waits_leaves_the_file_and_no_lock(self):
        with locked():
            process = self.start_waiting_request({"A": {"k": "new"}})
            tool.kill(process)
        with open(tool.CONFIG, "rb") as file:
            fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
        self.assert_config(CONTENT)

    def test_a_file_that_is_replaced_while_the_tool_waits_is_the_one_that_is_changed(self):
        with locked() as old:
            process = self.start_waiting_request({"A": {"k": "new"}})
            replacement = sandbox.CONFIG_DIRECTORY + "/replacement"
            with open(replacement, "wb") as file:
                file.write(b"[B]\nk = other\n\n")
            os.rename(replacement, tool.CONFIG)
            fcntl.flock(old, fcntl.LOCK_UN)
            result = tool.finish(process)
            old.seek(0)
            self.assertEqual(old.read(), CONTENT)
        self.assert_succeeds(result)
        self.assert_config(b"[B]\nk = other\n\n[A]\nk = new\n\n")

    def test_a_lock_of_another_file_or_kind_does_not_matter(self):
        other = sandbox.CONFIG_DIRECTORY + "/other.ini"
        with open(other, "wb"):
            pass
        with locked(other), open(tool.CONFIG, "rb+") as file:
            fcntl.lockf(file, fcntl.LOCK_EX)
            self.assert_succeeds(tool.change({"A": {"k": "new"}}))

    @tracing.requires_strace
    def test_between_truncation_and_writing_the_file_is_empty_and_the_lock_is_held(self):
        calls = "ftruncate,truncate"
        options = [*tracing.watch(tool.CONFIG), "-e", f"inject={calls}:signal=SIGSTOP"]
        tracer = tracing.start("pipe", calls=calls, options=options)
        self.addCleanup(self._end, tracer)
        tracer.stdin.write(tool.encode(tool.request({"A": {"k": "new"}})))
        tracer.stdin.flush()
        tool.wait_until(lambda: tool.read_config() == b"", "the file is truncated", tracer)
        with open(tool.CONFIG, "rb") as file, self.assertRaises(BlockingIOError):
            fcntl.flock(file, fcntl.LOCK_SH | fcntl.LOCK_NB)
        while tracer.poll() is None:
            pid = tracing.traced_process(tracer)
            if pid is not None:
                with contextlib.suppress(ProcessLookupError):
                    os.kill(pid, signal.SIGCONT)
        self.assert_succeeds(tool.finish(tracer))
        self.assert_config(b"[A]\nk = new\n\n")

    def test_the_lock_is_free_while_the_reply_waits_for_its_reader(self):
        for content, settings in ((CONTENT, {"A": {"k": "new"}}), (b"[A]\nk\n\n", {"A": {"k": "new"}})):
            with self.subTest(content=content):
                tool.write_config(content)
                reader, writer = os.pipe()
                os.set_blocking(writer, False)
                with contextlib.suppress(BlockingIOError):
                    while True:
                        os.write(writer, b"\n" * 4096)
                os.set_blocking(writer, True)
                process = self.start_tool("pipe", stdout=writer)
                os.close(writer)
                process.stdin.write(tool.encode(tool.request(settings)))
                process.stdin.flush()
                tool.wait_until(lambda: tool.waits_with_all_read(process), "the reply waits for its reader", process)
                with open(tool.CONFIG, "rb") as file:
                    fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
                self.assertIsNone(process.poll())
                with os.fdopen(reader, "rb") as stream:
                    reply = stream.read().lstrip(b"\n")
                self.assertEqual(len(tool.split_replies(reply)), 1)
                self.assertEqual(process.wait(tool.PATIENCE), 0)


class ManyInstances(ToolTestCase):
    INSTANCES = 64

    def test_instances_that_wait_together_lose_no_change(self):
        tool.write_config(b"[A]\n")
        with locked():
            processes = [self._start(number) for number in range(self.INSTANCES)]
            for process in processes:
                tool.wait_until_it_waits_for_the_lock(process)
        for process in processes:
            self.assert_succeeds(tool.finish(process))
        self._check_that_every_key_is_there()

    def test_instances_that_start_together_without_a_file_lose_no_change(self):
        processes = [self._start(number) for number in range(self.INSTANCES)]
        for process in processes:
            self.assert_succeeds(tool.finish(process))
        self._check_that_every_key_is_there()

    def test_a_reader_that_takes_the_lock_never_sees_a_torn_file(self):
        tool.write_config(b"[A]\n")
        seen = 0
        running = [self._start(number) for number in range(self.INSTANCES)]
        while any(process.poll() is None for process in running):
            with open(tool.CONFIG, "rb") as file:
                fcntl.flock(file, fcntl.LOCK_SH)
                content = file.read()
            keys = ini_model.parse(content).get("A", {})
            self.assertTrue(all(value == int(key[3:]) * 7 for key, value in keys.items()), content)
            self.assertGreaterEqual(len(keys), seen)
            seen = len(keys)
        for process in running:
            tool.finish(process)
        self._check_that_every_key_is_there()

    def _start(self, number):
        process = self.start_tool("pipe")
        process.stdin.write(tool.encode(tool.request({"A": {f"key{number}": number * 7}})))
        process.stdin.flush()
        return process

    def _check_that_every_key_is_there(self):
        expected = {f"key{number}": number * 7 for number in range(self.INSTANCES)}
        self.assertEqual(ini_model.parse(tool.read_config())["A"], expected)
