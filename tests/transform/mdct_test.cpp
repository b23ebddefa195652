// Float MDCT against the double-precision definitions, TDAC, symmetries, sizes
// and argument checks.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstring>
#include <random>
#include <vector>

#include "test_support.h"
#include "transform/mdct.h"
#include "zamac.h"
#include "zamcore.h"

namespace {

using zamtest::rng;

// cos(phi(n,k)) with the angle reduced exactly in integers:
// phi = 2*pi * ((2n + 1 + N/2)(2k + 1) mod 4N) / 4N.
double cosPhi(int n, int k, int len)
{
    long long m = (2LL * n + 1 + len / 2) * (2LL * k + 1) % (4LL * len);
    return std::cos(2.0 * M_PI * static_cast<double>(m) / (4.0 * len));
}

// Output indices the reference computes: all of them up to 4096 points, an even
// sample beyond (the direct sums would take too long).
std::vector<int> refIndices(int count)
{
    std::vector<int> idx;
    int step = count <= 2048 ? 1 : count / 64;
    for (int i = 0; i < count; i += step) idx.push_back(i);
    if (idx.back() != count - 1) idx.push_back(count - 1);
    return idx;
}

// Reference values (double) at refIndices; other entries are NaN.
std::vector<double> refForward(const std::vector<float>& x)
{
    const int len = static_cast<int>(x.size());
    std::vector<double> out(len / 2, std::nan(""));
    for (int k : refIndices(len / 2)) {
        double acc = 0;
        for (int n = 0; n < len; ++n) acc += x[n] * cosPhi(n, k, len);
        out[k] = 2.0 * acc;
    }
    return out;
}

std::vector<double> refInverse(const std::vector<float>& X)
{
    const int len = static_cast<int>(X.size()) * 2;
    std::vector<double> out(len, std::nan(""));
    for (int n : refIndices(len)) {
        double acc = 0;
        for (int k = 0; k < len / 2; ++k) acc += X[k] * cosPhi(n, k, len);
        out[n] = 2.0 / len * acc;
    }
    return out;
}

double phi(int n, int k, int len) { return 2.0 * M_PI / len * (n + 0.5 + len / 4.0) * (k + 0.5); }

std::vector<float> randomFloats(size_t n, float amp = 1.0f)
{
    std::uniform_real_distribution<float> d(-amp, amp);
    std::vector<float> v(n);
    for (auto& x : v) x = d(rng());
    return v;
}

template <typename T>
double relRms(const std::vector<T>& got, const std::vector<double>& ref)
{
    double e = 0, r = 0;
    for (size_t i = 0; i < ref.size(); ++i) {
        if (std::isnan(ref[i])) continue;
        e += (got[i] - ref[i]) * (got[i] - ref[i]);
        r += ref[i] * ref[i];
    }
    return std::sqrt(e / (r > 0 ? r : 1));
}

// A spec built in caller memory at a deliberately odd address.
template <typename Spec>
struct SpecBuffer {
    std::vector<uint8_t> mem, init, work;
    Spec* spec = nullptr;
};

SpecBuffer<MdctFwdSpec_32f> makeFwd(int len)
{
    SpecBuffer<MdctFwdSpec_32f> b;
    int s, i, w;
    EXPECT_EQ(zamsMDCTFwdGetSize_32f(len, &s, &i, &w), zamStsOk);
    b.mem.resize(s + 1);
    b.init.resize(i + 1);
    b.work.resize(w);
    EXPECT_EQ(zamsMDCTFwdInit_32f(&b.spec, len, b.mem.data() + 1, b.init.data()), zamStsOk);
    return b;
}

SpecBuffer<MdctInvSpec_32f> makeInv(int len)
{
    SpecBuffer<MdctInvSpec_32f> b;
    int s, i, w;
    EXPECT_EQ(zamsMDCTInvGetSize_32f(len, &s, &i, &w), zamStsOk);
    b.mem.resize(s + 1);
    b.init.resize(i + 1);
    b.work.resize(w);
    EXPECT_EQ(zamsMDCTInvInit_32f(&b.spec, len, b.mem.data() + 1, b.init.data()), zamStsOk);
    return b;
}

class MdctLength : public ::testing::TestWithParam<int> {};

TEST_P(MdctLength, ForwardMatchesDefinition)
{
    const int len = GetParam();
    auto f = makeFwd(len);
    auto x = randomFloats(len);
    std::vector<float> out(len / 2);
    ASSERT_EQ(zamsMDCTFwd_32f(x.data(), out.data(), f.spec, f.work.data() + 3), zamStsOk);
    double err = relRms(out, refForward(x));
    EXPECT_LT(err, 3e-7 * std::log2(len)) << "len " << len;
}

TEST_P(MdctLength, InverseMatchesDefinition)
{
    const int len = GetParam();
    auto b = makeInv(len);
    auto X = randomFloats(len / 2);
    std::vector<float> out(len);
    ASSERT_EQ(zamsMDCTInv_32f(X.data(), out.data(), b.spec, b.work.data() + 5), zamStsOk);
    EXPECT_LT(relRms(out, refInverse(X)), 3e-7 * std::log2(len)) << "len " << len;
}

TEST_P(MdctLength, InPlaceAndAllocatedBufferGiveTheSameResult)
{
    const int len = GetParam();
    auto f = makeFwd(len);
    auto b = makeInv(len);
    auto x = randomFloats(len);
    std::vector<float> ref(len / 2), inPlace = x;
    ASSERT_EQ(zamsMDCTFwd_32f(x.data(), ref.data(), f.spec, f.work.data()), zamStsOk);
    ASSERT_EQ(zamsMDCTFwd_32f_I(inPlace.data(), f.spec, nullptr), zamStsOk);
    for (int k = 0; k < len / 2; ++k) EXPECT_EQ(inPlace[k], ref[k]);
    std::vector<float> y(len), y2 = inPlace;
    ASSERT_EQ(zamsMDCTInv_32f(ref.data(), y.data(), b.spec, nullptr), zamStsOk);
    ASSERT_EQ(zamsMDCTInv_32f_I(y2.data(), b.spec, b.work.data()), zamStsOk);
    for (int n = 0; n < len; ++n) EXPECT_EQ(y2[n], y[n]);
}

// Inverse output halves: antisymmetric first half, symmetric second half.
TEST_P(MdctLength, InverseOutputSymmetries)
{
    const int len = GetParam();
    auto b = makeInv(len);
    auto X = randomFloats(len / 2);
    std::vector<float> y(len);
    ASSERT_EQ(zamsMDCTInv_32f(X.data(), y.data(), b.spec, nullptr), zamStsOk);
    for (int j = 0; j < len / 4; ++j) {
        EXPECT_EQ(y[len / 4 + j], -y[len / 4 - 1 - j]);
        EXPECT_EQ(y[3 * len / 4 + j], y[3 * len / 4 - 1 - j]);
    }
}

// Princen-Bradley sine window, 50 % overlap-add: the middle frames give back the
// input with gain 1.
TEST_P(MdctLength, WindowedOverlapAddReconstructsTheInput)
{
    const int len = GetParam();
    if (len > 4096) GTEST_SKIP() << "covered by the smaller lengths";
    auto f = makeFwd(len);
    auto b = makeInv(len);
    const int hop = len / 2, frames = 6;
    auto signal = randomFloats(static_cast<size_t>(hop) * (frames + 1));
    std::vector<double> win(len);
    for (int n = 0; n < len; ++n) win[n] = std::sin(M_PI * (n + 0.5) / len);
    std::vector<double> out(signal.size(), 0.0);
    std::vector<float> frame(len), coef(hop), back(len);
    for (int fr = 0; fr < frames; ++fr) {
        for (int n = 0; n < len; ++n) frame[n] = static_cast<float>(signal[fr * hop + n] * win[n]);
        ASSERT_EQ(zamsMDCTFwd_32f(frame.data(), coef.data(), f.spec, nullptr), zamStsOk);
        ASSERT_EQ(zamsMDCTInv_32f(coef.data(), back.data(), b.spec, nullptr), zamStsOk);
        for (int n = 0; n < len; ++n) out[fr * hop + n] += back[n] * win[n];
    }
    double maxErr = 0;
    for (size_t i = hop; i < static_cast<size_t>(hop) * frames; ++i)
        maxErr = std::max(maxErr, std::fabs(out[i] - signal[i]));
    EXPECT_LT(maxErr, 2e-6 * std::log2(len));
}

std::vector<int> allLengths()
{
    std::vector<int> v{12, 36};
    for (int n = 32; n <= (1 << 16); n *= 2) v.push_back(n);
    return v;
}

INSTANTIATE_TEST_SUITE_P(Lengths, MdctLength, ::testing::ValuesIn(allLengths()));

// The reference sums for the largest lengths are costly; sample them instead.
TEST(Mdct, ForwardImpulseAtZeroFor12)
{
    auto f = makeFwd(12);
    std::vector<float> x(12, 0.0f), out(6);
    x[0] = 1.0f;
    ASSERT_EQ(zamsMDCTFwd_32f(x.data(), out.data(), f.spec, nullptr), zamStsOk);
    for (int k = 0; k < 6; ++k) EXPECT_NEAR(out[k], 2.0 * std::cos(2 * M_PI / 12 * 3.5 * (k + 0.5)), 1e-6);
}

TEST(Mdct, InverseImpulseIsOneCosine)
{
    for (int len : {36, 256, 2048}) {
        auto b = makeInv(len);
        for (int k : {0, 3, len / 2 - 1}) {
            std::vector<float> X(len / 2, 0.0f), y(len);
            X[k] = 1.0f;
            ASSERT_EQ(zamsMDCTInv_32f(X.data(), y.data(), b.spec, nullptr), zamStsOk);
            for (int n = 0; n < len; ++n) ASSERT_NEAR(y[n], 2.0 / len * std::cos(phi(n, k, len)), 2e-6 / len * 8);
        }
    }
}

TEST(Mdct, SizeFormulas)
{
    int s, i, w;
    ASSERT_EQ(zamsMDCTFwdGetSize_32f(12, &s, &i, &w), zamStsOk);
    EXPECT_EQ(s, 6 * 4 + 168);
    EXPECT_EQ(i, 0);
    EXPECT_EQ(w, 12 * 4 + 128);
    ASSERT_EQ(zamsMDCTInvGetSize_32f(36, &s, &i, &w), zamStsOk);
    EXPECT_EQ(s, 18 * 4 + 168);
    EXPECT_EQ(w, 36 * 4 + 128);
    for (int len : {32, 256, 2048, 1 << 16}) {
        int fs, fi, fw;
        ASSERT_EQ(zam::fftGetSize(__builtin_ctz(len / 4), zam::kFftNoScale, 0, &fs, &fi, &fw), zamStsOk);
        ASSERT_EQ(zamsMDCTFwdGetSize_32f(len, &s, &i, &w), zamStsOk);
        EXPECT_EQ(s, fs + 64 + len / 2 * 4 + 168);
        EXPECT_EQ(i, fi);
        EXPECT_EQ(w, fw + 64 + len * 4 + 128);
        auto b = makeInv(len);
        int bs = 0;
        ASSERT_EQ(zamsMDCTInvGetBufSize_32f(b.spec, &bs), zamStsOk);
        EXPECT_EQ(bs, fw + 64 + 4 * len);
    }
}

TEST(Mdct, LengthChecks)
{
    int s, i, w;
    for (int len : {24, 48, 16, 0, -12, 31, 33, 100, 1 << 29})
        EXPECT_EQ(zamsMDCTFwdGetSize_32f(len, &s, &i, &w), zamStsSize) << len;
    EXPECT_EQ(zamsMDCTFwdGetSize_32f(32, nullptr, &i, &w), zamStsNullPtr);
    EXPECT_EQ(zamsMDCTFwdGetSize_32f(24, &s, &i, nullptr), zamStsNullPtr);
    std::vector<uint8_t> mem(4096), init(64);
    MdctFwdSpec_32f* f = nullptr;
    // Length is checked before the pointers.
    EXPECT_EQ(zamsMDCTFwdInit_32f(nullptr, 16, mem.data(), init.data()), zamStsSize);
    EXPECT_EQ(zamsMDCTFwdInit_32f(nullptr, 24, nullptr, nullptr), zamStsSize);
    EXPECT_EQ(zamsMDCTFwdInit_32f(&f, 32, mem.data(), nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsMDCTFwdInit_32f(&f, 32, nullptr, init.data()), zamStsNullPtr);
    EXPECT_EQ(zamsMDCTFwdInit_32f(&f, 12, mem.data(), nullptr), zamStsOk);
    EXPECT_EQ(zamsMDCTFwdInit_32f(&f, 36, nullptr, nullptr), zamStsNullPtr);
    MdctInvSpec_32f* v = nullptr;
    EXPECT_EQ(zamsMDCTInvInitAlloc_32f(&v, 48), zamStsSize);
    EXPECT_EQ(zamsMDCTInvInitAlloc_32f(nullptr, 64), zamStsNullPtr);
}

TEST(Mdct, TagsSeparateTheFamilies)
{
    auto f = makeFwd(64);
    auto b = makeInv(64);
    std::vector<float> in(64, 1.0f);
    auto out = zamtest::canaryVector<float>(64);
    int size = -1;
    auto* fAsInv = reinterpret_cast<const MdctInvSpec_32f*>(f.spec);
    auto* bAsFwd = reinterpret_cast<const MdctFwdSpec_32f*>(b.spec);
    EXPECT_EQ(zamsMDCTInv_32f(in.data(), out.data(), fAsInv, nullptr), zamStsContextMismatch);
    EXPECT_EQ(zamsMDCTFwd_32f(in.data(), out.data(), bAsFwd, nullptr), zamStsContextMismatch);
    EXPECT_EQ(zamsMDCTFwdGetBufSize_32f(bAsFwd, &size), zamStsContextMismatch);
    EXPECT_EQ(size, -1);
    EXPECT_EQ(zamsMDCTFwdFree_32f(const_cast<MdctFwdSpec_32f*>(bAsFwd)), zamStsContextMismatch);
    // check order: spec before data pointers
    EXPECT_EQ(zamsMDCTFwd_32f(nullptr, out.data(), nullptr, nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsMDCTFwd_32f(nullptr, out.data(), bAsFwd, nullptr), zamStsContextMismatch);
    EXPECT_EQ(zamsMDCTFwd_32f(nullptr, out.data(), f.spec, nullptr), zamStsNullPtr);
    EXPECT_TRUE(zamtest::untouched(out));
}

TEST(Mdct, FreeClearsTheTagAndReleasesOwnedSpecs)
{
    for (int len : {12, 36, 32, 2048}) {
        MdctInvSpec_32f* v = nullptr;
        ASSERT_EQ(zamsMDCTInvInitAlloc_32f(&v, len), zamStsOk);
        std::vector<float> X(len / 2, 0.25f), y(len);
        EXPECT_EQ(zamsMDCTInv_32f(X.data(), y.data(), v, nullptr), zamStsOk);
        EXPECT_EQ(zamsMDCTInvFree_32f(v), zamStsOk);
    }
    auto f = makeFwd(256);
    EXPECT_EQ(zamsMDCTFwdFree_32f(f.spec), zamStsOk);
    EXPECT_EQ(zamsMDCTFwdFree_32f(f.spec), zamStsContextMismatch);
    EXPECT_EQ(zamsMDCTFwdFree_32f(nullptr), zamStsNullPtr);
    std::vector<float> in(256), out(128);
    EXPECT_EQ(zamsMDCTFwd_32f(in.data(), out.data(), f.spec, nullptr), zamStsContextMismatch);
}

TEST(Mdct, RawAndAlignedPointersAreTheSameSpec)
{
    int s, i, w;
    ASSERT_EQ(zamsMDCTInvGetSize_32f(256, &s, &i, &w), zamStsOk);
    std::vector<uint8_t> mem(s + 64), init(i + 64);
    uint8_t* raw = zamtest::OffsetBuffer<uint8_t>(1, 0).data();
    (void)raw;
    uint8_t* odd = mem.data() + (16 - reinterpret_cast<uintptr_t>(mem.data()) % 16) % 16 + 1;
    MdctInvSpec_32f* v = nullptr;
    ASSERT_EQ(zamsMDCTInvInit_32f(&v, 256, odd, init.data()), zamStsOk);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(v) % 64, 0u);
    auto X = randomFloats(128);
    std::vector<float> a(256), b(256);
    ASSERT_EQ(zamsMDCTInv_32f(X.data(), a.data(), v, nullptr), zamStsOk);
    ASSERT_EQ(zamsMDCTInv_32f(X.data(), b.data(), reinterpret_cast<MdctInvSpec_32f*>(odd), nullptr), zamStsOk);
    EXPECT_EQ(a, b);
}

// The AVX2 kernels against their scalar twins.
TEST(Mdct, VectorKernelsMatchScalarTwins)
{
    for (int len : {32, 64, 256, 2048, 8192}) {
        auto f = makeFwd(len);
        auto b = makeInv(len);
        auto* fs = reinterpret_cast<const zam::MdctSpec32f*>(f.spec);
        auto* bs = reinterpret_cast<const zam::MdctSpec32f*>(b.spec);
        auto x = randomFloats(len);
        std::vector<float> work(fs->workSize / 4 + 16);
        float* wk = reinterpret_cast<float*>((reinterpret_cast<uintptr_t>(work.data()) + 63) & ~uintptr_t{63});
        std::vector<float> v(len / 2), sc(len / 2);
        zam::mdctFwdCore(x.data(), v.data(), fs, wk, zam::Kernels::Avx2);
        zam::mdctFwdCore(x.data(), sc.data(), fs, wk, zam::Kernels::Scalar);
        for (int k = 0; k < len / 2; ++k) ASSERT_NEAR(v[k], sc[k], 1e-5f * std::sqrt(float(len))) << len << " " << k;
        std::vector<float> yv(len), ys(len);
        zam::mdctInvCore(v.data(), yv.data(), bs, wk, zam::Kernels::Avx2);
        zam::mdctInvCore(v.data(), ys.data(), bs, wk, zam::Kernels::Scalar);
        for (int n = 0; n < len; ++n) ASSERT_NEAR(yv[n], ys[n], 1e-5f) << len << " " << n;
    }
}

// The one-transform vector kernel of the 36-point inverse gives the scalar twin's
// bits (the sign of zero included), also in place and on zero and sparse inputs.
TEST(Mdct, Inverse36VectorKernelMatchesScalarBitForBit)
{
    auto b = makeInv(36);
    auto* bs = reinterpret_cast<const zam::MdctSpec32f*>(b.spec);
    std::mt19937 g(36);  // its own generator: the shared one's sequence stays as the other tests expect
    std::uniform_real_distribution<float> d(-1.0f, 1.0f);
    std::vector<float> x(18 * 20);
    for (auto& v : x) v = d(g);
    for (int i = 18 * 17; i < 18 * 18; ++i) x[i] = 0.0f;
    for (int i = 18 * 18; i < 18 * 20; i += 5) x[i] = 0.0f;
    for (int t = 0; t < 20; ++t) {
        float v[36], sc[36], in[36] = {};
        zam::mdctInvCore(x.data() + 18 * t, v, bs, nullptr, zam::Kernels::Avx2);
        zam::mdctInvCore(x.data() + 18 * t, sc, bs, nullptr, zam::Kernels::Scalar);
        std::memcpy(in, x.data() + 18 * t, 18 * sizeof(float));
        ASSERT_EQ(zamsMDCTInv_32f_I(in, b.spec, nullptr), zamStsOk);
        EXPECT_EQ(std::memcmp(v, sc, sizeof v), 0) << t;
        EXPECT_EQ(std::memcmp(in, sc, sizeof sc), 0) << t;
    }
}

// The eight-lane path of the short transforms gives the bits of one call per
// transform, in both directions, for a granule's 32 subbands and a ragged count.
TEST(Mdct, ShortBatchesMatchSingleCallsBitForBit)
{
    for (int len : {12, 36})
        for (int count : {32, 13}) {
            auto f = makeFwd(len);
            auto b = makeInv(len);
            const int stride = len + 3;
            auto x = randomFloats(count * stride);
            std::vector<float> batch(count * stride), single(count * stride);
            zam::mdctFixedBatch(x.data(), stride, batch.data(), stride, count,
                                reinterpret_cast<const zam::MdctSpec32f*>(f.spec));
            for (int t = 0; t < count; ++t)
                ASSERT_EQ(zamsMDCTFwd_32f(x.data() + t * stride, single.data() + t * stride, f.spec, nullptr), zamStsOk);
            for (int t = 0; t < count; ++t)
                for (int k = 0; k < len / 2; ++k) ASSERT_EQ(batch[t * stride + k], single[t * stride + k]) << t;
            zam::mdctFixedBatch(x.data(), stride, batch.data(), stride, count,
                                reinterpret_cast<const zam::MdctSpec32f*>(b.spec));
            for (int t = 0; t < count; ++t)
                ASSERT_EQ(zamsMDCTInv_32f(x.data() + t * stride, single.data() + t * stride, b.spec, nullptr), zamStsOk);
            for (int t = 0; t < count; ++t)
                for (int n = 0; n < len; ++n) ASSERT_EQ(batch[t * stride + n], single[t * stride + n]) << t;
        }
}

}  // namespace

namespace {

// Every placement of the caller's memory fits in the reported sizes (the
// sanitizer build catches any write past an exact-size buffer).
TEST(Mdct, SpecFitsReportedSizeAtEveryOffset)
{
    for (int len : {12, 36, 32, 64, 128}) {
        int s, i, w;
        ASSERT_EQ(zamsMDCTInvGetSize_32f(len, &s, &i, &w), zamStsOk);
        for (int off = 0; off < 64; ++off) {
            auto* raw = static_cast<uint8_t*>(zamMalloc(s + off));
            std::vector<uint8_t> init(i + 1), work(w + off);
            MdctInvSpec_32f* v = nullptr;
            ASSERT_EQ(zamsMDCTInvInit_32f(&v, len, raw + off, init.data()), zamStsOk);
            std::vector<float> X(len / 2, 1.0f), y(len);
            ASSERT_EQ(zamsMDCTInv_32f(X.data(), y.data(), v, work.data() + off), zamStsOk);
            zamFree(raw);
        }
        if (len == 12 || len == 36) continue;
        ASSERT_EQ(zamsMDCTFwdGetSize_16s(len, &s, &i, &w), zamStsOk);
        for (int off = 0; off < 64; off += 7) {
            std::vector<uint8_t> mem(s + off % 16);
            MdctFwdSpec_16s* f = nullptr;
            ASSERT_EQ(zamsMDCTFwdInit_16s(&f, len, mem.data() + (off % 16), nullptr), zamStsOk);
        }
    }
}

}  // namespace
