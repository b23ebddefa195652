// The float SBR QMF banks: coefficient tables, the per-slot modulations on the
// internal FFT, and the state objects (see qmf.h for the algebra).
#include "sbr/qmf.h"

#include <immintrin.h>

#include <climits>
#include <cmath>
#include <cstring>

#include "core/memory.h"
#include "sbr/qmf_core.h"
#include "transform/trig.h"

namespace zam::sbr {

namespace {

using FloatAnalysisTables = AnalysisTables<FloatArith>;
constexpr const FloatAnalysisTables& kAnalysis = kAnalysisTables<FloatArith>;
template <int M>
constexpr const SynthesisTables<FloatArith, M>& synthesisTables()
{
    return kSynthesisTables<FloatArith, M>;
}

// ------------------------------------------------------------------ AVX2 modulations

// Eight complex values at p as real and imaginary lanes, and back.
inline void deinterleave8(const float* p, __m256& re, __m256& im)
{
    const __m256 v0 = _mm256_loadu_ps(p), v1 = _mm256_loadu_ps(p + 8);
    re = _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(_mm256_shuffle_ps(v0, v1, 0x88)), 0xD8));
    im = _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(_mm256_shuffle_ps(v0, v1, 0xDD)), 0xD8));
}
inline void interleave8(__m256 re, __m256 im, float* p)
{
    const __m256 lo = _mm256_unpacklo_ps(re, im), hi = _mm256_unpackhi_ps(re, im);
    _mm256_storeu_ps(p, _mm256_permute2f128_ps(lo, hi, 0x20));
    _mm256_storeu_ps(p + 8, _mm256_permute2f128_ps(lo, hi, 0x31));
}
inline __m256 reverse8(__m256 v) { return _mm256_permutevar8x32_ps(v, _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0)); }
// (a + ib)(c + id) on split lanes.
inline void cmul8(__m256 a, __m256 b, __m256 c, __m256 d, __m256& re, __m256& im)
{
    re = _mm256_fmsub_ps(a, c, _mm256_mul_ps(b, d));
    im = _mm256_fmadd_ps(a, d, _mm256_mul_ps(b, c));
}

void analysisModulationAvx2(const float* uRev, bool realKind, AnalysisSlot& out, const FftSpec* fft)
{
    const FloatAnalysisTables& t = kAnalysis;
    alignas(32) float z[64];
    alignas(32) float g[64];
    // z as floats is uRev reversed with the odd (imaginary) lanes negated, times pre.
    const __m256 oddSign = _mm256_castsi256_ps(_mm256_setr_epi32(0, INT32_MIN, 0, INT32_MIN, 0, INT32_MIN, 0, INT32_MIN));
    for (int i = 0; i < 64; i += 8) {
        const __m256 v = _mm256_xor_ps(reverse8(_mm256_loadu_ps(uRev + 56 - i)), oddSign);
        const __m256 w = _mm256_load_ps(t.pre + i);
        const __m256 swapped = _mm256_permute_ps(v, 0xB1);
        _mm256_store_ps(z + i, _mm256_fmaddsub_ps(v, _mm256_moveldup_ps(w), _mm256_mul_ps(swapped, _mm256_movehdup_ps(w))));
    }
    fftFwd(z, g, fft, nullptr, Kernels::Avx2);
    __m256 gr[4], gi[4];
    for (int c = 0; c < 4; ++c) deinterleave8(g + 16 * c, gr[c], gi[c]);
    const int r = realKind ? 1 : 0;
    for (int c = 0; c < 4; ++c) {
        const __m256 pr = gr[c], pi = _mm256_sub_ps(_mm256_setzero_ps(), gi[c]);
        const __m256 qr = reverse8(gr[3 - c]), qi = reverse8(gi[3 - c]);
        const __m256 ar = _mm256_load_ps(t.alphaRe[r] + 8 * c), ai = _mm256_load_ps(t.alphaIm[r] + 8 * c);
        const __m256 br = _mm256_load_ps(t.betaRe[r] + 8 * c), bi = _mm256_load_ps(t.betaIm[r] + 8 * c);
        __m256 re = _mm256_fmsub_ps(pr, ar, _mm256_mul_ps(pi, ai));
        re = _mm256_fnmadd_ps(qi, bi, _mm256_fmadd_ps(qr, br, re));
        _mm256_store_ps(out.re + 8 * c, re);
        if (!realKind) {
            __m256 im = _mm256_fmadd_ps(pr, ai, _mm256_mul_ps(pi, ar));
            im = _mm256_fmadd_ps(qi, br, _mm256_fmadd_ps(qr, bi, im));
            _mm256_store_ps(out.im + 8 * c, im);
        }
    }
}

template <int M>
void synthesisModulationAvx2(const float* re, const float* im, int step, bool realKind, float* block,
                             const FftSpec* fft)
{
    const SynthesisTables<FloatArith, M>& t = synthesisTables<M>();
    const int r = realKind ? 1 : 0;
    alignas(32) float a[M], b[M];
    for (int k = 0; k < M; k += 8) {
        __m256 xr, xi;
        if (step == 2) {
            deinterleave8(re + 2 * k, xr, xi);
        } else {
            xr = _mm256_loadu_ps(re + k);
            xi = im ? _mm256_loadu_ps(im + k) : _mm256_setzero_ps();
        }
        __m256 va, vb;
        cmul8(xr, xi, _mm256_load_ps(t.preRe[r] + k), _mm256_load_ps(t.preIm[r] + k), va, vb);
        _mm256_store_ps(a + k, va);
        _mm256_store_ps(b + k, vb);
    }
    alignas(32) float w[2 * M], x[2 * M];
    for (int n = 0; n < M / 2; n += 8) {
        __m256 ae, ao, be, bo, skip;
        deinterleave8(a + 2 * n, ae, skip);          // a[2n]
        deinterleave8(a + M - 16 - 2 * n, skip, ao); // a[M-1-2n], ascending
        deinterleave8(b + 2 * n, be, skip);
        deinterleave8(b + M - 16 - 2 * n, skip, bo);
        ao = reverse8(ao);
        bo = reverse8(bo);
        const __m256 dr = _mm256_load_ps(t.dctRe + n), di = _mm256_load_ps(t.dctIm + n);
        __m256 zar, zai, zbr, zbi;
        cmul8(ae, ao, dr, di, zar, zai);
        cmul8(bo, be, dr, di, zbr, zbi);
        // w[4n .. 4n+3] = (za, zb) for eight n
        const __m256d l0 = _mm256_castps_pd(_mm256_unpacklo_ps(zar, zai)), h0 = _mm256_castps_pd(_mm256_unpackhi_ps(zar, zai));
        const __m256d l1 = _mm256_castps_pd(_mm256_unpacklo_ps(zbr, zbi)), h1 = _mm256_castps_pd(_mm256_unpackhi_ps(zbr, zbi));
        const __m256 q0 = _mm256_castpd_ps(_mm256_unpacklo_pd(l0, l1)), q1 = _mm256_castpd_ps(_mm256_unpackhi_pd(l0, l1));
        const __m256 q2 = _mm256_castpd_ps(_mm256_unpacklo_pd(h0, h1)), q3 = _mm256_castpd_ps(_mm256_unpackhi_pd(h0, h1));
        float* o = w + 4 * n;
        _mm256_store_ps(o, _mm256_permute2f128_ps(q0, q1, 0x20));
        _mm256_store_ps(o + 8, _mm256_permute2f128_ps(q2, q3, 0x20));
        _mm256_store_ps(o + 16, _mm256_permute2f128_ps(q0, q1, 0x31));
        _mm256_store_ps(o + 24, _mm256_permute2f128_ps(q2, q3, 0x31));
    }
    fftFwd(w, x, fft, nullptr, Kernels::Avx2);
    alignas(32) float e1[M / 2], o1[M / 2], e2[M / 2], o2[M / 2];
    for (int j = 0; j < M / 2; j += 8) {
        __m256 pr, pi, qr, qi;
        deinterleave8(x + 2 * j, pr, pi);
        deinterleave8(x + 2 * j + M, qr, qi);
        __m256 yar, yai, ybr, ybi;
        cmul8(_mm256_add_ps(pr, qr), _mm256_add_ps(pi, qi), _mm256_load_ps(t.postARe + j),
              _mm256_load_ps(t.postAIm + j), yar, yai);
        cmul8(_mm256_sub_ps(pr, qr), _mm256_sub_ps(pi, qi), _mm256_load_ps(t.postBRe + j),
              _mm256_load_ps(t.postBIm + j), ybr, ybi);
        _mm256_store_ps(e1 + j, _mm256_sub_ps(ybr, yar));  // v[2j]
        _mm256_store_ps(o1 + j, _mm256_add_ps(ybi, yai));  // v[M-1-2j]
        _mm256_store_ps(e2 + j, _mm256_sub_ps(ybi, yai));  // v[M+2j]
        _mm256_store_ps(o2 + j, _mm256_add_ps(yar, ybr));  // v[2M-1-2j]
    }
    // v[2j] = e1[j], v[2j+1] = o1[M/2-1-j]; v[M+2j] = e2[j], v[M+2j+1] = o2[M/2-1-j].
    for (int j = 0; j < M / 2; j += 8) {
        interleave8(_mm256_load_ps(e1 + j), reverse8(_mm256_load_ps(o1 + M / 2 - 8 - j)), block + 2 * j);
        interleave8(_mm256_load_ps(e2 + j), reverse8(_mm256_load_ps(o2 + M / 2 - 8 - j)), block + M + 2 * j);
    }
}

}  // namespace

// ------------------------------------------------------------------ window kernels

void analysisWindowScalar(const float* x, float* uRev) { analysisWindow<FloatArith>(x, uRev); }

void synthesisWindowScalar(const float* ring, int position, int m, float* out)
{
    if (m == 64)
        synthesisWindow<FloatArith, 64>(ring, position, out);
    else
        synthesisWindow<FloatArith, 32>(ring, position, out);
}

void analysisWindowAvx2(const float* x, float* uRev)
{
    const FloatAnalysisTables& t = kAnalysis;
    for (int m = 0; m < 64; m += 8) {
        __m256 acc = _mm256_mul_ps(_mm256_load_ps(t.window[0] + m), _mm256_loadu_ps(x + m));
        for (int j = 1; j < 5; ++j)
            acc = _mm256_fmadd_ps(_mm256_load_ps(t.window[j] + m), _mm256_loadu_ps(x + m - 64 * j), acc);
        _mm256_storeu_ps(uRev + m, acc);
    }
}

void synthesisWindowAvx2(const float* ring, int position, int m, float* out)
{
    const float* win = m == 64 ? synthesisTables<64>().window : synthesisTables<32>().window;
    const float* blocks[kSynthesisBlocks];
    for (int j = 0; j < kSynthesisBlocks; ++j)
        blocks[j] = ring + ((position - j + kSynthesisBlocks) % kSynthesisBlocks) * 2 * m + m * (j & 1);
    for (int k = 0; k < m; k += 16) {
        __m256 a0 = _mm256_mul_ps(_mm256_load_ps(win + k), _mm256_loadu_ps(blocks[0] + k));
        __m256 a1 = _mm256_mul_ps(_mm256_load_ps(win + k + 8), _mm256_loadu_ps(blocks[0] + k + 8));
        for (int j = 1; j < kSynthesisBlocks; ++j) {
            const float* w = win + j * m + k;
            a0 = _mm256_fmadd_ps(_mm256_load_ps(w), _mm256_loadu_ps(blocks[j] + k), a0);
            a1 = _mm256_fmadd_ps(_mm256_load_ps(w + 8), _mm256_loadu_ps(blocks[j] + k + 8), a1);
        }
        _mm256_storeu_ps(out + k, a0);
        _mm256_storeu_ps(out + k + 8, a1);
    }
}

// ------------------------------------------------------------------ per-call work

void qmfAnalysisChunk(QmfState* st, const float* src, int n, AnalysisSlot* slots, Kernels kernels)
{
    float* line = st->line;
    std::memcpy(line + kAnalysisHistory, src, static_cast<size_t>(n) * 32 * sizeof(float));
    const bool realKind = st->kind == QmfKind::AnalysisReal;
    alignas(32) float uRev[64];
    for (int s = 0; s < n; ++s) {
        // The slot's newest sample is line[288 + 32 s + 31]; uRev[m] = u(63 - m)
        // reads line[256 + 32 s + m - 64 j].
        const float* x = line + 256 + 32 * s;
        if (kernels == Kernels::Avx2) {
            analysisWindowAvx2(x, uRev);
            analysisModulationAvx2(uRev, realKind, slots[s], st->fft);
        } else {
            analysisWindowScalar(x, uRev);
            analysisModulation<FloatArith>(uRev, realKind, slots[s].re, slots[s].im, st->fft);
        }
    }
    std::memmove(line, line + 32 * n, kAnalysisHistory * sizeof(float));
}

void qmfSynthesisSlot(QmfState* st, const float* re, const float* im, int step, float* out, Kernels kernels)
{
    const int m = synthesisBands(st->kind);
    st->position = (st->position + 1) % kSynthesisBlocks;
    float* block = st->line + st->position * 2 * m;
    const bool realKind = isRealKind(st->kind);
    const bool avx = kernels == Kernels::Avx2;
    if (m == 64)
        (avx ? synthesisModulationAvx2<64> : synthesisModulation<FloatArith, 64>)(re, im, step, realKind, block, st->fft);
    else
        (avx ? synthesisModulationAvx2<32> : synthesisModulation<FloatArith, 32>)(re, im, step, realKind, block, st->fft);
    if (kernels == Kernels::Avx2)
        synthesisWindowAvx2(st->line, st->position, m, out);
    else
        synthesisWindowScalar(st->line, st->position, m, out);
}

// ------------------------------------------------------------------ state objects

namespace {

int fftOrderOf(QmfKind kind)
{
    if (isAnalysis(kind)) return 5;
    return isDown(kind) ? 5 : 6;
}

int lineFloatsOf(QmfKind kind)
{
    return isAnalysis(kind) ? kAnalysisLine : kSynthesisBlocks * 2 * synthesisBands(kind);
}

int fftAreaBytes(QmfKind kind)
{
    int spec = 0, init = 0, work = 0;
    fftGetSize(fftOrderOf(kind), kFftNoScale, 0, &spec, &init, &work);
    return roundUp16(spec);
}

}  // namespace

int qmfStateBytes(QmfKind kind)
{
    return static_cast<int>(sizeof(QmfState)) + fftAreaBytes(kind) + lineFloatsOf(kind) * 4 + kStateSlack;
}

QmfState* qmfPlace(uint8_t* mem, QmfKind kind, uint32_t tag, int32_t owns)
{
    auto* st = alignUp<QmfState>(mem, kStateAlign);
    std::memset(st, 0, sizeof(QmfState));
    st->tag = tag;
    st->ownsMemory = owns;
    st->kind = kind;
    st->position = 0;
    uint8_t* fftArea = reinterpret_cast<uint8_t*>(st) + sizeof(QmfState);
    // Orders below 7 need no init buffer and cannot fail with these arguments.
    fftInit(&st->fft, fftOrderOf(kind), kFftNoScale, 0, fftArea, nullptr);
    st->line = reinterpret_cast<float*>(fftArea + fftAreaBytes(kind));
    st->lineFloats = lineFloatsOf(kind);
    std::memset(st->line, 0, static_cast<size_t>(st->lineFloats) * sizeof(float));
    return st;
}

}  // namespace zam::sbr
