"""What surrounds the commands: help, version, wrong usage, completion, manual."""

import os
import re
import shlex
import shutil
import subprocess
import unittest

from support import sandbox, tool

from front_end import CONTENT, DIFFERS, DONE, PROGRAM, REPOSITORY, USAGE, FrontEndTestCase, run

COMPLETIONS = os.path.join(REPOSITORY, "completions")
MANUAL = os.path.join(REPOSITORY, "man")
COMMANDS = ["show", "get", "describe", "list", "set", "add", "remove", "reset", "apply", "diff", "help"]


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
            (("show", "--jsn"), "no option --jsn; did you mean --json?"),
            (("show", "a", "b"), '"show" takes at most one section'),
            (("get", "a"), '"get" needs a section and at least one key'),
            (("apply",), '"apply" needs one file'),
            (("add", "a", "b"), '"add" needs a section, a key and at least one value'),
            (("--config=", "show"), "--config needs a path"),
            (("help", "sho"), 'no command "sho"'),
            (("show", "--daemon-section=UpdateD"), "is not the scanning daemon's"),
        ):
            with self.subTest(arguments=arguments):
                result = self.assert_fails(USAGE, message, *arguments)
                self.assertEqual(len(result.errors.splitlines()), 2)


    def test_help_of_a_command_is_the_same_however_it_is_asked_for(self):
        for command in COMMANDS:
            text = self.assert_done("help", command).output
            self.assertRegex(text, rf"^Usage: zkaconfig \[OPTION\.\.\.\] {command}\b")
            self.assertEqual(self.assert_done(command, "--help").output, text)
        self.assertEqual(self.assert_done("help").output, self.assert_done("--help").output)

    def test_words_reach_the_command_as_they_are(self):
        self.assert_done("set", "Other", "--", "--json=[a]")
        self.assertEqual(self.assert_done("get", "Other", "--", "--json").output, "[a]\n")


class ExitStatuses(FrontEndTestCase):
    """Each status that the manual lists, for each reason that it gives."""

    def assert_ends(self, status, *arguments, **options):
        result = run(*arguments, **options)
        self.assert_status(result, status)
        self.assertEqual(result.errors == "", status == 0 or arguments[0] == "diff", result.errors)

    def test_success_and_no_difference_are_0(self):
        self.assert_ends(0, "get", "UpdateD", "Interval")
        self.assert_ends(0, "diff", "-", data=b"[UpdateD]\nInterval = 3600\n")

    def test_an_unset_name_and_a_difference_are_1(self):
        for arguments in (["show", "Nowhere"], ["get", "UpdateD", "Colour"], ["list", "Nowhere"], ["describe", "Nowhere"]):
            self.assert_ends(1, *arguments)
        self.assert_ends(1, "diff", "-", data=b"[UpdateD]\nInterval = 5\n")

    def test_a_command_line_or_setting_that_is_not_acceptable_is_2_and_nothing_is_changed(self):
        for arguments in (["nonsense"], ["show", "--nonsense"], ["get", "UpdateD"], ["set", "UpdateD", "Interval=daily"],
                          ["reset", "Other"], ["set", "Other", 'name=a"b']):
            self.assert_ends(2, *arguments)
        self.assert_ends(2, "apply", "-", data=b"[UpdateD]\nInterval = daily\n")
        self.assert_config(CONTENT)

    def test_a_file_that_cannot_be_read_and_output_that_cannot_be_written_are_3(self):
        self.assert_ends(3, "apply", "/nowhere")
        self.assert_ends(3, "apply", "-", data=b"]")
        tool.write_config(b"]\n\n")
        self.assert_ends(3, "show")

    def test_a_refusal_is_4_and_no_answer_is_5(self):
        self.assert_ends(5, "set", "Other", "name=x", tool_path="/nowhere")
        os.unlink(tool.CONFIG)
        os.rmdir(sandbox.CONFIG_DIRECTORY)
        self.assert_ends(4, "set", "Other", "name=x")


class Manual(FrontEndTestCase):
    def test_every_option_and_command_is_in_the_manual(self):
        with open(os.path.join(MANUAL, "zkaconfig.1"), encoding="utf-8") as page:
            manual = page.read()
        for option in options():
            self.assertIn(f"Fl {option[1:]}", manual)
        for command in COMMANDS:
            self.assertRegex(manual, rf"\.It Cm (\w+ , )*{command}\b")

    def test_the_page_begins_with_eight_tasks_and_each_command_does_what_it_says(self):
        with open(os.path.join(MANUAL, "zkaconfig.1"), encoding="utf-8") as page:
            tasks = page.read().split(".Sh TASKS\n")[1].split("\n.Sh ")[0]
        self.assertEqual(len(re.findall(r"(?m)^[A-Z].*:$", tasks)), 8)
        commands = re.findall(r"(?m)^\.Dl \$ zkaconfig (.*)$", tasks)
        checks = (
            ("show", lambda output: self.assertIn("[MacOSWardex]\nIsActive = No\n", output)),
            ("get UpdateD Interval", lambda output: self.assertEqual(output, "3600\n")),
            ("set MacOSWardex IsActive=yes InfectedFiles=quarantine",
             lambda output: self.assertIn(b"IsActive = Yes\nExcludedPaths", tool.read_config())),
            ("add MacOSWardex ExcludedPaths /Volumes/Backup",
             lambda output: self.assertIn(b'"/dev", "/Network", "/Volumes/Backup"\n', tool.read_config())),
            ("describe MacOSWardex InfectedFiles", lambda output: self.assertIn("Quarantine  moves", output)),
            ("reset UpdateD Interval", lambda output: self.assertIn(b"Interval = 43200\n", tool.read_config())),
            ("diff site.ini", lambda output: self.assertEqual(output, "[UpdateD]\n-Interval = 43200\n+Interval = 5\n")),
            ("show --json > site.json", lambda output: self.assertIn('"InfectedFiles": {', output)),
            ("apply site.json", lambda output: self.assertIn(b"Interval = 43200\n", tool.read_config())),
        )
        self.assertEqual(commands, [command for command, _ in checks])
        self.start_filed()
        self.start_updated()
        self.write_scratch("site.ini", b"[UpdateD]\nInterval = 5\n")
        for command, check in checks:
            with self.subTest(command=command):
                if command.startswith("apply"):
                    tool.write_config(CONTENT)
                words, _, target = command.partition(" > ")
                result = run(*(self.scratch(word) if word.startswith("site.") else word for word in words.split()))
                self.assert_status(result, DIFFERS if command.startswith("diff") else DONE)
                self.assertEqual(result.errors, "")
                if target:
                    self.write_scratch(target, result.output.encode())
                check(result.output)

    @staticmethod
    def scratch(name):
        return str(sandbox.SCRATCH_DIRECTORY) + "/" + name

    @staticmethod
    def write_scratch(name, content):
        with open(sandbox.SCRATCH_DIRECTORY + "/" + name, "wb") as file:
            file.write(content)

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
  local -a flags suffix shown
  zparseopts -D l=flags S:=suffix d:=shown a=flags
  for candidate in ${(P)1}; do print -r -- $candidate; done
}
_files() { print -r -- a file }
shift 2
words=("$@") CURRENT=$#
_zkaconfig
"""

# A function takes the place of the program in $PATH: fish completes by a command's name.
FISH = """
source $argv[1]/zkaconfig.fish
set program $argv[3]
function zkaconfig --inherit-variable program
    $program $argv
end
for candidate in (complete -C "zkaconfig $argv[4]")
    string split -m 1 -f 1 -- \\t $candidate
end
"""

CASES = (
    ([""], COMMANDS),
    (["s"], ["show", "set"]),
    (["help", "re"], ["remove", "reset"]),
    (["show", ""], ["MacOSWardex", "Other", "UpdateD"]),
    (["show", "UpdateD", ""], []),
    (["get", "Up"], ["UpdateD"]),
    (["get", "UpdateD", ""], ["Interval", "Mode"]),
    (["get", "UpdateD", "Mode", ""], ["Interval", "Mode"]),
    (["list", "UpdateD", "Mode", ""], []),
    (["add", "MacOSWardex", "Excl"], ["ExcludedPaths"]),
    (["add", "MacOSWardex", "ExcludedPaths", ""], []),
    (["remove", "MacOSWardex", "ExcludedPaths", ""], ["/dev", "/Network"]),
    (["reset", "UpdateD", "I"], ["Interval"]),
    (["describe", "UpdateD", ""], ["Interval", "Mode"]),
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


OPTIONS = {"bash": ["--norc"], "zsh": ["-f"], "fish": ["--no-config"]}
NAMES = {"bash": ["bash"], "zsh": ["zsh"], "fish": []}


class Completion(FrontEndTestCase):
    def complete(self, shell, script, *arguments):
        done = subprocess.run(
            [shell, *OPTIONS[shell], "-c", script, *NAMES[shell], COMPLETIONS, *arguments],
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

    def fish(self, *words):
        """Fish offers candidates in its own order."""
        return sorted(self.complete("fish", FISH, "-", sandbox.name_outside(PROGRAM), shlex.join(words[:-1]) + " " + words[-1]))

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
        self.assertEqual(self.zsh("set", "MacOSWardex", "IsActive=Y"), ["IsActive=Yes"])
        self.assertEqual(self.zsh("apply", ""), ["a file"])
        self.assertEqual(self.zsh("get", "a\\ b", ""), [])

    @unittest.skipUnless(shutil.which("fish"), "fish is missing")
    def test_fish_offers_what_may_follow(self):
        for words, expected in CASES:
            with self.subTest(words=words):
                self.assertEqual(self.fish(*words), sorted(expected))
        self.assertEqual(self.fish("set", "MacOSWardex", "IsActive=Y"), ["IsActive=Yes"])
        path = os.fspath(tool.CONFIG)
        self.assertEqual(self.fish("apply", path.replace(" ", "\\ ")[:-3]), [path])

    def test_candidates_come_with_descriptions_and_without_a_message_where_there_are_none(self):
        self.assertEqual(self.assert_done("__complete", "get", "UpdateD", "I", tool_path=None).output,
                         "Interval\tThe time between two updates; the updater chooses the unit.\n")
        for words in ([], ["nonsense", ""], ["--nonsense", ""], ["show", "--daemon-section=UpdateD", ""], ["-x", "g"]):
            with self.subTest(words=words):
                self.assertEqual(self.assert_done("__complete", *words, tool_path=None).output, "")

    def test_every_option_is_offered_with_its_help(self):
        offered = self.assert_done("__complete", "--", tool_path=None).output
        self.assertEqual([line.split("\t")[0] for line in offered.splitlines()], options())
        for option in ("--config", "--tool"):
            self.assertEqual(self.assert_done("__complete", "show", option, "", tool_path=None).output, ":files\n")
