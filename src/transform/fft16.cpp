// Fixed-point FFT of the 16-bit MDCT: tables and the radix-2 levels.
#include "transform/fft16.h"

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

int fft16Levels(int32_t* data, const Fft16Spec* spec)
{
    const int64_t n = int64_t{1} << spec->order;
    int halvings = 0;
    for (int64_t h = 1; h < n; h *= 2) {
        const bool halve = peakComponent(data, 2 * n) > kFullScaleLimit;
        if (halve)
            level<1>(data, n, h, spec->twiddles, n / (2 * h));
        else
            level<0>(data, n, h, spec->twiddles, n / (2 * h));
        halvings += halve;
    }
    return halvings;
}

ZamStatus fft16Fwd(const int32_t* src, int32_t* dst, const Fft16Spec* spec, int* pHalvings)
{
    if (!spec || !src || !dst) return zamStsNullPtr;
    if (spec->tag != kTagFft16) return zamStsContextMismatch;
    const int64_t n = int64_t{1} << spec->order;
    for (int64_t i = 0; i < n; ++i) {
        const uint32_t r = spec->bitReverse[i];
        dst[2 * i] = src[2 * r];
        dst[2 * i + 1] = src[2 * r + 1];
    }
    *pHalvings = fft16Levels(dst, spec);
    return zamStsOk;
}

}  // namespace zam
