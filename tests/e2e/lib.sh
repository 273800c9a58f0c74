# Sourced by the end-to-end scenarios: a sandbox root with the stand-in tool, a
# private bus, the agent as a real process, and bounded waits. Every scenario
# is driven only from outside the agent: bus clients, files and signals.
#   e2e_setup <velmo-agent> <stand-in tool>   sets $workdir $root $tooldir
#   start_agent                               sets $agent_pid; logs in $workdir
#   wait_for <seconds> <command...>           polls every 50 ms; false on time-out;
#                                             one quoted word is evaluated afresh each time
#   fail <text>                               counts a failure; finish reports them
#   settle                                    waits until the agent's CPU time stands still
set -u
failures=0
agent_pid="" bus_pid="" extra_pids="" failed_checks=""

fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
  failed_checks="$failed_checks
FAIL: $*"
}

cleanup() {
  # SIGKILL: a stop would wait for a tool run still going.
  # shellcheck disable=SC2086
  kill -KILL $agent_pid 2>/dev/null
  # shellcheck disable=SC2086
  kill $extra_pids $bus_pid 2>/dev/null
  wait 2>/dev/null
  rm -rf "$workdir"
}

e2e_setup() {
  agent="$1"
  standin="$2"
  if [ "$(id -u)" -ne 0 ]; then
    echo "note: not root; skipped"
    exit 0
  fi
  workdir=$(mktemp -d)
  trap cleanup EXIT
  source "$(dirname "${BASH_SOURCE[0]}")/../support/private-bus.sh"
  start_private_bus || exit 1
  root="$workdir/root"
  tooldir="$root/Library/Application Support/Marvenith/Velmo"
  mkdir -p "$tooldir" "$root/Library/Managed Preferences"
  cp "$standin" "$tooldir/velmo"
  export VELMO_STANDIN_RECORD="$workdir/calls.log" VELMO_STANDIN_TIMELINE="$workdir/timeline.log"
  touch "$workdir/calls.log" "$workdir/timeline.log"
}

start_agent() {
  agent_started=$(date +%s.%N)
  VELMO_ROOT="$root" VELMO_UNIFIED_LOG="$workdir/unified.log" "$agent" start \
    >"$workdir/agent.log" 2>&1 &
  agent_pid=$!
}

wait_for() {
  local limit="$1"
  shift
  local deadline=$(($(date +%s%N) + limit * 1000000000))
  local check=("$@")
  [ $# -eq 1 ] && check=(eval "$1")
  until "${check[@]}"; do
    [ "$(date +%s%N)" -lt "$deadline" ] || return 1
    sleep 0.05
  done
}

# grep_file <pattern> <file>: a fixed string is present.
has_line() { grep -qF -- "$1" "$2" 2>/dev/null; }

# Seconds from the first to the second epoch time, to two decimals.
seconds_between() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", b - a }'; }
# Whether a number lies within [low, high].
within() { awk -v x="$1" -v lo="$2" -v hi="$3" 'BEGIN { exit !(x >= lo && x <= hi) }'; }

finish() {
  # A scenario that stops the agent itself clears $agent_pid.
  [ -z "$agent_pid" ] || kill -0 "$agent_pid" 2>/dev/null || fail "the agent died"
  if [ "$failures" -ne 0 ]; then
    echo "--- agent output"; cat "$workdir/agent.log"
    echo "--- unified log"; cat "$workdir/unified.log" 2>/dev/null
    echo "--- tool calls"; cat "$workdir/timeline.log"
    # Again last, where a truncated log still shows them.
    echo "--- failed checks$failed_checks"
  fi
  exit "$failures"
}

# The bus as dbus-monitor sees it, into $workdir/monitor.log.
start_monitor() {
  dbus-monitor --address "$DBUS_SYSTEM_BUS_ADDRESS" \
    "type='signal',interface='com.marvenith.velmo.Notifications'" >"$workdir/monitor.log" 2>&1 &
  extra_pids="$extra_pids $!"
  wait_for 5 test -s "$workdir/monitor.log"
}

# post_times <name>: the bus times of each post of that notification; a name
# without a dot is short for com.marvenith.velmo.<name>.
post_times() {
  local name="$1"
  [[ "$name" == *.* ]] || name="com.marvenith.velmo.$name"
  awk -v name="\"$name\"" '
    /^signal / { split($2, t, "="); time = t[2]; post = /member=Post/; first = 1; next }
    post && first && /^ +string / { first = 0; if ($2 == name) print time }' "$workdir/monitor.log"
}

# post <short name> [object] [user info as GVariant text]
# As root's programs post: a call of the agent's Post method, which the agent
# answers once it has taken the post (through velmo-bus-post when the scenario
# has it, $VELMO_BUS_POST, and the user info is strings alone; else gdbus).
# With no agent to answer, the signal.
post() {
  local object="@as []" info="@a{sv} {}"
  local strings="^([{](['][a-zA-Z]+[']: <['][^']*[']>(, )?)*[}])?\$"
  if [ -n "${VELMO_BUS_POST:-}" ] && [[ "${3:-}" =~ $strings ]]; then
    local pairs=()
    [ -n "${3:-}" ] && read -r -a pairs <<<"$(sed -E "s/[{}]//g; s/'([^']*)': <'([^']*)'>/\1=\2/g; s/,//g" <<<"$3")"
    "$VELMO_BUS_POST" --exact "com.marvenith.velmo.$1" "${2:-}" "${pairs[@]}"
    return
  fi
  [ -n "${2:-}" ] && object="@as ['$2']"
  [ -n "${3:-}" ] && info="$3"
  gdbus call --system -d com.marvenith.velmo.Agent -o /com/marvenith/velmo \
    -m com.marvenith.velmo.Notifications.Post "'com.marvenith.velmo.$1'" "$object" "$info" \
    >/dev/null 2>&1 ||
    gdbus emit --system -o /com/marvenith/velmo -s com.marvenith.velmo.Notifications.Post \
      "'com.marvenith.velmo.$1'" "$object" "$info" >/dev/null
}

# item_json <id> [serialInstallRequired]
item_json() {
  local serial=""
  [ -n "${2:-}" ] && serial=",\"serialInstallRequired\":$2"
  printf '{"id":"%s","friendlyName":"%s","targetVersion":"2.0","installPath":"/Applications/%s.app","respectDnd":false,"respectMeetings":false%s}' \
    "$1" "$1" "$1" "$serial"
}

state_file() { echo "$root/Library/Application Support/Marvenith/Velmo/UpdateState.json"; }
# The ids in the update state file, one per line.
state_ids() { grep -o '"id": "[^"]*"' "$(state_file)" 2>/dev/null | cut -d'"' -f4; }

# manage <plist body> [domain]: an administrator's profile for a domain (the
# agent's by default), written beside and moved into place as configuration
# tools do.
manage() {
  local managed="$root/Library/Managed Preferences"
  cat >"$workdir/policy.plist" <<PLIST
<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict>$1</dict></plist>
PLIST
  cp "$workdir/policy.plist" "$managed/.policy.tmp"
  mv "$managed/.policy.tmp" "$managed/${2:-com.marvenith.velmo-agent}.plist"
}

# The agent's CPU time so far, in clock ticks.
cpu() { awk '{ print $14 + $15 }' "/proc/$agent_pid/stat"; }
settle() {  # Until the agent's CPU time stands still for a second, at most 60 s.
  local before after=-1 limit=$(($(date +%s) + 60))
  while [ "$(date +%s)" -lt "$limit" ]; do
    before=$after
    sleep 1
    after=$(cpu)
    [ "$after" = "$before" ] && return 0
  done
  fail "agent still busy after 60 s"
}

# Lines of the agent's standard output without colour codes.
agent_output() { sed 's/\x1b\[[0-9;]*m//g' "$workdir/agent.log"; }
