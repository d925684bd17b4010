"""One change of the configuration file: what is merged, what is written, what a failure leaves behind."""

import datetime
import fcntl
import os
import stat

from support import ini_model, sandbox, standins, tool, tracing
from support.case import ToolTestCase

CONTENT = b"[MacOSWardex]\nIsActive = No\nFileTimeout = 30\n\n[UpdateD]\nMode = Auto\nInterval = 43200\n\n"


def positions(lines, beginning, part=""):
    """Where the traced lines stand that begin so and hold the part."""
    return [number for number, line in enumerate(lines) if line.startswith(beginning) and part in line]


class Merging(ToolTestCase):
    def setUp(self):
        super().setUp()
        tool.write_config(CONTENT)

    def test_a_changed_value_replaces_the_old_one_in_its_place(self):
        self.assert_succeeds(tool.change({"MacOSWardex": {"IsActive": "Yes"}}))
        self.assert_config(CONTENT.replace(b"IsActive = No", b"IsActive = Yes"))

    def test_new_keys_and_sections_come_after_those_of_the_file_in_the_order_of_the_request(self):
        settings = {"z": {"b": 1, "a": 2}, "UpdateD": {"z": 3, "y": 4}, "a": {"c": 5}}
        self.assert_succeeds(tool.change(settings))
        expected = CONTENT[:-1] + b"z = 3\ny = 4\n\n[z]\nb = 1\na = 2\n\n[a]\nc = 5\n\n"
        self.assert_config(expected)

    def test_a_list_is_replaced_as_a_whole(self):
        tool.write_config(b"[A]\nk = 1, 2, 3\n\n")
        self.assert_succeeds(tool.change({"A": {"k": [4, "x y"]}}))
        self.assert_config(b'[A]\nk = 4, "x y"\n\n')

    def test_an_absent_and_an_empty_change_rewrite_the_file_in_the_writers_form(self):
        for arguments in ((), ({},), ({"UpdateD": {}},)):
            with self.subTest(arguments=arguments):
                tool.write_config(b"; a comment\n[UpdateD]\nMode=Auto\nMode=Slow")
                self.assert_succeeds(tool.change(*arguments))
                self.assert_config(b"[UpdateD]\nMode = Auto, Slo\n\n")

    def test_an_equal_change_rewrites_the_file_in_the_writers_form(self):
        tool.write_config(b"[UpdateD]\nInterval=0043200 ; seconds\n\n")
        self.assert_succeeds(tool.change({"UpdateD": {"Interval": 43200}}))
        self.assert_config(b"[UpdateD]\nInterval = 43200\n\n")

    def test_the_file_is_rewritten_in_place(self):
        os.chmod(tool.CONFIG, 0o640)
        before = os.stat(tool.CONFIG)
        other_name = sandbox.SCRATCH_DIRECTORY + "/other name"
        os.link(tool.CONFIG, other_name)
        self.assert_succeeds(tool.change({"A": {"k": 1}}))
        after = os.stat(tool.CONFIG)
        self.assertEqual((after.st_ino, after.st_mode, after.st_uid), (before.st_ino, before.st_mode, before.st_uid))
        with open(other_name, "rb") as file:
            self.assertEqual(file.read(), CONTENT + b"[A]\nk = 1\n\n")
        self.assertEqual(os.listdir(sandbox.CONFIG_DIRECTORY), ["zekara32.ini"])

    def test_a_shorter_text_leaves_nothing_of_the_longer_one(self):
        tool.write_config(CONTENT + b"; " + b"x" * 100000 + b"\n")
        self.assert_succeeds(tool.change())
        self.assert_config(CONTENT)

    def test_a_symbolic_link_is_followed_and_stays(self):
        target = sandbox.SCRATCH_DIRECTORY + "/real.ini"
        os.rename(tool.CONFIG, target)
        os.symlink(str(target), tool.CONFIG)
        self.assert_succeeds(tool.change({"UpdateD": {"Mode": "x"}}))
        self.assertEqual(os.readlink(tool.CONFIG), target)
        with open(target, "rb") as file:
            self.assertEqual(file.read(), CONTENT.replace(b"Auto", b"x"))

    def test_requests_of_one_write_build_on_each_other(self):
        messages = [tool.request({"A": {"k": number, f"k{number}": 1}}) for number in range(3)]
        result = tool.run_blocks([b"".join(map(tool.encode, messages))])
        self.assertEqual(len(result.replies), 3)
        self.assert_config(CONTENT + b"[A]\nk = 2\nk0 = 1\nk1 = 1\nk2 = 1\n\n")


class CreatedFiles(ToolTestCase):
    def test_a_missing_file_is_created_and_holds_exactly_the_change(self):
        self.assert_succeeds(tool.change({"A": {"k": "v"}, "B": {"n": 1}}))
        self.assert_config(b"[A]\nk = v\n\n[B]\nn = 1\n\n")

    def test_a_created_file_is_read_only_for_all_less_the_callers_mask(self):
        for mask in (0o000, 0o022, 0o027, 0o077, 0o444):
            with self.subTest(mask=oct(mask)):
                sandbox.clear()
                message = tool.encode(tool.request({"A": {"k": "v"}}))
                self.assert_succeeds(tool.run_pipe(message, umask=mask))
                status = os.stat(tool.CONFIG)
                self.assertEqual(oct(stat.S_IMODE(status.st_mode)), oct(0o444 & ~mask))
                self.assertEqual((status.st_uid, status.st_gid), (0, 0))
                self.assert_config(b"[A]\nk = v\n\n")

    def test_an_absent_change_creates_an_empty_file(self):
        self.assert_succeeds(tool.change())
        self.assert_config(b"")

    def test_a_file_that_was_created_stays_empty_when_the_merge_fails(self):
        self.assertIsNotNone(tool.change({"A": 1}).error)
        self.assert_config(b"")

    def test_an_empty_file_is_filled(self):
        tool.write_config(b"")
        self.assert_succeeds(tool.change({"A": {"k": "v"}}))
        self.assert_config(b"[A]\nk = v\n\n")


class Failures(ToolTestCase):
    def setUp(self):
        super().setUp()
        self._filed, self._updated = self.start_filed(), self.start_updated()

    def assert_nobody_signalled(self):
        self.assertEqual((self._filed.signals(), self._updated.signals()), ([], []))

    def test_a_syntax_error_leaves_the_file_byte_for_byte_and_signals_nobody(self):
        contents = (b"[A]\nk = a = b\n\n", b"[UpdateD]\nMode\n\n" + bytes(range(256)), b"]" * 100000)
        for content in contents:
            with self.subTest(content=content[:30]):
                tool.write_config(content)
                before = os.stat(tool.CONFIG)
                settings = {"MacOSWardex": {"IsActive": "Yes"}, "UpdateD": {"Mode": "x"}}
                self.assertEqual(tool.change(settings).error, "unexpected token")
                self.assert_config(content)
                self.assertEqual(os.stat(tool.CONFIG).st_mtime_ns, before.st_mtime_ns)
        self.assert_nobody_signalled()

    def test_a_section_that_is_no_dictionary_where_the_file_holds_it_fails_and_leaves_the_file(self):
        tool.write_config(CONTENT)
        for value in ("x", "", 1, True, 1.5, [], ["x"], b"", b"x", datetime.datetime(2000, 1, 1)):
            with self.subTest(value=value):
                error = tool.change({"A": {"k": 1}, "UpdateD": value, "MacOSWardex": {"IsActive": "Yes"}}).error
                self.assertIsNotNone(error)
                self.assertNotEqual(error, "unexpected token")
                self.assert_config(CONTENT)
        self.assert_nobody_signalled()

    def test_a_string_list_or_data_in_place_of_a_section_that_the_file_lacks_fails_and_empties_the_file(self):
        for value in ("x", "", [], ["x"], [{}], b"", b"x"):
            with self.subTest(value=value):
                tool.write_config(b"[A]\nk = 1\n\n")
                error = tool.change({"MacOSWardex": value, "UpdateD": {"Mode": "x"}}).error
                self.assertIsNotNone(error)
                self.assert_config(b"")
        self.assert_nobody_signalled()

    def test_a_number_boolean_or_date_in_place_of_a_section_that_the_file_lacks_fails_and_leaves_the_file(self):
        tool.write_config(b"[A]\nk = 1\n\n")
        for value in (0, 1, -5, True, False, 1.5, datetime.datetime(2000, 1, 1)):
            with self.subTest(value=value):
                error = tool.change({"MacOSWardex": value, "UpdateD": {"Mode": "x"}}).error
                self.assertIsNotNone(error)
                self.assert_config(b"[A]\nk = 1\n\n")
        self.assert_nobody_signalled()

    @sandbox.requires_mounts
    def test_a_full_disk_leaves_a_part_of_the_new_text_at_most_and_signals_nobody(self):
        sandbox.mount("tmpfs", sandbox.CONFIG_DIRECTORY, "tmpfs", options="size=32k")
        tool.write_config(CONTENT)
        settings = {"UpdateD": {"Mode": "x" * 100000}, "MacOSWardex": {"IsActive": "Yes"}}
        result = tool.change(settings)
        self.assertEqual(result.status, 0)
        self.assertIsNotNone(result.error)
        complete, _, _ = ini_model.change(CONTENT, settings)
        after = tool.read_config()
        self.assertTrue(after == CONTENT or (len(after) < len(complete) and complete.startswith(after)))
        self.assert_nobody_signalled()

    @tracing.requires_strace
    def test_a_file_that_cannot_be_read_is_left_as_it_was_and_nobody_is_signalled(self):
        tool.write_config(CONTENT)
        calls = "read,pread64,readv,preadv,preadv2"
        message = tool.encode(tool.request({"UpdateD": {"Mode": "x"}}))
        options = [*tracing.watch(tool.CONFIG), "-e", f"inject={calls}:error=EIO"]
        result, lines = tracing.run("pipe", calls=calls, data=message, options=options)
        self.assertTrue(lines, "the file was never read")
        self.assertEqual(result.status, 0)
        self.assertIsNotNone(result.error)
        self.assertNotEqual(result.error, "can't open ini file")
        self.assert_config(CONTENT)
        self.assert_nobody_signalled()

    @tracing.requires_strace
    def test_a_file_that_cannot_be_truncated_is_left_as_it_was_and_nobody_is_signalled(self):
        tool.write_config(CONTENT)
        message = tool.encode(tool.request({"UpdateD": {"Mode": "x"}}))
        options = [*tracing.watch(tool.CONFIG), "-e", "inject=ftruncate,truncate:error=EIO"]
        result, lines = tracing.run("pipe", calls="ftruncate,truncate", data=message, options=options)
        self.assertTrue(lines, "the file was never truncated")
        self.assertIsNotNone(result.error)
        self.assert_config(CONTENT)
        self.assert_nobody_signalled()

    def test_a_failure_in_the_first_request_of_a_write_does_not_touch_the_second(self):
        tool.write_config(CONTENT)
        messages = [tool.request({"UpdateD": 1}), tool.request({"A": {"k": "v"}})]
        result = tool.run_blocks([b"".join(map(tool.encode, messages))])
        self.assertEqual(["err" in reply for reply in result.replies], [True, False])
        self.assert_config(CONTENT + b"[A]\nk = v\n\n")
        self.assert_nobody_signalled()


class WhoIsSignalled(ToolTestCase):
    """Rows: a change of CONTENT, and if the tool signals the file monitor and the updater."""

    ROWS = (
        ("nothing", {}, False, False),
        ("the file monitor's section, changed", {"MacOSWardex": {"IsActive": "Yes"}}, True, False),
        ("the file monitor's section, unchanged", {"MacOSWardex": {"IsActive": "No"}}, True, False),
        ("the file monitor's section, empty", {"MacOSWardex": {}}, True, False),
        ("the updater's section, changed", {"UpdateD": {"Interval": 60}}, False, True),
        ("the updater's section, unchanged", {"UpdateD": {"Interval": 43200, "Mode": "Auto"}}, False, False),
        ("the updater's section, empty", {"UpdateD": {}}, False, False),
        ("the updater's section, a new key", {"UpdateD": {"Proxy": ""}}, False, True),
        ("a number as a string", {"UpdateD": {"Interval": "43200"}}, False, True),
        ("a number as an equal real", {"UpdateD": {"Interval": 43200.0}}, False, False),
        ("a number as a different real", {"UpdateD": {"Interval": 43200.5}}, False, True),
        ("a string in another letter case", {"UpdateD": {"Mode": "auto"}}, False, True),
        ("a list of the one value", {"UpdateD": {"Mode": ["Auto"]}}, False, True),
        ("both sections, changed", {"UpdateD": {"Mode": "x"}, "MacOSWardex": {"IsActive": "x"}}, True, True),
        ("another section", {"ScanD": {"MaxChildren": 4}}, False, False),
        ("names in another letter case", {"macoswardex": {"a": 1}, "updated": {"a": 1}}, False, False),
        ("a request without settings", tool.ABSENT, False, False),
    )

    def test_each_change_signals_whom_its_row_says_with_signal_1(self):
        for name, settings, filed_is_told, updated_is_told in self.ROWS:
            with self.subTest(name):
                tool.write_config(CONTENT)
                filed, updated = self.start_filed(), self.start_updated()
                self.assert_succeeds(tool.change(settings))
                self.assertEqual(filed.signals(), [1] if filed_is_told else [])
                self.assertEqual(updated.signals(), [1] if updated_is_told else [])

    def test_a_missing_updater_section_counts_as_changed_even_when_the_change_is_empty(self):
        updated = self.start_updated()
        self.assert_succeeds(tool.change({"UpdateD": {}}))
        self.assertEqual(updated.signals(), [1])

    def test_a_boolean_equals_the_number_that_the_file_gives_back_for_it(self):
        self.start_updated()
        settings = {"UpdateD": {"Enabled": True, "Quiet": False}}
        self.assert_succeeds(tool.change(settings))
        updated = self.start_updated()
        self.assert_succeeds(tool.change(settings))
        self.assertEqual(updated.signals(), [])

    def test_a_repeated_request_signals_the_updater_once_only(self):
        settings = {"UpdateD": {"Mode": "Manual", "Interval": 7, "Servers": ["a", "b c", 3]}}
        first = self.start_updated()
        self.assert_succeeds(tool.change(settings))
        self.assertEqual(first.signals(), [1])
        second = self.start_updated()
        self.assert_succeeds(tool.change(settings))
        self.assertEqual(second.signals(), [])

    def test_equal_lists_are_no_change_and_reordered_ones_are(self):
        for value, changed in ((["a", 2], False), ([2, "a"], True), (["a", "2"], True), (["a"], True)):
            with self.subTest(value=value):
                tool.write_config(b"[UpdateD]\nk = a, 2\n\n")
                updated = self.start_updated()
                self.assert_succeeds(tool.change({"UpdateD": {"k": value}}))
                self.assertEqual(updated.signals(), [1] if changed else [])

    def test_a_daemon_that_reads_the_file_at_its_signal_finds_it_unlocked_and_complete(self):
        def look():
            with open(tool.CONFIG, "rb") as file:
                fcntl.flock(file, fcntl.LOCK_SH | fcntl.LOCK_NB)
                return file.read().decode()

        tool.write_config(CONTENT)
        filed, updated = self.start_filed(look), self.start_updated(look)
        self.assert_succeeds(tool.change({"MacOSWardex": {"IsActive": "Yes"}, "UpdateD": {"Mode": "x"}}))
        written = tool.read_config().decode()
        self.assertEqual(filed.stop(), [(1, written)])
        self.assertEqual(updated.stop(), [(1, written)])

    def test_the_signal_has_been_sent_when_the_reply_arrives(self):
        filed = self.start_filed()
        process = self.start_tool("pipe")
        process.stdin.write(tool.encode(tool.request({"MacOSWardex": {"IsActive": "Yes"}})))
        process.stdin.flush()
        tool.read_message(process.stdout)
        self.assertEqual(filed.signals(), [1])

    def test_the_file_monitor_is_tried_before_the_updater_whatever_the_order_of_the_request(self):
        for settings in (
            {"UpdateD": {"Mode": "x"}, "MacOSWardex": {"IsActive": "x"}},
            {"MacOSWardex": {"IsActive": "y"}, "UpdateD": {"Mode": "y"}},
        ):
            with self.subTest(settings=settings):
                result = tool.change(settings)
                self.assert_succeeds(result)
                paths = (standins.FILED_PID_FILE, standins.UPDATED_PID_FILE)
                self.assertEqual(result.log[2:], [f"Can't signal 1 to {path}" for path in paths])

    @tracing.requires_strace
    def test_the_signals_are_sent_in_order_after_the_file_is_closed_and_before_the_reply(self):
        filed, updated = self.start_filed(), self.start_updated()
        message = tool.encode(tool.request({"UpdateD": {"Mode": "x"}, "MacOSWardex": {"IsActive": "x"}}))
        result, lines = tracing.run("pipe", calls="openat,open,flock,fcntl,close,kill,write,writev", data=message)
        self.assert_succeeds(result)
        (closed,) = positions(lines, "close(", "zekara32.ini")
        (told_filed,) = positions(lines, f"kill({filed.pid}, SIGHUP)")
        (told_updated,) = positions(lines, f"kill({updated.pid}, SIGHUP)")
        (replied,) = positions(lines, "write", tool.MARKER.decode())
        self.assertEqual(len(positions(lines, "kill(")), 2)
        order = [closed, told_filed, told_updated, replied]
        self.assertEqual(order, sorted(order))

    @tracing.requires_strace
    def test_nothing_is_logged_or_replied_between_the_opening_of_the_file_and_its_closing(self):
        for content in (CONTENT, b"[A]\nk\n\n"):
            with self.subTest(content=content):
                tool.write_config(content)
                message = tool.encode(tool.request({"UpdateD": {"Mode": "x"}, "MacOSWardex": {"IsActive": "x"}}))
                result, lines = tracing.run("pipe", calls="openat,open,close,write,writev,sendto,sendmsg", data=message)
                self.assertEqual(result.status, 0)
                opened = positions(lines, "open", "zekara32.ini")[0]
                closed = positions(lines, "close(", "zekara32.ini")[-1]
                between = [line for line in lines[opened + 1 : closed] if line.startswith(("write", "send"))]
                self.assertTrue(all("zekara32.ini" in line for line in between), between)
                self.assertTrue(any(tool.MARKER.decode() in line for line in lines[closed:]), lines)
