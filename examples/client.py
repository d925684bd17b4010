#!/usr/bin/python3
"""Changes settings of the Zekara suite through its privileged helper tool.

    client.py [--tool PATH] SECTION KEY=VALUE [KEY=VALUE ...]

For example:

    $ examples/client.py UpdateD Interval=3600 Mode=Auto

A front end has to do no more than this: start the tool in pipe mode, write one request, and read one reply. It
needs no rights of its own, because the tool has them. Import change_config() into a program, or copy it.

A value of digits only is sent as a number, as the configuration file holds it. A value with commas is sent as a
list.
"""

import argparse
import plistlib
import subprocess
import sys

DEFAULT_TOOL = "/Library/Application Support/Zekara/Zekara4MacTool"


class ChangeConfigError(Exception):
    """The tool did not change the settings; the text gives the reason."""


def change_config(tool, settings):
    """Changes settings in the suite's configuration file; the tool then signals the daemons concerned.

    tool is the absolute path of the installed tool. settings is a dictionary from section name to a dictionary of
    keys and values; other keys keep their values. Returns the reply. Raises ChangeConfigError if the tool refuses
    the request or gives no answer, and OSError if it cannot be started. Waits as long as another process holds the
    lock on the file.
    """
    request = {"tag": "cmd", "cmd": "ChangeConfig", "arg": settings}
    # The tool checks its own file under the path by which it is started. Its log goes to standard error, which it
    # inherits here. Standard output carries only the reply.
    process = subprocess.run(
        [tool, "pipe"], input=plistlib.dumps(request, sort_keys=False), stdout=subprocess.PIPE, check=False
    )
    if not process.stdout:
        raise ChangeConfigError(f"{tool} gave no answer and ended with status {process.returncode}")
    reply = plistlib.loads(process.stdout)
    # "res" is "OK" in every reply. Only "err" shows that the request failed.
    if "err" in reply:
        raise ChangeConfigError(reply["err"])
    return reply


def parse_setting(text):
    """Splits KEY=VALUE into the key and the value to send."""
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
    # A string never equals a number, so a string of digits would count as a change each time.
    return int(text) if text.isascii() and text.isdigit() and int(text) < 2**31 else text


if __name__ == "__main__":
    sys.exit(main())
