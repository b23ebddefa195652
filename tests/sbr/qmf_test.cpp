// The float SBR QMF banks against a double-precision evaluation of their defining
// formulas, analysis -> synthesis reconstruction, and the object and check rules.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdio>
#include <functional>
#include <random>
#include <vector>

#include "sbr/qmf.h"
#include "test_support.h"
#include "zamac.h"

namespace {

using cd = std::complex<double>;
constexpr double kPi = 3.141592653589793238462643383279502884;

const std::vector<double>& window()
{
    static const std::vector<double> c = [] {
        std::vector<double> w(640, 0.0);
        FILE* f = std::fopen(zamtest::sharedPath("tables/sbr_qmf_window.txt").c_str(), "r");
        char line[256];
        while (f && std::fgets(line, sizeof line, f)) {
            int i;
            double v;
            if (line[0] != '#' && std::sscanf(line, "%d %lf", &i, &v) == 2) w[i] = v;
        }
        if (f) std::fclose(f);
        return w;
    }();
    return c;
}

// The banks as the formulas write them: shift registers and direct sums.
struct RefAnalysis {
    bool real;
    std::vector<double> x = std::vector<double>(320, 0.0);
    // One slot: 32 samples in, 32 bands out (imaginary parts 0 for the real bank).
    std::vector<cd> slot(const float* in)
    {
        const auto& c = window();
        for (int i = 319; i >= 32; --i) x[i] = x[i - 32];
        for (int j = 0; j < 32; ++j) x[31 - j] = in[j];
        double u[64] = {};
        for (int n = 0; n < 320; ++n) u[n % 64] += x[n] * c[2 * n];
        std::vector<cd> w(32);
        for (int k = 0; k < 32; ++k)
            for (int n = 0; n < 64; ++n)
                w[k] += real ? 2.0 * u[n] * std::cos(kPi * (k + 0.5) * (2 * n - 96) / 64)
                             : 2.0 * u[n] * std::exp(cd(0, kPi * (k + 0.5) * (2 * n - 0.5) / 64));
        return w;
    }
};

struct RefSynthesis {
    int m;  // 64, or 32 for the down-sampling bank
    bool real;
    std::vector<double> v = std::vector<double>(20 * m, 0.0);
    std::vector<double> slot(const std::vector<cd>& xk)
    {
        const auto& c = window();
        for (int i = 20 * m - 1; i >= 2 * m; --i) v[i] = v[i - 2 * m];
        for (int n = 0; n < 2 * m; ++n) {
            double acc = 0;
            for (int k = 0; k < m; ++k) {
                if (real)  // (2n - 64)/128 at 64 bands, (2n - 32)/64 at 32
                    acc += xk[k].real() * std::cos(kPi * (k + 0.5) * (2 * n - m) / (2 * m)) / 32;
                else       // (2n - 255)/128 at 64 bands, (2n - 127.5)/64 at 32
                    acc += (xk[k] * std::exp(cd(0, kPi * (k + 0.5) * (2 * n - (m == 64 ? 255.0 : 127.5)) / (2 * m)))).real() / 64;
            }
            v[n] = acc;
        }
        std::vector<double> out(m, 0.0);
        for (int n = 0; n < 5; ++n)
            for (int k = 0; k < m; ++k) {
                out[k] += v[4 * m * n + k] * c[(64 / m) * (2 * m * n + k)];
                out[k] += v[4 * m * n + 3 * m + k] * c[(64 / m) * (2 * m * n + m + k)];
            }
        return out;
    }
};

// ------------------------------------------------------------------ uniform access to the nine kinds

enum class Layout { Split, Interleaved, Real };

struct Kind {
    const char* name;
    char letter;
    bool analysis;
    int bands;  // 32 analysis, 64 synthesis, 32 down
    Layout layout;
    ZamStatus (*getSize)(int*);
    std::function<ZamStatus(void**, uint8_t*)> init;
    std::function<ZamStatus(void**)> initAlloc;
    std::function<ZamStatus(void*)> free;
    // Analysis: (src, re rows, im rows, slots, bands, spec); synthesis: (re rows,
    // im rows, dst, slots, spec). Layout-specific row meaning as in the header.
    std::function<ZamStatus(const float*, float* const*, float* const*, int, int, void*)> analyse;
    std::function<ZamStatus(const float* const*, const float* const*, float*, int, void*)> synthesise;
};

#define LIFE(Fam, Suf, T)                                                                              \
    zams##Fam##GetSize_SBR_##Suf, [](void** p, uint8_t* m) { return zams##Fam##Init_SBR_##Suf((T**)p, m); }, \
        [](void** p) { return zams##Fam##InitAlloc_SBR_##Suf((T**)p); },                                 \
        [](void* p) { return zams##Fam##Free_SBR_##Suf((T*)p); }

const std::vector<Kind>& kinds()
{
    static const std::vector<Kind> k = {
        {"AnaSplit", 'W', true, 32, Layout::Split, LIFE(AnalysisFilter, RToC_32f, SbrAnalysisSpec_RToC_32f),
         [](const float* s, float* const* r, float* const* i, int n, int b, void* p) {
             return zamsAnalysisFilter_SBR_RToC_32f_D2L(s, r, i, n, b, (SbrAnalysisSpec_RToC_32f*)p);
         },
         nullptr},
        {"AnaInter", 'V', true, 32, Layout::Interleaved,
         LIFE(AnalysisFilter, RToC_32f32fc, SbrAnalysisSpec_RToC_32f32fc),
         [](const float* s, float* const* r, float* const*, int n, int b, void* p) {
             return zamsAnalysisFilter_SBR_RToC_32f32fc_D2L(s, r, n, b, (SbrAnalysisSpec_RToC_32f32fc*)p);
         },
         nullptr},
        {"AnaReal", 'X', true, 32, Layout::Real, LIFE(AnalysisFilter, RToR_32f, SbrAnalysisSpec_RToR_32f),
         [](const float* s, float* const* r, float* const*, int n, int b, void* p) {
             return zamsAnalysisFilter_SBR_RToR_32f_D2L(s, r, n, b, (SbrAnalysisSpec_RToR_32f*)p);
         },
         nullptr},
        {"SynSplit", 'Z', false, 64, Layout::Split, LIFE(SynthesisFilter, CToR_32f, SbrSynthesisSpec_CToR_32f),
         nullptr,
         [](const float* const* r, const float* const* i, float* d, int n, void* p) {
             return zamsSynthesisFilter_SBR_CToR_32f_D2L(r, i, d, n, (SbrSynthesisSpec_CToR_32f*)p);
         }},
        {"SynInter", 'Y', false, 64, Layout::Interleaved,
         LIFE(SynthesisFilter, CToR_32fc32f, SbrSynthesisSpec_CToR_32fc32f), nullptr,
         [](const float* const* r, const float* const*, float* d, int n, void* p) {
             return zamsSynthesisFilter_SBR_CToR_32fc32f_D2L(r, d, n, (SbrSynthesisSpec_CToR_32fc32f*)p);
         }},
        {"SynReal", '[', false, 64, Layout::Real, LIFE(SynthesisFilter, RToR_32f, SbrSynthesisSpec_RToR_32f),
         nullptr,
         [](const float* const* r, const float* const*, float* d, int n, void* p) {
             return zamsSynthesisFilter_SBR_RToR_32f_D2L(r, d, n, (SbrSynthesisSpec_RToR_32f*)p);
         }},
        {"DownSplit", ']', false, 32, Layout::Split,
         LIFE(SynthesisDownFilter, CToR_32f, SbrSynthesisDownSpec_CToR_32f), nullptr,
         [](const float* const* r, const float* const* i, float* d, int n, void* p) {
             return zamsSynthesisDownFilter_SBR_CToR_32f_D2L(r, i, d, n, (SbrSynthesisDownSpec_CToR_32f*)p);
         }},
        {"DownInter", '\\', false, 32, Layout::Interleaved,
         LIFE(SynthesisDownFilter, CToR_32fc32f, SbrSynthesisDownSpec_CToR_32fc32f), nullptr,
         [](const float* const* r, const float* const*, float* d, int n, void* p) {
             return zamsSynthesisDownFilter_SBR_CToR_32fc32f_D2L(r, d, n, (SbrSynthesisDownSpec_CToR_32fc32f*)p);
         }},
        {"DownReal", '^', false, 32, Layout::Real,
         LIFE(SynthesisDownFilter, RToR_32f, SbrSynthesisDownSpec_RToR_32f), nullptr,
         [](const float* const* r, const float* const*, float* d, int n, void* p) {
             return zamsSynthesisDownFilter_SBR_RToR_32f_D2L(r, d, n, (SbrSynthesisDownSpec_RToR_32f*)p);
         }},
    };
    return k;
}

// A bank object in caller memory, placed one byte past a 16-byte boundary.
struct Bank {
    explicit Bank(const Kind& k) : kind(k)
    {
        int size = 0;
        EXPECT_EQ(k.getSize(&size), zamStsOk);
        mem.assign(size + 16, 0xEE);
        raw = mem.data() + (16 - reinterpret_cast<uintptr_t>(mem.data()) % 16) % 16 + 1;
        EXPECT_EQ(k.init(&spec, raw), zamStsOk);
        EXPECT_EQ(static_cast<uint8_t*>(spec), raw + 15);
    }
    const Kind& kind;
    std::vector<uint8_t> mem;
    uint8_t* raw;
    void* spec = nullptr;
};

// Rows of numSlots x width floats with their pointer arrays.
struct Rows {
    Rows(int slots, int width, uint8_t fill = zamtest::kCanary) : data(static_cast<size_t>(slots) * width)
    {
        std::memset(data.data(), fill, data.size() * sizeof(float));
        for (int s = 0; s < slots; ++s) ptr.push_back(data.data() + static_cast<size_t>(s) * width);
    }
    std::vector<float> data;
    std::vector<float*> ptr;
    const float* const* in() const { return ptr.data(); }
};

// Runs `slots` slots of a kind on random data, returns (ours, reference) values
// of everything the call produced.
void runAgainstReference(const Kind& k, Bank& bank, RefAnalysis* ra, RefSynthesis* rs, int slots, int numBands,
                         std::vector<double>& ours, std::vector<double>& ref)
{
    std::normal_distribution<float> d(0.0f, 1.0f);
    auto& g = zamtest::rng();
    const int width = k.layout == Layout::Interleaved ? 2 * k.bands : k.bands;
    if (k.analysis) {
        std::vector<float> pcm(32 * slots);
        for (auto& x : pcm) x = 8000.0f * d(g);
        Rows re(slots, width), im(slots, width);
        ASSERT_EQ(k.analyse(pcm.data(), re.ptr.data(), im.ptr.data(), slots, numBands, bank.spec), zamStsOk);
        for (int s = 0; s < slots; ++s) {
            auto w = ra->slot(pcm.data() + 32 * s);
            for (int b = 0; b < 32; ++b) {
                cd want = b < numBands ? w[b] : cd(0, 0);
                cd got = k.layout == Layout::Interleaved ? cd(re.ptr[s][2 * b], re.ptr[s][2 * b + 1])
                         : k.layout == Layout::Split     ? cd(re.ptr[s][b], im.ptr[s][b])
                                                         : cd(re.ptr[s][b], 0);
                ours.push_back(got.real());
                ours.push_back(got.imag());
                ref.push_back(want.real());
                ref.push_back(k.layout == Layout::Real ? 0.0 : want.imag());
            }
        }
    } else {
        Rows re(slots, width), im(slots, width);
        std::vector<std::vector<cd>> x(slots, std::vector<cd>(k.bands));
        for (int s = 0; s < slots; ++s)
            for (int b = 0; b < k.bands; ++b) {
                x[s][b] = cd(1000.0 * d(g), k.layout == Layout::Real ? 0.0 : 1000.0 * d(g));
                if (k.layout == Layout::Interleaved) {
                    re.ptr[s][2 * b] = static_cast<float>(x[s][b].real());
                    re.ptr[s][2 * b + 1] = static_cast<float>(x[s][b].imag());
                } else {
                    re.ptr[s][b] = static_cast<float>(x[s][b].real());
                    im.ptr[s][b] = static_cast<float>(x[s][b].imag());
                }
            }
        std::vector<float> pcm(k.bands * slots);
        ASSERT_EQ(k.synthesise(re.in(), im.in(), pcm.data(), slots, bank.spec), zamStsOk);
        for (int s = 0; s < slots; ++s) {
            auto y = rs->slot(x[s]);
            for (int i = 0; i < k.bands; ++i) {
                ours.push_back(pcm[k.bands * s + i]);
                ref.push_back(y[i]);
            }
        }
    }
}

class SbrQmfKind : public ::testing::TestWithParam<int> {
protected:
    const Kind& kind() const { return kinds()[GetParam()]; }
};

TEST_P(SbrQmfKind, MatchesDoublePrecisionFormulas)
{
    const Kind& k = kind();
    Bank bank(k);
    RefAnalysis ra{k.layout == Layout::Real};
    RefSynthesis rs{k.bands, k.layout == Layout::Real};
    std::vector<double> ours, ref;
    // Call sizes across the internal chunk of 16 slots; band limits on analysis.
    const int calls[][2] = {{5, 32}, {16, 32}, {17, 20}, {64, 32}, {1, 1}};
    for (auto& c : calls) runAgainstReference(k, bank, &ra, &rs, c[0], k.analysis ? c[1] : 32, ours, ref);
    double err = 0, sig = 0;
    for (size_t i = 0; i < ours.size(); ++i) {
        err += (ours[i] - ref[i]) * (ours[i] - ref[i]);
        sig += ref[i] * ref[i];
    }
    const double rel = std::sqrt(err / sig);
    std::printf("%-10s relative RMS error %.2e\n", k.name, rel);
    EXPECT_LE(rel, 1e-6);
}

TEST_P(SbrQmfKind, ChecksInLibraryOrderAndWriteNothingOnFailure)
{
    const Kind& k = kind();
    Bank bank(k);
    Bank other(kinds()[(GetParam() + 1) % kinds().size()]);  // a different tag
    const int width = k.layout == Layout::Interleaved ? 2 * k.bands : k.bands;
    std::vector<float> pcm(32 * 64, 1.0f);
    Rows re(65, width), im(65, width);
    Rows in(65, width, 0), inIm(65, width, 0);
    auto out = zamtest::canaryVector<float>(64 * 65);
    auto call = [&](void* spec, int slots, int bands, bool nullData, bool nullRow) {
        if (nullRow) re.ptr[1] = nullptr, in.ptr[1] = nullptr;
        ZamStatus s = k.analysis
                          ? k.analyse(nullData ? nullptr : pcm.data(), re.ptr.data(), im.ptr.data(), slots, bands, spec)
                          : k.synthesise(in.in(), inIm.in(), nullData ? nullptr : out.data(), slots, spec);
        re.ptr[1] = re.data.data() + width, in.ptr[1] = in.data.data() + width;
        return s;
    };
    EXPECT_EQ(call(nullptr, 4, 32, false, false), zamStsNullPtr);
    EXPECT_EQ(call(bank.spec, 4, 32, true, false), zamStsNullPtr);
    EXPECT_EQ(call(other.spec, 0, 0, false, true), zamStsContextMismatch);  // tag before counts and rows
    EXPECT_EQ(call(bank.spec, 0, 32, false, false), zamStsSize);
    EXPECT_EQ(call(bank.spec, 65, 32, false, false), zamStsSize);
    if (k.analysis) {
        EXPECT_EQ(call(bank.spec, 4, 0, false, false), zamStsSize);
        EXPECT_EQ(call(bank.spec, 4, 33, false, false), zamStsSize);
    }
    EXPECT_EQ(call(bank.spec, 4, 32, false, true), zamStsNullPtr);
    EXPECT_TRUE(zamtest::untouched(re.data));
    EXPECT_TRUE(zamtest::untouched(im.data));
    EXPECT_TRUE(zamtest::untouched(out));
    // The state did not move: the next good call (through the unaligned pointer)
    // matches a fresh object's.
    Bank fresh(k);
    Rows re2(4, width), im2(4, width);
    auto out2 = zamtest::canaryVector<float>(64 * 4);
    if (k.analysis) {
        ASSERT_EQ(k.analyse(pcm.data(), re.ptr.data(), im.ptr.data(), 4, 32, bank.raw), zamStsOk);
        ASSERT_EQ(k.analyse(pcm.data(), re2.ptr.data(), im2.ptr.data(), 4, 32, fresh.spec), zamStsOk);
        EXPECT_EQ(0, std::memcmp(re.data.data(), re2.data.data(), re2.data.size() * 4));
    } else {
        ASSERT_EQ(k.synthesise(in.in(), inIm.in(), out.data(), 4, bank.raw), zamStsOk);
        ASSERT_EQ(k.synthesise(in.in(), inIm.in(), out2.data(), 4, fresh.spec), zamStsOk);
        EXPECT_EQ(0, std::memcmp(out.data(), out2.data(), out2.size() * 4));
    }
}

TEST_P(SbrQmfKind, LifecycleFollowsTheStateObjectRules)
{
    const Kind& k = kind();
    Bank bank(k);
    EXPECT_EQ(*reinterpret_cast<const uint32_t*>(bank.spec), 0x434D4100u + static_cast<uint8_t>(k.letter));
    EXPECT_EQ(k.free(bank.spec), zamStsOk);  // caller memory: nothing released, tag kept
    EXPECT_EQ(k.free(bank.spec), zamStsOk);
    EXPECT_EQ(k.free(nullptr), zamStsNullPtr);
    Bank other(kinds()[(GetParam() + 3) % kinds().size()]);
    EXPECT_EQ(k.free(other.spec), zamStsContextMismatch);
    void* owned = nullptr;
    ASSERT_EQ(k.initAlloc(&owned), zamStsOk);
    EXPECT_EQ(k.init(nullptr, bank.mem.data()), zamStsNullPtr);
    EXPECT_EQ(k.init(&owned, nullptr), zamStsNullPtr);
    EXPECT_EQ(k.initAlloc(nullptr), zamStsNullPtr);
    EXPECT_EQ(k.free(owned), zamStsOk);
}

INSTANTIATE_TEST_SUITE_P(AllKinds, SbrQmfKind, ::testing::Range(0, 9),
                         [](const auto& info) { return std::string(kinds()[info.param].name); });

TEST(SbrQmf, GetSizePairsAreOneFunction)
{
    EXPECT_EQ(&zamsAnalysisFilterGetSize_SBR_RToC_32f, &zamsAnalysisFilterGetSize_SBR_RToC_32f32fc);
    EXPECT_EQ(&zamsSynthesisFilterGetSize_SBR_CToR_32f, &zamsSynthesisFilterGetSize_SBR_CToR_32fc32f);
    EXPECT_EQ(&zamsSynthesisDownFilterGetSize_SBR_CToR_32f, &zamsSynthesisDownFilterGetSize_SBR_CToR_32fc32f);
}

// Analysis followed by synthesis returns the input, delayed: the SNR at the best
// integer delay (output-rate samples; full-rate output compared with the input at
// its even samples).
struct RoundTrip {
    const char* name;
    int analysisKind, synthesisKind;
    int delay;  // expected, output samples
};

TEST(SbrQmf, AnalysisThenSynthesisReturnsTheInput)
{
    const RoundTrip trips[] = {{"HQ full", 1, 4, 578}, {"LP full", 2, 5, 578}, {"HQ down", 1, 7, 289},
                               {"LP down", 2, 8, 289}};
    const int slots = 64, calls = 6;
    std::uniform_real_distribution<float> d(-20000.0f, 20000.0f);
    std::vector<float> pcm(32 * slots * calls);
    for (auto& x : pcm) x = d(zamtest::rng());
    for (const auto& t : trips) {
        const Kind& a = kinds()[t.analysisKind];
        const Kind& s = kinds()[t.synthesisKind];
        Bank ab(a), sb(s);
        const int width = s.layout == Layout::Interleaved ? 128 : 64;
        std::vector<float> out;
        for (int c = 0; c < calls; ++c) {
            Rows q(slots, width, 0);
            ASSERT_EQ(a.analyse(pcm.data() + 32 * slots * c, q.ptr.data(), nullptr, slots, 32, ab.spec), zamStsOk);
            std::vector<float> y(s.bands * slots);
            ASSERT_EQ(s.synthesise(q.in(), nullptr, y.data(), slots, sb.spec), zamStsOk);
            out.insert(out.end(), y.begin(), y.end());
        }
        const int up = s.bands / 32;
        double best = -1e9;
        int bestDelay = -1;
        for (int delay = 500 / (3 - up); delay < 700 / (3 - up); ++delay) {
            double err = 0, sig = 0;
            for (size_t i = 1000; i < pcm.size(); ++i) {
                const size_t o = up * i + delay;
                if (o >= out.size()) break;
                err += (out[o] - pcm[i]) * (out[o] - pcm[i]);
                sig += double(pcm[i]) * pcm[i];
            }
            const double snr = 10 * std::log10(sig / err);
            if (snr > best) best = snr, bestDelay = delay;
        }
        std::printf("%-8s SNR %.1f dB at a delay of %d output samples\n", t.name, best, bestDelay);
        EXPECT_EQ(bestDelay, t.delay);
        EXPECT_GT(best, 55.0);
    }
}

// The whole per-slot path (window, modulation, FFT) with the AVX2 kernels and
// with their scalar twins, on the same random data, for each of the six banks.
TEST(SbrQmf, AvxBanksMatchTheirScalarTwins)
{
    using namespace zam::sbr;
    std::normal_distribution<float> d(0.0f, 1000.0f);
    const QmfKind kindsToRun[] = {QmfKind::AnalysisComplex, QmfKind::AnalysisReal, QmfKind::SynthesisComplex,
                                  QmfKind::SynthesisReal,   QmfKind::DownComplex,  QmfKind::DownReal};
    for (QmfKind kind : kindsToRun) {
        std::vector<uint8_t> m1(qmfStateBytes(kind)), m2(qmfStateBytes(kind));
        QmfState* s1 = qmfPlace(m1.data(), kind, 0, 0);
        QmfState* s2 = qmfPlace(m2.data(), kind, 0, 0);
        double err = 0, sig = 0;
        for (int call = 0; call < 20; ++call) {
            std::vector<float> in(2 * 64 * 16), o1(64 * 16), o2(64 * 16);
            for (auto& v : in) v = d(zamtest::rng());
            if (isAnalysis(kind)) {
                AnalysisSlot a[16], b[16];
                qmfAnalysisChunk(s1, in.data(), 16, a, zam::Kernels::Avx2);
                qmfAnalysisChunk(s2, in.data(), 16, b, zam::Kernels::Scalar);
                for (int s = 0; s < 16; ++s)
                    for (int k = 0; k < 32; ++k) {
                        o1[64 * s + k] = a[s].re[k], o2[64 * s + k] = b[s].re[k];
                        if (kind == QmfKind::AnalysisComplex) o1[64 * s + 32 + k] = a[s].im[k], o2[64 * s + 32 + k] = b[s].im[k];
                    }
            } else {
                const float* im = isRealKind(kind) ? nullptr : in.data() + 64;
                for (int s = 0; s < 16; ++s) {
                    qmfSynthesisSlot(s1, in.data() + 128 * s, im ? im + 128 * s : nullptr, 1, o1.data() + 64 * s, zam::Kernels::Avx2);
                    qmfSynthesisSlot(s2, in.data() + 128 * s, im ? im + 128 * s : nullptr, 1, o2.data() + 64 * s, zam::Kernels::Scalar);
                }
            }
            for (size_t i = 0; i < o1.size(); ++i) err += (o1[i] - o2[i]) * double(o1[i] - o2[i]), sig += double(o2[i]) * o2[i];
        }
        EXPECT_LE(std::sqrt(err / sig), 1e-6) << "kind " << static_cast<int>(kind);
    }
}

TEST(SbrQmf, AvxWindowKernelsMatchTheirScalarTwins)
{
    std::uniform_real_distribution<float> d(-1e4f, 1e4f);
    std::vector<float> x(320 + 64), ring(1280);
    for (auto& v : x) v = d(zamtest::rng());
    for (auto& v : ring) v = d(zamtest::rng());
    float a[64], b[64];
    zam::sbr::analysisWindowScalar(x.data() + 256, a);
    zam::sbr::analysisWindowAvx2(x.data() + 256, b);
    EXPECT_EQ(0, std::memcmp(a, b, sizeof a));
    for (int m : {64, 32})
        for (int pos = 0; pos < 10; ++pos) {
            zam::sbr::synthesisWindowScalar(ring.data(), pos, m, a);
            zam::sbr::synthesisWindowAvx2(ring.data(), pos, m, b);
            EXPECT_EQ(0, std::memcmp(a, b, m * sizeof(float))) << "M " << m << " position " << pos;
        }
}

}  // namespace
