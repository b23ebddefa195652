// The integer SBR QMF banks against the float banks, at moderate and at full
// scale, their round trips, and their object rules.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <random>
#include <vector>

#include "test_support.h"
#include "zamac.h"

namespace {

template <typename Spec>
Spec* place(std::vector<uint8_t>& mem, ZamStatus (*getSize)(int*), ZamStatus (*init)(Spec**, uint8_t*))
{
    int size = 0;
    EXPECT_EQ(getSize(&size), zamStsOk);
    mem.assign(size, 0xEE);
    Spec* s = nullptr;
    EXPECT_EQ(init(&s, mem.data()), zamStsOk);
    return s;
}

template <typename T>
std::vector<T*> rowsOf(std::vector<T>& data, int slots, int width)
{
    std::vector<T*> r;
    for (int s = 0; s < slots; ++s) r.push_back(data.data() + static_cast<size_t>(s) * width);
    return r;
}

// Differences on the integer output's scale: RMS in LSBs, and relative to the signal.
struct Error {
    double err = 0, sig = 0, n = 0;
    void add(double got, double want) { err += (got - want) * (got - want), sig += want * want, ++n; }
    double relative() const { return std::sqrt(err / sig); }
    double lsb() const { return std::sqrt(err / n); }
    // Within the rounding of the integer steps (a few LSBs) plus the float bank's
    // own error (1e-7 relative).
    bool close() const { return lsb() <= 16.0 + 1e-6 * std::sqrt(sig / n); }
};

constexpr int kSlots = 32;

// Analysis: the integer output times 64 against the float bank on the same numbers.
Error analysisError(bool lp, double amplitude, bool sine)
{
    std::vector<uint8_t> m1, m2, m3, m4;
    auto* fs = place(m1, zamsAnalysisFilterGetSize_SBR_RToC_32f32fc, zamsAnalysisFilterInit_SBR_RToC_32f32fc);
    auto* fr = place(m2, zamsAnalysisFilterGetSize_SBR_RToR_32f, zamsAnalysisFilterInit_SBR_RToR_32f);
    auto* is = place(m3, zamsAnalysisFilterGetSize_SBRHQ_32s32sc, zamsAnalysisFilterInit_SBRHQ_32s32sc);
    auto* il = place(m4, zamsAnalysisFilterGetSize_SBRLP_32s, zamsAnalysisFilterInit_SBRLP_32s);
    std::uniform_real_distribution<double> d(-amplitude, amplitude);
    Error e;
    for (int call = 0; call < 4; ++call) {
        std::vector<int32_t> pcm(32 * kSlots);
        std::vector<float> pcmf(pcm.size());
        for (size_t i = 0; i < pcm.size(); ++i) {
            const double v = sine ? amplitude * std::sin(0.37 * (i + call * pcm.size())) : d(zamtest::rng());
            pcm[i] = static_cast<int32_t>(std::lround(v));
            pcmf[i] = static_cast<float>(pcm[i]);
        }
        const int width = lp ? 32 : 64;
        std::vector<int32_t> qi(kSlots * width);
        std::vector<float> qf(kSlots * width);
        auto ri = rowsOf(qi, kSlots, width);
        auto rf = rowsOf(qf, kSlots, width);
        if (lp) {
            EXPECT_EQ(zamsAnalysisFilter_SBRLP_32s(pcm.data(), ri.data(), kSlots, 32, il), zamStsOk);
            EXPECT_EQ(zamsAnalysisFilter_SBR_RToR_32f_D2L(pcmf.data(), rf.data(), kSlots, 32, fr), zamStsOk);
        } else {
            EXPECT_EQ(zamsAnalysisFilter_SBRHQ_32s32sc(pcm.data(), ri.data(), kSlots, 32, is), zamStsOk);
            EXPECT_EQ(zamsAnalysisFilter_SBR_RToC_32f32fc_D2L(pcmf.data(), rf.data(), kSlots, 32, fs), zamStsOk);
        }
        for (size_t i = 0; i < qi.size(); ++i) e.add(qi[i], qf[i] / 64.0);
    }
    return e;
}

// Synthesis (M = 64 or 32): integer input X against the float bank fed with 64 X.
Error synthesisError(bool lp, bool down, double amplitude)
{
    std::vector<uint8_t> mf, mi;
    void* f = nullptr;
    void* i = nullptr;
    if (!down && !lp) {
        f = place(mf, zamsSynthesisFilterGetSize_SBR_CToR_32fc32f, zamsSynthesisFilterInit_SBR_CToR_32fc32f);
        i = place(mi, zamsSynthesisFilterGetSize_SBRHQ_32sc32s, zamsSynthesisFilterInit_SBRHQ_32sc32s);
    } else if (!down) {
        f = place(mf, zamsSynthesisFilterGetSize_SBR_RToR_32f, zamsSynthesisFilterInit_SBR_RToR_32f);
        i = place(mi, zamsSynthesisFilterGetSize_SBRLP_32s, zamsSynthesisFilterInit_SBRLP_32s);
    } else if (!lp) {
        f = place(mf, zamsSynthesisDownFilterGetSize_SBR_CToR_32fc32f, zamsSynthesisDownFilterInit_SBR_CToR_32fc32f);
        i = place(mi, zamsSynthesisDownFilterGetSize_SBRHQ_32sc32s, zamsSynthesisDownFilterInit_SBRHQ_32sc32s);
    } else {
        f = place(mf, zamsSynthesisDownFilterGetSize_SBR_RToR_32f, zamsSynthesisDownFilterInit_SBR_RToR_32f);
        i = place(mi, zamsSynthesisDownFilterGetSize_SBRLP_32s, zamsSynthesisDownFilterInit_SBRLP_32s);
    }
    const int m = down ? 32 : 64, width = lp ? 64 : 128;
    std::uniform_real_distribution<double> d(-amplitude, amplitude);
    Error e;
    for (int call = 0; call < 4; ++call) {
        std::vector<int32_t> xi(kSlots * width);
        std::vector<float> xf(xi.size());
        for (size_t k = 0; k < xi.size(); ++k) {
            xi[k] = static_cast<int32_t>(std::lround(d(zamtest::rng())));
            xf[k] = 64.0f * static_cast<float>(xi[k]);
        }
        auto ri = rowsOf(xi, kSlots, width);
        auto rf = rowsOf(xf, kSlots, width);
        std::vector<const int32_t*> ci(ri.begin(), ri.end());
        std::vector<const float*> cf(rf.begin(), rf.end());
        std::vector<int32_t> oi(m * kSlots);
        std::vector<float> of(m * kSlots);
        if (!down && !lp) {
            EXPECT_EQ(zamsSynthesisFilter_SBRHQ_32sc32s(ci.data(), oi.data(), kSlots, (SbrSynthesisSpecHQ_32sc32s*)i), zamStsOk);
            zamsSynthesisFilter_SBR_CToR_32fc32f_D2L(cf.data(), of.data(), kSlots, (SbrSynthesisSpec_CToR_32fc32f*)f);
        } else if (!down) {
            EXPECT_EQ(zamsSynthesisFilter_SBRLP_32s(ci.data(), oi.data(), kSlots, (SbrSynthesisSpecLP_32s*)i), zamStsOk);
            zamsSynthesisFilter_SBR_RToR_32f_D2L(cf.data(), of.data(), kSlots, (SbrSynthesisSpec_RToR_32f*)f);
        } else if (!lp) {
            EXPECT_EQ(zamsSynthesisDownFilter_SBRHQ_32sc32s(ci.data(), oi.data(), kSlots, (SbrSynthesisDownSpecHQ_32sc32s*)i), zamStsOk);
            zamsSynthesisDownFilter_SBR_CToR_32fc32f_D2L(cf.data(), of.data(), kSlots, (SbrSynthesisDownSpec_CToR_32fc32f*)f);
        } else {
            EXPECT_EQ(zamsSynthesisDownFilter_SBRLP_32s(ci.data(), oi.data(), kSlots, (SbrSynthesisDownSpecLP_32s*)i), zamStsOk);
            zamsSynthesisDownFilter_SBR_RToR_32f_D2L(cf.data(), of.data(), kSlots, (SbrSynthesisDownSpec_RToR_32f*)f);
        }
        for (size_t k = 0; k < oi.size(); ++k) e.add(oi[k], of[k]);
    }
    return e;
}

TEST(SbrQmfFixed, AnalysisMatchesTheFloatBankUpToFullScale)
{
    for (bool lp : {false, true})
        for (double amp : {8388608.0, 1073741824.0}) {  // 2^23, and 2^30: the no-overflow limit
            const Error noise = analysisError(lp, amp, false), tone = analysisError(lp, amp, true);
            std::printf("analysis %s, |x| <= 2^%.0f: RMS error %.2f LSB, relative %.1e (noise); %.2f LSB, %.1e (tone)\n",
                        lp ? "LP" : "HQ", std::log2(amp), noise.lsb(), noise.relative(), tone.lsb(), tone.relative());
            EXPECT_TRUE(noise.close());
            EXPECT_TRUE(tone.close());
        }
}

TEST(SbrQmfFixed, SynthesisMatchesTheFloatBankUpToTheStatedHeadroom)
{
    for (bool down : {false, true})
        for (bool lp : {false, true})
            for (double amp : {65536.0, lp ? 8388608.0 : 16777216.0}) {
                const Error e = synthesisError(lp, down, amp);
                std::printf("synthesis %s%s, |X| <= 2^%.0f: RMS error %.2f LSB, relative %.1e\n", lp ? "LP" : "HQ",
                            down ? " down" : "", std::log2(amp), e.lsb(), e.relative());
                EXPECT_TRUE(e.close());
            }
}

TEST(SbrQmfFixed, ObjectsCheckTagsAndCountsAndWriteNothingOnFailure)
{
    std::vector<uint8_t> ma, mb, mc, md, me, mf;
    auto* a = place(ma, zamsAnalysisFilterGetSize_SBRHQ_32s32sc, zamsAnalysisFilterInit_SBRHQ_32s32sc);
    auto* b = place(mb, zamsAnalysisFilterGetSize_SBRLP_32s, zamsAnalysisFilterInit_SBRLP_32s);
    auto* c = place(mc, zamsSynthesisFilterGetSize_SBRHQ_32sc32s, zamsSynthesisFilterInit_SBRHQ_32sc32s);
    auto* d = place(md, zamsSynthesisFilterGetSize_SBRLP_32s, zamsSynthesisFilterInit_SBRLP_32s);
    auto* e = place(me, zamsSynthesisDownFilterGetSize_SBRHQ_32sc32s, zamsSynthesisDownFilterInit_SBRHQ_32sc32s);
    auto* f = place(mf, zamsSynthesisDownFilterGetSize_SBRLP_32s, zamsSynthesisDownFilterInit_SBRLP_32s);
    EXPECT_EQ(ma[(16 - reinterpret_cast<uintptr_t>(ma.data()) % 16) % 16], 'a');
    EXPECT_EQ(&zamsAnalysisFilterGetSize_SBRHQ_32s32sc, &zamsAnalysisFilterGetSize_SBRLP_32s);
    EXPECT_EQ(&zamsSynthesisFilterGetSize_SBRHQ_32sc32s, &zamsSynthesisFilterGetSize_SBRLP_32s);
    EXPECT_EQ(&zamsSynthesisDownFilterGetSize_SBRHQ_32sc32s, &zamsSynthesisDownFilterGetSize_SBRLP_32s);

    std::vector<int32_t> pcm(32 * 65, 1000), in(128 * 65, 0);
    auto out = zamtest::canaryVector<int32_t>(128 * 65);
    auto rows = rowsOf(out, 65, 128);
    auto inRows = rowsOf(in, 65, 128);
    std::vector<const int32_t*> src(inRows.begin(), inRows.end());
    EXPECT_EQ(zamsAnalysisFilter_SBRHQ_32s32sc(nullptr, rows.data(), 4, 32, a), zamStsNullPtr);
    EXPECT_EQ(zamsAnalysisFilter_SBRHQ_32s32sc(pcm.data(), rows.data(), 0, 0, (SbrAnalysisSpecHQ_32s32sc*)b),
              zamStsContextMismatch);
    EXPECT_EQ(zamsAnalysisFilter_SBRLP_32s(pcm.data(), rows.data(), 65, 32, b), zamStsSize);
    EXPECT_EQ(zamsAnalysisFilter_SBRLP_32s(pcm.data(), rows.data(), 4, 33, b), zamStsSize);
    EXPECT_EQ(zamsSynthesisFilter_SBRHQ_32sc32s(src.data(), out.data(), 4, (SbrSynthesisSpecHQ_32sc32s*)e),
              zamStsContextMismatch);
    EXPECT_EQ(zamsSynthesisFilter_SBRLP_32s(src.data(), out.data(), 0, d), zamStsSize);
    EXPECT_EQ(zamsSynthesisDownFilter_SBRHQ_32sc32s(src.data(), out.data(), 4, (SbrSynthesisDownSpecHQ_32sc32s*)d),
              zamStsContextMismatch);
    EXPECT_EQ(zamsSynthesisDownFilter_SBRLP_32s(src.data(), out.data(), 4, (SbrSynthesisDownSpecLP_32s*)c),
              zamStsContextMismatch);
    src[2] = nullptr;
    EXPECT_EQ(zamsSynthesisDownFilter_SBRLP_32s(src.data(), out.data(), 4, f), zamStsNullPtr);
    src[2] = in.data() + 256;
    EXPECT_TRUE(zamtest::untouched(out));
    // The down-sampling filters accept a full-rate object of the same quality.
    EXPECT_EQ(zamsSynthesisDownFilter_SBRHQ_32sc32s(src.data(), out.data(), 4, (SbrSynthesisDownSpecHQ_32sc32s*)c),
              zamStsOk);
    EXPECT_EQ(zamsSynthesisDownFilter_SBRLP_32s(src.data(), out.data(), 4, (SbrSynthesisDownSpecLP_32s*)d), zamStsOk);
    EXPECT_EQ(zamsSynthesisDownFilter_SBRHQ_32sc32s(src.data(), out.data(), 4, e), zamStsOk);
    EXPECT_EQ(zamsSynthesisDownFilterFree_SBRHQ_32sc32s(e), zamStsOk);
    EXPECT_EQ(zamsSynthesisDownFilterFree_SBRLP_32s((SbrSynthesisDownSpecLP_32s*)c), zamStsContextMismatch);
    SbrAnalysisSpecLP_32s* owned = nullptr;
    ASSERT_EQ(zamsAnalysisFilterInitAlloc_SBRLP_32s(&owned), zamStsOk);
    EXPECT_EQ(zamsAnalysisFilterFree_SBRLP_32s(owned), zamStsOk);
}

// Integer analysis then integer synthesis returns the input like the float banks.
TEST(SbrQmfFixed, AnalysisThenSynthesisReturnsTheInput)
{
    std::uniform_int_distribution<int32_t> d(-(1 << 23), 1 << 23);
    const int calls = 6;
    std::vector<int32_t> pcm(32 * kSlots * calls);
    for (auto& x : pcm) x = d(zamtest::rng());
    for (bool down : {false, true}) {
        std::vector<uint8_t> ma, ms;
        auto* a = place(ma, zamsAnalysisFilterGetSize_SBRHQ_32s32sc, zamsAnalysisFilterInit_SBRHQ_32s32sc);
        auto* s = place(ms, zamsSynthesisFilterGetSize_SBRHQ_32sc32s, zamsSynthesisFilterInit_SBRHQ_32sc32s);
        const int m = down ? 32 : 64;
        std::vector<int32_t> out;
        for (int c = 0; c < calls; ++c) {
            std::vector<int32_t> q(kSlots * 128, 0), y(m * kSlots);
            auto r = rowsOf(q, kSlots, 128);
            std::vector<const int32_t*> cr(r.begin(), r.end());
            ASSERT_EQ(zamsAnalysisFilter_SBRHQ_32s32sc(pcm.data() + 32 * kSlots * c, r.data(), kSlots, 32, a), zamStsOk);
            if (down)
                ASSERT_EQ(zamsSynthesisDownFilter_SBRHQ_32sc32s(cr.data(), y.data(), kSlots, (SbrSynthesisDownSpecHQ_32sc32s*)s), zamStsOk);
            else
                ASSERT_EQ(zamsSynthesisFilter_SBRHQ_32sc32s(cr.data(), y.data(), kSlots, s), zamStsOk);
            out.insert(out.end(), y.begin(), y.end());
        }
        const int up = m / 32, delay = down ? 289 : 578;
        Error e;
        for (size_t i = 1000; i < pcm.size() && up * i + delay < out.size(); ++i) e.add(out[up * i + delay], pcm[i]);
        const double snr = -20 * std::log10(e.relative());
        std::printf("integer round trip HQ %s: %.1f dB\n", down ? "down" : "full", snr);
        EXPECT_GT(snr, 55.0);
    }
}

}  // namespace
