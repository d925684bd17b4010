#!/usr/bin/python3
"""Tests if a process knows that it is set-user-ID: privilege_test.py PROBE

PROBE is PrivilegeProbe.cpp, built for macOS and made a program of this machine. The exit status is 77 (and the reason is printed)
where a set-user-ID program cannot be tested.
"""

import os
import subprocess
import sys
import unittest

sys.dont_write_bytecode = True
HERE = os.path.dirname(os.path.realpath(__file__))
REPOSITORY = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.dirname(HERE))

from support import sandbox, tool  # noqa: E402  (the path comes first)

USER = 1042
PROBE = sandbox.TOOL_DIRECTORY + "/PrivilegeProbe"


def run(**options):
    return subprocess.run([str(PROBE)], capture_output=True, text=True, check=True, **options).stdout


class Privileges(unittest.TestCase):
    def test_a_set_user_id_process_is_privileged_also_once_it_is_fully_root(self):
        tool.copy_tool(PROBE, ORIGINAL, mode=0o4755)
        self.assertEqual(run(user=USER, group=USER, extra_groups=[]), "1 1\n")

    def test_processes_of_root_and_of_a_user_are_not_privileged(self):
        tool.copy_tool(PROBE, ORIGINAL, mode=0o755)
        self.assertEqual(run(), "0 0\n")
        self.assertEqual(run(user=USER, group=USER, extra_groups=[]), "0 0\n")


def main():
    if not sandbox.enter_with_accounts([ORIGINAL, REPOSITORY]):
        return 77
    return 0 if unittest.main(argv=sys.argv[:1], exit=False).result.wasSuccessful() else 1


if __name__ == "__main__":
    ORIGINAL = os.path.realpath(sys.argv[1])
    sys.exit(main())
