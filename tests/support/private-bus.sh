# Sourced by shell tests and the demo: starts a private dbus-daemon standing in
# for the system bus and exports its address. Needs $workdir; sets $bus_pid.
# $VELMO_TEST_BUS_CONFIG names another configuration in dbus/ than test-bus.conf.
start_private_bus() {
  local config
  config="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)/dbus/${VELMO_TEST_BUS_CONFIG:-test-bus.conf}"
  export DBUS_SYSTEM_BUS_ADDRESS="unix:path=$workdir/bus"
  dbus-daemon --config-file="$config" --address="$DBUS_SYSTEM_BUS_ADDRESS" \
    --nofork --nopidfile 2>/dev/null &
  bus_pid=$!
  for _ in $(seq 100); do [ -S "$workdir/bus" ] && return 0; sleep 0.05; done
  echo "private bus did not start" >&2
  return 1
}
