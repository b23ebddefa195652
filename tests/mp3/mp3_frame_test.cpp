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

TEST(Mp3FrameHeader, UnpackHandMadeBytes)
{
    const struct {
        uint8_t bytes[8];
        int consumed;
        int32_t fields[13];  // crc_check -1: not written
    } cases[] = {
        // 1111 1111 | 1111 1011 | 1001 0110 | 0110 0101
        {{0xFF, 0xFB, 0x96, 0x65, 0x12, 0x34}, 4, {1, 1, 1, 9, 1, 1, 0, 1, 2, 0, 1, 1, -1}},
        // Sync bits all zero are not looked at; protection 0: a big-endian CRC word.
        {{0x00, 0x02, 0x00, 0xC0, 0xAB, 0xCD}, 6, {0, 1, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0, 0xABCD}},
    };
    for (const auto& c : cases) {
        const uint8_t* p = c.bytes;
        Mp3FrameHeader h;
        std::memset(&h, kCanary, sizeof h);
        ASSERT_EQ(zamsUnpackFrameHeader_MP3(&p, &h), zamStsOk);
        EXPECT_EQ(p, c.bytes + c.consumed);
        EXPECT_EQ(std::memcmp(&h, c.fields, 48), 0);
        if (c.fields[12] < 0) EXPECT_TRUE(canaryRecord(&h.crc_check, 4));
        else EXPECT_EQ(h.crc_check, c.fields[12]);
    }
    // Null pointers: nothing written, nothing moved.
    const uint8_t* p = cases[0].bytes;
    const uint8_t* none = nullptr;
    Mp3FrameHeader h;
    std::memset(&h, kCanary, sizeof h);
    EXPECT_EQ(zamsUnpackFrameHeader_MP3(nullptr, &h), zamStsNullPtr);
    EXPECT_EQ(zamsUnpackFrameHeader_MP3(&p, nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsUnpackFrameHeader_MP3(&none, &h), zamStsNullPtr);
    EXPECT_TRUE(canaryRecord(&h, sizeof h));
    EXPECT_EQ(p, cases[0].bytes);
    uint8_t out[8];
    uint8_t *o = out, *noOut = nullptr;
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
        Mp3FrameHeader in, out;
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
        std::memset(&out, kCanary, sizeof out);
        const uint8_t* r = bytes;
        ASSERT_EQ(zamsUnpackFrameHeader_MP3(&r, &out), zamStsOk);
        EXPECT_EQ(std::memcmp(&out, &in, in.protection_bit ? 48 : 52), 0);
    }
    // Oversized values are cut to their widths; protection 2 is written as 0.
    Mp3FrameHeader big = header(3, 7);
    big.bitrate_index = 0x1F;
    big.protection_bit = 2;
    big.crc_check = 0x12345;
    uint8_t bytes[8] = {};
    uint8_t* w = bytes;
    ASSERT_EQ(zamsPackFrameHeader_MP3(&big, &w), zamStsOk);
    EXPECT_EQ(w - bytes, 6);
    EXPECT_EQ(std::vector<int>(bytes, bytes + 6), (std::vector<int>{0xFF, 0xFA, 0xF0, 0xC0, 0x23, 0x45}));
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
    si.block_type = si.window_switching_flag ? 1 + static_cast<int32_t>(gen() % 3) : 0;
    si.mixed_block_flag = si.window_switching_flag ? bits(1) : 0;
    for (int k = 0; k < 3; ++k) si.table_select[k] = k < 2 || !si.window_switching_flag ? bits(5) : 0;
    for (int k = 0; k < 3; ++k) si.subblock_gain[k] = si.window_switching_flag ? bits(3) : 0;
    si.region0_count = si.window_switching_flag ? 0 : bits(4);
    si.region1_count = si.window_switching_flag ? 0 : bits(3);
    si.preflag = mpeg1 ? bits(1) : 0;
    si.scalefac_scale = bits(1);
    si.count1table_select = bits(1);
}

struct SideInfoCase {
    int id, mode, bytes, records;
};

class Mp3SideInfoLayout : public ::testing::TestWithParam<SideInfoCase> {};

// Round trips; fields the stream does not carry are implied (region counts of window
// switching) or left untouched (table_select[2], subblock_gain, MPEG-2 preflag and scfsi).
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
        EXPECT_EQ(std::memcmp(outScfsi, scfsi, mpeg1 ? 16 * nch : 0), 0);
        EXPECT_TRUE(canaryRecord(outScfsi + (mpeg1 ? 4 * nch : 0), mpeg1 ? 4 : sizeof outScfsi));
        EXPECT_TRUE(canaryRecord(&out[c.records], sizeof(Mp3SideInfo)));
        for (int k = 0; k < c.records; ++k) {
            Mp3SideInfo expected = in[k];
            const Mp3SideInfo& b = out[k];
            if (expected.window_switching_flag) {
                const bool shortOnly = expected.block_type == 2 && expected.mixed_block_flag == 0;
                expected.region0_count = shortOnly ? 8 : 7;
                expected.region1_count = shortOnly ? 12 : 13;
                EXPECT_TRUE(canaryRecord(&b.table_select[2], 4));
                std::memcpy(&expected.table_select[2], &b.table_select[2], 4);
            } else {
                EXPECT_TRUE(canaryRecord(b.subblock_gain, 12));
                std::memcpy(expected.subblock_gain, b.subblock_gain, 12);
            }
            if (!mpeg1) {
                EXPECT_TRUE(canaryRecord(&b.preflag, 4));
                expected.preflag = b.preflag;
            }
            EXPECT_EQ(std::memcmp(&b, &expected, sizeof b), 0) << "record " << k;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Mp3, Mp3SideInfoLayout,
                         ::testing::Values(SideInfoCase{1, 3, 17, 2}, SideInfoCase{1, 0, 32, 4},
                                           SideInfoCase{1, 1, 32, 4}, SideInfoCase{1, 2, 32, 4},
                                           SideInfoCase{0, 3, 9, 1}, SideInfoCase{0, 1, 17, 2}));

TEST(Mp3SideInfo, CheckOrderAndNothingWritten)
{
    uint8_t bytes[40];
    std::memset(bytes, kCanary, sizeof bytes);
    const uint8_t *r = bytes, *none = nullptr;
    uint8_t *w = bytes, *noOut = nullptr;
    Mp3SideInfo si[4];
    std::memset(si, kCanary, sizeof si);
    int32_t mdb = 0x5A5A, priv = 0x5A5A, scfsi[8];
    std::memset(scfsi, kCanary, sizeof scfsi);
    Mp3FrameHeader bad = header(5, 0);  // a header error too: pointer checks win
    const Mp3FrameHeader lsf = header(0, 0);
    std::vector<std::pair<ZamStatus, ZamStatus>> calls = {
        {zamsUnpackSideInfo_MP3(nullptr, si, &mdb, &priv, scfsi, &bad), zamStsNullPtr},
        {zamsUnpackSideInfo_MP3(&r, nullptr, &mdb, &priv, scfsi, &bad), zamStsNullPtr},
        {zamsUnpackSideInfo_MP3(&r, si, nullptr, &priv, scfsi, &bad), zamStsNullPtr},
        {zamsUnpackSideInfo_MP3(&r, si, &mdb, nullptr, scfsi, &bad), zamStsNullPtr},
        {zamsUnpackSideInfo_MP3(&r, si, &mdb, &priv, nullptr, &bad), zamStsNullPtr},
        {zamsUnpackSideInfo_MP3(&r, si, &mdb, &priv, scfsi, nullptr), zamStsNullPtr},
        {zamsUnpackSideInfo_MP3(&none, si, &mdb, &priv, scfsi, &bad), zamStsNullPtr},
        {zamsUnpackSideInfo_MP3(&r, si, &mdb, &priv, nullptr, &lsf), zamStsNullPtr},  // MPEG-2 needs it too
        {zamsPackSideInfo_MP3(nullptr, &w, 0, 0, scfsi, &bad), zamStsNullPtr},
        {zamsPackSideInfo_MP3(si, nullptr, 0, 0, scfsi, &bad), zamStsNullPtr},
        {zamsPackSideInfo_MP3(si, &noOut, 0, 0, scfsi, &bad), zamStsNullPtr},
        {zamsPackSideInfo_MP3(si, &w, 0, 0, nullptr, &bad), zamStsNullPtr},
        {zamsPackSideInfo_MP3(si, &w, 0, 0, scfsi, nullptr), zamStsNullPtr},
    };
    // Bad headers: both directions refuse before touching the stream.
    const int badHeaders[][3] = {{2, 1, 0}, {-1, 1, 0}, {1, 3, 0}, {0, 0, 0}, {1, 1, 4}, {0, 1, -1}};  // id, layer, mode
    for (const auto& b : badHeaders) {
        Mp3FrameHeader h = header(b[0], b[2]);
        h.layer = b[1];
        calls.push_back({zamsUnpackSideInfo_MP3(&r, si, &mdb, &priv, scfsi, &h), zamStsMp3FrameHeaderErr});
        calls.push_back({zamsPackSideInfo_MP3(si, &w, 0, 0, scfsi, &h), zamStsMp3FrameHeaderErr});
    }
    for (size_t i = 0; i < calls.size(); ++i) EXPECT_EQ(calls[i].first, calls[i].second) << "call " << i;
    EXPECT_EQ(r, bytes);
    EXPECT_EQ(w, bytes);
    EXPECT_TRUE(canaryRecord(bytes, sizeof bytes));
    EXPECT_TRUE(canaryRecord(si, sizeof si));
    EXPECT_TRUE(canaryRecord(scfsi, sizeof scfsi));
    EXPECT_EQ(mdb, 0x5A5A);
    EXPECT_EQ(priv, 0x5A5A);
}

// Window switching with the reserved block type 0: pack writes it and succeeds, unpack
// reads the window-switching group and then fails.
TEST(Mp3SideInfo, ReservedBlockTypeUnpackFailsPackStops)
{
    const Mp3FrameHeader h = header(1, 3);  // MPEG-1 single channel
    Mp3SideInfo in[2] = {};
    in[0].part2_3_length = 100;
    in[0].table_select[0] = 5;
    in[1].part2_3_length = 0xABC;
    in[1].big_values = 0x155;
    in[1].global_gain = 0x99;
    in[1].scalefac_compress = 7;
    in[1].window_switching_flag = 1;
    in[1].table_select[0] = 21;
    int32_t scfsi[4] = {1, 0, 1, 0}, mdb, priv, sc[4];
    uint8_t bytes[24];
    std::memset(bytes, kCanary, sizeof bytes);
    uint8_t* w = bytes;
    // 18 bits of frame fields + 59 bits of record 0 + 34 bits = 111 bits: the pointer stops
    // on byte 13, whose bit 6 (bit 110) is the window_switching_flag.
    ASSERT_EQ(zamsPackSideInfo_MP3(in, &w, 0x1FF, 3, scfsi, &h), zamStsOk);
    EXPECT_EQ(w - bytes, 13);
    EXPECT_EQ(bytes[13] & 0x03, 0x02);
    EXPECT_EQ(bytes[14], kCanary);
    std::memset(bytes + 14, 0, 10);
    Mp3SideInfo out[2];
    std::memset(out, kCanary, sizeof out);
    const uint8_t* r = bytes;
    ASSERT_EQ(zamsUnpackSideInfo_MP3(&r, out, &mdb, &priv, sc, &h), zamStsMp3SideInfoErr);
    EXPECT_EQ(mdb, 0x1FF);
    EXPECT_EQ(out[0].part2_3_length, 100);
    EXPECT_EQ(out[0].table_select[0], 5);
    EXPECT_EQ(out[1].part2_3_length, 0xABC);
    EXPECT_EQ(out[1].big_values, 0x155);
    EXPECT_EQ(out[1].window_switching_flag, 1);
    EXPECT_EQ(out[1].block_type, 0);
    EXPECT_EQ(r - bytes, 16);  // 111 + 22 bits of the window-switching group = 133 bits
    EXPECT_TRUE(canaryRecord(&out[1].region0_count, 4));
    EXPECT_TRUE(canaryRecord(&out[1].scalefac_scale, 4));
    // MPEG-2: 8 + 1 + 39 = 48 bits, exactly six bytes.
    const Mp3FrameHeader h2 = header(0, 3);
    Mp3SideInfo lsf[1] = {};
    lsf[0].window_switching_flag = 1;
    lsf[0].part2_3_length = 0xFFF;
    std::memset(bytes, kCanary, sizeof bytes);
    w = bytes;
    ASSERT_EQ(zamsPackSideInfo_MP3(lsf, &w, 0, 0, scfsi, &h2), zamStsOk);
    EXPECT_EQ(w - bytes, 6);
    EXPECT_EQ(bytes[6], kCanary);
}

}  // namespace
