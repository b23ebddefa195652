// The quantizer's promise: the bits it reports are exactly what the scale-factor
// packer and the Huffman encoder write, they never exceed the budget, and the
// decoder reads back the same values and scale factors (MPEG-1 and MPEG-2).
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "test_support.h"
#include "zamac.h"

namespace {

struct Case {
    int row, blockType, budget;
};

class Mp3Quantize : public ::testing::TestWithParam<Case> {};

TEST_P(Mp3Quantize, ReportedBitsAreWrittenAndDecodeBack)
{
    const Case c = GetParam();
    const Mp3FrameHeader h{c.row / 3, 1, 1, 9, c.row % 3, 0, 0, 1, 0, 0, 0, 0, 0};
    std::mt19937 g(c.row * 100 + c.blockType * 10 + c.budget);
    std::normal_distribution<double> d(0, 1);
    for (int trial = 0; trial < 6; ++trial) {
        int32_t lines[576], xmin[39];
        const double level = std::pow(10.0, 2.5 + trial * 0.6);
        for (int i = 0; i < 576; ++i) lines[i] = static_cast<int32_t>(level * d(g) * 576.0 / (i + 20));
        for (int b = 0; b < 39; ++b) xmin[b] = static_cast<int32_t>(256 * (20 * std::log10(level) - 5 - b));
        Mp3SideInfo si{};
        si.window_switching_flag = c.blockType != 0;
        si.block_type = c.blockType;
        int8_t sf[39];
        int32_t count1Len = -1, hufSize = -1;
        int32_t ix[576];
        std::copy(lines, lines + 576, ix);
        ASSERT_EQ(zamsQuantize_MP3_32s_I(ix, xmin, sf, &si, &count1Len, &hufSize, c.budget, &h), zamStsOk);
        ASSERT_LE(si.part2_3_length, c.budget);

        std::vector<uint8_t> buf(1024, 0);
        uint8_t* p = buf.data();
        int32_t off = 0;
        const int32_t scfsi[8] = {};
        Mp3SideInfo packed = si;
        ASSERT_EQ(zamsPackScaleFactors_MP3_8s1u(sf, &p, &off, &h, &packed, scfsi, 0, 0), zamStsOk);
        const int part2 = static_cast<int>((p - buf.data()) * 8 + off);
        EXPECT_EQ(part2, si.part2_3_length - hufSize);
        Mp3FrameHeader writeHeader = h;
        writeHeader.ID = 1;  // MPEG-2 granules use one table, so MPEG-1 regions write the same bits
        ASSERT_EQ(zamsHuffmanEncode_MP3_32s1u(ix, &p, &off, &writeHeader, &si, count1Len, hufSize), zamStsOk);
        EXPECT_EQ(static_cast<int>((p - buf.data()) * 8 + off), si.part2_3_length);

        const uint8_t* r = buf.data();
        int32_t roff = 0, nz = 0, decoded[576];
        int8_t sfBack[39];
        Mp3SideInfo read = si;
        ASSERT_EQ(zamsUnpackScaleFactors_MP3_1u8s(&r, &roff, sfBack, &read, scfsi, &h, 0, 0), zamStsOk);
        ASSERT_EQ(zamsHuffmanDecode_MP3_1u32s(&r, &roff, decoded, &nz, &read, &h, hufSize), zamStsOk);
        for (int i = 0; i < 576; ++i) ASSERT_EQ(decoded[i], ix[i]) << "line " << i << " trial " << trial;
        const int sfCount = c.blockType == 2 ? 36 : 21;
        for (int i = 0; i < sfCount; ++i) ASSERT_EQ(sfBack[i], sf[i]) << "scale factor " << i;
        for (int i = 0; i < 576; ++i) ASSERT_TRUE(ix[i] == 0 || (ix[i] < 0) == (lines[i] < 0));
    }
}

INSTANTIATE_TEST_SUITE_P(RowsBlocksBudgets, Mp3Quantize,
                         ::testing::Values(Case{3, 0, 700}, Case{3, 2, 700}, Case{4, 0, 3000}, Case{5, 1, 200},
                                           Case{3, 3, 4095}, Case{0, 0, 500}, Case{1, 2, 900}, Case{2, 0, 0},
                                           Case{2, 3, 1500}));

TEST(Mp3QuantizeChecks, InOrderWritingNothing)
{
    int32_t lines[576] = {}, xmin[39] = {}, c1, hs;
    int8_t sf[39];
    Mp3SideInfo si{};
    const Mp3FrameHeader h{1, 1, 1, 9, 0, 0, 0, 1, 0, 0, 0, 0, 0};
    EXPECT_EQ(zamsQuantize_MP3_32s_I(lines, nullptr, sf, &si, &c1, &hs, 100, &h), zamStsNullPtr);
    EXPECT_EQ(zamsQuantize_MP3_32s_I(lines, xmin, sf, &si, &c1, &hs, 4096, &h), zamStsBadArg);
    si.mixed_block_flag = 1;
    EXPECT_EQ(zamsQuantize_MP3_32s_I(lines, xmin, sf, &si, &c1, &hs, 100, &h), zamStsMp3SideInfoErr);
    EXPECT_EQ(si.part2_3_length, 0);
}

}  // namespace
