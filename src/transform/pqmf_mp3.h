// The MP3 float polyphase banks: the per-granule kernels behind the public calls,
// in an AVX2 form and a plain scalar twin with the same data layout.
#pragma once

#include <cstdint>

namespace zam {

// State object of both banks: this header, 16-byte aligned, followed by the
// 512-float delay line (16 slots of 32 values, a ring whose newest slot is
// `position`).
struct PqmfState {
    uint32_t tag;
    int32_t position;
    int32_t ownsMemory;
    int32_t reserved;
    float* delay;
    uint64_t reserved2;
};
static_assert(sizeof(PqmfState) == 32);

constexpr int kPqmfBands = 32;
constexpr int kPqmfSlots = 18;      // time slots in one granule
constexpr int kPqmfRingSlots = 16;  // slots of history in the delay line
constexpr int kPqmfDelayFloats = kPqmfBands * kPqmfRingSlots;
constexpr int kPqmfStateBytes = 2107;  // header, delay line and alignment slack

// One granule, 576 samples each way. `stride` is the PCM sample step (1 or 2).
// Synthesis reads src[sb * 18 + t], writes dst[(t * 32 + j) * stride]; analysis
// the reverse. `delay` and `position` are the ring and its newest slot.
void pqmfSynthesisScalar(const float* src, float* dst, float* delay, int32_t& position, int stride);
void pqmfSynthesisAvx2(const float* src, float* dst, float* delay, int32_t& position, int stride);
void pqmfAnalysisScalar(const float* src, float* dst, float* delay, int32_t& position, int stride);
void pqmfAnalysisAvx2(const float* src, float* dst, float* delay, int32_t& position, int stride);

}  // namespace zam
