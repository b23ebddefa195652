// Parametric-stereo hybrid analysis (ISO/IEC 14496-3, parametric stereo): the
// lowest QMF bands split further by 13-tap filters, stateless.
//
// For a split into Q bands with prototype g, band q of QMF signal x is
//   y_q(n) = sum_{m=0}^{12} G_q(m) x(n - m),
//   G_q(m) = g(m) exp(i 2 pi (q + 1/2)(m - 6) / Q)      Q = 4, 8, 12
//   G_q(m) = g(m) cos(pi q (m - 6))                     Q = 2 (real filters)
// Written as exp(i 2 pi q m / Q) exp(i pi m / Q) exp(-i 2 pi (q + 1/2) 6 / Q), this
// is a pre-twiddle of the 13 products g(m) x(n - m) (folded modulo Q), a Q-point
// inverse DFT on the internal FFT (Q = 12 as three 4-point transforms and a
// radix-3 step), and a post-twiddle.
#include <cstring>

#include "core/export.h"
#include "sbr/ps_hybrid_tables.h"
#include "transform/fft.h"
#include "transform/trig.h"

namespace zam::sbr {
namespace {

constexpr int kTaps = 13;
constexpr int kHistory = 12;
constexpr int kMaxSlots = 64;

struct Cpxf {
    float re, im;
};
inline Cpxf cmul(Cpxf a, Cpxf b) { return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re}; }

// One split: Q, the pre-twiddled taps, the post-twiddles and the hybrid band of
// each output q (outputs sharing a band are summed).
struct Split {
    int q;
    Cpxf taps[kTaps];
    Cpxf post[12];
    int band[12];
};

constexpr Split makeSplit(const double (&g)[kTaps], int q, const int (&band)[12])
{
    Split s{};
    s.q = q;
    for (int m = 0; m < kTaps; ++m) {
        // e^{i pi m / Q}; none for the real two-band filters
        const SinCos sc = q == 2 ? SinCos{0.0, 1.0} : sinCosTurn(m, 2 * q);
        s.taps[m] = {static_cast<float>(g[m] * sc.c), static_cast<float>(g[m] * sc.s)};
    }
    for (int k = 0; k < q; ++k) {
        // e^{-i 2 pi (k + 1/2) 6 / Q}, a turn fraction of -(12k + 6) / 2Q
        const SinCos sc = q == 2 ? SinCos{0.0, 1.0} : sinCosTurn(-(12 * k + 6), 2 * q);
        s.post[k] = {static_cast<float>(sc.c), static_cast<float>(sc.s)};
        s.band[k] = band[k];
    }
    return s;
}

// Hybrid band of each output q, in the standard's order: in the 20-band
// configuration QMF band 0 gives [q6, q7, q0, q1, q2 + q5, q3 + q4], band 1 (whose
// spectrum is mirrored) [q1, q0] and band 2 [q0, q1]; the 34-band configuration
// keeps q order.
constexpr int kBands20Q8[12] = {2, 3, 4, 5, 5, 4, 0, 1};
constexpr int kBands20B1[12] = {7, 6};
constexpr int kBands20B2[12] = {8, 9};
constexpr int kBands34B0[12] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
constexpr int kBands34B1[12] = {12, 13, 14, 15, 16, 17, 18, 19};
constexpr int kBands34B2[12] = {20, 21, 22, 23};
constexpr int kBands34B3[12] = {24, 25, 26, 27};
constexpr int kBands34B4[12] = {28, 29, 30, 31};

constexpr Split kSplits20[3] = {makeSplit(kPsProto20Q8, 8, kBands20Q8), makeSplit(kPsProto20Q2, 2, kBands20B1),
                                makeSplit(kPsProto20Q2, 2, kBands20B2)};
constexpr Split kSplits34[5] = {makeSplit(kPsProto34Q12, 12, kBands34B0), makeSplit(kPsProto34Q8, 8, kBands34B1),
                                makeSplit(kPsProto34Q4, 4, kBands34B2), makeSplit(kPsProto34Q4, 4, kBands34B3),
                                makeSplit(kPsProto34Q4, 4, kBands34B4)};

// W_12^t, t = 0..11, for the radix-3 step of the 12-point transform (forward sign).
struct Roots12 {
    Cpxf w[12];
};
constexpr Roots12 makeRoots12()
{
    Roots12 r{};
    for (int t = 0; t < 12; ++t) {
        const SinCos sc = sinCosTurn(t, 12);
        r.w[t] = {static_cast<float>(sc.c), static_cast<float>(-sc.s)};
    }
    return r;
}
constexpr Roots12 kRoots12 = makeRoots12();

// The small FFT specs of one call (orders 1..3), in stack memory.
struct Ffts {
    alignas(64) uint8_t mem[3][256];
    FftSpec* spec[4] = {};
    Ffts()
    {
        for (int order = 1; order <= 3; ++order) fftInit(&spec[order], order, kFftNoScale, 0, mem[order - 1], nullptr);
    }
};

// conj of the inverse DFT, i.e. the forward DFT of conj(b): G(q) = sum_r conj b(r) W_Q^{qr}.
void forwardOfConj(const float* bConj, float* g, int q, const Ffts& f)
{
    if (q != 12) {
        fftFwd(bConj, g, f.spec[q == 2 ? 1 : q == 4 ? 2 : 3], nullptr);
        return;
    }
    // 12 = 3 x 4: D_t = 4-point transform of b(t), b(t+3), b(t+6), b(t+9);
    // G(k) = sum_t W_12^{kt} D_t(k mod 4).
    alignas(32) float in[3][8], d[3][8];
    for (int t = 0; t < 3; ++t) {
        for (int s = 0; s < 4; ++s) {
            in[t][2 * s] = bConj[2 * (3 * s + t)];
            in[t][2 * s + 1] = bConj[2 * (3 * s + t) + 1];
        }
        fftFwd(in[t], d[t], f.spec[2], nullptr);
    }
    for (int k = 0; k < 12; ++k) {
        Cpxf acc{d[0][2 * (k & 3)], d[0][2 * (k & 3) + 1]};
        for (int t = 1; t < 3; ++t) {
            const Cpxf v = cmul(Cpxf{d[t][2 * (k & 3)], d[t][2 * (k & 3) + 1]}, kRoots12.w[(k * t) % 12]);
            acc.re += v.re;
            acc.im += v.im;
        }
        g[2 * k] = acc.re;
        g[2 * k + 1] = acc.im;
    }
}

void splitBand(const float* x, const Split& sp, float* const* dst, int numSlots, const Ffts& f)
{
    const int q = sp.q;
    for (int n = 0; n < numSlots; ++n) {
        // Folded, conjugated pre-twiddled products: conj b(r), r = m mod Q.
        alignas(32) float b[24] = {};
        alignas(32) float g[24];
        for (int m = 0; m < kTaps; ++m) {
            const float* xs = x + 2 * (n + kHistory - m);
            const Cpxf v = cmul(Cpxf{xs[0], xs[1]}, sp.taps[m]);
            const int r = m % q;
            b[2 * r] += v.re;
            b[2 * r + 1] -= v.im;
        }
        forwardOfConj(b, g, q, f);
        float* row = dst[n];
        for (int k = 0; k < q; ++k) {
            const Cpxf y = cmul(Cpxf{g[2 * k], -g[2 * k + 1]}, sp.post[k]);
            row[2 * sp.band[k]] += y.re;
            row[2 * sp.band[k] + 1] += y.im;
        }
    }
}

}  // namespace
}  // namespace zam::sbr

using namespace zam;
using namespace zam::sbr;

ZAM_API ZamStatus zamsAnalysisFilter_PS_32fc_D2(const float* const* ppSrc, float* const* ppDst, int numSlots,
                                                int config)
{
    if (!ppSrc || !ppDst) return zamStsNullPtr;
    if (numSlots < 1 || numSlots > kMaxSlots) return zamStsSize;
    if (config != 20 && config != 34) return zamStsBadArg;
    const int qmfBands = config == 20 ? 3 : 5;
    const int hybridBands = config == 20 ? 10 : 32;
    for (int b = 0; b < qmfBands; ++b)
        if (!ppSrc[b]) return zamStsNullPtr;
    for (int n = 0; n < numSlots; ++n)
        if (!ppDst[n]) return zamStsNullPtr;
    for (int n = 0; n < numSlots; ++n) std::memset(ppDst[n], 0, 2 * hybridBands * sizeof(float));
    const Ffts ffts;
    const Split* splits = config == 20 ? kSplits20 : kSplits34;
    for (int b = 0; b < qmfBands; ++b) splitBand(ppSrc[b], splits[b], ppDst, numSlots, ffts);
    return zamStsOk;
}
