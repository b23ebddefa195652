#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "core/bitcursor.h"
#include "test_support.h"

using namespace zam;

namespace {

// A byte buffer aligned to 4, so that word positions in the tests are known.
struct alignas(16) Bytes {
    std::array<uint8_t, 32> b{};
};

}  // namespace

// ------------------------------------------------------------------ reading

struct ReadCase {
    int offset, n;
    uint32_t expected;
    int bytesOn, offsetAfter;
};

class ReadFieldCases : public ::testing::TestWithParam<ReadCase> {};

TEST_P(ReadFieldCases, AgainstHandWorkedValues)
{
    // 0xC3 0x5A 0xF0 0x0F 0x81 0x00 0x00 0x00 = 1100 0011 0101 1010 1111 0000 0000 1111 1000 0001
    const uint8_t data[] = {0xC3, 0x5A, 0xF0, 0x0F, 0x81, 0, 0, 0};
    const ReadCase c = GetParam();
    const uint8_t* p = data;
    int off = c.offset;
    EXPECT_EQ(readField(p, off, c.n), c.expected);
    EXPECT_EQ(p - data, c.bytesOn);
    EXPECT_EQ(off, c.offsetAfter);
}

INSTANTIATE_TEST_SUITE_P(
    Patterns, ReadFieldCases,
    ::testing::Values(ReadCase{0, 1, 1, 0, 1}, ReadCase{0, 8, 0xC3, 1, 0}, ReadCase{2, 4, 0b0000, 0, 6},
                      ReadCase{4, 8, 0x35, 1, 4}, ReadCase{7, 25, 0b1010110101111000000001111, 4, 0},
                      ReadCase{0, 25, 0b1100001101011010111100000, 3, 1}, ReadCase{3, 12, 0b000110101101, 1, 7},
                      ReadCase{5, 3, 0b011, 1, 0}));

TEST(ReadField, SignedFieldsAreSignExtended)
{
    const uint8_t data[] = {0b11100111, 0b01000000, 0, 0, 0};
    const uint8_t* p = data;
    int off = 0;
    EXPECT_EQ(readSignedField(p, off, 3), -1);   // 111
    EXPECT_EQ(readSignedField(p, off, 4), 3);    // 0011
    EXPECT_EQ(readSignedField(p, off, 4), -6);   // 1010
}

TEST(AlignToByte, OnlyMovesInsideAByte)
{
    const uint8_t data[2] = {};
    const uint8_t* p = data;
    int off = 0;
    alignToByte(p, off);
    EXPECT_EQ(p, data);
    EXPECT_EQ(off, 0);
    off = 5;
    alignToByte(p, off);
    EXPECT_EQ(p, data + 1);
    EXPECT_EQ(off, 0);
}

// ------------------------------------------------------------------ writing

// One field written into a buffer of exactly the given bytes (on the heap, so that
// the sanitizer build catches any touch beyond): the bytes after, and the cursor.
struct WriteCase {
    const char* what;
    std::vector<uint8_t> before;
    int startByte, startOffset;
    uint32_t value;
    int n;
    std::vector<uint8_t> after;
    int endByte, endOffset;
};

const WriteCase kWriteCases[] = {
    {"twelve bits at offset 0: zeros below the last four", {0xFF, 0xFF, 0xFF}, 0, 0, 0xABC, 12, {0xAB, 0xC0, 0xFF}, 1, 4},
    {"zero bits change nothing", {0x5A, 0x5A}, 0, 3, 0xFFFFFFFF, 0, {0x5A, 0x5A}, 0, 3},
    {"inside a byte at offset 0: the bits after are cleared", {0xFF}, 0, 0, 0b101, 3, {0b10100000}, 0, 3},
    {"inside a byte elsewhere: or-ed in", {0b10100000}, 0, 3, 0b11, 2, {0b10111000}, 0, 5},
    {"started mid-byte: the leading bits stay", {0b11000000, 0xEE, 0xEE}, 0, 2, 0x3FF, 10, {0xFF, 0xF0, 0xEE}, 1, 4},
    {"ending on a byte boundary leaves the next byte", {0, 0x77, 0x77}, 0, 4, 0x9, 4, {0x09, 0x77, 0x77}, 1, 0},
    {"sixteen bits from a byte start", {0x09, 0x77, 0x77}, 1, 0, 0x1234, 16, {0x09, 0x12, 0x34}, 3, 0},
    {"a field may end at the end of the buffer", {0xEE, 0xEE}, 0, 0, 0xBEEF, 16, {0xBE, 0xEF}, 2, 0},
    {"thirty-two bits write zeros", {0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, 0, 0, 0xFFFFFFFF, 32, {0, 0, 0, 0, 0xFF}, 4, 0},
};

TEST(WriteField, HandWorkedBytesAndCursor)
{
    for (const WriteCase& c : kWriteCases) {
        std::vector<uint8_t> data = c.before;
        uint8_t* p = data.data() + c.startByte;
        int off = c.startOffset;
        writeField(p, off, c.value, c.n);
        EXPECT_EQ(data, c.after) << c.what;
        EXPECT_EQ(p - data.data(), c.endByte) << c.what;
        EXPECT_EQ(off, c.endOffset) << c.what;
    }
}

TEST(WriteField, RandomFieldsReadBackThroughTheReader)
{
    std::uniform_int_distribution<int> width(1, 25);
    std::vector<std::pair<uint32_t, int>> fields;
    std::vector<uint8_t> buf(4096, 0xCC);  // never cleared: the writer must not rely on it
    uint8_t* wp = buf.data();
    int woff = 0;
    for (int i = 0; i < 1000; ++i) {
        int n = width(zamtest::rng());
        uint32_t v = zamtest::rng()() & ((1u << n) - 1);
        fields.push_back({v, n});
        writeField(wp, woff, v | (0xFFFFFFFFu << n & 0xA5A5A5A5u), n);  // bits above n are masked off
    }
    const uint8_t* rp = buf.data();
    int roff = 0;
    for (auto [v, n] : fields) ASSERT_EQ(readField(rp, roff, n), v);
    EXPECT_EQ(rp, wp);
    EXPECT_EQ(roff, woff);
}

// ------------------------------------------------------ VLC word access

TEST(VlcPeek, WithinAndAcrossTheAlignedWord)
{
    Bytes d;
    const uint8_t pattern[] = {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0};
    std::copy(pattern, pattern + 8, d.b.begin());
    EXPECT_EQ(vlcPeek(d.b.data(), 0, 8), 0x12u);
    EXPECT_EQ(vlcPeek(d.b.data() + 1, 4, 8), 0x45u);         // bit 12 of the word
    EXPECT_EQ(vlcPeek(d.b.data() + 3, 4, 12), 0x89Au);       // crosses into the next word
    EXPECT_EQ(vlcPeek(d.b.data() + 2, 0, 32), 0x56789ABCu);  // a full-width peek across
    EXPECT_EQ(vlcPeek(d.b.data(), 0, 32), 0x12345678u);
}

// A code written into two aligned words: the rest of the cursor's word is filled
// with ones; a spill takes the next word's old bytes as a little-endian value.
struct CodeCase {
    const char* what;
    std::array<uint8_t, 8> before;
    int startByte, startOffset;
    uint32_t code;
    int n;
    std::array<uint8_t, 8> after;
    int endByte, endOffset;
};

const CodeCase kCodeCases[] = {
    {"three bits at the word start", {}, 0, 0, 0b010, 3, {0x5F, 0xFF, 0xFF, 0xFF}, 0, 3},
    {"the bits before the cursor stay", {0xAB, 0xCD}, 2, 0, 0x5, 4, {0xAB, 0xCD, 0x5F, 0xFF}, 2, 4},
    {"ending on the word end moves to the next word", {0, 0, 0, 0, 0x11, 0x22, 0x33, 0x44}, 3, 0, 0xA5, 8,
     {0, 0, 0, 0xA5, 0x11, 0x22, 0x33, 0x44}, 4, 0},
    // 1011 ends word 0; word 1 is 01 on top of the low 30 bits of 0x44332211.
    {"a spill into the next word", {0xFF, 0xFF, 0xFF, 0x00, 0x11, 0x22, 0x33, 0x44}, 3, 4, 0b101101, 6,
     {0xFF, 0xFF, 0xFF, 0x0B, 0x44, 0x33, 0x22, 0x11}, 4, 2},
};

TEST(VlcWriteCode, HandWorkedWordsAndCursor)
{
    for (const CodeCase& c : kCodeCases) {
        Bytes d;
        std::copy(c.before.begin(), c.before.end(), d.b.begin());
        uint8_t* p = d.b.data() + c.startByte;
        int off = c.startOffset;
        vlcWriteCode(p, off, c.code, c.n);
        EXPECT_TRUE(std::equal(c.after.begin(), c.after.end(), d.b.begin())) << c.what;
        EXPECT_EQ(p - d.b.data(), c.endByte) << c.what;
        EXPECT_EQ(off, c.endOffset) << c.what;
    }
}

TEST(VlcWriteCode, CodesReadBackThroughPeek)
{
    Bytes storage[64];
    uint8_t* base = storage[0].b.data();
    std::uniform_int_distribution<int> width(1, 19);
    std::vector<std::pair<uint32_t, int>> codes;
    uint8_t* p = base;
    int off = 0;
    for (int i = 0; i < 300; ++i) {
        int n = width(zamtest::rng());
        uint32_t v = zamtest::rng()() & ((1u << n) - 1);
        codes.push_back({v, n});
        vlcWriteCode(p, off, v, n);
    }
    const uint8_t* r = base;
    int roff = 0;
    for (auto [v, n] : codes) {
        ASSERT_EQ(vlcPeek(r, roff, n), v);
        advanceBits(r, roff, n);
    }
}
