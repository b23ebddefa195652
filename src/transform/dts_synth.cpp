// DTS Coherent Acoustics core: 32-band QMF synthesis of one channel (ETSI TS 102 114,
// the core's sub-band interpolation), one or more time slots per call.
//
// Per time slot the standard forms, from the 32 sub-band samples x[n], the sums
// A/B over neighbouring pairs, scales them and keeps the 32 results
//   H[m] = 0.25 * sum_n x[n] cos((2n + 1)(2m + 1) pi / 128),   m = 0..31,
// which is a quarter of a 32-point DCT-IV, then windows the history:
//   out[i] = sum_{p=0}^{7} c[64p + i]      (H_2p[i]   - H_2p[31 - i])
//                        - c[64p + 32 + i] (H_2p+1[i] + H_2p+1[31 - i])
// with H_a the values of the slot a slots back and c the 512-tap window.
//
// The DCT-IV runs on the internal 16-point complex FFT: u[n] = (x[2n] + i x[31-2n])
// e^{-i pi (n + 1/4) / 32}, U = FFT(u), and H[2k] = Re y_k, H[31 - 2k] = -Im y_k with
// y_k = 0.25 U_k e^{-i pi k / 32}. The window reads H only through the combinations
//   H[2k] - H[31-2k] = Re y_k + Im y_k =: A_k,   -(H[2k] + H[31-2k]) = Im y_k - Re y_k =: B_k
// (and their mirrors at 31 - 2k: -A_k and B_k), so each slot of the history keeps
// just A[0..15] and B[0..15], and the even outputs out[2k] and odd outputs
// out[31 - 2k] are two 16-lane sums over them.
#include "transform/dts_synth.h"

#include <immintrin.h>

#include <cstring>

#include "core/export.h"
#include "core/memory.h"
#include "transform/dts_qmf_window.h"
#include "transform/trig.h"

namespace zam {
namespace {

constexpr uint32_t kTagDts = fourCharTag('k');

struct Twiddles {
    alignas(32) float preCos[16];  // cos(pi (n + 1/4) / 32)
    alignas(32) float preSin[16];
    alignas(32) float postP[16];   // 0.25 (cos - sin)(pi k / 32)
    alignas(32) float postQ[16];   // 0.25 (cos + sin)(pi k / 32)
};

constexpr Twiddles makeTwiddles()
{
    Twiddles t{};
    for (int n = 0; n < 16; ++n) {
        const SinCos pre = sinCosTurn(4 * n + 1, 256);
        t.preCos[n] = static_cast<float>(pre.c);
        t.preSin[n] = static_cast<float>(pre.s);
        const SinCos post = sinCosTurn(n, 64);
        t.postP[n] = static_cast<float>(0.25 * (post.c - post.s));
        t.postQ[n] = static_cast<float>(0.25 * (post.c + post.s));
    }
    return t;
}

// The window rearranged for the A/B history: per pair p of slots, the weights of
// A (the slot 2p back) and B (the slot 2p + 1 back) in out[2k] and out[31 - 2k].
struct WindowTables {
    alignas(32) float evenA[8][16];
    alignas(32) float evenB[8][16];
    alignas(32) float oddA[8][16];
    alignas(32) float oddB[8][16];
};

constexpr WindowTables makeWindowTables(const float* c)
{
    WindowTables t{};
    for (int p = 0; p < 8; ++p)
        for (int k = 0; k < 16; ++k) {
            t.evenA[p][k] = c[64 * p + 2 * k];
            t.evenB[p][k] = c[64 * p + 32 + 2 * k];
            t.oddA[p][k] = -c[64 * p + 31 - 2 * k];
            t.oddB[p][k] = c[64 * p + 63 - 2 * k];
        }
    return t;
}

constexpr Twiddles kTwiddles = makeTwiddles();
constexpr WindowTables kWindows[2] = {makeWindowTables(kDtsWindowNonPerfect), makeWindowTables(kDtsWindowPerfect)};

inline float* ringSlot(float* ring, int32_t position, int age)
{
    return ring + ((position - age) & (kDtsRingSlots - 1)) * kDtsBands;
}

}  // namespace

// ------------------------------------------------------------------ scalar twin

void dtsSynthesisScalar(const float* src, float* dst, int numSlots, int filterType, DtsSynthState* st)
{
    const Twiddles& tw = kTwiddles;
    const WindowTables& win = kWindows[filterType];
    for (int t = 0; t < numSlots; ++t) {
        const WindowTables& winB = t == 0 ? kWindows[st->previousType] : win;
        const float* x = src + t * kDtsBands;
        alignas(32) float u[32];
        for (int n = 0; n < 16; ++n) {
            const float a = x[2 * n], b = x[31 - 2 * n];
            u[2 * n] = a * tw.preCos[n] + b * tw.preSin[n];
            u[2 * n + 1] = b * tw.preCos[n] - a * tw.preSin[n];
        }
        fftFwd(u, u, st->fft, nullptr, Kernels::Scalar);
        st->position = (st->position + 1) & (kDtsRingSlots - 1);
        float* slot = ringSlot(st->ring, st->position, 0);
        for (int k = 0; k < 16; ++k) {
            const float ur = u[2 * k], ui = u[2 * k + 1];
            slot[k] = ur * tw.postP[k] + ui * tw.postQ[k];
            slot[16 + k] = ui * tw.postP[k] - ur * tw.postQ[k];
        }
        float even[16] = {}, odd[16] = {};
        for (int p = 0; p < 8; ++p) {
            const float* a = ringSlot(st->ring, st->position, 2 * p);
            const float* b = ringSlot(st->ring, st->position, 2 * p + 1) + 16;
            for (int k = 0; k < 16; ++k) {
                even[k] += win.evenA[p][k] * a[k] + winB.evenB[p][k] * b[k];
                odd[k] += win.oddA[p][k] * a[k] + winB.oddB[p][k] * b[k];
            }
        }
        float* out = dst + t * kDtsBands;
        for (int k = 0; k < 16; ++k) {
            out[2 * k] = even[k];
            out[31 - 2 * k] = odd[k];
        }
    }
    st->previousType = filterType;
}

// ------------------------------------------------------------------ AVX2

namespace {

inline __m256 evens(__m256 a, __m256 b)
{
    return _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(_mm256_shuffle_ps(a, b, 0x88)), 0xD8));
}
inline __m256 odds(__m256 a, __m256 b)
{
    return _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(_mm256_shuffle_ps(a, b, 0xDD)), 0xD8));
}
inline __m256 reverse8(__m256 v) { return _mm256_permutevar8x32_ps(v, _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0)); }

// Interleaves a[0..7] and b[0..7] into a0 b0 a1 b1 ... (16 floats at out).
inline void interleaveStore(float* out, __m256 a, __m256 b, bool aligned)
{
    const __m256 lo = _mm256_unpacklo_ps(a, b), hi = _mm256_unpackhi_ps(a, b);
    const __m256 first = _mm256_permute2f128_ps(lo, hi, 0x20), second = _mm256_permute2f128_ps(lo, hi, 0x31);
    if (aligned) {
        _mm256_store_ps(out, first);
        _mm256_store_ps(out + 8, second);
    } else {
        _mm256_storeu_ps(out, first);
        _mm256_storeu_ps(out + 8, second);
    }
}

}  // namespace

void dtsSynthesisAvx2(const float* src, float* dst, int numSlots, int filterType, DtsSynthState* st)
{
    const Twiddles& tw = kTwiddles;
    const WindowTables& win = kWindows[filterType];
    const __m256 preC0 = _mm256_load_ps(tw.preCos), preC1 = _mm256_load_ps(tw.preCos + 8);
    const __m256 preS0 = _mm256_load_ps(tw.preSin), preS1 = _mm256_load_ps(tw.preSin + 8);
    const __m256 postP0 = _mm256_load_ps(tw.postP), postP1 = _mm256_load_ps(tw.postP + 8);
    const __m256 postQ0 = _mm256_load_ps(tw.postQ), postQ1 = _mm256_load_ps(tw.postQ + 8);
    for (int t = 0; t < numSlots; ++t) {
        const WindowTables& winB = t == 0 ? kWindows[st->previousType] : win;
        const float* x = src + t * kDtsBands;
        const __m256 x0 = _mm256_loadu_ps(x), x1 = _mm256_loadu_ps(x + 8);
        const __m256 x2 = _mm256_loadu_ps(x + 16), x3 = _mm256_loadu_ps(x + 24);
        const __m256 re0 = evens(x0, x1), re1 = evens(x2, x3);                  // x[2n]
        const __m256 im0 = reverse8(odds(x2, x3)), im1 = reverse8(odds(x0, x1));  // x[31 - 2n]
        alignas(32) float u[32];
        interleaveStore(u, _mm256_add_ps(_mm256_mul_ps(re0, preC0), _mm256_mul_ps(im0, preS0)),
                        _mm256_sub_ps(_mm256_mul_ps(im0, preC0), _mm256_mul_ps(re0, preS0)), true);
        interleaveStore(u + 16, _mm256_add_ps(_mm256_mul_ps(re1, preC1), _mm256_mul_ps(im1, preS1)),
                        _mm256_sub_ps(_mm256_mul_ps(im1, preC1), _mm256_mul_ps(re1, preS1)), true);
        fftFwd(u, u, st->fft, nullptr, Kernels::Avx2);

        st->position = (st->position + 1) & (kDtsRingSlots - 1);
        float* slot = ringSlot(st->ring, st->position, 0);
        {
            const __m256 u0 = _mm256_load_ps(u), u1 = _mm256_load_ps(u + 8);
            const __m256 u2 = _mm256_load_ps(u + 16), u3 = _mm256_load_ps(u + 24);
            const __m256 ur0 = evens(u0, u1), ui0 = odds(u0, u1), ur1 = evens(u2, u3), ui1 = odds(u2, u3);
            _mm256_storeu_ps(slot, _mm256_add_ps(_mm256_mul_ps(ur0, postP0), _mm256_mul_ps(ui0, postQ0)));
            _mm256_storeu_ps(slot + 8, _mm256_add_ps(_mm256_mul_ps(ur1, postP1), _mm256_mul_ps(ui1, postQ1)));
            _mm256_storeu_ps(slot + 16, _mm256_sub_ps(_mm256_mul_ps(ui0, postP0), _mm256_mul_ps(ur0, postQ0)));
            _mm256_storeu_ps(slot + 24, _mm256_sub_ps(_mm256_mul_ps(ui1, postP1), _mm256_mul_ps(ur1, postQ1)));
        }

        __m256 e0 = _mm256_setzero_ps(), e1 = e0, o0 = e0, o1 = e0;
        for (int p = 0; p < 8; ++p) {
            const float* a = ringSlot(st->ring, st->position, 2 * p);
            const float* b = ringSlot(st->ring, st->position, 2 * p + 1) + 16;
            const __m256 a0 = _mm256_loadu_ps(a), a1 = _mm256_loadu_ps(a + 8);
            const __m256 b0 = _mm256_loadu_ps(b), b1 = _mm256_loadu_ps(b + 8);
            e0 = _mm256_fmadd_ps(_mm256_load_ps(win.evenA[p]), a0, e0);
            e1 = _mm256_fmadd_ps(_mm256_load_ps(win.evenA[p] + 8), a1, e1);
            o0 = _mm256_fmadd_ps(_mm256_load_ps(win.oddA[p]), a0, o0);
            o1 = _mm256_fmadd_ps(_mm256_load_ps(win.oddA[p] + 8), a1, o1);
            e0 = _mm256_fmadd_ps(_mm256_load_ps(winB.evenB[p]), b0, e0);
            e1 = _mm256_fmadd_ps(_mm256_load_ps(winB.evenB[p] + 8), b1, e1);
            o0 = _mm256_fmadd_ps(_mm256_load_ps(winB.oddB[p]), b0, o0);
            o1 = _mm256_fmadd_ps(_mm256_load_ps(winB.oddB[p] + 8), b1, o1);
        }
        // out[2k] = even[k], out[2j + 1] = odd[15 - j].
        float* out = dst + t * kDtsBands;
        interleaveStore(out, e0, reverse8(o1), false);
        interleaveStore(out + 16, e1, reverse8(o0), false);
    }
    st->previousType = filterType;
}

// ------------------------------------------------------------------ state objects

namespace {

constexpr int kHeaderBytes = 64;

int fftSpecBytes()
{
    int spec = 0, init = 0, work = 0;
    fftGetSize(kDtsFftOrder, kFftNoScale, 0, &spec, &init, &work);
    return spec;
}

int stateBytes() { return kStateSlack + kHeaderBytes + kDtsRingFloats * 4 + fftSpecBytes(); }

DtsSynthState* placeState(uint8_t* mem, int32_t owns)
{
    auto* st = alignUp<DtsSynthState>(mem, kStateAlign);
    auto* base = reinterpret_cast<uint8_t*>(st);
    std::memset(st, 0, sizeof(DtsSynthState));
    st->tag = kTagDts;
    st->ownsMemory = owns;
    st->position = 0;
    st->previousType = 1;
    st->ring = reinterpret_cast<float*>(base + kHeaderBytes);
    std::memset(st->ring, 0, kDtsRingFloats * sizeof(float));
    fftInit(&st->fft, kDtsFftOrder, kFftNoScale, 0, base + kHeaderBytes + kDtsRingFloats * 4, nullptr);
    return st;
}

}  // namespace
}  // namespace zam

using namespace zam;

ZAM_API ZamStatus zamsSynthesisFilterGetSize_DTS_32f(int* pSize)
{
    if (!pSize) return zamStsNullPtr;
    *pSize = stateBytes();
    return zamStsOk;
}

ZAM_API ZamStatus zamsSynthesisFilterInit_DTS_32f(DtsSynthesisState** ppState, uint8_t* pMem)
{
    if (!ppState || !pMem) return zamStsNullPtr;
    *ppState = reinterpret_cast<DtsSynthesisState*>(placeState(pMem, kCallerMemory));
    return zamStsOk;
}

ZAM_API ZamStatus zamsSynthesisFilterInitAlloc_DTS_32f(DtsSynthesisState** ppState)
{
    if (!ppState) return zamStsNullPtr;
    auto* mem = static_cast<uint8_t*>(allocBytes(stateBytes()));
    if (!mem) return zamStsMemAlloc;
    placeState(mem, kOwnedByLibrary);
    *ppState = reinterpret_cast<DtsSynthesisState*>(mem);
    return zamStsOk;
}

ZAM_API ZamStatus zamsSynthesisFilterFree_DTS_32f(DtsSynthesisState* pState)
{
    if (!pState) return zamStsNullPtr;
    DtsSynthState* st = findHeader<DtsSynthState>(pState, kTagDts);
    if (!st) return zamStsContextMismatch;
    if (st->ownsMemory == kOwnedByLibrary) release(pState);
    return zamStsOk;
}

ZAM_API ZamStatus zamsSynthesisFilter_DTS_32f(const float* pSrc, float* pDst, int numSlots, int filterType,
                                              DtsSynthesisState* pState)
{
    if (!pSrc || !pDst || !pState) return zamStsNullPtr;
    DtsSynthState* st = findHeader<DtsSynthState>(pState, kTagDts);
    if (!st) return zamStsContextMismatch;
    if (numSlots < 1) return zamStsSize;
    if (filterType != 0 && filterType != 1) return zamStsBadArg;
    dtsSynthesisAvx2(pSrc, pDst, numSlots, filterType, st);
    return zamStsOk;
}
