#!/usr/bin/env bash
# Runs a representative part of the integration tests under valgrind's
# memcheck: every request end to end with its result delivered, requests from
# many threads at once, the login notification across processes, the account
# state, whitelist tokens, and secure storage through the storage service as
# packages and strangers read it. Every gtest case runs in a process of its own,
# as under CTest; memory errors and definite leaks fail the case.
#   tests/sanitizers/valgrind_run.sh BUILD_DIR [JOBS]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:?usage: valgrind_run.sh BUILD_DIR [JOBS]}" && pwd)
jobs=${2:-2}

# binary (under tests/integration, or under tests/ when it names its
# directory) and the gtest filter of what runs from it.
selection=(
  "test_requests_tuples Requests.*:EveryMember/RequestsPerMember.DeliversTheResult*"
  "test_requests_edges Requests.ManyThreads*:Requests.UserJsonInfo*:Requests.TheDscRequest*:Requests.WithTheDebugMarker*"
  "test_requests_whitelist Whitelist.*"
  "test_login_notification_e2e *"
  "test_account_state *"
  "test_storage_identity *"
  "cxx/test_cxx_requests CxxRequests.TokensAndAuthCodes*:CxxRequests.ADeadline*:CxxRequests.ManyThreads*"
  "cxx/test_cxx_subscriptions CxxSubscriptions.ASubscriptionDestroyed*"
)

logs=$(mktemp -d "${TMPDIR:-/tmp}/sso-valgrind-XXXXXX")
trap 'rm -rf "$logs"' EXIT

cases="$logs/cases"
: >"$cases"
for entry in "${selection[@]}"; do
  bin=${entry%% *}
  filter=${entry#* }
  exe="$build/tests/integration/$bin"
  [[ $bin != */* ]] || exe="$build/tests/$bin"
  if [ ! -x "$exe" ]; then
    echo "valgrind: $exe is missing" >&2
    exit 1
  fi
  # --gtest_list_tests prints "Suite." lines and indented case lines.
  "$exe" --gtest_list_tests --gtest_filter="$filter" | awk -v exe="$exe" '
    /^[^ ]/ { if ($1 != "Running") suite = $1; next }
    /^  /   { print exe " " suite $1 }' >>"$cases"
done

# One line of $cases: the binary and the full name of one case.
run_case() {
  local exe=${1%% *} name=${1#* } log start=$SECONDS
  log="$SSO_VG_LOGS/$(basename "$exe").${name//\//_}.log"
  if timeout 600 valgrind --tool=memcheck --leak-check=full --show-leak-kinds=definite \
    --errors-for-leak-kinds=definite --error-exitcode=99 --num-callers=40 \
    --suppressions="$SSO_VG_HERE/valgrind.supp" --log-file="$log.vg" \
    "$exe" --gtest_filter="$name" >"$log" 2>&1; then
    printf 'ok      %3ds  %s\n' $((SECONDS - start)) "$name"
  else
    printf 'FAILED  %3ds  %s (exit %d)\n' $((SECONDS - start)) "$name" $?
    cat "$log" "$log.vg" >"$log.failed"
  fi
}
export -f run_case
export SSO_VG_LOGS=$logs SSO_VG_HERE=$here

total=$(wc -l <"$cases")
echo "==> valgrind memcheck: $total test cases, $jobs at a time"
# shellcheck disable=SC2016
xargs -P "$jobs" -d '\n' -n 1 bash -c 'run_case "$0"' <"$cases"

failed=$(find "$logs" -name '*.failed' | sort)
if [ -n "$failed" ]; then
  for f in $failed; do
    echo "---- $(basename "$f" .log.failed)"
    grep -E '^==[0-9]+==|Failure|FAILED|Expected|Actual' "$f" | head -80
  done
  echo "valgrind: $(echo "$failed" | wc -l) of $total cases failed"
  exit 1
fi
echo "valgrind: all $total cases clean"
