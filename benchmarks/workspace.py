"""Lays out the tool, its files and stand-ins for the daemons, and runs the programs that measure.

Call everything here in the private root directory that support.sandbox makes.
"""

import collections
import os
import plistlib
import re
import shutil
import signal
import subprocess
import time

from support import sandbox

SCRATCH = str(sandbox.SCRATCH_DIRECTORY)
CONFIGURATION = f"{sandbox.CONFIG_DIRECTORY}/zekara32.ini"
PID_FILES = [f"{sandbox.RUN_DIRECTORY}/{name}.pid" for name in ("FileD", "UpdateD")]
TOOL = f"{SCRATCH}/Zekara4MacTool"
PROGRAMS = ("floor-same", "floor-minimal", "empty", "simpleini-set", "gkeyfile-set", "spawn", "in-process",
            "zkaconfig")

# One series in the output of spawn.
Process = collections.namedtuple("Process", "status runs wall wall_low wall_high cpu cpu_low cpu_high faults memory")
# One line of the output of in-process.
Work = collections.namedtuple("Work", "job size subject bytes time low high peak")


def lay_out(build_directory):
    """Installs the tool, copies the other programs and writes the files that all measurements use."""
    shutil.copy(f"{build_directory}/Zekara4MacTool/Zekara4MacTool", TOOL)
    os.chmod(TOOL, 0o4755)
    for name in PROGRAMS:
        for program in (f"{build_directory}/benchmarks/{name}", f"{build_directory}/{name}/{name}"):
            if os.path.isfile(program):
                shutil.copy(program, SCRATCH)
    write("small.ini", small_configuration())
    write("request", request({"MacOSWardex": {"IsActive": "No"}, "UpdateD": {"Interval": 3600}}))
    # A string where the file holds a section raises one exception, after the file has been read.
    write("failing", request({"MacOSWardex": {"IsActive": "No"}, "UpdateD": "Interval"}))
    for i in range(256):
        write(f"set-{i}", request({"MacOSWardex": {"IsActive": "No"}, "UpdateD": {added_key(i): 1}}))


def added_key(i):
    """The key that concurrent instance number i adds to the small configuration."""
    return f"Added{i:03}"


def added_line(i):
    """The line that the file then has for it."""
    return f"{added_key(i)} = 1"


def small_configuration():
    """A configuration file of about 1 KB with 35 keys."""
    keys = ("IsActive", "FileTimeout", "SkipArchives", "ExcludedPaths", "InfectedFiles", "LogFileName", "MaxChildren")
    values = ("Yes", "30", "No", '"/dev", "/Network"', "Quarantine", '"/var/zekara/log/daemon.log"', "16")
    sections = ("Daemon", "MacOSWardex", "UpdateD", "Gui", "Quarantine")
    lines = "".join(f"{key} = {value}\n" for key, value in zip(keys, values))
    return "".join(f"[{section}]\n{lines}\n" for section in sections)


def request(patch, **more):
    return plistlib.dumps({"tag": "cmd", "cmd": "ChangeConfig", "arg": patch, **more})


def write(name, content):
    """Writes a file of the scratch directory; returns its path."""
    path = f"{SCRATCH}/{name}"
    with open(path, "wb") as file:
        file.write(content if isinstance(content, bytes) else content.encode())
    return path


def reset_configuration(source):
    shutil.copy(f"{SCRATCH}/{source}", CONFIGURATION)


class Daemon:
    """A process that ignores SIGHUP and is registered in both pid files."""

    def __enter__(self):
        old = signal.signal(signal.SIGHUP, signal.SIG_IGN)
        self._process = subprocess.Popen(["sleep", "1000"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        signal.signal(signal.SIGHUP, old)
        for path in PID_FILES:
            with open(path, "w", encoding="ascii") as file:
                file.write(f"{self._process.pid}\n")
        return self

    def __exit__(self, *_):
        self._process.kill()
        self._process.wait()


def spawn(mode, subjects, rounds):
    """Runs subjects, (name, input file, reset file or "-", arguments), in turn; returns their series by name."""
    lines = ["\t".join([name, f"{SCRATCH}/{source}", reset if reset == "-" else f"{SCRATCH}/{reset}", *arguments])
             for name, source, reset, arguments in subjects]
    plan = write("plan", "".join(f"{line}\n" for line in lines))
    # Large replies go to a file without a name in the working directory.
    output = subprocess.run([f"{SCRATCH}/spawn", mode, plan, str(rounds)], cwd=SCRATCH, stdout=subprocess.PIPE,
                            text=True, check=True)
    series = {}
    for line in output.stdout.splitlines():
        name, *values = line.split("\t")
        series[name] = Process(*map(float, values))
    return series


def in_process(build_directory, seed, text=""):
    """Measures the rows whose name holds `text`; returns a list of Work."""
    program = f"{build_directory}/benchmarks/in-process"
    output = subprocess.run([program, "--seed", str(seed), text], stdout=subprocess.PIPE, text=True, check=True)
    rows = []
    for line in output.stdout.splitlines():
        job, size, subject, *numbers = line.split("\t")
        rows.append(Work(job, size, subject, *map(float, numbers)))
    return rows


def write_input(build_directory, text, name, seed):
    """Makes in-process write the input of the first row whose name holds `text`; returns the bytes."""
    path = f"{SCRATCH}/{name}"
    program = f"{build_directory}/benchmarks/in-process"
    subprocess.run([program, "--seed", str(seed), "--input", text, path], check=True)
    with open(path, "rb") as file:
        return file.read()


def plistlib_speed(text):
    """Python's plistlib on a message: bytes per CPU second of parse, write and both."""

    def seconds(work):
        start = time.process_time()
        runs = 0
        while runs == 0 or time.process_time() - start < 0.2:
            work()
            runs += 1
        return (time.process_time() - start) / runs

    value = plistlib.loads(text)
    parse = seconds(lambda: plistlib.loads(text))
    write_ = seconds(lambda: plistlib.dumps(value))
    return {"parse": len(text) / parse, "write": len(text) / write_, "both": len(text) / (parse + write_)}


def system_calls(program):
    """The names of the system calls of one request, in order, from the first of the program's own."""
    reset_configuration("small.ini")
    trace = f"{SCRATCH}/trace"
    with open(f"{SCRATCH}/request", "rb") as source:
        subprocess.run(["env", "-i", "/usr/bin/strace", "-o", trace, program, "pipe"], stdin=source,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
    with open(trace, encoding="utf-8", errors="replace") as file:
        return re.findall(r"^(\w+)\(", file.read(), re.MULTILINE)


def count_instructions(program, arguments=(), source="request"):
    """Instructions of one run under callgrind, with no environment but a PATH.

    valgrind runs no set-user-id file, so it is given a copy without that bit, found through PATH; its argv[0] is the bare
    name, under which the working directory holds the file as it is installed, and the self-check passes.
    """
    name = os.path.basename(program)
    os.makedirs(f"{SCRATCH}/counted", exist_ok=True)
    shutil.copyfile(program, f"{SCRATCH}/counted/{name}")
    os.chmod(f"{SCRATCH}/counted/{name}", 0o755)
    if os.path.exists(f"{SCRATCH}/small.ini"):
        reset_configuration("small.ini")
    with open(f"{SCRATCH}/{source}", "rb") as standard_input:
        result = subprocess.run(
            ["env", "-i", f"PATH={SCRATCH}/counted", "/usr/bin/valgrind", "--tool=callgrind",
             f"--callgrind-out-file={SCRATCH}/callgrind.out", name, *arguments],
            cwd=SCRATCH, stdin=standard_input, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
    found = re.search(r"Collected : (\d+)", result.stderr)
    if result.returncode != 0 or found is None:
        raise RuntimeError(f"valgrind could not run {name}: {result.stderr}")
    return int(found.group(1))
