// 16-bit forward MDCT against the rounded, saturated float definition, its
// fixed-point FFT, and its checks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <random>
#include <tuple>
#include <vector>

#include "test_support.h"
#include "transform/fft16.h"
#include "transform/mdct.h"
#include "zamac.h"

namespace {

// Double-precision forward definition (factor 2), cos phi(n, k) from a table of
// cos(2 pi m / 4N).
std::vector<double> refForward(const std::vector<int16_t>& x)
{
    const long long len = static_cast<long long>(x.size());
    std::vector<double> cosTab(4 * len), out(len / 2);
    for (long long m = 0; m < 4 * len; ++m) cosTab[m] = std::cos(2.0 * M_PI * double(m) / double(4 * len));
    for (long long k = 0; k < len / 2; ++k) {
        double acc = 0;
        for (long long n = 0; n < len; ++n) acc += x[n] * cosTab[(2 * n + 1 + len / 2) * (2 * k + 1) % (4 * len)];
        out[k] = 2.0 * acc;
    }
    return out;
}

int16_t expected(double v, int sf)
{
    double r = std::floor(std::ldexp(v, -sf) + 0.5);
    return static_cast<int16_t>(std::clamp(r, -32768.0, 32767.0));
}

struct Spec16 {
    std::vector<uint8_t> mem, work;
    MdctFwdSpec_16s* spec = nullptr;
    explicit Spec16(int len)
    {
        int s, i, w;
        EXPECT_EQ(zamsMDCTFwdGetSize_16s(len, &s, &i, &w), zamStsOk);
        mem.resize(s + 9);
        work.resize(w);
        EXPECT_EQ(zamsMDCTFwdInit_16s(&spec, len, mem.data() + 9, nullptr), zamStsOk);
    }
};

enum class Input { Random, FullScale, Tiny, Sine };

std::vector<int16_t> makeInput(Input kind, int len)
{
    std::vector<int16_t> x(len);
    std::uniform_int_distribution<int> full(-32768, 32767), tiny(-3, 3);
    for (int n = 0; n < len; ++n) {
        switch (kind) {
        case Input::Random: x[n] = int16_t(full(zamtest::rng())); break;
        case Input::FullScale: x[n] = (n / 3) % 2 ? int16_t(-32768) : int16_t(32767); break;
        case Input::Tiny: x[n] = int16_t(tiny(zamtest::rng())); break;
        case Input::Sine: x[n] = int16_t(std::lround(32767 * std::sin(0.37 * n + 0.3))); break;
        }
    }
    return x;
}

// Worst error in output LSBs against the rounded, saturated definition, at the
// scale factor that makes the block's largest output fit and its neighbours.
class Mdct16Error : public ::testing::TestWithParam<std::tuple<int, Input>> {};

TEST_P(Mdct16Error, WithinFourLsb)
{
    const auto [len, kind] = GetParam();
    Spec16 sp(len);
    const auto x = makeInput(kind, len);
    const auto ref = refForward(x);
    double peak = 0;
    for (double v : ref) peak = std::max(peak, std::fabs(v));
    const int fit = static_cast<int>(std::ceil(std::log2(peak / 32767.0)));
    int worstAll = 0;
    for (int sf : {fit - 1, fit, fit + 1, fit + 4}) {
        std::vector<int16_t> out(len / 2);
        ASSERT_EQ(zamsMDCTFwd_16s_Sfs(x.data(), out.data(), sp.spec, sf, sp.work.data()), zamStsOk);
        int worst = 0;
        for (int k = 0; k < len / 2; ++k) worst = std::max(worst, std::abs(out[k] - expected(ref[k], sf)));
        EXPECT_LE(worst, 4) << "len " << len << " sf " << sf;
        worstAll = std::max(worstAll, worst);
    }
    std::printf("16-bit MDCT N=%-5d input %d: worst error %d LSB (sf %d..%d)\n", len, int(kind), worstAll, fit - 1,
                fit + 4);
}

INSTANTIATE_TEST_SUITE_P(Lengths, Mdct16Error,
                         ::testing::Combine(::testing::Values(32, 64, 128, 256, 512, 1024, 2048, 4096),
                                            ::testing::Values(Input::Random, Input::Sine, Input::FullScale,
                                                              Input::Tiny)));

TEST(Mdct16, SilenceAndSaturation)
{
    Spec16 sp(64);
    std::vector<int16_t> zero(64, 0);
    for (int sf : {-20, 0, 31}) {
        auto out = zamtest::canaryVector<int16_t>(32);
        ASSERT_EQ(zamsMDCTFwd_16s_Sfs(zero.data(), out.data(), sp.spec, sf, nullptr), zamStsOk);
        for (int16_t v : out) EXPECT_EQ(v, 0);
    }
    // A large scale-up saturates every non-zero output to the rails.
    auto x = makeInput(Input::Sine, 64);
    auto ref = refForward(x);
    std::vector<int16_t> out(32);
    ASSERT_EQ(zamsMDCTFwd_16s_Sfs(x.data(), out.data(), sp.spec, -16, nullptr), zamStsOk);
    for (int k = 0; k < 32; ++k)
        if (std::fabs(ref[k]) > 1.0) EXPECT_EQ(out[k], ref[k] > 0 ? 32767 : -32768) << k;
    // A large scale-down rounds everything to zero.
    ASSERT_EQ(zamsMDCTFwd_16s_Sfs(x.data(), out.data(), sp.spec, 40, nullptr), zamStsOk);
    for (int16_t v : out) EXPECT_EQ(v, 0);
}

TEST(Mdct16, SizesAndChecks)
{
    int s, i, w;
    for (int len : {12, 36, 16, 48, 0, -32}) EXPECT_EQ(zamsMDCTFwdGetSize_16s(len, &s, &i, &w), zamStsSize) << len;
    EXPECT_EQ(zamsMDCTFwdGetSize_16s(32, nullptr, &i, &w), zamStsNullPtr);
    for (int len : {32, 256, 2048}) {
        ASSERT_EQ(zamsMDCTFwdGetSize_16s(len, &s, &i, &w), zamStsOk);
        int fs, fi, fw;
        ASSERT_EQ(zam::fft16GetSize(__builtin_ctz(len / 4), &fs, &fi, &fw), zamStsOk);
        EXPECT_EQ(s, fs + len / 2 * 2 + 232);
        EXPECT_EQ(w, std::max(4 * len, fw) + (len & ~3) + 64);
        EXPECT_EQ(i, fi);
    }
    std::vector<uint8_t> mem(8192);
    MdctFwdSpec_16s* sp = nullptr;
    EXPECT_EQ(zamsMDCTFwdInit_16s(&sp, 36, mem.data(), mem.data()), zamStsSize);
    EXPECT_EQ(zamsMDCTFwdInit_16s(nullptr, 64, mem.data(), nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsMDCTFwdInit_16s(&sp, 64, nullptr, nullptr), zamStsNullPtr);
    ASSERT_EQ(zamsMDCTFwdInit_16s(&sp, 64, mem.data() + 1, nullptr), zamStsOk);
    int buf = 0;
    EXPECT_EQ(zamsMDCTFwdGetBufSize_16s(sp, &buf), zamStsOk);
    EXPECT_EQ(buf, 4 * 64 + 64 + 64);
    // Tag checks across the families.
    auto* asFloat = reinterpret_cast<MdctFwdSpec_32f*>(sp);
    std::vector<float> fin(64), fout(32);
    EXPECT_EQ(zamsMDCTFwd_32f(fin.data(), fout.data(), asFloat, nullptr), zamStsContextMismatch);
    MdctFwdSpec_32f* fs = nullptr;
    ASSERT_EQ(zamsMDCTFwdInitAlloc_32f(&fs, 64), zamStsOk);
    std::vector<int16_t> in(64, 5);
    auto out = zamtest::canaryVector<int16_t>(32);
    EXPECT_EQ(zamsMDCTFwd_16s_Sfs(in.data(), out.data(), reinterpret_cast<MdctFwdSpec_16s*>(fs), 0, nullptr),
              zamStsContextMismatch);
    EXPECT_EQ(zamsMDCTFwdGetBufSize_16s(reinterpret_cast<MdctFwdSpec_16s*>(fs), &buf), zamStsContextMismatch);
    EXPECT_EQ(zamsMDCTFwd_16s_Sfs(in.data(), nullptr, sp, 0, nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsMDCTFwd_16s_Sfs(in.data(), out.data(), nullptr, 0, nullptr), zamStsNullPtr);
    EXPECT_TRUE(zamtest::untouched(out));
    EXPECT_EQ(zamsMDCTFwdFree_32f(fs), zamStsOk);
    EXPECT_EQ(zamsMDCTFwdFree_16s(sp), zamStsOk);
    EXPECT_EQ(zamsMDCTFwdFree_16s(sp), zamStsContextMismatch);

    MdctFwdSpec_16s* owned = nullptr;
    ASSERT_EQ(zamsMDCTFwdInitAlloc_16s(&owned, 2048), zamStsOk);
    std::vector<int16_t> x(2048, 100), y(1024);
    EXPECT_EQ(zamsMDCTFwd_16s_Sfs(x.data(), y.data(), owned, 3, nullptr), zamStsOk);
    EXPECT_EQ(zamsMDCTFwdFree_16s(owned), zamStsOk);
}

// The fixed-point FFT: DFT / 2^e within its rounding noise; AVX2 equal to scalar.
TEST(Fft16, MatchesScaledDft)
{
    for (int order : {0, 1, 3, 6, 9, 11}) {
        const int n = 1 << order;
        int s, i, w;
        ASSERT_EQ(zam::fft16GetSize(order, &s, &i, &w), zamStsOk);
        std::vector<uint8_t> mem(s);
        zam::Fft16Spec* spec = nullptr;
        ASSERT_EQ(zam::fft16Init(&spec, order, mem.data()), zamStsOk);
        std::uniform_int_distribution<int> d(-(1 << 29), 1 << 29);
        std::vector<int32_t> x(2 * n), a(2 * n);
        for (auto& v : x) v = d(zamtest::rng());
        int e = -1, es = -1;
        std::vector<int32_t> b(2 * n);
        ASSERT_EQ(zam::fft16Fwd(x.data(), a.data(), spec, &e, zam::Kernels::Avx2), zamStsOk);
        ASSERT_EQ(zam::fft16Fwd(x.data(), b.data(), spec, &es, zam::Kernels::Scalar), zamStsOk);
        EXPECT_EQ(a, b) << order;  // the AVX2 levels equal their scalar twin
        EXPECT_EQ(e, es);
        EXPECT_GE(e, 0);
        EXPECT_LE(e, order);
        double worst = 0;
        for (int k = 0; k < n; ++k) {
            std::complex<double> acc = 0;
            for (int j = 0; j < n; ++j)
                acc += std::complex<double>(x[2 * j], x[2 * j + 1]) * std::polar(1.0, -2 * M_PI * double(j * k % n) / n);
            acc /= std::ldexp(1.0, e);
            worst = std::max(worst, std::abs(acc - std::complex<double>(a[2 * k], a[2 * k + 1])));
        }
        // a few roundings (half an LSB each) per level
        EXPECT_LT(worst, 2.0 * (order + 1)) << order;
    }
    int s, i, w;
    EXPECT_EQ(zam::fft16GetSize(31, &s, &i, &w), zamStsFftOrder);
}

}  // namespace
