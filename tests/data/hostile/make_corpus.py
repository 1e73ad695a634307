#!/usr/bin/env python3
"""Writes the hostile settings-file corpus into this folder.

Every file must make the settings store fail to open it exactly as it fails
on an unreadable file: no crash, no hang, bounded memory, the file untouched.
The files are committed; run this again only to change the corpus.

    tests/data/hostile/make_corpus.py
"""
import os
import random
import struct

HERE = os.path.dirname(os.path.abspath(__file__))


def be(value, size):
    return value.to_bytes(size, "big")


def marker(kind, count):
    if count < 15:
        return bytes([(kind << 4) | count])
    return bytes([(kind << 4) | 0xF, 0x13]) + be(count, 8)


def bplist(objects, top, ref_size=1, offset_size=2, object_count=None, top_override=None,
           table_override=None):
    """objects: a list of byte strings; references inside them are written
    by the caller with ref_size bytes."""
    data = bytearray(b"bplist00")
    offsets = []
    for obj in objects:
        offsets.append(len(data))
        data += obj
    table = len(data)
    for offset in offsets:
        data += be(offset, offset_size)
    data += bytes(6) + bytes([offset_size, ref_size])
    data += be(len(objects) if object_count is None else object_count, 8)
    data += be(top if top_override is None else top_override, 8)
    data += be(table if table_override is None else table_override, 8)
    return bytes(data)


def ascii_obj(text):
    return marker(0x5, len(text)) + text.encode("ascii")


def array_obj(refs, ref_size=1):
    return marker(0xA, len(refs)) + b"".join(be(r, ref_size) for r in refs)


def dict_obj(keys, values, ref_size=1):
    return (marker(0xD, len(keys)) + b"".join(be(k, ref_size) for k in keys) +
            b"".join(be(v, ref_size) for v in values))


def corpus():
    files = {}

    # 60 arrays, each holding the next one twice: 2^60 nodes once expanded.
    objects = [dict_obj([1], [2]), ascii_obj("k")]
    for level in range(60):
        nxt = 2 + level + 1 if level < 59 else 1
        objects.append(array_obj([nxt, nxt]))
    files["blowup_shared_references.plist"] = bplist(objects, 0)

    # Arrays that contain each other, and a dictionary that contains itself.
    files["cycle_two_arrays.plist"] = bplist(
        [dict_obj([1], [2]), ascii_obj("k"), array_obj([3]), array_obj([2])], 0)
    files["cycle_self.plist"] = bplist([dict_obj([1], [0]), ascii_obj("k")], 0)

    # 1000 nested arrays (far beyond any settings file).
    depth = 1000
    objects = [dict_obj([1], [2], 2), ascii_obj("k")]
    for level in range(depth):
        objects.append(array_obj([3 + level] if level < depth - 1 else [], 2))
    files["deep_arrays.plist"] = bplist(objects, 0, ref_size=2)

    # Counts and lengths far beyond the file.
    files["absurd_array_count.plist"] = bplist(
        [dict_obj([1], [2]), ascii_obj("k"), marker(0xA, 2**62) + b"\x01\x01"], 0)
    files["absurd_string_length.plist"] = bplist(
        [dict_obj([1], [2]), ascii_obj("k"), marker(0x5, 2**40) + b"abc"], 0)
    files["absurd_object_count.plist"] = bplist(
        [dict_obj([1], [1]), ascii_obj("k")], 0, object_count=2**62)

    # Offsets and references that point nowhere.
    good = [dict_obj([1], [2]), ascii_obj("k"), ascii_obj("v")]
    files["table_offset_past_end.plist"] = bplist(good, 0, table_override=2**40)
    files["top_object_out_of_range.plist"] = bplist(good, 0, top_override=7)
    files["reference_out_of_range.plist"] = bplist(
        [dict_obj([1], [200]), ascii_obj("k")], 0)
    bad_offset = bytearray(bplist(good, 0))
    table = struct.unpack(">Q", bytes(bad_offset[-8:]))[0]
    bad_offset[table + 2:table + 4] = be(0xFFF0, 2)  # the second object's offset
    files["object_offset_past_table.plist"] = bytes(bad_offset)

    # Valid property lists that are not settings files.
    files["array_root.plist"] = bplist([array_obj([1]), ascii_obj("v")], 0)
    files["integer_key.plist"] = bplist(
        [dict_obj([1], [2]), b"\x10\x05", ascii_obj("v")], 0)
    files["array_root_xml.plist"] = (
        b'<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0">'
        b"<array><string>a</string></array></plist>\n")

    # Cut short, and noise.
    whole = bplist(good, 0)
    files["truncated.plist"] = whole[:-10]
    rng = random.Random(20261121)
    files["garbage.plist"] = bytes(rng.randrange(256) for _ in range(512))
    files["garbage_after_magic.plist"] = b"bplist00" + bytes(rng.randrange(256) for _ in range(200))

    # XML: deep nesting, an unclosed document, entity expansion.
    files["deep_xml.plist"] = (
        b'<?xml version="1.0"?><plist version="1.0">' +
        b"<dict><key>k</key>" * 1000 + b"<string>v</string>" + b"</dict>" * 1000 + b"</plist>")
    files["unclosed_xml.plist"] = (
        b'<?xml version="1.0"?><plist version="1.0"><dict><key>k</key><dict><key>')
    lol = b'<!ENTITY lol "lol">'
    for level in range(1, 10):
        lol += b'<!ENTITY lol%d "%s">' % (level, (b"&lol%d;" % (level - 1) if level > 1 else b"&lol;") * 10)
    files["billion_laughs_xml.plist"] = (
        b'<?xml version="1.0"?><!DOCTYPE plist [' + lol + b']><plist version="1.0">'
        b"<dict><key>k</key><string>&lol9;</string></dict></plist>")
    return files


def main():
    for name, data in sorted(corpus().items()):
        with open(os.path.join(HERE, name), "wb") as out:
            out.write(data)


if __name__ == "__main__":
    main()
