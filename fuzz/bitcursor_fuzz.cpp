// Writes fields taken from the input with the bit writer and reads them back.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/bitcursor.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    uint8_t out[1024 + 8] = {};
    uint32_t values[256];
    int widths[256];
    int count = 0;
    uint8_t* wp = out;
    int woff = 0;
    for (size_t i = 0; i + 4 < size && count < 256; i += 5) {
        int n = 1 + data[i] % 25;
        uint32_t v;
        std::memcpy(&v, data + i + 1, 4);
        v &= (1u << n) - 1;
        values[count] = v;
        widths[count] = n;
        ++count;
        zam::writeField(wp, woff, v, n);
    }
    const uint8_t* rp = out;
    int roff = 0;
    for (int i = 0; i < count; ++i)
        if (zam::readField(rp, roff, widths[i]) != values[i]) __builtin_trap();
    return 0;
}
