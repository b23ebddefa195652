// Internal complex FFT against double-precision DFTs, its sizes, flags and checks.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdio>
#include <random>
#include <vector>

#include "test_support.h"
#include "transform/fft.h"

namespace {

using cd = std::complex<double>;
using zam::FftSpec;
using zam::Kernels;

// Iterative radix-2 FFT in double precision, twiddles computed directly for each
// stage (no recurrence), as the trusted reference.
void refFft(std::vector<cd>& a, int sign)
{
    const size_t n = a.size();
    if (n < 2) return;
    int bits = __builtin_ctzll(n);
    for (size_t i = 0; i < n; ++i) {
        size_t r = 0;
        for (int b = 0; b < bits; ++b) r |= ((i >> b) & 1) << (bits - 1 - b);
        if (i < r) std::swap(a[i], a[r]);
    }
    std::vector<cd> w(n / 2);
    for (size_t k = 0; k < n / 2; ++k) w[k] = std::polar(1.0, sign * 2 * M_PI * double(k) / double(n));
    for (size_t h = 1; h < n; h *= 2) {
        const size_t step = n / (2 * h);
        for (size_t g = 0; g < n; g += 2 * h)
            for (size_t j = 0; j < h; ++j) {
                cd t = w[j * step] * a[g + j + h];
                a[g + j + h] = a[g + j] - t;
                a[g + j] += t;
            }
    }
}

// Direct sum for a few sizes, to check the reference itself.
TEST(Fft, ReferenceMatchesDirectSum)
{
    for (size_t n : {1, 2, 8, 32}) {
        std::vector<cd> a(n), direct(n);
        for (size_t i = 0; i < n; ++i) a[i] = cd(std::sin(1.0 + i), std::cos(3.0 * i));
        for (size_t k = 0; k < n; ++k)
            for (size_t j = 0; j < n; ++j) direct[k] += a[j] * std::polar(1.0, -2 * M_PI * double(j * k % n) / double(n));
        refFft(a, -1);
        for (size_t k = 0; k < n; ++k) EXPECT_LT(std::abs(a[k] - direct[k]), 1e-12);
    }
}

struct Fft {
    std::vector<uint8_t> mem, init, work;
    FftSpec* spec = nullptr;
    ZamStatus status = zamStsOk;
    Fft(int order, int flag, bool split = false)
    {
        int s, i, w;
        status = zam::fftGetSize(order, flag, 0, &s, &i, &w);
        if (status != zamStsOk) return;
        mem.resize(s + 7);
        init.resize(i + 64);
        work.resize(w + 64);
        status = (split ? zam::fftInitSplit : zam::fftInit)(&spec, order, flag, 0, mem.data() + 7, init.data());
    }
    uint8_t* workPtr() { return work.data() + 64 - reinterpret_cast<uintptr_t>(work.data()) % 64; }
};

std::vector<float> randomComplex(size_t n)
{
    std::uniform_real_distribution<float> d(-1, 1);
    std::vector<float> v(2 * n);
    for (auto& x : v) x = d(zamtest::rng());
    return v;
}

double expectedScale(int flag, int64_t n, bool forward)
{
    if (flag == zam::kFftScaleBySqrtN) return 1.0 / std::sqrt(double(n));
    if (flag == zam::kFftScaleFwdByN && forward) return 1.0 / double(n);
    if (flag == zam::kFftScaleInvByN && !forward) return 1.0 / double(n);
    return 1.0;
}

double relRmsError(const float* re, const float* im, size_t stride, const std::vector<cd>& ref, double scale)
{
    double e = 0, r = 0;
    for (size_t i = 0; i < ref.size(); ++i) {
        cd want = ref[i] * scale;
        cd got(re[i * stride], im[i * stride]);
        e += std::norm(got - want);
        r += std::norm(want);
    }
    return std::sqrt(e / r);
}

struct Case {
    int order;
    int flag;
};

class FftOrder : public ::testing::TestWithParam<Case> {};

double gWorstRatio = 0;  // worst error / log2(N) seen, printed at the end

TEST_P(FftOrder, InterleavedSplitAndInverseMatchDoubleDft)
{
    const auto [order, flag] = GetParam();
    const int64_t n = int64_t{1} << order;
    const double bound = 1e-6 * std::max(1, order);
    auto x = randomComplex(n);
    std::vector<cd> ref(n);
    for (int64_t i = 0; i < n; ++i) ref[i] = cd(x[2 * i], x[2 * i + 1]);
    std::vector<cd> refInv = ref;
    refFft(ref, -1);

    Fft f(order, flag);
    ASSERT_EQ(f.status, zamStsOk);
    std::vector<float> y(2 * n);
    ASSERT_EQ(zam::fftFwd(x.data(), y.data(), f.spec, f.workPtr()), zamStsOk);
    double err = relRmsError(y.data(), y.data() + 1, 2, ref, expectedScale(flag, n, true));
    EXPECT_LT(err, bound) << "order " << order;
    gWorstRatio = std::max(gWorstRatio, err / std::max(1, order));

    // In place, and without a work buffer.
    if (order <= 20) {
        std::vector<float> z = x;
        ASSERT_EQ(zam::fftFwd(z.data(), z.data(), f.spec, nullptr), zamStsOk);
        EXPECT_EQ(z, y);
    }

    Fft s(order, flag, true);
    ASSERT_EQ(s.status, zamStsOk);
    std::vector<float> re(n), im(n), ore(n), oim(n);
    for (int64_t i = 0; i < n; ++i) re[i] = x[2 * i], im[i] = x[2 * i + 1];
    ASSERT_EQ(zam::fftFwdSplit(re.data(), im.data(), ore.data(), oim.data(), s.spec, s.workPtr()), zamStsOk);
    err = relRmsError(ore.data(), oim.data(), 1, ref, expectedScale(flag, n, true));
    EXPECT_LT(err, bound) << "split order " << order;
    gWorstRatio = std::max(gWorstRatio, err / std::max(1, order));
    if (order <= 20) {
        ASSERT_EQ(zam::fftFwdSplit(re.data(), im.data(), re.data(), im.data(), s.spec, nullptr), zamStsOk);
        EXPECT_EQ(re, ore);
        EXPECT_EQ(im, oim);
    }

    if (order > 18) return;  // the inverse is the forward between two conjugations
    refFft(refInv, +1);
    ASSERT_EQ(zam::fftInv(x.data(), y.data(), f.spec, nullptr), zamStsOk);
    EXPECT_LT(relRmsError(y.data(), y.data() + 1, 2, refInv, expectedScale(flag, n, false)), bound);
}

std::vector<Case> cases()
{
    std::vector<Case> v;
    for (int order = 0; order <= 22; ++order) {
        if (order <= 12) {
            for (int flag : {1, 2, 4, 8}) v.push_back({order, flag});
        } else {
            v.push_back({order, order % 2 ? zam::kFftNoScale : zam::kFftScaleBySqrtN});
        }
    }
    return v;
}

INSTANTIATE_TEST_SUITE_P(Orders, FftOrder, ::testing::ValuesIn(cases()),
                         [](const auto& info) { return "o" + std::to_string(info.param.order) + "f" + std::to_string(info.param.flag); });

class ReportWorstError : public ::testing::Environment {
public:
    void TearDown() override
    {
        if (gWorstRatio > 0) std::printf("FFT: worst relative RMS error / log2 N over the orders run: %.3g\n", gWorstRatio);
    }
};
const auto* const kReport = ::testing::AddGlobalTestEnvironment(new ReportWorstError);

TEST(Fft, VectorKernelsMatchScalarTwins)
{
    for (int order : {2, 3, 4, 5, 6, 7, 8, 11, 14, 19}) {
        const int64_t n = int64_t{1} << order;
        Fft f(order, zam::kFftNoScale);
        auto x = randomComplex(n);
        std::vector<float> a(2 * n), b(2 * n);
        ASSERT_EQ(zam::fftFwd(x.data(), a.data(), f.spec, nullptr, Kernels::Avx2), zamStsOk);
        ASSERT_EQ(zam::fftFwd(x.data(), b.data(), f.spec, nullptr, Kernels::Scalar), zamStsOk);
        for (int64_t i = 0; i < 2 * n; ++i) ASSERT_NEAR(a[i], b[i], 1e-5 * std::sqrt(double(n))) << order;
    }
}

TEST(Fft, InitChecksAndSizes)
{
    int s, i, w;
    EXPECT_EQ(zam::fftGetSize(28, 8, 0, &s, &i, &w), zamStsOk);
    EXPECT_EQ(w, 0);
    EXPECT_EQ(zam::fftGetSize(29, 8, 0, &s, &i, &w), zamStsFftOrder);
    EXPECT_EQ(zam::fftGetSize(-1, 8, 0, &s, &i, &w), zamStsFftOrder);
    EXPECT_EQ(zam::fftGetSize(6, 8, 0, &s, &i, &w), zamStsOk);
    EXPECT_EQ(w, 0);
    EXPECT_EQ(i, 0);
    EXPECT_EQ(zam::fftGetSize(7, 8, 0, &s, &i, &w), zamStsOk);
    EXPECT_EQ(w, 1024);
    EXPECT_EQ(i, 0);  // orders 7..10 share the constant base table
    EXPECT_EQ(zam::fftGetSize(11, 8, 0, &s, &i, &w), zamStsOk);
    EXPECT_GE(i, 2048 * 4);
    for (int flag : {0, 3, 5, 16, -1}) EXPECT_EQ(zam::fftGetSize(5, flag, 0, &s, &i, &w), zamStsFftFlag);

    std::vector<uint8_t> mem(4096), init(64);
    FftSpec* spec = nullptr;
    EXPECT_EQ(zam::fftInit(nullptr, 40, 8, 0, mem.data(), init.data()), zamStsNullPtr);
    EXPECT_EQ(zam::fftInit(&spec, 29, 8, 0, mem.data(), init.data()), zamStsFftOrder);
    EXPECT_EQ(zam::fftInit(&spec, -1, 8, 0, nullptr, init.data()), zamStsFftOrder);
    EXPECT_EQ(zam::fftInit(&spec, 3, 8, 0, nullptr, init.data()), zamStsNullPtr);
    EXPECT_EQ(spec, nullptr);
    // A bad flag leaves tag 0; a transform on it is refused.
    EXPECT_EQ(zam::fftInit(&spec, 3, 3, 0, mem.data(), nullptr), zamStsFftFlag);
    auto* rec = reinterpret_cast<FftSpec*>((reinterpret_cast<uintptr_t>(mem.data()) + 63) & ~uintptr_t{63});
    EXPECT_EQ(rec->tag, 0u);
    std::vector<float> x(16), y(16);
    EXPECT_EQ(zam::fftFwd(x.data(), y.data(), rec, nullptr), zamStsContextMismatch);
    // Orders 11 and up need the init buffer.
    std::vector<uint8_t> big(1 << 20);
    EXPECT_EQ(zam::fftInit(&spec, 11, 8, 0, big.data(), nullptr), zamStsNullPtr);

    ASSERT_EQ(zam::fftInit(&spec, 5, zam::kFftScaleBySqrtN, 9, mem.data() + 3, nullptr), zamStsOk);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(spec) % 64, 0u);
    EXPECT_EQ(spec->tag, 4u);
    EXPECT_EQ(spec->order, 5);
    EXPECT_EQ(spec->hint, 9);
    EXPECT_EQ(spec->scaleFwd, 1);
    EXPECT_EQ(spec->scaleInv, 1);
    EXPECT_NEAR(spec->scale, 1.0 / std::sqrt(32.0), 1e-7);
    // The split entry refuses an interleaved spec and the other way round.
    EXPECT_EQ(zam::fftFwdSplit(x.data(), x.data(), y.data(), y.data(), spec, nullptr), zamStsContextMismatch);
    ASSERT_EQ(zam::fftInitSplit(&spec, 5, 8, 0, mem.data(), nullptr), zamStsOk);
    EXPECT_EQ(spec->tag, 5u);
    EXPECT_EQ(zam::fftFwd(x.data(), y.data(), spec, nullptr), zamStsContextMismatch);
    EXPECT_EQ(zam::fftFwd(x.data(), nullptr, spec, nullptr), zamStsContextMismatch);
    EXPECT_EQ(zam::fftFwd(x.data(), y.data(), nullptr, nullptr), zamStsNullPtr);
}

// Orders beyond what the test runs: initialisation and sizes only.
TEST(Fft, LargeOrdersInitialise)
{
    for (int order = 23; order <= 28; ++order) {
        Fft f(order, zam::kFftScaleFwdByN);
        ASSERT_EQ(f.status, zamStsOk) << order;
        EXPECT_EQ(f.spec->order, order);
        EXPECT_EQ(f.spec->workSize, 0);
        EXPECT_FLOAT_EQ(f.spec->scale, std::ldexp(1.0f, -order));
        EXPECT_LT(f.mem.size(), size_t{2} << 20);  // the large path keeps compact tables
    }
}

TEST(Fft, AllocatedSpecRoundTrip)
{
    FftSpec* s = nullptr;
    ASSERT_EQ(zam::fftInitAlloc(&s, 12, zam::kFftScaleInvByN, 0), zamStsOk);
    auto x = randomComplex(4096);
    std::vector<float> y(8192), z(8192);
    ASSERT_EQ(zam::fftFwd(x.data(), y.data(), s, nullptr), zamStsOk);
    ASSERT_EQ(zam::fftInv(y.data(), z.data(), s, nullptr), zamStsOk);
    for (size_t i = 0; i < x.size(); ++i) ASSERT_NEAR(z[i], x[i], 1e-5);
    EXPECT_EQ(zam::fftFree(s), zamStsOk);
}

}  // namespace
