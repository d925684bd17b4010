"""How messages are cut from standard input, and what becomes of those that are none."""

import os
import plistlib
import socket

from support import sandbox, tool
from support.case import ToolTestCase

SETTINGS = {"A": {"k": "v"}}
WRITTEN = b"[A]\nk = v\n\n"


def numbered(number):
    """A request that can be told from others by its reply and its trace in the file."""
    return tool.encode(tool.request({"A": {f"k{number}": number}}, number=number))


class Framing(ToolTestCase):
    def test_a_request_is_answered_whatever_the_size_of_the_blocks_in_which_it_arrives(self):
        message = tool.raw_message(
            b"<dict><key>tag</key><string>cmd</string><key>cmd</key><string>ChangeConfig</string>"
            b"<key>arg</key><dict><key>A</key><dict><key>k</key><string>v</string></dict></dict></dict>"
        )
        for size in range(1, len(message) + 1):
            with self.subTest(size=size):
                blocks = [message[start : start + size] for start in range(0, len(message), size)]
                result = tool.run_blocks(blocks)
                self.assert_succeeds(result)
                self.assert_config(WRITTEN)
                os.unlink(tool.CONFIG)

    def test_a_request_in_two_blocks_is_answered_wherever_it_is_cut(self):
        message = tool.encode(tool.request(SETTINGS))
        marker = message.rindex(tool.MARKER)
        for cut in (1, 10, len(message) // 2, *range(marker - 1, len(message))):
            with self.subTest(cut=cut):
                self.assert_succeeds(tool.run_blocks([message[:cut], message[cut:]]))

    def test_a_message_is_answered_as_soon_as_its_marker_is_complete_while_the_input_stays_open(self):
        message = tool.encode(tool.request(SETTINGS))
        process = self.start_tool("pipe")
        process.stdin.write(message[: message.rindex(b">\n") + 1])
        process.stdin.flush()
        self.assertEqual(tool.read_message(process.stdout)["res"], "OK")
        self.assertEqual(process.wait(tool.PATIENCE), 0)
        self.assertEqual(process.stdout.read(), b"")

    def test_nothing_happens_before_the_marker_is_complete(self):
        message = tool.encode(tool.request(SETTINGS))
        result = tool.run_blocks([message[: message.rindex(b">")]])
        self.assertEqual((result.status, result.output), (0, b""))
        self.assertEqual(result.log, ["Self-check passed", "Running on pipe"])
        self.assert_config(None)

    def test_a_partial_message_at_the_end_of_input_is_discarded_silently(self):
        for length in (1, 7, 8, 9, 100):
            with self.subTest(length=length):
                result = tool.run_pipe(tool.encode(tool.request(SETTINGS))[:length])
                self.assertEqual((result.status, result.output), (0, b""))
                self.assertEqual(result.log, ["Self-check passed", "Running on pipe"])

    def test_two_requests_in_one_write_are_both_answered_in_order(self):
        result = tool.run_blocks([numbered(1) + numbered(2)])
        self.assertEqual([reply["number"] for reply in result.replies], [1, 2])
        self.assertEqual([reply["res"] for reply in result.replies], ["OK", "OK"])
        self.assertEqual(result.status, 0)
        self.assert_config(b"[A]\nk1 = 1\nk2 = 2\n\n")

    def test_a_hundred_requests_in_one_write_are_all_answered_in_order(self):
        block = b"".join(numbered(number) for number in range(100))
        self.assertLess(len(block), 65536)
        result = tool.run_blocks([block])
        self.assertEqual([reply["number"] for reply in result.replies], list(range(100)))
        expected = "".join(f"k{number} = {number}\n" for number in range(100))
        self.assert_config(f"[A]\n{expected}\n".encode())

    def test_a_pipes_whole_capacity_written_at_once_is_one_block(self):
        requests = []
        while len(requests) < 1000 and sum(map(len, requests)) + len(numbered(len(requests))) <= 65536:
            requests.append(numbered(len(requests)))
        reader, writer = os.pipe()
        self.assertEqual(os.write(writer, b"".join(requests)), sum(map(len, requests)))
        process = tool.start("pipe", stdin=reader)
        os.close(reader)
        result = tool.finish(process)
        os.close(writer)
        self.assertEqual([reply["number"] for reply in result.replies], list(range(len(requests))))

    def test_a_request_written_after_the_first_reply_is_never_answered(self):
        process = self.start_tool("pipe")
        process.stdin.write(numbered(1))
        process.stdin.flush()
        self.assertEqual(tool.read_message(process.stdout)["number"], 1)
        try:
            process.stdin.write(numbered(2))
            process.stdin.flush()
        except BrokenPipeError:
            pass
        self.assertEqual(process.wait(tool.PATIENCE), 0)
        self.assertEqual(process.stdout.read(), b"")
        self.assert_config(b"[A]\nk1 = 1\n\n")

    def test_a_request_in_a_later_block_is_not_answered_even_when_it_waits_already(self):
        result = tool.run_blocks([numbered(1), numbered(2)])
        self.assertEqual([reply["number"] for reply in result.replies], [1])
        self.assert_config(b"[A]\nk1 = 1\n\n")

    def test_an_incomplete_request_behind_a_complete_one_is_never_answered(self):
        second = numbered(2)
        result = tool.run_blocks([numbered(1) + second[:-20], second[-20:]])
        self.assertEqual([reply["number"] for reply in result.replies], [1])
        self.assert_config(b"[A]\nk1 = 1\n\n")

    def test_two_requests_completed_by_the_same_block_are_both_answered(self):
        first, second = numbered(1), numbered(2)
        result = tool.run_blocks([first[:50], first[50:] + second])
        self.assertEqual([reply["number"] for reply in result.replies], [1, 2])

    def test_white_space_between_messages_does_not_matter(self):
        for gap in (b"", b"\n", b"\r\n", b" \t\r\n" * 50):
            with self.subTest(gap=gap):
                result = tool.run_blocks([gap + numbered(1).rstrip() + gap + numbered(2).rstrip() + gap])
                self.assertEqual([reply["number"] for reply in result.replies], [1, 2])

    def test_a_byte_order_mark_and_a_missing_declaration_are_accepted(self):
        bare = numbered(1)[numbered(1).index(b"<plist") :]
        for message in (b"\xef\xbb\xbf" + numbered(1), bare):
            with self.subTest(message=message[:20]):
                self.assert_succeeds(tool.run_pipe(message))

    def test_the_marker_is_matched_in_its_own_letter_case_only(self):
        result = tool.run_pipe(numbered(1).replace(b"</plist>", b"</PLIST>"))
        self.assertEqual((result.status, result.output), (0, b""))
        self.assertEqual(result.log, ["Self-check passed", "Running on pipe"])

    def test_a_marker_inside_a_comment_ends_the_message_as_any_other_does(self):
        message = tool.raw_message(b"<!-- </plist> --><true/>")
        result = tool.run_blocks([message])
        self.assertEqual((result.status, result.output), (0, b""))
        self.assertEqual(len(result.log), 4, result.log)
        for line in result.log[2:]:
            self.assertRegex(line, "^ZKAXMLConnection: xml format: ")

    def test_a_large_request_arrives_whole_and_comes_back_whole(self):
        filler = [{"text": "x" * 1000, "number": number} for number in range(1500)]
        result = tool.change(SETTINGS, filler=filler)
        self.assert_succeeds(result)
        self.assertEqual(result.reply["filler"], filler)

    def test_a_reply_larger_than_the_pipe_reaches_a_slow_reader_whole(self):
        filler = b"\x00\x01\x02" * 200000
        process = self.start_tool("pipe")
        process.stdin.write(tool.encode(tool.request(SETTINGS, filler=filler)))
        process.stdin.close()
        tool.wait_until(lambda: tool.read_config() == WRITTEN, "the file is written", process)
        self.assertEqual(tool.read_message(process.stdout)["filler"], filler)
        self.assertEqual(process.wait(tool.PATIENCE), 0)

    def test_input_and_output_may_be_one_socket(self):
        with tool.BlockChannel() as channel:
            process = tool.start("pipe", stdin=channel.theirs, stdout=channel.theirs)
            channel.theirs.close()
            channel.send(numbered(1))
            blocks = channel.blocks()
            process.communicate(timeout=tool.PATIENCE)
        self.assertEqual([plistlib.loads(block)["number"] for block in blocks], [1])
        self.assertEqual(process.returncode, 0)


class MessagesThatDoNotParse(ToolTestCase):
    BROKEN = (
        b"</plist>",
        b"rubbish </plist>",
        b"<plist></plist>",
        b"<plist><dict><key>tag</key></dict></plist>",
        b"<plist><dict><key>tag</key><string>cmd</dict></plist>",
        b"<plist><string>\xff\xfe</string></plist>",
        b"<plist><integer>abc</integer></plist>",
        b"<plist><string>&undefined;</string></plist>",
        b"<plist><nonsense/></plist>",
        b'<!DOCTYPE plist [<!ENTITY a "b">]><plist><string>&a;</string></plist>',
        b"\0\0\0</plist>",
        b"%s%n%@</plist>",
        b"<plist>" + b"<array>" * 100000 + b"</plist>",
    )

    def test_a_message_that_does_not_parse_is_logged_and_dropped_and_gets_no_reply(self):
        for broken in self.BROKEN:
            with self.subTest(message=broken[:60]):
                result = tool.run_pipe(broken)
                self.assertEqual((result.status, result.output), (0, b""))
                self.assertEqual(result.log[:2], ["Self-check passed", "Running on pipe"])
                self.assertEqual(len(result.log), 3, result.log)
                self.assertRegex(result.log[2], "(?s)^ZKAXMLConnection: xml format: .")

    def test_the_next_message_of_the_same_block_is_still_served(self):
        for broken in self.BROKEN:
            with self.subTest(message=broken[:60]):
                result = tool.run_pipe(broken + numbered(1))
                self.assertEqual(result.reply["number"], 1)
                self.assertEqual(len(result.log), 3, result.log)

    def test_a_message_in_a_later_block_is_still_served_as_the_connection_stays_open(self):
        for broken in self.BROKEN[:4]:
            with self.subTest(message=broken[:60]):
                result = tool.run_blocks([broken, numbered(1)])
                self.assertEqual(result.reply["number"], 1)

    def test_a_failing_message_behind_a_served_one_takes_nothing_back(self):
        result = tool.run_blocks([numbered(1) + self.BROKEN[1]])
        self.assertEqual(result.reply["number"], 1)
        self.assertEqual(len(result.log), 3, result.log)

    def test_a_message_of_512_nested_collections_is_answered_and_a_deeper_one_is_dropped(self):
        for depth, answers in ((512, 1), (513, 0)):
            with self.subTest(depth=depth):
                inner = depth - 1
                nested = b"<array>" * inner + b"<string>x</string>" + b"</array>" * inner
                result = tool.run_pipe(tool.raw_message(b"<dict><key>nested</key>" + nested + b"</dict>"))
                self.assertEqual(result.status, 0)
                self.assertEqual(result.output.count(b"<string>not a command</string>"), answers)
                self.assertEqual(result.output.count(b"<array>"), answers * inner)

    def test_many_broken_messages_are_all_dropped_before_the_good_one(self):
        result = tool.run_pipe(b"x</plist>" * 1000 + numbered(1))
        self.assertEqual(result.reply["number"], 1)
        self.assertEqual(len(result.log), 1002)


class MessagesThatAreNoDictionary(ToolTestCase):
    BODIES = (
        b"<array/>",
        b"<array><string>tag</string></array>",
        b"<string>tag</string>",
        b"<integer>1</integer>",
        b"<real>1.5</real>",
        b"<true/>",
        b"<data>AAEC</data>",
        b"<date>2009-02-13T23:31:30Z</date>",
    )

    def test_a_request_that_is_no_dictionary_gets_no_reply_and_ends_with_status_0(self):
        for body in self.BODIES:
            with self.subTest(body=body):
                result = tool.run_pipe(tool.raw_message(body))
                self.assertEqual((result.status, result.output), (0, b""))
                self.assertEqual(len(result.log), 3, result.log)
                self.assertRegex(result.log[2], "^ZKAXMLConnection: .")
                self.assertNotIn("xml format", result.log[2])

    def test_it_closes_the_connection_so_that_nothing_behind_it_is_served(self):
        for body in self.BODIES[:3]:
            with self.subTest(body=body):
                result = tool.run_blocks([tool.raw_message(body) + numbered(1), numbered(2)])
                self.assertEqual((result.status, result.output), (0, b""))
                self.assert_config(None)

    def test_it_ends_the_tool_while_the_input_stays_open(self):
        process = self.start_tool("pipe")
        process.stdin.write(tool.raw_message(b"<array/>"))
        process.stdin.flush()
        self.assertEqual(process.wait(tool.PATIENCE), 0)

    def test_a_request_before_it_has_been_served(self):
        result = tool.run_blocks([numbered(1) + tool.raw_message(b"<array/>")])
        self.assertEqual(result.reply["number"], 1)
        self.assertEqual(result.status, 0)


class RepliesThatCannotBeWritten(ToolTestCase):
    def test_a_reader_that_has_gone_costs_the_reply_and_is_logged_and_the_work_is_done(self):
        reader, writer = os.pipe()
        os.close(reader)
        result = tool.run_pipe(tool.encode(tool.request(SETTINGS)), stdout=writer)
        os.close(writer)
        self.assertEqual(result.status, 0)
        self.assertEqual(len(result.log), 3, result.log)
        self.assertRegex(result.log[2], "^ZKAXMLConnection:sendMessage: .")
        self.assert_config(WRITTEN)

    def test_two_requests_are_both_carried_out_for_a_reader_that_has_gone(self):
        reader, writer = os.pipe()
        os.close(reader)
        result = tool.run_pipe(numbered(1) + numbered(2), stdout=writer)
        os.close(writer)
        self.assertEqual(result.status, 0)
        self.assertEqual(len(result.log), 4, result.log)
        self.assert_config(b"[A]\nk1 = 1\nk2 = 2\n\n")

    def test_a_reader_that_leaves_in_the_middle_of_a_large_reply_does_not_kill_the_tool(self):
        process = self.start_tool("pipe")
        process.stdin.write(tool.encode(tool.request(SETTINGS, filler="x" * 1000000)))
        process.stdin.close()
        self.assertTrue(os.read(process.stdout.fileno(), 1000))
        process.stdout.close()
        self.assertEqual(process.wait(tool.PATIENCE), 0)
        self.assertIn(b"ZKAXMLConnection:sendMessage: ", process.stderr.read())

    def test_a_full_device_for_standard_output_is_logged(self):
        sandbox.require_linux("/dev/full")
        with open("/dev/full", "wb") as full:
            result = tool.run_pipe(tool.encode(tool.request(SETTINGS)), stdout=full)
        self.assertEqual(result.status, 0)
        self.assertRegex(result.log[2], "^ZKAXMLConnection:sendMessage: .")
        self.assert_config(WRITTEN)

    def test_a_closed_standard_output_changes_the_file_and_nothing_else(self):
        request = tool.encode(tool.request(SETTINGS))
        ended = tool.run_pipe(request, preexec_fn=lambda: os.close(1))
        self.assertEqual((ended.status, ended.output), (0, b""))
        self.assert_config(WRITTEN)

    def test_a_reply_on_a_socket_whose_peer_has_gone_is_logged(self):
        ours, theirs = socket.socketpair()
        ours.close()
        with theirs:
            result = tool.run_pipe(tool.encode(tool.request(SETTINGS)), stdout=theirs)
        self.assertEqual(result.status, 0)
        self.assertRegex(result.log[2], "^ZKAXMLConnection:sendMessage: .")
