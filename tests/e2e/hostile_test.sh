#!/usr/bin/env bash
# A hostile local user. Malformed posts of every name the agent observes (no
# object, not JSON, JSON of the wrong shape, 60 kB strings, wrong user-info
# types, sasa{ss} bodies, wrong signatures) are each logged and dropped;
# managed plists replaced by garbage are survived (the flood scenario bounds
# floods). Throughout, the agent stays up, and at the end its
# state files still parse and keep every seeded item and deferral.
# Usage: hostile_test.sh <velmo-agent> <stand-in tool>
source "$(dirname "$0")/lib.sh"
e2e_setup "$1" "$2"
export VELMO_STANDIN_UPDATE_AVAILABLE="a b c m1 m3"
v=com.marvenith.velmo
mcx=com.apple.MCX._managementStatusChangedForDomains
key=com.apple.MCX.changedDomains
names="$v.willPerformInstall $v.dialogResponse $v.enqueueUpdateItem $v.addItemsToUIControllerQueue
  $v.updateItemStateChange $v.didPerformInstall $v.userInitiatedUpdateCheck $mcx $key"
emit() {  # emit <name> <object as GVariant text> <user info as GVariant text>
  gdbus emit --system -o /com/marvenith/velmo -s $v.Notifications.Post "'$1'" "$2" "$3" >/dev/null ||
    fail "could not emit $1"
}
send() { dbus-send --system --type=signal /com/marvenith/velmo $v.Notifications.Post "$@" || fail "dbus-send $*"; }
marker() {  # A valid item after everything else; its arrival means the rest was read.
  mark=$1
  post addItemsToUIControllerQueue "[$(item_json "$mark")]"
  wait_for 30 'state_ids | grep -qx "$mark"' || fail "marker $mark not listed"
}
errors() { agent_output | grep -cF "ERROR: $1"; }

start_agent
wait_for 15 has_line "Scheduled Velmo Run #1 finished" "$workdir/agent.log" || fail "first run"
post addItemsToUIControllerQueue "[$(item_json a),$(item_json b),$(item_json c)]"
post dialogResponse '{"identifier":"d","appId":"d","targetVersion":"2.0","url":"file:///Applications/d.app","response":{"deferral":{}}}'
deferrals="$root/Library/Preferences/com.marvenith.velmo.deferrals.json"
wait_for 10 has_line '"d_2.0"' "$deferrals" || fail "no seeded deferral"

huge=$(head -c 60000 /dev/zero | tr '\0' x)
wrong=0
for name in $names; do
  emit "$name" "@as []" "@a{sv} {}"
  emit "$name" "@as ['{not json']" "@a{sv} {'id': <42>, 'state': <['installed']>, '$key': <'$v-agent'>}"
  emit "$name" "@as ['[1, {\"id\": null}, \"x\"]']" "@a{sv} {'$key': <[<1>, <'$v-agent'>]>, 'id': <@ay [0, 255]>}"
  emit "$name" "@as ['$huge']" "@a{sv} {'id': <'$huge'>, 'state': <'$huge'>, '$key': <{'a': <1>}>}"
  emit "$name" "@as ['[\"$huge\"]']" "@a{sv} {'$huge': <'$huge'>}"
  send "string:$name" array:string:x,y "dict:string:string:id,a,state,installed,$key,$v-agent"
  send "string:$name" "array:string:{\"id\":3}" "dict:string:string:id,,state,"
  send "string:$name"
  send "string:$name" int32:7 "array:string:$huge"
  emit "$name" "42" "@a{sv} {}"
  wrong=$((wrong + 4))
  # The two huge bodies (120 KB and more) are refused unread, but for root's
  # list of items, which may take 1 MB.
  [ "$name" = "$v.addItemsToUIControllerQueue" ] || wrong=$((wrong + 2))
done
send int32:1 string:x
marker m1
# Ten lines a minute per name: four bodies of each name are all logged.
logged=$(errors "Ignored a malformed notification")
[ "$logged" -eq "$wrong" ] || fail "$logged of $wrong malformed bodies logged"
for what in "Failed to decode items from notification." "Failed to decode item from notification." \
  "Invalid state change notification." "Failed to decode dialog response notification."; do
  [ "$(errors "$what")" -ge 1 ] || fail "never logged: $what"
done
kill -0 "$agent_pid" || fail "the agent died of malformed posts"
echo "malformed posts: $logged bodies of a wrong form logged, $(agent_output | grep -c 'ERROR: Failed to decode\|ERROR: Invalid') payloads rejected"

managed="$root/Library/Managed Preferences"
garbage() {  # garbage <kind>: one kind of broken plist, in every managed domain.
  for domain in $v $v-agent $v-notifier com.apple.controlcenter; do
    case $1 in
      random) head -c 4096 /dev/urandom ;;
      binary) printf 'bplist00'; head -c 600 /dev/urandom ;;
      truncated) printf '<?xml version="1.0"?>\n<plist version="1.0"><dict><key>RunInterval</key><real>6' ;;
      types) printf '<?xml version="1.0"?><plist version="1.0"><dict><key>RunInterval</key><string>x</string>%s</dict></plist>' \
        '<key>UpdateOnly</key><string>a</string><key>GlobalAllowWindows</key><integer>3</integer><key>NotificationCenterIcon</key><array/>' ;;
      array) printf '<?xml version="1.0"?><plist version="1.0"><array><integer>1</integer></array></plist>' ;;
      # A binary list whose UTF-16 key holds a NUL: the parsing library would abort on it.
      nulkey) base64 -d <<<'YnBsaXN0MDDSAQIDBFtSdW5JbnRlcnZhbGMA3AAAAHgQPAkIDRkgIgAAAAAAAAEBAAAAAAAAAAUAAAAAAAAAAAAAAAAAAAAj' ;;
      empty) ;;
    esac >"$managed/.garbage.tmp"
    mv "$managed/.garbage.tmp" "$managed/$domain.plist"
  done
  emit $mcx "@as []" "@a{sv} {'$key': <['$v', '$v-agent', '$v-notifier', 'com.apple.controlcenter']>}"
  sleep 1
  kill -0 "$agent_pid" || fail "the agent died of $1 managed plists"
}
for kind in random binary truncated types array nulkey empty random; do garbage $kind; done
marker m3
echo "managed plists of random bytes, bplist garbage, truncated XML, wrong types, an array root, a NUL in a key and nothing: survived"

plist="$root/Library/Preferences/$v-agent.plist"
if command -v python3 >/dev/null; then
  plist_ok() { python3 -c 'import plistlib, sys; plistlib.load(open(sys.argv[1], "rb"))' "$1"; }
  json_ok() { python3 -m json.tool "$1" >/dev/null; }
else
  plist_ok() { xmllint --noout "$1"; }
  json_ok() { jq empty "$1"; }
fi
plist_ok "$plist" || fail "agent plist does not parse: $(head -c 300 "$plist")"
json_ok "$(state_file)" || fail "state file does not parse"
json_ok "$deferrals" || fail "deferrals file does not parse"
[ "$(state_ids | tr '\n' ' ')" = "a b c m1 m3 " ] || fail "state file ids: $(state_ids | tr '\n' ' ')"
has_line '"d_2.0"' "$deferrals" || fail "seeded deferral lost: $(cat "$deferrals")"
echo "state plist, update state (ids $(state_ids | tr '\n' ' ')) and deferrals parse"
finish
