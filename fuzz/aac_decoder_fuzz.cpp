// The whole AAC decoder of zamac-decode (its C sources are compiled in) on arbitrary
// input: framing, resynchronisation, every element reader and stage, concealment.
// Seeds: the first frames of the sample streams and of AAC Main and LTP streams
// (fuzz/seeds/aac_decoder).
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

extern "C" {
#include "../tools/zamac-decode/aac_decoder.c"
#include "../tools/zamac-decode/aac_filterbank.c"
#include "../tools/zamac-decode/aac_fixed.c"
#include "../tools/zamac-decode/aac_layout.c"
#include "../tools/zamac-decode/aac_prediction.c"
#include "../tools/zamac-decode/aac_sf_code.c"
#include "../tools/zamac-decode/ps_decoder.c"
#include "../tools/zamac-decode/sbr_bitstream.c"
#include "../tools/zamac-decode/sbr_decoder.c"
#include "../tools/common/sbr_freq.c"
#include "../tools/zamac-decode/sbr_hfadj.c"
#include "../tools/zamac-decode/sbr_hfgen.c"
#include "../tools/common/sbr_tables.c"
#include "../tools/zamac-decode/aac_swb_offsets.c"
}

namespace {

int acceptFormat(void*, int sampleRate, int channels, uint32_t)
{
    if (sampleRate <= 0 || channels < 1 || channels > AAC_MAX_CHANNELS) __builtin_trap();
    return 0;
}

int acceptSamples(void* ctx, const int16_t* pcm, int frames)
{
    auto* sum = static_cast<uint64_t*>(ctx);
    for (int i = 0; i < frames; ++i) *sum += static_cast<uint16_t>(pcm[i]);  // touch the output
    return 0;
}

}  // namespace


extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::vector<uint8_t> input(size + DECODER_INPUT_PADDING, 0);
    if (size) std::memcpy(input.data(), data, size);
    uint64_t sum = 0;
    PcmSink sink = {&sum, acceptFormat, acceptSamples};
    DecodeOptions options{};
    options.bench = 1;
    options.quiet = 1;  // no per-frame reports
    options.fixed = static_cast<int>(size & 1);  // odd sizes: the integer filter bank
    DecodeStats stats = {0, 0, 0.0};
    aac_decode(input.data(), size, &options, &sink, &stats);
    if (stats.framesConcealed > stats.framesDecoded) __builtin_trap();
    return 0;
}
