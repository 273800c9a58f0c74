#!/usr/bin/env bash
# The state files survive SIGKILL: 10,000 items and 2,000 deferrals of twenty
# records arrive in bursts while the agent is killed at a random moment, 50
# times over. Every time the update state file is missing or a whole array of
# items, the deferrals file whole, and no deferral count ever goes back; a
# reader polling the three state files all along never sees a part of one.
# Every other round starts from no update state file.
# Usage: state_kill_test.sh <velmo-agent> <stand-in tool> <velmo-items-tool> <velmo-bus-post> [rounds]
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"
items_tool="$3"
bus_post="$4"
rounds="${5:-50}"
# Every comparison says an update is due, so the first run keeps every item.
export VELMO_STANDIN_STATUS=57
deferrals="$root/Library/Preferences/com.marvenith.velmo.deferrals.json"
agent_state="$root/Library/Preferences/com.marvenith.velmo-agent.plist"
response='","url":"file:///Applications/k.app","response":{"deferral":{}}}'
# "key count" per record, sorted; nothing when the file is missing.
record_counts() {
  python3 - "$deferrals" <<'PY'
import json, os, sys
if os.path.exists(sys.argv[1]):
    for key, record in sorted(json.load(open(sys.argv[1])).items()):
        print(key, record.get("deferralCount", 0))
PY
}
python3 "$(dirname "$0")/../support/state-file-poller.py" "$(state_file)" "$deferrals" "$agent_state" \
  >"$workdir/poller.log" &
poller_pid=$!
counts="" before=""
for round in $(seq "$rounds"); do
  : >"$workdir/unified.log"
  # Every other round starts from no file, so kills land in the first writes too.
  [ $((round % 2)) -eq 1 ] && rm -f "$(state_file)"
  start_agent
  wait_for 10 has_line "named com.marvenith.velmo.updateItemStateChange." "$workdir/unified.log" ||
    fail "round $round: agent not listening"
  "$items_tool" burst 10000 100 &
  burst_pid=$!
  "$bus_post" com.marvenith.velmo.dialogResponse 2000 '{"identifier":"k","appId":"k","targetVersion":"' \
    "$response" 20 &
  deferral_pid=$!
  sleep "$(awk -v r="$RANDOM" 'BEGIN { printf "%.3f", r / 32767 * 0.8 }')"
  kill -KILL "$agent_pid"
  wait "$agent_pid" 2>/dev/null
  wait "$burst_pid" "$deferral_pid"
  count=$("$items_tool" check "$(state_file)") || fail "round $round: damaged state file"
  counts="$counts ${count:-none}"
  after=$(record_counts) || fail "round $round: damaged deferrals file"
  # Each record's count is at least what it was after the last round.
  went_back=$(LC_ALL=C join <(echo "$before") <(echo "$after") | awk '$3 < $2 { print $1 ": " $2 " -> " $3 }')
  [ -z "$went_back" ] || fail "round $round: counts went back: $went_back"
  before=$after
done
agent_pid=""
kill -TERM "$poller_pid"
wait "$poller_pid"
echo "items in the state file after each kill:$counts"
echo "deferral counts after the last kill: $(echo "$before" | awk '{ s += $2 } END { print NR " records, " s " deferrals" }')"
cat "$workdir/poller.log"
grep -q " 0 partial$" "$workdir/poller.log" || fail "no reads"
grep -v " 0 partial$" "$workdir/poller.log" && fail "a reader saw a partial file"
ls "$(dirname "$(state_file)")" "$(dirname "$deferrals")"
exit "$failures"
