"""Every command and every program that the documents show runs."""

import os
import shutil
import subprocess
import unittest

import commands
import extraction
from support import sandbox, standins, tool

SITE = """\
[MacOSWardex]
SkipArchives = No

"""
PROGRAM = """\
#include "Zekara4MacLibrary/ZKAIniParser.h"
int main() { return zekara::ZKAIniParser::initWithData("[A]\\nk = 1\\n\\n").parse()->asDictionary().count() == 1 ? 0 : 1; }
"""
CONFIGURATION = b"""[MacOSWardex]
IsActive = No
FileTimeout = 30

[UpdateD]
Interval = 43200

"""
INSTALLED_TOOL = f"{sandbox.CONFIG_DIRECTORY}/Zekara4MacTool"
PREFIX = f"{sandbox.TOOL_DIRECTORY}/prefix"
# Set by the program that runs these tests.
BUILD = None


def install():
    """Installs the front ends and the library in a place of the tests' own."""
    # "cmake --install" writes its list of files into the build directory, which may be another user's.
    with open(f"{BUILD}/cmake_install.cmake", encoding="utf-8") as file:
        script = file.read().replace(f'"{BUILD}/${{CMAKE_INSTALL_MANIFEST}}"', f'"{PREFIX}/files"')
    os.makedirs(PREFIX)
    with open(f"{PREFIX}/install.cmake", "w", encoding="utf-8") as file:
        file.write(script)
    for component in ("Library", "FrontEnd"):
        subprocess.run(["cmake", f"-DCMAKE_INSTALL_PREFIX={PREFIX}", f"-DCMAKE_INSTALL_COMPONENT={component}", "-P",
                        f"{PREFIX}/install.cmake"], check=True, stdout=subprocess.DEVNULL)
    os.symlink(f"{BUILD}/examples/change_setting", f"{PREFIX}/bin/change_setting")
    for name, script in (("sudo", '#!/bin/sh\nexec "$@"\n'), ("Zekara4MacTool", f'#!/bin/sh\nexec "{INSTALLED_TOOL}" "$@"\n')):
        with open(f"{PREFIX}/bin/{name}", "w", encoding="ascii") as file:
            file.write(script)
        os.chmod(f"{PREFIX}/bin/{name}", 0o755)


def link_entries(source, target, leave_out):
    os.makedirs(target)
    for name in os.listdir(source):
        if name not in leave_out:
            os.symlink(f"{source}/{name}", f"{target}/{name}")


def lay_out_checkout():
    """A directory that looks like a checkout with a release build. Nothing that a command makes in it is in the real one."""
    checkout = f"{sandbox.SCRATCH_DIRECTORY}/checkout"
    # ctest writes its log into Testing/, even if it only lists tests.
    link_entries(extraction.REPOSITORY, checkout, leave_out=("build", ".git"))
    link_entries(BUILD, f"{checkout}/build/release", leave_out=("Testing",))
    for name, text in (("site.ini", SITE), ("program.cpp", PROGRAM)):
        with open(f"{checkout}/{name}", "w", encoding="ascii") as file:
            file.write(text)
    return checkout


def environment():
    path = f"{PREFIX}/bin:{os.environ.get('PATH', '/usr/bin:/bin')}"
    return {**os.environ, "PATH": path, "PKG_CONFIG_PATH": f"{PREFIX}/lib/pkgconfig", "PYTHONDONTWRITEBYTECODE": "1",
            "HOME": sandbox.SCRATCH_DIRECTORY}


class Commands(unittest.TestCase):
    def setUp(self):
        sandbox.clear()
        for pid_file in (standins.FILED_PID_FILE, standins.UPDATED_PID_FILE):
            self.addCleanup(standins.StandInDaemon(pid_file).stop)
        shutil.copyfile(tool.TOOL, INSTALLED_TOOL)
        os.chmod(INSTALLED_TOOL, 0o4755)
        tool.write_config(CONFIGURATION)
        self.checkout = lay_out_checkout()

    def run_command(self, found, command, status=0):
        ended = subprocess.run(["bash", "-o", "pipefail", "-c", command], cwd=self.checkout, env=environment(),
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                               timeout=4 * tool.PATIENCE, check=False)
        self.assertEqual(ended.returncode, status, f"{found.document}:{found.line}: {command}\n{ended.stdout}")

    def test_every_command_that_can_run_does(self):
        for document in extraction.documents():
            self.setUp()
            for found in extraction.commands(document):
                with self.subTest(document=document.name, line=found.line, command=found.text):
                    command = commands.to_run(found.text)
                    if command is not None:
                        self.run_command(found, command, commands.STATUSES.get(found.text, 0))

    def test_programs_in_python_and_cpp_are_whole_and_run(self):
        for document in extraction.documents():
            for found in extraction.blocks(document, "python"):
                with self.subTest(document=document.name, line=found.line):
                    self.run_command(found, f"cat > example.py <<'END'\n{found.text}END\npython3 example.py")
            for found in extraction.blocks(document, "cpp"):
                with self.subTest(document=document.name, line=found.line):
                    self.run_command(found, f"cat > example.cpp <<'END'\n{found.text}END\nc++ -std=c++20 -Wall -Wextra -Werror "
                                            "-o example example.cpp $(pkg-config --cflags --libs Zekara4Mac) && ./example")


if __name__ == "__main__":
    unittest.main()
