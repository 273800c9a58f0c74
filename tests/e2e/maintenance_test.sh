#!/usr/bin/env bash
# Housekeeping at start: the log is cut to under 5 MB at a line start, though
# its folder is root's link to another folder; an old temp artifact goes
# while a fresh one and everything behind links planted in the application
# folder and the cache stay; the tool link is made, the report is submitted,
# and the cycle is recorded. The notifier icon is applied at start and again
# after a change.
# Usage: maintenance_test.sh <velmo-agent> <stand-in tool>
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"

log="$root/var/log/marvenith-velmo.log"
mkdir -p "$root/var" "$workdir/private/log" "$root/Applications" "$root/usr/local/bin" \
  "$workdir/outside" "$tooldir/cache/real"
ln -s "$workdir/private/log" "$root/var/log"
head -c 6000000 /dev/zero | tr '\0' 'x' | fold -w 99 >"$log"
old=".Foo.app.new-$(date -u -d '2 days ago' +%Y%m%dT%H%M%SZ)-0a1b2c3d"
fresh=".Foo.app.old-$(date -u +%Y%m%dT%H%M%SZ)-0a1b2c3d"
planted=".Bar.app.new-$(date -u -d '3 days ago' +%Y%m%dT%H%M%SZ)-ffffffff"
mkdir -p "$root/Applications/$old/Contents" "$root/Applications/$fresh"
touch "$workdir/outside/precious"
ln -s "$workdir/outside" "$root/Applications/$planted"
ln -s "$workdir/outside" "$root/Applications/$old/Contents/escape"
ln -s "$workdir/outside" "$tooldir/cache/media"
ln -s "$workdir/outside" "$tooldir/cache/real/escape"
manage '<key>EnableDashboardReporting</key><true/>' com.marvenith.velmo
manage '<key>NotificationCenterIcon</key><string>/Library/Icons/A.png</string>' \
  com.marvenith.velmo-notifier

start_agent
wait_for 10 has_line "Maintenance cycle #1 finished in: " "$workdir/agent.log" ||
  fail "no maintenance cycle"
[ -L "$root/var/log" ] || fail "the log folder link went"
size=$(stat -c %s "$workdir/private/log/marvenith-velmo.log")
[ "$size" -lt 5242880 ] || fail "log still $size bytes"
[ "$(head -c 1 "$log")" = x ] && [ "$(head -1 "$log" | wc -c)" -eq 100 ] ||
  fail "log does not start at a line"
[ ! -e "$root/Applications/$old" ] || fail "old artifact stayed"
[ -e "$root/Applications/$fresh" ] || fail "fresh artifact went"
[ ! -L "$root/Applications/$planted" ] || fail "planted link stayed"
[ -e "$workdir/outside/precious" ] || fail "removal followed a planted link"
[ -L "$tooldir/cache/media" ] && [ -L "$tooldir/cache/real/escape" ] ||
  fail "a link in the cache went"
[ "$(readlink "$root/usr/local/bin/velmo")" = "$tooldir/velmo" ] || fail "tool link not made"
grep -q '^report --submit$' "$workdir/calls.log" || fail "no report"
grep -q "^notifier set-icon --icon /Library/Icons/A.png --restart-velmo-notifier --restart-nc$" \
  "$workdir/calls.log" || fail "initial icon not applied"
grep -A1 '<key>MaintenanceTaskRunCount</key>' "$root/Library/Preferences/com.marvenith.velmo-agent.plist" |
  grep -q '<integer>1</integer>' || fail "cycle not recorded"
agent_output | grep -E "Maintenance|Truncated|Velmo Report|symlink|NotificationCenterIcon"

manage '<key>NotificationCenterIcon</key><string>/Library/Icons/B.png</string>' \
  com.marvenith.velmo-notifier
wait_for 15 has_line "--icon /Library/Icons/B.png" "$workdir/calls.log" || fail "icon change not applied"
agent_output | grep "NotificationCenterIcon changed"
finish
