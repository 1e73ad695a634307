#!/usr/bin/env bash
# The main job: shows the launcher starting the Morv Media Server.
#
# Builds the project, records the sample server (examples/SampleMediaServer)
# as the installer's "InstallPath" of product "MorvMediaServer" with the
# settings tool, morv-settings, in a sandbox folder (XDG_CONFIG_HOME and
# XDG_CONFIG_DIRS point into it: the real home and /etc are never touched),
# then runs MMSLaunch there. You see the
# launcher's line (on standard error) and the sample server's own output.
# Installs missing Debian packages first.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-dependencies.sh
cmake -S . -B build -G Ninja >/dev/null
cmake --build build --target MMSLaunch SampleMediaServer morv-settings >/dev/null

sandbox=$(mktemp -d "${TMPDIR:-/tmp}/morv-demo-XXXXXX")
trap 'rm -rf "$sandbox"' EXIT
export XDG_CONFIG_HOME="$sandbox/config"
export XDG_CONFIG_DIRS="$sandbox/xdg"
server="$PWD/build/examples/SampleMediaServer"

tool="$PWD/build/src/morv-settings/morv-settings"
launcher="$PWD/build/src/MMSLaunch/MMSLaunch"
echo "Settings sandbox: $sandbox"
echo

# The installer's record, as an installer makes it: InstallPath of
# Install/MorvMediaServer in the shared settings file, through morv-settings.
echo "\$ morv-settings write --installer MorvMediaServer InstallPath string $server"
"$tool" write --installer MorvMediaServer InstallPath string "$server"
echo "\$ morv-settings read --installer MorvMediaServer"
"$tool" read --installer MorvMediaServer
echo "\$ MMSLaunch"
export MORV_SAMPLE_SERVER_DONE="$sandbox/server-done"
(cd "$sandbox" && "$launcher" 2>&1)
# The server runs detached: wait (up to 10 s) until it has said everything.
for _ in $(seq 100); do
  [ -e "$MORV_SAMPLE_SERVER_DONE" ] && break
  sleep 0.1
done
[ -e "$MORV_SAMPLE_SERVER_DONE" ] || { echo "the sample server did not run" >&2; exit 1; }
