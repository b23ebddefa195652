// 32-bit fixed-point complex FFT with a block exponent (the integer counterpart of
// FftSpec for the AAC integer filter banks). No spec object: its Q30 twiddles are
// constant data for every length up to 2^kFft32MaxOrder.
//
// Data are interleaved (re, im) int32 pairs, transformed in place: radix-2
// decimation in time on bit-reversed input. Each level looks at the largest
// component M of its input (as the OR of the magnitudes) and keeps full scale
// when M < 2^29, halves its outputs when 2^29 <= M < 2^30 and quarters them
// above, so that no level can overflow for any int32 input. Products are 64-bit,
// rounded half up to Q0 after each twiddle multiplication and after each halving.
// The result is DFT(x) / 2^e, e being the count of halvings, which is returned.
#pragma once

#include <cstdint>

#include "transform/fft.h"

namespace zam {

constexpr int kFft32MaxOrder = 9;

// Forward transform, exp(-2*pi*i*n*k/N), N = 2^order (1..kFft32MaxOrder), in place.
// Returns e. The scalar twin and the AVX2 kernels give identical results.
int fft32Fwd(int32_t* data, int order, Kernels k = Kernels::Avx2);

}  // namespace zam
