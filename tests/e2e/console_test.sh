#!/usr/bin/env bash
# The operator console against a running agent. With an allow window opening
# in about two minutes and a 30-second interval, `status --json` run by an
# unprivileged user names the moment the agent then starts its run, within a
# second; `explain` plans the same moment; the bus properties change as the
# run starts and ends.
# Usage: console_test.sh <velmo-agent> <stand-in tool>
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"
command -v setpriv >/dev/null || { echo "note: no setpriv; skipped"; exit 0; }
export TZ=UTC
chmod 755 "$workdir"  # The bus socket lies there; the user must reach it.
as_user() { setpriv --reuid=65534 --regid=65534 --clear-groups env VELMO_ROOT="$root" TZ=UTC "$@"; }
json_field() { python3 -c 'import json, sys; print(eval("json.load(sys.stdin)" + sys.argv[1]))' "$1"; }
epoch() { date -u -d "$1" +%s.%N; }
hm() { printf '<dict><key>hour</key><integer>%d</integer><key>minute</key><integer>%d</integer></dict>' \
  "$(date -u -d "@$1" +%-H)" "$(date -u -d "@$1" +%-M)"; }

# The window opens at the start of the minute after next and lasts ten minutes.
opens=$((($(date +%s) / 60 + 2) * 60))
day=$(date -u -d "@$opens" +%a | tr '[:upper:]' '[:lower:]')
manage "<key>RunInterval</key><integer>30</integer>
<key>GlobalAllowWindows</key><array><dict>
  <key>days</key><array><string>$day</string></array>
  <key>start</key>$(hm "$opens")<key>end</key>$(hm $((opens + 600)))
</dict></array>"
export VELMO_STANDIN_DELAY=3
start_agent
wait_for 10 has_line "Scheduled next Velmo Run at" "$workdir/agent.log" || fail "no plan logged"
wait_for 10 '[ "$(as_user "$agent" status --json 2>/dev/null | json_field "[\"agent\"][\"running\"]")" = True ]' ||
  fail "status does not see the agent"

gdbus monitor --system -d com.marvenith.velmo.Agent -o /com/marvenith/velmo/Agent \
  >"$workdir/properties.log" 2>&1 &
extra_pids="$extra_pids $!"
as_user "$agent" status --json >"$workdir/status.json" || fail "status exited $?"
as_user "$agent" explain --json >"$workdir/explain.json" || fail "explain exited $?"
as_user "$agent" status >"$workdir/status.txt" || fail "status (text) exited $?"
next=$(json_field '["nextRun"]' <"$workdir/status.json")
explained=$(json_field '["scheduledRuns"][0]["at"]' <"$workdir/explain.json")
echo "status: nextRun $next (window opens $(date -u -d "@$opens" +%H:%M:%S)); explain: first run $explained"
[ "$next" = "$explained" ] || fail "explain plans $explained, status says $next"
as_user gdbus introspect --system -d com.marvenith.velmo.Agent -o /com/marvenith/velmo/Agent \
  >"$workdir/introspect.txt" || fail "introspection refused"
grep -q "readonly t NextRunDate" "$workdir/introspect.txt" || fail "no NextRunDate in the introspection"

wait_for 150 has_line "end " "$workdir/timeline.log" || fail "no run in the window"
read -r _ started arguments < <(grep '^start ' "$workdir/timeline.log" | head -1)
off=$(seconds_between "$(epoch "$next")" "$started")
echo "the run started ${off}s after status's nextRun: $arguments"
within "$off" -1 1 || fail "the run started ${off}s from nextRun"
wait_for 5 has_line "'RunInProgress': <false>" "$workdir/properties.log" || fail "no end of the run on the bus"
changes=$(grep -o "'RunInProgress': <[a-z]*>" "$workdir/properties.log" | tr '\n' ' ')
[ "$changes" = "'RunInProgress': <true> 'RunInProgress': <false> " ] || fail "RunInProgress went [$changes]"
grep -q "'RunCount': <int64 1>" "$workdir/properties.log" || fail "RunCount did not become 1"
echo "bus: $changes"
sed 's/\x1b\[[0-9;]*m//g' "$workdir/status.txt"
finish
