// Perceptual noise substitution of the AAC spectral tools.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "aac/aac_pns.h"
#include "aac/aac_quant.h"
#include "test_support.h"
#include "zamac.h"

namespace {

using zamtest::canaryVector;
using zamtest::untouched;

TEST(SpectralPns, GeneratorAndAmplitudes)
{
    EXPECT_EQ(zam::aacNoiseStep(0), 1013904223u);
    EXPECT_EQ(zam::aacNoiseStep(1013904223u), 1196435762u);
    const int32_t first[5] = {1844674407, 1304381783, 1065023266, 922337204, 824963474};
    for (int w = 1; w <= 5; ++w) EXPECT_EQ(zam::aacNoiseAmplitude(w), first[w - 1]);
    for (int w = 1; w <= 96; ++w) {
        const long double exact = 1844674407.3709551616L / sqrtl(w);
        EXPECT_LE(fabsl(zam::aacNoiseAmplitude(w) - exact), 0.5L) << w;
    }
    EXPECT_EQ(zam::aacNoiseAmplitude(96), 188271293);  // the last entry, worked out independently
}

// Worked out independently (scripts/aac_spectral_vectors.py).
TEST(SpectralPns, BandNormalisationVectors)
{
    int32_t band[12];
    uint32_t state = 0;
    zam::aacNoiseBand(band, 4, &state);  // energy 789730940: one doubling, odd
    const int32_t expect4[4] = {718129176, 847412813, -1048347581, -1509724861};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(band[i], expect4[i]);
    EXPECT_EQ(state, 2868466484u);

    state = 12345;
    zam::aacNoiseBand(band, 12, &state);  // energy 1906844451: no doubling
    const int32_t expect12[12] = {23012874,  18664873,  612643673, 716129620, 1026452870, 126849295,
                                  559330324, 618501088, 672361354, 883680052, 44953023,   838958394};
    for (int i = 0; i < 12; ++i) EXPECT_EQ(band[i], expect12[i]);
    EXPECT_EQ(state, 3194601925u);

    // Here x * R exceeds 31 bits before the halving: the steps must stay in 64 bits.
    state = 1000;
    zam::aacNoiseBand(band, 5, &state);
    const int32_t expect5[5] = {1148903893, -588123005, 972383974, -1137315118, -831302654};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(band[i], expect5[i]);
}

// The measured energy of the raw noise, as the generator defines it.
uint32_t rawEnergy(uint32_t state, int width)
{
    uint32_t energy = 0;
    for (int i = 0; i < width; ++i) {
        state = zam::aacNoiseStep(state);
        const uint64_t wide = static_cast<uint64_t>(state) * static_cast<uint32_t>(zam::aacNoiseAmplitude(width));
        const int32_t x = static_cast<int32_t>(static_cast<uint32_t>(wide >> 30));
        energy += static_cast<uint32_t>(static_cast<uint64_t>(static_cast<int64_t>(x) * x) >> 33);
    }
    return energy;
}

// Where the measured energy lies below 2^31, the quadratic inverse square root is
// good to about 1 %: the band's sum of squares is 2^62 within 3 %. From 2^31 up the
// quadratic is used outside its range (no normalisation is needed there) and the
// band comes out louder: up to twice the energy at 2^31 * 1.6.
TEST(SpectralPns, NormalisedBandsHaveUnitEnergy)
{
    std::mt19937 gen(9);
    int inRange = 0;
    for (int w = 1; w <= 96; ++w) {
        for (int k = 0; k < 20; ++k) {
            uint32_t state = gen();
            const uint32_t energyIn = rawEnergy(state, w);
            std::vector<int32_t> band(w);
            zam::aacNoiseBand(band.data(), w, &state);
            long double energy = 0;
            for (int32_t v : band) energy += static_cast<long double>(v) * v;
            const double ratio = static_cast<double>(energy / ldexpl(1.0L, 62));
            if (energyIn == 0) {
                EXPECT_EQ(ratio, 0.0);
            } else if (energyIn < (1u << 31)) {
                EXPECT_NEAR(ratio, 1.0, 0.03) << w;
                ++inRange;
            } else if (energyIn < 3435973836u) {
                EXPECT_GT(ratio, 0.97) << w;
                EXPECT_LT(ratio, 2.1) << w;
            }
        }
    }
    EXPECT_GT(inRange, 1000);
}

TEST(SpectralPns, SilentBandStaysSilent)
{
    // From this state the one coefficient of a width-1 band is -7: energy 0.
    uint32_t state = 3122045590u;
    int32_t x = 123;
    zam::aacNoiseBand(&x, 1, &state);
    EXPECT_EQ(x, 0);
    EXPECT_EQ(state, 2499999997u);
}

TEST(SpectralPns, GainTable)
{
    const struct {
        uint32_t e;
        int32_t g;
    } cases[] = {{0, 1024},         {1, 1217},      {2, 1448}, {3, 1722},          {40, 1048576},
                 {83, 1805811301}, {84, INT32_MIN}, {124, 0},  {127, -334702592}, {255, -334702592}};
    for (const auto& c : cases) EXPECT_EQ(zam::aacNoiseGain(c.e), c.g) << c.e;
}

struct NoiseFrame {
    std::vector<int32_t> x = std::vector<int32_t>(1024, 77);
    std::vector<int32_t> pred = std::vector<int32_t>(61, 1);
    std::vector<uint8_t> cb = std::vector<uint8_t>(8 * 51, 1);
    std::vector<uint16_t> sf = std::vector<uint16_t>(8 * 51, 0);
    int32_t groups[8] = {1, 0, 0, 0, 0, 0, 0, 0};
    int32_t state = 0;
};

TEST(SpectralPns, LongFrameWorkedBand)
{
    NoiseFrame f;
    f.cb[0] = 13;
    f.sf[0] = 40;
    ASSERT_EQ(zamsDecodePNS_AAC_32s(f.x.data(), f.pred.data(), f.cb.data(), f.sf.data(), 49, 1, f.groups, 4, 1024,
                                    &f.state),
              zamStsOk);
    const int32_t expect[4] = {2739, 3232, -4000, -5760};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(f.x[i], expect[i]);
    for (int i = 4; i < 1024; ++i) ASSERT_EQ(f.x[i], 77);
    EXPECT_EQ(static_cast<uint32_t>(f.state), 2868466484u);
    EXPECT_EQ(f.pred[1], 0);
    for (int i = 2; i < 61; ++i) EXPECT_EQ(f.pred[i], 1);
    EXPECT_EQ(f.pred[0], 1);
}

TEST(SpectralPns, ReproducibleBitForBit)
{
    NoiseFrame a;
    for (int b = 0; b < 49; b += 3) {
        a.cb[b] = 13;
        a.sf[b] = static_cast<uint16_t>(20 + b);
    }
    a.state = 987654321;
    NoiseFrame b = a;
    ASSERT_EQ(zamsDecodePNS_AAC_32s(a.x.data(), a.pred.data(), a.cb.data(), a.sf.data(), 49, 1, a.groups, 4, 1024,
                                    &a.state),
              zamStsOk);
    ASSERT_EQ(zamsDecodePNS_AAC_32s(b.x.data(), b.pred.data(), b.cb.data(), b.sf.data(), 49, 1, b.groups, 4, 1024,
                                    &b.state),
              zamStsOk);
    EXPECT_EQ(a.x, b.x);
    EXPECT_EQ(a.state, b.state);
    // The state moved once per noise coefficient.
    const uint16_t* off = zam::aacSwbOffsets(4, false);
    uint32_t s = 987654321;
    for (int band = 0; band < 49; band += 3)
        for (int i = off[band]; i < off[band + 1]; ++i) s = zam::aacNoiseStep(s);
    EXPECT_EQ(static_cast<uint32_t>(a.state), s);
}

// The eight-short walk: windows step by swb_offset[maxSfb - 1], scale factors by
// maxSfb per window, code books by maxSfb per group.
TEST(SpectralPns, EightShortSteppingIsKept)
{
    NoiseFrame f;
    const int maxSfb = 5;
    f.groups[0] = 3;
    f.groups[1] = 5;
    f.cb[1] = 13;               // group 0, band 1
    f.cb[maxSfb + 3] = 13;      // group 1, band 3
    for (int i = 0; i < 8 * maxSfb; ++i) f.sf[i] = static_cast<uint16_t>(10 + i);
    f.state = 42;
    ASSERT_EQ(zamsDecodePNS_AAC_32s(f.x.data(), f.pred.data(), f.cb.data(), f.sf.data(), maxSfb, 2, f.groups, 4, 128,
                                    &f.state),
              zamStsOk);
    const uint16_t* off = zam::aacSwbOffsets(4, true);  // 0 4 8 12 16 20 ...
    const int step = off[maxSfb - 1];                   // 16
    std::vector<int32_t> expect(1024, 77);
    uint32_t s = 42;
    for (int window = 0; window < 8; ++window) {
        const int band = window < 3 ? 1 : 3;
        const int width = off[band + 1] - off[band];
        int32_t* dst = expect.data() + window * step + off[band];
        zam::aacNoiseBand(dst, width, &s);
        zam::aacApplyNoiseGain(dst, width, f.sf[window * maxSfb + band]);
    }
    EXPECT_EQ(f.x, expect);
    EXPECT_EQ(static_cast<uint32_t>(f.state), s);
    for (int i = 0; i < 61; ++i) EXPECT_EQ(f.pred[i], 1);  // two groups: prediction flags stay
}

TEST(SpectralPns, OneGroupClearsPredictionFlagsEvenForShortWindows)
{
    NoiseFrame f;
    f.groups[0] = 8;
    f.cb[2] = 13;
    ASSERT_EQ(zamsDecodePNS_AAC_32s(f.x.data(), f.pred.data(), f.cb.data(), f.sf.data(), 4, 1, f.groups, 4, 128,
                                    &f.state),
              zamStsOk);
    EXPECT_EQ(f.pred[3], 0);
}

TEST(SpectralPns, PairSharesNoiseWhereFlagged)
{
    NoiseFrame left, right;
    std::vector<uint8_t> ms(480, 0);
    std::vector<int32_t> noiseState(8 * 51, -1);
    for (int b : {0, 5, 9}) {
        left.cb[b] = right.cb[b] = 13;
        left.sf[b] = right.sf[b] = 30;
    }
    ms[5] = 1;
    left.state = 1111;
    right.state = 2222;
    ASSERT_EQ(zamsDecodeMsPNS_AAC_32s(left.x.data(), left.pred.data(), left.cb.data(), left.sf.data(), 49, 1,
                                      left.groups, 4, 1024, &left.state, 0, ms.data(), noiseState.data()),
              zamStsOk);
    // Channel 0 stored the state in front of each of its noise bands.
    const uint16_t* off = zam::aacSwbOffsets(4, false);
    uint32_t s = 1111;
    for (int b : {0, 5, 9}) {
        EXPECT_EQ(static_cast<uint32_t>(noiseState[b]), s);
        for (int i = off[b]; i < off[b + 1]; ++i) s = zam::aacNoiseStep(s);
    }
    ASSERT_EQ(zamsDecodeMsPNS_AAC_32s(right.x.data(), right.pred.data(), right.cb.data(), right.sf.data(), 49, 1,
                                      right.groups, 4, 1024, &right.state, 1, ms.data(), noiseState.data()),
              zamStsOk);
    for (int i = off[5]; i < off[6]; ++i) EXPECT_EQ(right.x[i], left.x[i]);
    EXPECT_NE(right.x[off[0]], left.x[off[0]]);
    // Band 5 did not advance the right channel's generator.
    uint32_t r = 2222;
    for (int b : {0, 9})
        for (int i = off[b]; i < off[b + 1]; ++i) r = zam::aacNoiseStep(r);
    EXPECT_EQ(static_cast<uint32_t>(right.state), r);

    // Without the pair arrays the second channel simply draws its own noise.
    NoiseFrame alone = right;
    alone.x.assign(1024, 77);
    alone.state = 2222;
    ASSERT_EQ(zamsDecodeMsPNS_AAC_32s(alone.x.data(), alone.pred.data(), alone.cb.data(), alone.sf.data(), 49, 1,
                                      alone.groups, 4, 1024, &alone.state, 1, nullptr, nullptr),
              zamStsOk);
    NoiseFrame single = right;
    single.x.assign(1024, 77);
    single.state = 2222;
    ASSERT_EQ(zamsDecodePNS_AAC_32s(single.x.data(), single.pred.data(), single.cb.data(), single.sf.data(), 49, 1,
                                    single.groups, 4, 1024, &single.state),
              zamStsOk);
    EXPECT_EQ(alone.x, single.x);
}

TEST(SpectralPns, ArgumentChecksInOrderWriteNothing)
{
    auto x = canaryVector<int32_t>(1024);
    auto pred = canaryVector<int32_t>(61);
    std::vector<uint8_t> cb(480, 13);
    std::vector<uint16_t> sf(480, 10);
    const int32_t g[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    int32_t state = 5;
    auto call = [&](int32_t* px, int32_t maxSfb, int32_t groups, int32_t sri, int32_t winLen) {
        return zamsDecodePNS_AAC_32s(px, pred.data(), cb.data(), sf.data(), maxSfb, groups, g, sri, winLen, &state);
    };
    auto callMs = [&](int32_t* px, int32_t maxSfb, int32_t groups, int32_t sri, int32_t winLen) {
        return zamsDecodeMsPNS_AAC_32s(px, pred.data(), cb.data(), sf.data(), maxSfb, groups, g, sri, winLen, &state,
                                       0, nullptr, nullptr);
    };
    for (int which = 0; which < 2; ++which) {
        auto c = [&](int32_t* px, int32_t m, int32_t gr, int32_t s, int32_t w) {
            return which == 0 ? call(px, m, gr, s, w) : callMs(px, m, gr, s, w);
        };
        EXPECT_EQ(c(nullptr, 99, 0, 99, 7), zamStsNullPtr);
        EXPECT_EQ(c(x.data(), 52, 0, 99, 7), zamStsAacMaxSfbErr);
        EXPECT_EQ(c(x.data(), -1, 0, 99, 7), zamStsAacMaxSfbErr);
        EXPECT_EQ(c(x.data(), 51, 0, 99, 7), zamStsAacNumWinGrpErr);
        EXPECT_EQ(c(x.data(), 51, 9, 99, 7), zamStsAacNumWinGrpErr);
        EXPECT_EQ(c(x.data(), 51, 1, -1, 7), zamStsAacSmplRateIdxErr);
        EXPECT_EQ(c(x.data(), 51, 1, 12, 7), zamStsAacSmplRateIdxErr);
        EXPECT_EQ(c(x.data(), 51, 1, 11, 7), zamStsAacWinLenErr);
        EXPECT_TRUE(untouched(x));
        EXPECT_TRUE(untouched(pred));
        EXPECT_EQ(state, 5);
    }
    EXPECT_EQ(zamsDecodePNS_AAC_32s(x.data(), pred.data(), cb.data(), sf.data(), 1, 1, g, 4, 1024, nullptr),
              zamStsNullPtr);
    // max_sfb is not compared with the band count: bands past it are empty.
    EXPECT_EQ(call(x.data(), 51, 8, 4, 128), zamStsOk);
}

}  // namespace
