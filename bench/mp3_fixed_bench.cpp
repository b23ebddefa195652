// The MP3 fixed-point kernels, AVX2 against their scalar twins, beside the float
// polyphase synthesis: one granule per iteration.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "mp3/mp3_fixed.h"
#include "transform/pqmf_mp3.h"

namespace {

std::vector<int32_t> q24Noise(size_t n)
{
    std::mt19937 gen(11);
    std::uniform_int_distribution<int32_t> d(-(1 << 22), 1 << 22);  // a quarter of full scale
    std::vector<int32_t> v(n);
    for (auto& x : v) x = d(gen);
    return v;
}

template <decltype(&zam::mp3::imdctWindowAvx2) kKernel>
void BM_Mp3FixedImdct(benchmark::State& state)
{
    const auto src = q24Noise(576);
    alignas(64) int32_t dst[1152];
    for (auto _ : state) {
        kKernel(src.data(), dst, 32, 0, false);
        benchmark::DoNotOptimize(dst);
    }
    state.SetItemsProcessed(state.iterations() * 576);
}
BENCHMARK(BM_Mp3FixedImdct<zam::mp3::imdctWindowAvx2>)->Name("Mp3FixedImdct/avx2");
BENCHMARK(BM_Mp3FixedImdct<zam::mp3::imdctWindowScalar>)->Name("Mp3FixedImdct/scalar");

template <decltype(&zam::mp3::synthAvx2) kKernel>
void BM_Mp3FixedSynthesis(benchmark::State& state)
{
    const auto src = q24Noise(576);
    alignas(64) int16_t dst[576];
    alignas(64) int32_t v[512] = {};
    int32_t position = 0;
    for (auto _ : state) {
        kKernel(src.data(), dst, v, position, 1);
        benchmark::DoNotOptimize(dst);
    }
    state.SetItemsProcessed(state.iterations() * 576);
}
BENCHMARK(BM_Mp3FixedSynthesis<zam::mp3::synthAvx2>)->Name("Mp3FixedSynthesis/avx2");
BENCHMARK(BM_Mp3FixedSynthesis<zam::mp3::synthScalar>)->Name("Mp3FixedSynthesis/scalar");

}  // namespace
