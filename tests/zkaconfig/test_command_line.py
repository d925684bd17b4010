"""What stands around the commands: help, version, wrong usage, completion, manual."""

import os
import re
import shutil
import subprocess
import unittest

from support import sandbox, tool

from front_end import PROGRAM, REPOSITORY, USAGE, FrontEndTestCase, run

COMPLETIONS = os.path.join(REPOSITORY, "completions")
MANUAL = os.path.join(REPOSITORY, "man")
COMMANDS = ["show", "get", "set", "apply", "diff", "list"]


def options():
    """All options, as the help has them."""
    return re.findall(r"^  (?:-\w,|   ) (--[a-z-]+)", run("--help").output, re.MULTILINE)


class Usage(FrontEndTestCase):
    def test_help_and_version_are_answered(self):
        help_text = self.assert_done("--help").output
        for command in COMMANDS:
            self.assertRegex(help_text, rf"(?m)^  {command}\b")
        self.assertRegex(self.assert_done("--version").output, r"^zkaconfig \d+\.\d+\.\d+\n$")

    def test_a_wrong_command_line_says_what_to_do(self):
        for arguments, message in (
            ((), "no command"),
            (("sho",), "did you mean show?"),
            (("show", "--jsn"), "no option --jsn"),
            (("show", "a", "b"), "needs fewer words"),
            (("get", "a"), "needs more words"),
            (("apply",), "needs more words"),
            (("show", "--daemon-section=UpdateD"), "is not the scanning daemon's"),
        ):
            with self.subTest(arguments=arguments):
                result = self.assert_fails(USAGE, message, *arguments)
                self.assertEqual(len(result.errors.splitlines()), 2)


class Manual(FrontEndTestCase):
    def test_every_option_and_command_is_in_the_manual(self):
        with open(os.path.join(MANUAL, "zkaconfig.1"), encoding="utf-8") as page:
            manual = page.read()
        for option in options():
            self.assertIn(f"Fl {option[1:]}", manual)
        for command in COMMANDS:
            self.assertRegex(manual, rf"\.It Cm (\w+ , )*{command}\b")

    def test_the_defaults_in_the_manual_are_those_in_force(self):
        with open(os.path.join(MANUAL, "zekara32.ini.5"), encoding="utf-8") as page:
            rows = dict(re.findall(r"^\.It (\w+) Ta \w+ Ta (.*)$", page.read(), re.MULTILINE))
        tool.write_config(b"")
        settings = run("show", "--daemon-section=Scan", "--json").json
        keys = {key for section in settings.values() for key in section}
        self.assertEqual(set(rows) - {"Em"}, keys)
        shown = run("show", "--daemon-section=Scan").output
        for key, text in rows.items():
            if text != "see below":
                value = text.replace("\\&", "").replace("Pa ", "")
                self.assertRegex(shown, rf'(?m)^{key} = "?{re.escape(value)}"?  ')

    @unittest.skipUnless(shutil.which("mandoc"), "mandoc is missing")
    def test_the_manual_pages_pass_mandocs_lint(self):
        pages = [os.path.join(MANUAL, name) for name in os.listdir(MANUAL)]
        self.assertEqual(len(pages), 3)
        lint = subprocess.run(
            ["mandoc", "-T", "lint", "-W", "warning", *pages], capture_output=True, text=True, check=False
        )
        self.assertEqual((lint.stdout, lint.returncode), ("", 0))


BASH = """
source "$1/zkaconfig.bash"
shift
[[ $1 == split ]] || COMP_WORDBREAKS=" "
shift
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
_zkaconfig "$1"
printf '%s\\n' "${COMPREPLY[@]}"
"""

# The completion system's own commands are replaced by ones that tell what they were given.
ZSH = """
fpath=($1 $fpath)
autoload -Uz _zkaconfig
compadd() {
  local suffix
  [[ $1 == -S ]] && { suffix=$2; shift 2 }
  [[ $1 == -a ]] && set -- ${(P)2}
  for candidate in $@; do
    [[ $candidate == ${words[CURRENT]#$prefix}* ]] && print -r -- $candidate$suffix
  done
}
compset() { prefix='*=' ; words[CURRENT]=${words[CURRENT]#*=} }
_files() { print -r -- a file }
shift 2
words=("$@") CURRENT=$#
_zkaconfig
"""

CASES = (
    ([""], COMMANDS),
    (["s"], ["show", "set"]),
    (["show", ""], ["MacOSWardex", "Other", "UpdateD"]),
    (["show", "UpdateD", ""], []),
    (["get", "Up"], ["UpdateD"]),
    (["get", "UpdateD", ""], ["Interval", "Mode"]),
    (["get", "UpdateD", "Mode", ""], []),
    (["list", "UpdateD", "M"], ["Mode"]),
    (["-n", "set", "Upd"], ["UpdateD"]),
    (["set", "UpdateD", ""], ["Interval=", "Mode="]),
    (["set", "UpdateD", "Mode=Auto", "I"], ["Interval="]),
    (["set", "UpdateD", "Mode=Auto", ""], ["Interval=", "Mode=", "MacOSWardex", "Other", "UpdateD"]),
    (["--config", "/nowhere", "show", ""], ["MacOSWardex", "UpdateD"]),
    (["--daemon-section", "Scan", "list", "S"], ["Scan"]),
    (["--daemon-section=Scan", "get", "Scan", "Max"], ["MaxChildren"]),
    (["show", "--no-"], ["--no-defaults", "--no-lock"]),
    (["--timeout", ""], []),
)


class Completion(FrontEndTestCase):
    def complete(self, shell, script, *arguments):
        done = subprocess.run(
            [shell, *(["-f"] if shell == "zsh" else ["--norc"]), "-c", script, shell, COMPLETIONS, *arguments],
            capture_output=True, text=True, timeout=4 * tool.PATIENCE, check=False,
            # A shell complains on standard error where the caller's locale is not installed.
            env={**os.environ, "LC_ALL": "C"},
        )
        self.assertEqual(done.stderr, "")
        return [line for line in done.stdout.splitlines() if line]

    def bash(self, *words, breaks="split"):
        return self.complete("bash", BASH, breaks, sandbox.name_outside(PROGRAM), *words)

    def zsh(self, *words):
        return self.complete("zsh", ZSH, "-", sandbox.name_outside(PROGRAM), *words)

    def test_bash_offers_what_may_follow(self):
        for words, expected in CASES:
            with self.subTest(words=words):
                self.assertEqual(self.bash(*words), expected)

    def test_bash_offers_the_words_for_a_value_whether_or_not_it_splits_at_equals_signs(self):
        self.assertEqual(self.bash("set", "MacOSWardex", "IsActive", "="), ["Yes", "No"])
        self.assertEqual(self.bash("set", "MacOSWardex", "IsActive", "=", "Y"), ["Yes"])
        self.assertEqual(self.bash("set", "MacOSWardex", "IsActive", "=", "No", "InfectedFiles", "=", "C"), ["Cure"])
        self.assertEqual(self.bash("set", "MacOSWardex", "InfectedFiles=C", breaks="whole"), ["InfectedFiles=Cure"])

    def test_bash_offers_files_where_one_is_wanted(self):
        path = os.fspath(tool.CONFIG)
        self.assertEqual(self.bash("apply", path[:-3]), [path])
        self.assertEqual(self.bash("--config", path[:-3]), [path])

    def test_bash_registers_the_function_for_the_program(self):
        shown = self.complete("bash", 'source "$1/zkaconfig.bash"; complete -p zkaconfig')
        self.assertEqual(shown, ["complete -F _zkaconfig zkaconfig"])

    @unittest.skipUnless(shutil.which("zsh"), "zsh is missing")
    def test_zsh_offers_what_may_follow(self):
        for words, expected in CASES:
            with self.subTest(words=words):
                self.assertEqual(self.zsh(*words), expected)
        self.assertEqual(self.zsh("set", "MacOSWardex", "IsActive=Y"), ["Yes"])
        self.assertEqual(self.zsh("apply", ""), ["a file"])

    def test_options_that_take_a_value_are_known_to_both_shells(self):
        taking = re.findall(r"^  (?:-\w,|   ) (--[a-z-]+) [A-Z]+ ", run("--help").output, re.MULTILINE)
        self.assertEqual(sorted(taking), ["--config", "--daemon-section", "--timeout", "--tool"])
        for name in ("zkaconfig.bash", "_zkaconfig"):
            with open(os.path.join(COMPLETIONS, name), encoding="utf-8") as script:
                self.assertIn("--config|--tool|--daemon-section|--timeout)", script.read().replace(" | ", "|"))
