// MPEG-1 intensity stereo, which neither lame nor ffmpeg writes: frames are built
// here with the library's own packers (header, side information, scale factors,
// Huffman coding) from random spectra whose right channel stops at a band bound,
// with random intensity positions (7, the illegal one, included) above it. The
// file is decoded by zamac-decode, mpg123 and ffmpeg.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <random>
#include <tuple>

#include "mp3_support.h"
#include "zamac.h"

namespace {

const int kLong44[23] = {0, 4, 8, 12, 16, 20, 24, 30, 36, 44, 52, 62, 74, 90, 110, 134, 162, 196, 238, 288, 342, 418, 576};
const int kShort44[14] = {0, 4, 8, 12, 16, 22, 30, 40, 52, 66, 84, 106, 136, 192};

bool haveProgram(const char* name)
{
    const std::string cmd = std::string("command -v ") + name + " >/dev/null 2>&1";
    return std::system(cmd.c_str()) == 0;
}

long bitsAt(const uint8_t* base, const uint8_t* p, int32_t off) { return long(p - base) * 8 + off; }

// One MPEG-1 joint-stereo frame, 320 kb/s at 44.1 kHz (1044 bytes), main data in
// the frame itself.
std::vector<uint8_t> buildFrame(std::mt19937& gen, int modeExtension, bool shortBlocks)
{
    Mp3FrameHeader fh = {1, 1, 1, 14, 0, 0, 0, 1, modeExtension, 0, 0, 0, 0};
    Mp3SideInfo si[4] = {};
    int32_t scfsi[8] = {};
    std::vector<uint8_t> main(4096, 0);
    uint8_t* p = main.data();
    int32_t off = 0;
    std::discrete_distribution<int> magnitude({50, 35, 10, 5});
    std::uniform_int_distribution<int> position(0, 7);
    std::uniform_int_distribution<int> boundBand(4, 21);
    std::uniform_int_distribution<int> boundShortBand(1, 12);
    for (int gr = 0; gr < 2; ++gr) {
        // First intensity band of this granule (long), or of each window (short).
        const int bound = boundBand(gen);
        const int shortBound[3] = {boundShortBand(gen), boundShortBand(gen), boundShortBand(gen)};
        for (int ch = 0; ch < 2; ++ch) {
            Mp3SideInfo& s = si[gr * 2 + ch];
            s.global_gain = 180;
            s.scalefac_compress = 15;  // 4 bits for the lower bands, 3 bits for the upper ones
            s.table_select[0] = s.table_select[1] = s.table_select[2] = 15;
            s.region0_count = 7;
            s.region1_count = 7;
            if (shortBlocks) {
                s.window_switching_flag = 1;
                s.block_type = 2;
            }
            int32_t ix[576] = {};
            int lines = 0;
            for (int i = 0; i < 576; ++i) {
                bool coded = ch == 0 || i < kLong44[bound];
                if (shortBlocks && ch == 1) {
                    int sfb = 0;
                    while (3 * kShort44[sfb + 1] <= i) ++sfb;
                    const int width = kShort44[sfb + 1] - kShort44[sfb];
                    const int window = (i - 3 * kShort44[sfb]) / width;
                    coded = sfb < shortBound[window];
                }
                if (!coded) continue;
                const int m = magnitude(gen);
                ix[i] = (gen() & 1) ? -m : m;
                if (m) lines = i + 1;
            }
            s.big_values = (lines + 1) / 2;
            int8_t sf[39] = {};
            for (int b = 0; b < (shortBlocks ? 36 : 21); ++b) sf[b] = static_cast<int8_t>(position(gen));
            const uint8_t* start = p;
            const int32_t startOff = off;
            EXPECT_EQ(zamsPackScaleFactors_MP3_8s1u(sf, &p, &off, &fh, &s, scfsi + 4 * ch, gr, ch), zamStsOk);
            EXPECT_EQ(zamsHuffmanEncode_MP3_32s1u(ix, &p, &off, &fh, &s, 0, 0), zamStsOk);
            s.part2_3_length = static_cast<int32_t>(bitsAt(main.data(), p, off) - bitsAt(main.data(), start, startOff));
        }
    }
    const size_t mainBytes = static_cast<size_t>((bitsAt(main.data(), p, off) + 7) / 8);
    std::vector<uint8_t> frame(1044 + 8, 0);
    uint8_t* q = frame.data();
    EXPECT_EQ(zamsPackFrameHeader_MP3(&fh, &q), zamStsOk);
    EXPECT_EQ(zamsPackSideInfo_MP3(si, &q, 0, 0, scfsi, &fh), zamStsOk);
    EXPECT_EQ(q - frame.data(), 36);
    EXPECT_LE(36 + mainBytes, 1044u);
    std::memcpy(q, main.data(), std::min<size_t>(mainBytes, 1044 - 36));
    frame.resize(1044);
    return frame;
}

class Mp3Intensity : public ::testing::TestWithParam<std::tuple<int, bool>> {};

TEST_P(Mp3Intensity, Mpeg1AgreesWithMpg123AndFfmpeg)
{
    if (!mp3test::toolBuilt()) GTEST_SKIP() << "zamac-decode is not built";
    if (!haveProgram("mpg123") || !haveProgram("ffmpeg")) GTEST_SKIP() << "needs mpg123 and ffmpeg";
    const int modeExtension = std::get<0>(GetParam());
    const bool shortBlocks = std::get<1>(GetParam());
    std::mt19937 gen(1235 + modeExtension + 10 * shortBlocks);
    std::vector<uint8_t> stream;
    for (int f = 0; f < 40; ++f) {
        const auto frame = buildFrame(gen, modeExtension, shortBlocks);
        stream.insert(stream.end(), frame.begin(), frame.end());
    }
    const std::string mp3 = mp3test::scratch("intensity.mp3");
    const std::string other = mp3test::scratch("intensity.raw");
    mp3test::writeBytes(mp3, stream);
    const auto ours = mp3test::decodeRaw(mp3);
    ASSERT_EQ(ours.exitCode, 0);
    ASSERT_EQ(ours.pcm.size(), 40u * 1152 * 2);
    double energy = 0;
    for (int16_t v : ours.pcm) energy += double(v) * v;
    std::cout << "intensity test signal RMS " << std::sqrt(energy / ours.pcm.size()) << "\n";
    for (const char* decoder : {"mpg123", "ffmpeg"}) {
        const std::string cmd = std::string(decoder) == "mpg123"
                                    ? "mpg123 -q -s '" + mp3 + "' > '" + other + "'"
                                    : "ffmpeg -v error -y -i '" + mp3 + "' -f s16le '" + other + "'";
        ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
        const auto theirs = mp3test::readPcm(other);
        ASSERT_EQ(theirs.size(), ours.pcm.size()) << decoder;
        const auto c = mp3test::compare(ours.pcm, theirs);
        std::cout << "MPEG-1 intensity, mode_extension " << modeExtension << (shortBlocks ? ", short" : ", long")
                  << " blocks, vs " << decoder << ": PSNR " << c.psnr
                  << " dB, max diff " << c.maxDiff << "\n";
        EXPECT_GE(c.psnr, 96.0) << decoder;
    }
    std::remove(mp3.c_str());
    std::remove(other.c_str());
}

// mode_extension 1: intensity alone; 3: intensity above the bound, M/S below it.
INSTANTIATE_TEST_SUITE_P(ModeExtensions, Mp3Intensity,
                         ::testing::Combine(::testing::Values(1, 3), ::testing::Bool()));

}  // namespace
