// Internal pieces of AAC temporal noise shaping.
#pragma once

#include <cstdint>

#include "zamac.h"

namespace zam {

constexpr int kAacTnsMaxOrder = 12;

// Reflection coefficients in Q31 for coefficient widths 3 and 4, indexed by the
// coefficient index plus 8.
extern const int32_t kAacTnsReflection[2][16];

// Highest band TNS may reach, per sampling-frequency index: long, short windows.
extern const uint8_t kAacTnsMaxBandsLong[12];
extern const uint8_t kAacTnsMaxBandsShort[12];

// Converts `order` (1..12) quantized reflection coefficients of width coefRes (3 or
// 4) to direct-form predictor coefficients a[0..order-1] (a1..a_order) with their
// fractional bit count *shift. Returns zamStsAacTnsCoefErr for an index outside
// -8..7 (nothing useful is written then).
ZamStatus aacTnsConvert(const int8_t* indices, int order, int coefRes, int32_t* a, int* shift);

// Runs the all-pole (decoder) or all-zero (encoder) filter over `size`
// coefficients from x, stepping by +1 (upwards) or -1 (downwards).
void aacTnsAllPole(int32_t* x, int size, int step, const int32_t* a, int order, int shift);
void aacTnsAllZero(int32_t* x, int size, int step, const int32_t* a, int order, int shift);

}  // namespace zam
