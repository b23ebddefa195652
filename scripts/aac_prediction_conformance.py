#!/usr/bin/env python3
"""AAC Main and LTP conformance of zamac-decode, and its integer filter bank.

    scripts/aac_prediction_conformance.py [--build DIR] [--quick] [--fixed-corpus]

Makes AAC Main (-profile:a aac_main -aac_pred 1) and AAC LTP (-profile:a aac_ltp
-aac_ltp 1) streams with ffmpeg's native encoder from the synthetic music of
aac_conformance.py (mono and stereo, several rates, long and short windows), decodes
each with zamac-decode (float and --fixed), ffmpeg and faad (above 24 kHz), and
prints PSNR / maximum difference in LSB for every pair. With --fixed-corpus it also
compares --fixed with the float path on every stream of aac_conformance.py.
"""
import os
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
from aac_conformance import ROOT, STREAMS, compare, encode, noise_frames, run  # noqa: E402

MAIN = ["-profile:a", "aac_main", "-aac_pred", "1"]
LTP = ["-strict", "-2", "-profile:a", "aac_ltp", "-aac_ltp", "1"]
NO_PNS = ["-aac_pns", "0"]

# name, rate, channels, bitrate, encoder options
PRED_STREAMS = [
    ("Main mono-44k", 44100, 1, "64k", MAIN + NO_PNS),
    ("Main stereo-44k", 44100, 2, "128k", MAIN + NO_PNS),
    ("Main stereo-48k-noIS", 48000, 2, "160k", MAIN + NO_PNS + ["-aac_is", "0"]),
    ("Main stereo-32k", 32000, 2, "96k", MAIN + NO_PNS),
    ("Main mono-22k", 22050, 1, "48k", MAIN + NO_PNS),
    ("Main stereo-16k", 16000, 2, "48k", MAIN + NO_PNS),
    ("Main PNS stereo-44k", 44100, 2, "96k", MAIN),
    ("LTP mono-44k", 44100, 1, "64k", LTP + NO_PNS),
    ("LTP stereo-44k", 44100, 2, "128k", LTP + NO_PNS),
    ("LTP stereo-48k-noIS", 48000, 2, "160k", LTP + NO_PNS + ["-aac_is", "0"]),
    ("LTP stereo-32k", 32000, 2, "96k", LTP + NO_PNS),
    ("LTP mono-22k", 22050, 1, "48k", LTP + NO_PNS),
    ("LTP stereo-16k", 16000, 2, "48k", LTP + NO_PNS),
    ("LTP PNS stereo-44k", 44100, 2, "96k", LTP),
]


def fmt(f, noise):
    if noise is None:
        return "%s / %s" % (f["psnr"], f["maxdiff"])
    return "%s / %s (no-noise frames %s / %s)" % (f["psnr"], f["maxdiff"], f["clean_psnr"], f["clean_maxdiff"])


def mono_of(path):
    """faad writes mono as two equal channels: keep the first."""
    out = path[:-4] + ".mono.wav"
    run(["sox", path, out, "remix", "1"])
    return out


def main():
    args = sys.argv[1:]
    build = args[args.index("--build") + 1] if "--build" in args else os.path.join(ROOT, "build")
    tool = os.path.join(build, "tools", "zamac-decode", "zamac-decode")
    quick = "--quick" in args
    tmp = tempfile.mkdtemp(prefix="zamac-prediction-")

    print("| stream | zamac vs ffmpeg | zamac vs faad | ffmpeg vs faad | --fixed vs float | --fixed vs ffmpeg |")
    print("|---|---|---|---|---|---|")
    for name, rate, channels, bitrate, extra in PRED_STREAMS[::3] if quick else PRED_STREAMS:
        base = os.path.join(tmp, name.replace(" ", "_"))
        aac = base + ".aac"
        encode(aac, rate, channels, bitrate, extra, 6, gated="-aac_pns" not in extra)
        run([tool, "-o", base + ".z.wav", aac])
        run([tool, "--fixed", "-o", base + ".zf.wav", aac])
        run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-i", aac, base + ".ff.wav"])
        noise = noise_frames(tool, aac) if "-aac_pns" not in extra else None
        z_ff = fmt(compare(base + ".ff.wav", base + ".z.wav", noise), noise)
        zf_z = fmt(compare(base + ".z.wav", base + ".zf.wav"), None)
        zf_ff = fmt(compare(base + ".ff.wav", base + ".zf.wav", noise), noise)
        z_faad = ff_faad = "n/a (faad: implicit SBR)"
        if rate > 24000:
            run(["faad", "-q", "-o", base + ".faad.wav", aac])
            faad = mono_of(base + ".faad.wav") if channels == 1 else base + ".faad.wav"
            z_faad = fmt(compare(faad, base + ".z.wav", noise), noise)
            ff_faad = fmt(compare(base + ".ff.wav", faad), None)
        print("| %s (%d Hz, %d ch, %s) | %s | %s | %s | %s | %s |" % (name, rate, channels, bitrate, z_ff, z_faad,
                                                                     ff_faad, zf_z, zf_ff))
        sys.stdout.flush()

    if "--fixed-corpus" in args:
        print()
        print("| AAC-LC stream | --fixed vs float (PSNR dB / max diff LSB) |")
        print("|---|---|")
        for name, rate, channels, bitrate, extra in STREAMS:
            base = os.path.join(tmp, "lc-" + name.replace(" ", "_"))
            aac = base + ".aac"
            try:
                encode(aac, rate, channels, bitrate, extra, 6, gated="-aac_pns" not in extra)
            except subprocess.CalledProcessError:
                continue
            run([tool, "-o", base + ".z.wav", aac])
            run([tool, "--fixed", "-o", base + ".zf.wav", aac])
            print("| %s (%d Hz, %d ch) | %s |" % (name, rate, channels,
                                                 fmt(compare(base + ".z.wav", base + ".zf.wav"), None)))
            sys.stdout.flush()
    return 0


if __name__ == "__main__":
    sys.exit(main())
