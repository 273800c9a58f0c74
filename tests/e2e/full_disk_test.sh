#!/usr/bin/env bash
# A full disk loses nothing. The folder of the deferrals file and the agent
# state file, and the folder of the update state file, each on a small tmpfs
# of its own: 300 deferral records, 20 items and a run are written; both disks
# are filled; 50 more deferrals, 10 more items and a user's run follow; then
# space is freed and one more of each is made. While full, every file stays
# whole with what it held; after, it holds everything accepted meanwhile. The
# agent stays alive, and says each file's fault once.
# Usage: full_disk_test.sh <velmo-agent> <stand-in tool> <velmo-bus-post>
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"
bus_post="$3"
prefs="$root/Library/Preferences"
mounts=()
unmount_all() {
  kill -KILL $agent_pid 2>/dev/null
  wait "$agent_pid" 2>/dev/null
  for m in "${mounts[@]}"; do umount "$m" 2>/dev/null; done
  cleanup
}
trap unmount_all EXIT
mount_small() {  # mount_small <folder> <size>: an empty tmpfs there, or skip the scenario.
  mkdir -p "$1"
  if ! mount -t tmpfs -o "size=$2,mode=0755" tmpfs "$1"; then
    echo "note: can't mount a tmpfs; skipped"
    exit 0
  fi
  mounts+=("$1")
}
mount_small "$prefs" 512k
mount_small "$tooldir" 512k
cp "$standin" "$tooldir/velmo"
export VELMO_STANDIN_STATUS=57  # Every item stays due, so comparisons keep the list.
deferrals="$prefs/com.marvenith.velmo.deferrals.json"
agent_state="$prefs/com.marvenith.velmo-agent.plist"
response='","url":"file:///Applications/k.app","response":{"deferral":{}}}'
defer() {  # defer <count> <version prefix>: one record per deferral.
  "$bus_post" com.marvenith.velmo.dialogResponse "$1" \
    '{"identifier":"k","appId":"k","targetVersion":"'"$2" "$response" || fail "deferrals"
}
add_items() {  # add_items <first> <last>
  local items="" i
  for i in $(seq "$1" "$2"); do items="$items${items:+,}$(item_json "i$i")"; done
  post addItemsToUIControllerQueue "[$items]"
}
records() { python3 -c 'import json, sys; print(len(json.load(open(sys.argv[1]))))' "$deferrals" 2>/dev/null; }
items() { python3 -c 'import json, sys; print(len(json.load(open(sys.argv[1]))))' "$(state_file)" 2>/dev/null; }
run_count() {
  python3 -c 'import plistlib, sys; print(plistlib.load(open(sys.argv[1], "rb")).get("UpdateTaskRunCount", 0))' \
    "$agent_state" 2>/dev/null
}
fill() { dd if=/dev/zero of="$1/filler" bs=4k 2>/dev/null; }
errors() { agent_output | grep -c "Failed to"; }

start_agent
wait_for 15 has_line "Scheduled Velmo Run #1 finished" "$workdir/agent.log" || fail "first run"
defer 300 v
add_items 1 20
wait_for 20 'test "$(records)" = 300 && test "$(items)" = 20' ||
  fail "before: $(records) records, $(items) items"
wait_for 10 'test "$(run_count)" = 1' || fail "before: run count $(run_count)"

fill "$prefs"
fill "$tooldir"
df -k "$prefs" "$tooldir" | awk 'NR > 1 { print "full: " $6 " " $4 " KB free" }'
errors_before=$(errors)
defer 50 full
add_items 21 30
post userInitiatedUpdateCheck
wait_for 30 has_line "Velmo Run #2 finished" "$workdir/agent.log" || fail "no run while full"
sleep 2
full_records=$(records) full_items=$(items) full_count=$(run_count)
echo "while full: deferrals file $full_records of 300 records, update state file $full_items of 20 items, run count $full_count of 1"
[ "$full_records" = 300 ] && [ "$full_items" = 20 ] && [ "$full_count" = 1 ] ||
  fail "a file changed or broke while full"
kill -0 "$agent_pid" || fail "the agent died while the disk was full"
episode_errors=$(($(errors) - errors_before))

rm -f "$prefs/filler" "$tooldir/filler"
defer 1 after
add_items 31 31
post userInitiatedUpdateCheck
wait_for 30 'test "$(records)" = 351 && test "$(items)" = 31 && test "$(run_count)" = 3' ||
  fail "after: $(records) of 351 records, $(items) of 31 items, run count $(run_count) of 3"
echo "after space came back: deferrals file $(records) of 351 records, update state file $(items) of 31 items, run count $(run_count) of 3"
echo "error lines during the full episode: $episode_errors"
agent_output | grep -E "Failed to|failed attempt" | sed 's/^/  /'
[ "$episode_errors" -le 4 ] || fail "$episode_errors error lines for one episode"
has_line "failed attempt" "$workdir/agent.log" || fail "no line for the end of the episode"
leftovers=$(ls -a "$prefs" "$tooldir" | grep -E '\.(tmp|damaged)$')
[ -z "$leftovers" ] || fail "left behind: $leftovers"
finish
