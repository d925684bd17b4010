"""A private root directory in which the tool's fixed paths are empty and belong to the tests.

The paths that the tool works on are fixed, so a test that needs them has to own them. enter() moves the
calling process into a mount namespace of its own and changes its root to a small tmpfs in which everything
of the machine is mounted where it always is, except /Library and /var/zekara, which are new and empty.
The machine's own files are never touched, nothing is left behind when the process ends, and neither
directory has to exist on the machine.

The processes are in a namespace of their own too: a tool that went wrong could signal whatever it likes and
reach none of the machine's, and none of them outlives the tests.

Root needs nothing more than that; anybody else gets a user namespace as well, in which his own account
appears as root.
"""

import ctypes
import os
import shutil
import subprocess
import sys

CONFIG_DIRECTORY = "/Library/Application Support/Zekara"
RUN_DIRECTORY = "/var/zekara/run"
TOOL_DIRECTORY = "/zekara-tests/tool"
SCRATCH_DIRECTORY = "/zekara-tests/scratch"

# What the machine may have of these is never shown in the private root directory, so nothing that is done to
# them can reach it.
_OWNED = ("/Library", "/var/zekara", "/zekara-tests")
# Directories that every machine has and that hold nothing a test needs: one of them becomes the mount point.
_MOUNT_POINTS = ("/mnt", "/media", "/srv", "/opt")
# Holds the mount namespace that was left, on the way into the new one.
_MARKER = "ZKA_NAMESPACE_LEFT"

_MS_RDONLY = 1
_MS_REMOUNT = 32
_MS_BIND = 4096
_MS_REC = 16384

_entered = False
_libc = ctypes.CDLL(None, use_errno=True)


class Unavailable(Exception):
    """No private mount namespace can be had here; the text says why."""


def mount(source, target, kind=None, flags=0, options=None):
    """Calls mount(2); raises OSError."""
    encoded = [None if text is None else os.fsencode(text) for text in (source, target, kind)]
    data = None if options is None else options.encode()
    if _libc.mount(*encoded, ctypes.c_ulong(flags), data) != 0:
        error = ctypes.get_errno()
        raise OSError(error, os.strerror(error), target)


def unmount(target):
    """Calls umount2(2), detaching the mount even where it is in use; raises OSError."""
    if _libc.umount2(os.fsencode(target), 2) != 0:
        error = ctypes.get_errno()
        raise OSError(error, os.strerror(error), target)


def make_read_only(target):
    """Makes the mount at target read-only."""
    mount(None, target, None, _MS_REMOUNT | _MS_RDONLY)


def in_user_namespace():
    """Whether root here is only an unprivileged account under another name."""
    with open("/proc/self/uid_map", encoding="ascii") as uid_map:
        return uid_map.read().split() != ["0", "0", "4294967295"]


def enter(needed_paths):
    """Moves this process into its private root; starts the program anew on the way there.

    needed_paths are the files outside /Library and /var/zekara that the caller wants to see afterwards.
    Raises Unavailable where no namespace can be had.
    """
    here = os.readlink("/proc/self/ns/mnt")
    if os.environ.pop(_MARKER, here) == here:
        command = _namespace_command()
        os.environ[_MARKER] = here
        sys.stdout.flush()
        os.execvp(command[0], [*command, sys.executable, *sys.argv])
    try:
        _change_root(_free_mount_point(needed_paths))
    except OSError as error:
        raise Unavailable(f"cannot set up a private root directory: {error}") from error


def clear():
    """Empties what a test may have changed and lays out the two directories that an installation provides."""
    if not _entered:
        raise RuntimeError("outside a private root directory these paths are the machine's own")
    os.umask(0o022)
    for path in ("/Library", "/var/zekara", SCRATCH_DIRECTORY):
        _unmount_below(path)
        if os.path.islink(path) or os.path.isfile(path):
            os.unlink(path)
        else:
            shutil.rmtree(path, ignore_errors=True)
    for path in (CONFIG_DIRECTORY, RUN_DIRECTORY, SCRATCH_DIRECTORY):
        os.makedirs(path)


def _namespace_command():
    private = ["--mount", "--propagation", "private", "--pid", "--fork", "--kill-child", "--mount-proc"]
    attempts = [["unshare", "--user", "--map-root-user", *private]]
    if os.geteuid() == 0:
        attempts.insert(0, ["unshare", *private])
    reasons = []
    for command in attempts:
        try:
            probe = subprocess.run([*command, "true"], capture_output=True, text=True, check=False)
        except OSError as error:
            raise Unavailable(f"cannot start unshare: {error}") from error
        if probe.returncode == 0:
            return command
        reasons.append(f"`{' '.join(command)}` says: {probe.stderr.strip()}")
    raise Unavailable("; ".join(reasons))


def _free_mount_point(needed_paths):
    needed = [os.path.realpath(path) for path in needed_paths]
    for candidate in _MOUNT_POINTS:
        if not os.path.isdir(candidate) or os.path.islink(candidate):
            continue
        if not any(os.path.commonpath([candidate, path]) == candidate for path in needed):
            return candidate
    raise Unavailable(f"none of {', '.join(_MOUNT_POINTS)} is free to mount a private root directory on")


def _change_root(new_root):
    here = os.getcwd()
    mount("tmpfs", new_root, "tmpfs", 0, "mode=0755")
    _show_directory("/", new_root, hidden={new_root, "/var", *_OWNED})
    _show_directory("/var", new_root, hidden=set(_OWNED))
    os.makedirs(new_root + new_root, exist_ok=True)
    os.chroot(new_root)
    global _entered
    _entered = True
    os.chdir(here if os.path.isdir(here) else "/")
    os.makedirs(TOOL_DIRECTORY)
    clear()


def _show_directory(directory, new_root, hidden):
    os.makedirs(new_root + directory, exist_ok=True)
    for name in os.listdir(directory):
        source = os.path.join(directory, name)
        if source not in hidden:
            _show(source, new_root + source)


def _show(source, target):
    if os.path.islink(source):
        os.symlink(os.readlink(source), target)
        return
    if os.path.isdir(source):
        os.mkdir(target)
    else:
        os.close(os.open(target, os.O_CREAT | os.O_WRONLY))
    mount(source, target, None, _MS_BIND | _MS_REC)


def _unmount_below(path):
    with open("/proc/self/mounts", encoding="utf-8") as mounts:
        targets = [line.split()[1].replace("\\040", " ") for line in mounts]
    for target in reversed(targets):
        if target == path or target.startswith(path + "/"):
            unmount(target)
