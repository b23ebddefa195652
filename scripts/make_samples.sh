#!/usr/bin/env bash
# Makes the short streams in samples/ from synthetic, music-like audio (a melody of
# decaying plucked notes over a bass line, with noise "hi-hat" bursts that force short
# windows): two AAC streams with Debian's ffmpeg and its native AAC encoder, and one
# MP3 stream with Debian's lame at 128 kb/s joint stereo.
#   usage: scripts/make_samples.sh [output-dir]   (default: samples/)
set -euo pipefail
cd "$(dirname "$0")/.."
out=${1:-samples}
mkdir -p "$out"

# A note every quarter second, walking a pentatonic pattern; every note decays; the
# bass changes every two seconds; a noise burst on every off-beat.
melody='sin(2*PI*t*440*pow(2,(3*floor(mod(4*t,5))+2*floor(mod(t,3)))/12))*exp(-6*mod(t,0.25))'
bass='sin(2*PI*t*110*pow(2,floor(mod(t/2,4))*5/12))*(0.6+0.4*sin(2*PI*t*0.5))'
hat='(random(0)-0.5)*exp(-60*mod(t+0.125,0.25))'
left="0.35*$melody+0.25*$bass+0.3*$hat"
right="0.25*$melody+0.3*$bass+0.2*$hat+0.1*sin(2*PI*t*660*pow(2,floor(mod(2*t,4))/12))*exp(-4*mod(t,0.5))"

ffmpeg -nostdin -v error -y -f lavfi -i "aevalsrc=exprs='$left|$right':s=44100:d=8" \
    -c:a aac -b:a 128k -f adts "$out/music-44k-stereo.aac"
ffmpeg -nostdin -v error -y -f lavfi -i "aevalsrc=exprs='$left':s=22050:d=8" \
    -c:a aac -b:a 48k -f adts "$out/music-22k-mono.aac"

tmp=$(mktemp --suffix=.wav)
trap 'rm -f "$tmp"' EXIT
ffmpeg -nostdin -v error -y -f lavfi -i "aevalsrc=exprs='$left|$right':s=44100:d=8" -c:a pcm_s16le "$tmp"
lame --quiet -m j -b 128 "$tmp" "$out/music-44k-stereo.mp3"
ls -l "$out"/*.aac "$out"/*.mp3
