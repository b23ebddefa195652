// Side-information unpacking with a random header on arbitrary bytes; what unpacks
// must pack back to the same bytes.
#include <cstring>
#include <vector>

#include "mp3_fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    mp3fuzz::Input in(data, size);
    const Mp3FrameHeader h = mp3fuzz::header(in);
    // The side information plus the three bytes its 32-bit loads may touch.
    const bool mpeg1 = h.ID == 1;
    const int nch = h.mode == 3 ? 1 : 2;
    const int bytes = mpeg1 ? (nch == 1 ? 17 : 32) : (nch == 1 ? 9 : 17);
    std::vector<uint8_t> stream = in.stream(bytes + 3);
    const uint8_t* p = stream.data();
    Mp3SideInfo si[4] = {};
    int32_t mdb = 0, priv = 0, scfsi[8] = {};
    const ZamStatus s = zamsUnpackSideInfo_MP3(&p, si, &mdb, &priv, scfsi, &h);
    if (s != zamStsOk) return 0;
    if (p - stream.data() != bytes) __builtin_trap();
    std::vector<uint8_t> packed(bytes);
    uint8_t* w = packed.data();
    if (zamsPackSideInfo_MP3(si, &w, mdb, priv, scfsi, &h) != zamStsOk || w - packed.data() != bytes)
        __builtin_trap();
    if (std::memcmp(packed.data(), stream.data(), bytes) != 0) __builtin_trap();
    return 0;
}
