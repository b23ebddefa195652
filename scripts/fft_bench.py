#!/usr/bin/env python3
"""Complex FFT against FFTW and av_tx, side by side: runs the transform
benchmark R times (each run times FFTW, av_tx and zamac at every size in one
process, a fraction of a second apart) and prints the median per size and the
ratio zamac / FFTW (the median of the per-run ratios, which cancels most of
the load other processes put on a shared machine). Usage: scripts/fft_bench.py [bench binary] [repetitions]"""
import json, statistics, subprocess, sys

binary = sys.argv[1] if len(sys.argv) > 1 else "build/release/bench/zamac_bench"
reps = int(sys.argv[2]) if len(sys.argv) > 2 else 7
times = {}  # (peer, size) -> [ns]
ratios = {}  # size -> [zamac / FFTW of one run]
for r in range(reps):
    out = subprocess.run([binary, "--benchmark_filter=BM_Fft_", "--benchmark_format=json",
                          "--benchmark_min_time=0.05"], capture_output=True, text=True, check=True).stdout
    for b in json.loads(out[out.index("{"):out.rindex("}") + 1])["benchmarks"]:
        name, size = b["name"].split("/")[:2]
        peer = name.split("_")[-1]
        ns = b.get("ns_per_transform", b["cpu_time"])
        times.setdefault((peer, int(size)), []).append(ns)
    for (peer, size), v in times.items():
        if peer == "zamac" and len(v) == r + 1 and len(times.get(("FFTW", size), [])) == r + 1:
            ratios.setdefault(size, []).append(v[-1] / times[("FFTW", size)][-1])
sizes = sorted({s for _, s in times})
med = lambda p, s: statistics.median(times[(p, s)]) if (p, s) in times else float("nan")
print(f"| N | zamac ns | FFTW ns | av_tx ns | zamac/FFTW (range) |\n|---:|---:|---:|---:|---:|")
for s in sizes:
    z, f, a = med("zamac", s), med("FFTW", s), med("AvTx", s)
    q = sorted(ratios.get(s, [float("nan")]))
    print(f"| {s} | {z:.0f} | {f:.0f} | {a:.0f} | {statistics.median(q):.2f} ({q[0]:.2f}-{q[-1]:.2f}) |")
print(f"(medians of {reps} runs, thread CPU time per transform; ratio: median and range of the per-run ratios)")
