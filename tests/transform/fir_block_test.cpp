// Block FIR filter: responses against a direct sum, ring behaviour, 16-bit
// counts, checks and the misalignment warning.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <deque>
#include <random>
#include <vector>

#include "test_support.h"
#include "transform/fir_block.h"
#include "zamac.h"

namespace {

TEST(FirBlock, RecordLayout)
{
    EXPECT_EQ(offsetof(zam::FirBlockState, history), 0u);
    EXPECT_EQ(offsetof(zam::FirBlockState, numTaps), 8u);
    EXPECT_EQ(offsetof(zam::FirBlockState, len), 10u);
    EXPECT_EQ(offsetof(zam::FirBlockState, stride), 12u);
    EXPECT_EQ(offsetof(zam::FirBlockState, position), 14u);
    EXPECT_EQ(offsetof(zam::FirBlockState, tag), 16u);
    EXPECT_EQ(sizeof(zam::FirBlockState), 24u);
}

TEST(FirBlock, ScalarImpulseThroughThreeTaps)
{
    FirBlockState_32f* st = nullptr;
    ASSERT_EQ(zamsFIRBlockInitAlloc_32f(&st, 3, 1), zamStsOk);
    alignas(16) float taps[4] = {2.0f, -3.0f, 0.5f, 0};
    const float inputs[4] = {1, 0, 0, 0}, expected[4] = {2.0f, -3.0f, 0.5f, 0.0f};
    for (int i = 0; i < 4; ++i) {
        alignas(16) float in[4] = {inputs[i]}, out[4] = {99};
        ASSERT_EQ(zamsFIRBlockOne_32f(in, out, st, taps), zamStsOk);
        EXPECT_EQ(out[0], expected[i]) << i;
    }
    EXPECT_EQ(zamsFIRBlockFree_32f(st), zamStsOk);
}

// Random blocks and taps against a direct double sum over the history, for
// several shapes (single tap, short and long blocks, batches of more than 64 taps).
class FirShape : public ::testing::TestWithParam<std::pair<int, int>> {};

TEST_P(FirShape, MatchesDirectSum)
{
    const auto [numTaps, len] = GetParam();
    FirBlockState_32f* st = nullptr;
    ASSERT_EQ(zamsFIRBlockInitAlloc_32f(&st, numTaps, len), zamStsOk);
    std::uniform_real_distribution<float> d(-1, 1);
    std::vector<float> taps(numTaps);
    for (auto& t : taps) t = d(zamtest::rng());
    std::deque<std::vector<float>> past;  // newest first
    const int calls = numTaps + 5;
    for (int c = 0; c < calls; ++c) {
        std::vector<float> in(len), out(len);
        for (auto& v : in) v = d(zamtest::rng());
        past.push_front(in);
        if (static_cast<int>(past.size()) > numTaps) past.pop_back();
        ZamStatus st2 = zamsFIRBlockOne_32f(in.data(), out.data(), st, taps.data());
        ASSERT_GE(st2, zamStsOk);
        for (int i = 0; i < len; ++i) {
            double want = 0;
            for (size_t j = 0; j < past.size(); ++j) want += double(taps[j]) * past[j][i];
            ASSERT_NEAR(out[i], want, 1e-5 * std::sqrt(double(numTaps))) << "call " << c << " i " << i;
        }
    }
    EXPECT_EQ(zamsFIRBlockFree_32f(st), zamStsOk);
}

INSTANTIATE_TEST_SUITE_P(Shapes, FirShape,
                         ::testing::Values(std::pair{1, 7}, std::pair{1, 100}, std::pair{2, 1}, std::pair{4, 24},
                                           std::pair{5, 25}, std::pair{8, 1024}, std::pair{70, 45},
                                           std::pair{130, 9}));

TEST(FirBlock, StepResponseAccumulatesTheTaps)
{
    FirBlockState_32f* st = nullptr;
    ASSERT_EQ(zamsFIRBlockInitAlloc_32f(&st, 4, 40), zamStsOk);
    alignas(16) float taps[4] = {1, 2, 4, 8};
    alignas(16) float in[40], out[40];
    std::fill(in, in + 40, 1.0f);
    const float sums[6] = {1, 3, 7, 15, 15, 15};
    for (float s : sums) {
        ASSERT_EQ(zamsFIRBlockOne_32f(in, out, st, taps), zamStsOk);
        for (float v : out) ASSERT_EQ(v, s);
    }
    // In place: source and destination one array.
    ASSERT_EQ(zamsFIRBlockOne_32f(in, in, st, taps), zamStsOk);
    EXPECT_EQ(in[39], 15.0f);
    EXPECT_EQ(zamsFIRBlockFree_32f(st), zamStsOk);
}

TEST(FirBlock, SingleTapScalesTheBlock)
{
    FirBlockState_32f* st = nullptr;
    ASSERT_EQ(zamsFIRBlockInitAlloc_32f(&st, 1, 33), zamStsOk);
    alignas(16) float taps[4] = {-0.25f};
    alignas(16) float in[36], out[36];
    for (int i = 0; i < 33; ++i) in[i] = float(i) - 7.0f;
    for (int rep = 0; rep < 3; ++rep) {
        ASSERT_EQ(zamsFIRBlockOne_32f(in, out, st, taps), zamStsOk);
        for (int i = 0; i < 33; ++i) ASSERT_EQ(out[i], -0.25f * in[i]);
    }
    zamsFIRBlockFree_32f(st);
}

TEST(FirBlock, MisalignedPointersWarnButWork)
{
    FirBlockState_32f* st = nullptr;
    ASSERT_EQ(zamsFIRBlockInitAlloc_32f(&st, 2, 30), zamStsOk);
    zamtest::OffsetBuffer<float> taps(4, 4), in(32, 0), out(32, 0), in2(32, 4), out2(32, 8);
    taps.data()[0] = 1.5f;
    taps.data()[1] = 0.5f;
    alignas(16) float alignedTaps[4] = {1.5f, 0.5f};
    for (int i = 0; i < 30; ++i) in.data()[i] = in2.data()[i] = float(i);
    EXPECT_EQ(zamsFIRBlockOne_32f(in.data(), out.data(), st, taps.data()), zamStsMisalignedData);
    for (int i = 0; i < 30; ++i) EXPECT_EQ(out.data()[i], 1.5f * i);
    EXPECT_EQ(zamsFIRBlockOne_32f(in2.data(), out.data(), st, alignedTaps), zamStsMisalignedData);
    EXPECT_EQ(zamsFIRBlockOne_32f(in.data(), out2.data(), st, alignedTaps), zamStsMisalignedData);
    for (int i = 0; i < 30; ++i) EXPECT_EQ(out2.data()[i], 2.0f * i);
    EXPECT_EQ(zamsFIRBlockOne_32f(in.data(), out.data(), st, alignedTaps), zamStsOk);
    zamsFIRBlockFree_32f(st);
}

TEST(FirBlock, CountsAreSixteenBit)
{
    FirBlockState_32f* st = nullptr;
    ASSERT_EQ(zamsFIRBlockInitAlloc_32f(&st, 2, 40000), zamStsOk);
    std::vector<float> in(40000, 1.0f), taps(2, 1.0f);
    auto out = zamtest::canaryVector<float>(40000);
    auto* rec = reinterpret_cast<zam::FirBlockState*>(st);
    EXPECT_LT(rec->len, 0);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(zamsFIRBlockOne_32f(in.data(), out.data(), st, taps.data()), zamStsFirLength);
    EXPECT_TRUE(zamtest::untouched(out));
    EXPECT_EQ(rec->position, 0);
    EXPECT_EQ(zamsFIRBlockFree_32f(st), zamStsOk);
}

TEST(FirBlock, ArgumentChecks)
{
    FirBlockState_32f* st = nullptr;
    EXPECT_EQ(zamsFIRBlockInitAlloc_32f(nullptr, 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsFIRBlockInitAlloc_32f(&st, 0, 4), zamStsFirLength);
    EXPECT_EQ(zamsFIRBlockInitAlloc_32f(&st, 3, 0), zamStsFirLength);
    EXPECT_EQ(zamsFIRBlockInitAlloc_32f(&st, -1, 4), zamStsFirLength);
    EXPECT_EQ(st, nullptr);
    ASSERT_EQ(zamsFIRBlockInitAlloc_32f(&st, 3, 4), zamStsOk);
    alignas(16) float in[4] = {1, 2, 3, 4}, taps[4] = {1, 1, 1};
    auto out = zamtest::canaryVector<float>(4);
    EXPECT_EQ(zamsFIRBlockOne_32f(nullptr, out.data(), st, taps), zamStsNullPtr);
    EXPECT_EQ(zamsFIRBlockOne_32f(in, out.data(), st, nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsFIRBlockOne_32f(in, out.data(), nullptr, taps), zamStsNullPtr);
    auto* rec = reinterpret_cast<zam::FirBlockState*>(st);
    rec->position = 3;
    EXPECT_EQ(zamsFIRBlockOne_32f(in, out.data(), st, taps), zamStsFirLength);
    EXPECT_EQ(rec->position, 3);
    rec->position = -1;
    EXPECT_EQ(zamsFIRBlockOne_32f(in, out.data(), st, taps), zamStsFirLength);
    rec->position = 0;
    rec->tag = 57;
    EXPECT_EQ(zamsFIRBlockOne_32f(in, out.data(), st, taps), zamStsContextMismatch);
    EXPECT_EQ(zamsFIRBlockFree_32f(st), zamStsContextMismatch);
    EXPECT_TRUE(zamtest::untouched(out));
    rec->tag = 58;
    EXPECT_EQ(zamsFIRBlockFree_32f(st), zamStsOk);
    EXPECT_EQ(zamsFIRBlockFree_32f(nullptr), zamStsNullPtr);
}

TEST(FirBlock, VectorAccumulationMatchesScalarTwinExactly)
{
    std::uniform_real_distribution<float> d(-1, 1);
    for (int len : {1, 7, 8, 31, 32, 33, 100, 257}) {
        for (int count : {1, 2, 5, 64}) {
            std::vector<std::vector<float>> data(count, std::vector<float>(len));
            std::vector<const float*> rows;
            std::vector<float> w(count);
            for (int j = 0; j < count; ++j) {
                for (auto& v : data[j]) v = d(zamtest::rng());
                rows.push_back(data[j].data());
                w[j] = d(zamtest::rng());
            }
            for (bool cont : {false, true}) {
                std::vector<float> a(len, 0.5f), b(len, 0.5f);
                zam::firAccumulateAvx2(a.data(), rows.data(), w.data(), count, len, cont);
                zam::firAccumulateScalar(b.data(), rows.data(), w.data(), count, len, cont);
                ASSERT_EQ(a, b) << len << " " << count;
            }
        }
    }
}

}  // namespace
