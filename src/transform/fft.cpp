// Complex FFT of 2^order points: initialisation, sizes, and the three paths
// (fixed kernels for orders 0..6, the radix path up to order 18, the large path
// beyond the caches).
#include "transform/fft.h"

#include <immintrin.h>

#include <array>
#include <cmath>
#include <cstring>

#include "core/memory.h"
#include "transform/fft_kernels.h"
#include "transform/trig.h"

namespace zam {

namespace {

using fftk::Cpx;

constexpr int64_t roundUp64(int64_t bytes) { return roundUp(bytes, 64); }

// ------------------------------------------------------------ stage plan

// The first pass does log2 R levels: 2 for order 2, 3 for odd orders, 4 for
// even orders from 4, so that radix-4 stages complete every transform.
constexpr int firstPassLevels(int order) { return order <= 2 ? order : (order % 2 ? 3 : 4); }

// Floats of stage twiddles for an order: radix-4 stages h = R, 4R, ... after the
// first pass (a radix-2 stage would close an odd remainder; the plan has none).
constexpr int64_t stageTableFloats(int order)
{
    if (order < 3) return 0;
    int64_t floats = 0, h = int64_t{1} << firstPassLevels(order);
    int levels = order - firstPassLevels(order);
    for (; levels >= 2; levels -= 2, h *= 4) floats += 12 * h;
    if (levels == 1) floats += 4 * h;
    return floats;
}

// Writes the stage tables for `order`, taking W_M^k for M = 2^tableOrder from
// `root(k)` (k < 3M/4), M >= N.
template <typename Root>
void buildStageTables(float* out, int order, int tableOrder, Root root)
{
    if (order < 3) return;
    int64_t h = int64_t{1} << firstPassLevels(order);
    int levels = order - firstPassLevels(order);
    auto put = [&](float* blk, int lane, Cpx w) {
        blk[2 * lane] = blk[2 * lane + 1] = w.re;
        blk[8 + 2 * lane] = blk[8 + 2 * lane + 1] = w.im;
    };
    for (; levels >= 2; levels -= 2, h *= 4) {
        const int64_t step = (int64_t{1} << tableOrder) / (4 * h);
        for (int64_t j = 0; j < h; ++j) {
            float* blk = out + (j >> 2) * 48;
            put(blk, int(j & 3), root(j * step));
            put(blk + 16, int(j & 3), root(2 * j * step));
            put(blk + 32, int(j & 3), root(3 * j * step));
        }
        out += 12 * h;
    }
    if (levels == 1) {
        int64_t s1 = (int64_t{1} << tableOrder) / (2 * h);
        for (int64_t j = 0; j < h; ++j) put(out + (j >> 2) * 16, int(j & 3), root(j * s1));
    }
}

// Bit reversal of the low `bits` bits.
constexpr uint32_t reverseBits(uint32_t v, int bits)
{
    if (bits == 0) return 0;
    v = ((v >> 1) & 0x55555555u) | ((v & 0x55555555u) << 1);
    v = ((v >> 2) & 0x33333333u) | ((v & 0x33333333u) << 2);
    v = ((v >> 4) & 0x0F0F0F0Fu) | ((v & 0x0F0F0F0Fu) << 4);
    v = ((v >> 8) & 0x00FF00FFu) | ((v & 0x00FF00FFu) << 8);
    v = (v >> 16) | (v << 16);
    return v >> (32 - bits);
}

// ------------------------------------------------------------ constant tables

// The shared base table of order 10: W_1024^k = exp(-2*pi*i*k/1024), k < 512.
constexpr int kBaseOrder = 10;
struct BaseTable {
    float v[1 << kBaseOrder];  // 512 complex values
};
constexpr BaseTable makeBaseTable()
{
    BaseTable t{};
    for (int k = 0; k < (1 << (kBaseOrder - 1)); ++k) {
        SinCos sc = sinCosTurn(k, 1 << kBaseOrder);
        t.v[2 * k] = static_cast<float>(sc.c);
        t.v[2 * k + 1] = static_cast<float>(-sc.s);
    }
    return t;
}
alignas(64) constexpr BaseTable kBase10 = makeBaseTable();

// Fixed tables of the small orders 3..6 (stage twiddles and group bit reversal).
template <int Order>
struct SmallTables {
    alignas(64) float tw[stageTableFloats(Order) > 0 ? stageTableFloats(Order) : 1];
    uint32_t rev[(1 << Order) / 4];
};
template <int Order>
constexpr SmallTables<Order> makeSmallTables()
{
    SmallTables<Order> t{};
    int64_t h = int64_t{1} << firstPassLevels(Order);
    int levels = Order - firstPassLevels(Order);
    float* out = t.tw;
    auto root = [](int64_t num, int64_t den) {
        SinCos sc = sinCosTurn(num, den);
        return Cpx{static_cast<float>(sc.c), static_cast<float>(-sc.s)};
    };
    auto put = [](float* blk, int lane, Cpx w) {
        blk[2 * lane] = blk[2 * lane + 1] = w.re;
        blk[8 + 2 * lane] = blk[8 + 2 * lane + 1] = w.im;
    };
    for (; levels >= 2; levels -= 2, h *= 4) {
        for (int64_t j = 0; j < h; ++j) {
            put(out + (j >> 2) * 48, int(j & 3), root(j, 4 * h));
            put(out + (j >> 2) * 48 + 16, int(j & 3), root(2 * j, 4 * h));
            put(out + (j >> 2) * 48 + 32, int(j & 3), root(3 * j, 4 * h));
        }
        out += 12 * h;
    }
    if (levels == 1)
        for (int64_t j = 0; j < h; ++j) put(out + (j >> 2) * 16, int(j & 3), root(j, 2 * h));
    for (uint32_t g = 0; g < (1u << Order) / 4; ++g) t.rev[g] = reverseBits(g, Order - 2);
    return t;
}
constexpr SmallTables<2> kSmall2 = makeSmallTables<2>();
constexpr SmallTables<3> kSmall3 = makeSmallTables<3>();
constexpr SmallTables<4> kSmall4 = makeSmallTables<4>();
constexpr SmallTables<5> kSmall5 = makeSmallTables<5>();
constexpr SmallTables<6> kSmall6 = makeSmallTables<6>();

// ------------------------------------------------------------ radix path

// Runs levels 3.. of an order-`order` transform in place on x, with the stage
// tables at tw, on groups of size 2^order (one group when x holds one transform).
void stages(float* x, int order, const float* tw, Kernels k)
{
    const int64_t n = int64_t{1} << order;
    int64_t h = int64_t{1} << firstPassLevels(order);
    int levels = order - firstPassLevels(order);
    const bool vec = k == Kernels::Avx2;
    for (; levels >= 2; levels -= 2, h *= 4) {
        for (int64_t g = 0; g < n; g += 4 * h) {
            if (vec)
                fftk::radix4BlockAvx2(x + 2 * g, int(h), tw, int(h));
            else
                fftk::radix4BlockScalar(x + 2 * g, int(h), tw, int(h));
        }
        tw += 12 * h;
    }
    if (levels == 1) {
        if (vec)
            fftk::radix2BlockAvx2(x, int(h), tw, int(h));
        else
            fftk::radix2BlockScalar(x, int(h), tw, int(h));
    }
}

// Bit-reversed gather plus the first levels, from `in` (interleaved) to `out`.
void firstPass(const float* in, float* out, int order, const uint32_t* rev, Kernels k)
{
    const int n = 1 << order;
    const bool vec = k == Kernels::Avx2;
    switch (firstPassLevels(order)) {
    case 2:
        fftk::firstPassScalar(in, out, n, rev);
        break;
    case 3:
        if (vec && n >= 32)
            fftk::firstPassRadixAvx2<3>(in, out, n, rev);
        else
            fftk::firstPassRadixScalar<3>(in, out, n, rev);
        break;
    default:
        if (vec && n >= 64)
            fftk::firstPassRadixAvx2<4>(in, out, n, rev);
        else
            fftk::firstPassRadixScalar<4>(in, out, n, rev);
        break;
    }
}

void scaleFloats(float* p, int64_t count, float s)
{
    __m256 vs = _mm256_set1_ps(s);
    int64_t i = 0;
    for (; i + 8 <= count; i += 8) _mm256_storeu_ps(p + i, _mm256_mul_ps(_mm256_loadu_ps(p + i), vs));
    for (; i < count; ++i) p[i] *= s;
}

// A transform of order 0..18 from in to out (out must not alias in unless the
// order is below 2). Tables and bit reversal as given.
void radixTransform(const float* in, float* out, int order, const uint32_t* rev, const float* tw, Kernels k)
{
    if (order == 0) {
        out[0] = in[0];
        out[1] = in[1];
        return;
    }
    if (order == 1) {
        float ar = in[0], ai = in[1], br = in[2], bi = in[3];
        out[0] = ar + br;
        out[1] = ai + bi;
        out[2] = ar - br;
        out[3] = ai - bi;
        return;
    }
    firstPass(in, out, order, rev, k);
    stages(out, order, tw, k);
}

// The fixed kernels of orders 0..6: the tables are constants, the scratch for an
// in-place call lives on the stack.
template <int Order, bool Scaled>
void smallKernel(const float* src, float* dst, float scale, Kernels k)
{
    constexpr int n = 1 << Order;
    if constexpr (Order >= 4) {
        // Whole in registers: the input is read before anything is written.
        if (k == Kernels::Avx2) {
            fftk::smallFftAvx2<Order - 2>(src, dst);
            if constexpr (Scaled)
                for (int i = 0; i < 2 * n; ++i) dst[i] *= scale;
            return;
        }
    }
    alignas(32) float tmp[2 * n];
    const float* in = src;
    if (src == dst && Order >= 2) {
        std::memcpy(tmp, src, sizeof(tmp));
        in = tmp;
    }
    const uint32_t* rev = nullptr;
    const float* tw = nullptr;
    if constexpr (Order == 2) rev = kSmall2.rev;
    if constexpr (Order == 3) rev = kSmall3.rev, tw = kSmall3.tw;
    if constexpr (Order == 4) rev = kSmall4.rev, tw = kSmall4.tw;
    if constexpr (Order == 5) rev = kSmall5.rev, tw = kSmall5.tw;
    if constexpr (Order == 6) rev = kSmall6.rev, tw = kSmall6.tw;
    radixTransform(in, dst, Order, rev, tw, k);
    if constexpr (Scaled)
        for (int i = 0; i < 2 * n; ++i) dst[i] *= scale;
}

using SmallKernelFn = void (*)(const float*, float*, float, Kernels);
constexpr SmallKernelFn kSmallKernels[7] = {smallKernel<0, false>, smallKernel<1, false>, smallKernel<2, false>,
                                            smallKernel<3, false>, smallKernel<4, false>, smallKernel<5, false>,
                                            smallKernel<6, false>};
constexpr SmallKernelFn kSmallKernelsScaled[7] = {smallKernel<0, true>, smallKernel<1, true>, smallKernel<2, true>,
                                                  smallKernel<3, true>, smallKernel<4, true>, smallKernel<5, true>,
                                                  smallKernel<6, true>};

// ------------------------------------------------------------ large path
//
// Tables: the stage tables of the block order (16), then two short tables of
// double-precision complex values, low[i] = W_N^i for i < 2^lowBits and
// high[i] = W_N^(i << lowBits), whose product gives any W_N^k, k < N/2.

constexpr int largeLowBits(int order) { return order / 2; }
constexpr int64_t largeLowCount(int order) { return int64_t{1} << largeLowBits(order); }
constexpr int64_t largeHighCount(int order) { return int64_t{1} << (order - 1 - largeLowBits(order)); }
constexpr int64_t largeTwoLevelBytes(int order) { return (largeLowCount(order) + largeHighCount(order)) * 16; }
constexpr int64_t largeStageBytes() { return roundUp64(stageTableFloats(kFftBlockOrder) * 4); }

struct LargeTables {
    const float* stage;
    const double* low;
    const double* high;
};

LargeTables largeTables(const FftSpec* s)
{
    const double* low = reinterpret_cast<const double*>(reinterpret_cast<const uint8_t*>(s->twiddles) +
                                                        largeStageBytes());
    return {s->twiddles, low, low + 2 * largeLowCount(s->order)};
}

// W_N^k from the two-level tables, in double precision (k < N; the tables cover
// half a turn and W^(k + N/2) = -W^k).
inline void largeRoot(const LargeTables& t, int order, int64_t k, double& re, double& im)
{
    const int64_t half = int64_t{1} << (order - 1);
    if (k >= half) {
        largeRoot(t, order, k - half, re, im);
        re = -re;
        im = -im;
        return;
    }
    const int lb = largeLowBits(order);
    const double* l = t.low + 2 * (k & ((int64_t{1} << lb) - 1));
    const double* h = t.high + 2 * (k >> lb);
    re = l[0] * h[0] - l[1] * h[1];
    im = l[0] * h[1] + l[1] * h[0];
}

template <typename Swap, typename Move>
void bitReversePermute(int order, bool inPlace, Swap swap, Move move)
{
    const int64_t n = int64_t{1} << order;
    for (int64_t i = 0; i < n; ++i) {
        int64_t r = reverseBits(static_cast<uint32_t>(i), order);
        if (inPlace) {
            if (i < r) swap(i, r);
        } else {
            move(i, r);
        }
    }
}

void largeTransformInterleaved(const float* src, float* dst, const FftSpec* s, Kernels k)
{
    const int order = s->order;
    const int64_t n = int64_t{1} << order;
    auto* d = reinterpret_cast<double*>(dst);
    const auto* sd = reinterpret_cast<const double*>(src);
    bitReversePermute(
        order, src == dst, [&](int64_t i, int64_t r) { std::swap(d[i], d[r]); },
        [&](int64_t i, int64_t r) { d[i] = sd[r]; });
    LargeTables t = largeTables(s);
    const int64_t block = int64_t{1} << kFftBlockOrder;
    for (int64_t b = 0; b < n; b += block) {
        fftk::firstPassInPlaceScalar<firstPassLevels(kFftBlockOrder)>(dst + 2 * b, block);
        stages(dst + 2 * b, kFftBlockOrder, t.stage, k);
    }
    // Whole-array radix-2 stages; twiddles made per chunk of butterflies.
    constexpr int kChunk = 256;
    alignas(32) float tw[kChunk * 4];
    for (int64_t h = block; h < n; h *= 2) {
        const int64_t stride = n / (2 * h);
        for (int64_t j0 = 0; j0 < h; j0 += kChunk) {
            for (int j = 0; j < kChunk; ++j) {
                double re, im;
                largeRoot(t, order, (j0 + j) * stride, re, im);
                float* blk = tw + (j >> 2) * 16;
                blk[2 * (j & 3)] = blk[2 * (j & 3) + 1] = static_cast<float>(re);
                blk[8 + 2 * (j & 3)] = blk[8 + 2 * (j & 3) + 1] = static_cast<float>(im);
            }
            for (int64_t g = 0; g < n; g += 2 * h) {
                float* x = dst + 2 * (g + j0);
                if (k == Kernels::Avx2)
                    fftk::radix2BlockAvx2(x, int(h), tw, kChunk);
                else
                    fftk::radix2BlockScalar(x, int(h), tw, kChunk);
            }
        }
    }
}

// The split layout on the large path: in place on the destination arrays with
// plain radix-2 stages.
void largeTransformSplit(const float* srcRe, const float* srcIm, float* re, float* im, const FftSpec* s)
{
    const int order = s->order;
    const int64_t n = int64_t{1} << order;
    const bool inPlace = srcRe == re && srcIm == im;
    if (!inPlace && (srcRe == re || srcIm == im || srcRe == im || srcIm == re)) {
        // Partial aliasing: bring the data into the destination first.
        if (srcRe == im && srcIm == re) {
            for (int64_t i = 0; i < n; ++i) std::swap(re[i], im[i]);
        } else {
            if (srcRe != re) std::memmove(re, srcRe, n * 4);
            if (srcIm != im) std::memmove(im, srcIm, n * 4);
        }
        srcRe = re;
        srcIm = im;
    }
    bitReversePermute(
        order, srcRe == re,
        [&](int64_t i, int64_t r) {
            std::swap(re[i], re[r]);
            std::swap(im[i], im[r]);
        },
        [&](int64_t i, int64_t r) {
            re[i] = srcRe[r];
            im[i] = srcIm[r];
        });
    LargeTables t = largeTables(s);
    // Twiddles are made per chunk of butterflies, then applied to every group,
    // so each stage streams through the arrays once.
    constexpr int kChunk = 256;
    float wr[kChunk], wi[kChunk];
    for (int64_t h = 1; h < n; h *= 2) {
        const int64_t stride = n / (2 * h);
        const int64_t chunk = h < kChunk ? h : kChunk;
        for (int64_t j0 = 0; j0 < h; j0 += chunk) {
            for (int64_t j = 0; j < chunk; ++j) {
                double r, i;
                largeRoot(t, order, (j0 + j) * stride, r, i);
                wr[j] = static_cast<float>(r);
                wi[j] = static_cast<float>(i);
            }
            for (int64_t g = j0; g < n; g += 2 * h) {
                float* r0 = re + g;
                float* i0 = im + g;
                float* r1 = re + g + h;
                float* i1 = im + g + h;
                for (int64_t j = 0; j < chunk; ++j) {
                    float br = r1[j] * wr[j] - i1[j] * wi[j];
                    float bi = i1[j] * wr[j] + r1[j] * wi[j];
                    float ar = r0[j], ai = i0[j];
                    r0[j] = ar + br;
                    i0[j] = ai + bi;
                    r1[j] = ar - br;
                    i1[j] = ai - bi;
                }
            }
        }
    }
}

// The first pass reading split input, writing interleaved output.
template <int LogR>
void splitFirstPass(const float* re, const float* im, float* out, int64_t n, const uint32_t* rev)
{
    constexpr int R = 1 << LogR;
    const int64_t stride = n / R;
    for (int64_t g = 0; g < n / R; ++g) {
        const uint32_t r = rev[static_cast<uint32_t>(g) << (LogR - 2)];
        Cpx x[R];
        for (int k = 0; k < R; ++k) {
            const int64_t at = fftk::reverseLow(k, LogR) * stride + r;
            x[k] = {re[at], im[at]};
        }
        fftk::ditGroupScalar<LogR>(x);
        for (int k = 0; k < R; ++k) out[2 * (R * g + k)] = x[k].re, out[2 * (R * g + k) + 1] = x[k].im;
    }
}

// ------------------------------------------------------------ sizes

struct Layout {
    int64_t used;   // bytes from the aligned record start
    int64_t init;   // init buffer bytes
    int64_t work;   // work buffer bytes
};

Layout layoutFor(int order)
{
    const int64_t n = int64_t{1} << order;
    if (order < 7) return {kFftClearBytes, 0, 0};
    if (order <= kFftRadixMaxOrder) {
        int64_t used = 64 + roundUp64(n) + roundUp64(stageTableFloats(order) * 4);
        int64_t init = order > kBaseOrder ? 4 * n + 64 : 0;
        return {used, init, (8 * n + 63) & ~int64_t{63}};
    }
    int64_t used = 64 + largeStageBytes() + largeTwoLevelBytes(order);
    return {used, largeTwoLevelBytes(order) + 64, 0};
}

bool validFlag(int flag) { return flag == kFftScaleFwdByN || flag == kFftScaleInvByN || flag == kFftScaleBySqrtN || flag == kFftNoScale; }

ZamStatus acquireWork(const FftSpec* s, uint8_t* pWork, uint8_t*& work, uint8_t*& allocated)
{
    allocated = nullptr;
    work = nullptr;
    if (s->workSize > 0) {
        if (!pWork) {
            allocated = static_cast<uint8_t*>(allocBytes(s->workSize));
            if (!allocated) return zamStsMemAlloc;
            work = allocated;
        } else {
            work = alignUp(pWork, 64);
        }
    }
    return zamStsOk;
}

}  // namespace

float rsqrtNewton(float x)
{
    float r = _mm_cvtss_f32(_mm_rsqrt_ss(_mm_set_ss(x)));
    return r * -0.5f * (x * r * r - 3.0f);
}

ZamStatus fftGetSize(int order, int flag, int hint, int* pSpecSize, int* pInitSize, int* pWorkSize)
{
    if (!pSpecSize || !pInitSize || !pWorkSize) return zamStsNullPtr;
    if (static_cast<unsigned>(order) > kFftMaxOrder) return zamStsFftOrder;
    if (!validFlag(flag)) return zamStsFftFlag;
    Layout l = layoutFor(order);
    *pSpecSize = static_cast<int>(64 + roundUp64(l.used > kFftClearBytes ? l.used : kFftClearBytes));
    *pInitSize = static_cast<int>(l.init);
    *pWorkSize = static_cast<int>(l.work);
    return zamStsOk;
}

ZamStatus fftInit(FftSpec** ppSpec, int order, int flag, int hint, uint8_t* pMemSpec, uint8_t* pMemInit)
{
    if (!ppSpec) return zamStsNullPtr;
    if (static_cast<unsigned>(order) > kFftMaxOrder) return zamStsFftOrder;
    if (!pMemSpec) return zamStsNullPtr;
    auto* s = alignUp<FftSpec>(pMemSpec, 64);
    std::memset(s, 0, kFftClearBytes);
    s->order = order;
    s->hint = hint;
    s->reserved = 0;
    const int64_t n = int64_t{1} << order;
    switch (flag) {
    case kFftNoScale: break;
    case kFftScaleBySqrtN:
        s->scaleFwd = s->scaleInv = 1;
        s->scale = rsqrtNewton(static_cast<float>(n));
        break;
    case kFftScaleFwdByN:
        s->scaleFwd = 1;
        s->scale = 1.0f / static_cast<float>(n);
        break;
    case kFftScaleInvByN:
        s->scaleInv = 1;
        s->scale = 1.0f / static_cast<float>(n);
        break;
    default: s->tag = 0; return zamStsFftFlag;
    }
    s->tag = kTagFftInterleaved;
    if (order < 7) {
        s->workSize = 0;
        *ppSpec = s;
        return zamStsOk;
    }
    auto* tables = reinterpret_cast<uint8_t*>(s) + sizeof(FftSpec);
    if (order <= kFftRadixMaxOrder) {
        const float* base = kBase10.v;
        int baseOrder = kBaseOrder;
        if (order > kBaseOrder) {
            if (!pMemInit) {
                s->tag = 0;
                return zamStsNullPtr;
            }
            auto* b = alignUp<float>(pMemInit, 64);
            for (int64_t k = 0; k < n / 2; ++k) {
                SinCos sc = sinCosTurn(k, n);
                b[2 * k] = static_cast<float>(sc.c);
                b[2 * k + 1] = static_cast<float>(-sc.s);
            }
            base = b;
            baseOrder = order;
        }
        s->bitReverse = reinterpret_cast<uint32_t*>(tables);
        for (uint32_t g = 0; g < n / 4; ++g) s->bitReverse[g] = reverseBits(g, order - 2);
        s->twiddles = reinterpret_cast<float*>(tables + roundUp64(n));
        const int64_t halfTurn = int64_t{1} << (baseOrder - 1);
        buildStageTables(s->twiddles, order, baseOrder, [base, halfTurn](int64_t k) {
            // the base table covers half a turn; W^(k + M/2) = -W^k
            return k < halfTurn ? Cpx{base[2 * k], base[2 * k + 1]}
                                : Cpx{-base[2 * (k - halfTurn)], -base[2 * (k - halfTurn) + 1]};
        });
        s->workSize = static_cast<int>((8 * n + 63) & ~int64_t{63});
    } else {
        if (!pMemInit) {
            s->tag = 0;
            return zamStsNullPtr;
        }
        // The two-level base tables are computed into the init buffer, then kept.
        auto* b = alignUp<double>(pMemInit, 64);
        const int lb = largeLowBits(order);
        for (int64_t i = 0; i < largeLowCount(order); ++i) {
            SinCos sc = sinCosTurn(i, n);
            b[2 * i] = sc.c;
            b[2 * i + 1] = -sc.s;
        }
        double* hi = b + 2 * largeLowCount(order);
        for (int64_t i = 0; i < largeHighCount(order); ++i) {
            SinCos sc = sinCosTurn(i << lb, n);
            hi[2 * i] = sc.c;
            hi[2 * i + 1] = -sc.s;
        }
        s->bitReverse = nullptr;
        s->twiddles = reinterpret_cast<float*>(tables);
        std::memcpy(tables + largeStageBytes(), b, largeTwoLevelBytes(order));
        LargeTables t = largeTables(s);
        // Block stage tables: W_B^k = W_N^(k * N/B).
        const int64_t up = n >> kFftBlockOrder;
        buildStageTables(s->twiddles, kFftBlockOrder, kFftBlockOrder, [&](int64_t k) {
            double re, im;
            largeRoot(t, order, k * up, re, im);
            return Cpx{static_cast<float>(re), static_cast<float>(im)};
        });
        s->workSize = 0;
    }
    *ppSpec = s;
    return zamStsOk;
}

ZamStatus fftInitSplit(FftSpec** ppSpec, int order, int flag, int hint, uint8_t* pMemSpec, uint8_t* pMemInit)
{
    ZamStatus st = fftInit(ppSpec, order, flag, hint, pMemSpec, pMemInit);
    if (st == zamStsOk) (*ppSpec)->tag = kTagFftSplit;
    return st;
}

ZamStatus fftInitAlloc(FftSpec** ppSpec, int order, int flag, int hint)
{
    if (!ppSpec) return zamStsNullPtr;
    int specSize = 0, initSize = 0, workSize = 0;
    ZamStatus st = fftGetSize(order, flag, hint, &specSize, &initSize, &workSize);
    if (st != zamStsOk) return st;
    auto* mem = static_cast<uint8_t*>(allocBytes(specSize));
    if (!mem) return zamStsMemAlloc;
    uint8_t* init = nullptr;
    if (initSize > 0) {
        init = static_cast<uint8_t*>(allocBytes(initSize));
        if (!init) {
            release(mem);
            return zamStsMemAlloc;
        }
    }
    FftSpec* s = nullptr;
    st = fftInit(&s, order, flag, hint, mem, init);
    release(init);
    if (st != zamStsOk) {
        release(mem);
        return st;
    }
    // zamMalloc memory is 64-byte aligned, so the record is the allocation itself.
    *ppSpec = reinterpret_cast<FftSpec*>(mem);
    return zamStsOk;
}

ZamStatus fftFree(FftSpec* pSpec)
{
    if (!pSpec) return zamStsNullPtr;
    auto* s = alignUp<FftSpec>(pSpec, 64);
    if (s->tag != kTagFftInterleaved && s->tag != kTagFftSplit) return zamStsContextMismatch;
    s->tag = 0;
    release(pSpec);
    return zamStsOk;
}

ZamStatus fftFwd(const float* pSrc, float* pDst, const FftSpec* pSpec, uint8_t* pWork, Kernels k)
{
    if (!pSpec) return zamStsNullPtr;
    if (pSpec->tag != kTagFftInterleaved) return zamStsContextMismatch;
    if (!pSrc || !pDst) return zamStsNullPtr;
    const int order = pSpec->order;
    if (order < 7) {
        (pSpec->scaleFwd ? kSmallKernelsScaled : kSmallKernels)[order](pSrc, pDst, pSpec->scale, k);
        return zamStsOk;
    }
    uint8_t *work, *allocated;
    ZamStatus st = acquireWork(pSpec, pWork, work, allocated);
    if (st != zamStsOk) return st;
    const int64_t n = int64_t{1} << order;
    if (order <= kFftRadixMaxOrder) {
        const float* in = pSrc;
        if (pSrc == pDst) {
            std::memcpy(work, pSrc, n * 8);
            in = reinterpret_cast<const float*>(work);
        }
        radixTransform(in, pDst, order, pSpec->bitReverse, pSpec->twiddles, k);
    } else {
        largeTransformInterleaved(pSrc, pDst, pSpec, k);
    }
    if (pSpec->scaleFwd) scaleFloats(pDst, 2 * n, pSpec->scale);
    release(allocated);
    return zamStsOk;
}

ZamStatus fftFwdSplit(const float* pSrcRe, const float* pSrcIm, float* pDstRe, float* pDstIm, const FftSpec* pSpec,
                      uint8_t* pWork, Kernels k)
{
    if (!pSpec) return zamStsNullPtr;
    if (pSpec->tag != kTagFftSplit) return zamStsContextMismatch;
    if (!pSrcRe || !pSrcIm || !pDstRe || !pDstIm) return zamStsNullPtr;
    const int order = pSpec->order;
    const int64_t n = int64_t{1} << order;
    if (order < 7) {
        alignas(32) float in[128], out[128];
        for (int64_t i = 0; i < n; ++i) in[2 * i] = pSrcRe[i], in[2 * i + 1] = pSrcIm[i];
        (pSpec->scaleFwd ? kSmallKernelsScaled : kSmallKernels)[order](in, out, pSpec->scale, k);
        for (int64_t i = 0; i < n; ++i) pDstRe[i] = out[2 * i], pDstIm[i] = out[2 * i + 1];
        return zamStsOk;
    }
    uint8_t *work, *allocated;
    ZamStatus st = acquireWork(pSpec, pWork, work, allocated);
    if (st != zamStsOk) return st;
    if (order <= kFftRadixMaxOrder) {
        // Gather the split input in bit-reversed group order into the interleaved
        // work area, run the stages there, then split into the destination.
        auto* w = reinterpret_cast<float*>(work);
        if (firstPassLevels(order) == 3)
            splitFirstPass<3>(pSrcRe, pSrcIm, w, n, pSpec->bitReverse);
        else
            splitFirstPass<4>(pSrcRe, pSrcIm, w, n, pSpec->bitReverse);
        stages(w, order, pSpec->twiddles, k);
        for (int64_t i = 0; i < n; ++i) pDstRe[i] = w[2 * i], pDstIm[i] = w[2 * i + 1];
    } else {
        largeTransformSplit(pSrcRe, pSrcIm, pDstRe, pDstIm, pSpec);
    }
    if (pSpec->scaleFwd) {
        scaleFloats(pDstRe, n, pSpec->scale);
        scaleFloats(pDstIm, n, pSpec->scale);
    }
    release(allocated);
    return zamStsOk;
}

ZamStatus fftInv(const float* pSrc, float* pDst, const FftSpec* pSpec, uint8_t* pWork, Kernels k)
{
    if (!pSpec) return zamStsNullPtr;
    if (pSpec->tag != kTagFftInterleaved) return zamStsContextMismatch;
    if (!pSrc || !pDst) return zamStsNullPtr;
    const int64_t n = int64_t{1} << pSpec->order;
    // conj(FFT(conj(x))): conjugate into the destination, transform in place.
    for (int64_t i = 0; i < n; ++i) {
        pDst[2 * i] = pSrc[2 * i];
        pDst[2 * i + 1] = -pSrc[2 * i + 1];
    }
    FftSpec plain = *pSpec;
    plain.scaleFwd = 0;
    ZamStatus st = fftFwd(pDst, pDst, &plain, pWork, k);
    if (st != zamStsOk) return st;
    const float s = pSpec->scaleInv ? pSpec->scale : 1.0f;
    for (int64_t i = 0; i < n; ++i) {
        pDst[2 * i] *= s;
        pDst[2 * i + 1] *= -s;
    }
    return zamStsOk;
}

}  // namespace zam
