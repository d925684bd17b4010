"""Messages that are made to exhaust, to smuggle or to confuse: refused or served, with the file whole and little memory."""

import os
import plistlib
import random

import hostile
from support import sandbox, tool, tracing
from support.case import ToolTestCase

OLD = b"[A]\nk = old\n\n"
SECRET = "a line of a file that only root may read"
MEGA = 1 << 20


class MessageCase(ToolTestCase):
    def setUp(self):
        super().setUp()
        tool.write_config(OLD)

    def run_measured(self, data):
        """Runs the tool as a user; returns its Result and its peak memory in bytes."""
        process, memory = hostile.start_measured()
        self.addCleanup(self._end, process)
        return tool.finish(process, data), memory()

    def assert_dropped(self, data):
        """The message is refused: a line of the log, no reply, and the file as it was."""
        result, memory = self.run_measured(data)
        self.assertEqual((result.status, result.output), (0, b""))
        self.assertTrue(any(line.startswith("ZKAXMLConnection: xml format: ") for line in result.log), result.log[:5])
        self.assert_config(OLD)
        return memory

    def assert_served(self, data):
        result, memory = self.run_measured(data)
        self.assert_succeeds(result)
        return memory


class Nesting(MessageCase):
    @staticmethod
    def nested(depth, opening=b"<array>", closing=b"</array>", innermost=b"<true/>"):
        """A request one value of which holds so many containers, one within the other, the request's own included."""
        inner = opening * (depth - 1) + innermost + closing * (depth - 1)
        return tool.raw_message(
            b"<dict><key>tag</key><string>cmd</string><key>cmd</key><string>none</string><key>x</key>" + inner + b"</dict>"
        )

    def test_512_containers_within_each_other_are_served_and_513_are_refused(self):
        for opening, closing in ((b"<array>", b"</array>"), (b"<dict><key>k</key>", b"</dict>")):
            with self.subTest(opening=opening):
                result, _ = self.run_measured(self.nested(512, opening, closing))
                self.assertEqual(result.error, "unknown command 'none'")
                self.assert_dropped(self.nested(513, opening, closing))

    def test_the_deepest_setting_that_is_read_can_be_written_or_is_told(self):
        for depth in (10, 100, 508):
            value = b"<array>" * depth + b"<true/>" + b"</array>" * depth
            settings = b"<dict><key>B</key><dict><key>k</key>" + value + b"</dict></dict>"
            data = tool.raw_message(
                b"<dict><key>tag</key><string>cmd</string><key>cmd</key><string>ChangeConfig</string>"
                b"<key>arg</key>" + settings + b"</dict>"
            )
            tool.write_config(OLD)
            result, _ = self.run_measured(data)
            self.assertEqual(result.status, 0)
            after = tool.read_config()
            self.assertTrue(after.startswith(OLD + b"[B]\nk = ") if result.error is None else b"" == after, after[:80])

    def test_a_million_containers_are_refused_in_little_memory(self):
        for opening in (b"<array>", b"<dict><key>k</key>", b"<array><!-- -->"):
            with self.subTest(opening=opening):
                count = 1_000_000
                memory = self.assert_dropped(b"<plist>" + opening * count + b"</plist>")
                self.assertLess(memory, 8 * len(opening) * count + 16 * MEGA)

    def test_unclosed_and_crossed_elements_are_refused(self):
        for body in (b"<array>" * 1000, b"<dict><array></dict></array>", b"</array>" * 100_000, b"<" * MEGA, b"<!--" * MEGA):
            with self.subTest(body=body[:20]):
                self.assert_dropped(tool.raw_message(body))


class Smuggling(MessageCase):
    def setUp(self):
        super().setUp()
        self.secret = sandbox.SCRATCH_DIRECTORY + "/secret"
        with open(self.secret, "w", encoding="ascii") as file:
            file.write(SECRET)
        os.chmod(self.secret, 0o600)

    def request_with(self, doctype, value):
        return (
            b'<?xml version="1.0" encoding="UTF-8"?>\n' + doctype.encode() + b'<plist version="1.0"><dict>'
            b"<key>tag</key><string>cmd</string><key>cmd</key><string>ChangeConfig</string><key>arg</key><dict>"
            b"<key>B</key><dict><key>k</key><string>" + value.encode() + b"</string></dict></dict></dict></plist>"
        )

    def test_no_entity_of_a_document_type_is_ever_expanded(self):
        path = self.secret
        types = {
            "external": (f'<!DOCTYPE plist [<!ENTITY x SYSTEM "file://{path}">]>', "&x;"),
            "external without a scheme": (f'<!DOCTYPE plist [<!ENTITY x SYSTEM "{path}">]>', "&x;"),
            "internal": ('<!DOCTYPE plist [<!ENTITY x "expanded">]>', "&x;"),
            "parameter": (f'<!DOCTYPE plist [<!ENTITY % x SYSTEM "file://{path}"> %x;]>', "v"),
            "external subset": (f'<!DOCTYPE plist SYSTEM "file://{path}">', "&x;"),
            "inclusion": ("", f'<xi:include href="{path}" parse="text"/>'),
            "undeclared": ("", "&x;"),
            "redefined": ('<!DOCTYPE plist [<!ENTITY lt "expanded">]>', "&lt;"),
            "attribute": ("<!DOCTYPE plist [<!ATTLIST plist x CDATA 'expanded'>]>", "&x;"),
        }
        for name, (doctype, value) in types.items():
            with self.subTest(name):
                tool.write_config(OLD)
                result, _ = self.run_measured(self.request_with(doctype, value))
                self.assertEqual(result.status, 0)
                for text in (SECRET, "expanded"):
                    self.assertNotIn(text.encode(), tool.read_config())
                    # The request's own text comes back in the log or the reply; what it names must not.
                    if text == SECRET:
                        self.assertNotIn(text.encode(), result.output + result.errors)

    def test_entities_that_multiply_cost_nothing(self):
        entities = '<!ENTITY a0 "ha">' + "".join(f'<!ENTITY a{n} "{f"&a{n - 1};" * 10}">' for n in range(1, 20))
        result, memory = self.run_measured(self.request_with(f"<!DOCTYPE plist [{entities}]>", "&a19;"))
        self.assertEqual((result.status, result.output), (0, b""))
        self.assertLess(memory, 16 * MEGA)
        self.assert_config(OLD)

    @tracing.requires_strace
    def test_no_file_is_opened_for_any_of_it(self):
        doctype = f'<!DOCTYPE plist SYSTEM "file://{self.secret}" [<!ENTITY x SYSTEM "file://{self.secret}">]>'
        _, lines = hostile.traced(
            hostile.caller_command(tool.TOOL, "pipe", user=hostile.TRACED_USERS[0]),
            sandbox.SCRATCH_DIRECTORY + "/trace",
            ["trace=%file,%network"],
            self.request_with(doctype, "&x;"),
        )
        self.assertFalse([line for line in lines if "secret" in line or line.startswith(("socket", "connect"))], lines)


class Encodings(MessageCase):
    def value(self, value):
        return tool.raw_message(
            b"<dict><key>tag</key><string>cmd</string><key>cmd</key><string>ChangeConfig</string><key>arg</key><dict>"
            b"<key>B</key><dict><key>k</key><string>" + value + b"</string></dict></dict></dict>"
        )

    def test_what_is_not_utf_8_is_refused(self):
        rows = (
            b"\x80", b"\xbf", b"\xc0\xaf", b"\xc1\xbf", b"\xc2", b"\xc2A", b"\xe0\x80\xaf", b"\xe0\x9f\xbf", b"\xe2\x82",
            b"\xed\xa0\x80", b"\xed\xbf\xbf", b"\xed\xa0\xbd\xed\xb8\x80", b"\xf0\x80\x80\xaf", b"\xf0\x8f\xbf\xbf",
            b"\xf4\x90\x80\x80", b"\xf5\x80\x80\x80", b"\xf8\x88\x80\x80\x80", b"\xfe", b"\xff",
        )  # fmt: skip
        for row in rows:
            with self.subTest(bytes=row):
                self.assert_dropped(self.value(row))
                self.assert_dropped(self.value(b"valid " * 1000 + row))

    def test_a_zero_byte_is_refused_wherever_it_stands(self):
        for data in (self.value(b"a\0b"), self.value(b"&#0;"), self.value(b"&#x0;"), b"\0" + self.value(b"v")):
            with self.subTest(data=data[:20]):
                self.assert_dropped(data)

    def test_character_references_beyond_the_last_character_are_refused(self):
        for reference in (b"&#x110000;", b"&#xD800;", b"&#99999999999999999999;", b"&#-1;", b"&#;", b"&#x;", b"&#x41"):
            with self.subTest(reference=reference):
                self.assert_dropped(self.value(reference))

    def test_integers_beyond_64_bits_are_refused(self):
        for number in ("18446744073709551616", "-9223372036854775809", "9" * 100_000, "0x1" + "0" * 16, "--1", "+-1", ""):
            with self.subTest(number=number[:30]):
                self.assert_dropped(tool.raw_message(f"<integer>{number}</integer>".encode()))

    def test_random_bytes_before_a_marker_never_harm(self):
        generator = random.Random(4)
        blocks = [generator.randbytes(generator.randrange(400)) + tool.MARKER for _ in range(hostile.scaled(300, 20_000))]
        result, _ = self.run_measured(b"".join(blocks) + tool.encode(tool.request({"A": {"k": "new"}})))
        # The first bytes of a message are what follows the marker before it, so the last message is a good one.
        self.assert_succeeds(result)
        self.assert_config(b"[A]\nk = new\n\n")

    def test_bytes_changed_at_random_in_a_good_request_never_harm(self):
        generator = random.Random(5)
        good = self.value(b"v &lt; w")
        for _ in range(hostile.scaled(60, 10_000)):
            bad = bytearray(good)
            for _ in range(generator.randrange(1, 4)):
                bad[generator.randrange(len(bad) - len(tool.MARKER))] = generator.randrange(256)
            tool.write_config(OLD)
            result = tool.run_pipe(bytes(bad), **hostile.as_user())
            self.assertEqual(result.status, 0, bytes(bad))
            self.assertTrue(tool.read_config().startswith(OLD), bytes(bad))


class Size(MessageCase):
    SIZE = 33 * MEGA

    def test_a_request_of_33_megabytes_in_one_value_is_served(self):
        memory = self.assert_served(tool.encode(tool.request({"A": {"k": "x" * self.SIZE}})))
        self.assertLess(memory, 6 * self.SIZE)
        self.assert_config(b"[A]\nk = " + b"x" * self.SIZE + b"\n\n")

    def test_a_request_of_33_megabytes_in_many_values_is_served(self):
        data = tool.encode(tool.request({"B": {f"key{number}": number for number in range(self.SIZE // 52)}}))
        memory = self.assert_served(data)
        self.assertLess(memory, 7 * len(data))

    def test_33_megabytes_without_an_end_are_dropped_silently(self):
        result, memory = self.run_measured(b"x" * self.SIZE)
        self.assertEqual((result.status, result.output, result.log), (0, b"", ["Self-check passed", "Running on pipe"]))
        self.assertLess(memory, 5 * self.SIZE)
        self.assert_config(OLD)

    def test_33_megabytes_of_ends_are_each_logged_and_nothing_is_kept(self):
        count = hostile.scaled(100_000, self.SIZE // len(tool.MARKER))
        result, memory = self.run_measured(tool.MARKER * count)
        self.assertEqual((result.status, result.output), (0, b""))
        self.assertEqual(result.errors.count(b"ZKAXMLConnection: xml format: "), count)
        self.assertLess(memory, 16 * MEGA)
        self.assert_config(OLD)


class LogLines(MessageCase):
    """No text of the caller's is ever a format, and none is repeated in more lines than there is cause for."""

    TEXTS = ("%s%s%s%n%n", "%999999999d", "%@%1$s", "\x1b[2J\x07", "a\nb\r\nc", "x" * 100_000, "%" * 100_000)

    def test_texts_in_a_command_come_back_as_they_are(self):
        for text in self.TEXTS:
            if "\x1b" in text:
                continue  # no XML document can carry it
            with self.subTest(text=text[:20]):
                message = plistlib.dumps({"tag": "cmd", "cmd": text})
                result, _ = self.run_measured(message)
                self.assertEqual(result.error, f"unknown command '{text}'".replace("\r\n", "\n"))
                self.assertEqual(len(result.log), 2, result.log[2:3])

    def test_texts_in_a_message_that_is_refused_make_one_line(self):
        for text in self.TEXTS:
            for body in (f"<{text}>", f"<string>&{text};</string>", f"<integer>{text}</integer>", f"</{text}>"):
                with self.subTest(body=body[:20]):
                    result, _ = self.run_measured(tool.raw_message(body.encode()))
                    self.assertEqual(result.status, 0)
                    self.assertEqual(result.errors.count(b"ZKAXMLConnection: xml format: "), 1)
                    self.assertLess(len(result.errors), 2 * len(text) + 1000)
                    self.assertNotIn(b"(null)", result.errors)
