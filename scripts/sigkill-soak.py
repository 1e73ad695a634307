#!/usr/bin/env python3
"""Kills writers of one settings file with SIGKILL during their saves, many
times, and checks that nothing acknowledged is lost.

Each round starts WRITERS processes (tests/helpers/SettingsHelper
store-until-killed) that store into the same product's file, saving after
every store and printing each value once its save succeeded; after a random
20-100 ms all of them are killed with SIGKILL. Then python3's plistlib must
read the file, and every acknowledged value of every round so far must be
in it. At the end one more save must leave no temporary file behind.

Usage: scripts/sigkill-soak.py BUILD_DIR [KILLS] [WRITERS]
(defaults: 10000 kills, 4 writers at once). Needs a built BUILD_DIR
(cmake --build BUILD_DIR). Runs in a temporary folder of its own; never
touches the real home or /etc. Prints the counts; exits 1 on any loss.
"""

import os
import plistlib
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time


def main(argv):
    build = argv[1]
    kills = int(argv[2]) if len(argv) > 2 else 10000
    writers = int(argv[3]) if len(argv) > 3 else 4
    helper = os.path.join(build, "tests", "SettingsHelper")
    root = tempfile.mkdtemp(prefix="morv-soak-")
    env = dict(os.environ, XDG_CONFIG_HOME=os.path.join(root, "home"),
               XDG_CONFIG_DIRS=os.path.join(root, "xdg"), HOME=os.path.join(root, "home"))
    folder = os.path.join(root, "home", "Preferences")
    path = os.path.join(folder, "com.morv.Soak.plist")
    acknowledged = set()
    lost = set()
    unreadable = rounds = 0
    random.seed(12345)
    started = time.time()
    try:
        while rounds * writers < kills:
            prefix = "r%d_" % rounds
            children = [subprocess.Popen([helper, "store-until-killed", "Soak",
                                          "%sw%d_" % (prefix, w), "400000"],
                                         stdout=subprocess.PIPE, env=env)
                        for w in range(writers)]
            time.sleep(random.uniform(0.02, 0.1))
            for child in children:
                child.send_signal(signal.SIGKILL)
            for w, child in enumerate(children):
                output, _ = child.communicate()
                for line in output.decode().split():
                    acknowledged.add("%sw%d_%s" % (prefix, w, line))
            rounds += 1
            if not os.path.exists(path):
                if acknowledged:
                    unreadable += 1
                continue
            try:
                with open(path, "rb") as source:
                    names = set(plistlib.load(source)["Settings"]["Soak"].keys())
            except Exception:  # any failure to read is a finding
                unreadable += 1
                continue
            lost |= acknowledged - names
        # One more save sweeps what the killed writers left.
        subprocess.run([os.path.join(build, "src", "morv-settings", "morv-settings"),
                        "write", "Soak", "last", "int", "1"], env=env, check=True,
                       stdout=subprocess.DEVNULL)
        stray = [name for name in os.listdir(folder)
                 if name.startswith(".") or ".unreadable-" in name]
        print("kills: %d (%d rounds of %d writers), acknowledged saves: %d, "
              "unreadable files: %d, lost saves: %d, stray files after one more save: %d, "
              "%.0f s" % (rounds * writers, rounds, writers, len(acknowledged), unreadable, len(lost),
                          len(stray), time.time() - started))
        return 0 if unreadable == 0 and not lost and not stray else 1
    finally:
        shutil.rmtree(root, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main(sys.argv))
