// The LOAS/LATM reader of zamac-decode (tools/common/tool_latm.c) on arbitrary bytes:
// the input is cut into LOAS frames as the tool cuts it, and every element is read
// into a payload buffer of exactly the size the tool gives it. Payloads must fit in
// their frame, and an ADTS header made for one must carry its length.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "tool_latm.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static LatmState state;
    std::memset(&state, 0, sizeof state);
    size_t pos = 0;
    while (pos < size) {
        const size_t length = loas_frame_length(data + pos, size - pos);
        if (length == 0 || length > size - pos) {
            ++pos;
            continue;
        }
        uint8_t* frame = static_cast<uint8_t*>(std::malloc(length - 3 ? length - 3 : 1));
        std::memcpy(frame, data + pos + 3, length - 3);
        uint8_t* out = static_cast<uint8_t*>(std::malloc(8192));
        uint32_t lengths[LATM_MAX_PAYLOADS];
        const char* why = nullptr;
        const int count = latm_read_element(&state, frame, length - 3, out, 8192, lengths, &why);
        if (count < 0 && why == nullptr) std::abort();  // a failure always says why
        size_t total = 0;
        for (int i = 0; i < count; ++i) {
            total += lengths[i];
            uint8_t header[7];
            if (mp4_adts_header(&state.config, lengths[i], header) == 0 &&
                ((size_t)(header[3] & 3) << 11 | (size_t)header[4] << 3 | header[5] >> 5) != lengths[i] + 7)
                std::abort();
        }
        if (total > length - 3) std::abort();
        std::free(out);
        std::free(frame);
        pos += length;
    }
    return 0;
}
