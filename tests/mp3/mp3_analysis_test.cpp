// The encoder's analysis bank and forward hybrid MDCT against double-precision
// evaluations of the ISO formulas, and through the inverse stages (float synthesis
// bank; a double IMDCT with the decoder's butterflies and overlap-add).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include "mp3_reference.h"
#include "test_support.h"
#include "zamac.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

std::vector<double> analysisWindow()
{
    std::vector<double> c(512);
    FILE* f = std::fopen(zamtest::sharedPath("tables/mp3_analysis_window.txt").c_str(), "r");
    char line[256];
    while (f && std::fgets(line, sizeof line, f)) {
        int i;
        double v;
        if (line[0] != '#' && std::sscanf(line, "%d %lf", &i, &v) == 2) c[i] = v;
    }
    if (f) std::fclose(f);
    return c;
}

std::vector<int16_t> testSignal(int n, int seed)
{
    std::mt19937 g(seed);
    std::normal_distribution<double> noise(0, 3000);
    std::vector<int16_t> x(n);
    for (int i = 0; i < n; ++i)
        x[i] = static_cast<int16_t>(std::lrint(std::clamp(12000 * std::sin(0.031 * i) + 5000 * std::sin(1.7 * i) + noise(g), -32768.0, 32767.0)));
    return x;
}

double snrDb(const std::vector<double>& ref, const std::vector<double>& got)
{
    double s = 0, e = 0;
    for (size_t i = 0; i < ref.size(); ++i) s += ref[i] * ref[i], e += (ref[i] - got[i]) * (ref[i] - got[i]);
    return 10 * std::log10(s / std::max(e, 1e-30));
}

TEST(Mp3Analysis, MatchesDoubleFormulaAndRoundTripsThroughSynthesis)
{
    const auto c = analysisWindow();
    const int granules = 12;
    const auto pcm = testSignal(576 * granules * 2, 1);  // interleaved stereo; channel 0 is analysed
    int16_t history[480] = {};
    std::vector<double> x(512, 0.0), worst(1, 0.0), in, out;
    PqmfSynthesisState_MP3* syn = nullptr;
    ASSERT_EQ(zamsSynthesisFilterInitAlloc_PQMF_MP3_32f(&syn), zamStsOk);
    for (int gr = 0; gr < granules; ++gr) {
        int32_t sub[576];
        ASSERT_EQ(zamsAnalysisPQMF_MP3_16s32s(pcm.data() + gr * 1152, sub, 2, history), zamStsOk);
        for (int t = 0; t < 18; ++t) {
            for (int i = 511; i >= 32; --i) x[i] = x[i - 32];
            for (int r = 0; r < 32; ++r) x[31 - r] = pcm[(gr * 576 + t * 32 + r) * 2];
            double y[64] = {};
            for (int i = 0; i < 64; ++i)
                for (int j = 0; j < 8; ++j) y[i] += c[i + 64 * j] * x[i + 64 * j];
            for (int k = 0; k < 32; ++k) {
                double s = 0;
                for (int i = 0; i < 64; ++i) s += std::cos((2 * k + 1) * (i - 16) * kPi / 64) * y[i];
                worst[0] = std::max(worst[0], std::fabs(sub[k * 18 + t] / 256.0 - s) / 32768);
            }
        }
        float subF[576], pcmF[576];
        for (int i = 0; i < 576; ++i) subF[i] = sub[i] / 256.0f;
        ASSERT_EQ(zamsSynthesisFilter_PQMF_MP3_32f(subF, pcmF, syn, 1), zamStsOk);
        for (int i = 0; i < 576; ++i) out.push_back(pcmF[i]);
    }
    zamsSynthesisFilterFree_PQMF_MP3_32f(syn);
    for (int i = 0; i + 481 < 576 * granules; ++i) in.push_back(pcm[i * 2]);
    out.erase(out.begin(), out.begin() + 481);
    out.resize(in.size());
    const double snr = snrDb(in, out);
    std::printf("analysis: worst %.3g of full scale; round trip %.1f dB\n", worst[0], snr);
    EXPECT_LT(worst[0], 5e-7);
    EXPECT_GT(snr, 80.0);
}

// Double-precision forward hybrid MDCT of one granule, lines in the library's order.
std::vector<double> referenceMdct(const std::vector<double>& prev, const std::vector<double>& cur, int bt, const int16_t* shortBounds)
{
    auto sine = [](int i, int n) { return std::sin(kPi / n * (i + 0.5)); };
    std::vector<double> raw(576), lines(576);
    for (int sb = 0; sb < 32; ++sb) {
        double z[36];
        for (int t = 0; t < 36; ++t) z[t] = (t < 18 ? prev[sb * 18 + t] : cur[sb * 18 + t - 18]) * ((sb & 1) && (t & 1) ? -1 : 1);
        if (bt == 2) {
            for (int w = 0; w < 3; ++w)
                for (int k = 0; k < 6; ++k) {
                    double s = 0;
                    for (int i = 0; i < 12; ++i) s += z[6 + 6 * w + i] * sine(i, 12) * std::cos(kPi / 24 * (2 * i + 7) * (2 * k + 1));
                    raw[sb * 18 + w * 6 + k] = s / 3;
                }
            continue;
        }
        for (int k = 0; k < 18; ++k) {
            double s = 0;
            for (int i = 0; i < 36; ++i) {
                double w = sine(i, 36);
                if (bt == 1 && i >= 18) w = i < 24 ? 1 : i < 30 ? sine(i - 18, 12) : 0;
                if (bt == 3 && i < 18) w = i < 6 ? 0 : i < 12 ? sine(i - 6, 12) : 1;
                s += z[i] * w * std::cos(kPi / 72 * (2 * i + 19) * (2 * k + 1));
            }
            raw[sb * 18 + k] = s / 9;
        }
    }
    if (bt == 2) {
        for (int s = 0; s < 13; ++s)
            for (int w = 0; w < 3; ++w)
                for (int f = shortBounds[s]; f < shortBounds[s + 1]; ++f)
                    lines[3 * shortBounds[s] + w * (shortBounds[s + 1] - shortBounds[s]) + f - shortBounds[s]] = raw[(f / 6) * 18 + w * 6 + f % 6];
        return lines;
    }
    const double c[8] = {-0.6, -0.535, -0.33, -0.185, -0.095, -0.041, -0.0142, -0.0037};
    for (int sb = 1; sb < 32; ++sb)
        for (int i = 0; i < 8; ++i) {
            const double cs = 1 / std::sqrt(1 + c[i] * c[i]), ca = c[i] * cs;
            const double bu = raw[(sb - 1) * 18 + 17 - i], bd = raw[sb * 18 + i];
            raw[(sb - 1) * 18 + 17 - i] = bu * cs + bd * ca;
            raw[sb * 18 + i] = bd * cs - bu * ca;
        }
    return raw;
}

// The decoder's side in double: butterflies, IMDCT, window, overlap-add, inversion.
struct ReferenceInverse {
    std::vector<double> overlap = std::vector<double>(576, 0.0);
    std::vector<double> run(const std::vector<double>& linesIn, int bt, const int16_t* shortBounds)
    {
        std::vector<double> x = linesIn, out(576);
        auto sine = [](int i, int n) { return std::sin(kPi / n * (i + 0.5)); };
        if (bt == 2) {  // back to subband order
            for (int s = 0; s < 13; ++s)
                for (int w = 0; w < 3; ++w)
                    for (int f = shortBounds[s]; f < shortBounds[s + 1]; ++f)
                        x[(f / 6) * 18 + w * 6 + f % 6] = linesIn[3 * shortBounds[s] + w * (shortBounds[s + 1] - shortBounds[s]) + f - shortBounds[s]];
        } else {
            const double c[8] = {-0.6, -0.535, -0.33, -0.185, -0.095, -0.041, -0.0142, -0.0037};
            for (int sb = 1; sb < 32; ++sb)
                for (int i = 0; i < 8; ++i) {
                    const double cs = 1 / std::sqrt(1 + c[i] * c[i]), ca = c[i] * cs;
                    const double bu = x[(sb - 1) * 18 + 17 - i], bd = x[sb * 18 + i];
                    x[(sb - 1) * 18 + 17 - i] = bu * cs - bd * ca;
                    x[sb * 18 + i] = bd * cs + bu * ca;
                }
        }
        for (int sb = 0; sb < 32; ++sb) {
            double y[36] = {};
            if (bt == 2) {
                for (int w = 0; w < 3; ++w)
                    for (int i = 0; i < 12; ++i) {
                        double s = 0;
                        for (int k = 0; k < 6; ++k) s += x[sb * 18 + w * 6 + k] * std::cos(kPi / 24 * (2 * i + 7) * (2 * k + 1));
                        y[6 + 6 * w + i] += s * sine(i, 12);
                    }
            } else {
                for (int i = 0; i < 36; ++i) {
                    double s = 0;
                    for (int k = 0; k < 18; ++k) s += x[sb * 18 + k] * std::cos(kPi / 72 * (2 * i + 19) * (2 * k + 1));
                    double w = sine(i, 36);
                    if (bt == 1 && i >= 18) w = i < 24 ? 1 : i < 30 ? sine(i - 18, 12) : 0;
                    if (bt == 3 && i < 18) w = i < 6 ? 0 : i < 12 ? sine(i - 6, 12) : 1;
                    y[i] = s * w;
                }
            }
            for (int t = 0; t < 18; ++t) {
                out[sb * 18 + t] = (y[t] + overlap[sb * 18 + t]) * ((sb & 1) && (t & 1) ? -1 : 1);
                overlap[sb * 18 + t] = y[18 + t];
            }
        }
        return out;
    }
};

TEST(Mp3MdctFwd, MatchesDoubleFormulaAndInvertsForEveryBlockType)
{
    const auto bands = mp3test::bandTables(false);
    for (int row : {3, 1}) {
        const Mp3FrameHeader h{row / 3, 1, 1, 9, row % 3, 0, 0, 1, 0, 0, 0, 0, 0};
        const int types[] = {0, 0, 1, 2, 2, 3, 0, 1, 2, 3, 0, 0};
        std::mt19937 g(7);
        std::normal_distribution<double> d(0, 2e6);
        int32_t overlap[576] = {};
        std::vector<double> prev(576, 0.0), worstErr(1, 0.0), sent, back;
        ReferenceInverse inv;
        for (int gr = 0; gr < 12; ++gr) {
            std::vector<int32_t> src(576), dst(576);
            std::vector<double> cur(576);
            for (int i = 0; i < 576; ++i) src[i] = static_cast<int32_t>(d(g) / (1 + i / 18)), cur[i] = src[i] / 256.0;
            Mp3SideInfo si{};
            si.window_switching_flag = types[gr] != 0;
            si.block_type = types[gr];
            ASSERT_EQ(zamsMDCTFwd_MP3_32s(src.data(), dst.data(), &si, &h, overlap), zamStsOk);
            const auto ref = referenceMdct(prev, cur, types[gr], bands.shortTable + row * 14);
            std::vector<double> got(576);
            for (int i = 0; i < 576; ++i) {
                got[i] = dst[i] / 256.0;
                worstErr[0] = std::max(worstErr[0], std::fabs(got[i] - ref[i]) / 32768);
            }
            const auto rec = inv.run(got, types[gr], bands.shortTable + row * 14);
            if (gr > 0) sent.insert(sent.end(), prev.begin(), prev.end()), back.insert(back.end(), rec.begin(), rec.end());
            prev = cur;
        }
        const double snr = snrDb(sent, back);
        std::printf("MDCT row %d: worst %.3g of full scale; forward/inverse %.1f dB\n", row, worstErr[0], snr);
        EXPECT_LT(worstErr[0], 5e-7);
        EXPECT_GT(snr, 110.0);  // the rounding of the lines to 8 fraction bits
    }
}

TEST(Mp3MdctFwd, ChecksInOrder)
{
    int32_t src[576] = {}, overlap[576] = {};
    auto dst = zamtest::canaryVector<int32_t>(576);
    Mp3FrameHeader h{1, 1, 1, 9, 3, 0, 0, 1, 0, 0, 0, 0, 0};
    Mp3SideInfo si{};
    EXPECT_EQ(zamsMDCTFwd_MP3_32s(src, dst.data(), &si, nullptr, overlap), zamStsNullPtr);
    EXPECT_EQ(zamsMDCTFwd_MP3_32s(src, dst.data(), &si, &h, overlap), zamStsMp3FrameHeaderErr);
    si.window_switching_flag = 1;
    EXPECT_EQ(zamsMDCTFwd_MP3_32s(src, dst.data(), &si, &h, overlap), zamStsMp3SideInfoErr);
    EXPECT_TRUE(zamtest::untouched(dst));
    int16_t hist[480] = {};
    EXPECT_EQ(zamsAnalysisPQMF_MP3_16s32s(hist, dst.data(), 3, hist), zamStsBadArg);
}

}  // namespace
