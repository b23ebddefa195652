// Frame header and side information: hand-made bytes, round trips, the implied
// fields, check order, and the pack/unpack asymmetry of the reserved block type.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "test_support.h"
#include "zamac.h"

namespace {

using zamtest::kCanary;

Mp3FrameHeader header(int id, int mode)
{
    Mp3FrameHeader h{};
    h.ID = id;
    h.layer = 1;
    h.protection_bit = 1;
    h.mode = mode;
    return h;
}

bool canaryRecord(const void* p, size_t bytes) { return zamtest::untouched(static_cast<const uint8_t*>(p), bytes); }

TEST(Mp3FrameHeader, UnpackFieldsWithoutCrc)
{
    // 1111 1111 | 1111 1011 | 1001 0110 | 0110 0101: ID 1, layer 1, protection 1,
    // bit rate 9, rate 1, padding 1, private 0, mode 1, extension 2, copyright 0,
    // original 1, emphasis 1.
    const uint8_t bytes[8] = {0xFF, 0xFB, 0x96, 0x65, 0x12, 0x34, 0, 0};
    const uint8_t* p = bytes;
    Mp3FrameHeader h;
    std::memset(&h, kCanary, sizeof h);
    ASSERT_EQ(zamsUnpackFrameHeader_MP3(&p, &h), zamStsOk);
    EXPECT_EQ(p, bytes + 4);
    const int32_t expected[12] = {1, 1, 1, 9, 1, 1, 0, 1, 2, 0, 1, 1};
    EXPECT_EQ(std::memcmp(&h, expected, sizeof expected), 0);
    EXPECT_TRUE(canaryRecord(&h.crc_check, 4));
}

TEST(Mp3FrameHeader, UnpackCrcBigEndianAndSyncNotLookedAt)
{
    // Sync bits all zero: still parsed. ID 0, layer 1, protection 0.
    const uint8_t bytes[10] = {0x00, 0x02, 0x00, 0xC0, 0xAB, 0xCD, 0, 0, 0, 0};
    const uint8_t* p = bytes;
    Mp3FrameHeader h{};
    ASSERT_EQ(zamsUnpackFrameHeader_MP3(&p, &h), zamStsOk);
    EXPECT_EQ(p, bytes + 6);
    EXPECT_EQ(h.ID, 0);
    EXPECT_EQ(h.layer, 1);
    EXPECT_EQ(h.protection_bit, 0);
    EXPECT_EQ(h.mode, 3);
    EXPECT_EQ(h.crc_check, 0xABCD);
}

TEST(Mp3FrameHeader, NullPointersWriteNothing)
{
    const uint8_t bytes[8] = {0xFF, 0xFB, 0x90, 0x64};
    const uint8_t* p = bytes;
    const uint8_t* none = nullptr;
    Mp3FrameHeader h;
    std::memset(&h, kCanary, sizeof h);
    EXPECT_EQ(zamsUnpackFrameHeader_MP3(nullptr, &h), zamStsNullPtr);
    EXPECT_EQ(zamsUnpackFrameHeader_MP3(&p, nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsUnpackFrameHeader_MP3(&none, &h), zamStsNullPtr);
    EXPECT_TRUE(canaryRecord(&h, sizeof h));
    EXPECT_EQ(p, bytes);
    uint8_t out[8];
    uint8_t* o = out;
    uint8_t* noOut = nullptr;
    EXPECT_EQ(zamsPackFrameHeader_MP3(nullptr, &o), zamStsNullPtr);
    EXPECT_EQ(zamsPackFrameHeader_MP3(&h, nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsPackFrameHeader_MP3(&h, &noOut), zamStsNullPtr);
    EXPECT_EQ(o, out);
}

TEST(Mp3FrameHeader, PackUnpackRoundTripAndMasking)
{
    std::mt19937 gen(3);
    const int widths[13] = {1, 2, 1, 4, 2, 1, 1, 2, 2, 1, 1, 2, 16};
    for (int iter = 0; iter < 300; ++iter) {
        int32_t fields[13];
        for (int k = 0; k < 13; ++k) fields[k] = static_cast<int32_t>(gen() & ((1u << widths[k]) - 1));
        Mp3FrameHeader in;
        std::memcpy(&in, fields, sizeof in);
        uint8_t bytes[12];
        std::memset(bytes, kCanary, sizeof bytes);
        uint8_t* w = bytes;
        ASSERT_EQ(zamsPackFrameHeader_MP3(&in, &w), zamStsOk);
        const int size = in.protection_bit ? 4 : 6;
        ASSERT_EQ(w - bytes, size);
        EXPECT_EQ(bytes[0], 0xFF);
        EXPECT_EQ(bytes[1] >> 4, 0xF);
        EXPECT_EQ(bytes[size], kCanary);
        Mp3FrameHeader out;
        std::memset(&out, kCanary, sizeof out);
        const uint8_t* r = bytes;
        ASSERT_EQ(zamsUnpackFrameHeader_MP3(&r, &out), zamStsOk);
        EXPECT_EQ(std::memcmp(&out, &in, in.protection_bit ? 48 : 52), 0);
    }
    // Oversized values are cut to their widths.
    Mp3FrameHeader big = header(3, 7);
    big.bitrate_index = 0x1F;
    big.protection_bit = 2;  // written as 0: the CRC word follows
    big.crc_check = 0x12345;
    uint8_t bytes[8] = {};
    uint8_t* w = bytes;
    ASSERT_EQ(zamsPackFrameHeader_MP3(&big, &w), zamStsOk);
    EXPECT_EQ(w - bytes, 6);
    EXPECT_EQ(bytes[1], 0xFA);
    EXPECT_EQ(bytes[2] >> 4, 0xF);
    EXPECT_EQ(bytes[3] >> 6, 3);
    EXPECT_EQ(bytes[4], 0x23);
    EXPECT_EQ(bytes[5], 0x45);
}

// Side information records with in-range random values.
void randomRecord(std::mt19937& gen, Mp3SideInfo& si, bool mpeg1)
{
    auto bits = [&](int n) { return static_cast<int32_t>(gen() & ((1u << n) - 1)); };
    si.part2_3_length = bits(12);
    si.big_values = bits(9);
    si.global_gain = bits(8);
    si.scalefac_compress = bits(mpeg1 ? 4 : 9);
    si.window_switching_flag = bits(1);
    if (si.window_switching_flag) {
        si.block_type = 1 + static_cast<int32_t>(gen() % 3);
        si.mixed_block_flag = bits(1);
        si.table_select[0] = bits(5);
        si.table_select[1] = bits(5);
        for (int k = 0; k < 3; ++k) si.subblock_gain[k] = bits(3);
    } else {
        si.block_type = 0;
        si.mixed_block_flag = 0;
        for (int k = 0; k < 3; ++k) si.table_select[k] = bits(5);
        si.region0_count = bits(4);
        si.region1_count = bits(3);
    }
    si.preflag = mpeg1 ? bits(1) : 0;
    si.scalefac_scale = bits(1);
    si.count1table_select = bits(1);
}

struct SideInfoCase {
    int id, mode, bytes, records;
};

class Mp3SideInfoLayout : public ::testing::TestWithParam<SideInfoCase> {};

TEST_P(Mp3SideInfoLayout, RoundTripSizesAndUntouchedFields)
{
    const SideInfoCase c = GetParam();
    const bool mpeg1 = c.id == 1;
    const int nch = c.mode == 3 ? 1 : 2;
    const Mp3FrameHeader h = header(c.id, c.mode);
    std::mt19937 gen(11 + c.mode + 4 * c.id);
    for (int iter = 0; iter < 200; ++iter) {
        Mp3SideInfo in[4] = {};
        for (int k = 0; k < c.records; ++k) randomRecord(gen, in[k], mpeg1);
        int32_t scfsi[8] = {};
        for (int k = 0; k < 4 * nch; ++k) scfsi[k] = mpeg1 ? static_cast<int32_t>(gen() & 1) : 0;
        const int32_t mainDataBegin = static_cast<int32_t>(gen() & (mpeg1 ? 511 : 255));
        const int32_t privateBits = static_cast<int32_t>(gen() & ((1u << (mpeg1 ? (nch == 1 ? 5 : 3) : nch)) - 1));

        uint8_t bytes[48];
        std::memset(bytes, kCanary, sizeof bytes);
        uint8_t* w = bytes;
        ASSERT_EQ(zamsPackSideInfo_MP3(in, &w, mainDataBegin, privateBits, scfsi, &h), zamStsOk);
        ASSERT_EQ(w - bytes, c.bytes);
        EXPECT_EQ(bytes[c.bytes], kCanary);

        Mp3SideInfo out[5];
        std::memset(out, kCanary, sizeof out);
        int32_t outScfsi[9], mdb = -1, priv = -1;
        std::memset(outScfsi, kCanary, sizeof outScfsi);
        const uint8_t* r = bytes;
        ASSERT_EQ(zamsUnpackSideInfo_MP3(&r, out, &mdb, &priv, outScfsi, &h), zamStsOk);
        ASSERT_EQ(r - bytes, c.bytes);
        EXPECT_EQ(mdb, mainDataBegin);
        EXPECT_EQ(priv, privateBits);
        if (mpeg1) {
            EXPECT_EQ(std::memcmp(outScfsi, scfsi, 4 * nch * sizeof(int32_t)), 0);
            EXPECT_TRUE(canaryRecord(outScfsi + 4 * nch, sizeof(int32_t)));
        } else {
            EXPECT_TRUE(canaryRecord(outScfsi, sizeof outScfsi));
        }
        EXPECT_TRUE(canaryRecord(&out[c.records], sizeof(Mp3SideInfo)));
        for (int k = 0; k < c.records; ++k) {
            const Mp3SideInfo& a = in[k];
            const Mp3SideInfo& b = out[k];
            EXPECT_EQ(b.part2_3_length, a.part2_3_length);
            EXPECT_EQ(b.big_values, a.big_values);
            EXPECT_EQ(b.global_gain, a.global_gain);
            EXPECT_EQ(b.scalefac_compress, a.scalefac_compress);
            EXPECT_EQ(b.window_switching_flag, a.window_switching_flag);
            EXPECT_EQ(b.block_type, a.block_type);
            EXPECT_EQ(b.mixed_block_flag, a.mixed_block_flag);
            EXPECT_EQ(b.table_select[0], a.table_select[0]);
            EXPECT_EQ(b.table_select[1], a.table_select[1]);
            if (a.window_switching_flag) {
                EXPECT_TRUE(canaryRecord(&b.table_select[2], 4));
                EXPECT_EQ(std::memcmp(b.subblock_gain, a.subblock_gain, 12), 0);
                const bool shortOnly = a.block_type == 2 && a.mixed_block_flag == 0;
                EXPECT_EQ(b.region0_count, shortOnly ? 8 : 7);
                EXPECT_EQ(b.region1_count, shortOnly ? 12 : 13);
            } else {
                EXPECT_EQ(b.table_select[2], a.table_select[2]);
                EXPECT_TRUE(canaryRecord(b.subblock_gain, 12));
                EXPECT_EQ(b.region0_count, a.region0_count);
                EXPECT_EQ(b.region1_count, a.region1_count);
            }
            if (mpeg1) EXPECT_EQ(b.preflag, a.preflag);
            else EXPECT_TRUE(canaryRecord(&b.preflag, 4));
            EXPECT_EQ(b.scalefac_scale, a.scalefac_scale);
            EXPECT_EQ(b.count1table_select, a.count1table_select);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Mp3, Mp3SideInfoLayout,
                         ::testing::Values(SideInfoCase{1, 3, 17, 2}, SideInfoCase{1, 0, 32, 4},
                                           SideInfoCase{1, 1, 32, 4}, SideInfoCase{1, 2, 32, 4},
                                           SideInfoCase{0, 3, 9, 1}, SideInfoCase{0, 1, 17, 2}));

TEST(Mp3SideInfo, RecordOrderIsGranuleMajor)
{
    // MPEG-1 stereo: records (gr0,ch0), (gr0,ch1), (gr1,ch0), (gr1,ch1) carry
    // part2_3_length 1, 2, 3, 4 in stream order.
    const Mp3FrameHeader h = header(1, 0);
    Mp3SideInfo in[4] = {};
    for (int k = 0; k < 4; ++k) in[k].part2_3_length = k + 1;
    int32_t scfsi[8] = {};
    uint8_t bytes[40] = {};
    uint8_t* w = bytes;
    ASSERT_EQ(zamsPackSideInfo_MP3(in, &w, 0, 0, scfsi, &h), zamStsOk);
    // main_data_begin 9 + private 3 + scfsi 8 = 20 bits, then part2_3_length of
    // record 0: bits 20..31 = 000000000001.
    EXPECT_EQ(bytes[2], 0x00);
    EXPECT_EQ(bytes[3], 0x01);
    Mp3SideInfo out[4] = {};
    int32_t mdb, priv, sc[8];
    const uint8_t* r = bytes;
    ASSERT_EQ(zamsUnpackSideInfo_MP3(&r, out, &mdb, &priv, sc, &h), zamStsOk);
    for (int k = 0; k < 4; ++k) EXPECT_EQ(out[k].part2_3_length, k + 1);
}

struct BadHeaderCase {
    int id, layer, mode;
};

class Mp3SideInfoBadHeader : public ::testing::TestWithParam<BadHeaderCase> {};

TEST_P(Mp3SideInfoBadHeader, BothDirectionsRefuseBeforeTouchingTheStream)
{
    const BadHeaderCase c = GetParam();
    Mp3FrameHeader h = header(c.id, c.mode);
    h.layer = c.layer;
    uint8_t bytes[40];
    std::memset(bytes, kCanary, sizeof bytes);
    Mp3SideInfo si[4];
    std::memset(si, kCanary, sizeof si);
    int32_t mdb = 0x5A5A, priv = 0x5A5A, scfsi[8];
    std::memset(scfsi, kCanary, sizeof scfsi);
    const uint8_t* r = bytes;
    EXPECT_EQ(zamsUnpackSideInfo_MP3(&r, si, &mdb, &priv, scfsi, &h), zamStsMp3FrameHeaderErr);
    EXPECT_EQ(r, bytes);
    EXPECT_TRUE(canaryRecord(si, sizeof si));
    EXPECT_TRUE(canaryRecord(scfsi, sizeof scfsi));
    EXPECT_EQ(mdb, 0x5A5A);
    EXPECT_EQ(priv, 0x5A5A);
    uint8_t* w = bytes;
    Mp3SideInfo zero[4] = {};
    EXPECT_EQ(zamsPackSideInfo_MP3(zero, &w, 0, 0, scfsi, &h), zamStsMp3FrameHeaderErr);
    EXPECT_EQ(w, bytes);
    EXPECT_TRUE(canaryRecord(bytes, sizeof bytes));
}

INSTANTIATE_TEST_SUITE_P(Mp3, Mp3SideInfoBadHeader,
                         ::testing::Values(BadHeaderCase{2, 1, 0}, BadHeaderCase{-1, 1, 0}, BadHeaderCase{1, 3, 0},
                                           BadHeaderCase{0, 0, 0}, BadHeaderCase{1, 1, 4},
                                           BadHeaderCase{0, 1, -1}));

TEST(Mp3SideInfo, NullPointersComeFirst)
{
    Mp3FrameHeader bad = header(5, 0);  // a header error too: the pointer check wins
    uint8_t bytes[40] = {};
    const uint8_t* r = bytes;
    const uint8_t* none = nullptr;
    Mp3SideInfo si[4];
    int32_t mdb, priv, scfsi[8];
    EXPECT_EQ(zamsUnpackSideInfo_MP3(nullptr, si, &mdb, &priv, scfsi, &bad), zamStsNullPtr);
    EXPECT_EQ(zamsUnpackSideInfo_MP3(&r, nullptr, &mdb, &priv, scfsi, &bad), zamStsNullPtr);
    EXPECT_EQ(zamsUnpackSideInfo_MP3(&r, si, nullptr, &priv, scfsi, &bad), zamStsNullPtr);
    EXPECT_EQ(zamsUnpackSideInfo_MP3(&r, si, &mdb, nullptr, scfsi, &bad), zamStsNullPtr);
    EXPECT_EQ(zamsUnpackSideInfo_MP3(&r, si, &mdb, &priv, nullptr, &bad), zamStsNullPtr);
    EXPECT_EQ(zamsUnpackSideInfo_MP3(&r, si, &mdb, &priv, scfsi, nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsUnpackSideInfo_MP3(&none, si, &mdb, &priv, scfsi, &bad), zamStsNullPtr);
    // MPEG-2 still needs the scfsi pointer.
    const Mp3FrameHeader lsf = header(0, 0);
    EXPECT_EQ(zamsUnpackSideInfo_MP3(&r, si, &mdb, &priv, nullptr, &lsf), zamStsNullPtr);
    uint8_t* w = bytes;
    uint8_t* noOut = nullptr;
    EXPECT_EQ(zamsPackSideInfo_MP3(nullptr, &w, 0, 0, scfsi, &bad), zamStsNullPtr);
    EXPECT_EQ(zamsPackSideInfo_MP3(si, nullptr, 0, 0, scfsi, &bad), zamStsNullPtr);
    EXPECT_EQ(zamsPackSideInfo_MP3(si, &noOut, 0, 0, scfsi, &bad), zamStsNullPtr);
    EXPECT_EQ(zamsPackSideInfo_MP3(si, &w, 0, 0, nullptr, &bad), zamStsNullPtr);
    EXPECT_EQ(zamsPackSideInfo_MP3(si, &w, 0, 0, scfsi, nullptr), zamStsNullPtr);
    EXPECT_EQ(r, bytes);
    EXPECT_EQ(w, bytes);
}

TEST(Mp3SideInfo, ReservedBlockTypeUnpackFailsPackStops)
{
    // MPEG-1 single channel: record 0 normal, record 1 window switching with block type 0.
    const Mp3FrameHeader h = header(1, 3);
    Mp3SideInfo in[2] = {};
    in[0].part2_3_length = 100;
    in[0].table_select[0] = 5;
    in[1].part2_3_length = 0xABC;
    in[1].big_values = 0x155;
    in[1].global_gain = 0x99;
    in[1].scalefac_compress = 7;
    in[1].window_switching_flag = 1;
    in[1].block_type = 0;
    in[1].table_select[0] = 21;
    int32_t scfsi[4] = {1, 0, 1, 0};
    uint8_t bytes[24];
    std::memset(bytes, kCanary, sizeof bytes);
    uint8_t* w = bytes;
    // Pack: 18 bits of header fields + 59 bits of record 0 + 34 bits = 111 bits:
    // the pointer stops on byte 13 (bit 7 of it still free), and succeeds.
    ASSERT_EQ(zamsPackSideInfo_MP3(in, &w, 0x1FF, 3, scfsi, &h), zamStsOk);
    EXPECT_EQ(w - bytes, 13);
    EXPECT_EQ(bytes[13] & 0x03, 0x02);  // bit 110 is the window_switching_flag, then zeros
    EXPECT_EQ(bytes[14], kCanary);

    // Unpack of the same bytes: reads record 1's window-switching group, then fails.
    std::memset(bytes + 14, 0, 10);
    Mp3SideInfo out[2];
    std::memset(out, kCanary, sizeof out);
    int32_t mdb, priv, sc[4];
    const uint8_t* r = bytes;
    ASSERT_EQ(zamsUnpackSideInfo_MP3(&r, out, &mdb, &priv, sc, &h), zamStsMp3SideInfoErr);
    EXPECT_EQ(mdb, 0x1FF);
    EXPECT_EQ(out[0].part2_3_length, 100);
    EXPECT_EQ(out[0].table_select[0], 5);
    EXPECT_EQ(out[1].part2_3_length, 0xABC);
    EXPECT_EQ(out[1].big_values, 0x155);
    EXPECT_EQ(out[1].window_switching_flag, 1);
    EXPECT_EQ(out[1].block_type, 0);
    // 111 + 22 bits of the window-switching group = 133 bits: stopped inside byte 16.
    EXPECT_EQ(r - bytes, 16);
    EXPECT_TRUE(canaryRecord(&out[1].region0_count, 4));
    EXPECT_TRUE(canaryRecord(&out[1].scalefac_scale, 4));
}

TEST(Mp3SideInfo, ReservedBlockTypePackMpeg2Writes39Bits)
{
    const Mp3FrameHeader h = header(0, 3);
    Mp3SideInfo in[1] = {};
    in[0].window_switching_flag = 1;
    in[0].part2_3_length = 0xFFF;
    int32_t scfsi[4] = {};
    uint8_t bytes[16];
    std::memset(bytes, kCanary, sizeof bytes);
    uint8_t* w = bytes;
    ASSERT_EQ(zamsPackSideInfo_MP3(in, &w, 0, 0, scfsi, &h), zamStsOk);
    // 8 + 1 + 39 = 48 bits: exactly six bytes.
    EXPECT_EQ(w - bytes, 6);
    EXPECT_EQ(bytes[6], kCanary);
}

}  // namespace
