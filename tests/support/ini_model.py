"""A second opinion on the configuration file: its reader, its writer and the merge of a change, as plainly as can be.

Nothing here is shared with the tool. The randomised tests compare what the tool makes of a file with what
this model makes of it, byte by byte.
"""

import datetime
import math
import unicodedata

NONE, OPEN, CLOSE, EQUALS, COMMA, STRING, LINE_END, END = range(8)

_LINE_ENDS = (10, 13)
_BLANKS = (9, 32)
_WORD_TERMINATORS = tuple(b"[]=,;#\n\r")
_SINGLE = {ord("["): OPEN, ord("]"): CLOSE, ord("="): EQUALS, ord(","): COMMA}
_QUOTE = ord('"')
_MAXIMUM = 2**31 - 1


class SyntaxFailure(Exception):
    """What the reader refuses with "unexpected token"."""


class MergeFailure(Exception):
    """What fails before the file is truncated, without a text of its own."""


class WriteFailure(Exception):
    """What fails after the file has been truncated."""


class Lexer:
    """Cuts bytes into tokens."""

    def __init__(self, data):
        self._data = data
        self._position = 0
        self._text = bytearray()

    def next_token(self):
        self._text.clear()
        while True:
            character = self._get()
            while character in _BLANKS:
                character = self._get()
            if character in (ord(";"), ord("#")):
                self._skip_comment()
                continue
            return self._token(character)

    def string(self):
        return self._text.decode("ascii").strip(" \t")

    def value(self):
        text = self.string()
        if text and all("0" <= character <= "9" for character in text):
            return min(int(text), _MAXIMUM)
        return text

    def _token(self, character):
        if character <= 0:
            return END
        if character in _SINGLE:
            return _SINGLE[character]
        if character in _LINE_ENDS:
            self._skip_line_ends()
            return LINE_END
        if character == _QUOTE:
            self._quoted()
        else:
            self._word(character)
        return STRING

    def _quoted(self):
        character = self._get()
        while character > 0 and character != _QUOTE:
            self._text.append(character)
            character = self._get()
        self._skip_line_ends()

    def _word(self, character):
        while character > 0 and character not in _WORD_TERMINATORS:
            self._text.append(character)
            character = self._get()
        if character in _LINE_ENDS:
            self._skip_line_ends()
        else:
            self._unget()

    def _skip_comment(self):
        character = self._get()
        while character > 0 and character not in _LINE_ENDS:
            character = self._get()
        if character in _LINE_ENDS:
            self._skip_line_ends()
        else:
            self._unget()

    def _skip_line_ends(self):
        while self._get() in _LINE_ENDS:
            pass
        self._unget()

    def _get(self):
        self._position += 1
        # The last byte of the input is never handed out.
        if self._position >= len(self._data):
            return 0
        byte = self._data[self._position - 1]
        return byte - 256 if byte > 127 else byte

    def _unget(self):
        self._position -= 1


def parse(data):
    """The sections of a file, in the order in which they first appear; raises SyntaxFailure or MergeFailure."""
    lexer = Lexer(data)
    sections = {}
    section = key = None

    def add_value():
        if lexer.next_token() not in (STRING, LINE_END):
            raise SyntaxFailure
        if section is None or key is None:
            raise MergeFailure("a value without a section or key")
        keys = sections.setdefault(section, {})
        value = lexer.value()
        if key not in keys:
            keys[key] = value
        elif isinstance(keys[key], list):
            keys[key].append(value)
        else:
            keys[key] = [keys[key], value]

    while True:
        token = lexer.next_token()
        if token == END:
            return sections
        if token == COMMA:
            add_value()
        elif token == STRING:
            key = lexer.string()
            if lexer.next_token() != EQUALS:
                raise SyntaxFailure
            add_value()
        elif token == OPEN:
            if lexer.next_token() != STRING:
                raise SyntaxFailure
            section = lexer.string()
            if lexer.next_token() != CLOSE:
                raise SyntaxFailure
        elif token != LINE_END:
            raise SyntaxFailure


def equal(one, other):
    """Equality of two property-list values."""
    numbers = (bool, int, float)
    if isinstance(one, numbers) and isinstance(other, numbers):
        return one == other or (one != one and other != other)
    if type(one) is not type(other):
        return False
    if isinstance(one, list):
        return len(one) == len(other) and all(map(equal, one, other))
    if isinstance(one, dict):
        return one.keys() == other.keys() and all(equal(one[key], other[key]) for key in one)
    return one == other


def merge(sections, patch):
    """Puts the patch into the sections; returns the names of those that changed."""
    changed = set()
    for name, settings in patch.items():
        if name not in sections:
            if not isinstance(settings, (dict, str, list, bytes)):
                raise MergeFailure(f"section {name} cannot be copied")
            sections[name] = settings if isinstance(settings, bytes) else type(settings)(settings)
            changed.add(name)
            continue
        if not isinstance(settings, dict):
            raise MergeFailure(f"section {name} is no dictionary")
        for key, value in settings.items():
            if key not in sections[name] or not equal(value, sections[name][key]):
                sections[name][key] = value
                changed.add(name)
    return changed


def written(sections):
    """The text of the file; raises WriteFailure for a section that is not a dictionary."""
    text = []
    for name, settings in sections.items():
        text.append(f"[{name}]\n")
        if not isinstance(settings, dict):
            raise WriteFailure
        for key, value in settings.items():
            text.append(f"{key} = ")
            if isinstance(value, list):
                text.append(", ".join(map(_term, value)) + ("\n" if value else ""))
            else:
                text.append(_term(value) + "\n")
        text.append("\n")
    return "".join(text).encode("utf-8")


def change(content, patch):
    """What a request with this patch does to a file with this content.

    Returns the file's content afterwards, the set of changed sections (None on failure) and the error text:
    None on success, "" where the failure has no text that the tool is bound to.
    """
    try:
        sections = parse(content)
        changed = merge(sections, patch)
    except SyntaxFailure:
        return content, None, "unexpected token"
    except MergeFailure:
        return content, None, ""
    try:
        return written(sections), changed, None
    except WriteFailure:
        return b"", None, ""


def _term(value):
    if isinstance(value, str):
        return value if all(unicodedata.category(character)[0] in "LMN" for character in value) else f'"{value}"'
    if isinstance(value, bool):
        return "1" if value else "0"
    if isinstance(value, int):
        return str(value)
    if isinstance(value, float):
        return _real(value)
    if isinstance(value, datetime.datetime):
        return value.strftime("%Y-%m-%d %H:%M:%S +0000")
    raise NotImplementedError(f"the written form of {type(value)} is the tool's own")


def _real(value):
    if not math.isfinite(value):
        raise NotImplementedError("the written form of what is no finite number is the tool's own")
    text = repr(value)
    return text[:-2] if text.endswith(".0") else text
