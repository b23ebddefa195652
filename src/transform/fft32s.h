// 32-bit fixed-point complex FFT of 2^order points, order 1..6 (the integer
// counterpart of FftSpec for the small transforms of the integer SBR banks).
//
// Data are interleaved (re, im) int32 pairs. Radix-2 decimation in time on
// bit-reversed input, twiddles exp(-2 pi i k / N) in Q30, every product summed in
// 64 bits and rounded once (half up). The first `halvings` levels halve their
// outputs (rounded half up), so the result is DFT(x) / 2^halvings. A halving level
// cannot grow the largest complex magnitude; a full-scale one at most doubles it:
// inputs with |x| < 2^(31 - order + halvings - 1/2) cannot overflow.
#pragma once

#include <cstdint>

namespace zam {

constexpr int kFft32sMaxOrder = 6;

// src and dst must not overlap.
void fft32sFwd(const int32_t* src, int32_t* dst, int order, int halvings);

}  // namespace zam
