// Internal pieces of AAC perceptual noise substitution.
#pragma once

#include <cstdint>

namespace zam {

// The noise amplitude for a band of w coefficients (1..96): 2^64 / 10^10 / sqrt(w),
// rounded to nearest.
int32_t aacNoiseAmplitude(int width);

// One step of the noise generator.
constexpr uint32_t aacNoiseStep(uint32_t state) { return state * 1664525u + 1013904223u; }

// Fills one band of `width` (1..96) coefficients with noise of unit energy in Q31
// (the sum of squares is about 2^62), advancing *state once per coefficient. A band
// whose measured energy is 0 is written as zeros.
void aacNoiseBand(int32_t* dst, int width, uint32_t* state);

// The noise gain of energy e: 2^(e/4) in Q10, wrapping as the 32-bit form does.
int32_t aacNoiseGain(uint32_t energy);

// Scales a band by the gain of its noise energy: x * G >> 38.
void aacApplyNoiseGain(int32_t* dst, int width, uint32_t energy);

}  // namespace zam
