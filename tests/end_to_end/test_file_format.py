"""What the tool reads from a configuration file and how it writes it back.

Each row is a file and what an empty change makes of it: the text that is written back, or the reason why
the file is left as it was. Every row is also put to the model of the randomised tests, so that neither can
be wrong alone.
"""

import datetime
import math

from support import ini_model, tool
from support.case import ToolTestCase


# The file is refused with "unexpected token".
SYNTAX_ERROR = object()
# The file is refused with a text of the tool's own choice, but not as a syntax error.
OTHER_ERROR = object()

READ = {
    "an empty file": (b"", b""),
    "a single byte is never read": (b"[", b""),
    "line ends and blanks only": (b"\r\n \t\n\n  \n", b""),
    "a comment only": (b"; nothing\n# nothing\n", b""),
    "a plain key": (b"[A]\nx = y\n\n", b"[A]\nx = y\n\n"),
    "the last byte of the file is never read": (b"[A]\nkey = value", b"[A]\nkey = valu\n\n"),
    "a last line end is not needed by a word": (b"[A]\nkey = value\n", b"[A]\nkey = value\n\n"),
    "the last byte of a number is never read": (b"[A]\nx = 125", b"[A]\nx = 12\n\n"),
    "the last byte of a closing quote is never read": (b'[A]\nx = "abc"', b"[A]\nx = abc\n\n"),
    "a header as the last line without its bracket": (b"[A]\nx = 1\n[B]", SYNTAX_ERROR),
    "blanks around names and values are insignificant": (
        b"  [ A ] \n\t key \t=\t value \t\n\n",
        b"[A]\nkey = value\n\n",
    ),
    "blanks inside names and values are kept": (b"[A b]\nc  d = e\tf\n\n", b'[A b]\nc  d = "e\tf"\n\n'),
    "carriage returns and line feeds in any mixture end a line": (
        b"[A]\r\nx = 1\n\ry = 2\r\r\nz = 3\r\n\r\n",
        b"[A]\nx = 1\ny = 2\nz = 3\n\n",
    ),
    "a header followed by a key on the same line": (b"[A] x = 1\n\n", b"[A]\nx = 1\n\n"),
    "a header of digits is a string": (b"[123]\nx = 1\n\n", b"[123]\nx = 1\n\n"),
    "a key of digits is a string": (b"[A]\n007 = 1\n\n", b"[A]\n007 = 1\n\n"),
    "a quoted header": (b'["[A]"]\nx = 1\n\n', b"[[A]]\nx = 1\n\n"),
    "a quoted key is written bare": (b'[A]\n"x = y" = 1\n\n', b"[A]\nx = y = 1\n\n"),
    "a header without keys makes no section": (b"[A]\n[B]\nx = 1\n[C]\n\n", b"[B]\nx = 1\n\n"),
    "an empty header": (b"[]\nx = 1\n\n", SYNTAX_ERROR),
    "a header of an empty quoted string": (b'[""]\nx = 1\n\n', b"[]\nx = 1\n\n"),
    "a header in two lines": (b"[A\n]\nx = 1\n\n", b"[A]\nx = 1\n\n"),
    "a header that is broken before its name": (b"[\nA]\n\n", SYNTAX_ERROR),
    "a header with a comma": (b"[A,B]\nx = 1\n\n", SYNTAX_ERROR),
    "a header that never ends": (b"[A", SYNTAX_ERROR),
    "an opening bracket at the very end": (b"[A]\nx = 1\n[\n", SYNTAX_ERROR),
    "two headers of the same name continue one section": (
        b"[A]\nx = 1\n[B]\ny = 2\n[A]\nz = 3\nx = 4\n\n",
        b"[A]\nx = 1, 4\nz = 3\n\n[B]\ny = 2\n\n",
    ),
    "names differ in letter case": (b"[A]\nx = 1\nX = 2\n[a]\nx = 3\n\n", b"[A]\nx = 1\nX = 2\n\n[a]\nx = 3\n\n"),
    "a key before the first header": (b"x = 1\n[A]\ny = 2\n\n", OTHER_ERROR),
    "a continuation before the first header": (b", 1\n[A]\ny = 2\n\n", OTHER_ERROR),
    "a continuation before the first key": (b"[A]\n, 1\ny = 2\n\n", OTHER_ERROR),
    "a repeated key makes a list": (b"[A]\nx = 1\nx = two\n\n", b"[A]\nx = 1, two\n\n"),
    "commas make a list": (b"[A]\nx = 1, 2 ,3,four\n\n", b"[A]\nx = 1, 2, 3, four\n\n"),
    "lines that begin with a comma continue a list": (b"[A]\nx = 1\n, 2\n,3\n\n", b"[A]\nx = 1, 2, 3\n\n"),
    "a continuation crosses a header": (b"[A]\nx = 1\n[B]\n, 2\n\n", b"[A]\nx = 1\n\n[B]\nx = 2\n\n"),
    "a comma at the end of a line adds an empty value": (b"[A]\nk = a,\n\n", b"[A]\nk = a, \n\n"),
    "a comma at the end of the file misses its value": (b"[A]\nk = a,\n", SYNTAX_ERROR),
    "two commas in a row": (b"[A]\nk = a,,b\n\n", SYNTAX_ERROR),
    "a comma as the first value": (b"[A]\nk = ,b\n\n", SYNTAX_ERROR),
    "a comma at the start of the next line after an empty value": (b"[A]\nk =\n,b\n\n", b"[A]\nk = , b\n\n"),
    "an empty value": (b"[A]\nk =\nm = 1\n\n", b"[A]\nk = \nm = 1\n\n"),
    "an empty value in the last line but for one line end": (b"[A]\nk =\n\n", b"[A]\nk = \n\n"),
    "an empty value before the last line end": (b"[A]\nk =\n", SYNTAX_ERROR),
    "an empty value at the very end": (b"[A]\nk =", SYNTAX_ERROR),
    "an empty quoted value": (b'[A]\nk = ""\nm = 1\n\n', b"[A]\nk = \nm = 1\n\n"),
    "a value on the line after the key and an equals sign": (b"[A]\nk\n= 5\n\n", b"[A]\nk = 5\n\n"),
    "a value on the line after the equals sign is a key": (b"[A]\nk =\nv\n\n", SYNTAX_ERROR),
    "a key without an equals sign": (b"[A]\nk\n\n", SYNTAX_ERROR),
    "a key without an equals sign before another": (b"[A]\nk\nm = 1\n\n", SYNTAX_ERROR),
    "an equals sign without a key": (b"[A]\n= 1\n\n", SYNTAX_ERROR),
    "two equals signs": (b"[A]\nk = = 1\n\n", SYNTAX_ERROR),
    "an equals sign behind a value": (b"[A]\nk = a = b\n\n", SYNTAX_ERROR),
    "a closing bracket behind a value": (b"[A]\nk = a]\n\n", SYNTAX_ERROR),
    "a closing bracket at the start of a line": (b"]\n\n", SYNTAX_ERROR),
    "a bracket behind a value opens a section": (b"[A]\nk = a[1] m = 2\n\n", b"[A]\nk = a\n\n[1]\nm = 2\n\n"),
    "a header as a value": (b"[A]\nk = [1]\n\n", SYNTAX_ERROR),
    "a quoted value behind a quoted value": (b'[A]\nk = "a" "b"\n\n', SYNTAX_ERROR),
    "a quoted value keeps everything": (b'[A]\nk = "a;b = c"\n\n', b'[A]\nk = "a;b = c"\n\n'),
    "a quoted value keeps line ends": (b'[A]\nk = "a\r\nb\n"\n\n', b'[A]\nk = "a\r\nb\n"\n\n'),
    "quotes do not protect blanks at the ends": (b'[A]\nk = "  a b\t"\n\n', b'[A]\nk = "a b"\n\n'),
    "quotes do not protect digits": (b'[A]\nk = "042"\n\n', b"[A]\nk = 42\n\n"),
    "a backslash is an ordinary character": (b'[A]\nk = "a\\"\nm = \\n\n\n', b'[A]\nk = "a\\"\nm = "\\n"\n\n'),
    "a quote inside a word is an ordinary character": (b'[A]\nk = x"y\nm = 1\n\n', b'[A]\nk = "x"y"\nm = 1\n\n'),
    "an unterminated quote runs to the end": (b'[A]\nk = "abc\nm = 1\n', b'[A]\nk = "abc\nm = 1"\n\n'),
    "a closing quote swallows the line ends behind it": (b'[A]\nk = "a"\n\nm = 1\n\n', b"[A]\nk = a\nm = 1\n\n"),
    "a comment behind a value": (b"[A]\nk = a b  ; note\nm = 1 # note\n\n", b'[A]\nk = "a b"\nm = 1\n\n'),
    "a comment behind a header": (b"[A] ; note\nk = 1\n\n", b"[A]\nk = 1\n\n"),
    "a comment in place of a value takes the next line": (b"[A]\nk = ; note\nm = 2\n\n", SYNTAX_ERROR),
    "a comment in place of a value takes the next word": (b"[A]\nk = ; note\nm\n\n", b"[A]\nk = m\n\n"),
    "a comment between key and equals sign": (b"[A]\nk # note\n= 5\n\n", b"[A]\nk = 5\n\n"),
    "a comment at the very end": (b"[A]\nk = 5\n; note", b"[A]\nk = 5\n\n"),
    "a semicolon inside a word ends it": (b"[A]\nk = a;b\n\n", b"[A]\nk = a\n\n"),
    "leading zeros vanish": (b"[A]\nk = 007\nm = 000\n\n", b"[A]\nk = 7\nm = 0\n\n"),
    "a number saturates": (
        b"[A]\nk = 2147483647\nm = 2147483648\nn = 99999999999999999999999\n\n",
        b"[A]\nk = 2147483647\nm = 2147483647\nn = 2147483647\n\n",
    ),
    "signs, points and blanks keep it a string": (
        b"[A]\na = -5\nb = +5\nc = 1.5\nd = 1 2\ne = 0x10\nf = 1e3\n\n",
        b'[A]\na = "-5"\nb = "+5"\nc = "1.5"\nd = "1 2"\ne = 0x10\nf = 1e3\n\n',
    ),
    "a zero byte ends the file": (b"[A]\nk = 1\n\0[B]\nm = 2\n\n", b"[A]\nk = 1\n\n"),
    "a zero byte ends a word and the file": (b"[A]\nk = ab\0cd\nm = 2\n\n", b"[A]\nk = ab\n\n"),
    "a zero byte ends a quoted string": (b'[A]\nk = "ab\0\nm = 2\n\n', b"[A]\nk = ab\nm = 2\n\n"),
    "a byte from 0x80 up ends the file": (b"[A]\nk = 1\n\x80[B]\nm = 2\n\n", b"[A]\nk = 1\n\n"),
    "a byte of 0xff ends the file": (b"[A]\nk = 1\n\xff\nm = 2\n\n", b"[A]\nk = 1\n\n"),
    "an accented letter at the start of a value is a missing value": ("[A]\nk = é\n\n".encode(), SYNTAX_ERROR),
    "an accented letter in a word ends it and the file": ("[A]\nk = abé\nm = 2\n\n".encode(), b"[A]\nk = ab\n\n"),
    "an accented letter in quotes ends them and the file": (
        '[A]\nk = "Grüße"\nm = 2\n\n'.encode(),
        b"[A]\nk = Gr\n\n",
    ),
    "an accented letter in a comment ends the file": ("[A]\nk = 1\n; é\nm = 2\n\n".encode(), b"[A]\nk = 1\n\n"),
    "an accented letter in a header": ("[Aé]\nk = 1\n\n".encode(), SYNTAX_ERROR),
    "a byte order mark ends the file at once": (b"\xef\xbb\xbf[A]\nk = 1\n\n", b""),
    "control characters belong to words and are not trimmed": (
        b"[A]\n\x0b = \x0c1\x0c\n\x01 = \x7f\n\n",
        b'[A]\n\x0b = "\x0c1\x0c"\n\x01 = "\x7f"\n\n',
    ),
    "punctuation is quoted": (
        b"[A]\na = /var/log\nb = x_y\nc = a.b\nd = a-b\ne = a:b\nf = *\n\n",
        b'[A]\na = "/var/log"\nb = "x_y"\nc = "a.b"\nd = "a-b"\ne = "a:b"\nf = "*"\n\n',
    ),
    "letters and digits are bare": (
        b'[A]\na = "abc"\nb = "ABC123"\nc = "1a"\n\n',
        b"[A]\na = abc\nb = ABC123\nc = 1a\n\n",
    ),
    "elements of a list are quoted one by one": (b'[A]\na = "a b", c, 2\n\n', b'[A]\na = "a b", c, 2\n\n'),
    "an empty element of a list is lost in the next reading": (b'[A]\na = "", b\n\n', b"[A]\na = , b\n\n"),
    "sections and keys keep their order": (
        b"[z]\nb = 1\na = 2\n[a]\nz = 3\n[M]\nk = 4\n\n",
        b"[z]\nb = 1\na = 2\n\n[a]\nz = 3\n\n[M]\nk = 4\n\n",
    ),
}


class Reading(ToolTestCase):
    def test_every_file_is_read_and_written_back_as_its_row_says(self):
        for name, (content, expected) in READ.items():
            with self.subTest(name):
                tool.write_config(content)
                result = tool.change()
                self.assertEqual(result.status, 0)
                self._check(result.error, content, expected)

    def test_the_model_of_the_randomised_tests_agrees_with_every_row(self):
        for name, (content, expected) in READ.items():
            with self.subTest(name):
                after, _, error = ini_model.change(content, {})
                self._check_error(error, expected)
                self.assertEqual(after, expected if isinstance(expected, bytes) else content)

    def test_what_was_written_is_read_back_the_same(self):
        tool.write_config(b'[A]\na = abc, 16, "x y", "/var/log"\nb = "-3"\nc = 1.5\nd =\n[B]\ne = "a;b=[c],#"\n\n')
        self.assert_succeeds(tool.change())
        written = tool.read_config()
        self.assert_succeeds(tool.change())
        self.assert_config(written)

    def test_a_file_of_a_megabyte_is_read_and_written_whole(self):
        sections = 400
        content = "".join(
            f"[section{number}]\n" + "".join(f"key{key} = value{key}\n" for key in range(140)) + "\n"
            for number in range(sections)
        ).encode()
        tool.write_config(content)
        self.assert_succeeds(tool.change({"section399": {"key139": "changed"}}))
        self.assert_config(content[: content.rindex(b"value139")] + b"changed\n\n")

    def _check(self, error, content, expected):
        self._check_error(error, expected)
        self.assert_config(expected if isinstance(expected, bytes) else content)

    def _check_error(self, error, expected):
        if expected is SYNTAX_ERROR:
            self.assertEqual(error, "unexpected token")
        elif expected is OTHER_ERROR:
            self.assertIsNotNone(error)
            self.assertNotEqual(error, "unexpected token")
        else:
            self.assertIsNone(error)


WRITTEN = {
    "a string of letters and digits": ("ABC123", b"ABC123"),
    "letters, marks and digits of any script": ("Grüße日本٣Ⅷ²e\u0301", "Grüße日本٣Ⅷ²e\u0301".encode()),
    "letters beyond the basic plane": ("\U00020000\U00017000", "\U00020000\U00017000".encode()),
    "a symbol beyond the basic plane": ("\U0001f600", '"\U0001f600"'.encode()),
    "an empty string": ("", b""),
    "a blank": (" ", b'" "'),
    "a string with a blank": ("a b", b'"a b"'),
    "a path": ("/var/log", b'"/var/log"'),
    "an underscore": ("x_y", b'"x_y"'),
    "a point": ("1.5", b'"1.5"'),
    "a minus": ("-3", b'"-3"'),
    "a quote is not escaped": ('a"b', b'"a"b"'),
    "a line end is kept": ("a\nb", b'"a\nb"'),
    "format directives": ("%s%n%@", b'"%s%n%@"'),
    "digits in a string": ("16", b"16"),
    "a number": (16, b"16"),
    "zero": (0, b"0"),
    "a negative number": (-3, b"-3"),
    "the largest number": (2**64 - 1, b"18446744073709551615"),
    "the smallest number": (-(2**63), b"-9223372036854775808"),
    "true": (True, b"1"),
    "false": (False, b"0"),
    "a real": (1.5, b"1.5"),
    "a real without an exact decimal form": (0.1, b"0.1"),
    "a whole real": (3.0, b"3"),
    "a negative real": (-2.25, b"-2.25"),
    "a date": (datetime.datetime(2009, 2, 13, 23, 31, 30), b"2009-02-13 23:31:30 +0000"),
    "a list": (["a", 2], b"a, 2"),
    "a list of one element": (["a"], b"a"),
    "a list with quoted elements": (["a b", "c"], b'"a b", c'),
    "a list of values of every plain kind": (
        ["", True, False, -1, 0.5, datetime.datetime(2001, 1, 1)],
        b", 1, 0, -1, 0.5, 2001-01-01 00:00:00 +0000",
    ),
}


class Writing(ToolTestCase):
    def test_every_value_of_a_change_is_written_as_its_row_says(self):
        for name, (value, expected) in WRITTEN.items():
            with self.subTest(name):
                tool.write_config(b"")
                self.assert_succeeds(tool.change({"S": {"k": value, "n": "x"}}))
                self.assert_config(b"[S]\nk = " + expected + b"\nn = x\n\n")

    def test_the_model_of_the_randomised_tests_agrees_with_every_row(self):
        for name, (value, expected) in WRITTEN.items():
            with self.subTest(name):
                after, changed, error = ini_model.change(b"", {"S": {"k": value}})
                self.assertEqual((after, changed, error), (b"[S]\nk = " + expected + b"\n\n", {"S"}, None))

    def test_an_empty_list_writes_nothing_not_even_the_line_end(self):
        self.assert_succeeds(tool.change({"S": {"k": [], "n": "x"}}))
        self.assert_config(b"[S]\nk = n = x\n\n")

    def test_an_empty_list_at_the_end_of_a_section(self):
        self.assert_succeeds(tool.change({"S": {"k": []}, "T": {"x": 1}}))
        self.assert_config(b"[S]\nk = \n[T]\nx = 1\n\n")

    def test_a_section_without_keys_is_written_as_its_header_and_a_blank_line(self):
        self.assert_succeeds(tool.change({"Empty": {}}))
        self.assert_config(b"[Empty]\n\n")

    def test_names_are_written_as_they_are(self):
        self.assert_succeeds(tool.change({"a]b": {"x = y": 1, "": 2, "ü%s": 3}, "": {"k": 4}}))
        self.assert_config("[a]b]\nx = y = 1\n = 2\nü%s = 3\n\n[]\nk = 4\n\n".encode())

    def test_a_real_is_written_in_the_shortest_decimal_form_that_reads_back_the_same(self):
        for value in (1e300, 5e-324, 1e16, 123456789.0, 2**53 + 2.0, 1 / 3, 100000.0, 1e-7):
            with self.subTest(value=value):
                tool.write_config(b"")
                self.assert_succeeds(tool.change({"S": {"k": value, "n": "x"}}))
                line = tool.read_config().splitlines()[1].decode()
                text = line.removeprefix("k = ")
                self.assertEqual(float(text), value)
                self.assertLessEqual(len(text), len(repr(value)))

    def test_what_is_no_finite_number_leaves_the_rest_of_the_file_readable(self):
        for value in (math.inf, -math.inf, math.nan):
            self._check_rest_is_readable(value)

    def test_data_and_nested_collections_leave_the_rest_of_the_file_readable(self):
        hostile = '"],[x]\n=;#,\r\n'
        for value in (
            b"",
            b"\x00\x01\x02",
            bytes(range(256)) * 20,
            {},
            {"key": "value"},
            {hostile: hostile, "list": [hostile, {hostile: [b"x", 1.5, True]}]},
            [[]],
            [{}],
            [["a", "b"], ["c"]],
            ["plain", [hostile], {"k": hostile}, b"data"],
            [b"data", b""],
            [[[[["deep"]]]]],
            {"ü": "日本"},
        ):
            self._check_rest_is_readable(value)

    def _check_rest_is_readable(self, value):
        with self.subTest(value=value):
            tool.write_config(b"[S]\nbefore = 1\n[T]\nother = 2\n\n")
            self.assert_succeeds(tool.change({"S": {"odd": value, "after": "x"}}))
            content = tool.read_config()
            self.assertTrue(content.isascii())
            lines = content.decode().split("\n")
            self.assertEqual(lines[:2], ["[S]", "before = 1"])
            self.assertEqual(lines[3:], ["after = x", "", "[T]", "other = 2", "", ""])
            self.assertTrue(lines[2].startswith("odd = "), lines[2])

            sections = ini_model.parse(content)
            self.assertEqual(list(sections), ["S", "T"])
            self.assertEqual(list(sections["S"]), ["before", "odd", "after"])
            elements = len(value) if isinstance(value, list) else 1
            read = sections["S"]["odd"]
            self.assertEqual(len(read) if isinstance(read, list) else 1, elements)

            self.assert_succeeds(tool.change({"T": {"other": 3}}))
            again = ini_model.parse(tool.read_config())
            self.assertEqual((again["S"]["before"], again["S"]["after"], again["T"]), (1, "x", {"other": 3}))
