# shellcheck shell=bash
# The device's default set-up on a development machine, all under one
# directory, nothing of it on the real system bus, /etc or /opt:
#   DIR/bus       a private system bus (dbus-daemon: config, socket, pid)
#   DIR/root      a fresh platform root
#   DIR/log       the platform log of every process started with it
#   the platform's storage service (sso-storaged) for that root, the SSO
#   service simulator with the three demo accounts, and the account UI test
#   application registered under the three account UI ids.
#
# Sourced by scripts/demo, or by hand (BIN is a build tree's bin directory):
#   source scripts/devenv.sh
#   sso_devenv_up DIR BIN [LOGIN_ID] # everything above; the sign-in page signs
#                                    # LOGIN_ID in (jamie.rivera@example.com)
#   ...
#   sso_devenv_down                  # stops the simulator, the storage service
#                                    # and the bus, by pid
#
# SSO_DEVENV_BUS_POLICY=strict makes the bus deny by default, as a
# distribution's system bus does, and read the project's shipped policy from
# SSO_DEVENV_POLICY_DIR (the service's account in it replaced by the user
# running this, who runs the simulator; its control group replaced by
# SSO_DEVENV_CONTROL_GROUP when set). The default, open, allows everything.
#
# The pieces, in order, for callers that show each one: sso_devenv_bus_up DIR,
# sso_devenv_storage_up BIN, sso_devenv_simulator_up BIN [OPTIONS...] (which
# starts the storage service itself when it is not up),
# sso_devenv_account_ui_up BIN [LOGIN_ID]. With SSO_DEVENV_VERBOSE=1 each command is printed as "$ ..."
# before it runs (between SSO_DEVENV_BOLD and SSO_DEVENV_PLAIN, if set).

# The three account UI application ids the library launches.
SSO_DEVENV_ACCOUNT_UI_IDS="com.veltra.tv.CSAccount com.veltra.tv.CSAccountPIN QHVMP48x7k.WebAccountExtension"

# With SSO_DEVENV_VERBOSE=1, prints the words as a command line "$ ...",
# quoted where the shell needs it, redirections and "&" as they are.
sso_devenv_show() {
  [ "${SSO_DEVENV_VERBOSE:-0}" = 1 ] || return 0
  local line="" arg
  for arg in "$@"; do
    case $arg in
      "&" | ">" | [0-9]">"*) ;;
      "" | *[!A-Za-z0-9_./:=@%+,-]*) arg="'${arg//\'/\'\\\'\'}'" ;;
    esac
    line+="${line:+ }$arg"
  done
  printf '%s$ %s%s\n' "${SSO_DEVENV_BOLD:-}" "$line" "${SSO_DEVENV_PLAIN:-}"
}

# Whether the process $1 runs (a zombie does not).
sso_devenv_alive() {
  local stat
  [[ $1 =~ ^[0-9]+$ ]] || return 1
  { read -r stat < "/proc/$1/stat"; } 2>/dev/null || return 1
  stat=${stat##*) }
  [ -n "$stat" ] && [ "${stat:0:1}" != Z ]
}

# Waits up to $2 seconds for the file $1 to hold a line matching $3 while the
# process $4 (optional) lives. Status 0 when it came.
sso_devenv_wait_for_line() {
  local file=$1 seconds=$2 pattern=$3 pid=${4:-} i
  for ((i = 0; i < seconds * 50; i++)); do
    grep -Eq -- "$pattern" "$file" 2>/dev/null && return 0
    if [ -n "$pid" ] && ! sso_devenv_alive "$pid"; then
      grep -Eq -- "$pattern" "$file" 2>/dev/null
      return
    fi
    sleep 0.02
  done
  return 1
}

# The policy of a strict bus: default deny, then the shipped files copied
# into DIR/bus/system.d with the service's account made the current user.
sso_devenv_strict_policy() {
  local dir=$1 src=${SSO_DEVENV_POLICY_DIR:-} me file service group copied=0
  me=$(id -un) || return 1
  [ -d "$src" ] || { echo "devenv: no policy directory '$src' (SSO_DEVENV_POLICY_DIR)" >&2; return 1; }
  mkdir -p "$dir/bus/system.d" || return 1
  for file in "$src"/org.orvex.tv.ssoservice.*.conf; do
    [ -f "$file" ] || continue
    service=$(sed -n 's/.*<policy user="\([^"]*\)">.*/\1/p' "$file" | head -n 1)
    group=$(sed -n 's/.*<policy group="\([^"]*\)">.*/\1/p' "$file" | head -n 1)
    sed -e "${service:+s/user=\"$service\"/user=\"$me\"/g}" \
      -e "${group:+${SSO_DEVENV_CONTROL_GROUP:+s/group=\"$group\"/group=\"$SSO_DEVENV_CONTROL_GROUP\"/g}}" \
      "$file" > "$dir/bus/system.d/${file##*/}" || return 1
    copied=$((copied + 1))
  done
  [ "$copied" -gt 0 ] || { echo "devenv: no policy files in $src" >&2; return 1; }
  cat <<POLICY
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"/>
    <allow send_destination="org.freedesktop.DBus"
           send_interface="org.freedesktop.DBus.Introspectable"/>
    <deny send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"
          send_member="UpdateActivationEnvironment"/>
  </policy>
  <includedir>$dir/bus/system.d</includedir>
POLICY
}

# A private system bus and a fresh platform root under DIR. Exports
# DBUS_SYSTEM_BUS_ADDRESS, SSO_PLATFORM_ROOT and, unless already set,
# SSO_PLATFORM_LOG (a file under DIR/log); sets SSO_DEVENV_BUS_PID.
sso_devenv_bus_up() {
  local dir=$1 out policy
  SSO_DEVENV_DIR=$dir
  mkdir -p "$dir/root" "$dir/bus" "$dir/log" || return 1
  case ${SSO_DEVENV_BUS_POLICY:-open} in
    strict) policy=$(sso_devenv_strict_policy "$dir") || return 1 ;;
    open)
      policy='  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_type="method_return"/>
    <allow send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="signal"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
  </policy>'
      ;;
    *)
      echo "devenv: SSO_DEVENV_BUS_POLICY must be open or strict" >&2
      return 1
      ;;
  esac
  # SSO_DEVENV_SERVICE_DIR: activation files the bus starts services from.
  cat > "$dir/bus/system.conf" <<CONF
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=$dir/bus/system_bus_socket</listen>
  <auth>EXTERNAL</auth>
${SSO_DEVENV_SERVICE_DIR:+  <servicedir>$SSO_DEVENV_SERVICE_DIR</servicedir>}
$policy
</busconfig>
CONF
  sso_devenv_show dbus-daemon --config-file="$dir/bus/system.conf" --fork --print-address=1 \
    --print-pid=3 3\>"$dir/bus/pid"
  # With --fork the daemon returns once it listens: no polling needed. The
  # daemon writes its pid to the file itself, so a clean-up that interrupts
  # this finds it there (sso_devenv_down).
  # Its warnings (a policy group this machine does not have) go to its log.
  out=$(dbus-daemon --config-file="$dir/bus/system.conf" --fork --print-address=1 \
    --print-pid=3 3> "$dir/bus/pid" 2>> "$dir/log/bus.err") || { cat "$dir/log/bus.err" >&2; return 1; }
  SSO_DEVENV_BUS_PID=$(cat "$dir/bus/pid")
  [ -n "$SSO_DEVENV_BUS_PID" ] && [ -n "$out" ] || return 1
  export DBUS_SYSTEM_BUS_ADDRESS=$out
  export SSO_PLATFORM_ROOT="$dir/root"
  export SSO_PLATFORM_LOG=${SSO_PLATFORM_LOG:-file:$dir/log/platform.log}
}

# Starts the platform's storage service, `sso-storaged`, for the platform root
# in the background (unless it runs) and waits for its "ready". It keeps the
# secure-storage items and serves them by user: here everything runs as one
# user, which is the SSO service's. Sets SSO_DEVENV_STORAGE_PID; its output
# goes to DIR/log/storage.out and .err.
sso_devenv_storage_up() {
  local bin=$1 dir=$SSO_DEVENV_DIR
  sso_devenv_alive "${SSO_DEVENV_STORAGE_PID:-}" && return 0
  sso_devenv_show sso-storaged '>' "$dir/log/storage.out" 2\>"$dir/log/storage.err" '&'
  "$bin/sso-storaged" > "$dir/log/storage.out" 2> "$dir/log/storage.err" < /dev/null &
  SSO_DEVENV_STORAGE_PID=$!
  echo "$SSO_DEVENV_STORAGE_PID" > "$dir/storage.pid"
  sso_devenv_wait_for_line "$dir/log/storage.out" "${SSO_DEVENV_START_TIMEOUT:-30}" '^ready$' \
    "$SSO_DEVENV_STORAGE_PID"
}

# Starts `sso-simulator run --demo-accounts [OPTIONS...]` in the background and
# waits for its "ready", after the storage service it publishes the accounts
# in. Sets SSO_DEVENV_SIM_PID; its output goes to DIR/log/simulator.out and
# .err.
sso_devenv_simulator_up() {
  local bin=$1 dir=$SSO_DEVENV_DIR
  shift
  sso_devenv_storage_up "$bin" || return 1
  sso_devenv_show sso-simulator run --demo-accounts "$@" '>' "$dir/log/simulator.out" \
    2\>"$dir/log/simulator.err" '&'
  "$bin/sso-simulator" run --demo-accounts "$@" > "$dir/log/simulator.out" \
    2> "$dir/log/simulator.err" < /dev/null &
  SSO_DEVENV_SIM_PID=$!
  echo "$SSO_DEVENV_SIM_PID" > "$dir/simulator.pid"
  sso_devenv_wait_for_line "$dir/log/simulator.out" "${SSO_DEVENV_START_TIMEOUT:-30}" '^ready$' \
    "$SSO_DEVENV_SIM_PID"
}

# Registers sso-account-ui-test as the three account UI applications. With
# LOGIN_ID, the account pages sign that account in through the simulator
# before they close, as a user would on the device.
sso_devenv_account_ui_up() {
  local bin=$1 login_id=${2:-} id
  for id in $SSO_DEVENV_ACCOUNT_UI_IDS; do
    sso_devenv_show sso-platform app add "$id" --exec "$bin/sso-account-ui-test"
    "$bin/sso-platform" app add "$id" --exec "$bin/sso-account-ui-test" || return 1
  done
  if [ -n "$login_id" ]; then
    mkdir -p "$SSO_PLATFORM_ROOT/run/sso-account-ui" || return 1
    printf '# What the account page does when it opens.\nsign_in=%s\n' "$login_id" \
      > "$SSO_PLATFORM_ROOT/run/sso-account-ui/com.veltra.tv.CSAccount.script" || return 1
  fi
}

sso_devenv_up() {
  sso_devenv_bus_up "$1" && sso_devenv_simulator_up "$2" &&
    sso_devenv_account_ui_up "$2" "${3:-jamie.rivera@example.com}"
}

# Sends SIGTERM to the pid $1, then SIGKILL if it still lives after $2
# seconds; waits for it (reaped when it is our child).
sso_devenv_stop_pid() {
  local pid=$1 seconds=${2:-5} i
  [ -n "$pid" ] || return 0
  if kill "$pid" 2>/dev/null; then
    for ((i = 0; i < seconds * 50; i++)); do
      sso_devenv_alive "$pid" || break
      sleep 0.02
    done
    if sso_devenv_alive "$pid"; then
      kill -KILL "$pid" 2>/dev/null
      for ((i = 0; i < 100; i++)); do
        sso_devenv_alive "$pid" || break
        sleep 0.02
      done
    fi
  fi
  wait "$pid" 2>/dev/null || true # 127 when it is not our child
  return 0
}

# The pid of the bus: as recorded, else from its pid file (a start that was
# interrupted after the daemon wrote it).
sso_devenv_bus_pid() {
  if [ -n "${SSO_DEVENV_BUS_PID:-}" ]; then
    echo "$SSO_DEVENV_BUS_PID"
  elif [ -n "${SSO_DEVENV_DIR:-}" ] && [ -s "$SSO_DEVENV_DIR/bus/pid" ]; then
    head -n 1 "$SSO_DEVENV_DIR/bus/pid"
  fi
}

# Stops the simulator, the storage service, then the bus. The directory stays;
# remove it yourself.
sso_devenv_down() {
  sso_devenv_stop_pid "${SSO_DEVENV_SIM_PID:-}"
  SSO_DEVENV_SIM_PID=
  sso_devenv_stop_pid "${SSO_DEVENV_STORAGE_PID:-}"
  SSO_DEVENV_STORAGE_PID=
  sso_devenv_stop_pid "$(sso_devenv_bus_pid)"
  SSO_DEVENV_BUS_PID=
}
