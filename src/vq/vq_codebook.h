// The VQ code-book object and the distance kernels of its searches.
#pragma once

#include <bit>
#include <cstdint>

#include "zamac.h"

namespace zam::vq {

// The record at the very start of the caller's memory. VqCodeBook* points here.
// That memory may have any alignment, so the record is byte-aligned.
struct __attribute__((packed)) CodeBookRecord {
    int32_t height;
    int32_t length;
    int32_t valid;       // 1 after Init, 0 after Free
    int32_t ownsMemory;  // 1 when InitAlloc made the object
    float** rows;
    float* distances;
    int32_t* signs;
    float* sortedDistances;
    int32_t* sortedIndices;
    int32_t rowStrideFloats;
};

// The row table starts at the first 64-byte boundary at or after this offset.
inline constexpr int kRecordBytes = 88;
static_assert(sizeof(CodeBookRecord) <= kRecordBytes);

inline constexpr int kRowAlign = 64;

// No candidate is kept at or above this distance.
inline constexpr float kDistanceSentinel = std::bit_cast<float>(0x7E967699u);
static_assert(kDistanceSentinel == 1.0e38f);

// Byte offsets of the parts of a code book built at `base`.
struct Layout {
    int64_t rowTable;
    int64_t firstRow;
    int64_t rowStride;
    int64_t scratch;        // first scratch array
    int64_t scratchStride;  // bytes between scratch arrays
    int64_t end;            // one past the last byte used
};
Layout layoutAt(uintptr_t base, int length, int height);

inline int64_t codeBookSize(int length, int height) { return (int64_t{length} * 16 + 352) * height + 1888; }

inline CodeBookRecord* record(VqCodeBook* p) { return reinterpret_cast<CodeBookRecord*>(p); }
inline const CodeBookRecord* record(const VqCodeBook* p) { return reinterpret_cast<const CodeBookRecord*>(p); }

// Weighted distances of the preliminary search over n elements, with the elements
// before x's first 32-byte boundary and after the last full vector step done one
// at a time. AVX2 kernels and their scalar twins, which add in the same order.
float distanceAvx2(const float* x, const float* w, const float* c, int n);
float distanceScalar(const float* x, const float* w, const float* c, int n);
struct SignedDistances {
    float minus;  // Σ w·(c - x)²
    float plus;   // Σ w·(c + x)²
};
SignedDistances signedDistancesAvx2(const float* x, const float* w, const float* c, int n);
SignedDistances signedDistancesScalar(const float* x, const float* w, const float* c, int n);
// Four code vectors c[0..3] at once, each with exactly the sums of the one-vector kernels.
void distances4Avx2(const float* x, const float* w, const float* const* c, int n, float* out);
void signedDistances4Avx2(const float* x, const float* w, const float* const* c, int n, SignedDistances* out);

// Distance of the main search: Σ w·(x - (sb·b + sa·a)/divisor)². `reciprocal` is
// the refined reciprocal estimate of the divisor, used past the scalar head.
float pairDistanceAvx2(const float* x, const float* w, const float* a, float sa, const float* b, float sb, int n,
                       float divisor, float reciprocal);
float pairDistanceScalar(const float* x, const float* w, const float* a, float sa, const float* b, float sb, int n,
                         float divisor, float reciprocal);
// The divisor's hardware reciprocal estimate after one Newton step.
float refinedReciprocal(float divisor);

// Elements of x before its first 32-byte boundary (at most n).
inline int headCount(const float* x, int n)
{
    const int head = static_cast<int>(((0 - reinterpret_cast<uintptr_t>(x)) & 31) / sizeof(float));
    return head < n ? head : n;
}

}  // namespace zam::vq
