# Sourced by the demo and by hand: a private system bus and a platform root,
# so nothing touches the real system bus, /etc or /opt.
#   source scripts/devenv.sh; sso_devenv_up DIR; ...; sso_devenv_down
sso_devenv_up() {
  local dir=$1
  mkdir -p "$dir/root" "$dir/bus"
  cat > "$dir/bus/system.conf" <<CONF
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=$dir/bus/system_bus_socket</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
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
  </policy>
</busconfig>
CONF
  local out
  out=$(dbus-daemon --config-file="$dir/bus/system.conf" --fork --print-address=1 --print-pid=1)
  export DBUS_SYSTEM_BUS_ADDRESS=$(echo "$out" | sed -n 1p)
  SSO_DEVENV_BUS_PID=$(echo "$out" | sed -n 2p)
  echo "$SSO_DEVENV_BUS_PID" > "$dir/bus/pid"
  export SSO_PLATFORM_ROOT="$dir/root"
  SSO_DEVENV_DIR=$dir
}

sso_devenv_down() {
  if [ -n "${SSO_DEVENV_BUS_PID:-}" ]; then
    kill "$SSO_DEVENV_BUS_PID" 2>/dev/null || true
    SSO_DEVENV_BUS_PID=
  fi
}
