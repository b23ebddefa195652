// Radix butterflies of the complex FFT on interleaved data (re, im, re, im...).
//
// The transform is decimation in time: the input is read in bit-reversed order by
// the first pass, which also does the first two levels (a radix-4 butterfly on four
// inputs that need no twiddles). The remaining levels run as radix-4 stages (two
// levels each) and, for an odd number of levels, one closing radix-2 stage.
//
// Stage twiddle tables hold, for each run of four consecutive butterflies j, the
// real and imaginary parts each duplicated into the two float lanes of a complex
// value, so one 256-bit load feeds four complex multiplies:
//   radix-4 stage of half-size h: per four j, 32 floats: Re W1, Im W1, Re W2, Im W2
//     with W1 = exp(-i*pi*j/h), W2 = exp(-i*pi*j/(2h));
//   radix-2 stage of half-size h: per four j, 16 floats: Re W1, Im W1.
// Every kernel has an AVX2 + FMA version and a plain scalar twin of the same
// arithmetic.
#pragma once

#include <immintrin.h>

#include <cstdint>

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
        const float* t = tw + (j >> 2) * 32 + (j & 3) * 2;
        float w1r = t[0], w1i = t[8], w2r = t[16], w2i = t[24];
        Cpx a0{p0[2 * j], p0[2 * j + 1]}, a1{p1[2 * j], p1[2 * j + 1]};
        Cpx a2{p2[2 * j], p2[2 * j + 1]}, a3{p3[2 * j], p3[2 * j + 1]};
        Cpx t1 = cmul(a1, w1r, w1i), t3 = cmul(a3, w1r, w1i);
        Cpx b0{a0.re + t1.re, a0.im + t1.im}, b1{a0.re - t1.re, a0.im - t1.im};
        Cpx b2{a2.re + t3.re, a2.im + t3.im}, b3{a2.re - t3.re, a2.im - t3.im};
        Cpx u2 = cmul(b2, w2r, w2i);
        Cpx v3 = cmul(b3, w2r, w2i);
        Cpx u3{v3.im, -v3.re};
        p0[2 * j] = b0.re + u2.re;
        p0[2 * j + 1] = b0.im + u2.im;
        p2[2 * j] = b0.re - u2.re;
        p2[2 * j + 1] = b0.im - u2.im;
        p1[2 * j] = b1.re + u3.re;
        p1[2 * j + 1] = b1.im + u3.im;
        p3[2 * j] = b1.re - u3.re;
        p3[2 * j + 1] = b1.im - u3.im;
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

// times -i: (re, im) -> (im, -re)
inline __m256 mulNegI8(__m256 a)
{
    const __m256 signOdd = _mm256_castsi256_ps(_mm256_setr_epi32(0, int(0x80000000u), 0, int(0x80000000u), 0,
                                                                 int(0x80000000u), 0, int(0x80000000u)));
    return _mm256_xor_ps(_mm256_permute_ps(a, 0xB1), signOdd);
}

// Requires count a multiple of 4.
inline void radix4BlockAvx2(float* x, int h, const float* tw, int count)
{
    float* p0 = x;
    float* p1 = x + 2 * h;
    float* p2 = x + 4 * h;
    float* p3 = x + 6 * h;
    for (int j = 0; j < count; j += 4, tw += 32) {
        __m256 w1r = _mm256_load_ps(tw), w1i = _mm256_load_ps(tw + 8);
        __m256 w2r = _mm256_load_ps(tw + 16), w2i = _mm256_load_ps(tw + 24);
        __m256 a0 = _mm256_loadu_ps(p0 + 2 * j), a1 = _mm256_loadu_ps(p1 + 2 * j);
        __m256 a2 = _mm256_loadu_ps(p2 + 2 * j), a3 = _mm256_loadu_ps(p3 + 2 * j);
        __m256 t1 = cmul8(a1, w1r, w1i), t3 = cmul8(a3, w1r, w1i);
        __m256 b0 = _mm256_add_ps(a0, t1), b1 = _mm256_sub_ps(a0, t1);
        __m256 b2 = _mm256_add_ps(a2, t3), b3 = _mm256_sub_ps(a2, t3);
        __m256 u2 = cmul8(b2, w2r, w2i);
        __m256 u3 = mulNegI8(cmul8(b3, w2r, w2i));
        _mm256_storeu_ps(p0 + 2 * j, _mm256_add_ps(b0, u2));
        _mm256_storeu_ps(p2 + 2 * j, _mm256_sub_ps(b0, u2));
        _mm256_storeu_ps(p1 + 2 * j, _mm256_add_ps(b1, u3));
        _mm256_storeu_ps(p3 + 2 * j, _mm256_sub_ps(b1, u3));
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

// Four groups at a time: load each input position of four groups into one
// vector, do the butterflies vertically, then transpose 4x4 complex values.
// Requires n/4 to be a multiple of 4.
inline void firstPassAvx2(const float* in, float* out, int n, const uint32_t* rev)
{
    const int q = n / 4;
    const double* base = reinterpret_cast<const double*>(in);
    for (int g = 0; g < q; g += 4) {
        const double* p0 = base + rev[g];
        const double* p1 = base + rev[g + 1];
        const double* p2 = base + rev[g + 2];
        const double* p3 = base + rev[g + 3];
        // Plain 64-bit loads: gathers are slow on several AVX2 cores.
        auto pack = [&](int64_t off) {
            __m128d lo = _mm_loadh_pd(_mm_load_sd(p0 + off), p1 + off);
            __m128d hi = _mm_loadh_pd(_mm_load_sd(p2 + off), p3 + off);
            return _mm256_castpd_ps(_mm256_insertf128_pd(_mm256_castpd128_pd256(lo), hi, 1));
        };
        __m256 x0 = pack(0), x1 = pack(2 * q), x2 = pack(q), x3 = pack(3 * q);
        __m256 b0 = _mm256_add_ps(x0, x1), b1 = _mm256_sub_ps(x0, x1);
        __m256 b2 = _mm256_add_ps(x2, x3), b3 = _mm256_sub_ps(x2, x3);
        __m256 m = mulNegI8(b3);
        __m256d y0 = _mm256_castps_pd(_mm256_add_ps(b0, b2));
        __m256d y2 = _mm256_castps_pd(_mm256_sub_ps(b0, b2));
        __m256d y1 = _mm256_castps_pd(_mm256_add_ps(b1, m));
        __m256d y3 = _mm256_castps_pd(_mm256_sub_ps(b1, m));
        // rows y0..y3 (lane = group) -> columns (group = y0..y3)
        __m256d t0 = _mm256_unpacklo_pd(y0, y1);  // g0: y0 y1 | g2: y0 y1
        __m256d t1 = _mm256_unpackhi_pd(y0, y1);  // g1 | g3
        __m256d t2 = _mm256_unpacklo_pd(y2, y3);
        __m256d t3 = _mm256_unpackhi_pd(y2, y3);
        double* o = reinterpret_cast<double*>(out + 8 * g);
        _mm256_storeu_pd(o, _mm256_permute2f128_pd(t0, t2, 0x20));
        _mm256_storeu_pd(o + 4, _mm256_permute2f128_pd(t1, t3, 0x20));
        _mm256_storeu_pd(o + 8, _mm256_permute2f128_pd(t0, t2, 0x31));
        _mm256_storeu_pd(o + 12, _mm256_permute2f128_pd(t1, t3, 0x31));
    }
}

}  // namespace zam::fftk
