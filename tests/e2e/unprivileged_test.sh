#!/usr/bin/env bash
# An unprivileged poster (uid 65534) against the real agent: what it posts never
# puts a word of its own on the tool's command line, never installs an unlisted
# item, and never changes what root's programs recorded; the lines it causes
# stay single lines. The same posts from root keep their effect.
# Usage: unprivileged_test.sh <velmo-agent> <stand-in tool> <velmo-bus-post>
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"
bus_post="$3"
export VELMO_STANDIN_UPDATE_AVAILABLE="good"
command -v setpriv >/dev/null || { echo "note: no setpriv; skipped"; exit 0; }
v=com.marvenith.velmo
chmod 755 "$workdir"  # The bus socket lies there; the user must reach it.
as_user() { setpriv --reuid=65534 --regid=65534 --clear-groups "$@"; }
user_post() {  # user_post <short name> [object] [user info as GVariant text]
  local object="@as []" info="@a{sv} {}"
  [ -n "${2:-}" ] && object="@as ['$2']"
  [ -n "${3:-}" ] && info="$3"
  as_user gdbus emit --system -o /com/marvenith/velmo -s $v.Notifications.Post \
    "'$v.$1'" "$object" "$info" >/dev/null || fail "user could not post $1"
}
apps="$workdir/apps"
make_app() {  # make_app <name>: a bundle whose executable is a copy of sleep, the user's own.
  mkdir -p "$apps/$1.app/Contents/MacOS"
  cp /bin/sleep "$apps/$1.app/Contents/MacOS/$1"
  chown -R 65534:65534 "$apps"
}
run_app() { as_user "$apps/$1.app/Contents/MacOS/$1" 0.3; }
app_item() {
  printf '{"id":"%s","friendlyName":"%s","targetVersion":"2.0","installPath":"%s","respectDnd":false,"respectMeetings":false}' \
    "$1" "$1" "$apps/$2.app"
}
calls() { grep -c -- "$1" "$workdir/calls.log"; }
deferrals="$root/Library/Preferences/$v.deferrals.json"

make_app Good
make_app Evil
start_agent
wait_for 15 has_line "Scheduled Velmo Run #1 finished" "$workdir/agent.log" || fail "first run"

# Root's tool lists an item; the user's own list posts are dropped.
post addItemsToUIControllerQueue "[$(app_item good Good)]"
wait_for 10 'state_ids | grep -qx good' || fail "root's item not listed"
user_post addItemsToUIControllerQueue "[$(app_item evil Evil),$(item_json x)]"
user_post addItemsToUIControllerQueue '[{"id":"--help","friendlyName":"h","targetVersion":"1","installPath":"/x.app","respectDnd":false,"respectMeetings":false}]'
wait_for 5 'agent_output | grep -qF "Ignored $v.addItemsToUIControllerQueue from uid 65534: only root may post it."' ||
  fail "the user's list post was not refused"

# Installs the user asks for: only listed items, only valid IDs.
user_post enqueueUpdateItem '{"id":"--config=/tmp/evil.conf","friendlyName":"e","targetVersion":"1","installPath":"/x.app","respectDnd":false,"respectMeetings":false}'
user_post enqueueUpdateItem "$(item_json unlisted)"
as_user "$bus_post" $v.enqueueUpdateItem 1 '{"id":"a\u0000b' '","friendlyName":"n","targetVersion":"1","installPath":"/x.app","respectDnd":false,"respectMeetings":false}' ||
  fail "NUL post"
user_post enqueueUpdateItem "$(app_item good Good)"
wait_for 10 'test "$(calls "^install good --menu-bar-notification --user-initiated")" -ge 1' ||
  fail "the user's install of a listed item did not run"
agent_output | grep -qF "Ignored a request from uid 65534 to install unlisted: it is not in the update items list." ||
  fail "unlisted install not refused"

# A user's check compares root's items only.
user_post userInitiatedUpdateCheck
wait_for 15 'agent_output | grep -qF "User-Initiated Velmo Run #"' || fail "the user's check did not run"

# Root-only names from the user change nothing; a deferral from the user counts.
user_post dialogResponse '{"identifier":"good","appId":"good","targetVersion":"2.0","url":"file://'"$apps"'/Good.app","response":{"deferral":{}}}'
wait_for 10 has_line '"good_2.0"' "$deferrals" || fail "the user's deferral was not recorded"
user_post didPerformInstall "$(app_item good Good)"
user_post updateItemStateChange "" "{'id': <'good'>, 'state': <'installed'>}"
user_post willPerformInstall "$(app_item good Good)"
user_post dialogResponse '{"identifier":"--dr-flag","appId":"--dr-flag","targetVersion":"1","url":"file://'"$apps"'/Evil.app","response":{"deferral":{}}}'
# A forged line and an escape code in a field that reaches a debug line.
as_user "$bus_post" $v.dialogResponse 1 '{"identifier":"z","appId":"z","targetVersion":"1\n2026-01-01T00:00:00.000Z info [forged] Truncated 0 bytes from the log file.\u001b[31m' \
  '","url":"file:///Applications/z.app","response":{"deferral":{}}}' || fail "forged post"
sleep 4  # Longer than the state change's 3 s removal delay.
has_line '"good_2.0"' "$deferrals" || fail "the user's didPerformInstall removed deferrals"
state_ids | grep -qx good || fail "the user's state change removed the item"

# Quitting the listed app still updates it (the user's willPerformInstall was
# dropped); quitting the app the user tried to list or defer runs nothing.
run_app Evil
run_app Good
wait_for 10 'test "$(calls "^install good --update-only --silent --active-interval-update$")" -ge 1' ||
  fail "quitting Good did not update it"
sleep 2
[ "$(calls "^install evil\|dr-flag")" -eq 0 ] || fail "Evil's quit reached the tool"

# What root posts keeps its effect.
post didPerformInstall "$(app_item good Good)"
wait_for 10 '! has_line "\"good_2.0\"" "$deferrals"' || fail "root's didPerformInstall kept the deferrals"

# Every flag on every command line is one of the agent's own.
own="--menu-bar-notification --user-initiated --update-mas --fail --update-only --silent
  --active-interval-update --running-first --respect-exclusions-preference --exclusions
  --integrity-policy --respect-dnd --respect-meetings --submit --icon --restart-velmo-notifier --restart-nc"
for word in $(tr ' ' '\n' <"$workdir/calls.log" | grep -- '^-' | sort -u); do
  grep -qw -- "$word" <<<"$own" || fail "the tool got $word"
done
grep -q $'\x1b' "$workdir/unified.log" && fail "a raw escape code reached the log"
grep -q '^2026-01-01T00:00:00.000Z' "$workdir/unified.log" && fail "a forged line reached the log"
grep -qF 'z_1\n2026-01-01T00:00:00.000Z info [forged] Truncated 0 bytes from the log file.\x1b[31m0' \
  "$workdir/unified.log" || fail "the forged text is not in the log as one escaped line"
echo "unprivileged poster: $(wc -l <"$workdir/calls.log") tool calls, all flags the agent's own;" \
  "$(agent_output | grep -c 'only root may post it') refusals logged"
finish
