"""Runs a suite's tests, once their private root is there, without those that an exclusion list names.

The environment variable ZKA_EXCLUSIONS may name such a list. Each of its lines is "SUITE.MODULE.CLASS.TEST: REASON"; blank lines
and lines that begin with "#" are ignored. A listed test is skipped with its reason. A listed test that the module lacks is an error,
so that the list cannot outlive the tests.
"""

import os
import sys
import unittest

from support import sandbox


SKIPPED = 77


def main(directory, arguments):
    """Runs the suite in this directory with unittest's arguments; returns the exit status of its program.

    It is 0 when all pass, 1 when one fails, and SKIPPED when every test was skipped. The reasons are printed.
    """
    if not any(argument.startswith("test_") or argument == "discover" for argument in arguments):
        arguments = ["discover", "--start-directory", directory, "--top-level-directory", directory, *arguments]
    loader = _Loader(os.path.basename(directory), _read(os.environ.get("ZKA_EXCLUSIONS")))
    report = _LineRunner() if sandbox.is_in_place() else None
    result = unittest.main(module=None, argv=["run", *arguments], testLoader=loader, testRunner=report, exit=False).result
    stale = loader.stale()
    for name in stale:
        print(f"The exclusion list names {name}, which does not exist.", file=sys.stderr)
    reasons = [reason for _, reason in result.skipped]
    for reason in sorted(set(reasons)):
        print(f"Skipped {reasons.count(reason)}: {reason}")
    if stale or not result.wasSuccessful():
        return 1
    return SKIPPED if result.testsRun == len(reasons) else 0


class _Lines(unittest.TestResult):
    """Prints one line a test, as ./prove does for its own checks."""

    def __init__(self):
        super().__init__()
        self._left_out = set()

    @staticmethod
    def _say(outcome, test, detail=""):
        print(f"{outcome} {test.id()}" + (f": {detail}" if detail else ""), flush=True)

    def addSuccess(self, test):
        super().addSuccess(test)
        if test not in self._left_out:
            self._say("ok", test)

    def addSkip(self, test, reason):
        super().addSkip(test, reason)
        whole = getattr(test, "test_case", test)  # a part of a test is left out with the whole
        if whole not in self._left_out:
            self._left_out.add(whole)
            self._say("left out", whole, reason)

    def addFailure(self, test, err):
        super().addFailure(test, err)
        self._say("FAILED", test, " ".join(str(err[1]).split())[:300])

    def addError(self, test, err):
        super().addError(test, err)
        self._say("FAILED", test, f"{err[0].__name__}: " + " ".join(str(err[1]).split())[:300])

    def addSubTest(self, test, subtest, err):
        super().addSubTest(test, subtest, err)
        if err is not None:
            self._say("FAILED", subtest, " ".join(str(err[1]).split())[:300])


class _LineRunner:
    def run(self, tests):
        result = _Lines()
        tests(result)
        return result


def _read(path):
    reasons = {}
    if path:
        with open(path, encoding="utf-8") as file:
            for line in file:
                if line.strip() and not line.startswith("#"):
                    name, reason = line.strip().split(": ", 1)
                    reasons[name] = reason
    return reasons


class _Loader(unittest.TestLoader):
    def __init__(self, suite, reasons):
        super().__init__()
        self._suite = suite
        self._reasons = reasons
        self._modules = set()
        self._found = set()

    def loadTestsFromTestCase(self, case):
        self._modules.add(f"{self._suite}.{case.__module__}.")
        for test in self.getTestCaseNames(case):
            name = f"{self._suite}.{case.__module__}.{case.__qualname__}.{test}"
            if name in self._reasons:
                self._found.add(name)
                setattr(case, test, unittest.skip(self._reasons[name])(getattr(case, test)))
        return super().loadTestsFromTestCase(case)

    def stale(self):
        """The listed names in the modules that were loaded that are not tests."""
        listed = {name for name in self._reasons if any(name.startswith(module) for module in self._modules)}
        return sorted(listed - self._found)
