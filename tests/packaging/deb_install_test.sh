#!/usr/bin/env bash
# Installs the built package for real with apt, checks that the agent and its
# manual page are where they belong, then removes and purges it and checks
# that nothing it installed or wrote is left. Needs root and apt; skipped
# elsewhere, and where velmo-agent is already installed (it is someone's).
# The maintainer scripts must pass where systemd is not running (a container).
# Usage: deb_install_test.sh <cpack> <build folder>
set -u
[ "$(id -u)" -eq 0 ] || { echo "SKIP: not root"; exit 0; }
command -v apt-get >/dev/null && command -v dpkg >/dev/null || { echo "SKIP: no apt"; exit 0; }
if dpkg-query -W -f='${Status}' velmo-agent 2>/dev/null | grep -q 'installed\|config-files'; then
  echo "SKIP: velmo-agent is already installed here"
  exit 0
fi
cpack=$1 build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

"$cpack" -G DEB --config "$build/CPackConfig.cmake" -B "$work/out" >"$work/cpack.log" 2>&1 ||
  { cat "$work/cpack.log"; echo "FAIL: cpack"; exit 1; }
deb=$(echo "$work"/out/*.deb)
dpkg-deb -c "$deb"

export DEBIAN_FRONTEND=noninteractive
apt-get install -y --no-install-recommends "$deb" || { echo "FAIL: apt-get install"; exit 1; }
dpkg-query -L velmo-agent >"$work/files"
velmo-agent --version || fail "velmo-agent --version"
page=$(man -w velmo-agent 2>&1) || fail "man -w velmo-agent: $page"
[ "$page" = /usr/share/man/man8/velmo-agent.8.gz ] || fail "man finds '$page'"
man velmo-agent 2>/dev/null | head -12
[ -L /etc/systemd/system/multi-user.target.wants/velmo-agent.service ] ||
  fail "the unit is not enabled"

apt-get remove -y velmo-agent || fail "apt-get remove"
apt-get purge -y velmo-agent || fail "apt-get purge"
dpkg-query -W velmo-agent 2>/dev/null | grep . && fail "dpkg still knows the package"
# Every file the package held is gone (folders may be shared with others).
while read -r path; do
  [ -d "$path" ] && [ ! -L "$path" ] && continue
  [ -e "$path" ] || [ -L "$path" ] && fail "left behind: $path"
done <"$work/files"
for path in /etc/systemd/system/multi-user.target.wants/velmo-agent.service \
  /var/lib/systemd/deb-systemd-helper-enabled/velmo-agent.service.dsh-also \
  /var/lib/systemd/deb-systemd-helper-enabled/multi-user.target.wants/velmo-agent.service \
  /var/log/marvenith-velmo.log; do
  [ -e "$path" ] || [ -L "$path" ] && fail "left behind: $path"
done
exit "$failures"
