#!/usr/bin/env bash
# The main job: builds the library and the tools (not the tests) and shows them at
# work on the samples. Output goes to build/demo/, one WAVE file per sample.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release -j"$(nproc)" --target zamac zamac-decode zamac-info \
      $(cmake --build build/release --target help | grep -o 'zamac-encode' | head -n 1)
bin=build/release/tools
out=build/demo
mkdir -p "$out"
"$bin/zamac-info/zamac-info"

# The decoder built on the library: every sample to its own WAVE file (the name
# keeps the extension, so music.aac and music.mp3 do not overwrite each other),
# with the stream description and the decoding speed.
for sample in samples/*.aac samples/*.mp3; do
  name=$(basename "$sample")
  echo
  "$bin/zamac-decode/zamac-decode" --info "$sample"
  "$bin/zamac-decode/zamac-decode" -o "$out/${name%.*}-${name##*.}.wav" "$sample"
done

# The encoder, once it is built: WAVE -> MP3 -> WAVE, compared with the original.
if [ -x "$bin/zamac-encode/zamac-encode" ]; then
  echo
  src="$out/music-44k-stereo-mp3.wav"
  "$bin/zamac-encode/zamac-encode" -o "$out/roundtrip.mp3" "$src"
  "$bin/zamac-decode/zamac-decode" --compare "$src" -o "$out/roundtrip.wav" "$out/roundtrip.mp3"
fi
echo
echo "decoded WAVE files are in $out/"
