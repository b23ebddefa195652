// The SBR and PS bit-stream reader of zamac-decode (its C sources are compiled in):
// sbr_extension_data() with the header, grids, envelopes, noise floors, sinusoids and
// ps_data(), and the frequency tables a header leads to. The input is a sequence of
// payloads on one reader, so time-differential coding refers to earlier ones.
// Byte 0: bit 0 channel pair, bit 1 CRC, bits 2..5 the SBR rate; then records of one
// length byte and that many payload bytes (read exactly: a heap copy of that size).
// Seeds: fill-element payloads of the shared HE-AAC streams (fuzz/seeds/sbr_reader).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

extern "C" {
#include "../tools/zamac-decode/sbr_bitstream.c"
#include "../tools/common/sbr_freq.c"
#include "../tools/common/sbr_tables.c"
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1) return 0;
    static const int kRates[10] = {16000, 22050, 24000, 32000, 44100, 48000, 64000, 88200, 96000, 8000};
    const int channels = (data[0] & 1) + 1, crc = (data[0] >> 1) & 1;
    static SbrReader reader;
    std::memset(&reader, 0, sizeof reader);
    reader.sbrRate = kRates[(data[0] >> 2) % 10];
    for (size_t at = 1; at < size;) {
        const size_t length = data[at++];
        const size_t n = length < size - at ? length : size - at;
        uint8_t* copy = static_cast<uint8_t*>(std::malloc(n ? n : 1));
        std::memcpy(copy, data + at, n);
        at += n;
        SbrBits bits = {copy, static_cast<int>(8 * n), 0, 0};
        SbrFrame frame[2];
        int reset = 0;
        const int r = sbr_read_extension(&reader, &bits, channels, crc, frame, &reset);
        if (r == 0) {
            const SbrFreq& f = reader.freq;
            if (f.kx + f.m > 64 || f.kx > 32 || f.numPatches < 1 || f.numPatches > SBR_MAX_PATCHES) std::abort();
            for (int c = 0; c < channels; ++c)
                if (frame[c].numEnv < 1 || frame[c].numEnv > SBR_MAX_ENV || frame[c].tEnv[frame[c].numEnv] > 19)
                    std::abort();
            if (reader.ps.present && (reader.ps.numEnv < 1 || reader.ps.numEnv > PS_MAX_ENV + 1)) std::abort();
        }
        std::free(copy);
    }
    return 0;
}
