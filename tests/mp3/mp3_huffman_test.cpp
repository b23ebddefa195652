// Huffman coding: hand-worked streams for the zone rules, random streams built by a
// test-side encoder from the plain-text ISO tables, encoder round trips, the check
// orders of the three decoders and the encoder, and reads bounded by the budget.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

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
    Mp3SideInfo si = normal(bigValues, t0, t1, 0, 7, 13, count1Table);
    si.window_switching_flag = 1;
    si.block_type = blockType;
    si.mixed_block_flag = mixed;
    if (blockType == 2 && mixed == 0) si.region0_count = 8, si.region1_count = 12;
    return si;
}

std::string bitString(uint32_t code, int length)
{
    std::string s;
    for (int i = length - 1; i >= 0; --i) s += ((code >> i) & 1) ? '1' : '0';
    return s;
}

// Code strings of the plain-text tables, for building streams by hand.
std::string pairCode(int table, int x, int y)
{
    for (const auto& [key, xy] : mp3test::refTables().books[table].pairs)
        if (xy.first == x && xy.second == y) return bitString(key.second, key.first);
    return "?";
}

std::string quadACode(int vwxy)
{
    const auto [code, len] = mp3test::refTables().quadACode.at(vwxy);
    return bitString(code, len);
}

const mp3test::BandTables& isoBands()
{
    static const mp3test::BandTables b = mp3test::bandTables(false);
    return b;
}

enum class Which { Decode, Sfb, SfbMbp };
constexpr Which kAllDecoders[] = {Which::Decode, Which::Sfb, Which::SfbMbp};

struct Result {
    ZamStatus status;
    int64_t bits;  // cursor movement
    int32_t values[576];
    int32_t bound;
};

Result decode(Which which, const std::vector<uint8_t>& stream, int offset, const Mp3SideInfo& si,
              const Mp3FrameHeader& h, int32_t hufSize, const mp3test::BandTables& b = isoBands())
{
    Result r;
    std::memset(r.values, kCanary, sizeof r.values);
    std::memset(&r.bound, kCanary, sizeof r.bound);
    const uint8_t* p = stream.data();
    int32_t off = offset;
    r.status = which == Which::Decode ? zamsHuffmanDecode_MP3_1u32s(&p, &off, r.values, &r.bound, &si, &h, hufSize)
               : which == Which::Sfb
                   ? zamsHuffmanDecodeSfb_MP3_1u32s(&p, &off, r.values, &r.bound, &si, &h, hufSize, b.longTable)
                   : zamsHuffmanDecodeSfbMbp_MP3_1u32s(&p, &off, r.values, &r.bound, &si, &h, hufSize, b.longTable,
                                                       b.shortTable, b.mbp);
    r.bits = (p - stream.data()) * 8 + off - offset;
    return r;
}

std::string repeat(const std::string& s, int n)
{
    std::string out;
    for (int k = 0; k < n; ++k) out += s;
    return out;
}

// A hand-worked granule: the stream, its budget (0: the whole stream, -k: k bits short of it),
// and the value of every line; the cursor must end on the budget and the bound after the
// last non-zero line.
struct HandCase {
    const char* name;
    int offset;
    Mp3SideInfo si;
    Mp3FrameHeader h;
    std::string (*stream)();
    int hufSize;
    int (*value)(int line);
};

const HandCase kHandCases[] = {
    // Region 0 = lines 0..3 (long boundary 1 at 44.1 kHz), table 1: (1,1) "000" signs 1 0;
    // (0,1) "001" sign 0. Count-1 table B: "0110" = vwxy 1001, signs 0 1.
    {"PairsAndTableBQuad", 3, normal(2, 1, 0, 0, 0, 0, 1), header(1), [] { return std::string("00010" "0010" "011001"); },
     0, [](int i) { return i < 8 ? std::array{-1, 1, 0, 1, 1, 0, 0, -1}[i] : 0; }},
    // Tables 4 and 14 read nothing; then one table-B quadruple "0111" + "1" at line 8.
    {"Tables4And14ReadNothing", 0, normal(4, 4, 14, 0, 0, 0, 1), header(1), [] { return std::string("01111"); }, 0,
     [](int i) { return i == 8 ? -1 : 0; }},
    // Table B "0111" + sign 0, repeated: quadruples end with the one starting at 572, the rest
    // of the budget is skipped.
    {"Count1StopsAt572", 0, normal(0, 0, 0, 0, 0, 0, 1), header(1), [] { return repeat("01110", 160); }, 790,
     [](int i) { return i % 4 == 0 && i <= 572 ? 1 : 0; }},
    {"Count1StopsAt570", 0, normal(1, 0, 0, 0, 0, 0, 1), header(1), [] { return repeat("01110", 160); }, 790,
     [](int i) { return i % 4 == 2 && i <= 570 ? 1 : 0; }},
    // Table A: vwxy 0001 with sign 1, then 1111 with four signs, cut two bits short: the cursor
    // moves back by the overrun and the quadruple is dropped.
    {"Count1OverrunIsRepaired", 0, normal(0, 0, 0, 0, 0, 0, 0), header(1),
     [] { return quadACode(1) + "1" + quadACode(15) + "0000"; }, -2, [](int i) { return i == 3 ? -1 : 0; }},
    {"BudgetEqualToBigValuesLeavesNoCount1", 0, normal(1, 2, 0, 0, 0, 0, 1), header(1),
     [] { return pairCode(2, 2, 1) + "01" + "0101010101"; }, -10, [](int i) { return i == 0 ? 2 : i == 1 ? -1 : 0; }},
    // 288 pairs of table 1 at 48 kHz: (1,0) "01" + sign, the last pair (0,0) "1"; ten stuffing bits.
    {"FullBigValuesZoneAndStuffing", 6, normal(288, 1, 1, 1, 3, 3, 0), header(1, 1),
     [] { return repeat("010011", 143) + "010" + "1" + "1111111111"; }, 0,
     [](int i) { return i % 2 || i >= 574 ? 0 : (i / 2) % 2 ? -1 : 1; }},
    // Table 17 (linbits 2): (15,15) x linbits "10", sign 1, y linbits "11", sign 0;
    // (15,1) x linbits "10", sign 0, y sign 1.
    {"LinbitsOrderAndSigns", 0, normal(2, 17, 24, 0, 0, 0, 0), header(1),
     [] { return pairCode(17, 15, 15) + "10" "1" "11" "0" + pairCode(17, 15, 1) + "10" "0" "1"; }, 0,
     [](int i) { return i < 4 ? std::array{-17, 18, 17, -1}[i] : 0; }},
    // Table 24 (linbits 4) in region 1: MPEG-2 22.05 kHz, long boundary 1 = 6 lines.
    {"LinbitsInRegion1", 0, normal(4, 0, 24, 0, 0, 0, 0), header(0, 0),
     [] { return pairCode(24, 15, 1) + "1001" "0" "1"; }, 0, [](int i) { return i == 6 ? 24 : i == 7 ? -1 : 0; }},
    // Window switching: region 0 in table 1 with (1,0) "010", region 1 in table 0.
    {"Mpeg2StartBlockRegion0Is54", 0, switching(30, 1, 0, 1, 0, 0), header(0, 0), [] { return repeat("010", 27); },
     0, [](int i) { return int{i < 54 && i % 2 == 0}; }},
    {"Mpeg2StopBlockRegion0Is54", 0, switching(30, 3, 0, 1, 0, 0), header(0, 0), [] { return repeat("010", 27); },
     0, [](int i) { return int{i < 54 && i % 2 == 0}; }},
    {"Mpeg2ShortBlockRegion0Is36", 0, switching(30, 2, 0, 1, 0, 0), header(0, 0), [] { return repeat("010", 18); },
     0, [](int i) { return int{i < 36 && i % 2 == 0}; }},
    {"Mpeg1StartBlockRegion0Is36", 0, switching(30, 1, 0, 1, 0, 0), header(1, 0), [] { return repeat("010", 18); },
     0, [](int i) { return int{i < 36 && i % 2 == 0}; }},
};

class Mp3HuffmanHand : public ::testing::TestWithParam<HandCase> {};

TEST_P(Mp3HuffmanHand, EveryDecoder)
{
    const HandCase& c = GetParam();
    mp3test::Bits b(c.offset);
    b.put(c.stream());
    const int32_t hufSize = static_cast<int32_t>(c.hufSize <= 0 ? b.size() + c.hufSize : c.hufSize);
    int bound = 0;
    for (int i = 0; i < 576; ++i)
        if (c.value(i)) bound = i + 1;
    for (const Which w : kAllDecoders) {
        const Result r = decode(w, b.bytes(), c.offset, c.si, c.h, hufSize);
        ASSERT_EQ(r.status, zamStsOk) << int(w);
        EXPECT_EQ(r.bits, hufSize) << int(w);
        for (int i = 0; i < 576; ++i) ASSERT_EQ(r.values[i], c.value(i)) << int(w) << " line " << i;
        EXPECT_EQ(r.bound, bound) << int(w);
    }
}

INSTANTIATE_TEST_SUITE_P(Mp3, Mp3HuffmanHand, ::testing::ValuesIn(kHandCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Mp3HuffmanSfbMbp, MixedBlockRegion0FromThePartitionTable)
{
    // 44.1 kHz: long boundary 8 = 36; short boundaries 0 4 8 12 16 22: the first short band
    // above 36 / 3 is band 3. Partition second value 3 adds band 3 twice and band 4 once:
    // 36 + 4 + 4 + 6 = 50 lines; value 2: 44 lines.
    mp3test::BandTables bands = isoBands();
    for (const auto& [second, lines] : {std::pair{3, 50}, std::pair{2, 44}}) {
        bands.mbp[3 * 2 + 1] = static_cast<int16_t>(second);
        mp3test::Bits b;
        b.put(repeat("010", lines / 2));
        const Result r = decode(Which::SfbMbp, b.bytes(), 0, switching(30, 2, 1, 1, 0, 0), header(1, 0),
                                static_cast<int32_t>(b.size()), bands);
        ASSERT_EQ(r.status, zamStsOk);
        EXPECT_EQ(r.values[lines - 2], 1);
        EXPECT_EQ(r.values[lines], 0);
        EXPECT_EQ(r.bound, lines - 1);
    }
    // Short blocks not mixed: three short bands in all windows; the 8 kHz table (boundary 3 = 24) gives 72.
    mp3test::Bits d;
    d.put(repeat("010", 36));
    const Result r = decode(Which::SfbMbp, d.bytes(), 0, switching(40, 2, 0, 1, 0, 0), header(0, 2),
                            static_cast<int32_t>(d.size()), mp3test::bandTables(true));
    ASSERT_EQ(r.status, zamStsOk);
    EXPECT_EQ(r.values[70], 1);
    EXPECT_EQ(r.values[72], 0);
}

// ----------------------------------------------------------------------------
// Random granules: a test-side encoder writes the stream from the plain-text tables;
// every decoder must return the values, and the library's encoder the same bits.

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
    if (si.window_switching_flag) return region == 0 ? std::min((g.h.ID == 1 || si.block_type == 2) ? 36 : 54, bv2) : bv2;
    const int16_t* lt = isoBands().longTable + (g.h.ID * 3 + g.h.sampling_frequency) * 23;
    if (region == 2) return bv2;
    return std::min<int>(lt[region == 0 ? si.region0_count + 1 : si.region0_count + si.region1_count + 2], bv2);
}

int maxValue(int table)
{
    const auto& book = mp3test::refTables().books[table];
    int n = 0;
    for (const auto& kv : book.pairs) n = std::max(n, kv.second.first);
    return book.linbits ? 15 + (1 << book.linbits) - 1 : n;
}

RandomGranule randomGranule(std::mt19937& gen, bool mpeg1Only)
{
    RandomGranule g;
    g.h = header(mpeg1Only ? 1 : static_cast<int>(gen() % 2), static_cast<int>(gen() % 3));
    Mp3SideInfo& si = g.si;
    auto rnd = [&](int n) { return static_cast<int>(gen() % n); };
    if (rnd(3) == 0) {
        const int bt = 1 + rnd(3);
        si = switching(rnd(289), bt, bt == 2 ? rnd(2) : 0, rnd(32), rnd(32), rnd(2));
    } else {
        const int r0 = rnd(16);
        si = normal(rnd(289), rnd(32), rnd(32), rnd(32), r0, rnd(std::min(8, 21 - r0)), rnd(2));
    }
    g.values.assign(576, 0);
    const int bv2 = 2 * si.big_values;
    for (int r = 0, start = 0; r < (si.window_switching_flag ? 2 : 3); ++r) {
        const int end = regionEndFor(g, r), top = maxValue(si.table_select[r]);
        for (int i = start; i < end; ++i) {
            const int choice = rnd(8);
            const int mag = choice < 3 ? 0 : choice < 6 ? rnd(std::min(top, 15) + 1) : rnd(top + 1);
            g.values[i] = rnd(2) ? -mag : mag;
        }
        start = std::max(start, end);
    }
    const int room = std::max(0, 574 - bv2);
    g.count1Lines = room == 0 ? 0 : rnd(room / 4 + 1) * 4;
    for (int i = bv2; i < bv2 + g.count1Lines; ++i) g.values[i] = rnd(3) - 1;
    return g;
}

void referenceEncode(const RandomGranule& g, mp3test::Bits& b)
{
    const Mp3SideInfo& si = g.si;
    for (int r = 0, i = 0; r < (si.window_switching_flag ? 2 : 3); ++r) {
        const int end = regionEndFor(g, r), t = si.table_select[r];
        const auto& book = mp3test::refTables().books[t];
        for (; i < end; i += 2) {
            if (!book.present) continue;
            const int x = std::abs(g.values[i]), y = std::abs(g.values[i + 1]);
            b.put(pairCode(t, std::min(x, 15), std::min(y, 15)));
            if (book.linbits && x >= 15) b.put(x - 15, book.linbits);
            if (x) b.put(g.values[i] < 0, 1);
            if (book.linbits && y >= 15) b.put(y - 15, book.linbits);
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

// Every decoder returns the values of a reference-encoded granule, consuming the stream to
// its end; for MPEG-1 the library's encoder writes the same bits, plus the stuffing.
TEST(Mp3HuffmanRandom, ReferenceStreamsDecodeAndReEncode)
{
    std::mt19937 gen(17);
    for (int iter = 0; iter < 1000; ++iter) {
        RandomGranule g = randomGranule(gen, iter % 2 == 0);
        const int offset = static_cast<int>(gen() % 8);
        mp3test::Bits b(offset);
        referenceEncode(g, b);
        const int32_t dataBits = static_cast<int32_t>(b.size());
        g.si.part2_3_length = dataBits + static_cast<int32_t>(gen() % 50);
        int last = 575;
        while (last >= 0 && g.values[last] == 0) --last;
        for (const Which w : kAllDecoders) {  // for the ISO rates all three find the same regions
            const Result r = decode(w, b.bytes(), offset, g.si, g.h, dataBits);
            ASSERT_EQ(r.status, zamStsOk) << "iteration " << iter;
            EXPECT_EQ(r.bits, dataBits);
            ASSERT_TRUE(std::equal(g.values.begin(), g.values.end(), r.values)) << "iteration " << iter;
            EXPECT_EQ(r.bound, last + 1);
        }
        if (g.h.ID == 0) continue;  // the encoder serves MPEG-1
        for (int k = 0, n = gen() % 3 == 0 ? static_cast<int>(gen() % 40) : 0; k < n; ++k) b.put(1, 1);  // stuffing
        const int32_t hufSize = static_cast<int32_t>(b.size());
        const std::vector<uint8_t> expected = b.bytes(0);
        std::vector<uint8_t> out(expected.size() + 16, kCanary);
        if (offset) out[0] = 0;  // the caller's byte: its bits after the cursor are 0
        uint8_t* p = out.data();
        int32_t off = offset;
        ASSERT_EQ(zamsHuffmanEncode_MP3_32s1u(g.values.data(), &p, &off, &g.h, &g.si, g.count1Lines, hufSize), zamStsOk);
        ASSERT_EQ((p - out.data()) * 8 + off - offset, hufSize) << "iteration " << iter;
        ASSERT_TRUE(std::equal(expected.begin(), expected.end(), out.begin())) << "iteration " << iter;
        EXPECT_EQ(out[expected.size()], kCanary);
    }
}

TEST(Mp3HuffmanEncode, ClipsWhatTheTableCannotCarry)
{
    Mp3SideInfo si = normal(2, 1, 0, 0, 0, 0, 0);
    int32_t values[576] = {5, -3, 0, 2, 7};  // table 1 carries magnitudes up to 1; line 4 is a count-1 line
    uint8_t out[16] = {};
    uint8_t* p = out;
    int32_t off = 0;
    const Mp3FrameHeader h = header(1);
    ASSERT_EQ(zamsHuffmanEncode_MP3_32s1u(values, &p, &off, &h, &si, 4, 0), zamStsOk);
    si.part2_3_length = static_cast<int32_t>((p - out) * 8 + off);
    const Result r = decode(Which::Decode, std::vector<uint8_t>(out, out + 16), 0, si, h, si.part2_3_length);
    ASSERT_EQ(r.status, zamStsOk);
    EXPECT_EQ(std::vector<int32_t>(r.values, r.values + 8), (std::vector<int32_t>{1, -1, 0, 1, 1, 0, 0, 0}));
}

// ----------------------------------------------------------------------------
// Argument checks: status, order, and nothing written.

#define MUTATE(body) [](Mp3SideInfo& s, Mp3FrameHeader& h, int32_t& o, int32_t& n) { (void)s, (void)h, (void)o, (void)n; body; }

struct BadCase {
    const char* name;
    void (*mutate)(Mp3SideInfo&, Mp3FrameHeader&, int32_t& offset, int32_t& hufSize);
    ZamStatus sfb;  // Decode and Sfb
    ZamStatus mbp;  // SfbMbp
};

const BadCase kBadCases[] = {
    {"offset8", MUTATE(o = 8), zamStsBadArg, zamStsBadArg},
    {"offsetNegative", MUTATE(o = -1), zamStsBadArg, zamStsBadArg},
    {"hufNegative", MUTATE(n = -1), zamStsBadArg, zamStsMp3SideInfoErr},
    {"hufAbovePart23", MUTATE(n = s.part2_3_length + 1), zamStsBadArg, zamStsMp3SideInfoErr},
    {"bigValues289", MUTATE(s.big_values = 289), zamStsMp3SideInfoErr, zamStsMp3SideInfoErr},
    {"bigValuesNegative", MUTATE(s.big_values = -1), zamStsMp3SideInfoErr, zamStsMp3SideInfoErr},
    {"blockType4", MUTATE(s.block_type = 4), zamStsMp3SideInfoErr, zamStsMp3SideInfoErr},
    {"switching2", MUTATE(s.window_switching_flag = 2), zamStsMp3SideInfoErr, zamStsMp3SideInfoErr},
    {"count1Table2", MUTATE(s.count1table_select = 2), zamStsMp3SideInfoErr, zamStsMp3SideInfoErr},
    {"id2", MUTATE(h.ID = 2), zamStsMp3FrameHeaderErr, zamStsMp3FrameHeaderErr},
    {"layer2", MUTATE(h.layer = 2), zamStsMp3FrameHeaderErr, zamStsMp3FrameHeaderErr},
    {"rate3", MUTATE(h.sampling_frequency = 3), zamStsMp3FrameHeaderErr, zamStsMp3FrameHeaderErr},
    {"switchingBlock0", MUTATE(s.window_switching_flag = 1; s.block_type = 0), zamStsMp3SideInfoErr,
     zamStsMp3SideInfoErr},
    {"region0Negative", MUTATE(s.region0_count = -1), zamStsMp3SideInfoErr, zamStsMp3SideInfoErr},
    {"regionSum21", MUTATE(s.region0_count = 15; s.region1_count = 6), zamStsMp3SideInfoErr, zamStsMp3SideInfoErr},
    {"table32", MUTATE(s.table_select[0] = 32), zamStsMp3SideInfoErr, zamStsMp3SideInfoErr},
    // Order: the offset before the side information; the budget is a bad argument before
    // everything else for Decode/Sfb, and after the header for SfbMbp.
    {"offsetAndBigValues", MUTATE(o = 9; s.big_values = 300), zamStsBadArg, zamStsBadArg},
    {"idAndBigValues", MUTATE(h.ID = 3; s.big_values = 300), zamStsMp3SideInfoErr, zamStsMp3FrameHeaderErr},
    {"hufAndBigValues", MUTATE(n = -5; s.big_values = 300), zamStsBadArg, zamStsMp3SideInfoErr},
    {"count1AndLayer", MUTATE(s.count1table_select = 5; h.layer = 0), zamStsMp3SideInfoErr, zamStsMp3FrameHeaderErr},
    {"hufAndLayer", MUTATE(n = 5000; h.layer = 3), zamStsBadArg, zamStsMp3FrameHeaderErr},
    {"switchingBlock0AndLayer", MUTATE(s.window_switching_flag = 1; s.block_type = 0; h.layer = 2),
     zamStsMp3FrameHeaderErr, zamStsMp3SideInfoErr},
};

class Mp3HuffmanBadArgs : public ::testing::TestWithParam<BadCase> {};

TEST_P(Mp3HuffmanBadArgs, StatusAndNothingWritten)
{
    const BadCase c = GetParam();
    for (const Which w : kAllDecoders) {
        Mp3SideInfo si = normal(10, 1, 2, 3, 2, 2, 0);
        si.part2_3_length = 100;
        Mp3FrameHeader h = header(1);
        int32_t offset = 2, hufSize = 90;
        c.mutate(si, h, offset, hufSize);
        const Result r = decode(w, std::vector<uint8_t>(64, 0x5A), offset, si, h, hufSize);
        EXPECT_EQ(r.status, w == Which::SfbMbp ? c.mbp : c.sfb) << int(w);
        EXPECT_EQ(r.bits, 0);
        EXPECT_TRUE(zamtest::untouched(r.values, 576));
        EXPECT_TRUE(zamtest::untouched(&r.bound, 1));
    }
}

INSTANTIATE_TEST_SUITE_P(Mp3, Mp3HuffmanBadArgs, ::testing::ValuesIn(kBadCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Mp3HuffmanDecodeErrors, NullPointersComeFirst)
{
    std::vector<uint8_t> stream(16, 0);
    const uint8_t *p = stream.data(), *none = nullptr;
    int32_t off = 0, badOff = 9, v[576], bound;
    const Mp3SideInfo si = normal(0, 0, 0, 0, 0, 0, 0);
    const Mp3FrameHeader h = header(1);
    const int16_t *lt = isoBands().longTable, *st = isoBands().shortTable;
    const ZamStatus statuses[] = {
        zamsHuffmanDecode_MP3_1u32s(nullptr, &off, v, &bound, &si, &h, 0),
        zamsHuffmanDecode_MP3_1u32s(&p, nullptr, v, &bound, &si, &h, 0),
        zamsHuffmanDecode_MP3_1u32s(&p, &off, nullptr, &bound, &si, &h, 0),
        zamsHuffmanDecode_MP3_1u32s(&p, &off, v, nullptr, &si, &h, 0),
        zamsHuffmanDecode_MP3_1u32s(&p, &off, v, &bound, nullptr, &h, 0),
        zamsHuffmanDecode_MP3_1u32s(&p, &off, v, &bound, &si, nullptr, 0),
        zamsHuffmanDecode_MP3_1u32s(&none, &off, v, &bound, &si, &h, 0),
        zamsHuffmanDecode_MP3_1u32s(&p, &badOff, v, nullptr, &si, &h, -1),  // wins over every other fault
        zamsHuffmanDecodeSfb_MP3_1u32s(&p, &off, v, &bound, &si, &h, 0, nullptr),
        zamsHuffmanDecodeSfb_MP3_1u32s(&none, &off, v, &bound, &si, &h, 0, lt),
        zamsHuffmanDecodeSfbMbp_MP3_1u32s(&p, &off, v, &bound, &si, &h, 0, lt, nullptr, isoBands().mbp),
        zamsHuffmanDecodeSfbMbp_MP3_1u32s(&p, &off, v, &bound, &si, &h, 0, lt, st, nullptr),
    };
    for (size_t i = 0; i < std::size(statuses); ++i) EXPECT_EQ(statuses[i], zamStsNullPtr) << "call " << i;
}

TEST(Mp3HuffmanDecodeErrors, ZeroBudgetChecksTablesInUseThenClears)
{
    const std::vector<uint8_t> stream(16, 0xFF);
    const Result r = decode(Which::Decode, stream, 0, normal(100, 1, 2, 40, 0, 0, 0), header(1), 0);
    EXPECT_EQ(r.status, zamStsMp3SideInfoErr);
    EXPECT_TRUE(zamtest::untouched(r.values, 576));
    // A window-switching granule has no region 2: its table number is not in use.
    Mp3SideInfo ws = switching(100, 2, 0, 1, 2, 0);
    ws.table_select[2] = 40;
    for (const Which w : kAllDecoders) {
        const Result z = decode(w, stream, 5, ws, header(1), 0);
        ASSERT_EQ(z.status, zamStsOk);
        EXPECT_EQ(z.bits, 0);
        EXPECT_EQ(std::count(z.values, z.values + 576, 0), 576);
        EXPECT_EQ(z.bound, 0);
    }
}

TEST(Mp3HuffmanDecodeErrors, FailuresPartWay)
{
    // A bad table in region 1 is found when reached: region 0 (lines 0..3, table 1,
    // "010" "011" -> 1, 0, -1, 0) stays, nothing else is written.
    mp3test::Bits b;
    b.put("010011");
    const Result r = decode(Which::Decode, b.bytes(), 0, normal(4, 1, 33, 0, 0, 0, 0), header(1), 20);
    EXPECT_EQ(r.status, zamStsMp3SideInfoErr);
    EXPECT_EQ(r.bits, 6);
    EXPECT_EQ(std::vector<int32_t>(r.values, r.values + 4), (std::vector<int32_t>{1, 0, -1, 0}));
    EXPECT_TRUE(zamtest::untouched(r.values + 4, 572));
    EXPECT_TRUE(zamtest::untouched(&r.bound, 1));
    // Big values running over the budget: 8 pairs of table 1 "000" + two signs = 40 bits, budget 30.
    mp3test::Bits c;
    c.put(repeat("00000", 8));
    for (const Which w : kAllDecoders) {
        const Result o = decode(w, c.bytes(), 1, normal(8, 1, 1, 1, 0, 0, 0), header(1), 30);
        EXPECT_EQ(o.status, zamStsBadData);
        EXPECT_EQ(o.bits, 40);  // the cursor stands after the big-values zone
        EXPECT_EQ(o.values[15], 1);
        EXPECT_TRUE(zamtest::untouched(o.values + 16, 560));
        EXPECT_TRUE(zamtest::untouched(&o.bound, 1));
    }
}

TEST(Mp3HuffmanEncodeErrors, ChecksInOrder)
{
    int32_t values[576] = {};
    uint8_t out[16];
    std::memset(out, kCanary, sizeof out);
    uint8_t *p = out, *none = nullptr;
    int32_t off = 0, off8 = 8;
    const Mp3FrameHeader h1 = header(1), h0 = header(0), rate3 = header(1, 3);
    Mp3FrameHeader layer2 = header(1);
    layer2.layer = 2;
    const Mp3SideInfo si = normal(2, 1, 1, 1, 0, 0, 0);
    Mp3SideInfo bv = si, regions = si, count1 = si;
    bv.big_values = 289;
    regions.region0_count = 15;
    regions.region1_count = 6;
    count1.count1table_select = 2;
    const std::pair<ZamStatus, ZamStatus> calls[] = {
        {zamsHuffmanEncode_MP3_32s1u(nullptr, &p, &off, &h1, &si, 0, 0), zamStsNullPtr},
        {zamsHuffmanEncode_MP3_32s1u(values, nullptr, &off, &h1, &si, 0, 0), zamStsNullPtr},
        {zamsHuffmanEncode_MP3_32s1u(values, &none, &off, &h1, &si, 0, 0), zamStsNullPtr},
        {zamsHuffmanEncode_MP3_32s1u(values, &p, nullptr, &h1, &si, 0, 0), zamStsNullPtr},
        {zamsHuffmanEncode_MP3_32s1u(values, &p, &off, nullptr, &si, 0, 0), zamStsNullPtr},
        {zamsHuffmanEncode_MP3_32s1u(values, &p, &off, &h1, nullptr, 0, 0), zamStsNullPtr},
        {zamsHuffmanEncode_MP3_32s1u(values, &p, &off8, &h1, &bv, 0, 0), zamStsBadArg},
        {zamsHuffmanEncode_MP3_32s1u(values, &p, &off, &h0, &bv, 0, 0), zamStsMp3SideInfoErr},
        {zamsHuffmanEncode_MP3_32s1u(values, &p, &off, &h0, &regions, 0, 0), zamStsMp3SideInfoErr},
        {zamsHuffmanEncode_MP3_32s1u(values, &p, &off, &h0, &count1, 0, 0), zamStsMp3SideInfoErr},
        {zamsHuffmanEncode_MP3_32s1u(values, &p, &off, &h0, &si, 0, 0), zamStsMp3FrameHeaderErr},  // MPEG-1 only
        {zamsHuffmanEncode_MP3_32s1u(values, &p, &off, &rate3, &si, 0, 0), zamStsMp3FrameHeaderErr},
        {zamsHuffmanEncode_MP3_32s1u(values, &p, &off, &layer2, &si, 0, 0), zamStsMp3FrameHeaderErr},
    };
    for (size_t i = 0; i < std::size(calls); ++i) EXPECT_EQ(calls[i].first, calls[i].second) << "call " << i;
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
    uint8_t out[32] = {};
    uint8_t* p = out;
    int32_t off = 0;
    const Mp3FrameHeader h = header(1);
    EXPECT_EQ(zamsHuffmanEncode_MP3_32s1u(values, &p, &off, &h, &si, 0, 0), zamStsMp3SideInfoErr);
    EXPECT_EQ((p - out) * 8 + off, 3 + 19);  // 20 pairs of table 1: (1,0) "01" + sign, then 19 x "1"
    // Stuffing after 3 bits at offset 3: 1-bits to hufSize; the caller's first bits stay.
    si = normal(1, 1, 0, 0, 0, 0, 0);
    std::memset(out, 0, sizeof out);
    out[0] = 0xA0;  // "101" before the cursor
    p = out;
    off = 3;
    ASSERT_EQ(zamsHuffmanEncode_MP3_32s1u(values, &p, &off, &h, &si, 0, 30), zamStsOk);
    EXPECT_EQ((p - out) * 8 + off, 33);
    EXPECT_EQ(std::vector<int>(out, out + 5), (std::vector<int>{0xAB, 0xFF, 0xFF, 0xFF, 0x80}));  // 101 | 010 | 1...
}

// Random side information and data in a heap buffer that ends three bytes after the byte
// holding the budget's last bit: the sanitizer build catches any read beyond what the
// decoders may touch, also for data that overruns the budget.
TEST(Mp3HuffmanDecodeErrors, ReadsStayWithinThreeBytesOfTheBudget)
{
    std::mt19937 gen(29);
    auto rnd = [&](int n) { return static_cast<int>(gen() % n); };
    int badData = 0, ok = 0;
    for (int iter = 0; iter < 3000; ++iter) {
        Mp3SideInfo si = normal(rnd(289), rnd(32), rnd(32), rnd(32), rnd(16), rnd(5), rnd(2));
        if (rnd(3) == 0)
            si = switching(si.big_values, 1 + rnd(3), rnd(2), si.table_select[0], si.table_select[1], si.count1table_select);
        const int32_t hufSize = 1 + rnd(iter % 2 ? 64 : 2000);
        si.part2_3_length = hufSize;
        const int offset = rnd(8);
        std::vector<uint8_t> bytes(static_cast<size_t>((offset + hufSize + 7) / 8 + 3));
        for (auto& b : bytes) b = static_cast<uint8_t>(gen());
        for (const Which w : kAllDecoders) {
            const Result r = decode(w, bytes, offset, si, header(rnd(2), 1), hufSize);
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
