// Bit counting with AVX2: eight values (or eight pairs) per step, code lengths
// fetched with one gather. Same sums as the scalar twins, tails included.
#include <immintrin.h>

#include <cstdint>

#include "vlc/vlc_internal.h"

namespace zam::vlc {
namespace {

inline uint32_t horizontalSum(__m256i v)
{
    __m128i s = _mm_add_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    s = _mm_add_epi32(s, _mm_shuffle_epi32(s, 0x4E));
    s = _mm_add_epi32(s, _mm_shuffle_epi32(s, 0xB1));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(s));
}

// Code lengths of eight keys, indices clamped to the table's range as the scalar
// path does.
inline __m256i gatherLengths(__m256i keys, const EncodeView& spec)
{
    const __m256i index = _mm256_min_epu32(_mm256_add_epi32(keys, _mm256_set1_epi32(spec.valueOffset)),
                                           _mm256_set1_epi32(static_cast<int32_t>(spec.range)));
    return _mm256_i32gather_epi32(spec.lengths, index, 4);
}

// The x (low half) and y (high half) of eight interleaved int16 pairs.
inline void splitPairs(const int16_t* src, __m256i& x, __m256i& y)
{
    const __m256i raw = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src));
    x = _mm256_srai_epi32(_mm256_slli_epi32(raw, 16), 16);
    y = _mm256_srai_epi32(raw, 16);
}

inline __m256i clampTo(__m256i v, int limit)
{
    return _mm256_max_epi32(_mm256_min_epi32(v, _mm256_set1_epi32(limit)), _mm256_set1_epi32(-limit));
}

// 2 * floor(log2 m) - 3 for m >= 16, else 0. m < 2^24 converts to float exactly,
// so the exponent field is floor(log2 m).
inline __m256i aacEscapeBits(__m256i v)
{
    const __m256i m = _mm256_abs_epi32(v);
    const __m256i exponent = _mm256_sub_epi32(_mm256_srli_epi32(_mm256_castps_si256(_mm256_cvtepi32_ps(m)), 23),
                                              _mm256_set1_epi32(127));
    const __m256i bits = _mm256_sub_epi32(_mm256_add_epi32(exponent, exponent), _mm256_set1_epi32(3));
    return _mm256_and_si256(bits, _mm256_cmpgt_epi32(m, _mm256_set1_epi32(15)));
}

}  // namespace

uint32_t countBitsAvx2(const int16_t* src, int n, const EncodeView& spec)
{
    __m256i sum = _mm256_setzero_si256();
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m256i v = _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i)));
        sum = _mm256_add_epi32(sum, gatherLengths(v, spec));
    }
    return horizontalSum(sum) + countBitsScalar(src + i, n - i, spec);
}

uint32_t countEscBitsAacAvx2(const int16_t* src, int pairs, const EncodeView& spec)
{
    __m256i sum = _mm256_setzero_si256();
    int i = 0;
    for (; i + 8 <= pairs; i += 8) {
        __m256i x, y;
        splitPairs(src + 2 * i, x, y);
        const __m256i keys = _mm256_add_epi32(_mm256_slli_epi32(clampTo(x, 16), 6), clampTo(y, 16));
        sum = _mm256_add_epi32(sum, gatherLengths(keys, spec));
        sum = _mm256_add_epi32(sum, _mm256_add_epi32(aacEscapeBits(x), aacEscapeBits(y)));
    }
    return horizontalSum(sum) + countEscBitsAacScalar(src + 2 * i, pairs - i, spec);
}

uint32_t countEscBitsMp3Avx2(const int16_t* src, int pairs, int linbits, const EncodeView& spec)
{
    const __m256i field = _mm256_set1_epi32(linbits);
    const __m256i fourteen = _mm256_set1_epi32(14);
    __m256i sum = _mm256_setzero_si256();
    int i = 0;
    for (; i + 8 <= pairs; i += 8) {
        __m256i x, y;
        splitPairs(src + 2 * i, x, y);
        const __m256i keys = _mm256_add_epi32(_mm256_slli_epi32(clampTo(x, 15), 5), clampTo(y, 15));
        sum = _mm256_add_epi32(sum, gatherLengths(keys, spec));
        const __m256i escX = _mm256_and_si256(_mm256_cmpgt_epi32(_mm256_abs_epi32(x), fourteen), field);
        const __m256i escY = _mm256_and_si256(_mm256_cmpgt_epi32(_mm256_abs_epi32(y), fourteen), field);
        sum = _mm256_add_epi32(sum, _mm256_add_epi32(escX, escY));
    }
    return horizontalSum(sum) + countEscBitsMp3Scalar(src + 2 * i, pairs - i, linbits, spec);
}

}  // namespace zam::vlc
