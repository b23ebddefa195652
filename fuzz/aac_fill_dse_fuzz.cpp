// Fill and data stream elements.
#include <cstring>

#include "aac_fuzz_common.h"
#include "zamac.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1) return 0;
    const int offset = data[0] & 7;
    data++, size--;
    aacfuzz::runWithExactSlack(data, size, 600, [&](uint8_t* buf) -> long {
        uint8_t* p = buf;
        int off = offset;
        int32_t cnt;
        uint8_t fill[269];
        if (zamsDecodeFillElt_AAC(&p, &off, &cnt, fill) != zamStsOk || cnt < 0 || cnt > 269) std::abort();
        return aacfuzz::bitsFrom(buf, p, off);
    });
    aacfuzz::runWithExactSlack(data, size, 600, [&](uint8_t* buf) -> long {
        uint8_t* p = buf;
        int off = offset;
        int32_t tag, cnt;
        uint8_t bytes[510];
        if (zamsDecodeDatStrElt_AAC(&p, &off, &tag, &cnt, bytes) != zamStsOk || cnt < 0 || cnt > 510) std::abort();
        return aacfuzz::bitsFrom(buf, p, off);
    });
    return 0;
}
