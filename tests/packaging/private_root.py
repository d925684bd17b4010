"""A small root directory in which installers run for real and the machine's own files cannot be reached.

The directory holds copies of the programs that installers call, with their libraries. The tests stay outside: they start programs
in the directory with chroot(8) and look at the result from outside. Root needs neither namespaces nor mounts for that, so it also
works in a container.
"""

import ctypes
import errno
import glob
import os
import re
import shutil
import stat
import subprocess
import tempfile

from support import sandbox

ORDINARY = "65534:65534"  # an account without rights, as chroot(8) takes it
_PATH = "/usr/sbin:/usr/bin:/sbin:/bin"
_PROGRAMS = """sh dash bash awk basename cat chmod chown chroot cmake cp cut date df dirname env false find grep gzip head id ln ls
    mkdir mktemp mount mv od pwd readlink rm rmdir sed sleep sort strip tail tar touch tr true uname xargs""".split()
_MERGED = ("bin", "lib", "lib64", "sbin")  # links into /usr, as Debian has them


def why_not_here(directory):
    """The reason why programs cannot be installed in a root directory below `directory`, or None."""
    if os.geteuid() != 0 or sandbox.in_user_namespace():
        return "only root can install set-user-ID programs and change accounts"
    if os.statvfs(directory).f_flag & os.ST_NOSUID:
        return f"the file system of {directory} is mounted nosuid"
    try:
        probe = subprocess.run(["chroot", "/", "true"], capture_output=True, text=True, check=False)
    except OSError as error:
        return f"chroot cannot be started: {error}"
    return probe.stderr.strip() or None


def _enter_mount_namespace():
    """Moves this process into a mount namespace of its own, so that no mount of the tests outlives it. Returns false if the system
    refuses; then nothing is mounted at all."""
    new_namespace, recursive, private = 0x20000, 0x4000, 0x40000
    try:
        if ctypes.CDLL(None).unshare(new_namespace) != 0:
            return False
        sandbox.mount("none", "/", None, recursive | private)
    except OSError:
        return False
    return True


class PrivateRoot:
    def __init__(self, parent):
        self.can_mount = _enter_mount_namespace()
        self.path = tempfile.mkdtemp(prefix="packaging-root-", dir=parent)
        os.chmod(self.path, 0o755)
        for name in _MERGED:
            os.makedirs(f"{self.path}/usr/{name}")
            os.symlink("usr/" + name, f"{self.path}/{name}")
        for name in ("dev", "etc", "var", "usr/local", "usr/share"):
            os.makedirs(f"{self.path}/{name}")
        shutil.copy("/etc/debian_version", self.path + "/etc")
        self._make_null_device()
        for program in _PROGRAMS:
            self._copy_program(program)
        for modules in glob.glob("/usr/share/cmake-*"):
            shutil.copytree(modules, self.path + modules, symlinks=True)
        self._note_content()
        self.clear()

    def remove(self):
        self.clear()
        shutil.rmtree(self.path)

    def clear(self):
        """Removes what an installer may have left."""
        for point in sorted(self._mounts(), reverse=True):
            sandbox.unmount(point)
        for directory, names in self._unchanged.items():
            for name in set(os.listdir(self.path + directory)) - names:
                self._remove_tree(os.path.join(self.path + directory, name))
        os.mkdir(self.path + "/tmp")
        os.chmod(self.path + "/tmp", 0o1777)

    def at(self, path):
        """The path, seen from outside, of a file in the root directory."""
        return self.path + path

    def copy_in(self, path, ignore=None):
        """Copies a directory to the same path in the root directory, for good."""
        parts = path.strip("/").split("/")
        for depth in range(1, len(parts)):
            os.makedirs(self.at("/" + "/".join(parts[:depth])), mode=0o755, exist_ok=True)
        shutil.copytree(path, self.at(path), ignore=ignore, symlinks=True)
        subprocess.run(["chmod", "-R", "a+rX", self.at("/" + parts[0])], check=True)  # the umask of the build is another matter
        self._note_content()

    def command(self, *command, user="0:0", umask=0o022, cwd="/", environment=()):
        """The command, run outside, that runs `command` in the root directory."""
        script = f"cd \"$0\" && umask {umask:o} && exec \"$@\""
        settings = [f"{name}={value}" for name, value in dict(environment).items()]
        return ["chroot", f"--userspec={user}", "--groups=", self.path, "/usr/bin/env", "-i", f"PATH={_PATH}", "HOME=/tmp",
                *settings, "sh", "-c", script, cwd, *command]

    def run(self, *command, **options):
        """Runs a program in the root directory to its end; its output is text, with its errors."""
        return subprocess.run(self.command(*command, **options), stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              stdin=subprocess.DEVNULL, text=True, check=False)

    def replace_program(self, name, script):
        """Puts a shell script in a program's place; `real_NAME` is the program. Returns what undoes that."""
        path = self.at("/usr/bin/" + name)
        real = self.at("/usr/bin/real_" + name)
        os.rename(path, real)
        with open(path, "w", encoding="utf-8") as file:
            file.write("#!/bin/sh\n" + script)
        os.chmod(path, 0o755)
        return lambda: os.rename(real, path)

    def _note_content(self):
        """Remembers what clear() leaves alone."""
        self._unchanged = {name: {*os.listdir(self.path + name)} - {"tmp"}
                           for name in ("/", "/usr", "/usr/local", "/usr/share", "/var")}

    def _mounts(self):
        with open("/proc/self/mounts", encoding="utf-8") as mounts:
            points = [line.split()[1].replace("\\040", " ") for line in mounts]
        return [point for point in points if point.startswith(self.path + "/")]

    def _make_null_device(self):
        path = self.path + "/dev/null"
        try:
            os.mknod(path, stat.S_IFCHR | 0o666, os.makedev(1, 3))
            os.close(os.open(path, os.O_WRONLY))
        except OSError as error:
            if error.errno not in (errno.EPERM, errno.EACCES):
                raise
            if os.path.exists(path):
                os.unlink(path)
            os.close(os.open(path, os.O_CREAT, 0o666))  # swallows what is written to it just as well
        os.chmod(path, 0o666)
        os.symlink("/proc/self/fd", self.path + "/dev/fd")

    def _copy_program(self, name):
        found = shutil.which(name, path=_PATH)
        if found is None:
            raise FileNotFoundError(errno.ENOENT, "this machine lacks a program that installers call", name)
        self._copy_file(found, "/usr/bin/" + name)
        linked = subprocess.run(["ldd", found], capture_output=True, text=True, check=False).stdout
        for library in re.findall(r"(/\S+) \(0x", linked):
            if not os.path.exists(self.at(library)):
                os.makedirs(os.path.dirname(self.at(library)), exist_ok=True)
                self._copy_file(library, library)

    def _copy_file(self, source, target):
        shutil.copy(os.path.realpath(source), self.at(target))

    @staticmethod
    def _remove_tree(path):
        if os.path.isdir(path) and not os.path.islink(path):
            shutil.rmtree(path)
        else:
            os.unlink(path)
