#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <vector>

#include "test_support.h"
#include "zamac.h"

namespace zam {
void pow43Scalar(const int16_t* src, float* dst, int len);
void pow43Avx2(const int16_t* src, float* dst, int len);
}  // namespace zam

namespace {

std::vector<int16_t> allInt16()
{
    std::vector<int16_t> v;
    v.reserve(65536);
    for (int x = -32768; x <= 32767; ++x) v.push_back(static_cast<int16_t>(x));
    return v;
}

// True when f is the float nearest to n^(4/3), shown with long double: the true
// value lies strictly between the midpoints to the neighbouring floats. n^(4/3) is
// computed as cbrt(n)^4 in 64-bit-mantissa precision, far finer than the gap a
// float rounding needs.
bool correctlyRounded(int n, float f)
{
    const long double v = std::pow(std::cbrt(static_cast<long double>(n)), 4.0L);
    const long double down = std::nextafter(f, 0.0f);
    const long double up = std::nextafter(f, INFINITY);
    return v > (down + f) / 2 && v < (up + f) / 2;
}

TEST(Pow43, EveryInt16IsCorrectlyRounded)
{
    const auto src = allInt16();
    std::vector<float> dst(src.size());
    ASSERT_EQ(zamsPow43_16s32f(src.data(), dst.data(), static_cast<int>(src.size())), zamStsOk);
    for (size_t i = 0; i < src.size(); ++i) {
        const int x = src[i];
        const float f = dst[i];
        if (x == 0) {
            EXPECT_EQ(std::bit_cast<uint32_t>(f), 0u);
            continue;
        }
        ASSERT_EQ(std::signbit(f), x < 0) << x;
        ASSERT_TRUE(correctlyRounded(std::abs(x), std::fabs(f))) << x << " -> " << f;
    }
}

TEST(Pow43, PerfectCubesAreExact)
{
    const std::vector<int16_t> src = {1, 8, 27, 64, 125, 1000, 4096, 0, -8, -27, -32768};
    std::vector<float> dst(src.size());
    ASSERT_EQ(zamsPow43_16s32f(src.data(), dst.data(), static_cast<int>(src.size())), zamStsOk);
    EXPECT_EQ(dst[0], 1.0f);
    EXPECT_EQ(dst[1], 16.0f);
    EXPECT_EQ(dst[2], 81.0f);
    EXPECT_EQ(dst[3], 256.0f);
    EXPECT_EQ(dst[4], 625.0f);
    EXPECT_EQ(dst[5], 10000.0f);
    EXPECT_EQ(dst[6], 65536.0f);
    EXPECT_EQ(dst[8], -16.0f);
    EXPECT_EQ(dst[9], -81.0f);
    EXPECT_EQ(dst[10], -1048576.0f);  // 32768 = 32^3, so |x|^(4/3) = 2^20
}

// The vector path and the scalar twin agree bit for bit, at every length and
// alignment, including blocks that mix table and computed magnitudes.
TEST(Pow43, VectorAndScalarAgree)
{
    auto src = allInt16();
    std::shuffle(src.begin(), src.end(), zamtest::rng());
    std::vector<float> a(src.size() + 16), b(src.size() + 16);
    for (int offset = 0; offset < 3; ++offset)
        for (int len : {1, 7, 8, 9, 15, 17, 1000, 65536 - 3}) {
            zam::pow43Avx2(src.data() + offset, a.data() + offset, len);
            zam::pow43Scalar(src.data() + offset, b.data() + offset, len);
            for (int i = 0; i < len; ++i)
                ASSERT_EQ(std::bit_cast<uint32_t>(a[offset + i]), std::bit_cast<uint32_t>(b[offset + i]))
                    << src[offset + i];
        }
}

// Blocks of small magnitudes take a register-table path, mixed blocks the general one.
TEST(Pow43, SmallMagnitudeBlocksAgreeWithScalar)
{
    std::uniform_int_distribution<int> small(-17, 17);
    std::vector<int16_t> src(4096);
    for (auto& x : src) x = static_cast<int16_t>(small(zamtest::rng()));
    std::vector<float> a(src.size()), b(src.size());
    zam::pow43Avx2(src.data(), a.data(), static_cast<int>(src.size()));
    zam::pow43Scalar(src.data(), b.data(), static_cast<int>(src.size()));
    for (size_t i = 0; i < src.size(); ++i)
        ASSERT_EQ(std::bit_cast<uint32_t>(a[i]), std::bit_cast<uint32_t>(b[i])) << src[i];
}

TEST(Pow43, ChecksInOrderWriteNothing)
{
    const int16_t src[4] = {1, 2, 3, 4};
    auto dst = zamtest::canaryVector<float>(4);
    EXPECT_EQ(zamsPow43_16s32f(nullptr, dst.data(), -1), zamStsNullPtr);
    EXPECT_EQ(zamsPow43_16s32f(src, nullptr, 4), zamStsNullPtr);
    EXPECT_EQ(zamsPow43_16s32f(src, dst.data(), -1), zamStsBadArg);
    EXPECT_EQ(zamsPow43_16s32f(src, dst.data(), 0), zamStsSize);
    EXPECT_TRUE(zamtest::untouched(dst));
    EXPECT_EQ(zamsPow43_16s32f(src, dst.data(), 3), zamStsOk);
    EXPECT_TRUE(zamtest::untouched(dst.data() + 3, 1));
}

}  // namespace
