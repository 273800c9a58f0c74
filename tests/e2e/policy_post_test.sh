#!/usr/bin/env bash
# A managed preferences file written as configuration tools do (beside, then
# moved into place) makes the agent post one management-status notification
# naming its domain, and one changedDomains, as dbus-monitor sees them. A
# policy written while the bus daemon is down still applies within 10 s. Each
# applied change leaves its key's audit line, with the key's fields in the log file.
# Usage: policy_post_test.sh <velmo-agent> <stand-in tool>
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"
start_monitor
start_agent
wait_for 10 has_line starting "$workdir/agent.log" || fail "agent did not start"
sleep 0.3
manage '<key>UpdateAll</key><true/>'
wait_for 5 'test "$(post_times com.apple.MCX._managementStatusChangedForDomains | wc -l)" -ge 1' ||
  fail "no management post"
sleep 0.5  # Time for a second post to show, if there were one.
[ "$(post_times com.apple.MCX._managementStatusChangedForDomains | wc -l)" -eq 1 ] || fail "more than one management post"
wanted='string "com.apple.MCX._managementStatusChangedForDomains"'
grep -A12 "$wanted" "$workdir/monitor.log" | grep -q 'string "com.marvenith.velmo-agent"' ||
  fail "domain missing from the user info"
grep -q 'string "com.apple.MCX.changedDomains"$' "$workdir/monitor.log" || fail "no changedDomains post"
echo "management post seen once with its domain"

kill "$bus_pid"
wait "$bus_pid" 2>/dev/null
rm -f "$workdir/bus"
wait_for 10 'agent_output | grep -qF "System bus connection lost"' || fail "the agent missed the outage"
manage '<key>UpdateAll</key><true/><key>InstallOrUpdate</key><array><string>during.outage</string></array>'
changed=$(date +%s.%N)
sleep 4
start_private_bus || fail "bus restart"
restarted=$(date +%s.%N)
wait_for 10 'grep -q "^install .*during.outage" "$workdir/calls.log"' ||
  fail "a policy written during a bus outage was not applied within 10 s of the bus's return"
now=$(date +%s.%N)
echo "policy written during a bus outage applied $(seconds_between "$changed" "$now") s after" \
  "the change, $(seconds_between "$restarted" "$now") s after the bus came back"
for line in "Policy UpdateAll: false → true." "Policy InstallOrUpdate: + during.outage."; do
  agent_output | grep -qF "$line" || fail "no audit line [$line] in the agent's output"
done
fields=$'Policy InstallOrUpdate: + during.outage.\tVELMO_POLICY_KEY=InstallOrUpdate\tVELMO_POLICY_OLD=none\tVELMO_POLICY_NEW=during.outage'
grep -qF "$fields" "$workdir/unified.log" || fail "no audit line with its fields in the log file"
grep -F "Policy " "$workdir/unified.log" | sed 's/\t/ | /g'
finish
