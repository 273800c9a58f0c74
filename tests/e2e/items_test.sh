#!/usr/bin/env bash
# Update items from outside: items added by a sibling land pretty-printed in the
# state file and one uiControllerQueueChanged follows 2 s after the last write;
# an installed state removes the item 3 s later. The flood scenario times a
# user's check's progress posts and runs enqueued installs side by side.
# Usage: items_test.sh <velmo-agent> <stand-in tool>
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"
start_monitor
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
finish
