// Layer III polyphase synthesis in fixed point (ISO/IEC 11172-3, 2.4.3.2 and
// Annex A, Table B.3), the integer form of the float bank in
// transform/pqmf_mp3.cpp with the same structure:
//
// Per time slot, the 32-point cosine transform X[m] = sum_k S[k] cos((2k + 1) m pi / 64)
// by the same even/odd split (split factors 1 / (2 cos((2n + 1) pi / 2N)) in Q27,
// products rounded, sums in 32 bits with wrap-around), on S in Q24. X is stored reordered (Y[0..15] = X[16..31], Y[16] = X[0],
// Y[16 + j] = X[16 - j]) in a ring of 16 slots, so that the outputs j and 32 - j read
// the same stored values; the window D[i] = n[i] / 65536 is applied as the integers
// n[i] with 64-bit sums, and PCM = sum / 2^25 rounded and saturated to 16 bits.
#include <immintrin.h>

#include <cstring>

#include "core/export.h"
#include "core/memory.h"
#include "core/simd.h"
#include "mp3/mp3_fixed.h"
#include "transform/pqmf_mp3_window.h"
#include "transform/trig.h"

namespace zam::mp3 {
namespace {

constexpr int kInputShift = kFracBits - kSynthFracBits;
constexpr int kOutputShift = kSynthFracBits + 16 - 15;  // Q(F) x Q16 window to Q15 PCM
constexpr int kSplitBits = 27;

template <int N>
struct SplitFactors {
    int32_t f[N / 2];
};

template <int N>
constexpr SplitFactors<N> makeSplitFactors()
{
    SplitFactors<N> t{};
    for (int n = 0; n < N / 2; ++n) {
        const double v = 0.5 / sinCosTurn(2 * n + 1, 4 * N).c * double(1 << kSplitBits);
        t.f[n] = static_cast<int32_t>(v + 0.5);
    }
    return t;
}

template <int N>
constexpr SplitFactors<N> kSplitQ = makeSplitFactors<N>();

// Arithmetic on one int32 or on eight (one lane per time slot), bit-identical:
// adds wrap, products are rounded at bit 27 and keep the low 32 bits.
inline int32_t vadd(int32_t a, int32_t b) { return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b)); }
inline int32_t vsub(int32_t a, int32_t b) { return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b)); }
inline int32_t vmul(int32_t a, int32_t f)
{
    const uint64_t p = static_cast<uint64_t>(int64_t{a} * f + (int64_t{1} << (kSplitBits - 1)));
    return static_cast<int32_t>(static_cast<uint32_t>(p >> kSplitBits));
}
inline __m256i vadd(__m256i a, __m256i b) { return _mm256_add_epi32(a, b); }
inline __m256i vsub(__m256i a, __m256i b) { return _mm256_sub_epi32(a, b); }
inline __m256i vmul(__m256i a, int32_t f)
{
    const __m256i fv = _mm256_set1_epi32(f);
    const __m256i bias = _mm256_set1_epi64x(int64_t{1} << (kSplitBits - 1));
    const __m256i even = _mm256_srli_epi64(_mm256_add_epi64(_mm256_mul_epi32(a, fv), bias), kSplitBits);
    const __m256i odd = _mm256_add_epi64(_mm256_mul_epi32(_mm256_srli_epi64(a, 32), fv), bias);
    return _mm256_blend_epi32(even, _mm256_slli_epi64(odd, 32 - kSplitBits), 0xAA);
}

template <int N, typename V>
inline void dctII(V* x)
{
    if constexpr (N == 1) {
        return;
    } else {
        V even[N / 2], odd[N / 2];
        for (int n = 0; n < N / 2; ++n) {
            even[n] = vadd(x[n], x[N - 1 - n]);
            odd[n] = vmul(vsub(x[n], x[N - 1 - n]), kSplitQ<N>.f[n]);
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

constexpr int storedCosineIndex(int y)
{
    if (y < 16) return 16 + y;
    if (y == 16) return 0;
    return 32 - y;
}

struct SynthTables {
    alignas(32) int32_t evenLow[8][16];   // out[j],      on Y_2p[j]
    alignas(32) int32_t oddLow[8][16];    // out[j],      on Y_2p+1[16 + j]
    alignas(32) int32_t evenHigh[8][16];  // out[32 - j], on Y_2p[j]   (lane 0: out[16])
    alignas(32) int32_t oddHigh[8][16];   // out[32 - j], on Y_2p+1[16 + j]
    int32_t firstOdd[8];                  // out[0],      on Y_2p+1[0]
    // The four rows again with each odd entry moved to the even place before it,
    // for the products of the odd lanes.
    alignas(32) int32_t oddLanes[4][8][16];
};

constexpr SynthTables makeSynthTables()
{
    SynthTables t{};
    for (int p = 0; p < 8; ++p) {
        for (int j = 0; j < 16; ++j) {
            t.evenLow[p][j] = kPqmfWindowN[64 * p + j];
            t.oddLow[p][j] = j == 0 ? 0 : -kPqmfWindowN[64 * p + 32 + j];
            t.evenHigh[p][j] = j == 0 ? 0 : -kPqmfWindowN[64 * p + 32 - j];
            t.oddHigh[p][j] = j == 0 ? -kPqmfWindowN[64 * p + 48] : -kPqmfWindowN[64 * p + 64 - j];
        }
        t.firstOdd[p] = -kPqmfWindowN[64 * p + 32];
    }
    for (int p = 0; p < 8; ++p)
        for (int j = 0; j < 16; j += 2) {
            t.oddLanes[0][p][j] = t.evenLow[p][j + 1];
            t.oddLanes[1][p][j] = t.oddLow[p][j + 1];
            t.oddLanes[2][p][j] = t.evenHigh[p][j + 1];
            t.oddLanes[3][p][j] = t.oddHigh[p][j + 1];
        }
    return t;
}

constexpr SynthTables kSynth = makeSynthTables();

inline int32_t inputScale(int32_t s)
{
    if constexpr (kInputShift == 0) return s;
    else return ((s >> (kInputShift - 1)) + 1) >> 1;
}
inline int16_t pcmOf(int64_t acc)
{
    const int64_t v = (acc + (int64_t{1} << (kOutputShift - 1))) >> kOutputShift;
    return static_cast<int16_t>(v > 32767 ? 32767 : (v < -32768 ? -32768 : v));
}

inline int32_t* slotAt(int32_t* v, int32_t position, int age) { return v + ((position - age) & (kSynthSlots - 1)) * 32; }

void storeSlot(const int32_t* x, int32_t* y)
{
    for (int i = 0; i < 32; ++i) y[i] = x[storedCosineIndex(i)];
}

void windowSlotScalar(int32_t* v, int32_t position, int16_t* dst, int stride)
{
    int64_t low[16] = {}, high[16] = {}, first = 0;
    for (int p = 0; p < 8; ++p) {
        const int32_t* even = slotAt(v, position, 2 * p);
        const int32_t* odd = slotAt(v, position, 2 * p + 1);
        for (int j = 0; j < 16; ++j) {
            low[j] += int64_t{kSynth.evenLow[p][j]} * even[j] + int64_t{kSynth.oddLow[p][j]} * odd[16 + j];
            high[j] += int64_t{kSynth.evenHigh[p][j]} * even[j] + int64_t{kSynth.oddHigh[p][j]} * odd[16 + j];
        }
        first += int64_t{kSynth.firstOdd[p]} * odd[0];
    }
    low[0] += first;
    for (int j = 0; j < 16; ++j) dst[j * stride] = pcmOf(low[j]);
    dst[16 * stride] = pcmOf(high[0]);
    for (int j = 1; j < 16; ++j) dst[(32 - j) * stride] = pcmOf(high[j]);
}

// Sums over 64-bit lanes: mul_epi32 takes the even int32 lanes; the odd ones are
// shifted down first. `e` and `o` accumulate the even and odd outputs.
struct LaneSums {
    __m256i e, o;
};

inline void mac(LaneSums& s, __m256i data, __m256i dataOdd, const int32_t* coef, const int32_t* coefOdd)
{
    const __m256i c = _mm256_load_si256(reinterpret_cast<const __m256i*>(coef));
    const __m256i co = _mm256_load_si256(reinterpret_cast<const __m256i*>(coefOdd));
    s.e = _mm256_add_epi64(s.e, _mm256_mul_epi32(data, c));
    s.o = _mm256_add_epi64(s.o, _mm256_mul_epi32(dataOdd, co));
}

inline __m256i roundLanes(const LaneSums& s)
{
    const __m256i bias = _mm256_set1_epi64x(int64_t{1} << (kOutputShift - 1));
    const __m256i e = _mm256_srli_epi64(_mm256_add_epi64(s.e, bias), kOutputShift);
    const __m256i o = _mm256_slli_epi64(_mm256_srli_epi64(_mm256_add_epi64(s.o, bias), kOutputShift), 32);
    return _mm256_blend_epi32(e, o, 0xAA);
}

void windowSlotAvx2(int32_t* v, int32_t position, int16_t* dst, int stride)
{
    LaneSums low[2], high[2];
    for (int b = 0; b < 2; ++b) low[b] = high[b] = {_mm256_setzero_si256(), _mm256_setzero_si256()};
    int64_t first = 0;
    for (int p = 0; p < 8; ++p) {
        const int32_t* even = slotAt(v, position, 2 * p);
        const int32_t* odd = slotAt(v, position, 2 * p + 1);
        for (int b = 0; b < 2; ++b) {
            const __m256i e = _mm256_load_si256(reinterpret_cast<const __m256i*>(even + 8 * b));
            const __m256i o = _mm256_load_si256(reinterpret_cast<const __m256i*>(odd + 16 + 8 * b));
            const __m256i eOdd = _mm256_srli_epi64(e, 32), oOdd = _mm256_srli_epi64(o, 32);
            mac(low[b], e, eOdd, kSynth.evenLow[p] + 8 * b, kSynth.oddLanes[0][p] + 8 * b);
            mac(low[b], o, oOdd, kSynth.oddLow[p] + 8 * b, kSynth.oddLanes[1][p] + 8 * b);
            mac(high[b], e, eOdd, kSynth.evenHigh[p] + 8 * b, kSynth.oddLanes[2][p] + 8 * b);
            mac(high[b], o, oOdd, kSynth.oddHigh[p] + 8 * b, kSynth.oddLanes[3][p] + 8 * b);
        }
        first += int64_t{kSynth.firstOdd[p]} * odd[0];
    }
    low[0].e = _mm256_add_epi64(low[0].e, _mm256_set_epi64x(0, 0, 0, first));
    alignas(32) int16_t lo[16], hi[16];
    const __m256i l = _mm256_permute4x64_epi64(_mm256_packs_epi32(roundLanes(low[0]), roundLanes(low[1])), 0xD8);
    const __m256i h = _mm256_permute4x64_epi64(_mm256_packs_epi32(roundLanes(high[0]), roundLanes(high[1])), 0xD8);
    if (stride == 1) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), l);
        _mm256_store_si256(reinterpret_cast<__m256i*>(hi), h);
        dst[16] = hi[0];
        for (int j = 1; j < 16; ++j) dst[32 - j] = hi[j];
        return;
    }
    _mm256_store_si256(reinterpret_cast<__m256i*>(lo), l);
    _mm256_store_si256(reinterpret_cast<__m256i*>(hi), h);
    for (int j = 0; j < 16; ++j) dst[j * stride] = lo[j];
    dst[16 * stride] = hi[0];
    for (int j = 1; j < 16; ++j) dst[(32 - j) * stride] = hi[j];
}

void cosineScalar(const int32_t* src, int t, int32_t* out)
{
    int32_t x[32];
    for (int k = 0; k < 32; ++k) x[k] = inputScale(src[k * 18 + t]);
    dctII<32>(x);
    storeSlot(x, out);
}

}  // namespace

void synthScalar(const int32_t* src, int16_t* dst, int32_t* v, int32_t& position, int stride)
{
    for (int t = 0; t < 18; ++t) {
        position = (position + 1) & (kSynthSlots - 1);
        cosineScalar(src, t, slotAt(v, position, 0));
        windowSlotScalar(v, position, dst + 32 * t * stride, stride);
    }
}

void synthAvx2(const int32_t* src, int16_t* dst, int32_t* v, int32_t& position, int stride)
{
    // The cosine transforms of slots 0..15 eight at a time (one slot per lane), the
    // last two one by one; then the ring and the window slot by slot.
    alignas(32) int32_t rows[18][32];
    for (int t0 = 0; t0 < 16; t0 += 8) {
        __m256i x[32];
        const __m256i one = _mm256_set1_epi32(1);
        for (int k = 0; k < 32; ++k) {
            const __m256i s = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + k * 18 + t0));
            if constexpr (kInputShift == 0) x[k] = s;
            else x[k] = _mm256_srai_epi32(_mm256_add_epi32(_mm256_srai_epi32(s, kInputShift - 1), one), 1);
        }
        dctII<32>(x);
        for (int b = 0; b < 4; ++b) {
            __m256 r[8];
            for (int i = 0; i < 8; ++i) r[i] = _mm256_castsi256_ps(x[storedCosineIndex(8 * b + i)]);
            transpose8x8(r);
            for (int s = 0; s < 8; ++s) _mm256_store_ps(reinterpret_cast<float*>(rows[t0 + s] + 8 * b), r[s]);
        }
    }
    cosineScalar(src, 16, rows[16]);
    cosineScalar(src, 17, rows[17]);
    for (int t = 0; t < 18; ++t) {
        position = (position + 1) & (kSynthSlots - 1);
        std::memcpy(slotAt(v, position, 0), rows[t], sizeof rows[t]);
        windowSlotAvx2(v, position, dst + 32 * t * stride, stride);
    }
}

// The one place where the kernels are chosen (this build targets AVX2).
void imdctWindow(const int32_t* src, int32_t* dst, int count, int blockType, bool mixed)
{
    imdctWindowAvx2(src, dst, count, blockType, mixed);
}

void synth(const int32_t* src, int16_t* dst, int32_t* v, int32_t& position, int stride)
{
    synthAvx2(src, dst, v, position, stride);
}

}  // namespace zam::mp3

using namespace zam::mp3;
using zam::isAligned;

ZAM_API ZamStatus zamsSynthPQMF_MP3_32s16s(const int32_t* pSrcY, int16_t* pDstPcm, int32_t mode, int32_t* pVBuffer,
                                           int32_t* pVPosition)
{
    if (!pSrcY || !pDstPcm || !pVBuffer || !pVPosition) return zamStsNullPtr;
    if (mode != 1 && mode != 2) return zamStsBadArg;
    if (static_cast<uint32_t>(*pVPosition) >= kSynthSlots) return zamStsBadArg;
    int32_t position = *pVPosition;
    const bool aligned = isAligned(pSrcY, 16) && isAligned(pDstPcm, 16) && isAligned(pVBuffer, 16);
    if (isAligned(pVBuffer, 32)) {
        synth(pSrcY, pDstPcm, pVBuffer, position, mode);
    } else {
        // The vector loads of the ring want 32-byte alignment: work on an aligned copy.
        alignas(32) int32_t v[kSynthVValues];
        std::memcpy(v, pVBuffer, sizeof v);
        synth(pSrcY, pDstPcm, v, position, mode);
        std::memcpy(pVBuffer, v, sizeof v);
    }
    *pVPosition = position;
    return aligned ? zamStsOk : zamStsMisalignedData;
}
