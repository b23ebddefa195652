#!/usr/bin/env python3
"""Conformance and speed of zamac-decode against Debian's ffmpeg and faad.

    scripts/aac_conformance.py [--build DIR] [--quick] [--speed-only]

Makes AAC streams with ffmpeg's native encoder from synthetic music-like audio
(mono, stereo and 5.1; 8 to 96 kHz; with and without the encoder's noise
substitution, intensity, M/S and TNS, and with a program configuration element),
decodes each with zamac-decode, ffmpeg and (above 24 kHz, where faad does not assume
implicit SBR) faad, and prints a table of PSNR and maximum difference in LSB. Then
it decodes 60 s 44.1 kHz mono, stereo and 5.1 streams with all three and prints the
CPU-time ratios net of start-up (medians of 5 runs); ZAMAC_DECODE_BASE names a second zamac-decode
(an earlier build) to time beside the first.
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

MELODY = "sin(2*PI*t*440*pow(2,(3*floor(mod(4*t,5))+2*floor(mod(t,3)))/12))*exp(-6*mod(t,0.25))"
BASS = "sin(2*PI*t*110*pow(2,floor(mod(t/2,4))*5/12))*(0.6+0.4*sin(2*PI*t*0.5))"
HAT = "(random(%d)-0.5)*exp(-60*mod(t+0.125,0.25))"
# Noise bursts in odd seconds only: the encoder's noise substitution then leaves the
# even seconds alone, and those frames can be compared sample by sample.
GATED_HAT = HAT + "*gt(mod(t,2),1)"


def channel_exprs(n, gated=False):
    exprs = []
    for c in range(n):
        gain = 0.3 - 0.03 * c
        hat = (GATED_HAT if gated else HAT) % c
        exprs.append("%.2f*%s+0.25*%s+0.25*%s+0.05*sin(2*PI*t*%d)" % (gain, MELODY, BASS, hat, 300 + 97 * c))
    return "|".join(exprs)


# name, rate, channels, bitrate, extra encoder options
STREAMS = [
    ("mono-8k", 8000, 1, "24k", ["-aac_pns", "0"]),
    ("mono-16k", 16000, 1, "32k", ["-aac_pns", "0"]),
    ("mono-22k", 22050, 1, "48k", ["-aac_pns", "0"]),
    ("stereo-24k", 24000, 2, "64k", ["-aac_pns", "0"]),
    ("stereo-32k", 32000, 2, "96k", ["-aac_pns", "0"]),
    ("stereo-44k", 44100, 2, "128k", ["-aac_pns", "0"]),
    ("stereo-44k-noIS-noTNS", 44100, 2, "128k", ["-aac_pns", "0", "-aac_is", "0", "-aac_tns", "0"]),
    ("stereo-44k-forceMS", 44100, 2, "160k", ["-aac_pns", "0", "-aac_ms", "1"]),
    ("stereo-44k-lowrate-IS", 44100, 2, "48k", ["-aac_pns", "0"]),
    ("stereo-48k-PCE", 48000, 2, "128k", ["-aac_pns", "0", "-aac_pce", "1"]),
    ("stereo-64k", 64000, 2, "160k", ["-aac_pns", "0"]),
    ("stereo-88k", 88200, 2, "192k", ["-aac_pns", "0"]),
    ("stereo-96k", 96000, 2, "192k", ["-aac_pns", "0"]),
    ("3.0-44k", 44100, 3, "192k", ["-aac_pns", "0"]),
    ("4.0-44k", 44100, 4, "256k", ["-aac_pns", "0"]),
    ("5.0-48k", 48000, 5, "256k", ["-aac_pns", "0"]),
    ("5.1-48k", 48000, 6, "320k", ["-aac_pns", "0"]),
    ("7.1-48k", 48000, 8, "448k", ["-aac_pns", "0"]),
    ("5.1-48k-PCE", 48000, 6, "320k", ["-aac_pns", "0", "-aac_pce", "1"]),
    ("mono-11k", 11025, 1, "24k", ["-aac_pns", "0"]),
    ("mono-12k", 12000, 1, "24k", ["-aac_pns", "0"]),
    ("PNS stereo-44k", 44100, 2, "96k", []),
    ("PNS stereo-44k-lowrate", 44100, 2, "64k", []),
    ("PNS mono-22k", 22050, 1, "48k", []),
    ("PNS 5.1-48k", 48000, 6, "256k", []),
]


def run(cmd, **kw):
    return subprocess.run(cmd, check=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **kw)


def encode(path, rate, channels, bitrate, extra, seconds, gated=False):
    layout = {1: "mono", 2: "stereo", 3: "3.0", 4: "4.0", 5: "5.0", 6: "5.1", 8: "7.1"}[channels]
    run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-f", "lavfi", "-i",
         "aevalsrc=exprs='%s':s=%d:d=%g:c=%s" % (channel_exprs(channels, gated), rate, seconds, layout),
         "-c:a", "aac", "-b:a", bitrate] + extra + ["-f", "adts", path])


def noise_frames(tool, path):
    out = run([tool, "--info", "--frames", path]).stdout.decode()
    frames = []
    for line in out.splitlines():
        if line.startswith("frame ") and " pns" in line:
            frames.append(line.split()[1].rstrip(":"))
    return ",".join(frames)


def compare(ref, test, noise=None, mapping=None):
    cmd = [sys.executable, os.path.join(HERE, "pcm_compare.py"), ref, test]
    if mapping:
        cmd += ["--map", mapping]
    if noise is not None:
        cmd += ["--noise-frames", noise or "0"]
    fields = dict(kv.split("=") for kv in run(cmd).stdout.decode().split())
    return fields


def child_cpu(cmd):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run(cmd, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return (after.ru_utime - before.ru_utime) + (after.ru_stime - before.ru_stime)


def main():
    args = sys.argv[1:]
    build = os.path.join(ROOT, "build")
    if "--build" in args:
        build = args[args.index("--build") + 1]
    tool = os.path.join(build, "tools", "zamac-decode", "zamac-decode")
    quick = "--quick" in args
    tmp = tempfile.mkdtemp(prefix="zamac-conformance-")

    if "--speed-only" not in args:
        print("| stream | zamac vs ffmpeg PSNR / max diff | zamac vs faad PSNR / max diff | ffmpeg vs faad |")
        print("|---|---|---|---|")
        for name, rate, channels, bitrate, extra in STREAMS[:4] if quick else STREAMS:
            base = os.path.join(tmp, name.replace(" ", "_"))
            aac = base + ".aac"
            try:
                encode(aac, rate, channels, bitrate, extra, 6, gated="-aac_pns" not in extra)
            except subprocess.CalledProcessError as e:
                print("| %s | the encoder refused: %s | | |" % (name, e.stderr.decode().strip()[:80]))
                continue
            run([tool, "-o", base + ".zamac.wav", aac])
            run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-i", aac, base + ".ffmpeg.wav"])
            pns = "-aac_pns" not in extra
            noise = noise_frames(tool, aac) if pns else None

            # ffmpeg 5.1 takes channel configuration 7 as FL FR / SL SR / BL BR; zamac-decode
            # follows the standard (centre pair, outside front pair, surround pair).
            mapping = "6,7,2,3,4,5,0,1" if channels == 8 else None

            def cell(ref, mapping=None):
                f = compare(ref, base + ".zamac.wav", noise, mapping)
                if pns:
                    return "%s dB / %s (%s frames without noise: %s dB / %s; noise frames: energy within %s dB)" % (
                        f["psnr"], f["maxdiff"], f["clean_frames"], f["clean_psnr"], f["clean_maxdiff"],
                        f["worst_energy_db"])
                return "%s dB / %s" % (f["psnr"], f["maxdiff"])

            vs_ffmpeg = cell(base + ".ffmpeg.wav", mapping)
            vs_faad = ref_pair = "n/a (faad: implicit SBR)"
            if rate > 24000:
                run(["faad", "-q", "-o", base + ".faad.wav", aac])
                # faad writes 3, 4, 5 and 8 channels in the order of the elements
                # (centre first); (faad channel for each zamac channel, for each ffmpeg channel).
                to_zamac, to_ffmpeg = {3: ("2,0,1", "1,2,0"), 4: ("2,0,1,3", "1,2,0,3"),
                                       5: ("2,0,1,3,4", "1,2,0,3,4"),
                                       8: ("2,6,7,0,1,4,5,3", "1,2,0,7,5,6,3,4")}.get(channels, (None, None))
                vs_faad = cell(base + ".faad.wav", to_zamac)
                f = compare(base + ".ffmpeg.wav", base + ".faad.wav", None, to_ffmpeg)
                ref_pair = "%s dB / %s" % (f["psnr"], f["maxdiff"])
            print("| %s (%d Hz, %d ch, %s) | %s | %s | %s |" % (name, rate, channels, bitrate, vs_ffmpeg, vs_faad,
                                                             ref_pair))
            sys.stdout.flush()

    # Speed: CPU time of the whole process net of start-up (the same command on the
    # stream's first 1500 bytes or 1/400 of it, a few frames), 60 s streams in mono, stereo and 5.1.
    # ZAMAC_DECODE_BASE=/path/to/another/zamac-decode adds it as a column (before/after).
    base_tool = os.environ.get("ZAMAC_DECODE_BASE")
    runs = 3 if quick else 5
    print()
    print("Net CPU seconds for 60 s at 44.1 kHz, median of %d runs (ratio = peer time / zamac-decode time):" % runs)
    print("| stream | zamac-decode |%s ffmpeg | faad | ffmpeg / zamac | faad / zamac |" % (
        " base zamac-decode |" if base_tool else ""))
    print("|---|---|%s---|---|---|---|" % ("---|" if base_tool else ""))
    for channels, bitrate in ((1, "64k"), (2, "128k"), (6, "320k")):
        aac = os.path.join(tmp, "speed-60s-%dch.aac" % channels)
        encode(aac, 44100, channels, bitrate, [], 60)
        head = aac + ".head.aac"
        with open(aac, "rb") as src, open(head, "wb") as dst:
            dst.write(src.read(max(1500, os.path.getsize(aac) // 400)))  # a few frames, also at 5.1
        commands = {"zamac": lambda f: [tool, "--bench", f],
                    "ffmpeg": lambda f: ["ffmpeg", "-nostdin", "-v", "error", "-threads", "1", "-i", f, "-f", "null",
                                         "-"],
                    "faad": lambda f: ["faad", "-q", "-o", "/dev/null", f]}
        if base_tool:
            commands["base"] = lambda f: [base_tool, "--bench", f]
        net = {}
        for name, cmd in commands.items():
            full = statistics.median(child_cpu(cmd(aac)) for _ in range(runs))
            start = statistics.median(child_cpu(cmd(head)) for _ in range(runs))
            net[name] = max(full - start, 1e-6)
        print("| %d ch, %s | %.3f |%s %.3f | %.3f | %.2f | %.2f |" % (
            channels, bitrate, net["zamac"], " %.3f |" % net["base"] if base_tool else "", net["ffmpeg"], net["faad"],
            net["ffmpeg"] / net["zamac"], net["faad"] / net["zamac"]))
        sys.stdout.flush()
    return 0


if __name__ == "__main__":
    sys.exit(main())
