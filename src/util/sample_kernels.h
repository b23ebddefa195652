// Bulk loops of the sample utilities, each as an AVX2 path and a plain scalar twin
// that must give identical results.
#pragma once

#include <cstdint>

namespace zam::util {

void interleave2_16s_avx2(const int16_t* a, const int16_t* b, int len, int16_t* dst);
void interleave2_16s_scalar(const int16_t* a, const int16_t* b, int len, int16_t* dst);
void interleave2_32f_avx2(const float* a, const float* b, int len, float* dst);
void interleave2_32f_scalar(const float* a, const float* b, int len, float* dst);
// Any channel count: dst[i*channels + c] = src[c][i]. The vector form transposes
// blocks of 8 samples of up to 8 channels in registers and stores each frame whole
// (a store may run into the next frame's slots, which are written afterwards).
void interleaveN_16s_avx2(const int16_t* const* src, int channels, int len, int16_t* dst);
void interleaveN_16s_scalar(const int16_t* const* src, int channels, int len, int16_t* dst);
void interleaveN_32f_avx2(const float* const* src, int channels, int len, float* dst);
void interleaveN_32f_scalar(const float* const* src, int channels, int len, float* dst);
void deinterleave2_16s_avx2(const int16_t* src, int len, int16_t* a, int16_t* b);
void deinterleave2_16s_scalar(const int16_t* src, int len, int16_t* a, int16_t* b);
void deinterleave2_32f_avx2(const float* src, int len, float* a, float* b);
void deinterleave2_32f_scalar(const float* src, int len, float* a, float* b);

// Float to 16-bit with clamping to -32768..32767 and the current rounding mode of
// the vector unit (the caller forces round-to-nearest-even).
void join_32f16s_avx2(const float* const* src, int channels, int len, int16_t* dst);
void join_32f16s_scalar(const float* const* src, int channels, int len, int16_t* dst);

void makeFloat_avx2(const int16_t* mant, const int16_t* exp, int len, float* dst);
void makeFloat_scalar(const int16_t* mant, const int16_t* exp, int len, float* dst);

void scaleBand_avx2(float* data, float scale, int len);
void scaleBand_scalar(float* data, float scale, int len);

}  // namespace zam::util
