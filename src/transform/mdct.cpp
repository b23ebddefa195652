// Float MDCT, forward and inverse, of lengths 12, 36 and powers of two from 32.
//
//   forward: X[k] = 2 * sum_n x[n] cos(phi(n,k)),        k = 0..N/2-1
//   inverse: y[n] = (2/N) * sum_k X[k] cos(phi(n,k)),    n = 0..N-1
//   phi(n,k) = (2*pi/N) * (n + 1/2 + N/4) * (k + 1/2)
//
// Both run as fold, pre-twiddle, complex DFT of N/4 points, post-twiddle. The
// inverse is the transpose of the forward chain: its pre- and post-twiddles have
// the same form as the forward ones (the DFT's transpose is its conjugate, which
// the two conjugations fold into the twiddles), and its unfold scatters every
// computed value to the two outputs the forward fold read it from, so only N/2
// distinct values are computed and each is written twice.
#include "transform/mdct.h"

#include <immintrin.h>

#include <climits>
#include <cstring>

#include "core/export.h"
#include "core/memory.h"
#include "transform/fft_kernels.h"
#include "transform/mdct_kernels.h"
#include "transform/trig.h"

namespace zam {

namespace {

using fftk::Cpx;

int log2Of(int v) { return 31 - __builtin_clz(static_cast<unsigned>(v)); }

// ------------------------------------------------------------ small DFTs

constexpr float kHalf = 0.5f;
constexpr float kSin60 = 0.8660254f;

inline void dft3(Cpx& a, Cpx& b, Cpx& c)
{
    Cpx s{b.re + c.re, b.im + c.im}, d{b.re - c.re, b.im - c.im};
    Cpx m{a.re - kHalf * s.re, a.im - kHalf * s.im};
    // -i * 0.8660254 * d
    Cpx r{kSin60 * d.im, -kSin60 * d.re};
    a = {a.re + s.re, a.im + s.im};
    b = {m.re + r.re, m.im + r.im};
    c = {m.re - r.re, m.im - r.im};
}

constexpr Cpx w9(int k)
{
    SinCos sc = sinCosTurn(k, 9);
    return {static_cast<float>(sc.c), static_cast<float>(-sc.s)};
}
constexpr Cpx kW9[5] = {w9(0), w9(1), w9(2), w9(3), w9(4)};

inline Cpx mul(Cpx a, Cpx w) { return {a.re * w.re - a.im * w.im, a.re * w.im + a.im * w.re}; }

// Nine-point DFT as three three-point DFTs, twiddles, three more.
inline void dft9(Cpx* w)
{
    Cpx y[3][3];
    for (int n2 = 0; n2 < 3; ++n2) {
        Cpx a = w[n2], b = w[n2 + 3], c = w[n2 + 6];
        dft3(a, b, c);
        y[n2][0] = a;
        y[n2][1] = b;
        y[n2][2] = c;
    }
    y[1][1] = mul(y[1][1], kW9[1]);
    y[1][2] = mul(y[1][2], kW9[2]);
    y[2][1] = mul(y[2][1], kW9[2]);
    y[2][2] = mul(y[2][2], kW9[4]);
    for (int k1 = 0; k1 < 3; ++k1) {
        Cpx a = y[0][k1], b = y[1][k1], c = y[2][k1];
        dft3(a, b, c);
        w[k1] = a;
        w[k1 + 3] = b;
        w[k1 + 6] = c;
    }
}

// ------------------------------------------------------------ fixed lengths 12, 36

template <int N>
void fixedForward(const float* x, float* dst, const float* t)
{
    constexpr int q = N / 4, half = (N + 7) / 8;
    Cpx w[q];
    for (int j = 0; j < q; ++j) {
        float a, b;
        if (j < half) {
            a = -x[3 * N / 4 + 2 * j] - x[3 * N / 4 - 2 * j - 1];
            b = x[N / 4 - 2 * j - 1] - x[N / 4 + 2 * j];
        } else {
            a = x[2 * j - N / 4] - x[3 * N / 4 - 2 * j - 1];
            b = -x[5 * N / 4 - 2 * j - 1] - x[N / 4 + 2 * j];
        }
        const float s = t[2 * j], c = t[2 * j + 1];
        w[j] = {a * c + b * s, b * c - a * s};
    }
    if constexpr (N == 12)
        dft3(w[0], w[1], w[2]);
    else
        dft9(w);
    for (int j = 0; j < q; ++j) {
        const float s = t[2 * j], c = t[2 * j + 1];
        dst[2 * j] = w[j].re * c + w[j].im * s;
        dst[N / 2 - 1 - 2 * j] = w[j].re * s - w[j].im * c;
    }
}

template <int N>
void fixedInverse(const float* X, float* y, const float* t)
{
    constexpr int q = N / 4, half = (N + 7) / 8;
    Cpx w[q];
    for (int j = 0; j < q; ++j) {
        const float p = X[2 * j], r = X[N / 2 - 1 - 2 * j];
        const float s = t[2 * j], c = t[2 * j + 1];
        w[j] = {p * c + r * s, r * c - p * s};
    }
    if constexpr (N == 12)
        dft3(w[0], w[1], w[2]);
    else
        dft9(w);
    // y is written only after every input has been read (in-place safety).
    for (int j = 0; j < q; ++j) {
        const float s = t[2 * j], c = t[2 * j + 1];
        const float a = w[j].re * c + w[j].im * s;
        const float b = w[j].re * s - w[j].im * c;
        if (j < half) {
            y[3 * N / 4 + 2 * j] = -a;
            y[3 * N / 4 - 1 - 2 * j] = -a;
            y[N / 4 - 1 - 2 * j] = b;
            y[N / 4 + 2 * j] = -b;
        } else {
            y[2 * j - N / 4] = a;
            y[3 * N / 4 - 1 - 2 * j] = -a;
            y[5 * N / 4 - 1 - 2 * j] = -b;
            y[N / 4 + 2 * j] = -b;
        }
    }
}

// ------------------------------------------------------------ sizes and init

constexpr int kRecordBytes = 64;

int64_t twiddleAreaBytes(int len) { return roundUp(len / 2, 64) * 4; }

// Size queries; a length whose sizes do not fit in an int is refused with
// zamStsSize.
ZamStatus floatSizes(int len, int* pSpecSize, int* pInitSize, int* pWorkSize)
{
    if (!pSpecSize || !pInitSize || !pWorkSize) return zamStsNullPtr;
    int64_t spec = 0, init = 0, work = 0;
    if (len == 12 || len == 36) {
    } else if (len < 32 || !isPowerOfTwo(len) || len > (1 << 28)) {
        return zamStsSize;
    } else {
        int fs, fi, fw;
        ZamStatus st = fftGetSize(log2Of(len / 4), kFftNoScale, 0, &fs, &fi, &fw);
        if (st != zamStsOk) return st;
        spec = int64_t{fs} + 64;
        init = fi;
        work = int64_t{fw} + 64;
    }
    spec += int64_t{len / 2} * 4 + 168;
    work += int64_t{len} * 4 + 128;
    if (spec > INT_MAX || work > INT_MAX) return zamStsSize;
    *pSpecSize = static_cast<int>(spec);
    *pInitSize = static_cast<int>(init);
    *pWorkSize = static_cast<int>(work);
    return zamStsOk;
}

// Length checks in the order Init states them: sizes first, then pointers.
ZamStatus checkFloatLength(int len)
{
    if (isPowerOfTwo(len)) return len < 32 || len > (1 << 28) ? zamStsSize : zamStsOk;
    return len == 12 || len == 36 ? zamStsOk : zamStsSize;
}

void fillTwiddles(float* t, int len, bool inverse)
{
    // A = sqrt(2) forward, 1/sqrt(N/2) inverse; angle 2*pi*(k + 1/8)/N.
    const double amp = inverse ? 1.0 / __builtin_sqrt(len / 2.0) : 1.4142135623730951;
    for (int k = 0; k < len / 4; ++k) {
        SinCos sc = sinCosTurn(8 * int64_t{k} + 1, 8 * int64_t{len});
        const float s = static_cast<float>(amp * sc.s), c = static_cast<float>(amp * sc.c);
        if (isPowerOfTwo(len)) {
            t[(k >> 3) * 16 + (k & 7)] = s;
            t[(k >> 3) * 16 + 8 + (k & 7)] = c;
        } else {
            t[2 * k] = s;
            t[2 * k + 1] = c;
        }
    }
}

ZamStatus floatInit(uint32_t tag, MdctSpec32f** ppSpec, int len, uint8_t* pMemSpec, uint8_t* pMemInit)
{
    ZamStatus st = checkFloatLength(len);
    if (st != zamStsOk) return st;
    const bool pow2 = isPowerOfTwo(len);
    if (!ppSpec || !pMemSpec || (pow2 && !pMemInit)) return zamStsNullPtr;
    auto* s = alignUp<MdctSpec32f>(pMemSpec, 64);
    std::memset(s, 0, sizeof(MdctSpec32f));
    s->tag = tag;
    s->length = len;
    s->ownsMemory = kCallerMemory;
    s->fft = nullptr;
    s->twiddles = reinterpret_cast<float*>(reinterpret_cast<uint8_t*>(s) + kRecordBytes);
    int fftWork = 0;
    if (pow2) {
        uint8_t* fftMem = reinterpret_cast<uint8_t*>(s->twiddles) + twiddleAreaBytes(len);
        int order = log2Of(len / 4);
        st = fftInit(&s->fft, order, kFftNoScale, 0, fftMem, pMemInit);
        if (st != zamStsOk) {
            s->tag = 0;
            return st;
        }
        fftWork = s->fft->workSize;
        s->fftOrder = order;
    }
    s->workSize = fftWork + 64 + 4 * len;
    fillTwiddles(s->twiddles, len, tag == kTagMdctInv32f);
    *ppSpec = s;
    return zamStsOk;
}

ZamStatus floatInitAlloc(uint32_t tag, MdctSpec32f** ppSpec, int len)
{
    ZamStatus st = checkFloatLength(len);
    if (st != zamStsOk) return st;
    if (!ppSpec) return zamStsNullPtr;
    auto* s = static_cast<MdctSpec32f*>(allocBytes(kRecordBytes));
    if (!s) return zamStsMemAlloc;
    std::memset(s, 0, sizeof(MdctSpec32f));
    s->twiddles = static_cast<float*>(allocElements32(roundUp(len / 2, 16)));
    if (!s->twiddles) {
        release(s);
        return zamStsMemAlloc;
    }
    int fftWork = 0;
    if (isPowerOfTwo(len)) {
        int order = log2Of(len / 4);
        st = fftInitAlloc(&s->fft, order, kFftNoScale, 0);
        if (st != zamStsOk) {
            release(s->twiddles);
            release(s);
            return st;
        }
        fftWork = s->fft->workSize;
        s->fftOrder = order;
    }
    s->tag = tag;
    s->length = len;
    s->workSize = fftWork + 64 + 4 * len;
    s->ownsMemory = kOwnedByLibrary;
    fillTwiddles(s->twiddles, len, tag == kTagMdctInv32f);
    *ppSpec = s;
    return zamStsOk;
}

MdctSpec32f* locate(const void* p) { return alignUp<MdctSpec32f>(p, 64); }

ZamStatus floatFree(uint32_t tag, void* pSpec)
{
    if (!pSpec) return zamStsNullPtr;
    MdctSpec32f* s = locate(pSpec);
    if (s->tag != tag) return zamStsContextMismatch;
    s->tag = 0;
    if (s->ownsMemory == kOwnedByLibrary) {
        release(s->twiddles);
        if (s->fft) fftFree(s->fft);
        release(pSpec);
    }
    return zamStsOk;
}

ZamStatus floatBufSize(uint32_t tag, const void* pSpec, int* pSize)
{
    if (!pSpec || !pSize) return zamStsNullPtr;
    const MdctSpec32f* s = locate(pSpec);
    if (s->tag != tag) return zamStsContextMismatch;
    *pSize = s->workSize;
    return zamStsOk;
}

// Runs a transform: checks, work buffer (none for the fixed lengths, which keep
// their few values on the stack), core.
ZamStatus floatTransform(uint32_t tag, const float* src, float* dst, const void* pSpec, uint8_t* pBuffer)
{
    if (!pSpec) return zamStsNullPtr;
    const MdctSpec32f* s = locate(pSpec);
    if (s->tag != tag) return zamStsContextMismatch;
    if (!src || !dst) return zamStsNullPtr;
    const bool inverse = tag == kTagMdctInv32f;
    if (s->length == 12 || s->length == 36) {
        if (inverse)
            mdctInvCore(src, dst, s, nullptr, Kernels::Avx2);
        else
            mdctFwdCore(src, dst, s, nullptr, Kernels::Avx2);
        return zamStsOk;
    }
    uint8_t* allocated = nullptr;
    float* work;
    if (pBuffer) {
        work = alignUp<float>(pBuffer, 64);
    } else {
        allocated = static_cast<uint8_t*>(allocBytes(s->workSize));
        if (!allocated) return zamStsMemAlloc;
        work = reinterpret_cast<float*>(allocated);
    }
    if (inverse)
        mdctInvCore(src, dst, s, work, Kernels::Avx2);
    else
        mdctFwdCore(src, dst, s, work, Kernels::Avx2);
    release(allocated);
    return zamStsOk;
}

}  // namespace

// Work layout for power-of-two N: the folded values (N/4 complex) at the start,
// the FFT output (N/4 complex) behind them, the FFT's own scratch after 4*N bytes.
void mdctFwdCore(const float* x, float* dst, const MdctSpec32f* s, float* work, Kernels k)
{
    const int n = s->length;
    if (n == 12) return fixedForward<12>(x, dst, s->twiddles);
    if (n == 36) return fixedForward<36>(x, dst, s->twiddles);
    float* folded = work;
    float* spectrum = work + n / 2;
    if (k == Kernels::Avx2)
        mdctk::foldPreTwiddleAvx2(x, folded, s->twiddles, n);
    else
        mdctk::foldPreTwiddleScalar(x, folded, s->twiddles, n);
    fftFwd(folded, spectrum, s->fft, reinterpret_cast<uint8_t*>(work + n), k);
    if (k == Kernels::Avx2)
        mdctk::postTwiddleAvx2(spectrum, dst, s->twiddles, n);
    else
        mdctk::postTwiddleScalar(spectrum, dst, s->twiddles, n);
}

void mdctInvCore(const float* X, float* y, const MdctSpec32f* s, float* work, Kernels k)
{
    const int n = s->length;
    if (n == 12) return fixedInverse<12>(X, y, s->twiddles);
    if (n == 36) return fixedInverse<36>(X, y, s->twiddles);
    float* twisted = work;
    float* spectrum = work + n / 2;
    if (k == Kernels::Avx2)
        mdctk::invPreTwiddleAvx2(X, twisted, s->twiddles, n);
    else
        mdctk::invPreTwiddleScalar(X, twisted, s->twiddles, n);
    fftFwd(twisted, spectrum, s->fft, reinterpret_cast<uint8_t*>(work + n), k);
    if (k == Kernels::Avx2)
        mdctk::invPostUnfoldAvx2(spectrum, y, s->twiddles, n);
    else
        mdctk::invPostUnfoldScalar(spectrum, y, s->twiddles, n);
}

}  // namespace zam

using zam::MdctSpec32f;

// ------------------------------------------------------------ exports

ZAM_API ZamStatus zamsMDCTInvGetSize_32f(int len, int* pSpecSize, int* pInitBufSize, int* pWorkBufSize)
{
    return zam::floatSizes(len, pSpecSize, pInitBufSize, pWorkBufSize);
}

ZAM_API ZamStatus zamsMDCTFwdGetSize_32f(int len, int* pSpecSize, int* pInitBufSize, int* pWorkBufSize)
{
    return zamsMDCTInvGetSize_32f(len, pSpecSize, pInitBufSize, pWorkBufSize);
}

ZAM_API ZamStatus zamsMDCTFwdInit_32f(MdctFwdSpec_32f** ppMDCTSpec, int len, uint8_t* pMemSpec, uint8_t* pMemInit)
{
    return zam::floatInit(zam::kTagMdctFwd32f, reinterpret_cast<MdctSpec32f**>(ppMDCTSpec), len, pMemSpec,
                          pMemInit);
}

ZAM_API ZamStatus zamsMDCTInvInit_32f(MdctInvSpec_32f** ppMDCTSpec, int len, uint8_t* pMemSpec, uint8_t* pMemInit)
{
    return zam::floatInit(zam::kTagMdctInv32f, reinterpret_cast<MdctSpec32f**>(ppMDCTSpec), len, pMemSpec,
                          pMemInit);
}

ZAM_API ZamStatus zamsMDCTFwdInitAlloc_32f(MdctFwdSpec_32f** ppMDCTSpec, int len)
{
    return zam::floatInitAlloc(zam::kTagMdctFwd32f, reinterpret_cast<MdctSpec32f**>(ppMDCTSpec), len);
}

ZAM_API ZamStatus zamsMDCTInvInitAlloc_32f(MdctInvSpec_32f** ppMDCTSpec, int len)
{
    return zam::floatInitAlloc(zam::kTagMdctInv32f, reinterpret_cast<MdctSpec32f**>(ppMDCTSpec), len);
}

ZAM_API ZamStatus zamsMDCTFwdFree_32f(MdctFwdSpec_32f* pMDCTSpec) { return zam::floatFree(zam::kTagMdctFwd32f, pMDCTSpec); }

ZAM_API ZamStatus zamsMDCTInvFree_32f(MdctInvSpec_32f* pMDCTSpec) { return zam::floatFree(zam::kTagMdctInv32f, pMDCTSpec); }

ZAM_API ZamStatus zamsMDCTFwdGetBufSize_32f(const MdctFwdSpec_32f* pMDCTSpec, int* pSize)
{
    return zam::floatBufSize(zam::kTagMdctFwd32f, pMDCTSpec, pSize);
}

ZAM_API ZamStatus zamsMDCTInvGetBufSize_32f(const MdctInvSpec_32f* pMDCTSpec, int* pSize)
{
    return zam::floatBufSize(zam::kTagMdctInv32f, pMDCTSpec, pSize);
}

ZAM_API ZamStatus zamsMDCTFwd_32f(const float* pSrc, float* pDst, const MdctFwdSpec_32f* pMDCTSpec, uint8_t* pBuffer)
{
    return zam::floatTransform(zam::kTagMdctFwd32f, pSrc, pDst, pMDCTSpec, pBuffer);
}

ZAM_API ZamStatus zamsMDCTInv_32f(const float* pSrc, float* pDst, const MdctInvSpec_32f* pMDCTSpec, uint8_t* pBuffer)
{
    return zam::floatTransform(zam::kTagMdctInv32f, pSrc, pDst, pMDCTSpec, pBuffer);
}

ZAM_API ZamStatus zamsMDCTFwd_32f_I(float* pSrcDst, const MdctFwdSpec_32f* pMDCTSpec, uint8_t* pBuffer)
{
    return zam::floatTransform(zam::kTagMdctFwd32f, pSrcDst, pSrcDst, pMDCTSpec, pBuffer);
}

ZAM_API ZamStatus zamsMDCTInv_32f_I(float* pSrcDst, const MdctInvSpec_32f* pMDCTSpec, uint8_t* pBuffer)
{
    return zam::floatTransform(zam::kTagMdctInv32f, pSrcDst, pSrcDst, pMDCTSpec, pBuffer);
}
