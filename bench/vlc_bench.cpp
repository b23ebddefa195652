// VLC speed: book-11 pairs with AAC escapes, and a 12-bit-max code decoded with a
// one-level table. Reports ns per code (ns/code) and stream MB/s (bytes_per_second).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "vlc/vlc_internal.h"
#include "zamac.h"

namespace {

struct Word {
    int index, length;
    uint32_t code;
};

std::vector<Word> loadBook11()
{
    std::ifstream in(std::string(ZAMAC_SHARED_DIR) + "/tables/aac_spectral_huffman.txt");
    std::vector<Word> words;
    std::string line;
    bool inBook = false;
    while (std::getline(in, line)) {
        if (line.rfind("# book", 0) == 0) {
            inBook = line.rfind("# book 11 ", 0) == 0;
            continue;
        }
        if (!inBook || line.empty() || line[0] == '#') continue;
        std::istringstream ss(line);
        Word w{};
        std::string bits;
        ss >> w.index >> w.length >> bits;
        for (char c : bits) w.code = (w.code << 1) | (c == '1');
        words.push_back(w);
    }
    return words;
}

// Spectral-like values: mostly small, about one in twenty escaped.
std::vector<int16_t> spectralValues(size_t n)
{
    std::mt19937 gen(7);
    std::exponential_distribution<double> small(0.35);
    std::uniform_int_distribution<int> big(16, 8191), coin(0, 19), sign(0, 1);
    std::vector<int16_t> v(n);
    for (auto& x : v) {
        int m = coin(gen) == 0 ? big(gen) : std::min(15, static_cast<int>(small(gen)));
        x = static_cast<int16_t>(sign(gen) ? -m : m);
    }
    return v;
}

struct Spec {
    std::vector<uint8_t> memory;
    template <typename T>
    T* as() { return reinterpret_cast<T*>(memory.data()); }
};

struct Fixture {
    static constexpr size_t kPairs = 1 << 14;
    std::vector<int16_t> pairsSrc;      // book-11 pairs with escapes
    std::vector<int16_t> indexSrc;      // the same pairs as 12-bit-max code indices
    Spec pairDecode, pairDecodeTwoLevels, pairEncode, indexDecode, indexEncode;
    std::vector<uint8_t> pairStream, indexStream, plainPairStream;
    size_t pairBytes = 0, indexBytes = 0, plainPairBytes = 0;

    Fixture()
    {
        const auto words = loadBook11();
        std::vector<VlcEntry> decodePairs, encodeKeys, plain;
        for (const auto& w : words) {
            const int x = w.index / 17, y = w.index % 17;
            plain.push_back({w.index, static_cast<int32_t>(w.code), w.length});
            for (int sx : {1, -1})
                for (int sy : {1, -1}) {
                    if ((x == 0 && sx < 0) || (y == 0 && sy < 0)) continue;
                    uint32_t code = w.code;
                    int length = w.length;
                    if (x) code = (code << 1) | (sx < 0), ++length;
                    if (y) code = (code << 1) | (sy < 0), ++length;
                    decodePairs.push_back({sx * x * 256 + sy * y + 128, static_cast<int32_t>(code), length});
                    encodeKeys.push_back({sx * x * 64 + sy * y, static_cast<int32_t>(code), length});
                }
        }
        const int onePairLevel[] = {14};
        const int oneIndexLevel[] = {12};
        int size = 0;
        zamsVLCDecodeGetSize_32s(decodePairs.data(), static_cast<int>(decodePairs.size()), onePairLevel, 1, &size);
        pairDecode.memory.resize(size);
        zamsVLCDecodeInit_32s(decodePairs.data(), static_cast<int>(decodePairs.size()), onePairLevel, 1,
                              pairDecode.as<VlcDecodeSpec>());
        const int twoLevels[] = {8, 6};
        zamsVLCDecodeGetSize_32s(decodePairs.data(), static_cast<int>(decodePairs.size()), twoLevels, 2, &size);
        pairDecodeTwoLevels.memory.resize(size);
        zamsVLCDecodeInit_32s(decodePairs.data(), static_cast<int>(decodePairs.size()), twoLevels, 2,
                              pairDecodeTwoLevels.as<VlcDecodeSpec>());
        zamsVLCEncodeGetSize_32s(encodeKeys.data(), static_cast<int>(encodeKeys.size()), &size);
        pairEncode.memory.resize(size);
        zamsVLCEncodeInit_32s(encodeKeys.data(), static_cast<int>(encodeKeys.size()), pairEncode.as<VlcEncodeSpec>());
        zamsVLCDecodeGetSize_32s(plain.data(), static_cast<int>(plain.size()), oneIndexLevel, 1, &size);
        indexDecode.memory.resize(size);
        zamsVLCDecodeInit_32s(plain.data(), static_cast<int>(plain.size()), oneIndexLevel, 1,
                              indexDecode.as<VlcDecodeSpec>());
        zamsVLCEncodeGetSize_32s(plain.data(), static_cast<int>(plain.size()), &size);
        indexEncode.memory.resize(size);
        zamsVLCEncodeInit_32s(plain.data(), static_cast<int>(plain.size()), indexEncode.as<VlcEncodeSpec>());

        pairsSrc = spectralValues(2 * kPairs);
        for (size_t i = 0; i < kPairs; ++i)
            indexSrc.push_back(static_cast<int16_t>(std::min(16, std::abs(pairsSrc[2 * i])) * 17 +
                                                    std::min(16, std::abs(pairsSrc[2 * i + 1]))));
        pairStream.assign(kPairs * 8 + 64, 0);
        indexStream.assign(kPairs * 2 + 64, 0);
        uint8_t* p = pairStream.data();
        int offset = 0;
        zamsVLCEncodeEscBlock_AAC_16s1u(pairsSrc.data(), static_cast<int>(pairsSrc.size()), &p, &offset,
                                        pairEncode.as<VlcEncodeSpec>());
        pairBytes = static_cast<size_t>(p - pairStream.data()) + (offset ? 1 : 0);
        p = indexStream.data();
        offset = 0;
        zamsVLCEncodeBlock_16s1u(indexSrc.data(), static_cast<int>(indexSrc.size()), &p, &offset,
                                 indexEncode.as<VlcEncodeSpec>());
        indexBytes = static_cast<size_t>(p - indexStream.data()) + (offset ? 1 : 0);
        std::vector<int16_t> clamped(pairsSrc);
        for (auto& v : clamped) v = static_cast<int16_t>(std::max(-15, std::min(15, static_cast<int>(v))));
        plainPairStream.assign(kPairs * 4 + 64, 0);
        p = plainPairStream.data();
        offset = 0;
        zamsVLCEncodeEscBlock_AAC_16s1u(clamped.data(), static_cast<int>(clamped.size()), &p, &offset,
                                        pairEncode.as<VlcEncodeSpec>());
        plainPairBytes = static_cast<size_t>(p - plainPairStream.data()) + (offset ? 1 : 0);
    }
    static Fixture& get()
    {
        static Fixture f;
        return f;
    }
};

void report(benchmark::State& state, size_t codes, size_t bytes)
{
    state.counters["ns/code"] = benchmark::Counter(static_cast<double>(codes) * 1e-9,
                                                   benchmark::Counter::kIsIterationInvariantRate |
                                                       benchmark::Counter::kInvert);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

// Levels {14} (one read per code, 64 KB of 32-bit elements) or {8, 6}.
template <bool kOneLevel>
void BM_VlcDecodeEscBlockAac_Book11(benchmark::State& state)
{
    auto& f = Fixture::get();
    const auto* spec = (kOneLevel ? f.pairDecode : f.pairDecodeTwoLevels).as<VlcDecodeSpec>();
    std::vector<int16_t> out(f.pairsSrc.size());
    for (auto _ : state) {
        uint8_t* p = f.pairStream.data();
        int offset = 0;
        zamsVLCDecodeEscBlock_AAC_1u16s(&p, &offset, out.data(), static_cast<int>(out.size()), spec);
        benchmark::DoNotOptimize(out.data());
    }
    report(state, Fixture::kPairs, f.pairBytes);
}
BENCHMARK(BM_VlcDecodeEscBlockAac_Book11<true>)->Name("BM_VlcDecodeEscBlockAac_Book11_Levels14");
BENCHMARK(BM_VlcDecodeEscBlockAac_Book11<false>)->Name("BM_VlcDecodeEscBlockAac_Book11_Levels8_6");

// DecodeBlock over book-11 pair codes without escapes (values clamped to 15): one
// pair value per code.
void BM_VlcDecodeBlock_Book11PairCodes(benchmark::State& state)
{
    auto& f = Fixture::get();
    std::vector<int16_t> out(Fixture::kPairs);
    for (auto _ : state) {
        uint8_t* p = f.plainPairStream.data();
        int offset = 0;
        zamsVLCDecodeBlock_1u16s(&p, &offset, out.data(), static_cast<int>(out.size()), f.pairDecode.as<VlcDecodeSpec>());
        benchmark::DoNotOptimize(out.data());
    }
    report(state, Fixture::kPairs, f.plainPairBytes);
}
BENCHMARK(BM_VlcDecodeBlock_Book11PairCodes);

void BM_VlcEncodeEscBlockAac_Book11(benchmark::State& state)
{
    auto& f = Fixture::get();
    std::vector<uint8_t> stream(f.pairStream.size());
    for (auto _ : state) {
        uint8_t* p = stream.data();
        int offset = 0;
        zamsVLCEncodeEscBlock_AAC_16s1u(f.pairsSrc.data(), static_cast<int>(f.pairsSrc.size()), &p, &offset,
                                        f.pairEncode.as<VlcEncodeSpec>());
        benchmark::DoNotOptimize(stream.data());
    }
    report(state, Fixture::kPairs, f.pairBytes);
}
BENCHMARK(BM_VlcEncodeEscBlockAac_Book11);

void BM_VlcDecodeBlock_12BitOneLevel(benchmark::State& state)
{
    auto& f = Fixture::get();
    std::vector<int16_t> out(f.indexSrc.size());
    for (auto _ : state) {
        uint8_t* p = f.indexStream.data();
        int offset = 0;
        zamsVLCDecodeBlock_1u16s(&p, &offset, out.data(), static_cast<int>(out.size()), f.indexDecode.as<VlcDecodeSpec>());
        benchmark::DoNotOptimize(out.data());
    }
    report(state, f.indexSrc.size(), f.indexBytes);
}
BENCHMARK(BM_VlcDecodeBlock_12BitOneLevel);

void BM_VlcEncodeBlock_12Bit(benchmark::State& state)
{
    auto& f = Fixture::get();
    std::vector<uint8_t> stream(f.indexStream.size());
    for (auto _ : state) {
        uint8_t* p = stream.data();
        int offset = 0;
        zamsVLCEncodeBlock_16s1u(f.indexSrc.data(), static_cast<int>(f.indexSrc.size()), &p, &offset,
                                 f.indexEncode.as<VlcEncodeSpec>());
        benchmark::DoNotOptimize(stream.data());
    }
    report(state, f.indexSrc.size(), f.indexBytes);
}
BENCHMARK(BM_VlcEncodeBlock_12Bit);

// Counting: the AVX2 kernel against its scalar twin.
template <bool kAvx2>
void BM_VlcCountEscBitsAac(benchmark::State& state)
{
    auto& f = Fixture::get();
    const auto view = zam::vlc::encodeView(zam::vlc::encodeHeader(f.pairEncode.as<VlcEncodeSpec>()));
    const int pairs = static_cast<int>(Fixture::kPairs);
    for (auto _ : state) {
        uint32_t bits = kAvx2 ? zam::vlc::countEscBitsAacAvx2(f.pairsSrc.data(), pairs, view)
                              : zam::vlc::countEscBitsAacScalar(f.pairsSrc.data(), pairs, view);
        benchmark::DoNotOptimize(bits);
    }
    report(state, Fixture::kPairs, f.pairBytes);
}
BENCHMARK(BM_VlcCountEscBitsAac<true>)->Name("BM_VlcCountEscBitsAac_Avx2");
BENCHMARK(BM_VlcCountEscBitsAac<false>)->Name("BM_VlcCountEscBitsAac_Scalar");

}  // namespace
