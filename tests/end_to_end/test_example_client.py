"""The example clients: in Python, as a program and as a module, and in C++."""

import contextlib
import importlib.util
import os
import subprocess
import sys
import unittest

from support import sandbox, tool
from support.case import ToolTestCase, requires_set_user_id

CLIENT = os.path.join(os.path.dirname(__file__), "..", "..", "examples", "client.py")
CONTENT = b"[MacOSWardex]\nIsActive = No\n\n[UpdateD]\nInterval = 43200\n\n"


def run_client(*arguments, **options):
    return subprocess.run(
        [sys.executable, "-B", CLIENT, "--tool", sandbox.name_outside(tool.TOOL), *arguments],
        capture_output=True,
        text=True,
        timeout=tool.PATIENCE,
        check=False,
        **options,
    )


@contextlib.contextmanager
def log_discarded():
    """Sends what is written to standard error, by child processes too, nowhere."""
    sys.stderr.flush()
    kept = os.dup(2)
    with open(os.devnull, "wb") as nowhere:
        os.dup2(nowhere.fileno(), 2)
    try:
        yield
    finally:
        os.dup2(kept, 2)
        os.close(kept)


class ExampleClient(ToolTestCase):
    def setUp(self):
        super().setUp()
        tool.write_config(CONTENT)

    def test_settings_are_changed_and_the_daemon_is_told(self):
        filed = self.start_filed()
        ended = run_client("MacOSWardex", "IsActive=Yes", "FileTimeout=60", "ExcludedPaths=/dev, /Network")
        self.assertEqual((ended.returncode, ended.stdout), (0, ""), ended.stderr)
        self.assertEqual(filed.signals(), [1])
        expected = b'[MacOSWardex]\nIsActive = Yes\nFileTimeout = 60\nExcludedPaths = "/dev", "/Network"\n\n'
        self.assert_config(expected + b"[UpdateD]\nInterval = 43200\n\n")

    def test_a_number_that_is_there_already_is_no_change(self):
        updated = self.start_updated()
        self.assertEqual(run_client("UpdateD", "Interval=43200").returncode, 0)
        self.assertEqual(updated.signals(), [])
        self.assert_config(CONTENT)

    def test_an_error_of_the_tool_is_told_and_gives_status_1(self):
        tool.write_config(b"]\n\n")
        ended = run_client("A", "k=v")
        self.assertEqual(ended.returncode, 1)
        self.assertEqual(ended.stderr.splitlines()[-1], "client.py: unexpected token")

    def test_a_tool_that_gives_no_answer_is_told_and_gives_status_1(self):
        ended = run_client("--tool", "/bin/true", "A", "k=v")
        self.assertEqual(ended.returncode, 1)
        self.assertIn("gave no answer", ended.stderr)

    def test_a_tool_that_is_not_there_is_told_and_gives_status_1(self):
        ended = run_client("--tool", "/gone", "A", "k=v")
        self.assertEqual(ended.returncode, 1)
        self.assertIn("/gone", ended.stderr)

    def test_a_setting_without_an_equals_sign_is_refused_and_the_tool_is_not_started(self):
        ended = run_client("A", "k")
        self.assertEqual(ended.returncode, 2)
        self.assertIn("KEY=VALUE", ended.stderr)
        self.assert_config(CONTENT)

    def test_the_function_returns_the_reply_and_raises_the_tools_error(self):
        specification = importlib.util.spec_from_file_location("client", CLIENT)
        client = importlib.util.module_from_spec(specification)
        specification.loader.exec_module(client)
        with log_discarded():
            reply = client.change_config(sandbox.name_outside(tool.TOOL), {"A": {"k": True}})
        self.assertEqual(reply, {"tag": "ack", "cmd": "ChangeConfig", "arg": {"A": {"k": True}}, "res": "OK"})
        os.rename(sandbox.CONFIG_DIRECTORY, sandbox.CONFIG_DIRECTORY + ".gone")
        with self.assertRaisesRegex(client.ChangeConfigError, "^can't open ini file$"), log_discarded():
            client.change_config(sandbox.name_outside(tool.TOOL), {"A": {"k": True}})

    @sandbox.requires_machine
    @requires_set_user_id
    def test_an_account_without_rights_can_use_it(self):
        copy = sandbox.SCRATCH_DIRECTORY + "/client.py"
        with open(CLIENT, "rb") as source, open(copy, "wb") as target:
            target.write(source.read())
        ended = subprocess.run(
            [sys.executable, "-B", copy, "--tool", tool.TOOL, "A", "k=v"],
            cwd="/",
            capture_output=True,
            timeout=tool.PATIENCE,
            check=False,
            **tool.drop_privileges_arguments(),
        )
        self.assertEqual(ended.returncode, 0, ended.stderr)
        self.assert_config(CONTENT + b"[A]\nk = v\n\n")


CPP_CLIENT = os.environ.get("ZKA_CPP_CLIENT")


@unittest.skipIf(CPP_CLIENT is None, "the example in C++ has not been built")
class ExampleClientInCpp(ToolTestCase):
    def run_client(self, *arguments):
        return subprocess.run(
            [CPP_CLIENT, sandbox.name_outside(tool.TOOL), *arguments],
            capture_output=True,
            text=True,
            timeout=tool.PATIENCE,
            check=False,
        )

    def test_a_setting_is_changed_and_the_daemon_is_told(self):
        tool.write_config(CONTENT)
        filed = self.start_filed()
        ended = self.run_client("MacOSWardex", "IsActive", "Yes")
        self.assertEqual((ended.returncode, ended.stdout), (0, "done\n"), ended.stderr)
        self.assertEqual(filed.signals(), [1])
        self.assert_config(CONTENT.replace(b"No", b"Yes"))

    def test_a_number_that_is_there_already_is_no_change(self):
        tool.write_config(CONTENT)
        updated = self.start_updated()
        self.assertEqual(self.run_client("UpdateD", "Interval", "43200").returncode, 0)
        self.assertEqual(updated.signals(), [])
        self.assert_config(CONTENT)

    def test_a_number_beyond_32_bits_and_a_negative_one_are_sent_as_text(self):
        tool.write_config(CONTENT)
        for text in ("2147483648", "-5", "5 "):
            self.assertEqual(self.run_client("UpdateD", "Mode", text).returncode, 0)
            self.assertIn(f"Mode = {text}\n" if text.isdigit() else f'Mode = "{text}"\n', tool.read_config().decode())

    def test_an_error_of_the_tool_is_told_and_gives_status_1(self):
        tool.write_config(b"]\n\n")
        ended = self.run_client("A", "k", "v")
        self.assertEqual(ended.returncode, 1)
        self.assertEqual(ended.stderr.splitlines()[-1], "the tool says: unexpected token")

    def test_a_tool_that_gives_no_answer_is_told_and_gives_status_1(self):
        ended = subprocess.run([CPP_CLIENT, "/bin/true", "A", "k", "v"], capture_output=True, text=True, check=False)
        self.assertEqual(ended.returncode, 1)
        self.assertIn("ended without a reply", ended.stderr)
