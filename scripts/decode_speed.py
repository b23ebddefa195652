#!/usr/bin/env python3
"""Decoding speed of zamac-decode beside mpg123, ffmpeg and faad, in one run.

    scripts/decode_speed.py [--build DIR] [--runs N] [--keep DIR] [--only mp3|aac]

Makes 60 s 44.1 kHz streams from music-like synthetic audio (plucked melody, bass,
noise bursts that force short blocks): MP3 mono and stereo at 128 kb/s with lame,
AAC-LC mono 64 kb/s, stereo 128 kb/s and 5.1 320 kb/s with ffmpeg's encoder. Each
decoder's CPU time (user + system of the whole process) is measured on the stream and
on its first 1/400 (at least 1500 bytes: a few frames, the start-up), and the difference is the net
decoding time, as scripts/mp3_conformance.sh and scripts/aac_conformance.py count it.
The runs are interleaved (round r times every decoder on every stream once), so a
machine shared with other work loads all decoders alike; the table shows medians.
ZAMAC_DECODE_BASE=/path/to/another/zamac-decode adds an earlier build as a column.
"""
import os
import resource
import statistics
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
sys.path.insert(0, HERE)
from aac_conformance import MELODY, BASS, HAT, encode  # noqa: E402


def cpu(cmd):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run(cmd, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return (after.ru_utime - before.ru_utime) + (after.ru_stime - before.ru_stime)


def head_of(path):
    stem, ext = os.path.splitext(path)
    return stem + ".head" + ext


def make_mp3(path, channels):
    left = "0.35*%s+0.25*%s+0.3*%s" % (MELODY, BASS, HAT % 0)
    right = "0.25*%s+0.3*%s+0.2*%s+0.1*sin(2*PI*t*660)" % (MELODY, BASS, HAT % 1)
    exprs = left if channels == 1 else left + "|" + right
    wav = path + ".wav"
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-f", "lavfi", "-i",
                    "aevalsrc=exprs='%s':s=44100:d=60" % exprs, "-c:a", "pcm_s16le", wav], check=True)
    subprocess.run(["lame", "--quiet", "-m", "m" if channels == 1 else "j", "-b", "128", wav, path], check=True)
    os.remove(wav)


def main():
    args = sys.argv[1:]
    opt = lambda name, default: args[args.index(name) + 1] if name in args else default  # noqa: E731
    build = opt("--build", os.path.join(ROOT, "build", "release"))
    runs = int(opt("--runs", "7"))
    only = opt("--only", None)
    tmp = opt("--keep", None) or tempfile.mkdtemp(prefix="zamac-speed-")
    os.makedirs(tmp, exist_ok=True)
    tool = os.environ.get("ZAMAC_DECODE") or os.path.join(build, "tools", "zamac-decode", "zamac-decode")
    base_tool = os.environ.get("ZAMAC_DECODE_BASE")

    zamac = lambda f: [tool, "--bench", f]  # noqa: E731
    mpg123 = lambda f: ["mpg123", "-q", "-t", f]  # noqa: E731
    ffmpeg = lambda f: ["ffmpeg", "-nostdin", "-v", "error", "-threads", "1", "-i", f, "-f", "null", "-"]  # noqa
    faad = lambda f: ["faad", "-q", "-o", "/dev/null", f]  # noqa: E731
    streams = []  # (name, path, {decoder: command})
    if only in (None, "mp3"):
        for channels, name in ((1, "MP3 mono 128k"), (2, "MP3 stereo 128k")):
            path = os.path.join(tmp, "speed-%dch.mp3" % channels)
            if not os.path.exists(path):
                make_mp3(path, channels)
            streams.append((name, path, {"mpg123": mpg123, "ffmpeg": ffmpeg}))
    if only in (None, "aac"):
        for channels, bitrate, name in ((1, "64k", "AAC mono 64k"), (2, "128k", "AAC stereo 128k"),
                                        (6, "320k", "AAC 5.1 320k")):
            path = os.path.join(tmp, "speed-%dch.aac" % channels)
            if not os.path.exists(path):
                encode(path, 44100, channels, bitrate, [], 60)
            streams.append((name, path, {"ffmpeg": ffmpeg, "faad": faad}))
    for _, path, peers in streams:
        peers["zamac"] = zamac
        if base_tool:
            peers["base"] = lambda f: [base_tool, "--bench", f]  # noqa: E731
        with open(path, "rb") as src, open(head_of(path), "wb") as dst:
            dst.write(src.read(max(1500, os.path.getsize(path) // 400)))

    times = {}  # (stream, decoder) -> list of net seconds
    for _ in range(runs):
        for name, path, peers in streams:
            for decoder, command in peers.items():
                net = cpu(command(path)) - cpu(command(head_of(path)))
                times.setdefault((name, decoder), []).append(max(net, 1e-6))

    print("Net CPU seconds for 60 s of 44.1 kHz audio, median of %d interleaved runs" % runs)
    print("(ratio: the fastest peer's time over zamac-decode's; 2.00 is the goal)")
    print()
    print("| stream | zamac-decode |%s mpg123 | ffmpeg | faad | fastest peer / zamac |" % (
        " base |" if base_tool else ""))
    print("|---|---|%s---|---|---|---|" % ("---|" if base_tool else ""))
    for name, _, peers in streams:
        med = {d: statistics.median(times[(name, d)]) for d in peers}
        fastest = min(med[d] for d in peers if d not in ("zamac", "base"))
        cell = lambda d: "%.3f" % med[d] if d in med else "-"  # noqa: E731
        print("| %s | %s |%s %s | %s | %s | %.2f |" % (
            name, cell("zamac"), " %s |" % cell("base") if base_tool else "", cell("mpg123"), cell("ffmpeg"),
            cell("faad"), fastest / med["zamac"]))
    return 0


if __name__ == "__main__":
    sys.exit(main())
