// AAC prediction: the frequency-domain predictor against a plain reference of
// the ISO/IEC 13818-7 equations (bit-exact), its round trip, resets and state
// rules; long-term prediction stages against float references.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "aac/aac_tables.h"
#include "test_support.h"
#include "zamac.h"

namespace {

// ---------------------------------------------------------------- reference

uint32_t bits(float f)
{
    uint32_t u;
    std::memcpy(&u, &f, 4);
    return u;
}
float flt(uint32_t u)
{
    float f;
    std::memcpy(&f, &u, 4);
    return f;
}
// 16-bit mantissa roundings written the standard's way: truncation, and the
// truncated value plus one unit of the 16-bit mantissa taken as a float difference.
float truncate16(float f) { return flt(bits(f) & 0xFFFF0000u); }
float roundAway16(float f)
{
    const float t = truncate16(f);
    if (!(bits(f) & 0x8000u)) return t;
    const uint32_t exp = bits(f) & 0xFF800000u;
    return t + (flt(exp | 0x10000u) - flt(exp));
}
float roundEven16(float f)
{
    const float t = truncate16(f);
    const uint32_t rest = bits(f) & 0xFFFFu;
    const bool up = rest > 0x8000u || (rest == 0x8000u && (bits(f) & 0x10000u));
    if (!up) return t;
    const uint32_t exp = bits(f) & 0xFF800000u;
    return t + (flt(exp | 0x10000u) - flt(exp));
}

struct RefPredictor {
    float r0 = 0, r1 = 0, cor0 = 0, cor1 = 0, var0 = 1, var1 = 1;
    float run(float x, bool used)
    {
        const float a = 0.953125f, alpha = 0.90625f;
        float k1 = 0, k2 = 0;
        if (var0 > 1) k1 = cor0 * roundEven16(a / var0);
        if (var1 > 1) k2 = cor1 * roundEven16(a / var1);
        const float pred = roundAway16(k1 * r0 + k2 * r1);
        const float e0 = used ? x + pred : x;
        const float e1 = e0 - k1 * r0;
        cor1 = truncate16(alpha * cor1 + r1 * e1);
        var1 = truncate16(alpha * var1 + 0.5f * (r1 * r1 + e1 * e1));
        cor0 = truncate16(alpha * cor0 + r0 * e0);
        var0 = truncate16(alpha * var0 + 0.5f * (r0 * r0 + e0 * e0));
        r1 = truncate16(a * (r0 - k1 * e0));
        r0 = truncate16(a * e0);
        return e0;
    }
};

struct Fdp {
    std::vector<uint8_t> mem;
    FdpState_32f* state = nullptr;
    explicit Fdp(int len, int misalign = 1)
    {
        int size = 0;
        EXPECT_EQ(zamsFDPGetSize_32f(len, &size), zamStsOk);
        mem.resize(size + misalign);
        EXPECT_EQ(zamsFDPInit_32f(len, &state, mem.data() + misalign), zamStsOk);
    }
};

// A spectrum that follows a slowly varying tone per line, as a predictable
// signal does, plus noise; values on the 1/8 grid of the fixed-point spectrum.
std::vector<float> frameSpectrum(int frame, double noise)
{
    std::normal_distribution<double> d(0, noise);
    std::vector<float> x(1024);
    for (int k = 0; k < 1024; ++k)
        x[k] = static_cast<float>(std::round(8 * (3000 * std::cos(0.3 * frame * (1 + k % 7) + k) + d(zamtest::rng()))) / 8);
    return x;
}

const uint16_t* bands44() { return zam::aacSwbOffsets(4, false); }

std::vector<int32_t> offsets44()
{
    return std::vector<int32_t>(bands44(), bands44() + 50);
}

TEST(Fdp, MatchesReferenceBitForBitAndRoundTrips)
{
    const int len = bands44()[40];  // PRED_SFB_MAX at 44.1 kHz
    Fdp dec(len), enc(len, 7);
    std::vector<RefPredictor> ref(len);
    const auto off = offsets44();
    std::vector<uint8_t> used(49);
    for (int f = 0; f < 40; ++f) {
        for (int b = 0; b < 49; ++b) used[b] = (b + f) % 3 != 0;
        const auto x = frameSpectrum(f, f < 20 ? 1.0 : 300.0);
        std::vector<float> residual(1024), y;
        ASSERT_EQ(zamsFDPFwd_32f(x.data(), residual.data(), off.data(), used.data(), 49, enc.state), zamStsOk);
        y = residual;
        ASSERT_EQ(zamsFDPInv_32f_I(y.data(), off.data(), used.data(), 49, dec.state), zamStsOk);
        for (int k = 0; k < 1024; ++k) {
            ASSERT_EQ(bits(y[k]), bits(x[k])) << "frame " << f << " line " << k;
            if (k >= len) continue;
            int b = 0;
            while (off[b + 1] <= k) ++b;
            ASSERT_EQ(bits(ref[k].run(residual[k], used[b] != 0)), bits(y[k])) << "frame " << f << " line " << k;
        }
        if (f == 30) {
            // Reset group 5, then bands 2 and 7: the three predictors must agree afterwards.
            ASSERT_EQ(zamsFDPResetGroup_32f(4, 30, dec.state), zamStsOk);
            ASSERT_EQ(zamsFDPResetGroup_32f(4, 30, enc.state), zamStsOk);
            for (int k = 4; k < len; k += 30) ref[k] = RefPredictor{};
            std::vector<uint8_t> flags(49, 0);
            flags[2] = flags[7] = 1;
            ASSERT_EQ(zamsFDPResetSfb_32f(off.data(), flags.data(), 49, dec.state), zamStsOk);
            ASSERT_EQ(zamsFDPResetSfb_32f(off.data(), flags.data(), 49, enc.state), zamStsOk);
            for (int b : {2, 7})
                for (int k = off[b]; k < off[b + 1]; ++k) ref[k] = RefPredictor{};
        }
    }
    // After a full reset the first prediction is zero: Inv leaves the input as it is.
    ASSERT_EQ(zamsFDPReset_32f(dec.state), zamStsOk);
    auto x = frameSpectrum(99, 5);
    auto y = x;
    ASSERT_EQ(zamsFDPInv_32f_I(y.data(), off.data(), used.data(), 49, dec.state), zamStsOk);
    EXPECT_EQ(x, y);
}

TEST(Fdp, StateRulesAndChecks)
{
    int size = 0;
    EXPECT_EQ(zamsFDPGetSize_32f(0, &size), zamStsSize);
    EXPECT_EQ(zamsFDPGetSize_32f(1025, &size), zamStsSize);
    EXPECT_EQ(zamsFDPGetSize_32f(672, nullptr), zamStsNullPtr);
    Fdp fdp(672, 1);  // raw pointer one byte past a boundary: header 15 bytes in
    auto* raw = reinterpret_cast<FdpState_32f*>(fdp.mem.data() + 1);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(fdp.state) % 16, 0u);
    EXPECT_EQ(zamsFDPReset_32f(raw), zamStsOk);
    uint32_t tag;
    std::memcpy(&tag, fdp.state, 4);
    EXPECT_EQ(tag, 59u);

    const auto off = offsets44();
    std::vector<uint8_t> used(49, 1);
    auto x = zamtest::canaryVector<float>(1024);
    EXPECT_EQ(zamsFDPInv_32f_I(x.data(), off.data(), nullptr, 49, raw), zamStsNullPtr);
    EXPECT_EQ(zamsFDPInv_32f_I(x.data(), off.data(), used.data(), 65, raw), zamStsSize);
    auto bad = off;
    bad[3] = 2000;
    EXPECT_EQ(zamsFDPInv_32f_I(x.data(), bad.data(), used.data(), 49, raw), zamStsBadArg);
    EXPECT_TRUE(zamtest::untouched(x));
    // Start and step are checked before the tag.
    FdpState_32f* garbage = reinterpret_cast<FdpState_32f*>(x.data());
    EXPECT_EQ(zamsFDPResetGroup_32f(-1, 30, garbage), zamStsSize);
    EXPECT_EQ(zamsFDPResetGroup_32f(0, 0, garbage), zamStsStep);
    EXPECT_EQ(zamsFDPResetGroup_32f(0, 30, garbage), zamStsContextMismatch);
    EXPECT_EQ(zamsFDPResetGroup_32f(5000, 30, raw), zamStsOk);

    EXPECT_EQ(zamsFDPFree_32f(raw), zamStsOk);  // caller memory: only the tag goes
    EXPECT_EQ(zamsFDPFree_32f(raw), zamStsContextMismatch);
    EXPECT_EQ(zamsFDPInv_32f_I(x.data(), off.data(), used.data(), 49, fdp.state), zamStsContextMismatch);
    FdpState_32f* owned = nullptr;
    ASSERT_EQ(zamsFDPInitAlloc_32f(512, &owned), zamStsOk);
    EXPECT_EQ(zamsFDPFree_32f(owned), zamStsOk);
    EXPECT_EQ(zamsFDPFree_32f(nullptr), zamStsNullPtr);
}

// ---------------------------------------------------------------- LTP

TEST(Ltp, PredictShiftsScalesAndZeroFills)
{
    std::vector<int32_t> hist(3072);
    std::uniform_int_distribution<int32_t> d(-(1 << 24), 1 << 24);
    for (auto& v : hist) v = d(zamtest::rng());
    const int32_t coefs[8] = {9352, 11413, 13320, 14931, 16137, 17496, 19572, 22438};
    for (int lag : {0, 1, 700, 1024, 2047})
        for (int c : {0, 7}) {
            std::vector<int32_t> out(2048);
            ASSERT_EQ(zamsLongTermPredict_AAC_32s(hist.data(), out.data(), lag, c), zamStsOk);
            for (int i = 0; i < 2048; ++i) {
                const int src = i + 2048 - lag;
                const double want = src < 3072 ? std::floor(hist[src] * (coefs[c] / 16384.0) + 0.5) : 0.0;
                ASSERT_EQ(out[i], want) << lag << " " << i;
            }
        }
    std::vector<int32_t> out = zamtest::canaryVector<int32_t>(2048);
    EXPECT_EQ(zamsLongTermPredict_AAC_32s(hist.data(), out.data(), 2048, 0), zamStsBadArg);
    EXPECT_EQ(zamsLongTermPredict_AAC_32s(hist.data(), out.data(), 5, 8), zamStsBadArg);
    EXPECT_EQ(zamsLongTermPredict_AAC_32s(nullptr, out.data(), 5, 1), zamStsNullPtr);
    EXPECT_TRUE(zamtest::untouched(out));

    std::vector<int32_t> output(1024, 7), overlap(1024, 9);
    const std::vector<int32_t> before = hist;
    ASSERT_EQ(zamsLtpUpdate_AAC_32s(output.data(), overlap.data(), hist.data()), zamStsOk);
    EXPECT_TRUE(std::equal(hist.begin(), hist.begin() + 1024, before.begin() + 1024));
    EXPECT_EQ(hist[1024], 7);
    EXPECT_EQ(hist[3071], 9);
}

// A periodic signal predicted from its own past: Predict, the analysis bank and
// Reconstruct give the true spectrum (times the coefficient) in the flagged bands.
TEST(Ltp, PredictTransformReconstructOnAPeriodicSignal)
{
    const int period = 64, lag = 1088;  // 2048 - lag is a multiple of the period
    auto s = [&](int n) { return static_cast<int32_t>(256 * (6000 * std::sin(2 * M_PI * 3 * n / period) +
                                                             2000 * std::cos(2 * M_PI * 7 * n / period))); };
    std::vector<int32_t> hist(3072), frame(2048);
    for (int n = 0; n < 3072; ++n) hist[n] = s(n);
    for (int n = 0; n < 2048; ++n) frame[n] = s(n + 3072 - 1024);  // the current window
    std::vector<int32_t> truth(1024), est(2048);
    ASSERT_EQ(zamsMDCTFwd_AAC_32s(frame.data(), truth.data(), 0, 1, 1), zamStsOk);
    ASSERT_EQ(zamsLongTermPredict_AAC_32s(hist.data(), est.data(), lag, 4), zamStsOk);
    ASSERT_EQ(zamsMDCTFwd_AAC_32s_I(est.data(), 0, 1, 1), zamStsOk);
    const double c = 16137 / 16384.0;
    double peak = 0;
    for (int k = 0; k < 1024; ++k) peak = std::max(peak, std::abs(double(truth[k])));
    for (int k = 0; k < 1024; ++k) ASSERT_NEAR(est[k], c * truth[k], peak * 1e-6 + 4) << k;

    AacLtpData ltp{};
    ltp.ltp_data_present = ltp.ltp_long_used[0] = 1;
    ltp.ltp_long_used[1 + 3] = ltp.ltp_long_used[1 + 20] = 1;
    ltp.ltp_long_used[1 + 45] = 1;  // beyond band 40: never used
    std::vector<int32_t> spec(1024, 5);
    ASSERT_EQ(zamsLongTermReconstruct_AAC_32s(est.data(), spec.data(), &ltp, 0, 49, 4), zamStsOk);
    const uint16_t* off = bands44();
    for (int k = 0; k < 1024; ++k) {
        const bool flagged = (k >= off[3] && k < off[4]) || (k >= off[20] && k < off[21]);
        ASSERT_EQ(spec[k], flagged ? 5 + est[k] : 5) << k;
    }
    EXPECT_EQ(zamsLongTermReconstruct_AAC_32s(est.data(), spec.data(), &ltp, 2, 15, 4), zamStsAacMaxSfbErr);
    EXPECT_EQ(zamsLongTermReconstruct_AAC_32s(est.data(), spec.data(), &ltp, 4, 15, 4), zamStsAacWinSeqErr);
    EXPECT_EQ(zamsLongTermReconstruct_AAC_32s(est.data(), spec.data(), &ltp, 0, 15, 12), zamStsAacSmplRateIdxErr);
}

}  // namespace
