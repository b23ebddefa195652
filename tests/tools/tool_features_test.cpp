// zamac-decode as people use it: gapless MP3 from lame (the length of the input, as
// mpg123 gives it; a VBRI header's delay), M4A files from ffmpeg (plain and fragmented)
// and LOAS/LATM streams (the same PCM as their ADTS twins, and the
// length of the input with gapless trimming), standard input and output, and the
// 24-bit and float output formats against the float path.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

const std::string kTool = ZAMAC_BINARY_DIR "/tools/zamac-decode/zamac-decode";

std::string scratch(const std::string& name)
{
    return std::string(ZAMAC_BINARY_DIR) + "/feattest_" + std::to_string(::getpid()) + "_" + name;
}

bool sh(const std::string& command) { return std::system(("(" + command + ") >/dev/null 2>&1").c_str()) == 0; }
bool have(const char* program) { return sh(std::string("command -v ") + program); }

std::string slurp(const std::string& path)
{
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

// The data chunk of a WAVE file and its format fields.
struct Wave {
    int format = 0, channels = 0, bits = 0;
    std::string data;
    size_t frames() const { return channels && bits ? data.size() / (channels * bits / 8) : 0; }
};

Wave readWave(const std::string& bytes)
{
    Wave w;
    auto u = [&](size_t at, int n) {
        uint32_t v = 0;
        for (int i = n - 1; i >= 0; --i) v = v << 8 | static_cast<uint8_t>(bytes[at + i]);
        return v;
    };
    for (size_t at = 12; at + 8 <= bytes.size();) {
        const uint32_t size = u(at + 4, 4);
        if (bytes.compare(at, 4, "fmt ") == 0) {
            w.format = static_cast<int>(u(at + 8, 2));
            if (w.format == 0xFFFE) w.format = static_cast<int>(u(at + 32, 2));
            w.channels = static_cast<int>(u(at + 10, 2));
            w.bits = static_cast<int>(u(at + 22, 2));
        } else if (bytes.compare(at, 4, "data") == 0) {
            w.data = bytes.substr(at + 8, std::min<size_t>(size, bytes.size() - at - 8));
            break;
        }
        at += 8 + size + (size & 1);
    }
    return w;
}

// A test signal of exactly `frames` sample frames.
std::string makeInput(int rate, int channels, long frames)
{
    const std::string wav = scratch("in.wav");
    sh("ffmpeg -nostdin -y -f lavfi -i \"aevalsrc=exprs=0.4*sin(2*PI*440*t)+0.2*sin(2*PI*3000*t)*sin(3*t):s=" +
       std::to_string(rate) + ":d=" + std::to_string(frames / rate + 1) + "\" -ac " + std::to_string(channels) +
       " -af atrim=end_sample=" + std::to_string(frames) + " -c:a pcm_s16le '" + wav + "'");
    return wav;
}

long decodedFrames(const std::string& args)
{
    const std::string out = scratch("out.wav");
    if (!sh(kTool + " -q " + args + " -o '" + out + "'")) return -1;
    const long frames = static_cast<long>(readWave(slurp(out)).frames());
    std::remove(out.c_str());
    return frames;
}

struct LameCase {
    const char* name;
    int rate, channels;
    const char* options;
};

class Gapless : public ::testing::TestWithParam<LameCase> {};

TEST_P(Gapless, LameStreamsDecodeToTheInputLength)
{
    if (!have("lame") || !have("ffmpeg")) GTEST_SKIP() << "lame and ffmpeg are needed";
    const LameCase& c = GetParam();
    const long frames = 454230L * c.rate / 44100;
    const std::string wav = makeInput(c.rate, c.channels, frames), mp3 = scratch("in.mp3");
    ASSERT_TRUE(sh(std::string("lame --quiet ") + c.options + " '" + wav + "' '" + mp3 + "'"));
    EXPECT_EQ(decodedFrames("'" + mp3 + "'"), frames);
    EXPECT_EQ(decodedFrames("--fixed '" + mp3 + "'"), frames);
    EXPECT_GT(decodedFrames("--no-gapless '" + mp3 + "'"), frames + 1000);
    std::remove(wav.c_str());
    std::remove(mp3.c_str());
}

INSTANTIATE_TEST_SUITE_P(Lame, Gapless,
                         ::testing::Values(LameCase{"cbr44stereo", 44100, 2, "-b 128"},
                                           LameCase{"vbr48stereo", 48000, 2, "-V 2"},
                                           LameCase{"cbr32mono", 32000, 1, "-m m -b 64"},
                                           LameCase{"vbr22mono", 22050, 1, "-m m -V 5"},
                                           LameCase{"cbr16stereo", 16000, 2, "-b 64"}),
                         [](const ::testing::TestParamInfo<LameCase>& i) { return std::string(i.param.name); });

// A VBRI header's encoder delay is removed like a LAME tag's (with the decoder's 529
// samples); VBRI declares no padding, so the end is kept.
TEST(VbriHeader, ItsDelayIsRemoved)
{
    if (!have("lame") || !have("ffmpeg")) GTEST_SKIP() << "lame and ffmpeg are needed";
    const std::string wav = makeInput(44100, 2, 100000), mp3 = scratch("plain.mp3"), vbri = scratch("vbri.mp3");
    const std::string a = scratch("plain.raw"), b = scratch("vbri.raw");
    ASSERT_TRUE(sh("lame --quiet -t -b 128 '" + wav + "' '" + mp3 + "'"));
    ASSERT_TRUE(sh(kTool + " -q '" + mp3 + "' > '" + a + "'"));
    const std::string plain = slurp(mp3), plainPcm = slurp(a);
    const size_t frames = plainPcm.size() / 4 / 1152, delay = 1000;
    ASSERT_GT(frames, 50u);
    std::string frame(417, '\0');  // 128 kbit/s at 44.1 kHz without the padding slot
    frame.replace(0, 4, plain.substr(0, 4));
    frame[2] = static_cast<char>(frame[2] & ~2);
    auto byte = [](size_t v, int shift) { return static_cast<unsigned char>(v >> shift); };
    const unsigned char fields[] = {'V', 'B', 'R', 'I', 0, 1, byte(delay, 8), byte(delay, 0), 0, 50, 0, 0, 0, 0,
                                    byte(frames, 24), byte(frames, 16), byte(frames, 8), byte(frames, 0)};
    frame.replace(36, sizeof fields, reinterpret_cast<const char*>(fields), sizeof fields);
    std::ofstream(vbri, std::ios::binary) << frame << plain;
    ASSERT_TRUE(sh(kTool + " -q '" + vbri + "' > '" + b + "'"));
    const std::string trimmed = slurp(b);
    EXPECT_EQ(trimmed.size(), (frames * 1152 - delay) * 4);
    EXPECT_TRUE(trimmed.compare(0, (frames * 1152 - delay - 529) * 4, plainPcm, (delay + 529) * 4, std::string::npos) == 0);
    for (const std::string& f : {wav, mp3, vbri, a, b}) std::remove(f.c_str());
}

// An M4A file, the ADTS stream copied out of it and the same stream in a fragmented
// MP4 file (moof boxes) give the same PCM (without trimming); with the edit list
// applied the length is the input's.
TEST(Mp4Input, DecodesLikeItsAdtsTwin)
{
    if (!have("ffmpeg")) GTEST_SKIP() << "ffmpeg is needed";
    const long frames = 100000;
    const std::string wav = makeInput(44100, 2, frames), m4a = scratch("a.m4a"), adts = scratch("a.aac");
    const std::string fragmented = scratch("f.m4a"), latm = scratch("a.latm");
    ASSERT_TRUE(sh("ffmpeg -nostdin -y -i '" + wav + "' -c:a aac -b:a 128k '" + m4a + "'"));
    ASSERT_TRUE(sh("ffmpeg -nostdin -y -i '" + m4a + "' -c copy -f adts '" + adts + "'"));
    ASSERT_TRUE(sh("ffmpeg -nostdin -y -i '" + m4a + "' -c copy -movflags frag_keyframe+empty_moov -frag_duration "
                   "500000 '" + fragmented + "'"));
    ASSERT_TRUE(sh("ffmpeg -nostdin -y -i '" + m4a + "' -c copy -f latm '" + latm + "'"));
    const std::string a = scratch("m4a.raw"), b = scratch("adts.raw"), c = scratch("frag.raw"), d = scratch("latm.raw");
    ASSERT_TRUE(sh(kTool + " -q --no-gapless '" + m4a + "' > '" + a + "'"));
    ASSERT_TRUE(sh(kTool + " -q '" + adts + "' > '" + b + "'"));
    ASSERT_TRUE(sh(kTool + " -q --no-gapless '" + fragmented + "' > '" + c + "'"));
    ASSERT_TRUE(sh(kTool + " -q '" + latm + "' > '" + d + "'"));
    EXPECT_GT(slurp(a).size(), 100000u * 4);
    EXPECT_TRUE(slurp(a) == slurp(b));
    EXPECT_TRUE(slurp(a) == slurp(c));
    EXPECT_TRUE(slurp(a) == slurp(d));
    EXPECT_EQ(decodedFrames("'" + m4a + "'"), frames);
    for (const std::string& f : {wav, m4a, adts, fragmented, latm, a, b, c, d}) std::remove(f.c_str());
}

// The shared HE-AAC streams put into MP4 and LOAS/LATM by ffmpeg (-c copy): the same
// PCM as the ADTS file.
TEST(Mp4Input, HeAacStreamsCopiedIntoMp4)
{
    if (!have("ffmpeg")) GTEST_SKIP() << "ffmpeg is needed";
    for (const char* name : {"sbr_44k_stereo_loud_vbr", "ps_24k_wide"}) {
        const std::string adts = zamtest::sharedPath(std::string("vectors/aac-he/") + name + ".aac");
        const std::string m4a = scratch("he.m4a"), a = scratch("he-m4a.raw"), b = scratch("he-adts.raw");
        const std::string latm = scratch("he.latm"), c = scratch("he-latm.raw");
        ASSERT_TRUE(sh("ffmpeg -nostdin -y -i '" + adts + "' -c copy '" + m4a + "'")) << name;
        ASSERT_TRUE(sh("ffmpeg -nostdin -y -i '" + adts + "' -c copy -f latm '" + latm + "'")) << name;
        ASSERT_TRUE(sh(kTool + " -q --no-gapless '" + m4a + "' > '" + a + "'")) << name;
        ASSERT_TRUE(sh(kTool + " -q '" + adts + "' > '" + b + "'")) << name;
        ASSERT_TRUE(sh(kTool + " -q '" + latm + "' > '" + c + "'")) << name;
        EXPECT_GT(slurp(b).size(), 10000u);
        EXPECT_TRUE(slurp(a) == slurp(b)) << name;
        EXPECT_TRUE(slurp(c) == slurp(b)) << name;
        for (const std::string& f : {m4a, latm, a, b, c}) std::remove(f.c_str());
    }
}

TEST(StandardStreams, StdinToStdoutGivesTheFileOutput)
{
    const std::string sample = ZAMAC_SOURCE_DIR "/samples/music-44k-stereo.mp3";
    const std::string file = scratch("file.wav"), piped = scratch("piped.wav");
    ASSERT_TRUE(sh(kTool + " -q -o '" + file + "' '" + sample + "'"));
    ASSERT_TRUE(sh("cat '" + sample + "' | " + kTool + " -q -o - - | cat > '" + piped + "'"));
    const Wave a = readWave(slurp(file)), b = readWave(slurp(piped));
    EXPECT_GT(a.frames(), 300000u);
    EXPECT_TRUE(a.data == b.data);  // the streamed header leaves the sizes open; the samples agree
    std::remove(file.c_str());
    std::remove(piped.c_str());
}

// s24 and f32 carry the float path's samples: within rounding of the 16-bit output,
// and f32 is not clipped.
TEST(OutputFormats, AgreeWithTheSixteenBitOutput)
{
    const std::string sample = ZAMAC_SOURCE_DIR "/samples/music-44k-stereo.aac";
    std::vector<Wave> waves;
    for (const char* format : {"s16", "s24", "f32"}) {
        const std::string out = scratch(std::string(format) + ".wav");
        ASSERT_TRUE(sh(kTool + " -q -f " + format + " -o '" + out + "' '" + sample + "'")) << format;
        waves.push_back(readWave(slurp(out)));
        std::remove(out.c_str());
    }
    ASSERT_EQ(waves[1].bits, 24);
    ASSERT_EQ(waves[2].format, 3);
    const size_t n = waves[0].data.size() / 2;
    ASSERT_EQ(waves[1].frames(), waves[0].frames());
    ASSERT_EQ(waves[2].frames(), waves[0].frames());
    double largest24 = 0, largestF = 0;
    for (size_t i = 0; i < n; ++i) {
        int16_t s16;
        std::memcpy(&s16, &waves[0].data[2 * i], 2);
        const auto* p = reinterpret_cast<const uint8_t*>(&waves[1].data[3 * i]);
        const int32_t s24 = static_cast<int32_t>(static_cast<uint32_t>(p[0]) << 8 | p[1] << 16 | p[2] << 24) >> 8;
        float f;
        std::memcpy(&f, &waves[2].data[4 * i], 4);
        if (s16 == 32767 || s16 == -32768) continue;  // clipped in s16, not in f32
        largest24 = std::max(largest24, std::fabs(s24 / 256.0 - s16));
        largestF = std::max(largestF, std::fabs(f * 32768.0 - s16));
    }
    EXPECT_LE(largest24, 0.5);
    EXPECT_LE(largestF, 0.5);
}

}  // namespace
