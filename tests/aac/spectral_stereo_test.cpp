// M/S and intensity stereo of the AAC spectral tools.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "aac/aac_quant.h"
#include "aac/aac_stereo.h"
#include "test_support.h"
#include "zamac.h"

namespace {

using zamtest::canaryVector;
using zamtest::untouched;

struct Pair {
    std::vector<int32_t> l = std::vector<int32_t>(1024);
    std::vector<int32_t> r = std::vector<int32_t>(1024);
    std::vector<uint8_t> ms = std::vector<uint8_t>(480, 0);
    std::vector<uint8_t> cb = std::vector<uint8_t>(8 * 51, 1);
};

TEST(SpectralMs, MaskTwoConvertsAllButNoiseAndIntensity)
{
    Pair p;
    std::fill(p.l.begin(), p.l.end(), 5);
    std::fill(p.r.begin(), p.r.end(), 3);
    p.cb[2] = 13;
    p.cb[3] = 14;
    p.cb[4] = 15;
    p.cb[5] = 0;
    const int32_t g[8] = {1};
    ASSERT_EQ(zamsDecodeMsStereo_AAC_32s_I(p.l.data(), p.r.data(), 2, p.ms.data(), p.cb.data(), 1, g, 40, 4, 1024),
              zamStsOk);
    const uint16_t* off = zam::aacSwbOffsets(4, false);
    for (int b = 0; b < 49; ++b) {
        const bool converted = b < 40 && b != 2 && b != 3 && b != 4;
        for (int i = off[b]; i < off[b + 1]; ++i) {
            ASSERT_EQ(p.l[i], converted ? 8 : 5) << b;
            ASSERT_EQ(p.r[i], converted ? 2 : 3) << b;
        }
    }
    EXPECT_EQ(p.cb[3], 14);  // mask 2 does not swap intensity books
    EXPECT_EQ(p.cb[4], 15);
}

TEST(SpectralMs, ButterflyTwinsAgreeAndWrap)
{
    std::mt19937 gen(11);
    std::uniform_int_distribution<int32_t> any(INT32_MIN, INT32_MAX);
    for (int n : {0, 1, 3, 4, 7, 8, 12, 20, 96, 333}) {
        std::vector<int32_t> l(n), r(n);
        for (int i = 0; i < n; ++i) {
            l[i] = any(gen);
            r[i] = any(gen);
        }
        auto l2 = l, r2 = r;
        zam::aacMsButterflyAvx2(l.data(), r.data(), n);
        zam::aacMsButterflyScalar(l2.data(), r2.data(), n);
        ASSERT_EQ(l, l2);
        ASSERT_EQ(r, r2);
    }
    int32_t l = INT32_MAX, r = 1;
    zam::aacMsButterflyAvx2(&l, &r, 1);
    EXPECT_EQ(l, INT32_MIN);
    EXPECT_EQ(r, INT32_MAX - 1);
}

// Argument checks of both stereo tools: spectral_quant_test.cpp (band walks).

// ---------------------------------------------------------------- intensity

// Worked out independently (scripts/aac_spectral_vectors.py) for positions -10..20.
const int32_t kIntensity1000[31] = {5656, 4756, 4000, 3363, 2828, 2378, 2000, 1681, 1414, 1189, 1000,
                                    840,  707,  594,  500,  420,  353,  297,  250,  210,  176,  148,
                                    125,  105,  88,   74,   62,   52,   44,   37,   31};
const int32_t kIntensityMinus777[31] = {-4396, -3697, -3108, -2614, -2198, -1849, -1554, -1307, -1099, -925, -777,
                                        -654,  -550,  -463,  -389,  -327,  -275,  -232,  -195,  -164,  -138, -116,
                                        -98,   -82,   -69,   -58,   -49,   -41,   -35,   -29,   -25};

TEST(SpectralIs, WorkedVectorsForPositionsMinusTenToTwenty)
{
    for (int p = -10; p <= 20; ++p) {
        EXPECT_EQ(zam::aacIntensityScale(1000, p), kIntensity1000[p + 10]) << p;
        EXPECT_EQ(zam::aacIntensityScale(-777, p), kIntensityMinus777[p + 10]) << p;
    }
}

TEST(SpectralIs, CloseToTheExactScaleOverAWideRange)
{
    std::mt19937 gen(5);
    std::uniform_int_distribution<int32_t> value(-(1 << 20), 1 << 20);
    for (int p = -40; p <= 120; ++p) {
        for (int k = 0; k < 200; ++k) {
            // 4l, or l shifted left before the multiplication, must fit in 32 bits.
            const int32_t limit = p < 0 ? (1 << 29) >> ((-p + 3) / 4) : (1 << 20);
            const int32_t l = value(gen) % limit;
            const long double exact = l * powl(2.0L, -p / 4.0L);
            ASSERT_LE(fabsl(zam::aacIntensityScale(l, p) - exact), 1.0L + fabsl(exact) * ldexpl(1.0L, -28))
                << l << " " << p;
        }
    }
}

}  // namespace
