// Predictor coefficients for one SBR frame: 64 subbands over 38 QMF slots.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "zamac.h"

namespace {

constexpr int kBands = 64;
constexpr int kSlots = 38;

struct QmfBlock {
    explicit QmfBlock(int columns) : data(static_cast<size_t>(kSlots + 2) * columns), rows(kSlots + 2)
    {
        std::mt19937 gen(7);
        std::normal_distribution<float> d(0.0f, 1.0f);
        for (float& x : data) x = d(gen);
        for (int n = 0; n < kSlots + 2; ++n) rows[n] = data.data() + static_cast<size_t>(n) * columns;
    }
    std::vector<float> data;
    std::vector<const float*> rows;
};

void BM_PredictCoef_SBR_R_32f(benchmark::State& state)
{
    QmfBlock block(kBands);
    std::vector<float> a0(kBands), a1(kBands);
    for (auto _ : state) {
        zamsPredictCoef_SBR_R_32f_D2L(block.rows.data(), a0.data(), a1.data(), kBands, kSlots);
        benchmark::DoNotOptimize(a0.data());
        benchmark::DoNotOptimize(a1.data());
    }
}
BENCHMARK(BM_PredictCoef_SBR_R_32f);

void BM_PredictCoef_SBR_C_32fc(benchmark::State& state)
{
    QmfBlock block(2 * kBands);
    std::vector<float> a0(2 * kBands), a1(2 * kBands);
    for (auto _ : state) {
        zamsPredictCoef_SBR_C_32fc_D2L(block.rows.data(), a0.data(), a1.data(), kBands, kSlots);
        benchmark::DoNotOptimize(a0.data());
        benchmark::DoNotOptimize(a1.data());
    }
}
BENCHMARK(BM_PredictCoef_SBR_C_32fc);

void BM_PredictCoef_SBR_C_32f(benchmark::State& state)
{
    QmfBlock re(kBands), im(kBands);
    std::vector<float> a0r(kBands), a0i(kBands), a1r(kBands), a1i(kBands);
    for (auto _ : state) {
        zamsPredictCoef_SBR_C_32f_D2L(re.rows.data(), im.rows.data(), a0r.data(), a0i.data(), a1r.data(), a1i.data(),
                                      kBands, kSlots);
        benchmark::DoNotOptimize(a0r.data());
        benchmark::DoNotOptimize(a1i.data());
    }
}
BENCHMARK(BM_PredictCoef_SBR_C_32f);

}  // namespace
