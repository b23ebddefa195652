#!/usr/bin/env python3
"""Quality and speed of zamac-encode against Debian's lame, side by side in one run.

Items: the synthetic music and espeak-ng speech of ../shared/tools/quality (made here
at 44.1 kHz), plus transients (clicks, drum-like bursts, castanet-like ticks), tones
(a pure sine and a harmonic tone with a slow sweep) and near-silence. Settings:
64 kb/s mono, 128 and 192 kb/s stereo at 44.1 kHz, 32 kb/s stereo at 22.05 kHz. Both
encoders at their defaults otherwise; both decoded by mpg123 (gapless); PEAQ ODG by
../shared/tools/quality/measure.sh; CPU time of each encode, median of --runs runs.

usage: scripts/mp3_quality.py [--work DIR] [--runs N] [--encoder PATH] [--items a,b]
"""
import argparse
import os
import resource
import statistics
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
MEASURE = os.path.join(ROOT, "..", "shared", "tools", "quality", "measure.sh")
SETTINGS = [("64 mono", 44100, 1, 64), ("128 stereo", 44100, 2, 128), ("192 stereo", 44100, 2, 192),
            ("32 @22.05", 22050, 2, 32)]


def sox(*args):
    subprocess.run(["sox", "-R", "-V1", *args], check=True)


def make_items(w):
    """Reference items at 44.1 kHz stereo, 16 bit, band-limited to 20 kHz."""
    r = "44100"
    items = {}
    os.chdir(w)
    # music-like: plucked chords, a saw pad, hi-hats, clicks, pink noise (as validate.sh)
    for i, ch in enumerate(["%-21 %-17 %-14 %-9", "%-24 %-21 %-17 %-12", "%-28 %-24 %-21 %-16", "%-26 %-22 %-19 %-14"]):
        a = ch.split()
        sox("-n", "-r", r, "-c", "1", f"c{i}.wav", "synth", "2.5", "pluck", a[0], "pluck", a[1], "pluck", a[2],
            "pluck", a[3], "remix", "-", "gain", "-n", "-12")
    for i, ch in enumerate(["%-33 %-21 %-17", "%-36 %-24 %-21", "%-40 %-28 %-24", "%-38 %-26 %-22"]):
        a = ch.split()
        sox("-n", "-r", r, "-c", "1", f"p{i}.wav", "synth", "2.5", "sawtooth", a[0], "sine", a[1], "triangle", a[2],
            "remix", "-", "lowpass", "3000", "tremolo", "5", "30", "fade", "0.05", "2.5", "0.1", "gain", "-n", "-14")
    sox("c0.wav", "c1.wav", "c2.wav", "c3.wav", "chords.wav")
    sox("p0.wav", "p1.wav", "p2.wav", "p3.wav", "pad.wav")
    sox("-n", "-r", r, "-c", "1", "hat1.wav", "synth", "0.04", "whitenoise", "fade", "0", "0.04", "0.035", "highpass",
        "7000", "gain", "-n", "-20", "pad", "0", "0.21")
    sox("hat1.wav", "hats.wav", "repeat", "39")
    sox("-n", "-r", r, "-c", "1", "clk1.wav", "synth", "0.006", "whitenoise", "fade", "0", "0.006", "0.005",
        "bandpass", "2500", "1.5q", "gain", "-n", "-6", "pad", "0.5", "0.494")
    sox("clk1.wav", "clicks.wav", "repeat", "9")
    sox("-n", "-r", r, "-c", "1", "pinkL.wav", "synth", "10", "pinknoise", "gain", "-n", "-38")
    sox("pinkL.wav", "pinkR.wav", "reverse")
    sox("-m", "-v", "0.9", "chords.wav", "-v", "0.4", "pad.wav", "-v", "0.9", "hats.wav", "-v", "0.8", "clicks.wav",
        "-v", "1", "pinkL.wav", "L.wav")
    sox("-m", "-v", "0.4", "chords.wav", "-v", "0.9", "pad.wav", "-v", "0.5", "hats.wav", "-v", "0.8", "clicks.wav",
        "-v", "1", "pinkR.wav", "R.wav")
    sox("-M", "L.wav", "R.wav", "-b", "16", "music.wav", "sinc", "-20000", "gain", "-n", "-1")
    items["music"] = "music.wav"
    subprocess.run(["espeak-ng", "-v", "en-us", "-s", "150", "-w", "sp.wav",
                    "The quick brown fox jumps over the lazy dog. Perceptual audio coders remove what the ear "
                    "cannot hear, but at low bit rates the artifacts become audible."], check=True)
    sox("sp.wav", "-r", r, "-c", "2", "-b", "16", "speech.wav", "rate", "-v", "gain", "-n", "-3", "pad", "0.3", "0.3")
    items["speech"] = "speech.wav"
    # transients: drum-like decaying noise bursts, castanet-like ticks over a quiet pad
    sox("-n", "-r", r, "-c", "1", "kick.wav", "synth", "0.25", "sine", "120-45", "fade", "0", "0.25", "0.22",
        "gain", "-n", "-3", "pad", "0", "0.25")
    sox("kick.wav", "kicks.wav", "repeat", "15")
    sox("-n", "-r", r, "-c", "1", "snare1.wav", "synth", "0.12", "whitenoise", "fade", "0", "0.12", "0.11",
        "bandpass", "1800", "0.8q", "gain", "-n", "-6", "pad", "0.25", "0.13")
    sox("snare1.wav", "snares.wav", "repeat", "15")
    sox("-n", "-r", r, "-c", "1", "tick1.wav", "synth", "0.004", "whitenoise", "highpass", "3000", "gain", "-n", "-8",
        "pad", "0.1", "0.021")
    sox("tick1.wav", "ticks.wav", "repeat", "63")
    sox("-n", "-r", r, "-c", "1", "quiet.wav", "synth", "8", "sine", "%-21", "gain", "-n", "-40")
    sox("-m", "kicks.wav", "snares.wav", "ticks.wav", "quiet.wav", "tL.wav", "trim", "0", "8")
    sox("-m", "-v", "0.8", "kicks.wav", "-v", "1.0", "snares.wav", "-v", "0.6", "ticks.wav", "quiet.wav", "tR.wav",
        "trim", "0", "8")
    sox("-M", "tL.wav", "tR.wav", "-b", "16", "transients.wav", "sinc", "-20000", "gain", "-n", "-1")
    items["transients"] = "transients.wav"
    # tones: a pure sine, then a harmonic tone sweeping slowly
    sox("-n", "-r", r, "-c", "2", "-b", "16", "sine.wav", "synth", "4", "sine", "1000", "gain", "-n", "-6")
    sox("-n", "-r", r, "-c", "1", "h.wav", "synth", "6", "sine", "220-330", "sine", "440-660", "sine", "880-1320",
        "sine", "1760-2640", "remix", "-", "gain", "-n", "-6")
    sox("sine.wav", "-c", "1", "sine1.wav", "remix", "1")
    sox("sine1.wav", "h.wav", "-c", "2", "-b", "16", "tones.wav", "remix", "1", "1")
    items["tones"] = "tones.wav"
    # near-silence: dithered digital silence with a very quiet tone
    sox("-n", "-r", r, "-c", "2", "-b", "16", "silence.wav", "synth", "5", "sine", "440", "gain", "-n", "-84")
    items["silence"] = "silence.wav"
    return items


def child_cpu():
    u = resource.getrusage(resource.RUSAGE_CHILDREN)
    return u.ru_utime + u.ru_stime


def timed(cmd):
    before = child_cpu()
    subprocess.run(cmd, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return child_cpu() - before


def odg(ref, test):
    out = subprocess.run([MEASURE, ref, test], check=True, capture_output=True, text=True).stdout.split()
    return float(out[1]), int(out[5])


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--work", default="/tmp/zamac-mp3-quality")
    ap.add_argument("--runs", type=int, default=3)
    ap.add_argument("--encoder", default=os.path.join(ROOT, "build", "release", "tools", "zamac-encode", "zamac-encode"))
    ap.add_argument("--items", default="")
    args = ap.parse_args()
    os.makedirs(args.work, exist_ok=True)
    encoder = os.path.abspath(args.encoder)
    items = make_items(args.work)
    if args.items:
        items = {k: v for k, v in items.items() if k in args.items.split(",")}
    rows = []
    print(f"{'item':11} {'setting':11} {'lame ODG':>9} {'zamac ODG':>9} {'diff':>6} {'lame s':>7} {'zamac s':>7} {'speed':>6}  lag")
    for name, wav in items.items():
        for label, rate, ch, kbps in SETTINGS:
            ref = f"{name}_{rate}_{ch}.wav"
            sox(wav, "-r", str(rate), "-c", str(ch), "-b", "16", ref, "rate", "-v")
            res = {}  # encoder -> (ODG, median CPU s, lag)
            for enc in ("lame", "zamac"):
                mp3 = f"{name}_{rate}_{ch}_{kbps}.{enc}.mp3"
                if enc == "lame":
                    cmd = ["lame", "--quiet", "--cbr", "-b", str(kbps), "--resample", f"{rate / 1000:g}", ref, mp3]
                else:
                    cmd = [encoder, "--quiet", "-b", str(kbps), ref, mp3]
                times = [timed(cmd) for _ in range(args.runs)]
                dec = mp3[:-4] + ".wav"
                subprocess.run(["mpg123", "-q", "-w", dec, mp3], check=True)
                score, lag = odg(ref, dec)
                res[enc] = (score, statistics.median(times), lag)
            d = res["zamac"][0] - res["lame"][0]
            speed = res["lame"][1] / max(res["zamac"][1], 1e-6)
            rows.append((name, label, res["lame"][0], res["zamac"][0], d, res["lame"][1], res["zamac"][1], speed))
            print(f"{name:11} {label:11} {res['lame'][0]:9.3f} {res['zamac'][0]:9.3f} {d:6.2f} {res['lame'][1]:7.3f} "
                  f"{res['zamac'][1]:7.3f} {speed:5.1f}x  {res['lame'][2]}/{res['zamac'][2]}", flush=True)
    diffs = [r[4] for r in rows if r[4] == r[4]]  # PEAQ gives no score for silence
    lame_t = sum(r[5] for r in rows)
    zam_t = sum(r[6] for r in rows)
    print(f"\nmean ODG difference (zamac - lame): {statistics.mean(diffs):.3f}; worst {min(diffs):.3f}")
    print(f"CPU time, medians summed: lame {lame_t:.2f} s, zamac {zam_t:.2f} s: {lame_t / max(zam_t, 1e-6):.2f}x")
    return 0


if __name__ == "__main__":
    sys.exit(main())
