#!/usr/bin/env bash
# The main job: shows the launcher starting the Morv Media Server.
#
# Builds the project, records the sample server (examples/SampleMediaServer)
# as the installer's "InstallPath" of product "MorvMediaServer" in a sandbox
# folder (XDG_CONFIG_HOME and XDG_CONFIG_DIRS point into it: the real home
# and /etc are never touched), then runs MMSLaunch there. You see the
# launcher's line (on standard error) and the sample server's own output.
# Installs missing Debian packages first.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-dependencies.sh
cmake -S . -B build -G Ninja >/dev/null
cmake --build build --target MMSLaunch SampleMediaServer >/dev/null

sandbox=$(mktemp -d "${TMPDIR:-/tmp}/morv-demo-XXXXXX")
trap 'rm -rf "$sandbox"' EXIT
export XDG_CONFIG_HOME="$sandbox/config"
export XDG_CONFIG_DIRS="$sandbox/xdg"
server="$PWD/build/examples/SampleMediaServer"

# The installer's record: Install/MorvMediaServer/InstallPath in the shared
# settings file.
shared="$XDG_CONFIG_DIRS/Morv/Preferences/com.morv.plist"
mkdir -p "$(dirname "$shared")"
cat > "$shared" <<PLIST
<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
  <key>Install</key>
  <dict>
    <key>MorvMediaServer</key>
    <dict>
      <key>InstallPath</key>
      <string>$server</string>
    </dict>
  </dict>
</dict>
</plist>
PLIST

echo "Settings sandbox:  $sandbox"
echo "InstallPath:       $server"
echo "Running:           MMSLaunch (in $sandbox)"
echo
export MORV_SAMPLE_SERVER_DONE="$sandbox/server-done"
(cd "$sandbox" && "$OLDPWD/build/src/MMSLaunch/MMSLaunch" 2>&1)
# The server runs detached: wait (up to 10 s) until it has said everything.
for _ in $(seq 100); do
  [ -e "$MORV_SAMPLE_SERVER_DONE" ] && break
  sleep 0.1
done
[ -e "$MORV_SAMPLE_SERVER_DONE" ] || { echo "the sample server did not run" >&2; exit 1; }
