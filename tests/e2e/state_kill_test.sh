#!/usr/bin/env bash
# The update state file survives SIGKILL: 10,000 items arrive in a burst while
# the agent is killed at a random moment, 50 times over; every time the file
# is missing or a whole array of items, and the next start reads it. Every
# other round starts from no file.
# Usage: state_kill_test.sh <velmo-agent> <stand-in tool> <velmo-items-tool> [rounds]
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"
items_tool="$3"
rounds="${4:-50}"
# Every comparison says an update is due, so the first run keeps every item.
export VELMO_STANDIN_STATUS=57
counts=""
for round in $(seq "$rounds"); do
  : >"$workdir/unified.log"
  # Every other round starts from no file, so kills land in the first writes too.
  [ $((round % 2)) -eq 1 ] && rm -f "$(state_file)"
  start_agent
  wait_for 10 has_line "named com.marvenith.velmo.updateItemStateChange." "$workdir/unified.log" ||
    fail "round $round: agent not listening"
  "$items_tool" burst 10000 100 &
  burst_pid=$!
  sleep "$(awk -v r="$RANDOM" 'BEGIN { printf "%.3f", r / 32767 * 0.8 }')"
  kill -KILL "$agent_pid"
  wait "$agent_pid" 2>/dev/null
  wait "$burst_pid"
  count=$("$items_tool" check "$(state_file)") || fail "round $round: damaged state file"
  counts="$counts ${count:-none}"
done
agent_pid=""
echo "items in the state file after each kill:$counts"
ls "$(dirname "$(state_file)")"
exit "$failures"
