// Layer III Huffman coding of the 576 quantized lines of one granule/channel.
#pragma once

#include <cstdint>

#include "zamac.h"

namespace zam::mp3 {

// What a decode did beyond its outputs, for tests and tools.
struct HuffmanDecodeTrace {
    int32_t bigValueBits;  // bits taken by the big-values zone
    int32_t count1Lines;   // lines of count-1 quadruples kept (after an overrun repair)
    int32_t leftoverBits;  // budget left when count-1 decoding stopped: > 0 skipped, < 0 overrun
};

// Region ends in lines (before clipping to 2 * big_values); regionCount is 2 or 3.
struct RegionPlan {
    int32_t end[3];
    int regionCount;
};

// The work shared by the three decoders, after their argument checks and region
// set-up: checks each region's table as it is reached, decodes, and handles the
// count-1 zone, the zero zone and the non-zero bound. `trace` may be null.
ZamStatus decodeSpectrum(const uint8_t** ppBitStream, int32_t* pOffset, int32_t* pDstIs, int32_t* pDstNonZeroBound,
                         const Mp3SideInfo* si, int32_t hufSize, const RegionPlan& plan, HuffmanDecodeTrace* trace);

// zamsHuffmanDecodeSfb_MP3_1u32s (pSfbTableLong null: the built-in table) with a trace.
ZamStatus huffmanDecodeTraced(const uint8_t** ppBitStream, int32_t* pOffset, int32_t* pDstIs,
                              int32_t* pDstNonZeroBound, const Mp3SideInfo* si, const Mp3FrameHeader* h,
                              int32_t hufSize, const int16_t* pSfbTableLong, HuffmanDecodeTrace* trace);

// zamsHuffmanDecodeSfbMbp_MP3_1u32s after its pointer checks, with a trace.
ZamStatus huffmanDecodeMbpTraced(const uint8_t** ppBitStream, int32_t* pOffset, int32_t* pDstIs,
                                 int32_t* pDstNonZeroBound, const Mp3SideInfo* si, const Mp3FrameHeader* h,
                                 int32_t hufSize, const int16_t* pSfbTableLong, const int16_t* pSfbTableShort,
                                 const int16_t* pMbpTable, HuffmanDecodeTrace* trace);

}  // namespace zam::mp3
