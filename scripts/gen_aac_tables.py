#!/usr/bin/env python3
"""Turns the AAC tables in ../shared/tables into C++ source.

Writes src/aac/aac_tables_data.cpp (scale-factor band offsets) and
src/aac/aac_huffman_data.cpp (scale-factor code tree, spectral code books 1..11 as
code lists and as two-level lookup tables).
Run from the repository root: python3 scripts/gen_aac_tables.py
"""
import os
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
TABLES = os.path.join(ROOT, '..', 'shared', 'tables')


def rows(name):
    with open(os.path.join(TABLES, name)) as f:
        for line in f:
            line = line.strip()
            if line and not line.startswith('#'):
                yield line.split()


def fmt_list(values, per_line=16, indent='    '):
    out = []
    for i in range(0, len(values), per_line):
        out.append(indent + ', '.join(str(v) for v in values[i:i + per_line]) + ',')
    return '\n'.join(out)


def swb_tables():
    long_t, short_t = {}, {}
    for r in rows('aac_swb_offsets.txt'):
        sfi, _fs, window, n = int(r[0]), r[1], r[2], int(r[3])
        offsets = [int(x) for x in r[4:]]
        assert len(offsets) == n + 1
        (long_t if window == 'long' else short_t)[sfi] = offsets
    assert sorted(long_t) == list(range(12)) and sorted(short_t) == list(range(12))
    return long_t, short_t


def gen_swb():
    long_t, short_t = swb_tables()
    out = []
    out.append('const uint8_t kAacNumSwbLong[kAacNumSampleRates] = {%s};' %
               ', '.join(str(len(long_t[i]) - 1) for i in range(12)))
    out.append('const uint8_t kAacNumSwbShort[kAacNumSampleRates] = {%s};' %
               ', '.join(str(len(short_t[i]) - 1) for i in range(12)))
    out.append('')
    for name, table, width, total in (('kAacSwbOffsetLong', long_t, 52, 1024),
                                      ('kAacSwbOffsetShort', short_t, 16, 128)):
        out.append('const uint16_t %s[kAacNumSampleRates][%d] = {' % (name, width))
        for i in range(12):
            v = table[i] + [total] * (width - len(table[i]))
            out.append('    {  // sampling_frequency_index %d' % i)
            out.append(fmt_list(v, 16, '        '))
            out.append('    },')
        out.append('};')
        out.append('')
    return '\n'.join(out)


PRIMARY_BITS = 9


def spectral_books():
    books = {}
    cur = None
    with open(os.path.join(TABLES, 'aac_spectral_huffman.txt')) as f:
        for line in f:
            t = line.split()
            if not t:
                continue
            if t[0] == '#':
                if len(t) > 2 and t[1] == 'book':
                    cur = int(t[2])
                    books[cur] = dict(dim=int(t[4]), signed=int(t[6]), lav=int(t[8]), codes=[])
                continue
            idx, length, code = int(t[0]), int(t[1]), t[2]
            assert len(code) == length and idx == len(books[cur]['codes'])
            books[cur]['codes'].append(code)
    assert sorted(books) == list(range(1, 12))
    return books


def tuple_of(book, index):
    mod = 2 * book['lav'] + 1 if book['signed'] else book['lav'] + 1
    off = book['lav'] if book['signed'] else 0
    digits = []
    for _ in range(book['dim']):
        digits.append(index % mod - off)
        index //= mod
    return digits[::-1]


def pack_leaf(book, index, length):
    values = tuple_of(book, index)
    nz = 0 if book['signed'] else sum(1 for v in values if v != 0)
    e = length | (nz << 5)
    for k, v in enumerate(values):
        e |= (v & 63) << (8 + 6 * k)
    return e


def build_lookup(book):
    """Two-level table: PRIMARY_BITS (or the longest length if shorter) indexed by
    the next bits; a code longer than that points to a sub-table indexed by the
    bits after the primary ones."""
    codes = book['codes']
    maxlen = max(len(c) for c in codes)
    width = min(maxlen, PRIMARY_BITS)
    table = [None] * (1 << width)
    long_groups = {}
    for index, code in enumerate(codes):
        if len(code) <= width:
            base = int(code, 2) << (width - len(code))
            for j in range(1 << (width - len(code))):
                assert table[base + j] is None
                table[base + j] = pack_leaf(book, index, len(code))
        else:
            long_groups.setdefault(int(code[:width], 2), []).append((index, code))
    for prefix, members in sorted(long_groups.items()):
        sub_width = max(len(c) for _, c in members) - width
        start = len(table)
        assert table[prefix] is None and sub_width <= 15 and start < (1 << 23)
        table[prefix] = (sub_width << 5) | (start << 9)
        sub = [None] * (1 << sub_width)
        for index, code in members:
            rest = code[width:]
            base = int(rest, 2) << (sub_width - len(rest))
            for j in range(1 << (sub_width - len(rest))):
                assert sub[base + j] is None
                sub[base + j] = pack_leaf(book, index, len(code))
        assert all(x is not None for x in sub)
        table.extend(sub)
    assert all(x is not None for x in table), 'incomplete code'
    return width, table


def scalefactor_codes():
    codes = []
    for r in rows('aac_scalefactor_huffman.txt'):
        idx, length, code = int(r[0]), int(r[1]), r[2]
        assert idx == len(codes) and len(code) == length
        codes.append(code)
    assert len(codes) == 121
    return codes


def scalefactor_tree(codes):
    """Byte tree walked bit by bit: a 0 moves to the next byte, a 1 moves forward
    by (byte >> 1); a byte with its low bit set is a leaf holding 2 * index + 1."""
    def build(prefix):
        for idx, code in enumerate(codes):
            if code == prefix:
                return [2 * idx + 1]
        zero = build(prefix + '0')
        one = build(prefix + '1')
        distance = 1 + len(zero)
        assert distance <= 127, 'tree too deep for byte distances'
        return [2 * distance] + zero + one
    return build('')


def scalefactor_lookup(codes, tree):
    """Entry for each 8-bit prefix: (length << 8) | index for a code of at most 8
    bits; for a longer code, the tree byte reached after the 8 bits (length 0)."""
    table = []
    for prefix in range(256):
        bits = format(prefix, '08b')
        entry = None
        for idx, code in enumerate(codes):
            if len(code) <= 8 and bits.startswith(code):
                entry = (len(code) << 8) | idx
        if entry is None:
            node = 0
            for b in bits:
                node = node + (tree[node] >> 1) if b == '1' else node + 1
                assert not tree[node] & 1
            entry = node
        table.append(entry)
    return table


def gen_huffman():
    books = spectral_books()
    sf_codes = scalefactor_codes()
    tree = scalefactor_tree(sf_codes)
    out = []
    out.append('const uint8_t kAacScaleFactorTree[%d] = {' % len(tree))
    out.append(fmt_list(tree, 16))
    out.append('};')
    out.append('')
    out.append('const uint16_t kAacScaleFactorLookup[256] = {')
    out.append(fmt_list(['0x%04x' % v for v in scalefactor_lookup(sf_codes, tree)], 12))
    out.append('};')
    out.append('')
    out.append('const AacHuffCode kAacScaleFactorCodes[121] = {')
    out.append(fmt_list(['{0x%x, %d}' % (int(c, 2), len(c)) for c in sf_codes], 8))
    out.append('};')
    out.append('')
    for b in range(1, 12):
        codes = books[b]['codes']
        out.append('static const AacHuffCode kCodes%d[%d] = {' % (b, len(codes)))
        out.append(fmt_list(['{0x%x, %d}' % (int(c, 2), len(c)) for c in codes], 8))
        out.append('};')
        width, table = build_lookup(books[b])
        books[b]['width'] = width
        books[b]['size'] = len(table)
        out.append('alignas(64) static const uint32_t kLookup%d[%d] = {' % (b, len(table)))
        out.append(fmt_list(['0x%08x' % v for v in table], 8))
        out.append('};')
        out.append('')
    out.append('const AacSpectralBook kAacSpectralBooks[12] = {')
    out.append('    {nullptr, nullptr, 0, 0, 0, 0, 0, 0},')
    for b in range(1, 12):
        bk = books[b]
        out.append('    {kCodes%d, kLookup%d, %d, %d, %d, %d, %d, %d},' %
                   (b, b, len(bk['codes']), bk['width'], bk['dim'], bk['signed'], bk['lav'],
                    max(len(c) for c in bk['codes'])))
    out.append('};')
    out.append('')
    return '\n'.join(out)


def write(name, body, include):
    text = ['// Generated by scripts/gen_aac_tables.py from ../shared/tables; do not edit.',
            '#include "%s"' % include,
            '',
            'namespace zam {',
            '',
            body,
            '}  // namespace zam',
            '']
    with open(os.path.join(ROOT, 'src', 'aac', name), 'w') as f:
        f.write('\n'.join(text))


def main():
    write('aac_huffman_data.cpp', gen_huffman(), 'aac_huffman.h')

    write('aac_tables_data.cpp', gen_swb(), 'aac_tables.h')


if __name__ == '__main__':
    sys.exit(main())
