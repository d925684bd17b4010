#!/usr/bin/python3
"""Runs PlatformFacts against the loader's stand-ins, in a private root directory: facts_test.py PROGRAM [--without NAME]...

The exit status is 0 if every assumption holds here, 1 if one does not, 77 (and the reason is printed) if this cannot run.
"""

import os
import resource
import shutil
import subprocess
import sys

sys.dont_write_bytecode = True
HERE = os.path.dirname(os.path.realpath(__file__))
REPOSITORY = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.dirname(HERE))

from support import sandbox  # noqa: E402  (the path comes first)

LIMITS = ("limit-file-size", "limit-processor", "limit-data", "limit-address-space")


def may_raise_limits():
    """Root may raise hard limits, unless a container has taken that right away."""

    def lower_and_raise():
        limit = resource.RLIM_INFINITY
        resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 40, 1 << 40))
        resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))

    try:
        return subprocess.run(["true"], preexec_fn=lower_and_raise, check=False).returncode == 0
    except subprocess.SubprocessError:
        return False


def limit_options():
    """Returns the options of PlatformFacts that leave out what root may not do here."""
    if may_raise_limits():
        return []
    print("Root may not raise hard limits here, so the checks of limits are left out.", flush=True)
    return [word for name in LIMITS for word in ("--without", name)]


def main():
    program = os.path.realpath(sys.argv[1])
    if not sandbox.enter_with_accounts([program, REPOSITORY]):
        return 77
    directory = os.path.join(sandbox.TOOL_DIRECTORY, "facts")
    os.mkdir(directory)
    copy = shutil.copy(program, os.path.join(sandbox.TOOL_DIRECTORY, "PlatformFacts"))
    options = sys.argv[2:] + limit_options()
    status = subprocess.run([copy, directory, *options], check=False).returncode
    left = os.listdir(directory)
    if left:
        print(f"PlatformFacts left {left} behind")
    return status or bool(left)


if __name__ == "__main__":
    sys.exit(main())
