// Second-order predictor coefficients of SBR high-frequency generation: the
// covariance sums of each QMF subband and the two ways of turning them into α0, α1.
//
// Two code paths exist and are kept apart on purpose:
//  - the group path (four real or two complex subbands side by side in vector
//    registers) tests its divisors for equality with zero and keeps a pair whose
//    squared magnitudes are both at most 16;
//  - the single path (the subbands left over after the groups) guards α1 with
//    det² > 0 and α0 with P1 > 0, and clears a pair as soon as either squared
//    magnitude reaches 16.
// Both paths form the sums identically (fused multiply-adds in ascending slot
// order, one accumulator per product lane), so away from those tests they give
// bit-identical coefficients.
#pragma once

#include <bit>
#include <cstdint>

namespace zam::sbr {

// 1 - 2^-20. Deliberately this value, not the float nearest to 1/(1 + 1e-6).
inline constexpr float kRelaxation = std::bit_cast<float>(0x3F7FFFF0u);
// |α|² limit: a predictor with |α| of 4 or more is unstable.
inline constexpr float kAlphaSquareLimit = 16.0f;

struct RealSums {
    float a;   // Σ x[n]·x[n+1], n = 0..L-1
    float b;   // Σ x[n+1]·x[n+2]
    float q;   // Σ x[n]·x[n+2]
    float p0;  // Σ x[n]²
    float p1;  // Σ x[n+1]²
};

// Complex sums with the older sample conjugated: A = Σ x[n+1]·conj(x[n]),
// B = Σ x[n+2]·conj(x[n+1]), Q = Σ x[n+2]·conj(x[n]); P0, P1 energies.
struct ComplexSums {
    float aRe, aIm, bRe, bIm, qRe, qIm, p0, p1;
};

struct Complex {
    float re, im;
};

enum class Path { Group, Single };

// Coefficients from sums, with the guards and limit of the given path.
void finishReal(const RealSums& s, Path path, float& alpha0, float& alpha1);
void finishComplex(const ComplexSums& s, Path path, Complex& alpha0, Complex& alpha1);

// Real samples: rows[n][column]. `len` >= 1.
RealSums realSums(const float* const* rows, int column, int len);
// Four subbands column..column+3, group path. AVX2 kernel and its scalar twin.
void realGroupAvx2(const float* const* rows, int column, int len, float* alpha0, float* alpha1);
void realGroupScalar(const float* const* rows, int column, int len, float* alpha0, float* alpha1);

// Complex samples, interleaved (rows[n][2k], rows[n][2k+1]) or split (re[n][k], im[n][k]).
ComplexSums complexSumsInterleaved(const float* const* rows, int band, int len);
ComplexSums complexSumsSplit(const float* const* re, const float* const* im, int band, int len);
// Two subbands band, band+1, group path; outputs written to sums0/sums1.
void complexPairSumsAvx2Interleaved(const float* const* rows, int band, int len, ComplexSums& s0, ComplexSums& s1);
void complexPairSumsAvx2Split(const float* const* re, const float* const* im, int band, int len, ComplexSums& s0,
                              ComplexSums& s1);

}  // namespace zam::sbr
