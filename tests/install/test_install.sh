#!/usr/bin/env bash
# Installs the build tree into a temporary prefix and builds a tiny C program
# against it twice: through pkg-config and through find_package(sso_api).
set -euo pipefail
build_dir=$1
source_dir=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build_dir" --prefix "$work/prefix" >/dev/null
libdir=$(find "$work/prefix" -name 'libsso_api.so.1' -printf '%h\n' | head -n1)
[ -n "$libdir" ] || { echo "libsso_api.so.1 not installed"; exit 1; }
for f in "$work/prefix/include/sso_api/sso_api.h" "$libdir/libsso_api.so" \
         "$libdir/pkgconfig/sso_api.pc" "$libdir/cmake/sso_api/sso_apiConfig.cmake" \
         "$libdir/cmake/sso_api/sso_apiConfigVersion.cmake"; do
  [ -e "$f" ] || { echo "missing after install: $f"; exit 1; }
done
readelf -d "$libdir/libsso_api.so.1" | grep -q 'Library soname: \[libsso_api.so.1\]'

# pkg-config
export PKG_CONFIG_PATH="$libdir/pkgconfig"
cc -std=c99 -Wall -Wextra -Werror -pedantic "$source_dir/consumer/consumer.c" \
   $(pkg-config --cflags --libs sso_api) -o "$work/consumer-pc"
out=$(SSO_PLATFORM_LOG=none LD_LIBRARY_PATH="$libdir" "$work/consumer-pc")
echo "pkg-config consumer: $out"
[ "$out" = "login_info_size=1536 term_state=-1 state=0" ]

# find_package
cmake -S "$source_dir/consumer" -B "$work/cmake-build" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
out=$(SSO_PLATFORM_LOG=none LD_LIBRARY_PATH="$libdir" "$work/cmake-build/consumer")
echo "find_package consumer: $out"
[ "$out" = "login_info_size=1536 term_state=-1 state=0" ]
echo "install test passed"
