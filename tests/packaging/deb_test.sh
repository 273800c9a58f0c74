#!/usr/bin/env bash
# `cpack -G DEB` on the build folder: the package's name and control fields,
# files owned by root, a unit that starts the packaged agent as root, appends
# its output to the log file and restarts it on failure, the bus policy, and
# maintainer scripts that survive every helper failing (a chroot, a container)
# while still enabling the unit and purging its state; Debian's documents, the
# manual page, and lintian's verdict (any error or warning fails).
# Usage: deb_test.sh <cpack> <build folder>
set -u
command -v dpkg-deb >/dev/null || {
  echo "SKIP: no dpkg-deb"
  exit 0
}
cpack=$1 build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

if ! "$cpack" -G DEB --config "$build/CPackConfig.cmake" -B "$work/out" >"$work/cpack.log" 2>&1; then
  cat "$work/cpack.log"
  echo "FAIL: cpack"
  exit 1
fi
debs=("$work"/out/*.deb)
if [ ${#debs[@]} -ne 1 ] || [ ! -f "${debs[0]}" ]; then
  echo "FAIL: not one .deb: ${debs[*]}"
  exit 1
fi
deb=${debs[0]}

version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
arch=$(dpkg --print-architecture)
[ "$(basename "$deb")" = "velmo-agent_${version}-1_${arch}.deb" ] || fail "file name $(basename "$deb")"

dpkg-deb -I "$deb"
dpkg-deb -c "$deb" | tee "$work/contents"
field() { dpkg-deb -f "$deb" "$1"; }
[ "$(field Package)" = velmo-agent ] || fail "Package $(field Package)"
[ "$(field Version)" = "$version-1" ] || fail "Version $(field Version)"
[ "$(field Architecture)" = "$arch" ] || fail "Architecture $(field Architecture)"
for dep in libsystemd0 libicu libplist libc6 dbus systemd; do
  field Depends | grep -q "\b$dep" || fail "Depends lacks $dep"
done
awk '$2 != "root/root"' "$work/contents" | grep . && fail "files not owned by root"

root="$work/root"
dpkg-deb -x "$deb" "$root"
unit=$(find "$root"/lib/systemd/system "$root"/usr/lib/systemd/system -name velmo-agent.service 2>/dev/null)
[ -n "$unit" ] || fail "no unit where systemd looks"
exec=$(sed -n 's/^ExecStart=\([^ ]*\) start$/\1/p' "$unit")
[ "$exec" = /usr/bin/velmo-agent ] || fail "ExecStart '$exec' is not /usr/bin/velmo-agent"
[ -x "$root/usr/bin/velmo-agent" ] || fail "no executable agent in /usr/bin"
for line in User=root Restart=on-failure "StandardOutput=append:/var/log/marvenith-velmo.log" \
  Type=notify KillMode=mixed TimeoutStopSec=31min LimitNOFILE=65536; do
  grep -qxF "$line" "$unit" || fail "unit lacks $line"
done
# systemd's own check, with the agent where the unit names it.
if command -v systemd-analyze >/dev/null; then
  sed "s|^ExecStart=/usr/bin/velmo-agent|ExecStart=$root/usr/bin/velmo-agent|" "$unit" \
    >"$work/velmo-agent.service"
  # verify also looks for the page that Documentation= names.
  verify=$(MANPATH="$root/usr/share/man" systemd-analyze verify "$work/velmo-agent.service" 2>&1) || fail "systemd-analyze verify: $verify"
  [ -z "$verify" ] || fail "systemd-analyze verify says: $verify"
fi
[ -f "$root/usr/share/dbus-1/system.d/com.marvenith.velmo.conf" ] || fail "no bus policy"
# Installed files get fixed modes, whatever the checkout's umask gave them.
[ "$(stat -c %a "$unit")" = 644 ] || fail "unit mode $(stat -c %a "$unit")"
grep -qxF "Documentation=man:velmo-agent(8)" "$unit" || fail "unit names no manual page"

doc="$root/usr/share/doc/velmo-agent"
head -1 "$doc/copyright" | grep -q "^Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/" ||
  fail "copyright is not machine-readable"
top=$(zcat "$doc/changelog.Debian.gz" | head -1)
[ "$top" = "velmo-agent ($(field Version)) unstable; urgency=medium" ] || fail "changelog starts '$top'"
page="$root/usr/share/man/man8/velmo-agent.8.gz"
if [ -f "$page" ]; then
  # The key section comes from the agent's own table: every key it prints is there.
  for key in $("$build/agent/velmo-agent" schema | python3 -c 'import json,sys; print(*json.load(sys.stdin)["properties"])'); do
    zcat "$page" | grep -q "$key" || fail "manual page lacks $key"
  done
  zcat "$page" | grep -q '^\.TH "velmo-agent" "8"' || fail "manual page has no title line"
else
  fail "no manual page"
fi
for file in "$doc/changelog.Debian.gz" "$page"; do
  [ "$(od -An -tu4 -j4 -N4 "$file" | tr -d ' ')" = 0 ] || fail "$file keeps a time stamp"
done

if command -v lintian >/dev/null; then
  lintian --tag-display-limit 0 --display-info --pedantic "$deb" | tee "$work/lintian" || true
  grep -E '^(E|W): ' "$work/lintian" && fail "lintian reports errors or warnings"
else
  echo "note: no lintian; its check skipped"
fi

# Each script once with helpers that succeed and once with helpers that fail,
# stubbed on PATH so that nothing touches the machine running the test.
ctl="$work/control"
dpkg-deb -e "$deb" "$ctl"
for script in postinst prerm postrm; do
  [ "$(stat -c %a "$ctl/$script" 2>/dev/null)" = 755 ] || fail "no $script with mode 0755"
done
mkdir "$work/stubs"
cat >"$work/stubs/helper" <<'STUB'
#!/bin/sh
echo "${0##*/} $*" >>"$STUB_LOG"
exit "$STUB_STATUS"
STUB
chmod +x "$work/stubs/helper"
for helper in deb-systemd-helper deb-systemd-invoke systemctl dbus-send; do
  ln -s helper "$work/stubs/$helper"
done
export STUB_LOG="$work/calls"
# Purging removes the agent's own files, found under VELMO_ROOT.
export VELMO_ROOT="$work/machine"
support="$VELMO_ROOT/Library/Application Support/Marvenith/Velmo"
mkdir -p "$support" "$VELMO_ROOT/var/log" "$VELMO_ROOT/Library/Preferences"
touch "$support/UpdateState.json" "$support/InventoryReport.plist.tmp" \
  "$VELMO_ROOT/var/log/marvenith-velmo.log" "$VELMO_ROOT/Library/Preferences/com.marvenith.velmo.deferrals.json"
echo '<plist/>' >"$VELMO_ROOT/Library/Preferences/com.marvenith.velmo-agent.plist"
for status in 0 1; do
  for run in "postinst configure" "prerm remove" "postrm remove" "postrm purge"; do
    read -r script action <<<"$run"
    STUB_STATUS=$status PATH="$work/stubs:$PATH" "$ctl/$script" "$action" ||
      fail "$run exits $? when the helpers exit $status"
  done
done
grep -qxF "deb-systemd-helper enable velmo-agent.service" "$work/calls" || fail "postinst does not enable"
grep -qxF "deb-systemd-helper purge velmo-agent.service" "$work/calls" || fail "postrm purge does not purge"
left=$(find "$VELMO_ROOT" -type f -printf '%P\n')
[ "$left" = Library/Preferences/com.marvenith.velmo-agent.plist ] || fail "after purge: $left"
for script in postinst postrm; do
  grep -q "systemctl --system daemon-reload" "$ctl/$script" || fail "$script: no daemon-reload"
  grep -q "ReloadConfig" "$ctl/$script" || fail "$script does not reload the bus"
done
grep -q "deb-systemd-invoke stop" "$ctl/prerm" || fail "prerm does not stop"
exit "$failures"
