// The SBR encoder's 64-band complex QMF analysis of the full-rate input.
//
// Per slot (64 new samples), with the 640-sample history x (x[0] the newest):
//   u(n) = sum_{j=0}^{4} x(n + 128 j) c(n + 128 j),                     n = 0..127
//   X(k) = sum_{n=0}^{127} u(n) e^{i pi (k + 0.5)(2n - 1) / 128}
//        = e^{-i pi (2k+1)/256} Y(k),  Y(k) = sum_n u(n) e^{i pi (2k+1) n / 128}.
// The phase (2n - 1) is the one that cancels the aliasing of the decoder's
// 64-band synthesis (phase (2n - 255)): the two offsets add up to 640, the
// window's length, modulo 128. (With (2n - 0.5) a round trip gives about 7 dB.)
// Y is the odd-frequency DFT of a real sequence, computed as in the decoder bank
// (qmf.h) at twice the length: one 64-point FFT of c(m) = u(2m) + i u(2m+1)
// pre-twiddled by e^{i pi m/64}; with F that transform, P = F(k), Q = conj F(63-k),
//   Y(k) = ((P + Q) + t2 (P - Q)) / 2,  t2 = -i e^{i pi (2k+1)/128},
// and the two post-twiddles fold in e^{-i pi (2k+1)/256} and the 1/2.
#include <cstring>

#include "core/export.h"
#include "core/memory.h"
#include "sbr/qmf_core.h"
#include "transform/fft.h"

namespace zam::sbr {
namespace {

constexpr int kEncBands = 64;
constexpr int kEncHistory = 576;  // 640 - 64 samples kept between slots
constexpr int kEncChunk = 16;     // slots staged in the line at a time
constexpr int kEncLine = kEncHistory + kEncBands * kEncChunk;
constexpr int kEncMaxSlots = 64;
constexpr int kEncFftOrder = 6;
constexpr char kEncLetter = 'j';

struct EncTables {
    float window[5][128];  // [j][m] = c(127 - m + 128 j): reads the line in time order
    float pre[128];        // e^{-i pi m / 64}, (re, im) pairs
    float alpha[128];      // weight of P, (re, im)
    float beta[128];       // weight of Q, (re, im)
};

constexpr EncTables makeEncTables()
{
    EncTables t{};
    for (int j = 0; j < 5; ++j)
        for (int m = 0; m < 128; ++m) t.window[j][m] = static_cast<float>(kQmfWindow[127 - m + 128 * j]);
    for (int m = 0; m < 64; ++m) {
        const Cpxd p = expPi(-m, 64);
        t.pre[2 * m] = static_cast<float>(p.re), t.pre[2 * m + 1] = static_cast<float>(p.im);
    }
    for (int k = 0; k < 64; ++k) {
        const Cpxd e = expPi(2 * k + 1, 128);
        const Cpxd t2{e.im, -e.re};
        const Cpxd t1 = expPi(-(2 * k + 1), 256);
        const Cpxd a = mul(t1, Cpxd{0.5 * (1.0 + t2.re), 0.5 * t2.im});
        const Cpxd b = mul(t1, Cpxd{0.5 * (1.0 - t2.re), -0.5 * t2.im});
        t.alpha[2 * k] = static_cast<float>(a.re), t.alpha[2 * k + 1] = static_cast<float>(a.im);
        t.beta[2 * k] = static_cast<float>(b.re), t.beta[2 * k + 1] = static_cast<float>(b.im);
    }
    return t;
}

constexpr EncTables kEnc = makeEncTables();

// Header at the first 16-byte boundary, then the FFT spec area, then the line.
struct EncState {
    uint32_t tag;
    int32_t ownsMemory;
    FftSpec* fft;
    float* line;
    int32_t reserved[10];
};
static_assert(sizeof(EncState) == 64);

int fftArea()
{
    int spec = 0, init = 0, work = 0;
    fftGetSize(kEncFftOrder, kFftNoScale, 0, &spec, &init, &work);
    return roundUp16(spec);
}

int fftInitBytes()
{
    int spec = 0, init = 0, work = 0;
    fftGetSize(kEncFftOrder, kFftNoScale, 0, &spec, &init, &work);
    return init;
}

int stateBytes() { return static_cast<int>(sizeof(EncState)) + fftArea() + kEncLine * 4 + kStateSlack; }

EncState* place(uint8_t* mem, uint8_t* initBuf, int32_t owns)
{
    auto* st = alignUp<EncState>(mem, kStateAlign);
    std::memset(st, 0, sizeof(EncState));
    st->tag = fourCharTag(kEncLetter);
    st->ownsMemory = owns;
    uint8_t* area = reinterpret_cast<uint8_t*>(st) + sizeof(EncState);
    fftInit(&st->fft, kEncFftOrder, kFftNoScale, 0, area, initBuf);
    st->line = reinterpret_cast<float*>(area + fftArea());
    std::memset(st->line, 0, kEncLine * sizeof(float));
    return st;
}

// One slot: x points at the slot's newest sample in the time-ordered line.
void slot(const float* x, const FftSpec* fft, float* out)
{
    alignas(32) float u[128];
    // u(n) = sum_j x[-n - 128 j] c(n + 128 j); with m = 127 - n the reads ascend.
    const float* base = x - 127;
    for (int m = 0; m < 128; ++m) {
        float acc = base[m] * kEnc.window[0][m];
        for (int j = 1; j < 5; ++j) acc = std::fma(base[m - 128 * j], kEnc.window[j][m], acc);
        u[127 - m] = acc;
    }
    alignas(32) float z[128], g[128];
    // z = conj(c(m) e^{i pi m/64}): its forward FFT is conj F.
    for (int m = 0; m < 64; ++m) {
        const float ur = u[2 * m], ui = u[2 * m + 1], pr = kEnc.pre[2 * m], pi = kEnc.pre[2 * m + 1];
        z[2 * m] = ur * pr + ui * pi;
        z[2 * m + 1] = ur * pi - ui * pr;
    }
    fftFwd(z, g, fft, nullptr);
    for (int k = 0; k < 64; ++k) {
        const float pr = g[2 * k], pi = -g[2 * k + 1], qr = g[2 * (63 - k)], qi = g[2 * (63 - k) + 1];
        const float ar = kEnc.alpha[2 * k], ai = kEnc.alpha[2 * k + 1];
        const float br = kEnc.beta[2 * k], bi = kEnc.beta[2 * k + 1];
        out[2 * k] = pr * ar - pi * ai + qr * br - qi * bi;
        out[2 * k + 1] = pr * ai + pi * ar + qr * bi + qi * br;
    }
}

}  // namespace
}  // namespace zam::sbr

using namespace zam;
using namespace zam::sbr;

ZAM_API ZamStatus zamsAnalysisFilterEncGetSize_SBR_32f(int* pSpecSize, int* pInitBufSize)
{
    if (!pSpecSize || !pInitBufSize) return zamStsNullPtr;
    *pSpecSize = stateBytes();
    *pInitBufSize = fftInitBytes();
    return zamStsOk;
}

ZAM_API ZamStatus zamsAnalysisFilterEncInit_SBR_32f(SbrEncAnalysisSpec_32f** ppSpec, uint8_t* pMem, uint8_t* pInitBuf)
{
    if (!ppSpec || !pMem || (!pInitBuf && fftInitBytes() > 0)) return zamStsNullPtr;
    *ppSpec = reinterpret_cast<SbrEncAnalysisSpec_32f*>(place(pMem, pInitBuf, kCallerMemory));
    return zamStsOk;
}

ZAM_API ZamStatus zamsAnalysisFilterEncInitAlloc_SBR_32f(SbrEncAnalysisSpec_32f** ppSpec)
{
    if (!ppSpec) return zamStsNullPtr;
    auto* mem = static_cast<uint8_t*>(allocBytes(stateBytes()));
    if (!mem) return zamStsMemAlloc;
    *ppSpec = reinterpret_cast<SbrEncAnalysisSpec_32f*>(mem);
    const int initBytes = fftInitBytes();
    auto* initBuf = static_cast<uint8_t*>(allocBytes(initBytes));
    if (initBytes > 0 && !initBuf) return zamStsMemAlloc;  // the object already placed is kept, as InitAlloc's rule says
    place(mem, initBuf, kOwnedByLibrary);
    if (initBuf) release(initBuf);
    return zamStsOk;
}

ZAM_API ZamStatus zamsAnalysisFilterEncFree_SBR_32f(SbrEncAnalysisSpec_32f* pSpec)
{
    if (!pSpec) return zamStsNullPtr;
    EncState* st = findHeader<EncState>(pSpec, fourCharTag(kEncLetter));
    if (!st) return zamStsContextMismatch;
    if (st->ownsMemory == kOwnedByLibrary) release(pSpec);
    return zamStsOk;
}

ZAM_API ZamStatus zamsAnalysisFilterEnc_SBR_32f32fc(const float* pSrc, float* const* ppDst, int numSlots,
                                                   SbrEncAnalysisSpec_32f* pSpec)
{
    if (!pSrc || !ppDst || !pSpec) return zamStsNullPtr;
    EncState* st = findHeader<EncState>(pSpec, fourCharTag(kEncLetter));
    if (!st) return zamStsContextMismatch;
    if (numSlots < 1 || numSlots > kEncMaxSlots) return zamStsSize;
    for (int s = 0; s < numSlots; ++s)
        if (!ppDst[s]) return zamStsNullPtr;
    float* line = st->line;
    for (int s0 = 0; s0 < numSlots; s0 += kEncChunk) {
        const int n = numSlots - s0 < kEncChunk ? numSlots - s0 : kEncChunk;
        std::memcpy(line + kEncHistory, pSrc + kEncBands * s0, static_cast<size_t>(n) * kEncBands * sizeof(float));
        for (int s = 0; s < n; ++s) slot(line + kEncHistory + kEncBands * s + 63, st->fft, ppDst[s0 + s]);
        std::memmove(line, line + kEncBands * n, kEncHistory * sizeof(float));
    }
    return zamStsOk;
}
