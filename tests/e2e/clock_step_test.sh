#!/usr/bin/env bash
# A step of the wall clock never ends a tool run: the agent runs under
# libfaketime with a timestamp file (its monotonic clock left alone), and the
# wall clock jumps 2 hours ahead 2 s into a comparison that takes 6 s under a
# 60 s limit. The comparison ends normally; no time-out line.
# Usage: clock_step_test.sh <velmo-agent> <stand-in tool>
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"
faketime_lib=$(ls /usr/lib/*/faketime/libfaketime.so.1 2>/dev/null | head -1)
[ -n "$faketime_lib" ] || { echo "note: no libfaketime; skipped"; exit 0; }
# The tool keeps the real time, so that its timeline is comparable.
mv "$tooldir/velmo" "$tooldir/velmo-standin"
printf '#!/bin/sh\nunset LD_PRELOAD FAKETIME_TIMESTAMP_FILE\nexec "%s" "$@"\n' \
  "$tooldir/velmo-standin" >"$tooldir/velmo"
chmod 755 "$tooldir/velmo"
echo "+0" >"$workdir/faketime"
export VELMO_STANDIN_COMPARE_DELAY=6
LD_PRELOAD="$faketime_lib" FAKETIME_TIMESTAMP_FILE="$workdir/faketime" FAKETIME_NO_CACHE=1 \
  FAKETIME_DONT_FAKE_MONOTONIC=1 \
  start_agent
wait_for 15 has_line "Scheduled Velmo Run #1 finished" "$workdir/agent.log" || fail "first run"
post addItemsToUIControllerQueue "[$(item_json stepped)]"
wait_for 10 'test "$(state_ids)" = stepped' || fail "listed item"
post userInitiatedUpdateCheck
wait_for 10 'grep -q "^start .* compare stepped" "$workdir/timeline.log"' || fail "no comparison"
sleep 2
echo "+2h" >"$workdir/faketime"
wait_for 15 'grep -q "^end .* compare stepped" "$workdir/timeline.log"' || fail "the comparison didn't end"
wait_for 10 has_line "User-Initiated Velmo Run #2 finished" "$workdir/agent.log" || fail "second run"
has_line "timed out" "$workdir/unified.log" && fail "a time-out after the wall clock step"
start=$(awk '/^start .* compare stepped/ { print $2; exit }' "$workdir/timeline.log")
end=$(awk '/^end .* compare stepped/ { print $2; exit }' "$workdir/timeline.log")
echo "comparison across a +2 h wall step: $(seconds_between "$start" "$end") s, ended normally"
stamp=$(grep -o '^[0-9T:.-]*Z' "$workdir/unified.log" | tail -1)
echo "the agent's wall clock at the end: $stamp (real: $(date -u +%H:%M:%S))"
finish
