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

TEST(ReadField, ThreeBitsAtOffsetSixCrossTheByte)
{
    const uint8_t data[] = {0b10110110, 0b10000000, 0, 0, 0};
    const uint8_t* p = data;
    int off = 6;
    EXPECT_EQ(readField(p, off, 3), 0b101u);  // "10" from byte 0, "1" from byte 1
    EXPECT_EQ(p, data + 1);
    EXPECT_EQ(off, 1);
}

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

TEST(WriteField, TwelveBitsAtOffsetZeroOverwriteTwoBytes)
{
    uint8_t data[3] = {0xFF, 0xFF, 0xFF};
    uint8_t* p = data;
    int off = 0;
    writeField(p, off, 0xABC, 12);
    EXPECT_EQ(data[0], 0xAB);
    EXPECT_EQ(data[1], 0xC0);  // last four bits on top, zeros below
    EXPECT_EQ(data[2], 0xFF);
    EXPECT_EQ(p, data + 1);
    EXPECT_EQ(off, 4);
}

TEST(WriteField, ZeroBitsChangeNothing)
{
    uint8_t data[2] = {0x5A, 0x5A};
    uint8_t* p = data;
    int off = 3;
    writeField(p, off, 0xFFFFFFFF, 0);
    EXPECT_EQ(data[0], 0x5A);
    EXPECT_EQ(p, data);
    EXPECT_EQ(off, 3);
}

TEST(WriteField, InsideOneByteOverwritesAtOffsetZeroAndOrsElsewhere)
{
    uint8_t data[1] = {0xFF};
    uint8_t* p = data;
    int off = 0;
    writeField(p, off, 0b101, 3);
    EXPECT_EQ(data[0], 0b10100000);  // bits after the field are cleared
    writeField(p, off, 0b11, 2);
    EXPECT_EQ(data[0], 0b10111000);
    EXPECT_EQ(off, 5);
}

TEST(WriteField, FirstByteKeepsItsLeadingBitsWhenStartedMidByte)
{
    uint8_t data[3] = {0b11000000, 0xEE, 0xEE};
    uint8_t* p = data;
    int off = 2;
    writeField(p, off, 0x3FF, 10);  // six ones finish byte 0, four ones start byte 1
    EXPECT_EQ(data[0], 0xFF);
    EXPECT_EQ(data[1], 0xF0);
    EXPECT_EQ(data[2], 0xEE);
    EXPECT_EQ(p, data + 1);
    EXPECT_EQ(off, 4);
}

TEST(WriteField, EndingOnAByteBoundaryLeavesTheNextByteAlone)
{
    uint8_t data[3] = {0, 0x77, 0x77};
    uint8_t* p = data;
    int off = 4;
    writeField(p, off, 0x9, 4);
    EXPECT_EQ(data[0], 0x09);
    EXPECT_EQ(data[1], 0x77);
    EXPECT_EQ(p, data + 1);
    EXPECT_EQ(off, 0);
    writeField(p, off, 0x1234, 16);
    EXPECT_EQ(data[1], 0x12);
    EXPECT_EQ(data[2], 0x34);
}

TEST(WriteField, AFieldMayEndAtTheEndOfTheBuffer)
{
    // Exactly two bytes on the heap: the sanitizer build catches any touch beyond.
    std::vector<uint8_t> out(2, 0xEE);
    uint8_t* p = out.data();
    int off = 0;
    writeField(p, off, 0xBEEF, 16);
    EXPECT_EQ(out[0], 0xBE);
    EXPECT_EQ(out[1], 0xEF);
    EXPECT_EQ(p, out.data() + 2);
    EXPECT_EQ(off, 0);
}

TEST(WriteField, ThirtyTwoBitsWriteZeros)
{
    uint8_t data[5] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    uint8_t* p = data;
    int off = 0;
    writeField(p, off, 0xFFFFFFFF, 32);
    EXPECT_EQ(p, data + 4);
    EXPECT_EQ(off, 0);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(data[i], 0);
    EXPECT_EQ(data[4], 0xFF);
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

TEST(VlcWriteCode, ThreeBitCodeAtWordStartFillsOnes)
{
    Bytes d;
    uint8_t* p = d.b.data();
    int off = 0;
    vlcWriteCode(p, off, 0b010, 3);
    EXPECT_EQ(loadBE32(d.b.data()), 0x5FFFFFFFu);  // 010 then 29 ones
    EXPECT_EQ(p, d.b.data());
    EXPECT_EQ(off, 3);
}

TEST(VlcWriteCode, KeepsTheBitsBeforeTheCursor)
{
    Bytes d;
    storeBE32(d.b.data(), 0xABCD0000u);
    uint8_t* p = d.b.data() + 2;
    int off = 0;
    vlcWriteCode(p, off, 0x5, 4);
    EXPECT_EQ(loadBE32(d.b.data()), 0xABCD5FFFu);
    EXPECT_EQ(p, d.b.data() + 2);
    EXPECT_EQ(off, 4);
}

TEST(VlcWriteCode, EndingOnTheWordEndMovesToTheNextWord)
{
    Bytes d;
    storeBE32(d.b.data() + 4, 0x11223344u);
    uint8_t* p = d.b.data() + 3;
    int off = 0;
    vlcWriteCode(p, off, 0xA5, 8);
    EXPECT_EQ(loadBE32(d.b.data()), 0x000000A5u);
    EXPECT_EQ(loadBE32(d.b.data() + 4), 0x11223344u);
    EXPECT_EQ(p, d.b.data() + 4);
    EXPECT_EQ(off, 0);
}

TEST(VlcWriteCode, SpillIntoTheNextWordTakesItsOldBytesLittleEndian)
{
    Bytes d;
    storeBE32(d.b.data(), 0xFFFFFF00u);
    // Next word's bytes 0x11 0x22 0x33 0x44: little-endian value 0x44332211.
    const uint8_t next[] = {0x11, 0x22, 0x33, 0x44};
    std::copy(next, next + 4, d.b.data() + 4);
    uint8_t* p = d.b.data() + 3;
    int off = 4;
    vlcWriteCode(p, off, 0b101101, 6);  // 4 bits fit, 2 spill
    EXPECT_EQ(loadBE32(d.b.data()), 0xFFFFFF0Bu);  // kept 28 bits then 1011
    // Top 2 bits: 01; below: 0x44332211 masked to its low 30 bits.
    EXPECT_EQ(loadBE32(d.b.data() + 4), (0b01u << 30) | (0x44332211u & 0x3FFFFFFFu));
    EXPECT_EQ(p, d.b.data() + 4);
    EXPECT_EQ(off, 2);
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
