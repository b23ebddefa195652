// The float SBR QMF banks: the state object shared by the nine kinds, the
// per-slot modulations (pre-twiddle, internal FFT, post-twiddle) and the window
// kernels, in an AVX2 form and a plain scalar twin.
//
// Analysis, 32 bands, per slot: u[0..63] from the windowed history, then
//   Y(k) = sum_n u(n) e^{i pi (2k+1) n / 64}
// by one 32-point FFT of c(m) = u(2m) + i u(2m+1) pre-twiddled by e^{i pi m/32}
// (the odd-frequency DFT of a real sequence): with F(k) that transform,
//   Y(k) = E + e^{i pi (2k+1)/64} O,  E = (F(k) + conj F(31-k))/2,
//   O = (F(k) - conj F(31-k))/(2i).
// The complex bank is W = 2 e^{-i pi (2k+1)/256} Y, the real bank
// X = 2 Re(e^{-i 3 pi (2k+1)/4} Y); both are folded into two post-twiddles per band.
//
// Synthesis, M = 64 or 32 bands, per slot: the input is pre-twiddled (kind- and
// scale-dependent), then with a = Re, b = Im of the result
//   C = DCT-IV(a),  S(m) = (-1)^m DCT-IV(b reversed)(m)   (= DST-IV(b)),
// each by an M/2-point FFT, and the 2M new values of v are
//   v[n] = S(n) - C(n),  v[M + i] = C(M-1-i) + S(M-1-i),   n, i = 0..M-1.
#pragma once

#include <cstdint>

#include "transform/fft.h"
#include "zamac.h"

namespace zam::sbr {

constexpr int kQmfMaxSlots = 64;
constexpr int kAnalysisBands = 32;
constexpr int kAnalysisHistory = 288;  // samples kept between slots (320 - 32)
constexpr int kAnalysisChunk = 16;     // slots staged in the line at a time
constexpr int kAnalysisLine = kAnalysisHistory + 32 * kAnalysisChunk;
constexpr int kSynthesisBlocks = 10;   // slots of v kept (v holds 20 M values)

enum class QmfKind : int32_t {
    AnalysisComplex,  // W, V
    AnalysisReal,     // X
    SynthesisComplex, // Z, Y
    SynthesisReal,    // [
    DownComplex,      // ], backslash
    DownReal,         // ^
};

constexpr bool isAnalysis(QmfKind k) { return k == QmfKind::AnalysisComplex || k == QmfKind::AnalysisReal; }
constexpr bool isDown(QmfKind k) { return k == QmfKind::DownComplex || k == QmfKind::DownReal; }
constexpr bool isRealKind(QmfKind k)
{
    return k == QmfKind::AnalysisReal || k == QmfKind::SynthesisReal || k == QmfKind::DownReal;
}
// Bands of a synthesis kind (64, or 32 for the down-sampling ones).
constexpr int synthesisBands(QmfKind k) { return isDown(k) ? 32 : 64; }

// The state object: this header at the first 16-byte boundary of the memory, then
// the internal FFT spec (64-byte aligned inside its own area), then the line:
// the analysis history in time order (kAnalysisLine floats), or the synthesis ring
// of kSynthesisBlocks blocks of 2M values of v, the newest block at `position`.
struct QmfState {
    uint32_t tag;
    int32_t ownsMemory;
    QmfKind kind;
    int32_t position;
    FftSpec* fft;
    float* line;
    int32_t lineFloats;
    int32_t reserved[7];
};
static_assert(sizeof(QmfState) == 64);

// Bytes of a state object of the kind (header, FFT, line, alignment slack).
int qmfStateBytes(QmfKind kind);
// Builds the object in `mem` (at least qmfStateBytes): header at the first 16-byte
// boundary, zeroed line. Returns the header.
QmfState* qmfPlace(uint8_t* mem, QmfKind kind, uint32_t tag, int32_t owns);

// Analysis of n <= kAnalysisChunk slots (32 samples each) into slots[0..n-1]
// (im left unset for the real kind). `kernels` picks the AVX2 kernels or their
// scalar twins.
struct AnalysisSlot {
    alignas(32) float re[32];
    alignas(32) float im[32];
};
void qmfAnalysisChunk(QmfState* st, const float* src, int n, AnalysisSlot* slots, Kernels kernels);

// Synthesis of one slot: reads M bands from re/im at column step `step` (im null:
// real input), writes M samples (M = 64, or 32 for the down-sampling kinds).
void qmfSynthesisSlot(QmfState* st, const float* re, const float* im, int step, float* out, Kernels kernels);

// The window kernels (exposed for the comparison test and the benchmark).
// Analysis: u'[m] = sum_{j=0}^{4} w[j][m] * x[m - 64 j], m = 0..63, with x the
// line at the slot's oldest needed sample + 256 (x[-256..63] readable).
void analysisWindowScalar(const float* x, float* uRev);
void analysisWindowAvx2(const float* x, float* uRev);
// Synthesis: out[k] = sum_{j=0}^{9} win[j*M + k] * block(j)[k + M (j & 1)],
// block(j) the v block of age j in the ring (10 blocks of 2M floats, newest at p).
void synthesisWindowScalar(const float* ring, int position, int m, float* out);
void synthesisWindowAvx2(const float* ring, int position, int m, float* out);

}  // namespace zam::sbr
