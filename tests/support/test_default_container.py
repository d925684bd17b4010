#!/usr/bin/python3
"""Checks the conditions that default-container makes: test_default_container.py PROGRAM

The exit status is 77 where the conditions cannot be made: without root's full rights.
"""

import ctypes
import errno
import os
import subprocess
import sys
import unittest

CLONE_NEWUSER = 0x10000000
CALLS = {"clone3": {"x86_64": 435, "aarch64": 435}, "clone": {"x86_64": 56, "aarch64": 220}}
# chown, dac_override, fowner, fsetid, kill, setgid, setuid, setpcap, net_bind_service, net_raw, sys_chroot, mknod, audit_write, setfcap
CAPABILITIES = "00000000a80425fb"
SKIPPED = 77

_libc = ctypes.CDLL(None, use_errno=True)


def error_of(call, *arguments):
    """The error with which the call fails; None when it succeeds."""
    ctypes.set_errno(0)
    return ctypes.get_errno() if call(*arguments) == -1 else None


def error_of_number(name, *arguments):
    return error_of(_libc.syscall, CALLS[name][os.uname().machine], *arguments)


class DefaultContainer(unittest.TestCase):
    """Runs inside: main() starts this program again under the conditions."""

    def test_root_has_the_fourteen_capabilities_and_may_still_gain_rights(self):
        with open("/proc/self/status", encoding="ascii") as file:
            status = dict(line.rstrip("\n").split(":\t", 1) for line in file if ":\t" in line)
        self.assertEqual((status["CapEff"], status["CapBnd"]), (CAPABILITIES, CAPABILITIES))
        self.assertEqual(status["NoNewPrivs"], "0")

    def test_mounts_and_namespaces_are_refused(self):
        zeros = [None, b"/", None, 0, None]
        self.assertEqual(error_of(_libc.mount, *zeros), errno.EPERM)
        self.assertEqual(error_of(_libc.umount2, b"/nowhere", 0), errno.EPERM)
        self.assertEqual(error_of(_libc.unshare, 0), errno.EPERM)
        self.assertEqual(error_of(_libc.setns, -1, 0), errno.EPERM)
        self.assertEqual(error_of_number("clone", CLONE_NEWUSER | 17, 0, 0, 0, 0), errno.EPERM)
        self.assertEqual(error_of_number("clone3", 0, 0), errno.ENOSYS)

    def test_processes_threads_and_another_root_directory_are_allowed(self):
        self.assertEqual(subprocess.run(["chroot", "/", "true"], check=False).returncode, 0)


def main():
    if len(sys.argv) < 2:
        print(__doc__)
        return 2
    if sys.argv[1] != "inside":
        started = subprocess.run([sys.argv[1], "true"], stderr=subprocess.PIPE, text=True, check=False)
        if os.geteuid() != 0 or started.returncode == 125:
            print(f"The conditions of a container cannot be made here: {started.stderr.strip()}")
            return SKIPPED
        return subprocess.run([sys.argv[1], sys.executable, __file__, "inside"], check=False).returncode
    return 0 if unittest.main(argv=sys.argv[:1], exit=False).result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
