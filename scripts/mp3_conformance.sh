#!/usr/bin/env bash
# MP3 decoding figures of zamac-decode:
#  1. the ISO Layer III compliance streams: PSNR and maximum difference per stream,
#     for the float path and for --fixed;
#  2. streams made by lame and ffmpeg (20 s each), compared with mpg123's and
#     ffmpeg's decodes after aligning the encoder delay (--fixed against mpg123), and MPEG-1 intensity-stereo
#     frames built with the library's packers;
#  3. speed: CPU time (user + system, median of several runs, whole process, and
#     net of start-up) of zamac-decode (float and --fixed), mpg123 and ffmpeg -f null (its
#     float decoder and, with -c:a mp3, its fixed-point one) on l3-he_44khz.bit
#     (ten times over) and on a 60 s 44.1 kHz 128 kb/s lame stream, and the ratios.
# Usage: scripts/mp3_conformance.sh [build dir, default build/release]
# ZAMAC_DECODE=/path/to/zamac-decode uses that binary instead of the build's.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/release}
runs=${ZAMAC_SPEED_RUNS:-11}

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --target zamac_tools_tests -j"$(nproc)" >/dev/null
if [ -z "${ZAMAC_DECODE:-}" ]; then
  cmake --build "$build" --target zamac-decode -j"$(nproc)" >/dev/null
  ZAMAC_DECODE=$PWD/$build/tools/zamac-decode/zamac-decode
fi
export ZAMAC_DECODE
tests=$build/tests/zamac_tools_tests

echo "== ISO compliance streams (PSNR = 10 log10(32767^2 / MSE) over the reference's length), float and --fixed"
printf '%-24s %-8s %10s %9s\n' stream path "PSNR (dB)" "max diff"
"$tests" --gtest_filter='*Mp3Iso*' 2>&1 |
  sed -n 's/^\([^ ]*\)\( --fixed\)\{0,1\}: PSNR \([0-9.]*\) dB, max diff \([0-9]*\)$/\1 x\2 \3 \4/p' |
  while read -r s f p m; do printf '%-24s %-8s %10.2f %9d\n' "$s" "$([ "$f" = x ] && echo float || echo fixed)" "$p" "$m"; done

echo
echo "== lame / ffmpeg streams, 20 s each, against mpg123 and ffmpeg (aligned)"
printf '%-26s %-16s %6s %10s %9s\n' stream decoder shift "PSNR (dB)" "max diff"
ZAMAC_MP3_LONG=1 "$tests" --gtest_filter='*Mp3Encoders*' 2>&1 |
  sed -e 's/ --fixed vs \([^:]*\):/ vs \1(--fixed):/' |
  sed -n 's/^\([^ ]*\) vs \([^:]*\): shift \([0-9]*\), PSNR \([0-9.]*\) dB, max diff \([0-9]*\)$/\1 \2 \3 \4 \5/p' |
  while read -r s d sh p m; do printf '%-26s %-16s %6d %10.2f %9d\n' "$s" "$d" "$sh" "$p" "$m"; done

echo
echo "== MPEG-1 intensity stereo (frames built with the library's packers), against mpg123 and ffmpeg"
"$tests" --gtest_filter='*Mp3Intensity*' 2>&1 | sed -n 's/^MPEG-1 intensity, //p'

echo
echo "== speed (CPU seconds per run, median of $runs; audio seconds per CPU second)"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
ffmpeg -v error -y -f lavfi -i "aevalsrc=0.3*sin(2*PI*440*t)+0.2*sin(2*PI*(200+300*t)*t)+0.05*(random(0)-0.5)|0.3*sin(2*PI*550*t)+0.1*sin(2*PI*3000*t)+0.05*(random(1)-0.5):s=44100:d=60" \
  -f s16le -ac 2 "$work/s60.raw"
lame --quiet -r -s 44.1 --bitwidth 16 --signed --little-endian -b 128 "$work/s60.raw" "$work/lame60.mp3" 2>/dev/null
# ffmpeg's start-up alone costs more than decoding l3-he_44khz.bit (10.7 s) once:
# the file is measured ten times over, concatenated (its frames start with an
# empty reservoir, so the copies decode like the original).
for i in 1 2 3 4 5 6 7 8 9 10; do cat ../shared/vectors/mp3-iso/l3-he_44khz.bit; done > "$work/he44x10.bit"
python3 - "$runs" "$ZAMAC_DECODE" "$work/he44x10.bit":106.980 "$work/lame60.mp3":60.0 <<'PY'
import os, resource, statistics, subprocess, sys
runs, tool = int(sys.argv[1]), sys.argv[2]
def cpu(cmd):
    times = []
    for _ in range(runs):
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        subprocess.run(cmd, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        times.append(after.ru_utime - before.ru_utime + after.ru_stime - before.ru_stime)
    return statistics.median(times)
print("%-16s %-14s %10s %10s %14s %8s" % ("file", "decoder", "CPU s/run", "net CPU s", "audio s/CPU s", "ratio"))
for arg in sys.argv[3:]:
    path, seconds = arg.rsplit(":", 1)
    seconds = float(seconds)
    name = path.rsplit("/", 1)[-1]
    # Start-up cost: the same decoder on the file's first kilobytes (a few frames).
    head = path + ".head"
    with open(path, "rb") as src, open(head, "wb") as dst:
        dst.write(src.read(1500))
    rows = []
    commands = (("zamac-decode", lambda f: [tool, "--bench", f]),
                ("zamac --fixed", lambda f: [tool, "--bench", "--fixed", f]),
                ("mpg123", lambda f: ["mpg123", "-q", "-t", f]),
                ("ffmpeg", lambda f: ["ffmpeg", "-v", "error", "-i", f, "-f", "null", "-"]),
                ("ffmpeg fixed", lambda f: ["ffmpeg", "-v", "error", "-c:a", "mp3", "-i", f, "-f", "null", "-"]))
    for decoder, command in commands:
        full, base = cpu(command(path)), cpu(command(head))
        rows.append((decoder, full, max(full - base, 1e-6)))
    ours = rows[0][2]
    os.remove(head)
    for decoder, full, net in rows:
        print("%-16s %-14s %10.4f %10.4f %14.0f %7.2fx" % (name, decoder, full, net, seconds / net, net / ours))
PY
echo "(net: minus the same decoder's CPU time on the first 1500 bytes, i.e. without start-up;"
echo " ratio: the decoder's net CPU time over zamac-decode's; above 1 means zamac-decode is faster)"
