#!/usr/bin/env bash
# The agent's stop and its service protocol, against the real agent with a
# notification socket of the test's own:
#   readiness: READY=1 after start (time printed), STATUS= lines.
#   SIGTERM during a 6 s install run: the tool is never signalled and ends
#     normally, no tool starts afterwards (a user's check posted then starts
#     nothing), the run is recorded, STOPPING=1 and EXTEND_TIMEOUT_USEC= are
#     sent, and the agent exits 0.
#   An idle agent exits 0 within 1 s of SIGTERM.
#   A second SIGTERM during a long drain ends the tool within the grace.
# Usage: stop_test.sh <velmo-agent> <stand-in tool>
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"
command -v python3 >/dev/null || { echo "note: no python3; skipped"; exit 0; }
export VELMO_STANDIN_DELAY_FILE="$workdir/delay" VELMO_STANDIN_COMPARE_DELAY=0
tool_takes() { echo "$1" >"$VELMO_STANDIN_DELAY_FILE"; }
notify_log="$workdir/notify.log"
python3 "$(dirname "$0")/../support/notify-listener.py" "$workdir/notify" "$notify_log" &
extra_pids="$extra_pids $!"
wait_for 5 test -S "$workdir/notify" || fail "notify socket"
export NOTIFY_SOCKET="$workdir/notify"
state="$root/Library/Preferences/com.marvenith.velmo-agent.plist"
run_count() { grep -A1 '<key>UpdateTaskRunCount</key>' "$state" | grep -o '[0-9]\+' | head -1; }
tool_starts() { grep -c '^start ' "$workdir/timeline.log"; }
# Exits within <seconds>: true, with the agent's status in $status.
exits_within() {
  wait_for "$1" '! kill -0 "$agent_pid" 2>/dev/null' || return 1
  wait "$agent_pid"
  status=$?
}
sent() { grep -c -- " $1" "$notify_log"; }

# 1. Readiness and status.
tool_takes 0
start_agent
wait_for 10 test -s "$notify_log" && wait_for 10 'grep -q " READY=1" "$notify_log"' || fail "READY=1"
ready_at=$(awk '$2 == "READY=1" { print $1; exit }' "$notify_log")
echo "READY=1 $(seconds_between "$agent_started" "$ready_at") s after the start"
wait_for 15 has_line "Scheduled Velmo Run #1 finished" "$workdir/agent.log" || fail "first run"
wait_for 5 'grep -q "STATUS=Idle; next Velmo Run at" "$notify_log"' || fail "idle status"

# 2. SIGTERM during a 6 s install run.
tool_takes 6
starts_before=$(tool_starts)
post userInitiatedUpdateCheck
wait_for 10 '[ "$(tool_starts)" -gt "$starts_before" ]' || fail "the user's run started no tool"
grep -q "STATUS=User-initiated Velmo Run #2 in progress since" "$notify_log" || fail "run status"
sleep 1
term_at=$(date +%s.%N)
kill -TERM "$agent_pid"
sleep 0.5
post userInitiatedUpdateCheck
starts_at_term=$(tool_starts)
exits_within 15 || fail "the agent didn't exit after the run"
echo "SIGTERM 1 s into a 6 s run: exit status ${status:-none} $(seconds_between "$term_at" "$(date +%s.%N)") s after SIGTERM"
[ "${status:-1}" -eq 0 ] || fail "exit status ${status:-none} after SIGTERM"
[ "$(tool_starts)" -eq "$starts_at_term" ] || fail "a tool started after SIGTERM"
[ "$(grep -c '^end ' "$workdir/timeline.log")" -eq "$(tool_starts)" ] || fail "a tool didn't end normally"
has_line "sending SIGTERM" "$workdir/unified.log" && fail "the tool was signalled"
[ "$(run_count)" = 2 ] || fail "run count $(run_count), not 2"
for message in STOPPING=1 EXTEND_TIMEOUT_USEC= "STATUS=Stopping: waiting for a user-initiated Velmo Run"; do
  [ "$(sent "$message")" -ge 1 ] || fail "no $message"
done
has_line "Velmo Agent stopped." "$workdir/unified.log" || fail "no stopped line"

# 3. An idle agent stops at once.
tool_takes 0
: >"$notify_log"
start_agent
wait_for 15 'grep -q " READY=1" "$notify_log"' || fail "READY=1 again"
wait_for 15 has_line "Scheduled Velmo Run #3 finished" "$workdir/agent.log" || fail "third run"
term_at=$(date +%s.%N)
kill -TERM "$agent_pid"
exits_within 1 || fail "an idle agent took over 1 s to stop"
echo "idle: exit status ${status:-none} $(seconds_between "$term_at" "$(date +%s.%N)") s after SIGTERM"
[ "${status:-1}" -eq 0 ] || fail "idle exit status ${status:-none}"

# 4. A second SIGTERM ends a long drain with the grace.
tool_takes 60
start_agent
wait_for 15 'tail -1 "$workdir/timeline.log" | grep -q "^start "' || fail "long run"
kill -TERM "$agent_pid"
sleep 1
term_at=$(date +%s.%N)
kill -TERM "$agent_pid"
exits_within 8 || fail "the second SIGTERM didn't end the drain within the grace"
echo "second SIGTERM: the agent exited $(seconds_between "$term_at" "$(date +%s.%N)") s later, status ${status:-none}"
has_line "still runs as the agent's stop ends; sending SIGTERM." "$workdir/unified.log" ||
  fail "no line for the ended tool"
agent_pid=""
finish
