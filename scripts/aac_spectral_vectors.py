#!/usr/bin/env python3
"""Prints the expected values that tests/aac/spectral_*_test.cpp and tns_*_test.cpp pin.

Written straight from the arithmetic rules of the AAC spectral tools with Python's
unbounded integers, independently of the C++ code, so that the tests compare the
library against a second implementation. Run it and compare with the literals in
the tests when a rule changes.
"""
import math


def s32(v):
    v &= 0xFFFFFFFF
    return v - (1 << 32) if v >= 1 << 31 else v


# ---------------------------------------------------------------- intensity
MID = [1805811301, 1518500250, 1276901417, 1073741824, 902905651, 759250125,
       638450708, 536870912, 451452825, 379625062, 319225354]
HIGH = [1073741824, 902905651, 759250125, 638450708]
LOW = [1805811301, 1518500250, 1276901417, 1073741824]


def intensity(l, p, book):
    if -3 <= p <= 7:
        v = (s32(4 * l) * MID[p + 3]) >> 32
    elif p >= 8:
        v = ((l * HIGH[p % 4]) >> 32) >> ((p >> 2) - 2)
    else:
        t = 128 - p
        v = (s32(l << (((t >> 2) + 2) % 32)) * LOW[3 - t % 4]) >> 32
    return s32(v if book == 15 else -v)


# ---------------------------------------------------------------- noise
def amplitude(w):
    return int(math.floor(2**64 / 10**10 / math.sqrt(w) + 0.5))


def noise_band(state, w):
    a = amplitude(w)
    out, energy = [], 0
    for _ in range(w):
        state = (state * 1664525 + 1013904223) & 0xFFFFFFFF
        x = s32((state * a) >> 30)
        out.append(x)
        energy = (energy + ((x * x) >> 33)) & 0xFFFFFFFF
    n, m = 0, energy
    while m < (1 << 30):
        m <<= 1
        n += 1
    r = s32((((m * m) >> 32) * 13563 + m * -16760 + 39107824713728) >> 14)
    k = (n >> 1) - 1
    res = []
    for x in out:
        y = (x * r) >> 30
        y = y << k if k >= 1 else y >> -k
        if n & 1:
            y = (y * 1518500249) >> 30
        res.append(s32(y))
    return res, state, energy, n, r


def gain(e):
    tab = [1073741824, 1276901416, 1518500250, 1805811301]
    one = s32(1 << ((e >> 2) % 32))
    return s32(((tab[e % 4] * one) & 0xFFFFFFFFFFFFFFFF) >> 20)


# ---------------------------------------------------------------- TNS
ROW3 = [-734482665, -1380375881, -1859775393, -2114858546, -2114858546, -1859775393, -1380375881, -734482665,
        0, 931758235, 1678970324, 2093641749, 2093641749, 1678970324, 931758235, 0]
ROW4 = [-2138322861, -2065504841, -1922348530, -1713728946, -1446750378, -1130504462, -775760571, -394599085,
        0, 446486956, 873460290, 1262259218, 1595891361, 1859775393, 2042378317, 2135719508]


def tns_convert(idx, res):
    row = ROW3 if res == 3 else ROW4
    a = [0] * (len(idx) + 1)
    for m in range(1, len(idx) + 1):
        k = row[idx[m - 1] + 8]
        a[m] = k
        for i in range(1, m // 2 + 1):
            lo, hi = a[i], a[m - i]
            a[i] = lo + ((((hi + 512) >> 10) * k) >> 21)
            a[m - i] = hi + ((((lo + 512) >> 10) * k) >> 21)
    big = max(abs(v) for v in a[1:])
    s = 31
    if big > 1 << 26:
        while big > 1 << 26:
            big >>= 1
            s -= 1
        a = [v >> (31 - s) for v in a]
    return [s32(v) for v in a[1:]], s


def tns_filter(x, a, s, zero):
    hist = [0] * len(a)
    out = []
    for v in x:
        acc = v << s
        acc += sum(c * h for c, h in zip(a, hist)) * (1 if zero else -1)
        y = s32(acc >> s)
        out.append(y)
        hist = [v if zero else y] + hist[:-1]
    return out


def main():
    print("// intensity, l = 1000 and l = -777, positions -10..20")
    for l in (1000, -777):
        print(l, [intensity(l, p, 15) for p in range(-10, 21)])
        print(l, [intensity(l, p, 14) for p in range(-10, 21)])
    print("// noise amplitudes 1..96")
    print([amplitude(w) for w in range(1, 97)])
    print("// noise band from state 0, width 4, and width 12 from state 12345")
    for st, w in ((0, 4), (12345, 12)):
        res, state, energy, n, r = noise_band(st, w)
        print(res, state, energy, n, r)
    print("// gains", [(e, gain(e)) for e in (0, 1, 2, 3, 40, 83, 84, 124, 127, 255)])
    print("// scaled band: width 4 from 0, energy 40")
    res, _, _, _, _ = noise_band(0, 4)
    print([s32((x * gain(40)) >> 38) for x in res])
    print("// TNS conversions")
    cases = [([3], 4), ([-8], 4), ([7, -3], 3), ([1, 2, 3], 4), ([-4, 3, -2, 1, 0], 3),
             ([7, 7, 7, 7, 7, 7, 7], 4), ([-8, 5, -3, 2, 6, -7, 1, 0, 4, -2, 3, -5], 4),
             ([3, -4, 2, 1, -1, 3, -2, 0, 1, 2, -3, 3], 3)]
    for idx, res in cases:
        print(idx, res, tns_convert(idx, res))
    print("// TNS filters over 16 values")
    x = [1000 * (i % 5) - 1700 + 37 * i * i for i in range(16)]
    a, s = tns_convert([5, -3], 4)
    print(x)
    print("allpole", tns_filter(x, a, s, False))
    print("allzero", tns_filter(x, a, s, True))
    print("allpole reversed", list(reversed(tns_filter(list(reversed(x)), a, s, False))))


if __name__ == "__main__":
    main()
