#!/usr/bin/env python3
"""Random values make the way from plistlib through our reader and writer back to plistlib, and must come back unchanged.

Usage: plistlib_round_trip.py PLIST_ECHO [SEED [COUNT]]
"""

import datetime
import math
import plistlib
import random
import struct
import subprocess
import sys


def notation(value):
    """The value as text that tells apart what == does not: 1, 1.0 and True; 0.0 and -0.0; but not one NaN from another."""
    if isinstance(value, dict):
        return "{" + ", ".join(sorted(f"{key!r}: {notation(value[key])}" for key in value)) + "}"
    if isinstance(value, list):
        return "[" + ", ".join(map(notation, value)) + "]"
    if isinstance(value, float):
        return "nan" if math.isnan(value) else value.hex()
    return repr(value)


class Generator:
    """With `plain`, values only that plistlib writes byte for byte as the platform does."""

    def __init__(self, seed, plain):
        self.random = random.Random(seed)
        self.plain = plain

    def text(self):
        ranges = [(0x20, 0x7E), (0x20, 0x7E), (9, 10), (0xA0, 0x7FF), (0x800, 0xD7FF)]
        if not self.plain:
            ranges += [(0xE000, 0xFFFD), (0x10000, 0x10FFFF)]
        characters = []
        for _ in range(self.random.choice([0, 1, 3, 8, 13, 14, 15, 16, 40, 300])):
            first, last = self.random.choice(ranges)
            characters.append(self.random.choice(["&", "<", ">", '"', "'", chr(self.random.randint(first, last))]))
        return "".join(characters)

    def integer(self):
        bits = self.random.randint(0, 64)
        number = self.random.getrandbits(bits) if bits else 0
        return -number if number <= 1 << 63 and self.random.random() < 0.5 else number

    def real(self):
        special = [0.0, -0.0, math.inf, -math.inf, math.nan, 5e-324, sys.float_info.max, sys.float_info.min]
        if self.random.random() < 0.2:
            return self.random.choice(special)
        return struct.unpack("<d", self.random.getrandbits(64).to_bytes(8, "little"))[0]

    def date(self):
        seconds = self.random.randint(-62135596800, 253402300799)
        return datetime.datetime(1970, 1, 1) + datetime.timedelta(seconds=seconds)

    def data(self):
        return self.random.randbytes(self.random.choice([0, 1, 2, 3, 26, 27, 28, 56, 57, 58, 500]))

    def value(self, depth=0):
        scalars = [self.text, self.text, self.integer, self.date, self.data, lambda: self.random.random() < 0.5]
        if not self.plain:
            scalars.append(self.real)
        if depth == 0 or depth < 7 and self.random.random() < 0.35:
            size = self.random.choice([0, 1, 2, 3, 12])
            if self.random.random() < 0.5:
                return [self.value(depth + 1) for _ in range(size)]
            return {self.text(): self.value(depth + 1) for _ in range(size)}
        return self.random.choice(scalars)()


class Echo:
    def __init__(self, program):
        self.process = subprocess.Popen([program], stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def __call__(self, text):
        self.process.stdin.write(b"%d\n" % len(text) + text)
        self.process.stdin.flush()
        answer = self.process.stdout.readline()
        if not answer[:1].isdigit():
            sys.exit(f"refused: {answer!r}\n{text!r}")
        return self.process.stdout.read(int(answer))

    def close(self):
        self.process.stdin.close()
        if self.process.wait() != 0:
            sys.exit("the echo failed")


def main():
    program = sys.argv[1]
    seed = int(sys.argv[2]) if len(sys.argv) > 2 else 1
    count = int(sys.argv[3]) if len(sys.argv) > 3 else 500
    echo = Echo(program)
    for number in range(seed, seed + count):
        for plain in (True, False):
            value = Generator(number, plain).value()
            for _ in range(0 if plain else number % 12):  # data is laid out by its depth
                value = [value]
            text = plistlib.dumps(value)
            answer = echo(text)
            if notation(plistlib.loads(answer)) != notation(value):
                sys.exit(f"seed {number}: {value!r} came back as {answer!r}")
            if plain and answer != text:
                sys.exit(f"seed {number}: {text!r} was written as {answer!r}")
            if echo(answer) != answer:
                sys.exit(f"seed {number}: the second writing of {answer!r} differs")
    echo.close()
    print(f"{2 * count} values came back unchanged")


if __name__ == "__main__":
    main()
