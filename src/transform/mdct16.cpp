// 16-bit forward MDCT: pDst[k] = sat16(round(X[k] * 2^-scaleFactor)), X the float
// forward definition (factor 2), for power-of-two N >= 32.
//
// Scale bookkeeping. With m the largest input magnitude, s is chosen so that
// m * 2^s lies in [23169, 46340): doublings while m stays at most 32768, and one
// more when m * 2^s is below 32768/sqrt(2). The folded pairs (a, b) then have
// |a + ib| 2^s < 2^17. At the nominal scale the pre-twiddle (unit-amplitude Q15
// twiddles) would give W = (a + ib) e^{-i theta} 2^(s-2), a 16-bit FFT at its
// nominal block exponent F = DFT(W) / 2^p (p = log2(N/4)), and the post-twiddle
// P = Re/Im(F e^{-i theta}) with 13 fractional bits. As
// X = 2 Re(DFT((a + ib) e^{-i theta}) e^{-i theta}) (the unit twiddles leave out
// the factor sqrt(2)^2), P = X * 2^(s + 10 - p), and the final shift of
// scaleFactor - p + s + 10 bits turns it into X * 2^-scaleFactor.
// To keep the rounding noise below the output LSB, W is carried in 32 bits with
// 15 more fractional bits (|W| < 2^30), the FFT runs on 32-bit data with Q30
// twiddles and halves only the levels that could overflow (reporting how many),
// and P is kept in 64 bits with 2 more fractional bits; all these extra bits are
// added to the shift sum, so only the Q15 twiddles and the final rounding remain
// as sources of error.
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

// Rounds v * 2^-shift half up (an arithmetic shift of v + 2^(shift-1)) and
// saturates; a negative shift scales up.
int16_t finalScale(int64_t v, int shift)
{
    if (shift > 0) {
        if (shift > 62) return 0;
        return saturate((v + (int64_t{1} << (shift - 1))) >> shift);
    }
    if (v == 0) return 0;
    if (-shift > 15) return v > 0 ? 32767 : -32768;  // |v| << 16 saturates; |v| < 2^47 keeps v << 15 in range
    return saturate(v * (int64_t{1} << -shift));
}

}  // namespace

// Fold and pre-twiddle: W = (a + ib) e^{-i theta} 2^(s + 13) with the Q15
// twiddles, formed exactly in 64 bits and rounded to nearest (for s >= 2 it is
// exact), written to the bit-reversed slot. |a + ib| 2^s < 2^17, so |W| < 2^30.
void preTwiddle16(const int16_t* x, int32_t* work, const int16_t* t, const uint32_t* rev, int n, int s)
{
    const int q = n / 4, e = n / 8;
    const int down = s < 2 ? 2 - s : 0, up = s < 2 ? 0 : s - 2;
    const int64_t half = down ? int64_t{1} << (down - 1) : 0;
    for (int j = 0; j < q; ++j) {
        int64_t a, b;
        if (j < e) {
            a = -x[3 * q + 2 * j] - x[3 * q - 2 * j - 1];
            b = x[q - 2 * j - 1] - x[q + 2 * j];
        } else {
            a = x[2 * j - q] - x[3 * q - 2 * j - 1];
            b = -x[5 * q - 2 * j - 1] - x[q + 2 * j];
        }
        const int64_t sn = t[2 * j], cs = t[2 * j + 1];
        const int64_t re = (a * cs + b * sn) * (int64_t{1} << up), im = (b * cs - a * sn) * (int64_t{1} << up);
        const uint32_t r = rev[j];
        work[2 * r] = static_cast<int32_t>((re + half) >> down);
        work[2 * r + 1] = static_cast<int32_t>((im + half) >> down);
    }
}

// Post-twiddle in 64 bits, then one rounding (half up) and saturation.
void postTwiddle16(const int32_t* work, int16_t* dst, const int16_t* t, int n, int shift)
{
    const int q = n / 4;
    for (int j = 0; j < q; ++j) {
        const int64_t sn = t[2 * j], cs = t[2 * j + 1];
        const int64_t re = work[2 * j], im = work[2 * j + 1];
        dst[2 * j] = finalScale(re * cs + im * sn, shift);
        dst[n / 2 - 1 - 2 * j] = finalScale(re * sn - im * cs, shift);
    }
}

// The transform on a located spec and an aligned work area (2N bytes used).
ZamStatus mdctFwd16Core(const int16_t* x, int16_t* dst, const MdctSpec16s* s, int scaleFactor, int32_t* work)
{
    const int n = s->length;
    int lo = 0, hi = 0;
    for (int i = 0; i < n; ++i) {
        lo = x[i] < lo ? x[i] : lo;
        hi = x[i] > hi ? x[i] : hi;
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

    preTwiddle16(x, work, s->twiddles, s->fft->bitReverse, n, sh);
    const int halvings = fft16Levels(work, s->fft);
    // The shift sum scaleFactor - p + s + 10 applies to P at the FFT's nominal
    // block exponent -p with 13 fractional bits. Here W carries 15 more bits
    // than that nominal scale (2^(s+13) against 2^(s-2)), P has 15 fractional
    // bits (two more) and the FFT halved only e of its p levels, keeping p - e.
    const int shift = (scaleFactor - s->fftOrder + sh + 10) + 15 + 2 + (s->fftOrder - halvings);
    postTwiddle16(work, dst, s->twiddles, n, shift);
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
    ZamStatus st = zam::mdctFwd16Core(pSrc, pDst, s, scaleFactor, reinterpret_cast<int32_t*>(work));
    zam::release(allocated);
    return st;
}
