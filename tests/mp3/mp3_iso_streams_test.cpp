// Every granule of real streams (the ISO compliance streams, and MPEG-2.5 streams made by
// lame): header and side information pack back to the file's bytes, scale factors and
// Huffman data are consumed to the exact bit by all three decoders, which agree, and
// re-encoding reproduces the stream's bits.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "mp3/mp3_huffman.h"
#include "mp3_reference.h"
#include "mp3_stream.h"
#include "test_support.h"
#include "zamac.h"

namespace {

using mp3test::Frame;
using mp3test::Stream;

int64_t bitPosition(const uint8_t* base, const uint8_t* p, int32_t offset) { return (p - base) * 8 + offset; }

// Whether region 0 of a window-switching granule taken from the band tables (long band 8 for
// start and stop blocks, three short bands for short ones, the partition table for mixed
// ones) is the fixed 36 or 54 lines the built-in decoders use.
bool sameRegions(const Frame& f, const Mp3SideInfo& si, const mp3test::BandTables& bands)
{
    if (!si.window_switching_flag) return true;
    const int row = f.header.ID * 3 + f.header.sampling_frequency;
    const int fromBands = si.block_type != 2         ? bands.longTable[row * 23 + 8]
                          : si.mixed_block_flag == 0 ? 3 * bands.shortTable[row * 14 + 3]
                                                     : bands.longTable[row * 23 + bands.mbp[row * 2]];
    return fromBands == ((f.header.ID == 1 || si.block_type == 2) ? 36 : 54);
}

// The decoder whose regions are the stream's: the built-in tables serve the ISO rates; past
// them the caller's tables; at 8 kHz only SfbMbp finds the regions.
enum class Primary { BuiltIn, Sfb, SfbMbp };

// Checks every granule; counts those where all three decoders agree.
void checkStream(const Stream& s, const mp3test::BandTables& bands, Primary primary, int& agreeing)
{
    const uint8_t* md = s.mainData.data();
    agreeing = 0;
    for (const Frame& f : s.frames) {
        // Header and side information pack back to the original bytes; the packer always writes
        // the 12-bit sync word, so an MPEG-2.5 header comes back with its last sync bit set.
        std::vector<uint8_t> packed(64, 0xEE);
        uint8_t* p = packed.data();
        EXPECT_EQ(zamsPackFrameHeader_MP3(&f.header, &p), zamStsOk);
        EXPECT_EQ(p - packed.data(), f.headerBytes);
        EXPECT_EQ(zamsPackSideInfo_MP3(f.sideInfo, &p, f.mainDataBegin, f.privateBits, f.scfsi, &f.header), zamStsOk);
        const int total = f.headerBytes + f.sideInfoBytes;
        EXPECT_EQ(p - packed.data(), total);
        std::vector<uint8_t> expected(s.file.begin() + f.offset, s.file.begin() + f.offset + total);
        if (f.mpeg25) expected[1] |= 0x10;
        EXPECT_EQ(std::vector<uint8_t>(packed.begin(), packed.begin() + total), expected) << "frame at " << f.offset;
        if (f.mainDataBit < 0) continue;  // main data before the first frame
        int64_t bit = f.mainDataBit;
        int8_t scalefactors[2][40] = {};
        for (int gr = 0; gr < f.granules(); ++gr)
            for (int ch = 0; ch < f.channels(); ++ch) {
                Mp3SideInfo si = f.sideInfo[gr * f.channels() + ch];
                SCOPED_TRACE("frame at " + std::to_string(f.offset) + " gr " + std::to_string(gr) + " ch " +
                             std::to_string(ch));
                const uint8_t* sp = md + (bit >> 3);
                int32_t off = static_cast<int32_t>(bit & 7);
                ASSERT_EQ(zamsUnpackScaleFactors_MP3_1u8s(&sp, &off, scalefactors[ch], &si, f.scfsi + 4 * ch,
                                                          &f.header, gr, ch),
                          zamStsOk);
                const int64_t sfBits = bitPosition(md, sp, off) - bit;
                const int32_t hufSize = static_cast<int32_t>(si.part2_3_length - sfBits);
                ASSERT_GE(hufSize, 0);
                // The three decoders, each ending exactly on part2_3_length: the built-in tables
                // (or the caller's, past the ISO rates), Sfb with the caller's, and SfbMbp.
                int32_t values[3][576], bounds[3];
                zam::mp3::HuffmanDecodeTrace trace{};
                for (int d = 0; d < 3; ++d) {
                    const uint8_t* hp = sp;
                    int32_t hoff = off;
                    const ZamStatus st =
                        d == 0   ? zam::mp3::huffmanDecodeTraced(&hp, &hoff, values[0], &bounds[0], &si, &f.header,
                                                                 hufSize, primary == Primary::BuiltIn ? nullptr : bands.longTable,
                                                                 primary == Primary::SfbMbp ? nullptr : &trace)
                        : d == 1 ? zamsHuffmanDecodeSfb_MP3_1u32s(&hp, &hoff, values[1], &bounds[1], &si, &f.header,
                                                                  hufSize, bands.longTable)
                                 : zam::mp3::huffmanDecodeMbpTraced(&hp, &hoff, values[2], &bounds[2], &si, &f.header,
                                                                    hufSize, bands.longTable, bands.shortTable,
                                                                    bands.mbp, primary == Primary::SfbMbp ? &trace : nullptr);
                    ASSERT_EQ(st, zamStsOk) << "decoder " << d;
                    EXPECT_EQ(bitPosition(md, hp, hoff), bit + si.part2_3_length) << "decoder " << d;
                    int last = 575;
                    while (last >= 0 && values[d][last] == 0) --last;
                    EXPECT_EQ(bounds[d], last + 1) << "decoder " << d;
                }
                EXPECT_GE(trace.leftoverBits, 0) << "overrun repaired";
                EXPECT_TRUE(std::equal(values[0], values[0] + 576, values[1]));
                // SfbMbp agrees wherever its regions are the fixed ones.
                if (sameRegions(f, si, bands)) {
                    EXPECT_TRUE(std::equal(values[1], values[1] + 576, values[2]));
                    ++agreeing;
                }
                const int32_t* v = values[primary == Primary::SfbMbp ? 2 : 0];
                // Re-encoding: scale factors and Huffman data give the same bits (the Huffman encoder
                // serves MPEG-1 only; MPEG-2 re-packs the scale factors, intensity markers back to
                // their coded value).
                std::vector<uint8_t> out(si.part2_3_length / 8 + 16, 0);
                uint8_t* op = out.data();
                int32_t ooff = static_cast<int32_t>(bit & 7);
                int8_t coded[40];
                for (int k = 0; k < 40; ++k) coded[k] = static_cast<int8_t>(std::abs(scalefactors[ch][k]));
                Mp3SideInfo si2 = si;
                ASSERT_EQ(zamsPackScaleFactors_MP3_8s1u(coded, &op, &ooff, &f.header, &si2, f.scfsi + 4 * ch, gr, ch),
                          zamStsOk);
                EXPECT_EQ(bitPosition(out.data(), op, ooff) - (bit & 7), sfBits);
                EXPECT_EQ(si2.preflag, si.preflag);
                int64_t sameBits = sfBits;
                if (f.header.ID == 1) {
                    ASSERT_EQ(zamsHuffmanEncode_MP3_32s1u(v, &op, &ooff, &f.header, &si, trace.count1Lines, hufSize),
                              zamStsOk);
                    EXPECT_EQ(bitPosition(out.data(), op, ooff) - (bit & 7), si.part2_3_length) << "bit count";
                    sameBits = si.part2_3_length - trace.leftoverBits;  // stuffing bits are the encoder's own
                }
                EXPECT_TRUE(mp3test::sameBits(md, bit, out.data(), bit & 7, sameBits)) << "re-encoded bits differ";
                bit += si.part2_3_length;
            }
    }
}

int granules(const Stream& s)
{
    int n = 0;
    for (const Frame& f : s.frames) n += f.mainDataBit < 0 ? 0 : f.granules() * f.channels();
    return n;
}

std::string testName(std::string n)
{
    for (char& c : n)
        if (!isalnum(static_cast<unsigned char>(c))) c = '_';
    return n;
}

class IsoStream : public ::testing::TestWithParam<const char*> {};

TEST_P(IsoStream, EveryGranuleExact)
{
    const std::string path = zamtest::sharedPath(std::string("vectors/mp3-iso/") + GetParam());
    const Stream s = mp3test::walk(path);
    ASSERT_FALSE(s.file.empty()) << path;
    ASSERT_GT(s.frames.size(), 5u);
    int lost = 0;
    for (const Frame& f : s.frames) lost += f.mainDataBit < 0;
    EXPECT_LE(lost, 2);
    // For the ISO rates the mixed-block partition table reproduces the fixed regions.
    int agreeing = 0;
    checkStream(s, mp3test::bandTables(false), Primary::BuiltIn, agreeing);
    EXPECT_EQ(agreeing, granules(s));
}

INSTANTIATE_TEST_SUITE_P(Mp3, IsoStream,
                         ::testing::Values("M2L3_bitrate_16_all.bit", "M2L3_bitrate_22_all.bit",
                                           "M2L3_bitrate_24_all.bit", "M2L3_compl24.bit", "M2L3_noise.bit",
                                           "l3-compl.bit", "l3-he_32khz.bit", "l3-he_44khz.bit", "l3-he_48khz.bit",
                                           "l3-he_free.bit", "l3-he_mode.bit", "l3-hecommon.bit", "l3-si.bit",
                                           "l3-si_block.bit", "l3-si_huff.bit", "l3-sin1k0db.bit", "l3-test45.bit",
                                           "l3-test46.bit"),
                         [](const auto& info) { return testName(info.param); });

}  // namespace

// MPEG-2.5 streams (8, 11.025, 12 kHz) made by Debian's lame from a signal with transients,
// decoded with the caller's MPEG-2.5 band tables.
class LameMpeg25 : public ::testing::TestWithParam<const char*> {};

TEST_P(LameMpeg25, EveryGranuleExact)
{
    if (std::system("lame --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "lame not installed";
    const std::string rate = GetParam(), dir = ::testing::TempDir();
    const std::string raw = dir + "/zamac_mp3_lame_in_" + rate + ".raw", mp3 = dir + "/zamac_mp3_lame_" + rate + ".mp3";
    {
        // Three seconds of stereo: a tone with short noise bursts that force short blocks.
        std::vector<int16_t> pcm;
        std::mt19937 gen(7);
        std::uniform_real_distribution<double> noise(-1.0, 1.0);
        for (int i = 0; i < 8000 * 3; ++i) {
            double v = 0.3 * std::sin(2 * M_PI * 440 * i / 8000.0);
            v += (i % 2000) < 120 ? 0.6 * noise(gen) : 0.02 * noise(gen);
            const auto s = static_cast<int16_t>(std::clamp(v, -1.0, 1.0) * 30000);
            pcm.push_back(s);
            pcm.push_back(static_cast<int16_t>(-s / 2));
        }
        FILE* f = std::fopen(raw.c_str(), "wb");
        ASSERT_NE(f, nullptr);
        std::fwrite(pcm.data(), 2, pcm.size(), f);
        std::fclose(f);
    }
    const std::string cmd = "lame --quiet -r -s " + rate + " --bitwidth 16 --signed --little-endian -m j -b 24 " +
                            "--resample " + rate + " " + raw + " " + mp3;
    ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
    const Stream s = mp3test::walk(mp3);
    ASSERT_GT(s.frames.size(), 20u);
    EXPECT_TRUE(s.frames[0].mpeg25);
    int shortBlocks = 0;
    for (const Frame& f : s.frames)
        for (int k = 0; k < f.channels(); ++k) shortBlocks += f.sideInfo[k].block_type == 2;
    EXPECT_GT(shortBlocks, 0);
    int agreeing = 0;
    checkStream(s, mp3test::bandTables(true), rate == "8" ? Primary::SfbMbp : Primary::Sfb, agreeing);
    std::remove(raw.c_str());
    std::remove(mp3.c_str());
}

INSTANTIATE_TEST_SUITE_P(Mp3, LameMpeg25, ::testing::Values("8", "11.025", "12"),
                         [](const auto& info) { return testName(info.param); });
