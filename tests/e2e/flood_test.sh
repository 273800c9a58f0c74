#!/usr/bin/env bash
# Floods from an unprivileged account (uid 65534), and from root for the names
# only root may post, against the real agent. Asserts the bounds and prints the
# figures; times are printed, not asserted, except where the bound is a time.
#   1,000 installs of ten listed items, 10 s runs: at most 4 tool processes at
#     once, each id run once, the agent's descriptors at most 64.
#   20,000 deferrals, then an install as marker: the marker's tool starts within
#     1 s of its post; the deferrals file parses and keeps its bounds.
#   2,000 user checks during a 20 s run: at most one progress post per 2 s, one
#     completion per check.
#   200,000 malformed posts: the agent's log grows by at most 100 KB.
#   100,000 adds from root: peak resident memory at most 40 MB, settled within
#     2 MB of before; the update state file holds at most 1,000 items.
# Usage: flood_test.sh <velmo-agent> <stand-in tool> <velmo-bus-post>
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"
bus_post="$3"
command -v setpriv >/dev/null || { echo "note: no setpriv; skipped"; exit 0; }
command -v python3 >/dev/null || { echo "note: no python3; skipped"; exit 0; }
v=com.marvenith.velmo
chmod 755 "$workdir"  # The bus socket lies there; the user must reach it.
as_user() { setpriv --reuid=65534 --regid=65534 --clear-groups "$@"; }
export VELMO_STANDIN_DELAY_FILE="$workdir/delay" VELMO_STANDIN_COMPARE_DELAY=0
tool_takes() { echo "$1" >"$VELMO_STANDIN_DELAY_FILE"; }
ticks=$(getconf CLK_TCK)
status() { awk -v key="$1:" '$1 == key { print $2 }' "/proc/$agent_pid/status"; }  # In kB.
report=()
say() { report+=("$*"); echo "$*"; }

start_monitor
start_agent
wait_for 15 has_line "Scheduled Velmo Run #1 finished" "$workdir/agent.log" || fail "first run"
items=""
for i in $(seq 0 9) m; do items="$items${items:+,}$(item_json q$i)"; done
post addItemsToUIControllerQueue "[$items]"
wait_for 10 'test "$(state_ids | wc -l)" -eq 11' || fail "listed items"

# 1. Installs: ten listed ids, each asked for a hundred times.
tool_takes 10
peak_tools=0 peak_fds=0
as_user "$bus_post" $v.enqueueUpdateItem 1000 '{"id":"q' \
  '","friendlyName":"Q","targetVersion":"2.0","installPath":"/Applications/q.app","respectDnd":false,"respectMeetings":false}' 10 ||
  fail "install flood"
limit=$(($(date +%s) + 60))
while [ "$(grep -c '^end .* install q' "$workdir/timeline.log")" -lt 10 ] && [ "$(date +%s)" -lt "$limit" ]; do
  tools=$(pgrep -c -P "$agent_pid")
  fds=$(ls "/proc/$agent_pid/fd" | wc -l)
  [ "$tools" -gt "$peak_tools" ] && peak_tools=$tools
  [ "$fds" -gt "$peak_fds" ] && peak_fds=$fds
  sleep 0.1
done
runs=$(grep -c '^install q[0-9] --menu-bar-notification' "$workdir/calls.log")
distinct=$(grep -o '^install q[0-9]' "$workdir/calls.log" | sort -u | wc -l)
say "1,000 installs of 10 listed ids: $runs tool runs of $distinct ids; at most $peak_tools tool processes and $peak_fds descriptors at once"
[ "$runs" -eq 10 ] && [ "$distinct" -eq 10 ] || fail "$runs runs of $distinct ids"
[ "$peak_tools" -le 4 ] || fail "$peak_tools tool processes at once"
[ "$peak_fds" -le 64 ] || fail "$peak_fds descriptors"

# 2. Deferrals: 10,000 of distinct versions, 10,000 of twenty; then a marker.
tool_takes 0
settle
deferrals="$root/Library/Preferences/$v.deferrals.json"
response='","url":"file:///Applications/q.app","response":{"deferral":{}}}'
cpu_before=$(cpu)
as_user "$bus_post" $v.dialogResponse 10000 '{"identifier":"wide","appId":"wide","targetVersion":"' "$response" ||
  fail "deferral flood"
as_user "$bus_post" $v.dialogResponse 10000 '{"identifier":"deep","appId":"deep","targetVersion":"' "$response" 20 ||
  fail "deferral flood"
sent=$(date +%s.%N)
as_user gdbus emit --system -o /com/marvenith/velmo -s $v.Notifications.Post \
  "'$v.enqueueUpdateItem'" "@as ['$(item_json qm)']" "@a{sv} {}" >/dev/null || fail "marker"
wait_for 30 'grep -q "^start .* install qm " "$workdir/timeline.log"' || fail "marker not handled"
handled=$(awk '$1 == "start" && $4 == "qm" { print $2; exit }' "$workdir/timeline.log")
marker=$(seconds_between "$sent" "$handled")
settle
flood_cpu=$(awk -v t="$(($(cpu) - cpu_before))" -v hz="$ticks" 'BEGIN { printf "%.2f", t / hz }')
shape=$(python3 - "$deferrals" <<'PY'
import json, sys
records = json.load(open(sys.argv[1]))
details = max(len(r.get("deferrals", [])) for r in records.values())
deep = max(r.get("deferralCount", 0) for r in records.values() if r["appId"] == "deep")
print(len(records), details, deep)
PY
) || fail "deferrals file does not parse"
read -r record_count detail_count deep_count <<<"$shape"
full_queue=$(agent_output | grep -c "posts already wait for their senders")
# Each durable write of the file (flushed to disk) is followed by one post.
writes=$(grep -c "Posting deferrals updated notification." "$workdir/unified.log")
say "20,000 deferrals: marker handled ${marker} s after its post; agent CPU ${flood_cpu} s; $writes flushed writes of the file;" \
  "deferrals file $(stat -c %s "$deferrals") bytes, $record_count records, at most $detail_count details, deepest count $deep_count of 500 sent;" \
  "$full_queue lines on posts that found the queue for unknown senders full"
within "$marker" 0 1 || fail "marker handled ${marker} s after its post"
[ "$record_count" -le 1000 ] && [ "$detail_count" -le 100 ] || fail "deferrals file beyond its bounds"
# Each deep record got 500 posts: the count goes on past the details kept.
[ "$deep_count" -eq 500 ] || fail "deep count $deep_count, not 500"

# 3. User checks: 2,000 during a 20 s run.
tool_takes 20
: >"$workdir/monitor.log"
starts=$(grep -c '^start ' "$workdir/timeline.log")
post userInitiatedUpdateCheck
wait_for 10 'test "$(grep -c "^start " "$workdir/timeline.log")" -gt "$starts"' || fail "no run"
as_user "$bus_post" $v.userInitiatedUpdateCheck 2000 || fail "check flood"
wait_for 120 'test "$(post_times userInitiatedUpdateCheckCompleted | wc -l)" -ge 2001' ||
  fail "completions: $(post_times userInitiatedUpdateCheckCompleted | wc -l)"
tool_takes 0
sleep 1
progress=$(post_times userInitiatedUpdateCheckInProgress)
closest=$(echo "$progress" | awk 'NR > 1 { gap = $1 - last; if (min == "" || gap < min) min = gap } { last = $1 } END { printf "%.2f", min }')
say "2,001 checks over a 20 s run: $(echo "$progress" | grep -c .) progress posts, closest ${closest} s apart;" \
  "$(post_times userInitiatedUpdateCheckCompleted | wc -l) completions"
within "$closest" 1.9 1000 || fail "progress posts ${closest} s apart"
[ "$(echo "$progress" | grep -c .)" -ge 5 ] || fail "too few progress posts over a 20 s run"

# 4. Malformed posts: 200,000 installs that don't decode.
settle
log_before=$(stat -c %s "$workdir/agent.log")
unified_before=$(stat -c %s "$workdir/unified.log")
started=$(date +%s.%N)
as_user "$bus_post" $v.enqueueUpdateItem 200000 '[{"id":' || fail "malformed flood"
settle
took=$(seconds_between "$started" "$(date +%s.%N)")
growth=$(($(stat -c %s "$workdir/agent.log") - log_before))
unified_growth=$(($(stat -c %s "$workdir/unified.log") - unified_before))
say "200,000 malformed posts: taken in ${took} s; log +${growth} bytes (all levels: +${unified_growth} bytes)"
[ "$growth" -le 102400 ] || fail "log grew by $growth bytes"
# Beyond ten a minute, the held-back lines are counted in one line.
wait_for 70 'agent_output | grep -qE "Suppressed [0-9]+ malformed $v.enqueueUpdateItem notifications from uid 65534 in the last minute."' ||
  fail "no count of the held-back malformed lines"

# 5. Adds: 100,000 distinct items from root, whose posts alone may list items.
settle
sleep 10.5  # The agent hands freed memory back to the system every 10 s.
rss_before=$(status VmRSS)
echo 5 >"/proc/$agent_pid/clear_refs"  # Starts the peak afresh.
started=$(date +%s.%N)
"$bus_post" $v.addItemsToUIControllerQueue 100000 '[{"id":"add' \
  '","friendlyName":"A","targetVersion":"1","installPath":"/Applications/A.app","respectDnd":false,"respectMeetings":false}]' ||
  fail "add flood"
settle
took=$(seconds_between "$started" "$(date +%s.%N)")
peak=$(status VmHWM)
sleep 10.5
rss_after=$(status VmRSS)
listed=$(state_ids | wc -l)
say "100,000 adds: taken in ${took} s; VmRSS ${rss_before} kB before, peak ${peak} kB, ${rss_after} kB after;" \
  "update state file $listed items, $(stat -c %s "$(state_file)") bytes"
[ "$peak" -le 40960 ] || fail "peak $peak kB"
within "$rss_after" "$((rss_before - 2048))" "$((rss_before + 2048))" || fail "VmRSS $rss_before kB -> $rss_after kB"
[ "$listed" -le 1000 ] || fail "$listed items listed"

echo "--- flood report"
printf '%s\n' "${report[@]}"
# A failure report shows the last lines only; the floods' would bury them.
for log in agent.log unified.log; do
  tail -n 200 "$workdir/$log" >"$workdir/$log.tail" && mv "$workdir/$log.tail" "$workdir/$log"
done
finish
