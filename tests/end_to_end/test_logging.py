"""The form of the log on standard error, and that standard output carries replies only."""

import datetime
import os

from support import sandbox, tool
from support.case import ToolTestCase

SETTINGS = {"MacOSWardex": {"IsActive": "Yes"}, "UpdateD": {"Mode": "x"}}


def log_blocks(*arguments, data=b"", **options):
    """Runs the tool; returns its pid and the blocks that it wrote to standard error, one for each write."""
    with tool.BlockChannel() as channel:
        process = tool.start(*arguments, stderr=channel.theirs, **options)
        channel.theirs.close()
        process.communicate(data, timeout=tool.PATIENCE)
        return process.pid, channel.blocks()


class Log(ToolTestCase):
    def test_each_line_has_time_program_process_thread_and_message_and_is_written_at_once(self):
        for arguments, data, count in (
            (("pipe",), tool.encode(tool.request(SETTINGS)), 4),
            ((), b"", 4),
            (("x",), b"", 1),
            (("pipe",), b"x</plist>" + tool.raw_message(b"<array/>"), 4),
        ):
            with self.subTest(arguments=arguments, data=data):
                sandbox.clear()
                pid, blocks = log_blocks(*arguments, data=data)
                self.assertEqual(len(blocks), count, blocks)
                for block in blocks:
                    self.assertTrue(block.endswith(b"\n"), block)
                    line = tool.LogLine(block[:-1].decode())
                    self.assertEqual((line.program, line.pid, line.thread), ("Zekara4MacTool", str(pid), str(pid)))

    def test_the_time_is_the_local_time_with_milliseconds(self):
        for zone, offset in (("UTC0", 0), ("XST-05:45", 345), ("YST+09:30", -570)):
            with self.subTest(zone=zone):
                before = datetime.datetime.now(datetime.timezone.utc)
                result = tool.run("x", env={"TZ": zone})
                after = datetime.datetime.now(datetime.timezone.utc)
                (line,) = tool.log_lines(result.errors)
                local = datetime.datetime.strptime(line.time + "+0000", "%Y-%m-%d %H:%M:%S.%f%z")
                logged = local - datetime.timedelta(minutes=offset)
                self.assertLessEqual(before - datetime.timedelta(milliseconds=2), logged)
                self.assertLessEqual(logged, after)

    def test_text_of_a_request_is_never_taken_for_a_format(self):
        result = tool.change({"%n%n%s": {"%s": "%s%n%1$s"}})
        self.assert_succeeds(result)
        self.assert_config(b'[%n%n%s]\n%s = "%s%n%1$s"\n\n')

    def test_standard_output_carries_replies_only(self):
        for data in (b"", b"x</plist>", tool.raw_message(b"<array/>"), tool.encode({"tag": "x"})):
            with self.subTest(data=data):
                result = tool.run_pipe(data)
                self.assertEqual(len(tool.split_replies(result.output)), 1 if b"tag" in data else 0)
        self.assertEqual(tool.run().output, b"")
        self.assertEqual(tool.run("x").output, b"")
        self.assertEqual(tool.run("pipe", name="gone", program=tool.TOOL, cwd="/").output, b"")

    def test_a_reply_is_written_at_once(self):
        with tool.BlockChannel() as channel:
            process = tool.start("pipe", stdout=channel.theirs)
            channel.theirs.close()
            process.stdin.write(tool.encode(tool.request(SETTINGS)) * 2)
            process.stdin.flush()
            blocks = channel.blocks()
            process.communicate(timeout=tool.PATIENCE)
        self.assertEqual(len(blocks), 2)
        for block in blocks:
            self.assertEqual(tool.split_replies(block), [block])

    def test_a_log_that_nobody_reads_any_more_costs_nothing_else(self):
        reader, writer = os.pipe()
        os.close(reader)
        process = tool.start("pipe", stderr=writer)
        os.close(writer)
        output, _ = process.communicate(tool.encode(tool.request(SETTINGS)), timeout=tool.PATIENCE)
        self.assertEqual(process.returncode, 0)
        self.assertEqual(len(tool.split_replies(output)), 1)
