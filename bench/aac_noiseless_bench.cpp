// Noiseless decoding of every channel of a 44.1 kHz stereo 128 kb/s ADTS stream
// made by ffmpeg: ns per channel-frame and MB/s of channel-stream bits.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "aac/aac_bitstream.h"
#include "zamac.h"

namespace {

struct ChannelJob {
    uint8_t* ptr;
    int offset;
    AacIcsInfo ics;
    int commonWin;
    int sfi;
    long bits;
    bool lcUsable;
};

struct Corpus {
    std::vector<uint8_t> data;
    std::vector<ChannelJob> jobs;
    long totalBits = 0;
    long lcBits = 0;
    int lcJobs = 0;
};

uint32_t readBits(uint8_t*& p, int& off, int n)
{
    const uint8_t* cp = p;
    const uint32_t v = zam::readField(cp, off, n);
    p = const_cast<uint8_t*>(cp);
    return v;
}

bool addChannel(Corpus& c, uint8_t*& p, int& off, int sfi, const AacIcsInfo& ics, int commonWin)
{
    ChannelJob job{p, off, ics, commonWin, sfi, 0, false};
    AacChanInfo info{};
    AacIcsInfo work = ics;
    AacMainHeader mh{};
    static int16_t sf[8 * 64];
    static uint8_t cb[8 * 64];
    static int32_t spectrum[1024];
    static int8_t tns[60];
    info.sampling_frequency_index = sfi;
    info.pIcsInfo = &work;
    if (zamsNoiselessDecode_AAC(&p, &off, &mh, sf, spectrum, cb, tns, &info, 0, 0, commonWin, 0, 2) != zamStsOk) {
        return false;
    }
    job.bits = (p - job.ptr) * 8 + off - job.offset;
    uint8_t* p2 = job.ptr;
    int off2 = job.offset;
    AacIcsInfo work2 = ics;
    info.pIcsInfo = &work2;
    job.lcUsable = zamsNoiselessDecoder_LC_AAC(&p2, &off2, commonWin, &info, sf, spectrum, cb, tns) == zamStsOk;
    c.totalBits += job.bits;
    if (job.lcUsable) c.lcBits += job.bits, ++c.lcJobs;
    c.jobs.push_back(job);
    return true;
}

Corpus& corpus()
{
    static Corpus c;
    static bool built = false;
    if (built) return c;
    built = true;
    const std::string path = "/tmp/zamac_aac_noiseless_bench.aac";
    const std::string cmd =
        "ffmpeg -hide_banner -loglevel error -y -f lavfi -i \"aevalsrc="
        "0.25*sin(2*PI*(330+20*sin(2*PI*3*t))*t)+0.12*sin(2*PI*1760*t)+0.05*sin(2*PI*5200*t)"
        "+0.04*(random(0)-0.5)+0.6*lt(mod(t\\,0.3)\\,0.004)*(random(1)-0.5)|"
        "0.2*sin(2*PI*(440+15*sin(2*PI*2*t))*t)+0.1*sin(2*PI*1760*t)+0.05*sin(2*PI*7000*t)"
        "+0.06*(random(2)-0.5):s=44100:d=6\" -c:a aac -b:a 128k -f adts " +
        path + " >/dev/null 2>&1";
    if (std::system(cmd.c_str()) != 0) return c;
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return c;
    uint8_t buf[65536];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) c.data.insert(c.data.end(), buf, buf + n);
    std::fclose(f);
    std::remove(path.c_str());
    const size_t size = c.data.size();
    c.data.resize(size + 8, 0);
    size_t pos = 0;
    while (pos + 7 <= size) {
        uint8_t* p = c.data.data() + pos;
        AacAdtsFrameHeader h;
        zamsUnpackADTSFrameHeader_AAC(&p, &h);
        int off = 0;
        for (bool more = true; more;) {
            const uint32_t id = readBits(p, off, 3);
            if (id == 0 || id == 3) {  // SCE, LFE
                readBits(p, off, 4);
                AacIcsInfo ics{};
                if (!addChannel(c, p, off, h.sampling_frequency_index, ics, 0)) more = false;
            } else if (id == 1) {
                readBits(p, off, 4);
                AacIcsInfo ics{};
                AacChanPairElt cpe;
                zamsDecodeChanPairElt_AAC(&p, &off, &ics, &cpe, 0);
                for (int ch = 0; ch < 2 && more; ++ch) {
                    more = addChannel(c, p, off, h.sampling_frequency_index, ics, cpe.common_window);
                }
            } else if (id == 6) {
                int32_t cnt;
                uint8_t fill[269];
                zamsDecodeFillElt_AAC(&p, &off, &cnt, fill);
            } else {
                more = false;
            }
        }
        pos += static_cast<size_t>(h.aac_frame_length);
    }
    return c;
}

struct Outputs {
    AacChanInfo info{};
    AacIcsInfo ics{};
    AacMainHeader mh{};
    int16_t sf[8 * 64];
    uint8_t cb[8 * 64];
    alignas(64) int32_t spectrum[1024];
    int8_t tns[60];
};

void reportRates(benchmark::State& state, long channelFrames, long bits)
{
    state.counters["ns_per_channel_frame"] = benchmark::Counter(
        static_cast<double>(channelFrames), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * bits / 8);
    state.counters["channel_frames"] = static_cast<double>(channelFrames) / static_cast<double>(state.iterations());
}

void BM_NoiselessDecodeGeneral(benchmark::State& state)
{
    Corpus& c = corpus();
    if (c.jobs.empty()) {
        state.SkipWithError("ffmpeg not available");
        return;
    }
    Outputs o;
    long frames = 0;
    for (auto _ : state) {
        for (const ChannelJob& j : c.jobs) {
            uint8_t* p = j.ptr;
            int off = j.offset;
            o.ics = j.ics;
            o.info.sampling_frequency_index = j.sfi;
            o.info.pIcsInfo = &o.ics;
            benchmark::DoNotOptimize(zamsNoiselessDecode_AAC(&p, &off, &o.mh, o.sf, o.spectrum, o.cb, o.tns, &o.info,
                                                             0, 0, j.commonWin, 0, 2));
        }
        frames += static_cast<long>(c.jobs.size());
        benchmark::ClobberMemory();
    }
    reportRates(state, frames, c.totalBits);
}
BENCHMARK(BM_NoiselessDecodeGeneral)->Unit(benchmark::kMicrosecond);

void BM_NoiselessDecoderLC(benchmark::State& state)
{
    Corpus& c = corpus();
    if (c.lcJobs == 0) {
        state.SkipWithError("no LC-decodable channel");
        return;
    }
    Outputs o;
    long frames = 0;
    for (auto _ : state) {
        for (const ChannelJob& j : c.jobs) {
            if (!j.lcUsable) continue;
            uint8_t* p = j.ptr;
            int off = j.offset;
            o.ics = j.ics;
            o.info.sampling_frequency_index = j.sfi;
            o.info.num_pred_sfb = 0;
            o.info.pIcsInfo = &o.ics;
            benchmark::DoNotOptimize(
                zamsNoiselessDecoder_LC_AAC(&p, &off, j.commonWin, &o.info, o.sf, o.spectrum, o.cb, o.tns));
        }
        frames += c.lcJobs;
        benchmark::ClobberMemory();
    }
    reportRates(state, frames, c.lcBits);
}
BENCHMARK(BM_NoiselessDecoderLC)->Unit(benchmark::kMicrosecond);

// The spectral code-book decoders alone on random book-11 data: the table
// decoder and its bit-by-bit twin.
template <bool Table>
void BM_SpectralBook(benchmark::State& state)
{
    const int book = static_cast<int>(state.range(0));
    std::vector<uint8_t> data(8192 + 4);
    uint32_t x = 12345;
    for (auto& b : data) x = x * 1664525u + 1013904223u, b = static_cast<uint8_t>(x >> 24);
    alignas(64) int32_t out[1024];
    long bits = 0;
    for (auto _ : state) {
        zam::AacCursor c{data.data(), 0};
        const ZamStatus st = Table ? zam::aacDecodeSpectralValues(c, book, out, 1024)
                                   : zam::aacDecodeSpectralValuesRef(c, book, out, 1024);
        benchmark::DoNotOptimize(st);
        benchmark::DoNotOptimize(out);
        bits += (c.ptr - data.data()) * 8 + c.offset;
    }
    state.SetBytesProcessed(bits / 8);
    state.counters["values_per_s"] =
        benchmark::Counter(1024.0 * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK_TEMPLATE(BM_SpectralBook, true)->Arg(1)->Arg(5)->Arg(8)->Arg(11);
BENCHMARK_TEMPLATE(BM_SpectralBook, false)->Arg(11);

}  // namespace
