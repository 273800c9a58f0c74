#!/usr/bin/env bash
# Deferrals and active intervals from outside. A listed app that quits is
# updated about a second later; while it is being installed, quitting starts
# nothing; a deferred app that is no longer listed is updated through its
# response. Deferring answers land in the deferrals file, an install clears
# them, and a comparison that finds nothing due clears them too.
# Usage: deferrals_test.sh <velmo-agent> <stand-in tool>
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"
start_monitor
apps="$root/Applications"
make_app() {  # A real executable inside the bundle, as an application has.
  mkdir -p "$apps/$1.app/Contents/MacOS"
  cp /bin/sleep "$apps/$1.app/Contents/MacOS/$1"
}
run_app() { "$apps/$1.app/Contents/MacOS/$1" "${2:-0.2}"; }
app_json() {
  printf '{"id":"%s","friendlyName":"%s","targetVersion":"2.0","installPath":"%s","respectDnd":false,"respectMeetings":false}' \
    "$1" "$1" "$apps/$2.app"
}
response_json() {
  printf '{"identifier":"%s","appId":"%s","targetVersion":"2.0","url":"file://%s","response":{"%s":{}}}' \
    "$1" "$1" "$apps/$2.app" "$3"
}
active_runs() { grep -c "^start .* --active-interval-update$" "$workdir/timeline.log"; }
deferrals="$root/Library/Preferences/com.marvenith.velmo.deferrals.json"
make_app Foo
make_app Bar

start_agent
wait_for 15 has_line "Scheduled Velmo Run #1 finished" "$workdir/agent.log" || fail "first run"
post addItemsToUIControllerQueue "[$(app_json foo Foo)]"
wait_for 10 'state_ids | grep -q foo' || fail "foo not listed"

run_app Foo
quit=$(date +%s.%N)
wait_for 10 'test "$(active_runs)" -ge 1' || fail "no active interval update for Foo"
line=$(grep "^start .* --active-interval-update$" "$workdir/timeline.log" | head -1)
[ "$(echo "$line" | cut -d' ' -f3-)" = "install foo --update-only --silent --active-interval-update" ] ||
  fail "vector: $line"
after=$(seconds_between "$quit" "$(echo "$line" | cut -d' ' -f2)")
within "$after" 0.9 2.5 || fail "update ${after}s after the quit"
echo "Foo quit: install foo --update-only --silent --active-interval-update ${after}s later"

post willPerformInstall "$(app_json foo Foo)"
sleep 0.5
run_app Foo
sleep 3
[ "$(active_runs)" -eq 1 ] || fail "Foo quitting during its install started an update"
echo "Foo quit during its install: nothing ran"

post dialogResponse "$(response_json bar Bar deferral)"
wait_for 10 has_line '"bar_2.0"' "$deferrals" || fail "no deferral record for bar"
grep -q '"deferralCount": 1' "$deferrals" || fail "count not 1: $(cat "$deferrals")"
run_app Bar
wait_for 10 'test "$(active_runs)" -ge 2' || fail "deferred Bar not updated"
grep -q "^start .* install bar --update-only --silent --active-interval-update$" "$workdir/timeline.log" ||
  fail "bar vector"
echo "Bar (deferred, not listed) quit: updated through its response; record: bar_2.0 count 1"

post didPerformInstall "$(app_json bar Bar)"
wait_for 10 '! grep -q bar_2.0 "$deferrals"' || fail "install left bar's record"
wait_for 5 'test "$(post_times deferralsDidChange | wc -l)" -ge 2' || fail "deferralsDidChange"
echo "bar installed: its record is gone; deferralsDidChange posted $(post_times deferralsDidChange | wc -l) times"

# A comparison that finds nothing due for foo drops the item and its records.
post dialogResponse "$(response_json foo Foo dndDeferral)"
wait_for 10 has_line '"foo_2.0"' "$deferrals" || fail "no deferral record for foo"
post userInitiatedUpdateCheck
wait_for 20 '! state_ids | grep -q foo' || fail "foo still listed after compare 0"
wait_for 10 '! grep -q foo_2.0 "$deferrals"' || fail "compare 0 left foo's record"
echo "compare foo exited 0: foo left the list and its deferral records: $(tr -d ' \n' <"$deferrals")"
finish
