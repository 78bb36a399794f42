#!/usr/bin/env bash
# Installs the build tree into a temporary prefix, checks that every file lands
# where the README says, then builds applications against the installed tree
# alone, through pkg-config and through find_package(sso_api): a tiny C
# program and the two examples. Last, the examples run against the installed
# simulator on a private bus.
#   test_install.sh BUILD_DIR DIR_OF_THIS_SCRIPT
set -euo pipefail
build_dir=$1
source_dir=$2
project_dir=$(cd "$source_dir/../.." && pwd)
work=$(mktemp -d)
# shellcheck source=../../scripts/devenv.sh
source "$project_dir/scripts/devenv.sh"
pid=
cleanup() {
  [ -z "$pid" ] || kill "$pid" 2>/dev/null || true
  sso_devenv_down >/dev/null 2>&1 || true
  rm -rf "$work"
}
trap cleanup EXIT

fail() {
  echo "FAIL: $*"
  exit 1
}

prefix=$work/prefix
cmake --install "$build_dir" --prefix "$prefix" >/dev/null
libdir=$(find "$prefix" -name 'libsso_api.so.1' -printf '%h\n' | head -n1)
[ -n "$libdir" ] || fail "libsso_api.so.1 not installed"

# ---- the layout
expected=(
  "$libdir/libsso_api.so.1.0.0" "$libdir/libsso_api.so.1" "$libdir/libsso_api.so"
  "$prefix/include/sso_api/sso_api.h" "$prefix/include/sso_api/sso_api_service_data.hpp"
  "$libdir/pkgconfig/sso_api.pc"
  "$libdir/cmake/sso_api/sso_apiConfig.cmake" "$libdir/cmake/sso_api/sso_apiConfigVersion.cmake"
  "$libdir/cmake/sso_api/sso_apiTargets.cmake"
  "$prefix/bin/ssoctl" "$prefix/bin/sso-platform" "$prefix/bin/sso-simulator"
  "$prefix/bin/sso-account-ui-test" "$prefix/bin/sso-storaged"
  "$prefix/share/dbus-1/interfaces/org.orvex.tv.ssoservice.server.xml"
  "$prefix/share/dbus-1/interfaces/org.orvex.tv.ssoservice.ssoclient.xml"
)
# The platform libraries the library links, with the headers it uses.
for lib in dlog devfs app-common cynara-creds-gdbus vconf secure-storage system-info \
           app-control package-manager; do
  expected+=("$libdir/libsso-$lib.so.1" "$libdir/libsso-$lib.so")
done
for h in dlog.h devfs.h app_common.h cynara-creds-gdbus.h vconf.h ss_manager.h system_info.h \
         app_control.h package_manager.h; do
  expected+=("$prefix/include/sso-platform/$h")
done
# The D-Bus system-bus policy (data/dbus/), where the system bus reads package
# policy.
expected+=("$prefix/share/dbus-1/system.d/org.orvex.tv.ssoservice.server.conf"
           "$prefix/share/dbus-1/system.d/org.orvex.tv.ssoservice.ssoclient.conf")
for f in "${expected[@]}"; do
  [ -e "$f" ] || fail "missing after install: ${f#"$prefix"/}"
done
readelf -d "$libdir/libsso_api.so.1" | grep -q 'Library soname: \[libsso_api.so.1\]' ||
  fail "libsso_api.so.1 has the wrong SONAME"
# Applications do not map libcrypto for the library: it loads it on the first
# caller fingerprint, and the secure-storage client needs none.
for lib in "$libdir/libsso_api.so.1" "$libdir/libsso-secure-storage.so.1"; do
  ! readelf -d "$lib" | grep -q 'NEEDED.*libcrypto' || fail "${lib##*/} links libcrypto"
done
echo "layout: ${#expected[@]} files where expected"

# ---- pkg-config
export PKG_CONFIG_PATH="$libdir/pkgconfig"
mkdir -p "$work/pc"
cc -std=c99 -Wall -Wextra -Werror -pedantic "$source_dir/consumer/consumer.c" \
   $(pkg-config --cflags --libs sso_api) -o "$work/pc/consumer"
cc -std=c99 -Wall -Wextra -Werror -pedantic "$project_dir/examples/c/hello_sso.c" \
   $(pkg-config --cflags --libs sso_api) -o "$work/pc/hello_sso"
c++ -std=c++17 -Wall -Wextra -Werror "$project_dir/examples/cpp/token_watch.cpp" \
   $(pkg-config --cflags --libs sso_api glib-2.0) -o "$work/pc/token_watch"
out=$(SSO_PLATFORM_LOG=none LD_LIBRARY_PATH="$libdir" "$work/pc/consumer")
echo "pkg-config consumer: $out"
[ "$out" = "login_info_size=1536 term_state=-1 state=0" ] || fail "pkg-config consumer"

# ---- find_package
cmake -S "$source_dir/consumer" -B "$work/consumer-build" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_C_FLAGS="-Wall -Wextra -Werror" >/dev/null
cmake --build "$work/consumer-build" >/dev/null
out=$(SSO_PLATFORM_LOG=none "$work/consumer-build/consumer")
echo "find_package consumer: $out"
[ "$out" = "login_info_size=1536 term_state=-1 state=0" ] || fail "find_package consumer"
cmake -S "$project_dir/examples" -B "$work/examples-build" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_C_FLAGS="-Wall -Wextra -Werror" -DCMAKE_CXX_FLAGS="-Wall -Wextra -Werror" >/dev/null
cmake --build "$work/examples-build" >/dev/null
echo "find_package examples: built"

# ---- the examples against the installed simulator, on a private bus
export SSO_PLATFORM_LOG=none
sso_devenv_bus_up "$work/env" || fail "no private bus"
sso_devenv_simulator_up "$prefix/bin" || fail "the installed simulator did not start"
"$prefix/bin/sso-simulator" ctl sign-in jamie.rivera@example.com >/dev/null
out=$(LD_LIBRARY_PATH="$libdir" timeout 30 "$work/pc/hello_sso")
echo "$out" | sed 's/^/  hello_sso (pkg-config): /'
grep -qx "signed in as: jamie.rivera@example.com" <<<"$out" || fail "hello_sso (pkg-config)"
out=$(timeout 30 "$work/examples-build/hello_sso")
grep -qx "signed in as: jamie.rivera@example.com" <<<"$out" || fail "hello_sso (find_package)"
for build in pc examples-build; do
  if [ "$build" = pc ]; then export LD_LIBRARY_PATH=$libdir; else unset LD_LIBRARY_PATH; fi
  log=$work/token_watch-$build.out
  "$work/$build/token_watch" --timeout 30 > "$log" &
  pid=$!
  sso_devenv_wait_for_line "$log" 30 "^access token" "$pid" || true
  kill -INT "$pid" 2>/dev/null || true
  status=0
  wait "$pid" || status=$?
  sed "s/^/  token_watch ($build): /" "$log"
  pid=
  [ "$status" -eq 0 ] || fail "token_watch ($build) exited with $status"
  grep -q "^access token: AT\." "$log" || fail "token_watch ($build) got no token"
  grep -qx "stopped: interrupted, tokens received: 1" "$log" || fail "token_watch ($build)"
done
echo "install test passed"
