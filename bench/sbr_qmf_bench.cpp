// The float SBR QMF banks and the PS hybrid analysis: time per QMF slot (32 slots,
// one HE-AAC frame, per iteration), beside a straightforward O(N log N) float
// implementation of the same formulas: shift registers moved with memmove, the
// window sums as plain loops, and the modulation as one full-size complex FFT
// (64 points for the analysis, 2M for the synthesis) by fftwf, which is opened
// with dlopen when present.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <random>
#include <vector>

#include "sbr/qmf.h"
#include "zamac.h"

namespace {

constexpr int kSlots = 32;
constexpr double kPi = 3.141592653589793238462643383279502884;

void perSlot(benchmark::State& state)
{
    state.counters["ns/slot"] =
        benchmark::Counter(kSlots, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

std::vector<float> noise(size_t n, float scale)
{
    std::mt19937 g(3);
    std::normal_distribution<float> d(0.0f, scale);
    std::vector<float> v(n);
    for (auto& x : v) x = d(g);
    return v;
}

struct Rows {
    Rows(int width) : data(static_cast<size_t>(kSlots) * width, 0.0f)
    {
        for (int s = 0; s < kSlots; ++s) ptr.push_back(data.data() + static_cast<size_t>(s) * width);
    }
    std::vector<float> data;
    std::vector<float*> ptr;
    const float* const* in() const { return ptr.data(); }
};

// ------------------------------------------------------------------ the library's banks

template <typename Spec, ZamStatus (*GetSize)(int*), ZamStatus (*Init)(Spec**, uint8_t*)>
Spec* make(std::vector<uint8_t>& mem)
{
    int size = 0;
    GetSize(&size);
    mem.resize(size);
    Spec* s = nullptr;
    Init(&s, mem.data());
    return s;
}

void BM_SbrAnalysis_RToC_32f(benchmark::State& state)
{
    std::vector<uint8_t> mem;
    auto* s = make<SbrAnalysisSpec_RToC_32f, zamsAnalysisFilterGetSize_SBR_RToC_32f,
                   zamsAnalysisFilterInit_SBR_RToC_32f>(mem);
    auto pcm = noise(32 * kSlots, 10000.0f);
    Rows re(32), im(32);
    for (auto _ : state) zamsAnalysisFilter_SBR_RToC_32f_D2L(pcm.data(), re.ptr.data(), im.ptr.data(), kSlots, 32, s);
    perSlot(state);
}
BENCHMARK(BM_SbrAnalysis_RToC_32f);

void BM_SbrAnalysis_RToC_32f32fc(benchmark::State& state)
{
    std::vector<uint8_t> mem;
    auto* s = make<SbrAnalysisSpec_RToC_32f32fc, zamsAnalysisFilterGetSize_SBR_RToC_32f32fc,
                   zamsAnalysisFilterInit_SBR_RToC_32f32fc>(mem);
    auto pcm = noise(32 * kSlots, 10000.0f);
    Rows rows(64);
    for (auto _ : state) zamsAnalysisFilter_SBR_RToC_32f32fc_D2L(pcm.data(), rows.ptr.data(), kSlots, 32, s);
    perSlot(state);
}
BENCHMARK(BM_SbrAnalysis_RToC_32f32fc);

void BM_SbrAnalysis_RToR_32f(benchmark::State& state)
{
    std::vector<uint8_t> mem;
    auto* s = make<SbrAnalysisSpec_RToR_32f, zamsAnalysisFilterGetSize_SBR_RToR_32f,
                   zamsAnalysisFilterInit_SBR_RToR_32f>(mem);
    auto pcm = noise(32 * kSlots, 10000.0f);
    Rows rows(32);
    for (auto _ : state) zamsAnalysisFilter_SBR_RToR_32f_D2L(pcm.data(), rows.ptr.data(), kSlots, 32, s);
    perSlot(state);
}
BENCHMARK(BM_SbrAnalysis_RToR_32f);

// The six synthesis kinds through one template: split, interleaved or real rows.
template <typename Spec, ZamStatus (*GetSize)(int*), ZamStatus (*Init)(Spec**, uint8_t*), int M, int Layout>
void synthesisBench(benchmark::State& state, ZamStatus (*split)(const float* const*, const float* const*, float*,
                                                                int, Spec*),
                    ZamStatus (*rows)(const float* const*, float*, int, Spec*))
{
    std::vector<uint8_t> mem;
    Spec* s = make<Spec, GetSize, Init>(mem);
    Rows re(Layout == 1 ? 2 * M : M), im(M);
    auto x = noise(re.data.size(), 1000.0f);
    re.data = x;
    im.data = noise(im.data.size(), 1000.0f);
    for (int i = 0; i < kSlots; ++i) re.ptr[i] = re.data.data() + i * (Layout == 1 ? 2 * M : M), im.ptr[i] = im.data.data() + i * M;
    std::vector<float> out(M * kSlots);
    for (auto _ : state) {
        if (Layout == 0)
            split(re.in(), im.in(), out.data(), kSlots, s);
        else
            rows(re.in(), out.data(), kSlots, s);
    }
    perSlot(state);
}

void BM_SbrSynthesis_CToR_32f(benchmark::State& st)
{
    synthesisBench<SbrSynthesisSpec_CToR_32f, zamsSynthesisFilterGetSize_SBR_CToR_32f,
                   zamsSynthesisFilterInit_SBR_CToR_32f, 64, 0>(st, zamsSynthesisFilter_SBR_CToR_32f_D2L, nullptr);
}
void BM_SbrSynthesis_CToR_32fc32f(benchmark::State& st)
{
    synthesisBench<SbrSynthesisSpec_CToR_32fc32f, zamsSynthesisFilterGetSize_SBR_CToR_32fc32f,
                   zamsSynthesisFilterInit_SBR_CToR_32fc32f, 64, 1>(st, nullptr,
                                                                     zamsSynthesisFilter_SBR_CToR_32fc32f_D2L);
}
void BM_SbrSynthesis_RToR_32f(benchmark::State& st)
{
    synthesisBench<SbrSynthesisSpec_RToR_32f, zamsSynthesisFilterGetSize_SBR_RToR_32f,
                   zamsSynthesisFilterInit_SBR_RToR_32f, 64, 2>(st, nullptr, zamsSynthesisFilter_SBR_RToR_32f_D2L);
}
void BM_SbrSynthesisDown_CToR_32f(benchmark::State& st)
{
    synthesisBench<SbrSynthesisDownSpec_CToR_32f, zamsSynthesisDownFilterGetSize_SBR_CToR_32f,
                   zamsSynthesisDownFilterInit_SBR_CToR_32f, 32, 0>(st, zamsSynthesisDownFilter_SBR_CToR_32f_D2L,
                                                                    nullptr);
}
void BM_SbrSynthesisDown_CToR_32fc32f(benchmark::State& st)
{
    synthesisBench<SbrSynthesisDownSpec_CToR_32fc32f, zamsSynthesisDownFilterGetSize_SBR_CToR_32fc32f,
                   zamsSynthesisDownFilterInit_SBR_CToR_32fc32f, 32, 1>(
        st, nullptr, zamsSynthesisDownFilter_SBR_CToR_32fc32f_D2L);
}
void BM_SbrSynthesisDown_RToR_32f(benchmark::State& st)
{
    synthesisBench<SbrSynthesisDownSpec_RToR_32f, zamsSynthesisDownFilterGetSize_SBR_RToR_32f,
                   zamsSynthesisDownFilterInit_SBR_RToR_32f, 32, 2>(st, nullptr,
                                                                    zamsSynthesisDownFilter_SBR_RToR_32f_D2L);
}
BENCHMARK(BM_SbrSynthesis_CToR_32f);
BENCHMARK(BM_SbrSynthesis_CToR_32fc32f);
BENCHMARK(BM_SbrSynthesis_RToR_32f);
BENCHMARK(BM_SbrSynthesisDown_CToR_32f);
BENCHMARK(BM_SbrSynthesisDown_CToR_32fc32f);
BENCHMARK(BM_SbrSynthesisDown_RToR_32f);

// The window kernels alone, AVX2 and scalar twin.
void BM_SbrWindowKernels(benchmark::State& state)
{
    const bool avx = state.range(0) != 0;
    auto x = noise(384, 1000.0f);
    auto ring = noise(1280, 1000.0f);
    float u[64], out[64];
    for (auto _ : state) {
        for (int s = 0; s < kSlots; ++s) {
            (avx ? zam::sbr::analysisWindowAvx2 : zam::sbr::analysisWindowScalar)(x.data() + 256, u);
            (avx ? zam::sbr::synthesisWindowAvx2 : zam::sbr::synthesisWindowScalar)(ring.data(), s % 10, 64, out);
            benchmark::DoNotOptimize(u);
            benchmark::DoNotOptimize(out);
        }
    }
    perSlot(state);
    state.SetLabel(avx ? "avx2 (analysis + synthesis window)" : "scalar (analysis + synthesis window)");
}
BENCHMARK(BM_SbrWindowKernels)->Arg(1)->Arg(0);

void BM_PsHybridAnalysis(benchmark::State& state)
{
    const int config = static_cast<int>(state.range(0));
    std::vector<std::vector<float>> in(5, noise(2 * (kSlots + 12), 1000.0f));
    std::vector<const float*> src;
    for (auto& r : in) src.push_back(r.data());
    Rows out(64);
    for (auto _ : state) zamsAnalysisFilter_PS_32fc_D2(src.data(), out.ptr.data(), kSlots, config);
    perSlot(state);
}
BENCHMARK(BM_PsHybridAnalysis)->Arg(20)->Arg(34);

// ------------------------------------------------------------------ the integer banks

template <typename Spec, ZamStatus (*GetSize)(int*), ZamStatus (*Init)(Spec**, uint8_t*)>
Spec* makeFixed(std::vector<uint8_t>& mem)
{
    return make<Spec, GetSize, Init>(mem);
}

std::vector<int32_t> intNoise(size_t n, double scale)
{
    auto f = noise(n, static_cast<float>(scale));
    return std::vector<int32_t>(f.begin(), f.end());
}

void BM_SbrFixedAnalysis(benchmark::State& state)
{
    const bool hq = state.range(0) == 0;
    std::vector<uint8_t> mem;
    auto* a = makeFixed<SbrAnalysisSpecHQ_32s32sc, zamsAnalysisFilterGetSize_SBRHQ_32s32sc,
                        zamsAnalysisFilterInit_SBRHQ_32s32sc>(mem);
    std::vector<uint8_t> mem2;
    auto* b = makeFixed<SbrAnalysisSpecLP_32s, zamsAnalysisFilterGetSize_SBRLP_32s, zamsAnalysisFilterInit_SBRLP_32s>(mem2);
    auto pcm = intNoise(32 * kSlots, 1 << 22);
    std::vector<int32_t> q(64 * kSlots);
    std::vector<int32_t*> rows;
    for (int s = 0; s < kSlots; ++s) rows.push_back(q.data() + 64 * s);
    for (auto _ : state) {
        if (hq)
            zamsAnalysisFilter_SBRHQ_32s32sc(pcm.data(), rows.data(), kSlots, 32, a);
        else
            zamsAnalysisFilter_SBRLP_32s(pcm.data(), rows.data(), kSlots, 32, b);
    }
    perSlot(state);
    state.SetLabel(hq ? "HQ" : "LP");
}
BENCHMARK(BM_SbrFixedAnalysis)->Arg(0)->Arg(1);

// range(0): bit 0 down-sampling, bit 1 low power
void BM_SbrFixedSynthesis(benchmark::State& state)
{
    const bool down = state.range(0) & 1, lp = state.range(0) & 2;
    std::vector<uint8_t> mem;
    auto* c = makeFixed<SbrSynthesisSpecHQ_32sc32s, zamsSynthesisFilterGetSize_SBRHQ_32sc32s,
                        zamsSynthesisFilterInit_SBRHQ_32sc32s>(mem);
    auto x = intNoise(128 * kSlots, 1 << 16);
    std::vector<const int32_t*> rows;
    for (int s = 0; s < kSlots; ++s) rows.push_back(x.data() + 128 * s);
    std::vector<int32_t> out(64 * kSlots);
    auto* d = reinterpret_cast<SbrSynthesisSpecLP_32s*>(c);  // same object layout, tag checked below
    if (lp) zamsSynthesisFilterInit_SBRLP_32s(&d, mem.data());
    for (auto _ : state) {
        if (!lp && !down) zamsSynthesisFilter_SBRHQ_32sc32s(rows.data(), out.data(), kSlots, c);
        if (!lp && down) zamsSynthesisDownFilter_SBRHQ_32sc32s(rows.data(), out.data(), kSlots, (SbrSynthesisDownSpecHQ_32sc32s*)c);
        if (lp && !down) zamsSynthesisFilter_SBRLP_32s(rows.data(), out.data(), kSlots, d);
        if (lp && down) zamsSynthesisDownFilter_SBRLP_32s(rows.data(), out.data(), kSlots, (SbrSynthesisDownSpecLP_32s*)d);
    }
    perSlot(state);
    state.SetLabel(std::string(lp ? "LP" : "HQ") + (down ? " down" : " 64 bands"));
}
BENCHMARK(BM_SbrFixedSynthesis)->Arg(0)->Arg(2)->Arg(1)->Arg(3);

// ------------------------------------------------------------------ the straightforward form

using cf = std::complex<float>;

struct Fftwf {
    using Plan = void*;
    Plan (*plan)(int, cf*, cf*, int, unsigned) = nullptr;
    void (*execute)(Plan, cf*, cf*) = nullptr;
    Fftwf()
    {
        if (void* h = dlopen("libfftw3f.so.3", RTLD_NOW)) {
            plan = reinterpret_cast<decltype(plan)>(dlsym(h, "fftwf_plan_dft_1d"));
            execute = reinterpret_cast<decltype(execute)>(dlsym(h, "fftwf_execute_dft"));
        }
    }
};
Fftwf& fftwf()
{
    static Fftwf f;
    return f;
}
constexpr int kBackward = 1;
constexpr unsigned kMeasure = 0;

struct PlainWindow {
    float c[640];
    PlainWindow()
    {
        // The bank's own window is internal; the same numbers come from the table.
        FILE* f = std::fopen(ZAMAC_SHARED_DIR "/tables/sbr_qmf_window.txt", "r");
        char line[256];
        while (f && std::fgets(line, sizeof line, f)) {
            int i;
            float v;
            if (line[0] != '#' && std::sscanf(line, "%d %f", &i, &v) == 2) c[i] = v;
        }
        if (f) std::fclose(f);
    }
};

// Analysis as written: x shifted with memmove, z and u by loops, and
// W[k] = 2 e^{-i pi (2k+1) P'/256} sum_n (u(n) e^{i pi n/64}) e^{i 2 pi k n/64} by one
// 64-point FFT (P' = 1 complex; the real bank takes 2 Re with its own phase).
struct PlainAnalysis {
    explicit PlainAnalysis(bool real) : real(real)
    {
        plan = fftwf().plan(64, a, b, kBackward, kMeasure);
        for (int n = 0; n < 64; ++n) pre[n] = std::polar(1.0f, static_cast<float>(kPi * n / 64));
        for (int k = 0; k < 32; ++k)
            post[k] = std::polar(2.0f, static_cast<float>(-kPi * (2 * k + 1) * (real ? 96.0 : 0.5) / 128));
    }
    void slot(const float* in, float* re, float* im)
    {
        std::memmove(x + 32, x, 288 * sizeof(float));
        for (int j = 0; j < 32; ++j) x[31 - j] = in[j];
        float u[64] = {};
        for (int n = 0; n < 320; ++n) u[n & 63] += x[n] * w.c[2 * n];
        for (int n = 0; n < 64; ++n) a[n] = u[n] * pre[n];
        fftwf().execute(plan, a, b);
        for (int k = 0; k < 32; ++k) {
            const cf v = b[k] * post[k];
            re[k] = v.real();
            if (!real) im[k] = v.imag();
        }
    }
    bool real;
    PlainWindow w;
    float x[320] = {};
    alignas(32) cf a[64], b[64];
    cf pre[64], post[32];
    void* plan;
};

// Synthesis as written: v shifted with memmove, its 2M new values
// v(n) = s Re(e^{i pi (2n - P)/(4M)} sum_k (X_k e^{-i pi k P/(2M)}) e^{i 2 pi k n/(2M)})
// by one 2M-point FFT, then g, w and the output sums by loops.
struct PlainSynthesis {
    PlainSynthesis(int m, double phase, float scale) : m(m)
    {
        plan = fftwf().plan(2 * m, a, b, kBackward, kMeasure);
        for (int k = 0; k < m; ++k) pre[k] = std::polar(scale, static_cast<float>(-kPi * k * phase / (2 * m)));
        for (int n = 0; n < 2 * m; ++n) post[n] = std::polar(1.0f, static_cast<float>(kPi * (2 * n - phase) / (4 * m)));
    }
    void slot(const float* re, const float* im, float* out)
    {
        std::memmove(v + 2 * m, v, 18 * m * sizeof(float));
        for (int k = 0; k < m; ++k) a[k] = cf(re[k], im ? im[k] : 0.0f) * pre[k];
        for (int k = m; k < 2 * m; ++k) a[k] = 0;
        fftwf().execute(plan, a, b);
        for (int n = 0; n < 2 * m; ++n) v[n] = (b[n] * post[n]).real();
        float g[640];
        for (int n = 0; n < 5; ++n)
            for (int k = 0; k < m; ++k) {
                g[2 * m * n + k] = v[4 * m * n + k];
                g[2 * m * n + m + k] = v[4 * m * n + 3 * m + k];
            }
        const int step = 64 / m;
        for (int n = 0; n < 10 * m; ++n) g[n] *= w.c[step * n];
        for (int k = 0; k < m; ++k) {
            float acc = 0;
            for (int n = 0; n < 10; ++n) acc += g[m * n + k];
            out[k] = acc;
        }
    }
    int m;
    PlainWindow w;
    float v[1280] = {};
    alignas(32) cf a[128], b[128];
    cf pre[64], post[128];
    void* plan;
};

// Relative RMS difference of two outputs; the plain forms must agree with the banks.
double difference(const std::vector<float>& a, const std::vector<float>& b)
{
    double e = 0, s = 0;
    for (size_t i = 0; i < a.size(); ++i) e += (a[i] - b[i]) * double(a[i] - b[i]), s += double(b[i]) * b[i];
    return std::sqrt(e / s);
}

void BM_PlainAnalysis(benchmark::State& state)
{
    if (!fftwf().plan) return state.SkipWithError("libfftw3f.so.3 not found");
    const bool real = state.range(0) != 0;
    PlainAnalysis bank(real);
    auto pcm = noise(32 * kSlots, 10000.0f);
    float re[32], im[32];
    {
        PlainAnalysis check(real);
        std::vector<uint8_t> mem, mem2;
        auto* s = make<SbrAnalysisSpec_RToR_32f, zamsAnalysisFilterGetSize_SBR_RToR_32f,
                       zamsAnalysisFilterInit_SBR_RToR_32f>(mem);
        auto* c = make<SbrAnalysisSpec_RToC_32f, zamsAnalysisFilterGetSize_SBR_RToC_32f,
                       zamsAnalysisFilterInit_SBR_RToC_32f>(mem2);
        Rows lr(32), li(32);
        if (real)
            zamsAnalysisFilter_SBR_RToR_32f_D2L(pcm.data(), lr.ptr.data(), kSlots, 32, s);
        else
            zamsAnalysisFilter_SBR_RToC_32f_D2L(pcm.data(), lr.ptr.data(), li.ptr.data(), kSlots, 32, c);
        std::vector<float> mine(lr.data.size());
        for (int t = 0; t < kSlots; ++t) check.slot(pcm.data() + 32 * t, mine.data() + 32 * t, im);
        if (difference(mine, lr.data) > 1e-5) return state.SkipWithError("plain form disagrees with the bank");
    }
    for (auto _ : state)
        for (int s = 0; s < kSlots; ++s) {
            bank.slot(pcm.data() + 32 * s, re, im);
            benchmark::DoNotOptimize(re);
        }
    perSlot(state);
    state.SetLabel(state.range(0) ? "real" : "complex");
}
BENCHMARK(BM_PlainAnalysis)->Arg(0)->Arg(1);

void BM_PlainSynthesis(benchmark::State& state)
{
    if (!fftwf().plan) return state.SkipWithError("libfftw3f.so.3 not found");
    const bool down = state.range(0) & 1, real = state.range(0) & 2;
    const int m = down ? 32 : 64;
    PlainSynthesis bank(m, real ? (down ? 32 : 64) : (down ? 127.5 : 255), real ? 1.0f / 32 : 1.0f / 64);
    auto re = noise(m * kSlots, 1000.0f), im = noise(m * kSlots, 1000.0f);
    float out[64];
    {
        PlainSynthesis check(m, real ? (down ? 32 : 64) : (down ? 127.5 : 255), real ? 1.0f / 32 : 1.0f / 64);
        std::vector<float> mine(m * kSlots), lib(m * kSlots);
        std::vector<const float*> rr, ii;
        for (int t = 0; t < kSlots; ++t) {
            check.slot(re.data() + m * t, real ? nullptr : im.data() + m * t, mine.data() + m * t);
            rr.push_back(re.data() + m * t), ii.push_back(im.data() + m * t);
        }
        std::vector<uint8_t> mem;
        if (!down && !real)
            zamsSynthesisFilter_SBR_CToR_32f_D2L(rr.data(), ii.data(), lib.data(), kSlots,
                make<SbrSynthesisSpec_CToR_32f, zamsSynthesisFilterGetSize_SBR_CToR_32f, zamsSynthesisFilterInit_SBR_CToR_32f>(mem));
        if (!down && real)
            zamsSynthesisFilter_SBR_RToR_32f_D2L(rr.data(), lib.data(), kSlots,
                make<SbrSynthesisSpec_RToR_32f, zamsSynthesisFilterGetSize_SBR_RToR_32f, zamsSynthesisFilterInit_SBR_RToR_32f>(mem));
        if (down && !real)
            zamsSynthesisDownFilter_SBR_CToR_32f_D2L(rr.data(), ii.data(), lib.data(), kSlots,
                make<SbrSynthesisDownSpec_CToR_32f, zamsSynthesisDownFilterGetSize_SBR_CToR_32f, zamsSynthesisDownFilterInit_SBR_CToR_32f>(mem));
        if (down && real)
            zamsSynthesisDownFilter_SBR_RToR_32f_D2L(rr.data(), lib.data(), kSlots,
                make<SbrSynthesisDownSpec_RToR_32f, zamsSynthesisDownFilterGetSize_SBR_RToR_32f, zamsSynthesisDownFilterInit_SBR_RToR_32f>(mem));
        if (difference(mine, lib) > 1e-5) return state.SkipWithError("plain form disagrees with the bank");
    }
    for (auto _ : state)
        for (int s = 0; s < kSlots; ++s) {
            bank.slot(re.data() + m * s, real ? nullptr : im.data() + m * s, out);
            benchmark::DoNotOptimize(out);
        }
    perSlot(state);
    state.SetLabel(std::string(real ? "real " : "complex ") + (down ? "down" : "64 bands"));
}
BENCHMARK(BM_PlainSynthesis)->Arg(0)->Arg(2)->Arg(1)->Arg(3);

}  // namespace
