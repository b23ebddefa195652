#!/usr/bin/env bash
# Makes samples/music-44k-stereo.mp3: the synthetic music of scripts/make_samples.sh
# (plucked melody, bass, noise bursts that force short blocks), 8 s, encoded by
# Debian's lame at 128 kb/s joint stereo.
#   usage: scripts/make_mp3_sample.sh [output-dir]   (default: samples/)
set -euo pipefail
cd "$(dirname "$0")/.."
out=${1:-samples}
mkdir -p "$out"

melody='sin(2*PI*t*440*pow(2,(3*floor(mod(4*t,5))+2*floor(mod(t,3)))/12))*exp(-6*mod(t,0.25))'
bass='sin(2*PI*t*110*pow(2,floor(mod(t/2,4))*5/12))*(0.6+0.4*sin(2*PI*t*0.5))'
hat='(random(0)-0.5)*exp(-60*mod(t+0.125,0.25))'
left="0.35*$melody+0.25*$bass+0.3*$hat"
right="0.25*$melody+0.3*$bass+0.2*$hat+0.1*sin(2*PI*t*660*pow(2,floor(mod(2*t,4))/12))*exp(-4*mod(t,0.5))"

tmp=$(mktemp --suffix=.wav)
trap 'rm -f "$tmp"' EXIT
ffmpeg -nostdin -v error -y -f lavfi -i "aevalsrc=exprs='$left|$right':s=44100:d=8" -c:a pcm_s16le "$tmp"
lame --quiet -m j -b 128 "$tmp" "$out/music-44k-stereo.mp3"
ls -l "$out/music-44k-stereo.mp3"
