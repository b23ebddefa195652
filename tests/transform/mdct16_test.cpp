// 16-bit forward MDCT against the rounded, saturated float definition, its
// fixed-point FFT, and its checks.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdio>
#include <random>
#include <vector>

#include "test_support.h"
#include "transform/fft16.h"
#include "transform/mdct.h"
#include "zamac.h"

namespace {

double cosPhi(int n, int k, int len)
{
    long long m = (2LL * n + 1 + len / 2) * (2LL * k + 1) % (4LL * len);
    return std::cos(2.0 * M_PI * static_cast<double>(m) / (4.0 * len));
}

// Double-precision forward definition (factor 2).
std::vector<double> refForward(const std::vector<int16_t>& x)
{
    const int len = static_cast<int>(x.size());
    std::vector<double> out(len / 2);
    for (int k = 0; k < len / 2; ++k) {
        double acc = 0;
        for (int n = 0; n < len; ++n) acc += x[n] * cosPhi(n, k, len);
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
        case Input::Sine: x[n] = int16_t(std::lround(30000 * std::sin(0.37 * n))); break;
        }
    }
    return x;
}

// Worst error in output LSBs, per input kind and length, at scale factors that
// keep the output in range and at ones that saturate it.
TEST(Mdct16, ErrorAgainstRoundedDefinition)
{
    struct Row {
        Input kind;
        const char* name;
    };
    const Row rows[] = {{Input::Random, "random"}, {Input::FullScale, "full-scale"}, {Input::Tiny, "tiny"},
                        {Input::Sine, "sine"}};
    for (int len : {32, 256, 2048}) {
        Spec16 sp(len);
        for (const Row& row : rows) {
            auto x = makeInput(row.kind, len);
            auto ref = refForward(x);
            double peak = 0;
            for (double v : ref) peak = std::max(peak, std::fabs(v));
            // the scale factor that brings the peak just below full range
            const int fit = static_cast<int>(std::ceil(std::log2(peak / 32767.0)));
            for (int sf : {fit, fit + 3, fit - 2, -4, 0, 12}) {
                std::vector<int16_t> out(len / 2);
                ASSERT_EQ(zamsMDCTFwd_16s_Sfs(x.data(), out.data(), sp.spec, sf, sp.work.data()), zamStsOk);
                int worst = 0;
                for (int k = 0; k < len / 2; ++k) worst = std::max(worst, std::abs(out[k] - expected(ref[k], sf)));
                // Allowed error: the 16-bit FFT's noise, relative to the block's
                // peak, expressed in LSBs of this scale factor.
                const double noise = std::ldexp(peak, -sf) * 4e-4 * std::log2(len) + 1.0;
                EXPECT_LE(worst, noise) << row.name << " len " << len << " sf " << sf;
                if (sf == fit)
                    std::printf("16-bit MDCT %-10s N=%-5d sf=%-3d worst error %d LSB\n", row.name, len, sf, worst);
            }
        }
    }
}

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

// The fixed-point FFT: DFT / N within its rounding noise, AVX2 equal to scalar.
TEST(Fft16, MatchesScaledDftAndScalarTwin)
{
    for (int order : {0, 1, 3, 4, 6, 9}) {
        const int n = 1 << order;
        std::vector<uint8_t> mem;
        int s, i, w;
        ASSERT_EQ(zam::fft16GetSize(order, &s, &i, &w), zamStsOk);
        mem.resize(s);
        zam::Fft16Spec* spec = nullptr;
        ASSERT_EQ(zam::fft16Init(&spec, order, mem.data()), zamStsOk);
        std::uniform_int_distribution<int> d(-23000, 23000);
        std::vector<int16_t> x(2 * n), a(2 * n), b(2 * n);
        for (auto& v : x) v = int16_t(d(zamtest::rng()));
        int ea = -1, eb = -1;
        ASSERT_EQ(zam::fft16Fwd(x.data(), a.data(), spec, &ea, zam::Kernels::Avx2), zamStsOk);
        ASSERT_EQ(zam::fft16Fwd(x.data(), b.data(), spec, &eb, zam::Kernels::Scalar), zamStsOk);
        EXPECT_EQ(a, b) << order;
        EXPECT_EQ(ea, eb);
        EXPECT_GE(ea, 0);
        EXPECT_LE(ea, order);
        double err = 0, sig = 0;
        for (int k = 0; k < n; ++k) {
            std::complex<double> acc = 0;
            for (int j = 0; j < n; ++j)
                acc += std::complex<double>(x[2 * j], x[2 * j + 1]) * std::polar(1.0, -2 * M_PI * double(j * k % n) / n);
            acc /= std::ldexp(1.0, ea);
            err += std::norm(acc - std::complex<double>(a[2 * k], a[2 * k + 1]));
            sig += std::norm(acc);
        }
        // Rounding noise of a few tenths of an LSB per level, against a signal
        // kept near full range by the block exponent.
        const double rel = std::sqrt(err / sig);
        std::printf("16-bit FFT order %2d: %d halvings, relative RMS error %.2g\n", order, ea, rel);
        EXPECT_LT(rel, 2e-4 * (order + 1)) << order;
    }
    int s, i, w;
    EXPECT_EQ(zam::fft16GetSize(31, &s, &i, &w), zamStsFftOrder);
}

}  // namespace

namespace {

// The whole 16-bit transform, vector kernels against scalar twins: identical.
TEST(Mdct16, VectorKernelsMatchScalarTwins)
{
    for (int len : {32, 64, 256, 2048}) {
        Spec16 sp(len);
        auto* s = reinterpret_cast<const zam::MdctSpec16s*>(
            (reinterpret_cast<uintptr_t>(sp.spec) + 63) & ~uintptr_t{63});
        std::vector<int16_t> w1(len + 32), w2(len + 32);
        auto align = [](std::vector<int16_t>& v) {
            return reinterpret_cast<int16_t*>((reinterpret_cast<uintptr_t>(v.data()) + 63) & ~uintptr_t{63});
        };
        for (Input kind : {Input::Random, Input::Tiny, Input::FullScale, Input::Sine}) {
            auto x = makeInput(kind, len);
            for (int sf : {-3, 0, 5, 9, 40}) {
                std::vector<int16_t> a(len / 2), b(len / 2);
                ASSERT_EQ(zam::mdctFwd16Core(x.data(), a.data(), s, sf, align(w1), zam::Kernels::Avx2), zamStsOk);
                ASSERT_EQ(zam::mdctFwd16Core(x.data(), b.data(), s, sf, align(w2), zam::Kernels::Scalar), zamStsOk);
                ASSERT_EQ(a, b) << len << " sf " << sf;
            }
        }
    }
}

}  // namespace
