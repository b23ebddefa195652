#!/usr/bin/env python3
"""Writes src/mp3/mp3_tables_data.cpp from the ISO Layer III tables in ../shared/tables.

Run from the repository root:  python3 scripts/gen_mp3_tables.py
The output is committed; run again only when the table files change.

Decode tables are multi-level look-up tables of 16-bit entries over each code
extended by its sign bits, so that one walk yields signed values:
  pointer: bit 15 = 1, bits 12..14 = sub-table width - 1, bits 0..11 = sub-table start
           (relative to the table's first entry); the level's full width is consumed first.
  leaf:    bit 15 = 0, bit 14 = escape (a 15 with linbits: x, y are magnitudes, the
           signs follow the linbits), bits 10..13 = bits used at this level,
           bits 5..9 = x, bits 0..4 = y (5-bit two's complement)
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


def encode_signed_entries(entries):
    """Leaves of the codes extended by their sign bits: length in bits 10..13, x and
    y as 5-bit two's complement in bits 5..9 and 0..4; bit 14 marks an escape leaf
    (a value 15 followed by linbits), whose x and y are magnitudes without signs."""
    out = []
    for e in entries:
        assert e is not None, "incomplete code"
        if e[0] == "leaf":
            _, length, (x, y, escape) = e
            assert 1 <= length <= 15 and -15 <= x <= 15 and -15 <= y <= 15
            out.append((escape << 14) | (length << 10) | ((x & 31) << 5) | (y & 31))
        else:
            _, width, start = e
            assert 1 <= width <= 8 and start < 4096
            out.append(0x8000 | ((width - 1) << 12) | start)
    return out


def with_signs(codes, linbits):
    """A code extended by its sign bits: (bits, (x, y, escape)) with x, y signed. With
    linbits, a pair holding a 15 keeps its plain code (the signs follow the linbits)."""
    out = []
    for x, y, c in codes:
        if linbits and (x == 15 or y == 15):
            out.append((c, (x, y, 1)))
            continue
        for sx in ([0, 1] if x else [0]):
            for sy in ([0, 1] if y else [0]):
                bits = c + ("1" if sx else "0") * (x != 0) + ("1" if sy else "0") * (y != 0)
                out.append((bits, (-x if sx else x, -y if sy else y, 0)))
    return out


def c_array(values, per_line, fmt):
    lines = []
    for i in range(0, len(values), per_line):
        lines.append("    " + ", ".join(fmt(v) for v in values[i:i + per_line]) + ",")
    return "\n".join(lines)


# Size classes of the big-values tables for the encoder's packed bit counts.
PACKED_CLASSES = [(1,), (2, 3), (5, 6), (7, 8, 9), (10, 11, 12), (13, 15), (16, 24)]


def main():
    pairs = read_pairs()
    quads = read_quads()
    sfb = read_sfb()

    # Tables sharing one code (16..23, 24..31) share their decode and encode arrays.
    encode_all, signed_all = [], []
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
            signed_primary = min(PRIMARY_BITS, max_len + 2)
            entries = [None] * (1 << signed_primary)
            build_level(with_signs(codes, pairs[t]["linbits"]), signed_primary, entries, 0)
            signed_off = len(signed_all)
            signed_all.extend(encode_signed_entries(entries))
            enc_off = len(encode_all)
            enc = [0] * (n * n)
            for x, y, c in codes:
                enc[x * n + y] = (int(c, 2) << 8) | len(c)
            encode_all.extend(enc)
            shared[key] = (enc_off, signed_off, signed_primary)
        enc_off, signed_off, signed_primary = shared[key]
        info[t] = (signed_off, enc_off, signed_primary, pairs[t]["linbits"], max_len, n)
    assert len(signed_all) < 65536

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

    # Count-1 quadruples with their sign bits in one look-up: index = the next 10
    # (table A: code up to 6 bits + 4 signs) or 8 (table B: 4 + 4) bits; entry =
    # the four values as signed bytes (v first, in the low byte) and the bits used.
    def quad_with_signs(width, code_of):
        values, lengths = [], []
        for index in range(1 << width):
            bits = format(index, "0%db" % width)
            vwxy, code_len = code_of(bits)
            pos = code_len
            vals = []
            for k in range(4):
                if (vwxy >> (3 - k)) & 1:
                    vals.append(-1 if bits[pos] == "1" else 1)
                    pos += 1
                else:
                    vals.append(0)
            values.append(sum((v & 0xFF) << (8 * k) for k, v in enumerate(vals)))
            lengths.append(pos)
        return values, lengths

    def code_a(bits):
        e = quad_a_decode[int(bits[:6], 2)]
        return e & 15, e >> 4

    def code_b(bits):
        return ~int(bits[:4], 2) & 15, 4

    quad_a_values, quad_a_lengths = quad_with_signs(10, code_a)
    quad_b_values, quad_b_lengths = quad_with_signs(8, code_b)

    # Built-in long band table: row = ID * 3 + sampling_frequency.
    long_rows = [sfb[("2", 22050, "long")], sfb[("2", 24000, "long")], sfb[("2", 16000, "long")],
                 sfb[("1", 44100, "long")], sfb[("1", 48000, "long")], sfb[("1", 32000, "long")]]
    for r in long_rows:
        assert len(r) == 23 and r[0] == 0 and r[-1] == 576
    short_rows = [sfb[("2", 22050, "short")], sfb[("2", 24000, "short")], sfb[("2", 16000, "short")],
                  sfb[("1", 44100, "short")], sfb[("1", 48000, "short")], sfb[("1", 32000, "short")]]
    for r in short_rows:
        assert len(r) == 14 and r[0] == 0 and r[-1] == 192

    out = []
    out.append("// Generated by scripts/gen_mp3_tables.py from the ISO Layer III tables; do not edit.")
    out.append('#include "mp3/mp3_tables.h"')
    out.append("")
    out.append("namespace zam::mp3 {")
    out.append("")
    out.append("const PairTableInfo kPairTables[32] = {")
    for t in range(32):
        d, e, p, lb, ml, n = info[t]
        out.append(f"    {{{d}, {e}, {p}, {lb}, {ml}, {n}}},  // table {t}")
    out.append("};")
    out.append("")
    out.append(f"alignas(64) const uint16_t kPairDecode[{len(signed_all)}] = {{")
    out.append(c_array(signed_all, 12, lambda v: f"0x{v:04X}"))
    out.append("};")
    out.append("")
    out.append(f"alignas(64) const uint32_t kPairEncode[{len(encode_all)}] = {{")
    out.append(c_array(encode_all, 8, lambda v: f"0x{v:06X}"))
    out.append("};")
    out.append("")
    out.append("const uint16_t kQuadAEncode[16] = {")
    out.append(c_array(quad_a_encode, 8, lambda v: f"0x{v:04X}"))
    out.append("};")
    out.append("")
    out.append("alignas(64) const uint32_t kQuadASigned[1024] = {")
    out.append(c_array(quad_a_values, 8, lambda v: f"0x{v:08X}"))
    out.append("};")
    out.append("")
    out.append("alignas(64) const uint8_t kQuadASignedLength[1024] = {")
    out.append(c_array(quad_a_lengths, 32, lambda v: f"{v}"))
    out.append("};")
    out.append("")
    out.append("alignas(64) const uint32_t kQuadBSigned[256] = {")
    out.append(c_array(quad_b_values, 8, lambda v: f"0x{v:08X}"))
    out.append("};")
    out.append("")
    out.append("alignas(64) const uint8_t kQuadBSignedLength[256] = {")
    out.append(c_array(quad_b_lengths, 32, lambda v: f"{v}"))
    out.append("};")
    out.append("")
    out.append("const int16_t kSfbLongBuiltIn[6][23] = {")
    for r in long_rows:
        out.append("    {" + ", ".join(str(v) for v in r) + "},")
    out.append("};")
    out.append("")
    # Bits of a pair (code and sign bits, no linbits) for the tables of one size class
    # at once, 16 bits per table, index x * 16 + y: the encoder's table choice adds
    # them over a region in one pass.
    packed_rows = []
    for tables in PACKED_CLASSES:
        row = []
        for x in range(16):
            for y in range(16):
                v = 0
                for k, t in enumerate(tables):
                    n = info[t][5]
                    if x < n and y < n:
                        length = next(len(c) for cx, cy, c in pairs[t]["codes"] if cx == x and cy == y)
                        v |= (length + (x > 0) + (y > 0)) << (16 * k)
                row.append(v)
        packed_rows.append(row)
    out.append(f"alignas(64) const uint64_t kPairBitsPacked[{len(PACKED_CLASSES)}][256] = {{")
    for tables, row in zip(PACKED_CLASSES, packed_rows):
        out.append("    {  // tables " + ", ".join(str(t) for t in tables))
        out.append(c_array(row, 4, lambda v: f"0x{v:012X}"))
        out.append("    },")
    out.append("};")
    out.append("")
    out.append("const int16_t kSfbShortBuiltIn[6][14] = {")
    for r in short_rows:
        out.append("    {" + ", ".join(str(v) for v in r) + "},")
    out.append("};")
    out.append("")
    out.append("}  // namespace zam::mp3")
    out.append("")
    with open(OUT, "w") as f:
        f.write("\n".join(out))
    print(f"wrote {OUT}: {len(signed_all)} decode entries, {len(encode_all)} encode entries")


if __name__ == "__main__":
    sys.exit(main())
