// Streams made here by Debian's lame and ffmpeg (every sampling rate from 8 to
// 48 kHz, MPEG-1, 2 and 2.5, mono, stereo, joint, forced M/S, dual channel, CBR and
// VBR, CRC-protected; the test signal's clicks force short blocks) decoded by zamac-decode and
// compared with mpg123's and ffmpeg's decodes of the same files. All three remove
// the delay and padding that the LAME tag announces; the outputs are still aligned
// first (a stream without the tag keeps its delay); then PSNR >= 96 dB over the
// common part, and >= 105 dB
// for zamac-decode --fixed against mpg123.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "mp3_support.h"

namespace {

bool haveProgram(const char* name)
{
    const std::string cmd = std::string("command -v ") + name + " >/dev/null 2>&1";
    return std::system(cmd.c_str()) == 0;
}

// Tones, a slow sweep, noise bursts and clicks (the clicks make lame switch to
// short blocks), different in the two channels.
std::vector<int16_t> testSignal(int rate, int channels, double seconds)
{
    const int n = static_cast<int>(rate * seconds);
    std::vector<int16_t> pcm(static_cast<size_t>(n) * channels);
    std::mt19937 gen(5);
    std::normal_distribution<double> noise(0.0, 1.0);
    const double pi = 3.14159265358979323846;
    for (int i = 0; i < n; ++i) {
        const double t = double(i) / rate;
        const double burst = (int(t * 4) % 3 == 1) ? 0.15 * noise(gen) : 0.0;
        const double click = (i % (rate / 3) < 8) ? 0.7 * ((i & 1) ? 1 : -1) : 0.0;
        for (int c = 0; c < channels; ++c) {
            const double sweep = 0.2 * std::sin(2 * pi * (200 + (rate / 3.0) * t / seconds) * t * (1 + 0.1 * c));
            const double tone = 0.25 * std::sin(2 * pi * (440 + 110 * c) * t) + 0.1 * std::sin(2 * pi * 3000 * t);
            const double v = std::clamp(tone + sweep + burst + click, -1.0, 1.0);
            pcm[static_cast<size_t>(i) * channels + c] = static_cast<int16_t>(std::lround(v * 30000));
        }
    }
    return pcm;
}

// Best alignment: our output is the other decoder's delayed by `shift` samples
// per channel (searched up to 4000), measured on a stretch in the middle.
size_t findShift(const std::vector<int16_t>& ours, const std::vector<int16_t>& theirs, int channels)
{
    const size_t probe = std::min<size_t>(8192 * channels, theirs.size() / 2);
    const size_t start = theirs.size() / 4;
    double best = 1e300;
    size_t bestShift = 0;
    for (size_t shift = 0; shift <= 4000; ++shift) {
        const size_t off = shift * channels;
        if (start + off + probe > ours.size()) break;
        double se = 0;
        for (size_t i = 0; i < probe && se < best; ++i) {
            const double d = double(ours[start + off + i]) - theirs[start + i];
            se += d * d;
        }
        if (se < best) best = se, bestShift = shift;
    }
    return bestShift;
}

struct EncoderCase {
    const char* name;
    int rate;
    int channels;
    const char* encoder;  // "lame" or "ffmpeg"
    const char* options;
};

const EncoderCase kCases[] = {
    {"lame_8k_mono_cbr16", 8000, 1, "lame", "-m m -b 16"},
    {"lame_11k_joint_cbr32", 11025, 2, "lame", "-m j -b 32"},
    {"lame_12k_mono_vbr5", 12000, 1, "lame", "-m m -V 5"},
    {"lame_16k_joint_cbr48", 16000, 2, "lame", "-m j -b 48"},
    {"lame_22k_stereo_cbr64", 22050, 2, "lame", "-m s -b 64"},
    {"lame_24k_joint_vbr2", 24000, 2, "lame", "-m j -V 2"},
    {"lame_32k_joint_cbr96", 32000, 2, "lame", "-m j -b 96"},
    {"lame_44k_joint_cbr128", 44100, 2, "lame", "-m j -b 128"},
    {"lame_44k_forcedms_cbr192", 44100, 2, "lame", "-m f -b 192"},
    {"lame_44k_crc_cbr128", 44100, 2, "lame", "-m j -p -b 128"},
    {"lame_44k_dual_cbr256", 44100, 2, "lame", "-m d -b 256"},
    {"lame_48k_stereo_vbr0", 48000, 2, "lame", "-m s -V 0"},
    {"ffmpeg_44k_stereo_160k", 44100, 2, "ffmpeg", "-b:a 160k"},
    {"ffmpeg_22k_mono_q4", 22050, 1, "ffmpeg", "-q:a 4"},
};

class Mp3Encoders : public ::testing::TestWithParam<EncoderCase> {};

TEST_P(Mp3Encoders, AgreesWithMpg123AndFfmpeg)
{
    if (!mp3test::toolBuilt()) GTEST_SKIP() << "zamac-decode is not built";
    const EncoderCase& c = GetParam();
    if (!haveProgram(c.encoder) || !haveProgram("mpg123") || !haveProgram("ffmpeg"))
        GTEST_SKIP() << "needs " << c.encoder << ", mpg123 and ffmpeg";
    const double seconds = std::getenv("ZAMAC_MP3_LONG") ? 20.0 : 1.5;
    const auto signal = testSignal(c.rate, c.channels, seconds);
    const std::string raw = mp3test::scratch(std::string(c.name) + ".pcm");
    const std::string mp3 = mp3test::scratch(std::string(c.name) + ".mp3");
    std::vector<uint8_t> bytes(signal.size() * 2);
    std::memcpy(bytes.data(), signal.data(), bytes.size());
    mp3test::writeBytes(raw, bytes);
    char khz[32];
    std::snprintf(khz, sizeof khz, "%g", c.rate / 1000.0);
    std::string cmd;
    if (std::string(c.encoder) == "lame")
        cmd = std::string("lame --quiet -r -s ") + khz + " --bitwidth 16 --signed --little-endian " +
              (c.channels == 1 ? "-m m " : "") + c.options + " '" + raw + "' '" + mp3 + "'";
    else
        cmd = "ffmpeg -v error -y -f s16le -ar " + std::to_string(c.rate) + " -ac " + std::to_string(c.channels) +
              " -i '" + raw + "' -c:a libmp3lame " + c.options + " '" + mp3 + "'";
    ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;

    const auto ours = mp3test::decodeRaw(mp3);
    ASSERT_EQ(ours.exitCode, 0);
    const auto fixed = mp3test::decodeRaw(mp3, "--fixed");
    ASSERT_EQ(fixed.exitCode, 0);
    const std::string other = mp3test::scratch(std::string(c.name) + ".other.raw");
    struct Reference {
        const char* name;
        std::string command;
    } refs[] = {{"mpg123", "mpg123 -q -s '" + mp3 + "' > '" + other + "'"},
                {"ffmpeg", "ffmpeg -v error -y -i '" + mp3 + "' -f s16le '" + other + "'"}};
    for (const auto& ref : refs) {
        ASSERT_EQ(std::system(ref.command.c_str()), 0) << ref.command;
        const auto theirs = mp3test::readPcm(other);
        ASSERT_GT(theirs.size(), 1000u) << ref.name;
        const size_t shift = findShift(ours.pcm, theirs, c.channels);
        const size_t count = std::min(theirs.size(), ours.pcm.size() - shift * c.channels);
        const auto cmp = mp3test::compare(ours.pcm, theirs, shift * c.channels, 0, count);
        std::cout << c.name << " vs " << ref.name << ": shift " << shift << ", PSNR " << cmp.psnr << " dB, max diff "
                  << cmp.maxDiff << "\n";
        // ffmpeg's 24 kHz long band table has 330 where the standard's has 332
        // (bands 17 and 18): where the encoder fills those bands, ffmpeg departs
        // from mpg123 and from the ISO 24 kHz compliance stream, which this decoder
        // matches at 1 LSB. There only mpg123 is held to the bound.
        if (c.rate == 24000 && std::string(ref.name) == "ffmpeg") continue;
        EXPECT_GE(cmp.psnr, 96.0) << ref.name;
        if (std::string(ref.name) != "mpg123") continue;
        // --fixed against mpg123, aligned the same way.
        const auto fx = mp3test::compare(fixed.pcm, theirs, shift * c.channels, 0, count);
        std::cout << c.name << " --fixed vs mpg123: shift " << shift << ", PSNR " << fx.psnr << " dB, max diff "
                  << fx.maxDiff << "\n";
        EXPECT_GE(fx.psnr, 105.0);
    }
    std::remove(raw.c_str());
    std::remove(mp3.c_str());
    std::remove(other.c_str());
}

INSTANTIATE_TEST_SUITE_P(Streams, Mp3Encoders, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
