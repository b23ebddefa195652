#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "test_support.h"
#include "vq/vq_codebook.h"
#include "zamac.h"

namespace {

using zam::vq::CodeBookRecord;

TEST(VqCodeBookSize, Formula)
{
    struct Case {
        int length, height, size;
    };
    for (auto [length, height, size] :
         {Case{20, 64, 44896}, Case{1, 1, 2256}, Case{16, 32, 21344}, Case{7, 3, 3280}, Case{64, 128, 178016}}) {
        int got = -1;
        EXPECT_EQ(zamsVQCodeBookGetSize_32f(length, height, &got), zamStsOk);
        EXPECT_EQ(got, size) << length << "x" << height;
    }
}

TEST(VqCodeBookSize, Checks)
{
    int size = 1234;
    EXPECT_EQ(zamsVQCodeBookGetSize_32f(0, 0, nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsVQCodeBookGetSize_32f(0, 5, &size), zamStsSize);
    EXPECT_EQ(zamsVQCodeBookGetSize_32f(5, 0, &size), zamStsSize);
    EXPECT_EQ(zamsVQCodeBookGetSize_32f(-1, 5, &size), zamStsSize);
    EXPECT_EQ(zamsVQCodeBookGetSize_32f(100000, 100000, &size), zamStsSize);  // beyond int
    EXPECT_EQ(size, 1234);
}

// The record stays at the start of the memory; the row table, rows and scratch
// arrays follow on 64-byte boundaries, and everything fits in GetSize bytes, at
// every misalignment of the memory.
TEST(VqCodeBookLayout, EveryOffset)
{
    struct Case {
        int length, height;
    };
    for (auto [length, height] : {Case{20, 64}, Case{1, 1}, Case{17, 5}, Case{16, 16}, Case{33, 3}}) {
        int size = 0;
        ASSERT_EQ(zamsVQCodeBookGetSize_32f(length, height, &size), zamStsOk);
        std::vector<float> input(static_cast<size_t>(length) * height);
        for (size_t j = 0; j < input.size(); ++j) input[j] = 0.25f * static_cast<float>(j) - 3;
        for (int offset = 0; offset < 64; ++offset) {
            zamtest::OffsetBuffer<uint8_t> buffer(static_cast<size_t>(size) + 64, offset);
            uint8_t* mem = buffer.data();
            VqCodeBook* book = nullptr;
            ASSERT_EQ(zamsVQCodeBookInit_32f(input.data(), &book, length, height, mem), zamStsOk);
            ASSERT_EQ(reinterpret_cast<uint8_t*>(book), mem);
            const CodeBookRecord& r = *zam::vq::record(book);
            EXPECT_EQ(r.height, height);
            EXPECT_EQ(r.length, length);
            EXPECT_EQ(r.valid, 1);
            EXPECT_EQ(r.ownsMemory, 0);

            auto at = [&](const void* p) { return reinterpret_cast<const uint8_t*>(p) - mem; };
            auto aligned64 = [](const void* p) { return reinterpret_cast<uintptr_t>(p) % 64 == 0; };
            const ptrdiff_t table = at(r.rows);
            EXPECT_TRUE(aligned64(r.rows));
            EXPECT_GE(table, 88);
            EXPECT_LT(table, 88 + 64);
            const ptrdiff_t rowStride = (length * 4 + 63) / 64 * 64;
            const ptrdiff_t firstRow = table + (height * 8 + 63) / 64 * 64;
            for (int k = 0; k < height; ++k) {
                ASSERT_EQ(at(r.rows[k]), firstRow + k * rowStride);
                for (int j = 0; j < length; ++j) ASSERT_EQ(r.rows[k][j], input[static_cast<size_t>(k) * length + j]);
                for (int j = length; j < rowStride / 4; ++j) ASSERT_EQ(r.rows[k][j], 0.0f);
            }
            const ptrdiff_t scratch = firstRow + height * rowStride;
            const ptrdiff_t scratchStride = (height * 4 + 63) / 64 * 64;
            EXPECT_EQ(at(r.distances), scratch);
            EXPECT_EQ(at(r.signs), scratch + scratchStride);
            EXPECT_EQ(at(r.sortedDistances), scratch + 2 * scratchStride);
            EXPECT_EQ(at(r.sortedIndices), scratch + 3 * scratchStride);
            EXPECT_LE(scratch + 4 * scratchStride, size);
            for (int b = size; b < size + 64; ++b) ASSERT_EQ(mem[b], zamtest::kCanary);
        }
    }
}

TEST(VqCodeBookInit, ChecksInOrderAndWriteNothing)
{
    const float input[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    auto mem = zamtest::canaryVector<uint8_t>(4096);
    VqCodeBook* book = reinterpret_cast<VqCodeBook*>(uintptr_t{0x1234});
    EXPECT_EQ(zamsVQCodeBookInit_32f(nullptr, &book, 0, 4, mem.data()), zamStsNullPtr);
    EXPECT_EQ(zamsVQCodeBookInit_32f(input, nullptr, 2, 4, mem.data()), zamStsNullPtr);
    EXPECT_EQ(zamsVQCodeBookInit_32f(input, &book, 2, 4, nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsVQCodeBookInit_32f(input, &book, 0, 4, mem.data()), zamStsSize);
    EXPECT_EQ(zamsVQCodeBookInit_32f(input, &book, 2, -1, mem.data()), zamStsSize);
    EXPECT_TRUE(zamtest::untouched(mem));
    EXPECT_EQ(book, reinterpret_cast<VqCodeBook*>(uintptr_t{0x1234}));

    EXPECT_EQ(zamsVQCodeBookInitAlloc_32f(nullptr, &book, 0, 4), zamStsNullPtr);
    EXPECT_EQ(zamsVQCodeBookInitAlloc_32f(input, nullptr, 2, 4), zamStsNullPtr);
    EXPECT_EQ(zamsVQCodeBookInitAlloc_32f(input, &book, 2, 0), zamStsSize);
    EXPECT_EQ(book, reinterpret_cast<VqCodeBook*>(uintptr_t{0x1234}));
    EXPECT_EQ(zamsVQCodeBookFree_32f(nullptr), zamStsNullPtr);
}

// Free of a caller-memory book only clears the marker; an allocated book is
// owned and released (the sanitizer build checks the release).
TEST(VqCodeBookInit, FreeByOwnership)
{
    const float input[6] = {1, 2, 3, 4, 5, 6};
    std::vector<uint8_t> mem(4096);
    VqCodeBook* book = nullptr;
    ASSERT_EQ(zamsVQCodeBookInit_32f(input, &book, 3, 2, mem.data()), zamStsOk);
    EXPECT_EQ(zamsVQCodeBookFree_32f(book), zamStsOk);
    EXPECT_EQ(zam::vq::record(book)->valid, 0);
    EXPECT_EQ(zamsVQCodeBookFree_32f(book), zamStsOk);  // no tag: a second Free is harmless

    VqCodeBook* owned = nullptr;
    ASSERT_EQ(zamsVQCodeBookInitAlloc_32f(input, &owned, 3, 2), zamStsOk);
    ASSERT_NE(owned, nullptr);
    EXPECT_EQ(zam::vq::record(owned)->ownsMemory, 1);
    EXPECT_EQ(zam::vq::record(owned)->rows[1][2], 6.0f);
    EXPECT_EQ(zamsVQCodeBookFree_32f(owned), zamStsOk);
}

// The three pair records: two pointers, A then B.
TEST(VqRecords, Layout)
{
    const size_t got[] = {sizeof(CandidateLists), offsetof(CandidateLists, pA), offsetof(CandidateLists, pB),
                          sizeof(IndexPair),      offsetof(IndexPair, pA),      offsetof(IndexPair, pB),
                          sizeof(CodeBookPair),   offsetof(CodeBookPair, pA),   offsetof(CodeBookPair, pB)};
    const size_t want[] = {16, 0, 8};
    for (size_t i = 0; i < 9; ++i) EXPECT_EQ(got[i], want[i % 3]) << i;
}

}  // namespace
