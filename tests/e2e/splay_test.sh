#!/usr/bin/env bash
# RunSplay 30: the first run comes one second plus this machine's offset after
# start, and the same after a restart. The machine id's offset is 22 s of 30:
# the first 8 bytes of its SHA-256, big-endian, modulo 30.
# Usage: splay_test.sh <velmo-agent> <stand-in tool>
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"
mkdir -p "$root/etc"
echo 0123456789abcdef0123456789abcdef >"$root/etc/machine-id"
manage '<key>RunSplay</key><integer>30</integer>'
for pass in 1 2; do
  : >"$workdir/timeline.log"
  start_agent
  wait_for 40 has_line "start " "$workdir/timeline.log" || fail "pass $pass: no run"
  read -r _ started _ < <(head -1 "$workdir/timeline.log")
  delay=$(seconds_between "$agent_started" "$started")
  echo "pass $pass: first run ${delay}s after start"
  within "$delay" 22.9 24.5 || fail "pass $pass: first run ${delay}s after start, not 1 s + 22 s"
  agent_output | grep -qF "Waiting 22 seconds (this machine's RunSplay offset) before the first Velmo Run." ||
    fail "pass $pass: the wait is not logged"
  [ "$pass" -eq 1 ] && { kill "$agent_pid"; wait "$agent_pid" 2>/dev/null; }
done
finish
