// Power-law, scale-factor and spreading kernels: AVX2 paths against their scalar twins.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "util/power_kernels.h"

namespace {

constexpr int kLen = 576;

std::vector<int16_t> values(int lo, int hi)
{
    std::mt19937 gen(3);
    std::uniform_int_distribution<int> d(lo, hi);
    std::vector<int16_t> v(kLen);
    for (auto& x : v) x = static_cast<int16_t>(d(gen));
    return v;
}

template <bool kVector>
void BM_Pow34Float(benchmark::State& state)
{
    std::vector<float> src(kLen), dst(kLen);
    for (int i = 0; i < kLen; ++i) src[i] = static_cast<float>(i * 37 % 20000 - 10000);
    for (auto _ : state) {
        if (kVector) zam::util::pow34_32f_avx2(src.data(), dst.data(), kLen);
        else zam::util::pow34_32f_scalar(src.data(), dst.data(), kLen);
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * kLen);
}
BENCHMARK(BM_Pow34Float<true>);
BENCHMARK(BM_Pow34Float<false>);

template <bool kVector>
void BM_Pow43Scale(benchmark::State& state)
{
    const auto src = values(-20, 20);
    std::vector<int32_t> dst(kLen);
    for (auto _ : state) {
        if (kVector) zam::util::pow43Scale_avx2(src.data(), dst.data(), kLen, -7, -13);
        else zam::util::pow43Scale_scalar(src.data(), dst.data(), kLen, -7, -13);
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * kLen);
}
BENCHMARK(BM_Pow43Scale<true>);
BENCHMARK(BM_Pow43Scale<false>);

template <bool kVector>
void BM_Spread(benchmark::State& state)
{
    const auto src = values(-8 * 1024, 8 * 1024);
    std::vector<int16_t> dst(kLen);
    for (auto _ : state) {
        if (kVector) zam::util::spread_avx2(src.data(), dst.data(), kLen, 0);
        else zam::util::spread_scalar(src.data(), dst.data(), kLen, 0);
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * kLen);
}
BENCHMARK(BM_Spread<true>);
BENCHMARK(BM_Spread<false>);

}  // namespace
