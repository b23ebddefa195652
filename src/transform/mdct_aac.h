// AAC filter bank in fixed point: windows, the integer MDCT pair on the 32-bit
// block-exponent FFT, and the synthesis and analysis banks of one channel and
// frame. The exported functions (mdct_aac.cpp) check arguments and call these.
//
// Formats: spectra have 3 fractional bits (the dequantizer's format); time
// signals are PCM with 8 fractional bits (16-bit full scale = 2^23); windows are
// rising halves in Q30.
#pragma once

#include <cstdint>

#include "transform/fft.h"

namespace zam::aacfb {

enum : int { kOnlyLong = 0, kLongStart = 1, kEightShort = 2, kLongStop = 3 };

// Rising half of a window: 1024 values (2048-point) or 128 values (256-point);
// shape 0 sine, 1 Kaiser-Bessel derived (alpha 4 long, 6 short).
const int32_t* longRise(int shape);
const int32_t* shortRise(int shape);

// Synthesis: spectrum (1024, Q3; eight windows of 128 for eight-short) -> 1024
// output samples (Q8, unsaturated 64-bit) after overlap-add with pOverlap (1024,
// Q8), which receives this frame's second half.
void synthesis(const int32_t* spec, int64_t* out, int32_t* overlap, int seq, int shape, int prevShape,
               Kernels k);

// Analysis: 2048 time samples (Q8) -> 1024 coefficients (Q3), windowed by
// sequence and shapes (eight-short: eight 256-sample blocks from sample 448).
void analysis(const int32_t* x, int32_t* spec, int seq, int shape, int prevShape, Kernels k);

}  // namespace zam::aacfb
