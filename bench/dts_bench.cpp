#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "transform/dts_synth.h"
#include "zamac.h"

namespace {

using DtsKernel = decltype(&zam::dtsSynthesisAvx2);

// One DTS subframe of 8 sub-subframes (64 slots) through a kernel, history carried.
template <DtsKernel kKernel>
void BM_DtsSynthesis(benchmark::State& state)
{
    std::mt19937 gen(11);
    std::uniform_real_distribution<float> d(-1.0f, 1.0f);
    std::vector<float> src(64 * 32), dst(64 * 32);
    for (auto& x : src) x = d(gen);
    DtsSynthesisState* obj = nullptr;
    zamsSynthesisFilterInitAlloc_DTS_32f(&obj);
    auto* st = reinterpret_cast<zam::DtsSynthState*>(obj);
    for (auto _ : state) {
        kKernel(src.data(), dst.data(), 64, 1, st);
        benchmark::DoNotOptimize(dst.data());
    }
    zamsSynthesisFilterFree_DTS_32f(obj);
    state.SetItemsProcessed(state.iterations() * 64 * 32);
}
BENCHMARK(BM_DtsSynthesis<zam::dtsSynthesisAvx2>)->Name("DtsSynthesis/avx2");
BENCHMARK(BM_DtsSynthesis<zam::dtsSynthesisScalar>)->Name("DtsSynthesis/scalar");

}  // namespace
