#!/usr/bin/env bash
# Usage: check_exports.sh libzamac.so zamac.h sanitized(0/1)
# Compares the library's exported dynamic symbols with the functions the header
# declares, and checks its dependencies.
set -euo pipefail
lib=$1 header=$2 sanitized=${3:-0}
case "$sanitized" in 1|ON|TRUE|true) sanitized=1 ;; *) sanitized=0 ;; esac

declared=$(grep -oE '\b(zams[A-Za-z0-9_]+|zamacGetLibVersion)[[:space:]]*\(' "$header" \
           | sed -E 's/[[:space:]]*\($//' | sort -u)
exported=$(nm -D --defined-only "$lib" | awk '$2 ~ /^[TtWwiV]$/ {print $3}' | sed 's/@.*//' | sort -u)

status=0
if ! diff <(echo "$declared") <(echo "$exported") >/dev/null; then
  echo "declared in the header but not exported:"; comm -23 <(echo "$declared") <(echo "$exported")
  echo "exported but not declared in the header:"; comm -13 <(echo "$declared") <(echo "$exported")
  status=1
fi
echo "exported symbols: $(echo "$exported" | grep -c .)"

if [ "$sanitized" = 0 ]; then
  needed=$(readelf -d "$lib" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sort)
  for n in $needed; do
    case "$n" in
      libzamcore.so*|libc.so*|libm.so*) ;;
      *) echo "unexpected NEEDED entry: $n"; status=1 ;;
    esac
  done
  echo "$needed" | grep -q '^libzamcore\.so' || { echo "libzamcore is not NEEDED"; status=1; }
  bad=$(nm -D --undefined-only "$lib" | awk '{print $NF}' \
        | grep -E '^(malloc|calloc|realloc|free|aligned_alloc|posix_memalign|_Zn|_Zd|__cxa_[^f]|__gxx|_ZSt|_ZNSt)' || true)
  if [ -n "$bad" ]; then echo "forbidden imports:"; echo "$bad"; status=1; fi
fi
exit $status
