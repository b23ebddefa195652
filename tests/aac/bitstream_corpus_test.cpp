// Real ADTS streams from Debian's ffmpeg, walked element by element through the
// stream-header, element and noiseless-decoding readers. Every frame must parse
// without error and end exactly at aac_frame_length; LC channels decode alike
// through both noiseless decoders, and some streams also go through the spectral
// tools against a double-precision reference.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "aac_test_util.h"
#include "zamac.h"

namespace {

// Prediction bands per sampling-frequency index (main profile).
constexpr int kPredSfbMax[12] = {33, 33, 38, 40, 40, 40, 41, 41, 37, 37, 37, 34};

// Tools that must really occur over the whole corpus (the encoder never writes
// pulse data; those are covered by hand-built streams).
struct Counts {
    int lcCompared = 0, eightShortGrouped = 0, intensityBands = 0, noiseBands = 0, tns = 0, msMask1 = 0;
};

Counts g_total;

struct ChannelResult {
    ZamStatus status;
    AacChanInfo info;
    AacIcsInfo ics;
    int16_t sf[8 * 64];
    uint8_t cb[8 * 64];
    int32_t spectrum[1024];
    int8_t tnsCoef[60];
    uint8_t* ptr;
    int offset;
};

class StreamWalker {
public:
    StreamWalker(int audioObjectType, Counts& counts) : aot_(audioObjectType), counts_(counts) {}

    bool rawDataBlock(uint8_t*& p, int& off, int sfi)
    {
        return aactest::walkRawDataBlock(
            p, off, [&](uint8_t*& q, int& o) { AacIcsInfo ics{}; return channel(q, o, sfi, &ics, false); },
            [&](uint8_t*& q, int& o) { return channelPair(q, o, sfi); });
    }

private:
    bool channelPair(uint8_t*& p, int& off, int sfi)
    {
        AacIcsInfo ics{};
        AacChanPairElt cpe{};
        uint8_t* p2 = p;
        int off2 = off;
        ZamStatus st;
        if (aot_ == 2) {
            st = zamsDecodeChanPairElt_AAC(&p, &off, &ics, &cpe, 0);
            EXPECT_EQ(st, zamStsOk);
            // The MPEG-4 form reads the same bits for an LC stream.
            AacIcsInfo ics4{};
            AacChanPairElt cpe4{};
            mainHeader_ = AacMainHeader{};
            EXPECT_EQ(zamsDecodeChanPairElt_MP4_AAC(&p2, &off2, &ics4, &cpe4, &mainHeader_, 0, 2), zamStsOk);
            EXPECT_EQ(p2, p);
            EXPECT_EQ(off2, off);
            EXPECT_EQ(std::memcmp(&ics, &ics4, sizeof ics), 0);
            EXPECT_EQ(std::memcmp(&cpe, &cpe4, sizeof cpe), 0);
        } else {
            mainHeader_ = AacMainHeader{};
            st = zamsDecodeChanPairElt_MP4_AAC(&p, &off, &ics, &cpe, &mainHeader_, aot_ == 1 ? kPredSfbMax[sfi] : 0, aot_);
            EXPECT_EQ(st, zamStsOk);
        }
        if (st != zamStsOk) return false;
        if (cpe.common_window && cpe.ms_mask_present == 1) ++counts_.msMask1;
        for (int ch = 0; ch < 2; ++ch) {
            AacIcsInfo chIcs = ics;
            if (!channel(p, off, sfi, &chIcs, cpe.common_window != 0)) return false;
        }
        return true;
    }

    void runGeneral(uint8_t* p, int off, int sfi, const AacIcsInfo* ics, bool common, ChannelResult& r)
    {
        std::memset(&r, 0, sizeof r);
        r.ics = *ics;
        r.info.sampling_frequency_index = sfi;
        r.info.num_pred_sfb = aot_ == 1 ? kPredSfbMax[sfi] : 0;
        r.info.pIcsInfo = &r.ics;
        r.ptr = p;
        r.offset = off;
        r.status = zamsNoiselessDecode_AAC(&r.ptr, &r.offset, &mainHeader_, r.sf, r.spectrum, r.cb, r.tnsCoef, &r.info,
                                           0, 0, common ? 1 : 0, 0, aot_);
    }

    void runLc(uint8_t* p, int off, int sfi, const AacIcsInfo* ics, bool common, ChannelResult& r)
    {
        std::memset(&r, 0, sizeof r);
        r.ics = *ics;
        r.info.sampling_frequency_index = sfi;
        r.info.pIcsInfo = &r.ics;
        r.ptr = p;
        r.offset = off;
        r.status = zamsNoiselessDecoder_LC_AAC(&r.ptr, &r.offset, common ? 1 : 0, &r.info, r.sf, r.spectrum, r.cb,
                                               r.tnsCoef);
    }

    bool channel(uint8_t*& p, int& off, int sfi, AacIcsInfo* ics, bool common)
    {
        if (!common) mainHeader_ = AacMainHeader{};
        auto& g = general_;
        runGeneral(p, off, sfi, ics, common, g);
        EXPECT_EQ(g.status, zamStsOk);
        if (g.status != zamStsOk) return false;

        const int groups = g.ics.num_window_groups;
        const int maxSfb = g.ics.max_sfb;
        bool noise = false;
        for (int i = 0; i < groups * maxSfb; ++i) {
            if (g.cb[i] == 13) ++counts_.noiseBands, noise = true;
            if (g.cb[i] == 14 || g.cb[i] == 15) ++counts_.intensityBands;
        }
        if (g.ics.window_sequence == 2 && groups > 1) ++counts_.eightShortGrouped;
        counts_.tns += g.info.tns_data_present;

        if (aot_ == 2) {
            auto& lc = lc_;
            runLc(p, off, sfi, ics, common, lc);
            if (noise) {
                EXPECT_EQ(lc.status, zamStsAacSfCbErr);
            } else {
                ++counts_.lcCompared;
                EXPECT_EQ(lc.status, zamStsOk);
                EXPECT_EQ(lc.ptr, g.ptr);
                EXPECT_EQ(lc.offset, g.offset);
                EXPECT_EQ(std::memcmp(lc.spectrum, g.spectrum, sizeof g.spectrum), 0);
                EXPECT_EQ(std::memcmp(lc.sf, g.sf, sizeof g.sf), 0);
                EXPECT_EQ(std::memcmp(lc.cb, g.cb, sizeof g.cb), 0);
                EXPECT_EQ(std::memcmp(&lc.ics, &g.ics, sizeof g.ics), 0);
                EXPECT_EQ(std::memcmp(&lc.info, &g.info, offsetof(AacChanInfo, pIcsInfo)), 0);
                EXPECT_EQ(std::memcmp(lc.info.sect_cb, g.info.sect_cb,
                                      sizeof(AacChanInfo) - offsetof(AacChanInfo, sect_cb)),
                          0);
            }
        }
        p = g.ptr;
        off = g.offset;
        return true;
    }

    int aot_;
    Counts& counts_;
    AacMainHeader mainHeader_{};
    ChannelResult general_;
    ChannelResult lc_;
};

// The LC streams with spectral expectations are also taken through the spectral
// tools (spectral_frame_check.cpp); the tools each was made for must occur in it.
enum Expect {
    kSpectral = 1,
    kEightShort = 2,  // eight-short frames without noise bands, compared
    kMs = 4,
    kIntensity = 8,
    kNoise = 16,  // noise bands of long frames with a measurable energy
    kTns = 32,
};

struct CorpusCase {
    const char* name;
    int rate;
    int channels;
    const char* options;
    int expectedProfile;  // ADTS profile = object type - 1
    int input;            // 0 music-like stereo source, 1 steady tone
    int expect;
};

std::ostream& operator<<(std::ostream& os, const CorpusCase& c) { return os << c.name; }

const CorpusCase kCases[] = {
    {"mono8k_no_pns", 8000, 1, "-b:a 24k -aac_pns 0 -aac_tns 1", 1, 0, kSpectral | kEightShort | kTns},
    {"stereo8k", 8000, 2, "-b:a 32k", 1, 0, 0},
    {"mono16k", 16000, 1, "-b:a 32k", 1, 0, 0},
    {"stereo16k_tools", 16000, 2, "-b:a 32k -aac_ms 1 -aac_is 1 -aac_pns 1 -aac_tns 1", 1, 0,
     kSpectral | kEightShort | kMs},
    {"mono22k", 22050, 1, "-b:a 40k", 1, 0, 0},
    {"stereo22k_tools", 22050, 2, "-b:a 40k -aac_ms 1 -aac_is 1 -aac_pns 1 -aac_tns 1", 1, 0,
     kSpectral | kMs | kIntensity | kNoise | kTns},
    {"mono32k_pns_tns", 32000, 1, "-b:a 32k -aac_pns 1 -aac_tns 1", 1, 0, kSpectral | kEightShort | kNoise | kTns},
    {"stereo32k", 32000, 2, "-b:a 96k", 1, 0, 0},
    {"mono44k_no_pns", 44100, 1, "-b:a 96k -aac_pns 0 -aac_tns 1", 1, 0, kSpectral | kEightShort},
    {"stereo44k", 44100, 2, "-b:a 128k", 1, 0, 0},
    {"mono48k", 48000, 1, "-b:a 64k", 1, 0, 0},
    {"stereo48k_no_pns", 48000, 2, "-b:a 160k -aac_pns 0 -aac_tns 1", 1, 0, kSpectral | kEightShort | kMs | kIntensity},
    {"mono96k", 96000, 1, "-b:a 96k", 1, 0, 0},
    {"stereo96k_no_pns", 96000, 2, "-b:a 192k -aac_pns 0 -aac_tns 1", 1, 0,
     kSpectral | kEightShort | kMs | kIntensity | kTns},
    {"stereo44k_ms_is_pns_tns", 44100, 2, "-b:a 64k -aac_ms 1 -aac_is 1 -aac_pns 1 -aac_tns 1", 1, 0,
     kSpectral | kEightShort | kMs | kIntensity | kNoise},
    {"stereo44k_fast_coder", 44100, 2, "-b:a 96k -aac_coder fast", 1, 0, 0},
    {"stereo48k_pce", 48000, 2, "-b:a 128k -aac_pce 1", 1, 0, 0},
    {"stereo44k_main_pred", 44100, 2, "-b:a 96k -profile:a aac_main -aac_pred 1", 0, 0, 0},
    {"stereo32k_ltp", 32000, 2, "-b:a 64k -profile:a aac_ltp -aac_ltp 1 -strict -2", 3, 1, 0},
    {"mono32k_ltp", 32000, 1, "-b:a 48k -profile:a aac_ltp -aac_ltp 1 -strict -2", 3, 1, 0},
};

std::string corpusPath(const CorpusCase& c)
{
    return std::string(ZAMAC_BINARY_DIR) + "/aac_corpus_" + c.name + ".aac";
}

class AacCorpus : public ::testing::TestWithParam<CorpusCase> {
public:
    // One ffmpeg run writes every stream of the corpus.
    static void SetUpTestSuite()
    {
        if (!aactest::haveFfmpeg()) return;
        std::string cmd = "ffmpeg -hide_banner -loglevel error -y -f lavfi -i \"" + aactest::musicSource(1.0) +
                          "\" -f lavfi -i \"sine=f=440:sample_rate=32000:d=1.0\"";
        for (const CorpusCase& c : kCases) {
            cmd += " -map " + std::to_string(c.input) + ":a -ar " + std::to_string(c.rate) + " -ac " +
                   std::to_string(c.channels) + " -c:a aac " + c.options + " -f adts \"" + corpusPath(c) + "\"";
        }
        generated_ = std::system((cmd + " >/dev/null 2>&1").c_str()) == 0;
    }

    static void TearDownTestSuite()
    {
        for (const CorpusCase& c : kCases) std::remove(corpusPath(c).c_str());
        if (!generated_) return;
        const Counts& t = g_total;
        if (t.lcCompared == 0) return;  // filtered run
        EXPECT_GT(t.eightShortGrouped, 0);
        EXPECT_GT(t.intensityBands, 0);
        EXPECT_GT(t.noiseBands, 0);
        EXPECT_GT(t.tns, 0);
        EXPECT_GT(t.msMask1, 0);
        EXPECT_GT(t.lcCompared, 0);
    }

    static bool generated_;
};

bool AacCorpus::generated_ = false;

TEST_P(AacCorpus, EveryFrameParsesExactly)
{
    const CorpusCase& cc = GetParam();
    if (!aactest::haveFfmpeg()) GTEST_SKIP() << "ffmpeg not installed";
    ASSERT_TRUE(generated_) << "ffmpeg failed to write the corpus";
    std::vector<uint8_t> data;
    ASSERT_TRUE(aactest::readFile(corpusPath(cc), data));
    const size_t size = data.size();
    data.resize(size + 8, 0);  // read slack

    size_t pos = 0;
    int frames = 0;
    aactest::SpectralStats spectral;
    while (pos + 7 <= size) {
        uint8_t* p = data.data() + pos;
        AacAdtsFrameHeader h;
        ASSERT_EQ(zamsUnpackADTSFrameHeader_AAC(&p, &h), zamStsOk);
        ASSERT_EQ(p - (data.data() + pos), h.protection_absent ? 7 : 9);
        ASSERT_EQ(h.profile, cc.expectedProfile);
        ASSERT_EQ(h.channel_configuration == 0 ? cc.channels : h.channel_configuration, cc.channels);
        ASSERT_EQ(h.number_of_raw_data_blocks_in_frame, 1);
        ASSERT_LE(pos + static_cast<size_t>(h.aac_frame_length), size);
        if (cc.expect & kSpectral) {
            ASSERT_TRUE(aactest::checkSpectralFrame(p, h.sampling_frequency_index, spectral)) << "frame " << frames;
        }
        int off = 0;
        StreamWalker walker(h.profile + 1, g_total);
        ASSERT_TRUE(walker.rawDataBlock(p, off, h.sampling_frequency_index)) << "frame " << frames;
        if (off) ++p, off = 0;  // byte_alignment()
        ASSERT_EQ(p - data.data(), static_cast<ptrdiff_t>(pos + h.aac_frame_length)) << "frame " << frames;
        pos += static_cast<size_t>(h.aac_frame_length);
        ++frames;
    }
    EXPECT_EQ(pos, size);
    EXPECT_GT(frames, 5);
    if (cc.expect & kSpectral) EXPECT_GT(spectral.compared, 0);
    if (cc.expect & kEightShort) EXPECT_GT(spectral.eightShortCompared, 0);
    if (cc.expect & kMs) EXPECT_GT(spectral.ms, 0);
    if (cc.expect & kIntensity) EXPECT_GT(spectral.intensity, 0);
    if (cc.expect & kNoise) EXPECT_GT(spectral.noiseChecked, 0);
    if (cc.expect & kTns) EXPECT_GT(spectral.tns, 0);
}

INSTANTIATE_TEST_SUITE_P(Ffmpeg, AacCorpus, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<CorpusCase>& i) { return std::string(i.param.name); });

}  // namespace
