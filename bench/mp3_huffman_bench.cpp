// Layer III Huffman decoding and encoding over every granule of an ISO stream.
// Reported: time per granule (time_per_granule, seconds with an SI prefix) and main-data throughput (bytes_per_second).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "../tests/mp3/mp3_stream.h"
#include "zamac.h"

namespace {

struct Granule {
    const uint8_t* ptr;  // first Huffman bit
    int32_t offset;
    int32_t hufSize;
    Mp3SideInfo si;
    Mp3FrameHeader h;
};

struct Corpus {
    mp3test::Stream stream;
    std::vector<Granule> granules;
    std::vector<std::vector<int32_t>> values;  // decoded lines, for the encoder
    std::vector<int32_t> count1Lines;
    int64_t huffmanBits = 0;
};

const Corpus& corpus(const char* name)
{
    static Corpus c;
    static std::string loaded;
    if (loaded == name) return c;
    c = Corpus{};
    loaded = name;
    c.stream = mp3test::walk(std::string(ZAMAC_SHARED_DIR) + "/vectors/mp3-iso/" + name);
    const uint8_t* md = c.stream.mainData.data();
    for (const mp3test::Frame& f : c.stream.frames) {
        if (f.mainDataBit < 0) continue;
        int64_t bit = f.mainDataBit;
        int8_t sf[2][40] = {};
        for (int gr = 0; gr < f.granules(); ++gr) {
            for (int ch = 0; ch < f.channels(); ++ch) {
                Mp3SideInfo si = f.sideInfo[gr * f.channels() + ch];
                const uint8_t* p = md + (bit >> 3);
                int32_t off = static_cast<int32_t>(bit & 7);
                zamsUnpackScaleFactors_MP3_1u8s(&p, &off, sf[ch], &si, f.scfsi + 4 * ch, &f.header, gr, ch);
                const int64_t used = (p - md) * 8 + off - bit;
                const Granule g{p, off, static_cast<int32_t>(si.part2_3_length - used), si, f.header};
                std::vector<int32_t> v(576);
                int32_t bound;
                const uint8_t* q = g.ptr;
                int32_t qoff = g.offset;
                zamsHuffmanDecode_MP3_1u32s(&q, &qoff, v.data(), &bound, &g.si, &g.h, g.hufSize);
                // Count-1 lines: up to the last non-zero quadruple after the big values.
                int c1 = 0;
                for (int i = 2 * si.big_values; i + 4 <= 576; i += 4)
                    if (v[i] | v[i + 1] | v[i + 2] | v[i + 3]) c1 = i + 4 - 2 * si.big_values;
                c.granules.push_back(g);
                c.values.push_back(std::move(v));
                c.count1Lines.push_back(c1);
                c.huffmanBits += g.hufSize;
                bit += si.part2_3_length;
            }
        }
    }
    return c;
}

void BM_Mp3HuffmanDecode(benchmark::State& state, const char* name)
{
    const Corpus& c = corpus(name);
    int32_t out[576];
    int32_t bound;
    for (auto _ : state) {
        for (const Granule& g : c.granules) {
            const uint8_t* p = g.ptr;
            int32_t off = g.offset;
            zamsHuffmanDecode_MP3_1u32s(&p, &off, out, &bound, &g.si, &g.h, g.hufSize);
            benchmark::DoNotOptimize(out);
        }
    }
    const double n = static_cast<double>(c.granules.size());
    state.counters["time_per_granule"] =
        benchmark::Counter(n, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.counters["granules"] = n;
    state.SetBytesProcessed(state.iterations() * (c.huffmanBits / 8));
}

void BM_Mp3HuffmanEncode(benchmark::State& state, const char* name)
{
    const Corpus& c = corpus(name);
    std::vector<uint8_t> out(4096);
    int64_t bytes = 0;
    for (auto _ : state) {
        for (size_t k = 0; k < c.granules.size(); ++k) {
            const Granule& g = c.granules[k];
            uint8_t* p = out.data();
            int32_t off = 0;
            zamsHuffmanEncode_MP3_32s1u(c.values[k].data(), &p, &off, &g.h, &g.si, c.count1Lines[k], g.hufSize);
            benchmark::DoNotOptimize(p);
        }
        bytes += c.huffmanBits / 8;
    }
    const double n = static_cast<double>(c.granules.size());
    state.counters["time_per_granule"] =
        benchmark::Counter(n, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.SetBytesProcessed(bytes);
}

BENCHMARK_CAPTURE(BM_Mp3HuffmanDecode, he_44khz, "l3-he_44khz.bit");
BENCHMARK_CAPTURE(BM_Mp3HuffmanDecode, compl, "l3-compl.bit");
BENCHMARK_CAPTURE(BM_Mp3HuffmanDecode, test45_lsf, "l3-test45.bit");
BENCHMARK_CAPTURE(BM_Mp3HuffmanDecode, noise_lsf, "M2L3_noise.bit");
BENCHMARK_CAPTURE(BM_Mp3HuffmanEncode, he_44khz, "l3-he_44khz.bit");
BENCHMARK_CAPTURE(BM_Mp3HuffmanEncode, compl, "l3-compl.bit");

}  // namespace
