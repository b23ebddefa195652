// 16-bit fixed-point FFT: tables, and the radix-2 levels (AVX2 and scalar twin).
#include "transform/fft16.h"

#include <immintrin.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cmath>
#include <cstring>

#include "core/memory.h"
#include "transform/trig.h"

namespace zam {

namespace {

constexpr int64_t roundUp64(int64_t b) { return roundUp(b, 64); }

// Butterflies of level h are stored in blocks of 8 (padded for h < 8).
int64_t levelBlocks(int64_t h) { return (h + 7) / 8; }

int64_t twiddleBytes(int order)
{
    int64_t bytes = 0;
    for (int64_t h = 1; h < (int64_t{1} << order); h *= 2) bytes += levelBlocks(h) * 128;
    return bytes;
}

int64_t usedBytes(int order) { return 64 + roundUp64((int64_t{4}) << order) + roundUp64(twiddleBytes(order)); }

inline int16_t q15Half(double v)
{
    double r = std::nearbyint(v * 16384.0);
    return static_cast<int16_t>(r > 32767 ? 32767 : r < -32768 ? -32768 : r);
}

inline int16_t q15Full(double v)
{
    double r = std::nearbyint(v * 32768.0);
    return static_cast<int16_t>(r > 32767 ? 32767 : r < -32768 ? -32768 : r);
}

inline int16_t sat16(int32_t v) { return static_cast<int16_t>(v > 32767 ? 32767 : v < -32768 ? -32768 : v); }
// The rounding Q15 product of _mm256_mulhrs_epi16.
inline int16_t mulhrs(int16_t a, int16_t b) { return static_cast<int16_t>((int32_t{a} * b + 0x4000) >> 15); }

uint32_t reverse(uint32_t v, int bits)
{
    uint32_t r = 0;
    for (int b = 0; b < bits; ++b) r |= ((v >> b) & 1u) << (bits - 1 - b);
    return r;
}

template <bool Halve>
void levelScalar(int16_t* x, int64_t n, int64_t h, const int16_t* tw)
{
    for (int64_t g = 0; g < n; g += 2 * h) {
        int16_t* p0 = x + 2 * g;
        int16_t* p1 = p0 + 2 * h;
        for (int64_t j = 0; j < h; ++j) {
            const int16_t* t = tw + (j >> 3) * 32 + (j & 7) * 2;
            const int16_t wr = t[0], wiNeg = t[16], wi = t[17];
            const int16_t br = p1[2 * j], bi = p1[2 * j + 1];
            const int16_t tr = sat16(mulhrs(br, wr) + mulhrs(bi, wiNeg));
            const int16_t ti = sat16(mulhrs(bi, wr) + mulhrs(br, wi));
            const int16_t ar = Halve ? mulhrs(p0[2 * j], 16384) : p0[2 * j];
            const int16_t ai = Halve ? mulhrs(p0[2 * j + 1], 16384) : p0[2 * j + 1];
            p0[2 * j] = sat16(ar + tr);
            p0[2 * j + 1] = sat16(ai + ti);
            p1[2 * j] = sat16(ar - tr);
            p1[2 * j + 1] = sat16(ai - ti);
        }
    }
}

template <bool Halve>
void levelAvx2(int16_t* x, int64_t n, int64_t h, const int16_t* tw)
{
    const __m256i half = _mm256_set1_epi16(16384);
    for (int64_t g = 0; g < n; g += 2 * h) {
        int16_t* p0 = x + 2 * g;
        int16_t* p1 = p0 + 2 * h;
        const int16_t* t = tw;
        for (int64_t j = 0; j < h; j += 8, t += 32) {
            __m256i wr = _mm256_load_si256(reinterpret_cast<const __m256i*>(t));
            __m256i wi = _mm256_load_si256(reinterpret_cast<const __m256i*>(t + 16));
            __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p0 + 2 * j));
            __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p1 + 2 * j));
            __m256i bs = _mm256_shufflehi_epi16(_mm256_shufflelo_epi16(b, 0xB1), 0xB1);
            __m256i prod = _mm256_adds_epi16(_mm256_mulhrs_epi16(b, wr), _mm256_mulhrs_epi16(bs, wi));
            __m256i ah = Halve ? _mm256_mulhrs_epi16(a, half) : a;
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(p0 + 2 * j), _mm256_adds_epi16(ah, prod));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(p1 + 2 * j), _mm256_subs_epi16(ah, prod));
        }
    }
}

// Levels h = 1, 2, 4 inside one vector of 8 complex values: the butterfly
// partners are brought side by side with lane shuffles; twiddles come from the
// same table entries the scalar twin reads, so the results are identical.
template <bool Halve>
void levelSmallAvx2(int16_t* x, int64_t n, int64_t h, const int16_t* tw)
{
    // Per complex slot of a 128-bit half: twiddle index j and sign of the result.
    alignas(32) int16_t wr[16], wi[16], sg[16];
    for (int slot = 0; slot < 8; ++slot) {
        const int pos = slot % 8;  // position inside the 8-value vector
        const int j = static_cast<int>(pos % h);
        const bool second = (pos / h) % 2 == 1;
        const int16_t* t = tw + (j >> 3) * 32 + (j & 7) * 2;
        wr[2 * slot] = wr[2 * slot + 1] = t[0];
        wi[2 * slot] = t[16];
        wi[2 * slot + 1] = t[17];
        sg[2 * slot] = sg[2 * slot + 1] = second ? -1 : 1;
    }
    const __m256i vwr = _mm256_load_si256(reinterpret_cast<const __m256i*>(wr));
    const __m256i vwi = _mm256_load_si256(reinterpret_cast<const __m256i*>(wi));
    const __m256i vsg = _mm256_load_si256(reinterpret_cast<const __m256i*>(sg));
    const __m256i half = _mm256_set1_epi16(16384);
    for (int64_t i = 0; i < n; i += 8) {
        __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(x + 2 * i));
        __m256i a, b;
        if (h == 1) {
            a = _mm256_shuffle_epi32(v, 0xA0);  // c0 c0 c2 c2
            b = _mm256_shuffle_epi32(v, 0xF5);  // c1 c1 c3 c3
        } else if (h == 2) {
            a = _mm256_shuffle_epi32(v, 0x44);  // c0 c1 c0 c1
            b = _mm256_shuffle_epi32(v, 0xEE);  // c2 c3 c2 c3
        } else {
            a = _mm256_permute2x128_si256(v, v, 0x00);
            b = _mm256_permute2x128_si256(v, v, 0x11);
        }
        __m256i bs = _mm256_shufflehi_epi16(_mm256_shufflelo_epi16(b, 0xB1), 0xB1);
        __m256i t = _mm256_adds_epi16(_mm256_mulhrs_epi16(b, vwr), _mm256_mulhrs_epi16(bs, vwi));
        __m256i ah = Halve ? _mm256_mulhrs_epi16(a, half) : a;
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(x + 2 * i), _mm256_adds_epi16(ah, _mm256_sign_epi16(t, vsg)));
    }
}

int maxComponentScalar(const int16_t* x, int64_t count)
{
    int m = 0;
    for (int64_t i = 0; i < count; ++i) m = std::max(m, std::abs(int{x[i]}));
    return m;
}

int maxComponentAvx2(const int16_t* x, int64_t count)
{
    __m256i m = _mm256_setzero_si256();
    int64_t i = 0;
    for (; i + 16 <= count; i += 16)
        m = _mm256_max_epu16(m, _mm256_abs_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(x + i))));
    alignas(32) uint16_t lanes[16];
    _mm256_store_si256(reinterpret_cast<__m256i*>(lanes), m);
    int r = 0;
    for (uint16_t v : lanes) r = std::max(r, int{v});
    return std::max(r, maxComponentScalar(x + i, count - i));
}

// Largest input component for which a level without halving cannot overflow:
// magnitudes at most sqrt(2) * 11585 can double and stay within 32767.
constexpr int kFullScaleLimit = 11585;

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
    s->twiddles = reinterpret_cast<int16_t*>(tables + roundUp64(4 * n));
    int16_t* out = s->twiddles;
    for (int64_t h = 1; h < n; h *= 2) {
        std::memset(out, 0, static_cast<size_t>(levelBlocks(h) * 128));
        for (int64_t j = 0; j < h; ++j) {
            SinCos sc = sinCosTurn(j, 2 * h);  // W = cos - i sin
            int16_t* t = out + (j >> 3) * 32 + (j & 7) * 2;
            t[0] = t[1] = q15Half(sc.c);
            t[16] = q15Half(sc.s);    // multiplies Im b into Re: -Im W = sin
            t[17] = q15Half(-sc.s);   // multiplies Re b into Im: Im W = -sin
            int16_t* f = t + levelBlocks(h) * 32;
            f[0] = f[1] = q15Full(sc.c);
            f[16] = q15Full(sc.s);
            f[17] = q15Full(-sc.s);
        }
        out += levelBlocks(h) * 64;
    }
    s->workSize = 0;
    s->tag = kTagFft16;
    *ppSpec = s;
    return zamStsOk;
}

int fft16Levels(int16_t* data, const Fft16Spec* spec, Kernels k)
{
    const int64_t n = int64_t{1} << spec->order;
    const int16_t* tw = spec->twiddles;
    const bool vec = k == Kernels::Avx2;
    int halvings = 0;
    for (int64_t h = 1; h < n; h *= 2) {
        const int peak = vec ? maxComponentAvx2(data, 2 * n) : maxComponentScalar(data, 2 * n);
        const bool halve = peak > kFullScaleLimit;
        const int16_t* t = halve ? tw : tw + levelBlocks(h) * 32;
        if (vec && h >= 8)
            halve ? levelAvx2<true>(data, n, h, t) : levelAvx2<false>(data, n, h, t);
        else if (vec && n >= 8)
            halve ? levelSmallAvx2<true>(data, n, h, t) : levelSmallAvx2<false>(data, n, h, t);
        else
            halve ? levelScalar<true>(data, n, h, t) : levelScalar<false>(data, n, h, t);
        halvings += halve;
        tw += levelBlocks(h) * 64;
    }
    return halvings;
}

ZamStatus fft16Fwd(const int16_t* src, int16_t* dst, const Fft16Spec* spec, int* pHalvings, Kernels k)
{
    if (!spec || !src || !dst) return zamStsNullPtr;
    if (spec->tag != kTagFft16) return zamStsContextMismatch;
    const int64_t n = int64_t{1} << spec->order;
    for (int64_t i = 0; i < n; ++i) {
        uint32_t r = spec->bitReverse[i];
        dst[2 * i] = src[2 * r];
        dst[2 * i + 1] = src[2 * r + 1];
    }
    *pHalvings = fft16Levels(dst, spec, k);
    return zamStsOk;
}

}  // namespace zam
