#!/usr/bin/env bash
# `cmake --install`, staged in a temporary DESTDIR: the agent, a unit that
# starts it as root, appends its output to the log file and restarts it on
# failure, and the bus policy where the system bus reads it.
# Usage: install_test.sh <build folder>
set -u
stage=$(mktemp -d)
log=$(mktemp)
trap 'rm -rf "$stage" "$log"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

DESTDIR="$stage" cmake --install "$1" >"$log" 2>&1 || fail "install: $(cat "$log")"
prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$1/CMakeCache.txt")
[ -x "$stage$prefix/bin/velmo-agent" ] || fail "no agent in $prefix/bin"
unit=$(find "$stage" -name velmo-agent.service)
[ -n "$unit" ] || fail "no unit"
for line in "ExecStart=$prefix/bin/velmo-agent start" "User=root" "Restart=on-failure" \
  "StandardOutput=append:/var/log/marvenith-velmo.log"; do
  grep -qxF "$line" "$unit" || fail "unit lacks $line"
done
[ -f "$stage/usr/share/dbus-1/system.d/com.marvenith.velmo.conf" ] || fail "no bus policy"
echo "installed: $(cd "$stage" && find . -type f | sort | paste -sd' ')"
exit "$failures"
