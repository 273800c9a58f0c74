#!/usr/bin/env bash
# The inventory report: after the first run, an item add and a deferral the
# report parses as a property list and holds each of them; any user reads one
# value of it as an extension attribute; a burst of 1,000 item adds is folded
# into a few writes.
# Usage: report_test.sh <velmo-agent> <stand-in tool> <velmo-bus-post>
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"
bus_post="$3"
command -v setpriv >/dev/null || { echo "note: no setpriv; skipped"; exit 0; }
command -v python3 >/dev/null || { echo "note: no python3; skipped"; exit 0; }
v=com.marvenith.velmo
chmod 755 "$workdir"
report="$tooldir/InventoryReport.plist"
as_user() { setpriv --reuid=65534 --regid=65534 --clear-groups "$@"; }
field() {  # field <dotted path>: one value as Python's plistlib reads it, or nothing.
  python3 - "$report" "$1" <<'EOF' 2>/dev/null
import plistlib, sys
value = plistlib.load(open(sys.argv[1], "rb"))
for key in sys.argv[2].split("."):
    value = value[int(key)] if isinstance(value, list) else value[key]
print(value)
EOF
}

start_agent
wait_for 15 has_line "Scheduled Velmo Run #1 finished" "$workdir/agent.log" || fail "first run"
wait_for 10 'test "$(field LastRun.Result)" = succeeded' || fail "no last run: $(field LastRun)"
[ "$(field RunCount)" = 1 ] && [ "$(field LastRun.Kind)" = scheduled ] || fail "runs: $(field LastRun)"
post addItemsToUIControllerQueue "[$(item_json a)]"
wait_for 10 'test "$(field PendingItems.0.ID)" = a' || fail "item a not in the report"
post dialogResponse '{"identifier":"a","appId":"a","targetVersion":"2.0","url":"file:///Applications/a.app","response":{"deferral":{}}}'
wait_for 10 'test "$(field Deferrals.0.Count)" = 1' || fail "deferral not in the report"
[ "$(field Deferrals.0.App)" = a ] || fail "deferral's app: $(field Deferrals.0.App)"
[ "$(stat -c %a "$report")" = 644 ] || fail "mode $(stat -c %a "$report")"
echo "report after a run, an add and a deferral: last run $(field LastRun.Result)," \
  "items $(field PendingItemCount), deferrals of a $(field Deferrals.0.Count)"

chmod -R a+rX "$root/Library"
ea=$(as_user env VELMO_ROOT="$root" "$agent" status --ea NextRun) || fail "status --ea as a user"
[[ "$ea" =~ ^\<result\>[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}Z\</result\>$ ]] || fail "ea: $ea"
[ "$(as_user env VELMO_ROOT="$root" "$agent" status --field LastRun.Result)" = succeeded ] ||
  fail "status --field LastRun.Result"
echo "status --ea NextRun as uid 65534: $ea"

# A burst: 1,000 adds of one item each. The report's inode changes at each write.
python3 - "$report" >"$workdir/writes" <<'EOF' &
import os, sys, time
seen, writes, quiet = os.stat(sys.argv[1]).st_ino, 0, 0
while quiet < 160:  # 8 s without a write: the burst and its folds are over.
    time.sleep(0.05)
    inode = os.stat(sys.argv[1]).st_ino
    if inode != seen:
        seen, writes, quiet = inode, writes + 1, 0
    else:
        quiet += 1
print(writes)
EOF
watcher=$!
started=$(date +%s.%N)
"$bus_post" $v.addItemsToUIControllerQueue 1000 '[{"id":"b' \
  '","friendlyName":"B","targetVersion":"1","installPath":"/Applications/B.app","respectDnd":false,"respectMeetings":false}]' ||
  fail "add burst"
took=$(seconds_between "$started" "$(date +%s.%N)")
wait $watcher
writes=$(cat "$workdir/writes")
[ "$(field PendingItemCount)" = 1000 ] || fail "items reported: $(field PendingItemCount)"
echo "1,000 adds in ${took} s: $writes writes of the report; with 1,000 items it is" \
  "$(stat -c %s "$report") bytes"
[ "$writes" -ge 1 ] && [ "$writes" -le $((${took%.*} / 2 + 3)) ] || fail "$writes writes in ${took} s"
finish
