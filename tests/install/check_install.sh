#!/usr/bin/env bash
# Usage: check_install.sh <build dir> <source dir of the consumer>
# Installs the build into a scratch prefix (not the configured one), then builds a C
# consumer through find_package(zamac), through pkg-config (shared, and static with
# --static), with nothing overridden, and runs an installed tool without
# LD_LIBRARY_PATH (its RUNPATH is $ORIGIN/../lib).
set -euo pipefail
build=$1 consumer=$2
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null
test -f "$prefix/include/zamac.h" && test -f "$prefix/include/zamcore.h"
libdir=$(dirname "$(find "$prefix" -name 'libzamac.so' | head -n1)")
readelf -d "$libdir/libzamac.so" | grep -q 'SONAME.*libzamac.so.7'

cmake -S "$consumer" -B "$prefix/consumer" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$prefix/consumer" >/dev/null
LD_LIBRARY_PATH="$libdir" "$prefix/consumer/consumer"

export PKG_CONFIG_PATH="$libdir/pkgconfig"
test "$(pkg-config --variable=includedir zamac)" -ef "$prefix/include"
cc -std=c99 -Wall -Werror "$consumer/main.c" $(pkg-config --cflags --libs zamac) -o "$prefix/consumer-pc"
LD_LIBRARY_PATH="$libdir" "$prefix/consumer-pc"
if [ -f "$libdir/libzamac.a" ]; then
  # the archives alone: no shared zamac in the program
  cc -std=c99 -Wall -Werror "$consumer/main.c" $(pkg-config --cflags zamac) \
     "$libdir/libzamac.a" "$libdir/libzamcore.a" $(pkg-config --static --libs-only-other --libs-only-l zamac | sed 's/-lzamac\b//; s/-lzamcore\b//g') \
     -o "$prefix/consumer-static"
  ! readelf -d "$prefix/consumer-static" | grep -q 'libzamac'
  "$prefix/consumer-static"
fi
if [ -x "$prefix/bin/zamac-decode" ]; then
  readelf -d "$prefix/bin/zamac-decode" | grep -q 'RUNPATH.*\$ORIGIN/../'
  env -u LD_LIBRARY_PATH "$prefix/bin/zamac-decode" --version >/dev/null
fi
echo "installed, found by find_package and pkg-config (shared and static); tools run from the prefix"
