// Transforms: complex FFT, float MDCT (AAC and MP3 lengths), 16-bit MDCT, block
// FIR. For comparison only, two peers run in the same process, each opened with
// dlopen when present, so the build needs nothing of them:
//  - Debian's FFTW3 (single precision); an FFTW-based MDCT uses the same fold and
//    twiddles around fftwf's N/4-point complex transform;
//  - ffmpeg's libavutil transforms (av_tx), its own FFT and MDCT, called through
//    their documented C entry points.
// Times are thread CPU time per transform. Each peer benchmark records its time;
// ours reports "vs_peer" = our time / the fastest peer's time (below 1 is faster),
// and a table of the best runs is printed at exit.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "transform/fft.h"
#include "transform/fir_block.h"
#include "transform/mdct.h"
#include "zamac.h"
#include "zamcore.h"

namespace {

// ------------------------------------------------------------ FFTW via dlopen

struct Fftw {
    using Plan = void*;
    using PlanDft1d = Plan (*)(int, float*, float*, int, unsigned);
    using ExecuteDft = void (*)(Plan, float*, float*);
    using Destroy = void (*)(Plan);
    using Malloc = void* (*)(size_t);
    using Free = void (*)(void*);
    PlanDft1d planDft1d = nullptr;
    ExecuteDft executeDft = nullptr;
    Destroy destroy = nullptr;
    Malloc malloc = nullptr;
    Free free = nullptr;
    bool ok = false;
    Fftw()
    {
        void* h = dlopen("libfftw3f.so.3", RTLD_NOW);
        if (!h) return;
        planDft1d = reinterpret_cast<PlanDft1d>(dlsym(h, "fftwf_plan_dft_1d"));
        executeDft = reinterpret_cast<ExecuteDft>(dlsym(h, "fftwf_execute_dft"));
        destroy = reinterpret_cast<Destroy>(dlsym(h, "fftwf_destroy_plan"));
        malloc = reinterpret_cast<Malloc>(dlsym(h, "fftwf_malloc"));
        free = reinterpret_cast<Free>(dlsym(h, "fftwf_free"));
        ok = planDft1d && executeDft && destroy && malloc && free;
    }
};

Fftw& fftw()
{
    static Fftw f;
    return f;
}

// ------------------------------------------------------------ av_tx via dlopen

struct AvTx {
    using Fn = void (*)(void* ctx, void* out, void* in, ptrdiff_t strideBytes);
    using Init = int (*)(void** ctx, Fn* fn, int type, int inverse, int len, const void* scale, uint64_t flags);
    using Uninit = void (*)(void** ctx);
    static constexpr int kFloatFft = 0;
    static constexpr int kFloatMdct = 1;
    Init init = nullptr;
    Uninit uninit = nullptr;
    bool ok = false;
    AvTx()
    {
        void* h = dlopen("libavutil.so.57", RTLD_NOW);
        if (!h) h = dlopen("libavutil.so.58", RTLD_NOW);
        if (!h) h = dlopen("libavutil.so.59", RTLD_NOW);
        if (!h) return;
        init = reinterpret_cast<Init>(dlsym(h, "av_tx_init"));
        uninit = reinterpret_cast<Uninit>(dlsym(h, "av_tx_uninit"));
        ok = init && uninit;
    }
};

AvTx& avtx()
{
    static AvTx a;
    return a;
}
constexpr int kFftwForward = -1;
constexpr unsigned kFftwMeasure = 0;

// ------------------------------------------------------------ timing records

// The fastest run of each case, ours and the peer's; the table is printed at
// exit (run with --benchmark_repetitions to take the minimum over several).
struct Records {
    std::map<std::string, double> peer, avtx, ours;
    static void cell(const std::map<std::string, double>& m, const std::string& key)
    {
        auto it = m.find(key);
        if (it != m.end()) std::printf(" %12.1f", it->second);
        else std::printf(" %12s", "-");
    }
    ~Records()
    {
        if (ours.empty()) return;
        std::printf("\n%-14s %12s %12s %12s %12s\n", "transform", "zamac ns", "FFTW ns", "av_tx ns",
                    "vs fastest");
        for (const auto& [key, ns] : ours) {
            std::printf("%-14s %12.1f", key.c_str(), ns);
            cell(peer, key);
            cell(avtx, key);
            double best = 0;
            for (const auto* m : {&peer, &avtx}) {
                auto it = m->find(key);
                if (it != m->end() && it->second > 0 && (best == 0 || it->second < best)) best = it->second;
            }
            if (best > 0) std::printf(" %12.2f\n", ns / best);
            else std::printf(" %12s\n", "-");
        }
    }
};
Records gRecords;

std::map<std::string, double>& peerTimes() { return gRecords.peer; }
std::map<std::string, double>& ourTimes() { return gRecords.ours; }

// Thread CPU time per iteration: the machine may be shared, so wall time would
// mostly measure the other processes.
double threadCpuNs()
{
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return ts.tv_sec * 1e9 + ts.tv_nsec;
}

template <typename F>
double timeLoop(benchmark::State& state, F&& f)
{
    const double t0 = threadCpuNs();
    int64_t n = 0;
    for (auto _ : state) {
        f();
        ++n;
    }
    return n ? (threadCpuNs() - t0) / double(n) : 0.0;
}

void recordPeer(const std::string& key, double ns)
{
    auto& m = peerTimes();
    if (!m.count(key) || ns < m[key]) m[key] = ns;
}

void recordAvTx(const std::string& key, double ns)
{
    auto& m = gRecords.avtx;
    if (!m.count(key) || ns < m[key]) m[key] = ns;
}

void reportOurs(benchmark::State& state, const std::string& key, double ns)
{
    auto& o = ourTimes();
    if (!o.count(key) || ns < o[key]) o[key] = ns;
    double best = 0;
    for (const auto* m : {&gRecords.peer, &gRecords.avtx}) {
        auto it = m->find(key);
        if (it != m->end() && it->second > 0 && (best == 0 || it->second < best)) best = it->second;
    }
    if (best > 0) state.counters["vs_peer"] = ns / best;
    state.counters["ns_per_transform"] = ns;
}

std::string pad(int n)
{
    char b[16];
    std::snprintf(b, sizeof b, "%05d", n);
    return b;
}

std::vector<float> randomFloats(size_t n)
{
    std::mt19937 g(7);
    std::uniform_real_distribution<float> d(-1, 1);
    std::vector<float> v(n);
    for (auto& x : v) x = d(g);
    return v;
}

// ------------------------------------------------------------ complex FFT

void BM_Fft_FFTW(benchmark::State& state)
{
    const int n = int(state.range(0));
    auto& f = fftw();
    if (!f.ok) {
        state.SkipWithError("libfftw3f.so.3 not found");
        return;
    }
    auto* in = static_cast<float*>(f.malloc(8 * n));
    auto* out = static_cast<float*>(f.malloc(8 * n));
    auto src = randomFloats(2 * n);
    std::memcpy(in, src.data(), 8 * n);
    void* plan = f.planDft1d(n, in, out, kFftwForward, kFftwMeasure);
    std::memcpy(in, src.data(), 8 * n);
    double ns = timeLoop(state, [&] {
        f.executeDft(plan, in, out);
        benchmark::DoNotOptimize(out);
    });
    recordPeer("fft" + pad(n), ns);
    f.destroy(plan);
    f.free(in);
    f.free(out);
}

// One av_tx context: the forward or inverse transform of `len` (the FFT size, or
// the MDCT's number of coefficients, half its window).
struct AvTxRun {
    void* ctx = nullptr;
    AvTx::Fn fn = nullptr;
    AvTxRun(int type, bool inverse, int len)
    {
        const float scale = 1.0f;
        if (avtx().init(&ctx, &fn, type, inverse ? 1 : 0, len, &scale, 0) < 0) ctx = nullptr;
    }
    ~AvTxRun()
    {
        if (ctx) avtx().uninit(&ctx);
    }
};

// kind 0: complex FFT of n points; 1: forward MDCT of n inputs; 2: inverse MDCT to
// n outputs; 3: forward MDCT of n 16-bit inputs converted to and from float.
void BM_AvTx(benchmark::State& state, int kind, const std::string& key)
{
    const int n = int(state.range(0));
    if (!avtx().ok) {
        state.SkipWithError("libavutil not found");
        return;
    }
    const bool fft = kind == 0;
    AvTxRun tx(fft ? AvTx::kFloatFft : AvTx::kFloatMdct, kind == 2, fft ? n : n / 2);
    if (!tx.ctx) {
        state.SkipWithError("av_tx_init refused this length");
        return;
    }
    // av_tx's vector code wants aligned buffers, as FFTW's does.
    struct Aligned {
        float* p;
        explicit Aligned(int count) : p(static_cast<float*>(zamMalloc(4 * int64_t{count}))) {}
        ~Aligned() { zamFree(p); }
        float& operator[](int i) { return p[i]; }
        float* data() { return p; }
    } in(2 * n), out(2 * n + 16);
    const auto source = randomFloats(2 * n);
    std::copy(source.begin(), source.end(), in.data());
    std::vector<int16_t> x16(n), out16(n / 2);
    std::mt19937 g(3);
    for (auto& v : x16) v = int16_t(int(g() % 65536) - 32768);
    const ptrdiff_t stride = fft ? 8 : 4;
    double ns = timeLoop(state, [&] {
        if (kind == 3) {
            for (int i = 0; i < n; ++i) in[i] = x16[i];
            tx.fn(tx.ctx, out.data(), in.data(), stride);
            for (int k = 0; k < n / 2; ++k)
                out16[k] = int16_t(std::clamp(std::lrint(out[k] * (1.0f / 512)), -32768L, 32767L));
            benchmark::DoNotOptimize(out16.data());
        } else {
            tx.fn(tx.ctx, out.data(), in.data(), stride);
            benchmark::DoNotOptimize(out.data());
        }
    });
    recordAvTx(key + pad(n), ns);
}

void BM_Fft_AvTx(benchmark::State& state) { BM_AvTx(state, 0, "fft"); }
void BM_MdctFwd_AvTx(benchmark::State& state) { BM_AvTx(state, 1, "mdctfwd"); }
void BM_MdctInv_AvTx(benchmark::State& state) { BM_AvTx(state, 2, "mdctinv"); }
void BM_Mdct16_AvTx(benchmark::State& state) { BM_AvTx(state, 3, "mdct16_"); }

void BM_Fft_zamac(benchmark::State& state)
{
    const int n = int(state.range(0));
    const int order = __builtin_ctz(n);
    zam::FftSpec* spec = nullptr;
    zam::fftInitAlloc(&spec, order, zam::kFftNoScale, 0);
    auto src = randomFloats(2 * n);
    auto* out = static_cast<float*>(zamMalloc(8 * int64_t{n}));
    auto* work = static_cast<uint8_t*>(zamMalloc(spec->workSize + 64));
    double ns = timeLoop(state, [&] {
        zam::fftFwd(src.data(), out, spec, work);
        benchmark::DoNotOptimize(out);
    });
    reportOurs(state, "fft" + pad(n), ns);
    zamFree(work);
    zamFree(out);
    zam::fftFree(spec);
}

// ------------------------------------------------------------ MDCT through FFTW

// The same fold and twiddles as the library's power-of-two path, in plain loops,
// around fftwf's complex transform of N/4 points.
struct FftwMdct {
    int n;
    std::vector<float> s, c;
    float* buf = nullptr;
    float* spec = nullptr;
    void* plan = nullptr;
    FftwMdct(int len, bool inverse) : n(len), s(len / 4), c(len / 4)
    {
        const double amp = inverse ? 1.0 / std::sqrt(len / 2.0) : std::sqrt(2.0);
        for (int k = 0; k < len / 4; ++k) {
            s[k] = float(amp * std::sin(2 * M_PI * (k + 0.125) / len));
            c[k] = float(amp * std::cos(2 * M_PI * (k + 0.125) / len));
        }
        buf = static_cast<float*>(fftw().malloc(2 * len));
        spec = static_cast<float*>(fftw().malloc(2 * len));
        plan = fftw().planDft1d(len / 4, buf, spec, kFftwForward, kFftwMeasure);
    }
    ~FftwMdct()
    {
        fftw().destroy(plan);
        fftw().free(buf);
        fftw().free(spec);
    }
    void forward(const float* x, float* dst)
    {
        const int q = n / 4, e = (n + 7) / 8;
        for (int j = 0; j < q; ++j) {
            float a, b;
            if (j < e) {
                a = -x[3 * q + 2 * j] - x[3 * q - 2 * j - 1];
                b = x[q - 2 * j - 1] - x[q + 2 * j];
            } else {
                a = x[2 * j - q] - x[3 * q - 2 * j - 1];
                b = -x[5 * q - 2 * j - 1] - x[q + 2 * j];
            }
            buf[2 * j] = a * c[j] + b * s[j];
            buf[2 * j + 1] = b * c[j] - a * s[j];
        }
        fftw().executeDft(plan, buf, spec);
        for (int j = 0; j < q; ++j) {
            dst[2 * j] = spec[2 * j] * c[j] + spec[2 * j + 1] * s[j];
            dst[n / 2 - 1 - 2 * j] = spec[2 * j] * s[j] - spec[2 * j + 1] * c[j];
        }
    }
    void inverse(const float* X, float* y)
    {
        const int q = n / 4, e = (n + 7) / 8;
        for (int j = 0; j < q; ++j) {
            const float p = X[2 * j], r = X[n / 2 - 1 - 2 * j];
            buf[2 * j] = p * c[j] + r * s[j];
            buf[2 * j + 1] = r * c[j] - p * s[j];
        }
        fftw().executeDft(plan, buf, spec);
        for (int j = 0; j < q; ++j) {
            const float re = spec[2 * j], im = spec[2 * j + 1];
            const float a = re * c[j] + im * s[j], b = re * s[j] - im * c[j];
            if (j < e) {
                y[3 * q + 2 * j] = -a;
                y[3 * q - 1 - 2 * j] = -a;
                y[q - 1 - 2 * j] = b;
                y[q + 2 * j] = -b;
            } else {
                y[2 * j - q] = a;
                y[3 * q - 1 - 2 * j] = -a;
                y[5 * q - 1 - 2 * j] = -b;
                y[q + 2 * j] = -b;
            }
        }
    }
};

void BM_MdctFwd_FFTW(benchmark::State& state)
{
    const int n = int(state.range(0));
    if (!fftw().ok) {
        state.SkipWithError("libfftw3f.so.3 not found");
        return;
    }
    FftwMdct m(n, false);
    auto x = randomFloats(n);
    std::vector<float> out(n / 2);
    double ns = timeLoop(state, [&] {
        m.forward(x.data(), out.data());
        benchmark::DoNotOptimize(out.data());
    });
    recordPeer("mdctfwd" + pad(n), ns);
}

void BM_MdctInv_FFTW(benchmark::State& state)
{
    const int n = int(state.range(0));
    if (!fftw().ok) {
        state.SkipWithError("libfftw3f.so.3 not found");
        return;
    }
    FftwMdct m(n, true);
    auto X = randomFloats(n / 2);
    std::vector<float> out(n);
    double ns = timeLoop(state, [&] {
        m.inverse(X.data(), out.data());
        benchmark::DoNotOptimize(out.data());
    });
    recordPeer("mdctinv" + pad(n), ns);
}

void BM_MdctFwd_zamac(benchmark::State& state)
{
    const int n = int(state.range(0));
    MdctFwdSpec_32f* spec = nullptr;
    zamsMDCTFwdInitAlloc_32f(&spec, n);
    int size = 0;
    zamsMDCTFwdGetBufSize_32f(spec, &size);
    std::vector<uint8_t> work(size);
    auto x = randomFloats(n);
    std::vector<float> out(n / 2);
    double ns = timeLoop(state, [&] {
        zamsMDCTFwd_32f(x.data(), out.data(), spec, work.data());
        benchmark::DoNotOptimize(out.data());
    });
    reportOurs(state, "mdctfwd" + pad(n), ns);
    zamsMDCTFwdFree_32f(spec);
}

void BM_MdctInv_zamac(benchmark::State& state)
{
    const int n = int(state.range(0));
    MdctInvSpec_32f* spec = nullptr;
    zamsMDCTInvInitAlloc_32f(&spec, n);
    int size = 0;
    zamsMDCTInvGetBufSize_32f(spec, &size);
    std::vector<uint8_t> work(size);
    auto X = randomFloats(n / 2);
    std::vector<float> out(n);
    double ns = timeLoop(state, [&] {
        zamsMDCTInv_32f(X.data(), out.data(), spec, work.data());
        benchmark::DoNotOptimize(out.data());
    });
    reportOurs(state, "mdctinv" + pad(n), ns);
    zamsMDCTInvFree_32f(spec);
}

// The hybrid bank of one MP3 granule: 32 inverse transforms of 12 or 36 points,
// as 32 calls of the export (arg 0) or through the eight-lane batch (arg 1).
void BM_MdctShortGranule(benchmark::State& state)
{
    const int n = int(state.range(0));
    const bool batch = state.range(1) != 0;
    MdctInvSpec_32f* spec = nullptr;
    zamsMDCTInvInitAlloc_32f(&spec, n);
    const auto* s = *reinterpret_cast<zam::MdctSpec32f* const*>(&spec);
    auto X = randomFloats(32 * n / 2);
    std::vector<float> out(32 * n);
    for (auto _ : state) {
        if (batch)
            zam::mdctFixedBatch(X.data(), n / 2, out.data(), n, 32, s);
        else
            for (int sb = 0; sb < 32; ++sb) zamsMDCTInv_32f(X.data() + sb * n / 2, out.data() + sb * n, spec, nullptr);
        benchmark::DoNotOptimize(out.data());
    }
    zamsMDCTInvFree_32f(spec);
}
BENCHMARK(BM_MdctShortGranule)->Args({12, 0})->Args({12, 1})->Args({36, 0})->Args({36, 1});

// ------------------------------------------------------------ 16-bit MDCT

void BM_Mdct16_FFTW(benchmark::State& state)
{
    const int n = int(state.range(0));
    if (!fftw().ok) {
        state.SkipWithError("libfftw3f.so.3 not found");
        return;
    }
    FftwMdct m(n, false);
    std::vector<int16_t> x(n), out(n / 2);
    std::mt19937 g(3);
    for (auto& v : x) v = int16_t(int(g() % 65536) - 32768);
    std::vector<float> fx(n), fo(n / 2);
    double ns = timeLoop(state, [&] {
        for (int i = 0; i < n; ++i) fx[i] = x[i];
        m.forward(fx.data(), fo.data());
        for (int k = 0; k < n / 2; ++k) out[k] = int16_t(std::clamp(std::lrint(fo[k] * (1.0f / 512)), -32768L, 32767L));
        benchmark::DoNotOptimize(out.data());
    });
    recordPeer("mdct16_" + pad(n), ns);
}

void BM_Mdct16_zamac(benchmark::State& state)
{
    const int n = int(state.range(0));
    MdctFwdSpec_16s* spec = nullptr;
    zamsMDCTFwdInitAlloc_16s(&spec, n);
    int size = 0;
    zamsMDCTFwdGetBufSize_16s(spec, &size);
    std::vector<uint8_t> work(size);
    std::vector<int16_t> x(n), out(n / 2);
    std::mt19937 g(3);
    for (auto& v : x) v = int16_t(int(g() % 65536) - 32768);
    double ns = timeLoop(state, [&] {
        zamsMDCTFwd_16s_Sfs(x.data(), out.data(), spec, 9, work.data());
        benchmark::DoNotOptimize(out.data());
    });
    reportOurs(state, "mdct16_" + pad(n), ns);
    zamsMDCTFwdFree_16s(spec);
}

// ------------------------------------------------------------ FIR block

void BM_FirBlock_zamac(benchmark::State& state)
{
    const int taps = int(state.range(0)), len = int(state.range(1));
    FirBlockState_32f* st = nullptr;
    zamsFIRBlockInitAlloc_32f(&st, taps, len);
    auto x = randomFloats(len), t = randomFloats(taps);
    std::vector<float> out(len);
    double ns = timeLoop(state, [&] {
        zamsFIRBlockOne_32f(x.data(), out.data(), st, t.data());
        benchmark::DoNotOptimize(out.data());
    });
    state.counters["ns_per_call"] = ns;
    zamsFIRBlockFree_32f(st);
}

}  // namespace

BENCHMARK(BM_Fft_FFTW)->RangeMultiplier(2)->Range(16, 8192)->Arg(16384)->Arg(65536);
BENCHMARK(BM_Fft_AvTx)->RangeMultiplier(2)->Range(16, 8192)->Arg(16384)->Arg(65536);
BENCHMARK(BM_MdctFwd_AvTx)->Arg(12)->Arg(36)->Arg(256)->Arg(2048);
BENCHMARK(BM_MdctInv_AvTx)->Arg(12)->Arg(36)->Arg(256)->Arg(2048);
BENCHMARK(BM_Mdct16_AvTx)->Arg(256)->Arg(2048);
BENCHMARK(BM_Fft_zamac)->RangeMultiplier(2)->Range(16, 8192)->Arg(16384)->Arg(65536);
BENCHMARK(BM_MdctFwd_FFTW)->Arg(12)->Arg(36)->Arg(256)->Arg(2048);
BENCHMARK(BM_MdctFwd_zamac)->Arg(12)->Arg(36)->Arg(256)->Arg(2048);
BENCHMARK(BM_MdctInv_FFTW)->Arg(12)->Arg(36)->Arg(256)->Arg(2048);
BENCHMARK(BM_MdctInv_zamac)->Arg(12)->Arg(36)->Arg(256)->Arg(2048);
BENCHMARK(BM_Mdct16_FFTW)->Arg(256)->Arg(2048);
BENCHMARK(BM_Mdct16_zamac)->Arg(256)->Arg(2048);
BENCHMARK(BM_FirBlock_zamac)->Args({4, 1024})->Args({16, 256});
