// MP3 float polyphase filter banks (32 bands, 512-tap window), analysis and
// synthesis, one granule (18 time slots) per call.
//
// Synthesis. The 64-value vector V of one time slot is built from the 32-point
// cosine transform X[m] = sum_k S[k] cos((2k + 1) m pi / 64): V[0..15] = X[16..31],
// V[16] = 0, V[17..31] = -X[31..17], V[32..48] = -X[16..0], V[49..63] = -X[1..15].
// So X alone (32 values) is the slot's whole contribution, and the delay line
// keeps X of the last 16 slots. Each slot stores it reordered as
//   Y[0..15] = X[16..31], Y[16] = X[0], Y[16 + j] = X[16 - j] (j = 1..15),
// which makes the two outputs j and 32 - j read the same stored values:
//   out[j]      = sum_p  D[64p + j]      Y_2p[j] - D[64p + 32 + j] Y_2p+1[16 + j]
//   out[32 - j] = sum_p -D[64p + 32 - j] Y_2p[j] - D[64p + 64 - j] Y_2p+1[16 + j]
// where Y_a is the slot a slots back. Lanes j = 0 and 16 take special
// coefficients (out[0] needs X[16] of the odd slots, which sits in Y[0]).
//
// Analysis. The 512-sample input history is kept as 16 blocks of 32 samples in
// the standard's order (newest sample last in time, X[0] first in the block);
// windowing gives Y[0..63], the cosine matrix cos((2k + 1)(i - 16) pi / 64) is
// folded to a 32x32 one on T[n] by its symmetries.
#include "transform/pqmf_mp3.h"

#include <immintrin.h>

#include <array>
#include <cstring>

#include "core/export.h"
#include "core/memory.h"
#include "core/simd.h"
#include "transform/pqmf_mp3_window.h"

namespace zam {
namespace {

constexpr uint32_t kTagAnalysis = fourCharTag('h');
constexpr uint32_t kTagSynthesis = fourCharTag('g');
constexpr int32_t kInitialPosition = 15;

// cos(pi * num / den) in double precision, usable at compile time with any
// compiler: reduction to [0, pi/2] by symmetry, then the Taylor series.
constexpr double cosPiFraction(int64_t num, int64_t den)
{
    constexpr double kPi = 3.141592653589793238462643383279502884;
    int64_t r = num % (2 * den);
    if (r < 0) r += 2 * den;
    if (r > den) r = 2 * den - r;  // cos(2pi - a) = cos(a)
    double sign = 1.0;
    if (2 * r > den) {  // cos(pi - a) = -cos(a)
        r = den - r;
        sign = -1.0;
    }
    const double a = kPi * static_cast<double>(r) / static_cast<double>(den);
    const double a2 = a * a;
    double term = 1.0;
    double sum = 1.0;
    for (int n = 1; n < 24; ++n) {
        term *= -a2 / static_cast<double>((2 * n - 1) * (2 * n));
        sum += term;
    }
    return sign * sum;
}

constexpr float synthesisWindow(int i) { return static_cast<float>(kPqmfWindowN[i]) / 65536.0f; }
constexpr float analysisWindow(int i) { return static_cast<float>(kPqmfWindowN[i]) / 2097152.0f; }

// Index of X held in slot element y of the synthesis delay line.
constexpr int storedCosineIndex(int y)
{
    if (y < 16) return 16 + y;
    if (y == 16) return 0;
    return 32 - y;  // 16 - (y - 16)
}

// Factors 1 / (2 cos((2n + 1) pi / (2N))) of the even/odd split of an N-point DCT-II.
template <int N>
struct DctSplitFactors {
    float f[N / 2];
};

template <int N>
constexpr DctSplitFactors<N> makeSplitFactors()
{
    DctSplitFactors<N> t{};
    for (int n = 0; n < N / 2; ++n) t.f[n] = static_cast<float>(0.5 / cosPiFraction(2 * n + 1, 2 * N));
    return t;
}

template <int N>
constexpr DctSplitFactors<N> kSplit = makeSplitFactors<N>();

// Arithmetic on one float or on eight (one lane per time slot), for the shared DCT.
inline float vadd(float a, float b) { return a + b; }
inline float vsub(float a, float b) { return a - b; }
inline float vmul(float a, float b) { return a * b; }
inline __m256 vadd(__m256 a, __m256 b) { return _mm256_add_ps(a, b); }
inline __m256 vsub(__m256 a, __m256 b) { return _mm256_sub_ps(a, b); }
inline __m256 vmul(__m256 a, float b) { return _mm256_mul_ps(a, _mm256_set1_ps(b)); }

// In-place DCT-II, X[m] = sum_k x[k] cos((2k + 1) m pi / 2N), by the even/odd split:
// the even outputs are the half-size DCT of x[n] + x[N-1-n], the odd ones the sums
// of neighbours of the half-size DCT of (x[n] - x[N-1-n]) / (2 cos((2n + 1) pi / 2N)).
template <int N, typename V>
inline void dctII(V* x)
{
    if constexpr (N == 1) {
        return;
    } else {
        V even[N / 2], odd[N / 2];
        for (int n = 0; n < N / 2; ++n) {
            even[n] = vadd(x[n], x[N - 1 - n]);
            odd[n] = vmul(vsub(x[n], x[N - 1 - n]), kSplit<N>.f[n]);
        }
        dctII<N / 2>(even);
        dctII<N / 2>(odd);
        for (int k = 0; k < N / 2 - 1; ++k) {
            x[2 * k] = even[k];
            x[2 * k + 1] = vadd(odd[k], odd[k + 1]);
        }
        x[N - 2] = even[N / 2 - 1];
        x[N - 1] = odd[N / 2 - 1];
    }
}

struct SynthesisTables {
    alignas(64) float evenLow[8][16];  // out[j],      on Y_2p[j]
    alignas(64) float oddLow[8][16];   // out[j],      on Y_2p+1[16 + j]
    alignas(64) float evenHigh[8][16]; // out[32 - j], on Y_2p[j]   (lane 0: out[16])
    alignas(64) float oddHigh[8][16];  // out[32 - j], on Y_2p+1[16 + j]
    alignas(64) float firstOdd[8];     // out[0],      on Y_2p+1[0]
};

constexpr SynthesisTables makeSynthesisTables()
{
    SynthesisTables t{};
    for (int p = 0; p < 8; ++p) {
        for (int j = 0; j < 16; ++j) {
            t.evenLow[p][j] = synthesisWindow(64 * p + j);
            t.oddLow[p][j] = j == 0 ? 0.0f : -synthesisWindow(64 * p + 32 + j);
            t.evenHigh[p][j] = j == 0 ? 0.0f : -synthesisWindow(64 * p + 32 - j);
            t.oddHigh[p][j] = j == 0 ? -synthesisWindow(64 * p + 48) : -synthesisWindow(64 * p + 64 - j);
        }
        t.firstOdd[p] = -synthesisWindow(64 * p + 32);
    }
    return t;
}

struct AnalysisTables {
    alignas(64) float window[512];     // C[i]
    alignas(64) float cosine[32][32];  // [n][k]: weight of T[n] in S[k]
};

constexpr AnalysisTables makeAnalysisTables()
{
    AnalysisTables t{};
    for (int i = 0; i < 512; ++i) t.window[i] = analysisWindow(i);
    for (int n = 0; n < 32; ++n)
        for (int k = 0; k < 32; ++k) t.cosine[n][k] = static_cast<float>(cosPiFraction((2 * k + 1) * n, 64));
    return t;
}

constexpr SynthesisTables kSynthesis = makeSynthesisTables();
constexpr AnalysisTables kAnalysis = makeAnalysisTables();

inline float* ringSlot(float* delay, int32_t position, int age)
{
    return delay + ((position - age) & (kPqmfRingSlots - 1)) * kPqmfBands;
}

// Writes the 32 outputs of one slot from the two halves computed in lanes.
inline void scatterSynthesisOutput(const float* low, const float* high, float* dst, int stride)
{
    for (int j = 0; j < 16; ++j) dst[j * stride] = low[j];
    dst[16 * stride] = high[0];
    for (int j = 1; j < 16; ++j) dst[(32 - j) * stride] = high[j];
}

// Folds the 64 windowed values of an analysis slot onto the 32 cosine inputs.
inline void foldAnalysis(const float* y, float* t)
{
    t[0] = y[16];
    for (int n = 1; n < 16; ++n) t[n] = y[16 + n] + y[16 - n];
    t[16] = y[32] + y[0];
    for (int n = 17; n < 32; ++n) t[n] = y[16 + n] - y[80 - n];
}

inline void loadAnalysisBlock(const float* src, int t, int stride, float* block)
{
    // The standard's input vector holds the slot's first sample at X[31].
    for (int r = 0; r < 32; ++r) block[r] = src[(t * 32 + 31 - r) * stride];
}

}  // namespace

// ------------------------------------------------------------------ synthesis

// The outputs of one slot from its stored vector Y_0 (newest) and the 15 before it;
// `slot(a)` gives the stored vector a slots back.
template <typename SlotOf>
inline void synthesizeSlotScalar(SlotOf slot, float* out, int stride)
{
    const SynthesisTables& tab = kSynthesis;
    float low[16] = {};
    float high[16] = {};
    float first = 0.0f;
    for (int p = 0; p < 8; ++p) {
        const float* even = slot(2 * p);
        const float* odd = slot(2 * p + 1);
        for (int j = 0; j < 16; ++j) {
            low[j] += tab.evenLow[p][j] * even[j] + tab.oddLow[p][j] * odd[16 + j];
            high[j] += tab.evenHigh[p][j] * even[j] + tab.oddHigh[p][j] * odd[16 + j];
        }
        first += tab.firstOdd[p] * odd[0];
    }
    low[0] += first;
    scatterSynthesisOutput(low, high, out, stride);
}

void pqmfSynthesisScalar(const float* src, float* dst, float* delay, int32_t& position, int stride)
{
    for (int t = 0; t < kPqmfSlots; ++t) {
        float x[32];
        for (int k = 0; k < 32; ++k) x[k] = src[k * kPqmfSlots + t];
        dctII<32>(x);
        position = (position + 1) & (kPqmfRingSlots - 1);
        float* y = ringSlot(delay, position, 0);
        for (int i = 0; i < 32; ++i) y[i] = x[storedCosineIndex(i)];
        const int32_t pos = position;
        synthesizeSlotScalar([&](int age) { return ringSlot(delay, pos, age); }, dst + t * 32 * stride, stride);
    }
}

namespace {

// The stored vectors Y of `count` (up to 8) consecutive slots from t0 on, written
// to rows[0..count-1]; the cosine transform runs on eight slots at once.
inline void storedVectorsAvx2(const float* src, int t0, int count, float (*rows)[32])
{
    __m256 x[32];
    if (count == 8) {
        for (int k = 0; k < 32; ++k) x[k] = _mm256_loadu_ps(src + k * kPqmfSlots + t0);
    } else {
        alignas(32) int32_t lanes[8];
        for (int i = 0; i < 8; ++i) lanes[i] = i < count ? -1 : 0;
        const __m256i mask = _mm256_load_si256(reinterpret_cast<const __m256i*>(lanes));
        for (int k = 0; k < 32; ++k) x[k] = _mm256_maskload_ps(src + k * kPqmfSlots + t0, mask);
    }
    dctII<32>(x);
    for (int q = 0; q < 4; ++q) {
        __m256 r[8];
        for (int i = 0; i < 8; ++i) r[i] = x[storedCosineIndex(8 * q + i)];
        transpose8x8(r);
        for (int t = 0; t < count; ++t) _mm256_store_ps(rows[t] + 8 * q, r[t]);
    }
}

inline void copySlot(const float* from, float* to)
{
    for (int i = 0; i < kPqmfBands; i += 8) _mm256_storeu_ps(to + i, _mm256_loadu_ps(from + i));
}

}  // namespace

void pqmfSynthesisAvx2(const float* src, float* dst, float* delay, int32_t& position, int stride)
{
    const SynthesisTables& tab = kSynthesis;
    // The 16 stored slots in time order (read in place from the ring), then the
    // granule's 18.
    alignas(32) float fresh[kPqmfSlots][32];
    const float* line[kPqmfRingSlots + kPqmfSlots];
    for (int age = 0; age < kPqmfRingSlots; ++age) line[kPqmfRingSlots - 1 - age] = ringSlot(delay, position, age);
    for (int t = 0; t < kPqmfSlots; ++t) line[kPqmfRingSlots + t] = fresh[t];
    storedVectorsAvx2(src, 0, 8, fresh);
    storedVectorsAvx2(src, 8, 8, fresh + 8);
    storedVectorsAvx2(src, 16, 2, fresh + 16);

    auto emit = [&](int t, __m256 l0, __m256 l1, __m256 h0, __m256 h1, float first) {
        float* out = dst + t * 32 * stride;
        if (stride == 1) {
            // out[0] gets the odd slots' X[16] terms on top of lane 0.
            l0 = _mm256_add_ps(l0, _mm256_setr_ps(first, 0, 0, 0, 0, 0, 0, 0));
            _mm256_storeu_ps(out, l0);
            _mm256_storeu_ps(out + 8, l1);
            // out[16..31] = high[0], high[15], high[14], ..., high[1]
            const __m256i reverse = _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0);
            const __m256i rotate = _mm256_setr_epi32(7, 0, 1, 2, 3, 4, 5, 6);
            const __m256 r1 = _mm256_permutevar8x32_ps(h1, reverse);  // high[15..8]
            const __m256 r0 = _mm256_permutevar8x32_ps(h0, reverse);  // high[7..0]
            _mm256_storeu_ps(out + 16, _mm256_permutevar8x32_ps(_mm256_blend_ps(r1, r0, 0x80), rotate));
            _mm256_storeu_ps(out + 24, _mm256_permutevar8x32_ps(_mm256_blend_ps(r0, r1, 0x80), rotate));
        } else {
            alignas(32) float low[16];
            alignas(32) float high[16];
            _mm256_store_ps(low, l0);
            _mm256_store_ps(low + 8, l1);
            _mm256_store_ps(high, h0);
            _mm256_store_ps(high + 8, h1);
            low[0] += first;
            scatterSynthesisOutput(low, high, out, stride);
        }
    };

    // Two slots at a time: they share the window coefficients, and the even vector
    // of the first is the odd vector of the second.
    for (int t = 0; t < kPqmfSlots; t += 2) {
        const int newest = kPqmfRingSlots + t;  // slot t; slot t + 1 is one later
        __m256 la0 = _mm256_setzero_ps(), la1 = la0, ha0 = la0, ha1 = la0;
        __m256 lb0 = la0, lb1 = la0, hb0 = la0, hb1 = la0;
        float firstA = 0.0f, firstB = 0.0f;
        for (int p = 0; p < 8; ++p) {
            const float* later = line[newest + 1 - 2 * p];  // even of t + 1
            const float* shared = line[newest - 2 * p];     // even of t, odd of t + 1
            const float* earlier = line[newest - 2 * p - 1];  // odd of t
            const __m256 el0 = _mm256_load_ps(tab.evenLow[p]), el1 = _mm256_load_ps(tab.evenLow[p] + 8);
            const __m256 ol0 = _mm256_load_ps(tab.oddLow[p]), ol1 = _mm256_load_ps(tab.oddLow[p] + 8);
            const __m256 eh0 = _mm256_load_ps(tab.evenHigh[p]), eh1 = _mm256_load_ps(tab.evenHigh[p] + 8);
            const __m256 oh0 = _mm256_load_ps(tab.oddHigh[p]), oh1 = _mm256_load_ps(tab.oddHigh[p] + 8);
            const __m256 ea0 = _mm256_loadu_ps(shared), ea1 = _mm256_loadu_ps(shared + 8);
            const __m256 oa0 = _mm256_loadu_ps(earlier + 16), oa1 = _mm256_loadu_ps(earlier + 24);
            const __m256 eb0 = _mm256_loadu_ps(later), eb1 = _mm256_loadu_ps(later + 8);
            const __m256 ob0 = _mm256_loadu_ps(shared + 16), ob1 = _mm256_loadu_ps(shared + 24);
            la0 = _mm256_fmadd_ps(el0, ea0, la0);
            la1 = _mm256_fmadd_ps(el1, ea1, la1);
            lb0 = _mm256_fmadd_ps(el0, eb0, lb0);
            lb1 = _mm256_fmadd_ps(el1, eb1, lb1);
            ha0 = _mm256_fmadd_ps(eh0, ea0, ha0);
            ha1 = _mm256_fmadd_ps(eh1, ea1, ha1);
            hb0 = _mm256_fmadd_ps(eh0, eb0, hb0);
            hb1 = _mm256_fmadd_ps(eh1, eb1, hb1);
            la0 = _mm256_fmadd_ps(ol0, oa0, la0);
            la1 = _mm256_fmadd_ps(ol1, oa1, la1);
            lb0 = _mm256_fmadd_ps(ol0, ob0, lb0);
            lb1 = _mm256_fmadd_ps(ol1, ob1, lb1);
            ha0 = _mm256_fmadd_ps(oh0, oa0, ha0);
            ha1 = _mm256_fmadd_ps(oh1, oa1, ha1);
            hb0 = _mm256_fmadd_ps(oh0, ob0, hb0);
            hb1 = _mm256_fmadd_ps(oh1, ob1, hb1);
            firstA += tab.firstOdd[p] * earlier[0];
            firstB += tab.firstOdd[p] * shared[0];
        }
        emit(t, la0, la1, ha0, ha1, firstA);
        emit(t + 1, lb0, lb1, hb0, hb1, firstB);
    }

    position = (position + kPqmfSlots) & (kPqmfRingSlots - 1);
    for (int age = 0; age < kPqmfRingSlots; ++age) copySlot(fresh[kPqmfSlots - 1 - age], ringSlot(delay, position, age));
}

// ------------------------------------------------------------------ analysis

void pqmfAnalysisScalar(const float* src, float* dst, float* delay, int32_t& position, int stride)
{
    const AnalysisTables& tab = kAnalysis;
    for (int t = 0; t < kPqmfSlots; ++t) {
        position = (position + 1) & (kPqmfRingSlots - 1);
        loadAnalysisBlock(src, t, stride, ringSlot(delay, position, 0));
        float y[64];
        for (int i = 0; i < 64; ++i) {
            float acc = 0.0f;
            for (int j = 0; j < 8; ++j)
                acc += tab.window[i + 64 * j] * ringSlot(delay, position, 2 * j + (i >> 5))[i & 31];
            y[i] = acc;
        }
        float folded[32];
        foldAnalysis(y, folded);
        for (int k = 0; k < 32; ++k) {
            float acc = 0.0f;
            for (int n = 0; n < 32; ++n) acc += folded[n] * tab.cosine[n][k];
            dst[k * kPqmfSlots + t] = acc;
        }
    }
}

void pqmfAnalysisAvx2(const float* src, float* dst, float* delay, int32_t& position, int stride)
{
    const AnalysisTables& tab = kAnalysis;
    alignas(32) float y[64];
    alignas(32) float folded[32];
    alignas(32) float s[32];
    for (int t = 0; t < kPqmfSlots; ++t) {
        position = (position + 1) & (kPqmfRingSlots - 1);
        float* block = ringSlot(delay, position, 0);
        if (stride == 1) {
            const __m256i reverse = _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0);
            const float* in = src + t * 32;
            for (int q = 0; q < 4; ++q)
                _mm256_storeu_ps(block + 8 * q, _mm256_permutevar8x32_ps(_mm256_loadu_ps(in + 24 - 8 * q), reverse));
        } else {
            loadAnalysisBlock(src, t, stride, block);
        }
        for (int half = 0; half < 2; ++half) {
            __m256 a0 = _mm256_setzero_ps(), a1 = a0, a2 = a0, a3 = a0;
            for (int j = 0; j < 8; ++j) {
                const float* b = ringSlot(delay, position, 2 * j + half);
                const float* w = tab.window + 64 * j + 32 * half;
                a0 = _mm256_fmadd_ps(_mm256_load_ps(w + 0), _mm256_loadu_ps(b + 0), a0);
                a1 = _mm256_fmadd_ps(_mm256_load_ps(w + 8), _mm256_loadu_ps(b + 8), a1);
                a2 = _mm256_fmadd_ps(_mm256_load_ps(w + 16), _mm256_loadu_ps(b + 16), a2);
                a3 = _mm256_fmadd_ps(_mm256_load_ps(w + 24), _mm256_loadu_ps(b + 24), a3);
            }
            _mm256_store_ps(y + 32 * half + 0, a0);
            _mm256_store_ps(y + 32 * half + 8, a1);
            _mm256_store_ps(y + 32 * half + 16, a2);
            _mm256_store_ps(y + 32 * half + 24, a3);
        }
        foldAnalysis(y, folded);
        __m256 s0 = _mm256_setzero_ps(), s1 = s0, s2 = s0, s3 = s0;
        for (int n = 0; n < 32; ++n) {
            const __m256 f = _mm256_broadcast_ss(folded + n);
            s0 = _mm256_fmadd_ps(f, _mm256_load_ps(tab.cosine[n] + 0), s0);
            s1 = _mm256_fmadd_ps(f, _mm256_load_ps(tab.cosine[n] + 8), s1);
            s2 = _mm256_fmadd_ps(f, _mm256_load_ps(tab.cosine[n] + 16), s2);
            s3 = _mm256_fmadd_ps(f, _mm256_load_ps(tab.cosine[n] + 24), s3);
        }
        _mm256_store_ps(s + 0, s0);
        _mm256_store_ps(s + 8, s1);
        _mm256_store_ps(s + 16, s2);
        _mm256_store_ps(s + 24, s3);
        for (int k = 0; k < 32; ++k) dst[k * kPqmfSlots + t] = s[k];
    }
}

// ------------------------------------------------------------------ state objects

namespace {

PqmfState* placeState(uint8_t* mem, uint32_t tag, int32_t owns)
{
    PqmfState* st = alignUp<PqmfState>(mem, kStateAlign);
    st->tag = tag;
    st->position = kInitialPosition;
    st->ownsMemory = owns;
    st->reserved = 0;
    st->delay = reinterpret_cast<float*>(reinterpret_cast<uint8_t*>(st) + sizeof(PqmfState));
    st->reserved2 = 0;
    std::memset(st->delay, 0, kPqmfDelayFloats * sizeof(float));
    return st;
}

ZamStatus initState(SpecObject** ppState, uint8_t* pMem, uint32_t tag)
{
    if (!ppState || !pMem) return zamStsNullPtr;
    *ppState = reinterpret_cast<SpecObject*>(placeState(pMem, tag, kCallerMemory));
    return zamStsOk;
}

ZamStatus initAllocState(SpecObject** ppState, uint32_t tag)
{
    if (!ppState) return zamStsNullPtr;
    auto* mem = static_cast<uint8_t*>(allocBytes(kPqmfStateBytes));
    if (!mem) return zamStsMemAlloc;
    placeState(mem, tag, kOwnedByLibrary);
    *ppState = reinterpret_cast<SpecObject*>(mem);
    return zamStsOk;
}

ZamStatus freeState(SpecObject* pState, uint32_t tag)
{
    if (!pState) return zamStsNullPtr;
    PqmfState* st = findHeader<PqmfState>(pState, tag);
    if (!st) return zamStsContextMismatch;
    if (st->ownsMemory == kOwnedByLibrary) release(pState);
    return zamStsOk;
}

using GranuleKernel = void (*)(const float*, float*, float*, int32_t&, int);

ZamStatus runGranule(const float* pSrc, float* pDst, SpecObject* pState, int mode, uint32_t tag,
                     GranuleKernel kernel)
{
    if (!pSrc || !pDst || !pState) return zamStsNullPtr;
    PqmfState* st = findHeader<PqmfState>(pState, tag);
    if (!st) return zamStsContextMismatch;
    if (mode != 1 && mode != 2) return zamStsBadArg;
    kernel(pSrc, pDst, st->delay, st->position, mode);
    return zamStsOk;
}

}  // namespace
}  // namespace zam

using namespace zam;

ZAM_API ZamStatus zamsAnalysisFilterGetSize_PQMF_MP3_32f(int* pSize)
{
    if (!pSize) return zamStsNullPtr;
    *pSize = kPqmfStateBytes;
    return zamStsOk;
}
ZAM_ALIAS(ZamStatus, zamsSynthesisFilterGetSize_PQMF_MP3_32f, zamsAnalysisFilterGetSize_PQMF_MP3_32f,
          (int* pSize));

ZAM_API ZamStatus zamsAnalysisFilterInit_PQMF_MP3_32f(PqmfAnalysisState_MP3** ppState, uint8_t* pMem)
{
    return initState(reinterpret_cast<SpecObject**>(ppState), pMem, kTagAnalysis);
}

ZAM_API ZamStatus zamsAnalysisFilterInitAlloc_PQMF_MP3_32f(PqmfAnalysisState_MP3** ppState)
{
    return initAllocState(reinterpret_cast<SpecObject**>(ppState), kTagAnalysis);
}

ZAM_API ZamStatus zamsAnalysisFilterFree_PQMF_MP3_32f(PqmfAnalysisState_MP3* pState)
{
    return freeState(reinterpret_cast<SpecObject*>(pState), kTagAnalysis);
}

ZAM_API ZamStatus zamsAnalysisFilter_PQMF_MP3_32f(const float* pSrc, float* pDst, PqmfAnalysisState_MP3* pState,
                                                  int mode)
{
    return runGranule(pSrc, pDst, reinterpret_cast<SpecObject*>(pState), mode, kTagAnalysis, pqmfAnalysisAvx2);
}

ZAM_API ZamStatus zamsSynthesisFilterInit_PQMF_MP3_32f(PqmfSynthesisState_MP3** ppState, uint8_t* pMem)
{
    return initState(reinterpret_cast<SpecObject**>(ppState), pMem, kTagSynthesis);
}

ZAM_API ZamStatus zamsSynthesisFilterInitAlloc_PQMF_MP3_32f(PqmfSynthesisState_MP3** ppState)
{
    return initAllocState(reinterpret_cast<SpecObject**>(ppState), kTagSynthesis);
}

ZAM_API ZamStatus zamsSynthesisFilterFree_PQMF_MP3_32f(PqmfSynthesisState_MP3* pState)
{
    return freeState(reinterpret_cast<SpecObject*>(pState), kTagSynthesis);
}

ZAM_API ZamStatus zamsSynthesisFilter_PQMF_MP3_32f(const float* pSrc, float* pDst, PqmfSynthesisState_MP3* pState,
                                                   int mode)
{
    return runGranule(pSrc, pDst, reinterpret_cast<SpecObject*>(pState), mode, kTagSynthesis, pqmfSynthesisAvx2);
}
