// MDCT spec records and the internal pieces the exported MDCT functions share.
#pragma once

#include <cstdint>

#include "transform/fft.h"

namespace zam {

struct Fft16Spec;

// Float MDCT spec (forward tag 55, inverse tag 56), at a 64-byte boundary.
struct MdctSpec32f {
    uint32_t tag;
    int32_t length;      // N
    int32_t workSize;    // bytes, as GetBufSize reports
    int32_t fftOrder;    // log2(N/4); 0 for N = 12 and 36
    int32_t ownsMemory;  // 1 when made by InitAlloc
    int32_t reserved;
    float* twiddles;     // N/4 (sin, cos) pairs
    FftSpec* fft;        // power-of-two N only
};

// 16-bit forward MDCT spec (tag 57), at a 64-byte boundary.
struct MdctSpec16s {
    uint32_t tag;
    int32_t length;
    int32_t workSize;
    int32_t fftOrder;
    int32_t ownsMemory;
    int32_t reserved;
    int16_t* twiddles;   // N/4 (sin, cos) pairs in Q15
    Fft16Spec* fft;
};

constexpr bool isPowerOfTwo(int v) { return v > 0 && (v & (v - 1)) == 0; }

// Twiddle accessors: power-of-two lengths keep blocks of 8 sines then 8 cosines;
// 12 and 36 keep (sin, cos) pairs.
inline float twSin(const float* t, int n, int j) { return isPowerOfTwo(n) ? t[(j >> 3) * 16 + (j & 7)] : t[2 * j]; }
inline float twCos(const float* t, int n, int j)
{
    return isPowerOfTwo(n) ? t[(j >> 3) * 16 + 8 + (j & 7)] : t[2 * j + 1];
}

// The transforms on a located, tag-checked spec with an aligned work area; the
// scalar twins run the same steps without vector kernels.
void mdctFwdCore(const float* src, float* dst, const MdctSpec32f* s, float* work, Kernels k);
void mdctInvCore(const float* src, float* dst, const MdctSpec32f* s, float* work, Kernels k);
// `count` transforms of length 12 or 36 (direction by the object's tag): transform b
// reads src + b*srcStride and writes dst + b*dstStride (src and dst must not
// overlap). Eight at a time run in the lanes of 256-bit vectors with exactly the
// operations of the one-transform kernel, so the results are bit-identical to
// count single calls; the hybrid bank of an MP3 granule is 32 such transforms.
void mdctFixedBatch(const float* src, int64_t srcStride, float* dst, int64_t dstStride, int count,
                    const MdctSpec32f* s);
// The 16-bit forward transform on a located spec; work is 64-byte aligned,
// 2N bytes (N/4 complex 32-bit values).
ZamStatus mdctFwd16Core(const int16_t* x, int16_t* dst, const MdctSpec16s* s, int scaleFactor, int32_t* work);

}  // namespace zam
