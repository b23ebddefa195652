// Sample utilities: vector paths against their scalar twins.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "util/sample_kernels.h"
#include "zamac.h"

namespace {

std::vector<float> noise(int n)
{
    std::mt19937 gen(1);
    std::uniform_real_distribution<float> d(-40000.0f, 40000.0f);
    std::vector<float> v(n);
    for (auto& x : v) x = d(gen);
    return v;
}

template <bool kVector>
void BM_JoinStereo(benchmark::State& state)
{
    const int len = static_cast<int>(state.range(0));
    auto l = noise(len), r = noise(len);
    const float* src[] = {l.data(), r.data()};
    std::vector<int16_t> dst(2 * len);
    for (auto _ : state) {
        if (kVector) zam::util::join_32f16s_avx2(src, 2, len, dst.data());
        else zam::util::join_32f16s_scalar(src, 2, len, dst.data());
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * 2 * len);
}
BENCHMARK(BM_JoinStereo<true>)->Arg(1024)->Arg(65536);
BENCHMARK(BM_JoinStereo<false>)->Arg(1024)->Arg(65536);

void BM_JoinExport(benchmark::State& state)
{
    const int len = static_cast<int>(state.range(0));
    auto l = noise(len), r = noise(len);
    const float* src[] = {l.data(), r.data()};
    std::vector<int16_t> dst(2 * len);
    for (auto _ : state) benchmark::DoNotOptimize(zamsJoin_32f16s_D2L(src, 2, len, dst.data()));
    state.SetItemsProcessed(state.iterations() * 2 * len);
}
BENCHMARK(BM_JoinExport)->Arg(1024);

// Any channel count (AAC 5.1 is 6): 1024 samples per channel, vector against scalar twin.
template <bool kVector>
void BM_JoinChannels(benchmark::State& state)
{
    const int channels = static_cast<int>(state.range(0)), len = 1024;
    std::vector<std::vector<float>> ch(channels, noise(len));
    std::vector<const float*> src;
    for (auto& c : ch) src.push_back(c.data());
    std::vector<int16_t> dst(channels * len);
    for (auto _ : state) {
        if (kVector) zam::util::join_32f16s_avx2(src.data(), channels, len, dst.data());
        else zam::util::join_32f16s_scalar(src.data(), channels, len, dst.data());
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * channels * len);
}
BENCHMARK(BM_JoinChannels<true>)->Arg(3)->Arg(6)->Arg(8);
BENCHMARK(BM_JoinChannels<false>)->Arg(3)->Arg(6)->Arg(8);

template <bool kVector>
void BM_InterleaveChannels(benchmark::State& state)
{
    const int channels = static_cast<int>(state.range(0)), len = 1024;
    std::vector<std::vector<float>> ch(channels, noise(len));
    std::vector<const float*> src;
    for (auto& c : ch) src.push_back(c.data());
    std::vector<float> dst(channels * len);
    for (auto _ : state) {
        if (kVector) zam::util::interleaveN_32f_avx2(src.data(), channels, len, dst.data());
        else zam::util::interleaveN_32f_scalar(src.data(), channels, len, dst.data());
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * channels * len);
}
BENCHMARK(BM_InterleaveChannels<true>)->Arg(3)->Arg(6)->Arg(8);
BENCHMARK(BM_InterleaveChannels<false>)->Arg(3)->Arg(6)->Arg(8);

template <bool kVector>
void BM_Interleave16Stereo(benchmark::State& state)
{
    const int len = static_cast<int>(state.range(0));
    std::vector<int16_t> a(len, 1), b(len, 2), dst(2 * len);
    for (auto _ : state) {
        if (kVector) zam::util::interleave2_16s_avx2(a.data(), b.data(), len, dst.data());
        else zam::util::interleave2_16s_scalar(a.data(), b.data(), len, dst.data());
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * 2 * len);
}
BENCHMARK(BM_Interleave16Stereo<true>)->Arg(4096);
BENCHMARK(BM_Interleave16Stereo<false>)->Arg(4096);

}  // namespace
