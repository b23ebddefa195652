// The fixed-point one-subband predictor against the float predictor on the
// output of the integer analysis banks, its zero rule and its checks.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

#include "test_support.h"
#include "zamac.h"

namespace {

constexpr int kLen = 38, kRows = kLen + 2;

// QMF rows of the integer analysis of noise plus tones at amplitude `amp`.
std::vector<int32_t> qmfRows(bool hq, double amp)
{
    std::vector<uint8_t> mem;
    int size = 0;
    zamsAnalysisFilterGetSize_SBRHQ_32s32sc(&size);
    mem.resize(size);
    SbrAnalysisSpecHQ_32s32sc* a = nullptr;
    SbrAnalysisSpecLP_32s* b = nullptr;
    hq ? zamsAnalysisFilterInit_SBRHQ_32s32sc(&a, mem.data()) : zamsAnalysisFilterInit_SBRLP_32s(&b, mem.data());
    std::normal_distribution<double> d(0.0, 0.1);
    std::vector<int32_t> pcm(32 * kRows);
    for (size_t i = 0; i < pcm.size(); ++i)
        pcm[i] = static_cast<int32_t>(amp * (0.4 * std::sin(0.05 * i) + 0.3 * std::sin(1.3 * i) + d(zamtest::rng())));
    const int width = hq ? 64 : 32;
    std::vector<int32_t> q(kRows * width);
    std::vector<int32_t*> rows;
    for (int r = 0; r < kRows; ++r) rows.push_back(q.data() + r * width);
    hq ? zamsAnalysisFilter_SBRHQ_32s32sc(pcm.data(), rows.data(), kRows, 32, a)
       : zamsAnalysisFilter_SBRLP_32s(pcm.data(), rows.data(), kRows, 32, b);
    return q;
}

TEST(SbrPredictOneFixed, MatchesTheFloatPredictor)
{
    for (bool hq : {true, false})
        for (double amp : {30000.0, 1e9}) {
            auto q = qmfRows(hq, amp);
            const int width = hq ? 64 : 32;
            std::vector<const int32_t*> rows;
            std::vector<float> f(q.begin(), q.end());
            std::vector<const float*> frows;
            for (int r = 0; r < kRows; ++r) rows.push_back(q.data() + r * width), frows.push_back(f.data() + r * width);
            double worst = 0;
            for (int band = 0; band < 32; ++band) {
                int32_t a0[2] = {}, a1[2] = {};
                float f0[2] = {}, f1[2] = {};
                std::vector<const float*> col;  // the band as subband 0 of one: the float one-at-a-time path
                for (auto* r : frows) col.push_back(r + (hq ? 2 * band : band));
                if (hq) {
                    ASSERT_EQ(zamsPredictOneCoef_SBRHQ_32sc_D2L(rows.data(), a0, a1, band, kLen), zamStsOk);
                    ASSERT_EQ(zamsPredictCoef_SBR_C_32fc_D2L(col.data(), f0, f1, 1, kLen), zamStsOk);
                } else {
                    ASSERT_EQ(zamsPredictOneCoef_SBRLP_32s_D2L(rows.data(), a0, a1, band, kLen), zamStsOk);
                    ASSERT_EQ(zamsPredictCoef_SBR_R_32f_D2L(col.data(), f0, f1, 1, kLen), zamStsOk);
                }
                for (int c = 0; c < (hq ? 2 : 1); ++c) {
                    worst = std::max(worst, std::fabs(a0[c] / 536870912.0 - f0[c]));
                    worst = std::max(worst, std::fabs(a1[c] / 536870912.0 - f1[c]));
                }
            }
            std::printf("%s, amplitude %.0e: largest difference from the float predictor %.1e\n", hq ? "HQ" : "LP",
                        amp, worst);
            EXPECT_LE(worst, 1e-4);
        }
}

TEST(SbrPredictOneFixed, ZeroSubbandAndChecks)
{
    std::vector<int32_t> zeros(kRows * 64, 0);
    std::vector<const int32_t*> rows;
    for (int r = 0; r < kRows; ++r) rows.push_back(zeros.data() + r * 64);
    int32_t a0[2] = {7, 7}, a1[2] = {7, 7};
    ASSERT_EQ(zamsPredictOneCoef_SBRHQ_32sc_D2L(rows.data(), a0, a1, 5, kLen), zamStsOk);
    EXPECT_TRUE(a0[0] == 0 && a0[1] == 0 && a1[0] == 0 && a1[1] == 0);
    auto out = zamtest::canaryVector<int32_t>(4);
    EXPECT_EQ(zamsPredictOneCoef_SBRLP_32s_D2L(nullptr, out.data(), out.data() + 2, 0, kLen), zamStsNullPtr);
    EXPECT_EQ(zamsPredictOneCoef_SBRLP_32s_D2L(rows.data(), out.data(), out.data() + 2, 0, 0), zamStsOk);
    EXPECT_EQ(zamsPredictOneCoef_SBRHQ_32sc_D2L(rows.data(), out.data(), out.data() + 2, 64, kLen), zamStsBadArg);
    rows[kLen + 1] = nullptr;
    EXPECT_EQ(zamsPredictOneCoef_SBRHQ_32sc_D2L(rows.data(), out.data(), out.data() + 2, 0, kLen), zamStsNullPtr);
    EXPECT_TRUE(zamtest::untouched(out));
}

}  // namespace
