#include "util/sample_kernels.h"

#include <immintrin.h>

#include "core/simd.h"

namespace zam::util {

// ------------------------------------------------------------------ interleave

void interleave2_16s_scalar(const int16_t* a, const int16_t* b, int len, int16_t* dst)
{
    for (int i = 0; i < len; ++i) {
        dst[2 * i] = a[i];
        dst[2 * i + 1] = b[i];
    }
}

void interleave2_16s_avx2(const int16_t* a, const int16_t* b, int len, int16_t* dst)
{
    int i = 0;
    for (; i + 16 <= len; i += 16) {
        // Quarter order 0 2 1 3 first, so that the in-lane unpacks yield pairs in order.
        __m256i va = _mm256_permute4x64_epi64(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(a + i)), 0xD8);
        __m256i vb = _mm256_permute4x64_epi64(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(b + i)), 0xD8);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 2 * i), _mm256_unpacklo_epi16(va, vb));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 2 * i + 16), _mm256_unpackhi_epi16(va, vb));
    }
    interleave2_16s_scalar(a + i, b + i, len - i, dst + 2 * i);
}

void interleave2_32f_scalar(const float* a, const float* b, int len, float* dst)
{
    for (int i = 0; i < len; ++i) {
        dst[2 * i] = a[i];
        dst[2 * i + 1] = b[i];
    }
}

void interleave2_32f_avx2(const float* a, const float* b, int len, float* dst)
{
    int i = 0;
    for (; i + 8 <= len; i += 8) {
        __m256 va = _mm256_loadu_ps(a + i);
        __m256 vb = _mm256_loadu_ps(b + i);
        __m256 lo = _mm256_unpacklo_ps(va, vb);
        __m256 hi = _mm256_unpackhi_ps(va, vb);
        _mm256_storeu_ps(dst + 2 * i, _mm256_permute2f128_ps(lo, hi, 0x20));
        _mm256_storeu_ps(dst + 2 * i + 8, _mm256_permute2f128_ps(lo, hi, 0x31));
    }
    interleave2_32f_scalar(a + i, b + i, len - i, dst + 2 * i);
}

// Any channel count. Blocks of 8 frames: the channels in groups of 8, each group's
// 8 x 8 block transposed in registers so that one vector holds one frame's values
// for the group, stored whole at the frame's place. A group of fewer than 8
// channels writes past its part of the frame into slots written later: the next
// frames (one group) or, with several groups, group 0 of the next frame, which is
// why the groups run last to first. The block loop stops before a store would
// leave the output; the rest is done one sample at a time.

template <typename T>
void interleaveNScalar(const T* const* src, int channels, int len, T* dst)
{
    for (int c = 0; c < channels; ++c) {
        const T* s = src[c];
        for (int i = 0; i < len; ++i) dst[i * channels + c] = s[i];
    }
}

void interleaveN_16s_scalar(const int16_t* const* src, int channels, int len, int16_t* dst)
{
    interleaveNScalar(src, channels, len, dst);
}

void interleaveN_32f_scalar(const float* const* src, int channels, int len, float* dst)
{
    interleaveNScalar(src, channels, len, dst);
}

namespace {

// Eight rows of eight 16-bit values: row f of the result is column f of the input.
inline void transpose8x8(__m128i* r)
{
    const __m128i a0 = _mm_unpacklo_epi16(r[0], r[1]), a1 = _mm_unpackhi_epi16(r[0], r[1]);
    const __m128i a2 = _mm_unpacklo_epi16(r[2], r[3]), a3 = _mm_unpackhi_epi16(r[2], r[3]);
    const __m128i a4 = _mm_unpacklo_epi16(r[4], r[5]), a5 = _mm_unpackhi_epi16(r[4], r[5]);
    const __m128i a6 = _mm_unpacklo_epi16(r[6], r[7]), a7 = _mm_unpackhi_epi16(r[6], r[7]);
    const __m128i b0 = _mm_unpacklo_epi32(a0, a2), b1 = _mm_unpackhi_epi32(a0, a2);
    const __m128i b2 = _mm_unpacklo_epi32(a1, a3), b3 = _mm_unpackhi_epi32(a1, a3);
    const __m128i b4 = _mm_unpacklo_epi32(a4, a6), b5 = _mm_unpackhi_epi32(a4, a6);
    const __m128i b6 = _mm_unpacklo_epi32(a5, a7), b7 = _mm_unpackhi_epi32(a5, a7);
    r[0] = _mm_unpacklo_epi64(b0, b4);
    r[1] = _mm_unpackhi_epi64(b0, b4);
    r[2] = _mm_unpacklo_epi64(b1, b5);
    r[3] = _mm_unpackhi_epi64(b1, b5);
    r[4] = _mm_unpacklo_epi64(b2, b6);
    r[5] = _mm_unpackhi_epi64(b2, b6);
    r[6] = _mm_unpacklo_epi64(b3, b7);
    r[7] = _mm_unpackhi_epi64(b3, b7);
}

inline void transpose8x8(__m256* r) { zam::transpose8x8(r); }

inline void storeFrame(float* p, __m256 v) { _mm256_storeu_ps(p, v); }
inline void storeFrame(int16_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

// The block loop shared by the interleave and join kernels: `load(c, i)` gives
// the 8 values of channel c from sample i on, already in the output type.
template <typename T, typename V, typename Load>
int interleaveBlocks(int channels, int len, T* dst, V zero, Load load)
{
    const int groups = (channels + 7) / 8;
    const int64_t total = static_cast<int64_t>(len) * channels;
    int i = 0;
    for (; i + 8 <= len && (static_cast<int64_t>(i) + 7) * channels + 8 * groups <= total; i += 8)
        for (int g = groups - 1; g >= 0; --g) {
            const int first = 8 * g, count = channels - first < 8 ? channels - first : 8;
            V r[8];
            for (int k = 0; k < 8; ++k) r[k] = k < count ? load(first + k, i) : zero;
            transpose8x8(r);
            T* out = dst + static_cast<int64_t>(i) * channels + first;
            for (int f = 0; f < 8; ++f) storeFrame(out + static_cast<int64_t>(f) * channels, r[f]);
        }
    return i;
}

}  // namespace

void interleaveN_32f_avx2(const float* const* src, int channels, int len, float* dst)
{
    const int done = interleaveBlocks(channels, len, dst, _mm256_setzero_ps(),
                                      [&](int c, int i) { return _mm256_loadu_ps(src[c] + i); });
    for (int i = done; i < len; ++i)
        for (int c = 0; c < channels; ++c) dst[static_cast<int64_t>(i) * channels + c] = src[c][i];
}

void interleaveN_16s_avx2(const int16_t* const* src, int channels, int len, int16_t* dst)
{
    const int done = interleaveBlocks(channels, len, dst, _mm_setzero_si128(), [&](int c, int i) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(src[c] + i));
    });
    for (int i = done; i < len; ++i)
        for (int c = 0; c < channels; ++c) dst[static_cast<int64_t>(i) * channels + c] = src[c][i];
}

// ---------------------------------------------------------------- deinterleave

void deinterleave2_16s_scalar(const int16_t* src, int len, int16_t* a, int16_t* b)
{
    for (int i = 0; i < len; ++i) {
        a[i] = src[2 * i];
        b[i] = src[2 * i + 1];
    }
}

void deinterleave2_16s_avx2(const int16_t* src, int len, int16_t* a, int16_t* b)
{
    // Within each 128-bit lane, gather the even words into the low half and the odd
    // words into the high half, then combine the lanes.
    const __m256i split = _mm256_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15,
                                           0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15);
    int i = 0;
    for (; i + 16 <= len; i += 16) {
        __m256i x = _mm256_shuffle_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 2 * i)), split);
        __m256i y = _mm256_shuffle_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 2 * i + 16)), split);
        // x = [a0..3 b0..3 | a4..7 b4..7], y = [a8..11 b8..11 | a12..15 b12..15]
        __m256i evens = _mm256_unpacklo_epi64(x, y);  // a0..3 a8..11 | a4..7 a12..15
        __m256i odds = _mm256_unpackhi_epi64(x, y);
        evens = _mm256_permute4x64_epi64(evens, 0xD8);
        odds = _mm256_permute4x64_epi64(odds, 0xD8);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(a + i), evens);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(b + i), odds);
    }
    deinterleave2_16s_scalar(src + 2 * i, len - i, a + i, b + i);
}

void deinterleave2_32f_scalar(const float* src, int len, float* a, float* b)
{
    for (int i = 0; i < len; ++i) {
        a[i] = src[2 * i];
        b[i] = src[2 * i + 1];
    }
}

void deinterleave2_32f_avx2(const float* src, int len, float* a, float* b)
{
    int i = 0;
    for (; i + 8 <= len; i += 8) {
        __m256 x = _mm256_loadu_ps(src + 2 * i);      // a0 b0 a1 b1 | a2 b2 a3 b3
        __m256 y = _mm256_loadu_ps(src + 2 * i + 8);  // a4 b4 a5 b5 | a6 b6 a7 b7
        __m256 evens = _mm256_shuffle_ps(x, y, 0x88);  // a0 a1 a4 a5 | a2 a3 a6 a7
        __m256 odds = _mm256_shuffle_ps(x, y, 0xDD);
        _mm256_storeu_ps(a + i, _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(evens), 0xD8)));
        _mm256_storeu_ps(b + i, _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(odds), 0xD8)));
    }
    deinterleave2_32f_scalar(src + 2 * i, len - i, a + i, b + i);
}

// ------------------------------------------------------------------------ join

namespace {

// Clamp with max-then-min, so a NaN becomes the lower limit in both twins.
inline int16_t toPcm16(float x)
{
    __m128 v = _mm_set_ss(x);
    v = _mm_min_ss(_mm_max_ss(v, _mm_set_ss(-32768.0f)), _mm_set_ss(32767.0f));
    return static_cast<int16_t>(_mm_cvtss_si32(v));
}

inline __m256i toPcm32x8(__m256 v)
{
    v = _mm256_min_ps(_mm256_max_ps(v, _mm256_set1_ps(-32768.0f)), _mm256_set1_ps(32767.0f));
    return _mm256_cvtps_epi32(v);
}

}  // namespace

void join_32f16s_scalar(const float* const* src, int channels, int len, int16_t* dst)
{
    for (int c = 0; c < channels; ++c) {
        const float* s = src[c];
        int16_t* d = dst + c;
        for (int i = 0; i < len; ++i) d[i * channels] = toPcm16(s[i]);
    }
}

void join_32f16s_avx2(const float* const* src, int channels, int len, int16_t* dst)
{
    int i = 0;
    if (channels == 1) {
        const float* s = src[0];
        for (; i + 16 <= len; i += 16) {
            __m256i lo = toPcm32x8(_mm256_loadu_ps(s + i));
            __m256i hi = toPcm32x8(_mm256_loadu_ps(s + i + 8));
            __m256i packed = _mm256_permute4x64_epi64(_mm256_packs_epi32(lo, hi), 0xD8);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), packed);
        }
        for (; i < len; ++i) dst[i] = toPcm16(s[i]);
        return;
    }
    if (channels == 2) {
        const float* l = src[0];
        const float* r = src[1];
        const __m256i low16 = _mm256_set1_epi32(0xFFFF);
        for (; i + 8 <= len; i += 8) {
            __m256i vl = toPcm32x8(_mm256_loadu_ps(l + i));
            __m256i vr = toPcm32x8(_mm256_loadu_ps(r + i));
            // Each 32-bit lane becomes one little-endian (left, right) pair.
            __m256i pairs = _mm256_or_si256(_mm256_and_si256(vl, low16), _mm256_slli_epi32(vr, 16));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 2 * i), pairs);
        }
        for (; i < len; ++i) {
            dst[2 * i] = toPcm16(l[i]);
            dst[2 * i + 1] = toPcm16(r[i]);
        }
        return;
    }
    // Three and more channels: each channel's 8 samples converted and packed to
    // 16 bits, then the interleave's register transpose.
    i = interleaveBlocks(channels, len, dst, _mm_setzero_si128(), [&](int c, int at) {
        const __m256i v = toPcm32x8(_mm256_loadu_ps(src[c] + at));
        return _mm_packs_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    });
    for (; i < len; ++i)
        for (int c = 0; c < channels; ++c) dst[static_cast<int64_t>(i) * channels + c] = toPcm16(src[c][i]);
}

// ------------------------------------------------------------------- makeFloat

namespace {
// 2^-15 as a float bit pattern; subtracting e << 23 divides by 2^e.
constexpr int32_t kTwoToMinus15Bits = 0x38000000;
}  // namespace

void makeFloat_scalar(const int16_t* mant, const int16_t* exp, int len, float* dst)
{
    for (int i = 0; i < len; ++i) {
        uint32_t bits = static_cast<uint32_t>(kTwoToMinus15Bits - (static_cast<int32_t>(exp[i]) * (1 << 23)));
        bits &= 0x7FFFFFFFu;
        float factor;
        __builtin_memcpy(&factor, &bits, 4);
        dst[i] = static_cast<float>(mant[i]) * factor;
    }
}

void makeFloat_avx2(const int16_t* mant, const int16_t* exp, int len, float* dst)
{
    const __m256i base = _mm256_set1_epi32(kTwoToMinus15Bits);
    const __m256i absMask = _mm256_set1_epi32(0x7FFFFFFF);
    int i = 0;
    for (; i + 8 <= len; i += 8) {
        __m256i m = _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(mant + i)));
        __m256i e = _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(exp + i)));
        __m256i bits = _mm256_and_si256(_mm256_sub_epi32(base, _mm256_slli_epi32(e, 23)), absMask);
        _mm256_storeu_ps(dst + i, _mm256_mul_ps(_mm256_cvtepi32_ps(m), _mm256_castsi256_ps(bits)));
    }
    makeFloat_scalar(mant + i, exp + i, len - i, dst + i);
}

// ----------------------------------------------------------------------- scale

void scaleBand_scalar(float* data, float scale, int len)
{
    for (int i = 0; i < len; ++i) data[i] *= scale;
}

void scaleBand_avx2(float* data, float scale, int len)
{
    const __m256 s = _mm256_set1_ps(scale);
    int i = 0;
    for (; i + 8 <= len; i += 8) _mm256_storeu_ps(data + i, _mm256_mul_ps(_mm256_loadu_ps(data + i), s));
    scaleBand_scalar(data + i, scale, len - i);
}

}  // namespace zam::util
