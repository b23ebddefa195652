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

// ---------------------------------------------------------------- band-walk arguments

// The band-walking tools check, in this order: window length, group count, max_sfb
// range, sampling index, max_sfb against the band count (M/S checks its mask
// before the last). Deinterleaving takes eight-short frames only.
struct WalkArgsCase {
    int32_t groups, maxSfb, sri, winLen;
    ZamStatus walk, deinterleave;
};

const WalkArgsCase kWalkArgsCases[] = {
    {0, 99, 99, 7, zamStsAacWinLenErr, zamStsAacWinLenErr},
    {2, 99, 99, 1024, zamStsAacNumWinGrpErr, zamStsAacWinLenErr},
    {0, 99, 99, 128, zamStsAacNumWinGrpErr, zamStsAacNumWinGrpErr},
    {9, 99, 99, 128, zamStsAacNumWinGrpErr, zamStsAacNumWinGrpErr},
    {1, 52, 99, 1024, zamStsAacMaxSfbErr, zamStsAacWinLenErr},
    {1, -1, 99, 1024, zamStsAacMaxSfbErr, zamStsAacWinLenErr},
    {1, 52, 99, 128, zamStsAacMaxSfbErr, zamStsAacMaxSfbErr},
    {1, 49, 12, 1024, zamStsAacSmplRateIdxErr, zamStsAacWinLenErr},
    {1, 49, -1, 1024, zamStsAacSmplRateIdxErr, zamStsAacWinLenErr},
    {1, 14, 12, 128, zamStsAacSmplRateIdxErr, zamStsAacSmplRateIdxErr},
    {1, 14, -1, 128, zamStsAacSmplRateIdxErr, zamStsAacSmplRateIdxErr},
    {1, 50, 4, 1024, zamStsAacMaxSfbErr, zamStsAacWinLenErr},  // 49 long bands at 44.1 kHz
    {1, 42, 0, 1024, zamStsAacMaxSfbErr, zamStsAacWinLenErr},  // 41 at 96 kHz
    {8, 15, 4, 128, zamStsAacMaxSfbErr, zamStsAacMaxSfbErr},   // 14 short bands
    {1, 13, 0, 128, zamStsAacMaxSfbErr, zamStsAacMaxSfbErr},   // 12 at 96 kHz
};

TEST(SpectralWalk, ArgumentChecksInOrderWriteNothing)
{
    auto x = canaryVector<int32_t>(1024), y = canaryVector<int32_t>(1024);
    auto cb = canaryVector<uint8_t>(480);
    std::vector<int16_t> sf(480, 100);
    std::vector<uint8_t> ms(480, 1);
    const int32_t g[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    for (const WalkArgsCase& k : kWalkArgsCases) {
        EXPECT_EQ(zamsQuantInv_AAC_32s_I(x.data(), sf.data(), k.groups, g, k.maxSfb, cb.data(),
                                         static_cast<uint32_t>(k.sri), k.winLen),
                  k.walk);
        EXPECT_EQ(zamsDecodeIsStereo_AAC_32s(x.data(), y.data(), sf.data(), cb.data(), k.groups, g, k.maxSfb, k.sri,
                                             k.winLen),
                  k.walk);
        EXPECT_EQ(zamsDecodeMsStereo_AAC_32s_I(x.data(), y.data(), 1, ms.data(), cb.data(), k.groups, g, k.maxSfb, k.sri,
                                               k.winLen),
                  k.walk);
        EXPECT_EQ(zamsDeinterleaveSpectrum_AAC_32s(x.data(), y.data(), k.groups, g, k.maxSfb, k.sri, k.winLen),
                  k.deinterleave);
    }
    // Pointers come first.
    EXPECT_EQ(zamsQuantInv_AAC_32s_I(nullptr, sf.data(), 0, g, 99, cb.data(), 99, 7), zamStsNullPtr);
    EXPECT_EQ(zamsQuantInv_AAC_32s_I(x.data(), nullptr, 0, g, 99, cb.data(), 99, 7), zamStsNullPtr);
    EXPECT_EQ(zamsQuantInv_AAC_32s_I(x.data(), sf.data(), 0, nullptr, 99, cb.data(), 99, 7), zamStsNullPtr);
    EXPECT_EQ(zamsQuantInv_AAC_32s_I(x.data(), sf.data(), 0, g, 99, nullptr, 99, 7), zamStsNullPtr);
    EXPECT_EQ(zamsDecodeIsStereo_AAC_32s(nullptr, y.data(), sf.data(), cb.data(), 0, g, 99, 99, 7), zamStsNullPtr);
    EXPECT_EQ(zamsDecodeIsStereo_AAC_32s(x.data(), y.data(), nullptr, cb.data(), 0, g, 99, 99, 7), zamStsNullPtr);
    EXPECT_EQ(zamsDecodeMsStereo_AAC_32s_I(nullptr, y.data(), 0, ms.data(), cb.data(), 0, g, 99, 99, 7), zamStsNullPtr);
    EXPECT_EQ(zamsDecodeMsStereo_AAC_32s_I(x.data(), y.data(), 1, nullptr, cb.data(), 1, g, 1, 4, 1024), zamStsNullPtr);
    EXPECT_EQ(zamsDecodeMsStereo_AAC_32s_I(x.data(), y.data(), 1, ms.data(), cb.data(), 1, nullptr, 1, 4, 1024),
              zamStsNullPtr);
    EXPECT_EQ(zamsDeinterleaveSpectrum_AAC_32s(nullptr, y.data(), 0, g, 99, 99, 1), zamStsNullPtr);
    EXPECT_EQ(zamsDeinterleaveSpectrum_AAC_32s(x.data(), nullptr, 0, g, 99, 99, 1), zamStsNullPtr);
    EXPECT_EQ(zamsDeinterleaveSpectrum_AAC_32s(x.data(), y.data(), 0, nullptr, 99, 99, 1), zamStsNullPtr);
    // M/S checks its mask after the sampling index and before the band count.
    EXPECT_EQ(zamsDecodeMsStereo_AAC_32s_I(x.data(), y.data(), 0, ms.data(), cb.data(), 1, g, 49, 12, 1024),
              zamStsAacSmplRateIdxErr);
    for (int32_t mask : {0, 3}) {
        EXPECT_EQ(zamsDecodeMsStereo_AAC_32s_I(x.data(), y.data(), mask, ms.data(), cb.data(), 1, g, 50, 4, 1024),
                  zamStsAacMsMaskErr);
    }
    EXPECT_TRUE(untouched(x));
    EXPECT_TRUE(untouched(y));
    EXPECT_TRUE(untouched(cb));
}

}  // namespace
