#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <iostream>
#include <random>
#include <vector>

#include "test_support.h"
#include "transform/pqmf_mp3.h"
#include "zamac.h"

namespace {

constexpr double kPi = 3.141592653589793238462643383279502884;

std::vector<double> windowD()
{
    // D[i] read straight from the table file, as a check on the generated header.
    std::vector<double> d(512, 0.0);
    FILE* f = std::fopen(zamtest::sharedPath("tables/mp3_synthesis_window.txt").c_str(), "r");
    EXPECT_NE(f, nullptr);
    if (!f) return d;
    char line[256];
    while (std::fgets(line, sizeof line, f)) {
        if (line[0] == '#') continue;
        int i = 0;
        double value = 0;
        long n = 0;
        if (std::sscanf(line, "%d %lf %ld", &i, &value, &n) == 3 && i >= 0 && i < 512) d[i] = n / 65536.0;
    }
    std::fclose(f);
    return d;
}

// The synthesis bank as the standard writes it: a 1024-value V shift register.
class ReferenceSynthesis {
public:
    ReferenceSynthesis() : d_(windowD()), v_(1024, 0.0) {}
    void granule(const float* src, std::vector<double>& out)
    {
        out.assign(576, 0.0);
        for (int t = 0; t < 18; ++t) {
            for (int i = 1023; i >= 64; --i) v_[i] = v_[i - 64];
            for (int i = 0; i < 64; ++i) {
                double acc = 0;
                for (int k = 0; k < 32; ++k) acc += std::cos((16 + i) * (2 * k + 1) * kPi / 64) * src[k * 18 + t];
                v_[i] = acc;
            }
            double u[512];
            for (int i = 0; i < 8; ++i)
                for (int j = 0; j < 32; ++j) {
                    u[i * 64 + j] = v_[i * 128 + j];
                    u[i * 64 + 32 + j] = v_[i * 128 + 96 + j];
                }
            for (int j = 0; j < 32; ++j) {
                double acc = 0;
                for (int i = 0; i < 16; ++i) acc += u[j + 32 * i] * d_[j + 32 * i];
                out[t * 32 + j] = acc;
            }
        }
    }

private:
    std::vector<double> d_, v_;
};

// The analysis bank as the standard writes it: a 512-sample X shift register.
class ReferenceAnalysis {
public:
    ReferenceAnalysis() : x_(512, 0.0)
    {
        const auto d = windowD();
        for (int i = 0; i < 512; ++i) c_[i] = d[i] / 32.0;
    }
    void granule(const float* src, std::vector<double>& out)
    {
        out.assign(576, 0.0);
        for (int t = 0; t < 18; ++t) {
            for (int i = 511; i >= 32; --i) x_[i] = x_[i - 32];
            for (int i = 31, n = 0; i >= 0; --i, ++n) x_[i] = src[t * 32 + n];
            double y[64];
            for (int i = 0; i < 64; ++i) {
                y[i] = 0;
                for (int j = 0; j < 8; ++j) y[i] += c_[i + 64 * j] * x_[i + 64 * j];
            }
            for (int k = 0; k < 32; ++k) {
                double acc = 0;
                for (int i = 0; i < 64; ++i) acc += std::cos((2 * k + 1) * (i - 16) * kPi / 64) * y[i];
                out[k * 18 + t] = acc;
            }
        }
    }

private:
    std::vector<double> x_;
    double c_[512];
};

std::vector<float> randomFloats(size_t n, float scale)
{
    std::uniform_real_distribution<float> dist(-scale, scale);
    std::vector<float> v(n);
    for (auto& x : v) x = dist(zamtest::rng());
    return v;
}

template <typename T>
T* makeState(std::vector<uint8_t>& mem, ZamStatus (*init)(T**, uint8_t*))
{
    int size = 0;
    EXPECT_EQ(zamsAnalysisFilterGetSize_PQMF_MP3_32f(&size), zamStsOk);
    mem.assign(size, 0xEE);
    T* st = nullptr;
    EXPECT_EQ(init(&st, mem.data()), zamStsOk);
    return st;
}

TEST(PqmfState, SizeIs2107UnderBothNames)
{
    int a = 0, s = 0;
    EXPECT_EQ(zamsAnalysisFilterGetSize_PQMF_MP3_32f(&a), zamStsOk);
    EXPECT_EQ(zamsSynthesisFilterGetSize_PQMF_MP3_32f(&s), zamStsOk);
    EXPECT_EQ(a, 2107);
    EXPECT_EQ(s, 2107);
    EXPECT_EQ(zamsAnalysisFilterGetSize_PQMF_MP3_32f(nullptr), zamStsNullPtr);
    EXPECT_EQ(reinterpret_cast<void*>(&zamsAnalysisFilterGetSize_PQMF_MP3_32f),
              reinterpret_cast<void*>(&zamsSynthesisFilterGetSize_PQMF_MP3_32f));
}

struct TagCase {
    const char* tag;
    bool synthesis;
};

class PqmfLayout : public ::testing::TestWithParam<TagCase> {};

TEST_P(PqmfLayout, InitPlacesHeaderAtNextSixteenByteBoundary)
{
    std::vector<uint8_t> raw(2107 + 64, 0xEE);
    auto base = reinterpret_cast<uintptr_t>(raw.data());
    uint8_t* mem = raw.data() + ((16 - base % 16) % 16) + 1;  // one past a multiple of 16
    void* st = nullptr;
    ZamStatus sts = GetParam().synthesis
                        ? zamsSynthesisFilterInit_PQMF_MP3_32f(reinterpret_cast<PqmfSynthesisState_MP3**>(&st), mem)
                        : zamsAnalysisFilterInit_PQMF_MP3_32f(reinterpret_cast<PqmfAnalysisState_MP3**>(&st), mem);
    ASSERT_EQ(sts, zamStsOk);
    auto* h = static_cast<uint8_t*>(st);
    EXPECT_EQ(h, mem + 15);
    EXPECT_EQ(std::memcmp(h, GetParam().tag, 4), 0);
    const auto* state = reinterpret_cast<const zam::PqmfState*>(h);
    EXPECT_EQ(state->position, 15);
    EXPECT_EQ(state->ownsMemory, 0);
    EXPECT_EQ(reinterpret_cast<uint8_t*>(state->delay), h + 32);
    for (int i = 0; i < 512; ++i) ASSERT_EQ(state->delay[i], 0.0f);
    // The whole object lies inside the GetSize bytes.
    EXPECT_LE(h + 32 + 2048, mem + 2107);

    // The raw pointer and the aligned one reach the same object.
    auto src = randomFloats(576, 1.0f);
    std::vector<float> out1(576), out2(576);
    // Init again resets the bank, so the second run starts from the same state.
    void* rawSt = mem;
    if (GetParam().synthesis) {
        auto* aligned = static_cast<PqmfSynthesisState_MP3*>(st);
        ASSERT_EQ(zamsSynthesisFilter_PQMF_MP3_32f(src.data(), out1.data(), aligned, 1), zamStsOk);
        ASSERT_EQ(zamsSynthesisFilterInit_PQMF_MP3_32f(&aligned, mem), zamStsOk);
        ASSERT_EQ(zamsSynthesisFilter_PQMF_MP3_32f(src.data(), out2.data(),
                                                   static_cast<PqmfSynthesisState_MP3*>(rawSt), 1),
                  zamStsOk);
    } else {
        auto* aligned = static_cast<PqmfAnalysisState_MP3*>(st);
        ASSERT_EQ(zamsAnalysisFilter_PQMF_MP3_32f(src.data(), out1.data(), aligned, 1), zamStsOk);
        ASSERT_EQ(zamsAnalysisFilterInit_PQMF_MP3_32f(&aligned, mem), zamStsOk);
        ASSERT_EQ(zamsAnalysisFilter_PQMF_MP3_32f(src.data(), out2.data(),
                                                  static_cast<PqmfAnalysisState_MP3*>(rawSt), 1),
                  zamStsOk);
    }
    EXPECT_EQ(out1, out2);
}

INSTANTIATE_TEST_SUITE_P(Banks, PqmfLayout,
                         ::testing::Values(TagCase{"hAMC", false}, TagCase{"gAMC", true}),
                         [](const auto& info) { return info.param.synthesis ? "Synthesis" : "Analysis"; });

TEST(PqmfState, InitAllocOwnsAndFreeLeavesTagOfCallerMemory)
{
    PqmfAnalysisState_MP3* a = nullptr;
    ASSERT_EQ(zamsAnalysisFilterInitAlloc_PQMF_MP3_32f(&a), zamStsOk);
    const auto* h = reinterpret_cast<const zam::PqmfState*>(
        (reinterpret_cast<uintptr_t>(a) + 15) & ~uintptr_t{15});
    EXPECT_EQ(h->ownsMemory, 1);
    EXPECT_EQ(h->position, 15);
    EXPECT_EQ(zamsSynthesisFilterFree_PQMF_MP3_32f(reinterpret_cast<PqmfSynthesisState_MP3*>(a)),
              zamStsContextMismatch);
    EXPECT_EQ(zamsAnalysisFilterFree_PQMF_MP3_32f(a), zamStsOk);

    PqmfSynthesisState_MP3* s = nullptr;
    ASSERT_EQ(zamsSynthesisFilterInitAlloc_PQMF_MP3_32f(&s), zamStsOk);
    EXPECT_EQ(zamsSynthesisFilterFree_PQMF_MP3_32f(s), zamStsOk);

    std::vector<uint8_t> mem;
    auto* st = makeState(mem, zamsSynthesisFilterInit_PQMF_MP3_32f);
    EXPECT_EQ(zamsSynthesisFilterFree_PQMF_MP3_32f(st), zamStsOk);
    EXPECT_EQ(std::memcmp(st, "gAMC", 4), 0);  // filter banks keep their tag
    EXPECT_EQ(zamsSynthesisFilterFree_PQMF_MP3_32f(st), zamStsOk);

    EXPECT_EQ(zamsAnalysisFilterFree_PQMF_MP3_32f(nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsSynthesisFilterFree_PQMF_MP3_32f(nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsAnalysisFilterInit_PQMF_MP3_32f(nullptr, mem.data()), zamStsNullPtr);
    PqmfAnalysisState_MP3* dummy = nullptr;
    EXPECT_EQ(zamsAnalysisFilterInit_PQMF_MP3_32f(&dummy, nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsSynthesisFilterInitAlloc_PQMF_MP3_32f(nullptr), zamStsNullPtr);
}

TEST(PqmfChecks, OrderAndNoWrites)
{
    std::vector<uint8_t> amem, smem;
    auto* a = makeState(amem, zamsAnalysisFilterInit_PQMF_MP3_32f);
    auto* s = makeState(smem, zamsSynthesisFilterInit_PQMF_MP3_32f);
    std::vector<float> src(1152, 0.5f);
    auto dst = zamtest::canaryVector<float>(1152);
    const auto amemBefore = amem;
    const auto smemBefore = smem;

    EXPECT_EQ(zamsAnalysisFilter_PQMF_MP3_32f(nullptr, dst.data(), a, 7), zamStsNullPtr);
    EXPECT_EQ(zamsAnalysisFilter_PQMF_MP3_32f(src.data(), nullptr, a, 1), zamStsNullPtr);
    EXPECT_EQ(zamsAnalysisFilter_PQMF_MP3_32f(src.data(), dst.data(), nullptr, 1), zamStsNullPtr);
    // Tag before mode.
    EXPECT_EQ(zamsAnalysisFilter_PQMF_MP3_32f(src.data(), dst.data(), reinterpret_cast<PqmfAnalysisState_MP3*>(s), 9),
              zamStsContextMismatch);
    EXPECT_EQ(zamsSynthesisFilter_PQMF_MP3_32f(src.data(), dst.data(), reinterpret_cast<PqmfSynthesisState_MP3*>(a), 1),
              zamStsContextMismatch);
    for (int mode : {0, 3, -1}) {
        EXPECT_EQ(zamsAnalysisFilter_PQMF_MP3_32f(src.data(), dst.data(), a, mode), zamStsBadArg);
        EXPECT_EQ(zamsSynthesisFilter_PQMF_MP3_32f(src.data(), dst.data(), s, mode), zamStsBadArg);
    }
    EXPECT_EQ(zamsSynthesisFilter_PQMF_MP3_32f(nullptr, dst.data(), s, 1), zamStsNullPtr);
    EXPECT_TRUE(zamtest::untouched(dst));
    EXPECT_EQ(amem, amemBefore);
    EXPECT_EQ(smem, smemBefore);
}

// Both kernels against the standard's own formulation in double precision.
TEST(PqmfReference, SynthesisMatchesStandardFormulation)
{
    std::vector<uint8_t> mem;
    auto* st = makeState(mem, zamsSynthesisFilterInit_PQMF_MP3_32f);
    ReferenceSynthesis ref;
    std::vector<float> out(576);
    std::vector<double> expect;
    for (int g = 0; g < 3; ++g) {
        auto src = randomFloats(576, 1.0f);
        ASSERT_EQ(zamsSynthesisFilter_PQMF_MP3_32f(src.data(), out.data(), st, 1), zamStsOk);
        ref.granule(src.data(), expect);
        for (int i = 0; i < 576; ++i) ASSERT_NEAR(out[i], expect[i], 2e-5) << "granule " << g << " sample " << i;
    }
}

TEST(PqmfReference, AnalysisMatchesStandardFormulation)
{
    std::vector<uint8_t> mem;
    auto* st = makeState(mem, zamsAnalysisFilterInit_PQMF_MP3_32f);
    ReferenceAnalysis ref;
    std::vector<float> out(576);
    std::vector<double> expect;
    for (int g = 0; g < 3; ++g) {
        auto src = randomFloats(576, 1.0f);
        ASSERT_EQ(zamsAnalysisFilter_PQMF_MP3_32f(src.data(), out.data(), st, 1), zamStsOk);
        ref.granule(src.data(), expect);
        for (int i = 0; i < 576; ++i) ASSERT_NEAR(out[i], expect[i], 2e-6) << "granule " << g << " value " << i;
    }
}

// The AVX2 kernels and their scalar twins on the same random data, both strides.
class PqmfTwins : public ::testing::TestWithParam<int> {};

TEST_P(PqmfTwins, Agree)
{
    const int stride = GetParam();
    float delayA[512] = {}, delayB[512] = {}, delayC[512] = {}, delayD[512] = {};
    int32_t posA = 15, posB = 15, posC = 15, posD = 15;
    for (int g = 0; g < 4; ++g) {
        auto src = randomFloats(576 * stride, 1000.0f);
        std::vector<float> a(576 * stride, 7.0f), b(576 * stride, 7.0f);
        zam::pqmfSynthesisAvx2(src.data(), a.data(), delayA, posA, stride);
        zam::pqmfSynthesisScalar(src.data(), b.data(), delayB, posB, stride);
        for (size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(a[i], b[i], 1e-2) << i;
        if (stride == 2)
            for (size_t i = 1; i < a.size(); i += 2) ASSERT_EQ(a[i], 7.0f);  // other channel untouched
        zam::pqmfAnalysisAvx2(src.data(), a.data(), delayC, posC, stride);
        zam::pqmfAnalysisScalar(src.data(), b.data(), delayD, posD, stride);
        for (int i = 0; i < 576; ++i) ASSERT_NEAR(a[i], b[i], 1e-2) << i;
    }
    EXPECT_EQ(posA, posB);
    EXPECT_EQ(posC, posD);
    EXPECT_EQ(posA, (15 + 4 * 18) & 15);
}

INSTANTIATE_TEST_SUITE_P(Strides, PqmfTwins, ::testing::Values(1, 2));

// Analysis then synthesis returns the input after a fixed delay, near-perfectly.
// The bank is not perfect-reconstruction: its own ripple and aliasing limit white
// noise to about 84 dB (the double-precision form of the standard's equations gives
// the same figure); single tones land between 83 and 89 dB.
struct ReconstructionResult {
    int delay;
    double snr;
};

ReconstructionResult reconstruct(const std::vector<float>& input)
{
    std::vector<uint8_t> amem, smem;
    auto* a = makeState(amem, zamsAnalysisFilterInit_PQMF_MP3_32f);
    auto* s = makeState(smem, zamsSynthesisFilterInit_PQMF_MP3_32f);
    std::vector<float> output(input.size()), sub(576);
    for (size_t g = 0; g < input.size() / 576; ++g) {
        EXPECT_EQ(zamsAnalysisFilter_PQMF_MP3_32f(input.data() + 576 * g, sub.data(), a, 1), zamStsOk);
        EXPECT_EQ(zamsSynthesisFilter_PQMF_MP3_32f(sub.data(), output.data() + 576 * g, s, 1), zamStsOk);
    }
    auto snrAt = [&](int delay) {
        double sig = 0, err = 0;
        for (size_t i = 1024; i + delay < output.size(); ++i) {
            sig += double(input[i]) * input[i];
            const double e = double(output[i + delay]) - input[i];
            err += e * e;
        }
        return 10 * std::log10(sig / err);
    };
    ReconstructionResult best{0, -1e9};
    for (int d = 0; d < 1024; ++d) {
        const double snr = snrAt(d);
        if (snr > best.snr) best = {d, snr};
    }
    return best;
}

TEST(PqmfReconstruction, WhiteNoiseDelayAndSnr)
{
    const auto r = reconstruct(randomFloats(576 * 40, 1.0f));
    std::cout << "PQMF analysis->synthesis, white noise: delay " << r.delay << " samples, SNR " << r.snr << " dB\n";
    RecordProperty("delay", r.delay);
    EXPECT_EQ(r.delay, 481);
    EXPECT_GE(r.snr, 83.5);
}

TEST(PqmfReconstruction, TonesDelayAndSnr)
{
    for (double freq : {0.0113, 0.0521, 0.137, 0.29, 0.4411}) {  // cycles per sample
        std::vector<float> input(576 * 30);
        for (size_t i = 0; i < input.size(); ++i) input[i] = static_cast<float>(0.7 * std::sin(2 * kPi * freq * i + 0.3));
        const auto r = reconstruct(input);
        std::cout << "PQMF analysis->synthesis, tone " << freq << ": delay " << r.delay << ", SNR " << r.snr << " dB\n";
        EXPECT_EQ(r.delay, 481);
        EXPECT_GE(r.snr, 80.0) << freq;
    }
}

TEST(PqmfSynthesis, StereoStrideMatchesMono)
{
    std::vector<uint8_t> m1, m2, m3;
    auto* mono = makeState(m1, zamsSynthesisFilterInit_PQMF_MP3_32f);
    auto* left = makeState(m2, zamsSynthesisFilterInit_PQMF_MP3_32f);
    auto* right = makeState(m3, zamsSynthesisFilterInit_PQMF_MP3_32f);
    for (int g = 0; g < 2; ++g) {
        auto l = randomFloats(576, 1.0f), r = randomFloats(576, 1.0f);
        std::vector<float> monoOut(576), stereo(1152);
        ASSERT_EQ(zamsSynthesisFilter_PQMF_MP3_32f(l.data(), monoOut.data(), mono, 1), zamStsOk);
        ASSERT_EQ(zamsSynthesisFilter_PQMF_MP3_32f(l.data(), stereo.data(), left, 2), zamStsOk);
        ASSERT_EQ(zamsSynthesisFilter_PQMF_MP3_32f(r.data(), stereo.data() + 1, right, 2), zamStsOk);
        for (int i = 0; i < 576; ++i) ASSERT_EQ(monoOut[i], stereo[2 * i]) << i;
    }
}

}  // namespace

