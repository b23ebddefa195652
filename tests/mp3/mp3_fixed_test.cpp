// The fixed-point decoding stages: each against the float decoder's stage (the
// glue of tools/zamac-decode/mp3_layer3.c, compiled in here) on every granule of
// the ISO compliance streams, whose stereo granules cover M/S, MPEG-1 intensity
// (l3-test45/46, l3-he_mode) and MPEG-2 intensity with illegal positions
// (M2L3_compl24); the AVX2 kernels against their scalar twins; the argument checks.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <iostream>

#include "../../tools/zamac-decode/mp3_layer3.c"
#include "../../tools/zamac-decode/mp3_tables.c"
#include "mp3/mp3_fixed.h"
#include "mp3_stream.h"
#include "test_support.h"

namespace {

using mp3test::Frame;

constexpr double kQ24 = 16777216.0;
constexpr double kFloatToQ24 = kQ24 / 32768.0;  // the float glue works in 16-bit units

struct StageErrors {
    double requant = 0;      // Q24 units, beyond the float's own precision
    double hybrid = 0;       // Q24 units, beyond the float's own precision
    int pcmMax = 0;          // PCM LSB
    long pcmDiffering = 0, pcmTotal = 0;
};

// |fixed - float| less what the float's 24-bit mantissa leaves open.
double excess(double fixedQ24, double floatQ24) { return std::fabs(fixedQ24 - floatQ24) - std::fabs(floatQ24) * 0x1p-22; }

void runStream(const std::string& name, StageErrors& e)
{
    const auto s = mp3test::walk(zamtest::sharedPath("vectors/mp3-iso/" + name + ".bit"));
    Mp3Layer3* l3 = mp3_layer3_create();
    alignas(64) int32_t xr[2][576], y[576], overlap[2][576] = {}, v[2][ZAM_MP3_SYNTH_V_SIZE] = {};
    int32_t position[2] = {0, 0};
    int8_t sf[2][40] = {};
    int16_t pcm[576];
    for (const Frame& f : s.frames) {
        if (f.mainDataBit < 0) continue;
        const int nch = f.channels();
        Mp3Header h{};
        h.version = f.header.ID == 1 ? MP3_MPEG1 : MP3_MPEG2;
        h.srIndex = f.header.sampling_frequency;
        h.mode = f.header.mode;
        int64_t bit = f.mainDataBit;
        for (int gr = 0; gr < f.granules(); ++gr) {
            Mp3SideInfo si[2];
            int32_t bound[2] = {0, 0};
            GranuleLayout g[2];
            for (int ch = 0; ch < nch; ++ch) {
                si[ch] = f.sideInfo[gr * nch + ch];
                const uint8_t* p = s.mainData.data() + (bit >> 3);
                int32_t off = static_cast<int32_t>(bit & 7);
                EXPECT_EQ(zamsUnpackScaleFactors_MP3_1u8s(&p, &off, sf[ch], &si[ch], f.scfsi + 4 * ch, &f.header, gr, ch),
                          zamStsOk);
                const int used = static_cast<int>((p - s.mainData.data()) * 8 + off - bit);
                EXPECT_EQ(zamsHuffmanDecode_MP3_1u32s(&p, &off, xr[ch], &bound[ch], &si[ch], &f.header,
                                                      si[ch].part2_3_length - used),
                          zamStsOk);
                bit += si[ch].part2_3_length;
                // The float stage.
                std::memcpy(l3->quantized, xr[ch], sizeof xr[ch]);
                layout_of(&h, &si[ch], &g[ch]);
                requantize(l3, &g[ch], &si[ch], sf[ch], bound[ch], l3->spectrum[ch]);
                l3->spectrumEnd[ch] = bound[ch];
            }
            const int ext = f.header.mode == 1 ? f.header.mode_extension : 0;
            if (nch == 2 && ext)
                {
                const bool same = si[0].block_type == si[1].block_type && si[0].mixed_block_flag == si[1].mixed_block_flag;
                stereo(l3, &h, same ? ext : ext & 2, &g[1], &si[1], sf[1]);
            }
            ASSERT_EQ(zamsReQuantize_MP3_32s_I(&xr[0][0], bound, &sf[0][0], si, &f.header), zamStsOk);
            for (int ch = 0; ch < nch; ++ch) {
                float* ref = l3->spectrum[ch];
                if (g[ch].isShort) reorder_short(l3, &g[ch], ref);
                for (int i = 0; i < 576; ++i) e.requant = std::max(e.requant, excess(xr[ch][i], ref[i] * kFloatToQ24));
                // The hybrid bank, both from the fixed spectrum.
                for (int i = 0; i < 576; ++i) ref[i] = static_cast<float>(xr[ch][i] / kFloatToQ24);
                alias_reduce(l3, ref, g[ch].isShort ? (g[ch].isMixed ? 1 : 0) : 31);
                hybrid(l3, ch, &si[ch], ref, 576);
                ASSERT_GE(zamsMDCTInv_MP3_32s(xr[ch], y, bound[ch], &si[ch], overlap[ch]), zamStsOk);
                for (int i = 0; i < 576; ++i) e.hybrid = std::max(e.hybrid, excess(y[i], l3->hybrid[i] * kFloatToQ24));
                // The polyphase bank, both from the fixed subband samples.
                float in[576], out[576];
                for (int i = 0; i < 576; ++i) in[i] = static_cast<float>(y[i] / kFloatToQ24);
                zamsSynthesisFilter_PQMF_MP3_32f(in, out, l3->synthesis[ch], 1);
                ASSERT_EQ(zamsSynthPQMF_MP3_32s16s(y, pcm, 1, v[ch], &position[ch]), zamStsOk);
                for (int i = 0; i < 576; ++i) {
                    const int d = std::abs(pcm[i] - static_cast<int>(std::lrint(std::clamp(out[i], -32768.0f, 32767.0f))));
                    e.pcmMax = std::max(e.pcmMax, d);
                    e.pcmDiffering += d != 0;
                }
                e.pcmTotal += 576;
            }
        }
    }
    mp3_layer3_destroy(l3);
}

class Mp3FixedStages : public ::testing::TestWithParam<const char*> {};

TEST_P(Mp3FixedStages, AgreeWithTheFloatStagesOnEveryGranule)
{
    StageErrors e;
    runStream(GetParam(), e);
    std::cout << GetParam() << ": requantization " << e.requant << ", hybrid " << e.hybrid << " Q24 units; PCM max "
              << e.pcmMax << ", " << 100.0 * e.pcmDiffering / e.pcmTotal << "% differ\n";
    EXPECT_LE(e.requant, 2.0);
    EXPECT_LE(e.hybrid, 8.0);  // 1/64 of a PCM step
    EXPECT_LE(e.pcmMax, 1);
    EXPECT_LE(e.pcmDiffering, e.pcmTotal / 200);
}

INSTANTIATE_TEST_SUITE_P(Iso, Mp3FixedStages,
                         ::testing::Values("M2L3_bitrate_16_all", "M2L3_bitrate_22_all", "M2L3_bitrate_24_all",
                                           "M2L3_compl24", "M2L3_noise", "l3-compl", "l3-he_32khz", "l3-he_44khz",
                                           "l3-he_48khz", "l3-he_free", "l3-he_mode", "l3-hecommon", "l3-si",
                                           "l3-si_block", "l3-si_huff", "l3-sin1k0db", "l3-test45", "l3-test46"),
                         [](const auto& info) {
                             std::string n = info.param;
                             for (auto& c : n)
                                 if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                             return n;
                         });

// ------------------------------------------------------------------ kernels

std::vector<int32_t> randomValues(size_t n, int32_t range)
{
    std::uniform_int_distribution<int32_t> d(-range, range);
    std::vector<int32_t> v(n);
    for (auto& x : v) x = d(zamtest::rng());
    return v;
}

TEST(Mp3FixedKernels, ImdctAvx2MatchesScalar)
{
    for (int type = 0; type < 4; ++type)
        for (bool mixed : {false, true})
            for (int32_t range : {1 << 20, 1 << 28, INT32_MAX}) {
                const auto src = randomValues(576, range);
                std::vector<int32_t> a(1152), b(1152);
                zam::mp3::imdctWindowScalar(src.data(), a.data(), 32, type, mixed);
                zam::mp3::imdctWindowAvx2(src.data(), b.data(), 32, type, mixed);
                ASSERT_EQ(a, b) << "block type " << type << " mixed " << mixed << " range " << range;
            }
}

TEST(Mp3FixedKernels, SynthesisAvx2MatchesScalar)
{
    for (int stride : {1, 2})
        for (int32_t range : {1 << 24, 1 << 27, INT32_MAX}) {
            alignas(32) int32_t va[512], vb[512];
            const auto start = randomValues(512, 1 << 28);
            std::copy(start.begin(), start.end(), va);
            std::copy(start.begin(), start.end(), vb);
            int32_t pa = 7, pb = 7;
            for (int granule = 0; granule < 3; ++granule) {
                const auto src = randomValues(576, range);
                std::vector<int16_t> a(1152), b(1152);
                zam::mp3::synthScalar(src.data(), a.data(), va, pa, stride);
                zam::mp3::synthAvx2(src.data(), b.data(), vb, pb, stride);
                ASSERT_EQ(a, b) << "stride " << stride << " range " << range << " granule " << granule;
                ASSERT_TRUE(std::equal(va, va + 512, vb));
                ASSERT_EQ(pa, pb);
            }
        }
}

// ------------------------------------------------------------------ argument checks

struct Granule {
    Mp3FrameHeader header{1, 1, 1, 9, 0, 0, 0, 1, 2, 0, 0, 0, 0};  // MPEG-1 44.1 kHz joint stereo, M/S
    Mp3SideInfo si[2]{};
    int32_t xr[1152]{};
    int32_t bound[2] = {576, 576};
    int8_t sf[80]{};
    Granule()
    {
        for (int i = 0; i < 1152; ++i) xr[i] = (i * 37) % 17 - 8;
        for (auto& s : si) s.global_gain = 150;
    }
};

TEST(Mp3FixedChecks, RequantizationWritesNothingOnAFailedCheck)
{
    const int16_t* longBands = mp3_sfb_long[0];
    const int16_t* shortBands = mp3_sfb_short[0];
    int16_t badLong[23];
    std::copy(longBands, longBands + 23, badLong);
    badLong[21] = 577;
    struct Case {
        const char* what;
        void (*spoil)(Granule&);
        bool sfb;
        ZamStatus expected;
    } cases[] = {
        {"magnitude 8207", [](Granule& g) { g.xr[600] = -8207; }, false, zamStsBadData},
        {"magnitude 8207, Sfb", [](Granule& g) { g.xr[5] = 8207; }, true, zamStsBadData},
        {"bound 577", [](Granule& g) { g.bound[1] = 577; }, false, zamStsBadArg},
        {"boundary 577", [](Granule&) {}, true, zamStsBadArg},
        {"mode 4", [](Granule& g) { g.header.mode = 4; }, false, zamStsMp3FrameHeaderErr},
        {"block type 0 switched", [](Granule& g) { g.si[1].window_switching_flag = 1; }, false, zamStsMp3SideInfoErr},
    };
    for (const Case& c : cases) {
        Granule g;
        c.spoil(g);
        const Granule before = g;
        const ZamStatus st = c.sfb ? zamsReQuantizeSfb_MP3_32s_I(g.xr, g.bound, g.sf, g.si, &g.header,
                                                                 std::string(c.what) == "boundary 577" ? badLong : longBands,
                                                                 shortBands)
                                   : zamsReQuantize_MP3_32s_I(g.xr, g.bound, g.sf, g.si, &g.header);
        EXPECT_EQ(st, c.expected) << c.what;
        EXPECT_EQ(std::memcmp(g.xr, before.xr, sizeof g.xr), 0) << c.what;
        EXPECT_EQ(std::memcmp(g.bound, before.bound, sizeof g.bound), 0) << c.what;
    }
    Granule g;
    EXPECT_EQ(zamsReQuantize_MP3_32s_I(nullptr, g.bound, g.sf, g.si, &g.header), zamStsNullPtr);
    EXPECT_EQ(zamsReQuantize_MP3_32s_I(g.xr, g.bound, g.sf, g.si, &g.header), zamStsOk);
}

TEST(Mp3FixedChecks, BanksWriteNothingOnAFailedCheck)
{
    Mp3SideInfo si{};
    const std::vector<int32_t> src(576, 1000);
    auto dst = zamtest::canaryVector<int32_t>(1152);
    auto overlap = zamtest::canaryVector<int32_t>(576);
    EXPECT_EQ(zamsMDCTInv_MP3_32s(src.data(), dst.data(), 577, &si, overlap.data()), zamStsBadArg);
    si.block_type = 4;
    EXPECT_EQ(zamsMDCTInv_MP3_32s(src.data(), dst.data(), 576, &si, overlap.data()), zamStsMp3SideInfoErr);
    EXPECT_EQ(zamsMDCTInvWindow_MP3_32s(src.data(), dst.data(), 33, 0, 0), zamStsSize);
    EXPECT_EQ(zamsMDCTInvWindow_MP3_32s(src.data(), dst.data(), 32, 4, 0), zamStsBadArg);
    EXPECT_EQ(zamsMDCTInvWindow_MP3_32s(src.data(), dst.data(), 32, 2, 2), zamStsBadArg);
    EXPECT_TRUE(zamtest::untouched(dst));
    EXPECT_TRUE(zamtest::untouched(overlap));

    auto pcm = zamtest::canaryVector<int16_t>(1152);
    auto vbuf = zamtest::canaryVector<int32_t>(ZAM_MP3_SYNTH_V_SIZE);
    for (int32_t mode : {0, 3, -1}) {
        int32_t position = 0;
        EXPECT_EQ(zamsSynthPQMF_MP3_32s16s(src.data(), pcm.data(), mode, vbuf.data(), &position), zamStsBadArg);
        EXPECT_EQ(position, 0);
    }
    int32_t position = 16;
    EXPECT_EQ(zamsSynthPQMF_MP3_32s16s(src.data(), pcm.data(), 1, vbuf.data(), &position), zamStsBadArg);
    EXPECT_EQ(zamsSynthPQMF_MP3_32s16s(src.data(), nullptr, 1, vbuf.data(), &position), zamStsNullPtr);
    EXPECT_TRUE(zamtest::untouched(pcm));
    EXPECT_TRUE(zamtest::untouched(vbuf));
}

TEST(Mp3FixedChecks, BanksWarnOfMisalignedDataAndComputeTheSame)
{
    Mp3SideInfo si{};
    const auto src = randomValues(576, 1 << 24);
    zamtest::OffsetBuffer<int32_t> in(576, 4), out(576, 4), ov(576, 4);
    std::copy(src.begin(), src.end(), in.data());
    std::fill(ov.data(), ov.data() + 576, 0);
    alignas(64) int32_t y[576], overlap[576] = {};
    EXPECT_EQ(zamsMDCTInv_MP3_32s(src.data(), y, 576, &si, overlap), zamStsOk);
    EXPECT_EQ(zamsMDCTInv_MP3_32s(in.data(), out.data(), 576, &si, ov.data()), zamStsMisalignedData);
    EXPECT_TRUE(std::equal(y, y + 576, out.data()));

    alignas(64) int32_t v[2][512] = {};
    int32_t pos[2] = {0, 0};
    alignas(64) int16_t a[1152];
    zamtest::OffsetBuffer<int16_t> b(1152, 2);
    zamtest::OffsetBuffer<int32_t> vb(512, 4);
    std::fill(vb.data(), vb.data() + 512, 0);
    EXPECT_EQ(zamsSynthPQMF_MP3_32s16s(y, a, 2, v[0], &pos[0]), zamStsOk);
    EXPECT_EQ(zamsSynthPQMF_MP3_32s16s(y, b.data(), 2, vb.data(), &pos[1]), zamStsMisalignedData);
    for (int i = 0; i < 1152; i += 2) ASSERT_EQ(a[i], b.data()[i]);
}

}  // namespace
