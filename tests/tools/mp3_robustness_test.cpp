// zamac-decode on damaged MP3 input: truncated files, garbage, bit flips, tags.
// Nothing may crash (the sanitizer build turns any memory fault into a crash);
// damage costs frames, not the stream.
#include <gtest/gtest.h>

#include <random>

#include "mp3_support.h"

namespace {

using mp3test::decodeRaw;
using mp3test::readBytes;

std::string iso(const char* name) { return zamtest::sharedPath("vectors/mp3-iso/") + name + ".bit"; }

mp3test::RunResult decodeBytes(const std::vector<uint8_t>& bytes)
{
    const std::string path = mp3test::scratch("in.mp3");
    mp3test::writeBytes(path, bytes);
    auto r = decodeRaw(path);
    std::remove(path.c_str());
    return r;
}

class Mp3Robustness : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!mp3test::toolBuilt()) GTEST_SKIP() << "zamac-decode is not built";
    }
};

TEST_F(Mp3Robustness, TruncatedStreams)
{
    for (const char* name : {"l3-si_block", "M2L3_compl24", "l3-he_free"}) {
        const auto full = readBytes(iso(name));
        for (size_t cut : {size_t{0}, size_t{3}, size_t{5}, size_t{40}, size_t{417}, full.size() / 3,
                           full.size() - 1}) {
            const auto r = decodeBytes(std::vector<uint8_t>(full.begin(), full.begin() + std::min(cut, full.size())));
            EXPECT_TRUE(r.exitCode == 0 || r.exitCode == 1) << name << " cut at " << cut;
        }
    }
}

TEST_F(Mp3Robustness, GarbageWithSyncLikeBytes)
{
    std::mt19937 gen(99);
    for (int round = 0; round < 4; ++round) {
        std::vector<uint8_t> junk(20000);
        for (auto& b : junk) b = static_cast<uint8_t>(gen() % 7 == 0 ? 0xFF : gen());
        const auto r = decodeBytes(junk);
        EXPECT_TRUE(r.exitCode == 0 || r.exitCode == 1) << round;
    }
}

TEST_F(Mp3Robustness, BitFlipsCostFramesNotTheStream)
{
    std::mt19937 gen(7);
    for (const char* name : {"l3-test46", "l3-si_huff", "M2L3_noise", "l3-compl"}) {
        const auto clean = readBytes(iso(name));
        const auto reference = decodeRaw(iso(name));
        for (int round = 0; round < 3; ++round) {
            auto bytes = clean;
            for (size_t i = 0; i < bytes.size() / 500; ++i) bytes[gen() % bytes.size()] ^= uint8_t(1u << (gen() % 8));
            const auto r = decodeBytes(bytes);
            ASSERT_TRUE(r.exitCode == 0 || r.exitCode == 1) << name;
            // Most frames survive: the output keeps at least half its length.
            EXPECT_GE(r.pcm.size(), reference.pcm.size() / 2) << name << " round " << round;
        }
    }
}

TEST_F(Mp3Robustness, TagsAndJunkAroundTheFramesChangeNothing)
{
    const auto clean = readBytes(iso("l3-si"));
    const auto reference = decodeRaw(iso("l3-si"));
    std::vector<uint8_t> bytes;
    // ID3v2.4 tag of 100 bytes of content, with a false sync inside it.
    const uint8_t id3[10] = {'I', 'D', '3', 4, 0, 0, 0, 0, 0, 100};
    bytes.insert(bytes.end(), id3, id3 + 10);
    std::vector<uint8_t> content(100, 0);
    content[10] = 0xFF;
    content[11] = 0xFB;
    content[12] = 0x50;
    bytes.insert(bytes.end(), content.begin(), content.end());
    bytes.insert(bytes.end(), 37, 0x00);  // junk before the first frame
    bytes.insert(bytes.end(), clean.begin(), clean.end());
    // APE tag (footer only, 32 + 8 bytes of items), then ID3v1.
    std::vector<uint8_t> ape(8, 'x');
    const uint8_t footer[32] = {'A', 'P', 'E', 'T', 'A', 'G', 'E', 'X', 0xD0, 0x07, 0, 0, 40, 0, 0, 0,
                                1,   0,   0,   0,   0,   0,   0,   0,   0,    0,    0, 0, 0,  0, 0, 0};
    bytes.insert(bytes.end(), ape.begin(), ape.end());
    bytes.insert(bytes.end(), footer, footer + 32);
    std::vector<uint8_t> id3v1(128, 0xFF);
    id3v1[0] = 'T';
    id3v1[1] = 'A';
    id3v1[2] = 'G';
    bytes.insert(bytes.end(), id3v1.begin(), id3v1.end());
    const auto r = decodeBytes(bytes);
    ASSERT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.pcm, reference.pcm);
}

TEST_F(Mp3Robustness, LayerTwoIsRefusedWithAMessage)
{
    // Three MPEG-1 Layer II headers (128 kb/s, 44.1 kHz: 417 bytes per frame).
    std::vector<uint8_t> bytes;
    for (int f = 0; f < 3; ++f) {
        std::vector<uint8_t> frame(417, 0);
        frame[0] = 0xFF;
        frame[1] = 0xFD;
        frame[2] = 0x90;
        frame[3] = 0xC0;
        bytes.insert(bytes.end(), frame.begin(), frame.end());
    }
    const auto r = decodeBytes(bytes);
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.pcm.empty());
}

}  // namespace
