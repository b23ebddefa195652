#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <vector>

#include "test_support.h"
#include "util/sample_kernels.h"
#include "zamac.h"

using zamtest::canaryVector;
using zamtest::OffsetBuffer;
using zamtest::untouched;

namespace {

std::vector<int16_t> randomPcm(size_t n)
{
    std::uniform_int_distribution<int> d(-32768, 32767);
    std::vector<int16_t> v(n);
    for (auto& x : v) x = static_cast<int16_t>(d(zamtest::rng()));
    return v;
}

std::vector<float> randomFloats(size_t n, float lo, float hi)
{
    std::uniform_real_distribution<float> d(lo, hi);
    std::vector<float> v(n);
    for (auto& x : v) x = d(zamtest::rng());
    return v;
}

}  // namespace

// ------------------------------------------------------------- interleaving

class InterleaveRoundTrip : public ::testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(InterleaveRoundTrip, BothTypesRestoreTheChannels)
{
    const auto [channels, len] = GetParam();
    std::vector<std::vector<int16_t>> in16(channels);
    std::vector<std::vector<float>> inF(channels);
    std::vector<const int16_t*> src16;
    std::vector<const float*> srcF;
    for (int c = 0; c < channels; ++c) {
        in16[c] = randomPcm(len);
        inF[c] = randomFloats(len, -1.0f, 1.0f);
        src16.push_back(in16[c].data());
        srcF.push_back(inF[c].data());
    }
    std::vector<int16_t> mixed16(channels * len);
    std::vector<float> mixedF(channels * len);
    ASSERT_GE(zamsInterleave_16s(src16.data(), channels, len, mixed16.data()), 0);
    ASSERT_GE(zamsInterleave_32f(srcF.data(), channels, len, mixedF.data()), 0);
    for (int i = 0; i < len; ++i)
        for (int c = 0; c < channels; ++c) {
            ASSERT_EQ(mixed16[i * channels + c], in16[c][i]);
            ASSERT_EQ(mixedF[i * channels + c], inF[c][i]);
        }

    std::vector<std::vector<int16_t>> out16(channels, std::vector<int16_t>(len));
    std::vector<std::vector<float>> outF(channels, std::vector<float>(len));
    std::vector<int16_t*> dst16;
    std::vector<float*> dstF;
    for (int c = 0; c < channels; ++c) {
        dst16.push_back(out16[c].data());
        dstF.push_back(outF[c].data());
    }
    ASSERT_GE(zamsDeinterleave_16s(mixed16.data(), channels, len, dst16.data()), 0);
    ASSERT_GE(zamsDeinterleave_32f(mixedF.data(), channels, len, dstF.data()), 0);
    EXPECT_EQ(out16, in16);
    EXPECT_EQ(outF, inF);
}

INSTANTIATE_TEST_SUITE_P(Shapes, InterleaveRoundTrip,
                         ::testing::Combine(::testing::Values(1, 2, 3, 6), ::testing::Values(1, 7, 16, 33, 1000)));

TEST(Interleave, MisalignedPointersGiveTheWarningAndTheSameResult)
{
    const int len = 37;
    auto a = randomPcm(len), b = randomPcm(len);
    OffsetBuffer<int16_t> alignedA(len, 0), alignedB(len, 0), shiftedA(len, 4), alignedDst(2 * len, 0),
        shiftedDst(2 * len, 4);
    std::copy(a.begin(), a.end(), alignedA.data());
    std::copy(a.begin(), a.end(), shiftedA.data());
    std::copy(b.begin(), b.end(), alignedB.data());
    const int16_t* aligned[] = {alignedA.data(), alignedB.data()};
    const int16_t* shifted[] = {shiftedA.data(), alignedB.data()};
    EXPECT_EQ(zamsInterleave_16s(aligned, 2, len, alignedDst.data()), zamStsOk);
    EXPECT_EQ(zamsInterleave_16s(shifted, 2, len, shiftedDst.data()), zamStsMisalignedData);
    EXPECT_TRUE(std::equal(alignedDst.data(), alignedDst.data() + 2 * len, shiftedDst.data()));

    int16_t* outs[] = {shiftedA.data(), alignedB.data()};
    EXPECT_EQ(zamsDeinterleave_16s(alignedDst.data(), 2, len, outs), zamStsMisalignedData);
    int16_t* alignedOuts[] = {alignedA.data(), alignedB.data()};
    EXPECT_EQ(zamsDeinterleave_16s(alignedDst.data(), 2, len, alignedOuts), zamStsOk);
    EXPECT_EQ(zamsDeinterleave_16s(shiftedDst.data(), 2, len, alignedOuts), zamStsMisalignedData);
}

// ---------------------------------------------------------------------- join

struct JoinCase {
    float in;
    int16_t out;
};

class JoinValues : public ::testing::TestWithParam<int> {};

TEST_P(JoinValues, ClampsAndRoundsHalfToEvenInEveryCallerMode)
{
    const JoinCase cases[] = {{32767.6f, 32767}, {-40000.0f, -32768}, {2.5f, 2},     {3.5f, 4},
                              {-2.5f, -2},       {-3.5f, -4},         {0.49999997f, 0}, {1e9f, 32767},
                              {-32768.4f, -32768}, {32766.5f, 32766},  {-0.5f, 0},    {1.5f, 2}};
    const int mode = GetParam();
    const int saved = std::fegetround();
    ASSERT_EQ(std::fesetround(mode), 0);
    for (int channels = 1; channels <= 5; ++channels) {
        // Long enough that every channel count takes its vector path as well as its tail.
        const int len = 41;
        std::vector<std::vector<float>> in(channels, std::vector<float>(len));
        for (int c = 0; c < channels; ++c)
            for (int i = 0; i < len; ++i) in[c][i] = cases[(i + c) % std::size(cases)].in;
        std::vector<const float*> src;
        for (auto& v : in) src.push_back(v.data());
        std::vector<int16_t> dst(channels * len);
        ASSERT_EQ(zamsJoin_32f16s_D2L(src.data(), channels, len, dst.data()), zamStsOk);
        for (int c = 0; c < channels; ++c)
            for (int i = 0; i < len; ++i)
                ASSERT_EQ(dst[i * channels + c], cases[(i + c) % std::size(cases)].out)
                    << "channels " << channels << " input " << in[c][i];
    }
    EXPECT_EQ(std::fegetround(), mode) << "the caller's rounding mode is restored";
    std::fesetround(saved);
}

INSTANTIATE_TEST_SUITE_P(RoundingModes, JoinValues,
                         ::testing::Values(FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO));

TEST(Join, NaNBecomesTheLowerLimit)
{
    const float nan = std::nanf("");
    const float* src[] = {&nan};
    int16_t out = 0;
    ASSERT_EQ(zamsJoin_32f16s_D2L(src, 1, 1, &out), zamStsOk);
    EXPECT_EQ(out, -32768);
}

// ------------------------------------------------------------------ makeFloat

// ------------------------------------------------------------------ makeFloat

TEST(MakeFloat, ValuesAndAlignmentWarning)
{
    const int16_t m[9] = {16384, 16384, -32768, 1, 0, 12345, 7, -9, 32767}, e[9] = {0, -1, 0, -15, 7, 3, -20, 20, 1};
    OffsetBuffer<int16_t> am(9, 0), ae(9, 0);
    OffsetBuffer<float> ad(9, 0), sd(9, 8);
    std::copy(m, m + 9, am.data());
    std::copy(e, e + 9, ae.data());
    EXPECT_EQ(zamsMakeFloat_16s32f(am.data(), ae.data(), 9, ad.data()), zamStsOk);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(ad.data()[i], std::ldexp(static_cast<float>(m[i]), -(15 + e[i]))) << i;
    EXPECT_EQ(zamsMakeFloat_16s32f(am.data(), ae.data(), 9, sd.data()), zamStsMisalignedData);
    EXPECT_TRUE(std::equal(ad.data(), ad.data() + 9, sd.data()));
}

// ---------------------------------------------------------------------- scale

TEST(Scale, BandsUsedAsGiven)
{
    std::vector<float> x(10, 1.0f);
    const float scale[] = {2.0f, 3.0f, 5.0f, 7.0f};
    const int offsets[] = {0, 3, 3, 9, 10};  // band 1 is empty
    ASSERT_EQ(zamsScale_32f_I(x.data(), scale, offsets, 3), zamStsOk);
    const std::vector<float> expected = {2, 2, 2, 5, 5, 5, 5, 5, 5, 1};
    EXPECT_EQ(x, expected);
}

// Argument checks of the family, first failure wins, outputs canary-filled and
// untouched: pointers before counts except where noted.
TEST(SampleUtils, ChecksInOrderWriteNothing)
{
    int16_t a[4] = {}, b[4] = {};
    const int16_t* src[] = {a, b};
    const int16_t* withNull[] = {a, nullptr};
    const float fa[4] = {};
    const float* fsrc[] = {fa, nullptr};
    std::vector<float> fsrc12(12, 1.0f);
    auto dst = canaryVector<int16_t>(8);
    auto c0 = canaryVector<float>(4), c2 = canaryVector<float>(4);
    float* fdst[] = {c0.data(), nullptr, c2.data()};
    int16_t m[2] = {1, 2}, e[2] = {};
    const float s[] = {1.0f};
    const int o[] = {0, 4};
    const std::pair<ZamStatus, ZamStatus> calls[] = {
        {zamsInterleave_16s(nullptr, 2, 4, dst.data()), zamStsNullPtr},
        {zamsInterleave_16s(src, 2, 4, nullptr), zamStsNullPtr},
        {zamsInterleave_16s(nullptr, 0, 0, nullptr), zamStsNullPtr},
        {zamsInterleave_16s(src, 0, 0, dst.data()), zamStsNumChannels},  // channels before length
        {zamsInterleave_16s(src, 2, 0, dst.data()), zamStsSize},
        {zamsInterleave_16s(withNull, 2, 0, dst.data()), zamStsSize},  // channel pointers after counts
        {zamsInterleave_16s(withNull, 2, 4, dst.data()), zamStsNullPtr},
        {zamsDeinterleave_32f(fsrc12.data(), 3, 4, fdst), zamStsNullPtr},
        {zamsDeinterleave_32f(fsrc12.data(), -1, 4, fdst), zamStsNumChannels},
        {zamsDeinterleave_32f(nullptr, 3, 4, fdst), zamStsNullPtr},
        {zamsJoin_32f16s_D2L(fsrc, 1, 2, nullptr), zamStsNullPtr},
        {zamsJoin_32f16s_D2L(nullptr, 0, 2, dst.data()), zamStsBadArg},  // counts before the source
        {zamsJoin_32f16s_D2L(fsrc, 1, 0, dst.data()), zamStsBadArg},
        {zamsJoin_32f16s_D2L(nullptr, 1, 2, dst.data()), zamStsNullPtr},
        {zamsJoin_32f16s_D2L(fsrc, 2, 2, dst.data()), zamStsNullPtr},
        {zamsMakeFloat_16s32f(nullptr, e, 2, c0.data()), zamStsNullPtr},
        {zamsMakeFloat_16s32f(m, e, 0, c0.data()), zamStsSize},
        {zamsMakeFloat_16s32f(m, nullptr, 0, c0.data()), zamStsNullPtr},
        {zamsScale_32f_I(c0.data(), nullptr, o, 1), zamStsNullPtr},
        {zamsScale_32f_I(c0.data(), s, o, 0), zamStsSize},
        {zamsScale_32f_I(c0.data(), s, nullptr, 0), zamStsNullPtr},
    };
    for (size_t i = 0; i < std::size(calls); ++i) EXPECT_EQ(calls[i].first, calls[i].second) << "call " << i;
    EXPECT_TRUE(untouched(dst));
    EXPECT_TRUE(untouched(c0));
    EXPECT_TRUE(untouched(c2));
}

// ------------------------------------------------ vector paths against twins

TEST(SampleKernels, VectorPathsMatchScalarTwins)
{
    using namespace zam::util;
    for (int len : {0, 1, 7, 8, 15, 16, 17, 31, 64, 1001}) {
        auto a = randomPcm(len), b = randomPcm(len);
        std::vector<int16_t> v(2 * len), s(2 * len);
        interleave2_16s_avx2(a.data(), b.data(), len, v.data());
        interleave2_16s_scalar(a.data(), b.data(), len, s.data());
        ASSERT_EQ(v, s);
        std::vector<int16_t> va(len), vb(len), sa(len), sb(len);
        deinterleave2_16s_avx2(v.data(), len, va.data(), vb.data());
        deinterleave2_16s_scalar(v.data(), len, sa.data(), sb.data());
        ASSERT_EQ(va, sa);
        ASSERT_EQ(vb, sb);

        auto fa = randomFloats(len, -40000.0f, 40000.0f), fb = randomFloats(len, -40000.0f, 40000.0f);
        std::vector<float> fv(2 * len), fs(2 * len);
        interleave2_32f_avx2(fa.data(), fb.data(), len, fv.data());
        interleave2_32f_scalar(fa.data(), fb.data(), len, fs.data());
        ASSERT_EQ(fv, fs);
        std::vector<float> fva(len), fvb(len), fsa(len), fsb(len);
        deinterleave2_32f_avx2(fv.data(), len, fva.data(), fvb.data());
        deinterleave2_32f_scalar(fv.data(), len, fsa.data(), fsb.data());
        ASSERT_EQ(fva, fsa);
        ASSERT_EQ(fvb, fsb);

        for (int channels : {1, 2, 3, 4, 5, 6, 7, 8, 9, 11, 16, 19}) {
            std::vector<std::vector<float>> ch(channels);
            std::vector<std::vector<int16_t>> pcm(channels);
            std::vector<const float*> ptrs;
            std::vector<const int16_t*> pcmPtrs;
            for (int c = 0; c < channels; ++c) {
                ch[c] = randomFloats(len, -40000.0f, 40000.0f);
                pcm[c] = randomPcm(len);
                ptrs.push_back(ch[c].data());
                pcmPtrs.push_back(pcm[c].data());
            }
            // One spare element after each output shows that nothing is written past it.
            std::vector<int16_t> jv(channels * len + 1, 7), js(jv), iv(jv), is(jv);
            std::vector<float> fiv(channels * len + 1, 7.0f), fis(fiv);
            join_32f16s_avx2(ptrs.data(), channels, len, jv.data());
            join_32f16s_scalar(ptrs.data(), channels, len, js.data());
            ASSERT_EQ(jv, js) << channels << " channels, len " << len;
            interleaveN_16s_avx2(pcmPtrs.data(), channels, len, iv.data());
            interleaveN_16s_scalar(pcmPtrs.data(), channels, len, is.data());
            ASSERT_EQ(iv, is) << channels << " channels, len " << len;
            interleaveN_32f_avx2(ptrs.data(), channels, len, fiv.data());
            interleaveN_32f_scalar(ptrs.data(), channels, len, fis.data());
            ASSERT_EQ(fiv, fis) << channels << " channels, len " << len;
            ASSERT_EQ(jv.back(), 7);
            ASSERT_EQ(iv.back(), 7);
            ASSERT_EQ(fiv.back(), 7.0f);
        }

        auto mant = randomPcm(len);
        std::vector<int16_t> ex(len);
        std::uniform_int_distribution<int> ed(-20, 20);
        for (auto& e : ex) e = static_cast<int16_t>(ed(zamtest::rng()));
        std::vector<float> mv(len), ms(len);
        makeFloat_avx2(mant.data(), ex.data(), len, mv.data());
        makeFloat_scalar(mant.data(), ex.data(), len, ms.data());
        ASSERT_EQ(mv, ms);
        for (int i = 0; i < len; ++i) ASSERT_EQ(mv[i], std::ldexp(static_cast<float>(mant[i]), -(15 + ex[i])));

        auto sv = fa, ss = fa;
        scaleBand_avx2(sv.data(), 0.37f, len);
        scaleBand_scalar(ss.data(), 0.37f, len);
        ASSERT_EQ(sv, ss);
    }
}
