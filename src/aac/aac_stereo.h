// Internal kernels of the AAC stereo tools.
#pragma once

#include <cstdint>

namespace zam {

// l' = l + r, r' = l - r over n values, wrapping in 32 bits. Identical twins.
void aacMsButterflyScalar(int32_t* left, int32_t* right, int n);
void aacMsButterflyAvx2(int32_t* left, int32_t* right, int n);

// One intensity coefficient: sign * l * 0.5^(position/4) in the fixed-point form
// of the three position ranges; sign is +1 (book 15) or -1 (book 14).
int32_t aacIntensityScale(int32_t left, int position);

}  // namespace zam
