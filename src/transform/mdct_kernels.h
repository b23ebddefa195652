// Fold, twiddle and unfold steps of the power-of-two float MDCT, scalar twins and
// AVX2 versions. N is a power of two >= 32; twiddles in blocks of 8 sines then 8
// cosines; complex data interleaved.
#pragma once

#include <immintrin.h>

namespace zam::mdctk {

inline float ts(const float* t, int j) { return t[(j >> 3) * 16 + (j & 7)]; }
inline float tc(const float* t, int j) { return t[(j >> 3) * 16 + 8 + (j & 7)]; }

// ---------------------------------------------------------------- scalar twins

// ------------------------------------------------------------ index maps
//
// Where the power-of-two MDCT reads and writes, shared by the float transforms
// here and the fixed-point AAC filter bank (mdct_aac.cpp), so that the two cannot
// drift apart. x(i) reads sample i (any type T with unary minus and subtraction).

// Forward fold: the pair (a, b) of butterfly j, j < N/4, handed to emit(j, a, b).
template <typename T, typename X, typename Emit>
inline void foldMap(int n, X x, Emit emit)
{
    const int q = n / 4, e = n / 8;
    for (int j = 0; j < q; ++j) {
        if (j < e) emit(j, T(-x(3 * q + 2 * j) - x(3 * q - 2 * j - 1)), T(x(q - 2 * j - 1) - x(q + 2 * j)));
        else emit(j, T(x(2 * j - q) - x(3 * q - 2 * j - 1)), T(-x(5 * q - 2 * j - 1) - x(q + 2 * j)));
    }
}

// Inverse unfold: the four outputs the pair (a, b) of butterfly j goes to.
template <typename T, typename Y>
inline void unfoldMap(int n, int j, T a, T b, Y* y)
{
    const int q = n / 4, e = n / 8;
    if (j < e) {
        y[3 * q + 2 * j] = -a;
        y[3 * q - 1 - 2 * j] = -a;
        y[q - 1 - 2 * j] = b;
        y[q + 2 * j] = -b;
    } else {
        y[2 * j - q] = a;
        y[3 * q - 1 - 2 * j] = -a;
        y[5 * q - 1 - 2 * j] = -b;
        y[q + 2 * j] = -b;
    }
}

// The two coefficients of butterfly j: forward output / inverse input 2j and N/2-1-2j.
inline int coefA(int, int j) { return 2 * j; }
inline int coefB(int n, int j) { return n / 2 - 1 - 2 * j; }

inline void foldPreTwiddleScalar(const float* x, float* w, const float* t, int n)
{
    foldMap<float>(n, [&](int i) { return x[i]; }, [&](int j, float a, float b) {
        const float s = ts(t, j), c = tc(t, j);
        w[2 * j] = a * c + b * s;
        w[2 * j + 1] = b * c - a * s;
    });
}

inline void postTwiddleScalar(const float* w, float* dst, const float* t, int n)
{
    const int q = n / 4;
    for (int j = 0; j < q; ++j) {
        const float s = ts(t, j), c = tc(t, j), re = w[2 * j], im = w[2 * j + 1];
        dst[coefA(n, j)] = re * c + im * s;
        dst[coefB(n, j)] = re * s - im * c;
    }
}

inline void invPreTwiddleScalar(const float* X, float* w, const float* t, int n)
{
    const int q = n / 4;
    for (int j = 0; j < q; ++j) {
        const float p = X[coefA(n, j)], r = X[coefB(n, j)];
        const float s = ts(t, j), c = tc(t, j);
        w[2 * j] = p * c + r * s;
        w[2 * j + 1] = r * c - p * s;
    }
}

inline void invPostUnfoldScalar(const float* w, float* y, const float* t, int n)
{
    for (int j = 0; j < n / 4; ++j) {
        const float s = ts(t, j), c = tc(t, j), re = w[2 * j], im = w[2 * j + 1];
        unfoldMap(n, j, re * c + im * s, re * s - im * c, y);
    }
}

// ---------------------------------------------------------------- AVX2
//
// Blocks of 8 butterflies j are handled in pairs: block A at j0 (j0 < N/8) and its
// mirror block B at N/4 - 8 - j0. The two read (forward) or write (inverse)
// interleaved halves of the same four 16-float regions of the signal, so every
// region is loaded or stored whole: its even elements in ascending j of one
// block, its odd elements in descending j of the other. Needs N >= 64.

namespace v {

inline __m256 evens(__m256 v0, __m256 v1)
{
    return _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(_mm256_shuffle_ps(v0, v1, 0x88)), 0xD8));
}
inline __m256 odds(__m256 v0, __m256 v1)
{
    return _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(_mm256_shuffle_ps(v0, v1, 0xDD)), 0xD8));
}
inline __m256 reverse(__m256 v) { return _mm256_permutevar8x32_ps(v, _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0)); }
inline void store2(float* p, __m256 e, __m256 o)
{
    __m256 lo = _mm256_unpacklo_ps(e, o), hi = _mm256_unpackhi_ps(e, o);
    _mm256_storeu_ps(p, _mm256_permute2f128_ps(lo, hi, 0x20));
    _mm256_storeu_ps(p + 8, _mm256_permute2f128_ps(lo, hi, 0x31));
}
struct Region {
    __m256 even, oddRev;
};
inline Region load(const float* p)
{
    __m256 v0 = _mm256_loadu_ps(p), v1 = _mm256_loadu_ps(p + 8);
    return {evens(v0, v1), reverse(odds(v0, v1))};
}
inline __m256 neg(__m256 v) { return _mm256_xor_ps(v, _mm256_set1_ps(-0.0f)); }

}  // namespace v

inline void foldPreTwiddleAvx2(const float* x, float* w, const float* t, int n)
{
    if (n < 64) return foldPreTwiddleScalar(x, w, t, n);
    const int q = n / 4, e = n / 8;
    for (int j0 = 0; j0 < e; j0 += 8) {
        const int jb = q - 8 - j0;
        v::Region r1 = v::load(x + 3 * q + 2 * j0), r2 = v::load(x + 3 * q - 16 - 2 * j0);
        v::Region r3 = v::load(x + q - 16 - 2 * j0), r4 = v::load(x + q + 2 * j0);
        __m256 aA = v::neg(_mm256_add_ps(r1.even, r2.oddRev));
        __m256 bA = _mm256_sub_ps(r3.oddRev, r4.even);
        __m256 aB = _mm256_sub_ps(r3.even, r4.oddRev);
        __m256 bB = v::neg(_mm256_add_ps(r1.oddRev, r2.even));
        __m256 sA = _mm256_loadu_ps(t + (j0 >> 3) * 16), cA = _mm256_loadu_ps(t + (j0 >> 3) * 16 + 8);
        __m256 sB = _mm256_loadu_ps(t + (jb >> 3) * 16), cB = _mm256_loadu_ps(t + (jb >> 3) * 16 + 8);
        v::store2(w + 2 * j0, _mm256_fmadd_ps(aA, cA, _mm256_mul_ps(bA, sA)),
                  _mm256_fmsub_ps(bA, cA, _mm256_mul_ps(aA, sA)));
        v::store2(w + 2 * jb, _mm256_fmadd_ps(aB, cB, _mm256_mul_ps(bB, sB)),
                  _mm256_fmsub_ps(bB, cB, _mm256_mul_ps(aB, sB)));
    }
}

inline void postTwiddleAvx2(const float* w, float* dst, const float* t, int n)
{
    if (n < 64) return postTwiddleScalar(w, dst, t, n);
    const int q = n / 4;
    for (int j0 = 0; j0 < q / 2; j0 += 8) {
        const int jb = q - 8 - j0;
        __m256 a0 = _mm256_loadu_ps(w + 2 * j0), a1 = _mm256_loadu_ps(w + 2 * j0 + 8);
        __m256 b0 = _mm256_loadu_ps(w + 2 * jb), b1 = _mm256_loadu_ps(w + 2 * jb + 8);
        __m256 reA = v::evens(a0, a1), imA = v::odds(a0, a1), reB = v::evens(b0, b1), imB = v::odds(b0, b1);
        __m256 sA = _mm256_loadu_ps(t + (j0 >> 3) * 16), cA = _mm256_loadu_ps(t + (j0 >> 3) * 16 + 8);
        __m256 sB = _mm256_loadu_ps(t + (jb >> 3) * 16), cB = _mm256_loadu_ps(t + (jb >> 3) * 16 + 8);
        __m256 pA = _mm256_fmadd_ps(reA, cA, _mm256_mul_ps(imA, sA));
        __m256 qA = _mm256_fmsub_ps(reA, sA, _mm256_mul_ps(imA, cA));
        __m256 pB = _mm256_fmadd_ps(reB, cB, _mm256_mul_ps(imB, sB));
        __m256 qB = _mm256_fmsub_ps(reB, sB, _mm256_mul_ps(imB, cB));
        v::store2(dst + 2 * j0, pA, v::reverse(qB));
        v::store2(dst + 2 * jb, pB, v::reverse(qA));
    }
}

inline void invPreTwiddleAvx2(const float* X, float* w, const float* t, int n)
{
    if (n < 64) return invPreTwiddleScalar(X, w, t, n);
    const int q = n / 4;
    for (int j0 = 0; j0 < q / 2; j0 += 8) {
        const int jb = q - 8 - j0;
        v::Region ra = v::load(X + 2 * j0), rb = v::load(X + 2 * jb);
        // p = X[2j] (evens of the block's own region), r = X[N/2-1-2j] (odds of
        // the mirror block's region, reversed)
        __m256 pA = ra.even, rA = rb.oddRev, pB = rb.even, rB = ra.oddRev;
        __m256 sA = _mm256_loadu_ps(t + (j0 >> 3) * 16), cA = _mm256_loadu_ps(t + (j0 >> 3) * 16 + 8);
        __m256 sB = _mm256_loadu_ps(t + (jb >> 3) * 16), cB = _mm256_loadu_ps(t + (jb >> 3) * 16 + 8);
        v::store2(w + 2 * j0, _mm256_fmadd_ps(pA, cA, _mm256_mul_ps(rA, sA)),
                  _mm256_fmsub_ps(rA, cA, _mm256_mul_ps(pA, sA)));
        v::store2(w + 2 * jb, _mm256_fmadd_ps(pB, cB, _mm256_mul_ps(rB, sB)),
                  _mm256_fmsub_ps(rB, cB, _mm256_mul_ps(pB, sB)));
    }
}

inline void invPostUnfoldAvx2(const float* w, float* y, const float* t, int n)
{
    if (n < 64) return invPostUnfoldScalar(w, y, t, n);
    const int q = n / 4, e = n / 8;
    for (int j0 = 0; j0 < e; j0 += 8) {
        const int jb = q - 8 - j0;
        __m256 a0 = _mm256_loadu_ps(w + 2 * j0), a1 = _mm256_loadu_ps(w + 2 * j0 + 8);
        __m256 b0 = _mm256_loadu_ps(w + 2 * jb), b1 = _mm256_loadu_ps(w + 2 * jb + 8);
        __m256 reA = v::evens(a0, a1), imA = v::odds(a0, a1), reB = v::evens(b0, b1), imB = v::odds(b0, b1);
        __m256 sA = _mm256_loadu_ps(t + (j0 >> 3) * 16), cA = _mm256_loadu_ps(t + (j0 >> 3) * 16 + 8);
        __m256 sB = _mm256_loadu_ps(t + (jb >> 3) * 16), cB = _mm256_loadu_ps(t + (jb >> 3) * 16 + 8);
        __m256 aA = _mm256_fmadd_ps(reA, cA, _mm256_mul_ps(imA, sA));
        __m256 bA = _mm256_fmsub_ps(reA, sA, _mm256_mul_ps(imA, cA));
        __m256 aB = _mm256_fmadd_ps(reB, cB, _mm256_mul_ps(imB, sB));
        __m256 bB = _mm256_fmsub_ps(reB, sB, _mm256_mul_ps(imB, cB));
        v::store2(y + 3 * q + 2 * j0, v::neg(aA), v::reverse(v::neg(bB)));
        v::store2(y + 3 * q - 16 - 2 * j0, v::neg(bB), v::reverse(v::neg(aA)));
        v::store2(y + q - 16 - 2 * j0, aB, v::reverse(bA));
        v::store2(y + q + 2 * j0, v::neg(bA), v::reverse(v::neg(aB)));
    }
}

}  // namespace zam::mdctk
