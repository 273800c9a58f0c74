#!/usr/bin/env bash
# Root's posts through the agent's Post method all arrive whatever another
# account (uid 65534) sends meanwhile, on a bus with a system bus's limits.
# The account sends, in turn and again until root is done: 20 posts of 30 MB;
# 1 MB posts from two processes, half again what the bus daemon queues for one
# receiver; 1,000 posts carrying 16 descriptors each; 5,000 connections of one
# post each. Meanwhile root calls Post 200 times, one every 50 ms, adding 100
# items and reporting 100 installs, and an administrator's profile changes.
# Figures, one line each:
#   root's posts lost: 0 (each replied ok and its effect is seen);
#   their p99 delay, printed;
#   the profile change applied: yes;
#   the agent's peak memory during the floods: at most its size at rest, one
#     message of the largest size the bus allows (32 MB; the bus library reads a
#     message whole before anything can refuse it) and 4 MB;
#   bus reconnections: 0.
# Usage: root_channel_test.sh <velmo-agent> <stand-in tool> <velmo-bus-flood>
export VELMO_TEST_BUS_CONFIG=system-limits-bus.conf
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"
flood="$3"
command -v setpriv >/dev/null || { echo "note: no setpriv; skipped"; exit 0; }
: "${VELMO_BUS_POST:?velmo-bus-post seeds the deferrals}"
v=com.marvenith.velmo
chmod 755 "$workdir"  # The bus socket lies there; the user must reach it.
as_user() { setpriv --reuid=65534 --regid=65534 --clear-groups "$@"; }
deferrals="$root/Library/Preferences/$v.deferrals.json"
done_records() { grep -o '"done[0-9]*_2.0"' "$deferrals" 2>/dev/null | sort -u; }
bus_call() {
  gdbus call --system --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus --method "$@"
}

start_agent
wait_for 15 has_line "Scheduled Velmo Run #1 finished" "$workdir/agent.log" || fail "first run"
# Each reported install must clear a deferral: its effect.
"$VELMO_BUS_POST" $v.dialogResponse 100 '{"identifier":"done","appId":"done' \
  '","targetVersion":"2.0","url":"file:///Applications/done.app","response":{"deferral":{}}}'
wait_for 20 '[ "$(done_records | wc -l)" -eq 100 ]' || fail "deferrals not seeded: $(done_records | wc -l)"
rest=$(awk '$1 == "VmRSS:" { print $2 }' "/proc/$agent_pid/status")
echo 5 >"/proc/$agent_pid/clear_refs"  # The peak from here on.

# The floods go round until root's calls end; the profile changes in the first.
"$flood" root 200 50 >"$workdir/root.log" &
poster=$!
extra_pids="$extra_pids $poster"
round() {  # <what> <flooder arguments...>: timed, with the flooder's report.
  local what="$1" started
  shift
  started=$(date +%s.%N)
  echo "$what: $(as_user "$flood" "$@" | paste -sd ';'); $(seconds_between "$started" "$(date +%s.%N)") s"
}
for pass in $(seq 10); do
  round "20 posts of 30 MB" big $v.enqueueUpdateItem 31457280 20
  if [ "$pass" -eq 1 ]; then
    manage '<key>UpdateAll</key><true/>'
    changed=$(date +%s.%N)
    (wait_for 120 'agent_output | grep -qF "Policy UpdateAll: false → true."' && date +%s.%N >"$workdir/applied") &
    extra_pids="$extra_pids $!"
  fi
  round "100 posts of 1 MB" big $v.dialogResponse 1048576 100 &
  round "100 posts of 1 MB" big $v.addItemsToUIControllerQueue 1048576 100
  wait $!
  round "posts with 16 descriptors" fds $v.enqueueUpdateItem 1000
  round "one-post connections" churn $v.dialogResponse 5000
  kill -0 $poster 2>/dev/null || break
done
wait_for 60 '! kill -0 $poster 2>/dev/null' || fail "root's calls still going"

# A call is lost unless it was answered ok and its effect is seen: its item
# listed, or its install's deferral cleared.
wait_for 10 '[ "$(state_ids | grep -c "^root")" -eq 100 ]'
wait_for 10 '[ "$(done_records | wc -l)" -eq 0 ]'
state_ids >"$workdir/listed"
done_records | tr -d '"' >"$workdir/left"
lost=$(awk 'FILENAME ~ /listed$/ { listed[$1]; next }
  FILENAME ~ /left$/ { left[substr($1, 1, length($1) - 4)]; next }
  $5 == "ok" { k = int($1 / 2); if ($2 ~ /^add/ ? ("root" k) in listed : !(("done" k) in left)) kept++ }
  END { print 200 - kept }' "$workdir/listed" "$workdir/left" "$workdir/root.log")
p99=$(awk '$5 == "ok" { print $4 - $3 }' "$workdir/root.log" | sort -g |
  awk '{ d[NR] = $1 } END { n = int(NR * 0.99 + 0.999); if (n) printf "%.3f s", d[n]; else print "none" }')
applied=no
wait_for 10 test -s "$workdir/applied" && applied="yes, $(seconds_between "$changed" "$(cat "$workdir/applied")") s after the change"
peak=$(awk '$1 == "VmHWM:" { print $2 }' "/proc/$agent_pid/status")
lost_bus=$(agent_output | grep -c "System bus connection lost")
owner=$(bus_call org.freedesktop.DBus.GetNameOwner $v.Agent | grep -o ":[0-9.]*")
queue=$(bus_call org.freedesktop.DBus.Debug.Stats.GetConnectionStats "$owner" |
  grep -oE "'Peak(OutgoingBytes|OutgoingFDs)': <uint32 [0-9]+>" | grep -oE "[0-9]+>" | tr -d '>' | paste -sd ' ')
read -r queue_bytes queue_fds <<<"$queue"

echo "--- root channel report"
echo "root's posts lost: $lost of 200 (replies: $(awk '{ print $5 }' "$workdir/root.log" | sort | uniq -c |
  awk '{ printf "%s%d %s", (NR > 1 ? ", " : ""), $1, $2 }'));" \
  "$(grep -c '^root' "$workdir/listed") of 100 adds listed, $((100 - $(wc -l <"$workdir/left"))) of 100 installs' deferrals cleared"
echo "root's posts p99 delay: $p99"
echo "policy change applied: $applied"
echo "agent's peak memory: $peak kB ($rest kB at rest)"
echo "bus reconnections: $lost_bus"
echo "bus daemon's queue for the agent at its peak: ${queue_bytes:-?} bytes of 133169152, ${queue_fds:-?} descriptors of 64"
[ "$lost" -eq 0 ] || fail "$lost of root's posts lost"
[ "$applied" != no ] || fail "the profile change was not applied"
[ "$peak" -le $((rest + 32768 + 4096)) ] || fail "peak memory $peak kB, $rest kB at rest"
[ "$lost_bus" -eq 0 ] || fail "$lost_bus bus reconnections"
for log in agent.log unified.log; do
  tail -n 200 "$workdir/$log" >"$workdir/$log.tail" && mv "$workdir/$log.tail" "$workdir/$log"
done
finish
