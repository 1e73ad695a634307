#!/usr/bin/env python3
"""Reads JSON from standard input with python3's json module, strictly, and
prints it in a canonical form (sorted keys, no spaces), so that the tests
compare what an independent parser makes of morv-settings' JSON.

    json_canonical.py           the whole input is one JSON document
    json_canonical.py --lines   one document per line (watch --json)

Exits 1, saying why, when the input is not JSON."""

import json
import sys


def reject_constant(name):
    raise ValueError("not JSON: " + name)


def canonical(text):
    value = json.loads(text, parse_constant=reject_constant)
    return json.dumps(value, sort_keys=True, separators=(",", ":"), ensure_ascii=False)


def main(argv):
    text = sys.stdin.buffer.read().decode("utf-8")
    try:
        if argv[1:] == ["--lines"]:
            for line in text.splitlines():
                print(canonical(line))
        else:
            print(canonical(text))
    except ValueError as error:
        print("json_canonical.py: %s" % error, file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
