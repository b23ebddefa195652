// The power-law, scale-factor and spreading kernels against double (or long double)
// formulas over their whole input ranges, and the AVX2 paths against their twins.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <vector>

#include "test_support.h"
#include "util/power_kernels.h"
#include "zamac.h"

namespace {

std::vector<int16_t> allInt16()
{
    std::vector<int16_t> v;
    for (int x = -32768; x <= 32767; ++x) v.push_back(static_cast<int16_t>(x));
    return v;
}

long double sat(long double v, long double lo, long double hi) { return v < lo ? lo : (v > hi ? hi : v); }

TEST(PowerLaw, Pow34FloatWithinTwoUlp)
{
    std::vector<float> src, dst;
    for (uint64_t b = 0; b < 0x7F800000u; b += 97) src.push_back(std::bit_cast<float>(static_cast<uint32_t>(b)));
    dst.resize(src.size());
    ASSERT_EQ(zamsPow34_32f(src.data(), dst.data(), static_cast<int>(src.size())), zamStsOk);
    int64_t worst = 0;
    for (size_t i = 0; i < src.size(); ++i) {
        const float ref = static_cast<float>(std::pow(static_cast<double>(src[i]), 0.75));
        worst = std::max<int64_t>(worst, std::llabs(int64_t{std::bit_cast<int32_t>(dst[i])} - std::bit_cast<int32_t>(ref)));
    }
    EXPECT_LE(worst, 2);  // from the correctly rounded float
    const float neg[2] = {-16.0f, -0.0f};
    float out[2];
    zamsPow34_32f(neg, out, 2);
    EXPECT_EQ(out[0], -8.0f);
    EXPECT_TRUE(std::signbit(out[1]));
}

TEST(PowerLaw, Pow34FloatTo16sIsCorrectlyRounded)
{
    std::vector<float> src;
    for (float x = 0.0f; x < 1.2e6f; x = x * 1.0001f + 0.0037f) src.push_back(src.size() % 2 ? -x : x);
    std::vector<int16_t> dst(src.size());
    ASSERT_EQ(zamsPow34_32f16s(src.data(), dst.data(), static_cast<int>(src.size())), zamStsOk);
    for (size_t i = 0; i < src.size(); ++i) {
        const long double v = std::copysign(std::pow(std::fabs((long double)src[i]), 0.75L), (long double)src[i]);
        ASSERT_EQ(dst[i], (int)sat(std::nearbyint(v), -32768, 32767)) << src[i];
    }
}

TEST(PowerLaw, Pow34Int16EveryInputAndScale)
{
    const auto src = allInt16();
    std::vector<int16_t> dst(src.size());
    for (int sf = -16; sf <= 16; ++sf) {
        ASSERT_EQ(zamsPow34_16s_Sfs(src.data(), dst.data(), 65536, sf), zamStsOk);
        for (int i = 0; i < 65536; ++i) {
            const long double v = std::pow(std::fabs((long double)src[i]), 0.75L) * std::ldexp(1.0L, -sf);
            ASSERT_EQ(dst[i], (int)sat(std::nearbyint(src[i] < 0 ? -v : v), -32768, 32767)) << src[i] << " sf " << sf;
        }
    }
}

TEST(PowerLaw, Pow43ScaleEveryInput)
{
    const auto src = allInt16();
    std::vector<int32_t> dst(src.size());
    auto check = [&](int gain, int sf) {
        ASSERT_EQ(zamsPow43Scale_16s32s_Sf(src.data(), dst.data(), 65536, gain, sf), zamStsOk);
        for (int i = 0; i < 65536; ++i) {
            const long double n = std::fabs((long double)src[i]);
            const long double v = n * std::cbrt(n) * std::exp2((long double)gain / 4 - sf);
            ASSERT_EQ(dst[i], (int64_t)sat(std::nearbyint(src[i] < 0 ? -v : v), -2147483648.0L, 2147483647.0L))
                << src[i] << " gain " << gain << " sf " << sf;
        }
    };
    for (int gain = -64; gain <= 64; gain += 3) check(gain, -13);
    for (int sf = -16; sf <= 16; ++sf) check(-5, sf);
}

TEST(PowerLaw, CalcSFIsTheNearestFloat)
{
    const auto src = allInt16();
    std::vector<float> dst(src.size());
    for (int offset : {0, 100, 210, -600}) {
        ASSERT_EQ(zamsCalcSF_16s32f(src.data(), dst.data(), 65536, offset), zamStsOk);
        for (int i = 0; i < 65536; ++i)
            ASSERT_EQ(dst[i], (float)std::exp2((long double)(src[i] - offset) / 4)) << src[i] << " offset " << offset;
    }
}

TEST(PowerLaw, SpreadWithinOneOfTheDoubleFormula)
{
    const auto src = allInt16();
    std::vector<int16_t> dst(src.size());
    for (int sf = -8; sf <= 8; ++sf) {
        ASSERT_EQ(zamsSpread_16s_Sfs(src.data(), dst.data(), 65536, sf), zamStsOk);
        for (int i = 0; i < 65536; ++i) {
            const double dz = src[i] / 1024.0, t = dz * (dz < 0 ? 3.0 : 1.5);
            const double x = (t >= 0.5 && t <= 2.5) ? 8 * ((t - 0.5) * (t - 0.5) - 2 * (t - 0.5)) : 0.0;
            const double y = 15.811389 + 7.5 * (t + 0.474) - 17.5 * std::sqrt(1 + (t + 0.474) * (t + 0.474));
            const double s = y <= -60 ? 0.0 : std::pow(10.0, (x + y) / 10);
            const double ref = std::min(32767.0, std::nearbyint(std::ldexp(s, 15 - sf)));
            ASSERT_LE(std::fabs(dst[i] - ref), 1.0) << src[i] << " sf " << sf;
        }
    }
}

TEST(PowerLaw, Avx2PathsEqualTheirScalarTwins)
{
    using namespace zam::util;
    auto& g = zamtest::rng();
    std::uniform_int_distribution<int> i16(-32768, 32767);
    std::uniform_real_distribution<float> f(-3e6f, 3e6f);
    for (int len : {1, 7, 8, 9, 31, 1000}) {
        std::vector<int16_t> s16(len), a16(len), b16(len);
        std::vector<float> sf(len), af(len), bf(len);
        std::vector<int32_t> a32(len), b32(len);
        for (int i = 0; i < len; ++i) s16[i] = static_cast<int16_t>(i16(g)), sf[i] = f(g) / (1 + (i % 5) * 1000);
        if (len > 3) s16[1] = -32768, s16[2] = 32767, sf[1] = NAN, sf[2] = -INFINITY;
        pow34_32f_avx2(sf.data(), af.data(), len), pow34_32f_scalar(sf.data(), bf.data(), len);
        EXPECT_EQ(0, std::memcmp(af.data(), bf.data(), len * 4)) << "pow34 32f, len " << len;
        pow34_32f16s_avx2(sf.data(), a16.data(), len), pow34_32f16s_scalar(sf.data(), b16.data(), len);
        EXPECT_EQ(a16, b16) << "pow34 32f16s, len " << len;
        pow34_16s_avx2(s16.data(), a16.data(), len, -3), pow34_16s_scalar(s16.data(), b16.data(), len, -3);
        EXPECT_EQ(a16, b16) << "pow34 16s, len " << len;
        pow43Scale_avx2(s16.data(), a32.data(), len, 7, -2), pow43Scale_scalar(s16.data(), b32.data(), len, 7, -2);
        EXPECT_EQ(a32, b32) << "pow43 scale, len " << len;
        calcSF_avx2(s16.data(), af.data(), len, 210), calcSF_scalar(s16.data(), bf.data(), len, 210);
        EXPECT_EQ(0, std::memcmp(af.data(), bf.data(), len * 4)) << "calcSF, len " << len;
        for (auto& v : s16) v = static_cast<int16_t>(v / 2);
        spread_avx2(s16.data(), a16.data(), len, -1), spread_scalar(s16.data(), b16.data(), len, -1);
        EXPECT_EQ(a16, b16) << "spread, len " << len;
    }
}

TEST(PowerLaw, ChecksInOrderAndAlignmentWarning)
{
    auto dst = zamtest::canaryVector<int16_t>(8);
    const int16_t src[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(zamsSpread_16s_Sfs(nullptr, dst.data(), 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsPow34_16s_Sfs(src, dst.data(), 0, 0), zamStsSize);
    EXPECT_EQ(zamsCalcSF_16s32f(src, reinterpret_cast<float*>(dst.data()), 4, 70000), zamStsBadArg);
    EXPECT_EQ(zamsPow43Scale_16s32s_Sf(src, nullptr, 8, 0, 0), zamStsNullPtr);
    EXPECT_TRUE(zamtest::untouched(dst));
    zamtest::OffsetBuffer<float> in(16, 4), out(16, 0);
    for (int i = 0; i < 16; ++i) in.data()[i] = static_cast<float>(i);
    EXPECT_EQ(zamsPow34_32f(in.data(), out.data(), 16), zamStsMisalignedData);
    EXPECT_EQ(out.data()[1], 1.0f);
    EXPECT_EQ(zamsPow34_32f16s(in.data(), reinterpret_cast<int16_t*>(out.data()), 16), zamStsMisalignedData);
}

}  // namespace
