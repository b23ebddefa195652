#!/usr/bin/env bash
# Usage: check_install.sh <build dir> <source dir of the consumer>
# Installs the build into a scratch prefix, then builds a C consumer twice: through
# find_package(zamac) and through pkg-config.
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
cc -std=c99 -Wall -Werror "$consumer/main.c" $(pkg-config --define-variable=prefix="$prefix" --cflags --libs zamac) -o "$prefix/consumer-pc"
LD_LIBRARY_PATH="$libdir" "$prefix/consumer-pc"
echo "installed, found by find_package and pkg-config"
