#!/usr/bin/env python3
"""plistlib's side of the binary property-list differential tests.

Generates binary property lists of every object kind that plistlib reads,
written both by plistlib and by a small writer of this script's own that
chooses the reference and offset sizes and the width of every integer (so
that 1-, 2-, 4- and 8-byte references and offsets, object counts around 255
and 65535, and integers at every width all occur), and lists what plistlib
reads from each file in a canonical form that the C++ side prints too.

    plist_differential.py generate DIR COUNT SEED
        Writes COUNT random files DIR/rNNNN.plist plus the boundary files
        DIR/b*.plist; beside each, DIR/<name>.txt holds plistlib's listing.
    plist_differential.py dump DIR
        Lists every DIR/*.plist that has no .txt yet into DIR/<name>.txt
        (or DIR/<name>.error when plistlib refuses it).
    plist_differential.py zero-samples DIR
        Writes DIR/z_<name>.plist: small trees whose keys and strings hold
        U+0000, in ASCII and UTF-16 objects, as plistlib writes them. Each
        dictionary holds one entry, so that the objects come in the order
        the store's writer numbers them too: it writes the same bytes.

The listing: one line per object, "path<TAB>kind<TAB>value", containers
before their contents, dictionary keys in code-point order. A path is the
keys (as UTF-8 hex) joined by "/", with "[i]" for array items. Kinds and
values: dict and array with their counts, bool 0 or 1, int in decimal, real
as the hex of its 8 big-endian IEEE bytes, str and data as hex, date in
microseconds after 2001-01-01, uid in decimal.
"""
import datetime
import os
import plistlib
import random
import struct
import sys

EPOCH = datetime.datetime(2001, 1, 1)


def describe(value, path, lines):
    if isinstance(value, dict):
        lines.append("%s\tdict\t%d" % (path, len(value)))
        for key in sorted(value):
            describe(value[key], path + "/" + key.encode("utf-8").hex(), lines)
    elif isinstance(value, list):
        lines.append("%s\tarray\t%d" % (path, len(value)))
        for index, item in enumerate(value):
            describe(item, "%s[%d]" % (path, index), lines)
    elif isinstance(value, bool):  # before int: bool is an int in Python
        lines.append("%s\tbool\t%d" % (path, int(value)))
    elif isinstance(value, int):
        lines.append("%s\tint\t%d" % (path, value))
    elif isinstance(value, float):
        lines.append("%s\treal\t%s" % (path, struct.pack(">d", value).hex()))
    elif isinstance(value, str):
        lines.append("%s\tstr\t%s" % (path, value.encode("utf-8").hex()))
    elif isinstance(value, bytes):
        lines.append("%s\tdata\t%s" % (path, value.hex()))
    elif isinstance(value, datetime.datetime):
        lines.append("%s\tdate\t%d" % (path, (value - EPOCH) // datetime.timedelta(microseconds=1)))
    elif isinstance(value, plistlib.UID):
        lines.append("%s\tuid\t%d" % (path, value.data))
    else:
        raise ValueError("unexpected %r" % (value,))


def listing(data):
    lines = []
    describe(plistlib.loads(data), "", lines)
    return "\n".join(lines) + "\n"


# --- Random trees ---------------------------------------------------------------

WORDS = ["Count", "Name", "Path", "Enabled", "Ratio", "Blob", "Level", "Port", "Host", "k"]
UNICODE = ["\u00e9t\u00e9", "\u4e16\u754c", "\U0001F30D", "\u00fc\u00df", "\u0416", "\u2603"]


def random_text(rng, zeros, allow_empty=True):
    """Random text; with `zeros`, a quarter of it holds U+0000 somewhere."""
    kind = rng.random()
    if kind < 0.1 and allow_empty:
        text = ""
    elif kind < 0.6:
        text = rng.choice(WORDS) + str(rng.randrange(1000))
    elif kind < 0.8:
        text = "".join(rng.choice(UNICODE) for _ in range(rng.randrange(1, 6)))
    else:
        # Long text: lengths around the 15 that the marker holds.
        text = "".join(chr(rng.randrange(0x20, 0x7F)) for _ in range(rng.randrange(10, 40)))
    if zeros and rng.random() < 0.25:
        cut = rng.randrange(len(text) + 1)
        text = text[:cut] + "\u0000" + text[cut:]
    return text


def random_int(rng):
    bound = rng.choice([1 << 7, 1 << 8, 1 << 16, 1 << 32, 1 << 63, 1 << 64])
    value = rng.randrange(bound)
    if bound == 1 << 64:
        return value  # up to 2**64 - 1: sixteen bytes in a file
    if rng.random() < 0.3:
        return -value - 1 if bound <= 1 << 63 else value
    return value


def random_date(rng):
    microseconds = rng.randrange(-10**16, 10**16)
    return EPOCH + datetime.timedelta(microseconds=microseconds)


def random_value(rng, depth, zeros):
    choice = rng.random()
    if depth < 4 and choice < 0.1:
        return random_dict(rng, depth + 1, zeros)
    if depth < 4 and choice < 0.16:
        return [random_value(rng, depth + 1, zeros)
                for _ in range(rng.choice([0, 1, 3, 14, 15, 16]))]
    choice = rng.random()
    if choice < 0.2:
        return random_int(rng)
    if choice < 0.3:
        return rng.choice([0.0, -0.0, 1.5, -2.25, 1e300, 5e-324, float("inf"), float("-inf"),
                           rng.uniform(-1e6, 1e6)])
    if choice < 0.4:
        return rng.random() < 0.5
    if choice < 0.65:
        return random_text(rng, zeros)
    if choice < 0.8:
        return bytes(rng.randrange(256) for _ in range(rng.choice([0, 1, 14, 15, 16, 300])))
    if choice < 0.9:
        return random_date(rng)
    return plistlib.UID(rng.randrange(1 << rng.choice([8, 16, 32, 64])))


def random_dict(rng, depth, zeros):
    return {random_text(rng, zeros): random_value(rng, depth, zeros)
            for _ in range(rng.choice([0, 1, 2, 5, 14, 15, 16, 20]))}


# --- A writer with chosen sizes -----------------------------------------------


class Writer:
    """Writes a binary property list with the given reference and offset
    sizes (at least what is needed) and integers `extra` widths wider than
    needed, sharing equal strings when `share` is true."""

    def __init__(self, ref_size=None, offset_size=None, widen=False, share=True, real32=False):
        self.ref_size = ref_size
        self.offset_size = offset_size
        self.widen = widen
        self.share = share
        self.real32 = real32

    def write(self, root):
        self.objects = []
        self.strings = {}
        top = self.flatten(root)
        count = len(self.objects)
        need = 1 if count <= 0xFF else 2 if count <= 0xFFFF else 4
        ref_size = max(need, self.ref_size or 0)
        body = bytearray(b"bplist00")
        offsets = []
        for obj in self.objects:
            offsets.append(len(body))
            body += self.encode(obj, ref_size)
        table = len(body)
        need = 1 if table <= 0xFF else 2 if table <= 0xFFFF else 4 if table <= 0xFFFFFFFF else 8
        offset_size = max(need, self.offset_size or 0)
        for offset in offsets:
            body += offset.to_bytes(offset_size, "big")
        body += bytes(6) + bytes([offset_size, ref_size])
        body += struct.pack(">QQQ", count, top, table)
        return bytes(body)

    def flatten(self, value):
        if isinstance(value, str) and self.share and value in self.strings:
            return self.strings[value]
        index = len(self.objects)
        self.objects.append(None)
        if isinstance(value, str):
            self.strings[value] = index
        if isinstance(value, dict):
            keys = sorted(value)
            refs = [self.flatten(key) for key in keys] + [self.flatten(value[key]) for key in keys]
            self.objects[index] = ("dict", refs)
        elif isinstance(value, list):
            self.objects[index] = ("array", [self.flatten(item) for item in value])
        else:
            self.objects[index] = ("scalar", value)
        return index

    @staticmethod
    def fits_float(value):
        """Whether a 4-byte real holds `value` exactly."""
        try:
            return struct.unpack(">f", struct.pack(">f", value))[0] == value
        except OverflowError:
            return False

    @staticmethod
    def count(marker, n):
        if n < 15:
            return bytes([marker | n])
        size = 0 if n <= 0xFF else 1 if n <= 0xFFFF else 2 if n <= 0xFFFFFFFF else 3
        return bytes([marker | 0xF, 0x10 | size]) + n.to_bytes(1 << size, "big")

    def encode(self, obj, ref_size):
        kind, value = obj
        if kind == "dict":
            return self.count(0xD0, len(value) // 2) + b"".join(
                r.to_bytes(ref_size, "big") for r in value)
        if kind == "array":
            return self.count(0xA0, len(value)) + b"".join(r.to_bytes(ref_size, "big") for r in value)
        if isinstance(value, bool):
            return b"\x09" if value else b"\x08"
        if isinstance(value, int):
            if value < 0:
                return b"\x13" + value.to_bytes(8, "big", signed=True)
            if value >= 1 << 63:
                return b"\x14" + value.to_bytes(16, "big")
            sizes = [size for size in (1, 2, 4, 8) if value < (1 << (8 * size - (size == 8)))]
            size = sizes[-1] if self.widen else sizes[0]
            return bytes([0x10 | {1: 0, 2: 1, 4: 2, 8: 3}[size]]) + value.to_bytes(size, "big")
        if isinstance(value, float):
            if self.real32 and Writer.fits_float(value):
                return b"\x22" + struct.pack(">f", value)
            return b"\x23" + struct.pack(">d", value)
        if isinstance(value, datetime.datetime):
            return b"\x33" + struct.pack(">d", (value - EPOCH).total_seconds())
        if isinstance(value, bytes):
            return self.count(0x40, len(value)) + value
        if isinstance(value, plistlib.UID):
            n = value.data
            size = 1 if n < 1 << 8 else 2 if n < 1 << 16 else 4 if n < 1 << 32 else 8
            if self.widen and size < 8:
                size *= 2
            return bytes([0x80 | (size - 1)]) + n.to_bytes(size, "big")
        if isinstance(value, str):
            if all(ord(c) < 0x80 for c in value):
                return self.count(0x50, len(value)) + value.encode("ascii")
            units = value.encode("utf-16be")
            return self.count(0x60, len(units) // 2) + units
        raise ValueError(value)


# --- Boundary files -------------------------------------------------------------


def counted_root(objects):
    """A root dictionary whose file holds exactly `objects` objects when
    written without sharing: 1 for the root, 2 per entry, and one more (an
    array item) when the count is even."""
    entries = (objects - 1) // 2
    root = {"k%06d" % i: i for i in range(entries)}
    if objects % 2 == 0:
        root["k%06d" % (entries - 1)] = [0]
    return root


def boundary_files():
    files = {}
    for objects in (255, 256, 257, 65535, 65536, 65537):
        files["b_count_%d" % objects] = Writer(share=False).write(counted_root(objects))
    sample = {"a": 1, "b": [1, 2, 300, 70000, 5000000000], "c": "text", "d": b"\x00\x01"}
    for ref_size in (1, 2, 4, 8):
        for offset_size in (1, 2, 4, 8):
            name = "b_ref%d_offset%d" % (ref_size, offset_size)
            files[name] = Writer(ref_size=ref_size, offset_size=offset_size).write(sample)
    integers = {"v%02d" % i: v for i, v in enumerate(
        [0, 1, 127, 128, 255, 256, 65535, 65536, 2**31 - 1, 2**31, 2**32 - 1, 2**32,
         2**63 - 1, 2**63, 2**64 - 1, -1, -128, -129, -2**31, -2**63])}
    files["b_integers"] = Writer().write(integers)
    files["b_integers_wide"] = Writer(widen=True).write(integers)
    files["b_reals32"] = Writer(real32=True).write({"a": 0.5, "b": -2.0, "c": 3.0e38, "d": 0.1})
    # Offsets past 65535 and 4 GiB would need huge files; 8-byte offsets
    # and references of small values are covered by the sizes above.
    big = {"blob%d" % i: bytes(range(256)) * 300 for i in range(4)}
    files["b_offsets_over_64k"] = Writer().write(big)
    return files


def generate(directory, count, seed):
    rng = random.Random(seed)
    os.makedirs(directory, exist_ok=True)
    files = {}
    for i in range(count):
        # Every fourth file's keys and strings may hold U+0000.
        tree = random_dict(rng, 1, i % 4 == 3)
        if i % 3 == 0:
            data = plistlib.dumps(tree, fmt=plistlib.FMT_BINARY, sort_keys=rng.random() < 0.5)
        else:
            writer = Writer(ref_size=rng.choice([None, 1, 2, 4, 8]),
                            offset_size=rng.choice([None, 1, 2, 4, 8]),
                            widen=rng.random() < 0.3, share=rng.random() < 0.7,
                            real32=rng.random() < 0.3)
            data = writer.write(tree)
        files["r%04d" % i] = data
    files.update(boundary_files())
    for name, data in files.items():
        with open(os.path.join(directory, name + ".plist"), "wb") as out:
            out.write(data)
        with open(os.path.join(directory, name + ".txt"), "w") as out:
            out.write(listing(data))


def dump(directory):
    for name in sorted(os.listdir(directory)):
        if not name.endswith(".plist"):
            continue
        stem = os.path.join(directory, name[:-len(".plist")])
        if os.path.exists(stem + ".txt"):
            continue
        with open(stem + ".plist", "rb") as source:
            data = source.read()
        try:
            text = listing(data)
        except Exception as error:  # plistlib refuses it
            with open(stem + ".error", "w") as out:
                out.write("%s\n" % error)
            continue
        with open(stem + ".txt", "w") as out:
            out.write(text)


ZERO_SAMPLES = {
    "ascii_value": {"k": "a\u0000b"},
    "ascii_key": {"nul\u0000key": "v"},
    "only_zero": {"\u0000": "\u0000"},
    "utf16_value": {"k": "\u00e9\u0000\U0001F30D"},
    "utf16_key": {"\u4e16\u0000": {"inner\u0000": ["x\u0000", "\u0000\u00e9", b"\x00"]}},
    "long": {"long\u0000": ["\u0000" * 40 + "x", {"\u0000" * 20: "\u00e9\u0000" * 20}]},
}


def zero_samples(directory):
    os.makedirs(directory, exist_ok=True)
    for name, tree in ZERO_SAMPLES.items():
        with open(os.path.join(directory, "z_%s.plist" % name), "wb") as out:
            out.write(plistlib.dumps(tree, fmt=plistlib.FMT_BINARY))


def main(argv):
    if len(argv) == 5 and argv[1] == "generate":
        generate(argv[2], int(argv[3]), int(argv[4]))
        return 0
    if len(argv) == 3 and argv[1] == "dump":
        dump(argv[2])
        return 0
    if len(argv) == 3 and argv[1] == "zero-samples":
        zero_samples(argv[2])
        return 0
    sys.stderr.write(__doc__)
    return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv))
