// The ISO/IEC 11172-4 and 13818-4 Layer III compliance streams through zamac-decode.
#include <gtest/gtest.h>

#include <iostream>
#include <tuple>

#include "mp3_support.h"

namespace {

using mp3test::compare;

const char* const kStreams[] = {
    "M2L3_bitrate_16_all", "M2L3_bitrate_22_all", "M2L3_bitrate_24_all", "M2L3_compl24", "M2L3_noise",
    "l3-compl", "l3-he_32khz", "l3-he_44khz", "l3-he_48khz", "l3-he_free", "l3-he_mode", "l3-hecommon",
    "l3-si", "l3-si_block", "l3-si_huff", "l3-sin1k0db", "l3-test45", "l3-test46"};

// Channel count of every frame of an MPEG-1 Layer III stream, in order.
std::vector<int> frameChannels(const std::vector<uint8_t>& d)
{
    static const int kbps[15] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
    static const int rates[3] = {44100, 48000, 32000};
    std::vector<int> channels;
    size_t i = 0;
    while (i + 4 <= d.size()) {
        if (d[i] == 0xFF && (d[i + 1] & 0xFE) == 0xFA && (d[i + 2] >> 4) != 0 && (d[i + 2] >> 4) != 15 &&
            ((d[i + 2] >> 2) & 3) != 3) {
            channels.push_back((d[i + 3] >> 6) == 3 ? 1 : 2);
            i += 144000 * kbps[d[i + 2] >> 4] / rates[(d[i + 2] >> 2) & 3] + ((d[i + 2] >> 1) & 1);
        } else {
            ++i;
        }
    }
    return channels;
}

// The reference keeps each frame's own channel count, the decoder's output has the
// stream's largest one with mono frames on both channels: widen the reference.
std::vector<int16_t> widenMonoFrames(const std::vector<int16_t>& ref, const std::vector<int>& channels)
{
    std::vector<int16_t> wide;
    size_t pos = 0;
    for (int ch : channels) {
        if (pos >= ref.size()) break;
        for (size_t k = 0; k < 1152 && pos + k * ch < ref.size(); ++k) {
            wide.push_back(ref[pos + k * ch]);
            wide.push_back(ref[pos + k * ch + (ch - 1)]);
        }
        pos += 1152 * ch;
    }
    return wide;
}

// The float path (default) and the integer one (--fixed).
class Mp3Iso : public ::testing::TestWithParam<std::tuple<const char*, bool>> {};

TEST_P(Mp3Iso, WithinOneLsbOfTheReference)
{
    if (!mp3test::toolBuilt()) GTEST_SKIP() << "zamac-decode is not built";
    const char* stream = std::get<0>(GetParam());
    const bool fixed = std::get<1>(GetParam());
    const std::string base = zamtest::sharedPath("vectors/mp3-iso/") + stream;
    const auto result = mp3test::decodeRaw(base + ".bit", fixed ? "--fixed" : "");
    ASSERT_EQ(result.exitCode, 0);
    auto ref = mp3test::readPcm(base + ".pcm");
    ASSERT_FALSE(ref.empty());
    if (std::string(stream) == "l3-he_mode") ref = widenMonoFrames(ref, frameChannels(mp3test::readBytes(base + ".bit")));
    // Several references lack the stream's last frame: compare over their length.
    EXPECT_GE(result.pcm.size(), ref.size());
    const auto c = compare(result.pcm, ref);
    std::cout << stream << (fixed ? " --fixed" : "") << ": PSNR " << c.psnr << " dB, max diff " << c.maxDiff << "\n";
    RecordProperty("psnr", std::to_string(c.psnr));
    RecordProperty("max_diff", c.maxDiff);
    EXPECT_GE(c.psnr, fixed ? 105.0 : 96.0);
    EXPECT_LE(c.maxDiff, 1);
}

INSTANTIATE_TEST_SUITE_P(Streams, Mp3Iso, ::testing::Combine(::testing::ValuesIn(kStreams), ::testing::Bool()),
                         [](const auto& info) {
                             std::string n = std::string(std::get<0>(info.param)) + (std::get<1>(info.param) ? "_fixed" : "");
                             for (auto& c : n)
                                 if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                             return n;
                         });

}  // namespace
