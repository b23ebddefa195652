// The power-law, scale-factor and spreading kernels of the quantizers and the
// psychoacoustic model, each as an AVX2 path and a plain scalar twin that give
// identical results (the exports in power_law.cpp pick the AVX2 path).
#pragma once

#include <cstdint>

namespace zam::util {

// sign(x) * |x|^(3/4) in float: sqrt(|x|) * sqrt(sqrt(|x|)).
void pow34_32f_avx2(const float* src, float* dst, int len);
void pow34_32f_scalar(const float* src, float* dst, int len);

// The same in double, rounded to nearest (ties to even) and saturated to 16 bits.
void pow34_32f16s_avx2(const float* src, int16_t* dst, int len);
void pow34_32f16s_scalar(const float* src, int16_t* dst, int len);

// sign(x) * |x|^(3/4) * 2^-scale, rounded and saturated to 16 bits.
void pow34_16s_avx2(const int16_t* src, int16_t* dst, int len, int scale);
void pow34_16s_scalar(const int16_t* src, int16_t* dst, int len, int scale);

// sign(x) * |x|^(4/3) * 2^(gain/4) * 2^-scale, rounded and saturated to 32 bits.
void pow43Scale_avx2(const int16_t* src, int32_t* dst, int len, int gain, int scale);
void pow43Scale_scalar(const int16_t* src, int32_t* dst, int len, int gain, int scale);

// 2^((v - offset)/4) as float.
void calcSF_avx2(const int16_t* src, float* dst, int len, int offset);
void calcSF_scalar(const int16_t* src, float* dst, int len, int offset);

// The psychoacoustic spreading function on Bark distances in Q10, to Q15 * 2^-scale.
void spread_avx2(const int16_t* src, int16_t* dst, int len, int scale);
void spread_scalar(const int16_t* src, int16_t* dst, int len, int scale);

}  // namespace zam::util
