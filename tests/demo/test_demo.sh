#!/usr/bin/env bash
# Runs scripts/demo unattended against a built tree and checks what it left.
#   test_demo.sh walk SOURCE_DIR BUILD_DIR        the whole walk-through
#   test_demo.sh interrupt SOURCE_DIR BUILD_DIR   SIGINT (Ctrl-C) half-way through
#   test_demo.sh plan SOURCE_DIR BUILD_DIR        what a first run installs and
#                                                 builds: configured, not built
# Each run gets its own TMPDIR, so the demo's work dir is known and unique;
# afterwards no process may remain that was started in it.
set -uo pipefail
mode=$1 src=$2 build=$3

tmp=$(mktemp -d "${TMPDIR:-/tmp}/sso-demo-test.XXXXXX")
log=$tmp/demo.log
demo_pid=""

# shellcheck source=../../scripts/devenv.sh
source "$src/scripts/devenv.sh"
alive() { sso_devenv_alive "$1"; }

# Pids of the live processes whose command line or environment points into
# our TMPDIR: the bus, the simulator, the tools and the account UI the demo
# started.
# (The first character in brackets keeps grep from finding itself.)
tmp_pattern="[${tmp:0:1}]$(printf '%s' "${tmp:1}/" | sed 's/[][\.*^$]/\\&/g')"
processes_of_run() {
  local file pid
  grep -als -- "$tmp_pattern" /proc/[0-9]*/cmdline /proc/[0-9]*/environ | while read -r file; do
    pid=${file#/proc/}
    pid=${pid%%/*}
    alive "$pid" && echo "$pid"
  done | sort -u
}

# The pids the demo said it started.
started_pids() {
  sed -n 's/.*started .* (pid \([0-9][0-9]*\)).*/\1/p' "$log"
}

# Whatever a failed run left is killed by pid, so that the test leaves
# nothing behind either.
# shellcheck disable=SC2317  # run by the EXIT trap
finish() {
  local status=$? pid
  if [ -n "$demo_pid" ] && alive "$demo_pid"; then
    kill -KILL -- "-$demo_pid" 2>/dev/null
  fi
  for pid in $(started_pids) $(processes_of_run); do
    kill -KILL "$pid" 2>/dev/null
  done
  if [ "$status" -ne 0 ]; then
    echo "---- demo output:"
    cat "$log" 2>/dev/null
  fi
  rm -rf "$tmp"
  exit "$status"
}
trap finish EXIT
trap 'exit 143' TERM
trap 'exit 130' INT

failed=0
check() {
  echo "FAIL: $*" >&2
  failed=1
}
expect_line() {
  grep -Eq -- "$1" "$log" || check "no line of the demo's output matches /$1/"
}

# What the demo must leave: its work dir removed, nothing it started alive.
expect_clean() {
  local work pid left
  work=$(sed -n 's/^work dir: //p' "$log" | head -n 1)
  [ -n "$work" ] || { check "the demo did not print its work dir"; return; }
  case $work in "$tmp"/*) ;; *) check "the work dir $work is not under TMPDIR $tmp" ;; esac
  [ -e "$work" ] && check "the work dir $work is still there"
  [ "$(started_pids | wc -l)" -ge "$1" ] ||
    check "the demo reported fewer than $1 processes it started"
  for pid in $(started_pids); do
    alive "$pid" && check "process $pid the demo started still runs"
  done
  # The account UI and the tools are not announced; the environment names
  # them. Allow a moment for processes already killed to go.
  for _ in $(seq 1 100); do
    left=$(processes_of_run)
    [ -z "$left" ] && break
    sleep 0.05
  done
  [ -z "$left" ] && return
  for pid in $left; do
    check "process $pid ($(tr '\0' ' ' < "/proc/$pid/cmdline" 2>/dev/null)) remains"
  done
}

# Starts the demo as a job: its own process group, so that SIGINT is not
# ignored in it, as at a terminal, and so that a failed test can kill it whole.
start_demo() {
  set -m
  SSO_DEMO_BUILD_DIR=$build TMPDIR=$tmp "$src/scripts/demo" > "$log" 2>&1 < /dev/null &
  demo_pid=$!
  set +m
}

case $mode in
  walk)
    start_demo
    wait "$demo_pid"
    status=$?
    demo_pid=""
    [ "$status" -eq 0 ] || check "the demo exited with $status"
    expect_line '^ok: the service answers and nobody is signed in$'
    expect_line '^ok: signed in as jamie\.rivera@example\.com \(ssoctl watch saw it\)$'
    expect_line '^ok: signed in as jamie\.rivera@example\.com: the getters agree$'
    expect_line '^ok: token issued to tv\.example\.player'
    expect_line '^ok: auth code issued to tv\.example\.player$'
    expect_line '^ok: switched to seoyeon\.park@example\.com$'
    expect_line '^ok: whitelist token released to org\.example\.player\.tv of org\.example\.player$'
    expect_line '^ok: refused for org\.example\.other$'
    expect_line '^ok: signed out$'
    expect_line '^cleanup: removed '
    expect_line 'scripts/demo --keep'
    grep -q FAILED "$log" && check "the demo reported a failure"
    expect_clean 3
    ;;
  interrupt)
    # SIGINT goes to the demo alone, while the account UI is being launched
    # if the timing allows (everything the demo starts is running then):
    # whatever stops afterwards, its own clean-up stopped.
    start_demo
    up=0
    for _ in $(seq 1 1200); do
      grep -q '^\$ ssoctl show' "$log" && { up=1; break; }
      alive "$demo_pid" || break
      sleep 0.05
    done
    [ "$up" -eq 1 ] || { check "the demo did not get as far as the sign-in"; exit 1; }
    kill -INT "$demo_pid"
    for _ in $(seq 1 600); do
      alive "$demo_pid" || break
      sleep 0.05
    done
    alive "$demo_pid" && check "the demo still runs 30 s after SIGINT"
    wait "$demo_pid"
    status=$?
    demo_pid=""
    [ "$status" -eq 130 ] || check "the demo exited with $status after SIGINT, expected 130"
    expect_line '^demo: interrupted \(SIGINT\); cleaning up$'
    expect_line '^cleanup: stopping the simulator \(pid '
    expect_line '^cleanup: stopping the bus \(pid '
    expect_line '^cleanup: removed '
    expect_clean 3
    ;;
  plan)
    # The first run on a fresh machine: only the packages and targets the
    # walk-through uses. The plan's configure line is run for real in a
    # scratch tree and ninja says what the build would do.
    env -u SSO_DEMO_BUILD_DIR "$src/scripts/demo" --plan > "$log" 2>&1 ||
      check "scripts/demo --plan failed"
    packages=" $(sed -n 's/^packages: //p' "$log") "
    for p in dbus-daemon openssl g++ cmake ninja-build libglib2.0-dev libjsoncpp-dev libssl-dev; do
      [[ $packages == *" $p "* ]] || check "the demo does not install $p, which it needs"
    done
    for p in clang valgrind doxygen libgtest-dev libgmock-dev libbenchmark-dev abigail-tools; do
      [[ $packages == *" $p "* ]] && check "the demo installs $p, which it does not use"
    done
    configure=$(sed -n 's/^configure: //p' "$log")
    targets=$(sed -n 's/^build: .* --target //p' "$log")
    [ -n "$configure" ] && [ -n "$targets" ] || { check "the plan names no configure or targets"; exit 1; }
    for t in ssoctl sso-simulator sso-platform sso-account-ui-test hello_sso; do
      [[ " $targets " == *" $t "* ]] || check "the demo does not build $t, which it runs"
    done
    # shellcheck disable=SC2086  # the plan's words, as the demo passes them
    set -- $configure
    shift 5 # cmake -S SRC -B DIR
    cmake -S "$src" -B "$tmp/b" -G Ninja "$@" > "$tmp/configure.log" 2>&1 ||
      { cat "$tmp/configure.log"; check "the demo's configure line fails"; exit 1; }
    # shellcheck disable=SC2086
    ninja -C "$tmp/b" -n $targets > "$tmp/demo-steps" || check "ninja cannot plan the demo's targets"
    ninja -C "$tmp/b" -n > "$tmp/all-steps" || check "ninja cannot plan the whole build"
    grep -Eq 'tests/|bench/|fuzz/|gtest|benchmark' "$tmp/demo-steps" &&
      check "the demo builds tests or benchmarks: $(grep -Em3 'tests/|bench/|fuzz/' "$tmp/demo-steps")"
    grep -q 'Linking CXX shared library.*libsso_api' "$tmp/demo-steps" ||
      check "the demo does not build the library"
    ;;
  *)
    echo "usage: $0 walk|interrupt|plan SOURCE_DIR BUILD_DIR" >&2
    exit 2
    ;;
esac
exit "$failed"
