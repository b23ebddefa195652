// The DTS core 32-band synthesis QMF: the per-slot kernels behind the public calls,
// in an AVX2 form and a plain scalar twin with the same state layout.
#pragma once

#include <cstdint>

#include "transform/fft.h"

namespace zam {

constexpr int kDtsBands = 32;
constexpr int kDtsRingSlots = 16;  // slots of history (512 taps / 32 bands)
// Each slot keeps the 32 cosine-modulated values of one time slot as two halves
// of 16 (see dts_synth.cpp): 16 slots of 32 floats.
constexpr int kDtsRingFloats = kDtsRingSlots * kDtsBands;
constexpr int kDtsFftOrder = 4;  // the 32-point DCT-IV runs on a 16-point complex FFT

// State object: this header, 16-byte aligned, then the ring and the FFT spec.
struct DtsSynthState {
    uint32_t tag;        // "kAMC"
    int32_t ownsMemory;  // 1 when made by InitAlloc
    int32_t position;    // ring slot of the newest time slot
    int32_t previousType; // window of the last slot: its half of the sums carries over
    float* ring;         // kDtsRingFloats floats
    FftSpec* fft;        // 16-point complex FFT, no scaling
};

// Runs numSlots time slots: src[32t + k] (subband k of slot t) -> dst[32t + i].
// filterType: the perfect (1) or non-perfect (0) reconstruction window. As in the
// standard, the half of each output that comes from odd-aged slots is weighted with
// the window of the slot before (it is formed one slot ahead), so the first slot
// after a change of window takes that half from the previous window.
void dtsSynthesisScalar(const float* src, float* dst, int numSlots, int filterType, DtsSynthState* st);
void dtsSynthesisAvx2(const float* src, float* dst, int numSlots, int filterType, DtsSynthState* st);

}  // namespace zam
