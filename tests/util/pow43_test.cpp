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

// The vector path and the scalar twin agree bit for bit, at every length and
// alignment, including blocks that mix table and computed magnitudes and (from
// 65536 on) blocks of small magnitudes only, which take a register-table path.
TEST(Pow43, VectorAndScalarAgree)
{
    auto src = allInt16();
    std::shuffle(src.begin(), src.end(), zamtest::rng());
    std::uniform_int_distribution<int> small(-17, 17);
    for (int i = 0; i < 4096; ++i) src.push_back(static_cast<int16_t>(small(zamtest::rng())));
    std::vector<float> a(src.size() + 16), b(src.size() + 16);
    for (int offset = 0; offset < 3; ++offset)
        for (int len : {1, 7, 8, 9, 15, 17, 1000, 65536 - 3, 65536 + 4096 - 3}) {
            zam::pow43Avx2(src.data() + offset, a.data() + offset, len);
            zam::pow43Scalar(src.data() + offset, b.data() + offset, len);
            for (int i = 0; i < len; ++i)
                ASSERT_EQ(std::bit_cast<uint32_t>(a[offset + i]), std::bit_cast<uint32_t>(b[offset + i]))
                    << src[offset + i];
        }
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
