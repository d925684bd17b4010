"""A private root directory in which the tool's fixed paths are empty and belong to the tests.

The paths that the tool works on are fixed, so a test that needs them has to own them. enter() takes the strongest
isolation that it can have:

- As root, namespaces of mounts and processes. This process moves into them and changes its root to a small tmpfs in which
  everything of the machine is mounted where it always is, except /Library and /var/zekara, which are new and empty. A tool
  that went wrong could signal no process of the machine's, and no process outlives the tests.
- As an ordinary user, the same in a user namespace, in which the user's own account appears as root.
- As root where a container refuses namespaces and mounts, a directory: start() changes the root of the tool and of its
  other children to it, and this process stays outside. The directory is removed when this process ends.

On a Mac there is none of that. There ./prove, which has found the tool's paths free, sets ZKA_IN_PLACE, and the tests use the paths
in place: they make both directories and remove them again.

Otherwise the machine's own files stay untouched, and neither directory has to exist on the machine. A Path is named as
the tool knows it and found where it is, so a test need not know which of the three it runs in.
"""

import atexit
import contextlib
import ctypes
import os
import shlex
import shutil
import stat
import subprocess
import sys
import tempfile
import unittest

# Directories of the machine that a private root directory may be made in, where /tmp or TMPDIR does not allow devices or
# set-user-ID programs.
_OTHER_PLACES = ("/var/tmp", "/root")
_DEVICES = {"null": (1, 3), "zero": (1, 5), "full": (1, 7)}

# The tests' own directory. macOS lets no account write to "/".
_TESTS = "/private/var/zekara-tests" if sys.platform == "darwin" else "/zekara-tests"
# What the machine may have of these is never shown in the private root directory, so nothing that is done to
# them can reach it.
_OWNED = ("/Library", "/var/zekara", _TESTS)
# Directories that every machine has and that hold nothing a test needs: one of them becomes the mount point.
_MOUNT_POINTS = ("/mnt", "/media", "/srv", "/opt")
# Holds the mount namespace that was left, on the way into the new one.
_MARKER = "ZKA_NAMESPACE_LEFT"

_MS_RDONLY = 1
_MS_REMOUNT = 32
_MS_BIND = 4096
_MS_REC = 16384

_entered = False
# The tests own the machine's own paths.
_in_place = False
# The directory that holds the private root, as this process sees it; empty where this process is inside itself.
_root = ""
_libc = ctypes.CDLL(None, use_errno=True)


class Unavailable(Exception):
    """No private root directory can be had here; the text says why."""


class Path:
    """A path of the private root.

    str() is its name for the tool and every other process inside; os.fspath(), and so open() and the functions of os, is
    where this process finds it. A string can be added to it.
    """

    def __init__(self, name):
        self._name = str(name)

    def __str__(self):
        return self._name

    def __fspath__(self):
        return _root + self._name

    def __add__(self, more):
        return Path(self._name + more)

    def __radd__(self, more):
        return more + self._name

    def encode(self):
        return self._name.encode()

    def __eq__(self, other):
        return isinstance(other, (Path, str)) and self._name == str(other)

    def __hash__(self):
        return hash(self._name)

    def __repr__(self):
        return repr(self._name)


CONFIG_DIRECTORY = Path("/Library/Application Support/Zekara")
RUN_DIRECTORY = Path("/var/zekara/run")
TOOL_DIRECTORY = Path(_TESTS + "/tool")
SCRATCH_DIRECTORY = Path(_TESTS + "/scratch")
# What the tests make and remove where they are in place; a test gives the first directory the second name.
_MADE_IN_PLACE = (CONFIG_DIRECTORY, CONFIG_DIRECTORY + ".gone", Path("/var/zekara"), SCRATCH_DIRECTORY)


def mount(source, target, kind=None, flags=0, options=None):
    """Calls mount(2); raises OSError."""
    encoded = [None if text is None else os.fsencode(text) for text in (source, target, kind)]
    data = None if options is None else options.encode()
    if _libc.mount(*encoded, ctypes.c_ulong(flags), data) != 0:
        error = ctypes.get_errno()
        raise OSError(error, os.strerror(error), str(target))


def unmount(target):
    """Calls umount2(2), detaching the mount even where it is in use; raises OSError."""
    if _libc.umount2(os.fsencode(target), 2) != 0:
        error = ctypes.get_errno()
        raise OSError(error, os.strerror(error), str(target))


def make_read_only(target):
    """Makes the mount at target read-only."""
    mount(None, target, None, _MS_REMOUNT | _MS_RDONLY)


def in_user_namespace():
    """Returns true if root here is only an unprivileged account under another name."""
    if not os.path.exists("/proc/self/uid_map"):
        return False
    with open("/proc/self/uid_map", encoding="ascii") as uid_map:
        return uid_map.read().split() != ["0", "0", "4294967295"]


def requires_mounts(test):
    """Skips a test that mounts something, or in which the tool needs /proc, where the root is a directory only."""
    if _in_place:
        return unittest.skip("needs a mount in a private root directory")(test)
    return _skipped_outside(test, "needs a mount inside the private root directory, and a container refuses it")


def requires_machine(test):
    """Skips a test that runs the machine's programs inside, where the root is a directory that holds the tool only."""
    return _skipped_outside(test, "needs the machine's programs inside the private root directory, which holds the tool only")


def require_linux(what):
    """Skips the running test, which needs `what`, if it runs in place, as on a Mac."""
    if _in_place:
        raise unittest.SkipTest(f"needs {what}, which only Linux has")


def is_in_place():
    """Returns true if the tests own the machine's own paths."""
    return _in_place


def is_outside():
    """Returns true if the private root is a directory and this process is not in it."""
    return _root != ""


def enter(needed_paths, may_stay_outside=False):
    """Gives this process a private root; starts the program anew on the way into namespaces.

    needed_paths are the files outside /Library and /var/zekara that the caller wants to see afterwards. A caller that starts
    every program of the private root by start() says that it may stay outside. Raises Unavailable where neither
    namespaces nor, for such a caller, a directory can be had.
    """
    if os.environ.get("ZKA_IN_PLACE"):
        _own_the_machines_paths()
        return
    here = os.readlink("/proc/self/ns/mnt")
    if os.environ.pop(_MARKER, here) == here:
        try:
            command = _namespace_command()
        except Unavailable:
            if not may_stay_outside or os.geteuid() != 0:
                raise
            _make_directory()
            return
        os.environ[_MARKER] = here
        sys.stdout.flush()
        os.execvp(command[0], [*command, sys.executable, *sys.argv])
    try:
        _change_root(_free_mount_point(needed_paths))
    except OSError as error:
        raise Unavailable(f"cannot set up a private root directory: {error}") from error


def enter_with_accounts(needed_paths):
    """Enters a private root in which programs can run as several accounts; returns False, and prints why, if it cannot.

    That needs root's own rights: a user namespace has one account only.
    """
    try:
        enter(needed_paths)
    except Unavailable as reason:
        print(f"Skipped: no private root directory can be had here.\n{reason}")
        return False
    if in_user_namespace():
        print("Skipped: this needs root, because a user namespace has one account only.")
        return False
    return True


def go_inside(directory="/"):
    """Moves this process, a child of the tests, into the private root for good, and to that working directory."""
    global _root
    if is_outside():
        os.chroot(_root)
        os.chdir(str(directory))
        _root = ""


def start(command, executable=None, **options):
    """Starts a program of the private root inside of it; takes Popen's options and returns its object.

    `cwd` is a directory of the private root. What preexec_fn does, it does inside, with the rights of `user`.
    """
    # As UTF-8 in every locale. A file's name that the locale could not decode keeps its bytes.
    command = [str(argument).encode("utf-8", "surrogateescape") for argument in command]
    executable = None if executable is None else str(executable)
    if is_outside():
        options["preexec_fn"] = _entrance(options)
    elif options.get("preexec_fn") is None and not command[0]:
        # Without this, some versions of Python leave the start to posix_spawn, which takes no empty name.
        options["preexec_fn"] = _do_nothing
    return subprocess.Popen(command, executable=executable, **options)


def inside_command(*command):
    """A command line that starts a program inside from a process that is where the tests are: a tracer or a shell."""
    command = [str(argument) for argument in command]
    return ["chroot", _root, *command] if is_outside() else command


def caller_options():
    """The options of a helper program that changes the root directory itself."""
    return ["--root", _root] if is_outside() else []


def add_program(source, target):
    """Copies a program of the machine's to a Path inside, with the libraries that it needs; returns the Path."""
    shutil.copyfile(source, target)
    os.chmod(target, 0o755)
    if not is_outside():
        return target
    listed = subprocess.run(["ldd", source], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False)
    for word in listed.stdout.split():
        if word.startswith("/") and not os.path.exists(_root + word):
            os.makedirs(os.path.dirname(_root + word), exist_ok=True)
            shutil.copy(word, _root + word)
    return target


def name_outside(program):
    """The path by which a process that is where the tests are starts a program inside."""
    if not is_outside():
        return str(program)
    script = TOOL_DIRECTORY + "/start-" + os.path.basename(str(program))
    with open(script, "w", encoding="utf-8") as file:
        file.write(f'#!/bin/sh\nexec chroot {shlex.quote(_root)} {shlex.quote(str(program))} "$@"\n')
    os.chmod(script, 0o755)
    return os.fspath(script)


def clear():
    """Empties what a test may have changed and lays out the two directories that an installation provides."""
    if not _entered:
        raise RuntimeError("outside a private root directory these paths are the machine's own")
    os.umask(0o022)
    for path in _MADE_IN_PLACE if _in_place else (Path("/Library"), Path("/var/zekara"), SCRATCH_DIRECTORY):
        if not is_outside() and not _in_place:
            _unmount_below(str(path))
        if os.path.islink(path) or os.path.isfile(path):
            os.unlink(path)
        else:
            shutil.rmtree(path, ignore_errors=True)
    for path in (CONFIG_DIRECTORY, RUN_DIRECTORY, SCRATCH_DIRECTORY):
        os.makedirs(path)


def _skipped_outside(test, reason):
    # The tests are loaded after enter(), so what is known now holds.
    return unittest.skipIf(is_outside(), reason)(test)


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
    os.umask(0o022)
    mount("tmpfs", new_root, "tmpfs", 0, "mode=0755")
    _show_directory("/", new_root, hidden={new_root, "/var", *_OWNED})
    _show_directory("/var", new_root, hidden=set(_OWNED))
    os.makedirs(new_root + new_root, exist_ok=True)
    os.chroot(new_root)
    os.chdir(here if os.path.isdir(here) else "/")
    _lay_out()


def _own_the_machines_paths():
    global _in_place
    if os.geteuid() != 0:
        raise Unavailable("only root owns the tool's paths")
    for path in (*_MADE_IN_PLACE, TOOL_DIRECTORY):
        if os.path.lexists(path):
            raise Unavailable(f"there is a {path} already")
    _in_place = True
    atexit.register(_leave_the_machines_paths, os.getpid())
    _lay_out()


def _leave_the_machines_paths(owner):
    if os.getpid() == owner:
        for path in (*_MADE_IN_PLACE, TOOL_DIRECTORY):
            shutil.rmtree(path, ignore_errors=True)
        os.rmdir(_TESTS)


def _make_directory():
    """Makes a directory into the private root: it holds three devices and what the tests put there."""
    global _root
    os.umask(0o022)
    try:
        root = tempfile.mkdtemp(prefix="zekara-", dir=_place_for_directory())
        atexit.register(_remove_directory, root, os.getpid())
        os.chmod(root, 0o755)
        for name in ("dev", "tmp"):
            os.mkdir(f"{root}/{name}")
        os.chmod(f"{root}/tmp", 0o1777)
        for name, numbers in _DEVICES.items():
            os.mknod(f"{root}/dev/{name}", stat.S_IFCHR, os.makedev(*numbers))
            os.chmod(f"{root}/dev/{name}", 0o666)
        probe = subprocess.run(["chroot", "/", "true"], capture_output=True, text=True, check=False)
        if probe.returncode != 0:
            raise Unavailable(f"`chroot / true` says: {probe.stderr.strip()}")
    except OSError as error:
        raise Unavailable(f"cannot make a private root directory: {error}") from error
    _root = root
    _lay_out()


def _place_for_directory():
    for place in (tempfile.gettempdir(), *_OTHER_PLACES):
        with contextlib.suppress(OSError):
            if not os.statvfs(place).f_flag & (os.ST_NODEV | os.ST_NOSUID | os.ST_NOEXEC):
                return place
    raise Unavailable("no directory for temporary files allows devices and set-user-ID programs")


def _remove_directory(root, owner):
    # Children that end by sys.exit() leave it to the tests.
    if os.getpid() == owner:
        shutil.rmtree(root, ignore_errors=True)


def _lay_out():
    global _entered
    _entered = True
    os.makedirs(TOOL_DIRECTORY)
    clear()


def _do_nothing():
    pass


def _entrance(options):
    """What a child does on its way inside; takes over the options that are to be carried out there."""
    directory = options.pop("cwd", None) or "/"
    user, group, groups, then = (options.pop(name, None) for name in ("user", "group", "extra_groups", "preexec_fn"))

    def enter_root():
        go_inside(directory)
        if groups is not None:
            os.setgroups(groups)
        if group is not None:
            os.setregid(group, group)
        if user is not None:
            os.setreuid(user, user)
        if then is not None:
            then()

    return enter_root


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
