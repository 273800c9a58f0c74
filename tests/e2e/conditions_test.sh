#!/usr/bin/env bash
# Scheduled runs that wait for mains power and an unmetered network, against
# stand-ins of the power and network services on the private bus: the timer's
# run is held on battery with one line, a user's check is not, a forged
# PropertiesChanged from another account changes nothing, and the overdue run
# starts once the service says the condition cleared. Then the same for a
# metered network.
# Usage: conditions_test.sh <velmo-agent> <stand-in tool> <velmo-fake-power>
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"
command -v setpriv >/dev/null || { echo "note: no setpriv; skipped"; exit 0; }
chmod 755 "$workdir"
v=com.marvenith.velmo
mkfifo "$workdir/power.in"
"$3" <"$workdir/power.in" >"$workdir/power.out" 2>&1 &
extra_pids=$!
exec 3>"$workdir/power.in"
wait_for 10 has_line ready "$workdir/power.out" || fail "fake power service did not start"
scheduled() { grep -c "Scheduled Velmo Run #[0-9]* started" "$workdir/agent.log"; }
echo "battery 50" >&3
manage "<key>RunOnlyOnACPower</key><true/>"

start_agent
wait_for 15 has_line "Scheduled Velmo Run not started: on battery (RunOnlyOnACPower)" \
  "$workdir/agent.log" || fail "the first run was not held on battery"
[ "$(scheduled)" -eq 0 ] || fail "a scheduled run started on battery"
held=$(VELMO_ROOT="$root" "$1" status --json | python3 -c 'import json,sys; print(json.load(sys.stdin)["runs"]["heldBy"])')
[ "$held" = "on battery (RunOnlyOnACPower)" ] || fail "status says held by [$held]"
echo "on battery: the timer's run held; status says held by: $held"

post userInitiatedUpdateCheck
wait_for 10 has_line "User-Initiated Velmo Run #1 finished" "$workdir/agent.log" ||
  fail "a user's check did not run on battery"
echo "on battery: a user's check ran"

# Another account says the machine is on mains power: not the service's owner.
setpriv --reuid=65534 --regid=65534 --clear-groups gdbus emit --system -o /org/freedesktop/UPower \
  -s org.freedesktop.DBus.Properties.PropertiesChanged "'org.freedesktop.UPower'" \
  "{'OnBattery': <false>}" "@as []" >/dev/null || fail "the forged signal was not sent"
sleep 7
[ "$(scheduled)" -eq 0 ] || fail "a forged PropertiesChanged released the run"
echo "a forged PropertiesChanged from uid 65534: nothing started"

cleared=$(date +%s.%N)
echo ac >&3
wait_for 15 'test "$(scheduled)" -eq 1' || fail "the overdue run did not start on mains power"
after=$(seconds_between "$cleared" "$(date +%s.%N)")
within "$after" 4.5 8 || fail "the overdue run started ${after}s after the change"
echo "on mains power: the overdue run started ${after}s after the property changed (5 s settle)"
[ "$(grep -c "not started: on battery" "$workdir/agent.log")" -eq 1 ] || fail "held line repeated"

# A metered network, with runs every 10 s so that the timer asks often.
echo "metered 1" >&3
manage "<key>RunOnlyOnUnmeteredNetwork</key><true/><key>RunInterval</key><integer>10</integer>"
wait_for 40 has_line "not started: on a metered network (RunOnlyOnUnmeteredNetwork)" \
  "$workdir/agent.log" || fail "no run held on a metered network"
runs=$(scheduled)
echo "metered 3" >&3  # A guess is as good as a yes.
sleep 12
[ "$(scheduled)" -eq "$runs" ] || fail "a run started on a network guessed metered"
cleared=$(date +%s.%N)
echo "metered 2" >&3
wait_for 15 'test "$(scheduled)" -gt "$runs"' || fail "no run on an unmetered network"
echo "unmetered: the overdue run started $(seconds_between "$cleared" "$(date +%s.%N)")s after the change"
finish
