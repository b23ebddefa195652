// 16-bit fixed-point complex FFT (the integer counterpart of FftSpec), used by
// the 16-bit forward MDCT.
//
// Data are interleaved (re, im) int16 pairs. The transform is radix-2 decimation
// in time on bit-reversed input with a block exponent: a level halves its outputs
// (twiddles and the pass-through half as Q15 values of one half, products rounded
// as the vector instruction does) unless the largest input component is at most
// 11585, when even a doubling of magnitudes cannot overflow; then it keeps full
// scale. The result is DFT(x) / 2^e, e the number of halving levels (0..order),
// returned to the caller, who folds the order - e extra bits into its scaling.
// If every input has magnitude |x| <= 32767 (as a complex number), no level can
// overflow.
#pragma once

#include <cstdint>

#include "transform/fft.h"

namespace zam {

constexpr uint32_t kTagFft16 = 1;
constexpr int kFft16MaxOrder = 30;

struct alignas(64) Fft16Spec {
    uint32_t tag;         // 1
    int32_t order;
    int32_t workSize;     // 0: the transform runs in place
    int32_t reserved;
    uint32_t* bitReverse; // order-bit reversal of 0..N-1
    int16_t* twiddles;    // per level h = 1, 2, 4..N/2: blocks of 8 butterflies,
                          // 16 x Re W/2 (lane-duplicated), 16 x (-Im W/2, +Im W/2),
                          // then the same blocks for W at full scale
};
static_assert(sizeof(Fft16Spec) == 64);

ZamStatus fft16GetSize(int order, int* pSpecSize, int* pInitSize, int* pWorkSize);
ZamStatus fft16Init(Fft16Spec** ppSpec, int order, uint8_t* pMemSpec);
// Levels of the transform in place on data already in bit-reversed order;
// returns the number of halving levels e.
int fft16Levels(int16_t* data, const Fft16Spec* spec, Kernels k);
// Whole transform: permutation of src into dst, then the levels (src != dst);
// *pHalvings receives e.
ZamStatus fft16Fwd(const int16_t* src, int16_t* dst, const Fft16Spec* spec, int* pHalvings,
                   Kernels k = Kernels::Avx2);

}  // namespace zam
