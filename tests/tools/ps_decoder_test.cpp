// Parametric stereo of zamac-decode (its C sources compiled in) in both band
// configurations: with IID 0 and ICC index 0 (full correlation) the mixing matrix is
// [[1, 0], [1, 0]], so left and right must equal the mono QMF input: this checks the
// hybrid band order, the look-ahead alignment and the hybrid synthesis. The shared
// streams only use the 20-band configuration.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

extern "C" {
#include "../../tools/zamac-decode/ps_decoder.c"
#include "../../tools/common/sbr_tables.c"
}

namespace {

class PsIdentity : public ::testing::TestWithParam<int> {};

TEST_P(PsIdentity, FullCorrelationGivesTheMonoSignalOnBothSides)
{
    const int bands = GetParam();
    PsData data{};
    data.headerSeen = data.present = 1;
    data.enableIid = data.enableIcc = 1;
    data.nrIidPar = data.nrIccPar = bands;
    data.is34 = bands == 34;
    data.numEnv = 1;
    data.border[0] = -1;
    data.border[1] = SBR_SLOTS - 1;
    PsState* ps = ps_create();
    ASSERT_NE(ps, nullptr);
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> u(-1000.0f, 1000.0f);
    const int top = 40;
    std::vector<float> xRe(38 * 64 * 2), xIm(38 * 64 * 2);  // two consecutive frames of 32 slots + 6 ahead
    for (int l = 0; l < 70; ++l)
        for (int k = 0; k < top; ++k) xRe[l * 64 + k] = u(rng), xIm[l * 64 + k] = u(rng);
    float lRe[38][64], lIm[38][64], rRe[38][64], rIm[38][64];
    double worst = 0;
    for (int frame = 0; frame < 2; ++frame) {
        std::memcpy(lRe, &xRe[frame * 32 * 64], sizeof lRe);
        std::memcpy(lIm, &xIm[frame * 32 * 64], sizeof lIm);
        ps_apply(ps, &data, lRe, lIm, rRe, rIm, top);
        if (frame == 0) continue;  // the first frame starts from silent filter states
        for (int n = 0; n < SBR_SLOTS; ++n)
            for (int k = 0; k < 64; ++k) {
                const float re = xRe[(32 + n) * 64 + k], im = xIm[(32 + n) * 64 + k];
                for (float d : {lRe[n][k] - re, lIm[n][k] - im, rRe[n][k] - re, rIm[n][k] - im})
                    worst = std::max(worst, double(std::fabs(d)));
            }
    }
    EXPECT_LT(worst, 0.05) << bands << " bands";  // inputs up to 1000: float rounding only
    ps_free(ps);
}

INSTANTIATE_TEST_SUITE_P(Configurations, PsIdentity, ::testing::Values(20, 34));

}  // namespace
