// Channel pair element side information, MPEG-2 and MPEG-4 forms.
#include <cstring>

#include "aac_fuzz_common.h"
#include "zamac.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 3) return 0;
    const int offset = data[0] & 7;
    const int predSfbMax = data[1] % 56;  // a few invalid values too
    const int aot = data[2] % 18;
    data += 3, size -= 3;
    for (int form = 0; form < 2; ++form) {
        aacfuzz::runWithExactSlack(data, size, 200, [&](uint8_t* buf) -> long {
            uint8_t* p = buf;
            int off = offset;
            AacIcsInfo ics;
            AacChanPairElt cpe;
            AacMainHeader mh;
            std::memset(&mh, 0, sizeof mh);
            const ZamStatus st = form == 0 ? zamsDecodeChanPairElt_AAC(&p, &off, &ics, &cpe, predSfbMax)
                                           : zamsDecodeChanPairElt_MP4_AAC(&p, &off, &ics, &cpe, &mh, predSfbMax, aot);
            if (st > 0) std::abort();
            if (st == zamStsOk && cpe.common_window && (ics.num_window_groups < 1 || ics.num_window_groups > 8)) {
                std::abort();
            }
            return aacfuzz::bitsFrom(buf, p, off);
        });
    }
    return 0;
}
