// Vector-quantization searches: a 20 x 64 code book (length 20, height 64) over
// 64 sub-vectors of 20 elements.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "zamac.h"

namespace {

constexpr int kLength = 20;
constexpr int kHeight = 64;
constexpr int kDiv = 64;
constexpr int kCand = 8;

std::vector<float> randomFloats(size_t n, unsigned seed, float lo, float hi)
{
    std::mt19937 gen(seed);
    std::uniform_real_distribution<float> d(lo, hi);
    std::vector<float> v(n);
    for (float& x : v) x = d(gen);
    return v;
}

struct Setup {
    Setup()
        : src(randomFloats(kDiv * kLength, 1, -1, 1)), weights(randomFloats(kDiv * kLength, 2, 0.1f, 2)),
          lengths(kDiv, kLength), indices(kDiv * kCand), signs(kDiv * kCand)
    {
        int size = 0;
        zamsVQCodeBookGetSize_32f(kLength, kHeight, &size);
        for (int b = 0; b < 2; ++b) {
            mem[b].resize(static_cast<size_t>(size));
            const auto vectors = randomFloats(kLength * kHeight, 3 + b, -1, 1);
            zamsVQCodeBookInit_32f(vectors.data(), &book[b], kLength, kHeight, mem[b].data());
        }
    }
    std::vector<float> src, weights;
    std::vector<int> lengths, indices, signs;
    std::vector<uint8_t> mem[2];
    VqCodeBook* book[2] = {nullptr, nullptr};
};

void BM_VQPreliminarySelect(benchmark::State& state)
{
    Setup s;
    const std::vector<int> modes(kDiv, static_cast<int>(state.range(0)));
    for (auto _ : state) {
        zamsVQPreliminarySelect_32f(s.src.data(), s.weights.data(), kDiv, s.lengths.data(), s.indices.data(),
                                    s.signs.data(), kCand, modes.data(), s.book[0]);
        benchmark::DoNotOptimize(s.indices.data());
    }
}
BENCHMARK(BM_VQPreliminarySelect)->ArgName("signSearch")->Arg(0)->Arg(1);

void BM_VQMainSelect(benchmark::State& state)
{
    Setup s;
    const std::vector<int> modes(kDiv, 1);
    std::vector<int> idxB(kDiv * kCand), sgB(kDiv * kCand);
    zamsVQPreliminarySelect_32f(s.src.data(), s.weights.data(), kDiv, s.lengths.data(), s.indices.data(),
                                s.signs.data(), kCand, modes.data(), s.book[0]);
    zamsVQPreliminarySelect_32f(s.src.data(), s.weights.data(), kDiv, s.lengths.data(), idxB.data(), sgB.data(),
                                kCand, modes.data(), s.book[1]);
    std::vector<int> outIdx[2] = {std::vector<int>(kDiv), std::vector<int>(kDiv)};
    std::vector<int> outSg[2] = {std::vector<int>(kDiv), std::vector<int>(kDiv)};
    for (auto _ : state) {
        zamsVQMainSelect_32f(s.src.data(), s.weights.data(), s.lengths.data(), kDiv, kCand,
                             {s.indices.data(), idxB.data()}, {s.signs.data(), sgB.data()},
                             {outIdx[0].data(), outIdx[1].data()}, {outSg[0].data(), outSg[1].data()},
                             {s.book[0], s.book[1]}, 2);
        benchmark::DoNotOptimize(outIdx[0].data());
    }
}
BENCHMARK(BM_VQMainSelect);

void BM_VQReconstruction(benchmark::State& state)
{
    Setup s;
    std::vector<int> idx(kDiv), sign(kDiv, 1);
    for (int i = 0; i < kDiv; ++i) idx[i] = (i * 7) % kHeight;
    const int* ppIdx[2] = {idx.data(), idx.data()};
    const int* ppSign[2] = {sign.data(), sign.data()};
    const VqCodeBook* books[2] = {s.book[0], s.book[1]};
    std::vector<float> out(kDiv * kLength);
    for (auto _ : state) {
        zamsVQReconstruction_32f(ppIdx, ppSign, s.lengths.data(), kDiv, 2, out.data(), books);
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_VQReconstruction);

}  // namespace
