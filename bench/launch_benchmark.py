#!/usr/bin/env python3
"""Launcher cost at process level.

Measures the wall time from starting MMSLaunch to the sample server's first
line of output (the launcher finds the server through the installer's
InstallPath record, in a sandbox settings folder), against starting the same
server directly; also how long MMSLaunch itself runs. The runs alternate
between the two ways, and the report gives the median, fastest and 90th
percentile of each.

    bench/launch_benchmark.py [--build build] [--runs 30]

Needs the targets MMSLaunch and SampleMediaServer built in the build folder.
"""
import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

PLIST = """<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict><key>Install</key><dict><key>MorvMediaServer</key>
<dict><key>InstallPath</key><string>{server}</string></dict></dict></dict></plist>
"""


def first_line_time(command, cwd, env):
    """Seconds from starting `command` to the first line on its standard
    output (written by it or by a process it started), and seconds until
    `command` itself exited."""
    start = time.perf_counter()
    process = subprocess.Popen(command, cwd=cwd, env=env, stdout=subprocess.PIPE,
                               stderr=subprocess.DEVNULL)
    line = process.stdout.readline()
    first = time.perf_counter() - start
    process.wait()
    exited = time.perf_counter() - start
    process.stdout.read()  # let a detached server finish writing
    process.stdout.close()
    if not line:
        raise RuntimeError("no output from %s" % command[0])
    return first, exited


def describe(values):
    values = sorted(values)
    p90 = values[min(len(values) - 1, int(round(0.9 * (len(values) - 1))))]
    return "median %7.2f ms   fastest %7.2f ms   p90 %7.2f ms" % (
        statistics.median(values) * 1e3, values[0] * 1e3, p90 * 1e3)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", default="build")
    parser.add_argument("--runs", type=int, default=30)
    options = parser.parse_args()
    if options.runs < 20:
        parser.error("use at least 20 runs")
    launcher = os.path.abspath(os.path.join(options.build, "src/MMSLaunch/MMSLaunch"))
    server = os.path.abspath(os.path.join(options.build, "examples/SampleMediaServer"))
    for program in (launcher, server):
        if not os.access(program, os.X_OK):
            sys.exit("missing %s: build the MMSLaunch and SampleMediaServer targets" % program)

    sandbox = tempfile.mkdtemp(prefix="morv-launch-bench-")
    try:
        shared = os.path.join(sandbox, "xdg/Morv/Preferences/com.morv.plist")
        os.makedirs(os.path.dirname(shared))
        with open(shared, "w") as out:
            out.write(PLIST.format(server=server))
        env = dict(os.environ, XDG_CONFIG_HOME=os.path.join(sandbox, "config"),
                   XDG_CONFIG_DIRS=os.path.join(sandbox, "xdg"))
        env.pop("MORV_SAMPLE_SERVER_DONE", None)

        # One of each first, not counted (file caches, dynamic loading).
        first_line_time([launcher], sandbox, env)
        first_line_time([server], sandbox, env)
        through, direct, launcher_exit = [], [], []
        for _ in range(options.runs):
            first, exited = first_line_time([launcher], sandbox, env)
            through.append(first)
            launcher_exit.append(exited)
            direct.append(first_line_time([server], sandbox, env)[0])
    finally:
        shutil.rmtree(sandbox, ignore_errors=True)

    print("Start to the sample server's first output, %d runs each:" % options.runs)
    print("  through MMSLaunch   " + describe(through))
    print("  server directly     " + describe(direct))
    print("  launcher cost       %7.2f ms (difference of the medians)" %
          ((statistics.median(through) - statistics.median(direct)) * 1e3))
    print("MMSLaunch run time    " + describe(launcher_exit))


if __name__ == "__main__":
    main()
