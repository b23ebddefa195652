// The SBR encoder of zamac-encode --he: payloads written by sbr_writer.c read back
// through zamac-decode's own SBR reader to the values written, and the envelopes of
// the whole encoder against the decoder's analysis scale, with the sinusoid a lone
// tone asks for.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

extern "C" {
#include "../../tools/zamac-decode/sbr_bitstream.c"
#include "../../tools/zamac-decode/sbr_hfadj.c"
#include "../../tools/zamac-encode/sbr_encoder.c"
#include "../../tools/zamac-encode/sbr_writer.c"
}

namespace {

// A random valid grid of the given class.
SbrEncChannel randomGrid(std::mt19937& rng, int frameClass, int ampRes)
{
    for (;;) {
        SbrEncChannel ch{};
        ch.frameClass = frameClass;
        auto r = [&](int n) { return int(rng() % unsigned(n)); };
        if (frameClass == SBR_FIXFIX) {
            ch.numEnv = 1 << r(3);
        } else {
            ch.numRel0 = frameClass == SBR_FIXVAR ? 0 : r(4);
            ch.numRel1 = frameClass == SBR_VARFIX ? 0 : r(4);
            ch.bord0 = frameClass == SBR_FIXVAR ? 0 : r(4);
            ch.bord1 = frameClass == SBR_VARFIX ? 0 : r(4);
            for (int i = 0; i < 3; ++i) ch.rel0[i] = 2 + 2 * r(4), ch.rel1[i] = 2 + 2 * r(4);
            ch.numEnv = ch.numRel0 + ch.numRel1 + 1;
            ch.pointer = r(ch.numEnv + 2);
        }
        if (sbr_grid_borders(&ch, ampRes) != 0) continue;
        for (int l = 0; l < ch.numEnv; ++l) ch.freqRes[l] = uint8_t(frameClass == SBR_FIXFIX && l ? ch.freqRes[0] : r(2));
        return ch;
    }
}

// Random values in range with deltas the codes carry (step 2 for balance).
void randomValues(std::mt19937& rng, const SbrFreq& f, SbrEncChannel& ch, bool balance)
{
    const int step = balance ? 2 : 1, top = balance ? (ch.ampRes ? 12 : 24) : (ch.ampRes ? 63 : 127);
    auto walk = [&](int16_t* v, int n, int hi) {
        int x = int(rng() % unsigned(hi / 2 + 1));
        for (int k = 0; k < n; ++k) {
            x = std::min(std::max(x + int(rng() % 7) - 3, 0), hi);
            v[k] = int16_t(step * x);
        }
    };
    for (int l = 0; l < ch.numEnv; ++l) walk(ch.env[l], f.n[ch.freqRes[l]], top);
    for (int l = 0; l < ch.numNoise; ++l) walk(ch.noise[l], f.nQ, balance ? 12 : 30);
    for (int q = 0; q < f.nQ; ++q) ch.invf[q] = uint8_t(rng() % 4);
    ch.addHarmonicFlag = int(rng() % 2);
    for (int k = 0; k < f.n[1]; ++k) ch.addHarmonic[k] = uint8_t(ch.addHarmonicFlag ? rng() % 2 : 0);
}

struct RoundTrip {
    int channels, coupling, frameClass;
};

class SbrPayloadRoundTrip : public ::testing::TestWithParam<RoundTrip> {};

TEST_P(SbrPayloadRoundTrip, ReadsBackWhatWasWritten)
{
    const RoundTrip p = GetParam();
    std::mt19937 rng(1234u + unsigned(p.frameClass * 4 + p.channels * 2 + p.coupling));
    SbrHeader h{1, 5, 9, 0, 2, 1, 2, 2, 2, 1, 1};
    h.ampRes = p.frameClass & 1;
    h.noiseBands = 1 + p.channels;  // 2 writes the short header, 3 the extended one
    SbrFreq f;
    ASSERT_EQ(sbr_freq_tables(&f, &h, 44100), 0);
    SbrReader reader{};
    reader.sbrRate = 44100;
    SbrWriteHistory history[2]{};
    for (int frame = 0; frame < 12; ++frame) {
        SbrEncChannel ch[2];
        // FIXFIX and VARFIX alternate with the class under test, so grids change
        const int cls = frame % 2 ? p.frameClass : (frame % 4 ? SBR_VARFIX : SBR_FIXFIX);
        for (int c = 0; c < p.channels; ++c) {
            ch[c] = c && p.coupling ? ch[0] : randomGrid(rng, cls, h.ampRes);
            randomValues(rng, f, ch[c], c && p.coupling);
        }
        uint8_t buf[512] = {};
        SbrBitWriter w{buf, sizeof buf, 0, 0};
        const int bits = sbr_write_extension(&w, frame % 5 ? nullptr : &h, &f, p.channels, p.coupling, ch, history,
                                             frame % 5 != 0);
        ASSERT_GT(bits, 0);
        SbrBits b{buf, bits, 0, 0};
        SbrFrame out[2];
        int reset;
        ASSERT_EQ(sbr_read_extension(&reader, &b, p.channels, 0, out, &reset), 0) << "frame " << frame;
        EXPECT_EQ(b.pos, bits);
        for (int c = 0; c < p.channels; ++c) {
            const SbrEncChannel& in = ch[c];
            const SbrFrame& o = out[c];
            ASSERT_EQ(o.frameClass, in.frameClass);
            ASSERT_EQ(o.numEnv, in.numEnv);
            ASSERT_EQ(o.numNoise, in.numNoise);
            EXPECT_EQ(o.lA, in.lA);
            EXPECT_EQ(o.ampRes, in.ampRes);
            EXPECT_EQ(0, std::memcmp(o.tEnv, in.tEnv, size_t(in.numEnv) + 1));
            EXPECT_EQ(0, std::memcmp(o.tNoise, in.tNoise, size_t(in.numNoise) + 1));
            EXPECT_EQ(0, std::memcmp(o.freqRes, in.freqRes, size_t(in.numEnv)));
            EXPECT_EQ(0, std::memcmp(o.invf, ch[p.coupling ? 0 : c].invf, size_t(f.nQ)));
            for (int l = 0; l < in.numEnv; ++l)
                EXPECT_EQ(0, std::memcmp(o.env[l], in.env[l], 2 * size_t(f.n[in.freqRes[l]]))) << frame << " " << l;
            for (int l = 0; l < in.numNoise; ++l) EXPECT_EQ(0, std::memcmp(o.noise[l], in.noise[l], 2 * size_t(f.nQ)));
            EXPECT_EQ(0, std::memcmp(o.addHarmonic, in.addHarmonic, size_t(f.n[1])));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Grids, SbrPayloadRoundTrip,
                         ::testing::Values(RoundTrip{1, 0, SBR_FIXFIX}, RoundTrip{1, 0, SBR_FIXVAR},
                                           RoundTrip{1, 0, SBR_VARVAR}, RoundTrip{2, 0, SBR_FIXVAR},
                                           RoundTrip{2, 0, SBR_VARVAR}, RoundTrip{2, 1, SBR_FIXFIX},
                                           RoundTrip{2, 1, SBR_VARVAR}));

// Every grid the encoder makes (each transient position after each frame class)
// is one the decoder's reader accepts, with the transient envelope where it starts.
TEST(SbrEncoderGrid, EveryTransientPositionReads)
{
    SbrHeader h{1, 5, 9, 0, 2, 1, 2, 2, 2, 1, 1};
    SbrFreq f;
    ASSERT_EQ(sbr_freq_tables(&f, &h, 48000), 0);
    for (int prev = SBR_FIXFIX; prev <= SBR_VARVAR; ++prev)
        for (int pos = -1; pos < 32; ++pos) for (int split = 0; split < 2; ++split) {
            SbrEncChannel ch[2];
            make_grid(&ch[0], pos, split, prev, h.ampRes);
            SbrWriteHistory history[2]{};
            uint8_t buf[256] = {};
            SbrBitWriter w{buf, sizeof buf, 0, 0};
            const int bits = sbr_write_extension(&w, &h, &f, 1, 0, ch, history, 0);
            SbrReader reader{};
            reader.sbrRate = 48000;
            SbrBits b{buf, bits, 0, 0};
            SbrFrame out[2];
            int reset;
            ASSERT_EQ(sbr_read_extension(&reader, &b, 1, 0, out, &reset), 0) << prev << " " << pos;
            const int t = (pos / 2) & ~1;
            if (pos >= 4) EXPECT_EQ(out[0].tEnv[out[0].lA], t) << prev << " " << pos;
            else EXPECT_EQ(out[0].lA, -1);
            if (pos < 0) EXPECT_EQ(out[0].numEnv, split ? 4 : 1);
        }
}

// Total QMF energy per slot of a tone as the decoder's 32-band analysis of the core
// output (half rate) sees it: the scale the envelopes must be in.
double decoderToneEnergy(double amplitude, double frequency, int rate)
{
    SbrAnalysisSpec_RToC_32f* spec = nullptr;
    EXPECT_EQ(zamsAnalysisFilterInitAlloc_SBR_RToC_32f(&spec), zamStsOk);
    std::vector<float> pcm(32 * 64), re(32 * 64), im(32 * 64);
    std::vector<float*> pr(64), pi(64);
    for (int l = 0; l < 64; ++l) pr[l] = &re[32 * l], pi[l] = &im[32 * l];
    for (size_t n = 0; n < pcm.size(); ++n) pcm[n] = float(amplitude * std::cos(2 * M_PI * frequency * n / (rate / 2)));
    EXPECT_EQ(zamsAnalysisFilter_SBR_RToC_32f_D2L(pcm.data(), pr.data(), pi.data(), 64, 32, spec), zamStsOk);
    double sum = 0;
    for (int l = 32; l < 64; ++l)
        for (int k = 0; k < 32; ++k) sum += re[32 * l + k] * re[32 * l + k] + im[32 * l + k] * im[32 * l + k];
    zamsAnalysisFilterFree_SBR_RToC_32f(spec);
    return sum / 32;
}

struct Accuracy {
    int channels, rate, bitRate;
};

class SbrEnvelopeAccuracy : public ::testing::TestWithParam<Accuracy> {};

TEST_P(SbrEnvelopeAccuracy, DequantisedEnergyMatchesTheDecodersScale)
{
    const Accuracy p = GetParam();
    SbrEncoder* e = sbr_encoder_open(p.rate, p.channels, p.bitRate);
    ASSERT_NE(e, nullptr);
    const SbrFreq f = e->freq;
    // one tone per channel, at the centre of a high band; the right 6 dB lower
    const double amplitude[2] = {8000, 4000};
    const int band[2] = {f.kx + f.m / 3, f.kx + 2 * f.m / 3};
    const double reference = decoderToneEnergy(1.0, p.rate / 8.0 + 0.5 * p.rate / 128, p.rate);
    SbrReader reader{};
    reader.sbrRate = p.rate;
    std::vector<float> pcm[2] = {std::vector<float>(2048), std::vector<float>(2048)};
    for (int frame = 0; frame < 6; ++frame) {
        for (int c = 0; c < p.channels; ++c)
            for (int n = 0; n < 2048; ++n)
                pcm[c][n] = float(amplitude[c] * std::cos(M_PI * (band[c] + 0.5) * (2048 * frame + n) / 64));
        const float* in[2] = {pcm[0].data(), pcm[1].data()};
        uint8_t buf[256];
        const int bits = sbr_encoder_frame(e, in, buf, sizeof buf);
        ASSERT_GT(bits, 0);
        SbrBits b{buf, bits, 0, 0};
        SbrFrame fr[2];
        int reset;
        ASSERT_EQ(sbr_read_extension(&reader, &b, p.channels, 0, fr, &reset), 0);
        ASSERT_EQ(b.pos, bits);
        if (frame < 2) continue;  // the bank's history fills
        static float env[2][SBR_MAX_ENV][SBR_MAX_BANDS], noise[2][SBR_MAX_NOISE][SBR_MAX_NQ];
        sbr_dequantize(&f, fr, p.channels, reader.coupling, env, noise);
        const double step = fr[0].ampRes ? 3.0 : 1.5;
        for (int c = 0; c < p.channels; ++c) {
            const int res = fr[0].freqRes[0], b0 = sbr_band_containing(f.fTable[res], f.n[res], band[c]);
            const int width = f.fTable[res][b0 + 1] - f.fTable[res][b0];
            const double expected = ENVELOPE_GAIN * amplitude[c] * amplitude[c] * reference / width;
            const double db = 10 * std::log10(env[c][0][b0] / expected);
            EXPECT_LT(std::fabs(db), step) << "channel " << c << " frame " << frame;
            // a steady tone over a silent low band: the decoder is told to add a sinusoid
            EXPECT_EQ(fr[c].addHarmonic[sbr_band_containing(f.fTable[1], f.n[1], band[c])], 1);
        }
    }
    sbr_encoder_close(e);
}

INSTANTIATE_TEST_SUITE_P(Rates, SbrEnvelopeAccuracy,
                         ::testing::Values(Accuracy{1, 44100, 24000}, Accuracy{2, 48000, 48000},
                                           Accuracy{2, 32000, 32000}));

}  // namespace
