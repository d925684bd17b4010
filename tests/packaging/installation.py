"""What the modules of the packaging tests share: the build, its private root directory, and what a user does after installing."""

import os
import plistlib
import shutil
import subprocess
import tempfile
import unittest

import private_root
from private_root import ORDINARY, PrivateRoot
from support import sandbox

BUILD = REPOSITORY = None  # set by the program that starts the tests
DIRECTORY = "/Library/Application Support/Zekara"
TOOL = DIRECTORY + "/Zekara4MacTool"
CONFIGURATION = DIRECTORY + "/zekara32.ini"
LIST = DIRECTORY + "/installed-files"
PREFIX = "/opt/zekara-test"
ORDINARY_ID = 65534
MS_BIND = 4096


def attributes(path):
    found = os.lstat(path)
    return found.st_uid, found.st_gid, oct(found.st_mode & 0o7777)


def run(*command, **options):
    """Runs a program to its end, outside; its output is text, with its errors."""
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False, **options)


def files_below(directory):
    return sorted(os.path.join(where, name) for where, _, names in os.walk(directory) for name in names)


def pack(directory, **options):
    """Makes the Debian packages of the build; returns their paths by package name."""
    made = run("cpack", "-G", "DEB", "-B", directory, cwd=BUILD, **options)
    if made.returncode != 0:
        raise RuntimeError(f"cpack failed:\n{made.stdout}")
    return {file.split("_")[0]: os.path.join(directory, file) for file in os.listdir(directory) if file.endswith(".deb")}


class PackagingTest(unittest.TestCase):
    """A test that has a scratch directory of its own and installs nothing."""

    def setUp(self):
        self.scratch = tempfile.mkdtemp(prefix="packaging-scratch-", dir=BUILD)
        self.addCleanup(shutil.rmtree, self.scratch)

    def succeed(self, *command, **options):
        return self.check_success(command, run(*command, **options))

    def check_success(self, command, result):
        self.assertEqual(result.returncode, 0, f"{command}:\n{result.stdout}")
        return result.stdout

    def pack(self, name, **options):
        """Makes the Debian packages in a new directory; returns their paths by package name."""
        directory = os.path.join(self.scratch, name)
        os.mkdir(directory)
        return pack(directory, **options)


def _unneeded(directory, names):
    """What of the build directory no installation rule reads."""
    kept = {".cmake", ".a", ".pc"}
    return [name for name in names
            if name.startswith(("packaging-", "_CPack", "_deps")) or os.path.isfile(os.path.join(directory, name))
            and os.path.splitext(name)[1] not in kept and name not in ("Zekara4MacTool", "zkaconfig")]


def _make_root():
    """A private root directory with what the installation rules read: sources, scripts, and the results of the build."""
    root = PrivateRoot(BUILD)
    for name in ("PortableFoundation", "Zekara4MacLibrary", "completions", "docs", "examples", "man", "packaging"):
        root.copy_in(os.path.join(REPOSITORY, name))
    for name in ("README.md", "SECURITY.md", "CHANGELOG.md"):
        shutil.copy(os.path.join(REPOSITORY, name), root.at(REPOSITORY))
    root.copy_in(BUILD, ignore=_unneeded)
    return root


class InstallationTest(PackagingTest):
    """A test that installs into the private root directory of this process."""

    root = None

    @classmethod
    def setUpClass(cls):
        reason = private_root.why_not_here(BUILD)
        if reason:
            raise unittest.SkipTest(reason)
        if InstallationTest.root is None:
            InstallationTest.root = _make_root()

    @staticmethod
    def remove_root():
        if InstallationTest.root is not None:
            InstallationTest.root.remove()

    def setUp(self):
        super().setUp()
        self.root.clear()
        os.mkdir(self.root.at("/opt"))

    def at(self, path):
        return self.root.at(path)

    def attributes(self, path):
        return attributes(self.at(path))

    def exists(self, path):
        return os.path.lexists(self.at(path))

    def succeed_inside(self, *command, **options):
        return self.check_success(command, self.root.run(*command, **options))

    def fail_inside(self, pattern, *command, **options):
        result = self.root.run(*command, **options)
        self.assertNotEqual(result.returncode, 0, result.stdout)
        self.assertRegex(result.stdout, pattern)

    def make_directory(self, path, owner=0, mode=0o755):
        os.makedirs(self.at(path), exist_ok=True)
        os.chown(self.at(path), owner, 0)
        os.chmod(self.at(path), mode)

    def write(self, path, text="", owner=0, mode=0o644):
        with open(self.at(path), "w", encoding="utf-8") as file:
            file.write(text)
        os.chown(self.at(path), owner, owner)
        os.chmod(self.at(path), mode)

    def read(self, path):
        with open(self.at(path), encoding="utf-8") as file:
            return file.read()

    def show_processes(self):
        """Mounts /proc in the private root directory; skips the test where nothing can be mounted."""
        if not self.root.can_mount:
            self.skipTest("nothing can be mounted here")
        os.mkdir(self.at("/proc"))
        sandbox.mount("/proc", self.at("/proc"), None, MS_BIND)

    def replace_program(self, name, script):
        self.addCleanup(self.root.replace_program(name, script))

    @staticmethod
    def install_tool(tool=None):
        return [REPOSITORY + "/packaging/install-tool", tool or BUILD + "/Zekara4MacTool/Zekara4MacTool", DIRECTORY]

    def change_setting_as_ordinary_user(self):
        """Has the installed tool change a setting for an account without rights."""
        request = {"tag": "cmd", "cmd": "ChangeConfig", "arg": {"MacOSWardex": {"IsActive": "No"}}}
        started = subprocess.run(self.root.command(TOOL, "pipe", user=ORDINARY), input=plistlib.dumps(request), capture_output=True,
                                 check=False)
        self.assertEqual(started.returncode, 0, started.stderr)
        reply = plistlib.loads(started.stdout)
        self.assertEqual((reply["tag"], reply["res"], reply.get("err")), ("ack", "OK", None))
        self.assertIn(b"Self-check passed", started.stderr)
        self.assertRegex(self.read(CONFIGURATION), r"IsActive\s*=\s*No")
        self.assertEqual(self.attributes(CONFIGURATION), (0, 0, "0o444"))


class OpenTool:
    """A process of an ordinary account that has a program open, and starts it when it is told to."""

    def __init__(self, root, path):
        ready, tell_ready = os.pipe()
        wait, self._go = os.pipe()
        self._pid = os.fork()
        if self._pid == 0:
            self._hold(root, path, tell_ready, wait)
        os.close(tell_ready)
        os.close(wait)
        if os.read(ready, 1) != b"r":
            raise RuntimeError(f"{path} cannot be opened")
        os.close(ready)

    def start(self):
        """Starts the program that is open; returns its exit status, or the error number with which the start was refused."""
        os.write(self._go, b"g")
        os.close(self._go)
        return os.waitstatus_to_exitcode(os.waitpid(self._pid, 0)[1])

    def _hold(self, root, path, tell_ready, wait):
        status = 255
        try:
            os.close(self._go)
            os.chroot(root)
            os.chdir("/")
            os.setgroups([])
            os.setgid(ORDINARY_ID)
            os.setuid(ORDINARY_ID)
            held = os.open(path, os.O_RDONLY)
            os.write(tell_ready, b"r")
            os.read(wait, 1)
            os.execve(held, [path, "neither", "mode"], {})
        except OSError as error:
            status = error.errno
        finally:
            os._exit(status)
