#!/usr/bin/env bash
# The real executable end to end: the two checks with their messages and
# statuses, and an agent that stays up as root and logs in its own format.
# Usage: cli_test.sh <velmo-agent> <stand-in tool>
set -u
agent="$1"
standin="$2"
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

root=$(mktemp -d)
trap 'rm -rf "$root"; [ -n "${pid:-}" ] && kill -9 "$pid" 2>/dev/null' EXIT
tool="$root/Library/Application Support/Marvenith/Velmo/velmo"

expect_exit() {  # expect_exit <status> <stderr> <description> -- command...
  local want_status="$1" want_err="$2" what="$3"
  shift 4
  local err status
  err=$("$@" 2>&1 >/dev/null)
  status=$?
  [ "$status" -eq "$want_status" ] || fail "$what: status $status, expected $want_status"
  [ "$err" = "$want_err" ] || fail "$what: stderr [$err], expected [$want_err]"
}

missing="Error: Velmo command line tool does not exist at: $tool."
expect_exit 3 "$missing" "start without tool" -- env VELMO_ROOT="$root" "$agent" start
expect_exit 3 "$missing" "no argument without tool" -- env VELMO_ROOT="$root" "$agent"
if command -v setpriv >/dev/null && [ "$(id -u)" -eq 0 ]; then
  expect_exit 3 "$missing" "non-root without tool" -- \
    setpriv --reuid=65534 --regid=65534 --clear-groups env VELMO_ROOT="$root" "$agent" start
fi

mkdir -p "$(dirname "$tool")"
cp "$standin" "$tool"
chmod 755 "$root" "$root/Library" "$root/Library/Application Support" \
  "$root/Library/Application Support/Marvenith" "$(dirname "$tool")"

if command -v setpriv >/dev/null && [ "$(id -u)" -eq 0 ]; then
  expect_exit 2 "Error: Velmo Agent must be run as root." "non-root with tool" -- \
    setpriv --reuid=65534 --regid=65534 --clear-groups env VELMO_ROOT="$root" "$agent" start
else
  echo "note: not root or no setpriv; the non-root check was skipped"
fi

env VELMO_ROOT="$root" "$agent" start extra >/dev/null 2>&1 && fail "extra argument accepted"
env VELMO_ROOT="$root" "$agent" --bogus >/dev/null 2>&1 && fail "unknown option accepted"
version=$(env VELMO_ROOT="$root" "$agent" --version)
[[ "$version" =~ ^[0-9]+\.[0-9]+\.[0-9]+\.[0-9A-Za-z]+$ ]] || fail "version [$version]"

if [ "$(id -u)" -eq 0 ]; then
  for args in "start" ""; do
    out="$root/stdout.log"
    env VELMO_ROOT="$root" VELMO_UNIFIED_LOG="$root/unified.log" \
      DBUS_SYSTEM_BUS_ADDRESS="unix:path=$root/no-bus" "$agent" $args >"$out" 2>&1 &
    pid=$!
    for _ in $(seq 50); do grep -q "starting" "$out" 2>/dev/null && break; sleep 0.1; done
    sleep 1.5
    kill -0 "$pid" 2>/dev/null || fail "agent [$args] did not stay up"
    grep -q $'^\e\[0m[0-9-]\{10\}T[0-9:]\{8\}Z  Velmo Agent .* starting; tool at '"$tool"$'\e\[0m$' "$out" ||
      fail "agent [$args] start line: $(cat -v "$out")"
    grep -q "info \[com.marvenith.velmo-agent:StartCommand\] Velmo Agent" "$root/unified.log" ||
      fail "agent [$args] unified log: $(cat "$root/unified.log")"
    kill "$pid"
    wait "$pid" 2>/dev/null
    pid=""
    rm -f "$root/unified.log"
  done
else
  echo "note: not root; the stay-up check was skipped"
fi

[ "$failures" -eq 0 ] && echo "all agent CLI checks passed"
exit "$failures"
