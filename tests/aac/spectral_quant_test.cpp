// Inverse quantization and deinterleave of the AAC spectral tools.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <numeric>
#include <random>
#include <vector>

#include "aac/aac_quant.h"
#include "aac/aac_tables.h"
#include "test_support.h"
#include "zamac.h"

namespace {

using zamtest::canaryVector;
using zamtest::untouched;

// Fractional bits beyond Q3 of the medium and large ranges before the final shift.
int baseExponent(int a)
{
    if (a <= 128) return a < 64 ? 19 : 17;
    static const int kLarge[6] = {16, 15, 13, 12, 11, 9};  // by floor(log2 a) - 7
    return kLarge[(31 - __builtin_clz(static_cast<unsigned>(a))) - 7];
}

TEST(SpectralQuantTables, PowerTablesAreRoundedFromTheirDefinition)
{
    for (int f = 0; f < 4; ++f) {
        EXPECT_EQ(zam::kAacSmallPowers.v[f][0], 0);
        for (int i = 1; i < 16; ++i) {
            long double exact = powl(i, 4.0L / 3) * powl(2.0L, -f / 4.0L) * (i < 4 ? 268435456.0L : 33554432.0L);
            EXPECT_LE(fabsl(zam::kAacSmallPowers.v[f][i] - exact), 0.5L) << f << " " << i;
        }
    }
    for (int i = 16; i <= 128; ++i) {
        long double exact = powl(i, 4.0L / 3) * (i < 64 ? 8388608.0L : 2097152.0L);
        EXPECT_LE(fabsl(zam::kAacMediumPowers.v[i] - exact), 0.5L) << i;
    }
    EXPECT_EQ(zam::kAacMediumPowers.v[16], 338207482);
    EXPECT_EQ(zam::kAacMediumPowers.v[64], 536870912);
    EXPECT_EQ(zam::kAacMediumPowers.v[128], 1352829926);
    EXPECT_EQ(zam::kAacSmallPowers.v[0][1], 1 << 28);
    EXPECT_EQ(zam::kAacSmallPowers.v[0][8], 16 << 25);
    for (int f = 0; f < 4; ++f)
        EXPECT_NEAR(zam::kAacFractionalGain[f], std::ldexp(std::pow(2.0, -f / 4.0), 31), 1.0);
}

// Every magnitude 0..8191 at every scale factor 0..255, against q^(4/3) 2^(e/4) 8
// in long double. Where the value fits in 31 bits and no clamp applies, the error
// is at most 2^L + value * 2^-24, L the left shift (0 when the final shift is a
// right shift): a left shift multiplies the truncation of the unshifted value. In
// the small ranges the error stays below 1. Where the value does not fit, the
// result is the unshifted value shifted left with 32-bit wrapping, or 2147483647
// when that shift is above 31. Scalar and AVX2 twins agree everywhere.
TEST(SpectralQuant, ExhaustiveAgainstHighPrecision)
{
    std::vector<long double> pow43(8192);
    for (int a = 0; a < 8192; ++a) pow43[a] = powl(a, 4.0L / 3);
    std::vector<int32_t> vec(8192), sca(8192);
    std::vector<std::array<int32_t, 4>> unshifted(8192);  // by f, the value at s = base
    // The unshifted values first: e = 4 * base - f, s = base.
    for (int f = 0; f < 4; ++f) {
        for (int a = 16; a < 8192; ++a) {
            int32_t q = a;
            zam::aacDequantizeScalar(&q, 1, 4 * baseExponent(a) - f);
            unshifted[a][f] = q;
        }
    }
    long checked = 0, wrapped = 0;
    for (int sf = 0; sf < 256; ++sf) {
        const int e = sf - 100;
        const int s = (e + 3) >> 2;
        const int f = 4 * s - e;
        std::iota(vec.begin(), vec.end(), 0);
        std::iota(sca.begin(), sca.end(), 0);
        ASSERT_EQ(zam::aacDequantizeAvx2(vec.data(), 8192, e), zamStsOk);
        ASSERT_EQ(zam::aacDequantizeScalar(sca.data(), 8192, e), zamStsOk);
        ASSERT_EQ(vec, sca) << "sf " << sf;
        const long double scale = powl(2.0L, e / 4.0L) * 8;
        EXPECT_EQ(vec[0], 0);
        for (int a = 1; a < 8192; ++a) {
            const long double exact = pow43[a] * scale;
            const int32_t got = vec[a];
            if (a < 16) {
                const int shift = (a < 4 ? 25 : 22) - s;
                if (shift < 0) {
                    ASSERT_EQ(got, zam::kAacSmallPowers.v[f][a]) << a << " sf " << sf;  // clamped
                } else {
                    ASSERT_LT(fabsl(got - exact), 1.0L) << a << " sf " << sf;
                }
                ++checked;
                continue;
            }
            const int left = s - baseExponent(a);
            if (exact < 2147483647.0L || left <= 0) {
                const long double bound = ldexpl(1.0L, left > 0 ? left : 0) + exact * ldexpl(1.0L, -24);
                ASSERT_LE(fabsl(got - exact), bound) << a << " sf " << sf;
                ++checked;
            } else {
                const int32_t expect = left > 31 ? 2147483647
                                                 : static_cast<int32_t>(static_cast<uint32_t>(unshifted[a][f]) << left);
                ASSERT_EQ(got, expect) << a << " sf " << sf;
                ++wrapped;
            }
        }
    }
    EXPECT_GT(checked, 1200000);
    EXPECT_GT(wrapped, 10000);
}

TEST(SpectralQuant, SignsAndTwinsOnRandomInput)
{
    std::mt19937 gen(7);
    std::uniform_int_distribution<int> range(0, 3), small(-15, 15), medium(-128, 128), large(-8191, 8191);
    std::uniform_int_distribution<int> exponent(-140, 200), length(1, 300);
    for (int round = 0; round < 400; ++round) {
        const int n = length(gen);
        std::vector<int32_t> a(n);
        for (auto& v : a) {
            switch (range(gen)) {
                case 0: v = 0; break;
                case 1: v = small(gen); break;
                case 2: v = medium(gen); break;
                default: v = large(gen); break;
            }
        }
        const int e = exponent(gen);
        std::vector<int32_t> b = a, c = a;
        ASSERT_EQ(zam::aacDequantizeAvx2(b.data(), n, e), zamStsOk);
        ASSERT_EQ(zam::aacDequantizeScalar(c.data(), n, e), zamStsOk);
        ASSERT_EQ(b, c) << "round " << round;
        for (int i = 0; i < n; ++i) {
            ASSERT_EQ(c[i], zam::aacDequantizeOne(a[i], e));
            if (a[i] < 0) ASSERT_EQ(c[i], static_cast<int32_t>(0u - static_cast<uint32_t>(zam::aacDequantizeOne(-a[i], e))));
        }
    }
}

TEST(SpectralQuant, TwinsStopAtTheSameBadValue)
{
    for (int pos : {0, 5, 7, 8, 13, 20}) {
        for (int32_t bad : {8192, -8192, INT32_MIN, INT32_MAX}) {
            std::vector<int32_t> a(24, 300), b;
            a[pos] = bad;
            b = a;
            EXPECT_EQ(zam::aacDequantizeAvx2(a.data(), 24, 0), zamStsAacQuantValErr);
            EXPECT_EQ(zam::aacDequantizeScalar(b.data(), 24, 0), zamStsAacQuantValErr);
            EXPECT_EQ(a, b);
            for (int i = 0; i < pos; ++i) EXPECT_EQ(a[i], zam::aacDequantizeOne(300, 0));
            for (int i = pos; i < 24; ++i) EXPECT_EQ(a[i], i == pos ? bad : 300);
        }
    }
}

// The frame-level function on a long frame at 44.1 kHz.
struct LongFrame {
    std::vector<int32_t> spectrum = std::vector<int32_t>(1024, 0);
    std::vector<int16_t> sf = std::vector<int16_t>(49, 100);
    std::vector<uint8_t> cb = std::vector<uint8_t>(49, 1);
    int32_t groupLength[8] = {1, 0, 0, 0, 0, 0, 0, 0};
    ZamStatus run(int maxSfb = 49)
    {
        return zamsQuantInv_AAC_32s_I(spectrum.data(), sf.data(), 1, groupLength, maxSfb, cb.data(), 4, 1024);
    }
};

TEST(SpectralQuant, WorkedValues)
{
    LongFrame fr;
    fr.spectrum[0] = 1;
    fr.spectrum[1] = -1;
    fr.spectrum[2] = 8;
    fr.spectrum[3] = 8191;
    fr.spectrum[4] = -8191;
    fr.spectrum[5] = 16;
    fr.spectrum[6] = 64;
    fr.spectrum[7] = 4096;
    ASSERT_EQ(fr.run(), zamStsOk);
    EXPECT_EQ(fr.spectrum[0], 8);
    EXPECT_EQ(fr.spectrum[1], -8);
    EXPECT_EQ(fr.spectrum[2], 128);
    EXPECT_NEAR(fr.spectrum[3], std::pow(8191.0, 4.0 / 3) * 8, 2.0);
    EXPECT_EQ(fr.spectrum[4], -fr.spectrum[3]);
    EXPECT_EQ(fr.spectrum[5], 322);        // 40.317 * 8
    EXPECT_EQ(fr.spectrum[6], 2047);       // 256 * 8, truncated from just below
    EXPECT_NEAR(fr.spectrum[7], 524288, 1);
}

// Scale factor 104 doubles a result of scale factor 100 (up to the one unit that
// truncation lets the doubled value gain); 96 halves it exactly with truncation.
TEST(SpectralQuant, QuarterStepsOfFourDoubleAndHalve)
{
    for (int a = 1; a <= 8191; ++a) {
        const int32_t at100 = zam::aacDequantizeOne(a, 0);
        const int32_t at104 = zam::aacDequantizeOne(a, 4);
        const int32_t at96 = zam::aacDequantizeOne(a, -4);
        ASSERT_GE(at104, 2 * at100) << a;
        ASSERT_LE(at104, 2 * at100 + 1) << a;
        ASSERT_EQ(at96, at100 >> 1) << a;
    }
}

TEST(SpectralQuant, ShiftsAboveThirtyOne)
{
    // Right shift above 31: 0. Left shift above 31: saturation with the sign.
    EXPECT_EQ(zam::aacDequantizeOne(8191, -300), 0);
    EXPECT_EQ(zam::aacDequantizeOne(100, 200), 2147483647);
    EXPECT_EQ(zam::aacDequantizeOne(-100, 200), -2147483647);
    EXPECT_EQ(zam::aacDequantizeOne(3, -300), 0);
    // Small ranges stop growing once the shift would turn left.
    EXPECT_EQ(zam::aacDequantizeOne(1, 200), zam::kAacSmallPowers.v[0][1]);
    EXPECT_EQ(zam::aacDequantizeOne(15, 155), zam::kAacSmallPowers.v[1][15]);
}

TEST(SpectralQuant, SkippedBooksAndLimit)
{
    LongFrame fr;
    for (int i = 0; i < 1024; ++i) fr.spectrum[i] = (i % 7) - 3;
    fr.cb[0] = 0;
    fr.cb[1] = 13;
    fr.cb[2] = 14;
    fr.cb[3] = 15;
    std::vector<int32_t> before = fr.spectrum;
    ASSERT_EQ(fr.run(), zamStsOk);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(fr.spectrum[i], before[i]) << i;  // bands 0..3 are 4 wide
    for (int i = 16; i < 1024; ++i) EXPECT_EQ(fr.spectrum[i], zam::aacDequantizeOne(before[i], 0)) << i;

    LongFrame bad;
    bad.spectrum.assign(1024, 2);
    bad.spectrum[100] = 8192;  // 44.1 kHz band 21 is 96..108
    ASSERT_EQ(bad.run(), zamStsAacQuantValErr);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(bad.spectrum[i], zam::aacDequantizeOne(2, 0)) << i;
    for (int i = 101; i < 1024; ++i) EXPECT_EQ(bad.spectrum[i], 2) << i;

    LongFrame partial;
    partial.spectrum.assign(1024, 2);
    ASSERT_EQ(partial.run(10), zamStsOk);  // bands 0..9 cover 0..39
    for (int i = 0; i < 1024; ++i) EXPECT_EQ(partial.spectrum[i], i < 40 ? 20 : 2) << i;
}

TEST(SpectralQuant, GroupedShortFrame)
{
    // 48 kHz short bands, groups of 3, 1 and 4 windows, max_sfb 10 of 14.
    const int32_t groups[3] = {3, 1, 4};
    const uint16_t* off = zam::aacSwbOffsets(3, true);
    std::vector<int32_t> x(1024, 5);
    std::vector<int16_t> sf(30);
    std::vector<uint8_t> cb(30, 2);
    for (int i = 0; i < 30; ++i) sf[i] = static_cast<int16_t>(90 + i);
    ASSERT_EQ(zamsQuantInv_AAC_32s_I(x.data(), sf.data(), 3, groups, 10, cb.data(), 3, 128), zamStsOk);
    int start = 0;
    for (int g = 0; g < 3; ++g) {
        int p = start;
        for (int b = 0; b < 10; ++b) {
            const int w = (off[b + 1] - off[b]) * groups[g];
            for (int i = 0; i < w; ++i) ASSERT_EQ(x[p + i], zam::aacDequantizeOne(5, sf[g * 10 + b] - 100));
            p += w;
        }
        for (; p < start + groups[g] * 128; ++p) ASSERT_EQ(x[p], 5);
        start += groups[g] * 128;
    }
}

TEST(SpectralQuant, ArgumentChecksInOrderWriteNothing)
{
    auto x = canaryVector<int32_t>(1024);
    std::vector<int16_t> sf(60, 100);
    std::vector<uint8_t> cb(60, 1);
    const int32_t g1[8] = {1}, g8[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    struct Case {
        bool nullData;
        int32_t groups;
        int32_t maxSfb;
        uint32_t sri;
        int32_t winLen;
        ZamStatus expect;
    } cases[] = {
        {true, 0, 99, 99, 7, zamStsNullPtr},
        {false, 0, 99, 99, 7, zamStsAacWinLenErr},
        {false, 2, 99, 99, 1024, zamStsAacNumWinGrpErr},
        {false, 0, 99, 99, 128, zamStsAacNumWinGrpErr},
        {false, 9, 99, 99, 128, zamStsAacNumWinGrpErr},
        {false, 1, 52, 99, 1024, zamStsAacMaxSfbErr},
        {false, 1, -1, 99, 1024, zamStsAacMaxSfbErr},
        {false, 1, 49, 12, 1024, zamStsAacSmplRateIdxErr},
        {false, 1, 49, 0xFFFFFFFFu, 1024, zamStsAacSmplRateIdxErr},
        {false, 1, 50, 4, 1024, zamStsAacMaxSfbErr},
        {false, 8, 15, 4, 128, zamStsAacMaxSfbErr},
    };
    for (const auto& c : cases) {
        ZamStatus st = zamsQuantInv_AAC_32s_I(c.nullData ? nullptr : x.data(), sf.data(), c.groups,
                                              c.winLen == 128 ? g8 : g1, c.maxSfb, cb.data(), c.sri, c.winLen);
        EXPECT_EQ(st, c.expect);
        EXPECT_TRUE(untouched(x));
    }
    EXPECT_EQ(zamsQuantInv_AAC_32s_I(x.data(), nullptr, 1, g1, 1, cb.data(), 4, 1024), zamStsNullPtr);
    EXPECT_EQ(zamsQuantInv_AAC_32s_I(x.data(), sf.data(), 1, nullptr, 1, cb.data(), 4, 1024), zamStsNullPtr);
    EXPECT_EQ(zamsQuantInv_AAC_32s_I(x.data(), sf.data(), 1, g1, 1, nullptr, 4, 1024), zamStsNullPtr);
    EXPECT_TRUE(untouched(x));
}

// ---------------------------------------------------------------- deinterleave

// The reference: the source position of every destination coefficient, walked
// independently from the group and band layout.
std::vector<int> deinterleaveMap(const std::vector<int>& groups, int maxSfb, int sri)
{
    const uint16_t* off = zam::aacSwbOffsets(sri, true);
    std::vector<int> map(1024, -2);  // -2 untouched, -1 zero
    int window = 0;
    for (int len : groups) {
        const int base = window * 128;
        for (int j = 0; j < len; ++j) {
            for (int k = 0; k < 128; ++k) {
                int dst = (window + j) * 128 + k;
                int b = 0;
                while (b < maxSfb && off[b + 1] <= k) ++b;
                if (b >= maxSfb) {
                    map[dst] = -1;
                    continue;
                }
                map[dst] = base + off[b] * len + j * (off[b + 1] - off[b]) + (k - off[b]);
            }
        }
        window += len;
    }
    return map;
}

TEST(SpectralDeinterleave, MatchesTheLayoutMap)
{
    const std::vector<std::vector<int>> groupings = {{8}, {1, 1, 1, 1, 1, 1, 1, 1}, {3, 1, 4}, {2, 2, 2, 2}, {5, 3}, {1, 6}};
    for (int sri : {0, 3, 5, 8, 11}) {
        const int numSwb = zam::aacNumSwb(sri, true);
        for (const auto& groups : groupings) {
            for (int maxSfb : {0, 1, numSwb / 2, numSwb}) {
                std::vector<int32_t> src(1024);
                std::iota(src.begin(), src.end(), 1);
                auto dst = canaryVector<int32_t>(1024);
                ASSERT_EQ(zamsDeinterleaveSpectrum_AAC_32s(src.data(), dst.data(), static_cast<int32_t>(groups.size()),
                                                           groups.data(), maxSfb, sri, 128),
                          zamStsOk);
                const auto map = deinterleaveMap(groups, maxSfb, sri);
                for (int i = 0; i < 1024; ++i) {
                    if (map[i] == -2)
                        ASSERT_TRUE(untouched(&dst[i], 1)) << i;
                    else
                        ASSERT_EQ(dst[i], map[i] == -1 ? 0 : src[map[i]]) << "sri " << sri << " coef " << i;
                }
            }
        }
    }
}

TEST(SpectralDeinterleave, OneGroupOfEightMovesBandsToTheirWindows)
{
    const int32_t groups[1] = {8};
    const uint16_t* off = zam::aacSwbOffsets(4, true);
    std::vector<int32_t> src(1024), dst(1024, -1);
    // Band b of window j carries the value 1000 * j + b in the interleaved order.
    int p = 0;
    for (int b = 0; b < 14; ++b)
        for (int j = 0; j < 8; ++j)
            for (int i = off[b]; i < off[b + 1]; ++i) src[p++] = 1000 * j + b;
    ASSERT_EQ(zamsDeinterleaveSpectrum_AAC_32s(src.data(), dst.data(), 1, groups, 14, 4, 128), zamStsOk);
    for (int j = 0; j < 8; ++j)
        for (int b = 0; b < 14; ++b)
            for (int i = off[b]; i < off[b + 1]; ++i) ASSERT_EQ(dst[j * 128 + i], 1000 * j + b);
    ASSERT_EQ(zamsDeinterleaveSpectrum_AAC_32s(src.data(), dst.data(), 1, groups, 0, 4, 128), zamStsOk);
    for (int32_t v : dst) ASSERT_EQ(v, 0);
}

TEST(SpectralDeinterleave, ArgumentChecksInOrderWriteNothing)
{
    std::vector<int32_t> src(1024, 1);
    auto dst = canaryVector<int32_t>(1024);
    const int32_t g[8] = {8};
    EXPECT_EQ(zamsDeinterleaveSpectrum_AAC_32s(nullptr, dst.data(), 0, g, 99, 99, 1), zamStsNullPtr);
    EXPECT_EQ(zamsDeinterleaveSpectrum_AAC_32s(src.data(), nullptr, 0, g, 99, 99, 1), zamStsNullPtr);
    EXPECT_EQ(zamsDeinterleaveSpectrum_AAC_32s(src.data(), dst.data(), 0, nullptr, 99, 99, 1), zamStsNullPtr);
    EXPECT_EQ(zamsDeinterleaveSpectrum_AAC_32s(src.data(), dst.data(), 0, g, 99, 99, 1024), zamStsAacWinLenErr);
    EXPECT_EQ(zamsDeinterleaveSpectrum_AAC_32s(src.data(), dst.data(), 0, g, 99, 99, 128), zamStsAacNumWinGrpErr);
    EXPECT_EQ(zamsDeinterleaveSpectrum_AAC_32s(src.data(), dst.data(), 9, g, 99, 99, 128), zamStsAacNumWinGrpErr);
    EXPECT_EQ(zamsDeinterleaveSpectrum_AAC_32s(src.data(), dst.data(), 1, g, 52, 99, 128), zamStsAacMaxSfbErr);
    EXPECT_EQ(zamsDeinterleaveSpectrum_AAC_32s(src.data(), dst.data(), 1, g, 14, 12, 128), zamStsAacSmplRateIdxErr);
    EXPECT_EQ(zamsDeinterleaveSpectrum_AAC_32s(src.data(), dst.data(), 1, g, 14, -1, 128), zamStsAacSmplRateIdxErr);
    EXPECT_EQ(zamsDeinterleaveSpectrum_AAC_32s(src.data(), dst.data(), 1, g, 13, 0, 128), zamStsAacMaxSfbErr);
    EXPECT_TRUE(untouched(dst));
}

}  // namespace
