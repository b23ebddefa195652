// tools/common's WAVE writer and reader (what the encoders read their input with):
// headers written for every sample format and channel count read back, samples
// through the packers and back.
#include <gtest/gtest.h>

#include <cstdio>
#include <vector>

#include "tool_wav.h"

namespace {

struct WavCase {
    int channels;
    uint32_t mask;
    WavSampleFormat format;
};

class WavRoundTrip : public ::testing::TestWithParam<WavCase> {};

TEST_P(WavRoundTrip, WrittenFilesReadBack)
{
    const WavCase& c = GetParam();
    const int frames = 1000;
    std::vector<int16_t> pcm(static_cast<size_t>(frames) * c.channels);
    for (size_t i = 0; i < pcm.size(); ++i) pcm[i] = static_cast<int16_t>((i * 7919) % 65536 - 32768);
    std::vector<uint8_t> bytes(68 + pcm.size() * 4);
    const size_t header = wav_header(bytes.data(), 44100, c.channels, c.mask, c.format,
                                     static_cast<uint32_t>(pcm.size() * wav_sample_bytes(c.format)));
    const size_t body = wav_pack_s16(pcm.data(), pcm.size(), c.format, bytes.data() + header);
    FILE* f = fmemopen(bytes.data(), header + body, "rb");
    ASSERT_NE(f, nullptr);
    WavReader r;
    const char* why = nullptr;
    ASSERT_EQ(wav_read_open(&r, f, &why), 0) << why;
    EXPECT_EQ(r.channels, c.channels);
    EXPECT_EQ(r.sampleRate, 44100);
    EXPECT_EQ(r.frames, static_cast<uint64_t>(frames));
    EXPECT_EQ(r.isFloat, c.format == WAV_F32);
    std::vector<int16_t> back(pcm.size() + 8);
    long got = 0, n;
    while ((n = wav_read_s16(&r, back.data() + got * c.channels, 333)) > 0) got += n;
    EXPECT_EQ(got, frames);
    back.resize(pcm.size());
    EXPECT_EQ(back, pcm);
    std::fclose(f);
}

INSTANTIATE_TEST_SUITE_P(Formats, WavRoundTrip,
                         ::testing::Values(WavCase{1, 0x4, WAV_S16}, WavCase{2, 0x3, WAV_S16}, WavCase{6, 0x3F, WAV_S16},
                                           WavCase{2, 0x3, WAV_S24}, WavCase{1, 0, WAV_F32}, WavCase{2, 0x3, WAV_F32}));

TEST(WavReader, RefusesWhatItCannotRead)
{
    const char* why = nullptr;
    WavReader r;
    char text[] = "RIFF\x10\0\0\0WAVEjunk";
    FILE* f = fmemopen(text, sizeof text - 1, "rb");
    EXPECT_EQ(wav_read_open(&r, f, &why), -1);
    EXPECT_NE(why, nullptr);
    std::fclose(f);
    char notWave[] = "ID3\x04\0\0\0\0\0\0\0\0";
    f = fmemopen(notWave, sizeof notWave - 1, "rb");
    EXPECT_EQ(wav_read_open(&r, f, &why), -1);
    EXPECT_STREQ(why, "not a WAVE file");
    std::fclose(f);
}

}  // namespace
