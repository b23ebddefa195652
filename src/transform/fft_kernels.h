// Radix butterflies of the complex FFT on interleaved data (re, im, re, im...).
//
// The transform is decimation in time: the first pass reads the input in
// bit-reversed order and does the first two, three or four levels in registers
// (radix 4, 8 or 16, no stored twiddles); radix-4 stages (two levels each) do
// the rest. A radix-2 stage kernel closes an odd remainder where a plan has one.
//
// Stage twiddle tables hold, for each run of four consecutive butterflies j, the
// real and imaginary parts each duplicated into the two float lanes of a complex
// value, so one 256-bit load feeds four complex multiplies:
//   radix-4 stage over groups of 4h: per four j, 48 floats: Re and Im of W^j,
//     W^2j and W^3j with W = exp(-2*pi*i/(4h));
//   radix-2 stage of half-size h: per four j, 16 floats: Re W1, Im W1,
//     W1 = exp(-i*pi*j/h).
// In a radix-4 group the four sub-transforms of h points sit at offsets 0, h, 2h,
// 3h and, because the input was bit-reversed, hold the samples 4m, 4m+2, 4m+1,
// 4m+3 of the group: the one at h takes W^2j and the one at 2h takes W^j.
// Every kernel has an AVX2 + FMA version and a plain scalar twin of the same
// arithmetic.
#pragma once

#include <immintrin.h>

#include <cstdint>

#include "transform/trig.h"

namespace zam::fftk {

// ---------------------------------------------------------------- scalar twins

struct Cpx {
    float re, im;
};

inline Cpx cmul(Cpx a, float wr, float wi) { return {a.re * wr - a.im * wi, a.im * wr + a.re * wi}; }

// Four inputs of the first pass, x0..x3 at input positions r, r+N/2, r+N/4, r+3N/4.
inline void firstButterflyScalar(Cpx x0, Cpx x1, Cpx x2, Cpx x3, float* out)
{
    Cpx b0{x0.re + x1.re, x0.im + x1.im}, b1{x0.re - x1.re, x0.im - x1.im};
    Cpx b2{x2.re + x3.re, x2.im + x3.im}, b3{x2.re - x3.re, x2.im - x3.im};
    // b3 times -i
    Cpx m{b3.im, -b3.re};
    out[0] = b0.re + b2.re;
    out[1] = b0.im + b2.im;
    out[2] = b1.re + m.re;
    out[3] = b1.im + m.im;
    out[4] = b0.re - b2.re;
    out[5] = b0.im - b2.im;
    out[6] = b1.re - m.re;
    out[7] = b1.im - m.im;
}

// One radix-4 group of 4h complex values starting at x, butterflies j = 0..count-1.
inline void radix4BlockScalar(float* x, int h, const float* tw, int count)
{
    float* p0 = x;
    float* p1 = x + 2 * h;
    float* p2 = x + 4 * h;
    float* p3 = x + 6 * h;
    for (int j = 0; j < count; ++j) {
        const float* t = tw + (j >> 2) * 48 + (j & 3) * 2;
        Cpx t0{p0[2 * j], p0[2 * j + 1]};
        Cpx t1 = cmul(Cpx{p2[2 * j], p2[2 * j + 1]}, t[0], t[8]);
        Cpx t2 = cmul(Cpx{p1[2 * j], p1[2 * j + 1]}, t[16], t[24]);
        Cpx t3 = cmul(Cpx{p3[2 * j], p3[2 * j + 1]}, t[32], t[40]);
        Cpx u0{t0.re + t2.re, t0.im + t2.im}, u1{t0.re - t2.re, t0.im - t2.im};
        Cpx u2{t1.re + t3.re, t1.im + t3.im}, u3{t1.re - t3.re, t1.im - t3.im};
        Cpx m{u3.im, -u3.re};  // -i * u3
        p0[2 * j] = u0.re + u2.re;
        p0[2 * j + 1] = u0.im + u2.im;
        p2[2 * j] = u0.re - u2.re;
        p2[2 * j + 1] = u0.im - u2.im;
        p1[2 * j] = u1.re + m.re;
        p1[2 * j + 1] = u1.im + m.im;
        p3[2 * j] = u1.re - m.re;
        p3[2 * j + 1] = u1.im - m.im;
    }
}

inline void radix2BlockScalar(float* x, int h, const float* tw, int count)
{
    float* p0 = x;
    float* p1 = x + 2 * h;
    for (int j = 0; j < count; ++j) {
        const float* t = tw + (j >> 2) * 16 + (j & 3) * 2;
        Cpx a0{p0[2 * j], p0[2 * j + 1]};
        Cpx t1 = cmul(Cpx{p1[2 * j], p1[2 * j + 1]}, t[0], t[8]);
        p0[2 * j] = a0.re + t1.re;
        p0[2 * j + 1] = a0.im + t1.im;
        p1[2 * j] = a0.re - t1.re;
        p1[2 * j + 1] = a0.im - t1.im;
    }
}

// ---------------------------------------------------------------- AVX2

// (a) * (wr + i*wi) on four interleaved complex values, twiddles lane-duplicated.
inline __m256 cmul8(__m256 a, __m256 wr, __m256 wi)
{
    __m256 swapped = _mm256_permute_ps(a, 0xB1);
    return _mm256_fmaddsub_ps(a, wr, _mm256_mul_ps(swapped, wi));
}

// u + (-i)d and u - (-i)d from u and d with re and im swapped (ds), as
// (u.re + d.im, u.im - d.re) and (u.re - d.im, u.im + d.re): the multiply by 1 of
// the first is exact, so both are the plain sums.
inline __m256 swapReIm(__m256 d) { return _mm256_permute_ps(d, 0xB1); }
inline __m256 addNegI(__m256 u, __m256 ds) { return _mm256_fmsubadd_ps(u, _mm256_set1_ps(1.0f), ds); }
inline __m256 subNegI(__m256 u, __m256 ds) { return _mm256_addsub_ps(u, ds); }

// Requires count a multiple of 4.
inline void radix4BlockAvx2(float* x, int h, const float* tw, int count)
{
    float* p0 = x;
    float* p1 = x + 2 * h;
    float* p2 = x + 4 * h;
    float* p3 = x + 6 * h;
#pragma GCC unroll 2
    for (int j = 0; j < count; j += 4, tw += 48) {
        __m256 t0 = _mm256_loadu_ps(p0 + 2 * j);
        __m256 t1 = cmul8(_mm256_loadu_ps(p2 + 2 * j), _mm256_load_ps(tw), _mm256_load_ps(tw + 8));
        __m256 t2 = cmul8(_mm256_loadu_ps(p1 + 2 * j), _mm256_load_ps(tw + 16), _mm256_load_ps(tw + 24));
        __m256 t3 = cmul8(_mm256_loadu_ps(p3 + 2 * j), _mm256_load_ps(tw + 32), _mm256_load_ps(tw + 40));
        __m256 u0 = _mm256_add_ps(t0, t2), u1 = _mm256_sub_ps(t0, t2);
        __m256 u2 = _mm256_add_ps(t1, t3), ds = swapReIm(_mm256_sub_ps(t1, t3));
        _mm256_storeu_ps(p0 + 2 * j, _mm256_add_ps(u0, u2));
        _mm256_storeu_ps(p2 + 2 * j, _mm256_sub_ps(u0, u2));
        _mm256_storeu_ps(p1 + 2 * j, addNegI(u1, ds));
        _mm256_storeu_ps(p3 + 2 * j, subNegI(u1, ds));
    }
}

inline void radix2BlockAvx2(float* x, int h, const float* tw, int count)
{
    float* p0 = x;
    float* p1 = x + 2 * h;
    for (int j = 0; j < count; j += 4, tw += 16) {
        __m256 wr = _mm256_load_ps(tw), wi = _mm256_load_ps(tw + 8);
        __m256 a0 = _mm256_loadu_ps(p0 + 2 * j);
        __m256 t1 = cmul8(_mm256_loadu_ps(p1 + 2 * j), wr, wi);
        _mm256_storeu_ps(p0 + 2 * j, _mm256_add_ps(a0, t1));
        _mm256_storeu_ps(p1 + 2 * j, _mm256_sub_ps(a0, t1));
    }
}

// The first pass over N/4 groups: output group g (four complex values) is the
// radix-4 butterfly of the inputs at rev[g] + {0, N/2, N/4, 3N/4}.
inline void firstPassScalar(const float* in, float* out, int n, const uint32_t* rev)
{
    const int q = n / 4;
    for (int g = 0; g < q; ++g) {
        uint32_t r = rev[g];
        Cpx x0{in[2 * r], in[2 * r + 1]};
        Cpx x1{in[2 * (r + 2 * q)], in[2 * (r + 2 * q) + 1]};
        Cpx x2{in[2 * (r + q)], in[2 * (r + q) + 1]};
        Cpx x3{in[2 * (r + 3 * q)], in[2 * (r + 3 * q) + 1]};
        firstButterflyScalar(x0, x1, x2, x3, out + 8 * g);
    }
}

// ---------------------------------------------------------------- radix-R first pass
//
// The first pass takes 2^LogR = R inputs per group in bit-reversed order and does
// the first LogR levels on them in registers: for four groups at once in the
// AVX2 version (one complex value of each group per vector, so every twiddle is
// a constant), then a 4 x 4 transpose writes each group's R outputs.

template <int R>
struct RootsOf {
    float re[R / 2 > 0 ? R / 2 : 1];
    float im[R / 2 > 0 ? R / 2 : 1];
};
template <int R>
constexpr RootsOf<R> makeRoots()
{
    RootsOf<R> r{};
    for (int i = 0; i < R / 2; ++i) {
        SinCos sc = sinCosTurn(i, R);
        r.re[i] = static_cast<float>(sc.c);
        r.im[i] = static_cast<float>(-sc.s);
    }
    return r;
}
template <int R>
inline constexpr RootsOf<R> kRoots = makeRoots<R>();

constexpr int reverseLow(int v, int bits)
{
    int r = 0;
    for (int b = 0; b < bits; ++b) r |= ((v >> b) & 1) << (bits - 1 - b);
    return r;
}

// Levels 1..LogR of one group held in x[0..R-1] (inputs in bit-reversed order).
template <int LogR>
inline void ditGroupScalar(Cpx* x)
{
    constexpr int R = 1 << LogR;
    for (int len = 2; len <= R; len *= 2)
        for (int b = 0; b < R; b += len)
            for (int i = 0; i < len / 2; ++i) {
                const int w = i * (R / len);
                Cpx t = cmul(x[b + i + len / 2], kRoots<R>.re[w], kRoots<R>.im[w]);
                Cpx a = x[b + i];
                x[b + i] = {a.re + t.re, a.im + t.im};
                x[b + i + len / 2] = {a.re - t.re, a.im - t.im};
            }
}

template <int LogR>
inline void ditGroupAvx2(__m256* x)
{
    constexpr int R = 1 << LogR;
#pragma GCC unroll 16
    for (int len = 2; len <= R; len *= 2)
#pragma GCC unroll 16
        for (int b = 0; b < R; b += len)
#pragma GCC unroll 16
            for (int i = 0; i < len / 2; ++i) {
                const int w = i * (R / len);
                __m256 t = x[b + i + len / 2];
                const __m256 a = x[b + i];
                if (4 * w == R) {
                    const __m256 ts = swapReIm(t);
                    x[b + i] = addNegI(a, ts);
                    x[b + i + len / 2] = subNegI(a, ts);
                    continue;
                }
                if (w != 0) t = cmul8(t, _mm256_set1_ps(kRoots<R>.re[w]), _mm256_set1_ps(kRoots<R>.im[w]));
                x[b + i] = _mm256_add_ps(a, t);
                x[b + i + len / 2] = _mm256_sub_ps(a, t);
            }
}

// Group g's outputs take inputs rev_R(k) * (n/R) + rev[g << (LogR - 2)], where rev
// holds the (order-2)-bit reversal of the n/4 group indices of the radix-4 view.
template <int LogR>
inline void firstPassRadixScalar(const float* in, float* out, int n, const uint32_t* rev)
{
    constexpr int R = 1 << LogR;
    const int groups = n / R, stride = n / R;
    for (int g = 0; g < groups; ++g) {
        const uint32_t r = rev[static_cast<uint32_t>(g) << (LogR - 2)];
        Cpx x[R];
        for (int k = 0; k < R; ++k) {
            const int64_t at = 2 * (int64_t{reverseLow(k, LogR)} * stride + r);
            x[k] = {in[at], in[at + 1]};
        }
        ditGroupScalar<LogR>(x);
        for (int k = 0; k < R; ++k) {
            out[2 * (int64_t{R} * g + k)] = x[k].re;
            out[2 * (int64_t{R} * g + k) + 1] = x[k].im;
        }
    }
}

// Needs n/R to be a multiple of 4. Four groups whose inputs are adjacent are
// taken together: the groups rev(r + l), l = 0..3, read input r + l + k*(n/R),
// so each input position of the four is one 256-bit load.
template <int LogR>
inline void firstPassRadixAvx2(const float* in, float* out, int n, const uint32_t* rev)
{
    constexpr int R = 1 << LogR;
    const int64_t stride = n / R;
    for (int64_t r = 0; r < stride; r += 4) {
        __m256 x[R];
#pragma GCC unroll 16
        for (int k = 0; k < R; ++k) x[k] = _mm256_loadu_ps(in + 2 * (reverseLow(k, LogR) * stride + r));
        ditGroupAvx2<LogR>(x);
        // (R-2)-bit reversal of r + l from the table of (order-2)-bit reversals
        double* o0 = reinterpret_cast<double*>(out) + int64_t{R} * (rev[r] >> (LogR - 2));
        double* o1 = reinterpret_cast<double*>(out) + int64_t{R} * (rev[r + 1] >> (LogR - 2));
        double* o2 = reinterpret_cast<double*>(out) + int64_t{R} * (rev[r + 2] >> (LogR - 2));
        double* o3 = reinterpret_cast<double*>(out) + int64_t{R} * (rev[r + 3] >> (LogR - 2));
#pragma GCC unroll 4
        for (int k0 = 0; k0 < R; k0 += 4) {
            __m256d y0 = _mm256_castps_pd(x[k0]), y1 = _mm256_castps_pd(x[k0 + 1]);
            __m256d y2 = _mm256_castps_pd(x[k0 + 2]), y3 = _mm256_castps_pd(x[k0 + 3]);
            __m256d t0 = _mm256_unpacklo_pd(y0, y1), t1 = _mm256_unpackhi_pd(y0, y1);
            __m256d t2 = _mm256_unpacklo_pd(y2, y3), t3 = _mm256_unpackhi_pd(y2, y3);
            _mm256_storeu_pd(o0 + k0, _mm256_permute2f128_pd(t0, t2, 0x20));
            _mm256_storeu_pd(o1 + k0, _mm256_permute2f128_pd(t1, t3, 0x20));
            _mm256_storeu_pd(o2 + k0, _mm256_permute2f128_pd(t0, t2, 0x31));
            _mm256_storeu_pd(o3 + k0, _mm256_permute2f128_pd(t1, t3, 0x31));
        }
    }
}

// ---------------------------------------------------------------- 16, 32, 64 points
//
// N = 4M points held in M vectors of four complex values, vector m holding
// x[4m .. 4m+3] (lane j = x[4m + j]). With n = 4m + j and k = b + M c:
//   X[b + M c] = sum_j W_4^{jc} W_N^{jb} sum_m x[4m + j] W_M^{mb},
// so an M-point DFT across the vectors (per lane), a twiddle W_N^{jb} on lane j of
// vector b, a 4 x 4 transpose of each four vectors and a four-point DFT across
// them give X in natural order: vector c of block q is X[M c + 4q .. M c + 4q + 3].

template <int LogM>
struct SmallFftTwiddles {
    alignas(32) float re[1 << LogM][8];
    alignas(32) float im[1 << LogM][8];
};
template <int LogM>
constexpr SmallFftTwiddles<LogM> makeSmallFftTwiddles()
{
    SmallFftTwiddles<LogM> t{};
    constexpr int M = 1 << LogM;
    for (int b = 0; b < M; ++b)
        for (int j = 0; j < 4; ++j) {
            const SinCos sc = sinCosTurn(j * b, 4 * M);
            t.re[b][2 * j] = t.re[b][2 * j + 1] = static_cast<float>(sc.c);
            t.im[b][2 * j] = t.im[b][2 * j + 1] = static_cast<float>(-sc.s);
        }
    return t;
}
template <int LogM>
inline constexpr SmallFftTwiddles<LogM> kSmallFftTwiddles = makeSmallFftTwiddles<LogM>();

template <int LogM>
inline void smallFftAvx2(const float* in, float* out)
{
    constexpr int M = 1 << LogM;
    __m256 x[M];
#pragma GCC unroll 16
    for (int k = 0; k < M; ++k) x[k] = _mm256_loadu_ps(in + 8 * reverseLow(k, LogM));
    ditGroupAvx2<LogM>(x);
    const SmallFftTwiddles<LogM>& tw = kSmallFftTwiddles<LogM>;
#pragma GCC unroll 16
    for (int b = 1; b < M; ++b) x[b] = cmul8(x[b], _mm256_load_ps(tw.re[b]), _mm256_load_ps(tw.im[b]));
#pragma GCC unroll 4
    for (int q = 0; q < M / 4; ++q) {
        const __m256d r0 = _mm256_castps_pd(x[4 * q]), r1 = _mm256_castps_pd(x[4 * q + 1]);
        const __m256d r2 = _mm256_castps_pd(x[4 * q + 2]), r3 = _mm256_castps_pd(x[4 * q + 3]);
        const __m256d u0 = _mm256_unpacklo_pd(r0, r1), u1 = _mm256_unpackhi_pd(r0, r1);
        const __m256d u2 = _mm256_unpacklo_pd(r2, r3), u3 = _mm256_unpackhi_pd(r2, r3);
        const __m256 t0 = _mm256_castpd_ps(_mm256_permute2f128_pd(u0, u2, 0x20));
        const __m256 t1 = _mm256_castpd_ps(_mm256_permute2f128_pd(u1, u3, 0x20));
        const __m256 t2 = _mm256_castpd_ps(_mm256_permute2f128_pd(u0, u2, 0x31));
        const __m256 t3 = _mm256_castpd_ps(_mm256_permute2f128_pd(u1, u3, 0x31));
        const __m256 a0 = _mm256_add_ps(t0, t2), a1 = _mm256_sub_ps(t0, t2);
        const __m256 a2 = _mm256_add_ps(t1, t3), ds = swapReIm(_mm256_sub_ps(t1, t3));
        _mm256_storeu_ps(out + 2 * (4 * q), _mm256_add_ps(a0, a2));
        _mm256_storeu_ps(out + 2 * (M + 4 * q), addNegI(a1, ds));
        _mm256_storeu_ps(out + 2 * (2 * M + 4 * q), _mm256_sub_ps(a0, a2));
        _mm256_storeu_ps(out + 2 * (3 * M + 4 * q), subNegI(a1, ds));
    }
}

// The first LogR levels in place on contiguous, already permuted data.
template <int LogR>
inline void firstPassInPlaceScalar(float* data, int64_t n)
{
    constexpr int R = 1 << LogR;
    for (int64_t g = 0; g < n; g += R) {
        Cpx x[R];
        for (int k = 0; k < R; ++k) x[k] = {data[2 * (g + k)], data[2 * (g + k) + 1]};
        ditGroupScalar<LogR>(x);
        for (int k = 0; k < R; ++k) data[2 * (g + k)] = x[k].re, data[2 * (g + k) + 1] = x[k].im;
    }
}

}  // namespace zam::fftk
