"""Requests, replies and error texts."""

import datetime
import os
import plistlib
import socket

from support import sandbox, standins, tool
from support.case import ToolTestCase

SETTINGS = {"UpdateD": {"Mode": "Manual"}}
CONTENT = b"[UpdateD]\nMode = Auto\n\n"


def reply_to(message):
    """The reply to a message; it must be the only one, and the tool must end as it always does."""
    result = tool.run_pipe(tool.encode(message))
    if result.status != 0:
        raise AssertionError(f"status {result.status}; log: {result.log}")
    return result.reply


class Replies(ToolTestCase):
    def test_a_successful_request_comes_back_with_tag_ack_and_res_OK_and_no_err(self):
        tool.write_config(CONTENT)
        message = tool.request(SETTINGS, ticket="42")
        self.assertEqual(reply_to(message), {**message, "tag": "ack", "res": "OK"})

    def test_a_failed_request_comes_back_with_res_OK_and_the_error_text(self):
        tool.write_config(b"=\n\n")
        message = tool.request(SETTINGS, ticket="42")
        expected = {**message, "tag": "ack", "res": "OK", "err": "unexpected token"}
        self.assertEqual(reply_to(message), expected)

    def test_the_reply_is_byte_for_byte_what_the_platforms_serialiser_writes(self):
        more = {
            "zeta": [],
            "Alpha": {},
            "alpha": "",
            "a&b<c>": "1 < 2 && \"three\" > 'two'\ttab\nline",
            "data": bytes(range(256)),
            "empty data": b"",
            "date": datetime.datetime(2009, 2, 13, 23, 31, 30),
            "yes": True,
            "no": False,
            "numbers": [0, -1, 2**31, -(2**63), 2**64 - 1],
            "deep": {"list": [[["x"]], {"key": b"123"}]},
            "Grüße": "日本語 \U0001f600",
        }
        message = tool.request(SETTINGS, **more)
        result = tool.run_pipe(tool.encode(message))
        self.assertEqual(result.output, plistlib.dumps({**message, "tag": "ack", "res": "OK"}, sort_keys=True))

    def test_every_value_of_a_request_comes_back_unchanged(self):
        values = [
            "carriage\rreturn",
            "  blanks  ",
            "\n",
            "e\u0301 and \u00e9",
            "]]>",
            0.1,
            -0.0,
            3.0,
            1e300,
            5e-324,
            float("inf"),
            float("-inf"),
            datetime.datetime(1, 1, 1),
            datetime.datetime(9999, 12, 31, 23, 59, 59),
            {"": ""},
        ]
        message = plistlib.dumps(tool.request({}, values=values), sort_keys=False)
        # plistlib writes a carriage return as a line feed; a reference says what is meant.
        message = message.replace(b"carriage\nreturn", b"carriage&#13;return")
        result = tool.run_pipe(message)
        self.assertEqual(result.reply["values"], values)
        self.assertEqual(str(result.reply["values"][6]), "-0.0")

    def test_a_clients_own_res_is_replaced_and_its_own_err_comes_back_unless_the_request_fails(self):
        message = tool.request(SETTINGS, res="mine", err="mine")
        self.assertEqual(reply_to(message), {**message, "tag": "ack", "res": "OK"})
        tool.write_config(b"=\n\n")
        self.assertEqual(reply_to(message)["err"], "unexpected token")

    def test_a_request_without_arg_is_answered_without_arg(self):
        message = tool.request()
        self.assertEqual(reply_to(message), {"tag": "ack", "cmd": "ChangeConfig", "res": "OK"})

    def test_each_request_of_one_write_gets_its_own_error(self):
        tool.write_config(CONTENT)
        messages = [{"n": 1}, {"n": 2, "tag": "cmd", "cmd": "x"}, tool.request(SETTINGS, n=3)]
        result = tool.run_blocks([b"".join(map(tool.encode, messages))])
        self.assertEqual(
            [(reply["n"], reply.get("err")) for reply in result.replies],
            [(1, "not a command"), (2, "unknown command 'x'"), (3, None)],
        )


class RequestsThatAreRefused(ToolTestCase):
    def setUp(self):
        super().setUp()
        tool.write_config(CONTENT)
        self._updated = self.start_updated()

    def assert_refused(self, message):
        """The request fails, changes nothing and signals no daemon; returns the error text."""
        reply = reply_to(message)
        self.assertIsInstance(reply.get("err"), str)
        self.assertNotEqual(reply["err"], "")
        self.assertEqual(reply, {**message, "tag": "ack", "res": "OK", "err": reply["err"]})
        self.assert_config(CONTENT)
        return reply["err"]

    def tearDown(self):
        self.assertEqual(self._updated.signals(), [])

    def test_a_tag_other_than_cmd_or_none_is_not_a_command(self):
        for tag in ("ack", "CMD", "Cmd", "cmd ", "", None):
            with self.subTest(tag=tag):
                message = tool.request(SETTINGS, tag=tag)
                if tag is None:
                    del message["tag"]
                self.assertEqual(self.assert_refused(message), "not a command")

    def test_an_empty_dictionary_is_not_a_command(self):
        self.assertEqual(self.assert_refused({}), "not a command")

    def test_a_command_other_than_ChangeConfig_in_its_own_letter_case_is_unknown(self):
        for command in ("changeconfig", "CHANGECONFIG", "ChangeConfig ", "Changeconfig", "", "%s%n%@", "don't", "ü"):
            with self.subTest(command=command):
                error = self.assert_refused(tool.request(SETTINGS, cmd=command))
                self.assertEqual(error, f"unknown command '{command}'")

    def test_a_missing_command_is_unknown_and_shown_as_null(self):
        self.assertEqual(self.assert_refused({"tag": "cmd", "arg": SETTINGS}), "unknown command '(null)'")

    def test_a_tag_that_is_no_string_is_answered_with_some_description(self):
        for tag in (1, 1.5, True, [], ["cmd"], {}, b"cmd", datetime.datetime(2000, 1, 1)):
            with self.subTest(tag=tag):
                message = tool.request(SETTINGS, tag=tag)
                self.assertNotEqual(self.assert_refused(message), "not a command")

    def test_a_command_that_is_no_string_is_answered_with_some_description(self):
        for command in (1, False, ["ChangeConfig"], {}, b"ChangeConfig"):
            with self.subTest(command=command):
                message = tool.request(SETTINGS, cmd=command)
                self.assertNotIn("unknown command", self.assert_refused(message))

    def test_settings_that_are_no_dictionary_fail_before_the_file_is_touched(self):
        date = datetime.datetime(2000, 1, 1)
        for settings in ("", "UpdateD", 0, 1, 2.5, True, [], ["UpdateD"], [{}], b"", b"x", date):
            with self.subTest(settings=settings):
                self.assert_refused(tool.request(settings))

    def test_what_is_refused_is_not_looked_up_in_the_file(self):
        tool.write_config(b"=\n\n")
        self.assertEqual(reply_to({"tag": "x"})["err"], "not a command")
        self.assertEqual(reply_to({"tag": "cmd", "cmd": "x"})["err"], "unknown command 'x'")


def missing_directory():
    os.rmdir(sandbox.CONFIG_DIRECTORY)


def file_for_directory():
    missing_directory()
    with open(sandbox.CONFIG_DIRECTORY, "wb"):
        pass


def directory():
    os.mkdir(tool.CONFIG)


def fifo():
    os.mkfifo(tool.CONFIG)


def fifo_by_link():
    os.mkfifo(sandbox.SCRATCH_DIRECTORY + "/fifo")
    os.symlink(f"{sandbox.SCRATCH_DIRECTORY}/fifo", tool.CONFIG)


def device():
    os.symlink("/dev/zero", tool.CONFIG)


def null_device():
    os.symlink("/dev/null", tool.CONFIG)


def unix_socket():
    listener = socket.socket(socket.AF_UNIX)
    listener.bind(os.fspath(tool.CONFIG))
    listener.close()


def endless_link():
    os.symlink(str(tool.CONFIG), tool.CONFIG)


def read_only_mount():
    sandbox.mount("tmpfs", sandbox.CONFIG_DIRECTORY, "tmpfs")
    sandbox.make_read_only(sandbox.CONFIG_DIRECTORY)


def read_only_mount_with_file():
    sandbox.mount("tmpfs", sandbox.CONFIG_DIRECTORY, "tmpfs")
    tool.write_config(CONTENT)
    sandbox.make_read_only(sandbox.CONFIG_DIRECTORY)


OBSTACLES = (
    missing_directory,
    file_for_directory,
    directory,
    fifo,
    fifo_by_link,
    device,
    null_device,
    unix_socket,
    endless_link,
)
MOUNTED_OBSTACLES = (
    read_only_mount,
    read_only_mount_with_file,
)


class ConfigurationThatCannotBeOpened(ToolTestCase):
    def test_each_failure_is_told_and_the_daemons_are_left_alone(self):
        self.assert_each_is_told(OBSTACLES)

    @sandbox.requires_mounts
    def test_each_failure_of_a_read_only_file_system_is_told_and_the_daemons_are_left_alone(self):
        self.assert_each_is_told(MOUNTED_OBSTACLES)

    def assert_each_is_told(self, obstacles):
        for obstacle in obstacles:
            with self.subTest(obstacle=obstacle.__name__):
                sandbox.clear()
                obstacle()
                filed = self.start_daemon(standins.FILED_PID_FILE)
                updated = self.start_daemon(standins.UPDATED_PID_FILE)
                message = tool.request({"UpdateD": {"Mode": "x"}, "MacOSWardex": {"IsActive": "Yes"}}, mine=1)
                expected = {**message, "tag": "ack", "res": "OK", "err": "can't open ini file"}
                self.assertEqual(reply_to(message), expected)
                self.assertEqual((filed.signals(), updated.signals()), ([], []))
