"""How the tool chooses what to do, and the exit status that it ends with."""

import os
import resource
import subprocess

from support import sandbox, standins, tool
from support.case import ToolTestCase

CONTENT = b"[MacOSWardex]\nIsActive = No\n\n"


class RunModes(ToolTestCase):
    def test_pipe_in_any_letter_case_serves_requests_and_ends_with_status_0(self):
        for word in ("pipe", "PIPE", "Pipe", "pIPe"):
            with self.subTest(word=word):
                result = tool.run(word, data=tool.encode(tool.request({"A": {"k": "v"}})))
                self.assert_succeeds(result)
                self.assertEqual(result.log, ["Self-check passed", "Running on pipe"])

    def test_a_single_argument_other_than_pipe_ends_with_status_1_after_the_self_check_alone(self):
        tool.write_config(CONTENT)
        for word in ("", "pip", "pipes", "pipe ", " pipe", "pipe\n", "-pipe", "--pipe", "install", "%s%n", "pìpe"):
            with self.subTest(word=word):
                result = tool.run(word, data=tool.encode(tool.request({"A": {"k": "v"}})))
                self.assertEqual((result.status, result.output), (1, b""))
                self.assertEqual(result.log, ["Self-check passed"])
                self.assert_config(CONTENT)

    def test_two_or_more_arguments_of_any_kind_end_with_status_1_after_the_self_check_alone(self):
        tool.write_config(CONTENT)
        for words in (("pipe", "pipe"), ("pipe", ""), ("", ""), ("a", "b", "c"), ("pipe",) * 50):
            with self.subTest(words=words):
                result = tool.run(*words, data=tool.encode(tool.request({"A": {"k": "v"}})))
                self.assertEqual((result.status, result.output), (1, b""))
                self.assertEqual(result.log, ["Self-check passed"])
                self.assert_config(CONTENT)

    def test_arguments_that_name_no_mode_signal_nobody(self):
        filed, updated = self.start_filed(), self.start_updated()
        tool.run("pipes")
        tool.run("pipe", "x")
        self.assertEqual((filed.signals(), updated.signals()), ([], []))

    def test_no_argument_runs_the_post_install_task_and_ends_with_status_1(self):
        self.start_filed()
        result = tool.run()
        self.assertEqual((result.status, result.output), (1, b""))
        self.assertEqual(result.log, ["Self-check passed", "PostInstall task"])

    def test_a_failing_request_in_pipe_mode_still_ends_with_status_0(self):
        tool.write_config(b"]\n\n")
        result = tool.change({"A": {"k": "v"}})
        self.assertEqual((result.status, result.error), (0, "unexpected token"))

    def test_a_failing_post_install_task_ends_with_status_2(self):
        tool.write_config(b"]\n\n")
        result = tool.run()
        self.assertEqual((result.status, result.output), (2, b""))
        self.assertEqual(result.log, ["Self-check passed", "PostInstall task", "Terminated with error"])

    def test_input_that_is_closed_at_once_ends_pipe_mode_with_status_0_and_no_output(self):
        result = tool.run_pipe(b"")
        self.assertEqual((result.status, result.output), (0, b""))
        self.assertEqual(result.log, ["Self-check passed", "Running on pipe"])
        self.assert_config(None)

    def test_pipe_mode_without_a_standard_input_ends_with_status_0_and_no_output(self):
        result = tool.run("pipe", stdin=subprocess.DEVNULL)
        self.assertEqual((result.status, result.output), (0, b""))

        closed = tool.run("pipe", stdin=subprocess.DEVNULL, preexec_fn=lambda: os.close(0))
        self.assertEqual((closed.status, closed.output), (0, b""))

    def test_a_request_in_an_ordinary_file_is_answered(self):
        path = sandbox.SCRATCH_DIRECTORY + "/request"
        with open(path, "wb") as file:
            file.write(tool.encode(tool.request({"A": {"k": "v"}})))
        with open(path, "rb") as file:
            result = tool.run("pipe", stdin=file)
        self.assert_succeeds(result)
        self.assert_config(b"[A]\nk = v\n\n")

    def test_a_closed_standard_error_costs_the_log_and_nothing_else(self):
        tool.write_config(CONTENT)
        request = tool.encode(tool.request({"MacOSWardex": {"IsActive": "Yes"}}))
        closed = tool.run_pipe(request, preexec_fn=lambda: os.close(2))
        self.assertEqual((closed.status, closed.errors), (0, b""))
        self.assertEqual(len(closed.replies), 1)
        self.assert_config(b"[MacOSWardex]\nIsActive = Yes\n\n")

    def test_the_working_directory_and_the_environment_do_not_matter(self):
        result = tool.run_pipe(
            tool.encode(tool.request({"A": {"k": "v"}})), cwd=sandbox.SCRATCH_DIRECTORY, env={"HOME": "/nowhere"}
        )
        self.assert_succeeds(result)
        self.assert_config(b"[A]\nk = v\n\n")

    def test_memory_that_does_not_suffice_for_a_request_ends_with_status_2_and_no_reply(self):
        tool.write_config(CONTENT)

        def limit_memory():
            resource.setrlimit(resource.RLIMIT_AS, (32 << 20, 32 << 20))

        request = tool.encode(tool.request({"A": {"k": "x" * (64 << 20)}}))
        result = tool.run_pipe(request, preexec_fn=limit_memory)
        self.assertEqual((result.status, result.output), (2, b""))
        self.assertEqual(result.log, ["Self-check passed", "Running on pipe", "Terminated with error"])
        self.assert_config(CONTENT)

    def test_post_install_reads_nothing_from_standard_input(self):
        self.start_filed()
        result = tool.run(data=tool.encode(tool.request({"A": {"k": "v"}})))
        self.assertEqual((result.status, result.output), (1, b""))
        self.assert_config(b"[MacOSWardex]\nIsActive = Yes\n\n")


class PostInstall(ToolTestCase):
    def test_the_file_monitor_is_switched_on_and_everything_else_is_kept(self):
        tool.write_config(b"[UpdateD]\nMode = Auto\n[MacOSWardex]\nFileTimeout = 30\nIsActive = No\n\n")
        self.start_filed()
        self.assertEqual(tool.run().status, 1)
        self.assert_config(b"[UpdateD]\nMode = Auto\n\n[MacOSWardex]\nFileTimeout = 30\nIsActive = Yes\n\n")

    def test_the_file_monitor_gets_the_hang_up_and_the_termination_signal_and_the_updater_gets_none(self):
        filed, updated = self.start_filed(), self.start_updated()
        tool.run()
        self.assertEqual((filed.signals(), updated.signals()), ([1, 15], []))

    def test_the_hang_up_signal_comes_before_the_termination_signal(self):
        result = tool.run()
        path = standins.FILED_PID_FILE
        self.assertEqual(
            result.log,
            ["Self-check passed", "PostInstall task", f"Can't signal 1 to {path}", f"Can't signal 15 to {path}"],
        )

    def test_without_a_running_daemon_the_file_is_changed_all_the_same_and_the_status_is_1(self):
        result = tool.run()
        self.assertEqual(result.status, 1)
        self.assert_config(b"[MacOSWardex]\nIsActive = Yes\n\n")

    def test_a_second_run_changes_nothing_and_signals_again(self):
        tool.run()
        written = tool.read_config()
        filed = self.start_filed()
        self.assertEqual(tool.run().status, 1)
        self.assertEqual(filed.signals(), [1, 15])
        self.assert_config(written)

    def test_a_file_with_a_syntax_error_is_left_as_it_was_and_no_signal_is_sent(self):
        content = b"[MacOSWardex]\nIsActive No\n\n"
        tool.write_config(content)
        filed = self.start_filed()
        result = tool.run()
        self.assertEqual(result.status, 2)
        self.assertEqual(filed.signals(), [])
        self.assert_config(content)

    def test_a_missing_directory_ends_with_status_2_and_no_signal(self):
        os.rmdir(sandbox.CONFIG_DIRECTORY)
        filed = self.start_filed()
        result = tool.run()
        self.assertEqual(result.status, 2)
        self.assertEqual(result.log, ["Self-check passed", "PostInstall task", "Terminated with error"])
        self.assertEqual(filed.signals(), [])
