"""Random files and random changes, through the tool and through the model, compared byte by byte.

The seed is fixed; ZKA_RANDOM_SEED sets another, ZKA_RANDOM_ROUNDS another number of rounds.
"""

import datetime
import os
import random

from support import ini_model, tool
from support.case import ToolTestCase

SEED = int(os.environ.get("ZKA_RANDOM_SEED", "20090213"))
ROUNDS = int(os.environ.get("ZKA_RANDOM_ROUNDS", "1000"))

NAMES = ("MacOSWardex", "UpdateD", "A", "a", "b c", "1", "x_y")
KEYS = ("k", "K", "IsActive", "Interval", "7", "two words", "p/q")
PIECES = (
    b"[", b"]", b"=", b",", b";", b"#", b'"', b"\n", b"\r\n", b"\n\n", b" ", b"\t", b"a", b"k", b"7", b"042",
    b"word", b"two words", b"-1", b"1.5", b"2147483648", b"\\", b"/var", b"\0", b"\x0c", b"\x80", "é".encode(),
    b'"quoted"', b'"a;b"', b"[A]", b"[UpdateD]\n", b"k = v\n", b"x=1\n", b"k = 1, 2\n", b", 3\n", b"; note\n",
)  # fmt: skip
CHARACTERS = 'aZ09 _-./,;#=[]"\\\n\t%éß日\u0301Ⅷ²\U0001f600\U00020000'


class Generator:
    """Makes files and changes from a seed."""

    def __init__(self, seed):
        self._random = random.Random(seed)

    def file(self):
        """Mostly a file that is in order, sometimes one with flaws, sometimes rubbish."""
        choice = self._random.random()
        if choice < 0.1:
            return b"".join(self._random.choices(PIECES, k=self._random.randrange(20)))
        content = b"".join(self._section() for _ in range(self._random.randrange(4)))
        if choice < 0.35:
            for _ in range(self._random.randrange(1, 3)):
                start = self._random.randrange(len(content) + 1)
                end = start + self._random.randrange(2)
                content = content[:start] + self._random.choice(PIECES) + content[end:]
        return content

    def change(self):
        if self._random.random() < 0.05:
            return tool.ABSENT
        return {self._name(): self._settings() for _ in range(self._random.randrange(4))}

    def number_of_changes(self):
        return self._random.choice((1, 1, 1, 2, 4))

    def _section(self):
        lines = [f"[{self._pad(self._name())}]{self._random.choice((' ', '', '; note'))}" + self._line_end()]
        lines += [self._line() for _ in range(self._random.randrange(6))]
        return "".join(lines).encode()

    def _line(self):
        choice = self._random.random()
        if choice < 0.1:
            return self._random.choice((";", "#")) + self._random.choice((" note", "", '"=[]')) + self._line_end()
        if choice < 0.15:
            return self._line_end()
        if choice < 0.18:
            return "," + self._pad(self._file_value()) + self._line_end()
        values = ",".join(self._pad(self._file_value()) for _ in range(self._random.choice((1, 1, 1, 2, 3))))
        return self._pad(self._random.choice(KEYS)) + "=" + values + self._line_end()

    def _file_value(self):
        choice = self._random.random()
        if choice < 0.3:
            return str(self._random.choice((0, 1, 30, 43200, 2**31 - 1, 2**31, "007")))
        if choice < 0.6:
            return self._random.choice(("Yes", "No", "Auto", "a b", "-1", "1.5", "/var/log", "007x", 'x"y'))
        return '"' + self._random.choice(("", "a b", " x ", "a;b", "[x]", "1", "a,b", "a\nb", "/dev/*")) + '"'

    def _pad(self, text):
        return self._random.choice(("", " ", "\t ")) + text + self._random.choice(("", " ", "  "))

    def _line_end(self):
        return self._random.choices(("\n", "\r\n", "\n\n", " \n", ""), (60, 20, 20, 20, 1))[0]

    def _name(self):
        return self._random.choice(NAMES)

    def _settings(self):
        choice = self._random.random()
        if choice < 0.02:
            return self._random.choice(("text", "", [], ["x"], b"data", 1, True, 1.5))
        return {self._random.choice(KEYS): self._value() for _ in range(self._random.randrange(4))}

    def _value(self):
        if self._random.random() < 0.2:
            return [self._scalar() for _ in range(self._random.randrange(4))]
        return self._scalar()

    def _scalar(self):
        choice = self._random.random()
        if choice < 0.3:
            return self._random.choice(("Yes", "No", "Auto", "1", "43200", "a b", "/var/log", ""))
        if choice < 0.5:
            return "".join(self._random.choices(CHARACTERS, k=self._random.randrange(6)))
        if choice < 0.8:
            return self._random.choice((0, 1, -1, 30, 43200, 2**31 - 1, 2**31, 2**64 - 1, -(2**63)))
        if choice < 0.9:
            return self._random.choice((True, False))
        if choice < 0.95:
            return self._random.choice((0.5, -2.25, 3.0, 43200.0, 1e-9, 1e300))
        return datetime.datetime(2009, 2, 13, 23, 31, self._random.randrange(60))


def predict(content, changes):
    """The file after the changes and, for each, its error text as the model gives it."""
    errors = []
    for settings in changes:
        content, _, error = ini_model.change(content, {} if settings is tool.ABSENT else settings)
        errors.append(error)
    return content, errors


class RandomChanges(ToolTestCase):
    def test_the_tool_makes_of_every_file_and_change_what_the_model_makes_of_them(self):
        generator = Generator(SEED)
        succeeded = failed = 0
        for number in range(ROUNDS):
            content = generator.file()
            changes = [generator.change() for _ in range(generator.number_of_changes())]
            expected, expected_errors = predict(content, changes)
            with self.subTest(seed=SEED, round=number, content=content, changes=changes):
                tool.write_config(content)
                result = tool.run_pipe(b"".join(tool.encode(tool.request(settings)) for settings in changes))
                self.assertEqual(result.status, 0)
                errors = [reply.get("err") for reply in result.replies]
                # A failure without a text of its own may have any but the one that has its own meaning.
                told = ["" if error not in (None, "unexpected token") else error for error in errors]
                self.assertEqual(told, expected_errors)
                self.assert_config(expected)
            succeeded += expected_errors.count(None)
            failed += len(expected_errors) - expected_errors.count(None)
        self.assertGreater(succeeded, failed, "most of the random changes fail")
        self.assertGreater(10 * failed, succeeded, "hardly any of the random changes fails")
