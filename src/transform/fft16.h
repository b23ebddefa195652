// Fixed-point complex FFT of the 16-bit forward MDCT (the integer counterpart of
// FftSpec).
//
// Data are interleaved (re, im) int32 pairs; the transform is radix-2 decimation
// in time on bit-reversed input with Q30 twiddles, each butterfly output formed
// from the exact 64-bit product and rounded to nearest once. Block exponent: a
// level halves its outputs (inside that one rounding) unless every input
// component is at most 2^31 / (2 sqrt 2), when even a doubling of magnitudes
// cannot overflow; then it keeps full scale. The result is DFT(x) / 2^e, e the
// number of halving levels (0..order), returned to the caller, who folds it into
// its scaling. Magnitudes never grow past the input's largest one or
// 2^31 / (2 sqrt 2) * 2 sqrt 2, so any input of magnitudes below 2^30 is safe.
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
    int32_t* twiddles;    // W^j = exp(-2 pi i j / N), j < N/2: (Re, Im) in Q30
};
static_assert(sizeof(Fft16Spec) == 64);

ZamStatus fft16GetSize(int order, int* pSpecSize, int* pInitSize, int* pWorkSize);
ZamStatus fft16Init(Fft16Spec** ppSpec, int order, uint8_t* pMemSpec);
// Levels of the transform in place on data already in bit-reversed order;
// returns the number of halving levels e. The AVX2 kernels and the scalar twin
// give identical results.
int fft16Levels(int32_t* data, const Fft16Spec* spec, Kernels k = Kernels::Avx2);
// Whole transform: permutation of src into dst, then the levels (src != dst);
// *pHalvings receives e.
ZamStatus fft16Fwd(const int32_t* src, int32_t* dst, const Fft16Spec* spec, int* pHalvings,
                   Kernels k = Kernels::Avx2);

}  // namespace zam
