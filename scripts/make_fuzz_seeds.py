#!/usr/bin/env python3
"""Cuts the fuzz seeds (fuzz/seeds/<target>/) from the sample streams, the ISO MP3
streams and the shared regression inputs: real frames, a few KB per target.
Run from the repository root; the output is committed."""
import os
import struct

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
SHARED = os.path.join(ROOT, "..", "shared", "vectors")
OUT = os.path.join(ROOT, "fuzz", "seeds")


def read(path):
    with open(path, "rb") as f:
        return f.read()


def adts_frames(data, count):
    frames, at = [], 0
    while at + 7 <= len(data) and len(frames) < count:
        length = (data[at + 3] & 3) << 11 | data[at + 4] << 3 | data[at + 5] >> 5
        frames.append(data[at:at + length])
        at += length
    return frames


def mp3_frames(data, count):
    """Frames of a Layer III stream without padding surprises (header-walk)."""
    kbps = {1: [0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320],
            0: [0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160]}
    rates = [44100, 48000, 32000]
    frames, at = [], 0
    while at + 4 <= len(data) and len(frames) < count:
        if data[at] != 0xFF or (data[at + 1] & 0xE0) != 0xE0:
            at += 1
            continue
        version = (data[at + 1] >> 3) & 3
        b, r = data[at + 2] >> 4, (data[at + 2] >> 2) & 3
        if version == 1 or b in (0, 15) or r == 3:
            at += 1
            continue
        mpeg1 = version == 3
        rate = rates[r] >> (0 if mpeg1 else 1 if version == 2 else 2)
        length = (144000 if mpeg1 else 72000) * kbps[int(mpeg1)][b] // rate + ((data[at + 2] >> 1) & 1)
        frames.append(data[at:at + length])
        at += length
    return frames


class Bits:
    def __init__(self):
        self.bits = []

    def put(self, value, n):
        self.bits += [(value >> (n - 1 - i)) & 1 for i in range(n)]

    def align(self):
        while len(self.bits) % 8:
            self.bits.append(0)

    def bytes(self):
        self.align()
        return bytes(int("".join(map(str, self.bits[i:i + 8])), 2) for i in range(0, len(self.bits), 8))


def adif_header(channels, sampling_index):
    w = Bits()
    for c in b"ADIF":
        w.put(c, 8)
    w.put(0, 1)          # copyright_id_present
    w.put(0, 1)          # original_copy
    w.put(0, 1)          # home
    w.put(0, 1)          # bitstream_type: constant rate
    w.put(128000, 23)    # bitrate
    w.put(0, 4)          # num_program_config_elements - 1
    w.put(0, 20)         # adif_buffer_fullness
    w.put(0, 4)          # element_instance_tag
    w.put(1, 2)          # object_type: LC
    w.put(sampling_index, 4)
    w.put(1, 4)          # num_front_channel_elements
    for n in (4, 4, 2, 3, 4):
        w.put(0, n)      # side, back, lfe, assoc data, valid cc
    w.put(0, 3)          # no mixdowns
    w.put(1 if channels == 2 else 0, 1)
    w.put(0, 4)
    w.align()
    w.put(0, 8)          # comment_field_bytes
    return w.bytes()


def write(target, name, data):
    folder = os.path.join(OUT, target)
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, name), "wb") as f:
        f.write(data)


def main():
    samples = os.path.join(ROOT, "samples")
    stereo = adts_frames(read(os.path.join(samples, "music-44k-stereo.aac")), 4)
    mono = adts_frames(read(os.path.join(samples, "music-22k-mono.aac")), 4)
    sbr = adts_frames(read(os.path.join(SHARED, "aac-he", "sbr_44k_stereo_loud_vbr.aac")), 2)
    ps = adts_frames(read(os.path.join(SHARED, "aac-he", "ps_24k_wide.aac")), 2)
    iso = {n: mp3_frames(read(os.path.join(SHARED, "mp3-iso", n + ".bit")), 3)
           for n in ("l3-compl", "l3-si_block", "M2L3_compl24", "l3-test46")}
    mp3 = mp3_frames(read(os.path.join(samples, "music-44k-stereo.mp3")), 3)

    for name, f in (("stereo-44k", stereo[1]), ("mono-22k", mono[1]), ("sbr-44k", sbr[1])):
        write("aac_adts", name, f[:16])
    # raw data blocks after the 7-byte header; the leading bytes are the targets' settings
    write("aac_chanpair", "cpe-44k", bytes([7, 0, 2]) + stereo[1][7:])
    write("aac_chanpair", "cpe-44k-short", bytes([7, 0, 2]) + stereo[2][7:])
    write("aac_fill_dse", "sbr-block", bytes([3]) + sbr[1][7:])
    write("aac_fill_dse", "ps-block", bytes([3]) + ps[1][7:])
    write("aac_noiseless", "sce-22k", bytes([0xF1, 0, 0, 0, 0, 0, 0, 0]) + mono[1][7:])
    write("aac_noiseless", "cpe-44k", bytes([0xF4, 0, 0, 0, 0, 0, 0, 0]) + stereo[1][7:])
    write("aac_layer_headers", "lc-block", stereo[1][7:200])
    write("aac_layer_headers", "sbr-block", sbr[1][7:200])
    for name, frames, ch, sfi in (("adif-44k-stereo", stereo, 2, 4), ("adif-22k-mono", mono, 1, 7)):
        write("aac_adif", name, bytes([16]) + adif_header(ch, sfi))
        write("aac_decoder", name, adif_header(ch, sfi) + b"".join(f[7:] for f in frames[:2]))
    write("aac_decoder", "sbr-44k-2frames", b"".join(sbr))
    write("aac_decoder", "ps-24k-2frames", b"".join(ps))

    for name, frames in list(iso.items()) + [("sample-44k", mp3)]:
        write("mp3_frame_header", name, frames[0][:4])
        write("mp3_side_info", name, frames[0][:40])
        write("mp3_scale_factors", name, frames[1][:200])
        for target in ("mp3_huffman_decode", "mp3_huffman_sfb", "mp3_huffman_sfb_mbp"):
            write(target, name, frames[1][:600])
    write("bitcursor", "aac-block", stereo[1][:256])
    write("bitcursor", "mp3-frame", mp3[1][:256])
    write("vlc_decode", "aac-block", stereo[1][:512])
    write("vlc_decode", "mp3-frame", mp3[1][:512])

    # Regression inputs, small ones as they are, large ones cut to what shows the fault.
    reg = os.path.join(SHARED, "regressions")
    for name in ("fuzz_mp3_decoder-timeout-2afd4fd1.bin", "fuzz_mp3_decoder-timeout-f59932aa.bin",
                 "ape-footer-only-32b.bin"):
        write("mp3_decoder", name, read(os.path.join(reg, name)))
    ape = read(os.path.join(reg, "mp3-ape-footer-size0.mp3"))
    write("mp3_decoder", "mp3-ape-footer-size0-cut.mp3", b"".join(mp3_frames(ape, 3)) + ape[-32:])
    for name in ("fuzz_aac_decoder-pns-overflow-89e8d4b2.bin", "one-frame-8k.aac", "two-frames-8k.aac"):
        write("aac_decoder", name, read(os.path.join(reg, name)))
    for name in ("aac-96000-2ch.aac-flip229-o.bin", "aac-96000-2ch.aac-flip239-o.bin"):
        write("aac_decoder", name.replace(".bin", "-cut.bin"), b"".join(adts_frames(read(os.path.join(reg, name)), 3)))
    for name in ("id3-adts-lookahead-oob.bin", "id3-adts-lookahead-oob-8191.bin"):
        data = read(os.path.join(reg, name))
        # the same shape at a small size: an ID3v2 tag, then the ADTS-looking header at the end
        body = data[-400:-7]
        size = bytes((len(body) >> s) & 0x7F for s in (21, 14, 7, 0))
        write("tool_detect", name.replace(".bin", "-small.bin"), data[:6] + size + body + data[-7:])
    write("tool_detect", "ape-footer-only-32b.bin", read(os.path.join(reg, "ape-footer-only-32b.bin")))
    write("tool_detect", "mp3-ape-footer-size0-cut.mp3", b"".join(mp3_frames(ape, 3)) + ape[-32:])
    lame = mp3  # the sample's first frame is an Info frame with a LAME tag when made by lame
    write("tool_detect", "sample-mp3-head", b"".join(lame))
    write("tool_detect", "sample-aac-head", b"".join(stereo[:3]))


if __name__ == "__main__":
    main()
