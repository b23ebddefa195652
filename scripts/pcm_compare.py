#!/usr/bin/env python3
"""Compares two 16-bit WAVE files decoded from the same AAC stream.

    pcm_compare.py reference.wav test.wav [--noise-frames LIST]

Finds the whole-frame delay (a multiple of 1024 samples, up to 3 frames either way)
that best aligns test with reference, then prints one line:

    offset=<samples> psnr=<dB> maxdiff=<LSB> frames=<n> [clean_frames=<n> clean_psnr=<dB>
    clean_maxdiff=<LSB> worst_energy_db=<dB>]

PSNR is against a full-scale 16-bit peak (32767) over all channels, leaving out the
first and last frame. With --noise-frames (comma-separated 1-based frame numbers of
the test stream that contain noise-substituted bands), output frames touched by noise
(the frame itself and the one after it, through the overlap) are measured by energy
only: worst_energy_db is the largest per-frame, per-channel energy difference there;
clean_psnr / clean_maxdiff cover the other frames. --map c0,c1,... compares reference
channel k with test channel c_k (for decoders that order channels differently).
"""
import array
import math
import struct
import sys


def read_wav(path):
    """(channels, samples) of a 16-bit PCM WAVE file, plain or extensible."""
    data = open(path, "rb").read()
    assert data[:4] == b"RIFF" and data[8:12] == b"WAVE", path + ": not a WAVE file"
    at, channels, samples = 12, 0, None
    while at + 8 <= len(data):
        cid, size = data[at:at + 4], struct.unpack_from("<I", data, at + 4)[0]
        if cid == b"fmt ":
            channels = struct.unpack_from("<H", data, at + 10)[0]
            assert struct.unpack_from("<H", data, at + 22)[0] == 16, "16-bit PCM expected"
        elif cid == b"data":
            size = min(size, len(data) - at - 8) & ~1
            samples = array.array("h", data[at + 8:at + 8 + size])
            break
        at += 8 + size + (size & 1)
    if sys.byteorder != "little":
        samples.byteswap()
    return channels, samples


def frame_stats(ref, test, channels, frame, offset):
    """(squared error, max diff, [(ref energy, test energy)] per channel) of one frame."""
    start = frame * 1024 * channels
    tstart = start - offset * channels
    err = 0
    peak = 0
    energies = [[0.0, 0.0] for _ in range(channels)]
    r = ref[start:start + 1024 * channels]
    t = test[tstart:tstart + 1024 * channels]
    for i in range(min(len(r), len(t))):
        d = r[i] - t[i]
        err += d * d
        if abs(d) > peak:
            peak = abs(d)
        e = energies[i % channels]
        e[0] += r[i] * r[i]
        e[1] += t[i] * t[i]
    return err, peak, energies


def main():
    args = sys.argv[1:]
    noise = None
    if "--noise-frames" in args:
        i = args.index("--noise-frames")
        noise = set(int(x) for x in args[i + 1].split(",") if x)
        del args[i:i + 2]
    mapping = None
    if "--map" in args:
        i = args.index("--map")
        mapping = [int(x) for x in args[i + 1].split(",")]
        del args[i:i + 2]
    rc, ref = read_wav(args[0])
    tc, test = read_wav(args[1])
    if mapping:  # reference channel c is test channel mapping[c]
        n = len(test) // tc
        test = array.array("h", (test[i * tc + mapping[c]] for i in range(n) for c in range(tc)))
    if rc != tc:
        print("channels differ: %d vs %d" % (rc, tc))
        return 1
    ch = rc
    # test sample n corresponds to reference sample n + offset
    best = None
    mid = (min(len(ref), len(test)) // ch) // 2
    for k in range(-3, 4):
        off = k * 1024
        err = 0
        for i in range(mid, mid + 4096):
            j = i - off
            if 0 <= j < len(test) // ch and i < len(ref) // ch:
                for c in range(ch):
                    d = ref[i * ch + c] - test[j * ch + c]
                    err += d * d
        if best is None or err < best[0]:
            best = (err, off)
    offset = best[1]
    nframes = min(len(ref) // ch, len(test) // ch + offset) // 1024
    first = max(1, (offset + 1023) // 1024 + 1)
    total_err = 0
    total_n = 0
    peak = 0
    clean_err = 0
    clean_n = 0
    clean_peak = 0
    clean_frames = 0
    worst_db = 0.0
    for f in range(first, nframes - 1):
        err, p, energies = frame_stats(ref, test, ch, f, offset)
        total_err += err
        total_n += 1024 * ch
        peak = max(peak, p)
        if noise is not None:
            test_frame = f - offset // 1024 + 1  # 1-based frame number in the test stream
            if test_frame in noise or (test_frame - 1) in noise:
                for er, et in energies:
                    if er > 1e3 * 1024 or et > 1e3 * 1024:  # ignore near-silent frames
                        worst_db = max(worst_db, abs(10 * math.log10((et + 1) / (er + 1))))
            else:
                clean_frames += 1
                clean_err += err
                clean_n += 1024 * ch
                clean_peak = max(clean_peak, p)

    def psnr(e, n):
        return float("inf") if e == 0 else 10 * math.log10(32767.0 ** 2 / (e / n))

    line = "offset=%d psnr=%.1f maxdiff=%d frames=%d" % (offset, psnr(total_err, max(total_n, 1)), peak,
                                                          nframes - 1 - first)
    if noise is not None:
        line += " clean_frames=%d clean_psnr=%.1f clean_maxdiff=%d worst_energy_db=%.2f" % (
            clean_frames, psnr(clean_err, max(clean_n, 1)), clean_peak, worst_db)
    print(line)
    return 0


if __name__ == "__main__":
    sys.exit(main())
