#!/usr/bin/env bash
# Usage: check_exports.sh libzamac.so zamac.h sanitized(0/1)
# Compares the library's exported dynamic symbols with the functions the header
# declares; checks that the names sharing one implementation have one address and
# that every stateful family has GetSize, Init, InitAlloc and Free; checks the
# library's dependencies.
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

# Names that share one implementation: where both are exported, one address.
shared_pairs="
zamsAnalysisFilterGetSize_PQMF_MP3_32f zamsSynthesisFilterGetSize_PQMF_MP3_32f
zamsAnalysisFilterGetSize_SBRHQ_32s32sc zamsAnalysisFilterGetSize_SBRLP_32s
zamsAnalysisFilterGetSize_SBR_RToC_32f zamsAnalysisFilterGetSize_SBR_RToC_32f32fc
zamsSynthesisDownFilterGetSize_SBRHQ_32sc32s zamsSynthesisDownFilterGetSize_SBRLP_32s
zamsSynthesisDownFilterGetSize_SBR_CToR_32f zamsSynthesisDownFilterGetSize_SBR_CToR_32fc32f
zamsSynthesisFilterGetSize_SBRHQ_32sc32s zamsSynthesisFilterGetSize_SBRLP_32s
zamsSynthesisFilterGetSize_SBR_CToR_32f zamsSynthesisFilterGetSize_SBR_CToR_32fc32f
zamsVLCDecodeFree_32s zamsVLCDecodeUTupleFree_32s"
address_of() { nm -D --defined-only "$lib" | awk -v n="$1" '{s = $3; sub(/@.*/, "", s)} s == n {print $1}'; }
pairs_checked=0
while read -r first second; do
  [ -n "$first" ] || continue
  a=$(address_of "$first"); b=$(address_of "$second")
  [ -n "$a" ] && [ -n "$b" ] || continue
  pairs_checked=$((pairs_checked + 1))
  if [ "$a" != "$b" ]; then echo "$first and $second have two addresses ($a, $b)"; status=1; fi
done <<< "$shared_pairs"
echo "shared-implementation pairs checked: $pairs_checked"

# Lifecycle: a name <prefix><Word><suffix> with Word one of GetSize, Init,
# InitAlloc, Free and suffix starting with "_" marks a stateful family; the family
# needs all four. Exceptions by definition: the FIR block state is made only by
# InitAlloc (it has no GetSize/Init), and the MP3 bit reservoir's Init fills a
# plain caller record (no state object).
lifecycle_exempt='^zams(FIRBlock|BitReservoir)$'
families=$(echo "$exported" | sed -nE 's/^(zams[A-Za-z0-9]*)(GetSize|InitAlloc|Init|Free)(_[A-Za-z0-9_]*)$/\1 \3/p' | sort -u)
family_count=0
while read -r prefix suffix; do
  [ -n "$prefix" ] || continue
  if [[ "$prefix" =~ $lifecycle_exempt ]]; then continue; fi
  family_count=$((family_count + 1))
  for word in GetSize Init InitAlloc Free; do
    if ! grep -qx "$prefix$word$suffix" <<< "$exported"; then
      echo "stateful family $prefix...$suffix lacks $prefix$word$suffix"; status=1
    fi
  done
done <<< "$families"
echo "stateful families with the four lifecycle functions: $family_count"

if [ "$sanitized" = 0 ]; then
  needed=$(readelf -d "$lib" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sort)
  for n in $needed; do
    case "$n" in
      libzamcore.so*|libc.so*|libm.so*) ;;
      *) echo "unexpected NEEDED entry: $n"; status=1 ;;
    esac
  done
  grep -q '^libzamcore\.so' <<< "$needed" || { echo "libzamcore is not NEEDED"; status=1; }
  bad=$(nm -D --undefined-only "$lib" | awk '{print $NF}' \
        | grep -E '^(malloc|calloc|realloc|free|aligned_alloc|posix_memalign|_Zn|_Zd|__cxa_[^f]|__gxx|_ZSt|_ZNSt)' || true)
  if [ -n "$bad" ]; then echo "forbidden imports:"; echo "$bad"; status=1; fi
fi
exit $status
