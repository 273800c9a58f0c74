#!/usr/bin/env bash
# What another account (uid 65534) can no longer make root do:
#   a program planted in a folder that account owns (an inventory command in
#   <root>/usr/local/bin, ReconAfterInstall true) never runs, and the refusal
#   is logged once however many runs ask for it; once root owns the folder
#   the same program runs;
#   10,000 deferrals for made-up IDs leave another account's records whole,
#   their counts unmoved;
#   300 deferrals naming an ID and an app of its own, then 300 quits of those
#   apps, start no tool run; quits of six listed apps at their real paths run
#   at most four updates at once.
# Usage: trust_test.sh <velmo-agent> <stand-in tool> <velmo-bus-post>
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"
bus_post="$3"
command -v setpriv >/dev/null || { echo "note: no setpriv; skipped"; exit 0; }
command -v python3 >/dev/null || { echo "note: no python3; skipped"; exit 0; }
v=com.marvenith.velmo
chmod 755 "$workdir"  # The bus socket lies there; the users must reach it.
export VELMO_STANDIN_DELAY_FILE="$workdir/delay" VELMO_STANDIN_COMPARE_DELAY=0
as_uid() { local uid="$1"; shift; setpriv --reuid="$uid" --regid="$uid" --clear-groups "$@"; }
bin="$root/usr/local/bin"
mkdir -p "$bin"
printf '#!/bin/sh\ntouch "%s/recon-ran"\n' "$workdir" >"$bin/jamf"
chmod 755 "$bin/jamf"
chown -R 65534:65534 "$bin"
manage '<key>ReconAfterInstall</key><true/>'
start_agent
wait_for 15 has_line "Scheduled Velmo Run #1 finished" "$workdir/agent.log" || fail "first run"

# 1. A planted inventory command, asked for by two user-initiated runs.
for run in 2 3; do
  as_uid 65534 gdbus emit --system -o /com/marvenith/velmo -s $v.Notifications.Post \
    "'$v.userInitiatedUpdateCheck'" "@as []" "@a{sv} {}" >/dev/null || fail "user post"
  wait_for 15 has_line "User-Initiated Velmo Run #$run finished" "$workdir/agent.log" || fail "run $run"
done
[ -e "$workdir/recon-ran" ] && fail "root ran a program the user planted"
refusals=$(grep -c "Refused to start $bin/jamf: $bin is owned by uid 65534, not root." "$workdir/unified.log")
echo "planted program: not run after 2 runs; refusal logged $refusals time(s)"
[ "$refusals" -eq 1 ] || fail "the refusal was logged $refusals times, not once"
chown -R 0:0 "$bin"
post userInitiatedUpdateCheck
wait_for 15 has_line "User-Initiated Velmo Run #4 finished" "$workdir/agent.log" || fail "run 4"
wait_for 5 test -e "$workdir/recon-ran" || fail "root's own inventory command didn't run"

# 2. Another account's deferrals against a flood of made-up ones.
deferrals="$root/Library/Preferences/$v.deferrals.json"
teams='{"identifier":"teamsapp","appId":"teamsapp","targetVersion":"2.0","url":"file:///Applications/Teams.app","response":{"deferral":{}}}'
for _ in 1 2 3; do
  as_uid 1000 gdbus emit --system -o /com/marvenith/velmo -s $v.Notifications.Post \
    "'$v.dialogResponse'" "@as ['$teams']" "@a{sv} {}" >/dev/null || fail "uid 1000 post"
done
count() {
  python3 -c 'import json, sys; r = json.load(open(sys.argv[1])).get("teamsapp_2.0", {}); print(r.get("deferralCount", 0))' \
    "$deferrals" 2>/dev/null
}
wait_for 10 '[ "$(count)" = 3 ]' || fail "uid 1000's three deferrals not recorded"
response='","url":"file:///Applications/junk.app","response":{"deferral":{}}}'
as_uid 65534 "$bus_post" $v.dialogResponse 10000 \
  '{"identifier":"junk","targetVersion":"2.0","appId":"junk' "$response" || fail "junk flood"
wait_for 60 'grep -q "\"junk9999_2.0\"" "$deferrals"' || fail "the last junk deferral not recorded"
settle
read -r records junk <<<"$(python3 -c '
import json, sys
records = json.load(open(sys.argv[1]))
print(len(records), sum(1 for r in records.values() if 65534 in r.get("deferredBy", [])))' "$deferrals")"
echo "after 10,000 junk deferrals from uid 65534: $records records, $junk of them uid 65534's; teamsapp_2.0 count $(count)"
[ "$(count)" = 3 ] || fail "uid 1000's record changed: count $(count)"
[ "$junk" -le 100 ] || fail "uid 65534 holds $junk records"

# 3. Quits of apps the user placed, after deferrals naming them.
apps="$workdir/apps"
mkdir -p "$apps"
for i in $(seq 0 299); do
  mkdir -p "$apps/A$i.app/Contents/MacOS"
  cp /bin/sleep "$apps/A$i.app/Contents/MacOS/A$i"
done
chown -R 65534:65534 "$apps"
as_uid 65534 "$bus_post" $v.dialogResponse 300 \
  '{"identifier":"pinnedapp","appId":"pinnedapp","targetVersion":"2.0","response":{"deferral":{}},"url":"file://'"$apps"'/A' \
  '.app"}' || fail "user deferrals"
settle
quits=()
for i in $(seq 0 299); do
  as_uid 65534 "$apps/A$i.app/Contents/MacOS/A$i" 0.3 &
  quits+=($!)
done
wait "${quits[@]}"
sleep 2
settle
planted=$(grep -c -- "--active-interval-update" "$workdir/calls.log")
echo "300 quits of user-placed apps after 300 deferrals naming pinnedapp: $planted tool runs"
[ "$planted" -eq 0 ] || fail "$planted tool runs for apps the user placed"

# 4. Quits of six listed apps at their real paths, each update taking 3 s.
listed="$root/Applications"
items=""
for i in 0 1 2 3 4 5; do
  mkdir -p "$listed/L$i.app/Contents/MacOS"
  cp /bin/sleep "$listed/L$i.app/Contents/MacOS/L$i"
  items="$items${items:+,}{\"id\":\"listed$i\",\"friendlyName\":\"L$i\",\"targetVersion\":\"2.0\",\"installPath\":\"$listed/L$i.app\",\"respectDnd\":false,\"respectMeetings\":false}"
done
post addItemsToUIControllerQueue "[$items]"
wait_for 10 '[ "$(state_ids | grep -c listed)" -eq 6 ]' || fail "listed items"
echo 3 >"$VELMO_STANDIN_DELAY_FILE"
quits=()
for i in 0 1 2 3 4 5; do
  "$listed/L$i.app/Contents/MacOS/L$i" 0.3 &
  quits+=($!)
done
wait "${quits[@]}"
wait_for 20 '[ "$(grep -c "^end .*active-interval-update" "$workdir/timeline.log")" -eq 6 ]' ||
  fail "six updates didn't end"
peak=$(awk '/active-interval-update/ { print $2, ($1 == "start" ? 1 : -1) }' "$workdir/timeline.log" |
  sort -n | awk '{ n += $2; if (n > m) m = n } END { print m + 0 }')
echo "quits of 6 listed apps: 6 updates, at most $peak at once"
[ "$peak" -le 4 ] || fail "$peak updates at once"
finish
