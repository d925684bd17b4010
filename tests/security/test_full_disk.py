"""A file system without room: the reply reports it, and the file is empty or a beginning of the new text."""

import contextlib
import os

import hostile
from support import ini_model, sandbox, tool
from support.case import ToolTestCase

PAGE = os.sysconf("SC_PAGE_SIZE")


@sandbox.requires_mounts
class FullDisk(ToolTestCase):
    def setUp(self):
        super().setUp()
        sandbox.mount("tmpfs", sandbox.CONFIG_DIRECTORY, "tmpfs", options=f"size={16 * PAGE}")

    def fill(self, leave):
        """Leaves room for so many pages."""
        with open(sandbox.CONFIG_DIRECTORY + "/filler", "wb", buffering=0) as file, contextlib.suppress(OSError):
            while True:
                file.write(b"x" * PAGE)
        size = os.path.getsize(sandbox.CONFIG_DIRECTORY + "/filler")
        os.truncate(sandbox.CONFIG_DIRECTORY + "/filler", size - leave * PAGE)

    def test_whatever_room_is_left_the_file_holds_the_new_text_or_a_beginning_of_it_and_the_reply_says_which(self):
        outcomes = set()
        for old_pages in (0, 1, 3):
            for free_pages in (0, 1, 2):
                for new_pages in (0, 1, 3, 5):
                    with self.subTest(old=old_pages, free=free_pages, new=new_pages):
                        outcomes.add(self._change(old_pages, free_pages, new_pages))
        self.assertEqual(outcomes, {True, False})

    def _change(self, old_pages, free_pages, new_pages):
        for name in os.listdir(sandbox.CONFIG_DIRECTORY):
            os.unlink(os.path.join(sandbox.CONFIG_DIRECTORY, name))
        old = b"[UpdateD]\nk = " + b"o" * (old_pages * PAGE) + b"\n\n"
        tool.write_config(old)
        self.fill(free_pages)
        settings = {"UpdateD": {"k": "n" * (new_pages * PAGE + 1)}, "MacOSWardex": {"IsActive": "Yes"}}
        new, _, _ = ini_model.change(old, settings)
        filed, updated = self.start_filed(), self.start_updated()
        result = tool.run_pipe(tool.encode(tool.request(settings)), **hostile.as_user())
        told = filed.signals(), updated.signals()
        after = tool.read_config()
        self.assertEqual(result.status, 0)
        self.assertFalse(hostile.is_locked())
        if result.error is None:
            self.assertEqual(after, new)
            self.assertEqual(told, ([1], [1]))
            return True
        self.assertTrue(new.startswith(after) and len(after) < len(new), len(after))
        self.assertEqual(told, ([], []))
        return False

    def test_a_missing_file_that_cannot_be_filled_is_told(self):
        self.fill(0)
        result = tool.run_pipe(tool.encode(tool.request({"A": {"k": "v" * 3 * PAGE}})), **hostile.as_user())
        self.assertEqual(result.status, 0)
        self.assertIsNotNone(result.error)
        self.assertIn(tool.read_config(), (None, b""))

    def test_a_file_system_that_cannot_be_written_is_told_and_left_alone(self):
        tool.write_config(b"[A]\nk = old\n\n")
        sandbox.make_read_only(sandbox.CONFIG_DIRECTORY)
        filed = self.start_filed()
        request = tool.encode(tool.request({"MacOSWardex": {"IsActive": "Yes"}}))
        result = tool.run_pipe(request, **hostile.as_user())
        self.assertEqual((result.status, result.error), (0, "can't open ini file"))
        self.assertEqual(filed.signals(), [])
        self.assert_config(b"[A]\nk = old\n\n")
