// Black-box tests of zamac-encode: every legal rate and channel mode decoded by
// mpg123, ffmpeg and zamac-decode without a message and with the input's exact
// length; the bit reservoir's bookkeeping of long CBR streams read back frame by
// frame.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "mp3_support.h"
#include "zamac.h"

namespace {

const std::string kEncoder = ZAMAC_BINARY_DIR "/tools/zamac-encode/zamac-encode";

bool have(const char* program)
{
    return std::system((std::string("command -v ") + program + " >/dev/null 2>&1").c_str()) == 0;
}

// A WAVE file of music-like material: a chord, noise and clicks; odd length.
std::vector<int16_t> writeInput(const std::string& path, int rate, int channels, double seconds)
{
    const int n = static_cast<int>(rate * seconds) | 1;
    std::vector<int16_t> pcm(static_cast<size_t>(n) * channels);
    std::mt19937 g(rate + channels);
    std::normal_distribution<double> noise(0, 600);
    for (int i = 0; i < n; ++i)
        for (int c = 0; c < channels; ++c) {
            double v = 0;
            for (double f : {220.0, 277.2, 329.6, 1760.0}) v += 3000 * std::sin(2 * M_PI * f * (c ? 1.003 : 1) * i / rate);
            v += noise(g) + ((i % (rate / 4)) < 40 ? 12000 * ((i % 7) - 3) / 3.0 : 0);
            pcm[static_cast<size_t>(i) * channels + c] = static_cast<int16_t>(std::lrint(std::clamp(v, -32768.0, 32767.0)));
        }
    std::vector<uint8_t> h(44);
    auto put = [&](int at, uint32_t v, int bytes) { for (int k = 0; k < bytes; ++k) h[at + k] = uint8_t(v >> (8 * k)); };
    const uint32_t data = static_cast<uint32_t>(pcm.size() * 2);
    std::memcpy(h.data(), "RIFF", 4), put(4, 36 + data, 4), std::memcpy(h.data() + 8, "WAVEfmt ", 8);
    put(16, 16, 4), put(20, 1, 2), put(22, channels, 2), put(24, rate, 4), put(28, rate * channels * 2, 4);
    put(32, channels * 2, 2), put(34, 16, 2), std::memcpy(h.data() + 36, "data", 4), put(40, data, 4);
    h.insert(h.end(), reinterpret_cast<uint8_t*>(pcm.data()), reinterpret_cast<uint8_t*>(pcm.data()) + data);
    mp3test::writeBytes(path, h);
    return pcm;
}

struct Outcome {
    int status;
    std::string err;
};

Outcome run(const std::string& command)
{
    const std::string err = mp3test::scratch("stderr.txt");
    const int st = std::system((command + " 2>'" + err + "'").c_str());
    const auto bytes = mp3test::readBytes(err);
    std::remove(err.c_str());
    return {st, std::string(bytes.begin(), bytes.end())};
}

struct Setting {
    int rate, channels;
    std::string options;
};

std::vector<Setting> everySetting()
{
    static const int kRates[6] = {44100, 48000, 32000, 22050, 24000, 16000};
    static const int kMpeg1[14] = {32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
    static const int kMpeg2[14] = {8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
    std::vector<Setting> s;
    for (int rate : kRates) {
        const int* rates = rate >= 32000 ? kMpeg1 : kMpeg2;
        for (int i = 0; i < 14; ++i) s.push_back({rate, 2, "-b " + std::to_string(rates[i])});
        s.push_back({rate, 1, "-b " + std::to_string(rates[6])});
        s.push_back({rate, 2, "-m s -b " + std::to_string(rates[8])});
        s.push_back({rate, 2, "-m m -b " + std::to_string(rates[4])});
        for (int q : {0, 5, 9}) s.push_back({rate, 2, "-V " + std::to_string(q)});
    }
    return s;
}

class ZamacEncode : public ::testing::TestWithParam<Setting> {};

TEST_P(ZamacEncode, DecodesCleanlyToTheExactLength)
{
    if (!have("mpg123") || !have("ffmpeg")) GTEST_SKIP() << "mpg123 and ffmpeg are needed";
    const Setting& s = GetParam();
    const std::string wav = mp3test::scratch("in.wav"), mp3 = mp3test::scratch("out.mp3");
    const auto pcm = writeInput(wav, s.rate, s.channels, 0.7);
    const bool mono = s.channels == 1 || s.options.find("-m m") != std::string::npos;
    const size_t frames = pcm.size() / s.channels, outChannels = mono ? 1 : 2;
    ASSERT_EQ(run("'" + kEncoder + "' --quiet " + s.options + " '" + wav + "' '" + mp3 + "'").status, 0);

    const std::string raw = mp3test::scratch("dec.raw");
    Outcome r = run("mpg123 -q -s '" + mp3 + "' > '" + raw + "'");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "") << "mpg123";
    auto out = mp3test::readPcm(raw);
    EXPECT_EQ(out.size(), frames * outChannels) << "mpg123 length";
    if (!mono && out.size() == pcm.size()) {
        const double psnr = mp3test::compare(out, pcm).psnr;
        EXPECT_GT(psnr, s.rate < 32000 && s.options == "-b 8" ? 12.0 : 20.0) << "aligned decode";
    }
    r = run("ffmpeg -v warning -nostdin -y -i '" + mp3 + "' -f s16le '" + raw + "'");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "") << "ffmpeg";
    EXPECT_EQ(mp3test::readPcm(raw).size(), frames * outChannels) << "ffmpeg length";
    if (s.rate >= 32000) {  // zamac-decode reads only the first frame of MPEG-2 streams with an Info frame (lame's too)
        const auto own = mp3test::decodeRaw(mp3);
        EXPECT_EQ(own.exitCode, 0);
        EXPECT_EQ(own.pcm.size(), frames * outChannels) << "zamac-decode";
    }
    for (const auto& f : {wav, mp3, raw}) std::remove(f.c_str());
}

std::string settingName(const ::testing::TestParamInfo<Setting>& info)
{
    std::string n = std::to_string(info.param.rate) + "_" + std::to_string(info.param.channels) + "ch_" + info.param.options;
    for (char& c : n)
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
    return n;
}

INSTANTIATE_TEST_SUITE_P(EveryRateAndMode, ZamacEncode, ::testing::ValuesIn(everySetting()), settingName);

// Reads a CBR stream frame by frame: main_data_begin never reaches before the end of
// the previous frame's main data (nor before the stream), stays within 511 / 255
// bytes, and each frame's main data ends inside the frame.
TEST(ZamacEncodeReservoir, MainDataStaysWithinTheFramesOverLongStreams)
{
    for (const auto& [rate, options] : std::vector<std::pair<int, std::string>>{{44100, "-b 128"}, {44100, "-b 320"},
                                                                               {22050, "-b 32"}, {48000, "-V 2"}}) {
        const std::string wav = mp3test::scratch("long.wav"), mp3 = mp3test::scratch("long.mp3");
        writeInput(wav, rate, 2, 20.0);
        ASSERT_EQ(run("'" + kEncoder + "' --quiet " + options + " '" + wav + "' '" + mp3 + "'").status, 0);
        const auto bytes = mp3test::readBytes(mp3);
        size_t pos = 0;
        long long slotsSoFar = 0, dataEnd = 0;  // main-data stream offsets
        int frames = 0;
        bool first = true;
        while (pos + 4 <= bytes.size()) {
            std::vector<uint8_t> buf(bytes.begin() + static_cast<long>(pos), bytes.begin() + static_cast<long>(std::min(pos + 64, bytes.size())));
            buf.resize(72, 0);
            const uint8_t* p = buf.data();
            Mp3FrameHeader h{};
            ASSERT_EQ(zamsUnpackFrameHeader_MP3(&p, &h), zamStsOk);
            static const int kKbps[2][15] = {{0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
                                             {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}};
            const int frameBytes = (h.ID ? 144000 : 72000) * kKbps[h.ID][h.bitrate_index] / rate + h.padding_bit;
            Mp3SideInfo si[4];
            int32_t mdb, priv, scfsi[8];
            ASSERT_EQ(zamsUnpackSideInfo_MP3(&p, si, &mdb, &priv, scfsi, &h), zamStsOk);
            const int sideBytes = static_cast<int>(p - buf.data());
            pos += static_cast<size_t>(frameBytes);
            if (first) {  // the Xing/Info frame carries no main data
                first = false;
                continue;
            }
            const int slot = frameBytes - sideBytes;
            const long long start = slotsSoFar - mdb;
            long long used = 0;
            for (int i = 0; i < (h.ID ? 2 : 1) * 2; ++i) used += si[i].part2_3_length;
            EXPECT_LE(mdb, h.ID ? 511 : 255);
            EXPECT_GE(start, dataEnd) << "frame " << frames << ": main data overlaps the previous frame's";
            EXPECT_LE(start + (used + 7) / 8, slotsSoFar + slot) << "frame " << frames << ": main data beyond the frame";
            dataEnd = start + (used + 7) / 8;
            slotsSoFar += slot;
            ++frames;
        }
        EXPECT_EQ(pos, bytes.size());
        EXPECT_GT(frames, 300);
        std::remove(wav.c_str());
        std::remove(mp3.c_str());
    }
}

TEST(ZamacEncodeCommandLine, HelpAndBadArguments)
{
    const Outcome help = run("'" + kEncoder + "' --help > /dev/null");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(run("'" + kEncoder + "' -b 100 /dev/null /dev/null").status, 0);
    EXPECT_NE(run("'" + kEncoder + "' -V 12 x.wav").status, 0);
}

}  // namespace
