"""The demonstration that scripts/demo shows: it checks itself, and is run here so that it stays true."""

import os
import subprocess
import sys

from support import tool
from support.case import ToolTestCase

DEMONSTRATION = os.path.join(os.path.dirname(__file__), "..", "support", "demonstration.py")


class Demonstration(ToolTestCase):
    def test_it_ends_well_and_shows_replies_signals_and_differences(self):
        ended = subprocess.run(
            [sys.executable, "-B", DEMONSTRATION, tool.original],
            capture_output=True,
            text=True,
            timeout=tool.PATIENCE,
            check=False,
        )
        self.assertEqual(ended.returncode, 0, ended.stdout + ended.stderr)
        for line in ("Running on pipe", "unexpected token", "got SIGTERM", "-Interval = 43200", "+IsActive = Yes"):
            self.assertIn(line, ended.stdout)

    def test_a_program_that_is_not_the_tool_is_not_passed_off_as_it(self):
        ended = subprocess.run(
            [sys.executable, "-B", DEMONSTRATION, "/bin/true"],
            capture_output=True,
            text=True,
            timeout=tool.PATIENCE,
            check=False,
        )
        self.assertEqual(ended.returncode, 1)
