// Real ADTS streams from Debian's ffmpeg, walked element by element through the
// stream-header, element and noiseless-decoding readers. Every frame must parse
// without error and end exactly at aac_frame_length.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "bitstream_test_util.h"
#include "zamac.h"

namespace {

// Prediction bands per sampling-frequency index (main profile).
constexpr int kPredSfbMax[12] = {33, 33, 38, 40, 40, 40, 41, 41, 37, 37, 37, 34};

enum ElementId { kSce = 0, kCpe = 1, kCce = 2, kLfe = 3, kDse = 4, kPce = 5, kFil = 6, kEnd = 7 };

struct Counts {
    int frames = 0;
    int channelStreams = 0;
    int lcCompared = 0;
    int eightShort = 0;
    int eightShortGrouped = 0;  // more than one window group
    int intensityBands = 0;
    int noiseBands = 0;
    int pulse = 0;
    int tns = 0;
    int msMask1 = 0;
    int commonWindow = 0;
    int fill = 0;
    int dse = 0;
    int pce = 0;
    int ltp = 0;
    int prediction = 0;
    void add(const Counts& o)
    {
        frames += o.frames, channelStreams += o.channelStreams, lcCompared += o.lcCompared;
        eightShort += o.eightShort, eightShortGrouped += o.eightShortGrouped, intensityBands += o.intensityBands;
        noiseBands += o.noiseBands, pulse += o.pulse, tns += o.tns, msMask1 += o.msMask1;
        commonWindow += o.commonWindow, fill += o.fill, dse += o.dse, pce += o.pce, ltp += o.ltp;
        prediction += o.prediction;
    }
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

    // Walks one raw_data_block(); returns false (with a gtest failure) on error.
    bool rawDataBlock(uint8_t*& p, int& off, int sfi)
    {
        for (int guard = 0; guard < 64; ++guard) {
            uint32_t id = readBits(p, off, 3);
            switch (id) {
            case kSce:
            case kLfe: {
                readBits(p, off, 4);
                AacIcsInfo ics{};
                if (!channel(p, off, sfi, &ics, false)) return false;
                break;
            }
            case kCpe: {
                readBits(p, off, 4);
                if (!channelPair(p, off, sfi)) return false;
                break;
            }
            case kDse: {
                int32_t tag, cnt;
                uint8_t buf[510];
                EXPECT_EQ(zamsDecodeDatStrElt_AAC(&p, &off, &tag, &cnt, buf), zamStsOk);
                ++counts_.dse;
                break;
            }
            case kPce: {
                AacProgramConfig pce;
                EXPECT_EQ(zamsDecodePrgCfgElt_AAC(&p, &off, &pce), zamStsOk);
                ++counts_.pce;
                break;
            }
            case kFil: {
                int32_t cnt;
                uint8_t buf[269];
                EXPECT_EQ(zamsDecodeFillElt_AAC(&p, &off, &cnt, buf), zamStsOk);
                ++counts_.fill;
                break;
            }
            case kEnd:
                return true;
            default:
                ADD_FAILURE() << "unexpected element " << id;
                return false;
            }
        }
        ADD_FAILURE() << "no END element";
        return false;
    }

private:
    static uint32_t readBits(uint8_t*& p, int& off, int n)
    {
        // A 1-byte fill element reads its count; use it as a plain field reader.
        uint32_t v = 0;
        for (int i = 0; i < n; ++i) {
            v = (v << 1) | ((*p >> (7 - off)) & 1u);
            if (++off == 8) off = 0, ++p;
        }
        return v;
    }

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
            if (cpe.common_window && (mainHeader_.ltp[0].ltp_data_present || mainHeader_.ltp[1].ltp_data_present)) {
                ++counts_.ltp;
            }
            if (cpe.common_window && ics.predictor_data_present && aot_ == 1) ++counts_.prediction;
        }
        if (st != zamStsOk) return false;
        if (cpe.common_window) {
            ++counts_.commonWindow;
            if (cpe.ms_mask_present == 1) ++counts_.msMask1;
        }
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
        ++counts_.channelStreams;
        if (!common) mainHeader_ = AacMainHeader{};
        auto& g = general_;
        runGeneral(p, off, sfi, ics, common, g);
        EXPECT_EQ(g.status, zamStsOk);
        if (g.status != zamStsOk) return false;
        if (!common && aot_ != 2 && mainHeader_.ltp[0].ltp_data_present) ++counts_.ltp;
        if (!common && aot_ == 1 && g.ics.predictor_data_present) ++counts_.prediction;

        const int groups = g.ics.num_window_groups;
        const int maxSfb = g.ics.max_sfb;
        bool noise = false;
        for (int i = 0; i < groups * maxSfb; ++i) {
            if (g.cb[i] == 13) ++counts_.noiseBands, noise = true;
            if (g.cb[i] == 14 || g.cb[i] == 15) ++counts_.intensityBands;
        }
        if (g.ics.window_sequence == 2) {
            ++counts_.eightShort;
            if (groups > 1) ++counts_.eightShortGrouped;
        }
        counts_.pulse += g.info.pulse_data_present;
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

struct CorpusCase {
    const char* name;
    int rate;
    int channels;
    const char* options;
    int expectedProfile;  // ADTS profile = object type - 1
    int input;            // 0 music-like stereo source, 1 steady tone
};

std::ostream& operator<<(std::ostream& os, const CorpusCase& c) { return os << c.name; }

const CorpusCase kCases[] = {
    {"mono8k", 8000, 1, "-b:a 24k", 1, 0},
    {"stereo8k", 8000, 2, "-b:a 32k", 1, 0},
    {"mono16k", 16000, 1, "-b:a 32k", 1, 0},
    {"stereo16k", 16000, 2, "-b:a 48k", 1, 0},
    {"mono22k", 22050, 1, "-b:a 40k", 1, 0},
    {"stereo22k", 22050, 2, "-b:a 64k", 1, 0},
    {"mono32k", 32000, 1, "-b:a 48k", 1, 0},
    {"stereo32k", 32000, 2, "-b:a 96k", 1, 0},
    {"mono44k", 44100, 1, "-b:a 64k", 1, 0},
    {"stereo44k", 44100, 2, "-b:a 128k", 1, 0},
    {"mono48k", 48000, 1, "-b:a 64k", 1, 0},
    {"stereo48k", 48000, 2, "-b:a 160k", 1, 0},
    {"mono96k", 96000, 1, "-b:a 96k", 1, 0},
    {"stereo96k", 96000, 2, "-b:a 192k", 1, 0},
    {"stereo44k_ms_is_pns_tns", 44100, 2, "-b:a 64k -aac_ms 1 -aac_is 1 -aac_pns 1 -aac_tns 1", 1, 0},
    {"stereo44k_fast_coder", 44100, 2, "-b:a 96k -aac_coder fast", 1, 0},
    {"stereo48k_pce", 48000, 2, "-b:a 128k -aac_pce 1", 1, 0},
    {"stereo44k_main_pred", 44100, 2, "-b:a 96k -profile:a aac_main -aac_pred 1", 0, 0},
    {"stereo32k_ltp", 32000, 2, "-b:a 64k -profile:a aac_ltp -aac_ltp 1 -strict -2", 3, 1},
    {"mono32k_ltp", 32000, 1, "-b:a 48k -profile:a aac_ltp -aac_ltp 1 -strict -2", 3, 1},
};

bool haveFfmpeg() { return std::system("ffmpeg -hide_banner -version >/dev/null 2>&1") == 0; }

std::string corpusPath(const CorpusCase& c)
{
    return std::string(ZAMAC_BINARY_DIR) + "/aac_corpus_" + c.name + ".aac";
}

// Tones with vibrato, a little noise and clicks every 0.3 s (the clicks bring
// eight-short windows); the channels share the upper tones (intensity stereo).
std::string musicSource()
{
    const std::string left =
        "0.25*sin(2*PI*(330+20*sin(2*PI*3*t))*t)+0.12*sin(2*PI*1760*t)*(0.6+0.4*sin(2*PI*0.7*t))"
        "+0.05*sin(2*PI*5200*t)+0.04*(random(0)-0.5)+0.6*lt(mod(t\\,0.3)\\,0.004)*(random(1)-0.5)";
    const std::string right =
        "0.2*sin(2*PI*(440+15*sin(2*PI*2*t))*t)+0.1*sin(2*PI*1760*t)*(0.6+0.4*sin(2*PI*0.7*t))"
        "+0.05*sin(2*PI*5200*t)+0.04*(random(2)-0.5)+0.5*lt(mod(t+0.1\\,0.3)\\,0.004)*(random(3)-0.5)";
    return "aevalsrc=" + left + "|" + right + ":s=96000:d=0.8";
}

class AacCorpus : public ::testing::TestWithParam<CorpusCase> {
public:
    // One ffmpeg run writes every stream of the corpus.
    static void SetUpTestSuite()
    {
        if (!haveFfmpeg()) return;
        std::string cmd = "ffmpeg -hide_banner -loglevel error -y -f lavfi -i \"" + musicSource() +
                          "\" -f lavfi -i \"sine=f=440:sample_rate=32000:d=0.8\"";
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
        std::cout << "[ corpus   ] total: frames " << t.frames << ", channel streams " << t.channelStreams
                  << ", LC/general compared " << t.lcCompared << ", eight-short " << t.eightShort
                  << " (several groups " << t.eightShortGrouped << "), intensity bands " << t.intensityBands
                  << ", noise bands " << t.noiseBands << ", pulse " << t.pulse << ", TNS " << t.tns
                  << ", ms_mask 1 " << t.msMask1 << ", LTP " << t.ltp << ", prediction " << t.prediction
                  << ", PCE " << t.pce << "\n";
        if (t.frames == 0) return;  // filtered run
        // The tools the encoder is asked for must really occur (its encoder never
        // writes pulse data; those are covered by hand-built streams).
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
    if (!haveFfmpeg()) GTEST_SKIP() << "ffmpeg not installed";
    ASSERT_TRUE(generated_) << "ffmpeg failed to write the corpus";
    std::vector<uint8_t> data;
    ASSERT_TRUE(aactest::readFile(corpusPath(cc), data));
    const size_t size = data.size();
    data.resize(size + 8, 0);  // read slack

    Counts counts;
    size_t pos = 0;
    while (pos + 7 <= size) {
        uint8_t* p = data.data() + pos;
        AacAdtsFrameHeader h;
        ASSERT_EQ(zamsUnpackADTSFrameHeader_AAC(&p, &h), zamStsOk);
        ASSERT_EQ(p - (data.data() + pos), h.protection_absent ? 7 : 9);
        ASSERT_EQ(h.profile, cc.expectedProfile);
        ASSERT_EQ(h.channel_configuration == 0 ? cc.channels : h.channel_configuration, cc.channels);
        ASSERT_EQ(h.number_of_raw_data_blocks_in_frame, 1);
        ASSERT_LE(pos + static_cast<size_t>(h.aac_frame_length), size);
        int off = 0;
        StreamWalker walker(h.profile + 1, counts);
        ASSERT_TRUE(walker.rawDataBlock(p, off, h.sampling_frequency_index)) << "frame " << counts.frames;
        if (off) ++p, off = 0;  // byte_alignment()
        ASSERT_EQ(p - data.data(), static_cast<ptrdiff_t>(pos + h.aac_frame_length)) << "frame " << counts.frames;
        pos += static_cast<size_t>(h.aac_frame_length);
        ++counts.frames;
    }
    EXPECT_EQ(pos, size);
    EXPECT_GT(counts.frames, 5);
    g_total.add(counts);
    std::cout << "[ corpus   ] " << cc.name << ": frames " << counts.frames << ", LC compared " << counts.lcCompared
              << ", eight-short " << counts.eightShort << " (grouped " << counts.eightShortGrouped
              << "), intensity " << counts.intensityBands << ", noise " << counts.noiseBands << ", TNS "
              << counts.tns << ", ms_mask 1 " << counts.msMask1 << ", LTP " << counts.ltp << ", prediction "
              << counts.prediction << ", PCE " << counts.pce << "\n";
}

INSTANTIATE_TEST_SUITE_P(Ffmpeg, AacCorpus, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<CorpusCase>& i) { return std::string(i.param.name); });

}  // namespace
