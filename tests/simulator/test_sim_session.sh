#!/usr/bin/env bash
# sso-sim-session from the build tree, as an application's CI uses it:
#   test_sim_session.sh run BUILD_DIR          the command runs inside, gets the
#                                              environment, its status comes back,
#                                              and nothing is left afterwards
#   test_sim_session.sh signal BUILD_DIR       SIGTERM to the session mid-command
#   test_sim_session.sh control-group BUILD_DIR on the default-deny bus, the
#                                              control group scripts the simulator,
#                                              another user does not (needs root)
#   test_sim_session.sh activation BUILD_DIR   the bus starts the simulator from
#                                              the activation file on first call
set -uo pipefail
mode=$1 build=$2
session=$build/bin/sso-sim-session
tmp=$(mktemp -d "${TMPDIR:-/tmp}/sso-sim-session-test.XXXXXX")
export TMPDIR=$tmp
# shellcheck source=../../scripts/devenv.sh
source "$build/share/sso-simulator/devenv.sh"

started=() # pids to kill should the test fail half-way
finish() {
  local status=$? pid
  for pid in "${started[@]}"; do
    sso_devenv_alive "$pid" && kill -KILL "$pid" 2>/dev/null
  done
  rm -rf "$tmp"
  exit "$status"
}
trap finish EXIT

failed=0
check() {
  echo "FAIL: $*" >&2
  failed=1
}
# The pids the session says it started (stderr in $1).
session_pids() {
  sed -n -e 's/.*bus .*(pid \([0-9]*\),.*/\1/p' \
    -e 's/.*storage service pid \([0-9]*\), simulator pid \([0-9]*\);.*/\1\n\2/p' "$1"
}
expect_gone() {
  local pid
  for pid in "$@"; do
    sso_devenv_alive "$pid" && check "process $pid still runs after the session"
  done
  [ -z "$(ls -A "$tmp" | grep sso-sim-session)" ] || check "the session left $(ls "$tmp")"
}

case $mode in
  run)
    "$session" --demo-accounts -- sh -c '
      echo "bus=$DBUS_SYSTEM_BUS_ADDRESS"
      echo "root=$SSO_PLATFORM_ROOT"
      echo "dir=$SSO_SIM_SESSION_DIR"
      sso-simulator ctl sign-in jamie.rivera@example.com || exit 90
      ssoctl status || exit 91
      sso-simulator ctl --json state || exit 92
      exit 7' > "$tmp/out" 2> "$tmp/err" < /dev/null
    status=$?
    [ "$status" -eq 7 ] || check "the session exited $status, not the command's 7"
    cat "$tmp/out" "$tmp/err"
    grep -q "^bus=unix:path=$tmp/sso-sim-session\.[^/]*/bus/" "$tmp/out" ||
      check "the command did not get the session's bus"
    grep -q "^root=$tmp/sso-sim-session\.[^/]*/root$" "$tmp/out" ||
      check "the command did not get the session's platform root"
    grep -q '^login id: jamie.rivera@example.com$' "$tmp/out" ||
      check "ssoctl inside did not see the sign-in made with the control interface"
    grep -q '"signed_in":"' "$tmp/out" || check "ctl state --json did not report the sign-in"
    grep -q '^sso-sim-session: bus .*(pid [0-9]*, strict policy)$' "$tmp/err" ||
      check "the session did not say where the bus is"
    grep -q '^sso-sim-session: platform root ' "$tmp/err" ||
      check "the session did not say where the platform root is"
    [ "$(session_pids "$tmp/err" | wc -l)" -eq 3 ] ||
      check "the session did not name the bus, the storage service and the simulator by pid"
    expect_gone $(session_pids "$tmp/err")

    "$session" -q -- true > "$tmp/out" 2> "$tmp/err"
    [ "$?" -eq 0 ] || check "a command that succeeds does not give 0"
    [ -s "$tmp/err" ] && check "--quiet printed: $(cat "$tmp/err")"
    "$session" -q -- "$tmp/no-such-program" 2> /dev/null
    [ "$?" -eq 127 ] || check "a missing command does not give 127"
    "$session" 2> "$tmp/err"
    [ "$?" -eq 2 ] || check "no command is not a usage error"
    grep -q 'no command given' "$tmp/err" || check "no message for a missing command"
    ;;
  signal)
    "$session" -- sh -c 'echo $$ > "$SSO_SIM_SESSION_DIR/../command.pid"; exec sleep 300' \
      > "$tmp/out" 2> "$tmp/err" < /dev/null &
    session_pid=$!
    started+=("$session_pid")
    sso_devenv_wait_for_line "$tmp/command.pid" 30 '^[0-9]+$' "$session_pid" ||
      { cat "$tmp/err"; check "the command did not start"; exit 1; }
    command_pid=$(cat "$tmp/command.pid")
    started+=("$command_pid" $(session_pids "$tmp/err"))
    kill -TERM "$session_pid"
    wait "$session_pid"
    status=$?
    [ "$status" -eq 143 ] || check "SIGTERM gave $status, expected 143"
    expect_gone "$command_pid" $(session_pids "$tmp/err")
    ;;
  control-group)
    if [ "$(id -u)" -ne 0 ] || ! id nobody > /dev/null 2>&1 || ! command -v setpriv > /dev/null; then
      echo "needs root, a 'nobody' user and setpriv: skipped"
      exit 77
    fi
    chmod 755 "$tmp" # the sessions' directories are inside
    as_nobody="setpriv --reuid=nobody --regid=$(id -gn nobody) --clear-groups"
    # nobody's own group may script; any user may still use the service.
    "$session" -q --control-group "$(id -gn nobody)" --demo-accounts -- sh -c "
      $as_nobody sso-simulator ctl sign-in jamie.rivera@example.com || exit 90
      $as_nobody env SSO_PLATFORM_LOG=none ssoctl alive || exit 91" > "$tmp/out" 2>&1
    status=$?
    [ "$status" -eq 0 ] || { cat "$tmp/out"; check "a member of the control group was refused ($status)"; }
    # Another group: the bus refuses nobody's control calls, and says so.
    other=$(getent group daemon > /dev/null && echo daemon || echo root)
    "$session" -q --control-group "$other" -- sh -c "
      $as_nobody sso-simulator ctl accounts; echo \"ctl=\$?\"
      $as_nobody env SSO_PLATFORM_LOG=none ssoctl alive; echo \"alive=\$?\"
      sso-simulator ctl accounts > /dev/null; echo \"own=\$?\"" > "$tmp/out" 2>&1
    cat "$tmp/out"
    grep -qx 'ctl=1' "$tmp/out" || check "a user outside the control group scripted the simulator"
    grep -q 'refused by the bus policy' "$tmp/out" || check "the refusal does not say why"
    grep -qx 'alive=0' "$tmp/out" || check "a user outside the control group cannot use the service"
    grep -qx 'own=0' "$tmp/out" || check "the session's own user cannot script the simulator"
    ;;
  activation)
    # The installed file names the installed simulator; here the build's.
    mkdir -p "$tmp/services"
    sed "s|^Exec=.*/sso-simulator run|Exec=$build/bin/sso-simulator run|" \
      "$build/share/dbus-1/system-services/org.orvex.tv.ssoservice.server.service" \
      > "$tmp/services/org.orvex.tv.ssoservice.server.service"
    grep -q '^Name=org.orvex.tv.ssoservice.server$' "$tmp/services/"*.service ||
      check "the activation file names another service"
    # What the bus starts inherits the bus's environment: its own address
    # (on a machine's system bus the default one) and the platform root.
    export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$tmp/env/bus/system_bus_socket \
      SSO_PLATFORM_ROOT=$tmp/env/root SSO_PLATFORM_LOG=none
    SSO_DEVENV_SERVICE_DIR=$tmp/services sso_devenv_bus_up "$tmp/env" || { check "no bus"; exit 1; }
    bus_pid=$SSO_DEVENV_BUS_PID
    started+=("$bus_pid")
    # The simulator publishes into the platform's storage service, which runs
    # before it (on a device: sso-storaged.service, which its unit requires).
    sso_devenv_storage_up "$build/bin" || { check "no storage service"; exit 1; }
    storage_pid=$SSO_DEVENV_STORAGE_PID
    started+=("$storage_pid")
    # The first call to the service starts it.
    timeout 30 gdbus call --system --dest org.orvex.tv.ssoservice.server \
      --object-path /org/orvex/tv/ssoservice/server --method org.freedesktop.DBus.Peer.Ping \
      > /dev/null || check "the call did not start the simulator"
    sim_pid=$(gdbus call --system --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus \
      --method org.freedesktop.DBus.GetConnectionUnixProcessID org.orvex.tv.ssoservice.server |
      grep -Eo '[0-9]+' | tail -n 1)
    [ -n "$sim_pid" ] && started+=("$sim_pid")
    [ -n "$sim_pid" ] && grep -q "sso-simulator" "/proc/$sim_pid/cmdline" ||
      check "the service's name is not owned by the simulator"
    "$build/bin/sso-simulator" ctl state > /dev/null || check "the activated simulator does not answer"
    sso_devenv_stop_pid "$sim_pid"
    sso_devenv_stop_pid "$storage_pid"
    sso_devenv_stop_pid "$bus_pid"
    ;;
  *)
    echo "usage: $0 run|signal|control-group|activation BUILD_DIR" >&2
    exit 2
    ;;
esac
exit "$failed"
