#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include "test_support.h"
#include "vq/vq_codebook.h"
#include "zamac.h"

namespace {

using zamtest::rng;

// A code book in test-owned memory.
struct Book {
    Book(const std::vector<float>& vectors, int length) : height(static_cast<int>(vectors.size()) / length)
    {
        int size = 0;
        EXPECT_EQ(zamsVQCodeBookGetSize_32f(length, height, &size), zamStsOk);
        mem.resize(static_cast<size_t>(size));
        EXPECT_EQ(zamsVQCodeBookInit_32f(vectors.data(), &book, length, height, mem.data()), zamStsOk);
    }
    const float* row(int k) const { return zam::vq::record(book)->rows[k]; }
    int height;
    std::vector<uint8_t> mem;
    VqCodeBook* book = nullptr;
};

std::vector<float> randomFloats(size_t n, float lo = -1, float hi = 1)
{
    std::uniform_real_distribution<float> d(lo, hi);
    std::vector<float> v(n);
    for (float& x : v) x = d(rng());
    return v;
}

// ------------------------------------------------------------------ kernels

// The AVX2 distance kernels and their scalar twins add in the same order: equal
// bits for every length and every alignment of the source.
TEST(VqKernels, VectorMatchesScalarTwin)
{
    const auto x = randomFloats(72), w = randomFloats(64, 0, 2), c = randomFloats(64), d = randomFloats(64);
    const float reciprocal = zam::vq::refinedReciprocal(3.0f);
    for (int shift = 0; shift < 8; ++shift)
        for (int n = 0; n <= 48; ++n) {
            const float* xs = x.data() + shift;
            EXPECT_EQ(zam::vq::distanceAvx2(xs, w.data(), c.data(), n), zam::vq::distanceScalar(xs, w.data(), c.data(), n));
            const auto v = zam::vq::signedDistancesAvx2(xs, w.data(), c.data(), n);
            const auto s = zam::vq::signedDistancesScalar(xs, w.data(), c.data(), n);
            EXPECT_EQ(v.minus, s.minus);
            EXPECT_EQ(v.plus, s.plus);
            const float* rows4[4] = {c.data(), d.data(), w.data(), x.data() + 7};
            float four[4];
            zam::vq::SignedDistances fourSigned[4];
            zam::vq::distances4Avx2(xs, w.data(), rows4, n, four);
            zam::vq::signedDistances4Avx2(xs, w.data(), rows4, n, fourSigned);
            for (int r = 0; r < 4; ++r) {
                EXPECT_EQ(four[r], zam::vq::distanceScalar(xs, w.data(), rows4[r], n));
                const auto one = zam::vq::signedDistancesScalar(xs, w.data(), rows4[r], n);
                EXPECT_EQ(fourSigned[r].minus, one.minus);
                EXPECT_EQ(fourSigned[r].plus, one.plus);
            }
            EXPECT_EQ(zam::vq::pairDistanceAvx2(xs, w.data(), c.data(), -1, d.data(), 1, n, 3.0f, reciprocal),
                      zam::vq::pairDistanceScalar(xs, w.data(), c.data(), -1, d.data(), 1, n, 3.0f, reciprocal));
        }
    EXPECT_NEAR(reciprocal, 1.0f / 3, 2e-7);
}

// --------------------------------------------------------- preliminary search

struct Prelim {
    std::vector<int> indices, signs;
};

Prelim preliminary(const std::vector<float>& x, const std::vector<float>& w, const std::vector<int>& lengths,
                   const std::vector<int>& modes, int nCand, Book& book)
{
    Prelim p{std::vector<int>(lengths.size() * nCand, -7), std::vector<int>(lengths.size() * nCand, -7)};
    EXPECT_EQ(zamsVQPreliminarySelect_32f(x.data(), w.data(), static_cast<int>(lengths.size()), lengths.data(),
                                          p.indices.data(), p.signs.data(), nCand, modes.data(), book.book),
              zamStsOk);
    return p;
}

// Brute force in double precision over random code books: the same candidates
// in the same order, except where two distances lie within float rounding.
TEST(VqPreliminary, MatchesBruteForce)
{
    const int length = 24, height = 40;
    Book book(randomFloats(static_cast<size_t>(length) * height), length);
    const std::vector<int> lengths = {20, 1, 0, 7, 16, 24, 3, 9, 17, 8};
    const std::vector<int> modes = {1, 0, 1, 2, 1, 0, 1, 1, 0, 1};
    const int total = std::accumulate(lengths.begin(), lengths.end(), 0);
    const auto src = randomFloats(total + 1), w = randomFloats(total, 0.1f, 2);
    const std::vector<float> x(src.begin() + 1, src.end());  // x off 32-byte alignment
    int nearTies = 0;
    for (int nCand : {1, 3, 8}) {
        const Prelim got = preliminary(x, w, lengths, modes, nCand, book);
        int offset = 0;
        for (size_t i = 0; i < lengths.size(); ++i) {
            const int len = lengths[i];
            std::vector<double> dist(height), gap(height);
            std::vector<int> sign(height);
            for (int k = 0; k < height; ++k) {
                double minus = 0, plus = 0;
                for (int j = 0; j < len; ++j) {
                    const double c = book.row(k)[j], xv = x[offset + j], wv = w[offset + j];
                    minus += wv * (c - xv) * (c - xv);
                    plus += wv * (c + xv) * (c + xv);
                }
                const bool negate = modes[i] == 1 && minus > plus;
                dist[k] = negate ? plus : minus;
                sign[k] = negate;
                gap[k] = std::fabs(minus - plus) / (minus + plus + 1e-30);
            }
            std::vector<int> order(height);
            std::iota(order.begin(), order.end(), 0);
            std::stable_sort(order.begin(), order.end(), [&](int a, int b) { return dist[a] < dist[b]; });
            for (int p = 0; p < nCand; ++p) {
                const int want = len == 0 ? nCand - 1 - p : order[p];  // all ties: later vectors first
                const int have = got.indices[i * nCand + p];
                ASSERT_TRUE(have >= 0 && have < height);
                if (have != want) {
                    ++nearTies;
                    EXPECT_NEAR(dist[have], dist[want], 1e-5 * (dist[want] + 1e-6)) << i << " " << p;
                } else if (modes[i] == 1 && gap[have] > 1e-5) {
                    EXPECT_EQ(got.signs[i * nCand + p], sign[have]) << i << " " << p;
                }
            }
            offset += len;
        }
    }
    EXPECT_LE(nearTies, 2);
}

// Hand-worked lists: constant code vectors v against x = 0, so the distances are
// exactly L*v^2: here 25 9 1 4 16 1 4 36 (times 5).
TEST(VqPreliminary, TiesAndTheCut)
{
    const int length = 5;
    const float values[] = {5, 3, 1, 2, 4, 1, 2, 6};
    std::vector<float> vectors;
    for (float v : values) vectors.insert(vectors.end(), length, v);
    Book book(vectors, length);
    const std::vector<float> x(length, 0.0f), w(length, 1.0f);
    struct Case {
        int nCand;
        std::vector<int> want;
    };
    for (const Case& c : {Case{1, {2}}, Case{2, {5, 2}}, Case{3, {5, 2, 3}}, Case{4, {5, 2, 6, 3}}}) {
        for (int mode : {0, 1}) {  // d- == d+ here: the sign stays 0
            const Prelim got = preliminary(x, w, {length}, {mode}, c.nCand, book);
            EXPECT_EQ(got.indices, c.want) << c.nCand;
            EXPECT_EQ(got.signs, std::vector<int>(c.nCand, 0));
        }
    }
    // Two equal distances then a smaller one: the earlier of the pair is dropped.
    Book three({2, 2, 1}, 1);
    EXPECT_EQ(preliminary({0}, {1}, {1}, {0}, 2, three).indices, (std::vector<int>{2, 1}));
}

// With height <= nCand the candidates are the code vectors in order, with the
// signs the search chose; entries past the height get index j and flag 0.
TEST(VqPreliminary, SmallBookListsEveryVector)
{
    const int length = 6;
    Book book(randomFloats(4 * length), length);
    std::vector<float> x(length), w(length, 1.0f);
    for (int j = 0; j < length; ++j) x[j] = -book.row(2)[j];
    EXPECT_EQ(preliminary(x, w, {length}, {1}, 4, book).indices, (std::vector<int>{0, 1, 2, 3}));
    const Prelim got = preliminary(x, w, {length}, {1}, 6, book);
    EXPECT_EQ(got.indices, (std::vector<int>{0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(got.signs[2], 1);
    EXPECT_EQ(got.signs[4], 0);
    EXPECT_EQ(got.signs[5], 0);
}

TEST(VqPreliminary, ChecksAndEmptyCallWriteNothing)
{
    Book book(randomFloats(40), 10);
    const std::vector<float> x(10, 0.5f), w(10, 1.0f);
    const int len = 10, mode = 1;
    auto idx = zamtest::canaryVector<int>(8), sg = zamtest::canaryVector<int>(8);
    EXPECT_EQ(zamsVQPreliminarySelect_32f(x.data(), w.data(), 0, &len, idx.data(), sg.data(), 2, &mode, book.book),
              zamStsOk);
    EXPECT_EQ(zamsVQPreliminarySelect_32f(x.data(), w.data(), -2, &len, idx.data(), sg.data(), 2, &mode, book.book),
              zamStsOk);
    const void* good[7] = {x.data(), w.data(), &len, idx.data(), sg.data(), &mode, book.book};
    for (int missing = 0; missing < 7; ++missing) {
        const void* a[7];
        for (int j = 0; j < 7; ++j) a[j] = j == missing ? nullptr : good[j];
        EXPECT_EQ(zamsVQPreliminarySelect_32f(static_cast<const float*>(a[0]), static_cast<const float*>(a[1]), 0,
                                              static_cast<const int*>(a[2]), static_cast<int*>(const_cast<void*>(a[3])),
                                              static_cast<int*>(const_cast<void*>(a[4])), 2,
                                              static_cast<const int*>(a[5]),
                                              static_cast<VqCodeBook*>(const_cast<void*>(a[6]))),
                  zamStsNullPtr)
            << missing;
    }
    EXPECT_TRUE(zamtest::untouched(idx));
    EXPECT_TRUE(zamtest::untouched(sg));
}

// -------------------------------------------------------------- main search

struct MainOut {
    int indexA, indexB, signA, signB;
};

std::vector<MainOut> mainSelect(const std::vector<float>& x, const std::vector<float>& w,
                                const std::vector<int>& lengths, int nCand, const std::vector<int>& idxA,
                                const std::vector<int>& idxB, const std::vector<int>& sgA, const std::vector<int>& sgB,
                                const Book& a, const Book& b, int divisor)
{
    const size_t n = lengths.size();
    std::vector<int> oia(n, -7), oib(n, -7), osa(n, -7), osb(n, -7);
    EXPECT_EQ(zamsVQMainSelect_32f(x.data(), w.data(), lengths.data(), static_cast<int>(n), nCand, {idxA.data(), idxB.data()},
                                   {sgA.data(), sgB.data()}, {oia.data(), oib.data()}, {osa.data(), osb.data()},
                                   {a.book, b.book}, divisor),
              zamStsOk);
    std::vector<MainOut> out(n);
    for (size_t i = 0; i < n; ++i) out[i] = {oia[i], oib[i], osa[i], osb[i]};
    return out;
}

TEST(VqMain, MatchesBruteForce)
{
    const int length = 21, height = 16, nCand = 5;
    Book a(randomFloats(static_cast<size_t>(length) * height), length);
    Book b(randomFloats(static_cast<size_t>(length) * height), length);
    const std::vector<int> lengths = {21, 13, 4, 1, 8, 19, 0};
    const int total = std::accumulate(lengths.begin(), lengths.end(), 0);
    const auto src = randomFloats(total + 3), w = randomFloats(total, 0.1f, 2);
    const std::vector<float> x(src.begin() + 3, src.end());
    std::uniform_int_distribution<int> pick(0, height - 1), flag(0, 1);
    std::vector<int> idxA(lengths.size() * nCand), idxB(idxA.size()), sgA(idxA.size()), sgB(idxA.size());
    for (size_t j = 0; j < idxA.size(); ++j) {
        idxA[j] = pick(rng());
        idxB[j] = pick(rng());
        sgA[j] = flag(rng());
        sgB[j] = flag(rng());
    }
    int nearTies = 0;
    for (int divisor : {1, 2, 3}) {
        const auto got = mainSelect(x, w, lengths, nCand, idxA, idxB, sgA, sgB, a, b, divisor);
        int offset = 0;
        for (size_t i = 0; i < lengths.size(); ++i) {
            auto dist = [&](int j, int k) {
                const size_t ca = i * nCand + j, cb = i * nCand + k;
                const double sa = 1 - 2 * sgA[ca], sb = 1 - 2 * sgB[cb];
                double d = 0;
                for (int m = 0; m < lengths[i]; ++m) {
                    const double y = (sb * b.row(idxB[cb])[m] + sa * a.row(idxA[ca])[m]) / divisor;
                    d += w[offset + m] * (x[offset + m] - y) * (x[offset + m] - y);
                }
                return d;
            };
            int bj = 0, bk = 0;
            for (int j = 0; j < nCand; ++j)
                for (int k = 0; k < nCand; ++k)
                    if (dist(j, k) < dist(bj, bk)) bj = j, bk = k;
            const size_t ca = i * nCand + bj, cb = i * nCand + bk;
            const MainOut want{idxA[ca], idxB[cb], sgA[ca], sgB[cb]};
            const MainOut& have = got[i];
            if (have.indexA != want.indexA || have.indexB != want.indexB || have.signA != want.signA ||
                have.signB != want.signB) {
                ++nearTies;
                // Find the pair the library reported and compare its exact distance.
                double best = 1e300;
                for (int j = 0; j < nCand; ++j)
                    for (int k = 0; k < nCand; ++k)
                        if (idxA[i * nCand + j] == have.indexA && idxB[i * nCand + k] == have.indexB &&
                            sgA[i * nCand + j] == have.signA && sgB[i * nCand + k] == have.signB)
                            best = std::min(best, dist(j, k));
                EXPECT_NEAR(best, dist(bj, bk), 1e-5 * dist(bj, bk) + 1e-9) << "divisor " << divisor << " i " << i;
            }
            offset += lengths[i];
        }
    }
    EXPECT_LE(nearTies, 2);
}

// Two identical code vectors (rows 1 and 3 of A) give equal distances: the first
// pair in the order j, then k, wins.
TEST(VqMain, FirstPairOfEqualDistanceWins)
{
    const int length = 9;
    auto va = randomFloats(4 * length);
    std::copy(va.begin() + length, va.begin() + 2 * length, va.begin() + 3 * length);
    Book a(va, length), b(randomFloats(4 * length), length);
    std::vector<float> x(length), w(length, 1.0f);
    for (int m = 0; m < length; ++m) x[m] = (a.row(1)[m] - b.row(2)[m]) / 2;
    for (auto order : {std::vector<int>{3, 1}, std::vector<int>{1, 3}}) {
        const auto got = mainSelect(x, w, {length}, 2, order, {0, 2}, {0, 0}, {0, 1}, a, b, 2);
        EXPECT_EQ(got[0].indexA, order[0]);
        EXPECT_EQ(got[0].indexB, 2);
        EXPECT_EQ(got[0].signB, 1);
    }
}

TEST(VqMain, ChecksAndEmptyCallWriteNothing)
{
    Book book(randomFloats(20), 10);
    const std::vector<float> x(10), w(10);
    const int len = 10, cand[2] = {0, 1};
    auto out = zamtest::canaryVector<int>(4);
    int* o = out.data();
    EXPECT_EQ(zamsVQMainSelect_32f(x.data(), w.data(), &len, 0, 1, {cand, cand}, {cand, cand}, {o, o + 1},
                                   {o + 2, o + 3}, {book.book, book.book}, 1),
              zamStsOk);
    for (int missing = 0; missing < 13; ++missing) {
        auto p = [&](int slot, auto ptr) { return slot == missing ? nullptr : ptr; };
        EXPECT_EQ(zamsVQMainSelect_32f(p(0, x.data()), p(1, w.data()), p(2, &len), 0, 1, {p(3, cand), p(4, cand)},
                                       {p(5, cand), p(6, cand)}, {p(7, o), p(8, o + 1)}, {p(9, o + 2), p(10, o + 3)},
                                       {p(11, book.book), p(12, book.book)}, 1),
                  zamStsNullPtr)
            << missing;
    }
    EXPECT_TRUE(zamtest::untouched(out));
}

// ----------------------------------------------------------- reconstruction

TEST(VqReconstruction, ThreeStagesAgainstDouble)
{
    const int length = 12;
    Book b0(randomFloats(8 * length), length), b1(randomFloats(8 * length), length), b2(randomFloats(8 * length), length);
    const int idx0[3] = {1, 7, 0}, idx1[3] = {2, 2, 5}, idx2[3] = {6, 3, 4};
    const int sg0[3] = {1, -1, 1}, sg1[3] = {-1, -1, 1}, sg2[3] = {1, 1, -1};
    const int* ppIdx[3] = {idx0, idx1, idx2};
    const int* ppSign[3] = {sg0, sg1, sg2};
    const int lengths[3] = {12, 5, 9};
    const VqCodeBook* books[3] = {b0.book, b1.book, b2.book};
    const Book* owners[3] = {&b0, &b1, &b2};
    for (int stages : {1, 2, 3}) {
        std::vector<float> out(26 + 4, 9.0f);
        ASSERT_EQ(zamsVQReconstruction_32f(ppIdx, ppSign, lengths, 3, stages, out.data(), books), zamStsOk);
        int o = 0;
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < lengths[i]; ++j, ++o) {
                double want = 0;
                for (int s = 0; s < stages; ++s) want += ppSign[s][i] * double(owners[s]->row(ppIdx[s][i])[j]);
                want /= stages;
                if (stages == 1)
                    EXPECT_EQ(out[o], static_cast<float>(want));
                else
                    EXPECT_NEAR(out[o], want, 1e-6);
            }
        for (int j = 26; j < 30; ++j) EXPECT_EQ(out[j], 9.0f);
    }
}

TEST(VqReconstruction, ChecksAndEmptyCallWriteNothing)
{
    Book book(randomFloats(10), 10);
    const int idx = 0, sign = 1, len = 10;
    const int* ppIdx[1] = {&idx};
    const int* ppSign[1] = {&sign};
    const VqCodeBook* books[1] = {book.book};
    auto out = zamtest::canaryVector<float>(10);
    EXPECT_EQ(zamsVQReconstruction_32f(ppIdx, ppSign, &len, 0, 1, out.data(), books), zamStsOk);
    EXPECT_EQ(zamsVQReconstruction_32f(nullptr, ppSign, &len, 1, 1, out.data(), books), zamStsNullPtr);
    EXPECT_EQ(zamsVQReconstruction_32f(ppIdx, nullptr, &len, 1, 1, out.data(), books), zamStsNullPtr);
    EXPECT_EQ(zamsVQReconstruction_32f(ppIdx, ppSign, nullptr, 1, 1, out.data(), books), zamStsNullPtr);
    EXPECT_EQ(zamsVQReconstruction_32f(ppIdx, ppSign, &len, 1, 1, nullptr, books), zamStsNullPtr);
    EXPECT_EQ(zamsVQReconstruction_32f(ppIdx, ppSign, &len, 1, 1, out.data(), nullptr), zamStsNullPtr);
    EXPECT_TRUE(zamtest::untouched(out));
}

}  // namespace
