"""The installers' scripts run under any POSIX shell, macOS's included."""

import os
import shutil
import unittest

from installation import BUILD, REPOSITORY, PackagingTest, run

_SHELL = ("packaging/install-tool", "packaging/tool-functions.sh", "packaging/record-files", "packaging/uninstall",
          "packaging/source-date", "packaging/macos/install", "packaging/macos/prove",
          "packaging/debian/finish-stage")
_GENERATED = ("debian/preinst", "debian/postinst", "debian/postrm")


class TheScripts(PackagingTest):
    def paths(self):
        return [os.path.join(REPOSITORY, name) for name in _SHELL] + [os.path.join(BUILD, name) for name in _GENERATED]

    def test_every_shell_reads_them(self):
        for shell in (["dash", "-n"], ["bash", "--posix", "-n"]):
            for path in self.paths():
                self.succeed(*shell, path)

    @unittest.skipIf(shutil.which("shellcheck") is None, "shellcheck is not installed (scripts/install-dependencies test)")
    def test_shellcheck_finds_nothing(self):
        self.succeed("shellcheck", "--external-sources", "--shell=sh", *self.paths(), cwd=REPOSITORY)
        self.succeed("shellcheck", "scripts/install", "scripts/uninstall", "scripts/release", "packaging/macos/pack", cwd=REPOSITORY)

    def test_scripts_for_linux_say_what_to_do_on_a_mac(self):
        stand_in = os.path.join(self.scratch, "uname")
        with open(stand_in, "w", encoding="utf-8") as file:
            file.write("#!/bin/sh\necho Darwin\n")
        os.chmod(stand_in, 0o755)
        result = run(REPOSITORY + "/scripts/install", env={**os.environ, "PATH": f"{self.scratch}:{os.environ['PATH']}"})
        self.assertEqual(result.returncode, 1)
        self.assertIn("sudo cmake --install", result.stdout)
