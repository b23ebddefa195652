// DCT of every length 1..300 against the direct sum, its paths and checks; the
// memory primitives.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "test_support.h"
#include "transform/fft.h"
#include "zamcore.h"

namespace {

using zam::DctSpec;

std::vector<double> refDct(const std::vector<float>& x)
{
    const int n = static_cast<int>(x.size());
    std::vector<double> y(n);
    for (int r = 0; r < n; ++r) {
        double acc = x[0] / std::sqrt(double(n));
        for (int k = 1; k < n; ++k)
            acc += std::sqrt(2.0 / n) * x[k] * std::cos(M_PI * double(k * (2LL * r + 1) % (4LL * n)) / (2.0 * n));
        y[r] = acc;
    }
    return y;
}

struct Dct {
    std::vector<uint8_t> mem, init, work;
    DctSpec* spec = nullptr;
    explicit Dct(int n)
    {
        int s, i, w;
        EXPECT_EQ(zam::dctGetSize(n, 0, &s, &i, &w), zamStsOk);
        mem.resize(s + 3);
        init.resize(i + 64);
        work.resize(w + 1);
        EXPECT_EQ(zam::dctInit(&spec, n, 0, mem.data() + 3, init.data()), zamStsOk);
    }
};

TEST(Dct, EveryLengthUpTo300MatchesDirectSum)
{
    std::uniform_real_distribution<float> d(-1, 1);
    double worst = 0;
    for (int n = 1; n <= 300; ++n) {
        Dct dct(n);
        ASSERT_NE(dct.spec, nullptr);
        const bool p2 = (n & (n - 1)) == 0;
        EXPECT_EQ(dct.spec->smallKernel, p2 && n <= 8 ? 1 : 0) << n;
        EXPECT_EQ(dct.spec->fftPath, p2 && n > 8 ? 1 : 0) << n;
        EXPECT_EQ(dct.spec->generalPath, !p2 && n >= 36 ? 1 : 0) << n;
        EXPECT_NEAR(dct.spec->s0, 1.0 / std::sqrt(double(n)), 1e-7);
        std::vector<float> x(n), y(n, 0.0f);
        for (auto& v : x) v = d(zamtest::rng());
        ASSERT_EQ(zam::dctApply(x.data(), y.data(), dct.spec, n % 2 ? dct.work.data() + 1 : nullptr), zamStsOk);
        auto ref = refDct(x);
        double e = 0, r = 0;
        for (int i = 0; i < n; ++i) e += (y[i] - ref[i]) * (y[i] - ref[i]), r += ref[i] * ref[i];
        double rel = std::sqrt(e / r);
        worst = std::max(worst, rel);
        EXPECT_LT(rel, 2e-6) << "length " << n;
    }
    std::printf("DCT: worst relative RMS error over lengths 1..300: %.3g\n", worst);
}

TEST(Dct, MatrixPathWorkSizeAndChecks)
{
    Dct d35(35);
    EXPECT_EQ(d35.spec->workSize, 35 * 4);
    Dct d36(36);
    EXPECT_EQ(d36.spec->generalPath, 1);
    Dct d1(1);
    EXPECT_EQ(d1.spec->smallKernel, 1);
    EXPECT_EQ(d1.spec->workSize, 0);
    int s, i, w;
    EXPECT_EQ(zam::dctGetSize(0, 0, &s, &i, &w), zamStsSize);
    std::vector<uint8_t> mem(256);
    DctSpec* spec = nullptr;
    EXPECT_EQ(zam::dctInit(&spec, 0, 0, nullptr, nullptr), zamStsSize);
    EXPECT_EQ(zam::dctInit(nullptr, 4, 0, mem.data(), nullptr), zamStsNullPtr);
    EXPECT_EQ(zam::dctInit(&spec, 4, 0, nullptr, nullptr), zamStsNullPtr);
    std::vector<float> x(4, 1.0f);
    auto y = zamtest::canaryVector<float>(4);
    EXPECT_EQ(zam::dctApply(x.data(), y.data(), nullptr, nullptr), zamStsNullPtr);
    ASSERT_EQ(zam::dctInit(&spec, 4, 0, mem.data(), nullptr), zamStsOk);
    spec->tag = 4;
    EXPECT_EQ(zam::dctApply(x.data(), y.data(), spec, nullptr), zamStsContextMismatch);
    EXPECT_TRUE(zamtest::untouched(y));
}

TEST(Dct, FixedKernelConstants)
{
    // y = s0*x0 for an impulse at 0; the N = 2 kernel is (a+b, a-b)/sqrt(2).
    Dct d2(2);
    float x[2] = {3.0f, 1.0f}, y[2];
    ASSERT_EQ(zam::dctApply(x, y, d2.spec, nullptr), zamStsOk);
    EXPECT_FLOAT_EQ(y[0], 4.0f * 0.70710677f);
    EXPECT_FLOAT_EQ(y[1], 2.0f * 0.70710677f);
}

TEST(MemoryPrimitives, ZeroFillAndCopy)
{
    for (int bytes : {1, 31, 64, 1000, 40000, 3 << 20}) {
        std::vector<uint8_t> a(bytes + 8, 0xA5);
        ASSERT_EQ(zam::zeroFillBytes(a.data() + 3, bytes), zamStsOk);
        EXPECT_EQ(a[2], 0xA5);
        EXPECT_EQ(a[3 + bytes], 0xA5);
        for (int i = 3; i < 3 + bytes; ++i) ASSERT_EQ(a[i], 0) << bytes;
        std::vector<uint8_t> src(bytes), dst(bytes + 8, 0xA5);
        for (int i = 0; i < bytes; ++i) src[i] = uint8_t(i * 7 + 1);
        ASSERT_EQ(zam::copyBytes(src.data(), dst.data() + 5, bytes), zamStsOk);
        EXPECT_EQ(0, std::memcmp(src.data(), dst.data() + 5, bytes));
        EXPECT_EQ(dst[4], 0xA5);
        EXPECT_EQ(dst[5 + bytes], 0xA5);
    }
    std::vector<float> f(1000, 1.0f), g(1000, 0.0f);
    ASSERT_EQ(zam::copyFloats(f.data(), g.data(), 1000), zamStsOk);
    EXPECT_EQ(f, g);
    ASSERT_EQ(zam::zeroFillFloats(g.data(), 999), zamStsOk);
    EXPECT_EQ(g[998], 0.0f);
    EXPECT_EQ(g[999], 1.0f);
    EXPECT_EQ(zam::zeroFillBytes(nullptr, 0), zamStsNullPtr);
    EXPECT_EQ(zam::zeroFillBytes(g.data(), 0), zamStsSize);
    EXPECT_EQ(zam::zeroFillFloats(g.data(), -1), zamStsSize);
    EXPECT_EQ(zam::copyBytes(nullptr, g.data(), 4), zamStsNullPtr);
    EXPECT_EQ(zam::copyFloats(f.data(), g.data(), 0), zamStsSize);
    EXPECT_EQ(zam::allocFloats(0), nullptr);
    EXPECT_EQ(zam::allocFloats(-5), nullptr);
    float* p = zam::allocFloats(17);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 64, 0u);
    zamFree(p);
}

}  // namespace
