// Every granule of the ISO compliance streams: header and side information round
// trips, scale factors and Huffman data consumed to the exact bit, decoders agreeing
// with a bit-by-bit reference, and re-encoding reproducing the stream's bits.
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

struct Totals {
    int frames = 0, lostFrames = 0, sameRegions = 0, granules = 0, stuffed = 0, reencoded = 0, identicalBits = 0;
};

int64_t bitPosition(const uint8_t* base, const uint8_t* p, int32_t offset) { return (p - base) * 8 + offset; }

// Region ends as the standard defines them, worked out here from the band tables.
// With `fromBands`, region 0 of window-switching granules comes from the band
// tables (long band 8 for start and stop blocks, three short bands for short ones).
int referenceRegions(const Frame& f, const Mp3SideInfo& si, const mp3test::BandTables& bands, bool fromBands,
                     int ends[3])
{
    const int row = f.header.ID * 3 + f.header.sampling_frequency;
    if (si.window_switching_flag) {
        if (fromBands) {
            ends[0] = si.block_type != 2       ? bands.longTable[row * 23 + 8]
                      : si.mixed_block_flag == 0 ? 3 * bands.shortTable[row * 14 + 3]
                                                 : bands.longTable[row * 23 + bands.mbp[row * 2]];
        } else {
            ends[0] = (f.header.ID == 1 || si.block_type == 2) ? 36 : 54;
        }
        ends[1] = ends[2] = 576;
        return 2;
    }
    ends[0] = bands.longTable[row * 23 + si.region0_count + 1];
    ends[1] = bands.longTable[row * 23 + si.region0_count + si.region1_count + 2];
    ends[2] = 576;
    return 3;
}

// Decodes every granule of a walked stream and checks what the file states.
enum class Decoder { BuiltIn, Sfb, SfbMbp };

// `mpeg25Tables` loads the MPEG-2.5 band tables; `primary` is the decoder whose
// result must consume every granule exactly and match the reference.
void checkStream(const Stream& s, bool mpeg25Tables, Decoder primary, Totals& t)
{
    const mp3test::BandTables bands = mp3test::bandTables(mpeg25Tables);
    const uint8_t* md = s.mainData.data();
    for (const Frame& f : s.frames) {
        ++t.frames;
        // Header and side information pack back to the original bytes.
        {
            std::vector<uint8_t> packed(64, 0xEE);
            uint8_t* p = packed.data();
            EXPECT_EQ(zamsPackFrameHeader_MP3(&f.header, &p), zamStsOk);
            EXPECT_EQ(p - packed.data(), f.headerBytes);
            EXPECT_EQ(zamsPackSideInfo_MP3(f.sideInfo, &p, f.mainDataBegin, f.privateBits, f.scfsi, &f.header),
                      zamStsOk);
            const int total = f.headerBytes + f.sideInfoBytes;
            EXPECT_EQ(p - packed.data(), total);
            // The packer always writes the 12-bit sync word, so an MPEG-2.5 header
            // comes back with its last sync bit set.
            std::vector<uint8_t> expected(s.file.begin() + f.offset, s.file.begin() + f.offset + total);
            if (f.mpeg25) expected[1] |= 0x10;
            EXPECT_EQ(std::vector<uint8_t>(packed.begin(), packed.begin() + total), expected)
                << "frame at " << f.offset;
        }
        if (f.mainDataBit < 0) {
            ++t.lostFrames;
            continue;
        }
        int64_t bit = f.mainDataBit;
        int8_t scalefactors[2][40] = {};
        for (int gr = 0; gr < f.granules(); ++gr) {
            for (int ch = 0; ch < f.channels(); ++ch) {
                ++t.granules;
                Mp3SideInfo si = f.sideInfo[gr * f.channels() + ch];
                SCOPED_TRACE("frame at " + std::to_string(f.offset) + " gr " + std::to_string(gr) + " ch " +
                             std::to_string(ch));
                const uint8_t* p = md + (bit >> 3);
                int32_t off = static_cast<int32_t>(bit & 7);
                ASSERT_EQ(zamsUnpackScaleFactors_MP3_1u8s(&p, &off, scalefactors[ch], &si, f.scfsi + 4 * ch,
                                                          &f.header, gr, ch),
                          zamStsOk);
                const int64_t sfBits = bitPosition(md, p, off) - bit;
                const int32_t hufSize = static_cast<int32_t>(si.part2_3_length - sfBits);
                ASSERT_GE(hufSize, 0);

                // The library's decoders, with the cursor ending exactly on part2_3_length.
                int32_t values[576], bound = -1;
                zam::mp3::HuffmanDecodeTrace trace{};
                const uint8_t* hp = p;
                int32_t hoff = off;
                if (primary == Decoder::SfbMbp) {
                    ASSERT_EQ(zam::mp3::huffmanDecodeMbpTraced(&hp, &hoff, values, &bound, &si, &f.header, hufSize,
                                                               bands.longTable, bands.shortTable, bands.mbp, &trace),
                              zamStsOk);
                } else {
                    const int16_t* table = primary == Decoder::BuiltIn ? nullptr : bands.longTable;
                    ASSERT_EQ(zam::mp3::huffmanDecodeTraced(&hp, &hoff, values, &bound, &si, &f.header, hufSize,
                                                            table, &trace),
                              zamStsOk);
                }
                EXPECT_EQ(bitPosition(md, hp, hoff), bit + si.part2_3_length);
                EXPECT_GE(trace.leftoverBits, 0) << "overrun repaired";
                if (trace.leftoverBits > 0) ++t.stuffed;

                int32_t valuesSfb[576], boundSfb;
                hp = p;
                hoff = off;
                ASSERT_EQ(zamsHuffmanDecodeSfb_MP3_1u32s(&hp, &hoff, valuesSfb, &boundSfb, &si, &f.header, hufSize,
                                                         bands.longTable),
                          zamStsOk);
                EXPECT_EQ(bitPosition(md, hp, hoff), bit + si.part2_3_length);
                // The three decoders agree wherever their regions do.
                int sfbEnds[3], mbpEnds[3];
                referenceRegions(f, si, bands, false, sfbEnds);
                referenceRegions(f, si, bands, true, mbpEnds);
                const bool sameRegions = sfbEnds[0] == mbpEnds[0];
                if (primary != Decoder::SfbMbp || sameRegions) {
                    EXPECT_TRUE(std::equal(values, values + 576, valuesSfb));
                    EXPECT_EQ(bound, boundSfb);
                }

                int32_t valuesMbp[576], boundMbp;
                hp = p;
                hoff = off;
                ASSERT_EQ(zamsHuffmanDecodeSfbMbp_MP3_1u32s(&hp, &hoff, valuesMbp, &boundMbp, &si, &f.header,
                                                            hufSize, bands.longTable, bands.shortTable, bands.mbp),
                          zamStsOk);
                EXPECT_EQ(bitPosition(md, hp, hoff), bit + si.part2_3_length);
                if (primary == Decoder::SfbMbp || sameRegions) {
                    EXPECT_TRUE(std::equal(values, values + 576, valuesMbp));
                    EXPECT_EQ(bound, boundMbp);
                }
                if (sameRegions) ++t.sameRegions;

                // The bit-by-bit reference agrees line for line.
                int ends[3];
                const int regions = referenceRegions(f, si, bands, primary == Decoder::SfbMbp, ends);
                std::vector<int> ref;
                mp3test::referenceDecode(md, bit + sfBits, hufSize, si, ends, regions, ref);
                EXPECT_TRUE(std::equal(ref.begin(), ref.end(), values)) << "reference differs";
                int last = 575;
                while (last >= 0 && values[last] == 0) --last;
                EXPECT_EQ(bound, last + 1);

                // Re-encoding: scale factors and Huffman data give the same bits (the
                // Huffman encoder serves MPEG-1 only; MPEG-2 re-packs the scale factors).
                if (f.header.ID == 0) {
                    std::vector<uint8_t> out(sfBits / 8 + 16, 0);
                    uint8_t* op = out.data();
                    int32_t ooff = static_cast<int32_t>(bit & 7);
                    int8_t coded[40];
                    for (int k = 0; k < 40; ++k)  // intensity markers go back to their coded value
                        coded[k] = static_cast<int8_t>(scalefactors[ch][k] < 0 ? -scalefactors[ch][k]
                                                                                : scalefactors[ch][k]);
                    Mp3SideInfo si2 = si;
                    ASSERT_EQ(zamsPackScaleFactors_MP3_8s1u(coded, &op, &ooff, &f.header, &si2, f.scfsi, gr, ch),
                              zamStsOk);
                    EXPECT_EQ(bitPosition(out.data(), op, ooff) - (bit & 7), sfBits);
                    EXPECT_EQ(si2.preflag, si.preflag);
                    EXPECT_TRUE(mp3test::sameBits(md, bit, out.data(), bit & 7, sfBits));
                    if (si.scalefac_compress >= 500 && !(ch == 1 && (f.header.mode_extension & 1))) {
                        EXPECT_EQ(si.preflag, 1);
                    }
                } else {
                    std::vector<uint8_t> out(si.part2_3_length / 8 + 16, 0);
                    uint8_t* op = out.data();
                    int32_t ooff = static_cast<int32_t>(bit & 7);
                    Mp3SideInfo si2 = si;
                    ASSERT_EQ(zamsPackScaleFactors_MP3_8s1u(scalefactors[ch], &op, &ooff, &f.header, &si2,
                                                            f.scfsi + 4 * ch, gr, ch),
                              zamStsOk);
                    EXPECT_EQ(bitPosition(out.data(), op, ooff) - (bit & 7), sfBits);
                    ASSERT_EQ(zamsHuffmanEncode_MP3_32s1u(values, &op, &ooff, &f.header, &si, trace.count1Lines,
                                                          hufSize),
                              zamStsOk);
                    EXPECT_EQ(bitPosition(out.data(), op, ooff) - (bit & 7), si.part2_3_length) << "bit count";
                    ++t.reencoded;
                    const int64_t dataBits = si.part2_3_length - trace.leftoverBits;
                    const bool same = mp3test::sameBits(md, bit, out.data(), bit & 7, dataBits);
                    EXPECT_TRUE(same) << "re-encoded bits differ";
                    if (trace.leftoverBits == 0 && same) ++t.identicalBits;
                }
                bit += si.part2_3_length;
            }
        }
    }
}

class IsoStream : public ::testing::TestWithParam<const char*> {};

TEST_P(IsoStream, EveryGranuleExact)
{
    const std::string path = zamtest::sharedPath(std::string("vectors/mp3-iso/") + GetParam());
    const Stream s = mp3test::walk(path);
    ASSERT_FALSE(s.file.empty()) << path;
    ASSERT_GT(s.frames.size(), 5u);
    Totals t;
    checkStream(s, false, Decoder::BuiltIn, t);
    // For the ISO rates the mixed-block partition table reproduces the fixed regions.
    EXPECT_EQ(t.sameRegions, t.granules);
    EXPECT_LE(t.lostFrames, 2);
    if (s.frames[0].header.ID == 1) {
        EXPECT_EQ(t.reencoded, t.granules);
    }
    RecordProperty("granules", t.granules);
    std::printf("[ stream   ] %-26s frames %4d granules %5d stuffed %4d re-encoded %5d identical %5d\n",
                GetParam(), t.frames, t.granules, t.stuffed, t.reencoded, t.identicalBits);
}

INSTANTIATE_TEST_SUITE_P(Mp3, IsoStream,
                         ::testing::Values("M2L3_bitrate_16_all.bit", "M2L3_bitrate_22_all.bit",
                                           "M2L3_bitrate_24_all.bit", "M2L3_compl24.bit", "M2L3_noise.bit",
                                           "l3-compl.bit", "l3-he_32khz.bit", "l3-he_44khz.bit", "l3-he_48khz.bit",
                                           "l3-he_free.bit", "l3-he_mode.bit", "l3-hecommon.bit", "l3-si.bit",
                                           "l3-si_block.bit", "l3-si_huff.bit", "l3-sin1k0db.bit", "l3-test45.bit",
                                           "l3-test46.bit"),
                         [](const auto& info) {
                             std::string n = info.param;
                             for (char& c : n)
                                 if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                             return n;
                         });

}  // namespace

// MPEG-2.5 streams (8, 11.025, 12 kHz) made by Debian's lame from a signal with
// transients, decoded with the caller's MPEG-2.5 band tables.
class LameMpeg25 : public ::testing::TestWithParam<const char*> {};

TEST_P(LameMpeg25, EveryGranuleExact)
{
    if (std::system("lame --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "lame not installed";
    const std::string rate = GetParam();
    const std::string dir = ::testing::TempDir();
    const std::string raw = dir + "/zamac_mp3_lame_in_" + rate + ".raw";
    const std::string mp3 = dir + "/zamac_mp3_lame_" + rate + ".mp3";
    {
        // Three seconds of stereo: a tone with short noise bursts that force short blocks.
        std::vector<int16_t> pcm;
        std::mt19937 gen(7);
        std::uniform_real_distribution<double> noise(-1.0, 1.0);
        const int n = 8000 * 3;
        for (int i = 0; i < n; ++i) {
            const double t = i / 8000.0;
            double v = 0.3 * std::sin(2 * M_PI * 440 * t);
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
    Totals t;
    // 8 kHz has band tables of its own: only the SfbMbp decoder finds its regions.
    checkStream(s, true, rate == "8" ? Decoder::SfbMbp : Decoder::Sfb, t);
    int shortBlocks = 0;
    for (const Frame& f : s.frames)
        for (int k = 0; k < f.channels(); ++k) shortBlocks += f.sideInfo[k].block_type == 2;
    EXPECT_GT(shortBlocks, 0);
    std::printf("[ stream   ] lame %-6s kHz  frames %4d granules %5d short %d stuffed %d\n", rate.c_str(), t.frames,
                t.granules, shortBlocks, t.stuffed);
    std::remove(raw.c_str());
    std::remove(mp3.c_str());
}

INSTANTIATE_TEST_SUITE_P(Mp3, LameMpeg25, ::testing::Values("8", "11.025", "12"), [](const auto& info) {
    std::string n = info.param;
    for (char& c : n)
        if (c == '.') c = '_';
    return n;
});
