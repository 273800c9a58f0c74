#!/usr/bin/env bash
# Reconciliation and policy changes from outside. Five listed items are
# compared with the tool before the first run's job, never more than three at
# once; those with nothing due leave the state file. A managed profile that
# adds an ID installs it about 10 s later without a run; removing IDs starts
# nothing; a changed interval replans from the last run.
# Usage: reconcile_test.sh <velmo-agent> <stand-in tool>
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"
mkdir -p "$(dirname "$(state_file)")"
printf '[%s,%s,%s,%s,%s]' "$(item_json a)" "$(item_json b)" "$(item_json c)" "$(item_json d)" \
  "$(item_json e)" >"$(state_file)"
export VELMO_STANDIN_COMPARE_DELAY=1 VELMO_STANDIN_UPDATE_AVAILABLE="b d"
start_agent
wait_for 20 has_line "Scheduled Velmo Run #1 finished" "$workdir/agent.log" || fail "first run"

# Most comparisons at once, from the tool's own timeline.
most=$(awk '$3 == "compare" { n += ($1 == "start") ? 1 : -1; if (n > most) most = n } END { print most }' \
  "$workdir/timeline.log")
[ "$most" -eq 3 ] || fail "$most comparisons at once"
event() { awk -v what="$1" -v n="$2" -v verb="$3" '$1 == what && $3 == verb && ++seen == n { print $2 }' \
  "$workdir/timeline.log"; }
fourth=$(seconds_between "$(event end 1 compare)" "$(event start 4 compare)")
within "$fourth" 0 0.5 || fail "fourth compare ${fourth}s after the first ended"
last_end=$(awk '$1 == "end" && $3 == "compare" { t = $2 } END { print t }' "$workdir/timeline.log")
job=$(seconds_between "$last_end" "$(event start 1 install)")
within "$job" 0 2 || fail "job started ${job}s after the last compare"
echo "compares: at most $most at once; the fourth started ${fourth}s after the first ended; the job ${job}s after the last"
wait_for 5 'test "$(state_ids | tr "\n" " ")" = "b d "' || fail "state file: $(state_ids | tr '\n' ' ')"
echo "nothing due for a, c, e: the state file keeps $(state_ids | tr '\n' ' ')"

runs_before=$(grep -c '^start .* install' "$workdir/timeline.log")
written=$(date +%s.%N)
manage '<key>InstallOrUpdate</key><array><string>x</string></array>'
wait_for 20 has_line "start " "$workdir/timeline.log" && wait_for 20 'grep -q " install x$" "$workdir/timeline.log"' ||
  fail "no install x"
took=$(seconds_between "$written" "$(awk '$1 == "start" && $3 == "install" && $4 == "x" { print $2 }' "$workdir/timeline.log")")
within "$took" 9.5 13 || fail "install x ${took}s after the profile"
agent_output | grep -q "Velmo Run #2" && fail "a run went through the gate"
echo "profile adding x: install x ${took}s later, outside the gate"

manage '<key>RunInterval</key><integer>3600</integer>'
wait_for 20 has_line "Velmo Run interval decreased: 4 hours → 1 hour." "$workdir/agent.log" ||
  fail "interval decrease not logged"
manage '<key>RunInterval</key><integer>7200</integer>'
wait_for 20 has_line "Velmo Run interval increased: 1 hour → 2 hours." "$workdir/agent.log" ||
  fail "interval increase not logged"
agent_output | grep -q "Scheduled next Velmo Run after MDM change event at .* (in 1 hour, 59 minutes" ||
  fail "no plan after MDM change event"
[ "$(grep -c '^start .* install' "$workdir/timeline.log")" -eq $((runs_before + 1)) ] ||
  fail "removing IDs or changing the interval ran the tool"
agent_output | grep -E "interval (in|de)creased|after MDM change event"
finish
