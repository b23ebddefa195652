// AAC inverse quantization in fixed point: sign(q) * |q|^(4/3) * 2^(e/4) * 8.
//
// The exponent e is split into an integer part s = ceil(e/4) and a fraction
// f = 4s - e (0..3), so that 2^(e/4) = 2^s * 2^(-f/4). Magnitudes up to 15 come
// from a small table that already holds 2^(-f/4); 16..128 from a table of
// i^(4/3) times the fractional gain; 129..8191 from a polynomial for x^(4/3) on
// the magnitude normalised into [0.5, 1), corrected by a cube-root normaliser for
// the exponent's thirds. All shifts truncate.
#include <immintrin.h>

#include "aac/aac_quant.h"
#include "core/export.h"

namespace zam {

namespace {

inline int32_t mulHigh(int32_t a, int32_t b) { return static_cast<int32_t>((static_cast<int64_t>(a) * b) >> 32); }

inline int32_t wrapAdd(int32_t a, int32_t b)
{
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

inline int32_t wrapNegate(int32_t a) { return static_cast<int32_t>(0u - static_cast<uint32_t>(a)); }

// |q|^(4/3) * 2^(-f/4) before the final shift, for 129 <= a <= 8191; *base is
// the number of fractional bits beyond Q3.
inline int32_t largePower(uint32_t a, int f, int* base)
{
    uint32_t v = a << 17;
    int k = __builtin_clz(v) - 1;  // doublings that bring v into [2^30, 2^31)
    int32_t x = static_cast<int32_t>(v << k);
    int32_t c = wrapAdd(mulHigh(x, -457633446), 1445956062);
    for (int j = 0; j < 6; ++j) c = wrapAdd(mulHigh(c, x), kAacCubeRootPolynomial[j]);
    int32_t c16 = static_cast<int32_t>(static_cast<uint32_t>(c) << 4);
    int64_t p = static_cast<int64_t>(c16) * kAacCubeRootNormaliser[6 - k];
    int32_t m = static_cast<int32_t>(static_cast<uint64_t>(p) >> 31) & ~1;
    *base = kAacCubeRootExponent[6 - k] - 4;
    return mulHigh(m, kAacFractionalGain[f]);
}

// m * 2^(s - base), truncating; a left shift above 31 saturates, a right shift
// above 31 gives 0; below 32 a left shift wraps.
inline int32_t scaleByExponent(int32_t m, int base, int s)
{
    int d = base - s;
    if (d <= 0) {
        int left = -d;
        if (left > 31) return m != 0 ? 2147483647 : 0;
        return static_cast<int32_t>(static_cast<uint32_t>(m) << left);
    }
    return d > 31 ? 0 : (m >> d);
}

// The small ranges: the table entry shifted right by (25 or 22) - s, with no shift
// when that is negative (the result stops growing) and 0 when it is above 31.
inline int32_t scaleSmall(int32_t entry, int shift)
{
    if (shift <= 0) return entry;
    return shift > 31 ? 0 : entry >> shift;
}

inline int32_t dequantizeMagnitude(uint32_t a, int s, int f)
{
    if (a < 16) return scaleSmall(kAacSmallPowers.v[f][a], (a < 4 ? 25 : 22) - s);
    if (a <= 128) {
        int32_t m = mulHigh(kAacMediumPowers.v[a], kAacFractionalGain[f]);
        return scaleByExponent(m, a < 64 ? 19 : 17, s);
    }
    int base = 0;
    int32_t m = largePower(a, f, &base);
    return scaleByExponent(m, base, s);
}

// ---- AVX2 helpers

// Upper 32 bits of the signed 64-bit products of the lanes.
inline __m256i mulHigh8(__m256i a, __m256i b)
{
    __m256i even = _mm256_mul_epi32(a, b);
    __m256i odd = _mm256_mul_epi32(_mm256_srli_epi64(a, 32), _mm256_srli_epi64(b, 32));
    return _mm256_blend_epi32(_mm256_srli_epi64(even, 32), odd, 0xAA);
}

// Bits 31..62 of the signed 64-bit products of the lanes.
inline __m256i mulShift31x8(__m256i a, __m256i b)
{
    __m256i even = _mm256_mul_epi32(a, b);
    __m256i odd = _mm256_mul_epi32(_mm256_srli_epi64(a, 32), _mm256_srli_epi64(b, 32));
    return _mm256_blend_epi32(_mm256_srli_epi64(even, 31), _mm256_slli_epi64(odd, 1), 0xAA);
}

// Per-band constants of the vector kernel.
struct BandConstants {
    __m256i smallLow, smallHigh;     // row f, entries 0..7 and 8..15
    __m256i shiftSmall1, shiftSmall4; // right shifts of the Q28 and Q25 entries
    __m256i gain;                     // 2^(-f/4), Q31
    __m256i s;
};

// The large range for 8 lanes of magnitudes clamped to 129..8191: the value before
// the final shift, and its base exponent.
inline __m256i largePower8(__m256i a, __m256i gain, __m256i* base)
{
    // floor(log2 a) from the exponent of the exactly converted float: 7..12.
    __m256i lg = _mm256_sub_epi32(_mm256_srli_epi32(_mm256_castps_si256(_mm256_cvtepi32_ps(a)), 23),
                                  _mm256_set1_epi32(127));
    __m256i x = _mm256_sllv_epi32(a, _mm256_sub_epi32(_mm256_set1_epi32(30), lg));
    __m256i index = _mm256_sub_epi32(lg, _mm256_set1_epi32(7));  // 6 - doublings
    __m256i c = _mm256_add_epi32(mulHigh8(x, _mm256_set1_epi32(-457633446)), _mm256_set1_epi32(1445956062));
    for (int j = 0; j < 6; ++j)
        c = _mm256_add_epi32(mulHigh8(c, x), _mm256_set1_epi32(kAacCubeRootPolynomial[j]));
    __m256i normaliser =
        _mm256_permutevar8x32_epi32(_mm256_load_si256(reinterpret_cast<const __m256i*>(kAacCubeRootNormaliser)), index);
    __m256i m = _mm256_and_si256(mulShift31x8(_mm256_slli_epi32(c, 4), normaliser), _mm256_set1_epi32(~1));
    *base = _mm256_sub_epi32(
        _mm256_permutevar8x32_epi32(_mm256_load_si256(reinterpret_cast<const __m256i*>(kAacCubeRootExponent)), index),
        _mm256_set1_epi32(4));
    return mulHigh8(m, gain);
}

// Two independent sets of 8 lanes at once: the polynomial is a chain of seven
// dependent multiplications, and interleaving two chains lets the second one use
// the multiplier while the first one waits.
inline void largePower8x2(__m256i a0, __m256i a1, __m256i gain, __m256i* m0, __m256i* m1, __m256i* base0,
                          __m256i* base1)
{
    const __m256i bias = _mm256_set1_epi32(127);
    __m256i lg0 = _mm256_sub_epi32(_mm256_srli_epi32(_mm256_castps_si256(_mm256_cvtepi32_ps(a0)), 23), bias);
    __m256i lg1 = _mm256_sub_epi32(_mm256_srli_epi32(_mm256_castps_si256(_mm256_cvtepi32_ps(a1)), 23), bias);
    __m256i x0 = _mm256_sllv_epi32(a0, _mm256_sub_epi32(_mm256_set1_epi32(30), lg0));
    __m256i x1 = _mm256_sllv_epi32(a1, _mm256_sub_epi32(_mm256_set1_epi32(30), lg1));
    const __m256i lead = _mm256_set1_epi32(-457633446), first = _mm256_set1_epi32(1445956062);
    __m256i c0 = _mm256_add_epi32(mulHigh8(x0, lead), first);
    __m256i c1 = _mm256_add_epi32(mulHigh8(x1, lead), first);
    for (int j = 0; j < 6; ++j) {
        const __m256i coef = _mm256_set1_epi32(kAacCubeRootPolynomial[j]);
        c0 = _mm256_add_epi32(mulHigh8(c0, x0), coef);
        c1 = _mm256_add_epi32(mulHigh8(c1, x1), coef);
    }
    const __m256i normalisers = _mm256_load_si256(reinterpret_cast<const __m256i*>(kAacCubeRootNormaliser));
    const __m256i exponents = _mm256_load_si256(reinterpret_cast<const __m256i*>(kAacCubeRootExponent));
    const __m256i seven = _mm256_set1_epi32(7), four = _mm256_set1_epi32(4), even = _mm256_set1_epi32(~1);
    __m256i index0 = _mm256_sub_epi32(lg0, seven), index1 = _mm256_sub_epi32(lg1, seven);
    __m256i n0 = mulShift31x8(_mm256_slli_epi32(c0, 4), _mm256_permutevar8x32_epi32(normalisers, index0));
    __m256i n1 = mulShift31x8(_mm256_slli_epi32(c1, 4), _mm256_permutevar8x32_epi32(normalisers, index1));
    *m0 = mulHigh8(_mm256_and_si256(n0, even), gain);
    *m1 = mulHigh8(_mm256_and_si256(n1, even), gain);
    *base0 = _mm256_sub_epi32(_mm256_permutevar8x32_epi32(exponents, index0), four);
    *base1 = _mm256_sub_epi32(_mm256_permutevar8x32_epi32(exponents, index1), four);
}

// m * 2^(s - base) lane by lane, as scaleByExponent.
inline __m256i scaleByExponent8(__m256i m, __m256i base, __m256i s)
{
    __m256i zero = _mm256_setzero_si256();
    __m256i d = _mm256_sub_epi32(base, s);
    __m256i right = _mm256_srav_epi32(m, _mm256_max_epi32(d, zero));  // counts above 31 fill with the sign
    __m256i leftCount = _mm256_max_epi32(_mm256_sub_epi32(zero, d), zero);
    __m256i left = _mm256_sllv_epi32(m, leftCount);                    // counts above 31 give 0
    __m256i saturate = _mm256_andnot_si256(_mm256_cmpeq_epi32(m, zero),
                                           _mm256_cmpgt_epi32(leftCount, _mm256_set1_epi32(31)));
    left = _mm256_blendv_epi8(left, _mm256_set1_epi32(2147483647), saturate);
    return _mm256_blendv_epi8(left, right, _mm256_cmpgt_epi32(d, zero));
}

// Dequantizes 8 values whose magnitudes are all at most 8191.
inline __m256i dequantize8(__m256i q, const BandConstants& k)
{
    __m256i a = _mm256_abs_epi32(q);
    // Small range: 16-entry row looked up with two permutes.
    __m256i seven = _mm256_set1_epi32(7);
    __m256i entry = _mm256_blendv_epi8(_mm256_permutevar8x32_epi32(k.smallLow, a),
                                       _mm256_permutevar8x32_epi32(k.smallHigh, a), _mm256_cmpgt_epi32(a, seven));
    __m256i below4 = _mm256_cmpgt_epi32(_mm256_set1_epi32(4), a);
    __m256i result = _mm256_srav_epi32(entry, _mm256_blendv_epi8(k.shiftSmall4, k.shiftSmall1, below4));

    __m256i above15 = _mm256_cmpgt_epi32(a, _mm256_set1_epi32(15));
    if (_mm256_movemask_epi8(above15) == 0) return _mm256_sign_epi32(result, q);

    // Medium range.
    __m256i mediumIndex = _mm256_min_epi32(_mm256_max_epi32(a, _mm256_set1_epi32(16)), _mm256_set1_epi32(128));
    __m256i m = mulHigh8(_mm256_i32gather_epi32(kAacMediumPowers.v, mediumIndex, 4), k.gain);
    __m256i base = _mm256_blendv_epi8(_mm256_set1_epi32(19), _mm256_set1_epi32(17),
                                      _mm256_cmpgt_epi32(a, _mm256_set1_epi32(63)));
    __m256i above128 = _mm256_cmpgt_epi32(a, _mm256_set1_epi32(128));
    if (_mm256_movemask_epi8(above128) != 0) {
        __m256i largeBase;
        __m256i clamped = _mm256_max_epi32(a, _mm256_set1_epi32(129));
        __m256i large = largePower8(clamped, k.gain, &largeBase);
        m = _mm256_blendv_epi8(m, large, above128);
        base = _mm256_blendv_epi8(base, largeBase, above128);
    }
    result = _mm256_blendv_epi8(result, scaleByExponent8(m, base, k.s), above15);
    return _mm256_sign_epi32(result, q);
}

// dequantize8 split in two for the paired loop: the small and medium ranges first,
// then (after the large range has been filled in) the final shift and sign.
struct Partial8 {
    __m256i q, a, result, m, base, above15, above128;
};

inline Partial8 partial8(__m256i q, const BandConstants& k)
{
    Partial8 p;
    p.q = q;
    p.a = _mm256_abs_epi32(q);
    __m256i entry = _mm256_blendv_epi8(_mm256_permutevar8x32_epi32(k.smallLow, p.a),
                                       _mm256_permutevar8x32_epi32(k.smallHigh, p.a),
                                       _mm256_cmpgt_epi32(p.a, _mm256_set1_epi32(7)));
    __m256i below4 = _mm256_cmpgt_epi32(_mm256_set1_epi32(4), p.a);
    p.result = _mm256_srav_epi32(entry, _mm256_blendv_epi8(k.shiftSmall4, k.shiftSmall1, below4));
    p.above15 = _mm256_cmpgt_epi32(p.a, _mm256_set1_epi32(15));
    p.above128 = _mm256_cmpgt_epi32(p.a, _mm256_set1_epi32(128));
    __m256i mediumIndex = _mm256_min_epi32(_mm256_max_epi32(p.a, _mm256_set1_epi32(16)), _mm256_set1_epi32(128));
    p.m = mulHigh8(_mm256_i32gather_epi32(kAacMediumPowers.v, mediumIndex, 4), k.gain);
    p.base = _mm256_blendv_epi8(_mm256_set1_epi32(19), _mm256_set1_epi32(17),
                                _mm256_cmpgt_epi32(p.a, _mm256_set1_epi32(63)));
    return p;
}

inline __m256i finish8(const Partial8& p, const BandConstants& k)
{
    __m256i result = _mm256_blendv_epi8(p.result, scaleByExponent8(p.m, p.base, k.s), p.above15);
    return _mm256_sign_epi32(result, p.q);
}

inline bool allWithinLimit(__m256i q)
{
    const __m256i limit = _mm256_set1_epi32(kAacMaxQuantMagnitude);
    __m256i a = _mm256_abs_epi32(q);  // INT32_MIN stays negative: caught by the unsigned test
    return _mm256_testc_si256(_mm256_cmpeq_epi32(_mm256_max_epu32(a, limit), limit), _mm256_set1_epi32(-1));
}

// A shift count for the vector shifts: negative means none, anything above 31 is
// the same as 32.
inline int32_t clampShiftCount(int shift) { return shift < 0 ? 0 : (shift > 32 ? 32 : shift); }

}  // namespace

int32_t aacDequantizeOne(int32_t q, int exponent)
{
    if (q == 0) return 0;
    int s = (exponent + 3) >> 2;
    int f = 4 * s - exponent;
    uint32_t a = q < 0 ? 0u - static_cast<uint32_t>(q) : static_cast<uint32_t>(q);
    int32_t r = dequantizeMagnitude(a, s, f);
    return q < 0 ? wrapNegate(r) : r;
}

ZamStatus aacDequantizeScalar(int32_t* values, int count, int exponent)
{
    int s = (exponent + 3) >> 2;
    int f = 4 * s - exponent;
    for (int i = 0; i < count; ++i) {
        int32_t q = values[i];
        if (q == 0) continue;
        uint32_t a = q < 0 ? 0u - static_cast<uint32_t>(q) : static_cast<uint32_t>(q);
        if (a > kAacMaxQuantMagnitude) return zamStsAacQuantValErr;
        int32_t r = dequantizeMagnitude(a, s, f);
        values[i] = q < 0 ? wrapNegate(r) : r;
    }
    return zamStsOk;
}

ZamStatus aacDequantizeAvx2(int32_t* values, int count, int exponent)
{
    int s = (exponent + 3) >> 2;
    int f = 4 * s - exponent;
    BandConstants k;
    k.smallLow = _mm256_load_si256(reinterpret_cast<const __m256i*>(&kAacSmallPowers.v[f][0]));
    k.smallHigh = _mm256_load_si256(reinterpret_cast<const __m256i*>(&kAacSmallPowers.v[f][8]));
    k.shiftSmall1 = _mm256_set1_epi32(clampShiftCount(25 - s));
    k.shiftSmall4 = _mm256_set1_epi32(clampShiftCount(22 - s));
    k.gain = _mm256_set1_epi32(kAacFractionalGain[f]);
    k.s = _mm256_set1_epi32(s);
    int i = 0;
    // Pairs of vectors that hold large magnitudes go through the interleaved
    // polynomial; anything else (and a bad value) is left to the single loop.
    for (; i + 16 <= count; i += 16) {
        __m256i q0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(values + i));
        __m256i q1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(values + i + 8));
        if (!allWithinLimit(q0) || !allWithinLimit(q1)) break;
        __m256i large = _mm256_or_si256(_mm256_cmpgt_epi32(_mm256_abs_epi32(q0), _mm256_set1_epi32(128)),
                                        _mm256_cmpgt_epi32(_mm256_abs_epi32(q1), _mm256_set1_epi32(128)));
        if (_mm256_testz_si256(large, large)) {
            if (!_mm256_testz_si256(q0, q0))
                _mm256_storeu_si256(reinterpret_cast<__m256i*>(values + i), dequantize8(q0, k));
            if (!_mm256_testz_si256(q1, q1))
                _mm256_storeu_si256(reinterpret_cast<__m256i*>(values + i + 8), dequantize8(q1, k));
            continue;
        }
        Partial8 p0 = partial8(q0, k), p1 = partial8(q1, k);
        const __m256i low = _mm256_set1_epi32(129);
        __m256i m0, m1, base0, base1;
        largePower8x2(_mm256_max_epi32(p0.a, low), _mm256_max_epi32(p1.a, low), k.gain, &m0, &m1, &base0, &base1);
        p0.m = _mm256_blendv_epi8(p0.m, m0, p0.above128);
        p0.base = _mm256_blendv_epi8(p0.base, base0, p0.above128);
        p1.m = _mm256_blendv_epi8(p1.m, m1, p1.above128);
        p1.base = _mm256_blendv_epi8(p1.base, base1, p1.above128);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(values + i), finish8(p0, k));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(values + i + 8), finish8(p1, k));
    }
    for (; i + 8 <= count; i += 8) {
        __m256i q = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(values + i));
        if (_mm256_testz_si256(q, q)) continue;
        if (!allWithinLimit(q)) return aacDequantizeScalar(values + i, count - i, exponent);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(values + i), dequantize8(q, k));
    }
    if (i < count) {
        // The last 1..7 values (bands of 4 and 12 lines) in masked lanes: the lanes
        // outside the band read as zero and are not written.
        const __m256i mask = _mm256_cmpgt_epi32(_mm256_set1_epi32(count - i), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
        __m256i q = _mm256_maskload_epi32(values + i, mask);
        if (_mm256_testz_si256(q, q)) return zamStsOk;
        if (!allWithinLimit(q)) return aacDequantizeScalar(values + i, count - i, exponent);
        _mm256_maskstore_epi32(values + i, mask, dequantize8(q, k));
    }
    return zamStsOk;
}

}  // namespace zam

using namespace zam;

ZAM_API ZamStatus zamsQuantInv_AAC_32s_I(int32_t* pSrcDst, const int16_t* pScaleFactor, int32_t numWinGrp,
                                         const int32_t* pWinGrpLen, int32_t maxSfb, const uint8_t* pSfbCb,
                                         uint32_t samplingRateIndex, int32_t winLen)
{
    if (!pSrcDst || !pScaleFactor || !pWinGrpLen || !pSfbCb) return zamStsNullPtr;
    ZamStatus st = aacCheckBandWalkArgs(numWinGrp, maxSfb, samplingRateIndex, winLen);
    if (st != zamStsOk) return st;

    const bool eightShort = winLen == kAacShortWindowLength;
    const uint16_t* offsets = aacSwbOffsets(static_cast<int>(samplingRateIndex), eightShort);
    const AacGroupLengths groups = aacGroupLengths(numWinGrp, pWinGrpLen, winLen);
    auto dequantizeBand = [&](int, int, int band, int start, int width) -> ZamStatus {
        const uint8_t cb = pSfbCb[band];
        if (cb == 0 || cb == 13 || cb == 14 || cb == 15) return zamStsOk;
        return aacDequantizeAvx2(pSrcDst + start, width, pScaleFactor[band] - 100);
    };
    return aacForEachGroupedBand(groups, offsets, maxSfb, winLen, dequantizeBand);
}
