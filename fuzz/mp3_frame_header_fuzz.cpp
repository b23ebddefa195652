// Frame header unpacking on arbitrary bytes, then pack and unpack again.
#include <cstring>
#include <vector>

#include "zamac.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 4) return 0;
    // Exactly the bytes the header can take: 4, or 6 with the CRC word.
    const size_t need = (data[1] & 1) ? 4 : 6;
    if (size < need) return 0;
    std::vector<uint8_t> bytes(data, data + need);
    const uint8_t* p = bytes.data();
    Mp3FrameHeader h{};
    if (zamsUnpackFrameHeader_MP3(&p, &h) != zamStsOk || static_cast<size_t>(p - bytes.data()) != need) __builtin_trap();
    std::vector<uint8_t> packed(need);
    uint8_t* w = packed.data();
    if (zamsPackFrameHeader_MP3(&h, &w) != zamStsOk || static_cast<size_t>(w - packed.data()) != need) __builtin_trap();
    // Everything after the sync bits comes back.
    if ((packed[1] & 0x0F) != (bytes[1] & 0x0F) || std::memcmp(packed.data() + 2, bytes.data() + 2, need - 2) != 0)
        __builtin_trap();
    return 0;
}
