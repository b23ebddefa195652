// ADTS frame header reader.
#include <cstring>

#include "aac_fuzz_common.h"
#include "zamac.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    aacfuzz::runWithExactSlack(data, size, 16, [](uint8_t* buf) -> long {
        uint8_t* p = buf;
        AacAdtsFrameHeader h;
        std::memset(&h, 0, sizeof h);
        if (zamsUnpackADTSFrameHeader_AAC(&p, &h) != zamStsOk) std::abort();
        if (p - buf != (h.protection_absent ? 7 : 9)) std::abort();
        return aacfuzz::bitsFrom(buf, p, 0);
    });
    return 0;
}
