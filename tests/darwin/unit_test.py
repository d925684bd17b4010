#!/usr/bin/python3
"""Passes a program of unit tests, without those that an exclusion list names: unit_test.py PROGRAM LIST

Each line of the list is "PROGRAM SUITE.TEST: REASON"; blank lines and lines that begin with "#" are ignored. A listed test that the
program lacks is an error, so that the list cannot outlive the tests.
"""

import os
import subprocess
import sys


def excluded_tests(program, path):
    with open(path, encoding="utf-8") as file:
        for line in file:
            if line.strip() and not line.startswith("#"):
                name, reason = line.strip().split(": ", 1)
                if name.split()[0] == program:
                    yield name.split()[1], reason


def existing_tests(program):
    suite = ""
    listing = subprocess.run([program, "--gtest_list_tests"], stdout=subprocess.PIPE, text=True, check=True).stdout
    for line in listing.splitlines():
        name = line.split("#")[0].rstrip()
        if not line.startswith(" "):
            suite = name
        else:
            yield suite + name.strip()


def main():
    program, path = sys.argv[1:]
    excluded = dict(excluded_tests(os.path.basename(program), path))
    stale = set(excluded) - set(existing_tests(program))
    for name in stale:
        print(f"The exclusion list names {name}, which does not exist.")
    for name, reason in excluded.items():
        print(f"left out {name}: {reason}")
    arguments = ["--gtest_filter=-" + ":".join(excluded)] if excluded else []
    status = subprocess.run([program, "--gtest_brief=1", *arguments], check=False).returncode
    return 1 if status or stale else 0


if __name__ == "__main__":
    sys.exit(main())
