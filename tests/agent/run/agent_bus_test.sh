#!/usr/bin/env bash
# The agent on a private bus: writing a managed preferences file produces one
# management-status post naming its domain, as dbus-monitor sees it.
# Usage: agent_bus_test.sh <velmo-agent> <stand-in tool>
set -u
agent="$1"
standin="$2"
if [ "$(id -u)" -ne 0 ]; then
  echo "note: not root; skipped"
  exit 0
fi
workdir=$(mktemp -d)
trap 'kill $agent_pid $monitor_pid $bus_pid 2>/dev/null; wait 2>/dev/null; rm -rf "$workdir"' EXIT
source "$(dirname "$0")/../../support/private-bus.sh"
start_private_bus || exit 1

root="$workdir/root"
tool="$root/Library/Application Support/Marvenith/Velmo/velmo"
mkdir -p "$(dirname "$tool")"
cp "$standin" "$tool"

dbus-monitor --address "$DBUS_SYSTEM_BUS_ADDRESS" \
  "type='signal',interface='com.marvenith.velmo.Notifications'" >"$workdir/monitor.log" 2>&1 &
monitor_pid=$!
VELMO_ROOT="$root" VELMO_UNIFIED_LOG="$workdir/unified.log" "$agent" start >"$workdir/agent.log" 2>&1 &
agent_pid=$!
for _ in $(seq 100); do grep -q starting "$workdir/agent.log" 2>/dev/null && break; sleep 0.05; done
sleep 0.3

managed="$root/Library/Managed Preferences"
cat >"$workdir/policy.plist" <<'PLIST'
<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict><key>UpdateAll</key><true/></dict></plist>
PLIST
# As a configuration tool would: write beside, then move into place.
cp "$workdir/policy.plist" "$managed/.com.marvenith.velmo-agent.plist.tmp"
mv "$managed/.com.marvenith.velmo-agent.plist.tmp" "$managed/com.marvenith.velmo-agent.plist"

wanted='string "com.apple.MCX._managementStatusChangedForDomains"'
for _ in $(seq 100); do grep -q "$wanted" "$workdir/monitor.log" && break; sleep 0.05; done
sleep 0.5  # Time for a second post to show, if there were one.
count=$(grep -c "$wanted" "$workdir/monitor.log")
failures=0
[ "$count" -eq 1 ] || { echo "FAIL: $count management posts"; failures=1; }
grep -A12 "$wanted" "$workdir/monitor.log" | grep -q 'string "com.marvenith.velmo-agent"' ||
  { echo "FAIL: domain missing from the user info"; failures=1; }
grep -q 'string "com.apple.MCX.changedDomains"$' "$workdir/monitor.log" ||
  { echo "FAIL: no changedDomains post"; failures=1; }
kill -0 "$agent_pid" || { echo "FAIL: agent died"; failures=1; }
[ "$failures" -eq 0 ] && echo "management post seen once with its domain" || cat "$workdir/monitor.log"
exit "$failures"
