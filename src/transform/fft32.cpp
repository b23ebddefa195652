// 32-bit fixed-point FFT: constant Q30 twiddles, bit reversal and the radix-2
// levels with their block exponent (scalar twin and AVX2).
#include "transform/fft32.h"

#include <immintrin.h>

#include <array>

#include "transform/trig.h"

namespace zam {

namespace {

constexpr int kMaxN = 1 << kFft32MaxOrder;

constexpr int32_t q30(double v)
{
    const double r = v * 1073741824.0;
    return static_cast<int32_t>(r >= 0 ? r + 0.5 : r - 0.5);
}

// W_N^k = cos(2*pi*k/N) - i sin(2*pi*k/N) for N = kMaxN, k < N/2, as (cos, -sin).
struct Twiddles {
    int32_t w[kMaxN];
};
constexpr Twiddles makeTwiddles()
{
    Twiddles t{};
    for (int k = 0; k < kMaxN / 2; ++k) {
        const SinCos sc = sinCosTurn(k, kMaxN);
        t.w[2 * k] = q30(sc.c);
        t.w[2 * k + 1] = q30(-sc.s);
    }
    return t;
}
constexpr Twiddles kTw = makeTwiddles();

inline int64_t roundShift(int64_t v, int sh) { return (v + (int64_t{1} << (sh - 1))) >> sh; }

void bitReverse(int32_t* d, int order)
{
    const int n = 1 << order;
    for (int i = 1, j = 0; i < n; ++i) {
        int bit = n >> 1;
        for (; j & bit; bit >>= 1) j ^= bit;
        j |= bit;
        if (i < j) {
            std::swap(d[2 * i], d[2 * j]);
            std::swap(d[2 * i + 1], d[2 * j + 1]);
        }
    }
}

// Largest magnitude class of the data: the OR of all |component|.
uint32_t magnitudeBits(const int32_t* d, int count)
{
    uint32_t m = 0;
    for (int i = 0; i < count; ++i) m |= static_cast<uint32_t>(d[i] < 0 ? -int64_t{d[i]} : d[i]);
    return m;
}

// One level of butterflies of half-size h, outputs shifted right by sh (0..2).
void levelScalar(int32_t* d, int n, int h, int sh)
{
    const int stride = kMaxN / (2 * h);
    for (int g = 0; g < n; g += 2 * h) {
        for (int k = 0; k < h; ++k) {
            int32_t* a = d + 2 * (g + k);
            int32_t* b = a + 2 * h;
            const int64_t wr = kTw.w[2 * k * stride], wi = kTw.w[2 * k * stride + 1];
            const int64_t tr = roundShift(b[0] * wr - b[1] * wi, 30);
            const int64_t ti = roundShift(b[0] * wi + b[1] * wr, 30);
            int64_t o[4] = {a[0] + tr, a[1] + ti, a[0] - tr, a[1] - ti};
            if (sh)
                for (int64_t& v : o) v = roundShift(v, sh);
            a[0] = static_cast<int32_t>(o[0]);
            a[1] = static_cast<int32_t>(o[1]);
            b[0] = static_cast<int32_t>(o[2]);
            b[1] = static_cast<int32_t>(o[3]);
        }
    }
}

// The same level, four butterflies at a time (h >= 4): 32x32-bit products of
// _mm256_mul_epi32 on 64-bit lanes, identical rounding.
void levelAvx2(int32_t* d, int n, int h, int sh)
{
    const int stride = kMaxN / (2 * h);
    const __m256i half30 = _mm256_set1_epi64x(int64_t{1} << 29);
    const __m256i halfSh = _mm256_set1_epi64x(sh ? int64_t{1} << (sh - 1) : 0);
    const __m128i count = _mm_cvtsi32_si128(sh);
    const __m256i idx = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
    alignas(32) int32_t wre[8] = {}, wim[8] = {};
    for (int k0 = 0; k0 < h; k0 += 4) {
        for (int i = 0; i < 4; ++i) {
            wre[2 * i] = kTw.w[2 * (k0 + i) * stride];
            wim[2 * i] = kTw.w[2 * (k0 + i) * stride + 1];
        }
        const __m256i wr = _mm256_load_si256(reinterpret_cast<const __m256i*>(wre));
        const __m256i wi = _mm256_load_si256(reinterpret_cast<const __m256i*>(wim));
        for (int g = 0; g < n; g += 2 * h) {
            int32_t* a = d + 2 * (g + k0);
            int32_t* b = a + 2 * h;
            // (re0 im0 re1 im1 ...) -> re in the low dwords of 64-bit lanes 0..3, im likewise.
            const __m256i av = _mm256_permutevar8x32_epi32(_mm256_loadu_si256(reinterpret_cast<__m256i*>(a)), idx);
            const __m256i bv = _mm256_permutevar8x32_epi32(_mm256_loadu_si256(reinterpret_cast<__m256i*>(b)), idx);
            const __m256i br = _mm256_cvtepi32_epi64(_mm256_castsi256_si128(bv));
            const __m256i bi = _mm256_cvtepi32_epi64(_mm256_extracti128_si256(bv, 1));
            const __m256i ar = _mm256_cvtepi32_epi64(_mm256_castsi256_si128(av));
            const __m256i ai = _mm256_cvtepi32_epi64(_mm256_extracti128_si256(av, 1));
            __m256i tr = _mm256_sub_epi64(_mm256_mul_epi32(br, wr), _mm256_mul_epi32(bi, wi));
            __m256i ti = _mm256_add_epi64(_mm256_mul_epi32(br, wi), _mm256_mul_epi32(bi, wr));
            // Arithmetic right shift of 64-bit lanes by 30: the values fit 33 bits after it,
            // so shifting the high part in from the logical shift is exact.
            auto sra = [](__m256i v, int s) {
                const __m256i logical = _mm256_srli_epi64(v, s);
                const __m256i sign = _mm256_cmpgt_epi64(_mm256_setzero_si256(), v);
                return _mm256_or_si256(logical, _mm256_slli_epi64(sign, 64 - s));
            };
            tr = sra(_mm256_add_epi64(tr, half30), 30);
            ti = sra(_mm256_add_epi64(ti, half30), 30);
            __m256i o0 = _mm256_add_epi64(ar, tr), o1 = _mm256_add_epi64(ai, ti);
            __m256i o2 = _mm256_sub_epi64(ar, tr), o3 = _mm256_sub_epi64(ai, ti);
            if (sh) {
                auto srv = [&](__m256i v) {
                    v = _mm256_add_epi64(v, halfSh);
                    const __m256i sign = _mm256_cmpgt_epi64(_mm256_setzero_si256(), v);
                    return _mm256_or_si256(_mm256_srl_epi64(v, count),
                                           _mm256_sll_epi64(sign, _mm_cvtsi32_si128(64 - sh)));
                };
                o0 = srv(o0), o1 = srv(o1), o2 = srv(o2), o3 = srv(o3);
            }
            // Low dwords of (re, im) lanes back to interleaved pairs.
            const __m256i low = _mm256_set1_epi64x(0xFFFFFFFF);
            const __m256i pa = _mm256_or_si256(_mm256_and_si256(o0, low), _mm256_slli_epi64(o1, 32));
            const __m256i pb = _mm256_or_si256(_mm256_and_si256(o2, low), _mm256_slli_epi64(o3, 32));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(a), pa);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(b), pb);
        }
    }
}

}  // namespace

int fft32Fwd(int32_t* data, int order, Kernels k)
{
    const int n = 1 << order;
    bitReverse(data, order);
    int e = 0;
    for (int h = 1; h < n; h *= 2) {
        const uint32_t m = magnitudeBits(data, 2 * n);
        const int sh = m >= (1u << 30) ? 2 : m >= (1u << 29) ? 1 : 0;
        if (k == Kernels::Avx2 && h >= 4) levelAvx2(data, n, h, sh);
        else levelScalar(data, n, h, sh);
        e += sh;
    }
    return e;
}

}  // namespace zam
