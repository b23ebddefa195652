// Every granule of the ISO compliance streams: header and side information round
// trips, scale factors and Huffman data consumed to the exact bit, decoders agreeing
// with a bit-by-bit reference, and re-encoding reproducing the stream's bits.
#include <gtest/gtest.h>

#include <cstdint>
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
    int frames = 0, lostFrames = 0, granules = 0, stuffed = 0, reencoded = 0, identicalBits = 0;
};

int64_t bitPosition(const uint8_t* base, const uint8_t* p, int32_t offset) { return (p - base) * 8 + offset; }

// Region ends as the standard defines them, worked out here from the band tables.
int referenceRegions(const Frame& f, const Mp3SideInfo& si, const mp3test::BandTables& bands, int ends[3])
{
    const int row = f.header.ID * 3 + f.header.sampling_frequency;
    if (si.window_switching_flag) {
        ends[0] = (f.header.ID == 1 || si.block_type == 2) ? 36 : 54;
        ends[1] = ends[2] = 576;
        return 2;
    }
    ends[0] = bands.longTable[row * 23 + si.region0_count + 1];
    ends[1] = bands.longTable[row * 23 + si.region0_count + si.region1_count + 2];
    ends[2] = 576;
    return 3;
}

// Decodes every granule of a walked stream and checks what the file states.
// `mpeg25Tables` loads the MPEG-2.5 band tables; `checkBuiltIn` decodes with the built-in one.
void checkStream(const Stream& s, bool mpeg25Tables, bool checkBuiltIn, Totals& t)
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
            // The MPEG-2.5 sync word cannot be produced: compare from the ID bit on.
            const int skip = f.mpeg25 ? 1 : 0;
            EXPECT_EQ(std::vector<uint8_t>(packed.begin() + skip, packed.begin() + total),
                      std::vector<uint8_t>(s.file.begin() + f.offset + skip, s.file.begin() + f.offset + total))
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
                const int16_t* table = checkBuiltIn ? nullptr : bands.longTable;
                ASSERT_EQ(zam::mp3::huffmanDecodeTraced(&hp, &hoff, values, &bound, &si, &f.header, hufSize, table,
                                                        &trace),
                          zamStsOk);
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
                EXPECT_TRUE(std::equal(values, values + 576, valuesSfb));
                EXPECT_EQ(bound, boundSfb);

                int32_t valuesMbp[576], boundMbp;
                hp = p;
                hoff = off;
                ASSERT_EQ(zamsHuffmanDecodeSfbMbp_MP3_1u32s(&hp, &hoff, valuesMbp, &boundMbp, &si, &f.header,
                                                            hufSize, bands.longTable, bands.shortTable, bands.mbp),
                          zamStsOk);
                EXPECT_EQ(bitPosition(md, hp, hoff), bit + si.part2_3_length);
                if (!mpeg25Tables || f.header.sampling_frequency != 2) {
                    EXPECT_TRUE(std::equal(values, values + 576, valuesMbp));
                }

                // The bit-by-bit reference agrees line for line.
                int ends[3];
                const int regions = referenceRegions(f, si, bands, ends);
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
    checkStream(s, false, true, t);
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
