#!/usr/bin/python3
"""Passes the macOS archive's ./prove in a private root directory: prove_test.py ARCHIVE PROGRAMS [OPTION OF PlatformFacts]...

The archive's programs are replaced by those of the same names in the directory PROGRAMS, which run here. Every shell of this machine that a
Mac's sh may resemble runs the script. The exit status is 0 if it finds nothing wrong and leaves nothing behind, 1 otherwise, 77 (and
the reason is printed) if this cannot run.
"""

import os
import shutil
import subprocess
import sys

sys.dont_write_bytecode = True
HERE = os.path.dirname(os.path.realpath(__file__))
REPOSITORY = os.path.dirname(os.path.dirname(HERE))
sys.path[:0] = [HERE, os.path.dirname(HERE)]

from facts_test import limit_options  # noqa: E402  (the path comes first)
from support import sandbox  # noqa: E402

SHELLS = ("dash", "bash")
PLACES = {
    "Zekara4MacTool": "root/Library/Application Support/Zekara/Zekara4MacTool",
    "zkaconfig": "root/usr/local/bin/zkaconfig",
    "PlatformFacts": "PlatformFacts",
}


def unpack(archive, programs):
    directory = "/archive"  # the private root's own
    os.mkdir(directory)
    subprocess.run(["tar", "-xzf", archive, "-C", directory], check=True)
    (name,) = os.listdir(directory)
    directory = os.path.join(directory, name)
    for program, place in PLACES.items():
        shutil.copy(os.path.join(programs, program), os.path.join(directory, place))
    return directory


def everything():
    """The paths below those that an installation changes."""
    roots = ("/Library", "/var/zekara", "/usr/local", "/zekara-tests")
    found = set()
    for root in roots:
        for where, directories, files in os.walk(root):
            found |= {os.path.join(where, name) for name in directories + files}
    return found


def prove(shell, directory, options, without_suites):
    print(f"== {shell}", flush=True)
    environment = {"PATH": os.environ["PATH"], "ZKA_FACTS_OPTIONS": " ".join(options), "ZKA_WITHOUT_SUITES": without_suites}
    result = subprocess.run(
        [shell, "./prove"], cwd=directory, env=environment, stdout=subprocess.PIPE, text=True, check=False, timeout=600
    )
    print(result.stdout, flush=True)
    checks = [line for line in result.stdout.splitlines() if line.startswith("ok ")]
    return result.returncode == 0 and len(checks) > (40 if without_suites else 200)


def main():
    archive, programs, *options = sys.argv[1:]
    archive, programs = os.path.realpath(archive), os.path.realpath(programs)
    if not sandbox.enter_with_accounts([archive, programs, REPOSITORY]):
        return 77
    sandbox.mount("tmpfs", "/usr/local", "tmpfs", 0, "mode=0755")
    options += limit_options()
    directory = unpack(archive, programs)
    for path in ("/Library", "/var/zekara", "/zekara-tests"):
        shutil.rmtree(path)
    os.makedirs("/Library/Application Support")
    before = everything()
    succeeded = True
    without_suites = os.environ.get("ZKA_WITHOUT_SUITES", "")
    for shell in filter(shutil.which, SHELLS):
        succeeded &= prove(shell, directory, options, without_suites)
        without_suites = without_suites or "they have run under another shell"
        if everything() != before:
            print(f"{shell}: made or removed {sorted(everything() ^ before)}")
            succeeded = False
    return 0 if succeeded else 1


if __name__ == "__main__":
    sys.exit(main())
