// sign(x) * |x|^(4/3) for 16-bit integers, correctly rounded to float.
//
// A double estimate n * cbrt(n) is within a few double ulps of the true value; it
// is rounded to float and then proved or corrected with exact integer arithmetic:
// the true value v = n^(4/3) lies below a midpoint m exactly when n^4 < m^3, and
// both sides are integers once scaled by a power of two. v is never a midpoint
// (it is rational only for perfect cubes n, and then an integer below 2^21).
// Magnitudes below 1024 (nearly every MP3 quantized value) come from a table
// built at compile time the same way.
#include <immintrin.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <type_traits>

#include "core/export.h"

namespace zam {
namespace {

using u128 = unsigned __int128;

constexpr double cubeRoot(double x)
{
    if (!std::is_constant_evaluated()) return std::cbrt(x);
    double y = 1.0;
    while (y * y * y < x) y *= 2.0;  // start above the root: Newton then falls monotonically
    for (int i = 0; i < 12; ++i) y -= (y * y * y - x) / (3.0 * y * y);
    return y;
}

// n^4 compared with (odd * 2^(e2))^3 for e2 < 0: sign of n^4 * 2^(-3 e2) - odd^3.
constexpr int compareWithCube(uint64_t n, uint64_t odd, int e2)
{
    const u128 n4 = static_cast<u128>(n * n) * (n * n);
    const u128 lhs = n4 << (-3 * e2);
    const u128 rhs = static_cast<u128>(odd) * odd * odd;
    return lhs < rhs ? -1 : (lhs > rhs ? 1 : 0);
}

constexpr float pow43Magnitude(uint32_t n)
{
    if (n == 0) return 0.0f;
    float f = static_cast<float>(static_cast<double>(n) * cubeRoot(static_cast<double>(n)));
    for (;;) {
        const uint32_t bits = std::bit_cast<uint32_t>(f);
        const int e = static_cast<int>(bits >> 23) - 127 - 23;  // f = mant * 2^e, e in -23..-3
        const uint64_t mant = (bits & 0x7FFFFFu) | 0x800000u;
        if (compareWithCube(n, 2 * mant + 1, e - 1) > 0) {  // above the upper midpoint
            f = std::bit_cast<float>(bits + 1);
            continue;
        }
        const bool lowestMantissa = mant == 0x800000u;  // the float below has half the spacing
        const int below = lowestMantissa ? compareWithCube(n, 4 * mant - 1, e - 2)
                                         : compareWithCube(n, 2 * mant - 1, e - 1);
        if (below < 0) {
            f = std::bit_cast<float>(bits - 1);
            continue;
        }
        return f;
    }
}

constexpr int kTableSize = 1024;

constexpr std::array<float, kTableSize> makeTable()
{
    std::array<float, kTableSize> t{};
    for (int n = 0; n < kTableSize; ++n) t[n] = pow43Magnitude(static_cast<uint32_t>(n));
    return t;
}

alignas(64) constexpr std::array<float, kTableSize> kPow43Table = makeTable();

inline float pow43One(int16_t x)
{
    const uint32_t n = x < 0 ? static_cast<uint32_t>(-static_cast<int32_t>(x)) : static_cast<uint32_t>(x);
    const float m = n < kTableSize ? kPow43Table[n] : pow43Magnitude(n);
    return x < 0 ? -m : m;
}

}  // namespace

void pow43Scalar(const int16_t* src, float* dst, int len)
{
    for (int i = 0; i < len; ++i) dst[i] = pow43One(src[i]);
}

void pow43Avx2(const int16_t* src, float* dst, int len)
{
    const __m256i limit = _mm256_set1_epi32(kTableSize - 1);
    const __m256i smallLimit = _mm256_set1_epi32(15);
    const __m256i signBit = _mm256_set1_epi32(static_cast<int32_t>(0x80000000u));
    // Magnitudes below 16 (nearly all of an MP3 spectrum) come from two registers.
    const __m256 low = _mm256_load_ps(kPow43Table.data());
    const __m256 high = _mm256_load_ps(kPow43Table.data() + 8);
    int i = 0;
    for (; i + 8 <= len; i += 8) {
        const __m256i x = _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i)));
        const __m256i mag = _mm256_abs_epi32(x);
        const __m256i ones = _mm256_set1_epi32(-1);
        __m256 v;
        if (_mm256_testz_si256(_mm256_cmpgt_epi32(mag, smallLimit), ones)) {
            const __m256 fromLow = _mm256_permutevar8x32_ps(low, mag);
            const __m256 fromHigh = _mm256_permutevar8x32_ps(high, mag);
            v = _mm256_blendv_ps(fromLow, fromHigh, _mm256_castsi256_ps(_mm256_slli_epi32(mag, 28)));
        } else if (_mm256_testz_si256(_mm256_cmpgt_epi32(mag, limit), ones)) {
            v = _mm256_i32gather_ps(kPow43Table.data(), mag, 4);
        } else {
            for (int k = 0; k < 8; ++k) dst[i + k] = pow43One(src[i + k]);
            continue;
        }
        const __m256 sign = _mm256_castsi256_ps(_mm256_and_si256(x, signBit));
        _mm256_storeu_ps(dst + i, _mm256_xor_ps(v, sign));
    }
    for (; i < len; ++i) dst[i] = pow43One(src[i]);
}

}  // namespace zam

ZAM_API ZamStatus zamsPow43_16s32f(const int16_t* pSrc, float* pDst, int len)
{
    if (!pSrc || !pDst) return zamStsNullPtr;
    if (len < 0) return zamStsBadArg;
    if (len == 0) return zamStsSize;
    zam::pow43Avx2(pSrc, pDst, len);
    return zamStsOk;
}
