// Integer AAC filter bank: the 32-bit FFT's twins, synthesis and analysis against
// double-precision evaluations of the definitions, their round trip, and checks.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <complex>
#include <random>
#include <vector>

#include "test_support.h"
#include "transform/fft32.h"
#include "transform/mdct_aac.h"
#include "zamac.h"

namespace {

// Windows computed independently in double precision: rising half, length `half`.
std::vector<double> riseWindow(int shape, int half)
{
    std::vector<double> w(half);
    if (shape == 0) {
        for (int n = 0; n < half; ++n) w[n] = std::sin(M_PI / (2 * half) * (n + 0.5));
        return w;
    }
    const double alpha = half == 1024 ? 4.0 : 6.0;
    std::vector<double> kernel(half + 1);
    double total = 0;
    for (int p = 0; p <= half; ++p) {
        const double x = (p - half / 2.0) / (half / 2.0);
        kernel[p] = std::cyl_bessel_i(0.0, M_PI * alpha * std::sqrt(1 - x * x));
        total += kernel[p];
    }
    double run = 0;
    for (int n = 0; n < half; ++n) w[n] = std::sqrt((run += kernel[n]) / total);
    return w;
}

// The 2048-point window of a sequence (EIGHT_SHORT: the window of short block w).
std::vector<double> frameWindow(int seq, int shape, int prev, int w = 0)
{
    std::vector<double> win(seq == 2 ? 256 : 2048, 0.0);
    if (seq == 2) {
        auto rise = riseWindow(w == 0 ? prev : shape, 128), fall = riseWindow(shape, 128);
        for (int n = 0; n < 128; ++n) win[n] = rise[n], win[255 - n] = fall[n];
        return win;
    }
    auto longRise = riseWindow(prev, 1024), longFall = riseWindow(shape, 1024);
    auto shortRise = riseWindow(prev, 128), shortFall = riseWindow(shape, 128);
    for (int n = 0; n < 1024; ++n) {
        win[n] = seq == 3 ? (n < 448 ? 0 : n < 576 ? shortRise[n - 448] : 1) : longRise[n];
        const int m = 1024 + n;
        win[m] = seq == 1 ? (n < 448 ? 1 : n < 576 ? shortFall[575 - n] : 0) : longFall[1023 - n];
    }
    return win;
}

double cosPhi(const std::vector<double>& table, int n, int k, int len)
{
    return table[(static_cast<long long>(4 * n + len + 2) * (2 * k + 1)) % (8 * len)];
}
std::vector<double> cosTable(int len)
{
    std::vector<double> t(8 * len);
    for (int i = 0; i < 8 * len; ++i) t[i] = std::cos(2 * M_PI * i / (8.0 * len));
    return t;
}

// Windowed inverse transform in PCM units (3 fractional bits in).
std::vector<double> refInverse(const int32_t* X, int len, const std::vector<double>& win)
{
    static auto tl = cosTable(2048), ts = cosTable(256);
    const auto& t = len == 2048 ? tl : ts;
    std::vector<double> y(len);
    for (int n = 0; n < len; ++n) {
        double acc = 0;
        for (int k = 0; k < len / 2; ++k) acc += X[k] * cosPhi(t, n, k, len);
        y[n] = acc * 2.0 / len / 8.0 * win[n];
    }
    return y;
}

// Synthesis of one frame in double: 1024 outputs (PCM) plus the new overlap.
void refSynthesis(const int32_t* X, int seq, int shape, int prev, std::vector<double>& overlap,
                  std::vector<double>& out)
{
    std::vector<double> frame(2048, 0.0);
    if (seq == 2) {
        for (int w = 0; w < 8; ++w) {
            auto y = refInverse(X + 128 * w, 256, frameWindow(2, shape, prev, w));
            for (int n = 0; n < 256; ++n) frame[448 + 128 * w + n] += y[n];
        }
    } else {
        frame = refInverse(X, 2048, frameWindow(seq, shape, prev));
    }
    out.assign(1024, 0.0);
    for (int n = 0; n < 1024; ++n) out[n] = overlap[n] + frame[n], overlap[n] = frame[1024 + n];
}

std::vector<int32_t> randomSpectrum(int magnitudeBits, int liveLines)
{
    std::uniform_int_distribution<int32_t> d(-(1 << magnitudeBits), 1 << magnitudeBits);
    std::vector<int32_t> x(1024, 0);
    for (int i = 0; i < 1024; ++i)
        if (i % 128 < liveLines / 8 || liveLines == 1024) x[i] = d(zamtest::rng());
    return x;
}

TEST(Fft32, TwinsAgreeAndMatchTheDft)
{
    for (int order : {1, 2, 3, 5, 6, 9}) {
        const int n = 1 << order;
        for (int bits : {4, 20, 31}) {
            std::uniform_int_distribution<int64_t> d(-(int64_t{1} << bits) + 1, (int64_t{1} << bits) - 1);
            std::vector<int32_t> a(2 * n), b;
            for (auto& v : a) v = static_cast<int32_t>(d(zamtest::rng()));
            b = a;
            const auto in = a;
            const int ea = zam::fft32Fwd(a.data(), order, zam::Kernels::Avx2);
            const int eb = zam::fft32Fwd(b.data(), order, zam::Kernels::Scalar);
            ASSERT_EQ(ea, eb);
            ASSERT_EQ(a, b) << "order " << order;
            double err = 0, peak = 0;
            for (int k = 0; k < n; ++k) {
                std::complex<double> acc = 0;
                for (int m = 0; m < n; ++m)
                    acc += std::complex<double>(in[2 * m], in[2 * m + 1]) * std::polar(1.0, -2 * M_PI * m * k / n);
                acc /= std::ldexp(1.0, ea);
                err = std::max(err, std::abs(acc - std::complex<double>(a[2 * k], a[2 * k + 1])));
                peak = std::max(peak, std::abs(acc));
            }
            EXPECT_LT(err, 2.0 * order + 2) << "order " << order << " bits " << bits << " peak " << peak;
        }
    }
}

struct SynthCase {
    int seq, shape, prev, bits, lines;
};

class Synthesis : public ::testing::TestWithParam<SynthCase> {};

// Three frames in a row (so the overlap carries real data) against the double
// reference, in units of a 16-bit LSB.
TEST_P(Synthesis, MatchesDoubleReference)
{
    const SynthCase c = GetParam();
    std::vector<int32_t> overlap(1024, 0), overlapI(1024, 0);
    std::vector<double> refOverlap(1024, 0.0), ref;
    double worst = 0, sq = 0;
    for (int f = 0; f < 3; ++f) {
        auto X = randomSpectrum(c.bits, c.lines);
        std::vector<int16_t> pcm(1024);
        ASSERT_EQ(zamsMDCTInv_AAC_32s16s(X.data(), pcm.data(), c.seq, c.shape, c.prev, overlap.data()), zamStsOk);
        auto inPlace = X;
        ASSERT_EQ(zamsMDCTInv_AAC_32s_I(inPlace.data(), c.seq, c.shape, c.prev, overlapI.data()), zamStsOk);
        ASSERT_EQ(overlap, overlapI);
        refSynthesis(X.data(), c.seq, c.shape, c.prev, refOverlap, ref);
        for (int n = 0; n < 1024; ++n) {
            const double e = inPlace[n] / 256.0 - ref[n];
            worst = std::max(worst, std::abs(e));
            sq += e * e;
            const double r = std::clamp(std::floor(ref[n] + 0.5), -32768.0, 32767.0);
            ASSERT_LE(std::abs(pcm[n] - r), 1) << n;
        }
    }
    const double rms = std::sqrt(sq / 3072);
    std::printf("seq %d: worst %.5f LSB, RMS %.6f LSB\n", c.seq, worst, rms);
    EXPECT_LT(worst, 0.01);
    EXPECT_LT(rms, 0.002);
}

INSTANTIATE_TEST_SUITE_P(AacFilterBank, Synthesis,
                         ::testing::Values(SynthCase{0, 0, 0, 26, 1024}, SynthCase{0, 1, 0, 24, 1024},
                                           SynthCase{1, 1, 1, 20, 64}, SynthCase{3, 0, 1, 26, 1024},
                                           SynthCase{2, 1, 0, 25, 1024}, SynthCase{2, 0, 1, 12, 40},
                                           SynthCase{0, 0, 1, 3, 16}));

// Analysis of a signal, then synthesis with overlap-add, returns the signal (the
// sequence chain long, start, short, stop, long exercises every window pair).
TEST(AacFilterBank, AnalysisThenSynthesisReturnsTheSignal)
{
    const int seqs[] = {0, 1, 2, 3, 0, 0};
    const int shapes[] = {1, 0, 1, 1, 0, 0};
    std::vector<int32_t> x(1024 * 8);
    std::normal_distribution<double> d(0, 4000 * 256.0);
    for (size_t i = 0; i < x.size(); ++i)
        x[i] = static_cast<int32_t>(d(zamtest::rng()) + 8000 * 256.0 * std::sin(i * 0.05));
    std::vector<int32_t> overlap(1024, 0), spec(1024);
    int prev = 0;
    int32_t worst = 0;
    for (int f = 0; f < 6; ++f) {
        ASSERT_EQ(zamsMDCTFwd_AAC_32s(x.data() + 1024 * f, spec.data(), seqs[f], shapes[f], prev), zamStsOk);
        std::vector<int32_t> inPlace(x.begin() + 1024 * f, x.begin() + 1024 * f + 2048);
        ASSERT_EQ(zamsMDCTFwd_AAC_32s_I(inPlace.data(), seqs[f], shapes[f], prev), zamStsOk);
        ASSERT_TRUE(std::equal(spec.begin(), spec.end(), inPlace.begin()));
        ASSERT_EQ(zamsMDCTInv_AAC_32s_I(spec.data(), seqs[f], shapes[f], prev, overlap.data()), zamStsOk);
        prev = shapes[f];
        if (f == 0) continue;  // the first frame's left half has no partner
        for (int n = 0; n < 1024; ++n) worst = std::max(worst, std::abs(spec[n] - x[1024 * f + n]));
    }
    // Coefficients carry 3 fractional bits: the analysis rounds the spectrum to
    // 1/8, which the synthesis spreads at (2/N)/8 per line.
    std::printf("analysis then synthesis: worst %d / 256 LSB\n", worst);
    EXPECT_LE(worst, 4) << "in 1/256 LSB";
}

TEST(AacFilterBank, ChecksWriteNothing)
{
    std::vector<int32_t> src(2048, 1), ov = zamtest::canaryVector<int32_t>(1024);
    auto pcm = zamtest::canaryVector<int16_t>(1024);
    auto dst = zamtest::canaryVector<int32_t>(1024);
    EXPECT_EQ(zamsMDCTInv_AAC_32s16s(nullptr, pcm.data(), 0, 0, 0, ov.data()), zamStsNullPtr);
    EXPECT_EQ(zamsMDCTInv_AAC_32s16s(src.data(), pcm.data(), 0, 0, 0, nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsMDCTInv_AAC_32s16s(src.data(), pcm.data(), 4, 0, 0, ov.data()), zamStsAacWinSeqErr);
    EXPECT_EQ(zamsMDCTInv_AAC_32s16s(src.data(), pcm.data(), -1, 0, 0, ov.data()), zamStsAacWinSeqErr);
    EXPECT_EQ(zamsMDCTInv_AAC_32s16s(src.data(), pcm.data(), 0, 2, 0, ov.data()), zamStsBadArg);
    EXPECT_EQ(zamsMDCTInv_AAC_32s_I(src.data(), 0, 0, -1, ov.data()), zamStsBadArg);
    EXPECT_EQ(zamsMDCTFwd_AAC_32s(src.data(), dst.data(), 5, 0, 0), zamStsAacWinSeqErr);
    EXPECT_EQ(zamsMDCTFwd_AAC_32s(src.data(), nullptr, 0, 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsMDCTFwd_AAC_32s_I(src.data(), 0, 3, 0), zamStsBadArg);
    EXPECT_TRUE(zamtest::untouched(pcm) && zamtest::untouched(ov) && zamtest::untouched(dst));
    EXPECT_TRUE(std::all_of(src.begin(), src.end(), [](int32_t v) { return v == 1; }));
}

// Full-scale 32-bit spectra and time signals do not overflow: the output saturates
// in the right direction.
TEST(AacFilterBank, ExtremeInputsSaturate)
{
    std::vector<int32_t> X(1024, 0), ov(1024, 0);
    X[0] = INT32_MAX;
    X[1] = INT32_MIN;
    std::vector<int16_t> pcm(1024);
    ASSERT_EQ(zamsMDCTInv_AAC_32s16s(X.data(), pcm.data(), 0, 0, 0, ov.data()), zamStsOk);
    std::vector<double> refOv(1024, 0.0), ref;
    refSynthesis(X.data(), 0, 0, 0, refOv, ref);
    for (int n = 0; n < 1024; ++n)
        ASSERT_LE(std::abs(pcm[n] - std::clamp(std::floor(ref[n] + 0.5), -32768.0, 32767.0)), 1) << n;
    std::vector<int32_t> x(2048, INT32_MAX), spec(1024);
    ASSERT_EQ(zamsMDCTFwd_AAC_32s(x.data(), spec.data(), 0, 1, 1), zamStsOk);
    const auto win = frameWindow(0, 1, 1);
    const auto t = cosTable(2048);
    for (int k = 0; k < 1024; k += 97) {
        double acc = 0;
        for (int n = 0; n < 2048; ++n) acc += x[n] * win[n] * cosPhi(t, n, k, 2048);
        const double r = std::clamp(acc * 2 / 256 * 8, -2147483648.0, 2147483647.0);
        EXPECT_NEAR(spec[k], r, 4096) << k;  // 2^-19 of the largest coefficient
    }
}

}  // namespace
