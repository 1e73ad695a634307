#!/usr/bin/env python3
"""Prints a Google Benchmark JSON report as tables, implementations side by side.

Benchmark names read Op/Implementation/Input. For every op, one table: a row
per input, a column per implementation, each cell the median and the best
throughput over the repetitions (or time when there is no throughput).

    bench/compare.py report.json
"""
import json
import statistics
import sys
from collections import OrderedDict, defaultdict


def human(value, unit):
    for scale, prefix in ((1e9, "G"), (1e6, "M"), (1e3, "k")):
        if value >= scale:
            return f"{value / scale:.2f} {prefix}{unit}"
    return f"{value:.2f} {unit}"


def main(path):
    with open(path) as f:
        report = json.load(f)
    runs = defaultdict(list)  # (op, impl, input) -> [values]
    kinds = {}
    for b in report["benchmarks"]:
        if b.get("run_type") == "aggregate":
            continue
        parts = b["run_name"].split("/")
        if len(parts) < 3:
            continue
        op, impl, inp = parts[0], parts[1], "/".join(parts[2:])
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
        widths = [max(len(r[i]) for r in rows) for i in range(len(header))]
        for r in rows:
            print("  " + "  ".join(c.ljust(w) for c, w in zip(r, widths)))


if __name__ == "__main__":
    main(sys.argv[1])
