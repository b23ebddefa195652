// AAC synthesis and analysis filter banks in fixed point (ISO/IEC 13818-7, 15.3;
// ISO/IEC 14496-3, 4.6.11 and 4.6.6 for the analysis side used by long-term
// prediction).
//
// The MDCT pair follows the float MDCT's design step for step (mdct_kernels.h:
// the same fold, pre-twiddle, complex DFT of N/4 points, post-twiddle and unfold,
// with the same index maps), with these fixed-point steps named:
//   normalise  the block is shifted so that its largest value lies in
//              [2^29, 2^30) (inverse: coefficients) or [2^28, 2^29) (forward:
//              windowed samples, before the fold adds two of them);
//   twiddle    Q30 (sin, cos) of 2*pi*(j + 1/8)/N, 64-bit products rounded half up;
//   FFT        fft32Fwd, which returns its halvings e;
//   scale      one rounding shift at the end undoes the normalisation, e, the
//              transform's 2/N (inverse) or 2 (forward) and the Q formats.
#include "transform/mdct_aac.h"

#include <climits>
#include <cstring>

#include "core/export.h"
#include "transform/fft32.h"
#include "transform/trig.h"

namespace zam::aacfb {

namespace {

constexpr int32_t q30(double v)
{
    const double r = v * 1073741824.0;
    return static_cast<int32_t>(r >= 0 ? r + 0.5 : r - 0.5);
}

constexpr double csqrt(double x)
{
    if (x <= 0) return 0;
    double r = x > 1 ? x : 1;
    for (int i = 0; i < 200; ++i) {
        const double next = 0.5 * (r + x / r);
        if (next == r) break;
        r = next;
    }
    return r;
}

// Zeroth-order modified Bessel function of the first kind, by its power series.
constexpr double besselI0(double x)
{
    double sum = 1.0, term = 1.0;
    for (int k = 1; k < 200; ++k) {
        term *= (x / (2.0 * k)) * (x / (2.0 * k));
        sum += term;
        if (term < sum * 1e-18) break;
    }
    return sum;
}

template <int Half>
struct Rise {
    int32_t v[Half];
};

// w(n) = sin(pi/N * (n + 1/2)), N = 2 * Half.
template <int Half>
constexpr Rise<Half> sineRise()
{
    Rise<Half> r{};
    for (int n = 0; n < Half; ++n) r.v[n] = q30(sinCosTurn(2 * n + 1, 8 * Half).s);
    return r;
}

// Kaiser-Bessel derived: w(n) = sqrt(sum_{p<=n} W'(p) / sum_{p<=N/2} W'(p)), with
// W'(p) = I0(pi * alpha * sqrt(1 - ((p - N/4) / (N/4))^2)).
template <int Half>
constexpr Rise<Half> kbdRise(double alpha)
{
    Rise<Half> r{};
    double kernel[Half + 1] = {};
    double total = 0;
    for (int p = 0; p <= Half; ++p) {
        const double x = (p - Half / 2.0) / (Half / 2.0);
        kernel[p] = besselI0(kPi * alpha * csqrt(1.0 - x * x));
        total += kernel[p];
    }
    double running = 0;
    for (int n = 0; n < Half; ++n) {
        running += kernel[n];
        r.v[n] = q30(csqrt(running / total));
    }
    return r;
}

constexpr Rise<1024> kSineLong = sineRise<1024>();
constexpr Rise<128> kSineShort = sineRise<128>();
constexpr Rise<1024> kKbdLong = kbdRise<1024>(4.0);
constexpr Rise<128> kKbdShort = kbdRise<128>(6.0);

// MDCT twiddles: (sin, cos) of 2*pi*(j + 1/8)/N for j < N/4.
template <int N>
struct Twiddles {
    int32_t sc[N / 2];
};
template <int N>
constexpr Twiddles<N> makeTwiddles()
{
    Twiddles<N> t{};
    for (int j = 0; j < N / 4; ++j) {
        const SinCos v = sinCosTurn(8 * j + 1, 8 * N);
        t.sc[2 * j] = q30(v.s);
        t.sc[2 * j + 1] = q30(v.c);
    }
    return t;
}
constexpr Twiddles<2048> kTwLong = makeTwiddles<2048>();
constexpr Twiddles<256> kTwShort = makeTwiddles<256>();

inline const int32_t* twiddles(int n) { return n == 2048 ? kTwLong.sc : kTwShort.sc; }

constexpr int32_t kOne = 1 << 30;

inline int64_t roundShift(int64_t v, int sh) { return (v + (int64_t{1} << (sh - 1))) >> sh; }

// v * 2^-sh rounded half up; a left shift (sh <= 0) saturates to +-2^62.
inline int64_t scale(int64_t v, int sh)
{
    if (sh > 0) return roundShift(v, sh > 62 ? 62 : sh);
    if (sh == 0) return v;
    const int l = -sh > 62 ? 62 : -sh;
    const int64_t lim = (int64_t{1} << 62) >> l;
    return v >= lim ? int64_t{1} << 62 : v <= -lim ? -(int64_t{1} << 62) : v * (int64_t{1} << l);
}

inline int32_t sat32(int64_t v) { return static_cast<int32_t>(v > INT_MAX ? INT_MAX : v < INT_MIN ? INT_MIN : v); }

inline int msb64(uint64_t v) { return 63 - __builtin_clzll(v); }

// Inverse MDCT of N (2048 or 256) outputs from N/2 coefficients (Q3) into t[N];
// the windowed output in Q8 is (t[n] * w_Q30) * 2^-R, R returned. An all-zero
// input gives t = 0.
int imdct(const int32_t* X, int64_t* t, int n, Kernels k)
{
    const int q = n / 4, e8 = n / 8;
    uint32_t bits = 0;
    for (int i = 0; i < n / 2; ++i) bits |= static_cast<uint32_t>(X[i] < 0 ? -int64_t{X[i]} : X[i]);
    if (bits == 0) {
        std::memset(t, 0, sizeof(int64_t) * n);
        return 0;
    }
    const int s = 29 - msb64(bits);  // -2..29
    const int32_t* tw = twiddles(n);
    alignas(64) int32_t w[2 * 512];
    for (int j = 0; j < q; ++j) {
        const int64_t p = X[2 * j], r = X[n / 2 - 1 - 2 * j], sn = tw[2 * j], c = tw[2 * j + 1];
        w[2 * j] = static_cast<int32_t>(roundShift(p * c + r * sn, 30 - s));
        w[2 * j + 1] = static_cast<int32_t>(roundShift(r * c - p * sn, 30 - s));
    }
    const int e = fft32Fwd(w, __builtin_ctz(q), k);
    for (int j = 0; j < q; ++j) {
        const int64_t sn = tw[2 * j], c = tw[2 * j + 1], re = w[2 * j], im = w[2 * j + 1];
        const int64_t a = roundShift(re * c + im * sn, 30);
        const int64_t b = roundShift(re * sn - im * c, 30);
        if (j < e8) {
            t[3 * q + 2 * j] = -a;
            t[3 * q - 1 - 2 * j] = -a;
            t[q - 1 - 2 * j] = b;
            t[q + 2 * j] = -b;
        } else {
            t[2 * j - q] = a;
            t[3 * q - 1 - 2 * j] = -a;
            t[5 * q - 1 - 2 * j] = -b;
            t[q + 2 * j] = -b;
        }
    }
    return __builtin_ctz(n) + 24 + s - e;
}

// Forward MDCT of N (2048 or 256) windowed samples z (Q38: Q8 sample times Q30
// window) into N/2 coefficients (Q3), rounded and saturated.
void mdct(const int64_t* z, int32_t* X, int n, Kernels k)
{
    const int q = n / 4, e8 = n / 8;
    uint64_t bits = 0;
    for (int i = 0; i < n; ++i) bits |= static_cast<uint64_t>(z[i] < 0 ? -z[i] : z[i]);
    if (bits == 0) {
        std::memset(X, 0, sizeof(int32_t) * (n / 2));
        return;
    }
    const int sigma = 28 - msb64(bits);
    auto x = [&](int i) { return scale(z[i], -sigma); };
    const int32_t* tw = twiddles(n);
    alignas(64) int32_t w[2 * 512];
    for (int j = 0; j < q; ++j) {
        int64_t a, b;
        if (j < e8) {
            a = -x(3 * q + 2 * j) - x(3 * q - 2 * j - 1);
            b = x(q - 2 * j - 1) - x(q + 2 * j);
        } else {
            a = x(2 * j - q) - x(3 * q - 2 * j - 1);
            b = -x(5 * q - 2 * j - 1) - x(q + 2 * j);
        }
        const int64_t sn = tw[2 * j], c = tw[2 * j + 1];
        w[2 * j] = static_cast<int32_t>(roundShift(a * c + b * sn, 30));
        w[2 * j + 1] = static_cast<int32_t>(roundShift(b * c - a * sn, 30));
    }
    const int e = fft32Fwd(w, __builtin_ctz(q), k);
    const int r = 64 + sigma - e;
    for (int j = 0; j < q; ++j) {
        const int64_t sn = tw[2 * j], c = tw[2 * j + 1], re = w[2 * j], im = w[2 * j + 1];
        X[2 * j] = sat32(scale(re * c + im * sn, r));
        X[n / 2 - 1 - 2 * j] = sat32(scale(re * sn - im * c, r));
    }
}

inline int64_t win(int64_t t, int32_t w, int r) { return scale(t * w, r); }

}  // namespace

const int32_t* longRise(int shape) { return shape ? kKbdLong.v : kSineLong.v; }
const int32_t* shortRise(int shape) { return shape ? kKbdShort.v : kSineShort.v; }

void synthesis(const int32_t* spec, int64_t* out, int32_t* overlap, int seq, int shape, int prevShape, Kernels k)
{
    alignas(64) int64_t t[2048];
    if (seq == kEightShort) {
        alignas(64) int64_t frame[2048] = {};
        for (int w = 0; w < 8; ++w) {
            const int r = imdct(spec + 128 * w, t, 256, k);
            const int32_t* rise = shortRise(w == 0 ? prevShape : shape);
            const int32_t* fall = shortRise(shape);
            int64_t* f = frame + 448 + 128 * w;
            for (int n = 0; n < 128; ++n) f[n] += win(t[n], rise[n], r);
            for (int n = 0; n < 128; ++n) f[128 + n] += win(t[128 + n], fall[127 - n], r);
        }
        for (int n = 0; n < 1024; ++n) out[n] = overlap[n] + frame[n];
        for (int n = 0; n < 1024; ++n) overlap[n] = sat32(frame[1024 + n]);
        return;
    }
    const int r = imdct(spec, t, 2048, k);
    if (seq == kLongStop) {
        const int32_t* rise = shortRise(prevShape);
        for (int n = 0; n < 448; ++n) out[n] = overlap[n];
        for (int n = 0; n < 128; ++n) out[448 + n] = overlap[448 + n] + win(t[448 + n], rise[n], r);
        for (int n = 576; n < 1024; ++n) out[n] = overlap[n] + win(t[n], kOne, r);
    } else {
        const int32_t* rise = longRise(prevShape);
        for (int n = 0; n < 1024; ++n) out[n] = overlap[n] + win(t[n], rise[n], r);
    }
    if (seq == kLongStart) {
        const int32_t* fall = shortRise(shape);
        for (int n = 0; n < 448; ++n) overlap[n] = sat32(win(t[1024 + n], kOne, r));
        for (int n = 0; n < 128; ++n) overlap[448 + n] = sat32(win(t[1472 + n], fall[127 - n], r));
        for (int n = 576; n < 1024; ++n) overlap[n] = 0;
    } else {
        const int32_t* fall = longRise(shape);
        for (int n = 0; n < 1024; ++n) overlap[n] = sat32(win(t[1024 + n], fall[1023 - n], r));
    }
}

void analysis(const int32_t* x, int32_t* spec, int seq, int shape, int prevShape, Kernels k)
{
    alignas(64) int64_t z[2048];
    if (seq == kEightShort) {
        for (int w = 0; w < 8; ++w) {
            const int32_t* rise = shortRise(w == 0 ? prevShape : shape);
            const int32_t* fall = shortRise(shape);
            const int32_t* s = x + 448 + 128 * w;
            for (int n = 0; n < 128; ++n) z[n] = int64_t{s[n]} * rise[n];
            for (int n = 0; n < 128; ++n) z[128 + n] = int64_t{s[128 + n]} * fall[127 - n];
            mdct(z, spec + 128 * w, 256, k);
        }
        return;
    }
    if (seq == kLongStop) {
        const int32_t* rise = shortRise(prevShape);
        for (int n = 0; n < 448; ++n) z[n] = 0;
        for (int n = 0; n < 128; ++n) z[448 + n] = int64_t{x[448 + n]} * rise[n];
        for (int n = 576; n < 1024; ++n) z[n] = int64_t{x[n]} * kOne;
    } else {
        const int32_t* rise = longRise(prevShape);
        for (int n = 0; n < 1024; ++n) z[n] = int64_t{x[n]} * rise[n];
    }
    if (seq == kLongStart) {
        const int32_t* fall = shortRise(shape);
        for (int n = 0; n < 448; ++n) z[1024 + n] = int64_t{x[1024 + n]} * kOne;
        for (int n = 0; n < 128; ++n) z[1472 + n] = int64_t{x[1472 + n]} * fall[127 - n];
        for (int n = 1600; n < 2048; ++n) z[n] = 0;
    } else {
        const int32_t* fall = longRise(shape);
        for (int n = 0; n < 1024; ++n) z[1024 + n] = int64_t{x[1024 + n]} * fall[1023 - n];
    }
    mdct(z, spec, 2048, k);
}

}  // namespace zam::aacfb

namespace {

using namespace zam;

ZamStatus checkShapes(int seq, int shape, int prevShape)
{
    if (static_cast<unsigned>(seq) > 3) return zamStsAacWinSeqErr;
    if (static_cast<unsigned>(shape) > 1 || static_cast<unsigned>(prevShape) > 1) return zamStsBadArg;
    return zamStsOk;
}

int32_t saturate32(int64_t v) { return static_cast<int32_t>(v > INT_MAX ? INT_MAX : v < INT_MIN ? INT_MIN : v); }

}  // namespace

ZAM_API ZamStatus zamsMDCTInv_AAC_32s16s(const int32_t* pSrc, int16_t* pDst, int windowSequence, int windowShape,
                                         int prevWindowShape, int32_t* pOverlap)
{
    if (!pSrc || !pDst || !pOverlap) return zamStsNullPtr;
    if (ZamStatus st = checkShapes(windowSequence, windowShape, prevWindowShape); st != zamStsOk) return st;
    int64_t out[1024];
    aacfb::synthesis(pSrc, out, pOverlap, windowSequence, windowShape, prevWindowShape, Kernels::Avx2);
    for (int n = 0; n < 1024; ++n) {
        const int64_t v = (out[n] + 128) >> 8;
        pDst[n] = static_cast<int16_t>(v > 32767 ? 32767 : v < -32768 ? -32768 : v);
    }
    return zamStsOk;
}

ZAM_API ZamStatus zamsMDCTInv_AAC_32s_I(int32_t* pSrcDst, int windowSequence, int windowShape, int prevWindowShape,
                                        int32_t* pOverlap)
{
    if (!pSrcDst || !pOverlap) return zamStsNullPtr;
    if (ZamStatus st = checkShapes(windowSequence, windowShape, prevWindowShape); st != zamStsOk) return st;
    int64_t out[1024];
    aacfb::synthesis(pSrcDst, out, pOverlap, windowSequence, windowShape, prevWindowShape, Kernels::Avx2);
    for (int n = 0; n < 1024; ++n) pSrcDst[n] = saturate32(out[n]);
    return zamStsOk;
}

ZAM_API ZamStatus zamsMDCTFwd_AAC_32s(const int32_t* pSrc, int32_t* pDst, int windowSequence, int windowShape,
                                      int prevWindowShape)
{
    if (!pSrc || !pDst) return zamStsNullPtr;
    if (ZamStatus st = checkShapes(windowSequence, windowShape, prevWindowShape); st != zamStsOk) return st;
    int32_t spec[1024];
    aacfb::analysis(pSrc, spec, windowSequence, windowShape, prevWindowShape, Kernels::Avx2);
    std::memcpy(pDst, spec, sizeof spec);
    return zamStsOk;
}

ZAM_API ZamStatus zamsMDCTFwd_AAC_32s_I(int32_t* pSrcDst, int windowSequence, int windowShape, int prevWindowShape)
{
    return zamsMDCTFwd_AAC_32s(pSrcDst, pSrcDst, windowSequence, windowShape, prevWindowShape);
}
