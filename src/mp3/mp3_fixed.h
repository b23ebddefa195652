// Layer III fixed-point decoding: formats shared by the requantization, the
// hybrid filter bank and the polyphase synthesis, and the kernels that come as an
// AVX2 form beside a scalar twin (the choice between them is made in one place,
// mp3_fixed_select.cpp).
#pragma once

#include <cstdint>

namespace zam::mp3 {

// Spectral values and subband samples: Q24 (1.0 of the standard's scale = 2^24).
constexpr int kFracBits = 24;
// Polyphase vector (the cosine transform and the V buffer): Q24 as well.
constexpr int kSynthFracBits = 24;
// The V buffer: 16 slots of 32 stored values, then nothing else.
constexpr int kSynthSlots = 16;
constexpr int kSynthVValues = kSynthSlots * 32;

inline int32_t saturate32(int64_t v)
{
    return v > INT32_MAX ? INT32_MAX : (v < INT32_MIN ? INT32_MIN : static_cast<int32_t>(v));
}

// Rounded (half away from zero would cost a branch; half up is used) product
// v * c / 2^shift in 64 bits, saturated to 32.
inline int32_t mulShiftRound(int64_t v, int64_t c, int shift)
{
    return saturate32((v * c + (int64_t{1} << (shift - 1))) >> shift);
}

// Inverse MDCT of the 32 subbands of one granule with windowing, no overlap:
// dst[sb * 36 + i], for subbands [0, count); the two lowest subbands use window 0
// when `mixed` is set. Kernels: scalar reference and AVX2.
void imdctWindowScalar(const int32_t* src, int32_t* dst, int count, int blockType, bool mixed);
void imdctWindowAvx2(const int32_t* src, int32_t* dst, int count, int blockType, bool mixed);

// Polyphase synthesis of one granule: src[sb * 18 + t] (Q24) to 576 PCM samples
// dst[i * stride], with the V ring and its newest slot.
void synthScalar(const int32_t* src, int16_t* dst, int32_t* v, int32_t& position, int stride);
void synthAvx2(const int32_t* src, int16_t* dst, int32_t* v, int32_t& position, int stride);

// The kernels in use (the AVX2 ones).
void imdctWindow(const int32_t* src, int32_t* dst, int count, int blockType, bool mixed);
void synth(const int32_t* src, int16_t* dst, int32_t* v, int32_t& position, int stride);

}  // namespace zam::mp3
