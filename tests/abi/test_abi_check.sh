#!/usr/bin/env bash
# scripts/abi-check on a small library of its own: a baseline of version 1,
# then an addition (compatible: passes), a changed parameter type, a changed
# public struct and a removed export (incompatible: each fails).
#   test_abi_check.sh SOURCE_DIR
set -uo pipefail
src=$1
command -v abidw > /dev/null || { echo "abidw is missing (abigail-tools): skipped"; exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/include"

failed=0
# build NAME HEADER_BODY SOURCE_BODY: libdemo.so.1 with debug information.
build() {
  printf '#include <stddef.h>\n%s\n' "$2" > "$work/include/demo.h"
  printf '#include "demo.h"\n%s\n' "$3" > "$work/$1.c"
  mkdir -p "$work/$1"
  cc -g -O0 -shared -fPIC -I"$work/include" -Wl,-soname,libdemo.so.1 \
    -o "$work/$1/libdemo.so.1" "$work/$1.c" || { echo "FAIL: cannot build $1"; exit 1; }
}
# check NAME EXPECTED_STATUS WHAT
check() {
  local out status
  out=$(SSO_ABI_LIBRARY="$work/$1/libdemo.so.1" SSO_ABI_BASELINE="$work/baseline.abi" \
    SSO_ABI_HEADERS="$work/include" "$src/scripts/abi-check" 2>&1)
  status=$?
  if [ "$status" -ne "$2" ]; then
    echo "FAIL: $3: abi-check exited $status, expected $2"
    echo "$out" | sed 's/^/  /'
    failed=1
  else
    echo "ok: $3 (status $status)"
  fi
}

v1_header='struct demo_point { int x; int y; };
int demo_area(const struct demo_point *p);
int demo_scale(int value, int factor);'
v1_source='int demo_area(const struct demo_point *p) { return p->x * p->y; }
int demo_scale(int value, int factor) { return value * factor; }'
build v1 "$v1_header" "$v1_source"
SSO_ABI_LIBRARY="$work/v1/libdemo.so.1" SSO_ABI_BASELINE="$work/baseline.abi" \
  SSO_ABI_HEADERS="$work/include" "$src/scripts/abi-check" --update > /dev/null ||
  { echo "FAIL: --update wrote no baseline"; exit 1; }
check v1 0 "the baseline's own library"

build added "$v1_header
int demo_sum(int a, int b);" "$v1_source
int demo_sum(int a, int b) { return a + b; }"
check added 0 "an added function"

build param "struct demo_point { int x; int y; };
int demo_area(const struct demo_point *p);
int demo_scale(long value, int factor);" 'int demo_area(const struct demo_point *p) { return p->x * p->y; }
int demo_scale(long value, int factor) { return (int)value * factor; }'
check param 1 "a parameter of another type"

build layout "struct demo_point { long x; int y; };
int demo_area(const struct demo_point *p);
int demo_scale(int value, int factor);" "$v1_source"
check layout 1 "a public struct of another layout"

build removed 'struct demo_point { int x; int y; };
int demo_area(const struct demo_point *p);' 'int demo_area(const struct demo_point *p) { return p->x * p->y; }'
check removed 1 "a removed function"

exit "$failed"
