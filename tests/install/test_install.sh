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
  "$libdir/libsso_api_cxx.so.1.0.0" "$libdir/libsso_api_cxx.so.1" "$libdir/libsso_api_cxx.so"
  "$prefix/include/sso_api/sso_api.hpp" "$libdir/pkgconfig/sso_api_cxx.pc"
  "$libdir/cmake/sso_api/sso_apiConfig.cmake" "$libdir/cmake/sso_api/sso_apiConfigVersion.cmake"
  "$libdir/cmake/sso_api/sso_apiTargets.cmake"
  "$prefix/bin/ssoctl" "$prefix/bin/sso-platform" "$prefix/bin/sso-simulator"
  "$prefix/bin/sso-account-ui-test" "$prefix/bin/sso-sim-session" "$prefix/bin/sso-storaged"
  "$prefix/share/sso-simulator/devenv.sh"
  "$libdir/pkgconfig/sso-platform.pc"
  "$prefix/share/dbus-1/system-services/org.orvex.tv.ssoservice.server.service"
  "$prefix/lib/systemd/system/sso-simulator.service"
  "$prefix/lib/systemd/system/sso-storaged.service"
  "$prefix/share/doc/sso-api-doc/json-output.md"
  "$prefix/share/dbus-1/interfaces/org.orvex.tv.ssoservice.server.xml"
  "$prefix/share/dbus-1/interfaces/org.orvex.tv.ssoservice.ssoclient.xml"
)
# The C++ API's headers.
for h in account config delivery error request requests result subscription text; do
  expected+=("$prefix/include/sso_api/cxx/$h.hpp")
done
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
           "$prefix/share/dbus-1/system.d/org.orvex.tv.ssoservice.ssoclient.conf"
           "$prefix/share/dbus-1/system.d/org.orvex.tv.ssoservice.simulator.conf")
# Manual pages and completion of the tools.
for tool in ssoctl sso-platform sso-simulator sso-sim-session sso-account-ui-test; do
  expected+=("$prefix/share/man/man1/$tool.1")
done
for tool in ssoctl sso-platform sso-simulator sso-sim-session; do
  expected+=("$prefix/share/bash-completion/completions/$tool")
done
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

# ---- the manual pages render without warnings and name what they document
for page in "$prefix"/share/man/man1/*.1; do
  warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 -l "$page" 2>&1 >/dev/null)
  [ -z "$warnings" ] || fail "$(basename "$page"): $warnings"
  name=$(basename "$page" .1)
  head -n 1 "$page" | grep -qi "^\.TH ${name} 1 " || fail "$(basename "$page") is not titled $name(1)"
done
# Each tool's options are in its page (the page keeps up with the tool).
for opt in --json --root --follow --priority --tag --pid; do
  grep -qF -- "${opt//-/\\-}" "$prefix/share/man/man1/sso-platform.1" ||
    fail "sso-platform.1 does not document $opt"
done
for opt in --demo-accounts --bus-policy --control-group --sign-in-as --keep; do
  "$prefix/bin/sso-sim-session" --help | grep -q -- "$opt" || fail "sso-sim-session --help lacks $opt"
  grep -qF -- "${opt//-/\\-}" "$prefix/share/man/man1/sso-sim-session.1" ||
    fail "sso-sim-session.1 does not document $opt"
done
echo "manual pages: render cleanly"

# ---- bash completion completes from the installed tools' own help
completion=$(PATH="$prefix/bin:$PATH" bash -c '
  source "$1"
  complete_words() { COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); COMPREPLY=();
                     "$(complete -p "$1" | sed "s/.*-F \([^ ]*\) .*/\1/")"; echo "${COMPREPLY[*]}"; }
  echo "platform: $(complete_words sso-platform "")"
  echo "platform vconf: $(complete_words sso-platform vconf "")"
  echo "simulator ctl: $(complete_words sso-simulator ctl "")"
  echo "simulator account: $(complete_words sso-simulator ctl account "")"
  echo "ssoctl: $(complete_words ssoctl to)"
  echo "ssoctl token: $(complete_words ssoctl token --app)"
  echo "session: $(complete_words sso-sim-session --bus-policy "")"
' _ "$prefix/share/bash-completion/completions/sso-platform")
echo "$completion" | sed 's/^/  completion /'
for want in "platform: .*vconf.* log" "platform vconf: get set unset watch" \
            "simulator ctl: .*journal.*" "simulator account: add rm" "ssoctl: token token-with" \
            "ssoctl token: --app-id" "session: strict open"; do
  grep -q "^${want}" <<<"$completion" || fail "bash completion: no line matches /^$want/"
done

# ---- the .pc files: relocatable here, absolute for a /usr install
grep -q '^prefix=${pcfiledir}/' "$libdir/pkgconfig/sso_api.pc" || fail "sso_api.pc is not relocatable"
cmake -S "$project_dir" -B "$work/usr-build" -G Ninja -DCMAKE_INSTALL_PREFIX=/usr \
  -DSSO_BUILD_TESTS=OFF -DSSO_BUILD_BENCHMARKS=OFF -DSSO_BUILD_DOCS=OFF >/dev/null
for pc in sso_api sso-platform; do
  grep -qx 'prefix=/usr' "$work/usr-build/$pc.pc" || fail "$pc.pc for /usr has no absolute prefix"
  PKG_CONFIG_PATH="$work/usr-build" pkg-config --validate "$pc" || fail "$pc.pc does not validate"
done
grep -q "^libdir=\${prefix}/lib/$(gcc -print-multiarch)\$" "$work/usr-build/sso_api.pc" ||
  fail "sso_api.pc for /usr does not name the multiarch libdir"

# ---- pkg-config
export PKG_CONFIG_PATH="$libdir/pkgconfig"
mkdir -p "$work/pc"
cc -std=c99 -Wall -Wextra -Werror -pedantic "$source_dir/consumer/consumer.c" \
   $(pkg-config --cflags --libs sso_api) -o "$work/pc/consumer"
cc -std=c99 -Wall -Wextra -Werror -pedantic "$project_dir/examples/c/hello_sso.c" \
   $(pkg-config --cflags --libs sso_api) -o "$work/pc/hello_sso"
c++ -std=c++17 -Wall -Wextra -Werror "$project_dir/examples/cpp/token_watch.cpp" \
   $(pkg-config --cflags --libs sso_api glib-2.0) -o "$work/pc/token_watch"
c++ -std=c++17 -Wall -Wextra -Werror "$project_dir/examples/cpp/sign_in_token.cpp" \
   $(pkg-config --cflags --libs sso_api_cxx) -o "$work/pc/sign_in_token"
out=$(SSO_PLATFORM_LOG=none LD_LIBRARY_PATH="$libdir" "$work/pc/consumer")
echo "pkg-config consumer: $out"
[ "$out" = "login_info_size=1536 term_state=-1 state=0" ] || fail "pkg-config consumer"
# The README's first C example (the whole program) compiles as written, as C99.
awk '/^```c$/ { on = 1; next } on && /^```$/ { exit } on' "$project_dir/README.md" \
  > "$work/pc/readme_app.c"
grep -q 'sso_request_access_token' "$work/pc/readme_app.c" || fail "no C example in the README"
cc -std=c99 -Wall -Wextra -Werror -pedantic "$work/pc/readme_app.c" \
   $(pkg-config --cflags --libs sso_api) -o "$work/pc/readme_app" || fail "the README's C example"
echo "README example: compiles with -std=c99"
# A header of the platform brings its own dependency (GIO) with it.
printf '#include <cynara-creds-gdbus.h>\n#include <vconf.h>\nint main(void) {\n  int v = 0;\n  pid_t p = 0;\n  (void)cynara_creds_gdbus_get_pid(NULL, "", &p);\n  return vconf_get_int("db/x", &v) == 0;\n}\n' \
  > "$work/pc/platform.c"
cc -std=c99 -Wall -Wextra -Werror "$work/pc/platform.c" $(pkg-config --cflags --libs sso-platform) \
   -o "$work/pc/platform" || fail "a program of the platform headers through sso-platform.pc"
echo "sso-platform.pc: brings GIO"

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
# The C++ API's example: signs in through the installed account UI stand-in,
# hears of it, prints a masked token.
unset LD_LIBRARY_PATH
sso_devenv_account_ui_up "$prefix/bin" jamie.rivera@example.com >/dev/null ||
  fail "the installed account UI could not be registered"
for build in pc examples-build; do
  if [ "$build" = pc ]; then export LD_LIBRARY_PATH=$libdir; else unset LD_LIBRARY_PATH; fi
  "$prefix/bin/sso-simulator" ctl sign-out >/dev/null
  status=0
  out=$(SSO_PLATFORM_APP_ID=org.example.signin timeout 60 "$work/$build/sign_in_token" \
    --timeout 30) || status=$?
  echo "$out" | sed "s/^/  sign_in_token ($build): /"
  [ "$status" -eq 0 ] || fail "sign_in_token ($build) exited with $status"
  grep -qx "login notification: signed in as jamie.rivera@example.com" <<<"$out" ||
    fail "sign_in_token ($build) heard no sign-in"
  grep -q "^access token: AT\.[^ ]*\.\.\. (" <<<"$out" || fail "sign_in_token ($build) got no token"
done
echo "install test passed"
