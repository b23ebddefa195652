#!/usr/bin/env bash
# Builds the API reference (HTML, one page per family) from include/zamac.h with
# Doxygen, and fails when an exported function has no documentation.
#   scripts/docs.sh [output dir, default build/docs]
set -euo pipefail
cd "$(dirname "$0")/.."
export ZAMAC_SOURCE=$PWD ZAMAC_DOCS_OUT=${1:-build/docs}
mkdir -p "$ZAMAC_DOCS_OUT"
doxygen docs/Doxyfile
undocumented=$(grep -E "Member (zams|zam|zamac)[A-Za-z0-9_]* \(function\)|is not documented" \
               "$ZAMAC_DOCS_OUT/warnings.txt" | grep -E "\b(zams|zamac|zam)[A-Z][A-Za-z0-9_]*" || true)
if [ -n "$undocumented" ]; then
  echo "undocumented exports:"
  echo "$undocumented"
  exit 1
fi
echo "API reference: $ZAMAC_DOCS_OUT/html/index.html"
