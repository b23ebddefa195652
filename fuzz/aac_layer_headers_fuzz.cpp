// Main and extension headers of layered streams with random flags and limits.
#include <cstring>

#include "aac_fuzz_common.h"
#include "zamac.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 5) return 0;
    const int offset = data[0] & 7;
    const int channels = (data[0] >> 3) % 3 + 1;  // 3 is rejected
    const int flag = (data[0] >> 5) % 3;          // 2 is rejected
    const int tnsFlag = data[1] & 1, msFlag = (data[1] >> 1) & 1, diffFlag = (data[1] >> 2) & 1;
    const int windowSequence = (data[1] >> 3) & 3;
    const int lastMaxSfb = data[2] % 53;
    const int maxSfbLimit = data[3] % 53;
    data += 5, size -= 5;
    static uint8_t msUsed[480];
    aacfuzz::runWithExactSlack(data, size, 400, [&](uint8_t* buf) -> long {
        uint8_t* p = buf;
        int off = offset;
        static AacMainHeader h;
        h.pMsUsed = msUsed;
        const ZamStatus st = zamsDecodeMainHeader_AAC(&p, &off, &h, channels, flag);
        if (st > 0) std::abort();
        return aacfuzz::bitsFrom(buf, p, off);
    });
    aacfuzz::runWithExactSlack(data, size, 400, [&](uint8_t* buf) -> long {
        uint8_t* p = buf;
        int off = offset;
        static AacExtensionHeader h;
        h.pMsUsed = msUsed;
        const ZamStatus st = zamsDecodeExtensionHeader_AAC(&p, &off, &h, tnsFlag, msFlag, diffFlag, lastMaxSfb,
                                                           maxSfbLimit, windowSequence);
        if (st > 0) std::abort();
        return aacfuzz::bitsFrom(buf, p, off);
    });
    return 0;
}
