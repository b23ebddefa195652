// Fixed-point FFT of the 16-bit MDCT: tables and the radix-2 levels (AVX2 and
// scalar twin).
#include "transform/fft16.h"

#include <immintrin.h>

#include <climits>
#include <cstring>

#include "core/memory.h"
#include "transform/trig.h"

namespace zam {

namespace {

constexpr int64_t roundUp64(int64_t b) { return roundUp(b, 64); }

// Record, bit-reversal table (N words) and twiddles (N/2 pairs of words).
int64_t usedBytes(int order)
{
    const int64_t n = int64_t{1} << order;
    return 64 + roundUp64(4 * n) + roundUp64(4 * n);
}

inline int32_t q30(double v)
{
    const double r = v * 1073741824.0;
    return static_cast<int32_t>(r < 0 ? r - 0.5 : r + 0.5);
}

uint32_t reverse(uint32_t v, int bits)
{
    uint32_t r = 0;
    for (int b = 0; b < bits; ++b) r |= ((v >> b) & 1u) << (bits - 1 - b);
    return r;
}

int32_t peakComponent(const int32_t* x, int64_t count)
{
    uint32_t m = 0;
    for (int64_t i = 0; i < count; ++i) {
        const uint32_t a = x[i] < 0 ? 0u - static_cast<uint32_t>(x[i]) : static_cast<uint32_t>(x[i]);
        m = a > m ? a : m;
    }
    return m > INT32_MAX ? INT32_MAX : static_cast<int32_t>(m);
}

// Butterflies of half-size h; twiddle j of this level is W^(j * stride).
// Each output is (a * 2^30 + b * W) rounded once to 2^-(30 + halve).
template <int Halve>
void level(int32_t* x, int64_t n, int64_t h, const int32_t* tw, int64_t stride)
{
    constexpr int sh = 30 + Halve;
    constexpr int64_t half = int64_t{1} << (sh - 1);
    for (int64_t g = 0; g < n; g += 2 * h) {
        int32_t* p0 = x + 2 * g;
        int32_t* p1 = p0 + 2 * h;
        for (int64_t j = 0; j < h; ++j) {
            const int64_t wr = tw[2 * j * stride], wi = tw[2 * j * stride + 1];
            const int64_t br = p1[2 * j], bi = p1[2 * j + 1];
            const int64_t tr = br * wr - bi * wi, ti = br * wi + bi * wr;
            const int64_t ar = int64_t{p0[2 * j]} << 30, ai = int64_t{p0[2 * j + 1]} << 30;
            p0[2 * j] = static_cast<int32_t>((ar + tr + half) >> sh);
            p0[2 * j + 1] = static_cast<int32_t>((ai + ti + half) >> sh);
            p1[2 * j] = static_cast<int32_t>((ar - tr + half) >> sh);
            p1[2 * j + 1] = static_cast<int32_t>((ai - ti + half) >> sh);
        }
    }
}

// Four butterflies on 64-bit lanes with _mm256_mul_epi32: a and b hold four
// complex values as (re, im) int32 pairs, wr and wi the twiddles in the low
// halves of 64-bit lanes; the identical exact sums and rounding as the scalar
// level, so the results equal the scalar twin's.
template <int Halve>
inline void butterfly4(__m256i& a, __m256i& b, __m256i wr, __m256i wi)
{
    constexpr int sh = 30 + Halve;
    const __m256i half = _mm256_set1_epi64x(int64_t{1} << (sh - 1));
    const __m256i split = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
    const __m256i low = _mm256_set1_epi64x(0xFFFFFFFF);
    // arithmetic right shift of 64-bit lanes by sh
    auto sra = [](__m256i v) {
        const __m256i sign = _mm256_cmpgt_epi64(_mm256_setzero_si256(), v);
        return _mm256_or_si256(_mm256_srli_epi64(v, sh), _mm256_slli_epi64(sign, 64 - sh));
    };
    const __m256i av = _mm256_permutevar8x32_epi32(a, split), bv = _mm256_permutevar8x32_epi32(b, split);
    const __m256i br = _mm256_cvtepi32_epi64(_mm256_castsi256_si128(bv));
    const __m256i bi = _mm256_cvtepi32_epi64(_mm256_extracti128_si256(bv, 1));
    const __m256i ar = _mm256_slli_epi64(_mm256_cvtepi32_epi64(_mm256_castsi256_si128(av)), 30);
    const __m256i ai = _mm256_slli_epi64(_mm256_cvtepi32_epi64(_mm256_extracti128_si256(av, 1)), 30);
    const __m256i tr = _mm256_sub_epi64(_mm256_mul_epi32(br, wr), _mm256_mul_epi32(bi, wi));
    const __m256i ti = _mm256_add_epi64(_mm256_mul_epi32(br, wi), _mm256_mul_epi32(bi, wr));
    const __m256i ah = _mm256_add_epi64(ar, half), aih = _mm256_add_epi64(ai, half);
    const __m256i o0 = sra(_mm256_add_epi64(ah, tr)), o1 = sra(_mm256_add_epi64(aih, ti));
    const __m256i o2 = sra(_mm256_sub_epi64(ah, tr)), o3 = sra(_mm256_sub_epi64(aih, ti));
    a = _mm256_or_si256(_mm256_and_si256(o0, low), _mm256_slli_epi64(o1, 32));
    b = _mm256_or_si256(_mm256_and_si256(o2, low), _mm256_slli_epi64(o3, 32));
}

// One level in AVX2 (n >= 8). For h >= 4 four consecutive butterflies per step,
// their twiddles gathered once per step of j for every group; for h = 1 and 2
// the partners of eight complex values are paired by 64-bit shuffles.
template <int Halve>
void levelAvx2(int32_t* x, int64_t n, int64_t h, const int32_t* tw, int64_t stride)
{
    auto* v = reinterpret_cast<__m256i*>(x);
    if (h < 4) {
        const int64_t s2 = 2 * stride;
        const __m256i wr = h == 1 ? _mm256_set1_epi64x(tw[0]) : _mm256_setr_epi64x(tw[0], tw[s2], tw[0], tw[s2]);
        const __m256i wi = h == 1 ? _mm256_set1_epi64x(tw[1]) : _mm256_setr_epi64x(tw[1], tw[s2 + 1], tw[1], tw[s2 + 1]);
        for (int64_t i = 0; i < n / 4; i += 2) {
            const __m256i v0 = _mm256_loadu_si256(v + i), v1 = _mm256_loadu_si256(v + i + 1);
            __m256i a, b;
            if (h == 1) {
                a = _mm256_unpacklo_epi64(v0, v1), b = _mm256_unpackhi_epi64(v0, v1);
                butterfly4<Halve>(a, b, wr, wi);
                _mm256_storeu_si256(v + i, _mm256_unpacklo_epi64(a, b));
                _mm256_storeu_si256(v + i + 1, _mm256_unpackhi_epi64(a, b));
            } else {
                a = _mm256_permute2x128_si256(v0, v1, 0x20), b = _mm256_permute2x128_si256(v0, v1, 0x31);
                butterfly4<Halve>(a, b, wr, wi);
                _mm256_storeu_si256(v + i, _mm256_permute2x128_si256(a, b, 0x20));
                _mm256_storeu_si256(v + i + 1, _mm256_permute2x128_si256(a, b, 0x31));
            }
        }
        return;
    }
    for (int64_t j = 0; j < h; j += 4) {
        const int32_t* t0 = tw + 2 * j * stride;
        const int64_t s2 = 2 * stride;
        const __m256i wr = _mm256_setr_epi64x(t0[0], t0[s2], t0[2 * s2], t0[3 * s2]);
        const __m256i wi = _mm256_setr_epi64x(t0[1], t0[s2 + 1], t0[2 * s2 + 1], t0[3 * s2 + 1]);
        for (int64_t g = 0; g < n; g += 2 * h) {
            auto* p0 = reinterpret_cast<__m256i*>(x + 2 * (g + j));
            auto* p1 = reinterpret_cast<__m256i*>(x + 2 * (g + j + h));
            __m256i a = _mm256_loadu_si256(p0), b = _mm256_loadu_si256(p1);
            butterfly4<Halve>(a, b, wr, wi);
            _mm256_storeu_si256(p0, a);
            _mm256_storeu_si256(p1, b);
        }
    }
}

int32_t peakComponentAvx2(const int32_t* x, int64_t count)
{
    __m256i m = _mm256_setzero_si256();
    int64_t i = 0;
    for (; i + 8 <= count; i += 8)
        m = _mm256_max_epu32(m, _mm256_abs_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(x + i))));
    alignas(32) uint32_t lanes[8];
    _mm256_store_si256(reinterpret_cast<__m256i*>(lanes), m);
    uint32_t r = 0;
    for (uint32_t v : lanes) r = v > r ? v : r;
    const int32_t rest = peakComponent(x + i, count - i);
    const int32_t v = r > INT32_MAX ? INT32_MAX : static_cast<int32_t>(r);
    return v > rest ? v : rest;
}

// Largest input component for which a level without halving cannot overflow:
// a component of a + bW is at most |a_c| + |b| <= (1 + sqrt 2) * limit < 2^31.
constexpr int32_t kFullScaleLimit = 759250124;  // floor(2^31 / (2 sqrt 2))

}  // namespace

ZamStatus fft16GetSize(int order, int* pSpecSize, int* pInitSize, int* pWorkSize)
{
    if (!pSpecSize || !pInitSize || !pWorkSize) return zamStsNullPtr;
    if (static_cast<unsigned>(order) > kFft16MaxOrder) return zamStsFftOrder;
    const int64_t spec = 64 + roundUp64(usedBytes(order));
    if (spec > INT_MAX) return zamStsSize;
    *pSpecSize = static_cast<int>(spec);
    *pInitSize = 0;
    *pWorkSize = 0;
    return zamStsOk;
}

ZamStatus fft16Init(Fft16Spec** ppSpec, int order, uint8_t* pMemSpec)
{
    if (!ppSpec) return zamStsNullPtr;
    if (static_cast<unsigned>(order) > kFft16MaxOrder) return zamStsFftOrder;
    if (!pMemSpec) return zamStsNullPtr;
    auto* s = alignUp<Fft16Spec>(pMemSpec, 64);
    std::memset(s, 0, sizeof(Fft16Spec));
    s->order = order;
    const int64_t n = int64_t{1} << order;
    auto* tables = reinterpret_cast<uint8_t*>(s) + sizeof(Fft16Spec);
    s->bitReverse = reinterpret_cast<uint32_t*>(tables);
    for (int64_t i = 0; i < n; ++i) s->bitReverse[i] = reverse(static_cast<uint32_t>(i), order);
    s->twiddles = reinterpret_cast<int32_t*>(tables + roundUp64(4 * n));
    for (int64_t j = 0; j < n / 2; ++j) {
        const SinCos sc = sinCosTurn(j, n);
        s->twiddles[2 * j] = q30(sc.c);
        s->twiddles[2 * j + 1] = q30(-sc.s);
    }
    s->workSize = 0;
    s->tag = kTagFft16;
    *ppSpec = s;
    return zamStsOk;
}

int fft16Levels(int32_t* data, const Fft16Spec* spec, Kernels k)
{
    const int64_t n = int64_t{1} << spec->order;
    const bool vec = k == Kernels::Avx2;
    int halvings = 0;
    for (int64_t h = 1; h < n; h *= 2) {
        const bool halve = (vec ? peakComponentAvx2(data, 2 * n) : peakComponent(data, 2 * n)) > kFullScaleLimit;
        const int64_t stride = n / (2 * h);
        if (vec && n >= 8)
            halve ? levelAvx2<1>(data, n, h, spec->twiddles, stride) : levelAvx2<0>(data, n, h, spec->twiddles, stride);
        else
            halve ? level<1>(data, n, h, spec->twiddles, stride) : level<0>(data, n, h, spec->twiddles, stride);
        halvings += halve;
    }
    return halvings;
}

ZamStatus fft16Fwd(const int32_t* src, int32_t* dst, const Fft16Spec* spec, int* pHalvings, Kernels k)
{
    if (!spec || !src || !dst) return zamStsNullPtr;
    if (spec->tag != kTagFft16) return zamStsContextMismatch;
    const int64_t n = int64_t{1} << spec->order;
    for (int64_t i = 0; i < n; ++i) {
        const uint32_t r = spec->bitReverse[i];
        dst[2 * i] = src[2 * r];
        dst[2 * i + 1] = src[2 * r + 1];
    }
    *pHalvings = fft16Levels(dst, spec, k);
    return zamStsOk;
}

}  // namespace zam
