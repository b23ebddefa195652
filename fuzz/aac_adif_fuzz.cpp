// ADIF header with its program configurations, and a lone program configuration
// element at any bit offset.
#include <cstring>

#include "aac_fuzz_common.h"
#include "zamac.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1) return 0;
    const int capacity = data[0] % 18;  // 0 and 17 are rejected
    const int offset = data[0] % 8;
    data++, size--;
    // 16 elements of at most 16 + 20 + 4*(15*5*3 + 3*4 + 7*4 + 15*5) + 8 + 255*8 bits each.
    const size_t maxBytes = 32 + 16 * 600;
    aacfuzz::runWithExactSlack(data, size, maxBytes, [&](uint8_t* buf) -> long {
        uint8_t* p = buf;
        AacAdifHeader h;
        static AacProgramConfig pce[16];
        const ZamStatus st = zamsUnpackADIFHeader_AAC(&p, &h, pce, capacity);
        if (st != zamStsOk && st != zamStsAacPceCountErr) std::abort();
        // After a count failure the pointer is at the byte holding the next
        // unread bit: part of that byte is consumed.
        return aacfuzz::bitsFrom(buf, p, st == zamStsOk ? 0 : 8);
    });
    aacfuzz::runWithExactSlack(data, size, 600, [&](uint8_t* buf) -> long {
        uint8_t* p = buf;
        int off = offset;
        AacProgramConfig pce;
        if (zamsDecodePrgCfgElt_AAC(&p, &off, &pce) != zamStsOk || off != 0) std::abort();
        return aacfuzz::bitsFrom(buf, p, off);
    });
    return 0;
}
