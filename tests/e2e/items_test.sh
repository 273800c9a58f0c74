#!/usr/bin/env bash
# Update items from outside: items added by a sibling land pretty-printed in the
# state file and one uiControllerQueueChanged follows 2 s after the last write;
# an installed state removes the item 3 s later; enqueued items run the tool
# one after the other (serial) or side by side (concurrent). The flood scenario
# times a user's check's progress posts.
# Usage: items_test.sh <velmo-agent> <stand-in tool>
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"
start_monitor
export VELMO_STANDIN_DELAY=3
start_agent
wait_for 15 has_line "Scheduled Velmo Run #1 finished" "$workdir/agent.log" || fail "first run"

post addItemsToUIControllerQueue "[$(item_json a),$(item_json b)]"
wait_for 10 test -s "$(state_file)" || fail "no state file"
wait_for 10 'test "$(post_times uiControllerQueueChanged | wc -l)" -ge 1' || fail "no queue post"
sleep 2.5
[ "$(post_times uiControllerQueueChanged | wc -l)" -eq 1 ] || fail "not exactly one queue post"
written=$(date -r "$(state_file)" +%s.%N)
after=$(seconds_between "$written" "$(post_times uiControllerQueueChanged | head -1)")
within "$after" 1.9 2.8 || fail "queue post ${after}s after the last write"
echo "state file written; uiControllerQueueChanged ${after}s after the last write"
[ "$(state_ids | tr '\n' ' ')" = "a b " ] || fail "state file ids: $(state_ids | tr '\n' ' ')"
grep -q '^  {$' "$(state_file)" && grep -q '^    "installPath": "/Applications/a.app",$' "$(state_file)" ||
  fail "state file not pretty with plain slashes: $(head -5 "$(state_file)")"

sent=$(date +%s.%N)
post updateItemStateChange "" "{'id': <'a'>, 'state': <'installed'>}"
wait_for 10 'test "$(state_ids | tr "\n" " ")" = "b "' || fail "a not removed"
removed=$(seconds_between "$sent" "$(date -r "$(state_file)" +%s.%N)")
within "$removed" 2.9 4.0 || fail "removed ${removed}s after installed"
echo "installed: a left the state file ${removed}s later"

: >"$workdir/timeline.log"
post enqueueUpdateItem "$(item_json s1 true)"
post enqueueUpdateItem "$(item_json s2 true)"
post enqueueUpdateItem "$(item_json c1)"
post enqueueUpdateItem "$(item_json c2 false)"
wait_for 30 'test "$(grep -c "^end " "$workdir/timeline.log")" -ge 4' || fail "enqueued installs"
time_of() { awk -v what="$1" -v id="$2" '$1 == what && $4 == id { print $2 }' "$workdir/timeline.log"; }
gap=$(seconds_between "$(time_of end s1)" "$(time_of start s2)")
within "$gap" 0 5 || fail "serial s2 started ${gap}s after s1 ended"
overlap=$(seconds_between "$(time_of start c2)" "$(time_of end c1)")
within "$overlap" 0.5 10 || fail "concurrent c1 and c2 did not overlap ($overlap)"
grep -q "^start .* install s1 --menu-bar-notification --user-initiated$" "$workdir/timeline.log" ||
  fail "queued install vector"
echo "serial: s2 started ${gap}s after s1 ended; concurrent: c1 and c2 overlapped ${overlap}s"
finish
