#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

#include "test_support.h"
#include "transform/dts_synth.h"
#include "zamac.h"

namespace {

constexpr double kPi = 3.141592653589793238462643383279502884;

// Column 1 (perfect) or 2 (non-perfect) of the window table, read from the file.
std::vector<double> window(int filterType)
{
    std::vector<double> c(512, 0.0);
    FILE* f = std::fopen(zamtest::sharedPath("tables/dts_qmf_window.txt").c_str(), "r");
    EXPECT_NE(f, nullptr);
    if (!f) return c;
    char line[512];
    int i = 0;
    double perfect = 0, nonPerfect = 0;
    while (std::fgets(line, sizeof line, f))
        if (line[0] != '#' && std::sscanf(line, "%d %lf %lf", &i, &perfect, &nonPerfect) == 3)
            c[i] = filterType ? perfect : nonPerfect;
    std::fclose(f);
    return c;
}

// The standard's interpolation as it is written, in double precision: the sums A
// and B over neighbouring sub-band pairs, SUM and DIFF, the 512-value history
// shifted by 32 per slot and the 64-value output accumulator.
class Reference {
public:
    Reference() : c_{window(0), window(1)}, hist_(512, 0.0), acc_(64, 0.0) {}
    void slot(const float* x, double* out, int filterType)
    {
        const std::vector<double>& c = c_[filterType];
        double a[16], b[16];
        for (int k = 0; k < 16; ++k) {
            a[k] = b[k] = 0;
            for (int i = 0; i < 16; ++i) {
                a[k] += (double{x[2 * i]} + x[2 * i + 1]) * std::cos((2 * i + 1) * (2 * k + 1) * kPi / 64);
                b[k] += (double{x[2 * i]} + (i ? x[2 * i - 1] : 0.0)) * std::cos(i * (2 * k + 1) * kPi / 32);
            }
        }
        for (int k = 0; k < 16; ++k) {
            hist_[k] = (a[k] + b[k]) * 0.25 / (2 * std::cos((2 * k + 1) * kPi / 128));
            hist_[31 - k] = (a[k] - b[k]) * -0.25 / (2 * std::sin((2 * k + 1) * kPi / 128));
        }
        for (int i = 0, k = 31; i < 32; ++i, --k)
            for (int j = 0; j < 512; j += 64) {
                acc_[i] += c[i + j] * (hist_[i + j] - hist_[j + k]);
                acc_[i + 32] += c[i + j + 32] * (-hist_[i + j] - hist_[j + k]);
            }
        for (int i = 0; i < 32; ++i) out[i] = acc_[i];
        for (int i = 511; i >= 32; --i) hist_[i] = hist_[i - 32];
        for (int i = 0; i < 32; ++i) acc_[i] = acc_[i + 32], acc_[i + 32] = 0;
    }

private:
    std::vector<double> c_[2], hist_, acc_;
};

struct Bank {
    Bank() { EXPECT_EQ(zamsSynthesisFilterInitAlloc_DTS_32f(&state), zamStsOk); }
    ~Bank() { zamsSynthesisFilterFree_DTS_32f(state); }
    DtsSynthesisState* state = nullptr;
};

std::vector<float> noise(size_t n, float amplitude = 1.0f)
{
    std::uniform_real_distribution<float> d(-amplitude, amplitude);
    std::vector<float> v(n);
    for (float& x : v) x = d(zamtest::rng());
    return v;
}

TEST(DtsSynthesis, MatchesTheStandardsInterpolation)
{
    Bank bank;
    Reference ref;
    const int slots[] = {8, 1, 16, 7, 32, 24};
    double worst[2] = {0, 0}, peak[2] = {0, 0};
    for (int call = 0; call < 6; ++call) {
        const int type = call % 3 == 2 ? 0 : 1;  // the window may change between calls
        std::vector<float> in = noise(32 * slots[call]), out(in.size());
        ASSERT_EQ(zamsSynthesisFilter_DTS_32f(in.data(), out.data(), slots[call], type, bank.state), zamStsOk);
        for (int t = 0; t < slots[call]; ++t) {
            double expect[32];
            ref.slot(&in[32 * t], expect, type);
            for (int i = 0; i < 32; ++i) {
                worst[type] = std::max(worst[type], std::fabs(out[32 * t + i] - expect[i]));
                peak[type] = std::max(peak[type], std::fabs(expect[i]));
            }
        }
    }
    std::printf("largest error / largest output: perfect %.2e, non-perfect %.2e\n", worst[1] / peak[1],
                worst[0] / peak[0]);
    EXPECT_LT(worst[1], 1e-6 * peak[1]);
    EXPECT_LT(worst[0], 1e-6 * peak[0]);
}

TEST(DtsSynthesis, ScalarTwinMatchesAvx2)
{
    uint8_t mem[2][8192];
    int size = 0;
    ASSERT_EQ(zamsSynthesisFilterGetSize_DTS_32f(&size), zamStsOk);
    ASSERT_LE(size, 8192);
    DtsSynthesisState* st[2];
    for (int k = 0; k < 2; ++k) ASSERT_EQ(zamsSynthesisFilterInit_DTS_32f(&st[k], mem[k] + 1 + 4 * k), zamStsOk);
    auto* hv = reinterpret_cast<zam::DtsSynthState*>(st[0]);
    auto* hs = reinterpret_cast<zam::DtsSynthState*>(st[1]);
    for (int slots : {1, 3, 8, 21}) {
        std::vector<float> in = noise(32 * slots, 1e4f), vec(in.size()), sca(in.size());
        in[5] = 32767.0f, in[31] = -32768.0f;
        zam::dtsSynthesisAvx2(in.data(), vec.data(), slots, slots & 1, hv);
        zam::dtsSynthesisScalar(in.data(), sca.data(), slots, slots & 1, hs);
        const float tol = 1e-6f * *std::max_element(in.begin(), in.end());
        for (size_t i = 0; i < in.size(); ++i) ASSERT_NEAR(vec[i], sca[i], tol) << "sample " << i;
        ASSERT_EQ(hv->position, hs->position);
        for (int i = 0; i < zam::kDtsRingFloats; ++i) ASSERT_NEAR(hv->ring[i], hs->ring[i], tol) << "ring " << i;
    }
}

// Analysis with the synthesis filters reversed in time (the synthesis filter of
// sub-band n is its response to a unit sample in sub-band n), then synthesis.
TEST(DtsSynthesis, PerfectWindowReconstructs)
{
    std::vector<double> f(32 * 512);
    for (int n = 0; n < 32; ++n) {
        Reference ref;
        for (int t = 0; t < 16; ++t) {
            float x[32] = {};
            x[n] = t == 0 ? 1.0f : 0.0f;
            ref.slot(x, &f[n * 512 + 32 * t], 1);
        }
    }
    const int slots = 400, delay = 480;
    std::vector<float> y = noise(32 * slots), sub(32 * slots), out(32 * slots);
    for (int t = 0; t < slots; ++t)
        for (int n = 0; n < 32; ++n) {
            double acc = 0;
            for (int m = 0; m < 512; ++m) {
                const int s = 32 * (t - 15) + m;
                if (s >= 0) acc += f[n * 512 + m] * y[s];
            }
            sub[32 * t + n] = static_cast<float>(1024.0 * acc);
        }
    Bank bank;
    ASSERT_EQ(zamsSynthesisFilter_DTS_32f(sub.data(), out.data(), slots, 1, bank.state), zamStsOk);
    double signal = 0, error = 0, cross = 0;
    for (int i = delay + 512; i < 32 * slots; ++i) {
        signal += double{y[i - delay]} * y[i - delay];
        cross += double{y[i - delay]} * out[i];
        error += (out[i] - y[i - delay]) * double{out[i] - y[i - delay]};
    }
    const double gain = cross / signal;
    double residual = 0;
    for (int i = delay + 512; i < 32 * slots; ++i) residual += std::pow(out[i] - gain * y[i - delay], 2);
    const double snr = 10 * std::log10(signal / error);
    std::printf("delay %d: SNR %.1f dB, gain %.7f, SNR after the gain %.1f dB\n", delay, snr, gain,
                10 * std::log10(signal / residual));
    EXPECT_GT(snr, 75.0);
}

TEST(DtsSynthesis, ChecksWriteNothing)
{
    Bank bank;
    std::vector<float> in = noise(64);
    auto out = zamtest::canaryVector<float>(64);
    EXPECT_EQ(zamsSynthesisFilter_DTS_32f(nullptr, out.data(), 2, 1, bank.state), zamStsNullPtr);
    EXPECT_EQ(zamsSynthesisFilter_DTS_32f(in.data(), out.data(), 2, 1, nullptr), zamStsNullPtr);
    uint8_t other[64] = {};
    EXPECT_EQ(zamsSynthesisFilter_DTS_32f(in.data(), out.data(), 2, 1, reinterpret_cast<DtsSynthesisState*>(other)),
              zamStsContextMismatch);
    EXPECT_EQ(zamsSynthesisFilter_DTS_32f(in.data(), out.data(), 0, 5, bank.state), zamStsSize);
    EXPECT_EQ(zamsSynthesisFilter_DTS_32f(in.data(), out.data(), 2, 2, bank.state), zamStsBadArg);
    EXPECT_TRUE(zamtest::untouched(out));
    EXPECT_EQ(zamsSynthesisFilterFree_DTS_32f(reinterpret_cast<DtsSynthesisState*>(other)), zamStsContextMismatch);
    EXPECT_EQ(zamsSynthesisFilterFree_DTS_32f(nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsSynthesisFilterInit_DTS_32f(nullptr, other), zamStsNullPtr);
}

}  // namespace
