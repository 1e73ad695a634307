#!/usr/bin/env python3
"""plistlib's side of the settings-file interoperability tests.

Python's plistlib is an implementation of property lists independent of
libplist, so files that it writes must read correctly in the store, and
files that the store writes must read correctly here.

    plist_interop.py write-fixture binary|xml|binary-zero|binary-edges PATH
        Writes the reference fixture (every kind of entry) to PATH;
        binary-zero adds keys and strings holding U+0000 (ZERO_ENTRIES),
        which only the binary format carries; binary-edges adds the edge
        values that XML carries too (EDGE_ENTRIES).
    plist_interop.py add-zero-entry PATH
        Adds Settings/Product/"added\0elsewhere" = "x\0y" to the binary
        property list at PATH, as another program changing the file would.
    plist_interop.py dump [--escaped] PATH
        Prints every entry of the property list at PATH, one per line:
        key path, type, value (sorted keys, so the output is canonical).
        With --escaped, keys and strings show every character outside
        printable ASCII (and the backslash) as \\x{HEX}, unquoted, and a
        NaN with its sign bit set as -nan: every value can be told exactly.
    plist_interop.py xml-again PATH
        Prints the XML that plistlib writes for what it reads at PATH.
"""
import datetime
import math
import plistlib
import sys


def fixture(binary):
    deep = {"leaf": "bottom"}
    for level in range(40):
        deep = {"level%d" % level: deep}
    product = {
        "int": 42,
        "negative": -17,
        "int64_max": 2**63 - 1,
        "int64_min": -(2**63),
        "above_int64": 2**63,
        "uint64_max": 2**64 - 1,
        "real": 3.25,
        "third": 1 / 3,
        "tiny": 1e-300,
        "huge": 1.5e300,
        "negative_zero": -0.0,
        "yes": True,
        "no": False,
        "string": "plain text",
        "unicode": "Gr\u00fc\u00dfe, \u4e16\u754c \U0001F30D",
        "numeric_text": "  -42abc",
        "empty_string": "",
        "data": bytes(range(256)),
        "empty_data": b"",
        "array": [1, "two", 3.5, [4, {"five": 5}], {"six": [6, {"seven": b"7"}]}],
        "empty_array": [],
        "date": datetime.datetime(2026, 11, 21, 12, 34, 56),
        "empty_dict": {},
        "\u00dcn\u00efc\u00f6d\u00e9 k\u00e9y \u2603": "value under a unicode key",
        "deep": deep,
    }
    if binary:
        product["uid"] = plistlib.UID(7)
    return {
        "Settings": {"Product": product, "Other": {"kept": 1}},
        "Install": {"Product": {"InstallPath": "/opt/morv/bin/server"}},
        "TopLevelValue": "kept",
    }


# Entries whose keys or strings hold U+0000, in ASCII and UTF-16 objects.
ZERO_ENTRIES = {
    "nul_ascii": "a\u0000b",
    "nul_unicode": "\u00e9\u0000\u4e16",
    "key\u0000with zero": "value under a key with U+0000",
    "\u00e9\u0000dict": {"inner\u0000": "\u0000"},
}


# Values at the edges of what XML carries: dates of any year (whole
# seconds), the special reals, text that needs escaping, integers at both
# ends.
EDGE_ENTRIES = {
    "dates": [datetime.datetime(1, 1, 1), datetime.datetime(1869, 1, 3, 4, 5, 6),
              datetime.datetime(1932, 12, 13, 20, 45, 51), datetime.datetime(2069, 1, 19, 3, 14, 8),
              datetime.datetime(2199, 8, 20), datetime.datetime(9999, 12, 31, 23, 59, 59)],
    "reals": [float("inf"), float("-inf"), float("nan"), -0.0, 5e-324, 1.7976931348623157e308,
              0.1, -2.5e-310],
    "text": "cr\rcrlf\r\nlf\ntab\t&amp; <tag> ]]> \u0085\u2028\u00a0\ufffd\U0001F30D\u007f",
    "\r key with CR & <angle>": "x",
    "integers": [0, -1, 2**63 - 1, -(2**63), 2**63, 2**64 - 1],
    "empty": [[], {}, b"", ""],
}


def escaped(text):
    return "".join(c if " " <= c <= "~" and c != "\\" else "\\x{%X}" % ord(c) for c in text)


def real_text(value, exact):
    if exact and math.isnan(value) and math.copysign(1.0, value) < 0:
        return "-nan"
    return repr(value)


def describe(value, path, lines, exact=False):
    show = escaped if exact else str
    if isinstance(value, dict):
        lines.append("%s\tdict\t%d" % (path, len(value)))
        for key in sorted(value):
            describe(value[key], path + "/" + show(key), lines, exact)
    elif isinstance(value, list):
        lines.append("%s\tarray\t%d" % (path, len(value)))
        for index, item in enumerate(value):
            describe(item, "%s[%d]" % (path, index), lines, exact)
    elif isinstance(value, bool):  # before int: bool is an int in Python
        lines.append("%s\tbool\t%s" % (path, value))
    elif isinstance(value, int):
        lines.append("%s\tint\t%d" % (path, value))
    elif isinstance(value, float):
        lines.append("%s\treal\t%s" % (path, real_text(value, exact)))
    elif isinstance(value, str):
        lines.append("%s\tstr\t%s" % (path, escaped(value) if exact else repr(value)))
    elif isinstance(value, bytes):
        lines.append("%s\tbytes\t%s" % (path, value.hex()))
    elif isinstance(value, datetime.datetime):
        lines.append("%s\tdate\t%s" % (path, value.isoformat()))
    elif isinstance(value, plistlib.UID):
        lines.append("%s\tuid\t%d" % (path, value.data))
    else:
        lines.append("%s\t%s\t%r" % (path, type(value).__name__, value))


def main(argv):
    if len(argv) == 4 and argv[1] == "write-fixture" and argv[2] in ("binary", "xml",
                                                                       "binary-zero",
                                                                       "binary-edges"):
        binary = argv[2] != "xml"
        root = fixture(binary)
        if argv[2] == "binary-zero":
            root["Settings"]["Product"].update(ZERO_ENTRIES)
        if argv[2] == "binary-edges":
            root["Settings"]["Product"].update(EDGE_ENTRIES)
        with open(argv[3], "wb") as out:
            plistlib.dump(root, out, fmt=plistlib.FMT_BINARY if binary else plistlib.FMT_XML)
        return 0
    if len(argv) == 3 and argv[1] == "add-zero-entry":
        with open(argv[2], "rb") as source:
            root = plistlib.load(source)
        root["Settings"]["Product"]["added\u0000elsewhere"] = "x\u0000y"
        with open(argv[2], "wb") as out:
            plistlib.dump(root, out, fmt=plistlib.FMT_BINARY)
        return 0
    if len(argv) in (3, 4) and argv[1] == "dump" and (len(argv) == 3 or argv[2] == "--escaped"):
        with open(argv[-1], "rb") as source:
            root = plistlib.load(source)
        lines = []
        describe(root, "", lines, len(argv) == 4)
        sys.stdout.buffer.write(("\n".join(lines) + "\n").encode("utf-8"))
        return 0
    if len(argv) == 3 and argv[1] == "xml-again":
        with open(argv[2], "rb") as source:
            sys.stdout.buffer.write(plistlib.dumps(plistlib.load(source), fmt=plistlib.FMT_XML))
        return 0
    sys.stderr.write(__doc__)
    return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv))
