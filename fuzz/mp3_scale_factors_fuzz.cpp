// Scale-factor unpacking with random side information on arbitrary bits; what
// unpacks must pack back to the same bits.
#include <cstring>
#include <vector>

#include "mp3_fuzz_input.h"

namespace {
int bitAt(const uint8_t* p, int64_t i) { return (p[i >> 3] >> (7 - (i & 7))) & 1; }
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    mp3fuzz::Input in(data, size);
    const Mp3FrameHeader h = mp3fuzz::header(in);
    Mp3SideInfo si = mp3fuzz::sideInfo(in);
    if (in.take(1) & 1) si.scalefac_compress &= 15;
    int32_t scfsi[4];
    for (int& v : scfsi) v = in.field(2);
    const int32_t granule = in.field(3);
    const int32_t channel = in.field(3);
    const int32_t startOffset = in.field(9);
    // At most 39 values of 5 bits after a 7-bit offset, plus three bytes of loads.
    std::vector<uint8_t> stream = in.stream(29);
    int8_t sf[39];
    std::memset(sf, 0x11, sizeof sf);
    const uint8_t* p = stream.data();
    int32_t offset = startOffset;
    Mp3SideInfo si1 = si;
    if (zamsUnpackScaleFactors_MP3_1u8s(&p, &offset, sf, &si1, scfsi, &h, granule, channel) != zamStsOk) return 0;
    const int64_t used = (p - stream.data()) * 8 + offset - startOffset;
    for (int8_t& v : sf)
        if (v < 0) v = static_cast<int8_t>(-v);  // intensity markers back to their coded value
    // The packer takes the mixed partitions whenever mixed_block_flag is exactly 1,
    // also for long blocks, where the unpacker reads long partitions: no round trip.
    if (h.ID != 1 && si1.block_type != 2 && si1.mixed_block_flag == 1) return 0;
    std::vector<uint8_t> packed(32, 0);
    uint8_t* w = packed.data();
    int32_t woff = startOffset;
    Mp3SideInfo si2 = si1;
    if (zamsPackScaleFactors_MP3_8s1u(sf, &w, &woff, &h, &si2, scfsi, granule, channel) != zamStsOk) __builtin_trap();
    if ((w - packed.data()) * 8 + woff - startOffset != used) __builtin_trap();
    for (int64_t i = 0; i < used; ++i)
        if (bitAt(packed.data(), startOffset + i) != bitAt(stream.data(), startOffset + i)) __builtin_trap();
    if (si2.preflag != si1.preflag) __builtin_trap();
    return 0;
}
