// Block FIR filter state and its accumulation kernels.
#pragma once

#include <cstdint>

#include "zamac.h"

namespace zam {

// Made only by zamsFIRBlockInitAlloc_32f. The tag is the last field, and the
// tag check reads it there.
struct FirBlockState {
    float* history;    // numTaps rows of stride floats, a separate allocation
    int16_t numTaps;
    int16_t len;
    int16_t stride;    // len rounded up to a multiple of 4, in 16 bits
    int16_t position;  // row holding the newest block
    int32_t tag;       // 58
};

// dst[i] = (continueSums ? dst[i] : 0) + sum_j weights[j] * rows[j][i], the sum
// taken in j order with fused multiply-adds (the first product, when not
// continuing, is a plain multiply).
void firAccumulateScalar(float* dst, const float* const* rows, const float* weights, int count, int len,
                         bool continueSums);
void firAccumulateAvx2(float* dst, const float* const* rows, const float* weights, int count, int len,
                       bool continueSums);

}  // namespace zam
