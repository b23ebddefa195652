// The float SBR QMF banks: coefficient tables, the per-slot modulations on the
// internal FFT, and the state objects (see qmf.h for the algebra).
#include "sbr/qmf.h"

#include <immintrin.h>

#include <cmath>
#include <cstring>

#include "core/memory.h"
#include "sbr/sbr_qmf_window.h"
#include "transform/trig.h"

namespace zam::sbr {

namespace {

struct Cpxf {
    float re, im;
};

struct Cpxd {
    double re, im;
};

// e^{i pi num / den}
constexpr Cpxd expPi(int64_t num, int64_t den)
{
    const SinCos sc = sinCosTurn(num, 2 * den);
    return {sc.c, sc.s};
}
constexpr Cpxd mul(Cpxd a, Cpxd b) { return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re}; }
constexpr Cpxf toFloat(Cpxd a, double scale = 1.0)
{
    return {static_cast<float>(a.re * scale), static_cast<float>(a.im * scale)};
}

inline Cpxf cmul(Cpxf a, Cpxf b) { return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re}; }

// ------------------------------------------------------------------ analysis tables

struct AnalysisTables {
    alignas(32) float window[5][64];  // [j][m] = c(126 - 2m + 128j)
    Cpxf pre[32];                     // e^{-i pi m / 32}
    Cpxf alpha[2][32];                // [complex, real] weight of F(k)
    Cpxf beta[2][32];                 // [complex, real] weight of conj F(31 - k)
};

constexpr AnalysisTables makeAnalysisTables()
{
    AnalysisTables t{};
    for (int j = 0; j < 5; ++j)
        for (int m = 0; m < 64; ++m) t.window[j][m] = static_cast<float>(kQmfWindow[126 - 2 * m + 128 * j]);
    for (int m = 0; m < 32; ++m) t.pre[m] = toFloat(expPi(-m, 32));
    for (int k = 0; k < 32; ++k) {
        // 2Y = (P + Q) + t2 (P - Q), t2 = -i e^{i pi (2k+1)/64}, P = F(k), Q = conj F(31-k);
        // the complex bank is t1 * 2Y with t1 = e^{-i pi (2k+1)/256}, the real one
        // Re(t1' * 2Y) with t1' = e^{-i 3 pi (2k+1)/4}.
        const Cpxd e = expPi(2 * k + 1, 64);
        const Cpxd t2{e.im, -e.re};
        const Cpxd onePlus{1.0 + t2.re, t2.im}, oneMinus{1.0 - t2.re, -t2.im};
        const Cpxd t1[2] = {expPi(-(2 * k + 1), 256), expPi(-3 * (2 * k + 1), 4)};
        for (int r = 0; r < 2; ++r) {
            t.alpha[r][k] = toFloat(mul(t1[r], onePlus));
            t.beta[r][k] = toFloat(mul(t1[r], oneMinus));
        }
    }
    return t;
}

constexpr AnalysisTables kAnalysis = makeAnalysisTables();

// ------------------------------------------------------------------ synthesis tables

template <int M>
struct SynthesisTables {
    alignas(32) float window[10 * M];  // c(n) for M = 64, c(2n) for M = 32
    Cpxf pre[2][M];                    // [complex, real] input pre-twiddle with the scale
    Cpxf dctPre[M / 2];                // e^{-i pi (4n+1)/(4M)}
    Cpxf dctPost[M / 2];               // e^{-i pi j / M}
};

template <int M>
constexpr SynthesisTables<M> makeSynthesisTables()
{
    SynthesisTables<M> t{};
    constexpr int step = 64 / M;
    for (int n = 0; n < 10 * M; ++n) t.window[n] = static_cast<float>(kQmfWindow[step * n]);
    for (int k = 0; k < M; ++k) {
        const int odd = 2 * k + 1;
        // The core evaluates Re sum X'_k e^{i pi (k+1/2)(2n - (4M-1))/(2M)}.
        if (M == 64) {
            t.pre[0][k] = {1.0f / 64.0f, 0.0f};                       // (2n - 255)/128, 1/64
            t.pre[1][k] = toFloat(expPi(191 * odd, 256), 1.0 / 32.0);  // (2n - 64)/128, 1/32
        } else {
            t.pre[0][k] = toFloat(expPi(-odd, 256), 1.0 / 64.0);      // (4n - 255)/128, 1/64
            t.pre[1][k] = toFloat(expPi(95 * odd, 128), 1.0 / 32.0);  // (2n - 32)/64, 1/32
        }
    }
    for (int n = 0; n < M / 2; ++n) {
        t.dctPre[n] = toFloat(expPi(-(4 * n + 1), 4 * M));
        t.dctPost[n] = toFloat(expPi(-n, M));
    }
    return t;
}

constexpr SynthesisTables<64> kSynthesis64 = makeSynthesisTables<64>();
constexpr SynthesisTables<32> kSynthesis32 = makeSynthesisTables<32>();

template <int M>
constexpr const SynthesisTables<M>& synthesisTables()
{
    if constexpr (M == 64)
        return kSynthesis64;
    else
        return kSynthesis32;
}

// ------------------------------------------------------------------ modulations

// DCT-IV of length M, out[m] = sum_k a[k] cos(pi (2k+1)(2m+1) / 4M), through an
// M/2-point FFT. `sign` multiplies the odd outputs by -1 when it is -1 (the DST-IV
// of the reversed input then follows).
template <int M>
inline void dct4(const float* a, float* out, const SynthesisTables<M>& t, const FftSpec* fft, Kernels kernels)
{
    alignas(32) float z[M];
    alignas(32) float f[M];
    for (int n = 0; n < M / 2; ++n) {
        const Cpxf v = cmul(Cpxf{a[2 * n], a[M - 1 - 2 * n]}, t.dctPre[n]);
        z[2 * n] = v.re;
        z[2 * n + 1] = v.im;
    }
    fftFwd(z, f, fft, nullptr, kernels);
    for (int j = 0; j < M / 2; ++j) {
        const Cpxf y = cmul(Cpxf{f[2 * j], f[2 * j + 1]}, t.dctPost[j]);
        out[2 * j] = y.re;
        out[M - 1 - 2 * j] = -y.im;
    }
}

template <int M>
void synthesisModulation(const float* re, const float* im, int step, bool realKind, float* block, const FftSpec* fft,
                         Kernels kernels)
{
    const SynthesisTables<M>& t = synthesisTables<M>();
    const Cpxf* pre = t.pre[realKind ? 1 : 0];
    alignas(32) float a[M];
    alignas(32) float bRev[M];
    for (int k = 0; k < M; ++k) {
        const Cpxf x{re[k * step], im ? im[k * step] : 0.0f};
        const Cpxf v = cmul(x, pre[k]);
        a[k] = v.re;
        bRev[M - 1 - k] = v.im;
    }
    alignas(32) float c[M];
    alignas(32) float s[M];
    dct4<M>(a, c, t, fft, kernels);
    dct4<M>(bRev, s, t, fft, kernels);
    for (int m = 1; m < M; m += 2) s[m] = -s[m];
    for (int n = 0; n < M; ++n) block[n] = s[n] - c[n];
    for (int i = 0; i < M; ++i) block[M + i] = c[M - 1 - i] + s[M - 1 - i];
}

void analysisModulation(const float* uRev, bool realKind, AnalysisSlot& out, const FftSpec* fft, Kernels kernels)
{
    const AnalysisTables& t = kAnalysis;
    alignas(32) float z[64];
    alignas(32) float g[64];
    // z(m) = conj(c(m) e^{i pi m/32}), c(m) = u(2m) + i u(2m+1), u(n) = uRev[63 - n]:
    // the forward FFT of z is conj F.
    for (int m = 0; m < 32; ++m) {
        const Cpxf v = cmul(Cpxf{uRev[63 - 2 * m], -uRev[62 - 2 * m]}, t.pre[m]);
        z[2 * m] = v.re;
        z[2 * m + 1] = v.im;
    }
    fftFwd(z, g, fft, nullptr, kernels);
    const int r = realKind ? 1 : 0;
    for (int k = 0; k < 32; ++k) {
        const Cpxf p{g[2 * k], -g[2 * k + 1]};            // F(k)
        const Cpxf q{g[2 * (31 - k)], g[2 * (31 - k) + 1]};  // conj F(31 - k)
        const Cpxf a = cmul(p, t.alpha[r][k]);
        const Cpxf b = cmul(q, t.beta[r][k]);
        out.re[k] = a.re + b.re;
        if (!realKind) out.im[k] = a.im + b.im;
    }
}

}  // namespace

// ------------------------------------------------------------------ window kernels

void analysisWindowScalar(const float* x, float* uRev)
{
    const AnalysisTables& t = kAnalysis;
    for (int m = 0; m < 64; ++m) {
        float acc = t.window[0][m] * x[m];
        for (int j = 1; j < 5; ++j) acc = std::fma(t.window[j][m], x[m - 64 * j], acc);
        uRev[m] = acc;
    }
}

void synthesisWindowScalar(const float* ring, int position, int m, float* out)
{
    const float* win = m == 64 ? kSynthesis64.window : kSynthesis32.window;
    for (int j = 0; j < kSynthesisBlocks; ++j) {
        const float* block = ring + ((position - j + kSynthesisBlocks) % kSynthesisBlocks) * 2 * m + m * (j & 1);
        const float* w = win + j * m;
        for (int k = 0; k < m; ++k) out[k] = j == 0 ? w[k] * block[k] : std::fma(w[k], block[k], out[k]);
    }
}

void analysisWindowAvx2(const float* x, float* uRev)
{
    const AnalysisTables& t = kAnalysis;
    for (int m = 0; m < 64; m += 8) {
        __m256 acc = _mm256_mul_ps(_mm256_load_ps(t.window[0] + m), _mm256_loadu_ps(x + m));
        for (int j = 1; j < 5; ++j)
            acc = _mm256_fmadd_ps(_mm256_load_ps(t.window[j] + m), _mm256_loadu_ps(x + m - 64 * j), acc);
        _mm256_storeu_ps(uRev + m, acc);
    }
}

void synthesisWindowAvx2(const float* ring, int position, int m, float* out)
{
    const float* win = m == 64 ? kSynthesis64.window : kSynthesis32.window;
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
        if (kernels == Kernels::Avx2)
            analysisWindowAvx2(x, uRev);
        else
            analysisWindowScalar(x, uRev);
        analysisModulation(uRev, realKind, slots[s], st->fft, kernels);
    }
    std::memmove(line, line + 32 * n, kAnalysisHistory * sizeof(float));
}

void qmfSynthesisSlot(QmfState* st, const float* re, const float* im, int step, float* out, Kernels kernels)
{
    const int m = synthesisBands(st->kind);
    st->position = (st->position + 1) % kSynthesisBlocks;
    float* block = st->line + st->position * 2 * m;
    if (m == 64)
        synthesisModulation<64>(re, im, step, isRealKind(st->kind), block, st->fft, kernels);
    else
        synthesisModulation<32>(re, im, step, isRealKind(st->kind), block, st->fft, kernels);
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
    return isDown(kind) ? 4 : 5;
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
