#!/usr/bin/env bash
# The packaged bus policy on a bus with the system bus's default policy: every
# account may post the Post signal and hear it, call the agent's Post method
# and read its properties, and nothing more; only root's agent owns the name.
# Usage: bus_policy_test.sh <velmo-agent> <stand-in tool>
export VELMO_TEST_BUS_CONFIG=system-policy-bus.conf
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"
command -v setpriv >/dev/null || { echo "note: no setpriv; skipped"; exit 0; }
v=com.marvenith.velmo
chmod 755 "$workdir"  # The bus socket lies there; the user must reach it.
as_user() { setpriv --reuid=65534 --regid=65534 --clear-groups "$@"; }
start_agent
owns() { gdbus introspect --system -d $v.Agent -o /com/marvenith/velmo/Agent >/dev/null 2>&1; }
wait_for 10 owns || fail "root's agent does not own $v.Agent"

# A user hears the Post signal the agent sends (its echo of root's call) and
# its PropertiesChanged; the user's own Post signal reaches the agent.
as_user timeout 20 stdbuf -oL gdbus monitor --system -d $v.Agent >"$workdir/user-monitor.log" 2>&1 &
extra_pids="$extra_pids $!"
wait_for 5 has_line "Monitoring signals" "$workdir/user-monitor.log"
out=$(gdbus call --system -d $v.Agent -o /com/marvenith/velmo -m $v.Notifications.Post \
  "'$v.didPerformInstall'" "@as []" "@a{sv} {}" 2>&1)
[ "$out" = "()" ] || fail "root's Post call: $out"
wait_for 5 has_line "$v.Notifications.Post ('$v.didPerformInstall'" "$workdir/user-monitor.log" ||
  fail "the user did not hear the agent's Post signal"
as_user gdbus emit --system -o /com/marvenith/velmo -s $v.Notifications.Post \
  "'$v.userInitiatedUpdateCheck'" "@as []" "@a{sv} {}" || fail "the user could not post the signal"
wait_for 10 has_line "User-Initiated Velmo Run" "$workdir/agent.log" || fail "the agent did not hear the user's signal"
wait_for 5 has_line "PropertiesChanged" "$workdir/user-monitor.log" ||
  fail "the user did not hear PropertiesChanged"

# What the policy opens to every account, and what it keeps closed.
user_call() { as_user gdbus call --system -d $v.Agent "$@" 2>&1; }
out=$(user_call -o /com/marvenith/velmo -m $v.Notifications.Post "'$v.userInitiatedUpdateCheck'" "@as []" "@a{sv} {}")
[ "$out" = "()" ] || fail "the user's Post call: $out"
out=$(user_call -o /com/marvenith/velmo/Agent -m org.freedesktop.DBus.Properties.Get $v.Agent Version)
grep -q "^(<'" <<<"$out" || fail "the user's Get: $out"
out=$(user_call -o /com/marvenith/velmo/Agent -m org.freedesktop.DBus.Properties.Set $v.Agent Version "<'x'>")
grep -q AccessDenied <<<"$out" || fail "the user's Set is not refused by the bus: $out"
out=$(user_call -o /com/marvenith/velmo -m $v.Notifications.Other)
grep -q AccessDenied <<<"$out" || fail "another method is not refused by the bus: $out"
finish
