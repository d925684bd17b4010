#!/usr/bin/python3
"""What the shipped binary is made of, as readelf and nm show it: its hardening, and that it needs no library.

    tests/security/test_binary.py TOOL LIBRARY...

TOOL is the built executable, each LIBRARY a static library that it was linked from. The exit status is 77 if readelf is
missing or TOOL is not an ELF file.
"""

import re
import shutil
import subprocess
import sys
import unittest

SKIPPED = 77
TOOL, *LIBRARIES = sys.argv[1:] or [""]


def told_by(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def why_not_here():
    if not all(map(shutil.which, ("readelf", "nm", "objdump"))):
        return "readelf, nm or objdump is missing"
    with open(TOOL, "rb") as file:
        return None if file.read(4) == b"\x7fELF" else "the tool is not an ELF file"


def is_x86_64():
    return re.search(r"Machine:.*X86-64", told_by("readelf", "-h", TOOL)) is not None


class Binary(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.headers = told_by("readelf", "-hlW", TOOL)
        cls.dynamic = told_by("readelf", "-dW", TOOL)
        cls.symbols = set(re.findall(r"\S+$", told_by("readelf", "-sW", TOOL), re.MULTILINE))
        # Type, offset, address, address, size, size, flags, alignment.
        line = r"^  ([A-Z_]+)\s+0x\S+\s+0x\S+\s+0x\S+\s+0x\S+\s+0x\S+\s+([RWE ]{3})\s"
        cls.segments = re.findall(line, cls.headers, re.MULTILINE)

    def flags_of(self, kind):
        return [flags for name, flags in self.segments if name == kind]

    def test_it_is_position_independent(self):
        self.assertRegex(self.headers, r"Type:\s+DYN \(Position-Independent Executable file\)")
        self.assertRegex(self.dynamic, r"FLAGS_1\).*\bPIE\b")

    def test_it_is_static(self):
        self.assertNotIn("INTERP", [name for name, _ in self.segments])
        self.assertNotIn("(NEEDED)", self.dynamic)

    def test_it_searches_no_path_for_libraries(self):
        self.assertNotRegex(self.dynamic, r"\((RPATH|RUNPATH)\)")

    def test_relocations_are_done_at_the_start_and_are_read_only_afterwards(self):
        self.assertEqual(len(self.flags_of("GNU_RELRO")), 1)
        self.assertRegex(self.dynamic, r"BIND_NOW")
        self.assertRegex(self.dynamic, r"FLAGS_1\).*\bNOW\b")

    def test_the_stack_is_not_executable(self):
        self.assertEqual(self.flags_of("GNU_STACK"), ["RW "])

    def test_nothing_is_writable_and_executable(self):
        loaded = self.flags_of("LOAD")
        self.assertGreaterEqual(len(loaded), 2)
        self.assertFalse([flags for flags in loaded if "W" in flags and "E" in flags])

    def test_nothing_relocates_its_code(self):
        self.assertNotIn("TEXTREL", self.dynamic)

    def test_it_checks_its_stack_and_its_copies(self):
        self.assertIn("__stack_chk_fail", self.symbols)
        self.assertTrue({"__vsnprintf_chk", "___vsnprintf_chk"} & self.symbols, "no checked call of the C library")

    def test_it_checks_the_preconditions_of_the_standard_library(self):
        demangled = told_by("nm", "-C", TOOL)
        self.assertIn("std::__glibcxx_assert_fail", demangled)

    def test_it_holds_no_sanitizer_and_no_counters(self):
        foreign = [name for name in self.symbols if name.startswith(("__asan_", "__ubsan_", "__tsan_", "__gcov_"))]
        self.assertEqual(foreign, [])

    def test_every_object_of_ours_is_marked_for_control_flow_protection(self):
        if not is_x86_64():
            self.skipTest("another processor's matter")
        # The mark of the whole executable needs a C library that has it as well; the objects are what we answer for.
        for library in LIBRARIES:
            notes = re.split(r"^File: ", told_by("readelf", "-nW", library), flags=re.MULTILINE)[1:]
            self.assertTrue(notes, library)
            for note in notes:
                self.assertRegex(note, r"IBT, SHSTK|SHSTK, IBT", note.partition("\n")[0])

    def test_its_functions_begin_with_a_landing_pad(self):
        if not is_x86_64():
            self.skipTest("another processor's matter")
        main = told_by("objdump", "-d", "--disassemble=main", "--no-show-raw-insn", TOOL)
        self.assertRegex(main, r"<main>:\n\s+[0-9a-f]+:\s+endbr64")


if __name__ == "__main__":
    reason = why_not_here()
    if reason:
        print(f"Skipped: {reason}")
        sys.exit(SKIPPED)
    unittest.main(argv=sys.argv[:1])
