// The whole MP3 path of zamac-decode (framing, reservoir, every library stage,
// synthesis and 16-bit output) on arbitrary input; seeds are pieces of the ISO
// compliance streams. The decoder's C sources are compiled in here as C++.
// mp3_decoder_fixed_fuzz.cpp compiles this file again with MP3_FUZZ_FIXED set: the
// integer path of zamac-decode --fixed.
#ifndef MP3_FUZZ_FIXED
#define MP3_FUZZ_FIXED 0
#endif
#include <cstddef>
#include <cstdio>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "../tools/zamac-decode/mp3_decoder.c"
#include "../tools/zamac-decode/mp3_layer3.c"
#include "../tools/zamac-decode/mp3_layer3_fixed.c"
#include "../tools/zamac-decode/mp3_tables.c"

namespace {

int acceptFormat(void* ctx, int sampleRate, int channels, uint32_t)
{
    if (sampleRate < 8000 || sampleRate > 48000 || channels < 1 || channels > 2) __builtin_trap();
    *static_cast<int*>(ctx) = channels;
    return 0;
}

int checkWrite(void* ctx, const int16_t* pcm, int frames)
{
    const int channels = *static_cast<int*>(ctx);
    if (channels == 0 || (frames != 576 && frames != 1152)) __builtin_trap();
    // Touch every sample so that the sanitizers see any uninitialised or stray read.
    int sum = 0;
    for (int i = 0; i < frames * channels; ++i) sum += pcm[i];
    asm volatile("" : : "r"(sum));
    return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::vector<uint8_t> input(size + DECODER_INPUT_PADDING, 0);
    if (size) std::memcpy(input.data(), data, size);
    int channels = 0;
    PcmSink sink = {&channels, acceptFormat, checkWrite};
    DecodeOptions options{};
    options.quiet = 1;  // no per-frame reports
    options.fixed = MP3_FUZZ_FIXED;
    DecodeStats stats = {0, 0, 0.0};
    mp3_decode(input.data(), size, &options, &sink, &stats);
    return 0;
}
