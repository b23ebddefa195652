// Huffman coding: hand-worked streams for the zone rules, random streams built by
// a test-side encoder from the plain-text ISO tables, encoder round trips, and the
// check orders of the three decoders and the encoder.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "mp3/mp3_huffman.h"
#include "mp3_bits.h"
#include "mp3_reference.h"
#include "test_support.h"
#include "zamac.h"

namespace {

using zamtest::kCanary;

Mp3FrameHeader header(int id, int rate = 0)
{
    Mp3FrameHeader h{};
    h.ID = id;
    h.layer = 1;
    h.sampling_frequency = rate;
    h.mode = 1;
    return h;
}

Mp3SideInfo normal(int bigValues, int t0, int t1, int t2, int r0, int r1, int count1Table)
{
    Mp3SideInfo si{};
    si.part2_3_length = 4095;
    si.big_values = bigValues;
    si.table_select[0] = t0;
    si.table_select[1] = t1;
    si.table_select[2] = t2;
    si.region0_count = r0;
    si.region1_count = r1;
    si.count1table_select = count1Table;
    return si;
}

Mp3SideInfo switching(int bigValues, int blockType, int mixed, int t0, int t1, int count1Table)
{
    Mp3SideInfo si{};
    si.part2_3_length = 4095;
    si.big_values = bigValues;
    si.window_switching_flag = 1;
    si.block_type = blockType;
    si.mixed_block_flag = mixed;
    si.table_select[0] = t0;
    si.table_select[1] = t1;
    const bool shortOnly = blockType == 2 && mixed == 0;
    si.region0_count = shortOnly ? 8 : 7;
    si.region1_count = shortOnly ? 12 : 13;
    si.count1table_select = count1Table;
    return si;
}

// Code strings of the plain-text tables, for building streams by hand.
std::string pairCode(int table, int x, int y)
{
    for (const auto& [key, xy] : mp3test::refTables().books[table].pairs) {
        if (xy.first == x && xy.second == y) {
            std::string s;
            for (int i = key.first - 1; i >= 0; --i) s += ((key.second >> i) & 1) ? '1' : '0';
            return s;
        }
    }
    return "?";
}

std::string quadACode(int vwxy)
{
    const auto [code, len] = mp3test::refTables().quadACode.at(vwxy);
    std::string s;
    for (int i = len - 1; i >= 0; --i) s += ((code >> i) & 1) ? '1' : '0';
    return s;
}

const mp3test::BandTables& isoBands()
{
    static const mp3test::BandTables b = mp3test::bandTables(false);
    return b;
}

enum class Which { Decode, Sfb, SfbMbp };

struct Result {
    ZamStatus status;
    int64_t bits;  // cursor movement
    int32_t values[576];
    int32_t bound;
};

Result decode(Which which, const std::vector<uint8_t>& stream, int offset, const Mp3SideInfo& si,
              const Mp3FrameHeader& h, int32_t hufSize, const int16_t* mbp = nullptr)
{
    Result r;
    std::memset(r.values, kCanary, sizeof r.values);
    std::memset(&r.bound, kCanary, sizeof r.bound);
    const uint8_t* p = stream.data();
    int32_t off = offset;
    const mp3test::BandTables& b = isoBands();
    switch (which) {
    case Which::Decode: r.status = zamsHuffmanDecode_MP3_1u32s(&p, &off, r.values, &r.bound, &si, &h, hufSize); break;
    case Which::Sfb:
        r.status = zamsHuffmanDecodeSfb_MP3_1u32s(&p, &off, r.values, &r.bound, &si, &h, hufSize, b.longTable);
        break;
    case Which::SfbMbp:
        r.status = zamsHuffmanDecodeSfbMbp_MP3_1u32s(&p, &off, r.values, &r.bound, &si, &h, hufSize, b.longTable,
                                                     b.shortTable, mbp ? mbp : b.mbp);
        break;
    }
    r.bits = (p - stream.data()) * 8 + off - offset;
    return r;
}

class Mp3HuffmanDecoders : public ::testing::TestWithParam<Which> {};

TEST_P(Mp3HuffmanDecoders, HandWorkedPairsAndTableBQuad)
{
    // Region 0 = lines 0..3 (long boundary 1 at 44.1 kHz), table 1:
    //   (1,1) "000" signs 1 0 -> -1, 1;  (0,1) "001" sign 0 -> 0, 1.
    // Count-1 table B: "0110" = vwxy 1001, signs 0 1 -> 1, 0, 0, -1.
    mp3test::Bits b(3);
    b.put("00010" "0010" "011001");
    const Mp3SideInfo si = normal(2, 1, 0, 0, 0, 0, 1);
    const Result r = decode(GetParam(), b.bytes(), 3, si, header(1), 15);
    ASSERT_EQ(r.status, zamStsOk);
    EXPECT_EQ(r.bits, 15);
    const int32_t expected[8] = {-1, 1, 0, 1, 1, 0, 0, -1};
    EXPECT_TRUE(std::equal(expected, expected + 8, r.values));
    EXPECT_TRUE(std::all_of(r.values + 8, r.values + 576, [](int32_t v) { return v == 0; }));
    EXPECT_EQ(r.bound, 8);
}

TEST_P(Mp3HuffmanDecoders, Tables4And14ReadNothing)
{
    // 8 big-values lines in tables 4 and 14, then one table-B quadruple "0111" + "1".
    mp3test::Bits b;
    b.put("01111");
    const Mp3SideInfo si = normal(4, 4, 14, 0, 0, 0, 1);
    const Result r = decode(GetParam(), b.bytes(), 0, si, header(1), 5);
    ASSERT_EQ(r.status, zamStsOk);
    EXPECT_EQ(r.bits, 5);
    EXPECT_EQ(r.values[8], -1);
    EXPECT_EQ(std::count(r.values, r.values + 576, 0), 575);
    EXPECT_EQ(r.bound, 9);
}

TEST_P(Mp3HuffmanDecoders, Count1StopsAt574AndSkipsTheRest)
{
    for (const int bigValues : {0, 1}) {
        // Table B "0111" + sign 0 = +1 on the quadruple's first line, repeated.
        mp3test::Bits b;
        for (int k = 0; k < 160; ++k) b.put("01110");
        const Mp3SideInfo si = normal(bigValues, 0, 0, 0, 0, 0, 1);
        const Result r = decode(GetParam(), b.bytes(), 0, si, header(1), 790);
        ASSERT_EQ(r.status, zamStsOk);
        EXPECT_EQ(r.bits, 790);
        const int last = bigValues == 0 ? 572 : 570;  // a quadruple starting at 572 is the last one
        EXPECT_EQ(r.values[last], 1);
        EXPECT_EQ(r.values[574], 0);
        EXPECT_EQ(r.values[575], 0);
        EXPECT_EQ(r.bound, last + 1);
    }
}

TEST_P(Mp3HuffmanDecoders, Count1OverrunIsRepaired)
{
    // Table A: vwxy 0001 with sign 1, then 1111 with four signs, cut two bits short.
    mp3test::Bits b;
    b.put(quadACode(1) + "1");
    b.put(quadACode(15) + "0000");
    const int32_t hufSize = static_cast<int32_t>(b.size()) - 2;
    const Mp3SideInfo si = normal(0, 0, 0, 0, 0, 0, 0);
    const Result r = decode(GetParam(), b.bytes(), 0, si, header(1), hufSize);
    ASSERT_EQ(r.status, zamStsOk);
    EXPECT_EQ(r.bits, hufSize);  // moved back by the overrun
    EXPECT_EQ(r.values[3], -1);
    EXPECT_TRUE(std::all_of(r.values + 4, r.values + 576, [](int32_t v) { return v == 0; }));
    EXPECT_EQ(r.bound, 4);
}

TEST_P(Mp3HuffmanDecoders, BudgetEqualToBigValuesLeavesNoCount1)
{
    mp3test::Bits b;
    b.put(pairCode(2, 2, 1) + "01");
    b.put("0101010101");  // would be count-1 data, but beyond the budget
    const Mp3SideInfo si = normal(1, 2, 0, 0, 0, 0, 1);
    const int32_t hufSize = static_cast<int32_t>(pairCode(2, 2, 1).size() + 2);
    const Result r = decode(GetParam(), b.bytes(), 0, si, header(1), hufSize);
    ASSERT_EQ(r.status, zamStsOk);
    EXPECT_EQ(r.bits, hufSize);
    EXPECT_EQ(r.values[0], 2);
    EXPECT_EQ(r.values[1], -1);
    EXPECT_EQ(std::count(r.values, r.values + 576, 0), 574);
    EXPECT_EQ(r.bound, 2);
}

TEST_P(Mp3HuffmanDecoders, FullBigValuesZoneAndStuffing)
{
    // 288 pairs in table 1: (1,0) "01" + sign, the last pair (0,0) "1"; ten stuffing bits.
    mp3test::Bits b(6);
    for (int k = 0; k < 287; ++k) b.put(k % 2 ? "011" : "010");
    b.put("1");
    b.put("1111111111");
    const int32_t hufSize = 287 * 3 + 1 + 10;
    const Mp3SideInfo si = normal(288, 1, 1, 1, 3, 3, 0);
    const Result r = decode(GetParam(), b.bytes(), 6, si, header(1, 1), hufSize);
    ASSERT_EQ(r.status, zamStsOk);
    EXPECT_EQ(r.bits, hufSize);
    EXPECT_EQ(r.values[0], 1);
    EXPECT_EQ(r.values[2], -1);
    EXPECT_EQ(r.values[572], 1);
    EXPECT_EQ(r.values[574], 0);
    EXPECT_EQ(r.bound, 573);
}

TEST_P(Mp3HuffmanDecoders, LinbitsOrderAndSigns)
{
    // Table 17 (linbits 2), region 0 = lines 0..3 at 44.1 kHz:
    //   (15,15): x linbits "10", x sign "1", y linbits "11", y sign "0" -> -17, 18
    //   (15,1):  x linbits "10", x sign "0", y sign "1"                 -> 17, -1
    mp3test::Bits b;
    b.put(pairCode(17, 15, 15) + "10" "1" "11" "0");
    b.put(pairCode(17, 15, 1) + "10" "0" "1");
    const Result r = decode(GetParam(), b.bytes(), 0, normal(2, 17, 24, 0, 0, 0, 0), header(1),
                            static_cast<int32_t>(b.size()));
    ASSERT_EQ(r.status, zamStsOk);
    const int32_t expected[4] = {-17, 18, 17, -1};
    EXPECT_TRUE(std::equal(expected, expected + 4, r.values));
    // Table 24 (linbits 4) in region 1: MPEG-2 22.05 kHz, long boundary 1 = 6 lines.
    mp3test::Bits d;
    d.put(pairCode(24, 15, 1) + "1001" "0" "1");
    const Result s = decode(GetParam(), d.bytes(), 0, normal(4, 0, 24, 0, 0, 0, 0), header(0, 0),
                            static_cast<int32_t>(d.size()));
    ASSERT_EQ(s.status, zamStsOk);
    EXPECT_EQ(s.values[6], 24);
    EXPECT_EQ(s.values[7], -1);
    EXPECT_EQ(s.bound, 8);
}

TEST_P(Mp3HuffmanDecoders, WindowSwitchingRegion0)
{
    // 60 big-values lines; region 0 in table 1 with (1,0) "01" + "0" per pair,
    // region 1 in table 0. MPEG-2 start block: 54 lines; short block: 36 lines.
    for (const int blockType : {1, 2, 3}) {
        const int region0 = blockType == 2 ? 36 : 54;
        mp3test::Bits b;
        for (int k = 0; k < region0 / 2; ++k) b.put("010");
        const Mp3SideInfo si = switching(30, blockType, 0, 1, 0, 0);
        const Result r = decode(GetParam(), b.bytes(), 0, si, header(0, 0), static_cast<int32_t>(b.size()));
        ASSERT_EQ(r.status, zamStsOk) << blockType;
        EXPECT_EQ(r.bits, b.size());
        for (int i = 0; i < 60; ++i) EXPECT_EQ(r.values[i], i < region0 && i % 2 == 0 ? 1 : 0) << i;
    }
    // MPEG-1 start block: 36 lines.
    mp3test::Bits b;
    for (int k = 0; k < 18; ++k) b.put("010");
    const Result r = decode(GetParam(), b.bytes(), 0, switching(30, 1, 0, 1, 0, 0), header(1, 0),
                            static_cast<int32_t>(b.size()));
    ASSERT_EQ(r.status, zamStsOk);
    EXPECT_EQ(r.values[34], 1);
    EXPECT_EQ(r.values[36], 0);
}

INSTANTIATE_TEST_SUITE_P(Mp3, Mp3HuffmanDecoders, ::testing::Values(Which::Decode, Which::Sfb, Which::SfbMbp),
                         [](const auto& info) {
                             return std::string(info.param == Which::Decode ? "Decode"
                                                : info.param == Which::Sfb  ? "Sfb"
                                                                            : "SfbMbp");
                         });

TEST(Mp3HuffmanSfbMbp, MixedBlockRegion0FromThePartitionTable)
{
    // 44.1 kHz: long boundary 8 = 36; short boundaries 0 4 8 12 16 22: the first
    // short band above 36 / 3 is band 3 (12..16). Partition second value 3 adds
    // band 3 twice and band 4 once: 36 + 4 + 4 + 6 = 50 lines.
    int16_t mbp[12];
    std::memcpy(mbp, isoBands().mbp, sizeof mbp);
    mbp[3 * 2 + 1] = 3;
    mp3test::Bits b;
    for (int k = 0; k < 25; ++k) b.put("010");
    const Mp3SideInfo si = switching(30, 2, 1, 1, 0, 0);
    const Result r = decode(Which::SfbMbp, b.bytes(), 0, si, header(1, 0), static_cast<int32_t>(b.size()), mbp);
    ASSERT_EQ(r.status, zamStsOk);
    EXPECT_EQ(r.values[48], 1);
    EXPECT_EQ(r.values[50], 0);
    EXPECT_EQ(r.bound, 49);
    // Second value 2: 44 lines.
    mbp[3 * 2 + 1] = 2;
    mp3test::Bits c;
    for (int k = 0; k < 22; ++k) c.put("010");
    const Result s = decode(Which::SfbMbp, c.bytes(), 0, si, header(1, 0), static_cast<int32_t>(c.size()), mbp);
    ASSERT_EQ(s.status, zamStsOk);
    EXPECT_EQ(s.bound, 43);
    // Short blocks not mixed: three short bands in all windows = 36 lines; the
    // 8 kHz short table (boundary 3 = 24) gives 72.
    const mp3test::BandTables b25 = mp3test::bandTables(true);
    mp3test::Bits d;
    for (int k = 0; k < 36; ++k) d.put("010");
    const Mp3SideInfo sh = switching(40, 2, 0, 1, 0, 0);
    const std::vector<uint8_t> bytes = d.bytes();
    const uint8_t* p = bytes.data();
    int32_t off = 0, values[576], bound;
    const Mp3FrameHeader h8 = header(0, 2);
    ASSERT_EQ(zamsHuffmanDecodeSfbMbp_MP3_1u32s(&p, &off, values, &bound, &sh, &h8, static_cast<int32_t>(d.size()),
                                                b25.longTable, b25.shortTable, b25.mbp),
              zamStsOk);
    EXPECT_EQ(values[70], 1);
    EXPECT_EQ(values[72], 0);
}

// ----------------------------------------------------------------------------
// Random granules: a test-side encoder writes the stream from the plain-text
// tables; every decoder must return the values, and the library's encoder must
// produce the same bits.

struct RandomGranule {
    Mp3FrameHeader h;
    Mp3SideInfo si;
    std::vector<int32_t> values;
    int count1Lines;
};

int regionEndFor(const RandomGranule& g, int region)
{
    const Mp3SideInfo& si = g.si;
    const int bv2 = 2 * si.big_values;
    const int row = g.h.ID * 3 + g.h.sampling_frequency;
    if (si.window_switching_flag) {
        const int r0 = (g.h.ID == 1 || si.block_type == 2) ? 36 : 54;
        return region == 0 ? std::min(r0, bv2) : bv2;
    }
    const int16_t* lt = isoBands().longTable + row * 23;
    if (region == 0) return std::min<int>(lt[si.region0_count + 1], bv2);
    if (region == 1) return std::min<int>(lt[si.region0_count + si.region1_count + 2], bv2);
    return bv2;
}

int maxValue(int table)
{
    const auto& book = mp3test::refTables().books[table];
    if (!book.present) return 0;
    int n = 0;
    for (const auto& kv : book.pairs) n = std::max(n, kv.second.first);
    return book.linbits ? 15 + (1 << book.linbits) - 1 : n;
}

RandomGranule randomGranule(std::mt19937& gen, bool mpeg1Only)
{
    RandomGranule g;
    g.h = header(mpeg1Only ? 1 : static_cast<int>(gen() % 2), static_cast<int>(gen() % 3));
    Mp3SideInfo& si = g.si;
    auto table = [&]() { return static_cast<int>(gen() % 32); };
    if (gen() % 3 == 0) {
        const int bt = 1 + static_cast<int>(gen() % 3);
        si = switching(static_cast<int>(gen() % 289), bt, bt == 2 ? static_cast<int>(gen() % 2) : 0, table(), table(),
                       static_cast<int>(gen() % 2));
    } else {
        const int r0 = static_cast<int>(gen() % 16);
        const int r1 = static_cast<int>(gen() % std::min(8, 21 - r0));
        si = normal(static_cast<int>(gen() % 289), table(), table(), table(), r0, r1, static_cast<int>(gen() % 2));
    }
    g.values.assign(576, 0);
    const int bv2 = 2 * si.big_values;
    const int regions = si.window_switching_flag ? 2 : 3;
    int start = 0;
    for (int r = 0; r < regions; ++r) {
        const int end = regionEndFor(g, r);
        const int top = maxValue(si.table_select[r]);
        for (int i = start; i < end; ++i) {
            const int choice = static_cast<int>(gen() % 8);
            int mag = choice < 3 ? 0 : choice < 6 ? static_cast<int>(gen() % (std::min(top, 15) + 1))
                                                  : static_cast<int>(gen() % (top + 1));
            g.values[i] = gen() % 2 ? -mag : mag;
        }
        start = std::max(start, end);
    }
    const int room = std::max(0, 574 - bv2);
    g.count1Lines = room == 0 ? 0 : static_cast<int>(gen() % (room / 4 + 1)) * 4;
    for (int i = bv2; i < bv2 + g.count1Lines; ++i) {
        const int v = static_cast<int>(gen() % 3) - 1;
        g.values[i] = v;
    }
    return g;
}

void referenceEncode(const RandomGranule& g, mp3test::Bits& b)
{
    const Mp3SideInfo& si = g.si;
    const int regions = si.window_switching_flag ? 2 : 3;
    int i = 0;
    for (int r = 0; r < regions; ++r) {
        const int end = regionEndFor(g, r);
        const int t = si.table_select[r];
        const auto& book = mp3test::refTables().books[t];
        for (; i < end; i += 2) {
            if (!book.present) continue;
            int x = std::abs(g.values[i]), y = std::abs(g.values[i + 1]);
            const int xi = std::min(x, 15), yi = std::min(y, 15);
            b.put(pairCode(t, xi, yi));
            if (book.linbits && xi == 15) b.put(x - 15, book.linbits);
            if (x) b.put(g.values[i] < 0, 1);
            if (book.linbits && yi == 15) b.put(y - 15, book.linbits);
            if (y) b.put(g.values[i + 1] < 0, 1);
        }
    }
    for (int k = 2 * si.big_values; k < 2 * si.big_values + g.count1Lines; k += 4) {
        int q = 0;
        for (int j = 0; j < 4; ++j) q = q * 2 + (g.values[k + j] != 0);
        if (si.count1table_select) b.put(15 - q, 4);
        else b.put(quadACode(q));
        for (int j = 0; j < 4; ++j)
            if (g.values[k + j]) b.put(g.values[k + j] < 0, 1);
    }
}

TEST(Mp3HuffmanRandom, ReferenceStreamsDecodeInEveryDecoder)
{
    std::mt19937 gen(17);
    for (int iter = 0; iter < 600; ++iter) {
        RandomGranule g = randomGranule(gen, false);
        const int offset = static_cast<int>(gen() % 8);
        mp3test::Bits b(offset);
        referenceEncode(g, b);
        const int32_t hufSize = static_cast<int32_t>(b.size());
        g.si.part2_3_length = hufSize + static_cast<int32_t>(gen() % 50);
        const std::vector<uint8_t> bytes = b.bytes();
        int last = 575;
        while (last >= 0 && g.values[last] == 0) --last;
        // For the ISO rates all three decoders find the same regions.
        for (const Which w : {Which::Decode, Which::Sfb, Which::SfbMbp}) {
            const Result r = decode(w, bytes, offset, g.si, g.h, hufSize);
            ASSERT_EQ(r.status, zamStsOk) << "iteration " << iter;
            EXPECT_EQ(r.bits, hufSize);
            ASSERT_TRUE(std::equal(g.values.begin(), g.values.end(), r.values)) << "iteration " << iter;
            EXPECT_EQ(r.bound, last + 1);
        }
    }
}

TEST(Mp3HuffmanRandom, EncoderWritesTheReferenceBitsAndStuffing)
{
    std::mt19937 gen(23);
    for (int iter = 0; iter < 600; ++iter) {
        const RandomGranule g = randomGranule(gen, true);
        const int offset = static_cast<int>(gen() % 8);
        mp3test::Bits b(offset);
        referenceEncode(g, b);
        const int stuffing = static_cast<int>(gen() % 3 == 0 ? gen() % 40 : 0);
        for (int k = 0; k < stuffing; ++k) b.put(1, 1);
        const int32_t hufSize = static_cast<int32_t>(b.size());
        const std::vector<uint8_t> expected = b.bytes(0);

        std::vector<uint8_t> out(expected.size() + 16, kCanary);
        if (offset) out[0] = 0;  // the caller's byte: its bits after the cursor are 0
        uint8_t* p = out.data();
        int32_t off = offset;
        ASSERT_EQ(zamsHuffmanEncode_MP3_32s1u(g.values.data(), &p, &off, &g.h, &g.si, g.count1Lines, hufSize),
                  zamStsOk);
        ASSERT_EQ((p - out.data()) * 8 + off - offset, hufSize) << "iteration " << iter;
        ASSERT_TRUE(std::equal(expected.begin(), expected.end(), out.begin())) << "iteration " << iter;
        EXPECT_EQ(out[expected.size()], kCanary);

        // And back through the decoder.
        Mp3SideInfo si = g.si;
        si.part2_3_length = hufSize;
        const Result r = decode(Which::Decode, out, offset, si, g.h, hufSize);
        ASSERT_EQ(r.status, zamStsOk);
        EXPECT_TRUE(std::equal(g.values.begin(), g.values.end(), r.values));
    }
}

TEST(Mp3HuffmanEncode, ClipsWhatTheTableCannotCarry)
{
    Mp3SideInfo si = normal(2, 1, 0, 0, 0, 0, 0);
    int32_t values[576] = {5, -3, 0, 2};
    values[4] = 7;  // count-1 line: magnitude taken as 1
    uint8_t out[16] = {};
    uint8_t* p = out;
    int32_t off = 0;
    const Mp3FrameHeader h = header(1);
    ASSERT_EQ(zamsHuffmanEncode_MP3_32s1u(values, &p, &off, &h, &si, 4, 0), zamStsOk);
    const uint8_t* r = out;
    int32_t roff = 0, dec[576], bound;
    si.part2_3_length = static_cast<int32_t>((p - out) * 8 + off);
    ASSERT_EQ(zamsHuffmanDecode_MP3_1u32s(&r, &roff, dec, &bound, &si, &h, si.part2_3_length), zamStsOk);
    EXPECT_EQ(dec[0], 1);
    EXPECT_EQ(dec[1], -1);
    EXPECT_EQ(dec[3], 1);
    EXPECT_EQ(dec[4], 1);
}

// ----------------------------------------------------------------------------
// Argument checks: status, order, and nothing written.

struct BadCase {
    const char* name;
    void (*mutate)(Mp3SideInfo&, Mp3FrameHeader&, int32_t& offset, int32_t& hufSize);
    ZamStatus sfb;  // Decode and Sfb
    ZamStatus mbp;  // SfbMbp
};

const BadCase kBadCases[] = {
    {"offset8", [](Mp3SideInfo&, Mp3FrameHeader&, int32_t& o, int32_t&) { o = 8; }, zamStsBadArg, zamStsBadArg},
    {"offsetNegative", [](Mp3SideInfo&, Mp3FrameHeader&, int32_t& o, int32_t&) { o = -1; }, zamStsBadArg,
     zamStsBadArg},
    {"hufNegative", [](Mp3SideInfo&, Mp3FrameHeader&, int32_t&, int32_t& n) { n = -1; }, zamStsBadArg,
     zamStsMp3SideInfoErr},
    {"hufAbovePart23", [](Mp3SideInfo& s, Mp3FrameHeader&, int32_t&, int32_t& n) { n = s.part2_3_length + 1; },
     zamStsBadArg, zamStsMp3SideInfoErr},
    {"bigValues289", [](Mp3SideInfo& s, Mp3FrameHeader&, int32_t&, int32_t&) { s.big_values = 289; },
     zamStsMp3SideInfoErr, zamStsMp3SideInfoErr},
    {"bigValuesNegative", [](Mp3SideInfo& s, Mp3FrameHeader&, int32_t&, int32_t&) { s.big_values = -1; },
     zamStsMp3SideInfoErr, zamStsMp3SideInfoErr},
    {"blockType4", [](Mp3SideInfo& s, Mp3FrameHeader&, int32_t&, int32_t&) { s.block_type = 4; },
     zamStsMp3SideInfoErr, zamStsMp3SideInfoErr},
    {"switching2", [](Mp3SideInfo& s, Mp3FrameHeader&, int32_t&, int32_t&) { s.window_switching_flag = 2; },
     zamStsMp3SideInfoErr, zamStsMp3SideInfoErr},
    {"count1Table2", [](Mp3SideInfo& s, Mp3FrameHeader&, int32_t&, int32_t&) { s.count1table_select = 2; },
     zamStsMp3SideInfoErr, zamStsMp3SideInfoErr},
    {"id2", [](Mp3SideInfo&, Mp3FrameHeader& h, int32_t&, int32_t&) { h.ID = 2; }, zamStsMp3FrameHeaderErr,
     zamStsMp3FrameHeaderErr},
    {"layer2", [](Mp3SideInfo&, Mp3FrameHeader& h, int32_t&, int32_t&) { h.layer = 2; }, zamStsMp3FrameHeaderErr,
     zamStsMp3FrameHeaderErr},
    {"rate3", [](Mp3SideInfo&, Mp3FrameHeader& h, int32_t&, int32_t&) { h.sampling_frequency = 3; },
     zamStsMp3FrameHeaderErr, zamStsMp3FrameHeaderErr},
    {"switchingBlock0",
     [](Mp3SideInfo& s, Mp3FrameHeader&, int32_t&, int32_t&) {
         s.window_switching_flag = 1;
         s.block_type = 0;
     },
     zamStsMp3SideInfoErr, zamStsMp3SideInfoErr},
    {"region0Negative", [](Mp3SideInfo& s, Mp3FrameHeader&, int32_t&, int32_t&) { s.region0_count = -1; },
     zamStsMp3SideInfoErr, zamStsMp3SideInfoErr},
    {"regionSum21",
     [](Mp3SideInfo& s, Mp3FrameHeader&, int32_t&, int32_t&) {
         s.region0_count = 15;
         s.region1_count = 6;
     },
     zamStsMp3SideInfoErr, zamStsMp3SideInfoErr},
    {"table32", [](Mp3SideInfo& s, Mp3FrameHeader&, int32_t&, int32_t&) { s.table_select[0] = 32; },
     zamStsMp3SideInfoErr, zamStsMp3SideInfoErr},
    // Order: the offset before the side information; the budget is a bad argument
    // before everything else for Decode/Sfb, and after the header for SfbMbp.
    {"offsetAndBigValues",
     [](Mp3SideInfo& s, Mp3FrameHeader&, int32_t& o, int32_t&) {
         o = 9;
         s.big_values = 300;
     },
     zamStsBadArg, zamStsBadArg},
    {"idAndBigValues",
     [](Mp3SideInfo& s, Mp3FrameHeader& h, int32_t&, int32_t&) {
         h.ID = 3;
         s.big_values = 300;
     },
     zamStsMp3SideInfoErr, zamStsMp3FrameHeaderErr},
    {"hufAndBigValues",
     [](Mp3SideInfo& s, Mp3FrameHeader&, int32_t&, int32_t& n) {
         n = -5;
         s.big_values = 300;
     },
     zamStsBadArg, zamStsMp3SideInfoErr},
    {"count1AndLayer",
     [](Mp3SideInfo& s, Mp3FrameHeader& h, int32_t&, int32_t&) {
         s.count1table_select = 5;
         h.layer = 0;
     },
     zamStsMp3SideInfoErr, zamStsMp3FrameHeaderErr},
    {"hufAndLayer",
     [](Mp3SideInfo&, Mp3FrameHeader& h, int32_t&, int32_t& n) {
         n = 5000;
         h.layer = 3;
     },
     zamStsBadArg, zamStsMp3FrameHeaderErr},
    {"switchingBlock0AndLayer",
     [](Mp3SideInfo& s, Mp3FrameHeader& h, int32_t&, int32_t&) {
         s.window_switching_flag = 1;
         s.block_type = 0;
         h.layer = 2;
     },
     zamStsMp3FrameHeaderErr, zamStsMp3SideInfoErr},
};

class Mp3HuffmanBadArgs : public ::testing::TestWithParam<BadCase> {};

TEST_P(Mp3HuffmanBadArgs, StatusAndNothingWritten)
{
    const BadCase c = GetParam();
    std::vector<uint8_t> stream(64, 0x5A);
    for (const Which w : {Which::Decode, Which::Sfb, Which::SfbMbp}) {
        Mp3SideInfo si = normal(10, 1, 2, 3, 2, 2, 0);
        si.part2_3_length = 100;
        Mp3FrameHeader h = header(1);
        int32_t offset = 2, hufSize = 90;
        c.mutate(si, h, offset, hufSize);
        const Result r = decode(w, stream, offset, si, h, hufSize);
        EXPECT_EQ(r.status, w == Which::SfbMbp ? c.mbp : c.sfb) << c.name;
        EXPECT_EQ(r.bits, 0);
        EXPECT_TRUE(zamtest::untouched(r.values, 576));
        EXPECT_TRUE(zamtest::untouched(&r.bound, 1));
    }
}

INSTANTIATE_TEST_SUITE_P(Mp3, Mp3HuffmanBadArgs, ::testing::ValuesIn(kBadCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Mp3HuffmanDecodeErrors, NullPointers)
{
    std::vector<uint8_t> stream(16, 0);
    const uint8_t* p = stream.data();
    const uint8_t* none = nullptr;
    int32_t off = 0, v[576], bound;
    const Mp3SideInfo si = normal(0, 0, 0, 0, 0, 0, 0);
    const Mp3FrameHeader h = header(1);
    const mp3test::BandTables& b = isoBands();
    EXPECT_EQ(zamsHuffmanDecode_MP3_1u32s(nullptr, &off, v, &bound, &si, &h, 0), zamStsNullPtr);
    EXPECT_EQ(zamsHuffmanDecode_MP3_1u32s(&p, nullptr, v, &bound, &si, &h, 0), zamStsNullPtr);
    EXPECT_EQ(zamsHuffmanDecode_MP3_1u32s(&p, &off, nullptr, &bound, &si, &h, 0), zamStsNullPtr);
    EXPECT_EQ(zamsHuffmanDecode_MP3_1u32s(&p, &off, v, nullptr, &si, &h, 0), zamStsNullPtr);
    EXPECT_EQ(zamsHuffmanDecode_MP3_1u32s(&p, &off, v, &bound, nullptr, &h, 0), zamStsNullPtr);
    EXPECT_EQ(zamsHuffmanDecode_MP3_1u32s(&p, &off, v, &bound, &si, nullptr, 0), zamStsNullPtr);
    EXPECT_EQ(zamsHuffmanDecode_MP3_1u32s(&none, &off, v, &bound, &si, &h, 0), zamStsNullPtr);
    EXPECT_EQ(zamsHuffmanDecodeSfb_MP3_1u32s(&p, &off, v, &bound, &si, &h, 0, nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsHuffmanDecodeSfb_MP3_1u32s(&none, &off, v, &bound, &si, &h, 0, b.longTable), zamStsNullPtr);
    EXPECT_EQ(zamsHuffmanDecodeSfbMbp_MP3_1u32s(&p, &off, v, &bound, &si, &h, 0, b.longTable, nullptr, b.mbp),
              zamStsNullPtr);
    EXPECT_EQ(zamsHuffmanDecodeSfbMbp_MP3_1u32s(&p, &off, v, &bound, &si, &h, 0, b.longTable, b.shortTable, nullptr),
              zamStsNullPtr);
    // A null pointer wins over every other fault.
    int32_t badOff = 9;
    EXPECT_EQ(zamsHuffmanDecode_MP3_1u32s(&p, &badOff, v, nullptr, &si, &h, -1), zamStsNullPtr);
}

TEST(Mp3HuffmanDecodeErrors, ZeroBudgetChecksTablesInUseThenClears)
{
    std::vector<uint8_t> stream(16, 0xFF);
    Mp3SideInfo si = normal(100, 1, 2, 40, 0, 0, 0);
    const Result r = decode(Which::Decode, stream, 0, si, header(1), 0);
    EXPECT_EQ(r.status, zamStsMp3SideInfoErr);
    EXPECT_TRUE(zamtest::untouched(r.values, 576));
    // A window-switching granule has no region 2: its table number is not in use.
    Mp3SideInfo ws = switching(100, 2, 0, 1, 2, 0);
    ws.table_select[2] = 40;
    for (const Which w : {Which::Decode, Which::Sfb, Which::SfbMbp}) {
        const Result z = decode(w, stream, 5, ws, header(1), 0);
        ASSERT_EQ(z.status, zamStsOk);
        EXPECT_EQ(z.bits, 0);
        EXPECT_EQ(std::count(z.values, z.values + 576, 0), 576);
        EXPECT_EQ(z.bound, 0);
    }
}

TEST(Mp3HuffmanDecodeErrors, TableErrorAtRegion1KeepsRegion0)
{
    // Region 0 (lines 0..3) table 1: "010" "011" -> 1, 0, -1, 0; region 1 table 33.
    mp3test::Bits b;
    b.put("010011");
    Mp3SideInfo si = normal(4, 1, 33, 0, 0, 0, 0);
    const Result r = decode(Which::Decode, b.bytes(), 0, si, header(1), 20);
    EXPECT_EQ(r.status, zamStsMp3SideInfoErr);
    EXPECT_EQ(r.bits, 6);
    EXPECT_EQ(r.values[0], 1);
    EXPECT_EQ(r.values[2], -1);
    EXPECT_TRUE(zamtest::untouched(r.values + 4, 572));
    EXPECT_TRUE(zamtest::untouched(&r.bound, 1));
}

TEST(Mp3HuffmanDecodeErrors, BigValuesOverrunIsBadData)
{
    // 8 pairs of table 1 "000" + two signs = 40 bits, budget 30.
    mp3test::Bits b;
    for (int k = 0; k < 8; ++k) b.put("00000");
    for (const Which w : {Which::Decode, Which::Sfb, Which::SfbMbp}) {
        const Result r = decode(w, b.bytes(), 1, normal(8, 1, 1, 1, 0, 0, 0), header(1), 30);
        EXPECT_EQ(r.status, zamStsBadData);
        EXPECT_EQ(r.bits, 40);  // the cursor stands after the big-values zone
        EXPECT_EQ(r.values[15], 1);
        EXPECT_TRUE(zamtest::untouched(r.values + 16, 560));
        EXPECT_TRUE(zamtest::untouched(&r.bound, 1));
    }
}

TEST(Mp3HuffmanEncodeErrors, ChecksInOrder)
{
    int32_t values[576] = {};
    uint8_t out[16];
    std::memset(out, kCanary, sizeof out);
    uint8_t* p = out;
    uint8_t* none = nullptr;
    int32_t off = 0;
    const Mp3FrameHeader h1 = header(1);
    Mp3SideInfo si = normal(2, 1, 1, 1, 0, 0, 0);
    EXPECT_EQ(zamsHuffmanEncode_MP3_32s1u(nullptr, &p, &off, &h1, &si, 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsHuffmanEncode_MP3_32s1u(values, nullptr, &off, &h1, &si, 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsHuffmanEncode_MP3_32s1u(values, &none, &off, &h1, &si, 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsHuffmanEncode_MP3_32s1u(values, &p, nullptr, &h1, &si, 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsHuffmanEncode_MP3_32s1u(values, &p, &off, nullptr, &si, 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsHuffmanEncode_MP3_32s1u(values, &p, &off, &h1, nullptr, 0, 0), zamStsNullPtr);
    off = 8;
    Mp3SideInfo bad = si;
    bad.big_values = 289;
    EXPECT_EQ(zamsHuffmanEncode_MP3_32s1u(values, &p, &off, &h1, &bad, 0, 0), zamStsBadArg);
    off = 0;
    const Mp3FrameHeader h0 = header(0);
    EXPECT_EQ(zamsHuffmanEncode_MP3_32s1u(values, &p, &off, &h0, &bad, 0, 0), zamStsMp3SideInfoErr);
    bad = si;
    bad.region0_count = 15;
    bad.region1_count = 6;
    EXPECT_EQ(zamsHuffmanEncode_MP3_32s1u(values, &p, &off, &h0, &bad, 0, 0), zamStsMp3SideInfoErr);
    bad = si;
    bad.count1table_select = 2;
    EXPECT_EQ(zamsHuffmanEncode_MP3_32s1u(values, &p, &off, &h0, &bad, 0, 0), zamStsMp3SideInfoErr);
    EXPECT_EQ(zamsHuffmanEncode_MP3_32s1u(values, &p, &off, &h0, &si, 0, 0), zamStsMp3FrameHeaderErr);
    Mp3FrameHeader h = header(1, 3);
    EXPECT_EQ(zamsHuffmanEncode_MP3_32s1u(values, &p, &off, &h, &si, 0, 0), zamStsMp3FrameHeaderErr);
    h = header(1);
    h.layer = 2;
    EXPECT_EQ(zamsHuffmanEncode_MP3_32s1u(values, &p, &off, &h, &si, 0, 0), zamStsMp3FrameHeaderErr);
    EXPECT_TRUE(zamtest::untouched(out, sizeof out));
    EXPECT_EQ(p, out);
    EXPECT_EQ(off, 0);
}

TEST(Mp3HuffmanEncodeErrors, NegativeTableAsReachedAndStuffing)
{
    // Window switching: regions 0 and 1 are written, then table_select[2] = -1 fails.
    int32_t values[576] = {1, 0, 0, 0};
    Mp3SideInfo si = switching(20, 2, 0, 1, 1, 0);
    si.table_select[2] = -1;
    uint8_t out[32];
    std::memset(out, 0, sizeof out);
    uint8_t* p = out;
    int32_t off = 0;
    const Mp3FrameHeader h = header(1);
    EXPECT_EQ(zamsHuffmanEncode_MP3_32s1u(values, &p, &off, &h, &si, 0, 0), zamStsMp3SideInfoErr);
    // 20 pairs of table 1: (1,0) "01" + sign, then 19 x "1".
    EXPECT_EQ((p - out) * 8 + off, 3 + 19);

    // Stuffing after 3 bits at offset 3: 1-bits to hufSize; the caller's first bits stay.
    si = normal(1, 1, 0, 0, 0, 0, 0);
    std::memset(out, 0, sizeof out);
    out[0] = 0xA0;  // "101" before the cursor
    p = out;
    off = 3;
    ASSERT_EQ(zamsHuffmanEncode_MP3_32s1u(values, &p, &off, &h, &si, 0, 30), zamStsOk);
    EXPECT_EQ((p - out) * 8 + off, 33);
    EXPECT_EQ(out[0], 0xAB);  // 101 | 010 | 11
    EXPECT_EQ(out[1], 0xFF);
    EXPECT_EQ(out[2], 0xFF);
    EXPECT_EQ(out[3], 0xFF);
    EXPECT_EQ(out[4], 0x80);
}

}  // namespace

namespace {

// Random side information and random data in a heap buffer that ends three bytes
// after the byte holding the budget's last bit: the sanitizer build catches any
// read beyond what the decoders may touch, also for data that overruns the budget.
TEST(Mp3HuffmanDecodeErrors, ReadsStayWithinThreeBytesOfTheBudget)
{
    std::mt19937 gen(29);
    int badData = 0, ok = 0;
    for (int iter = 0; iter < 3000; ++iter) {
        Mp3SideInfo si = normal(static_cast<int>(gen() % 289), static_cast<int>(gen() % 32),
                                static_cast<int>(gen() % 32), static_cast<int>(gen() % 32),
                                static_cast<int>(gen() % 16), static_cast<int>(gen() % 5), static_cast<int>(gen() % 2));
        if (gen() % 3 == 0) si = switching(si.big_values, 1 + static_cast<int>(gen() % 3), static_cast<int>(gen() % 2),
                                           si.table_select[0], si.table_select[1], si.count1table_select);
        const int32_t hufSize = 1 + static_cast<int32_t>(gen() % (iter % 2 ? 64 : 2000));
        si.part2_3_length = hufSize;
        const int offset = static_cast<int>(gen() % 8);
        std::vector<uint8_t> bytes(static_cast<size_t>((offset + hufSize + 7) / 8 + 3));
        for (auto& b : bytes) b = static_cast<uint8_t>(gen());
        for (const Which w : {Which::Decode, Which::Sfb, Which::SfbMbp}) {
            const Result r = decode(w, bytes, offset, si, header(static_cast<int>(gen() % 2), 1), hufSize);
            if (r.status == zamStsOk) {
                ++ok;
                EXPECT_EQ(r.bits, hufSize);
            } else {
                ASSERT_EQ(r.status, zamStsBadData);
                ++badData;
            }
        }
    }
    EXPECT_GT(ok, 100);
    EXPECT_GT(badData, 100);
}

}  // namespace
