// Float MDCT, forward and inverse, of lengths 12, 36 and powers of two from 32.
//
//   forward: X[k] = 2 * sum_n x[n] cos(phi(n,k)),        k = 0..N/2-1
//   inverse: y[n] = (2/N) * sum_k X[k] cos(phi(n,k)),    n = 0..N-1
//   phi(n,k) = (2*pi/N) * (n + 1/2 + N/4) * (k + 1/2)
//
// Both run as fold, pre-twiddle, complex DFT of N/4 points, post-twiddle. The
// inverse is the transpose of the forward chain: its pre- and post-twiddles have
// the same form as the forward ones (the DFT's transpose is its conjugate, which
// the two conjugations fold into the twiddles), and its unfold scatters every
// computed value to the two outputs the forward fold read it from, so only N/2
// distinct values are computed and each is written twice.
#include "transform/mdct.h"

#include <immintrin.h>

#include <climits>
#include <cstring>

#include "core/export.h"
#include "core/memory.h"
#include "core/simd.h"
#include "transform/fft_kernels.h"
#include "transform/mdct_kernels.h"
#include "transform/trig.h"

namespace zam {

namespace {

using fftk::Cpx;

int log2Of(int v) { return 31 - __builtin_clz(static_cast<unsigned>(v)); }

// ------------------------------------------------------------ small DFTs

// The fixed-length kernels are written once over a lane type: float for one
// transform, __m256 for eight transforms side by side (the hybrid bank of a
// granule). Both run the same operations in the same order without fused
// multiply-adds, so every lane gives the bits of the one-transform kernel.
inline float vadd(float a, float b) { return a + b; }
inline float vsub(float a, float b) { return a - b; }
inline float vmul(float a, float b) { return a * b; }
inline float vneg(float a) { return -a; }
inline float splat(float a, float) { return a; }
inline __m256 vadd(__m256 a, __m256 b) { return _mm256_add_ps(a, b); }
inline __m256 vsub(__m256 a, __m256 b) { return _mm256_sub_ps(a, b); }
inline __m256 vmul(__m256 a, __m256 b) { return _mm256_mul_ps(a, b); }
inline __m256 vmul(__m256 a, float b) { return _mm256_mul_ps(a, _mm256_set1_ps(b)); }
inline __m256 vmul(float a, __m256 b) { return _mm256_mul_ps(_mm256_set1_ps(a), b); }
inline __m256 vneg(__m256 a) { return _mm256_xor_ps(a, _mm256_set1_ps(-0.0f)); }
inline __m256 splat(float a, __m256) { return _mm256_set1_ps(a); }
inline __m128 vadd(__m128 a, __m128 b) { return _mm_add_ps(a, b); }
inline __m128 vsub(__m128 a, __m128 b) { return _mm_sub_ps(a, b); }
inline __m128 vmul(__m128 a, __m128 b) { return _mm_mul_ps(a, b); }
inline __m128 vmul(float a, __m128 b) { return _mm_mul_ps(_mm_set1_ps(a), b); }

template <typename V>
struct CpxOf {
    V re, im;
};

constexpr float kHalf = 0.5f;
constexpr float kSin60 = 0.8660254f;

template <typename V>
inline void dft3(CpxOf<V>& a, CpxOf<V>& b, CpxOf<V>& c)
{
    CpxOf<V> s{vadd(b.re, c.re), vadd(b.im, c.im)}, d{vsub(b.re, c.re), vsub(b.im, c.im)};
    CpxOf<V> m{vsub(a.re, vmul(kHalf, s.re)), vsub(a.im, vmul(kHalf, s.im))};
    // -i * 0.8660254 * d
    CpxOf<V> r{vmul(kSin60, d.im), vmul(-kSin60, d.re)};
    a = {vadd(a.re, s.re), vadd(a.im, s.im)};
    b = {vadd(m.re, r.re), vadd(m.im, r.im)};
    c = {vsub(m.re, r.re), vsub(m.im, r.im)};
}

constexpr Cpx w9(int k)
{
    SinCos sc = sinCosTurn(k, 9);
    return {static_cast<float>(sc.c), static_cast<float>(-sc.s)};
}
constexpr Cpx kW9[5] = {w9(0), w9(1), w9(2), w9(3), w9(4)};

template <typename V>
inline CpxOf<V> mul(CpxOf<V> a, Cpx w)
{
    return {vsub(vmul(a.re, w.re), vmul(a.im, w.im)), vadd(vmul(a.re, w.im), vmul(a.im, w.re))};
}

// Nine-point DFT as three three-point DFTs, twiddles, three more.
template <typename V>
inline void dft9(CpxOf<V>* w)
{
    CpxOf<V> y[3][3];
    for (int n2 = 0; n2 < 3; ++n2) {
        CpxOf<V> a = w[n2], b = w[n2 + 3], c = w[n2 + 6];
        dft3(a, b, c);
        y[n2][0] = a;
        y[n2][1] = b;
        y[n2][2] = c;
    }
    y[1][1] = mul(y[1][1], kW9[1]);
    y[1][2] = mul(y[1][2], kW9[2]);
    y[2][1] = mul(y[2][1], kW9[2]);
    y[2][2] = mul(y[2][2], kW9[4]);
    for (int k1 = 0; k1 < 3; ++k1) {
        CpxOf<V> a = y[0][k1], b = y[1][k1], c = y[2][k1];
        dft3(a, b, c);
        w[k1] = a;
        w[k1 + 3] = b;
        w[k1 + 6] = c;
    }
}

// ------------------------------------------------------------ fixed lengths 12, 36

// Twiddle k of an MDCT of length `len`: A sin and A cos of 2*pi*(k + 1/8)/len, with
// A = sqrt(2) forward and 1/sqrt(N/2) inverse.
constexpr Cpx twiddlePair(int len, int k, bool inverse)
{
    const double amp = inverse ? 1.0 / constSqrt(len / 2.0) : 1.4142135623730951;
    const SinCos sc = sinCosTurn(8 * int64_t{k} + 1, 8 * int64_t{len});
    return {static_cast<float>(amp * sc.s), static_cast<float>(amp * sc.c)};  // {sin, cos}
}

// The 36-point inverse's twiddles as constants: the transform object copies them, so the
// one-transform vector kernel (which takes them from here, in its lane order) and
// the object-driven paths use the same bits.
struct Inv36Twiddles {
    float s[9], c[9];
};
constexpr Inv36Twiddles makeInv36Twiddles()
{
    Inv36Twiddles t{};
    for (int k = 0; k < 9; ++k) {
        const Cpx p = twiddlePair(36, k, true);
        t.s[k] = p.re;
        t.c[k] = p.im;
    }
    return t;
}
constexpr Inv36Twiddles kInv36 = makeInv36Twiddles();

// x(i) and dst(i, value) read and write element i of the transform (of all eight
// in the lane form).
template <int N, typename V, typename In, typename Out>
void fixedForward(In x, Out dst, const float* t)
{
    constexpr int q = N / 4, half = (N + 7) / 8;
    CpxOf<V> w[q];
    for (int j = 0; j < q; ++j) {
        V a, b;
        if (j < half) {
            a = vsub(vneg(x(3 * N / 4 + 2 * j)), x(3 * N / 4 - 2 * j - 1));
            b = vsub(x(N / 4 - 2 * j - 1), x(N / 4 + 2 * j));
        } else {
            a = vsub(x(2 * j - N / 4), x(3 * N / 4 - 2 * j - 1));
            b = vsub(vneg(x(5 * N / 4 - 2 * j - 1)), x(N / 4 + 2 * j));
        }
        const float s = t[2 * j], c = t[2 * j + 1];
        w[j] = {vadd(vmul(a, c), vmul(b, s)), vsub(vmul(b, c), vmul(a, s))};
    }
    if constexpr (N == 12)
        dft3(w[0], w[1], w[2]);
    else
        dft9(w);
    for (int j = 0; j < q; ++j) {
        const float s = t[2 * j], c = t[2 * j + 1];
        dst(2 * j, vadd(vmul(w[j].re, c), vmul(w[j].im, s)));
        dst(N / 2 - 1 - 2 * j, vsub(vmul(w[j].re, s), vmul(w[j].im, c)));
    }
}

template <int N, typename V, typename In, typename Out>
void fixedInverse(In X, Out y, const float* t)
{
    constexpr int q = N / 4, half = (N + 7) / 8;
    CpxOf<V> w[q];
    for (int j = 0; j < q; ++j) {
        const V p = X(2 * j), r = X(N / 2 - 1 - 2 * j);
        const float s = t[2 * j], c = t[2 * j + 1];
        w[j] = {vadd(vmul(p, c), vmul(r, s)), vsub(vmul(r, c), vmul(p, s))};
    }
    if constexpr (N == 12)
        dft3(w[0], w[1], w[2]);
    else
        dft9(w);
    // y is written only after every input has been read (in-place safety).
    for (int j = 0; j < q; ++j) {
        const float s = t[2 * j], c = t[2 * j + 1];
        const V a = vadd(vmul(w[j].re, c), vmul(w[j].im, s));
        const V b = vsub(vmul(w[j].re, s), vmul(w[j].im, c));
        if (j < half) {
            y(3 * N / 4 + 2 * j, vneg(a));
            y(3 * N / 4 - 1 - 2 * j, vneg(a));
            y(N / 4 - 1 - 2 * j, b);
            y(N / 4 + 2 * j, vneg(b));
        } else {
            y(2 * j - N / 4, a);
            y(3 * N / 4 - 1 - 2 * j, vneg(a));
            y(5 * N / 4 - 1 - 2 * j, vneg(b));
            y(N / 4 + 2 * j, vneg(b));
        }
    }
}

template <int N>
void fixedForward(const float* x, float* dst, const float* t)
{
    fixedForward<N, float>([x](int i) { return x[i]; }, [dst](int i, float v) { dst[i] = v; }, t);
}

template <int N>
void fixedInverse(const float* X, float* y, const float* t)
{
    fixedInverse<N, float>([X](int i) { return X[i]; }, [y](int i, float v) { y[i] = v; }, t);
}

// ------------------------------------------------------------ one 36-point inverse in vectors

// The scalar 36-point inverse with its values in vector lanes, every value computed
// by the same operations in the same order (so bit-identical to fixedInverse<36>):
// the pre-twiddle and the first three-point DFTs of the nine-point DFT run with
// lane = n2 (vectors of w[0..2], w[3..5], w[6..8]), a 3x3 transpose gives lane = k1
// for the second ones, and the post-twiddle runs in the lane order of the outputs:
//   S = y[0..8]   = b4 a5 b3 a6 b2 a7 b1 a8 b0,   y[9..17]  = -S reversed,
//   U = y[18..26] = -(a4 b5 a3 b6 a2 b7 a1 b8 a0), y[27..35] = U reversed,
// with a_j, b_j the post-twiddled real and imaginary parts of DFT output j.
struct Inv36Lanes {
    alignas(16) float preC[3][4], preS[3][4];   // lane n2 of group g: twiddle 3g + n2
    alignas(16) float w9re[2][4], w9im[2][4];   // stage twiddles of y[n2][1], y[n2][2]
    alignas(32) float alpha[2][8], beta[2][8];  // S and U: value = re * alpha + im * beta
    alignas(32) float sign[8];
};

constexpr Inv36Lanes makeInv36Lanes()
{
    Inv36Lanes t{};
    for (int g = 0; g < 3; ++g)
        for (int n = 0; n < 3; ++n) {
            t.preC[g][n] = kInv36.c[3 * g + n];
            t.preS[g][n] = kInv36.s[3 * g + n];
        }
    for (int n = 0; n < 3; ++n) {
        t.w9re[0][n] = kW9[n].re;
        t.w9im[0][n] = kW9[n].im;
        t.w9re[1][n] = kW9[2 * n].re;
        t.w9im[1][n] = kW9[2 * n].im;
    }
    constexpr int order[8] = {4, 5, 3, 6, 2, 7, 1, 8};
    for (int l = 0; l < 8; ++l) {
        const int j = order[l];
        const float c = kInv36.c[j], s = kInv36.s[j];
        // a = re c + im s; b = re s + im (-c), which is re s - im c to the bit.
        const bool sIsA = (l & 1) != 0;
        t.alpha[0][l] = sIsA ? c : s;
        t.beta[0][l] = sIsA ? s : -c;
        t.alpha[1][l] = sIsA ? s : c;
        t.beta[1][l] = sIsA ? -c : s;
        t.sign[l] = -0.0f;
    }
    return t;
}

constexpr Inv36Lanes kInv36Lanes = makeInv36Lanes();

// CpxOf<__m128> drops the vector type's alignment attribute in the template
// argument, which is harmless here (the values live in registers).
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wignored-attributes"

// Twiddle lanes 1 and 2 of y by w (lane 0 has none: it is kept as it is).
inline CpxOf<__m128> stageTwiddle(CpxOf<__m128> y, const float* wr, const float* wi)
{
    const __m128 r = _mm_load_ps(wr), i = _mm_load_ps(wi);
    const CpxOf<__m128> m{vsub(vmul(y.re, r), vmul(y.im, i)), vadd(vmul(y.re, i), vmul(y.im, r))};
    return {_mm_blend_ps(m.re, y.re, 1), _mm_blend_ps(m.im, y.im, 1)};
}

void inverse36Avx2(const float* X, float* y)
{
    const Inv36Lanes& t = kInv36Lanes;
    // p_j = X[2j], r_j = X[17 - 2j] for j = 3g + lane.
    const __m128 p[3] = {_mm_setr_ps(X[0], X[2], X[4], 0), _mm_setr_ps(X[6], X[8], X[10], 0),
                         _mm_setr_ps(X[12], X[14], X[16], 0)};
    const __m128 r[3] = {_mm_setr_ps(X[17], X[15], X[13], 0), _mm_setr_ps(X[11], X[9], X[7], 0),
                         _mm_setr_ps(X[5], X[3], X[1], 0)};
    CpxOf<__m128> w[3];
    for (int g = 0; g < 3; ++g) {
        const __m128 c = _mm_load_ps(t.preC[g]), s = _mm_load_ps(t.preS[g]);
        w[g] = {vadd(vmul(p[g], c), vmul(r[g], s)), vsub(vmul(r[g], c), vmul(p[g], s))};
    }
    dft3(w[0], w[1], w[2]);  // lanes n2: w[k] holds y[n2][k]
    w[1] = stageTwiddle(w[1], t.w9re[0], t.w9im[0]);
    w[2] = stageTwiddle(w[2], t.w9re[1], t.w9im[1]);
    __m128 zr = _mm_setzero_ps(), zi = zr;
    _MM_TRANSPOSE4_PS(w[0].re, w[1].re, w[2].re, zr);
    _MM_TRANSPOSE4_PS(w[0].im, w[1].im, w[2].im, zi);
    dft3(w[0], w[1], w[2]);  // lanes k1: w[g] holds DFT outputs 3g..3g+2

    // Real and imaginary parts in the order 4 5 3 6 2 7 1 8 (output 0 apart).
    const __m256i lowIdx = _mm256_setr_epi32(5, 6, 4, 0, 2, 0, 1, 0);
    const __m256i highIdx = _mm256_setr_epi32(0, 0, 0, 0, 0, 1, 0, 2);
    const __m256 re = _mm256_blend_ps(_mm256_permutevar8x32_ps(_mm256_set_m128(w[1].re, w[0].re), lowIdx),
                                      _mm256_permutevar8x32_ps(_mm256_castps128_ps256(w[2].re), highIdx), 0xA8);
    const __m256 im = _mm256_blend_ps(_mm256_permutevar8x32_ps(_mm256_set_m128(w[1].im, w[0].im), lowIdx),
                                      _mm256_permutevar8x32_ps(_mm256_castps128_ps256(w[2].im), highIdx), 0xA8);
    const __m256 sign = _mm256_load_ps(t.sign);
    const __m256 S = _mm256_add_ps(_mm256_mul_ps(re, _mm256_load_ps(t.alpha[0])),
                                   _mm256_mul_ps(im, _mm256_load_ps(t.beta[0])));
    const __m256 U = _mm256_xor_ps(_mm256_add_ps(_mm256_mul_ps(re, _mm256_load_ps(t.alpha[1])),
                                                 _mm256_mul_ps(im, _mm256_load_ps(t.beta[1]))),
                                   sign);
    const float re0 = _mm_cvtss_f32(w[0].re), im0 = _mm_cvtss_f32(w[0].im);
    const float s0 = kInv36.s[0], c0 = kInv36.c[0];
    const float b0 = re0 * s0 - im0 * c0;
    const float u8 = -(re0 * c0 + im0 * s0);

    const __m256 negS = _mm256_xor_ps(S, sign);
    // -S1 -S0 -S7 -S6 -S5 -S4 -S3 -S2
    const __m256 rot = _mm256_permutevar8x32_ps(negS, _mm256_setr_epi32(1, 0, 7, 6, 5, 4, 3, 2));
    const __m256 head = _mm256_castps128_ps256(_mm_setr_ps(b0, -b0, 0, 0));
    const __m256 tailU = _mm256_permutevar8x32_ps(U, _mm256_setr_epi32(0, 0, 7, 6, 5, 4, 3, 2));
    // Stored as the two halves a caller windows (y[0..17] and y[18..35]), so its
    // vector loads of either half find their data in one store each.
    _mm256_storeu_ps(y, S);
    _mm256_storeu_ps(y + 8, _mm256_blend_ps(rot, head, 0x03));
    _mm_storel_pi(reinterpret_cast<__m64*>(y + 16), _mm256_castps256_ps128(rot));
    _mm256_storeu_ps(y + 18, U);
    _mm256_storeu_ps(y + 26, _mm256_blend_ps(tailU, _mm256_set1_ps(u8), 0x03));
    const __m128 lowU = _mm256_castps256_ps128(U);
    _mm_storel_pi(reinterpret_cast<__m64*>(y + 34), _mm_shuffle_ps(lowU, lowU, _MM_SHUFFLE(3, 2, 0, 1)));
}

#pragma GCC diagnostic pop

// ------------------------------------------------------------ eight at a time

// Eight rows (row r at base + r*stride, `width` floats) to lane-major columns
// cols[i][r], and back.
inline void rowsToLanes(const float* base, int64_t stride, int width, float (*cols)[8])
{
    int i = 0;
    for (; i + 8 <= width; i += 8) {
        __m256 r[8];
        for (int k = 0; k < 8; ++k) r[k] = _mm256_loadu_ps(base + k * stride + i);
        transpose8x8(r);
        for (int k = 0; k < 8; ++k) _mm256_store_ps(cols[i + k], r[k]);
    }
    for (; i < width; ++i)
        for (int k = 0; k < 8; ++k) cols[i][k] = base[k * stride + i];
}

inline void lanesToRows(float (*cols)[8], int width, float* base, int64_t stride)
{
    int i = 0;
    for (; i + 8 <= width; i += 8) {
        __m256 r[8];
        for (int k = 0; k < 8; ++k) r[k] = _mm256_load_ps(cols[i + k]);
        transpose8x8(r);
        for (int k = 0; k < 8; ++k) _mm256_storeu_ps(base + k * stride + i, r[k]);
    }
    for (; i < width; ++i)
        for (int k = 0; k < 8; ++k) base[k * stride + i] = cols[i][k];
}

template <int N, bool Inverse>
void fixedBatch(const float* src, int64_t srcStride, float* dst, int64_t dstStride, int count, const float* t)
{
    constexpr int inWidth = Inverse ? N / 2 : N, outWidth = Inverse ? N : N / 2;
    int b = 0;
    for (; b + 8 <= count; b += 8) {
        alignas(32) float in[inWidth][8];
        alignas(32) float out[outWidth][8];
        rowsToLanes(src + b * srcStride, srcStride, inWidth, in);
        auto load = [&in](int i) { return _mm256_load_ps(in[i]); };
        auto store = [&out](int i, __m256 v) { _mm256_store_ps(out[i], v); };
        if constexpr (Inverse)
            fixedInverse<N, __m256>(load, store, t);
        else
            fixedForward<N, __m256>(load, store, t);
        lanesToRows(out, outWidth, dst + b * dstStride, dstStride);
    }
    for (; b < count; ++b) {
        if constexpr (Inverse)
            fixedInverse<N>(src + b * srcStride, dst + b * dstStride, t);
        else
            fixedForward<N>(src + b * srcStride, dst + b * dstStride, t);
    }
}

// ------------------------------------------------------------ sizes and init

constexpr int kRecordBytes = 64;

int64_t twiddleAreaBytes(int len) { return roundUp(len / 2, 64) * 4; }

// Size queries; a length whose sizes do not fit in an int is refused with
// zamStsSize.
ZamStatus floatSizes(int len, int* pSpecSize, int* pInitSize, int* pWorkSize)
{
    if (!pSpecSize || !pInitSize || !pWorkSize) return zamStsNullPtr;
    int64_t spec = 0, init = 0, work = 0;
    if (len == 12 || len == 36) {
    } else if (len < 32 || !isPowerOfTwo(len) || len > (1 << 28)) {
        return zamStsSize;
    } else {
        int fs, fi, fw;
        ZamStatus st = fftGetSize(log2Of(len / 4), kFftNoScale, 0, &fs, &fi, &fw);
        if (st != zamStsOk) return st;
        spec = int64_t{fs} + 64;
        init = fi;
        work = int64_t{fw} + 64;
    }
    spec += int64_t{len / 2} * 4 + 168;
    work += int64_t{len} * 4 + 128;
    if (spec > INT_MAX || work > INT_MAX) return zamStsSize;
    *pSpecSize = static_cast<int>(spec);
    *pInitSize = static_cast<int>(init);
    *pWorkSize = static_cast<int>(work);
    return zamStsOk;
}

// Length checks in the order Init states them: sizes first, then pointers.
ZamStatus checkFloatLength(int len)
{
    if (isPowerOfTwo(len)) return len < 32 || len > (1 << 28) ? zamStsSize : zamStsOk;
    return len == 12 || len == 36 ? zamStsOk : zamStsSize;
}

void fillTwiddles(float* t, int len, bool inverse)
{
    for (int k = 0; k < len / 4; ++k) {
        const Cpx p = len == 36 && inverse ? Cpx{kInv36.s[k], kInv36.c[k]} : twiddlePair(len, k, inverse);
        const float s = p.re, c = p.im;
        if (isPowerOfTwo(len)) {
            t[(k >> 3) * 16 + (k & 7)] = s;
            t[(k >> 3) * 16 + 8 + (k & 7)] = c;
        } else {
            t[2 * k] = s;
            t[2 * k + 1] = c;
        }
    }
}

ZamStatus floatInit(uint32_t tag, MdctSpec32f** ppSpec, int len, uint8_t* pMemSpec, uint8_t* pMemInit)
{
    ZamStatus st = checkFloatLength(len);
    if (st != zamStsOk) return st;
    const bool pow2 = isPowerOfTwo(len);
    if (!ppSpec || !pMemSpec || (pow2 && !pMemInit)) return zamStsNullPtr;
    auto* s = alignUp<MdctSpec32f>(pMemSpec, 64);
    std::memset(s, 0, sizeof(MdctSpec32f));
    s->tag = tag;
    s->length = len;
    s->ownsMemory = kCallerMemory;
    s->fft = nullptr;
    s->twiddles = reinterpret_cast<float*>(reinterpret_cast<uint8_t*>(s) + kRecordBytes);
    int fftWork = 0;
    if (pow2) {
        uint8_t* fftMem = reinterpret_cast<uint8_t*>(s->twiddles) + twiddleAreaBytes(len);
        int order = log2Of(len / 4);
        st = fftInit(&s->fft, order, kFftNoScale, 0, fftMem, pMemInit);
        if (st != zamStsOk) {
            s->tag = 0;
            return st;
        }
        fftWork = s->fft->workSize;
        s->fftOrder = order;
    }
    s->workSize = fftWork + 64 + 4 * len;
    fillTwiddles(s->twiddles, len, tag == kTagMdctInv32f);
    *ppSpec = s;
    return zamStsOk;
}

ZamStatus floatInitAlloc(uint32_t tag, MdctSpec32f** ppSpec, int len)
{
    ZamStatus st = checkFloatLength(len);
    if (st != zamStsOk) return st;
    if (!ppSpec) return zamStsNullPtr;
    auto* s = static_cast<MdctSpec32f*>(allocBytes(kRecordBytes));
    if (!s) return zamStsMemAlloc;
    std::memset(s, 0, sizeof(MdctSpec32f));
    s->twiddles = static_cast<float*>(allocElements32(roundUp(len / 2, 16)));
    if (!s->twiddles) {
        release(s);
        return zamStsMemAlloc;
    }
    int fftWork = 0;
    if (isPowerOfTwo(len)) {
        int order = log2Of(len / 4);
        st = fftInitAlloc(&s->fft, order, kFftNoScale, 0);
        if (st != zamStsOk) {
            release(s->twiddles);
            release(s);
            return st;
        }
        fftWork = s->fft->workSize;
        s->fftOrder = order;
    }
    s->tag = tag;
    s->length = len;
    s->workSize = fftWork + 64 + 4 * len;
    s->ownsMemory = kOwnedByLibrary;
    fillTwiddles(s->twiddles, len, tag == kTagMdctInv32f);
    *ppSpec = s;
    return zamStsOk;
}

MdctSpec32f* locate(const void* p) { return alignUp<MdctSpec32f>(p, 64); }

ZamStatus floatFree(uint32_t tag, void* pSpec)
{
    if (!pSpec) return zamStsNullPtr;
    MdctSpec32f* s = locate(pSpec);
    if (s->tag != tag) return zamStsContextMismatch;
    s->tag = 0;
    if (s->ownsMemory == kOwnedByLibrary) {
        release(s->twiddles);
        if (s->fft) fftFree(s->fft);
        release(pSpec);
    }
    return zamStsOk;
}

ZamStatus floatBufSize(uint32_t tag, const void* pSpec, int* pSize)
{
    if (!pSpec || !pSize) return zamStsNullPtr;
    const MdctSpec32f* s = locate(pSpec);
    if (s->tag != tag) return zamStsContextMismatch;
    *pSize = s->workSize;
    return zamStsOk;
}

// Runs a transform: checks, work buffer (none for the fixed lengths, which keep
// their few values on the stack), core.
ZamStatus floatTransform(uint32_t tag, const float* src, float* dst, const void* pSpec, uint8_t* pBuffer)
{
    if (!pSpec) return zamStsNullPtr;
    const MdctSpec32f* s = locate(pSpec);
    if (s->tag != tag) return zamStsContextMismatch;
    if (!src || !dst) return zamStsNullPtr;
    const bool inverse = tag == kTagMdctInv32f;
    if (inverse && s->length == 36) {
        inverse36Avx2(src, dst);
        return zamStsOk;
    }
    if (inverse && s->length == 12) {
        fixedInverse<12>(src, dst, s->twiddles);
        return zamStsOk;
    }
    if (s->length == 12 || s->length == 36) {
        if (inverse)
            mdctInvCore(src, dst, s, nullptr, Kernels::Avx2);
        else
            mdctFwdCore(src, dst, s, nullptr, Kernels::Avx2);
        return zamStsOk;
    }
    uint8_t* allocated = nullptr;
    float* work;
    if (pBuffer) {
        work = alignUp<float>(pBuffer, 64);
    } else {
        allocated = static_cast<uint8_t*>(allocBytes(s->workSize));
        if (!allocated) return zamStsMemAlloc;
        work = reinterpret_cast<float*>(allocated);
    }
    if (inverse)
        mdctInvCore(src, dst, s, work, Kernels::Avx2);
    else
        mdctFwdCore(src, dst, s, work, Kernels::Avx2);
    release(allocated);
    return zamStsOk;
}

}  // namespace

// Work layout for power-of-two N: the folded values (N/4 complex) at the start,
// the FFT output (N/4 complex) behind them, the FFT's own scratch after 4*N bytes.
void mdctFwdCore(const float* x, float* dst, const MdctSpec32f* s, float* work, Kernels k)
{
    const int n = s->length;
    if (n == 12) return fixedForward<12>(x, dst, s->twiddles);
    if (n == 36) return fixedForward<36>(x, dst, s->twiddles);
    float* folded = work;
    float* spectrum = work + n / 2;
    if (k == Kernels::Avx2)
        mdctk::foldPreTwiddleAvx2(x, folded, s->twiddles, n);
    else
        mdctk::foldPreTwiddleScalar(x, folded, s->twiddles, n);
    fftFwd(folded, spectrum, s->fft, reinterpret_cast<uint8_t*>(work + n), k);
    if (k == Kernels::Avx2)
        mdctk::postTwiddleAvx2(spectrum, dst, s->twiddles, n);
    else
        mdctk::postTwiddleScalar(spectrum, dst, s->twiddles, n);
}

void mdctFixedBatch(const float* src, int64_t srcStride, float* dst, int64_t dstStride, int count,
                    const MdctSpec32f* s)
{
    const bool inverse = s->tag == kTagMdctInv32f;
    if (s->length == 12) {
        if (inverse)
            fixedBatch<12, true>(src, srcStride, dst, dstStride, count, s->twiddles);
        else
            fixedBatch<12, false>(src, srcStride, dst, dstStride, count, s->twiddles);
    } else {
        if (inverse)
            fixedBatch<36, true>(src, srcStride, dst, dstStride, count, s->twiddles);
        else
            fixedBatch<36, false>(src, srcStride, dst, dstStride, count, s->twiddles);
    }
}

void mdctInvCore(const float* X, float* y, const MdctSpec32f* s, float* work, Kernels k)
{
    const int n = s->length;
    if (n == 12) return fixedInverse<12>(X, y, s->twiddles);
    if (n == 36) {
        if (k == Kernels::Avx2) return inverse36Avx2(X, y);
        return fixedInverse<36>(X, y, s->twiddles);
    }
    float* twisted = work;
    float* spectrum = work + n / 2;
    if (k == Kernels::Avx2)
        mdctk::invPreTwiddleAvx2(X, twisted, s->twiddles, n);
    else
        mdctk::invPreTwiddleScalar(X, twisted, s->twiddles, n);
    fftFwd(twisted, spectrum, s->fft, reinterpret_cast<uint8_t*>(work + n), k);
    if (k == Kernels::Avx2)
        mdctk::invPostUnfoldAvx2(spectrum, y, s->twiddles, n);
    else
        mdctk::invPostUnfoldScalar(spectrum, y, s->twiddles, n);
}

}  // namespace zam

using zam::MdctSpec32f;

// ------------------------------------------------------------ exports

ZAM_API ZamStatus zamsMDCTInvGetSize_32f(int len, int* pSpecSize, int* pInitBufSize, int* pWorkBufSize)
{
    return zam::floatSizes(len, pSpecSize, pInitBufSize, pWorkBufSize);
}

ZAM_API ZamStatus zamsMDCTFwdGetSize_32f(int len, int* pSpecSize, int* pInitBufSize, int* pWorkBufSize)
{
    return zamsMDCTInvGetSize_32f(len, pSpecSize, pInitBufSize, pWorkBufSize);
}

ZAM_API ZamStatus zamsMDCTFwdInit_32f(MdctFwdSpec_32f** ppMDCTSpec, int len, uint8_t* pMemSpec, uint8_t* pMemInit)
{
    return zam::floatInit(zam::kTagMdctFwd32f, reinterpret_cast<MdctSpec32f**>(ppMDCTSpec), len, pMemSpec,
                          pMemInit);
}

ZAM_API ZamStatus zamsMDCTInvInit_32f(MdctInvSpec_32f** ppMDCTSpec, int len, uint8_t* pMemSpec, uint8_t* pMemInit)
{
    return zam::floatInit(zam::kTagMdctInv32f, reinterpret_cast<MdctSpec32f**>(ppMDCTSpec), len, pMemSpec,
                          pMemInit);
}

ZAM_API ZamStatus zamsMDCTFwdInitAlloc_32f(MdctFwdSpec_32f** ppMDCTSpec, int len)
{
    return zam::floatInitAlloc(zam::kTagMdctFwd32f, reinterpret_cast<MdctSpec32f**>(ppMDCTSpec), len);
}

ZAM_API ZamStatus zamsMDCTInvInitAlloc_32f(MdctInvSpec_32f** ppMDCTSpec, int len)
{
    return zam::floatInitAlloc(zam::kTagMdctInv32f, reinterpret_cast<MdctSpec32f**>(ppMDCTSpec), len);
}

ZAM_API ZamStatus zamsMDCTFwdFree_32f(MdctFwdSpec_32f* pMDCTSpec) { return zam::floatFree(zam::kTagMdctFwd32f, pMDCTSpec); }

ZAM_API ZamStatus zamsMDCTInvFree_32f(MdctInvSpec_32f* pMDCTSpec) { return zam::floatFree(zam::kTagMdctInv32f, pMDCTSpec); }

ZAM_API ZamStatus zamsMDCTFwdGetBufSize_32f(const MdctFwdSpec_32f* pMDCTSpec, int* pSize)
{
    return zam::floatBufSize(zam::kTagMdctFwd32f, pMDCTSpec, pSize);
}

ZAM_API ZamStatus zamsMDCTInvGetBufSize_32f(const MdctInvSpec_32f* pMDCTSpec, int* pSize)
{
    return zam::floatBufSize(zam::kTagMdctInv32f, pMDCTSpec, pSize);
}

ZAM_API ZamStatus zamsMDCTFwd_32f(const float* pSrc, float* pDst, const MdctFwdSpec_32f* pMDCTSpec, uint8_t* pBuffer)
{
    return zam::floatTransform(zam::kTagMdctFwd32f, pSrc, pDst, pMDCTSpec, pBuffer);
}

ZAM_API ZamStatus zamsMDCTInv_32f(const float* pSrc, float* pDst, const MdctInvSpec_32f* pMDCTSpec, uint8_t* pBuffer)
{
    return zam::floatTransform(zam::kTagMdctInv32f, pSrc, pDst, pMDCTSpec, pBuffer);
}

ZAM_API ZamStatus zamsMDCTFwd_32f_I(float* pSrcDst, const MdctFwdSpec_32f* pMDCTSpec, uint8_t* pBuffer)
{
    return zam::floatTransform(zam::kTagMdctFwd32f, pSrcDst, pSrcDst, pMDCTSpec, pBuffer);
}

ZAM_API ZamStatus zamsMDCTInv_32f_I(float* pSrcDst, const MdctInvSpec_32f* pMDCTSpec, uint8_t* pBuffer)
{
    return zam::floatTransform(zam::kTagMdctInv32f, pSrcDst, pSrcDst, pMDCTSpec, pBuffer);
}
