#!/usr/bin/env python3
"""Writes src/mp3/mp3_tables_data.cpp from the ISO Layer III tables in ../shared/tables.

Run from the repository root:  python3 scripts/gen_mp3_tables.py
The output is committed; run again only when the table files change.

Decode tables are multi-level look-up tables of 16-bit entries:
  leaf:    bit 15 = 0, bits 8..12 = code bits used at this level, bits 4..7 = x, bits 0..3 = y
  pointer: bit 15 = 1, bits 12..14 = sub-table width - 1, bits 0..11 = sub-table start
           (relative to the table's first entry); the level's full width is consumed first.
Encode tables hold (code << 8) | length per (x, y), row-major with the table's own width.
"""
import os
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
TABLES = os.path.join(ROOT, "..", "shared", "tables")
OUT = os.path.join(ROOT, "src", "mp3", "mp3_tables_data.cpp")

PRIMARY_BITS = 8
SUB_BITS_MAX = 8


def read_pairs():
    tables = {}
    current = None
    with open(os.path.join(TABLES, "mp3_huffman_pairs.txt")) as f:
        for line in f:
            line = line.strip()
            if not line:
                continue
            if line.startswith("#"):
                parts = line[1:].split()
                if len(parts) == 4 and parts[0] == "table" and parts[2] == "linbits":
                    current = int(parts[1])
                    tables[current] = {"linbits": int(parts[3]), "codes": []}
                continue
            x, y, length, code = line.split()
            assert int(length) == len(code)
            tables[current]["codes"].append((int(x), int(y), code))
    return tables


def read_quads():
    quads = {"A": [], "B": []}
    with open(os.path.join(TABLES, "mp3_huffman_quads.txt")) as f:
        for line in f:
            line = line.strip()
            if not line or line.startswith("#"):
                continue
            t, v, w, x, y, length, code = line.split()
            assert int(length) == len(code)
            quads[t].append((int(v) * 8 + int(w) * 4 + int(x) * 2 + int(y), code))
    return quads


def read_sfb():
    rows = {}
    with open(os.path.join(TABLES, "mp3_sfb_bands.txt")) as f:
        for line in f:
            line = line.strip()
            if not line or line.startswith("#"):
                continue
            parts = line.split()
            rows[(parts[0], int(parts[1]), parts[2])] = [int(v) for v in parts[3:]]
    return rows


def build_level(codes, width, entries, base):
    """codes: list of (bitstring, value). Fills entries[base:base+2**width]."""
    sub_groups = {}
    for bits, value in codes:
        if len(bits) <= width:
            pad = width - len(bits)
            start = int(bits, 2) << pad if bits else 0
            for i in range(1 << pad):
                assert entries[base + start + i] is None, "prefix clash"
                entries[base + start + i] = ("leaf", len(bits), value)
        else:
            sub_groups.setdefault(bits[:width], []).append((bits[width:], value))
    for prefix, group in sorted(sub_groups.items()):
        longest = max(len(b) for b, _ in group)
        sub_width = min(longest, SUB_BITS_MAX)
        sub_base = len(entries)
        entries.extend([None] * (1 << sub_width))
        entries[base + int(prefix, 2)] = ("ptr", sub_width, sub_base)
        build_level(group, sub_width, entries, sub_base)


def encode_entries(entries):
    out = []
    for e in entries:
        assert e is not None, "incomplete code"
        if e[0] == "leaf":
            _, length, (x, y) = e
            assert 1 <= length <= 31 and x < 16 and y < 16
            out.append((length << 8) | (x << 4) | y)
        else:
            _, width, start = e
            assert 1 <= width <= 8 and start < 4096
            out.append(0x8000 | ((width - 1) << 12) | start)
    return out


def c_array(values, per_line, fmt):
    lines = []
    for i in range(0, len(values), per_line):
        lines.append("    " + ", ".join(fmt(v) for v in values[i:i + per_line]) + ",")
    return "\n".join(lines)


def main():
    pairs = read_pairs()
    quads = read_quads()
    sfb = read_sfb()

    # Tables sharing one code (16..23, 24..31) share their decode and encode arrays.
    decode_all, encode_all = [], []
    info = {}
    shared = {}
    for t in range(32):
        if t not in pairs:
            info[t] = (0, 0, 0, 0, 0, 0)
            continue
        codes = pairs[t]["codes"]
        key = tuple(codes)
        n = max(max(x, y) for x, y, _ in codes) + 1
        assert len(codes) == n * n
        max_len = max(len(c) for _, _, c in codes)
        if key not in shared:
            primary = min(PRIMARY_BITS, max_len)
            entries = [None] * (1 << primary)
            build_level([(c, (x, y)) for x, y, c in codes], primary, entries, 0)
            dec_off = len(decode_all)
            decode_all.extend(encode_entries(entries))
            enc_off = len(encode_all)
            enc = [0] * (n * n)
            for x, y, c in codes:
                enc[x * n + y] = (int(c, 2) << 8) | len(c)
            encode_all.extend(enc)
            shared[key] = (dec_off, primary, enc_off)
        dec_off, primary, enc_off = shared[key]
        info[t] = (dec_off, primary, pairs[t]["linbits"], max_len, n, enc_off)
    assert len(decode_all) < 65536

    quad_a_decode = [None] * 64
    quad_a_encode = [0] * 16
    for value, code in quads["A"]:
        assert len(code) <= 6
        pad = 6 - len(code)
        for i in range(1 << pad):
            slot = (int(code, 2) << pad) + i
            assert quad_a_decode[slot] is None
            quad_a_decode[slot] = (len(code) << 4) | value
        quad_a_encode[value] = (int(code, 2) << 8) | len(code)
    assert None not in quad_a_decode
    for value, code in quads["B"]:
        assert len(code) == 4 and int(code, 2) == (~value & 15), "table B is the complement of vwxy"

    # Built-in long band table: row = ID * 3 + sampling_frequency.
    long_rows = [sfb[("2", 22050, "long")], sfb[("2", 24000, "long")], sfb[("2", 16000, "long")],
                 sfb[("1", 44100, "long")], sfb[("1", 48000, "long")], sfb[("1", 32000, "long")]]
    for r in long_rows:
        assert len(r) == 23 and r[0] == 0 and r[-1] == 576

    out = []
    out.append("// Generated by scripts/gen_mp3_tables.py from the ISO Layer III tables; do not edit.")
    out.append('#include "mp3/mp3_tables.h"')
    out.append("")
    out.append("namespace zam::mp3 {")
    out.append("")
    out.append("const PairTableInfo kPairTables[32] = {")
    for t in range(32):
        d, p, lb, ml, n, e = info[t]
        out.append(f"    {{{d}, {e}, {p}, {lb}, {ml}, {n}}},  // table {t}")
    out.append("};")
    out.append("")
    out.append(f"alignas(64) const uint16_t kPairDecode[{len(decode_all)}] = {{")
    out.append(c_array(decode_all, 12, lambda v: f"0x{v:04X}"))
    out.append("};")
    out.append("")
    out.append(f"alignas(64) const uint32_t kPairEncode[{len(encode_all)}] = {{")
    out.append(c_array(encode_all, 8, lambda v: f"0x{v:06X}"))
    out.append("};")
    out.append("")
    out.append("alignas(64) const uint8_t kQuadADecode[64] = {")
    out.append(c_array(quad_a_decode, 16, lambda v: f"0x{v:02X}"))
    out.append("};")
    out.append("")
    out.append("const uint16_t kQuadAEncode[16] = {")
    out.append(c_array(quad_a_encode, 8, lambda v: f"0x{v:04X}"))
    out.append("};")
    out.append("")
    out.append("const int16_t kSfbLongBuiltIn[6][23] = {")
    for r in long_rows:
        out.append("    {" + ", ".join(str(v) for v in r) + "},")
    out.append("};")
    out.append("")
    out.append("}  // namespace zam::mp3")
    out.append("")
    with open(OUT, "w") as f:
        f.write("\n".join(out))
    print(f"wrote {OUT}: {len(decode_all)} decode entries, {len(encode_all)} encode entries")


if __name__ == "__main__":
    sys.exit(main())
