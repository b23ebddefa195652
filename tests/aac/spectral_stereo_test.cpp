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

TEST(SpectralMs, MaskOneFollowsTheFlagsOfEachGroup)
{
    // 32 kHz eight-short frame, groups 2, 5, 1, max_sfb 6.
    Pair p;
    const int32_t g[3] = {2, 5, 1};
    std::mt19937 gen(3);
    std::uniform_int_distribution<int32_t> value(-100000, 100000);
    for (int i = 0; i < 1024; ++i) {
        p.l[i] = value(gen);
        p.r[i] = value(gen);
    }
    for (int gr = 0; gr < 3; ++gr)
        for (int b = 0; b < 6; ++b) p.ms[gr * 60 + b] = static_cast<uint8_t>((gr + b) % 3 == 0);
    p.cb[0 * 6 + 3] = 15;  // group 0 band 3: flag set -> swapped
    p.cb[1 * 6 + 2] = 14;  // group 1 band 2: flag set -> swapped
    p.cb[1 * 6 + 1] = 14;  // group 1 band 1: no flag -> kept
    p.cb[2 * 6 + 2] = 13;  // group 2 band 2: flag set but noise -> untouched
    const Pair before = p;
    ASSERT_EQ(zamsDecodeMsStereo_AAC_32s_I(p.l.data(), p.r.data(), 1, p.ms.data(), p.cb.data(), 3, g, 6, 5, 128),
              zamStsOk);
    EXPECT_EQ(p.cb[3], 14);
    EXPECT_EQ(p.cb[8], 15);
    EXPECT_EQ(p.cb[7], 14);
    EXPECT_EQ(p.cb[14], 13);
    const uint16_t* off = zam::aacSwbOffsets(5, true);
    int start = 0;
    for (int gr = 0; gr < 3; ++gr) {
        int pos = start;
        for (int b = 0; b < 6; ++b) {
            const int w = (off[b + 1] - off[b]) * g[gr];
            const uint8_t book = before.cb[gr * 6 + b];
            const bool convert = p.ms[gr * 60 + b] && book != 13 && book != 14 && book != 15;
            for (int i = pos; i < pos + w; ++i) {
                ASSERT_EQ(p.l[i], convert ? before.l[i] + before.r[i] : before.l[i]) << gr << " " << b;
                ASSERT_EQ(p.r[i], convert ? before.l[i] - before.r[i] : before.r[i]) << gr << " " << b;
            }
            pos += w;
        }
        for (int i = pos; i < start + g[gr] * 128; ++i) ASSERT_EQ(p.l[i], before.l[i]);
        start += g[gr] * 128;
    }
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

TEST(SpectralIs, GroupedWalkWritesOnlyIntensityBands)
{
    const int32_t g[2] = {3, 5};
    std::vector<int32_t> l(1024);
    for (int i = 0; i < 1024; ++i) l[i] = 1000 + i;
    auto r = canaryVector<int32_t>(1024);
    std::vector<int16_t> sf(2 * 7);
    std::vector<uint8_t> cb(2 * 7, 1);
    for (int i = 0; i < 14; ++i) sf[i] = static_cast<int16_t>(i - 4);
    cb[2] = 15;
    cb[7 + 5] = 14;
    ASSERT_EQ(zamsDecodeIsStereo_AAC_32s(l.data(), r.data(), sf.data(), cb.data(), 2, g, 7, 8, 128), zamStsOk);
    const uint16_t* off = zam::aacSwbOffsets(8, true);
    std::vector<bool> written(1024, false);
    auto check = [&](int groupStart, int len, int band, int position, int sign) {
        const int first = groupStart + off[band] * len;
        for (int i = first; i < first + (off[band + 1] - off[band]) * len; ++i) {
            EXPECT_EQ(r[i], sign * zam::aacIntensityScale(l[i], position)) << i;
            written[i] = true;
        }
    };
    check(0, 3, 2, sf[2], 1);
    check(3 * 128, 5, 5, sf[12], -1);
    for (int i = 0; i < 1024; ++i)
        if (!written[i]) ASSERT_TRUE(untouched(&r[i], 1)) << i;
}

}  // namespace
