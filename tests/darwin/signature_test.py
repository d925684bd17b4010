#!/usr/bin/python3
"""Tests the check of code signatures: signature_test.py UNIVERSAL [unittest's arguments]

UNIVERSAL is a program for both processors with good signatures.
"""

import os
import struct
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "../../scripts"))

import macho_signature  # noqa: E402  (the path comes first)

PROGRAM = b""
_ARM64 = 0x0100000C
_LC_CODE_SIGNATURE = b"\x1d\0\0\0\x10\0\0\0"


def defects(data):
    with tempfile.NamedTemporaryFile() as file:
        file.write(data)
        file.flush()
        return macho_signature.defects(file.name)


def arm64_part():
    """The part that has to be signed."""
    for number in range(2):
        processor, _, offset, size = struct.unpack_from(">4I", PROGRAM, 8 + 20 * number)
        if processor == _ARM64:
            return PROGRAM[offset : offset + size]
    raise AssertionError("the program has no part for arm64")


class Signature(unittest.TestCase):
    def test_a_good_signature_has_no_defects(self):
        self.assertEqual(defects(PROGRAM), [])
        self.assertEqual(defects(arm64_part()), [])

    def test_one_changed_byte_makes_one_page_wrong(self):
        changed = bytearray(arm64_part())
        changed[len(changed) // 2] ^= 1
        found = defects(changed)
        self.assertEqual(len(found), 1)
        self.assertRegex(found[0], r"arm64: 1 of \d+ pages have another hash$")

    def test_an_arm64_part_needs_a_signature(self):
        self.assertIn("arm64: it is not signed", defects(arm64_part().replace(_LC_CODE_SIGNATURE, b"\x1e" + _LC_CODE_SIGNATURE[1:])))

    def test_bytes_behind_the_signature_are_a_defect(self):
        self.assertRegex(defects(arm64_part() + b"x")[0], "the signature ends at")

    def test_a_signature_of_another_form_is_a_defect(self):
        for magic, changed, text in (
            (b"\xfa\xde\x0c\xc0", b"\xfa\xde\x0c\xc1", "another form"),
            (b"\xfa\xde\x0c\x02", b"\xfa\xde\x0c\x03", "no hashes"),
        ):
            self.assertRegex(defects(PROGRAM.replace(magic, changed))[0], text)


if __name__ == "__main__":
    with open(sys.argv[1], "rb") as program:
        PROGRAM = program.read()
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]])
