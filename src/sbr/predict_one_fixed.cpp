// Fixed-point predictor coefficients of one QMF subband for SBR high-frequency
// generation: the covariance method of the float predictor (relaxation 1 - 2^-20,
// stability limit |alpha|^2 < 16, the zero guards of its one-at-a-time path) in
// integers, with the coefficients in Q29.
//
// Overflow guards: the samples of the subband are first shifted right by a common
// amount so that every sum of len products fits 62 bits; the five sums are then
// shifted right together until the largest is below 2^40, which keeps every
// product of two sums and the Q29 quotients inside 128 bits. Common shifts change
// neither alpha0 nor alpha1 (both are ratios of equal degree in the sums).
#include <cstdint>

#include "core/export.h"

namespace {

using i128 = __int128;

constexpr int kAlphaFrac = 29;
constexpr int kSumBits = 40;
constexpr i128 kOne = i128(1) << kAlphaFrac;

int bitsOf(uint64_t v) { return v ? 64 - __builtin_clzll(v) : 0; }

int64_t shiftRound(int64_t v, int s) { return s ? (v + (int64_t{1} << (s - 1))) >> s : v; }

// n / d rounded to nearest (d > 0).
i128 divRound(i128 n, i128 d) { return n >= 0 ? (n + d / 2) / d : -((-n + d / 2) / d); }

struct Sums {
    int64_t aRe, aIm, bRe, bIm, qRe, qIm, p0, p1;
};

// Rows 0..len+1 of column `band`; `complex` data are (re, im) pairs.
Sums sums(const int32_t* const* rows, int band, int len, bool complex)
{
    const int n = len + 2;
    uint64_t peak = 0;
    for (int i = 0; i < n; ++i) {
        const int32_t* x = rows[i] + (complex ? 2 * band : band);
        for (int c = 0; c < (complex ? 2 : 1); ++c) {
            const uint64_t m = x[c] < 0 ? uint64_t(-int64_t(x[c])) : uint64_t(x[c]);
            peak = m > peak ? m : peak;
        }
    }
    // Samples below 2^b, sums of len (complex: 2 len) products below 2^61.
    const int b = (61 - bitsOf(static_cast<uint64_t>(complex ? 2 * len : len))) / 2;
    const int s = bitsOf(peak) > b ? bitsOf(peak) - b : 0;
    auto re = [&](int i) { return shiftRound(rows[i][complex ? 2 * band : band], s); };
    auto im = [&](int i) { return complex ? shiftRound(rows[i][2 * band + 1], s) : int64_t{0}; };
    Sums t{};
    for (int i = 0; i < len; ++i) {
        const int64_t r0 = re(i), i0 = im(i), r1 = re(i + 1), i1 = im(i + 1), r2 = re(i + 2), i2 = im(i + 2);
        // x[n+1] conj(x[n]), x[n+2] conj(x[n+1]), x[n+2] conj(x[n])
        t.aRe += r1 * r0 + i1 * i0, t.aIm += i1 * r0 - r1 * i0;
        t.bRe += r2 * r1 + i2 * i1, t.bIm += i2 * r1 - r2 * i1;
        t.qRe += r2 * r0 + i2 * i0, t.qIm += i2 * r0 - r2 * i0;
        t.p0 += r0 * r0 + i0 * i0, t.p1 += r1 * r1 + i1 * i1;
    }
    int64_t* all[] = {&t.aRe, &t.aIm, &t.bRe, &t.bIm, &t.qRe, &t.qIm, &t.p0, &t.p1};
    uint64_t big = 0;
    for (int64_t* v : all) big |= *v < 0 ? uint64_t(-*v) : uint64_t(*v);
    const int down = bitsOf(big) > kSumBits ? bitsOf(big) - kSumBits : 0;
    for (int64_t* v : all) *v = shiftRound(*v, down);
    return t;
}

// |re + i im|^2 < 16 in Q29, without squaring values that could overflow.
bool stable(i128 re, i128 im)
{
    const i128 four = i128(4) << kAlphaFrac;
    if (re >= four || -re >= four || im >= four || -im >= four) return false;
    return re * re + im * im < (i128(16) << (2 * kAlphaFrac));
}

// alpha0, alpha1 in Q29 ((re, im) for complex data) with the one-at-a-time rules.
void coefficients(const Sums& t, bool complex, int32_t* alpha0, int32_t* alpha1)
{
    const i128 a2 = i128(t.aRe) * t.aRe + i128(t.aIm) * t.aIm;
    const i128 det = i128(t.p0) * t.p1 - (a2 - (a2 >> 20));  // r |A|^2, r = 1 - 2^-20
    i128 a1r = 0, a1i = 0, a0r = 0, a0i = 0;
    if (det > 0 && (!complex || t.p1 > 0)) {
        // (B A - P1 Q) / det
        const i128 nr = i128(t.bRe) * t.aRe - i128(t.bIm) * t.aIm - i128(t.p1) * t.qRe;
        const i128 ni = i128(t.bRe) * t.aIm + i128(t.bIm) * t.aRe - i128(t.p1) * t.qIm;
        a1r = divRound(nr * kOne, det);
        a1i = divRound(ni * kOne, det);
    }
    bool keep = stable(a1r, a1i);
    if (keep && t.p1 > 0) {
        // -(B + alpha1 conj(A)) / P1
        const i128 nr = i128(t.bRe) * kOne + a1r * t.aRe + a1i * t.aIm;
        const i128 ni = i128(t.bIm) * kOne + a1i * t.aRe - a1r * t.aIm;
        a0r = divRound(-nr, t.p1);
        a0i = divRound(-ni, t.p1);
        keep = stable(a0r, a0i);
    }
    if (!keep) a0r = a0i = a1r = a1i = 0;
    alpha0[0] = static_cast<int32_t>(a0r);
    alpha1[0] = static_cast<int32_t>(a1r);
    if (complex) {
        alpha0[1] = static_cast<int32_t>(a0i);
        alpha1[1] = static_cast<int32_t>(a1i);
    }
}

ZamStatus predict(const int32_t* const* ppSrc, int32_t* pAlpha0, int32_t* pAlpha1, int band, int len, bool complex)
{
    if (!ppSrc || !pAlpha0 || !pAlpha1) return zamStsNullPtr;
    if (len < 1) return zamStsOk;
    if (band < 0 || band > 63) return zamStsBadArg;
    for (int i = 0; i < len + 2; ++i)
        if (!ppSrc[i]) return zamStsNullPtr;
    coefficients(sums(ppSrc, band, len, complex), complex, pAlpha0, pAlpha1);
    return zamStsOk;
}

}  // namespace

ZAM_API ZamStatus zamsPredictOneCoef_SBRHQ_32sc_D2L(const int32_t* const* ppSrc, int32_t* pAlpha0, int32_t* pAlpha1,
                                                    int band, int len)
{
    return predict(ppSrc, pAlpha0, pAlpha1, band, len, true);
}

ZAM_API ZamStatus zamsPredictOneCoef_SBRLP_32s_D2L(const int32_t* const* ppSrc, int32_t* pAlpha0, int32_t* pAlpha1,
                                                   int band, int len)
{
    return predict(ppSrc, pAlpha0, pAlpha1, band, len, false);
}
