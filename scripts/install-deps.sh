#!/usr/bin/env bash
# Installs, from Debian's packages, what building and testing zamac needs and the
# machine lacks. Safe to run again: it installs only missing packages.
set -euo pipefail
packages=(cmake g++ make libgtest-dev libgmock-dev libbenchmark-dev binutils
          clang libclang-rt-dev ffmpeg lame mpg123 faad sox pkg-config python3
          libfftw3-dev   # FFTW: only for the side-by-side transform benchmark
          doxygen help2man  # the API reference and the tools' man pages
          espeak-ng)        # speech item of the encoder quality scripts
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
