// 16-bit forward MDCT: pDst[k] = sat16(round(X[k] * 2^-scaleFactor)), X the float
// forward definition (factor 2), for power-of-two N >= 32.
//
// Scale bookkeeping. With m the largest input magnitude, s is chosen so that
// m * 2^s lies in [23170, 46340): doublings while m stays at most 32768, and one
// more when m * 2^s is below 32768/sqrt(2). The folded pairs (a, b) then have
// |a + ib| <= 2*sqrt(2) * m, and the pre-twiddle (unit-amplitude Q15 twiddles)
// writes W = (a + ib) e^{-i theta} * 2^(s-2) (the pair is brought to that scale
// and rounded before the Q15 products), whose magnitude stays below 32767.
// At its nominal block exponent the 16-bit FFT gives F = DFT(W) / 2^p
// (p = log2(N/4)), and the post-twiddle forms P = Re/Im(F e^{-i theta}) with 13
// fractional bits. (The FFT actually halves only the levels that need it and
// reports how many; the bits it kept are carried as extra fractional bits of P.)
// As X = 2 Re(DFT((a + ib) e^{-i theta}) e^{-i theta}) (the unit twiddles leave
// out the factor sqrt(2)^2), P = X * 2^(s + 10 - p), and the final shift of
// scaleFactor - p + s + 10 bits turns it into X * 2^-scaleFactor.
#include <immintrin.h>

#include <climits>
#include <cmath>
#include <cstring>

#include "core/export.h"
#include "core/memory.h"
#include "transform/fft16.h"
#include "transform/mdct.h"
#include "transform/trig.h"

namespace zam {

namespace {

int log2Of(int v) { return 31 - __builtin_clz(static_cast<unsigned>(v)); }
constexpr int64_t roundUp64(int64_t b) { return roundUp(b, 64); }

ZamStatus sizes16(int len, int64_t& spec, int64_t& init, int64_t& work)
{
    if (len < 32 || !isPowerOfTwo(len) || len > (1 << 28)) return zamStsSize;
    int fs, fi, fw;
    ZamStatus st = fft16GetSize(log2Of(len / 4), &fs, &fi, &fw);
    if (st != zamStsOk) return st;
    work = (4 * int64_t{len} > fw ? 4 * int64_t{len} : fw) + (len & ~3) + 64;
    spec = int64_t{fs} + int64_t{len / 2} * 2 + 232;
    init = fi;
    if (spec > INT_MAX || work > INT_MAX) return zamStsSize;
    return zamStsOk;
}

inline int16_t q15(double v)
{
    double r = std::nearbyint(v * 32768.0);
    return static_cast<int16_t>(r > 32767 ? 32767 : r < -32768 ? -32768 : r);
}

void fillTwiddles16(int16_t* t, int len)
{
    for (int k = 0; k < len / 4; ++k) {
        SinCos sc = sinCosTurn(8 * int64_t{k} + 1, 8 * int64_t{len});
        t[2 * k] = q15(sc.s);
        t[2 * k + 1] = q15(sc.c);
    }
}

MdctSpec16s* locate16(const void* p) { return alignUp<MdctSpec16s>(p, 64); }

inline int16_t saturate(int64_t v) { return static_cast<int16_t>(v > 32767 ? 32767 : v < -32768 ? -32768 : v); }

// Rounds v * 2^-shift (half away from zero... no: half up, as an arithmetic
// shift of v + 2^(shift-1)) and saturates; a negative shift scales up.
int16_t finalScale(int64_t v, int shift)
{
    if (shift > 0) {
        if (shift > 62) return 0;
        return saturate((v + (int64_t{1} << (shift - 1))) >> shift);
    }
    if (v == 0) return 0;
    if (-shift > 31) return v > 0 ? 32767 : -32768;
    return saturate(v * (int64_t{1} << -shift));
}

}  // namespace

// Fold and pre-twiddle, scalar twin: the folded pair is brought to the scale of
// W (times 2^(s-2), rounded) before the Q15 products, so every product fits the
// 32-bit multiply-add of the vector path.
void preTwiddle16Scalar(const int16_t* x, int16_t* work, const int16_t* t, const uint32_t* rev, int n, int sh)
{
    const int q = n / 4, e = n / 8;
    for (int j = 0; j < q; ++j) {
        int32_t a, b;
        if (j < e) {
            a = -x[3 * q + 2 * j] - x[3 * q - 2 * j - 1];
            b = x[q - 2 * j - 1] - x[q + 2 * j];
        } else {
            a = x[2 * j - q] - x[3 * q - 2 * j - 1];
            b = -x[5 * q - 2 * j - 1] - x[q + 2 * j];
        }
        const int32_t as = saturate(((a << sh) + 2) >> 2), bs = saturate(((b << sh) + 2) >> 2);
        const int32_t sn = t[2 * j], cs = t[2 * j + 1];
        const uint32_t r = rev[j];
        work[2 * r] = saturate((as * cs + bs * sn + 0x4000) >> 15);
        work[2 * r + 1] = saturate((bs * cs - as * sn + 0x4000) >> 15);
    }
}

void postTwiddle16Scalar(const int16_t* work, int16_t* dst, const int16_t* t, int n, int shift)
{
    const int q = n / 4;
    for (int j = 0; j < q; ++j) {
        const int32_t sn = t[2 * j], cs = t[2 * j + 1];
        const int32_t re = work[2 * j], im = work[2 * j + 1];
        dst[2 * j] = finalScale(re * cs + im * sn, shift);
        dst[n / 2 - 1 - 2 * j] = finalScale(re * sn - im * cs, shift);
    }
}

namespace v16 {

inline __m256i evens(__m256i v) { return _mm256_srai_epi32(_mm256_slli_epi32(v, 16), 16); }
inline __m256i oddsRev(__m256i v)
{
    return _mm256_permutevar8x32_epi32(_mm256_srai_epi32(v, 16), _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0));
}
inline __m256i rev32(__m256i v) { return _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0)); }
struct Region {
    __m256i even, oddRev;
};
inline Region load(const int16_t* p)
{
    __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    return {evens(v), oddsRev(v)};
}
// (c, s) in each 32-bit lane from the (s, c) table pairs
inline __m256i cosSin(const int16_t* t)
{
    __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(t));
    return _mm256_shufflehi_epi16(_mm256_shufflelo_epi16(v, 0xB1), 0xB1);
}
inline __m256i signed2(const int16_t* t, int lo, int hi)
{
    __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(t));
    return _mm256_sign_epi16(v, _mm256_set1_epi32((hi << 16) | (lo & 0xFFFF)));
}
// rounds x*2^sh/4 and packs (a, b) into the two halves of each 32-bit lane
inline __m256i scalePair(__m256i a, __m256i b, __m128i sh)
{
    const __m256i two = _mm256_set1_epi32(2);
    __m256i as = _mm256_srai_epi32(_mm256_add_epi32(_mm256_sll_epi32(a, sh), two), 2);
    __m256i bs = _mm256_srai_epi32(_mm256_add_epi32(_mm256_sll_epi32(b, sh), two), 2);
    // saturate to 16 bits, then interleave
    as = _mm256_max_epi32(_mm256_min_epi32(as, _mm256_set1_epi32(32767)), _mm256_set1_epi32(-32768));
    bs = _mm256_max_epi32(_mm256_min_epi32(bs, _mm256_set1_epi32(32767)), _mm256_set1_epi32(-32768));
    return _mm256_blend_epi16(as, _mm256_slli_epi32(bs, 16), 0xAA);
}
// W = round(Q15 products) packed as complex int16, then scattered by rev
inline void twiddleScatter(__m256i ab, const int16_t* t, const uint32_t* rev, int16_t* work)
{
    const __m256i round = _mm256_set1_epi32(0x4000);
    __m256i re = _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(ab, cosSin(t)), round), 15);
    __m256i im = _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(ab, signed2(t, -1, 1)), round), 15);
    __m256i w = _mm256_unpacklo_epi16(_mm256_packs_epi32(re, re), _mm256_packs_epi32(im, im));
    alignas(32) uint32_t lanes[8];
    _mm256_store_si256(reinterpret_cast<__m256i*>(lanes), w);
    auto* w32 = reinterpret_cast<uint32_t*>(work);
    for (int l = 0; l < 8; ++l) w32[rev[l]] = lanes[l];
}

inline __m256i finalScale8(__m256i v, int shift)
{
    const int first = shift - 1 > 31 ? 31 : shift - 1;
    return _mm256_srai_epi32(_mm256_add_epi32(_mm256_srai_epi32(v, first), _mm256_set1_epi32(1)), 1);
}

inline void store16(int16_t* p, __m256i evenVals, __m256i oddVals)
{
    __m256i e = _mm256_packs_epi32(evenVals, evenVals), o = _mm256_packs_epi32(oddVals, oddVals);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), _mm256_unpacklo_epi16(e, o));
}

}  // namespace v16

// Same arithmetic as the scalar twin, eight butterflies at a time, mirror blocks
// paired as in the float transform. Needs N >= 64.
void preTwiddle16Avx2(const int16_t* x, int16_t* work, const int16_t* t, const uint32_t* rev, int n, int sh)
{
    if (n < 64) return preTwiddle16Scalar(x, work, t, rev, n, sh);
    const int q = n / 4, e = n / 8;
    const __m128i shv = _mm_cvtsi32_si128(sh);
    for (int j0 = 0; j0 < e; j0 += 8) {
        const int jb = q - 8 - j0;
        v16::Region r1 = v16::load(x + 3 * q + 2 * j0), r2 = v16::load(x + 3 * q - 16 - 2 * j0);
        v16::Region r3 = v16::load(x + q - 16 - 2 * j0), r4 = v16::load(x + q + 2 * j0);
        const __m256i zero = _mm256_setzero_si256();
        __m256i aA = _mm256_sub_epi32(zero, _mm256_add_epi32(r1.even, r2.oddRev));
        __m256i bA = _mm256_sub_epi32(r3.oddRev, r4.even);
        __m256i aB = _mm256_sub_epi32(r3.even, r4.oddRev);
        __m256i bB = _mm256_sub_epi32(zero, _mm256_add_epi32(r1.oddRev, r2.even));
        v16::twiddleScatter(v16::scalePair(aA, bA, shv), t + 2 * j0, rev + j0, work);
        v16::twiddleScatter(v16::scalePair(aB, bB, shv), t + 2 * jb, rev + jb, work);
    }
}

void postTwiddle16Avx2(const int16_t* work, int16_t* dst, const int16_t* t, int n, int shift)
{
    if (n < 64 || shift < 1) return postTwiddle16Scalar(work, dst, t, n, shift);
    const int q = n / 4;
    for (int j0 = 0; j0 < q / 2; j0 += 8) {
        const int jb = q - 8 - j0;
        __m256i fa = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(work + 2 * j0));
        __m256i fb = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(work + 2 * jb));
        __m256i pA = v16::finalScale8(_mm256_madd_epi16(fa, v16::cosSin(t + 2 * j0)), shift);
        __m256i qA = v16::finalScale8(_mm256_madd_epi16(fa, v16::signed2(t + 2 * j0, 1, -1)), shift);
        __m256i pB = v16::finalScale8(_mm256_madd_epi16(fb, v16::cosSin(t + 2 * jb)), shift);
        __m256i qB = v16::finalScale8(_mm256_madd_epi16(fb, v16::signed2(t + 2 * jb, 1, -1)), shift);
        v16::store16(dst + 2 * j0, pA, v16::rev32(qB));
        v16::store16(dst + 2 * jb, pB, v16::rev32(qA));
    }
}

// The transform on a located spec and an aligned work area (N bytes used).
ZamStatus mdctFwd16Core(const int16_t* x, int16_t* dst, const MdctSpec16s* s, int scaleFactor, int16_t* work,
                        Kernels k)
{
    const int n = s->length;
    const bool vec = k == Kernels::Avx2;
    int lo = 0, hi = 0;
    if (vec) {
        __m256i vmin = _mm256_setzero_si256(), vmax = _mm256_setzero_si256();
        for (int i = 0; i < n; i += 16) {
            __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(x + i));
            vmin = _mm256_min_epi16(vmin, v);
            vmax = _mm256_max_epi16(vmax, v);
        }
        alignas(32) int16_t mins[16], maxs[16];
        _mm256_store_si256(reinterpret_cast<__m256i*>(mins), vmin);
        _mm256_store_si256(reinterpret_cast<__m256i*>(maxs), vmax);
        for (int i = 0; i < 16; ++i) {
            lo = mins[i] < lo ? mins[i] : lo;
            hi = maxs[i] > hi ? maxs[i] : hi;
        }
    } else {
        for (int i = 0; i < n; ++i) {
            lo = x[i] < lo ? x[i] : lo;
            hi = x[i] > hi ? x[i] : hi;
        }
    }
    int m = -lo > hi ? -lo : hi;
    if (m == 0) {
        std::memset(dst, 0, static_cast<size_t>(n / 2) * 2);
        return zamStsOk;
    }
    int sh = -1;
    int64_t mm = m;
    do {
        mm *= 2;
        ++sh;
    } while (mm <= 32768);
    if (mm / 2 < 23169) ++sh;

    if (vec)
        preTwiddle16Avx2(x, work, s->twiddles, s->fft->bitReverse, n, sh);
    else
        preTwiddle16Scalar(x, work, s->twiddles, s->fft->bitReverse, n, sh);
    const int halvings = fft16Levels(work, s->fft, k);
    // The shift sum scaleFactor - p + s + 10 applies to P at the FFT's nominal
    // block exponent -p with 13 fractional bits. Here P has 15 fractional bits
    // (two more), and the FFT halved only e of its p levels, keeping p - e more.
    const int shift = (scaleFactor - s->fftOrder + sh + 10) + 2 + (s->fftOrder - halvings);
    if (vec)
        postTwiddle16Avx2(work, dst, s->twiddles, n, shift);
    else
        postTwiddle16Scalar(work, dst, s->twiddles, n, shift);
    return zamStsOk;
}

}  // namespace zam

using zam::MdctSpec16s;

ZAM_API ZamStatus zamsMDCTFwdGetSize_16s(int len, int* pSpecSize, int* pInitBufSize, int* pWorkBufSize)
{
    if (!pSpecSize || !pInitBufSize || !pWorkBufSize) return zamStsNullPtr;
    int64_t spec, init, work;
    ZamStatus st = zam::sizes16(len, spec, init, work);
    if (st != zamStsOk) return st;
    *pSpecSize = static_cast<int>(spec);
    *pInitBufSize = static_cast<int>(init);
    *pWorkBufSize = static_cast<int>(work);
    return zamStsOk;
}

ZAM_API ZamStatus zamsMDCTFwdInit_16s(MdctFwdSpec_16s** ppMDCTSpec, int len, uint8_t* pMemSpec, uint8_t* pMemInit)
{
    int64_t spec, init, work;
    ZamStatus st = zam::sizes16(len, spec, init, work);
    if (st != zamStsOk) return st;
    if (!ppMDCTSpec || !pMemSpec) return zamStsNullPtr;
    auto* s = zam::locate16(pMemSpec);
    std::memset(s, 0, sizeof(MdctSpec16s));
    s->tag = zam::kTagMdctFwd16s;
    s->length = len;
    s->ownsMemory = zam::kCallerMemory;
    s->twiddles = reinterpret_cast<int16_t*>(reinterpret_cast<uint8_t*>(s) + 64);
    const int order = zam::log2Of(len / 4);
    uint8_t* fftMem = reinterpret_cast<uint8_t*>(s->twiddles) + zam::roundUp64(len);
    st = zam::fft16Init(&s->fft, order, fftMem);
    if (st != zamStsOk) {
        s->tag = 0;
        return st;
    }
    s->fftOrder = order;
    s->workSize = static_cast<int32_t>(work);
    zam::fillTwiddles16(s->twiddles, len);
    *ppMDCTSpec = reinterpret_cast<MdctFwdSpec_16s*>(s);
    return zamStsOk;
}

ZAM_API ZamStatus zamsMDCTFwdInitAlloc_16s(MdctFwdSpec_16s** ppMDCTSpec, int len)
{
    int64_t spec, init, work;
    ZamStatus st = zam::sizes16(len, spec, init, work);
    if (st != zamStsOk) return st;
    if (!ppMDCTSpec) return zamStsNullPtr;
    auto* s = static_cast<MdctSpec16s*>(zam::allocBytes(64));
    if (!s) return zamStsMemAlloc;
    std::memset(s, 0, sizeof(MdctSpec16s));
    s->twiddles = static_cast<int16_t*>(zam::allocBytes(len));
    int fs, fi, fw;
    const int order = zam::log2Of(len / 4);
    zam::fft16GetSize(order, &fs, &fi, &fw);
    auto* fftMem = static_cast<uint8_t*>(zam::allocBytes(fs));
    if (!s->twiddles || !fftMem) {
        zam::release(fftMem);
        zam::release(s->twiddles);
        zam::release(s);
        return zamStsMemAlloc;
    }
    zam::fft16Init(&s->fft, order, fftMem);
    s->tag = zam::kTagMdctFwd16s;
    s->length = len;
    s->fftOrder = order;
    s->workSize = static_cast<int32_t>(work);
    s->ownsMemory = zam::kOwnedByLibrary;
    zam::fillTwiddles16(s->twiddles, len);
    *ppMDCTSpec = reinterpret_cast<MdctFwdSpec_16s*>(s);
    return zamStsOk;
}

ZAM_API ZamStatus zamsMDCTFwdFree_16s(MdctFwdSpec_16s* pMDCTSpec)
{
    if (!pMDCTSpec) return zamStsNullPtr;
    MdctSpec16s* s = zam::locate16(pMDCTSpec);
    if (s->tag != zam::kTagMdctFwd16s) return zamStsContextMismatch;
    s->tag = 0;
    if (s->ownsMemory == zam::kOwnedByLibrary) {
        zam::release(s->twiddles);
        zam::release(s->fft);
        zam::release(pMDCTSpec);
    }
    return zamStsOk;
}

ZAM_API ZamStatus zamsMDCTFwdGetBufSize_16s(const MdctFwdSpec_16s* pMDCTSpec, int* pSize)
{
    if (!pMDCTSpec || !pSize) return zamStsNullPtr;
    const MdctSpec16s* s = zam::locate16(pMDCTSpec);
    if (s->tag != zam::kTagMdctFwd16s) return zamStsContextMismatch;
    *pSize = s->workSize;
    return zamStsOk;
}

ZAM_API ZamStatus zamsMDCTFwd_16s_Sfs(const int16_t* pSrc, int16_t* pDst, const MdctFwdSpec_16s* pMDCTSpec,
                                      int scaleFactor, uint8_t* pBuffer)
{
    if (!pMDCTSpec) return zamStsNullPtr;
    const MdctSpec16s* s = zam::locate16(pMDCTSpec);
    if (s->tag != zam::kTagMdctFwd16s) return zamStsContextMismatch;
    if (!pSrc || !pDst) return zamStsNullPtr;
    uint8_t* allocated = nullptr;
    int16_t* work;
    if (pBuffer) {
        work = zam::alignUp<int16_t>(pBuffer, 64);
    } else {
        allocated = static_cast<uint8_t*>(zam::allocBytes(s->workSize));
        if (!allocated) return zamStsMemAlloc;
        work = reinterpret_cast<int16_t*>(allocated);
    }
    ZamStatus st = zam::mdctFwd16Core(pSrc, pDst, s, scaleFactor, work, zam::Kernels::Avx2);
    zam::release(allocated);
    return st;
}
