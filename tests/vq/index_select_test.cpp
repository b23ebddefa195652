#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "test_support.h"
#include "zamac.h"

namespace {

struct Book {
    Book(const std::vector<float>& v, int length, int height)
    {
        int size = 0;
        EXPECT_EQ(zamsVQCodeBookGetSize_32f(length, height, &size), zamStsOk);
        mem.resize(size);
        EXPECT_EQ(zamsVQCodeBookInit_32f(v.data(), &book, length, height, mem.data()), zamStsOk);
    }
    std::vector<uint8_t> mem;
    VqCodeBook* book = nullptr;
};

// Preliminary (both books) -> main -> index selection -> reconstruction gives the
// pair of code vectors that a brute-force search over the two books
// finds best, every code vector being a candidate (nCand = height). The sign flags
// and codes of signed candidates are checked below.
TEST(VqIndexSelect, FullChainFindsTheBestPair)
{
    constexpr int kLength = 12, kHeight = 16;
    const std::vector<int> lengths = {5, 12, 7, 8, 12};
    const int nDiv = static_cast<int>(lengths.size());
    std::uniform_real_distribution<float> u(-1, 1);
    auto rnd = [&] { return u(zamtest::rng()); };
    std::vector<float> va(kLength * kHeight), vb(kLength * kHeight);
    for (float& x : va) x = rnd();
    for (float& x : vb) x = rnd();
    Book a(va, kLength, kHeight), b(vb, kLength, kHeight);

    for (int frame = 0; frame < 20; ++frame) {
        std::vector<float> x, w;
        for (int len : lengths)
            for (int m = 0; m < len; ++m) {
                x.push_back(rnd());
                w.push_back(1.5f + rnd());
            }
        const std::vector<int> modes(nDiv, 0);
        std::vector<int> candA(nDiv * kHeight), candB(candA.size()), flagA(candA.size()), flagB(candA.size());
        ASSERT_EQ(zamsVQPreliminarySelect_32f(x.data(), w.data(), nDiv, lengths.data(), candA.data(), flagA.data(),
                                              kHeight, modes.data(), a.book), zamStsOk);
        ASSERT_EQ(zamsVQPreliminarySelect_32f(x.data(), w.data(), nDiv, lengths.data(), candB.data(), flagB.data(),
                                              kHeight, modes.data(), b.book), zamStsOk);
        std::vector<int> pickA(nDiv), pickB(nDiv), pickFlagA(nDiv), pickFlagB(nDiv);
        ASSERT_EQ(zamsVQMainSelect_32f(x.data(), w.data(), lengths.data(), nDiv, kHeight,
                                       {candA.data(), candB.data()}, {flagA.data(), flagB.data()},
                                       {pickA.data(), pickB.data()}, {pickFlagA.data(), pickFlagB.data()},
                                       {a.book, b.book}, 2), zamStsOk);
        std::vector<int> idx(2 * nDiv), sgn(2 * nDiv), code(2 * nDiv);
        int* ppIdx[2] = {idx.data(), idx.data() + nDiv};
        int* ppSgn[2] = {sgn.data(), sgn.data() + nDiv};
        int* ppCode[2] = {code.data(), code.data() + nDiv};
        ASSERT_EQ(zamsVQIndexSelect_32f({candA.data(), candB.data()}, {flagA.data(), flagB.data()},
                                        {pickA.data(), pickB.data()}, ppIdx, ppSgn, ppCode, nDiv, kHeight,
                                        {a.book, b.book}), zamStsOk);
        std::vector<float> y(x.size());
        const VqCodeBook* books[2] = {a.book, b.book};
        ASSERT_EQ(zamsVQReconstruction_32f(const_cast<const int**>(ppIdx), const_cast<const int**>(ppSgn),
                                           lengths.data(), nDiv, 2, y.data(), books), zamStsOk);

        int offset = 0;
        for (int i = 0; i < nDiv; ++i) {
            const int len = lengths[i];
            double best = 1e300;
            int bj = 0, bk = 0;
            for (int j = 0; j < kHeight; ++j)
                for (int k = 0; k < kHeight; ++k) {
                    double d = 0;
                    for (int m = 0; m < len; ++m) {
                        const double r = (double{va[j * kLength + m]} + vb[k * kLength + m]) / 2;
                        d += w[offset + m] * (x[offset + m] - r) * (x[offset + m] - r);
                    }
                    if (d < best) best = d, bj = j, bk = k;
                }
            EXPECT_EQ(ppIdx[0][i], bj);
            EXPECT_EQ(ppIdx[1][i], bk);
            EXPECT_EQ(ppSgn[0][i], 1);
            EXPECT_EQ(ppSgn[1][i], 1);
            EXPECT_EQ(ppCode[0][i], bj);
            EXPECT_EQ(ppCode[1][i], bk);
            for (int m = 0; m < len; ++m)
                EXPECT_NEAR(y[offset + m], (va[bj * kLength + m] + vb[bk * kLength + m]) / 2, 1e-6);
            offset += len;
        }
    }
}

TEST(VqIndexSelectChecks, AChoiceOutsideTheCandidatesWritesNothing)
{
    std::vector<float> v(4 * 8, 0.5f);
    Book a(v, 4, 8), b(v, 4, 8);
    const int cand[4] = {3, 1, 6, 2}, flags[4] = {0, 1, 0, 1};
    int pickA[2] = {1, 6}, pickB[2] = {3, 5};  // 5 is not a candidate of sub-vector 1
    auto out = zamtest::canaryVector<int>(8);
    int* rows[2] = {out.data(), out.data() + 2};
    int* rows2[2] = {out.data() + 4, out.data() + 6};
    auto call = [&](int nCand) {
        return zamsVQIndexSelect_32f({cand, cand}, {flags, flags}, {pickA, pickB}, rows, rows2, nullptr, 2, nCand,
                                     {a.book, b.book});
    };
    EXPECT_EQ(call(2), zamStsBadData);
    pickB[1] = 2;
    pickA[0] = 9;  // outside the book
    EXPECT_EQ(call(2), zamStsBadData);
    EXPECT_EQ(call(0), zamStsSize);
    EXPECT_TRUE(zamtest::untouched(out));
    pickA[0] = 3;
    EXPECT_EQ(call(2), zamStsOk);
    EXPECT_EQ(std::vector<int>(out.begin(), out.end()), (std::vector<int>{3, 6, 3, 2, 1, 1, 1, -1}));
    rows[1] = nullptr;
    EXPECT_EQ(call(2), zamStsNullPtr);
}

}  // namespace
