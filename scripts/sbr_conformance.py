#!/usr/bin/env python3
"""HE-AAC conformance and speed of zamac-decode.

    sbr_conformance.py [--build build/release] [--runs 5] [--no-speed]

Conformance: every ../shared/vectors/aac-he stream decoded in high quality (default),
low power (--sbr-lp) and at the core rate (--downsample), and by ffmpeg and faad when
they are installed. PSNR (full scale 32767, whole file, sample i against sample i)
against the reference; the down-sampled output against the reference brought to the
core rate by sox (its best offset within +-8 samples). A one-channel reference is
compared with the first output channel.

Speed: a 60 s HE-AAC v1 stereo stream and a 60 s v2 stream (shared streams repeated;
ADTS frames concatenate), each decoded `runs` times by zamac-decode --bench,
`ffmpeg -f null` and faad, interleaved; the medians of the CPU time (user + system of
the child) and their ratios. The machine may be shared: only the ratios mean much.
Prints Markdown tables.
"""
import argparse
import array
import math
import os
import resource
import shutil
import struct
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
VECTORS = os.path.join(ROOT, '..', 'shared', 'vectors', 'aac-he')
STREAMS = ['sbr_16k_mono_speech', 'ps_22k_pluck', 'sbr_24k_mono_sweep_vbr', 'sbr_32k_stereo_bursts',
           'sbr_44k_mono_hits', 'ps_48k_onset_vbr', 'sbr_32k_mono_quiet', 'sbr_44k_stereo_loud_vbr',
           'ps_24k_wide', 'sbr_48k_mono_voicemusic']


def read_wav(path):
    """(channels, rate, samples) of a 16-bit WAVE file."""
    d = open(path, 'rb').read()
    at, channels, rate, data = 12, 0, 0, array.array('h')
    while at + 8 <= len(d):
        cid, size = d[at:at + 4], struct.unpack('<I', d[at + 4:at + 8])[0]
        if cid == b'fmt ':
            channels, rate = struct.unpack('<HI', d[at + 10:at + 16])
        elif cid == b'data':
            data = array.array('h', d[at + 8:at + 8 + size])
            break
        at += 8 + size + (size & 1)
    return channels, rate, data


def psnr(ref, test, offset=0):
    """PSNR of test against ref over the channels of ref; test sample i + offset vs ref sample i."""
    rc, _, r = ref
    tc, _, t = test
    n = min(len(r) // rc, len(t) // tc - max(offset, 0))
    err, count = 0, 0
    for i in range(max(0, -offset), n):
        for c in range(rc):
            e = r[i * rc + c] - t[(i + offset) * tc + c]
            err += e * e
        count += rc
    return 99.9 if err == 0 else 10 * math.log10(32767.0 ** 2 * count / err)


def best_offset_psnr(ref, test, reach=8):
    """PSNR at the offset in [-reach, reach] that fits the first channel best."""
    first_ref, first_test = (1, 0, ref[2][0::ref[0]]), (1, 0, test[2][0::test[0]])
    best = max(range(-reach, reach + 1), key=lambda o: psnr(first_ref, first_test, o))
    return psnr(ref, test, best), best


def run(cmd):
    return subprocess.run(cmd, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode


def conformance(tool, tmp):
    have_ffmpeg, have_faad, have_sox = (shutil.which(p) is not None for p in ('ffmpeg', 'faad', 'sox'))
    print('| stream | HQ vs ref | LP vs ref | LP vs HQ | downsample vs ref@core | ffmpeg vs ref | faad vs ref |')
    print('|---|---|---|---|---|---|---|')
    for name in STREAMS:
        src = os.path.join(VECTORS, name + '.aac')
        ref = read_wav(os.path.join(VECTORS, name + '.ref.wav'))
        out = {}
        for mode, opts in (('hq', []), ('lp', ['--sbr-lp']), ('ds', ['--downsample'])):
            path = os.path.join(tmp, '%s.%s.wav' % (name, mode))
            run([tool] + opts + ['-o', path, src])
            out[mode] = read_wav(path)
        hq = out['hq']
        cells = ['%.1f' % psnr(ref, hq), '%.1f' % psnr(ref, out['lp']), '%.1f' % psnr(hq, out['lp'])]
        if have_sox:
            low = os.path.join(tmp, name + '.ref-core.wav')
            run(['sox', os.path.join(VECTORS, name + '.ref.wav'), '-r', str(out['ds'][1]), low])
            value, offset = best_offset_psnr(read_wav(low), out['ds'])
            cells.append('%.1f (offset %d)' % (value, offset))
        else:
            cells.append('-')
        for have, cmd, offset in ((have_ffmpeg, ['ffmpeg', '-nostdin', '-v', 'error', '-y', '-i', src], 0),
                                  (have_faad, ['faad', '-q', '-o'], -2048)):
            if not have:
                cells.append('-')
                continue
            path = os.path.join(tmp, name + '.other.wav')
            run(cmd + [path] if cmd[0] == 'ffmpeg' else cmd + [path, src])
            other = read_wav(path)
            cells.append('%.1f' % psnr(ref, other, offset) if other[0] else '-')
        print('| %s | %s |' % (name, ' | '.join(cells)))


def cpu_seconds(cmd):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    run(cmd)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return (after.ru_utime - before.ru_utime) + (after.ru_stime - before.ru_stime)


def speed(tool, tmp, runs):
    streams = {'v1 stereo 44.1 kHz (sbr_44k_stereo_loud_vbr x29)': ('sbr_44k_stereo_loud_vbr', 29),
               'v2 PS 24 kHz (ps_24k_wide x18)': ('ps_24k_wide', 18)}
    decoders = [('zamac-decode', lambda p: [tool, '--bench', p])]
    if shutil.which('ffmpeg'):
        decoders.append(('ffmpeg', lambda p: ['ffmpeg', '-nostdin', '-v', 'error', '-i', p, '-f', 'null', '-']))
    if shutil.which('faad'):
        decoders.append(('faad', lambda p: ['faad', '-q', '-o', '/dev/null', p]))
    print('\n| stream | ' + ' | '.join('%s CPU s' % d for d, _ in decoders) + ' | ' +
          ' | '.join('%s / zamac' % d for d, _ in decoders[1:]) + ' |')
    print('|---' * (2 * len(decoders)) + '|')
    for label, (name, repeat) in streams.items():
        path = os.path.join(tmp, name + '-60s.aac')
        with open(path, 'wb') as f:
            f.write(open(os.path.join(VECTORS, name + '.aac'), 'rb').read() * repeat)
        times = {d: [] for d, _ in decoders}
        for _ in range(runs):
            for d, cmd in decoders:
                times[d].append(cpu_seconds(cmd(path)))
        med = {d: sorted(t)[len(t) // 2] for d, t in times.items()}
        z = med['zamac-decode']
        print('| %s | %s | %s |' % (label, ' | '.join('%.3f' % med[d] for d, _ in decoders),
                                     ' | '.join('%.2f' % (med[d] / z) for d, _ in decoders[1:])))


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument('--build', default=os.path.join(ROOT, 'build', 'release'))
    ap.add_argument('--runs', type=int, default=5)
    ap.add_argument('--no-speed', action='store_true')
    args = ap.parse_args()
    tool = os.path.join(args.build, 'tools', 'zamac-decode', 'zamac-decode')
    if not os.path.exists(tool):
        sys.exit('no zamac-decode in ' + args.build)
    with tempfile.TemporaryDirectory() as tmp:
        conformance(tool, tmp)
        if not args.no_speed:
            speed(tool, tmp, args.runs)


if __name__ == '__main__':
    main()
