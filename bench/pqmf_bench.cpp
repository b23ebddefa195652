#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "transform/pqmf_mp3.h"
#include "zamac.h"

namespace zam {
void pow43Scalar(const int16_t* src, float* dst, int len);
}

namespace {

std::vector<float> noise(size_t n)
{
    std::mt19937 gen(7);
    std::uniform_real_distribution<float> d(-1.0f, 1.0f);
    std::vector<float> v(n);
    for (auto& x : v) x = d(gen);
    return v;
}

using PqmfKernel = decltype(&zam::pqmfSynthesisAvx2);

// One granule through a bank kernel, the delay line carried from call to call.
template <PqmfKernel kKernel>
void BM_Pqmf(benchmark::State& state)
{
    const auto src = noise(576);
    std::vector<float> dst(576);
    alignas(64) float delay[512] = {};
    int32_t pos = 15;
    for (auto _ : state) {
        kKernel(src.data(), dst.data(), delay, pos, 1);
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * 576);
}
BENCHMARK(BM_Pqmf<zam::pqmfSynthesisAvx2>)->Name("PqmfSynthesis/avx2");
BENCHMARK(BM_Pqmf<zam::pqmfSynthesisScalar>)->Name("PqmfSynthesis/scalar");
BENCHMARK(BM_Pqmf<zam::pqmfAnalysisAvx2>)->Name("PqmfAnalysis/avx2");
BENCHMARK(BM_Pqmf<zam::pqmfAnalysisScalar>)->Name("PqmfAnalysis/scalar");

void BM_Pow43(benchmark::State& state)
{
    std::mt19937 gen(3);
    std::geometric_distribution<int> mag(0.3);  // MP3-like: mostly small values
    std::vector<int16_t> src(576);
    for (auto& x : src) x = static_cast<int16_t>((gen() & 1 ? 1 : -1) * std::min(mag(gen), 8000));
    std::vector<float> dst(576);
    for (auto _ : state) {
        if (state.range(0))
            zamsPow43_16s32f(src.data(), dst.data(), 576);
        else
            zam::pow43Scalar(src.data(), dst.data(), 576);
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * 576);
}
BENCHMARK(BM_Pow43)->Arg(1)->Arg(0)->ArgName("avx2");

}  // namespace
