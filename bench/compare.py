#!/usr/bin/env python3
"""Prints a Google Benchmark JSON report as tables, implementations side by side.

Benchmark names read Op/Implementation/Input. For every op, one table: a row
per input, a column per implementation, each cell the median and the best
throughput over the repetitions (or time when there is no throughput).
Then, for every op that both have, the speed of one implementation over
another's per input (medians; above 1 when the first is faster): by default
the store ("Morv") over libplist; --ratio may be given several times.

Several reports (runs of one program, interleaved with runs of another to
spread the machine's noise evenly) are pooled. Reports given after --before
come from a build of earlier code: their implementations appear with
"@before" ("Morv@before"), beside the current ones.

    bench/compare.py report.json [more.json ...] [--ratio Morv libplist]
        [--before old.json ...]
"""
import argparse
import json
import statistics
from collections import OrderedDict, defaultdict


def human(value, unit):
    for scale, prefix in ((1e9, "G"), (1e6, "M"), (1e3, "k")):
        if value >= scale:
            return f"{value / scale:.2f} {prefix}{unit}"
    return f"{value:.2f} {unit}"


def print_table(rows):
    widths = [max(len(r[i]) for r in rows) for i in range(len(rows[0]))]
    for r in rows:
        print("  " + "  ".join(c.ljust(w) for c, w in zip(r, widths)))


def print_ratios(runs, kinds, ops, first, second):
    """Per op holding both implementations: first's speed over second's."""
    for op, (impls, inputs) in ops.items():
        if first not in impls or second not in impls:
            continue
        higher_is_better = kinds[op] == "B/s"
        rows = [["input", f"{first} / {second}"]]
        for inp in inputs:
            a, b = runs.get((op, first, inp)), runs.get((op, second, inp))
            if not a or not b:
                continue
            a, b = statistics.median(a), statistics.median(b)
            speed = a / b if higher_is_better else b / a
            rows.append([inp, f"{speed:.2f}x"])
        if len(rows) > 1:
            print(f"\n{op}: speed of {first} over {second}, medians")
            print_table(rows)


def load(paths, suffix=""):
    """The non-aggregate runs of the reports, implementations with `suffix`."""
    for path in paths:
        with open(path) as f:
            report = json.load(f)
        for b in report["benchmarks"]:
            if b.get("run_type") == "aggregate":
                continue
            parts = b["run_name"].split("/")
            if len(parts) < 3:
                continue
            yield parts[0], parts[1] + suffix, "/".join(parts[2:]), b


def main(paths, before, ratios):
    runs = defaultdict(list)  # (op, impl, input) -> [values]
    kinds = {}
    for op, impl, inp, b in list(load(paths)) + list(load(before, "@before")):
        if "bytes_per_second" in b:
            runs[(op, impl, inp)].append(b["bytes_per_second"])
            kinds[op] = "B/s"
        else:
            # Real time per iteration, in the unit the benchmark reports.
            runs[(op, impl, inp)].append(b["real_time"])
            kinds[op] = b.get("time_unit", "ns")
    ops = OrderedDict()
    for op, impl, inp in runs:
        entry = ops.setdefault(op, (OrderedDict(), OrderedDict()))
        entry[0][impl] = None
        entry[1][inp] = None
    for op, (impls, inputs) in ops.items():
        unit = kinds[op]
        higher_is_better = unit == "B/s"
        title = "throughput, median (best)" if higher_is_better else f"time per call in {unit}, median (best)"
        print(f"\n{op}: {title}")
        header = ["input"] + list(impls)
        rows = [header]
        for inp in inputs:
            row = [inp]
            for impl in impls:
                values = runs.get((op, impl, inp))
                if not values:
                    row.append("-")
                    continue
                best = max(values) if higher_is_better else min(values)
                med = statistics.median(values)
                if higher_is_better:
                    row.append(f"{human(med, 'B/s')} ({human(best, 'B/s')})")
                else:
                    row.append(f"{med:.1f} ({best:.1f})")
            rows.append(row)
        print_table(rows)
    for first, second in ratios:
        print_ratios(runs, kinds, ops, first, second)


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description="Google Benchmark JSON report as tables")
    parser.add_argument("reports", nargs="+", metavar="report")
    parser.add_argument("--ratio", nargs=2, metavar=("FIRST", "SECOND"), action="append",
                        help="the implementations whose speeds to compare (default: Morv libplist)")
    parser.add_argument("--before", nargs="+", default=[], metavar="report",
                        help="reports of a build of earlier code")
    args = parser.parse_args()
    main(args.reports, args.before, args.ratio or [["Morv", "libplist"]])
