// Fold, twiddle and unfold steps of the power-of-two float MDCT, scalar twins and
// AVX2 versions. N is a power of two >= 32; twiddles in blocks of 8 sines then 8
// cosines; complex data interleaved.
#pragma once

#include <immintrin.h>

namespace zam::mdctk {

inline float ts(const float* t, int j) { return t[(j >> 3) * 16 + (j & 7)]; }
inline float tc(const float* t, int j) { return t[(j >> 3) * 16 + 8 + (j & 7)]; }

// ---------------------------------------------------------------- scalar twins

inline void foldPreTwiddleScalar(const float* x, float* w, const float* t, int n)
{
    const int q = n / 4, e = n / 8;
    for (int j = 0; j < q; ++j) {
        float a, b;
        if (j < e) {
            a = -x[3 * q + 2 * j] - x[3 * q - 2 * j - 1];
            b = x[q - 2 * j - 1] - x[q + 2 * j];
        } else {
            a = x[2 * j - q] - x[3 * q - 2 * j - 1];
            b = -x[5 * q - 2 * j - 1] - x[q + 2 * j];
        }
        const float s = ts(t, j), c = tc(t, j);
        w[2 * j] = a * c + b * s;
        w[2 * j + 1] = b * c - a * s;
    }
}

inline void postTwiddleScalar(const float* w, float* dst, const float* t, int n)
{
    const int q = n / 4;
    for (int j = 0; j < q; ++j) {
        const float s = ts(t, j), c = tc(t, j), re = w[2 * j], im = w[2 * j + 1];
        dst[2 * j] = re * c + im * s;
        dst[n / 2 - 1 - 2 * j] = re * s - im * c;
    }
}

inline void invPreTwiddleScalar(const float* X, float* w, const float* t, int n)
{
    const int q = n / 4;
    for (int j = 0; j < q; ++j) {
        const float p = X[2 * j], r = X[n / 2 - 1 - 2 * j];
        const float s = ts(t, j), c = tc(t, j);
        w[2 * j] = p * c + r * s;
        w[2 * j + 1] = r * c - p * s;
    }
}

inline void invPostUnfoldScalar(const float* w, float* y, const float* t, int n)
{
    const int q = n / 4, e = n / 8;
    for (int j = 0; j < q; ++j) {
        const float s = ts(t, j), c = tc(t, j), re = w[2 * j], im = w[2 * j + 1];
        const float a = re * c + im * s;
        const float b = re * s - im * c;
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
}

// ---------------------------------------------------------------- AVX2

inline void foldPreTwiddleAvx2(const float* x, float* w, const float* t, int n) { foldPreTwiddleScalar(x, w, t, n); }
inline void postTwiddleAvx2(const float* w, float* dst, const float* t, int n) { postTwiddleScalar(w, dst, t, n); }
inline void invPreTwiddleAvx2(const float* X, float* w, const float* t, int n) { invPreTwiddleScalar(X, w, t, n); }
inline void invPostUnfoldAvx2(const float* w, float* y, const float* t, int n) { invPostUnfoldScalar(w, y, t, n); }

}  // namespace zam::mdctk
