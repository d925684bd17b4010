"""Checks the code signatures of a Mach-O file as macOS's kernel does when it maps the file and pages it in.

A Mac kills an arm64 program without a signature at its start, and every program when it reads a page whose hash is wrong.
None of LLVM's tools compares the hashes.
"""

import hashlib
import struct

_UNIVERSAL = b"\xca\xfe\xba\xbe"
_PROCESSORS = {0x01000007: "x86_64", 0x0100000C: "arm64"}
_PAGE_BITS = {"x86_64": 12, "arm64": 14}
_HEADER_SIZE = 32
_LC_SEGMENT_64, _LC_CODE_SIGNATURE = 0x19, 0x1D
_SUPER_BLOB, _CODE_DIRECTORY = 0xFADE0CC0, 0xFADE0C02
_SHA256 = 2
_AD_HOC, _LINKER_SIGNED = 0x2, 0x20000


def defects(path):
    """Returns what is wrong with the signatures of a program or a universal file, one text each."""
    with open(path, "rb") as file:
        data = file.read()
    found = []
    for offset, size, alignment in _parts(data):
        part = data[offset : offset + size]
        name = _PROCESSORS[struct.unpack_from("<I", part, 4)[0]]
        if alignment is not None and (alignment < _PAGE_BITS[name] or offset % (1 << _PAGE_BITS[name])):
            found.append(f"{name}: the part at {offset:#x} does not begin on a page")
        found += [f"{name}: {text}" for text in _defects_of_part(part, name)]
    return found


def _parts(data):
    """The offset, size and alignment of each processor's part; no alignment if the file is not universal."""
    if data[:4] != _UNIVERSAL:
        return [(0, len(data), None)]
    (count,) = struct.unpack_from(">I", data, 4)
    entries = [struct.unpack_from(">5I", data, 8 + 20 * number) for number in range(count)]
    return [(offset, size, alignment) for _, _, offset, size, alignment in entries]


def _load_commands(part):
    place = _HEADER_SIZE
    for _ in range(struct.unpack_from("<I", part, 16)[0]):
        command, size = struct.unpack_from("<II", part, place)
        yield command, part[place : place + size]
        place += size


def _defects_of_part(part, name):
    signature = linkedit_end = None
    for command, content in _load_commands(part):
        if command == _LC_CODE_SIGNATURE:
            signature = struct.unpack_from("<II", content, 8)
        if command == _LC_SEGMENT_64 and content[8:24].rstrip(b"\0") == b"__LINKEDIT":
            linkedit_end = sum(struct.unpack_from("<QQ", content, 40))
    if signature is None:
        return ["it is not signed"] if name == "arm64" else []
    start, size = signature
    found = []
    if start % 16:
        found.append("the signature is not aligned to 16 bytes")
    if not start + size == len(part) == linkedit_end:
        found.append(f"the signature ends at {start + size}, __LINKEDIT at {linkedit_end}, the part at {len(part)}")
    return found + _defects_of_signature(part, start, part[start : start + size])


def _defects_of_signature(part, start, blob):
    magic, size, count = struct.unpack_from(">3I", blob)
    if magic != _SUPER_BLOB or size > len(blob):
        return ["the signature has another form"]
    for number in range(count):
        _, place = struct.unpack_from(">2I", blob, 12 + 8 * number)
        if struct.unpack_from(">I", blob, place)[0] == _CODE_DIRECTORY:
            return _defects_of_hashes(part, start, blob[place:])
    return ["the signature has no hashes"]


def _defects_of_hashes(part, start, directory):
    _, _, _, flags, hashes, _, _, count, limit = struct.unpack_from(">9I", directory)
    hash_size, hash_type, _, page_bits = struct.unpack_from(">4B", directory, 36)
    found = []
    if hash_type != _SHA256:
        found.append(f"the hashes are of type {hash_type}")
    if flags != _AD_HOC | _LINKER_SIGNED:
        found.append(f"the flags are {flags:#x}, not those of a linker's ad hoc signature")
    if limit != start:
        found.append(f"the hashes cover {limit} bytes of {start}")
    if count != (limit + (1 << page_bits) - 1) >> page_bits:
        found.append(f"there are {count} hashes for {limit} bytes")
    wrong = 0
    for number in range(count):
        page = part[number << page_bits : min((number + 1) << page_bits, limit)]
        place = hashes + number * hash_size
        wrong += hashlib.sha256(page).digest()[:hash_size] != directory[place : place + hash_size]
    if wrong:
        found.append(f"{wrong} of {count} pages have another hash")
    return found
