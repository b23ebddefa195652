// Power-law, scale-factor and spreading kernels: AVX2 paths and scalar twins.
// Each twin performs the same operations in the same order, so the two agree bit
// for bit; what needs more than float precision is done in double.
#include "util/power_kernels.h"

#include <immintrin.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <type_traits>

namespace zam::util {
namespace {

// ------------------------------------------------------------------ helpers

inline double roundEven(double x) { return _mm_cvtsd_f64(_mm_round_sd(_mm_setzero_pd(), _mm_set_sd(x), _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC)); }
inline float roundEvenF(float x) { return _mm_cvtss_f32(_mm_round_ss(_mm_setzero_ps(), _mm_set_ss(x), _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC)); }

constexpr int kRound = _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC;

// 2^e as a double for e in -1022..1023.
inline double pow2d(int e) { return std::bit_cast<double>(static_cast<uint64_t>(e + 1023) << 52); }
inline __m256d pow2d4(__m128i e)
{
    const __m256i biased = _mm256_cvtepi32_epi64(_mm_add_epi32(e, _mm_set1_epi32(1023)));
    return _mm256_castsi256_pd(_mm256_slli_epi64(biased, 52));
}

inline int clampInt(int v, int lo, int hi) { return v < lo ? lo : (v > hi ? hi : v); }

// |x|^(3/4) of a non-negative double; exact for perfect fourth powers.
inline double pow34d(double a) { return std::sqrt(a * std::sqrt(a)); }
inline __m256d pow34d4(__m256d a) { return _mm256_sqrt_pd(_mm256_mul_pd(a, _mm256_sqrt_pd(a))); }

// Saturating result of a rounded double: within lo..hi.
inline double clampD(double v, double lo, double hi) { v = v < hi ? v : hi; return v > lo ? v : lo; }
inline __m256d clampD4(__m256d v, __m256d lo, __m256d hi) { return _mm256_max_pd(_mm256_min_pd(v, hi), lo); }

// ------------------------------------------------------------- 3/4 in float

inline float pow34f(float x)
{
    const float a = std::fabs(x);
    const float s = std::sqrt(a);
    return std::copysign(s * std::sqrt(s), x);
}

// -------------------------------------------------- 4/3 in double, n < 32769

constexpr double cubeRootD(double x)
{
    double y = 1.0;
    while (y * y * y < x) y *= 2.0;
    for (int i = 0; i < 60; ++i) {
        const double next = y - (y * y * y - x) / (3.0 * y * y);
        if (next == y) break;
        y = next;
    }
    const double r = static_cast<double>(static_cast<int64_t>(y + 0.5));
    return r * r * r == x ? r : y;  // perfect cubes exact
}

constexpr int kPow43Table = 1024;
constexpr std::array<double, kPow43Table> makePow43()
{
    std::array<double, kPow43Table> t{};
    for (int n = 0; n < kPow43Table; ++n) t[n] = n * cubeRootD(n);
    return t;
}
alignas(64) constexpr std::array<double, kPow43Table> kPow43 = makePow43();

inline double pow43d(int n)
{
    if (n < kPow43Table) return kPow43[n];
    const double c = std::cbrt(static_cast<double>(n));
    const double r = std::nearbyint(c);
    return n * (r * r * r == n ? r : c);
}

// 2^(r/4), r = 0..3, correctly rounded.
alignas(32) constexpr double kQuarterD[4] = {1.0, 1.189207115002721, 1.4142135623730951, 1.681792830507429};
alignas(32) constexpr float kQuarterF[8] = {1.0f, 1.18920711f, 1.41421356f, 1.68179283f, 1.0f, 1.18920711f, 1.41421356f, 1.68179283f};

// --------------------------------------------------------------- spreading

constexpr float kLog2of10over10 = 0.332192809f;

inline float exp2Poly(float f)  // 2^f for |f| <= 0.5
{
    float p = 1.52527338e-5f;
    p = p * f + 1.54035304e-4f;
    p = p * f + 1.33335581e-3f;
    p = p * f + 9.61812911e-3f;
    p = p * f + 5.55041087e-2f;
    p = p * f + 2.40226507e-1f;
    p = p * f + 6.93147181e-1f;
    p = p * f + 1.0f;
    return p;
}
inline __m256 exp2Poly8(__m256 f)
{
    __m256 p = _mm256_set1_ps(1.52527338e-5f);
    p = _mm256_add_ps(_mm256_mul_ps(p, f), _mm256_set1_ps(1.54035304e-4f));
    p = _mm256_add_ps(_mm256_mul_ps(p, f), _mm256_set1_ps(1.33335581e-3f));
    p = _mm256_add_ps(_mm256_mul_ps(p, f), _mm256_set1_ps(9.61812911e-3f));
    p = _mm256_add_ps(_mm256_mul_ps(p, f), _mm256_set1_ps(5.55041087e-2f));
    p = _mm256_add_ps(_mm256_mul_ps(p, f), _mm256_set1_ps(2.40226507e-1f));
    p = _mm256_add_ps(_mm256_mul_ps(p, f), _mm256_set1_ps(6.93147181e-1f));
    p = _mm256_add_ps(_mm256_mul_ps(p, f), _mm256_set1_ps(1.0f));
    return p;
}

// Spreading value (0..1) of a Bark distance in Q10, maskee minus masker.
inline float spreadOne(int16_t q10)
{
    const float d = static_cast<float>(q10) * (1.0f / 1024.0f);
    const float t = d * (d < 0.0f ? 3.0f : 1.5f);
    float x = 0.0f;
    if (t >= 0.5f && t <= 2.5f) {
        const float a = t - 0.5f;
        x = 8.0f * (a * a - 2.0f * a);
    }
    const float u = t + 0.474f;
    const float y = 15.811389f + 7.5f * u - 17.5f * std::sqrt(1.0f + u * u);
    if (y <= -60.0f) return 0.0f;
    const float w = (x + y) * kLog2of10over10;
    const float n = roundEvenF(w);
    const float p = exp2Poly(w - n);
    return p * std::bit_cast<float>((static_cast<int32_t>(n) + 127) << 23);
}

}  // namespace

// ------------------------------------------------------------------ Pow34 32f

void pow34_32f_scalar(const float* src, float* dst, int len)
{
    for (int i = 0; i < len; ++i) dst[i] = pow34f(src[i]);
}

void pow34_32f_avx2(const float* src, float* dst, int len)
{
    const __m256 signMask = _mm256_set1_ps(-0.0f);
    int i = 0;
    for (; i + 8 <= len; i += 8) {
        const __m256 x = _mm256_loadu_ps(src + i);
        const __m256 s = _mm256_sqrt_ps(_mm256_andnot_ps(signMask, x));
        const __m256 v = _mm256_mul_ps(s, _mm256_sqrt_ps(s));
        _mm256_storeu_ps(dst + i, _mm256_or_ps(v, _mm256_and_ps(signMask, x)));
    }
    pow34_32f_scalar(src + i, dst + i, len - i);
}

// --------------------------------------------------------------- Pow34 32f16s

void pow34_32f16s_scalar(const float* src, int16_t* dst, int len)
{
    for (int i = 0; i < len; ++i) {
        const float x = src[i];
        double v = pow34d(std::fabs(static_cast<double>(x)));
        v = v < 32768.0 ? v : 32768.0;  // NaN goes to the limit too
        v = roundEven(std::signbit(x) ? -v : v);
        dst[i] = static_cast<int16_t>(clampD(v, -32768.0, 32767.0));
    }
}

void pow34_32f16s_avx2(const float* src, int16_t* dst, int len)
{
    const __m256d signMask = _mm256_set1_pd(-0.0);
    const __m256d limit = _mm256_set1_pd(32768.0);
    const __m256d lo = _mm256_set1_pd(-32768.0), hi = _mm256_set1_pd(32767.0);
    int i = 0;
    for (; i + 8 <= len; i += 8) {
        __m128i half[2];
        for (int h = 0; h < 2; ++h) {
            const __m256d x = _mm256_cvtps_pd(_mm_loadu_ps(src + i + 4 * h));
            __m256d v = pow34d4(_mm256_andnot_pd(signMask, x));
            v = _mm256_min_pd(v, limit);
            v = _mm256_round_pd(_mm256_or_pd(v, _mm256_and_pd(signMask, x)), kRound);
            half[h] = _mm256_cvtpd_epi32(clampD4(v, lo, hi));
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), _mm_packs_epi32(half[0], half[1]));
    }
    pow34_32f16s_scalar(src + i, dst + i, len - i);
}

// ---------------------------------------------------------------- Pow34 16s

void pow34_16s_scalar(const int16_t* src, int16_t* dst, int len, int scale)
{
    const double k = pow2d(-clampInt(scale, -40, 40));
    for (int i = 0; i < len; ++i) {
        const int x = src[i];
        const double v = roundEven(pow34d(std::abs(x)) * k);
        dst[i] = static_cast<int16_t>(clampD(x < 0 ? -v : v, -32768.0, 32767.0));
    }
}

void pow34_16s_avx2(const int16_t* src, int16_t* dst, int len, int scale)
{
    const __m256d k = _mm256_set1_pd(pow2d(-clampInt(scale, -40, 40)));
    const __m256d lo = _mm256_set1_pd(-32768.0), hi = _mm256_set1_pd(32767.0);
    int i = 0;
    for (; i + 8 <= len; i += 8) {
        const __m128i x16 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
        __m128i half[2];
        for (int h = 0; h < 2; ++h) {
            const __m128i x = _mm_cvtepi16_epi32(h ? _mm_srli_si128(x16, 8) : x16);
            const __m256d a = _mm256_cvtepi32_pd(_mm_abs_epi32(x));
            __m256d v = _mm256_round_pd(_mm256_mul_pd(pow34d4(a), k), kRound);
            const __m256d neg = _mm256_castsi256_pd(_mm256_cvtepi32_epi64(_mm_srai_epi32(x, 31)));
            v = _mm256_blendv_pd(v, _mm256_sub_pd(_mm256_setzero_pd(), v), neg);
            half[h] = _mm256_cvtpd_epi32(clampD4(v, lo, hi));
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), _mm_packs_epi32(half[0], half[1]));
    }
    pow34_16s_scalar(src + i, dst + i, len - i, scale);
}

// ------------------------------------------------------------ Pow43Scale 16s32s

// One factor 2^(gain/4 - scale): the quarter step times a power of two (clamped far
// beyond the range where the result saturates or rounds to 0).
static double pow43Factor(int gain, int scale)
{
    const int q = gain >> 2;  // floor
    const int e = clampInt(q - clampInt(scale, -2048, 2048), -200, 200);
    return kQuarterD[gain & 3] * pow2d(e);
}

void pow43Scale_scalar(const int16_t* src, int32_t* dst, int len, int gain, int scale)
{
    const double k = pow43Factor(gain, scale);
    for (int i = 0; i < len; ++i) {
        const int x = src[i];
        const double v = roundEven(pow43d(std::abs(x)) * k);
        dst[i] = static_cast<int32_t>(clampD(x < 0 ? -v : v, -2147483648.0, 2147483647.0));
    }
}

void pow43Scale_avx2(const int16_t* src, int32_t* dst, int len, int gain, int scale)
{
    const __m256d k = _mm256_set1_pd(pow43Factor(gain, scale));
    const __m256d lo = _mm256_set1_pd(-2147483648.0), hi = _mm256_set1_pd(2147483647.0);
    const __m128i tableLimit = _mm_set1_epi32(kPow43Table - 1);
    int i = 0;
    for (; i + 4 <= len; i += 4) {
        const __m128i x = _mm_cvtepi16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(src + i)));
        const __m128i a = _mm_abs_epi32(x);
        if (!_mm_testz_si128(_mm_cmpgt_epi32(a, tableLimit), _mm_set1_epi32(-1))) {
            pow43Scale_scalar(src + i, dst + i, 4, gain, scale);
            continue;
        }
        __m256d v = _mm256_round_pd(_mm256_mul_pd(_mm256_mask_i32gather_pd(_mm256_setzero_pd(), kPow43.data(), a, _mm256_castsi256_pd(_mm256_set1_epi64x(-1)), 8), k), kRound);
        const __m256d neg = _mm256_castsi256_pd(_mm256_cvtepi32_epi64(_mm_srai_epi32(x, 31)));
        v = _mm256_blendv_pd(v, _mm256_sub_pd(_mm256_setzero_pd(), v), neg);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), _mm256_cvtpd_epi32(clampD4(v, lo, hi)));
    }
    pow43Scale_scalar(src + i, dst + i, len - i, gain, scale);
}

// ------------------------------------------------------------------- CalcSF

void calcSF_scalar(const int16_t* src, float* dst, int len, int offset)
{
    for (int i = 0; i < len; ++i) {
        const int d = src[i] - offset;
        const int q = d >> 2;
        float v;
        if (q >= -126 && q <= 127)
            v = kQuarterF[d & 3] * std::bit_cast<float>((q + 127) << 23);
        else if (q > 127)
            v = INFINITY;
        else if (q < -152)
            v = 0.0f;
        else
            v = static_cast<float>(kQuarterD[d & 3] * pow2d(q));
        dst[i] = v;
    }
}

void calcSF_avx2(const int16_t* src, float* dst, int len, int offset)
{
    const __m256 quarter = _mm256_load_ps(kQuarterF);
    const __m256i off = _mm256_set1_epi32(offset);
    const __m256i qLo = _mm256_set1_epi32(-126), qHi = _mm256_set1_epi32(127);
    int i = 0;
    for (; i + 8 <= len; i += 8) {
        const __m256i x = _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i)));
        const __m256i d = _mm256_sub_epi32(x, off);
        const __m256i q = _mm256_srai_epi32(d, 2);
        const __m256i outside = _mm256_or_si256(_mm256_cmpgt_epi32(qLo, q), _mm256_cmpgt_epi32(q, qHi));
        if (!_mm256_testz_si256(outside, outside)) {
            calcSF_scalar(src + i, dst + i, 8, offset);
            continue;
        }
        const __m256 m = _mm256_permutevar8x32_ps(quarter, d);  // uses the low 3 bits; entries repeat by 4
        const __m256 p = _mm256_castsi256_ps(_mm256_slli_epi32(_mm256_add_epi32(q, _mm256_set1_epi32(127)), 23));
        _mm256_storeu_ps(dst + i, _mm256_mul_ps(m, p));
    }
    calcSF_scalar(src + i, dst + i, len - i, offset);
}

// ------------------------------------------------------------------- Spread

void spread_scalar(const int16_t* src, int16_t* dst, int len, int scale)
{
    const float k = std::bit_cast<float>((15 - clampInt(scale, -24, 60) + 127) << 23);
    for (int i = 0; i < len; ++i) {
        float v = spreadOne(src[i]) * k;
        v = v < 32767.0f ? v : 32767.0f;
        dst[i] = static_cast<int16_t>(roundEvenF(v));
    }
}

void spread_avx2(const int16_t* src, int16_t* dst, int len, int scale)
{
    const __m256 k = _mm256_set1_ps(std::bit_cast<float>((15 - clampInt(scale, -24, 60) + 127) << 23));
    const __m256 zero = _mm256_setzero_ps();
    int i = 0;
    for (; i + 8 <= len; i += 8) {
        const __m256i x = _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i)));
        const __m256 d = _mm256_mul_ps(_mm256_cvtepi32_ps(x), _mm256_set1_ps(1.0f / 1024.0f));
        const __m256 slope = _mm256_blendv_ps(_mm256_set1_ps(1.5f), _mm256_set1_ps(3.0f), _mm256_cmp_ps(d, zero, _CMP_LT_OQ));
        const __m256 t = _mm256_mul_ps(d, slope);
        const __m256 a = _mm256_sub_ps(t, _mm256_set1_ps(0.5f));
        const __m256 dip = _mm256_mul_ps(_mm256_set1_ps(8.0f), _mm256_sub_ps(_mm256_mul_ps(a, a), _mm256_mul_ps(_mm256_set1_ps(2.0f), a)));
        const __m256 inDip = _mm256_and_ps(_mm256_cmp_ps(t, _mm256_set1_ps(0.5f), _CMP_GE_OQ), _mm256_cmp_ps(t, _mm256_set1_ps(2.5f), _CMP_LE_OQ));
        const __m256 xv = _mm256_and_ps(inDip, dip);
        const __m256 u = _mm256_add_ps(t, _mm256_set1_ps(0.474f));
        const __m256 root = _mm256_sqrt_ps(_mm256_add_ps(_mm256_set1_ps(1.0f), _mm256_mul_ps(u, u)));
        const __m256 y = _mm256_sub_ps(_mm256_add_ps(_mm256_set1_ps(15.811389f), _mm256_mul_ps(_mm256_set1_ps(7.5f), u)),
                                       _mm256_mul_ps(_mm256_set1_ps(17.5f), root));
        const __m256 audible = _mm256_cmp_ps(y, _mm256_set1_ps(-60.0f), _CMP_GT_OQ);
        // Outside the audible range w is clamped so the power of two stays a normal float.
        const __m256 w = _mm256_max_ps(_mm256_mul_ps(_mm256_add_ps(xv, y), _mm256_set1_ps(kLog2of10over10)), _mm256_set1_ps(-100.0f));
        const __m256 n = _mm256_round_ps(w, kRound);
        const __m256 p = exp2Poly8(_mm256_sub_ps(w, n));
        const __m256i e = _mm256_slli_epi32(_mm256_add_epi32(_mm256_cvtps_epi32(n), _mm256_set1_epi32(127)), 23);
        __m256 v = _mm256_and_ps(audible, _mm256_mul_ps(p, _mm256_castsi256_ps(e)));
        v = _mm256_min_ps(_mm256_mul_ps(v, k), _mm256_set1_ps(32767.0f));
        const __m256i r = _mm256_cvtps_epi32(_mm256_round_ps(v, kRound));
        const __m128i packed = _mm_packs_epi32(_mm256_castsi256_si128(r), _mm256_extracti128_si256(r, 1));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), packed);
    }
    spread_scalar(src + i, dst + i, len - i, scale);
}

}  // namespace zam::util
