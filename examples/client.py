#!/usr/bin/python3
"""Changes settings of the Zekara suite through its privileged helper tool.

    client.py [--tool PATH] SECTION KEY=VALUE [KEY=VALUE ...]

This is all that a front end has to do: start the tool in pipe mode, write one request, read one reply. It
needs no rights of its own; the tool brings them. Use change_config() from a program, or copy it.

A value of digits only is sent as a number, as the configuration file holds it; one with commas is sent as
a list.
"""

import argparse
import plistlib
import subprocess
import sys

DEFAULT_TOOL = "/Library/Application Support/Zekara/Zekara4MacTool"


class ChangeConfigError(Exception):
    """The settings were not changed; the text says why."""


def change_config(tool, settings):
    """Puts settings into the suite's configuration file and has the daemons concerned told.

    tool is the path of the installed tool, settings a dictionary from section name to a dictionary of keys
    and values. Keys that are not named keep their values. Returns the reply. Raises ChangeConfigError when
    the tool refuses the request or gives no answer, OSError when it cannot be started.
    """
    request = {"tag": "cmd", "cmd": "ChangeConfig", "arg": settings}
    # The path has to lead to the tool: it looks at its own file under the name by which it was started.
    # Its log goes to standard error, which it inherits here; standard output carries the reply alone.
    process = subprocess.run(
        [tool, "pipe"], input=plistlib.dumps(request, sort_keys=False), stdout=subprocess.PIPE, check=False
    )
    if not process.stdout:
        raise ChangeConfigError(f"{tool} gave no answer and ended with status {process.returncode}")
    reply = plistlib.loads(process.stdout)
    # "res" is "OK" in every reply. A failure shows in the presence of "err" and in nothing else.
    if "err" in reply:
        raise ChangeConfigError(reply["err"])
    return reply


def parse_setting(text):
    """Turns KEY=VALUE into the key and the value as it is sent."""
    key, equals, value = text.partition("=")
    if not equals or not key:
        raise argparse.ArgumentTypeError(f"{text!r} is not of the form KEY=VALUE")
    if "," in value:
        return key, [_typed(element.strip()) for element in value.split(",")]
    return key, _typed(value)


def main():
    summary, _, _ = __doc__.partition("\n")
    parser = argparse.ArgumentParser(description=summary)
    parser.add_argument("--tool", default=DEFAULT_TOOL, help="path of the installed tool")
    parser.add_argument("section", help="for example MacOSWardex or UpdateD")
    parser.add_argument("settings", nargs="+", type=parse_setting, metavar="KEY=VALUE")
    arguments = parser.parse_args()
    try:
        change_config(arguments.tool, {arguments.section: dict(arguments.settings)})
    except (ChangeConfigError, OSError) as error:
        print(f"{parser.prog}: {error}", file=sys.stderr)
        return 1
    return 0


def _typed(text):
    # A string of digits would differ from the number in the file, and so count as a change for ever.
    return int(text) if text.isascii() and text.isdigit() and int(text) < 2**31 else text


if __name__ == "__main__":
    sys.exit(main())
