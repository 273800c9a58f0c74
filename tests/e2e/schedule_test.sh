#!/usr/bin/env bash
# The agent runs by itself: started as root, it runs the tool about one second
# later, records the run and plans the next one four hours on. Sleep from
# logind clears the plan; the wake replans from the last run five seconds later.
# Usage: schedule_test.sh <velmo-agent> <stand-in tool> <velmo-fake-logind>
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"
logind="$3"

mkfifo "$workdir/logind.in"
"$logind" <"$workdir/logind.in" >"$workdir/logind.out" 2>&1 &
extra_pids=$!
exec 3>"$workdir/logind.in"
wait_for 10 has_line ready "$workdir/logind.out" || fail "fake logind did not start"

start_agent
wait_for 10 has_line "start " "$workdir/timeline.log" || fail "no tool run"
read -r _ started arguments < <(head -1 "$workdir/timeline.log")
[ "$arguments" = "install marvenith-velmo" ] || fail "tool arguments [$arguments]"
delay=$(seconds_between "$agent_started" "$started")
within "$delay" 0.9 2.5 || fail "first run ${delay}s after start"
echo "first run: install marvenith-velmo ${delay}s after start"

state="$root/Library/Preferences/com.marvenith.velmo-agent.plist"
wait_for 10 has_line "Scheduled next Velmo Run at" "$workdir/agent.log" || fail "no plan logged"
grep -q '(in 4 hours)\.' "$workdir/agent.log" || fail "plan not four hours on"
grep -A1 '<key>UpdateTaskRunCount</key>' "$state" | grep -q '<integer>1</integer>' ||
  fail "UpdateTaskRunCount is not 1"
grep -A1 '<key>LastUpdateTaskRun</key>' "$state" | grep -Eq '<string>[0-9-]{10}T[0-9:]{8}Z</string>' ||
  fail "LastUpdateTaskRun missing"
grep "Scheduled next Velmo Run at" "$workdir/agent.log" | sed 's/\x1b\[[0-9;]*m//g'

echo sleep >&3
wait_for 10 has_line "System is going to sleep. Invalidating Velmo Run timer." "$workdir/unified.log" ||
  fail "sleep not seen"
sleep 1
woke=$(date +%s.%N)
echo wake >&3
wait_for 15 has_line "Scheduled next Velmo Run after wake at" "$workdir/agent.log" ||
  fail "no replan after wake"
replanned=$(date +%s.%N)
after=$(seconds_between "$woke" "$replanned")
within "$after" 4.9 7.5 || fail "replanned ${after}s after the wake"
grep -q "System woke up. Checking last Velmo Run and scheduling next run." "$workdir/unified.log" ||
  fail "wake reaction not logged"
echo "replanned ${after}s after the wake:"
grep "after wake" "$workdir/agent.log" | sed 's/\x1b\[[0-9;]*m//g'
[ "$(wc -l <"$workdir/calls.log")" -eq 1 ] || fail "more than one tool run"
finish
