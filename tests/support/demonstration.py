#!/usr/bin/python3
"""Shows the tool at work: demonstration.py TOOL

It lays out the suite's configuration file in a private root directory, starts stand-ins for two of its
daemons, and lets the tool serve a request, refuse one, and finish an installation. The exit status is 0 when
all of that went as it should, 77 when no private root directory can be had.
"""

import difflib
import os
import signal
import sys

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.realpath(__file__))))

from support import sandbox, standins, tool  # noqa: E402  (the path comes first)

CONFIGURATION = """\
; Settings of the Zekara suite. Comments do not survive a change.
[ScanD]
RunForeground = Yes
User = root
MaxChildren = 16
LogFileName = "/var/zekara/log/daemon.log"
PidFile = "/var/zekara/run/daemon.pid"
VirusBase = "/Library/Application Support/Zekara/bases/*.vdb", "/Library/Application Support/Zekara/bases/*.VDB"

[UpdateD]
Mode = Auto
Interval = 43200

[MacOSWardex]
IsActive = No
FileTimeout = 30
SkipArchives = Yes
ExcludedPaths = "/dev", "/private/var/log", "/Network"
InfectedFiles = Cure
SuspiciousFiles = Report

"""

SETTINGS = {
    "MacOSWardex": {
        "FileTimeout": 60,
        "InfectedFiles": "Quarantine",
        "ExcludedPaths": ["/dev", "/Network", "/opt/build"],
    },
    "UpdateD": {"Interval": 3600},
}

WIDTH = 88


class Deviation(Exception):
    """The tool did something else than this demonstration says."""


def main():
    if len(sys.argv) != 2:
        print(__doc__)
        return 2
    # In a locale without Unicode too, everything can be printed.
    sys.stdout.reconfigure(errors="backslashreplace")
    path = os.path.realpath(sys.argv[1])
    try:
        sandbox.enter([path, os.path.realpath(__file__)], may_stay_outside=True)
    except sandbox.Unavailable as reason:
        print("The demonstration needs a private root directory: start it as root, or where users may make namespaces.")
        print(f"Here that failed: {reason}")
        return 77
    tool.install_tool(path)
    try:
        show_setting_the_scene()
        show_a_change()
        show_a_failure()
        show_post_install()
    except Deviation as deviation:
        print(f"\nThis is not how it should be: {deviation}")
        return 1
    heading("That was all")
    tell(
        f"{sandbox.CONFIG_DIRECTORY} and {sandbox.RUN_DIRECTORY} were those of a private root directory",
        "that ends with this program: the machine's own files were not touched.",
    )
    return 0


def show_setting_the_scene():
    tool.write_config(CONFIGURATION.encode())
    heading("The configuration file of the suite")
    tell(f"{tool.CONFIG}:")
    block(CONFIGURATION.rstrip())


def show_a_change():
    heading("A front end changes four settings")
    request = tool.request(SETTINGS, ticket="settings-window-1")
    tell("It starts the tool with the argument pipe and writes this, made by Python's plistlib:")
    block(tool.encode(request).decode())
    with Stage() as stage:
        result = tool.run_pipe(tool.encode(request))
    tell('The reply echoes the request, with the tag "ack" and the result:')
    block(result.output.decode())
    show_outcome(result, stage)
    expect(result.status == 0, "the exit status is not 0")
    expect(result.reply == {**request, "tag": "ack", "res": "OK"}, "the reply is another")
    expect(stage.arrivals() == [("FileD", signal.SIGHUP), ("UpdateD", signal.SIGHUP)], "the signals are others")


def show_a_failure():
    heading("A request that fails")
    intact = tool.read_config()
    damaged = intact.replace(b"Mode = Auto", b"Mode Auto")
    tool.write_config(damaged)
    tell("An editor has damaged the file: in the section UpdateD, \"Mode = Auto\" has lost its equals sign.")
    request = tool.request({"UpdateD": {"Mode": "Manual"}})
    tell("The request:")
    block(tool.encode(request).decode())
    with Stage() as stage:
        result = tool.run_pipe(tool.encode(request))
    tell('The reply says why nothing was done. "res" is "OK" in every reply: a failure is told by "err" alone.')
    block(result.output.decode())
    show_outcome(result, stage)
    expect(result.error == "unexpected token", "the error text is another")
    expect(tool.read_config() == damaged, "the damaged file was changed")
    expect(stage.arrivals() == [], "a daemon was signalled")
    tool.write_config(intact)


def show_post_install():
    heading("The installer finishes an installation")
    tell("It starts the tool without arguments. The file monitor is switched on, told, and asked to end.")
    with Stage() as stage:
        result = tool.run()
    show_outcome(result, stage)
    expect(result.status == 1, "the exit status is not 1")
    expect(b"\nIsActive = Yes\n" in tool.read_config(), "the file monitor was not switched on")
    expect(stage.arrivals() == [("FileD", signal.SIGHUP), ("FileD", signal.SIGTERM)], "the signals are others")


class Stage:
    """Stand-ins for the two daemons that the tool signals, and the file as it was before."""

    def __enter__(self):
        self._file_before = tool.read_config()
        self._records = []
        self._daemons = {
            "FileD": standins.StandInDaemon(standins.FILED_PID_FILE),
            "UpdateD": standins.StandInDaemon(standins.UPDATED_PID_FILE),
        }
        return self

    def __exit__(self, *_):
        for name, daemon in self._daemons.items():
            self._records += [(name, daemon.pid, number) for number in daemon.signals()]

    def arrivals(self):
        return [(name, number) for name, _, number in self._records]

    def lines(self):
        return [f"{name} (process {pid}) got {signal.Signals(number).name}" for name, pid, number in self._records]

    def difference(self):
        before, after = (content.decode().splitlines() for content in (self._file_before, tool.read_config()))
        return list(difflib.unified_diff(before, after, "before", "after", lineterm="", n=1))


def show_outcome(result, stage):
    tell("The log, on standard error:")
    block(result.errors.decode())
    tell("The signals that the daemons' stand-ins received:")
    block("\n".join(stage.lines()) or "(none)")
    tell("What became of the file:")
    difference = stage.difference()
    block("\n".join(map(coloured, difference)) or "(it is byte for byte what it was)")
    meaning = {0: "the request was answered", 1: "so it is, on purpose, after every post-install task"}
    tell(f"Exit status: {result.status} ({meaning.get(result.status, 'something went wrong')})")


def expect(condition, deviation):
    if not condition:
        raise Deviation(deviation)


def heading(text):
    line = f"-- {text} "
    print(f"\n{emphasised(line.ljust(WIDTH, '-'))}")


def tell(*lines):
    print("\n" + "\n".join(lines))


def block(text):
    for line in text.rstrip("\n").splitlines():
        print(f"    {line}".rstrip().replace("\t", "  "))


def emphasised(text):
    return f"\033[1m{text}\033[0m" if sys.stdout.isatty() else text


def coloured(line):
    colours = {"+": 32, "-": 31, "@": 36}
    if not sys.stdout.isatty() or line[:1] not in colours:
        return line
    return f"\033[{colours[line[0]]}m{line}\033[0m"


if __name__ == "__main__":
    sys.exit(main())
