// AAC spectral tools: inverse quantization of a typical and of a worst-case long
// frame (exported function, and the scalar and AVX2 band kernels on the same
// data), M/S of a long frame, noise substitution, and TNS of an order-12 filter
// over 1024 lines. Each iteration restores the input with a 4 KB copy, measured
// alone in BM_AacFrameCopy.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include "aac/aac_quant.h"
#include "aac/aac_stereo.h"
#include "aac/aac_tables.h"
#include "zamac.h"

namespace {

constexpr int kSri44k = 4;  // 49 long bands

struct QuantFrame {
    std::vector<int32_t> q = std::vector<int32_t>(1024, 0);
    std::vector<int16_t> sf = std::vector<int16_t>(49, 0);
    std::vector<uint8_t> cb = std::vector<uint8_t>(49, 0);
};

// A music-like frame: magnitudes fall off with frequency, most of them small,
// a few large ones in the low bands; scale factors around 140.
QuantFrame typicalFrame()
{
    QuantFrame f;
    std::mt19937 gen(1);
    std::geometric_distribution<int> small(0.45);
    std::uniform_int_distribution<int> coin(0, 99);
    const uint16_t* off = zam::aacSwbOffsets(kSri44k, false);
    for (int b = 0; b < 49; ++b) {
        f.sf[b] = static_cast<int16_t>(150 - b / 2 + static_cast<int>(gen() % 7));
        f.cb[b] = b < 44 ? 11 : 0;
        if (f.cb[b] == 0) continue;
        for (int i = off[b]; i < off[b + 1]; ++i) {
            int a = small(gen) * (b < 10 ? 4 : 1);
            if (b < 20 && coin(gen) < 3) a = 129 + static_cast<int>(gen() % 600);
            f.q[i] = coin(gen) < 50 ? -a : a;
        }
    }
    return f;
}

QuantFrame worstFrame()
{
    QuantFrame f;
    std::mt19937 gen(2);
    std::uniform_int_distribution<int> large(129, 8191);
    for (int b = 0; b < 49; ++b) {
        f.sf[b] = static_cast<int16_t>(60 + b);
        f.cb[b] = 11;
    }
    for (auto& v : f.q) v = (gen() & 1) ? large(gen) : -large(gen);
    return f;
}

void runQuantInv(benchmark::State& state, const QuantFrame& f)
{
    std::vector<int32_t> x(1024);
    const int32_t groups[8] = {1};
    for (auto _ : state) {
        std::memcpy(x.data(), f.q.data(), 4096);
        benchmark::DoNotOptimize(
            zamsQuantInv_AAC_32s_I(x.data(), f.sf.data(), 1, groups, 49, f.cb.data(), kSri44k, 1024));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}

template <ZamStatus (*Kernel)(int32_t*, int, int)>
void runBands(benchmark::State& state, const QuantFrame& f)
{
    std::vector<int32_t> x(1024);
    const uint16_t* off = zam::aacSwbOffsets(kSri44k, false);
    for (auto _ : state) {
        std::memcpy(x.data(), f.q.data(), 4096);
        for (int b = 0; b < 49; ++b)
            if (f.cb[b] != 0) Kernel(x.data() + off[b], off[b + 1] - off[b], f.sf[b] - 100);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_AacFrameCopy(benchmark::State& state)
{
    std::vector<int32_t> src(1024, 3), x(1024);
    for (auto _ : state) {
        std::memcpy(x.data(), src.data(), 4096);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_AacFrameCopy);

void BM_AacQuantInvTypical(benchmark::State& s) { runQuantInv(s, typicalFrame()); }
void BM_AacQuantInvWorst(benchmark::State& s) { runQuantInv(s, worstFrame()); }
void BM_AacDequantScalarTypical(benchmark::State& s) { runBands<zam::aacDequantizeScalar>(s, typicalFrame()); }
void BM_AacDequantAvx2Typical(benchmark::State& s) { runBands<zam::aacDequantizeAvx2>(s, typicalFrame()); }
void BM_AacDequantScalarWorst(benchmark::State& s) { runBands<zam::aacDequantizeScalar>(s, worstFrame()); }
void BM_AacDequantAvx2Worst(benchmark::State& s) { runBands<zam::aacDequantizeAvx2>(s, worstFrame()); }
BENCHMARK(BM_AacQuantInvTypical);
BENCHMARK(BM_AacQuantInvWorst);
BENCHMARK(BM_AacDequantScalarTypical);
BENCHMARK(BM_AacDequantAvx2Typical);
BENCHMARK(BM_AacDequantScalarWorst);
BENCHMARK(BM_AacDequantAvx2Worst);

template <void (*Butterfly)(int32_t*, int32_t*, int)>
void BM_AacMsButterfly(benchmark::State& state)
{
    std::vector<int32_t> l(1024, 5), r(1024, 3);
    for (auto _ : state) {
        Butterfly(l.data(), r.data(), 1024);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_AacMsButterfly<zam::aacMsButterflyScalar>)->Name("BM_AacMsButterflyScalar1024");
BENCHMARK(BM_AacMsButterfly<zam::aacMsButterflyAvx2>)->Name("BM_AacMsButterflyAvx2_1024");

void BM_AacMsStereoFrame(benchmark::State& state)
{
    std::vector<int32_t> l(1024, 5), r(1024, 3);
    std::vector<uint8_t> ms(480, 1), cb(49, 1);
    const int32_t groups[8] = {1};
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            zamsDecodeMsStereo_AAC_32s_I(l.data(), r.data(), 1, ms.data(), cb.data(), 1, groups, 49, kSri44k, 1024));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_AacMsStereoFrame);

void BM_AacPnsFrame(benchmark::State& state)
{
    std::vector<int32_t> x(1024), pred(61);
    std::vector<uint8_t> cb(49, 13);
    std::vector<uint16_t> sf(49, 40);
    const int32_t groups[8] = {1};
    int32_t seed = 1;
    for (auto _ : state) {
        benchmark::DoNotOptimize(zamsDecodePNS_AAC_32s(x.data(), pred.data(), cb.data(), sf.data(), 49, 1, groups,
                                                       kSri44k, 1024, &seed));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_AacPnsFrame);

// One order-12 filter over all 1024 lines (32 kHz: the TNS limit is the band count).
void runTns(benchmark::State& state, bool encode)
{
    std::vector<int32_t> src(1024), x(1024);
    std::mt19937 gen(3);
    for (auto& v : src) v = static_cast<int32_t>(gen() % 200001) - 100000;
    const int32_t numFilt[8] = {1}, length[8] = {51}, order[8] = {12}, coefRes[8] = {4}, direction[8] = {0};
    const int8_t coef[60] = {3, -2, 1, 0, 2, -1, 1, -1, 0, 1, -1, 1};
    for (auto _ : state) {
        std::memcpy(x.data(), src.data(), 4096);
        if (encode)
            benchmark::DoNotOptimize(
                zamsEncodeTNS_AAC_32s_I(x.data(), numFilt, length, order, coefRes, coef, direction, 51, 1, 5, 1024));
        else
            benchmark::DoNotOptimize(
                zamsDecodeTNS_AAC_32s_I(x.data(), numFilt, length, order, coefRes, coef, direction, 51, 0, 5, 1024));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}
void BM_AacTnsDecodeOrder12(benchmark::State& s) { runTns(s, false); }
void BM_AacTnsEncodeOrder12(benchmark::State& s) { runTns(s, true); }
BENCHMARK(BM_AacTnsDecodeOrder12);
BENCHMARK(BM_AacTnsEncodeOrder12);

}  // namespace
