// One design for the float and the integer SBR QMF banks: the coefficient tables
// and the plain per-slot steps (window sums, pre-twiddle, FFT, post-twiddle) as
// templates over the arithmetic. The float banks use this as the scalar twin of
// their AVX2 kernels; the integer banks use it as it stands.
//
// The arithmetic policies differ only in the named scaling steps:
//  - coefficients: float values, or integers with `frac` fraction bits (window
//    Q31, twiddles Q30, synthesis pre-twiddles Q29);
//  - products are summed unrounded (float, or 64-bit) and rounded once per output
//    (half up, saturated to 32 bits for the integers);
//  - the FFT: the internal float FFT unscaled, or the 32-bit FFT with halving levels;
//  - the analysis FFT halves at all 5 levels and the post-twiddle once more in
//    integers, so the integer analysis returns W / 64 (the float one W);
//  - the synthesis pre-twiddle carries the float scale (1/128 or 1/64: the 1/64 or
//    1/32 of the formula times the 1/2 of the two-in-one FFT), while in integers it
//    is 1 (complex) or 2 (real) and the FFT halves once; fed with the integer
//    analysis output (W / 64) the integer synthesis returns the same v and output
//    as the float one fed with W.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

#include "sbr/sbr_qmf_window.h"
#include "transform/fft.h"
#include "transform/fft32s.h"
#include "transform/trig.h"

namespace zam::sbr {

struct FloatArith {
    using S = float;    // sample
    using C = float;    // coefficient
    using Acc = float;  // sum of products
    using Fft = const FftSpec*;
    static constexpr bool kFixed = false;
    static constexpr C coef(double v, int) { return static_cast<float>(v); }
    static Acc mul(S x, C c) { return x * c; }
    static Acc mac(Acc a, S x, C c) { return std::fma(x, c, a); }
    static S round(Acc a, int) { return a; }
    static void fft(const S* in, S* out, Fft spec, int, int) { fftFwd(in, out, spec, nullptr, Kernels::Scalar); }
    static constexpr int kAnalysisFftHalvings = 0;
    static constexpr int kAnalysisPostShift = 0;
    static constexpr double kSynthesisPreScale[2][2] = {{1.0 / 128, 1.0 / 64}, {1.0 / 128, 1.0 / 64}};  // [M64, M32][HQ, LP]
    static constexpr int kSynthesisFftHalvings = 0;
};

struct FixedArith {
    using S = int32_t;
    using C = int32_t;
    using Acc = int64_t;
    using Fft = int;  // the 32-bit FFT needs no object
    static constexpr bool kFixed = true;
    static constexpr C coef(double v, int frac)
    {
        const double s = v * static_cast<double>(int64_t{1} << frac);
        return static_cast<int32_t>(s < 0 ? s - 0.5 : s + 0.5);
    }
    static Acc mul(S x, C c) { return static_cast<int64_t>(x) * c; }
    static Acc mac(Acc a, S x, C c) { return a + static_cast<int64_t>(x) * c; }
    static S round(Acc a, int frac)
    {
        const int64_t r = (a + (int64_t{1} << (frac - 1))) >> frac;
        return r > INT32_MAX ? INT32_MAX : r < INT32_MIN ? INT32_MIN : static_cast<int32_t>(r);
    }
    static void fft(const S* in, S* out, Fft, int order, int halvings) { fft32sFwd(in, out, order, halvings); }
    static constexpr int kAnalysisFftHalvings = 5;
    static constexpr int kAnalysisPostShift = 1;
    static constexpr double kSynthesisPreScale[2][2] = {{1.0, 2.0}, {1.0, 2.0}};
    static constexpr int kSynthesisFftHalvings = 1;
};

constexpr int kWindowFrac = 31;
constexpr int kTwiddleFrac = 30;
constexpr int kPreFrac = 29;

struct Cpxd {
    double re, im;
};
// e^{i pi num / den}
constexpr Cpxd expPi(int64_t num, int64_t den)
{
    const SinCos sc = sinCosTurn(num, 2 * den);
    return {sc.c, sc.s};
}
constexpr Cpxd mul(Cpxd a, Cpxd b) { return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re}; }

// ------------------------------------------------------------------ analysis

template <typename A>
struct AnalysisTables {
    using C = typename A::C;
    alignas(32) C window[5][64];    // [j][m] = c(126 - 2m + 128j)
    alignas(32) C pre[64];          // e^{-i pi m / 32}, (re, im) pairs
    alignas(32) C alphaRe[2][32];   // [complex, real] weight of F(k)
    alignas(32) C alphaIm[2][32];
    alignas(32) C betaRe[2][32];    // [complex, real] weight of conj F(31 - k)
    alignas(32) C betaIm[2][32];
};

template <typename A>
constexpr AnalysisTables<A> makeAnalysisTables()
{
    AnalysisTables<A> t{};
    for (int j = 0; j < 5; ++j)
        for (int m = 0; m < 64; ++m) t.window[j][m] = A::coef(kQmfWindow[126 - 2 * m + 128 * j], kWindowFrac);
    for (int m = 0; m < 32; ++m) {
        const Cpxd p = expPi(-m, 32);
        t.pre[2 * m] = A::coef(p.re, kTwiddleFrac);
        t.pre[2 * m + 1] = A::coef(p.im, kTwiddleFrac);
    }
    for (int k = 0; k < 32; ++k) {
        // 2Y = (P + Q) + t2 (P - Q), t2 = -i e^{i pi (2k+1)/64}, P = F(k), Q = conj F(31-k);
        // the complex bank is t1 * 2Y with t1 = e^{-i pi (2k+1)/256}, the real one
        // Re(t1' * 2Y) with t1' = e^{-i 3 pi (2k+1)/4}.
        const Cpxd e = expPi(2 * k + 1, 64);
        const Cpxd t2{e.im, -e.re};
        const Cpxd onePlus{1.0 + t2.re, t2.im}, oneMinus{1.0 - t2.re, -t2.im};
        const Cpxd t1[2] = {expPi(-(2 * k + 1), 256), expPi(-3 * (2 * k + 1), 4)};
        for (int r = 0; r < 2; ++r) {
            const Cpxd a = mul(t1[r], onePlus), b = mul(t1[r], oneMinus);
            t.alphaRe[r][k] = A::coef(a.re, kTwiddleFrac), t.alphaIm[r][k] = A::coef(a.im, kTwiddleFrac);
            t.betaRe[r][k] = A::coef(b.re, kTwiddleFrac), t.betaIm[r][k] = A::coef(b.im, kTwiddleFrac);
        }
    }
    return t;
}

template <typename A>
inline constexpr AnalysisTables<A> kAnalysisTables = makeAnalysisTables<A>();

// uRev[m] = u(63 - m) = sum_{j=0}^{4} w[j][m] x[m - 64 j] (x[-256 .. 63] readable).
template <typename A>
void analysisWindow(const typename A::S* x, typename A::S* uRev)
{
    const AnalysisTables<A>& t = kAnalysisTables<A>;
    for (int m = 0; m < 64; ++m) {
        typename A::Acc acc = A::mul(x[m], t.window[0][m]);
        for (int j = 1; j < 5; ++j) acc = A::mac(acc, x[m - 64 * j], t.window[j][m]);
        uRev[m] = A::round(acc, kWindowFrac);
    }
}

// The 32 band values of one slot from uRev (im unused for the real kind).
template <typename A>
void analysisModulation(const typename A::S* uRev, bool realKind, typename A::S* outRe, typename A::S* outIm,
                        typename A::Fft fft)
{
    using S = typename A::S;
    const AnalysisTables<A>& t = kAnalysisTables<A>;
    alignas(32) S z[64];
    alignas(32) S g[64];
    // z(m) = conj(c(m) e^{i pi m/32}), c(m) = u(2m) + i u(2m+1), u(n) = uRev[63 - n]:
    // the forward FFT of z is conj F.
    for (int m = 0; m < 32; ++m) {
        const S ur = uRev[63 - 2 * m], ui = uRev[62 - 2 * m];
        const typename A::C pr = t.pre[2 * m], pi = t.pre[2 * m + 1];
        z[2 * m] = A::round(A::mul(ur, pr) + A::mul(ui, pi), kTwiddleFrac);
        z[2 * m + 1] = A::round(A::mul(ur, pi) - A::mul(ui, pr), kTwiddleFrac);
    }
    A::fft(z, g, fft, 5, A::kAnalysisFftHalvings);
    const int r = realKind ? 1 : 0;
    const int frac = kTwiddleFrac + A::kAnalysisPostShift;
    for (int k = 0; k < 32; ++k) {
        // P = F(k) = conj G(k), Q = conj F(31 - k) = G(31 - k)
        const S pr = g[2 * k], pi = g[2 * k + 1], qr = g[2 * (31 - k)], qi = g[2 * (31 - k) + 1];
        outRe[k] = A::round(A::mul(pr, t.alphaRe[r][k]) + A::mul(pi, t.alphaIm[r][k]) + A::mul(qr, t.betaRe[r][k]) -
                                A::mul(qi, t.betaIm[r][k]),
                            frac);
        if (!realKind)
            outIm[k] = A::round(A::mul(pr, t.alphaIm[r][k]) - A::mul(pi, t.alphaRe[r][k]) +
                                    A::mul(qr, t.betaIm[r][k]) + A::mul(qi, t.betaRe[r][k]),
                                frac);
    }
}

// ------------------------------------------------------------------ synthesis

// The synthesis runs C = DCT-IV(a) and T = DCT-IV(b reversed) (S(m) = (-1)^m T(m))
// through one M-point FFT: the two M/2-point transforms of z_a and z_b interleaved
// (w[2n] = z_a(n), w[2n+1] = z_b(n)) are X(j) + X(j + M/2) and
// (X(j) - X(j + M/2)) e^{i 2 pi j / M}, twice over.
template <typename A, int M>
struct SynthesisTables {
    using C = typename A::C;
    alignas(32) C window[10 * M];  // c(n) for M = 64, c(2n) for M = 32
    alignas(32) C preRe[2][M];     // [complex, real] input pre-twiddle, with the scale
    alignas(32) C preIm[2][M];
    alignas(32) C dctRe[M / 2];    // e^{-i pi (4n+1)/(4M)}
    alignas(32) C dctIm[M / 2];
    alignas(32) C postARe[M / 2];  // e^{-i pi j / M}
    alignas(32) C postAIm[M / 2];
    alignas(32) C postBRe[M / 2];  // e^{-i pi j / M} e^{i 2 pi j / M} = e^{i pi j / M}
    alignas(32) C postBIm[M / 2];
};

template <typename A, int M>
constexpr SynthesisTables<A, M> makeSynthesisTables()
{
    SynthesisTables<A, M> t{};
    constexpr int step = 64 / M;
    for (int n = 0; n < 10 * M; ++n) t.window[n] = A::coef(kQmfWindow[step * n], kWindowFrac);
    for (int k = 0; k < M; ++k) {
        const int odd = 2 * k + 1;
        // The core evaluates Re sum X'_k e^{i pi (k+1/2)(2n - (4M-1))/(2M)}; the
        // pre-twiddles turn it into the phase of each kind:
        //   complex 64: (2n - 255)/128   real 64: (2n - 64)/128
        //   complex 32: (4n - 255)/128   real 32: (2n - 32)/64
        const Cpxd p[2] = {M == 64 ? Cpxd{1.0, 0.0} : expPi(-odd, 256),
                           M == 64 ? expPi(191 * odd, 256) : expPi(95 * odd, 128)};
        for (int r = 0; r < 2; ++r) {
            const double s = A::kSynthesisPreScale[M == 64 ? 0 : 1][r];
            t.preRe[r][k] = A::coef(p[r].re * s, kPreFrac);
            t.preIm[r][k] = A::coef(p[r].im * s, kPreFrac);
        }
    }
    for (int n = 0; n < M / 2; ++n) {
        const Cpxd d = expPi(-(4 * n + 1), 4 * M), a = expPi(-n, M), b = expPi(n, M);
        t.dctRe[n] = A::coef(d.re, kTwiddleFrac), t.dctIm[n] = A::coef(d.im, kTwiddleFrac);
        t.postARe[n] = A::coef(a.re, kTwiddleFrac), t.postAIm[n] = A::coef(a.im, kTwiddleFrac);
        t.postBRe[n] = A::coef(b.re, kTwiddleFrac), t.postBIm[n] = A::coef(b.im, kTwiddleFrac);
    }
    return t;
}

template <typename A, int M>
inline constexpr SynthesisTables<A, M> kSynthesisTables = makeSynthesisTables<A, M>();

// The 2M new values of v from M input bands (im null: real input), step between
// the input values of one row.
template <typename A, int M>
void synthesisModulation(const typename A::S* re, const typename A::S* im, int step, bool realKind,
                         typename A::S* block, typename A::Fft fft)
{
    using S = typename A::S;
    const SynthesisTables<A, M>& t = kSynthesisTables<A, M>;
    const int r = realKind ? 1 : 0;
    alignas(32) S a[M], b[M];
    for (int k = 0; k < M; ++k) {
        const S xr = re[k * step], xi = im ? im[k * step] : S{0};
        a[k] = A::round(A::mul(xr, t.preRe[r][k]) - A::mul(xi, t.preIm[r][k]), kPreFrac);
        b[k] = A::round(A::mul(xr, t.preIm[r][k]) + A::mul(xi, t.preRe[r][k]), kPreFrac);
    }
    alignas(32) S w[2 * M], x[2 * M];
    for (int n = 0; n < M / 2; ++n) {
        const typename A::C dr = t.dctRe[n], di = t.dctIm[n];
        // z_a = (a[2n] + i a[M-1-2n]) d, z_b = (b[M-1-2n] + i b[2n]) d
        const S ar = a[2 * n], ai = a[M - 1 - 2 * n], br = b[M - 1 - 2 * n], bi = b[2 * n];
        w[4 * n] = A::round(A::mul(ar, dr) - A::mul(ai, di), kTwiddleFrac);
        w[4 * n + 1] = A::round(A::mul(ar, di) + A::mul(ai, dr), kTwiddleFrac);
        w[4 * n + 2] = A::round(A::mul(br, dr) - A::mul(bi, di), kTwiddleFrac);
        w[4 * n + 3] = A::round(A::mul(br, di) + A::mul(bi, dr), kTwiddleFrac);
    }
    A::fft(w, x, fft, M == 64 ? 6 : 5, A::kSynthesisFftHalvings);
    for (int j = 0; j < M / 2; ++j) {
        // y_a = (P + Q) postA, y_b = (P - Q) postB, in the accumulator type
        const typename A::Acc sr = typename A::Acc(x[2 * j]) + x[2 * j + M],
                              si = typename A::Acc(x[2 * j + 1]) + x[2 * j + M + 1];
        const typename A::Acc dr = typename A::Acc(x[2 * j]) - x[2 * j + M],
                              di = typename A::Acc(x[2 * j + 1]) - x[2 * j + M + 1];
        const typename A::Acc yar = sr * t.postARe[j] - si * t.postAIm[j], yai = sr * t.postAIm[j] + si * t.postARe[j];
        const typename A::Acc ybr = dr * t.postBRe[j] - di * t.postBIm[j], ybi = dr * t.postBIm[j] + di * t.postBRe[j];
        block[2 * j] = A::round(ybr - yar, kTwiddleFrac);
        block[M - 1 - 2 * j] = A::round(ybi + yai, kTwiddleFrac);
        block[2 * M - 1 - 2 * j] = A::round(yar + ybr, kTwiddleFrac);
        block[M + 2 * j] = A::round(ybi - yai, kTwiddleFrac);
    }
}

// out[k] = sum_{j=0}^{9} win[j*M + k] * block(j)[k + M (j & 1)], block(j) the v block
// of age j in the ring (kRingBlocks blocks of 2M values, the newest at `position`).
constexpr int kRingBlocks = 10;
template <typename A, int M>
void synthesisWindow(const typename A::S* ring, int position, typename A::S* out)
{
    const typename A::C* win = kSynthesisTables<A, M>.window;
    typename A::Acc acc[M];
    for (int j = 0; j < kRingBlocks; ++j) {
        const typename A::S* block = ring + ((position - j + kRingBlocks) % kRingBlocks) * 2 * M + M * (j & 1);
        const typename A::C* w = win + j * M;
        for (int k = 0; k < M; ++k) acc[k] = j == 0 ? A::mul(block[k], w[k]) : A::mac(acc[k], block[k], w[k]);
    }
    for (int k = 0; k < M; ++k) out[k] = A::round(acc[k], kWindowFrac);
}

}  // namespace zam::sbr
