"""Finds the commands, names of files and links that the documents give to their readers.

A command is

- each line of a block marked `sh` in a Markdown document, without its comment;
- text in backquotes in a Markdown document that begins with a program's name and has an argument;
- a line that begins with the prompt "$ " in a manual page, or in a comment of an example, with the lines that continue it.
"""

import collections
import pathlib
import re

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
Found = collections.namedtuple("Found", "document line text")

# Programs that documents name in running text. A path of a program in the repository counts, too.
_PROGRAMS = {"apt", "brew", "c++", "cmake", "codesign", "cpack", "ctest", "jq", "npm", "perf", "pkg-config", "sudo", "xcrun",
             "zkaconfig", "Zekara4MacTool"}
_FENCE = re.compile(r"^```(\w*)[^\n]*\n(.*?)^```$", re.MULTILINE | re.DOTALL)
_INDENTED = re.compile(r"(?:^|\n)\n((?: {4}[^\n]*\n)+)")
_COMMENT = re.compile(r"(^|\s+)#(\s.*)?$")
_INLINE = re.compile(r"(?<!`)`([^`]+)`(?!`)")
_LINK = re.compile(r"\]\(([^)#\s]+)[^)]*\)")
_PATH = re.compile(r"[\w.-]+/[\w./-]*")


def documents():
    """Every document for people: Markdown at the top and in docs/, manual pages, examples."""
    patterns = ("*.md", "docs/*.md", "man/*.[1-8]", "examples/*.py", "examples/*.cpp")
    return [path for pattern in patterns for path in sorted(REPOSITORY.glob(pattern))]


def commands(path, text=None):
    text = path.read_text(encoding="utf-8") if text is None else text
    if path.suffix == ".md":
        return sorted(_commands_in_blocks(path, text) + _commands_in_line(path, text), key=lambda found: found.line)
    return _commands_after_prompts(path, text)


def blocks(path, language):
    """The blocks of a Markdown document that are marked with the language."""
    text = path.read_text(encoding="utf-8")
    return [Found(path.name, _line(text, match.start(2)), match.group(2))
            for match in _FENCE.finditer(text) if match.group(1) == language]


def unmarked_blocks(path):
    """The lines at which code begins whose language is not named: its commands would be missed."""
    text = path.read_text(encoding="utf-8")
    fenced = [_line(text, match.start()) for match in _FENCE.finditer(text) if not match.group(1)]
    rest = _without_blocks(text)
    return fenced + [_line(rest, match.start(1)) for match in _INDENTED.finditer(rest)]


def links(path):
    """The relative links of a Markdown document."""
    text = _without_blocks(path.read_text(encoding="utf-8"))
    return [Found(path.name, _line(text, match.start()), match.group(1))
            for match in _LINK.finditer(text) if "://" not in match.group(1)]


def names_of_files(path):
    """What a Markdown document has in backquotes and looks like a file or directory of this repository."""
    text = _without_blocks(path.read_text(encoding="utf-8"))
    top = {entry.name for entry in REPOSITORY.iterdir() if not entry.name.startswith("build")}
    return [Found(path.name, _line(text, match.start()), match.group(1)) for match in _INLINE.finditer(text)
            if _PATH.fullmatch(match.group(1)) and match.group(1).split("/")[0] in top]


def _commands_in_blocks(path, text):
    found = []
    for match in _FENCE.finditer(text):
        if match.group(1) not in ("sh", "bash", "console"):
            continue
        first = _line(text, match.start(2))
        found += _joined(path, first, [_COMMENT.sub("", line) for line in match.group(2).splitlines()])
    return found


def _commands_in_line(path, text):
    text = _without_blocks(text)
    found = []
    for match in _INLINE.finditer(text):
        # Optional parts of a synopsis are left out.
        span = re.sub(r"\s*\[[^\]]*\]", "", match.group(1).replace("\n", " "))
        words = span.split()
        if len(words) > 1 and (words[0] in _PROGRAMS or _is_program(words[0])):
            found.append(Found(path.name, _line(text, match.start()), span))
    return found


def _commands_after_prompts(path, text):
    """The commands behind prompts. A command in a manual page's block goes on to the next prompt or the end of the block."""
    lines = text.splitlines()
    found = []
    for number, line in enumerate(lines, 1):
        match = re.match(r"(?:\.Dl |\s*//\s*|\s*)\$ (.*)", line)
        if not match:
            continue
        command = [match.group(1)]
        for more in lines[number:] if not line.startswith(".Dl") else []:
            if not command[-1].endswith(("|", "\\", "&&")):
                break
            command.append(more.strip(" /"))
        found += _joined(path, number, [_without_escapes(part) for part in command] if path.suffix[1:].isdigit() else command)
    return found


def _joined(path, first, lines):
    """Commands of one line each, from lines that "\\", "|" or "&&" continues."""
    found, command, start = [], "", first
    for number, line in enumerate(lines, first):
        if not command:
            start = number
        line = line.strip()
        command = f"{command} {line.removesuffix(chr(92)).strip()}".strip()
        if command and not line.endswith(("\\", "|", "&&")):
            found.append(Found(path.name, start, command))
            command = ""
    return found


def _without_escapes(text):
    """A line of a manual page as a reader sees it."""
    return text.replace("\\&", "").replace("\\-", "-").replace("\\(aq", "'").replace("\\e", "\\")


def _without_blocks(text):
    """The text with its blocks of code replaced by as many empty lines."""
    return _FENCE.sub(lambda match: "\n" * match.group().count("\n"), text)


def _is_program(word):
    path = REPOSITORY / word
    return "/" in word and path.is_file() and path.stat().st_mode & 0o100 != 0


def _line(text, offset):
    return text.count("\n", 0, offset) + 1
