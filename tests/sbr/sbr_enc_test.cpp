// The SBR encoder tools: the 64-band analysis against a double-precision direct
// evaluation and through the decoder's synthesis, and the object rules.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <cstdio>
#include <random>
#include <vector>

#include "test_support.h"
#include "zamac.h"

namespace {

using cd = std::complex<double>;
constexpr double kPi = 3.141592653589793238462643383279502884;

std::vector<double> qmfWindow()
{
    std::vector<double> w(640, 0.0);
    FILE* f = std::fopen(zamtest::sharedPath("tables/sbr_qmf_window.txt").c_str(), "r");
    char line[256];
    while (f && std::fgets(line, sizeof line, f)) {
        int i;
        double v;
        if (line[0] != '#' && std::sscanf(line, "%d %lf", &i, &v) == 2) w[i] = v;
    }
    if (f) std::fclose(f);
    return w;
}

std::vector<float> noise(int n, unsigned seed, float amp)
{
    std::mt19937 g(seed);
    std::uniform_real_distribution<float> d(-amp, amp);
    std::vector<float> v(n);
    for (float& x : v) x = d(g);
    return v;
}

// Runs the analysis over the whole signal (numSlots per call) into rows of 128.
std::vector<float> analyse(const std::vector<float>& in, SbrEncAnalysisSpec_32f* spec, int perCall = 16)
{
    const int slots = static_cast<int>(in.size()) / 64;
    std::vector<float> out(static_cast<size_t>(slots) * 128);
    std::vector<float*> rows(slots);
    for (int s = 0; s < slots; ++s) rows[s] = out.data() + 128 * s;
    for (int s = 0; s < slots; s += perCall)
        EXPECT_EQ(zamsAnalysisFilterEnc_SBR_32f32fc(in.data() + 64 * s, rows.data() + s, std::min(perCall, slots - s), spec),
                  zamStsOk);
    return out;
}

TEST(SbrEncAnalysis, MatchesDirectEvaluation)
{
    const auto c = qmfWindow();
    const int slots = 24;
    const auto in = noise(64 * slots, 7, 20000.0f);
    SbrEncAnalysisSpec_32f* spec = nullptr;
    ASSERT_EQ(zamsAnalysisFilterEncInitAlloc_SBR_32f(&spec), zamStsOk);
    const auto got = analyse(in, spec, 5);
    double err = 0, ref = 0;
    std::vector<double> x(640, 0.0);
    for (int l = 0; l < slots; ++l) {
        for (int i = 639; i >= 64; --i) x[i] = x[i - 64];
        for (int j = 0; j < 64; ++j) x[63 - j] = in[64 * l + j];
        double u[128] = {};
        for (int n = 0; n < 640; ++n) u[n % 128] += x[n] * c[n];
        for (int k = 0; k < 64; ++k) {
            cd X = 0;
            for (int n = 0; n < 128; ++n) X += u[n] * std::exp(cd(0, kPi * (k + 0.5) * (2 * n - 1) / 128));
            const cd y(got[128 * l + 2 * k], got[128 * l + 2 * k + 1]);
            err += std::norm(y - X), ref += std::norm(X);
        }
    }
    const double rel = std::sqrt(err / ref);
    std::printf("relative RMS error %.2e\n", rel);
    EXPECT_LT(rel, 5e-7);
    EXPECT_EQ(zamsAnalysisFilterEncFree_SBR_32f(spec), zamStsOk);
}

TEST(SbrEncAnalysis, ReconstructsThroughDecoderSynthesis)
{
    const int slots = 64;
    const auto in = noise(64 * slots, 3, 20000.0f);
    SbrEncAnalysisSpec_32f* ana = nullptr;
    SbrSynthesisSpec_CToR_32fc32f* syn = nullptr;
    ASSERT_EQ(zamsAnalysisFilterEncInitAlloc_SBR_32f(&ana), zamStsOk);
    ASSERT_EQ(zamsSynthesisFilterInitAlloc_SBR_CToR_32fc32f(&syn), zamStsOk);
    auto bands = analyse(in, ana);
    std::vector<const float*> rows(slots);
    for (int s = 0; s < slots; ++s) rows[s] = bands.data() + 128 * s;
    std::vector<float> out(in.size());
    ASSERT_EQ(zamsSynthesisFilter_SBR_CToR_32fc32f_D2L(rows.data(), out.data(), slots, syn), zamStsOk);
    // Best delay and its SNR over the settled part.
    int best = 0;
    double bestSnr = -1e9;
    for (int d = 0; d < 1000; ++d) {
        double e = 0, r = 0;
        for (size_t i = 1200; i < out.size(); ++i) {
            e += std::pow(out[i] - in[i - d], 2);
            r += std::pow(in[i - d], 2.0);
        }
        const double snr = 10 * std::log10(r / e);
        if (snr > bestSnr) bestSnr = snr, best = d;
    }
    double xy = 0, xx = 0;
    for (size_t i = 1200; i < out.size(); ++i) xy += out[i] * in[i - best], xx += in[i - best] * in[i - best];
    std::printf("delay %d samples, SNR %.1f dB gain %f\n", best, bestSnr, xy / xx);
    EXPECT_EQ(best, 577);
    EXPECT_GT(bestSnr, 55.0);
    zamsAnalysisFilterEncFree_SBR_32f(ana);
    zamsSynthesisFilterFree_SBR_CToR_32fc32f(syn);
}

TEST(SbrEncAnalysis, ObjectAndChecks)
{
    int size = 0, initSize = -1;
    ASSERT_EQ(zamsAnalysisFilterEncGetSize_SBR_32f(&size, &initSize), zamStsOk);
    EXPECT_EQ(zamsAnalysisFilterEncGetSize_SBR_32f(&size, nullptr), zamStsNullPtr);
    EXPECT_EQ(initSize, 0);
    std::vector<uint8_t> mem(size + 1), initBuf(initSize + 1);
    SbrEncAnalysisSpec_32f* spec = nullptr;
    ASSERT_EQ(zamsAnalysisFilterEncInit_SBR_32f(&spec, mem.data() + 1, initBuf.data()), zamStsOk);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(spec) % 16, 0u);
    // Raw and aligned pointers give the same result.
    const auto in = noise(64 * 4, 9, 1000.0f);
    auto* raw = reinterpret_cast<SbrEncAnalysisSpec_32f*>(mem.data() + 1);
    const auto a = analyse(in, raw);
    ASSERT_EQ(zamsAnalysisFilterEncInit_SBR_32f(&spec, mem.data() + 1, initBuf.data()), zamStsOk);
    EXPECT_EQ(analyse(in, spec), a);
    // Check order: a canary row stays untouched on each failure.
    auto dst = zamtest::canaryVector<float>(128);
    float* rows[1] = {dst.data()};
    float* nullRow[1] = {nullptr};
    EXPECT_EQ(zamsAnalysisFilterEnc_SBR_32f32fc(nullptr, rows, 1, spec), zamStsNullPtr);
    EXPECT_EQ(zamsAnalysisFilterEnc_SBR_32f32fc(in.data(), rows, 0, nullptr), zamStsNullPtr);
    uint32_t wrong[64] = {0x434D4100u + 'V'};
    EXPECT_EQ(zamsAnalysisFilterEnc_SBR_32f32fc(in.data(), rows, 0, (SbrEncAnalysisSpec_32f*)wrong),
              zamStsContextMismatch);
    EXPECT_EQ(zamsAnalysisFilterEnc_SBR_32f32fc(in.data(), rows, 65, spec), zamStsSize);
    EXPECT_EQ(zamsAnalysisFilterEnc_SBR_32f32fc(in.data(), nullRow, 1, spec), zamStsNullPtr);
    EXPECT_TRUE(zamtest::untouched(dst));
    EXPECT_EQ(zamsAnalysisFilterEncFree_SBR_32f((SbrEncAnalysisSpec_32f*)wrong), zamStsContextMismatch);
    EXPECT_EQ(zamsAnalysisFilterEncFree_SBR_32f(spec), zamStsOk);
    EXPECT_EQ(zamsAnalysisFilterEncFree_SBR_32f(nullptr), zamStsNullPtr);
}

}  // namespace

namespace {

// Rows of the encoder analysis of `in` (64 samples per slot).
struct Rows {
    std::vector<float> data;
    std::vector<const float*> rows;
    explicit Rows(const std::vector<float>& in)
    {
        SbrEncAnalysisSpec_32f* spec = nullptr;
        zamsAnalysisFilterEncInitAlloc_SBR_32f(&spec);
        data = analyse(in, spec);
        zamsAnalysisFilterEncFree_SBR_32f(spec);
        for (size_t s = 0; s < data.size() / 128; ++s) rows.push_back(data.data() + 128 * s);
    }
};

// A click at sample t in quiet noise; frames of 32 slots; the detector runs on
// frames 0..3 (the click in frame `frame`).
class SbrTransient : public ::testing::TestWithParam<int> {};

TEST_P(SbrTransient, FindsClickAtKnownSlot)
{
    const int t = GetParam();
    auto in = noise(64 * 32 * 4, 5, 30.0f);
    in[t] = 20000.0f;
    Rows r(in);
    SbrTransientState st{};
    const int expected = (t + 320) / 64;  // analysis slot holding t + 320
    const int frameOf = expected / 32;
    int pos = -2, cls = -1;
    zamsDetectTransient_SBR_32f(r.rows.data(), &pos, &cls, 32, 0, 64, 8.0f, &st);  // onset of the noise
    st.prevFrameClass = ZAM_SBR_FIXFIX;
    for (int f = 1; f < 4; ++f) {
        ASSERT_EQ(zamsDetectTransient_SBR_32f(r.rows.data() + 32 * f, &pos, &cls, 32, 0, 64, 8.0f, &st), zamStsOk);
        std::printf("click %d: frame %d pos %d class %d (expected slot %d)\n", t, f, pos, cls, expected % 32);
        if (f == frameOf) {
            EXPECT_GE(pos, expected % 32 - 2);
            EXPECT_LE(pos, expected % 32);
            EXPECT_EQ(cls, ZAM_SBR_FIXVAR);
        } else {
            EXPECT_EQ(pos, -1);
            EXPECT_EQ(cls, f == frameOf + 1 ? ZAM_SBR_VARFIX : ZAM_SBR_FIXFIX);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Positions, SbrTransient, ::testing::Values(2500, 3000, 3333, 4000, 4700, 5600));

TEST(SbrTransient, ChecksInOrder)
{
    const auto in = noise(64 * 4, 1, 100.0f);
    Rows r(in);
    SbrTransientState st{}, before{};
    int pos = 7, cls = 7;
    const float* nullRows[4] = {r.rows[0], nullptr, r.rows[2], r.rows[3]};
    EXPECT_EQ(zamsDetectTransient_SBR_32f(r.rows.data(), &pos, &cls, 4, 0, 64, 8.0f, nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsDetectTransient_SBR_32f(r.rows.data(), &pos, &cls, 4, 10, 55, 8.0f, &st), zamStsSize);
    EXPECT_EQ(zamsDetectTransient_SBR_32f(r.rows.data(), &pos, &cls, 65, 0, 64, 0.0f, &st), zamStsSize);
    EXPECT_EQ(zamsDetectTransient_SBR_32f(nullRows, &pos, &cls, 4, 0, 64, 0.0f, &st), zamStsBadArg);
    EXPECT_EQ(zamsDetectTransient_SBR_32f(nullRows, &pos, &cls, 4, 0, 64, 8.0f, &st), zamStsNullPtr);
    EXPECT_EQ(pos + cls, 14);
    EXPECT_EQ(std::memcmp(&st, &before, sizeof st), 0);
}

}  // namespace

namespace {

TEST(SbrTnr, TonesHighNoiseNearZero)
{
    const int slots = 40;
    std::vector<float> tone(64 * slots);
    for (size_t i = 0; i < tone.size(); ++i) tone[i] = 10000.0f * std::sin(kPi * (10.5 / 64) * i);  // band 10 centre
    Rows t(tone), w(noise(64 * slots, 11, 10000.0f));
    float tnr[64];
    ASSERT_EQ(zamsEstimateTNR_SBR_32f(t.rows.data() + 8, tnr, 32, 10, 1), zamStsOk);
    std::printf("tone TNR %.1f dB\n", tnr[0]);
    EXPECT_GT(tnr[0], 40.0f);
    ASSERT_EQ(zamsEstimateTNR_SBR_32f(w.rows.data() + 8, tnr, 32, 0, 64), zamStsOk);
    double mean = 0, worst = 0;
    for (float v : tnr) mean += v / 64, worst = std::max(worst, double(v));
    std::printf("noise TNR mean %.2f dB, max %.2f dB\n", mean, worst);
    EXPECT_NEAR(mean, 3.0, 1.0);  // the band signals are twice oversampled
    EXPECT_LT(worst, 7.0);
    // Checks in order; nothing written on failure.
    auto canary = zamtest::canaryVector<float>(64);
    std::vector<const float*> holes(t.rows.begin(), t.rows.begin() + 4);
    holes[3] = nullptr;
    EXPECT_EQ(zamsEstimateTNR_SBR_32f(t.rows.data(), nullptr, 3, 0, 64), zamStsNullPtr);
    EXPECT_EQ(zamsEstimateTNR_SBR_32f(holes.data(), canary.data(), 2, 0, 64), zamStsSize);
    EXPECT_EQ(zamsEstimateTNR_SBR_32f(holes.data(), canary.data(), 4, 1, 64), zamStsSize);
    EXPECT_EQ(zamsEstimateTNR_SBR_32f(holes.data(), canary.data(), 4, 0, 64), zamStsNullPtr);
    EXPECT_TRUE(zamtest::untouched(canary));
}

}  // namespace
