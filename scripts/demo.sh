#!/usr/bin/env bash
# The main job: shows the launcher starting the Morv Media Server, and the
# running server following a setting changed from the command line.
#
# Builds the project, records the sample server (examples/SampleMediaServer)
# as the installer's "InstallPath" of product "MorvMediaServer" with the
# settings tool, morv-settings, in a sandbox folder (XDG_CONFIG_HOME and
# XDG_CONFIG_DIRS point into it: the real home and /etc are never touched),
# then runs MMSLaunch there. You see the launcher's line (on standard error)
# and the sample server's own output; while the server runs, morv-settings
# changes one of its settings and the server says so. The server is then
# stopped: nothing is left running. Installs missing Debian packages first.
#
# With --installed it builds nothing of the project and runs the installed
# programs instead (morv-settings and MMSLaunch from PATH, as the Debian
# packages install them); the sample server is then compiled against the
# installed libmorv-dev, with pkg-config's flags.
set -euo pipefail
cd "$(dirname "$0")/.."

installed=false
if [[ ${1:-} == --installed ]]; then
  installed=true
fi

if ! $installed; then
  scripts/install-dependencies.sh
  cmake -S . -B build -G Ninja >/dev/null
  cmake --build build --target MMSLaunch SampleMediaServer morv-settings >/dev/null
fi

sandbox=$(mktemp -d "${TMPDIR:-/tmp}/morv-demo-XXXXXX")
trap 'rm -rf "$sandbox"' EXIT
export XDG_CONFIG_HOME="$sandbox/config"
export XDG_CONFIG_DIRS="$sandbox/xdg"

if $installed; then
  tool=$(command -v morv-settings)
  launcher=$(command -v MMSLaunch)
  server="$sandbox/SampleMediaServer"
  # shellcheck disable=SC2046  # pkg-config's flags are separate words
  c++ -std=c++17 -O2 examples/SampleMediaServer/SampleMediaServer.cpp \
    $(pkg-config --cflags --libs MorvSettings MorvString) -o "$server"
else
  tool="$PWD/build/src/morv-settings/morv-settings"
  launcher="$PWD/build/src/MMSLaunch/MMSLaunch"
  server="$PWD/build/examples/SampleMediaServer"
fi
echo "Settings sandbox: $sandbox"
echo

# The installer's record, as an installer makes it: InstallPath of
# Install/MorvMediaServer in the shared settings file, through morv-settings.
echo "\$ morv-settings write --installer MorvMediaServer InstallPath string $server"
"$tool" write --installer MorvMediaServer InstallPath string "$server"
echo "\$ morv-settings read --installer MorvMediaServer"
"$tool" read --installer MorvMediaServer
echo "\$ morv-settings write MorvMediaServer Network/HttpPort int 8080"
"$tool" write MorvMediaServer Network/HttpPort int 8080
echo "\$ MMSLaunch"
export MORV_SAMPLE_SERVER_READY="$sandbox/server-ready"
export MORV_SAMPLE_SERVER_DONE="$sandbox/server-done"
export MORV_SAMPLE_SERVER_SECONDS=20  # it stops by itself should this script die
server_pid=
stop_server() {
  [ -n "$server_pid" ] && kill -TERM "$server_pid" 2>/dev/null || true
  rm -rf "$sandbox"
}
trap stop_server EXIT
(cd "$sandbox" && "$launcher" 2>&1)

# wait_for FILE: up to 10 s until FILE exists.
wait_for() {
  for _ in $(seq 100); do
    [ -e "$1" ] && return 0
    sleep 0.1
  done
  return 1
}
# The server runs detached: wait until it follows its settings.
wait_for "$MORV_SAMPLE_SERVER_READY" || { echo "the sample server did not start" >&2; exit 1; }
server_pid=$(cat "$MORV_SAMPLE_SERVER_READY")

echo "\$ morv-settings write MorvMediaServer Network/HttpPort int 9090"
"$tool" write MorvMediaServer Network/HttpPort int 9090
# The server reports the change (within milliseconds); then it is stopped,
# and reports what it had not yet before it goes.
sleep 0.5
kill -TERM "$server_pid"
wait_for "$MORV_SAMPLE_SERVER_DONE" || { echo "the sample server did not stop" >&2; exit 1; }
server_pid=
